#include "probes/handle_names.h"

#include <array>
#include <atomic>
#include <cstring>
#include <memory>
#include <span>
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

// What is open while handles are asked about. Not on the stack: a structured exception runs no destructors there.
struct OpenWhileAsking {
  win32::UniqueKernelHandle process, thread;
  std::array<win32::UniqueKernelHandle, kFilesAtOnce> duplicates;
  void Close() {
    thread.reset();
    for (win32::UniqueKernelHandle& duplicate : duplicates) duplicate.reset();
    process.reset();
  }
};
OpenWhileAsking asked;

// A handle of any process as one of ours, a foreign one as the duplicate of this number; null when it cannot be had.
win32::HANDLE AsOwn(win32::HANDLE handle, win32::DWORD processId, std::size_t number) {
  if (processId == win32::GetCurrentProcessId()) return handle;
  win32::UniqueKernelHandle& duplicate = asked.duplicates[number];
  asked.process.reset(win32::OpenProcess(win32::PROCESS_DUP_HANDLE, win32::TRUE, processId));
  const bool had =
      asked.process && win32::DuplicateHandle(asked.process.get(), handle, win32::GetCurrentProcess(), duplicate.put(),
                                              0, win32::FALSE, win32::DUPLICATE_SAME_ACCESS);
  asked.process.reset();
  return had ? duplicate.get() : nullptr;
}

struct ClosedAtTheEnd {
  ClosedAtTheEnd() = default;
  ClosedAtTheEnd(const ClosedAtTheEnd&) = delete;
  ClosedAtTheEnd& operator=(const ClosedAtTheEnd&) = delete;
  ~ClosedAtTheEnd() { asked.Close(); }
};

// The same, closed again. One at a time.
class OwnHandle {
 public:
  OwnHandle(win32::HANDLE handle, win32::DWORD processId) : handle_(AsOwn(handle, processId, 0)) {}
  win32::HANDLE get() const { return handle_; }

 private:
  const ClosedAtTheEnd closed_;
  const win32::HANDLE handle_;
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

// The question for one file's name.
struct NameQuery {
  enum State { NotYetAsked, Asking, Answered, GivenUp };

  win32::HANDLE file = nullptr;
  std::atomic<int> state = NotYetAsked;
  win32::NTSTATUS nativeStatus = kNoAnswer;
  alignas(8) std::array<win32::BYTE, 8192> nativeName;
};

// The questions that one thread asks, one after the other. It may be ended at any moment of its asking, so it touches
// nothing but its calls and this.
class NameQueries {
 public:
  // Before a thread is started for these files, kFilesAtOnce at most.
  void Begin(std::span<const win32::HANDLE> files) {
    askFile_ = INtDll::Get().NtQueryInformationFile;
    askObject_ = INtDll::Get().NtQueryObject;
    count_ = files.size();
    for (std::size_t at = 0; at < count_; ++at) {
      queries_[at].file = files[at];
      queries_[at].state = NameQuery::NotYetAsked;
      queries_[at].nativeStatus = kNoAnswer;
    }
  }

  // On the thread. It does not touch the questions any more once the last of them is answered.
  void AskAll() {
    const std::size_t count = count_;
    for (std::size_t at = 0; at < count; ++at)
      if (!Ask(queries_[at])) return;
  }
  // How many are answered: those up to the first that is not.
  std::size_t Answered() const {
    std::size_t at = 0;
    while (at < count_ && queries_[at].state == NameQuery::Answered) ++at;
    return at;
  }
  std::size_t count() const { return count_; }
  NameQuery& operator[](std::size_t at) { return queries_[at]; }

  NameQueries* nextAbandoned = nullptr;

 private:
  // Where the caller has given up, the thread must not reach its end any more: exiting, it would hold the loader's
  // lock, which nobody would give back if it were ended there.
  bool Ask(NameQuery& query) {
    int expected = NameQuery::NotYetAsked;
    if (!query.state.compare_exchange_strong(expected, NameQuery::Asking)) return false;  // given up; nobody ends it
    // Where the volume's own name answers, the full one will, too. It is as long, but for the device in front.
    if (askFile_(query.file, &io_, nameInVolume_.data(), Size(nameInVolume_), win32::FileNameInformation) ==
        win32::STATUS_SUCCESS)
      query.nativeStatus = askObject_(query.file, win32::ObjectNameInformation, query.nativeName.data(),
                                      Size(query.nativeName), nullptr);
    expected = NameQuery::Asking;
    if (query.state.compare_exchange_strong(expected, NameQuery::Answered)) return true;
    for (;;) win32::Sleep(win32::INFINITE);
  }
  template <std::size_t size>
  static constexpr win32::ULONG Size(const std::array<win32::BYTE, size>&) {
    return size;
  }

  win32::NtQueryInformationFileFunction askFile_ = nullptr;
  win32::NtQueryObjectFunction askObject_ = nullptr;
  std::size_t count_ = 0;
  win32::IO_STATUS_BLOCK io_{};
  alignas(8) std::array<win32::BYTE, 4096> nameInVolume_;
  std::array<NameQuery, kFilesAtOnce> queries_;
};

win32::DWORD AskNames(void* parameter) {
  static_cast<NameQueries*>(parameter)->AskAll();
  return 0;
}

// Waits for the answers. When one does not come, the thread, which asks for it still, has been ended. False: Windows
// starts no threads, something holds them up, and no handle can be asked.
bool WaitForAnswers(win32::HANDLE thread, NameQueries& queries) {
  constexpr win32::DWORD kBetweenLooks = 25;                   // milliseconds
  constexpr int kLooksAtOneQuestion = 4, kLooksToStart = 200;  // 100 milliseconds, 5 seconds
  std::size_t answered = 0;
  for (int looks = 1; looks <= kLooksToStart; ++looks) {
    const win32::DWORD waited = win32::WaitForSingleObject(thread, kBetweenLooks);
    const std::size_t before = std::exchange(answered, queries.Answered());
    if (answered == queries.count()) return true;  // whether or not the thread has come to its end
    const bool stillRuns = waited == win32::WAIT_TIMEOUT;
    if (answered > before) looks = 0;  // the question that it is at now has its own time
    if (stillRuns && looks < kLooksAtOneQuestion) continue;
    int state = NameQuery::Asking;
    if (queries[answered].state.compare_exchange_strong(state, NameQuery::GivenUp)) {
      win32::TerminateThread(thread, 0);
      return true;
    }
    if (state == NameQuery::NotYetAsked && !stillRuns) break;  // it ended, or the wait failed
  }
  int state = NameQuery::NotYetAsked;
  return !queries[answered].state.compare_exchange_strong(state, NameQuery::GivenUp);
}

// Questions are neither freed nor used again while a thread, or the system on its behalf, may still write to them.
class SharedQueries {
 public:
  explicit SharedQueries(std::span<const win32::HANDLE> files)
      : queries_(spare_ ? std::exchange(spare_, nullptr) : new NameQueries) {
    queries_->Begin(files);
  }
  SharedQueries(const SharedQueries&) = delete;
  SharedQueries& operator=(const SharedQueries&) = delete;
  ~SharedQueries() {
    if (started_ && queries_->Answered() < queries_->count())
      queries_->nextAbandoned = std::exchange(abandoned_, queries_);
    else
      delete std::exchange(spare_, queries_);
  }
  NameQuery& operator[](std::size_t at) { return (*queries_)[at]; }
  std::size_t Answered() const { return queries_->Answered(); }

  // As WaitForAnswers. Where no thread can be made, none of these is answered.
  bool Run() {
    asked.thread.reset(win32::CreateThread(nullptr, 0, AskNames, queries_, 0, nullptr));
    started_ = static_cast<bool>(asked.thread);
    return !started_ || WaitForAnswers(asked.thread.get(), *queries_);
  }

 private:
  static inline NameQueries* abandoned_ = nullptr;  // for good
  static inline NameQueries* spare_ = nullptr;
  NameQueries* const queries_;
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
  FileToName file{handle, processId};
  if (!GetFileObjectNames({&file, 1})) throw std::runtime_error("no thread starts");
  name = std::move(file.name);
  return file.result;
}

bool GetFileObjectNames(std::span<FileToName> files) {
  if (!INtDll::Get().IsBound()) return true;
  const ClosedAtTheEnd closed;
  std::array<win32::HANDLE, kFilesAtOnce> handles{};
  std::array<FileToName*, kFilesAtOnce> askedFor{};
  std::size_t count = 0;
  for (FileToName& file : files) {
    if (!file.handle || file.processId == 0)
      file.result = 1;
    else if ((handles[count] = AsOwn(file.handle, file.processId, count)))
      askedFor[count++] = &file;
  }
  // Behind one that does not answer, another thread goes on.
  for (std::size_t next = 0; next < count; ++next) {
    SharedQueries queries(std::span<const win32::HANDLE>(handles).subspan(next, count - next));
    const bool starts = queries.Run();
    for (std::size_t at = 0, answered = queries.Answered(); at < answered; ++at, ++next) {
      NameQuery& query = queries[at];
      askedFor[next]->result = win32::NT_SUCCESS(query.nativeStatus) ? 1 : 0;
      if (askedFor[next]->result) askedFor[next]->name = TextAt(query.nativeName.data(), query.nativeName.size());
    }
    if (!starts) return false;
    if (next < count) askedFor[next]->result = 1;  // without a name
  }
  return true;
}
