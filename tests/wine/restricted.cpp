// restricted PROGRAM [ARGUMENTS...]: runs the program with the administrators group present in its token but usable
// only to deny. The exit code is the program's; 250 and above say what failed here.
#include <windows.h>

#include <cstdio>
#include <string>

namespace {

// One argument as CommandLineToArgvW reads it back.
std::wstring Quoted(const std::wstring& argument) {
  std::wstring quoted = L"\"";
  std::size_t backslashes = 0;
  for (const wchar_t c : argument) {
    if (c == L'"') quoted.append(backslashes + 1, L'\\');
    backslashes = c == L'\\' ? backslashes + 1 : 0;
    quoted += c;
  }
  return quoted.append(backslashes, L'\\') + L'"';
}

int Failed(int code, const char* call) {
  std::fprintf(stderr, "restricted: %s: error %lu\n", call, GetLastError());
  return code;
}

}  // namespace

int wmain(int argc, wchar_t** argv);

int wmain(int argc, wchar_t** argv) {
  if (argc < 2) return 255;
  SID_IDENTIFIER_AUTHORITY authority = {SECURITY_NT_AUTHORITY};
  SID_AND_ATTRIBUTES administrators{};
  if (!AllocateAndInitializeSid(&authority, 2, SECURITY_BUILTIN_DOMAIN_RID, DOMAIN_ALIAS_RID_ADMINS, 0, 0, 0, 0, 0, 0,
                                &administrators.Sid))
    return Failed(254, "AllocateAndInitializeSid");
  HANDLE own = nullptr, restricted = nullptr;
  if (!OpenProcessToken(GetCurrentProcess(), TOKEN_ALL_ACCESS, &own)) return Failed(253, "OpenProcessToken");
  if (!CreateRestrictedToken(own, 0, 1, &administrators, 0, nullptr, 0, nullptr, &restricted))
    return Failed(252, "CreateRestrictedToken");

  std::wstring commandLine;
  for (int i = 1; i < argc; ++i) commandLine += (i > 1 ? L" " : L"") + Quoted(argv[i]);
  STARTUPINFOW startup{};
  startup.cb = sizeof startup;
  startup.dwFlags = STARTF_USESTDHANDLES;
  startup.hStdInput = GetStdHandle(STD_INPUT_HANDLE);
  startup.hStdOutput = GetStdHandle(STD_OUTPUT_HANDLE);
  startup.hStdError = GetStdHandle(STD_ERROR_HANDLE);
  PROCESS_INFORMATION process{};
  if (!CreateProcessAsUserW(restricted, argv[1], commandLine.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr,
                            &startup, &process))
    return Failed(251, "CreateProcessAsUserW");
  WaitForSingleObject(process.hProcess, INFINITE);
  DWORD code = 250;
  GetExitCodeProcess(process.hProcess, &code);
  return static_cast<int>(code);
}
