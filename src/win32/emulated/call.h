// The one gate that every call of the Windows interface passes: it counts calls by name, makes the n-th fail, lets a
// test look at the machine between two calls, and can print each call with its arguments and result.
//
// A call of the interface is written so:
//
//   BOOL DeleteFileW(const char16_t* lpFileName) {
//     WIN32_CALL(lpFileName);
//     if (call.Refused()) return FALSE;             // the gate decided; the last error is set
//     ...
//     return call.Done(error);                      // TRUE and the last error kept, or FALSE and the last error set
//   }
#pragma once

#include <cstdint>
#include <functional>
#include <set>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "win32/types.h"

namespace emulated {

class Machine;

// One function of the interface; made once, on its first call.
class CallSite {
 public:
  explicit CallSite(const char* name);
  const char* name() const { return name_; }
  std::size_t index() const { return index_; }

 private:
  const char* name_;
  std::size_t index_;
};

class Gate {
 public:
  Gate() = default;
  ~Gate() { ClearFailures(); }
  Gate(const Gate&) = delete;
  Gate& operator=(const Gate&) = delete;

  using Observer = std::function<void(const char* name, std::uint64_t number)>;
  using Printer = std::function<void(const std::string& line)>;

  // Makes a call fail with `error`: the nth (from 1) of all calls from now on, or of those of the name.
  void FailCall(std::uint64_t nth, win32::DWORD error);
  void FailCall(std::string_view name, std::uint64_t nth, win32::DWORD error);
  // Makes every further call of the name fail, from the nth on.
  void FailCallsFrom(std::string_view name, std::uint64_t nth, win32::DWORD error);
  // Makes the nth call of the name (from now on) raise a structured exception (see CallWithExceptionFilter) instead.
  void RaiseInCall(std::string_view name, std::uint64_t nth, win32::DWORD exceptionCode);
  void ClearFailures();
  // Calls are to fail, or somebody watches them.
  bool IsScripted() const { return !planned_.empty() || observer_ || printer_; }
  // How many planned failures have happened. Who asks is not told of those that did not.
  std::uint64_t failures();
  // The names of the calls that were made to fail.
  const std::set<std::string>& failed() const { return failed_; }
  // Told of each planned failure whose call had not been made when the plans were cleared or the gate went.
  std::function<void(const std::string& call)> onUnreached;

  // Called before each call takes effect, with its name and its number among all calls (from 1). It may look at the
  // machine and at its disks (Machine::Snapshot), not make calls.
  void Observe(Observer observer) { observer_ = std::move(observer); }
  // Called with one line for each call: name, arguments, result and last error.
  void Trace(Printer printer) { printer_ = std::move(printer); }

  // The program waits for a call of its own.
  bool InCall() const { return entered_; }

  std::uint64_t Count() const { return total_; }
  std::uint64_t Count(std::string_view name) const;
  // All names called so far with their counts, most frequent first.
  std::vector<std::pair<std::string, std::uint64_t>> Counts() const;
  void ResetCounts();

 private:
  friend class Call;
  struct PlannedFailure {
    std::string name;  // empty: any call
    std::uint64_t number;
    bool onwards;
    win32::DWORD error;
    bool raises = false;   // `error` is the code of a structured exception
    bool settled = false;  // it has happened, or its planner looks himself whether it did
  };
  // Counts the call; the error that it is to fail with, or 0. Throws StructuredException where one is planned.
  win32::DWORD Enter(const CallSite& site);

  std::vector<std::uint64_t> counts_;
  std::uint64_t total_ = 0;
  std::uint64_t failures_ = 0;
  std::set<std::string> failed_;
  bool entered_ = false;  // calls made by calls are Windows' own affair and are not counted
  std::vector<PlannedFailure> planned_;
  Observer observer_;
  Printer printer_;
};

// A structured exception on its way. Only CallWithExceptionFilter catches it; where there is none, the program ends, as
// on Windows. On its way up it runs destructors, which on Windows it does not.
struct StructuredException {
  win32::DWORD code;
};

// How arguments look in a trace.
std::string TraceText(const char16_t* text);
std::string TraceText(const char* text);
std::string TraceText(const void* pointer);
std::string TraceText(const win32::FILETIME* time);  // its halves, the low one first
std::string TraceText(std::uint64_t number);
template <typename T>
std::string TraceText(T value) requires(std::is_integral_v<T> || std::is_enum_v<T>) {
  return TraceText(static_cast<std::uint64_t>(value));
}

// The calling thread's last error.
win32::DWORD LastError();
void SetLastError(win32::DWORD error);

// One call on its way through the gate. A call that is made inside another (the emulated Windows calling itself) passes
// freely: it is neither counted nor failed nor traced. A thread that is being ended makes no call any more: whatever
// its frames' destructors call is refused, and not counted either.
class Call {
 public:
  // While it lives, the call waits and other threads may make calls.
  class Pause {
   public:
    explicit Pause(Call& call);
    ~Pause();
    Pause(const Pause&) = delete;
    Pause& operator=(const Pause&) = delete;

   private:
    Machine& machine_;
  };

  template <typename... Arguments>
  explicit Call(const CallSite& site, const Arguments&... arguments) : Call(site) {
    if (tracing_) ((arguments_ += arguments_.empty() ? TraceText(arguments) : ", " + TraceText(arguments)), ...);
  }
  explicit Call(const CallSite& site);
  ~Call();
  Call(const Call&) = delete;
  Call& operator=(const Call&) = delete;

  bool Refused() const { return error_ != 0; }
  // The error that the gate refuses with.
  win32::DWORD error() const { return error_; }

  // The end of a call that answers TRUE or FALSE: sets the last error when there is one.
  win32::BOOL Done(win32::DWORD error);
  // The end of a call that answers with an error code (the registry, net and MARTA families). It leaves the last error.
  template <typename T = win32::LSTATUS>
  T Code(win32::DWORD error) {
    SetLastError(before_);
    if (tracing_) Result(std::to_string(error));
    return static_cast<T>(error);
  }
  // The end of any other call.
  template <typename T>
  T Return(T value) {
    if (tracing_) Result(TraceText(value));
    return value;
  }

 private:
  void Result(std::string text) { result_ = std::move(text); }

  const CallSite& site_;
  Machine& machine_;
  bool outermost_;
  bool tracing_ = false;
  win32::DWORD error_ = 0;
  win32::DWORD before_ = 0;  // the last error
  std::string arguments_;
  std::string result_;
};

// The id of the program's thread that is calling: kFirstThreadId, or one that CreateThread gave. For observers.
inline constexpr win32::DWORD kFirstThreadId = 0x1C8;
win32::DWORD CallingThreadId();

}  // namespace emulated

#define WIN32_CALL(...)                             \
  static const ::emulated::CallSite site{__func__}; \
  ::emulated::Call call { site __VA_OPT__(, ) __VA_ARGS__ }
