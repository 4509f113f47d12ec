// restricted "PROGRAM" [ARGUMENTS...]: runs the program with the administrators group present in its token but usable
// only to deny. The exit code is the program's; 250 and above say what failed here.
#include <windows.h>

#include <shlwapi.h>

#include <cstdio>

int wmain(int argc, wchar_t** argv);

int wmain(int argc, wchar_t** argv) {
  const auto failed = [](int code) { return std::fprintf(stderr, "restricted: error %lu\n", GetLastError()), code; };
  if (argc < 2) return 255;
  SID_IDENTIFIER_AUTHORITY authority = {SECURITY_NT_AUTHORITY};
  SID_AND_ATTRIBUTES administrators{};
  if (!AllocateAndInitializeSid(&authority, 2, SECURITY_BUILTIN_DOMAIN_RID, DOMAIN_ALIAS_RID_ADMINS, 0, 0, 0, 0, 0, 0,
                                &administrators.Sid))
    return failed(254);
  HANDLE own = nullptr, restricted = nullptr;
  if (!OpenProcessToken(GetCurrentProcess(), TOKEN_ALL_ACCESS, &own)) return failed(253);
  if (!CreateRestrictedToken(own, 0, 1, &administrators, 0, nullptr, 0, nullptr, &restricted)) return failed(252);

  STARTUPINFOW startup{};
  startup.cb = sizeof startup;
  startup.dwFlags = STARTF_USESTDHANDLES;
  startup.hStdInput = GetStdHandle(STD_INPUT_HANDLE);
  startup.hStdOutput = GetStdHandle(STD_OUTPUT_HANDLE);
  startup.hStdError = GetStdHandle(STD_ERROR_HANDLE);
  PROCESS_INFORMATION process{};
  if (!CreateProcessAsUserW(restricted, argv[1], PathGetArgsW(GetCommandLineW()), nullptr, nullptr, TRUE, 0, nullptr,
                            nullptr, &startup, &process))
    return failed(251);
  WaitForSingleObject(process.hProcess, INFINITE);
  DWORD code = 250;
  GetExitCodeProcess(process.hProcess, &code);
  return static_cast<int>(code);
}
