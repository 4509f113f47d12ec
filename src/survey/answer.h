// What a run of the report program answers. Nothing here writes: the entry does.
#pragma once

#include <string>

enum class SurveyResult {
  Fine = 0,            // plan: it may; list: shown, or all of it is whole
  Amiss = 1,           // plan: it would be refused; list --check: something is not whole
  WrongArguments = 2,  // or a verb that there is not
  CannotBeTold = 3,    // something that the answer depends on could not be asked
};

struct Answer {
  SurveyResult result = SurveyResult::Fine;
  std::string output;  // for the standard output: UTF-8, lines ended by "\n"
  std::string errors;  // for the standard error, the same
};
