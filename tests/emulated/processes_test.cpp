// Other processes, hanging queries and raised exceptions, as tests script them.
#include "emulated/on_machine.h"
#include "win32/emulated/system/native_queries.h"
#include "win32/emulated/system/processes.h"
#include "win32/emulated/system/threads.h"

using namespace win32;

namespace {

constexpr DWORD kOther = 4242;

class OtherProcesses : public test::OnBareMachine {
 protected:
  std::vector<std::uint64_t> Query(int informationClass, ULONG size) {
    std::vector<std::uint64_t> buffer(size / 8);
    status_ = emulated::NtQuerySystemInformation(informationClass, buffer.data(), size, &needed_);
    return buffer;
  }

  // The handles of a process, by the table.
  std::vector<HANDLE> HandlesOf(DWORD processId) {
    const auto buffer = Query(SystemHandleInformationClass, 1 << 20);
    EXPECT_EQ(status_, STATUS_SUCCESS);
    const auto& table = *reinterpret_cast<const SYSTEM_HANDLE_INFORMATION*>(buffer.data());
    std::vector<HANDLE> found;
    for (DWORD i = 0; i < table.NumberOfHandles; ++i)
      if (table.Handles[i].UniqueProcessId == processId)
        found.push_back(reinterpret_cast<HANDLE>(ULONG_PTR{table.Handles[i].HandleValue}));
    return found;
  }

  // A handle of ours for what the other process holds; empty when it cannot be reached.
  static UniqueKernelHandle Duplicate(HANDLE handle) {
    const UniqueKernelHandle process{OpenProcess(PROCESS_DUP_HANDLE, TRUE, kOther)};
    UniqueKernelHandle duplicate;
    if (process)
      DuplicateHandle(process.get(), handle, GetCurrentProcess(), duplicate.put(), 0, FALSE, DUPLICATE_SAME_ACCESS);
    return duplicate;
  }
  // A pipe whose name is never told.
  UniqueKernelHandle HangingPipe() {
    const auto pipe =
        std::make_shared<emulated::DeviceFile>(u"\\Device\\NamedPipe\\busy", std::vector{emulated::kForEver});
    emulated::OpenInProcess(*machine, kOther, pipe, FILE_GENERIC_READ);
    return Duplicate(HandlesOf(kOther).front());
  }

  NTSTATUS status_ = STATUS_SUCCESS;
  ULONG needed_ = 0;
};

TEST_F(OtherProcesses, WhoIsNoAdministratorReachesOnlyHisOwn) {
  emulated::AddProcess(*machine, kOther);
  emulated::AddProcess(*machine, 17).isProtected = true;
  const auto error = [](DWORD id) {
    return contract::ErrorOf(UniqueKernelHandle{OpenProcess(PROCESS_DUP_HANDLE, FALSE, id)});
  };
  EXPECT_EQ(error(kOther), 0u);
  EXPECT_EQ(error(17), ERROR_ACCESS_DENIED);
  BecomeUser();
  EXPECT_EQ(error(kOther), ERROR_ACCESS_DENIED);
  emulated::AddProcess(*machine, 18).token = machine->process.token;
  EXPECT_EQ(error(18), 0u);
}

TEST_F(OtherProcesses, TheProcessListGrowsWithThem) {
  for (DWORD id = 1000; id < 1200; ++id) emulated::AddProcess(*machine, id, u"a process with a name.exe");
  Query(SystemProcessInformationClass, 65'536);
  EXPECT_EQ(status_, STATUS_INFO_LENGTH_MISMATCH);
  EXPECT_GT(needed_, 65'536u);
  const auto whole = Query(SystemProcessInformationClass, needed_);
  ASSERT_EQ(status_, STATUS_SUCCESS);
  // The first record is the idle process's, without a name; the id is at offset 80, and 76 is padding.
  const auto* at = reinterpret_cast<const std::uint8_t*>(whole.data());
  const auto& idle = *reinterpret_cast<const SYSTEM_PROCESS_INFORMATION*>(at);
  EXPECT_TRUE(idle.UniqueProcessId == nullptr && idle.ImageName.Buffer == nullptr);
  int records = 0;
  for (ULONG next = 1; next != 0; at += next, ++records) {
    std::uint32_t padding = 1;
    std::memcpy(&padding, at + 76, sizeof padding);
    EXPECT_EQ(padding, 0u);
    next = reinterpret_cast<const SYSTEM_PROCESS_INFORMATION*>(at)->NextEntryOffset;
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
  bool unwound = false;
  const auto pipe = HangingPipe();
  Question question{.handle = pipe.get(), .unwound = &unwound};
  std::vector<std::string> ofWorker;
  DWORD id = 0;
  machine->gate.Observe([&](const char* name, std::uint64_t) {
    if (emulated::CallingThreadId() == id) ofWorker.emplace_back(name);
  });
  const UniqueKernelHandle thread{CreateThread(nullptr, 0, AskName, &question, 0, &id)};
  const auto before = machine->Now();
  EXPECT_EQ(WaitForSingleObject(thread.get(), 100), WAIT_TIMEOUT);
  EXPECT_EQ(machine->Now() - before, 1'000'000);  // 100 ms
  EXPECT_EQ(machine->threads().count(), 1u);
  EXPECT_FALSE(unwound);
  EXPECT_TRUE(TerminateThread(thread.get(), 3));
  EXPECT_TRUE(unwound);
  EXPECT_EQ(machine->threads().count(), 0u);
  EXPECT_EQ(WaitForSingleObject(thread.get(), 0), WAIT_OBJECT_0);
  EXPECT_EQ(question.status, -1);
  EXPECT_EQ(ofWorker, std::vector<std::string>{"NtQueryInformationFile"});
  // The first thread, which nobody ends, cannot wait for ever.
  std::uint64_t buffer[16];
  EXPECT_THROW(emulated::NtQueryObject(pipe.get(), ObjectNameInformation, buffer, sizeof buffer, nullptr),
               std::logic_error);
}

TEST_F(OtherProcesses, ThreadsThatNobodyAwaitsEndWithTheMachine) {
  bool unwound = false;
  Question hanging{.handle = HangingPipe().release(), .unwound = &unwound}, unstarted;
  CreateThread(nullptr, 0, AskName, &hanging, 0, nullptr);
  Sleep(1);
  CreateThread(nullptr, 0, AskName, &unstarted, 0, nullptr);
  EXPECT_EQ(machine->threads().count(), 2u);
  machine.reset();
  EXPECT_TRUE(unwound);
  EXPECT_EQ(unstarted.status, -1);
}

// A plan that is never carried out is told of; who asks how many were knows himself.
TEST_F(OtherProcesses, TheGateTellsOfCallsThatWereNeverMade) {
  std::vector<std::string> told;
  machine->gate.onUnreached = [&](const std::string& call) { told.push_back(call); };
  machine->gate.FailCall("Sleep", 2, ERROR_ACCESS_DENIED);
  machine->gate.FailCall("GetTickCount", 1, ERROR_ACCESS_DENIED);
  machine->gate.FailCall(1, ERROR_ACCESS_DENIED);
  Sleep(1);
  machine->gate.ClearFailures();
  EXPECT_EQ(told, (std::vector<std::string>{"Sleep, call 2", "GetTickCount, call 1"}));
  EXPECT_EQ(machine->gate.failed(), std::set<std::string>{"Sleep"});
  machine->gate.FailCall("Sleep", 9, ERROR_ACCESS_DENIED);
  EXPECT_EQ(machine->gate.failures(), 1u);
  machine->gate.ClearFailures();
  EXPECT_EQ(told.size(), 2u);
}

TEST_F(OtherProcesses, AWorkerDoesNotActForWhomTheFirstThreadImpersonates) {
  machine->threadToken = emulated::MakeSystemToken();
  static bool impersonating;
  impersonating = true;
  const auto work = [](void* of) -> DWORD {
    impersonating = static_cast<emulated::Machine*>(of)->threadToken != nullptr;
    return 0;
  };
  const UniqueKernelHandle thread{CreateThread(nullptr, 0, work, machine.get(), 0, nullptr)};
  EXPECT_EQ(WaitForSingleObject(thread.get(), INFINITE), WAIT_OBJECT_0);
  EXPECT_FALSE(impersonating);
  EXPECT_TRUE(machine->threadToken);
}

TEST_F(OtherProcesses, HandleValuesStayWithinTheRecordsSixteenBits) {
  for (int i = 0; i < 40'000; ++i) EXPECT_TRUE(CloseHandle(CreateMutexW(nullptr, FALSE, nullptr)));
  const UniqueKernelHandle last{CreateMutexW(nullptr, FALSE, nullptr)};
  EXPECT_LT(reinterpret_cast<ULONG_PTR>(last.get()), 0x10000u);
}

}  // namespace
