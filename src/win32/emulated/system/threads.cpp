// How the program's threads take turns, and the calls of win32/process.h that make, end and await them.
#include "win32/emulated/system/threads.h"

#include <algorithm>
#include <stdexcept>

#include "win32/emulated/system/mutex.h"
#include "win32/emulated/system/processes.h"
#include "win32/emulated/system/pseudo_handles.h"
#include "win32/system.h"

namespace emulated {

namespace {

constexpr FileTime kPerMillisecond = 10'000;

// Unwinds a thread that is ended from outside.
struct ThreadEnded {};

// Null in the program's first thread.
thread_local ThreadObject* calling = nullptr;

}  // namespace

win32::DWORD CallingThreadId() { return calling ? calling->id : kFirstThreadId; }
bool CallingThreadIsEnding() { return calling && calling->ending_; }

Threads::Threads(Machine& machine)
    : machine_(machine), first_(std::make_shared<ThreadObject>(kFirstThreadId)), nextId_(kFirstThreadId + 4) {}

Threads::~Threads() { EndAll(); }

std::shared_ptr<ThreadObject> Threads::Create(win32::LPTHREAD_START_ROUTINE start, void* parameter) {
  auto thread = std::make_shared<ThreadObject>(nextId_);
  nextId_ += 4;
  thread->start_ = start;
  thread->parameter_ = parameter;
  if (startDelay != 0) {
    thread->wake_ = machine_.Now() + startDelay * kPerMillisecond;
    thread->ready_ = [this, wake = *thread->wake_] { return machine_.Now() >= wake; };
  }
  threads_.push_back(thread);
  return thread;
}

std::shared_ptr<ThreadObject> Threads::Calling() {
  for (const auto& thread : threads_)
    if (thread.get() == calling) return thread;
  return first_;
}

void Threads::Run(const std::shared_ptr<ThreadObject>& thread) {
  thread->ready_ = nullptr;
  thread->wake_.reset();
  std::swap(machine_.threadToken, thread->token_);
  if (thread->host_.joinable()) {
    thread->run_.release();
  } else {
    thread->host_ = std::thread([self = thread.get()] {
      calling = self;
      try {
        const win32::DWORD code = self->start_(self->parameter_);
        if (!self->ending_) self->exitCode = code;
      } catch (const ThreadEnded&) {
      }
      self->ended = true;
      self->stopped_.release();
    });
  }
  thread->stopped_.acquire();
  std::swap(machine_.threadToken, thread->token_);
  if (!thread->ended) return;
  thread->host_.join();
  thread->token_.reset();
  std::erase(threads_, thread);
}

void Threads::RunAllThatCan() {
  for (;;) {
    const auto next = std::find_if(threads_.begin(), threads_.end(),
                                   [](const auto& thread) { return !thread->ready_ || thread->ready_(); });
    if (next == threads_.end()) return;
    Run(std::shared_ptr(*next));
  }
}

std::optional<FileTime> Threads::NextWake() const {
  std::optional<FileTime> next;
  for (const auto& thread : threads_)
    if (thread->wake_ && (!next || *thread->wake_ < *next)) next = thread->wake_;
  return next;
}

bool Threads::Wait(Call& call, const std::function<bool()>& signalled, win32::DWORD milliseconds) {
  if (signalled()) return true;
  std::optional<FileTime> deadline;
  if (milliseconds != win32::INFINITE)
    deadline = machine_.Now() + static_cast<FileTime>(milliseconds) * kPerMillisecond;
  if (calling) {  // the first thread goes on; it comes back here when it waits itself
    ThreadObject& self = *calling;
    const Call::Pause pause(call);
    self.ready_ = [&] { return signalled() || (deadline && machine_.Now() >= *deadline); };
    self.wake_ = deadline;
    self.stopped_.release();
    self.run_.acquire();
    if (self.ending_) throw ThreadEnded{};
    return signalled();
  }
  for (;;) {
    {
      const Call::Pause pause(call);
      RunAllThatCan();
    }
    if (signalled()) return true;
    const std::optional<FileTime> wake = NextWake();
    if (!wake && !deadline) throw std::logic_error("the program's first thread waits for ever");
    const FileTime until = wake && (!deadline || *wake < *deadline) ? *wake : *deadline;
    const FileTime left = until - std::min(until, machine_.Now());
    machine_.Advance(static_cast<std::uint64_t>((left + kPerMillisecond - 1) / kPerMillisecond));
    if (deadline && machine_.Now() >= *deadline) return signalled();
  }
}

void Threads::Unwind(const std::shared_ptr<ThreadObject>& thread, win32::DWORD exitCode) {
  thread->exitCode = exitCode;
  thread->ending_ = true;
  if (thread->host_.joinable()) {
    Run(thread);
  } else {
    thread->ended = true;
    std::erase(threads_, thread);
  }
}

void Threads::End(Call& call, const std::shared_ptr<ThreadObject>& thread, win32::DWORD exitCode) {
  if (thread == first_) throw std::logic_error("the program ends its first thread");
  if (thread->ended) return;
  if (thread.get() == calling) {
    thread->exitCode = exitCode;
    thread->ending_ = true;
    throw ThreadEnded{};
  }
  const Call::Pause pause(call);
  Unwind(thread, exitCode);
}

void Threads::EndAll() {
  while (!threads_.empty()) Unwind(std::shared_ptr(threads_.front()), 0);
}

}  // namespace emulated

namespace win32 {

namespace {

using emulated::Machine;
using emulated::ThreadObject;

constexpr ACCESS_MASK kThreadAllAccess = 0x1FFFFF;
constexpr ACCESS_MASK kThreadTerminate = 0x0001;

// The thread of a handle with the right. 0, 5 or 6.
DWORD ThreadOf(HANDLE handle, ACCESS_MASK right, std::shared_ptr<ThreadObject>& thread) {
  Machine& machine = Machine::Current();
  if (handle == kCurrentThread) {
    thread = machine.threads().Calling();
    return ERROR_SUCCESS;
  }
  thread = emulated::ObjectOf<ThreadObject>(handle);
  if (!thread) return ERROR_INVALID_HANDLE;
  return machine.objects.Entry(handle, machine.process.id)->granted & right ? ERROR_SUCCESS : ERROR_ACCESS_DENIED;
}

// When a wait for the object ends; nothing for an object that cannot be waited for.
std::function<bool()> Signalled(const std::shared_ptr<emulated::Object>& object) {
  if (const auto thread = std::dynamic_pointer_cast<ThreadObject>(object)) return [thread] { return thread->ended; };
  if (const auto process = std::dynamic_pointer_cast<emulated::ProcessObject>(object))
    return [id = process->id()] { return !emulated::FindProcess(Machine::Current(), id); };
  // Whoever asks for a mutex gets it: no other process of this machine ever owns one.
  if (std::dynamic_pointer_cast<emulated::MutexObject>(object)) return [] { return true; };
  return nullptr;
}

}  // namespace

HANDLE CreateThread(SECURITY_ATTRIBUTES* /*lpThreadAttributes*/, SIZE_T dwStackSize,
                    LPTHREAD_START_ROUTINE lpStartAddress, void* lpParameter, DWORD dwCreationFlags,
                    DWORD* lpThreadId) {
  WIN32_CALL(dwStackSize, lpParameter, dwCreationFlags);
  if (call.Refused()) return nullptr;
  if (!lpStartAddress || dwCreationFlags != 0) {
    emulated::SetLastError(ERROR_INVALID_PARAMETER);
    return call.Return(HANDLE{nullptr});
  }
  const auto thread = Machine::Current().threads().Create(lpStartAddress, lpParameter);
  if (lpThreadId) *lpThreadId = thread->id;
  return call.Return(emulated::NewHandle(thread, kThreadAllAccess));
}

// Of a thread that has ended already: TRUE, and its exit code stays.
BOOL TerminateThread(HANDLE hThread, DWORD dwExitCode) {
  WIN32_CALL(hThread, dwExitCode);
  if (call.Refused()) return FALSE;
  std::shared_ptr<ThreadObject> thread;
  if (const DWORD error = ThreadOf(hThread, kThreadTerminate, thread)) return call.Done(error);
  Machine::Current().threads().End(call, thread, dwExitCode);
  return call.Done(ERROR_SUCCESS);
}

DWORD WaitForSingleObject(HANDLE hHandle, DWORD dwMilliseconds) {
  WIN32_CALL(hHandle, dwMilliseconds);
  if (call.Refused()) return WAIT_FAILED;
  const auto fail = [&](DWORD error) {
    emulated::SetLastError(error);
    return call.Return(WAIT_FAILED);
  };
  Machine& machine = Machine::Current();
  std::function<bool()> signalled;
  if (hHandle == kCurrentProcess || hHandle == kCurrentThread) {
    signalled = [] { return false; };  // both run while their own thread waits for them
  } else {
    const emulated::HandleEntry* const entry = machine.objects.Entry(hHandle, machine.process.id);
    if (!entry) return fail(ERROR_INVALID_HANDLE);
    signalled = Signalled(entry->object);
    if (!signalled) return fail(ERROR_INVALID_HANDLE);
    if (!(entry->granted & SYNCHRONIZE)) return fail(ERROR_ACCESS_DENIED);
  }
  return call.Return(machine.threads().Wait(call, signalled, dwMilliseconds) ? WAIT_OBJECT_0 : WAIT_TIMEOUT);
}

}  // namespace win32
