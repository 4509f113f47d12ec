// What the compile-time checks of the native backend cannot reach: values that are pointers, and functions looked up by
// name.
#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "win32/win32.h"

namespace {

struct Predefined {
  const char* name;
  const void* ours;
  const void* windows;
};

std::vector<Predefined> PredefinedValues();  // needs Windows' macros, so it stands below everything else

TEST(NativeBorder, PredefinedHandlesAndResourceTypesAreWindowsOwn) {
  for (const Predefined& value : PredefinedValues()) EXPECT_EQ(value.ours, value.windows) << value.name;
}

TEST(NativeBorder, FunctionsFoundByNameCanBeCalled) {
  const win32::HMODULE kernel = win32::GetModuleHandleW(u"Kernel32.dll");
  ASSERT_NE(kernel, nullptr);
  using GetCurrentProcessIdFunction = win32::DWORD (*)();
  const auto getCurrentProcessId = reinterpret_cast<GetCurrentProcessIdFunction>(
      reinterpret_cast<std::uintptr_t>(win32::GetProcAddress(kernel, "GetCurrentProcessId")));
  ASSERT_NE(getCurrentProcessId, nullptr);
  EXPECT_EQ(getCurrentProcessId(), win32::GetCurrentProcessId());
  EXPECT_EQ(win32::GetProcAddress(kernel, "NoSuchFunction"), nullptr);
  EXPECT_EQ(win32::GetLastError(), win32::ERROR_PROC_NOT_FOUND);
}

TEST(NativeBorder, PathUnquoteSpacesTellsWhetherQuotesWereTakenOff) {
  struct {
    std::u16string path, unquoted;
    bool done;
  } const cases[] = {{u"\"C:\\a b\"", u"C:\\a b", true},
                     {u"\"\"x\"\"", u"\"x\"", true},
                     {u"\"C:\\a b", u"\"C:\\a b", false},
                     {u"C:\\a", u"C:\\a", false},
                     {u"", u"", false}};
  for (const auto& c : cases) {
    std::u16string text = c.path;
    EXPECT_EQ(win32::PathUnquoteSpacesW(text.data()) != 0, c.done);
    EXPECT_EQ(std::u16string(text.c_str()), c.unquoted);
  }
}

const Predefined kOurs[] = {
    {"INVALID_HANDLE_VALUE", win32::INVALID_HANDLE_VALUE, nullptr},
    {"HKEY_CLASSES_ROOT", win32::HKEY_CLASSES_ROOT, nullptr},
    {"HKEY_CURRENT_USER", win32::HKEY_CURRENT_USER, nullptr},
    {"HKEY_LOCAL_MACHINE", win32::HKEY_LOCAL_MACHINE, nullptr},
    {"HKEY_USERS", win32::HKEY_USERS, nullptr},
    {"RT_STRING", win32::MakeIntResource(win32::RT_STRING), nullptr},
    {"RT_VERSION", win32::MakeIntResource(win32::RT_VERSION), nullptr},
};

}  // namespace

#include <windows.h>

namespace {

std::vector<Predefined> PredefinedValues() {
  const void* const windows[] = {INVALID_HANDLE_VALUE, HKEY_CLASSES_ROOT, HKEY_CURRENT_USER, HKEY_LOCAL_MACHINE,
                                 HKEY_USERS,           RT_STRING,         RT_VERSION};
  static_assert(std::size(windows) == std::size(kOurs));
  std::vector<Predefined> values(std::begin(kOurs), std::end(kOurs));
  for (std::size_t i = 0; i < values.size(); ++i) values[i].windows = windows[i];
  return values;
}

}  // namespace
