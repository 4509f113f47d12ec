// What the compile-time checks of the native backend cannot reach: values that are pointers.
#include <gtest/gtest.h>

#include "win32/win32.h"

namespace {

const void* const kOurs[] = {win32::INVALID_HANDLE_VALUE,
                             win32::HKEY_CLASSES_ROOT,
                             win32::HKEY_CURRENT_USER,
                             win32::HKEY_LOCAL_MACHINE,
                             win32::HKEY_USERS,
                             win32::MakeIntResource(win32::RT_STRING),
                             win32::MakeIntResource(win32::RT_VERSION)};

}  // namespace

#include <windows.h>

namespace {

TEST(NativeBorder, PredefinedHandlesAndResourceTypesAreWindowsOwn) {
  const void* const windows[] = {INVALID_HANDLE_VALUE, HKEY_CLASSES_ROOT, HKEY_CURRENT_USER, HKEY_LOCAL_MACHINE,
                                 HKEY_USERS,           RT_STRING,         RT_VERSION};
  static_assert(std::size(windows) == std::size(kOurs));
  for (std::size_t i = 0; i < std::size(kOurs); ++i) EXPECT_EQ(kOurs[i], windows[i]) << i;
}

}  // namespace
