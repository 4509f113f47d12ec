// Where a service's executable lies. Writes nothing to the log, which itself is found by it.
#pragma once

#include <string>

inline constexpr const char16_t* kQuillbayService = u"QuillbayService";  // the product's own

// The folder of the service's executable with its backslash; empty when the service is not installed, cannot be queried
// or is registered without a folder.
std::u16string ServiceFolder(const char16_t* service);
