#include "report/only_looks.h"

#include <algorithm>

#include "report/log.h"

namespace {

OnlyLooks* current = nullptr;

}  // namespace

OnlyLooks::OnlyLooks() : before_(current) { current = this; }
OnlyLooks::~OnlyLooks() { current = before_; }
OnlyLooks* OnlyLooks::Current() { return current; }

void OnlyLooks::Leave(std::u16string_view what) {
  if (std::ranges::find(left_, what) == left_.end()) left_.emplace_back(what);
}

bool AllHold(std::initializer_list<std::function<bool()>> rules) {
  bool all = true;
  for (const auto& rule : rules) {
    LogSink* const log = LogSink::Current();
    const std::size_t told = log ? log->Count() : 0;
    if (!rule())
      all = false;
    else if (log)
      log->MarkAside(told);
    if (!all && !OnlyLooks::Current()) break;
  }
  return all;
}
