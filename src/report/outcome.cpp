#include "report/outcome.h"

#include "report/console.h"
#include "report/log.h"

namespace {

constexpr unsigned kErrorsLoggedIn = 137;

}  // namespace

int Succeed(unsigned text) {
  const std::u16string said = LoadResourceString(text);
  ConsolePrint(said);
  Log(u"%ls", said);
  return 0;
}

int Fail(unsigned text) {
  const std::u16string said = LoadResourceString(text);
  ConsoleFormatString(kErrorsLoggedIn, LogPath());
  ConsoleFormat(u"\n%ls", said);
  Log(u"%ls", said);
  return 1;
}
