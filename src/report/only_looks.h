// A run that looks and changes nothing, although it asks the rules of the commands that do.
#pragma once

#include <functional>
#include <initializer_list>
#include <set>
#include <string>
#include <string_view>
#include <vector>

// While one lives, no rule changes anything to find something out, or opens a file for writing: what it cannot know
// without, it leaves, and says so here. When it goes, the one before it is again.
class OnlyLooks {
 public:
  OnlyLooks();
  ~OnlyLooks();
  OnlyLooks(const OnlyLooks&) = delete;
  OnlyLooks& operator=(const OnlyLooks&) = delete;

  // Null in a run that may change things.
  static OnlyLooks* Current();

  // Something was left untried, in words for an administrator; told once, however often it is left.
  void Leave(std::u16string_view what);
  const std::vector<std::u16string>& left() const { return left_; }

  // A command would first let administrators into this item; the rules after that are asked as if it had.
  void TakeAsOpened(const std::u16string& path) { opened_.insert(path); }
  bool IsTakenAsOpened(const std::u16string& path) const { return opened_.contains(path); }

 private:
  OnlyLooks* const before_;
  std::vector<std::u16string> left_;
  std::set<std::u16string> opened_;
};

// Do all rules hold? The first that does not ends it, but for a run that only looks: that one asks all of them, to tell
// everything that is wrong.
bool AllHold(std::initializer_list<std::function<bool()>> rules);
