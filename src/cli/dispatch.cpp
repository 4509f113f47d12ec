#include "cli/invocation.h"
#include "probes/rimehold_status.h"
#include "probes/update_check.h"
#include "probes/version.h"
#include "report/console.h"
#include "report/service_path.h"
#include "report/stop_request.h"

namespace {

int RunHelp(const Invocation& invocation) {
  ConsolePrint(HelpText(invocation.table));
  return 0;
}

int RunVersion() {
  ProductVersion version;
  if (!GetProductVersion(version)) return 1;
  ConsolePrint(u"Quillbay " + version.dotted + u"\n");
  return 0;
}

// A question whose answer is a message and an exit code.
int RunQuestion(int (*ask)(std::u16string& message)) {
  std::u16string message;
  const int result = ask(message);
  ConsolePrint(message);
  return result;
}

// What became of a command that needs the configuration. Where the service is missing, the log, which would say so, is,
// too.
int WithReason(int result) {
  if (result != 0 && ServiceFolder(kQuillbayService).empty())
    ConsolePrint(
        u"\nThe service QuillbayService is not installed, or its folder cannot be told: "
        u"there is neither a configuration nor a log.\n");
  return result;
}

}  // namespace

bool RefusedWhileFrozen(const Invocation& invocation) {
  StopRequests::Listen();  // nothing that changes is to be ended half-way
  if (!IsRimeholdFrozen()) return false;
  Say(StringId::MustBeThawed, invocation.typedCommand);
  return true;
}

int SayUsage(StringId name, StringId usage) {
  ConsolePrint(LoadResourceString(name) + u"\n   " + LoadResourceString(usage));
  return 1;
}

int Dispatch(const Invocation& invocation) {
  switch (invocation.line.entry->command) {
    case Command::Help:
      return RunHelp(invocation);
    case Command::Version:
      return RunVersion();
    case Command::GetRHStatus:
      return RunQuestion(GetRHStatus);
    case Command::CheckForUpdate:
      return RunQuestion(CheckForUpdate);
    case Command::AutoRedirectUP:
      return WithReason(RunAutoRedirectUP(invocation));
    case Command::RedirectUP:
      return RunRedirectUP(invocation);
    case Command::RedirectUPDefault:
      return RunRedirectUPDefault(invocation);
    case Command::RedirectFolder:
      return RunRedirectFolder(invocation);
    case Command::RedirectRegKeyLocation:
      return WithReason(RunRedirectRegKeyLocation(invocation));
    case Command::RedirectRegKey:
      return WithReason(RunRedirectRegKey(invocation));
    case Command::RedirectFile:
      return RunRedirectFile(invocation);
  }
  return 1;
}
