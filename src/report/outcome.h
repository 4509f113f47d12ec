// The beginning and the end of a command that redirects something or takes a redirection away, as console and log tell
// it.
#pragma once

#include "report/console.h"

// Says the text on the console and in the log; 0, the exit code.
int Succeed(const std::u16string& text);
template <typename... Arguments>
int Succeed(StringId id, const Arguments&... arguments) {
  return Succeed(FormatString(id, arguments...));
}

// Says where the errors are logged, in the one form that all commands have. Without the product's service there is no
// log, and no place is named.
void SayWhereErrorsAreLogged();

// SayWhereErrorsAreLogged, then the text, which the log gets, too; 1, the exit code.
int Fail(StringId id);

// Says the text with its arguments on the console only; 1, the exit code.
template <typename... Arguments>
int SayFailure(StringId id, const Arguments&... arguments) {
  Say(id, arguments...);
  return 1;
}
