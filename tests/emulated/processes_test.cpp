// Other processes, hanging queries and raised exceptions, as tests script them.
#include <gtest/gtest.h>

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

  // The table's records of one process.
  std::vector<Record> HandlesOf(DWORD processId) {
    std::vector<std::uint64_t> buffer((1 << 20) / 8);
    EXPECT_EQ(emulated::NtQuerySystemInformation(SystemHandleInformationClass, buffer.data(), 1 << 20, nullptr),
              STATUS_SUCCESS);
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

  std::unique_ptr<emulated::Machine> machine_ = test::TestMachine();
};

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

TEST_F(OtherProcesses, HandleValuesStayWithinTheRecordsSixteenBits) {
  const auto first = HandlesOf(GetCurrentProcessId());
  for (int i = 0; i < 40'000; ++i) EXPECT_TRUE(CloseHandle(CreateMutexW(nullptr, FALSE, nullptr)));
  const UniqueKernelHandle last{CreateMutexW(nullptr, FALSE, nullptr)};
  EXPECT_LT(reinterpret_cast<ULONG_PTR>(last.get()), 0x10000u);
}

}  // namespace
