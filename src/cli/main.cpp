#include "cli/main.h"

#include <exception>

#include "cli/invocation.h"
#include "probes/privileges.h"
#include "report/console.h"
#include "report/log.h"
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
  try {
    return Run(argc, argv, instance);
  } catch (const std::exception&) {
    Log(u"#ERROR: The command ended unexpectedly.");
    return 1;
  }
}
