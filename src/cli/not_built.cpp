#include "cli/not_built.h"

#include "cli/console.h"
#include "log/log.h"

int AnswerNotBuilt(const std::u16string& what) {
  ConsoleFormat(u"\nThis build does not have %ls yet.\n", what);
  Log(u"#ERROR: This build does not have %ls yet.", what);
  return 1;
}
