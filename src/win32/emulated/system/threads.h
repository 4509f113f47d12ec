// The program's threads. One runs at a time: a new thread waits until the program's first thread waits itself (for an
// object or in Sleep), and then runs until it ends or waits. So a run is the same every time, nothing of the machine is
// touched by two threads at once, and time passes only when every thread waits.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <semaphore>
#include <thread>
#include <vector>

#include "win32/constants.h"
#include "win32/emulated/machine.h"
#include "win32/process.h"

namespace emulated {

class ThreadObject : public Object {
 public:
  explicit ThreadObject(win32::DWORD threadId) : id(threadId) {}
  const char16_t* TypeName() const override { return u"Thread"; }

  const win32::DWORD id;
  win32::DWORD exitCode = win32::STILL_ACTIVE;
  bool ended = false;

 private:
  friend class Threads;
  friend bool CallingThreadIsEnding();
  win32::LPTHREAD_START_ROUTINE start_ = nullptr;
  void* parameter_ = nullptr;
  std::shared_ptr<Token> token_;  // that it impersonates while it does not run
  std::function<bool()> ready_;   // it waits until this is true; empty: it can run
  std::optional<FileTime> wake_;  // when `ready_` becomes true of itself
  bool ending_ = false;           // somebody ends it
  std::thread host_;
  std::binary_semaphore run_{0}, stopped_{0};  // "go on", and "I wait or have ended"
};

class Threads {
 public:
  explicit Threads(Machine& machine);
  ~Threads();

  std::shared_ptr<ThreadObject> Create(win32::LPTHREAD_START_ROUTINE start, void* parameter);
  // The same, and Windows lets it begin at once: the first thread goes on when it waits or has ended. Between two
  // calls.
  void RunAtOnce(win32::LPTHREAD_START_ROUTINE start, void* parameter) { Run(Create(start, parameter)); }
  // The object of the calling thread.
  std::shared_ptr<ThreadObject> Calling();
  // The calling thread waits, in `call`, until `signalled` is true or the time (INFINITE: none) is over. Is it true?
  // Throws std::logic_error when the first thread would wait for ever.
  bool Wait(Call& call, const std::function<bool()>& signalled, win32::DWORD milliseconds);
  // Ends a thread where it stands; its calling itself as well (then this does not return). Its frames are unwound.
  void End(Call& call, const std::shared_ptr<ThreadObject>& thread, win32::DWORD exitCode);
  // The end of the process.
  void EndAll();
  // Threads that have not ended, without the first.
  std::size_t count() const { return threads_.size(); }

  // How many milliseconds a new thread takes to its first instruction, on a machine that is busy.
  FileTime startDelay = 0;

 private:
  void RunAllThatCan();
  // Lets the thread go on until it waits or ends.
  void Run(const std::shared_ptr<ThreadObject>& thread);
  void Unwind(const std::shared_ptr<ThreadObject>& thread, win32::DWORD exitCode);
  std::optional<FileTime> NextWake() const;

  Machine& machine_;
  std::shared_ptr<ThreadObject> first_;
  std::vector<std::shared_ptr<ThreadObject>> threads_;  // in the order of their creation
  win32::DWORD nextId_;
};

// Is the calling thread being unwound because somebody ended it?
bool CallingThreadIsEnding();

}  // namespace emulated
