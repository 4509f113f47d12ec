#include "cli/main.h"

#include <exception>

#include "cli/invocation.h"
#include "probes/privileges.h"
#include "probes/version.h"
#include "report/console.h"
#include "report/log.h"
#include "report/stop_request.h"
#include "text/ascii_case.h"
#include "win32/win32.h"

namespace {

// One instance at a time on the whole machine, whoever runs it: the mutex is open to everyone. The handle, kept to the
// end of the run, is empty when another instance has the mutex or it cannot be made.
win32::UniqueKernelHandle TakeInstanceMutex() {
  win32::SECURITY_DESCRIPTOR descriptor{};
  if (!win32::InitializeSecurityDescriptor(&descriptor, win32::SECURITY_DESCRIPTOR_REVISION) ||
      !win32::SetSecurityDescriptorDacl(&descriptor, win32::TRUE, nullptr, win32::FALSE))
    return {};
  win32::SECURITY_ATTRIBUTES attributes{sizeof attributes, &descriptor, win32::FALSE};
  win32::SetLastError(win32::ERROR_SUCCESS);
  win32::UniqueKernelHandle mutex{
      win32::CreateMutexW(&attributes, win32::TRUE, u"Global\\2092F29F_EEFF_48f5_B562_9E33D2E6471A")};
  if (mutex && win32::GetLastError() == win32::ERROR_ALREADY_EXISTS) mutex.reset();
  return mutex;
}

std::u16string JoinLowered(int argc, const char16_t* const* argv) {
  std::u16string joined;
  for (int i = 1; i < argc; ++i) joined += (i > 1 ? u" " : u"") + LowerAscii(argv[i]);
  return joined;
}

// Keeps a line one line, and what follows in it where it stands: no controls, line or paragraph separators, and no
// marks that change the direction of writing.
bool IsShownAsItIs(char16_t unit) {
  return unit >= 0x20 && !(unit >= 0x7F && unit <= 0x9F) && unit != 0x061C && !(unit >= 0x200E && unit <= 0x200F) &&
         !(unit >= 0x2028 && unit <= 0x202E) && !(unit >= 0x2066 && unit <= 0x2069);
}

// A word of the command line as the log shows it. No command takes a secret; a switch with a value is none of theirs,
// so nobody knows what its value is.
std::u16string ShownWord(std::u16string_view word) {
  const bool isLocation = StartsWithIgnoringAsciiCase(word, u"/loc:") || StartsWithIgnoringAsciiCase(word, u"/vol:");
  const bool isSwitch = !isLocation && (word.starts_with(u'/') || word.starts_with(u'-'));
  std::u16string shown(word);
  if (const std::size_t value = word.find_first_of(u":="); isSwitch && value != word.npos)
    shown = shown.substr(0, value + 1) + u"...";
  for (char16_t& unit : shown)
    if (!IsShownAsItIs(unit)) unit = u'?';
  return shown.empty() || shown.find(u' ') != shown.npos ? u'"' + shown + u'"' : shown;
}

// Of a log that goes on for years: which run is this? The lines themselves tell no more than the time of day.
void LogRun(int argc, const char16_t* const* argv) {
  ProductVersion version;
  if (!GetProductVersion(version)) version.dotted = u"(unknown version)";
  std::u16string words;
  for (int i = 1; i < argc; ++i) words += u" " + ShownWord(argv[i]);
  win32::SYSTEMTIME now{};
  win32::GetLocalTime(&now);
  Log(u"#INFO: %04d-%02d-%02d, Quillbay %ls:%ls", now.wYear, now.wMonth, now.wDay, version.dotted, words);
}

int RunCommand(int argc, const char16_t* const* argv) {
  const CommandTable table = BuildCommandTable();
  Say(StringId::Banner);
  CommandLine line;
  std::u16string error;
  if (ParseCommandLine(table, argc, argv, line, error) != ParseResult::Good) {
    ConsolePrint(LoadResourceString(StringId::ErrorPrefix) + error);
    return 1;
  }
  return Dispatch({table, line, argv[1], JoinLowered(argc, argv)});
}

// `instance` is the mutex that keeps other runs out; it is held until the process ends.
int Run(int argc, const char16_t* const* argv, win32::UniqueKernelHandle& instance) {
  Log(u"----------------------------------");
  LogRun(argc, argv);
  if (!IsUserAdministrator()) {
    Say(StringId::StartNeedsAdministrator);
    Log(u"QBC: not running as administrator");
    return 1;
  }
  instance = TakeInstanceMutex();
  if (!instance) {
    static constexpr char16_t kAnotherRuns[] = u"QBC: another instance is already running";
    ConsolePrint(kAnotherRuns);
    Log(kAnotherRuns);
    return 1;
  }
  EnablePrivileges();  // what is missing shows where it is needed
  return RunCommand(argc, argv);
}

}  // namespace

int QuillbayMain(int argc, const char16_t* const* argv) {
  win32::UniqueKernelHandle instance;  // outlives the log: the next run finds it closed
  LogFile log;
  const StopRequests stopRequests;
  try {
    return Run(argc, argv, instance);
  } catch (const std::exception&) {
    Log(u"#ERROR: The command ended unexpectedly.");
    return 1;
  }
}
