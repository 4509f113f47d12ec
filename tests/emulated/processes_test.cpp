// Other processes, hanging queries and raised exceptions, as tests script them.
#include <gtest/gtest.h>

#include <cstring>

#include "contract/files_support.h"
#include "support/machine.h"
#include "win32/emulated/files/file_service.h"
#include "win32/emulated/system/native_queries.h"
#include "win32/emulated/system/processes.h"
#include "win32/emulated/system/threads.h"

using namespace win32;

namespace {

constexpr DWORD kOther = 4242;
constexpr ACCESS_MASK kFileAccess = FILE_GENERIC_READ;

class OtherProcesses : public testing::Test {
 protected:
  struct Record {
    DWORD processId;
    HANDLE handle;
  };

  std::vector<std::uint64_t> Query(int informationClass, ULONG size) {
    std::vector<std::uint64_t> buffer(size / 8);
    status_ = emulated::NtQuerySystemInformation(informationClass, buffer.data(), size, &needed_);
    return buffer;
  }

  // The table's records of one process.
  std::vector<Record> HandlesOf(DWORD processId) {
    const auto buffer = Query(SystemHandleInformationClass, 1 << 20);
    EXPECT_EQ(status_, STATUS_SUCCESS);
    const auto& table = *reinterpret_cast<const SYSTEM_HANDLE_INFORMATION*>(buffer.data());
    std::vector<Record> found;
    for (DWORD i = 0; i < table.NumberOfHandles; ++i)
      if (table.Handles[i].UniqueProcessId == processId)
        found.push_back({processId, reinterpret_cast<HANDLE>(ULONG_PTR{table.Handles[i].HandleValue})});
    return found;
  }

  // A handle of ours for what another process holds; empty when it cannot be reached.
  static UniqueKernelHandle Duplicate(const Record& record) {
    const UniqueKernelHandle process{OpenProcess(PROCESS_DUP_HANDLE, TRUE, record.processId)};
    UniqueKernelHandle duplicate;
    if (process)
      DuplicateHandle(process.get(), record.handle, GetCurrentProcess(), duplicate.put(), 0, FALSE,
                      DUPLICATE_SAME_ACCESS);
    return duplicate;
  }

  static std::u16string ObjectText(HANDLE handle, int informationClass) {
    std::vector<std::uint64_t> buffer(256);
    EXPECT_EQ(emulated::NtQueryObject(handle, informationClass, buffer.data(), 2048, nullptr), STATUS_SUCCESS);
    const auto& string = *reinterpret_cast<const UNICODE_STRING*>(buffer.data());
    return string.Buffer ? std::u16string(string.Buffer, string.Length / 2) : std::u16string();
  }

  std::unique_ptr<emulated::Machine> machine_ = test::TestMachine();
  NTSTATUS status_ = STATUS_SUCCESS;
  ULONG needed_ = 0;
};

TEST_F(OtherProcesses, WhatTheyHoldOpenIsReachedThroughTheTable) {
  contract::Put(u"C:\\file");
  machine_->files().OpenForeign(kOther, u"C:\\file", GENERIC_READ, contract::kShareAll);
  emulated::OpenInProcess(*machine_, kOther, std::make_shared<emulated::NamedObject>(u"Event", u""), 0x1F0003);
  emulated::OpenInProcess(*machine_, kOther,
                          std::make_shared<emulated::DeviceFile>(u"\\Device\\LanmanRedirector\\server\\share\\x"),
                          kFileAccess);
  const auto records = HandlesOf(kOther);
  ASSERT_EQ(records.size(), 3u);
  const char16_t* const types[] = {u"File", u"Event", u"File"};
  const char16_t* const names[] = {u"\\Device\\HarddiskVolume1\\file", u"",
                                   u"\\Device\\LanmanRedirector\\server\\share\\x"};
  for (int i = 0; i < 3; ++i) {
    const auto duplicate = Duplicate(records[static_cast<std::size_t>(i)]);
    ASSERT_TRUE(duplicate);
    EXPECT_TRUE(ObjectText(duplicate.get(), ObjectTypeInformation) == types[i]);
    EXPECT_TRUE(ObjectText(duplicate.get(), ObjectNameInformation) == names[i]);
  }
  EXPECT_TRUE(emulated::FindProcess(*machine_, kOther));

  const auto remote = Duplicate(records[2]);
  char buffer[100];
  IO_STATUS_BLOCK block{};
  ASSERT_EQ(emulated::NtQueryInformationFile(remote.get(), &block, buffer, 100, FileNameInformation), STATUS_SUCCESS);
  EXPECT_EQ(block.Information, 4 + 2 * std::u16string_view(u"\\server\\share\\x").size());
}

TEST_F(OtherProcesses, WhoIsNoAdministratorReachesOnlyHisOwn) {
  emulated::AddProcess(*machine_, kOther);
  emulated::AddProcess(*machine_, 17).isProtected = true;
  EXPECT_TRUE(UniqueKernelHandle{OpenProcess(PROCESS_DUP_HANDLE, FALSE, kOther)});
  EXPECT_FALSE(OpenProcess(PROCESS_DUP_HANDLE, FALSE, 17));
  EXPECT_EQ(GetLastError(), ERROR_ACCESS_DENIED);
  machine_->process.token = emulated::MakeUserToken(emulated::SidFromText(u"S-1-5-21-1-2-3-1001"));
  EXPECT_FALSE(OpenProcess(PROCESS_DUP_HANDLE, FALSE, kOther));
  EXPECT_EQ(GetLastError(), ERROR_ACCESS_DENIED);
  emulated::AddProcess(*machine_, 18).token = machine_->process.token;
  EXPECT_TRUE(UniqueKernelHandle{OpenProcess(PROCESS_DUP_HANDLE, FALSE, 18)});
}

TEST_F(OtherProcesses, TheTableIsOldAsSoonAsItIsRead) {
  const auto event = std::make_shared<emulated::NamedObject>(u"Event", u"");
  emulated::OpenInProcess(*machine_, kOther, event, 0x1F0003);
  // Twelve more handles need more than the 256 bytes that a program may have added.
  machine_->onHandleTableRead = [&] {
    for (int i = 0; i < 12; ++i) emulated::OpenInProcess(*machine_, kOther, event, 0x1F0003);
  };
  Query(SystemHandleInformationClass, 24);
  EXPECT_EQ(status_, STATUS_INFO_LENGTH_MISMATCH);
  Query(SystemHandleInformationClass, needed_ + 256);
  EXPECT_EQ(status_, STATUS_INFO_LENGTH_MISMATCH);

  machine_->onHandleTableRead = [&] { emulated::EndProcess(*machine_, kOther); };
  const auto records = HandlesOf(kOther);
  EXPECT_EQ(records.size(), 25u);
  EXPECT_FALSE(Duplicate(records.front()));
  EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
}

TEST_F(OtherProcesses, AHandleOfAProcessOutlivesIt) {
  emulated::OpenInProcess(*machine_, kOther, std::make_shared<emulated::NamedObject>(u"Event", u""), 0x1F0003);
  const auto record = HandlesOf(kOther).front();
  const UniqueKernelHandle process{OpenProcess(PROCESS_DUP_HANDLE | SYNCHRONIZE, FALSE, kOther)};
  EXPECT_EQ(WaitForSingleObject(process.get(), 10), WAIT_TIMEOUT);
  emulated::EndProcess(*machine_, kOther);
  EXPECT_EQ(WaitForSingleObject(process.get(), 10), WAIT_OBJECT_0);
  HANDLE none = nullptr;
  EXPECT_FALSE(
      DuplicateHandle(process.get(), record.handle, GetCurrentProcess(), &none, 0, FALSE, DUPLICATE_SAME_ACCESS));
}

TEST_F(OtherProcesses, TheProcessListGrowsWithThem) {
  for (DWORD id = 1000; id < 1200; ++id) emulated::AddProcess(*machine_, id, u"a process with a name.exe");
  const auto list = Query(SystemProcessInformationClass, 65'536);
  EXPECT_EQ(status_, STATUS_INFO_LENGTH_MISMATCH);
  EXPECT_GT(needed_, 65'536u);
  const auto whole = Query(SystemProcessInformationClass, needed_);
  ASSERT_EQ(status_, STATUS_SUCCESS);
  // The first record is the idle process's, without a name; the id is at offset 80, and 76 is padding.
  const auto* const first = reinterpret_cast<const std::uint8_t*>(whole.data());
  const auto& idle = *reinterpret_cast<const SYSTEM_PROCESS_INFORMATION*>(first);
  EXPECT_TRUE(idle.UniqueProcessId == nullptr && idle.ImageName.Buffer == nullptr);
  int records = 1;
  for (const auto* at = first;; ++records) {
    std::uint32_t padding = 1;
    std::memcpy(&padding, at + 76, sizeof padding);
    EXPECT_EQ(padding, 0u);
    const auto next = reinterpret_cast<const SYSTEM_PROCESS_INFORMATION*>(at)->NextEntryOffset;
    if (next == 0) break;
    at += next;
  }
  EXPECT_EQ(records, 203);  // and the system's, and ours
}

// What a worker that asks a name is given.
struct Question {
  HANDLE handle = nullptr;
  bool* unwound = nullptr;
  NTSTATUS status = -1;
  char name[200] = {};
};

DWORD AskName(void* parameter) {
  auto& question = *static_cast<Question*>(parameter);
  struct Mark {  // what a frame would do that is left too late
    bool* unwound;
    ~Mark() {
      if (unwound) *unwound = true;
      Sleep(5);
    }
  } const mark{question.unwound};
  IO_STATUS_BLOCK block{};
  question.status = emulated::NtQueryInformationFile(question.handle, &block, question.name, 200, FileNameInformation);
  return 0;
}

TEST_F(OtherProcesses, AQueryThatHangsEndsWithItsThread) {
  emulated::OpenInProcess(
      *machine_, kOther,
      std::make_shared<emulated::DeviceFile>(u"\\Device\\NamedPipe\\busy", std::vector{emulated::kForEver}),
      kFileAccess);
  bool unwound = false;
  const auto pipe = Duplicate(HandlesOf(kOther).front());
  Question question{.handle = pipe.get(), .unwound = &unwound};
  std::vector<std::string> ofWorker;
  DWORD id = 0;
  machine_->gate.Observe([&](const char* name, std::uint64_t) {
    if (emulated::CallingThreadId() == id) ofWorker.emplace_back(name);
  });
  const UniqueKernelHandle thread{CreateThread(nullptr, 0, AskName, &question, 0, &id)};
  const auto before = machine_->Now();
  EXPECT_EQ(WaitForSingleObject(thread.get(), 100), WAIT_TIMEOUT);
  EXPECT_EQ(machine_->Now() - before, 1'000'000);  // 100 ms
  EXPECT_EQ(machine_->threads().count(), 1u);
  EXPECT_FALSE(unwound);
  EXPECT_TRUE(TerminateThread(thread.get(), 3));
  EXPECT_TRUE(unwound);
  EXPECT_EQ(machine_->threads().count(), 0u);
  EXPECT_EQ(WaitForSingleObject(thread.get(), 0), WAIT_OBJECT_0);
  EXPECT_EQ(question.status, -1);
  EXPECT_EQ(ofWorker, std::vector<std::string>{"NtQueryInformationFile"});
}

TEST_F(OtherProcesses, ThreadsThatNobodyAwaitsEndWithTheMachine) {
  emulated::OpenInProcess(
      *machine_, kOther,
      std::make_shared<emulated::DeviceFile>(u"\\Device\\NamedPipe\\busy", std::vector{emulated::kForEver}),
      kFileAccess);
  bool unwound = false;
  const auto pipe = Duplicate(HandlesOf(kOther).front()).release();
  Question hanging{.handle = pipe, .unwound = &unwound}, unstarted;
  CreateThread(nullptr, 0, AskName, &hanging, 0, nullptr);
  Sleep(1);
  CreateThread(nullptr, 0, AskName, &unstarted, 0, nullptr);
  EXPECT_EQ(machine_->threads().count(), 2u);
  machine_.reset();
  EXPECT_TRUE(unwound);
  EXPECT_EQ(unstarted.status, -1);
}

TEST_F(OtherProcesses, TheFirstThreadCannotWaitForEver) {
  emulated::OpenInProcess(
      *machine_, kOther,
      std::make_shared<emulated::DeviceFile>(u"\\Device\\NamedPipe\\busy", std::vector{emulated::kForEver}),
      kFileAccess);
  const auto pipe = Duplicate(HandlesOf(kOther).front());
  std::uint64_t buffer[16];
  EXPECT_TRUE(ObjectText(pipe.get(), ObjectTypeInformation) == u"File");
  EXPECT_THROW(emulated::NtQueryObject(pipe.get(), ObjectNameInformation, buffer, sizeof buffer, nullptr),
               std::logic_error);
}

TEST_F(OtherProcesses, TheGateCountsFailsAndRaisesInQueries) {
  contract::Put(u"C:\\file");
  const auto file = contract::Open(u"C:\\file", GENERIC_READ, contract::kShareAll);
  static HANDLE handle;
  handle = file.get();
  const auto query = [](void* status) {
    std::uint64_t buffer[64];
    *static_cast<NTSTATUS*>(status) =
        emulated::NtQueryObject(handle, ObjectNameInformation, buffer, sizeof buffer, nullptr);
  };
  static DWORD asked;
  const auto filter = [](DWORD code) {
    asked = code;
    return EXCEPTION_EXECUTE_HANDLER;
  };
  NTSTATUS status = -1;
  machine_->gate.FailCall("NtQueryObject", 1, ERROR_ACCESS_DENIED);
  machine_->gate.RaiseInCall("NtQueryObject", 2, EXCEPTION_ACCESS_VIOLATION);
  SetLastError(4711);
  EXPECT_TRUE(CallWithExceptionFilter(query, &status, filter));
  EXPECT_EQ(status, static_cast<NTSTATUS>(0xC0000022));
  EXPECT_FALSE(CallWithExceptionFilter(query, &status, filter));
  EXPECT_EQ(asked, EXCEPTION_ACCESS_VIOLATION);
  EXPECT_TRUE(CallWithExceptionFilter(query, &status, filter));
  EXPECT_EQ(status, STATUS_SUCCESS);
  EXPECT_EQ(machine_->gate.Count("NtQueryObject"), 3u);
  EXPECT_EQ(GetLastError(), 4711u);
}

TEST_F(OtherProcesses, AnOlderNtdllLacksTheQueries) {
  const HMODULE ntdll = GetModuleHandleW(u"ntdll.dll");
  for (const char* const name : {"NtQuerySystemInformation", "NtQueryObject", "NtQueryInformationThread",
                                 "NtQueryInformationFile", "NtQueryInformationProcess"}) {
    EXPECT_TRUE(GetProcAddress(ntdll, name)) << name;
    EXPECT_FALSE(GetProcAddress(GetModuleHandleW(u"kernel32.dll"), name)) << name;
    machine_->missingProcedures.insert(name);
    EXPECT_FALSE(GetProcAddress(ntdll, name)) << name;
  }
}

TEST_F(OtherProcesses, AWorkerDoesNotActForWhomTheFirstThreadImpersonates) {
  machine_->threadToken = emulated::MakeSystemToken();
  static bool impersonating;
  impersonating = true;
  const UniqueKernelHandle thread{CreateThread(
      nullptr, 0,
      [](void* machine) -> DWORD {
        impersonating = static_cast<emulated::Machine*>(machine)->threadToken != nullptr;
        return 0;
      },
      machine_.get(), 0, nullptr)};
  EXPECT_EQ(WaitForSingleObject(thread.get(), INFINITE), WAIT_OBJECT_0);
  EXPECT_FALSE(impersonating);
  EXPECT_TRUE(machine_->threadToken);
}

TEST_F(OtherProcesses, ADriveLetterLeadsToADeviceThatIsNoVolumeHere) {
  auto drive = std::make_unique<emulated::MountedVolume>();
  drive->letter = u'Z';
  drive->driveType = 4;  // DRIVE_REMOTE
  drive->device = u"\\Device\\LanmanRedirector\\server\\share";
  machine_->volumes.push_back(std::move(drive));
  char16_t device[100] = {};
  EXPECT_NE(QueryDosDeviceW(u"Z:", device, 100), 0u);
  EXPECT_TRUE(std::u16string_view(device) == u"\\Device\\LanmanRedirector\\server\\share");
}

TEST_F(OtherProcesses, HandleValuesStayWithinTheRecordsSixteenBits) {
  const auto first = HandlesOf(GetCurrentProcessId());
  for (int i = 0; i < 40'000; ++i) EXPECT_TRUE(CloseHandle(CreateMutexW(nullptr, FALSE, nullptr)));
  const UniqueKernelHandle last{CreateMutexW(nullptr, FALSE, nullptr)};
  EXPECT_LT(reinterpret_cast<ULONG_PTR>(last.get()), 0x10000u);
}

}  // namespace
