#include "survey/main.h"

#include <exception>
#include <string_view>

#include "probes/privileges.h"
#include "probes/version.h"
#include "report/console.h"
#include "report/log.h"
#include "report/only_looks.h"
#include "report/stop_request.h"
#include "survey/verbs.h"
#include "text/utf8.h"

namespace {

Answer Say(const std::u16string& text) { return {SurveyResult::Fine, ToUtf8(text), {}}; }

Answer Refuse(const std::u16string& error, const Verb* verb) {
  return {SurveyResult::WrongArguments, {}, ToUtf8(u"QBCReport: " + error + u"\n" + SurveyHelp(verb))};
}

Answer SayVersion() {
  ProductVersion version;
  if (!GetProductVersion(version)) return {SurveyResult::CannotBeTold, {}, "QBCReport: the version cannot be read.\n"};
  return Say(u"QBCReport " + version.dotted + u"\n");
}

Answer Run(int argc, const char16_t* const* argv) {
  const std::u16string_view first = argc > 1 ? argv[1] : u"";
  if (first == u"--help") return Say(SurveyHelp(nullptr));
  if (first == u"--version") return SayVersion();
  if (argc == 3 && argv[2] == std::u16string_view(u"--help"))
    for (const Verb& verb : Verbs())
      if (verb.name == first) return Say(SurveyHelp(&verb));
  Arguments arguments;
  std::u16string error;
  if (!ParseArguments(argc, argv, arguments, error)) return Refuse(error, arguments.verb);
  if (!arguments.verb->run) return Refuse(u"\"" + std::u16string(first) + u"\" is not built yet.", arguments.verb);
  // What an administrator may read only as one who makes backups. Without it, less can be told.
  EnablePrivilege(u"SeBackupPrivilege");
  return arguments.verb->run(arguments);
}

}  // namespace

Answer SurveyMain(int argc, const char16_t* const* argv) try {
  const StopRequests stops;       // there is nothing to take back: nobody listens
  const OnlyLooks look;           // whatever is asked,
  const LogLines log;             // nothing goes into the log file,
  const ConsoleCapture captured;  // and what rules say on the console is not mixed with the answer
  return Run(argc, argv);
} catch (const std::exception&) {
  return {SurveyResult::CannotBeTold, {}, "QBCReport: the program ended unexpectedly.\n"};
}
