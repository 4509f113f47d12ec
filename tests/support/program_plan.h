// The report program beside the program: what its verb "plan" says is held against what the command then does.
#pragma once

#include "support/program.h"

namespace test {

// One run of the report program, which fails the test for each call that is not known to read only, or that opens
// something for more than reading. The process's token is as fresh for every run.
struct ReportRun {
  int exitCode = -1;
  std::string output, errors;
};
ReportRun RunReport(emulated::Machine& machine, const std::vector<std::u16string>& words);

// RunProgram. A command that redirects is planned before, where no call is scripted to fail: the verdict is what then
// becomes of the command, and has each line that this refuses with.
RunResult RunPlanned(emulated::Machine& machine, const std::vector<std::u16string>& words);

}  // namespace test
