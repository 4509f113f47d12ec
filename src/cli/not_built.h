// What this build cannot do yet, it says.
#pragma once

#include <string>

// On the console and in the log; 1, the exit code. `what` completes "This build does not have ...".
int AnswerNotBuilt(const std::u16string& what);
