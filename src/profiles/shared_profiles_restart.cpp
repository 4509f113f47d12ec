#include "profiles/shared_profiles_restart.h"

#include <exception>
#include <string_view>

#include "links/real_path.h"
#include "links/reparse_data.h"
#include "records/registry_text.h"
#include "report/log.h"
#include "text/ascii_case.h"
#include "text/path_text.h"
#include "win32/win32.h"

namespace {

constexpr const char16_t* kSessionManager = u"SYSTEM\\CurrentControlSet\\Control\\Session Manager";
constexpr const char16_t* kOperations = u"PendingFileRenameOperations";

// All texts of the value, one behind the other, each with its zero. False when the registry does not tell.
bool ReadOperations(std::u16string& texts) {
  win32::UniqueKey key;
  if (win32::RegOpenKeyExW(win32::HKEY_LOCAL_MACHINE, kSessionManager, 0, win32::KEY_QUERY_VALUE, key.put()) != 0)
    return false;  // a machine without this key is none whose restart could be foretold
  RegistryValue value;
  const win32::LSTATUS result = ReadRegistryValue(key.get(), kOperations, value);
  if (result == win32::LSTATUS{win32::ERROR_FILE_NOT_FOUND}) return true;
  if (result != 0) return false;
  texts = UnitsOf(value);
  return true;
}

// "\??\C:\x", in front of a target also "!" (it may be replaced), as an ordinary path.
std::u16string PathOf(std::u16string_view text) {
  constexpr std::u16string_view kVolume = u"Volume{";
  if (text.starts_with(u'!')) text.remove_prefix(1);
  if (text.starts_with(kNativePrefix)) text.remove_prefix(kNativePrefix.size());
  return StartsWithIgnoringAsciiCase(text, kVolume) ? WithExtendedPrefix(text) : std::u16string(text);
}

}  // namespace

RestartOwed IsRestartOwed(const std::vector<std::u16string>& places) try {
  std::u16string texts;
  if (!ReadOperations(texts)) {
    Log(u"#ERROR: Unable to read what is to be deleted and renamed at the next restart.");
    return RestartOwed::Unknown;
  }
  for (std::u16string_view rest = texts; !rest.empty();) {
    const std::u16string_view text = rest.substr(0, rest.find(u'\0'));
    const std::u16string path = PathOf(text);
    for (const std::u16string& place : places)
      if (IsReallySameOrBelow(path, place)) {
        Log(u"#ERROR: %ls is to be deleted or renamed at the next restart. Restart your computer first.", path);
        return RestartOwed::Yes;
      }
    rest.remove_prefix(text.size() < rest.size() ? text.size() + 1 : rest.size());
  }
  return RestartOwed::No;
} catch (const std::exception&) {
  return RestartOwed::Unknown;
}
