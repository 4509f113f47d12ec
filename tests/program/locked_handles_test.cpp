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
  void HoldOnDevice(const std::u16string& name, std::vector<std::uint64_t> nameQueryDelays = {}, DWORD process = 4242) {
    emulated::OpenInProcess(*machine, process, std::make_shared<emulated::DeviceFile>(name, std::move(nameQueryDelays)),
                            FILE_GENERIC_READ);
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
  MakeFolder(source + u"\\Sub");
  MakeFile(source + u"\\Sub\\b", "x");
  MakeFile(source + u"\\a", "x");
  MakeFile(target + u"\\t", "x");
  MakeFolder(u"C:\\Database");
  MakeFile(u"C:\\Database\\f", "x");
  const auto held = {Held(source + u"\\Sub\\b"), Held(u"C:\\Database\\f"), Held(target + u"\\t"),
                     Held(source + u"\\Sub"),    Held(source + u"\\a"),    Held(source)};
  const Paths all{u"C:\\Data\\Sub\\b", u"D:\\Target\\t", u"C:\\Data\\Sub", u"C:\\Data\\a", u"C:\\Data"};
  EXPECT_EQ(Walk(u"c:\\DATA", u"D:\\Target\\"), all);
  EXPECT_EQ(Walk(nullptr, u"\\\\?\\D:\\Target"), Paths{u"D:\\Target\\t"});
  EXPECT_EQ(Walk(u"C:\\Data\\Sub", u"C:\\Data\\Sub"), (Paths{u"C:\\Data\\Sub\\b", u"C:\\Data\\Sub"})) << "named once";
  EXPECT_EQ(Walk(nullptr, u""), Paths{}) << "no path is no path at all, not every one";
  EXPECT_EQ(emulated::Utf8(machine->debugOutput),
            "\n Start of unmanaged GetLockedFilesAndFoldersList()"
            "\n Unmanaged GetLockedFilesAndFoldersList():: Before GetLockedFilesList()"
            "\n Inside unmanaged GetLockedFilesList()\n Outside unmanaged GetLockedFilesList()"
            "\n Unmanaged GetLockedFilesAndFoldersList():: After GetLockedFilesList()"
            "\n Unmanaged GetLockedFilesAndFoldersList():: Added empty record"
            "\n End of unmanaged GetLockedFilesAndFoldersList()");
  const UniqueFile own{CreateFileW(u"C:\\Data\\a", GENERIC_READ, 7, nullptr, OPEN_EXISTING, 0, nullptr)};
  EXPECT_EQ(Walk(u"C:\\Data\\a"), (Paths{u"C:\\Data\\a", u"C:\\Data\\a"})) << "the program's own count, too";
  EXPECT_EQ(held.size(), 6u);
}

TEST_F(LockedHandles, NetworkDrivesAndMappedDevicesCountWhereALetterLeadsToThem) {
  // A name that begins like another's is not the other's: this is the disk's without its number.
  MapDrive(u'B', u"\\Device\\HarddiskVolume");
  const auto held = MakeAndHold(u"f");
  EXPECT_EQ(Walk(u"C:\\Data"), Paths{u"C:\\Data\\f"});
  MapDrive(u'Z', u"\\Device\\LanmanRedirector\\server\\share");
  MapDrive(u'K', u"\\Device\\KrmDevice3");
  MapDrive(u'X', u"\\Device\\CdRom0");
  HoldOnDevice(u"\\Device\\LanmanRedirector\\server\\share\\dir\\f");
  HoldOnDevice(u"\\Device\\LanmanRedirector\\server\\share2\\f");
  HoldOnDevice(u"\\Device\\KrmDevice3\\g");
  HoldOnDevice(u"\\Device\\CdRom0\\h");
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
  const std::size_t handles = machine->objects.all().size();
  std::set<std::string> byWorkers;
  machine->gate.Observe([&](const char* name, std::uint64_t) {
    if (emulated::CallingThreadId() != emulated::kFirstThreadId) byWorkers.insert(name);
  });
  const auto start = machine->Now();
  for (int round = 0; round < 20; ++round) ASSERT_EQ(Walk(u"C:\\Data"), (Paths{u"C:\\Data\\slow", u"C:\\Data\\after"}));
  machine->gate.Observe(nullptr);
  EXPECT_EQ(machine->Now() - start, (20u * 2 * 100 + 90) * 10'000) << "100 ms for each of the two";
  EXPECT_EQ(byWorkers, (std::set<std::string>{"NtQueryInformationFile", "NtQueryObject"}));
  EXPECT_EQ(machine->threads().count(), 0u);
  EXPECT_EQ(machine->objects.all().size(), handles) << "every duplicate is closed";
}

// A thread that starts or exits may hold the loader's lock: it is not ended there, however long that takes.
TEST_F(LockedHandles, AThreadIsEndedInItsQuestionAndNowhereElse) {
  const auto held = MakeAndHold(u"f");
  machine->threads().startDelay = 450;
  EXPECT_EQ(Walk(u"C:\\Data"), Paths{u"C:\\Data\\f"}) << "late, but it comes";
  HoldOnDevice(u"\\Device\\NamedPipe\\busy", kHangs);
  machine->gate.ResetCounts();
  std::set<DWORD> asked;
  machine->gate.Observe([&](const char*, std::uint64_t) {
    if (emulated::CallingThreadId() != emulated::kFirstThreadId) asked.insert(emulated::CallingThreadId());
  });
  EXPECT_EQ(Walk(u"C:\\Data"), Paths{u"C:\\Data\\f"});
  machine->gate.Observe(nullptr);
  EXPECT_EQ(machine->gate.Count("TerminateThread"), 1u);
  EXPECT_EQ(asked.size(), machine->gate.Count("CreateThread"));

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

// Its ids of processes are where the list of processes has them on 32-bit Windows.
TEST_F(LockedHandles, OldWindowsHasHandlesThatAreNotAskedAbout) {
  const auto held = MakeAndHold(u"f");
  emulated::AddProcess(*machine, 500, u"SERVICES.exe");
  HoldOnDevice(u"\\Device\\HarddiskVolume1\\Data\\service", {}, 500);
  emulated::OpenInProcess(*machine, 2, std::make_shared<emulated::NamedObject>(u"Event", u""), 0x1F0003);
  HoldOnDevice(u"\\Device\\HarddiskVolume1\\Data\\old", {}, 2);
  ASSERT_TRUE(INtDll::Get().Bind());
  SystemProcessInformation processes;
  ASSERT_TRUE(processes.Refresh());
  EXPECT_EQ(processes.ImageName(500), u"");
  EXPECT_EQ(processes.ImageName(0), machine->others.back().image) << "0 stands there for each";
  static NtQuerySystemInformationFunction query = nullptr;
  query = std::exchange(INtDll::Get().NtQuerySystemInformation, [](int kind, void* answer, ULONG size, ULONG* needed) {
    const NTSTATUS status = query(kind, answer, size, needed);
    auto* at = static_cast<BYTE*>(answer);
    for (DWORD next = 1; kind == SystemProcessInformationClass && next != 0; at += next) {
      std::memcpy(at + 76, at + 80, sizeof next);
      std::memcpy(&next, at, sizeof next);
    }
    return status;
  });
  ASSERT_TRUE(processes.Refresh());
  EXPECT_EQ(processes.ImageName(500), u"SERVICES.exe");
  EXPECT_EQ(processes.ImageName(4242), u"other.exe");
  EXPECT_EQ(processes.ImageName(77), u"");
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
  const std::u16string longest = u"\\Data\\" + std::u16string(2040, u'x');
  HoldOnDevice(u"\\Device\\HarddiskVolume1" + longest);
  EXPECT_EQ(Walk(u"C:\\Data"), Paths{u"C:" + longest.substr(0, 2045)});
  HoldOnDevice(u"\\Device\\HarddiskVolume1" + longest + u'x');
  EXPECT_EQ(Walk(u"C:\\Data").size(), 1u);
  // Nor is any other answer but success one, for the name in the volume, and a warning for the full one.
  const auto names = [&] { return Walk(u"C:\\Data").size(); };
  const auto askFile = INtDll::Get().NtQueryInformationFile;
  INtDll::Get().NtQueryInformationFile = [](HANDLE, IO_STATUS_BLOCK*, void*, ULONG, int) -> NTSTATUS { return 0x103; };
  EXPECT_EQ(names(), 0u);
  INtDll::Get().NtQueryInformationFile = askFile;
  static NtQueryObjectFunction askObject = nullptr;
  askObject =
      std::exchange(INtDll::Get().NtQueryObject, [](HANDLE handle, int kind, void* to, ULONG size, ULONG* needed) {
        const NTSTATUS status = askObject(handle, kind, to, size, needed);
        return kind == ObjectNameInformation ? STATUS_BUFFER_OVERFLOW : status;
      });
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
  machine->onHandleTableRead = nullptr;
  open(600);
  EXPECT_EQ(Walk(u"C:\\Data"), found);
  machine->onHandleTableRead = [&] { open(10); };
  EXPECT_EQ(Walk(u"C:\\Data"), found) << "a few more fit";
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
    EXPECT_FALSE(INtDll::Get().IsBound());
    std::u16string text;
    EXPECT_EQ(GetObjectTypeName(GetCurrentProcess(), GetCurrentProcessId(), text), 0);
    EXPECT_EQ(GetFileObjectName(GetCurrentProcess(), text, GetCurrentProcessId()), 0);
  }
  machine->missingProcedures.clear();
  EXPECT_EQ(Walk(u"C:\\Data"), Paths{u"C:\\Data\\f"});
  for (const auto& [call, nth] : {std::pair("VirtualAlloc", 1u),
                                  {"VirtualAlloc", 2u},
                                  {"NtQuerySystemInformation", 1u},
                                  {"NtQuerySystemInformation", 2u}}) {
    machine->gate.FailCall(call, nth, ERROR_NOT_ENOUGH_MEMORY);
    EXPECT_EQ(Walk(u"C:\\Data"), Paths{}) << call << nth;
    EXPECT_FALSE(Traced(u"No handle information"));
    machine->gate.ClearFailures();
  }
  // A list of processes of more than 65,536 bytes.
  for (DWORD id = 10'000; id < 10'400; ++id) emulated::AddProcess(*machine, id, u"one_of_many_services.exe");
  SystemProcessInformation processes;
  EXPECT_FALSE(processes.Refresh());
  EXPECT_EQ(Walk(u"C:\\Data"), Paths{});
}

TEST_F(LockedHandles, AnExceptionEndsTheWalkWithWhatItHas) {
  const auto first = MakeAndHold(u"a"), second = MakeAndHold(u"b");
  ASSERT_EQ(Walk(u"C:\\Data").size(), 2u);
  machine->gate.ResetCounts();
  Walk(u"C:\\Data");
  const std::uint64_t opened = machine->gate.Count("OpenProcess");
  const std::size_t handles = machine->objects.all().size(), tables = machine->virtualMemory.size();
  const std::pair<DWORD, std::u16string_view> codes[] = {
      {EXCEPTION_ACCESS_VIOLATION, u"\n EXCEPTION_ACCESS_VIOLATION"},
      {EXCEPTION_STACK_OVERFLOW, u"\n EXCEPTION_STACK_OVERFLOW"},
      {EXCEPTION_BREAKPOINT, u"\n EXCEPTION_BREAKPOINT"},
      {EXCEPTION_ARRAY_BOUNDS_EXCEEDED, u"\n EXCEPTION_ARRAY_BOUNDS_EXCEEDED"},
      {7, u"\n UNKNOWN_EXCEPTION. Error Code: 7"}};
  for (const auto& [code, text] : codes) {
    machine->gate.RaiseInCall("OpenProcess", opened, code);  // for the name of the second file
    EXPECT_EQ(Walk(u"C:\\Data"), Paths{u"C:\\Data\\a"});
    EXPECT_TRUE(Traced(std::u16string(u"\n ===>>> In ExceptionHandler:: Caught exception") + std::u16string(text) +
                       u"\n Exception in unmanaged GetLockedFilesList()\n Outside unmanaged GetLockedFilesList()\n "
                       u"Exception in GetLockedFilesAndFoldersList()\n End of unmanaged"));
    machine->gate.ClearFailures();
    EXPECT_EQ(machine->objects.all().size(), handles);
    EXPECT_EQ(machine->virtualMemory.size(), tables);
  }
  EXPECT_EQ(Walk(u"C:\\Data").size(), 2u);
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
    std::uint64_t made = 0;
    std::string refused;
    machine->gate.Observe([&](const char* name, std::uint64_t) {
      if (++made == nth) refused = name;
    });
    machine->gate.FailCall(nth, ERROR_NOT_ENOUGH_MEMORY);
    for (const std::u16string& path : Walk(u"C:\\Data")) EXPECT_EQ(path, u"C:\\Data\\a");
    machine->gate.ClearFailures();
    machine->gate.Observe(nullptr);
    EXPECT_EQ(machine->objects.all().size(), handles + (refused == "CloseHandle" ? 1 : 0)) << refused;
  }
}

TEST_F(LockedHandles, NamesOfHandles) {
  std::u16string name;
  int number = 0;
  EXPECT_TRUE(GetObjectTypeNumber(u"File", number) && number == 26);
  EXPECT_TRUE(GetObjectTypeNumber(u"Directory", number) && number == 2);
  EXPECT_EQ(GetObjectTypeNumber(u"file", number), 0);
  ASSERT_TRUE(INtDll::Get().Bind());
  const DWORD own = GetCurrentProcessId();
  emulated::AddProcess(*machine, 0x1A2B);
  const UniqueKernelHandle process{OpenProcess(PROCESS_QUERY_INFORMATION, FALSE, 0x1A2B)};
  const HANDLE event = emulated::OpenInProcess(
      *machine, 0x1A2B, std::make_shared<emulated::NamedObject>(u"Event", u"\\BaseNamedObjects\\e"), 0x1F0003);
  const auto is = [&](int answer, std::u16string_view expected) { return answer == 1 && name == expected; };
  EXPECT_TRUE(is(GetObjectTypeName(process.get(), own, name), u"Process"));
  EXPECT_TRUE(is(GetObjectName(process.get(), 5, name, own), u"PID: 0x1A2B"));
  EXPECT_TRUE(is(GetObjectName(event, 8, name, 0x1A2B), u"\\BaseNamedObjects\\e"));
  EXPECT_EQ(GetObjectName(event, 8, name, own), 0) << "a handle of another process means nothing here";
  EXPECT_TRUE(is(GetFileObjectName(nullptr, name, own), u""));
  EXPECT_TRUE(is(GetFileObjectName(event, name, 0), u""));
  EXPECT_EQ(GetFileObjectName(event, name, 77), 0) << "no such process";

  // A text that ends outside the answer, or lies in front of it, is none.
  static UNICODE_STRING text;
  const auto query =
      std::exchange(INtDll::Get().NtQueryObject, [](HANDLE, int, void* answer, ULONG size, ULONG* needed) {
        if (needed) *needed = 64;
        if (size < 64) return STATUS_INFO_LENGTH_MISMATCH;
        std::memset(answer, 'x', size);
        std::memcpy(answer, &text, sizeof text);
        static_cast<UNICODE_STRING*>(answer)->Buffer += reinterpret_cast<std::uintptr_t>(answer) / sizeof(char16_t);
        return STATUS_SUCCESS;
      });
  const std::pair<int, std::size_t> cases[] = {{32, 16}, {34, 0}, {-2, 0}, {64, 0}};  // where, and how much is told
  for (const auto& [offset, length] : cases) {
    text = {32, 32, reinterpret_cast<char16_t*>(static_cast<std::intptr_t>(offset))};
    EXPECT_EQ(GetObjectTypeName(process.get(), own, name), 1);
    EXPECT_EQ(name.size(), length) << offset;
  }
  INtDll::Get().NtQueryObject = query;
}

}  // namespace
