#include "report/lines.h"

#include "report/console.h"
#include "report/log.h"

void SayThatTargetExists(const std::u16string& target) { Say(StringId::TargetExists, target); }

void LogMoveFailed(const std::u16string& source, const std::u16string& target) {
  Log(u"#ERROR: Unable to move files and folders from Source = %ls to Target = %ls.", source, target);
}
