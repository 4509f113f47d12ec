#include "profiles/profile_folders.h"

#include <exception>
#include <utility>

#include "report/log.h"
#include "text/ascii_case.h"
#include "text/path_text.h"
#include "win32/win32.h"

namespace {

constexpr const char16_t* kSystemDrive = u"%SystemDrive%";

const char16_t* NameOf(ProfileFolder which) {
  if (which == ProfileFolder::ProfilesDirectory) return u"ProfilesDirectory";
  return which == ProfileFolder::Default ? u"Default" : u"Public";
}

}  // namespace

bool ReadProfileFolder(ProfileFolder which, ProfileFolderValue& value) try {
  win32::UniqueKey key;
  if (win32::RegOpenKeyExW(win32::HKEY_LOCAL_MACHINE, kProfileListPath, 0, win32::KEY_QUERY_VALUE, key.put()) != 0 ||
      ReadRegistryValue(key.get(), NameOf(which), value) != 0)
    return false;
  value.folder = WithoutTrailingBackslash(ExpandedText(value));
  return !value.folder.empty();
} catch (const std::exception&) {
  return false;
}

bool RequireProfileFolder(ProfileFolder which, ProfileFolderValue& value) {
  if (ReadProfileFolder(which, value)) return true;
  return LogFailure(u"#ERROR: Unable to read the profile list.");
}

bool WriteProfileFolder(ProfileFolder which, const std::u16string& folder) try {
  ProfileFolderValue present;
  if (!ReadProfileFolder(which, present)) return false;
  RegistryValue value = TextValue(folder, present.type);
  if (present.type == win32::REG_EXPAND_SZ) {
    const std::u16string drive = ExpandedText(TextValue(kSystemDrive, win32::REG_EXPAND_SZ));
    if (drive.empty()) return false;
    if (StartsWithIgnoringAsciiCase(folder, drive + u'\\'))
      value = TextValue(std::u16string(kSystemDrive) + folder.substr(drive.size()), win32::REG_EXPAND_SZ);
  }
  // A folder with a name like "%TEMP%" would become another one.
  return EqualPaths(ExpandedText(value), folder) && RestoreProfileFolder(which, value);
} catch (const std::exception&) {
  return false;
}

bool RestoreProfileFolder(ProfileFolder which, const RegistryValue& value) try {
  return WriteMachineValue(kProfileListPath, NameOf(which), value) == 0;
} catch (const std::exception&) {
  return false;
}

ProfileFolderChange::ProfileFolderChange(ProfileFolder which, ProfileFolderValue before)
    : which_(which), before_(std::move(before)) {}

ProfileFolderChange::~ProfileFolderChange() { TakeBack(); }

bool ProfileFolderChange::Set(const std::u16string& folder) {
  changed_ = WriteProfileFolder(which_, folder);
  if (!changed_) Log(u"#ERROR: Unable to update the profile list: %ls cannot name %ls.", NameOf(which_), folder);
  return changed_;
}

bool ProfileFolderChange::TakeBack() {
  if (!changed_) return true;
  if (!RestoreProfileFolder(which_, before_))
    return LogFailure(u"#ERROR: Unable to update the profile list: %ls cannot name %ls again.", NameOf(which_),
                      before_.folder);
  changed_ = false;
  return true;
}
