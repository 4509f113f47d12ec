#include "report/only_looks.h"

#include <algorithm>

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
    if (!rule()) all = false;
    if (!all && !OnlyLooks::Current()) break;
  }
  return all;
}
