#include "probes/handle_names.h"

#include <array>
#include <atomic>
#include <cstring>
#include <memory>
#include <vector>

#include "log/format.h"
#include "probes/nt_dll.h"
#include "win32/handle.h"
#include "win32/process.h"

namespace {

constexpr int kProcessType = 5;
constexpr int kFileType = 26;
constexpr std::array<const char16_t*, 27> kTypeNames{u"",
                                                     u"",
                                                     u"Directory",
                                                     u"SymbolicLink",
                                                     u"Token",
                                                     u"Process",
                                                     u"Thread",
                                                     u"Unknown7",
                                                     u"Event",
                                                     u"EventPair",
                                                     u"Mutant",
                                                     u"Unknown11",
                                                     u"Semaphore",
                                                     u"Timer",
                                                     u"Profile",
                                                     u"WindowStation",
                                                     u"Desktop",
                                                     u"Section",
                                                     u"Key",
                                                     u"Port",
                                                     u"WaitablePort",
                                                     u"Unknown21",
                                                     u"Unknown22",
                                                     u"Unknown23",
                                                     u"Unknown24",
                                                     u"IoCompletion",
                                                     u"File"};

// A handle of any process as one of ours: a foreign one is duplicated, and closed again.
class OwnHandle {
 public:
  OwnHandle(win32::HANDLE handle, win32::DWORD processId) {
    if (processId == win32::GetCurrentProcessId()) {
      handle_ = handle;
      return;
    }
    process_.reset(win32::OpenProcess(win32::PROCESS_DUP_HANDLE, win32::TRUE, processId));
    if (process_ && win32::DuplicateHandle(process_.get(), handle, win32::GetCurrentProcess(), duplicate_.put(), 0,
                                           win32::FALSE, win32::DUPLICATE_SAME_ACCESS))
      handle_ = duplicate_.get();
  }
  win32::HANDLE get() const { return handle_; }  // null: it could not be had

 private:
  win32::UniqueKernelHandle process_, duplicate_;
  win32::HANDLE handle_ = nullptr;
};

// Asks NtQueryObject for a class whose answer begins with a UNICODE_STRING. The size is asked for first; without an
// answer to that it is `otherwise`.
bool QueryText(win32::HANDLE handle, int informationClass, win32::ULONG otherwise, std::u16string& text) {
  const INtDll& ntDll = INtDll::Get();
  win32::ULONG size = 0;
  ntDll.NtQueryObject(handle, informationClass, nullptr, 0, &size);
  if (size == 0) size = otherwise;
  if (size < sizeof(win32::UNICODE_STRING)) return false;
  const auto buffer = std::make_unique<win32::BYTE[]>(size);
  if (!win32::NT_SUCCESS(ntDll.NtQueryObject(handle, informationClass, buffer.get(), size, &size))) return false;
  win32::UNICODE_STRING found{};
  std::memcpy(&found, buffer.get(), sizeof found);
  text.clear();
  if (found.Buffer) text.assign(found.Buffer, found.Length / sizeof(char16_t));
  return true;
}

// One question for a file's name. The thread that asks it may be ended at any moment, so it touches nothing but this.
struct NameQuery {
  enum State { NotYetAsked, Asking, Answered };

  win32::NtQueryInformationFileFunction ask;
  win32::HANDLE file;
  std::atomic<int> state = NotYetAsked;
  win32::NTSTATUS status = 0;
  win32::IO_STATUS_BLOCK io{};
  alignas(win32::FILE_NAME_INFORMATION) std::array<win32::BYTE, 4096> buffer{};

  std::u16string Name() const {
    win32::DWORD length = 0;
    std::memcpy(&length, buffer.data(), sizeof length);
    constexpr std::size_t kBegin = offsetof(win32::FILE_NAME_INFORMATION, FileName);
    std::u16string name(std::min<std::size_t>(length, buffer.size() - kBegin) / sizeof(char16_t), u'\0');
    std::memcpy(name.data(), buffer.data() + kBegin, name.size() * sizeof(char16_t));
    return name;
  }
};

win32::DWORD AskName(void* parameter) {
  NameQuery& query = *static_cast<NameQuery*>(parameter);
  query.state = NameQuery::Asking;
  query.status = query.ask(query.file, &query.io, query.buffer.data(), static_cast<win32::ULONG>(query.buffer.size()),
                           win32::FileNameInformation);
  query.state = NameQuery::Answered;
  return 0;
}

// Waits for the answer; false when it does not come and the thread has been ended. It is ended nowhere but in its
// question: while it starts and while it exits it may hold the loader's lock, which nobody would give back, and then it
// needs nothing but time.
bool WaitForAnswer(win32::HANDLE thread, const NameQuery& query) {
  constexpr win32::DWORD kPatience = 100;  // milliseconds
  for (;;) {
    const win32::DWORD waited = win32::WaitForSingleObject(thread, kPatience);
    if (waited == win32::WAIT_OBJECT_0) return true;
    if (waited != win32::WAIT_TIMEOUT || win32::SuspendThread(thread) == win32::WAIT_FAILED) return false;
    if (query.state == NameQuery::Asking) {
      win32::TerminateThread(thread, 0);
      return false;
    }
    win32::ResumeThread(thread);
  }
}

// The system may still write an answer where it was asked to after the thread is gone, so that memory is given up, too.
void Abandon(std::unique_ptr<NameQuery> query) {
  static auto& abandoned = *new std::vector<std::unique_ptr<NameQuery>>;  // outlives everything
  abandoned.push_back(std::move(query));
}

}  // namespace

win32::HANDLE HandleOf(const HandleRecord& record) {
  return reinterpret_cast<win32::HANDLE>(win32::ULONG_PTR{record.handle});
}

int GetObjectTypeName(win32::HANDLE handle, win32::DWORD processId, std::u16string& name) {
  name.clear();
  if (!INtDll::Get().IsBound()) return 0;
  const OwnHandle own(handle, processId);
  return own.get() && QueryText(own.get(), win32::ObjectTypeInformation, 0, name) ? 1 : 0;
}

int GetObjectTypeNumber(const std::u16string& typeName, int& number) {
  for (std::size_t at = 1; at < kTypeNames.size(); ++at)
    if (typeName == kTypeNames[at]) {
      number = static_cast<int>(at);
      return 1;
    }
  return 0;
}

int GetObjectName(win32::HANDLE handle, int typeNumber, std::u16string& name, win32::DWORD processId) {
  name.clear();
  const INtDll& ntDll = INtDll::Get();
  if (!ntDll.IsBound()) return 0;
  if (typeNumber == kFileType) {
    bool gaveUp = false;
    std::u16string nameInVolume;
    if (!GetFileObjectName(handle, nameInVolume, processId, &gaveUp)) return 0;
    if (gaveUp) return 1;
  }
  const OwnHandle own(handle, processId);
  if (!own.get()) return 0;
  if (typeNumber == kProcessType) {
    win32::PROCESS_BASIC_INFORMATION basic{};
    if (!win32::NT_SUCCESS(
            ntDll.NtQueryInformationProcess(own.get(), win32::ProcessBasicInformation, &basic, sizeof basic, nullptr)))
      return 0;
    name = FormatText(u"PID: 0x%X", static_cast<win32::DWORD>(basic.UniqueProcessId));
    return 1;
  }
  constexpr win32::ULONG kUnknownSize = 8192;
  return QueryText(own.get(), win32::ObjectNameInformation, kUnknownSize, name) ? 1 : 0;
}

int GetFileObjectName(win32::HANDLE handle, std::u16string& name, win32::DWORD processId, bool* gaveUp) {
  name.clear();
  if (gaveUp) *gaveUp = false;
  const INtDll& ntDll = INtDll::Get();
  if (!ntDll.IsBound()) return 0;
  const auto giveUp = [&] {
    if (gaveUp) *gaveUp = true;
    return 1;
  };
  if (!handle || processId == 0) return giveUp();
  const OwnHandle own(handle, processId);
  if (!own.get()) return 0;

  auto query = std::make_unique<NameQuery>();
  query->ask = ntDll.NtQueryInformationFile;
  query->file = own.get();
  const win32::UniqueKernelHandle thread(win32::CreateThread(nullptr, 0, AskName, query.get(), 0, nullptr));
  if (!thread) return giveUp();
  if (!WaitForAnswer(thread.get(), *query)) {
    Abandon(std::move(query));
    return giveUp();
  }
  if (query->status != win32::STATUS_SUCCESS) return 0;
  name = query->Name();
  return 1;
}
