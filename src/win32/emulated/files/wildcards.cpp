#include "win32/emulated/files/wildcards.h"

#include <vector>

namespace emulated {

namespace {

// The file system's wildcards beside "*" and "?" (MS-FSA 2.1.4.4): what a program's patterns are turned into, so that
// "*.*" finds names without a dot and "x??.y" short ones, as in DOS.
constexpr char16_t kDosStar = u'<';      // anything up to the last dot
constexpr char16_t kDosQuestion = u'>';  // one unit, or nothing before a dot or the end
constexpr char16_t kDosDot = u'"';       // a dot, or nothing at the end

std::u16string ToExpression(std::u16string_view pattern) {
  if (pattern == u"*.*") return u"*";
  std::u16string expression;
  for (std::size_t at = 0; at < pattern.size(); ++at) {
    const char16_t unit = pattern[at];
    const char16_t next = at + 1 < pattern.size() ? pattern[at + 1] : u'\0';
    if (unit == u'?')
      expression += kDosQuestion;
    else if (unit == u'.' && (next == u'?' || next == u'*'))
      expression += kDosDot;
    else if (unit == u'*' && next == u'.' && at + 2 == pattern.size())
      return expression + kDosStar;
    else
      expression += unit;
  }
  return expression;
}

}  // namespace

NamePattern::NamePattern(std::u16string_view pattern, const Volume& volume) : volume_(volume) {
  wild_ = pattern.find_first_of(u"*?<>\"") != std::u16string_view::npos;
  expression_ = ToExpression(pattern);
  for (char16_t& unit : expression_) unit = volume.UpCase(unit);
}

// Keeps the set of places in the expression that the name so far can have led to.
bool NamePattern::Matches(std::u16string_view name) const {
  if (expression_ == u"*") return true;
  // "." and ".." are no names with an extension.
  const std::size_t end = expression_.size(),
                    lastDot = name == u"." || name == u".." ? std::u16string_view::npos : name.rfind(u'.');
  std::vector<bool> now(end + 1), next(end + 1);
  // What can be passed over without a unit of the name; `atEnd`: none is left.
  const auto spread = [&](std::vector<bool>& places, bool beforeDot, bool atEnd) {
    for (std::size_t at = 0; at < end; ++at) {
      if (!places[at]) continue;
      const char16_t unit = expression_[at];
      if (unit == u'*' || unit == kDosStar || (unit == kDosQuestion && (beforeDot || atEnd)) ||
          (unit == kDosDot && atEnd))
        places[at + 1] = true;
    }
  };
  now[0] = true;
  for (std::size_t i = 0; i < name.size(); ++i) {
    const char16_t unit = volume_.UpCase(name[i]);
    spread(now, unit == u'.', false);
    next.assign(end + 1, false);
    for (std::size_t at = 0; at < end; ++at) {
      if (!now[at]) continue;
      const char16_t expected = expression_[at];
      if (expected == u'*')
        next[at] = true;
      else if (expected == kDosStar)
        next[at] = next[at] || unit != u'.' || i != lastDot;
      else if (expected == u'?' || (expected == kDosQuestion && unit != u'.') ||
               (expected == kDosDot && unit == u'.') || expected == unit)
        next[at + 1] = true;
    }
    now.swap(next);
  }
  spread(now, false, true);
  return now[end];
}

}  // namespace emulated
