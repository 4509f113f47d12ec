// The beginning and the end of a command that redirects something or takes a redirection away, as console and log tell
// it.
#pragma once

// Says the text with this number on the console and in the log; 0, the exit code.
int Succeed(unsigned text);

// Says where the errors are logged, then the text, which the log gets, too; 1, the exit code.
int Fail(unsigned text);
