#include "records/profile_keys.h"

#include <algorithm>
#include <array>

#include "text/ascii_case.h"
#include "text/path_text.h"
#include "win32/win32.h"

bool IsSidOfPerson(std::u16string_view sid) {
  if (!StartsWithIgnoringAsciiCase(sid, u"S-1-5-21-") && !StartsWithIgnoringAsciiCase(sid, u"S-1-12-1-")) return false;
  return sid.substr(1).find_first_not_of(u"0123456789-") == sid.npos;
}

std::u16string ProfileKeyOf(const std::u16string& sid) { return kProfileListPath + (u"\\" + sid); }

bool ReadSidsOfPeople(std::vector<std::u16string>& sids) {
  win32::UniqueKey list;
  if (win32::RegOpenKeyExW(win32::HKEY_LOCAL_MACHINE, kProfileListPath, 0,
                           win32::KEY_QUERY_VALUE | win32::KEY_ENUMERATE_SUB_KEYS, list.put()) != 0)
    return false;
  constexpr win32::DWORD kLongestKeyName = 256;  // terminator included
  for (win32::DWORD index = 0;; ++index) {
    std::array<char16_t, kLongestKeyName> name{};
    const win32::LSTATUS result = win32::RegEnumKeyW(list.get(), index, name.data(), kLongestKeyName);
    if (result == win32::LSTATUS{win32::ERROR_NO_MORE_ITEMS}) return true;
    if (result != 0) return false;
    if (IsSidOfPerson(name.data())) sids.emplace_back(name.data());
  }
}

bool ReadProfileFolders(std::vector<std::u16string>& folders) {
  const auto add = [&](const std::u16string& key, const char16_t* name) {
    RegistryValue value;
    const win32::LSTATUS error = ReadMachineValue(key, name, value);
    const std::u16string folder = error == 0 ? WithoutTrailingBackslash(ExpandedText(value)) : std::u16string();
    if (!folder.empty()) folders.push_back(folder);
    return error == 0 || error == win32::LSTATUS{win32::ERROR_FILE_NOT_FOUND};
  };
  std::vector<std::u16string> sids;
  return ReadSidsOfPeople(sids) && add(kProfileListPath, u"Default") && add(kProfileListPath, u"Public") &&
         std::ranges::all_of(sids,
                             [&](const std::u16string& sid) { return add(ProfileKeyOf(sid), kProfileImagePath); });
}

bool IsProfileFolder(const std::u16string& folder) {
  std::vector<std::u16string> folders;
  ReadProfileFolders(folders);
  return ContainsIgnoringAsciiCase(folders, folder);
}
