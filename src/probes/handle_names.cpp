#include "probes/handle_names.h"

#include <array>
#include <atomic>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <utility>

#include "probes/nt_dll.h"
#include "text/format.h"
#include "win32/handle.h"
#include "win32/process.h"

namespace {

constexpr int kProcessType = 5;
constexpr int kFileType = 26;
// By their numbers, from 0.
// clang-format off
constexpr const char16_t* kTypeNames[] = {
    u"", u"", u"Directory", u"SymbolicLink", u"Token",
    u"Process", u"Thread", u"Unknown7", u"Event", u"EventPair", u"Mutant", u"Unknown11",
    u"Semaphore", u"Timer", u"Profile", u"WindowStation", u"Desktop", u"Section", u"Key", u"Port",
    u"WaitablePort", u"Unknown21", u"Unknown22", u"Unknown23", u"Unknown24", u"IoCompletion", u"File"};
// clang-format on

// What is open while one handle is asked about. Not on the stack: a structured exception runs no destructors there.
struct OpenWhileAsking {
  win32::UniqueKernelHandle process, duplicate, thread;
  void Close() {
    thread.reset();
    duplicate.reset();
    process.reset();
  }
};
OpenWhileAsking asked;

// A handle of any process as one of ours: a foreign one is duplicated, and closed again. One at a time.
class OwnHandle {
 public:
  OwnHandle(const OwnHandle&) = delete;
  OwnHandle& operator=(const OwnHandle&) = delete;
  ~OwnHandle() { asked.Close(); }
  OwnHandle(win32::HANDLE handle, win32::DWORD processId) {
    if (processId == win32::GetCurrentProcessId()) {
      handle_ = handle;
      return;
    }
    asked.process.reset(win32::OpenProcess(win32::PROCESS_DUP_HANDLE, win32::TRUE, processId));
    if (asked.process && win32::DuplicateHandle(asked.process.get(), handle, win32::GetCurrentProcess(),
                                                asked.duplicate.put(), 0, win32::FALSE, win32::DUPLICATE_SAME_ACCESS))
      handle_ = asked.duplicate.get();
  }
  win32::HANDLE get() const { return handle_; }  // null: it could not be had

 private:
  win32::HANDLE handle_ = nullptr;
};

// The UNICODE_STRING at the beginning of an answer, whose characters lie in the same buffer.
std::u16string TextAt(const win32::BYTE* answer, std::size_t size) {
  win32::UNICODE_STRING found{};
  std::memcpy(&found, answer, sizeof found);
  return TextIn(found, answer, size);
}

// Asks NtQueryObject for a class whose answer begins with a UNICODE_STRING. The size is asked for first; without an
// answer to that - older systems answer no more than the string's own size - it is `otherwise`.
bool QueryText(win32::HANDLE handle, int informationClass, win32::ULONG otherwise, std::u16string& text) {
  const INtDll& ntDll = INtDll::Get();
  win32::ULONG size = 0;
  ntDll.NtQueryObject(handle, informationClass, nullptr, 0, &size);
  if (size <= sizeof(win32::UNICODE_STRING)) size = otherwise;
  if (size < sizeof(win32::UNICODE_STRING)) return false;
  const auto buffer = std::make_unique<win32::BYTE[]>(size);
  if (!win32::NT_SUCCESS(ntDll.NtQueryObject(handle, informationClass, buffer.get(), size, nullptr))) return false;
  text = TextAt(buffer.get(), size);
  return true;
}

constexpr win32::NTSTATUS kNoAnswer = static_cast<win32::NTSTATUS>(0xC0000001);  // STATUS_UNSUCCESSFUL

// The questions for one file's name. The thread that asks them may be ended at any moment of its asking, so it touches
// nothing but its calls and this.
struct NameQuery {
  enum State { NotYetAsked, Asking, Answered, GivenUp };

  explicit NameQuery(win32::HANDLE handle) : file(handle) {}

  // On the thread. Where the caller has given up, the thread must not reach its end any more: exiting, it would hold
  // the loader's lock, which nobody would give back if it were ended there.
  void Ask() {
    int expected = NotYetAsked;
    if (!state.compare_exchange_strong(expected, Asking)) return;  // given up before it was asked; nobody ends it
    // Where the volume's own name answers, the full one will, too. It is as long, but for the device in front.
    if (askFile(file, &io, nameInVolume.data(), Size(nameInVolume), win32::FileNameInformation) ==
        win32::STATUS_SUCCESS)
      nativeStatus = askObject(file, win32::ObjectNameInformation, nativeName.data(), Size(nativeName), nullptr);
    expected = Asking;
    if (state.compare_exchange_strong(expected, Answered)) return;
    for (;;) win32::Sleep(win32::INFINITE);
  }

  const win32::NtQueryInformationFileFunction askFile = INtDll::Get().NtQueryInformationFile;
  const win32::NtQueryObjectFunction askObject = INtDll::Get().NtQueryObject;
  const win32::HANDLE file;
  std::atomic<int> state = NotYetAsked;
  win32::NTSTATUS nativeStatus = kNoAnswer;
  win32::IO_STATUS_BLOCK io{};
  NameQuery* nextAbandoned = nullptr;
  alignas(8) std::array<win32::BYTE, 4096> nameInVolume{};
  alignas(8) std::array<win32::BYTE, 8192> nativeName{};

 private:
  template <std::size_t size>
  static constexpr win32::ULONG Size(const std::array<win32::BYTE, size>&) {
    return size;
  }
};

win32::DWORD AskNames(void* parameter) {
  static_cast<NameQuery*>(parameter)->Ask();
  return 0;
}

// Windows starts no threads: something holds them up, and no handle can be asked.
struct NoThreadStarts : std::runtime_error {
  NoThreadStarts() : std::runtime_error("no thread starts") {}
};

// Waits for the answers; false when they do not come: then the thread, which asks for them still, has been ended.
bool WaitForAnswers(win32::HANDLE thread, NameQuery& query) {
  constexpr win32::DWORD kPatience = 100;  // milliseconds
  constexpr int kRoundsToStart = 50;
  for (int round = 0; round < kRoundsToStart; ++round) {
    const win32::DWORD waited = win32::WaitForSingleObject(thread, kPatience);
    int state = NameQuery::Asking;
    if (query.state.compare_exchange_strong(state, NameQuery::GivenUp)) {
      win32::TerminateThread(thread, 0);
      return false;
    }
    if (state == NameQuery::Answered) return true;  // whether or not the thread has come to its end
    if (waited != win32::WAIT_TIMEOUT) break;       // it ended without asking, or the wait failed
  }
  int state = NameQuery::NotYetAsked;
  if (query.state.compare_exchange_strong(state, NameQuery::GivenUp)) throw NoThreadStarts();
  return state == NameQuery::Answered;
}

// A query is not freed while a thread, or the system on its behalf, may still write to it.
class SharedQuery {
 public:
  explicit SharedQuery(win32::HANDLE file) : query_(new NameQuery(file)) {}
  SharedQuery(const SharedQuery&) = delete;
  SharedQuery& operator=(const SharedQuery&) = delete;
  ~SharedQuery() {
    if (started_ && query_->state != NameQuery::Answered)
      query_->nextAbandoned = std::exchange(abandoned_, query_);
    else
      delete query_;
  }
  NameQuery* operator->() { return query_; }

  // False when the answers did not come.
  bool Run() {
    asked.thread.reset(win32::CreateThread(nullptr, 0, AskNames, query_, 0, nullptr));
    started_ = static_cast<bool>(asked.thread);
    return started_ && WaitForAnswers(asked.thread.get(), *query_);
  }

 private:
  static inline NameQuery* abandoned_ = nullptr;  // for good
  NameQuery* const query_;
  bool started_ = false;
};

}  // namespace

void CloseWhatWasAsked() { asked.Close(); }

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
  for (std::size_t at = 1; at < std::size(kTypeNames); ++at)
    if (typeName == kTypeNames[at]) {
      number = static_cast<int>(at);
      return 1;
    }
  return 0;
}

int GetObjectName(win32::HANDLE handle, int typeNumber, std::u16string& name, win32::DWORD processId) {
  if (typeNumber == kFileType) return GetFileObjectName(handle, name, processId);
  name.clear();
  const INtDll& ntDll = INtDll::Get();
  if (!ntDll.IsBound()) return 0;
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

int GetFileObjectName(win32::HANDLE handle, std::u16string& name, win32::DWORD processId) {
  name.clear();
  if (!INtDll::Get().IsBound()) return 0;
  if (!handle || processId == 0) return 1;
  const OwnHandle own(handle, processId);
  if (!own.get()) return 0;
  SharedQuery query(own.get());
  if (!query.Run()) return 1;
  if (!win32::NT_SUCCESS(query->nativeStatus)) return 0;
  name = TextAt(query->nativeName.data(), query->nativeName.size());
  return 1;
}
