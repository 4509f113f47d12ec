#include "fsops/volume_root.h"

#include <algorithm>

#include "report/log.h"
#include "win32/win32.h"

namespace {

constexpr const char16_t* kRootsKey = u"SOFTWARE\\Velmora\\Quillbay\\VolumeRoots";
constexpr win32::DWORD kAllParts =
    win32::OWNER_SECURITY_INFORMATION | win32::GROUP_SECURITY_INFORMATION | win32::DACL_SECURITY_INFORMATION;

enum class Memory { None, Kept, Unreadable };

// What is remembered of a volume's root.
Memory Recall(const std::u16string& volume, FolderDescriptor& descriptor) {
  win32::UniqueKey key;
  win32::LSTATUS error = win32::RegOpenKeyExW(win32::HKEY_LOCAL_MACHINE, kRootsKey, 0,
                                              win32::KEY_QUERY_VALUE | win32::KEY_WOW64_32KEY, key.put());
  win32::DWORD type = 0, size = 0;
  if (error == 0) error = win32::RegQueryValueExW(key.get(), volume.c_str(), nullptr, &type, nullptr, &size);
  if (error == win32::LSTATUS{win32::ERROR_FILE_NOT_FOUND}) return Memory::None;
  if (error != 0 || type != win32::REG_SZ) return Memory::Unreadable;
  std::u16string text(size / sizeof(char16_t), u'\0');
  size = static_cast<win32::DWORD>(text.size() * sizeof(char16_t));
  if (win32::RegQueryValueExW(key.get(), volume.c_str(), nullptr, &type, reinterpret_cast<win32::BYTE*>(text.data()),
                              &size) != 0)
    return Memory::Unreadable;
  text.resize(std::min(text.find(u'\0'), text.size()));
  descriptor = DescriptorFromText(text);
  return descriptor.empty() ? Memory::Unreadable : Memory::Kept;
}

bool Remember(const std::u16string& volume, const FolderDescriptor& descriptor) {
  const std::u16string text = DescriptorText(descriptor, kAllParts);
  win32::UniqueKey key;
  return !text.empty() &&
         win32::RegCreateKeyExW(win32::HKEY_LOCAL_MACHINE, kRootsKey, 0, nullptr, win32::REG_OPTION_NON_VOLATILE,
                                win32::KEY_SET_VALUE | win32::KEY_WOW64_32KEY, nullptr, key.put(), nullptr) == 0 &&
         win32::RegSetValueExW(key.get(), volume.c_str(), 0, win32::REG_SZ,
                               reinterpret_cast<const win32::BYTE*>(text.c_str()),
                               static_cast<win32::DWORD>((text.size() + 1) * sizeof(char16_t))) == 0;
}

bool Forget(const std::u16string& volume) {
  win32::UniqueKey key;
  return win32::RegOpenKeyExW(win32::HKEY_LOCAL_MACHINE, kRootsKey, 0, win32::KEY_SET_VALUE | win32::KEY_WOW64_32KEY,
                              key.put()) == 0 &&
         win32::RegDeleteValueW(key.get(), volume.c_str()) == 0;
}

}  // namespace

// As a root can have it: there is nothing above that it could inherit from.
bool LendSecurityToRoot(const std::u16string& folder, const std::u16string& volume) {
  const FolderDescriptor lent = ProtectedDescriptor(ReadDescriptor(folder));
  FolderDescriptor own;
  const Memory memory = Recall(volume, own);
  if (lent.empty() || memory == Memory::Unreadable) return false;
  // A run that was cut off may have lent it one before: the root's own is then the one that is remembered.
  if (memory == Memory::None && !Remember(volume, ReadDescriptor(volume))) return false;
  if (WriteDescriptor(volume, lent)) return true;
  GiveRootItsOwnSecurity(volume);
  return false;
}

bool GiveRootItsOwnSecurity(const std::u16string& volume) {
  FolderDescriptor own;
  const Memory memory = Recall(volume, own);
  if (memory == Memory::None) return true;
  if (memory == Memory::Unreadable || !WriteDescriptor(volume, own))
    return LogFailure(u"#INFO: Unable to restore the security of volume %ls.", volume);
  if (!Forget(volume)) Log(u"#INFO: Unable to remove what is remembered of the security of volume %ls.", volume);
  return true;
}

FolderDescriptor ChangedRootSecurity(const std::u16string& folder, const std::u16string& volume) {
  FolderDescriptor own;
  if (Recall(volume, own) != Memory::Kept) return {};
  const FolderDescriptor lent = ProtectedDescriptor(ReadDescriptor(folder));
  FolderDescriptor present = ReadDescriptor(volume);
  if (lent.empty() || present.empty() || SayTheSame(lent, present)) return {};
  return present;
}
