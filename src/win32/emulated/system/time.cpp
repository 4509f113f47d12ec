// The clock, of win32/system.h. It is the machine's own: sleeping moves it on and takes no time.
#include <thread>

#include "win32/emulated/machine.h"
#include "win32/emulated/system/threads.h"
#include "win32/system.h"

namespace win32 {

namespace {

constexpr std::int64_t kPerMillisecond = 10'000;
constexpr std::int64_t kPerMinute = 60 * 1000 * kPerMillisecond;
constexpr std::int64_t kMillisecondsPerDay = 86'400'000;

WORD Word(std::int64_t value) { return static_cast<WORD>(value); }

bool IsLeap(std::int64_t year) { return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0; }

// A FILETIME count as a date of the Gregorian calendar, which FILETIME counts from 1601-01-01 (a Monday) on.
SYSTEMTIME DateOf(std::int64_t time) {
  const std::int64_t milliseconds = time < 0 ? 0 : time / kPerMillisecond;
  std::int64_t days = milliseconds / kMillisecondsPerDay;
  const std::int64_t ofDay = milliseconds % kMillisecondsPerDay;
  const std::int64_t dayOfWeek = (days + 1) % 7;
  std::int64_t year = 1601 + days / 146'097 * 400;
  for (days %= 146'097; days >= (IsLeap(year) ? 366 : 365); ++year) days -= IsLeap(year) ? 366 : 365;
  constexpr int kMonths[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  int month = 0;
  for (;; ++month) {
    const int length = kMonths[month] + (month == 1 && IsLeap(year) ? 1 : 0);
    if (days < length) break;
    days -= length;
  }
  return {Word(year),
          Word(month + 1),
          Word(dayOfWeek),
          Word(days + 1),
          Word(ofDay / 3'600'000),
          Word(ofDay / 60'000 % 60),
          Word(ofDay / 1000 % 60),
          Word(ofDay % 1000)};
}

}  // namespace

void Sleep(DWORD dwMilliseconds) {
  {
    WIN32_CALL(dwMilliseconds);
    if (call.Refused()) return;
    emulated::Machine::Current().threads().Wait(
        call, [] { return false; }, dwMilliseconds);
  }
  std::this_thread::yield();  // what the program waits for may be another thread of its own
}

DWORD GetTickCount() {
  WIN32_CALL();
  const emulated::Machine& machine = emulated::Machine::Current();
  return call.Return(machine.tickCount ? machine.tickCount() : static_cast<DWORD>(machine.Now() / kPerMillisecond));
}

void GetLocalTime(SYSTEMTIME* lpSystemTime) {
  WIN32_CALL(lpSystemTime);
  if (call.Refused() || !lpSystemTime) return;
  const emulated::Machine& machine = emulated::Machine::Current();
  *lpSystemTime = DateOf(machine.Now() + machine.localTimeOffsetMinutes * kPerMinute);
}

}  // namespace win32
