#include "fsops/side_folder.h"

#include <array>

#include "fsops/file_list.h"
#include "fsops/folders.h"
#include "links/presence.h"
#include "links/real_path.h"
#include "report/log.h"
#include "text/path_text.h"
#include "win32/win32.h"

namespace {

constexpr const char16_t* kRemovalsKey = u"SOFTWARE\\Velmora\\Quillbay\\VolumeRemovals";

}  // namespace

bool IsEmptyPlainFolder(const std::u16string& path) { return LookAt(path).IsPlainDirectory() && IsEmptyFolder(path); }

bool ReadFillings(std::vector<std::pair<std::u16string, std::u16string>>& fillings) {
  fillings.clear();
  win32::UniqueKey key;
  const win32::LSTATUS opened = win32::RegOpenKeyExW(win32::HKEY_LOCAL_MACHINE, kRemovalsKey, 0,
                                                     win32::KEY_QUERY_VALUE | win32::KEY_WOW64_32KEY, key.put());
  if (opened != 0) return opened == win32::LSTATUS{win32::ERROR_FILE_NOT_FOUND};
  constexpr win32::DWORD kLongestName = 16384;  // characters, terminator included
  std::u16string name(kLongestName, u'\0');
  for (win32::DWORD index = 0;; ++index) {
    std::array<char16_t, win32::MAX_PATH> volume{};
    win32::DWORD length = kLongestName, type = 0, size = sizeof volume - sizeof(char16_t);
    const win32::LSTATUS result = win32::RegEnumValueW(key.get(), index, name.data(), &length, nullptr, &type,
                                                       reinterpret_cast<win32::BYTE*>(volume.data()), &size);
    if (result == win32::LSTATUS{win32::ERROR_NO_MORE_ITEMS}) return true;
    if (result != 0) return false;
    if (type == win32::REG_SZ) fillings.emplace_back(name.substr(0, length), volume.data());
  }
}

SideFolder::SideFolder(const std::u16string& source, std::u16string_view suffix)
    : place_(AsStored(source)), path_(place_ + std::u16string(suffix)) {}

bool SideFolder::Make() {
  const FolderMade made = MakeFolder(path_);
  stoodThere_ = made == FolderMade::StoodThere;
  return made != FolderMade::Failed && (!stoodThere_ || (LookAt(path_).IsPlainDirectory() && before_.Save(path_)));
}

void SideFolder::TakeAway() const {
  if (stoodThere_)
    before_.Restore();
  else if (PathExists(path_))
    RemoveEmptyFolder(path_);
}

bool SideFolder::IsFreeFor(const std::u16string& volume) const {
  return !PathExists(path_) || IsEmptyPlainFolder(path_) || IsBeingFilledFrom(volume);
}

bool SideFolder::IsBeingFilledFrom(const std::u16string& volume) const {
  win32::UniqueKey key;
  if (win32::RegOpenKeyExW(win32::HKEY_LOCAL_MACHINE, kRemovalsKey, 0, win32::KEY_QUERY_VALUE | win32::KEY_WOW64_32KEY,
                           key.put()) != 0)
    return false;
  std::array<char16_t, win32::MAX_PATH> noted{};  // a volume's name and its terminator are far shorter
  win32::DWORD type = 0, size = sizeof noted - sizeof(char16_t);
  return win32::RegQueryValueExW(key.get(), path_.c_str(), nullptr, &type, reinterpret_cast<win32::BYTE*>(noted.data()),
                                 &size) == 0 &&
         type == win32::REG_SZ && EqualPaths(noted.data(), volume);
}

bool SideFolder::NoteFillingFrom(const std::u16string& volume) const {
  win32::UniqueKey key;
  return win32::RegCreateKeyExW(win32::HKEY_LOCAL_MACHINE, kRemovalsKey, 0, nullptr, win32::REG_OPTION_NON_VOLATILE,
                                win32::KEY_SET_VALUE | win32::KEY_WOW64_32KEY, nullptr, key.put(), nullptr) == 0 &&
         win32::RegSetValueExW(key.get(), path_.c_str(), 0, win32::REG_SZ,
                               reinterpret_cast<const win32::BYTE*>(volume.c_str()),
                               static_cast<win32::DWORD>((volume.size() + 1) * sizeof(char16_t))) == 0;
}

void SideFolder::ForgetFilling() const {
  win32::UniqueKey key;
  win32::LSTATUS error = win32::RegOpenKeyExW(win32::HKEY_LOCAL_MACHINE, kRemovalsKey, 0,
                                              win32::KEY_SET_VALUE | win32::KEY_WOW64_32KEY, key.put());
  if (error == 0) error = win32::RegDeleteValueW(key.get(), path_.c_str());
  if (error != 0 && error != win32::LSTATUS{win32::ERROR_FILE_NOT_FOUND})
    Log(u"#INFO: Unable to remove the note that folder %ls is being filled.", path_);
}
