// account_pictures FROM TO: asks the service to have the account pictures follow the Public profile. Prints what was
// answered and how many seconds it took, behind what the program itself says.
#include "profiles/account_pictures.h"

#include <windows.h>

#include <cstdio>
#include <string>

int wmain(int argc, wchar_t** argv);

int wmain(int argc, wchar_t** argv) {
  if (argc != 3) return 2;
  std::u16string from = reinterpret_cast<const char16_t*>(argv[1]), to = reinterpret_cast<const char16_t*>(argv[2]);
  const ULONGLONG start = GetTickCount64();
  const bool answer = UpdateUserAccountImagesIfRequiredSvc(from, to);
  const ULONGLONG seconds = (GetTickCount64() - start) / 1000;
  std::printf("\n%s %llu %u\n", answer ? "true" : "false", seconds, GetACP());
  return from.empty() && to.empty() ? 0 : 1;
}
