// restricted "PROGRAM" [ARGUMENTS...]: runs the program with the administrators group present in its token but usable
// only to deny. The exit code is the program's; 250 says that it could not be started so.
#include <windows.h>

#include <shlwapi.h>

int wmain(int argc, wchar_t** argv);

int wmain(int, wchar_t** argv) {
  SID_IDENTIFIER_AUTHORITY authority = {SECURITY_NT_AUTHORITY};
  SID_AND_ATTRIBUTES administrators{};
  HANDLE own = nullptr, restricted = nullptr;
  STARTUPINFOW startup{};
  startup.cb = sizeof startup;
  startup.dwFlags = STARTF_USESTDHANDLES;
  startup.hStdInput = GetStdHandle(STD_INPUT_HANDLE);
  startup.hStdOutput = GetStdHandle(STD_OUTPUT_HANDLE);
  startup.hStdError = GetStdHandle(STD_ERROR_HANDLE);
  PROCESS_INFORMATION process{};
  if (!AllocateAndInitializeSid(&authority, 2, SECURITY_BUILTIN_DOMAIN_RID, DOMAIN_ALIAS_RID_ADMINS, 0, 0, 0, 0, 0, 0,
                                &administrators.Sid) ||
      !OpenProcessToken(GetCurrentProcess(), TOKEN_ALL_ACCESS, &own) ||
      !CreateRestrictedToken(own, 0, 1, &administrators, 0, nullptr, 0, nullptr, &restricted) ||
      !CreateProcessAsUserW(restricted, argv[1], PathGetArgsW(GetCommandLineW()), nullptr, nullptr, TRUE, 0, nullptr,
                            nullptr, &startup, &process))
    return 250;
  WaitForSingleObject(process.hProcess, INFINITE);
  DWORD code = 250;
  GetExitCodeProcess(process.hProcess, &code);
  return static_cast<int>(code);
}
