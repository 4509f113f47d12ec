// Which files do other processes hold open? The walk over the handle table, on machines where it meets everything that
// a busy workstation has.
#include "program/everything.h"

namespace {

using namespace win32;
using test::MakeFile, test::MakeFolder;
using Paths = std::vector<std::u16string>;

const std::vector<std::uint64_t> kHangs{emulated::kForEver};

class LockedHandles : public test::Engine {
 protected:
  LockedHandles() { INtDll::Get() = INtDll(); }

  Paths Walk(const char16_t* first, const char16_t* second = nullptr) {
    machine->debugOutput.clear();
    LockedPaths locked;
    EXPECT_EQ(GetLockedFilesAndFoldersList(first, second, locked), 0);
    Paths paths;
    for (int index = 0; index < locked.count; ++index) paths.emplace_back(locked.At(index));
    return paths;
  }
  bool Traced(std::u16string_view text) const { return machine->debugOutput.find(text) != std::u16string::npos; }
  std::shared_ptr<emulated::FileObject> Held(const std::u16string& path) {
    return HoldOpen(path, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE);
  }
  std::shared_ptr<emulated::FileObject> MakeAndHold(const std::u16string& name) {
    MakeFile(source + u"\\" + name, "x");
    return Held(source + u"\\" + name);
  }
  void HoldOnDevice(const std::u16string& name, const std::vector<std::uint64_t>& delays = {}, DWORD process = 4242) {
    emulated::OpenInProcess(*machine, process, std::make_shared<emulated::DeviceFile>(name, delays), FILE_GENERIC_READ);
  }
  // A letter that leads to a device which is no disk of this machine.
  void MapDrive(char16_t letter, const std::u16string& device) {
    auto drive = std::make_unique<emulated::MountedVolume>();
    drive->letter = letter;
    drive->device = device;
    drive->driveType = DRIVE_REMOTE;
    machine->volumes.push_back(std::move(drive));
  }
};

TEST_F(LockedHandles, FilesAndFoldersBelowThePathsInTheOrderOfTheTable) {
  for (const auto* folder : {u"C:\\Data\\Sub", u"C:\\Database"}) MakeFolder(folder);
  for (const auto* file : {u"C:\\Data\\Sub\\b", u"C:\\Data\\a", u"D:\\Target\\t", u"C:\\Database\\f"})
    MakeFile(file, "x");
  [[maybe_unused]] const auto held = {Held(source + u"\\Sub\\b"), Held(u"C:\\Database\\f"), Held(target + u"\\t"),
                                      Held(source + u"\\Sub"),    Held(source + u"\\a"),    Held(source)};
  EXPECT_EQ(Walk(u"c:\\DATA", u"D:\\Target\\"),
            (Paths{u"C:\\Data\\Sub\\b", u"D:\\Target\\t", u"C:\\Data\\Sub", u"C:\\Data\\a", u"C:\\Data"}));
  EXPECT_EQ(Walk(nullptr, u"\\\\?\\D:\\Target"), Paths{u"D:\\Target\\t"});
  EXPECT_EQ(Walk(u"C:\\Data\\Sub", u"C:\\Data\\Sub"), (Paths{u"C:\\Data\\Sub\\b", u"C:\\Data\\Sub"})) << "named once";
  EXPECT_EQ(Walk(nullptr, u""), Paths{}) << "no path is no path at all, not every one";
  EXPECT_TRUE(Traced(u":: Added empty record\n End of unmanaged GetLockedFilesAndFoldersList()"));
  const UniqueFile own{CreateFileW(u"C:\\Data\\a", GENERIC_READ, 7, nullptr, OPEN_EXISTING, 0, nullptr)};
  EXPECT_EQ(Walk(u"C:\\Data\\a"), (Paths{u"C:\\Data\\a", u"C:\\Data\\a"})) << "the program's own count, too";
}

TEST_F(LockedHandles, NetworkDrivesAndMappedDevicesCountWhereALetterLeadsToThem) {
  // A name that begins like another's is not the other's: this is the disk's without its number.
  MapDrive(u'B', u"\\Device\\HarddiskVolume");
  const auto held = MakeAndHold(u"f");
  EXPECT_EQ(Walk(u"C:\\Data"), Paths{u"C:\\Data\\f"});
  MapDrive(u'Z', u"\\Device\\LanmanRedirector\\server\\share");
  MapDrive(u'K', u"\\Device\\KrmDevice3");
  MapDrive(u'X', u"\\Device\\CdRom0");
  for (const auto* name : {u"LanmanRedirector\\server\\share\\dir\\f", u"LanmanRedirector\\server\\share2\\f",
                           u"KrmDevice3\\g", u"CdRom0\\h"})
    HoldOnDevice(u"\\Device\\" + std::u16string(name));
  emulated::OpenInProcess(*machine, 4242, std::make_shared<emulated::NamedObject>(u"Event", u"\\Device\\KrmDevice3\\e"),
                          0x1F0003);
  EXPECT_EQ(Walk(u"Z:\\dir", u"K:\\"), (Paths{u"Z:\\dir\\f", u"K:\\g"}));
  EXPECT_TRUE(Traced(u"\n GetFsFileName Failed.... :( \n")) << "share2 has no letter";
  EXPECT_EQ(Walk(u"X:\\"), Paths{}) << "not a device that counts";
}

// One that answered once may hang at the next question: data arrives in a pipe, and its owner waits again.
TEST_F(LockedHandles, AHandleThatDoesNotAnswerIsGivenUpAndTheWalkGoesOn) {
  HoldOnDevice(u"\\Device\\NamedPipe\\busy", kHangs);
  HoldOnDevice(u"\\Device\\HarddiskVolume1\\Data\\pipe", {0, emulated::kForEver});
  HoldOnDevice(u"\\Device\\HarddiskVolume1\\Data\\slow", {90, 0});
  const auto after = MakeAndHold(u"after");
  HoldOnDevice(u"\\Device\\NamedPipe\\behind", kHangs);
  const std::size_t handles = machine->objects.all().size();
  std::set<std::string> byWorkers;
  machine->gate.Observe([&](const char* name, std::uint64_t) {
    if (emulated::CallingThreadId() != emulated::kFirstThreadId) byWorkers.insert(name);
  });
  const auto start = machine->Now();
  for (int round = 0; round < 20; ++round) ASSERT_EQ(Walk(u"C:\\Data"), (Paths{u"C:\\Data\\slow", u"C:\\Data\\after"}));
  machine->gate.Observe(nullptr);
  EXPECT_EQ(machine->Now() - start, (20u * (100 + 2 * 125) + 75) * 10'000)
      << "100 ms for each that does not answer, and what is left until the next look behind one that did";
  EXPECT_EQ(byWorkers, (std::set<std::string>{"NtQueryInformationFile", "NtQueryObject"}));
  EXPECT_EQ(machine->threads().count(), 0u);
  EXPECT_EQ(machine->objects.all().size(), handles) << "every duplicate is closed";
}

// A thread that starts or exits may hold the loader's lock: it is not ended there, however long that takes.
TEST_F(LockedHandles, AThreadIsEndedInItsQuestionAndNowhereElse) {
  const auto held = MakeAndHold(u"f");
  HoldOnDevice(u"\\Device\\NamedPipe\\busy", kHangs);
  machine->threads().startDelay = 450;
  EXPECT_EQ(Walk(u"C:\\Data"), Paths{u"C:\\Data\\f"}) << "late, but it comes";
  EXPECT_EQ(machine->gate.Count("TerminateThread"), 1u);
  // Where none starts at all, the walk ends with what it has, and no thread that comes too late asks anything.
  machine->threads().startDelay = 60'000;
  machine->gate.ResetCounts();
  const auto start = machine->Now();
  EXPECT_EQ(Walk(u"C:\\Data"), Paths{});
  EXPECT_EQ(machine->Now() - start, 5'000 * 10'000);
  EXPECT_TRUE(
      Traced(u"\n Outside unmanaged GetLockedFilesList()\n Exception in GetLockedFilesAndFoldersList()\n End of"));
  Sleep(120'000);
  EXPECT_EQ(machine->threads().count(), 0u);
  EXPECT_EQ(machine->gate.Count("TerminateThread") + machine->gate.Count("NtQueryInformationFile"), 0u);
}

TEST_F(LockedHandles, OldWindowsHasHandlesThatAreNotAskedAbout) {
  const auto held = MakeAndHold(u"f");
  emulated::AddProcess(*machine, 500, u"SERVICES.exe");
  HoldOnDevice(u"\\Device\\HarddiskVolume1\\Data\\service", {}, 500);
  emulated::OpenInProcess(*machine, 2, std::make_shared<emulated::NamedObject>(u"Event", u""), 0x1F0003);
  HoldOnDevice(u"\\Device\\HarddiskVolume1\\Data\\old", {}, 2);
  ASSERT_TRUE(INtDll::Get().Bind());
  // Ids of processes are where the list of processes has them on 32-bit Windows.
  static NtQuerySystemInformationFunction query = nullptr;
  query = std::exchange(INtDll::Get().NtQuerySystemInformation, [](int kind, void* answer, ULONG size, ULONG* needed) {
    const NTSTATUS status = query(kind, answer, size, needed);
    auto* at = static_cast<BYTE*>(answer);
    for (DWORD next = 1; kind == SystemProcessInformationClass && next != 0; at += next) {
      std::memcpy(at + 76, at + 80, sizeof next);
      std::memset(at + 80, 0, sizeof next);
      std::memcpy(&next, at, sizeof next);
    }
    return status;
  });
  SystemProcessInformation processes;
  ASSERT_TRUE(processes.Refresh());
  EXPECT_EQ(processes.ImageName(4242) + processes.ImageName(77), u"other.exe");
  const auto asked = [&](DWORD majorVersion, const Paths& expected) {
    INtDll::Get().majorVersion = majorVersion;
    machine->gate.ResetCounts();
    EXPECT_EQ(Walk(u"C:\\Data"), expected) << majorVersion;
    return machine->gate.Count("OpenProcess");
  };
  const Paths all{u"C:\\Data\\f", u"C:\\Data\\service", u"C:\\Data\\old"};
  const std::uint64_t questions = asked(5, all);
  EXPECT_EQ(asked(3, all), questions - 1) << "not about the event";
  EXPECT_EQ(asked(4, {all[0], all[2]}), questions - 2) << "nor for the service's name";
  INtDll::Get() = INtDll();
}

// The longest name of a file that fits its answer makes a path that is cut; a longer one is a warning, which is none.
TEST_F(LockedHandles, PathsAreCutToTheirSlots) {
  const auto names = [&] { return Walk(u"C:\\Data").size(); };
  const std::u16string longest = u"\\Data\\" + std::u16string(2040, u'x');
  HoldOnDevice(u"\\Device\\HarddiskVolume1" + longest);
  EXPECT_EQ(Walk(u"C:\\Data"), Paths{u"C:" + longest.substr(0, 2045)});
  HoldOnDevice(u"\\Device\\HarddiskVolume1" + longest + u'x');
  EXPECT_EQ(names(), 1u);
  // Nor is any other answer but success one, for the name in the volume, and a warning for the full one.
  const auto askFile = INtDll::Get().NtQueryInformationFile;
  INtDll::Get().NtQueryInformationFile = [](HANDLE, IO_STATUS_BLOCK*, void*, ULONG, int) -> NTSTATUS { return 0x103; };
  EXPECT_EQ(names(), 0u);
  INtDll::Get().NtQueryInformationFile = askFile;
  static NtQueryObjectFunction askObject = nullptr;
  askObject = INtDll::Get().NtQueryObject;
  INtDll::Get().NtQueryObject = [](HANDLE handle, int kind, void* to, ULONG size, ULONG* needed) {
    const NTSTATUS status = askObject(handle, kind, to, size, needed);
    return kind == ObjectNameInformation ? STATUS_BUFFER_OVERFLOW : status;
  };
  EXPECT_EQ(names(), 0u);
  INtDll::Get().NtQueryObject = askObject;
  EXPECT_EQ(names(), 1u);
}

TEST_F(LockedHandles, TheMachineChangesDuringTheWalk) {
  const auto held = MakeAndHold(u"f");
  const Paths found{u"C:\\Data\\f"};
  HoldOnDevice(u"\\Device\\HarddiskVolume1\\Data\\g", {}, 5000);
  machine->onHandleTableRead = [&] { emulated::EndProcess(*machine, 5000); };
  EXPECT_EQ(Walk(u"C:\\Data"), found) << "a process that ends takes its handles along";
  HoldOnDevice(u"\\Device\\HarddiskVolume1\\Data\\g", {}, 6000);
  emulated::AddProcess(*machine, 6000).isProtected = true;
  // More handles than the first buffer has room for; then more than the second, too.
  const auto open = [&](int count) {
    for (int i = 0; i < count; ++i) HoldOnDevice(u"\\Device\\Other\\x");
  };
  open(600);
  machine->onHandleTableRead = [&] { open(10); };
  machine->gate.ResetCounts();
  EXPECT_EQ(Walk(u"C:\\Data"), found) << "a few more fit";
  EXPECT_LE(machine->gate.Count("CreateThread"), 12u) << "one asks for many names";
  EXPECT_LE(machine->gate.Count("NtQueryObject"), 612u + 20) << "one name each, and a type now and then";
  machine->onHandleTableRead = [&] { open(11); };
  EXPECT_EQ(Walk(u"C:\\Data"), Paths{}) << "more do not, and the walk tells nothing";
  // Slots are never written beyond the last.
  machine->onHandleTableRead = nullptr;
  for (int i = 0; i < LockedPaths::kCapacity; ++i) HoldOnDevice(u"\\Device\\HarddiskVolume1\\Data\\many");
  EXPECT_EQ(Walk(u"C:\\Data").size(), std::size_t{LockedPaths::kCapacity});
}

TEST_F(LockedHandles, WithoutItsEntryPointsOrTablesItTellsNothing) {
  const auto held = MakeAndHold(u"f");
  for (const char* name : {"NtQuerySystemInformation", "NtQueryObject", "NtQueryInformationThread",
                           "NtQueryInformationFile", "NtQueryInformationProcess"}) {
    machine->missingProcedures = {name};
    EXPECT_EQ(Walk(u"C:\\Data"), Paths{}) << name;
  }
  machine->missingProcedures.clear();
  EXPECT_EQ(Walk(u"C:\\Data"), Paths{u"C:\\Data\\f"});
  for (const char* call : {"VirtualAlloc", "NtQuerySystemInformation"})
    for (const std::uint64_t nth : {1u, 2u}) {
      machine->gate.FailCall(call, nth, ERROR_NOT_ENOUGH_MEMORY);
      EXPECT_EQ(Walk(u"C:\\Data"), Paths{}) << call << nth;
      machine->gate.ClearFailures();
    }
  // A list of processes of more than 65,536 bytes.
  for (DWORD id = 10'000; id < 10'400; ++id) emulated::AddProcess(*machine, id, u"one_of_many_services.exe");
  EXPECT_EQ(Walk(u"C:\\Data"), Paths{});
}

TEST_F(LockedHandles, AnExceptionEndsTheWalkWithWhatItHas) {
  const auto first = MakeAndHold(u"a");
  for (std::size_t handle = 0; handle < kFilesAtOnce; ++handle) HoldOnDevice(u"\\Device\\Other\\x");
  const auto second = MakeAndHold(u"b");
  Walk(u"C:\\Data");  // which looks up entry points
  machine->gate.ResetCounts();
  ASSERT_EQ(Walk(u"C:\\Data").size(), 2u);
  const std::uint64_t opened = machine->gate.Count("OpenProcess");
  const std::size_t handles = machine->objects.all().size(), tables = machine->virtualMemory.size();
  for (const auto& [code, text] : {std::pair(EXCEPTION_ACCESS_VIOLATION, std::u16string(u"EXCEPTION_ACCESS_VIOLATION")),
                                   {EXCEPTION_STACK_OVERFLOW, u"EXCEPTION_STACK_OVERFLOW"},
                                   {7, u"UNKNOWN_EXCEPTION. Error Code: 7"}}) {
    machine->gate.RaiseInCall("OpenProcess", opened, code);  // for the name of the second file
    EXPECT_EQ(Walk(u"C:\\Data"), Paths{u"C:\\Data\\a"});
    EXPECT_TRUE(Traced(u"\n ===>>> In ExceptionHandler:: Caught exception\n " + text +
                       u"\n Exception in unmanaged GetLockedFilesList()\n Outside unmanaged GetLockedFilesList()\n "
                       u"Exception in GetLockedFilesAndFoldersList()\n End of unmanaged"));
    machine->gate.ClearFailures();
    EXPECT_TRUE(machine->objects.all().size() == handles && machine->virtualMemory.size() == tables);
  }
}

TEST_F(LockedHandles, AFailureOfAnyCallCostsNoMoreThanTheAnswer) {
  const auto held = MakeAndHold(u"a");
  HoldOnDevice(u"\\Device\\NamedPipe\\busy", kHangs);
  machine->gate.ResetCounts();
  ASSERT_EQ(Walk(u"C:\\Data"), Paths{u"C:\\Data\\a"});
  const std::uint64_t calls = machine->gate.Count();
  for (std::uint64_t nth = 1; nth <= calls; ++nth) {
    INtDll::Get() = INtDll();
    const std::size_t handles = machine->objects.all().size();
    bool closes = false;
    machine->gate.Observe([&, made = 0u](std::string_view call, std::uint64_t) mutable {
      if (++made == nth) closes = call == "CloseHandle";
    });
    machine->gate.FailCall(nth, ERROR_NOT_ENOUGH_MEMORY);
    for (const std::u16string& path : Walk(u"C:\\Data")) EXPECT_EQ(path, u"C:\\Data\\a");
    machine->gate.ClearFailures();
    EXPECT_EQ(machine->objects.all().size(), handles + closes) << nth;
  }
  machine->gate.Observe(nullptr);
}

TEST_F(LockedHandles, NamesOfHandles) {
  std::u16string name;
  int number = 0;
  EXPECT_TRUE(GetObjectTypeNumber(u"Directory", number) && number == 2);
  ASSERT_TRUE(INtDll::Get().Bind());
  const DWORD own = GetCurrentProcessId();
  emulated::AddProcess(*machine, 0x1A2B);
  const UniqueKernelHandle process{OpenProcess(PROCESS_QUERY_INFORMATION, FALSE, 0x1A2B)};
  EXPECT_TRUE(GetObjectTypeName(process.get(), own, name) == 1 && name == u"Process");
  EXPECT_TRUE(GetObjectName(process.get(), 5, name, own) == 1 && name == u"PID: 0x1A2B");
  EXPECT_TRUE(GetFileObjectName(nullptr, name, own) == 1 && name.empty());
  EXPECT_EQ(GetFileObjectName(process.get(), name, 77), 0) << "no such process";
}

}  // namespace
