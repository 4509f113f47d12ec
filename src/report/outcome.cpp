#include "report/outcome.h"

#include "report/log.h"

int Succeed(const std::u16string& text) {
  ConsolePrint(text);
  Log(u"%ls", text);
  return 0;
}

void SayWhereErrorsAreLogged() { Say(StringId::ErrorsLoggedIn, LogPath()); }

int Fail(StringId id) {
  const std::u16string said = LoadResourceString(id);
  SayWhereErrorsAreLogged();
  ConsoleFormat(u"\n%ls", said);
  Log(u"%ls", said);
  return 1;
}
