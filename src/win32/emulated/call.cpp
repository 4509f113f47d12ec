#include "win32/emulated/call.h"

#include <algorithm>
#include <cstdio>
#include <mutex>

#include "win32/constants.h"
#include "win32/emulated/machine.h"
#include "win32/emulated/system/threads.h"

namespace emulated {

namespace {

std::vector<const CallSite*>& Sites() {
  static std::vector<const CallSite*> sites;
  return sites;
}

std::recursive_mutex& SitesLock() {
  static std::recursive_mutex lock;
  return lock;
}

std::size_t Register(const CallSite* site) {
  const std::lock_guard guard(SitesLock());
  Sites().push_back(site);
  return Sites().size() - 1;
}

thread_local win32::DWORD lastError = 0;

}  // namespace

win32::DWORD LastError() { return lastError; }
void SetLastError(win32::DWORD error) { lastError = error; }

CallSite::CallSite(const char* name) : name_(name), index_(Register(this)) {}

void Gate::FailCall(std::uint64_t nth, win32::DWORD error) { planned_.push_back({"", total_ + nth, false, error}); }

void Gate::FailCall(std::string_view name, std::uint64_t nth, win32::DWORD error) {
  planned_.push_back({std::string(name), Count(name) + nth, false, error});
}

void Gate::FailCallsFrom(std::string_view name, std::uint64_t nth, win32::DWORD error) {
  planned_.push_back({std::string(name), Count(name) + nth, true, error});
}

void Gate::RaiseInCall(std::string_view name, std::uint64_t nth, win32::DWORD exceptionCode) {
  planned_.push_back({std::string(name), Count(name) + nth, false, exceptionCode, true});
}

void Gate::ClearFailures() {
  for (const PlannedFailure& plan : planned_)
    if (!plan.settled && onUnreached)
      onUnreached((plan.name.empty() ? "call " : plan.name + ", call ") + std::to_string(plan.number));
  planned_.clear();
}

std::uint64_t Gate::failures() {
  for (PlannedFailure& plan : planned_) plan.settled = true;
  return failures_;
}

std::uint64_t Gate::Count(std::string_view name) const {
  const std::lock_guard guard(SitesLock());
  std::uint64_t count = 0;
  for (std::size_t i = 0; i < counts_.size(); ++i)
    if (name == Sites()[i]->name()) count += counts_[i];
  return count;
}

std::vector<std::pair<std::string, std::uint64_t>> Gate::Counts() const {
  const std::lock_guard guard(SitesLock());
  std::vector<std::pair<std::string, std::uint64_t>> counts;
  for (std::size_t i = 0; i < counts_.size(); ++i)
    if (counts_[i] != 0) counts.emplace_back(Sites()[i]->name(), counts_[i]);
  std::sort(counts.begin(), counts.end(), [](const auto& a, const auto& b) {
    return a.second > b.second || (a.second == b.second && a.first < b.first);
  });
  return counts;
}

void Gate::ResetCounts() {
  counts_.clear();
  total_ = 0;
}

win32::DWORD Gate::Enter(const CallSite& site) {
  if (counts_.size() <= site.index()) counts_.resize(site.index() + 1);
  ++counts_[site.index()];
  ++total_;
  if (observer_) observer_(site.name(), total_);
  for (PlannedFailure& plan : planned_) {
    if (!plan.name.empty() && plan.name != site.name()) continue;
    const std::uint64_t number = plan.name.empty() ? total_ : Count(plan.name);
    if (number == plan.number || (plan.onwards && number > plan.number)) {
      ++failures_;
      failed_.insert(site.name());
      plan.settled = true;
      if (plan.raises) throw StructuredException{plan.error};
      return plan.error;
    }
  }
  return 0;
}

std::string TraceText(std::uint64_t number) {
  char text[32];
  std::snprintf(text, sizeof text, number < 10 ? "%llu" : "0x%llX", static_cast<unsigned long long>(number));
  return text;
}

std::string TraceText(const void* pointer) {
  return pointer ? TraceText(reinterpret_cast<std::uint64_t>(pointer)) : "null";
}

std::string TraceText(const win32::FILETIME* time) {
  return time ? TraceText(time->dwLowDateTime) + ":" + TraceText(time->dwHighDateTime) : "null";
}

std::string TraceText(const char* text) { return text ? '"' + std::string(text) + '"' : "null"; }

std::string TraceText(const char16_t* text) {
  // Numbers passed as resource names are small pointers.
  if (reinterpret_cast<std::uintptr_t>(text) < 0x10000)
    return text ? '#' + std::to_string(reinterpret_cast<std::uintptr_t>(text)) : "null";
  std::string utf8 = "\"";
  for (; *text; ++text) {
    char32_t unit = *text;
    if (unit >= 0xD800 && unit < 0xDC00 && text[1] >= 0xDC00 && text[1] < 0xE000) {
      unit = 0x10000 + ((unit - 0xD800) << 10) + (static_cast<char32_t>(*++text) - 0xDC00);
    }
    if (unit < 0x80) {
      utf8 += static_cast<char>(unit);
    } else if (unit < 0x800) {
      utf8 += static_cast<char>(0xC0 | (unit >> 6));
      utf8 += static_cast<char>(0x80 | (unit & 0x3F));
    } else if (unit < 0x10000) {
      utf8 += static_cast<char>(0xE0 | (unit >> 12));
      utf8 += static_cast<char>(0x80 | ((unit >> 6) & 0x3F));
      utf8 += static_cast<char>(0x80 | (unit & 0x3F));
    } else {
      utf8 += static_cast<char>(0xF0 | (unit >> 18));
      utf8 += static_cast<char>(0x80 | ((unit >> 12) & 0x3F));
      utf8 += static_cast<char>(0x80 | ((unit >> 6) & 0x3F));
      utf8 += static_cast<char>(0x80 | (unit & 0x3F));
    }
  }
  return utf8 + '"';
}

Call::Call(const CallSite& site) : site_(site), machine_(Machine::Current()), before_(LastError()) {
  Gate& gate = machine_.gate;
  if (!gate.entered_ && CallingThreadId() == kFirstThreadId) machine_.controls.BeforeCall();
  std::unique_lock lock(machine_.lock);
  const bool ending = CallingThreadIsEnding();
  outermost_ = !gate.entered_ && !ending;
  if (ending) error_ = win32::ERROR_ACCESS_DENIED;
  if (outermost_) {
    error_ = gate.Enter(site);
    gate.entered_ = true;
    tracing_ = static_cast<bool>(gate.printer_);
    if (error_ != 0) SetLastError(error_);
  }
  lock.release();
}

Call::~Call() {
  if (outermost_) {
    machine_.gate.entered_ = false;
    if (tracing_) {
      std::string line = std::string(site_.name()) + '(' + arguments_ + ')';
      if (error_ != 0)
        line += " = refused";
      else if (!result_.empty())
        line += " = " + result_;
      machine_.gate.printer_(line + "  [" + std::to_string(LastError()) + ']');
    }
  }
  machine_.lock.unlock();
}

Call::Pause::Pause(Call& call) : machine_(call.machine_) {
  machine_.gate.entered_ = false;
  machine_.lock.unlock();
}

Call::Pause::~Pause() {
  machine_.lock.lock();
  machine_.gate.entered_ = true;
}

win32::BOOL Call::Done(win32::DWORD error) {
  if (error != 0) SetLastError(error);
  if (tracing_) Result(error == 0 ? "TRUE" : "FALSE");
  return error == 0 ? 1 : 0;
}

}  // namespace emulated
