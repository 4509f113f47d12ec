// Reading and writing the descriptors of files by name, of win32/security.h.
//
// Both families of functions open the file for reading or writing its descriptor only, on a link itself and without
// asking for backup semantics: privileges to back up and restore do not count (docs/windows-facts-found.md). An open
// with such rights never conflicts with another one's sharing.
#include <vector>

#include "win32/emulated/files/file_service.h"
#include "win32/emulated/machine.h"
#include "win32/emulated/security/access.h"
#include "win32/emulated/system/local_memory.h"
#include "win32/security.h"

namespace win32 {

namespace {

using emulated::Bytes;
using emulated::ByteView;
using emulated::DescriptorView;
using emulated::FileId;
using emulated::Machine;
using emulated::Volume;

struct SecuredFile {
  Volume* volume = nullptr;
  FileId file = 0;
  Bytes descriptor;
  DescriptorView view;   // of `descriptor`
  FileId directory = 0;  // 0 for the root
  DWORD attributes = 0;
};

// Finds the file and lets the caller's token pass with `access`.
DWORD OpenSecured(const char16_t* path, ACCESS_MASK access, SecuredFile& secured) {
  Machine& machine = Machine::Current();
  emulated::Location location;
  if (const DWORD error = machine.files().Resolve(path, false, location)) return error;
  if (location.file == 0) return ERROR_FILE_NOT_FOUND;
  if (!location.volume->volume) return ERROR_NOT_SUPPORTED;
  secured.volume = location.volume->volume.get();
  secured.file = location.file;
  secured.directory = location.directory;
  secured.attributes = location.info.attributes;
  if (const DWORD error = secured.volume->GetSecurity(location.file, secured.descriptor)) return error;
  const auto view = emulated::ViewDescriptor(secured.descriptor);
  if (!view) return ERROR_INVALID_SECURITY_DESCR;
  secured.view = *view;
  DWORD granted = 0;
  return emulated::CheckAccess(machine.EffectiveToken(), secured.view, access, emulated::kFileMapping, false,
                               std::nullopt, granted);
}

ACCESS_MASK AccessToRead(DWORD information) {
  ACCESS_MASK access = 0;
  if ((information & (OWNER_SECURITY_INFORMATION | GROUP_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION)) != 0)
    access |= READ_CONTROL;
  if ((information & SACL_SECURITY_INFORMATION) != 0) access |= ACCESS_SYSTEM_SECURITY;
  return access;
}

ACCESS_MASK AccessToWrite(DWORD information) {
  ACCESS_MASK access = 0;
  if ((information & (OWNER_SECURITY_INFORMATION | GROUP_SECURITY_INFORMATION)) != 0) access |= WRITE_OWNER;
  if ((information & DACL_SECURITY_INFORMATION) != 0) access |= WRITE_DAC;
  if ((information & SACL_SECURITY_INFORMATION) != 0) access |= ACCESS_SYSTEM_SECURITY;
  return access;
}

// Only the parts that were asked for, with the control bits that speak of them.
Bytes Selected(DescriptorView view, DWORD information) {
  constexpr unsigned kOwnerBits = 0x0001, kGroupBits = 0x0002;  // SE_OWNER_DEFAULTED, SE_GROUP_DEFAULTED
  constexpr unsigned kDaclBits =
      SE_DACL_PRESENT | SE_DACL_DEFAULTED | SE_DACL_AUTO_INHERIT_REQ | SE_DACL_AUTO_INHERITED | SE_DACL_PROTECTED;
  constexpr unsigned kSaclBits =
      SE_SACL_PRESENT | 0x0020u | SE_SACL_AUTO_INHERIT_REQ | SE_SACL_AUTO_INHERITED | SE_SACL_PROTECTED;
  unsigned dropped = 0;
  if ((information & OWNER_SECURITY_INFORMATION) == 0) view.owner = {}, dropped |= kOwnerBits;
  if ((information & GROUP_SECURITY_INFORMATION) == 0) view.group = {}, dropped |= kGroupBits;
  if ((information & DACL_SECURITY_INFORMATION) == 0) view.dacl = {}, dropped |= kDaclBits;
  if ((information & SACL_SECURITY_INFORMATION) == 0) view.sacl = {}, dropped |= kSaclBits;
  view.control = static_cast<WORD>(view.control & ~dropped);
  return emulated::BuildDescriptor(view);
}

DWORD CheckNewOwner(DWORD information, ByteView owner, ByteView group) {
  if ((information & OWNER_SECURITY_INFORMATION) != 0 &&
      (owner.empty() || !MayMakeOwner(Machine::Current().EffectiveToken(), owner)))
    return ERROR_INVALID_OWNER;
  if ((information & GROUP_SECURITY_INFORMATION) != 0 && group.empty()) return ERROR_INVALID_PRIMARY_GROUP;
  return ERROR_SUCCESS;
}

DWORD Store(Volume& volume, FileId file, ByteView descriptor) {
  if (const DWORD error = volume.SetSecurity(file, descriptor)) return error;
  return volume.SetTimes(file, {.creation = 0, .lastAccess = 0, .lastWrite = 0, .change = Machine::Current().Now()});
}

// The entries that everything below a directory inherits are computed anew after its DACL has changed. What is
// protected, what the caller may not change and what lies behind a reparse point stays as it is.
DWORD Propagate(Volume& volume, FileId top, const Bytes& topDescriptor) {
  const emulated::Token& token = Machine::Current().EffectiveToken();
  std::vector<std::pair<FileId, Bytes>> directories{{top, topDescriptor}};
  while (!directories.empty()) {
    const auto [directory, above] = std::move(directories.back());
    directories.pop_back();
    std::vector<emulated::DirectoryEntry> entries;
    if (const DWORD error = volume.List(directory, entries)) return error;
    for (const emulated::DirectoryEntry& entry : entries) {
      emulated::FileInfo info;
      Bytes current;
      if (const DWORD error = volume.Stat(entry.id, info)) return error;
      if (const DWORD error = volume.GetSecurity(entry.id, current)) return error;
      const auto view = emulated::ViewDescriptor(current);
      if (!view || (view->control & SE_DACL_PROTECTED) != 0) continue;
      DWORD granted = 0;
      if (emulated::CheckAccess(token, *view, READ_CONTROL | WRITE_DAC, emulated::kFileMapping, false, std::nullopt,
                                granted) != 0)
        continue;
      const bool isDirectory = (info.attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
      Bytes changed = emulated::Reinherit(current, above, isDirectory, emulated::kFileMapping);
      if (changed.empty()) continue;  // too long for an ACL
      if (changed != current)
        if (const DWORD error = Store(volume, entry.id, changed)) return error;
      if (isDirectory && (info.attributes & FILE_ATTRIBUTE_REPARSE_POINT) == 0)
        directories.emplace_back(entry.id, std::move(changed));
    }
  }
  return ERROR_SUCCESS;
}

// The descriptor that a named write makes of the current one.
DWORD NamedWrite(const SecuredFile& secured, bool isDirectory, DWORD information, ByteView owner, ByteView group,
                 std::optional<ByteView> dacl, ByteView sacl, Bytes& changed) {
  changed = secured.descriptor;
  const DWORD plainParts =
      information & (OWNER_SECURITY_INFORMATION | GROUP_SECURITY_INFORMATION | SACL_SECURITY_INFORMATION);
  if (plainParts != 0) {
    const DescriptorView given{SE_SACL_PRESENT, owner, group, sacl, {}};
    changed = emulated::MergeDescriptor(changed, emulated::BuildDescriptor(given), plainParts);
  }
  if ((information & DACL_SECURITY_INFORMATION) != 0) {
    Bytes parent;
    if (secured.directory != 0)
      if (const DWORD error = secured.volume->GetSecurity(secured.directory, parent)) return error;
    const auto above = parent.empty() ? std::optional<ByteView>() : std::optional<ByteView>(parent);
    changed = emulated::ApplyDacl(changed, dacl, information, above, isDirectory, emulated::kFileMapping);
  }
  return changed.empty() ? ERROR_INVALID_ACL : ERROR_SUCCESS;
}

}  // namespace

DWORD GetNamedSecurityInfoW(const char16_t* pObjectName, SE_OBJECT_TYPE ObjectType, DWORD SecurityInfo,
                            PSID* ppsidOwner, PSID* ppsidGroup, ACL** ppDacl, ACL** ppSacl,
                            PSECURITY_DESCRIPTOR* ppSecurityDescriptor) {
  WIN32_CALL(pObjectName, ObjectType, SecurityInfo);
  if (call.Refused()) return call.Code<DWORD>(call.error());
  // Without the descriptor the caller could not free what the other pointers lead into.
  if (!pObjectName || !ppSecurityDescriptor) return call.Code<DWORD>(ERROR_INVALID_PARAMETER);
  if (ObjectType != SE_OBJECT_TYPE::SE_FILE_OBJECT) return call.Code<DWORD>(ERROR_NOT_SUPPORTED);
  SecuredFile secured;
  if (const DWORD error = OpenSecured(pObjectName, AccessToRead(SecurityInfo), secured)) return call.Code<DWORD>(error);
  const Bytes selected = Selected(secured.view, SecurityInfo);
  auto* const descriptor = static_cast<BYTE*>(emulated::LocalCopy(selected));
  if (!descriptor) return call.Code<DWORD>(ERROR_NOT_ENOUGH_MEMORY);
  const auto view = emulated::ViewDescriptor({descriptor, selected.size()}).value_or(DescriptorView{});
  // Null for a part that is not there, or was not asked for.
  const auto give = [&](ByteView part, auto** pointer) {
    if (pointer)
      *pointer = part.empty() ? nullptr
                              : reinterpret_cast<std::remove_reference_t<decltype(**pointer)>*>(
                                    descriptor + (part.data() - descriptor));
  };
  const auto giveSid = [&](ByteView part, PSID* pointer) {
    if (pointer) *pointer = part.empty() ? nullptr : descriptor + (part.data() - descriptor);
  };
  giveSid(view.owner, ppsidOwner);
  giveSid(view.group, ppsidGroup);
  give(view.dacl, ppDacl);
  give(view.sacl, ppSacl);
  *ppSecurityDescriptor = descriptor;
  return call.Code<DWORD>(ERROR_SUCCESS);
}

DWORD SetNamedSecurityInfoW(char16_t* pObjectName, SE_OBJECT_TYPE ObjectType, DWORD SecurityInfo, PSID psidOwner,
                            PSID psidGroup, ACL* pDacl, ACL* pSacl) {
  WIN32_CALL(pObjectName, ObjectType, SecurityInfo, psidOwner, psidGroup, pDacl, pSacl);
  if (call.Refused()) return call.Code<DWORD>(call.error());
  if (!pObjectName) return call.Code<DWORD>(ERROR_INVALID_PARAMETER);
  if (ObjectType != SE_OBJECT_TYPE::SE_FILE_OBJECT) return call.Code<DWORD>(ERROR_NOT_SUPPORTED);
  const auto dacl = emulated::AclOf(pDacl), sacl = emulated::AclOf(pSacl);
  if (!dacl || !sacl) return call.Code<DWORD>(ERROR_INVALID_ACL);
  const ByteView owner = emulated::SidOf(psidOwner), group = emulated::SidOf(psidGroup);
  const bool writesDacl = (SecurityInfo & DACL_SECURITY_INFORMATION) != 0;
  SecuredFile secured;
  // A DACL is merged into what is there, so that has to be read.
  const ACCESS_MASK access = AccessToWrite(SecurityInfo) | (writesDacl ? READ_CONTROL : 0);
  if (const DWORD error = OpenSecured(pObjectName, access, secured)) return call.Code<DWORD>(error);
  if (const DWORD error = CheckNewOwner(SecurityInfo, owner, group)) return call.Code<DWORD>(error);
  const bool isDirectory = (secured.attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;

  Bytes changed;
  if (const DWORD error = NamedWrite(secured, isDirectory, SecurityInfo, owner, group, dacl, *sacl, changed))
    return call.Code<DWORD>(error);
  if (const DWORD error = Store(*secured.volume, secured.file, changed)) return call.Code<DWORD>(error);
  const bool isLink = (secured.attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0;
  const DWORD error =
      writesDacl && isDirectory && !isLink ? Propagate(*secured.volume, secured.file, changed) : ERROR_SUCCESS;
  return call.Code<DWORD>(error);
}

BOOL GetFileSecurityW(const char16_t* lpFileName, DWORD RequestedInformation, PSECURITY_DESCRIPTOR pSecurityDescriptor,
                      DWORD nLength, DWORD* lpnLengthNeeded) {
  WIN32_CALL(lpFileName, RequestedInformation, nLength);
  if (call.Refused()) return FALSE;
  if (!lpFileName || !lpnLengthNeeded) return call.Done(ERROR_INVALID_PARAMETER);
  SecuredFile secured;
  if (const DWORD error = OpenSecured(lpFileName, AccessToRead(RequestedInformation), secured)) return call.Done(error);
  const Bytes selected = Selected(secured.view, RequestedInformation);
  *lpnLengthNeeded = static_cast<DWORD>(selected.size());
  if (!pSecurityDescriptor || nLength < selected.size()) return call.Done(ERROR_INSUFFICIENT_BUFFER);
  std::memcpy(pSecurityDescriptor, selected.data(), selected.size());
  return call.Done(ERROR_SUCCESS);
}

// Writes what it is given: nothing is inherited anew, here or below.
BOOL SetFileSecurityW(const char16_t* lpFileName, DWORD SecurityInformation, PSECURITY_DESCRIPTOR pSecurityDescriptor) {
  WIN32_CALL(lpFileName, SecurityInformation, pSecurityDescriptor);
  if (call.Refused()) return FALSE;
  if (!lpFileName) return call.Done(ERROR_INVALID_PARAMETER);
  const Bytes given = emulated::SelfRelative(pSecurityDescriptor);
  const auto view = emulated::ViewDescriptor(given);
  if (!view) return call.Done(ERROR_INVALID_SECURITY_DESCR);
  SecuredFile secured;
  if (const DWORD error = OpenSecured(lpFileName, AccessToWrite(SecurityInformation), secured)) return call.Done(error);
  if (const DWORD error = CheckNewOwner(SecurityInformation, view->owner, view->group)) return call.Done(error);
  const Bytes changed = emulated::MergeDescriptor(secured.descriptor, given, SecurityInformation);
  if (changed.empty()) return call.Done(ERROR_INVALID_SECURITY_DESCR);
  return call.Done(Store(*secured.volume, secured.file, changed));
}

}  // namespace win32
