// qbcreport: the report program on the workstation in the folder named by QBC_WORKSTATION, which is opened for reading
// only and never written back. Its arguments, output and exit code are those of QBCReport.exe; 3 with one line on
// stderr also when the workstation cannot be opened.

#include <cstdio>
#include <string>
#include <string_view>

#include "entry/on_workstation.h"
#include "entry/program_module.h"
#include "survey/main.h"
#include "win32/emulated/machine.h"
#include "win32/emulated/workstation.h"

namespace {

int Fail(const std::string& error) {
  std::fprintf(stderr, "qbcreport: %s\n", error.c_str());
  return static_cast<int>(SurveyResult::CannotBeTold);
}

// What the program says of itself: that needs no workstation.
bool AsksForHelp(int argc, char** argv) {
  const std::string_view last = argc == 2 || argc == 3 ? argv[argc - 1] : "";
  return last == "--help" || (argc == 2 && last == "--version");
}

int Answered(emulated::Machine& machine, int argc, char** argv) {
  UseProgramModule(machine, u"QBCReport.exe");
  TraceAsAsked(machine);
  const WideArguments arguments(argc, argv);
  const Answer answer = SurveyMain(argc, arguments.argv());
  CountAsAsked(machine);
  std::fputs(answer.errors.c_str(), stderr);
  const bool arrived = std::fputs(answer.output.c_str(), stdout) >= 0 && std::fflush(stdout) == 0;
  return arrived ? static_cast<int>(answer.result) : Fail("the answer could not be written");
}

}  // namespace

int main(int argc, char** argv) {
  if (AsksForHelp(argc, argv)) {
    emulated::Machine none;
    return Answered(none, argc, argv);
  }
  const char* const folder = WorkstationFolder("qbcreport");
  if (!folder) return static_cast<int>(SurveyResult::CannotBeTold);
  std::string error;
  const auto station = emulated::Workstation::Open(folder, error, emulated::ImageAccess::kRead);
  if (!station) return Fail(error);
  if (const std::string& protection = station->writeProtection(); !protection.empty())
    std::fprintf(stderr, "qbcreport: %s (a look is all that is done)\n", protection.c_str());
  return Answered(station->machine(), argc, argv);
}
