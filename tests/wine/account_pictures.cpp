// account_pictures FROM TO: asks the service to have the account pictures follow the Public profile. Ends with 0 when
// that was done.
#include "profiles/account_pictures.h"

int wmain(int argc, wchar_t** argv);

int wmain(int argc, wchar_t** argv) {
  if (argc != 3) return 2;
  std::u16string from = reinterpret_cast<const char16_t*>(argv[1]), to = reinterpret_cast<const char16_t*>(argv[2]);
  return UpdateUserAccountImagesIfRequiredSvc(from, to) ? 0 : 1;
}
