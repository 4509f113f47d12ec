#include "report/lines.h"

#include "report/console.h"
#include "report/log.h"

namespace {

constexpr unsigned kTargetExists = 183;

}  // namespace

void SayThatTargetExists(const std::u16string& target) { ConsoleFormatString(kTargetExists, target); }

void LogMoveFailed(const std::u16string& source, const std::u16string& target) {
  Log(u"#ERROR: Unable to move files and folders from Source = %ls to Target = %ls.", source, target);
}
