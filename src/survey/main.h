// The report program: looks at redirections, those that are and those that may be, and changes nothing.
#pragma once

#include "survey/answer.h"

// One run. It makes no call that could change a disk, the registry or a service, and takes no mutex.
Answer SurveyMain(int argc, const char16_t* const* argv);
