#include "cli/invocation.h"
#include "probes/rimehold_status.h"
#include "probes/update_check.h"
#include "probes/version.h"
#include "report/console.h"

namespace {

constexpr unsigned kMustBeThawed = 170;

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

int RunGetRHStatus() {
  std::u16string message;
  const int status = GetRHStatus(message);
  ConsolePrint(message);
  return status;
}

int RunCheckForUpdate() {
  std::u16string message;
  const int result = CheckForUpdate(message);
  ConsolePrint(message);
  return result;
}

}  // namespace

bool RefusedWhileFrozen(const Invocation& invocation) {
  if (!IsRimeholdFrozen()) return false;
  ConsoleFormatString(kMustBeThawed, invocation.typedCommand);
  return true;
}

int Dispatch(const Invocation& invocation) {
  switch (invocation.line.entry->command) {
    case Command::Help:
      return RunHelp(invocation);
    case Command::Version:
      return RunVersion();
    case Command::GetRHStatus:
      return RunGetRHStatus();
    case Command::CheckForUpdate:
      return RunCheckForUpdate();
    case Command::AutoRedirectUP:
      return RunAutoRedirectUP(invocation);
    case Command::RedirectUP:
      return RunRedirectUP(invocation);
    case Command::RedirectUPDefault:
      return RunRedirectUPDefault(invocation);
    case Command::RedirectFolder:
      return RunRedirectFolder(invocation);
    case Command::RedirectRegKeyLocation:
      return RunRedirectRegKeyLocation(invocation);
    case Command::RedirectRegKey:
      return RunRedirectRegKey(invocation);
    case Command::RedirectFile:
      return RunRedirectFile(invocation);
  }
  return 1;
}
