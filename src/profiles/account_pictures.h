// The pictures of user accounts, which lie in the Public profile from Windows 8 on.
#pragma once

#include <string>

// Asks the product's service, through its pipe, to have the stored paths of account pictures follow the Public profile
// from `from` (whose "\AccountPictures" must exist) to `to`, and restarts the service around the request. Both strings
// are empty afterwards. True when the request was sent or there is nothing to send. Failures go to the debugger only.
bool UpdateUserAccountImagesIfRequiredSvc(std::u16string& from, std::u16string& to);
