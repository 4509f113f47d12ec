#include "report/outcome.h"

#include "probes/privileges.h"
#include "report/console.h"
#include "report/log.h"

namespace {

constexpr unsigned kErrorsLoggedIn = 137;
constexpr unsigned kAdministratorsOnly = 179;

}  // namespace

bool IsAdministrator() {
  if (IsMemberOfAdministrators()) return true;
  ConsolePrint(LoadResourceString(kAdministratorsOnly));
  return false;
}

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
