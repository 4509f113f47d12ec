#include "fsops/security.h"

#include <algorithm>
#include <cstring>
#include <exception>
#include <utility>

#include "links/presence.h"
#include "probes/privileges.h"
#include "report/debugger.h"
#include "report/lines.h"
#include "report/log.h"
#include "report/only_looks.h"
#include "text/format.h"
#include "text/path_text.h"
#include "win32/win32.h"

namespace {

constexpr auto kFile = win32::SE_OBJECT_TYPE::SE_FILE_OBJECT;
constexpr win32::DWORD kOwnerAndDacl = win32::OWNER_SECURITY_INFORMATION | win32::DACL_SECURITY_INFORMATION;

// To the debugger only.
void Trace(FormatFor<std::u16string> format, const std::u16string& path) {
  constexpr std::size_t kTraceBuffer = 1024;
  TellDebugger(CutToBuffer(FormatText<std::u16string>(format, path), kTraceBuffer).c_str());
}

bool IsInherited(void* ace) {
  return (static_cast<const win32::ACE_HEADER*>(ace)->AceFlags & win32::INHERITED_ACE) != 0;
}

win32::DWORD SetDacl(std::u16string path, win32::DWORD information, win32::ACL* dacl) {
  return win32::SetNamedSecurityInfoW(path.data(), kFile, information, nullptr, nullptr, dacl, nullptr);
}

// Takes the inherited entries out of the DACL (none with keep); true when there was one. The index moves on after a
// deletion too, so the entry that takes the place of a deleted one is not looked at: of consecutive inherited entries
// every second one stays. This is the wanted result. The entries are read where they lie, one behind the other: GetAce
// tells no more, and would be a call for each entry of each file, beyond the number that a file may cost
// (docs/performance.md).
bool StripInherited(win32::ACL& dacl, bool keep, const std::u16string& source) {
  bool seen = false;
  win32::BYTE* const list = reinterpret_cast<win32::BYTE*>(&dacl);
  std::size_t at = sizeof dacl;
  for (win32::DWORD index = 0; index < dacl.AceCount && at + sizeof(win32::ACE_HEADER) <= dacl.AclSize; ++index) {
    const auto& entry = *reinterpret_cast<const win32::ACE_HEADER*>(list + at);
    if (IsInherited(list + at)) {
      seen = true;
      if (!keep && !win32::DeleteAce(&dacl, index)) Trace(u"Unable to delete ACE from DACL of = %ls", source);
    }
    at += std::max<std::size_t>(entry.AceSize, sizeof(win32::ACE_HEADER));
  }
  return seen;
}

win32::EXPLICIT_ACCESS_W Entry(win32::PSID sid, win32::TRUSTEE_TYPE type, win32::DWORD access) {
  win32::EXPLICIT_ACCESS_W entry{};
  entry.grfAccessPermissions = access;
  entry.grfAccessMode = win32::ACCESS_MODE::SET_ACCESS;
  entry.grfInheritance = win32::NO_INHERITANCE;
  entry.Trustee.TrusteeForm = win32::TRUSTEE_FORM::TRUSTEE_IS_SID;
  entry.Trustee.TrusteeType = type;
  entry.Trustee.ptstrName = static_cast<char16_t*>(sid);
  return entry;
}

int ExamineInheritance(const std::u16string& path) {
  win32::ACL* dacl = nullptr;
  win32::UniqueLocalMemory descriptor;
  if (win32::GetNamedSecurityInfoW(path.c_str(), kFile, win32::DACL_SECURITY_INFORMATION, nullptr, nullptr, &dacl,
                                   nullptr, descriptor.put()) != win32::ERROR_SUCCESS ||
      !dacl)
    return 0;
  for (win32::DWORD index = 0; index < dacl->AceCount; ++index) {
    void* ace = nullptr;
    if (!win32::GetAce(dacl, index, &ace))
      Log(u"#### HaveInheritedPermissions(). Failed to get ACE from DACL of (index: %d)= %ls", index, path);
    else if (IsInherited(ace))
      return 1;
  }
  return 0;
}

enum class Restored { Yes, Gone, No };

// What no longer exists has none to get back.
Restored RestoreSecurity(const std::u16string& path, const SecurityBlock& block) {
  Trace(u"IN RestoreRemovedSecurityInfo() : %s", path);
  if (WriteSecurityInfo(path, block)) return Restored::Yes;
  Trace(u"SetFileSecurity() failed for: %s", path);
  win32::Sleep(2000);
  if (IsGone(path)) return Restored::Gone;
  if (WriteSecurityInfo(path, block)) return Restored::Yes;
  LogWithSystemError(line::kDescriptorNotRestored, path);
  return Restored::No;
}

// The path of an item that moved with its tree; empty for one that is not in it. A name that only "\\?\" reaches keeps
// it.
std::u16string PathAfterMove(const std::u16string& path, std::u16string_view source, std::u16string_view target) {
  const std::u16string_view plain = WithoutExtendedPrefix(path), from = WithoutExtendedPrefix(source);
  if (!IsSameOrBelow(plain, from)) return {};
  const std::u16string moved = ReplaceFolder(plain, from, WithoutExtendedPrefix(target));
  return HasExtendedPrefix(path) || HasExtendedPrefix(target) ? WithExtendedPrefix(moved) : ExtendedPath(moved);
}

// An item that did not move is written where it stayed. One that has vanished from both places is open nowhere; of one
// whose new place is unknown nobody can tell that.
bool RestoreMoved(const std::u16string& path, const SecurityBlock& block, std::u16string_view source,
                  std::u16string_view target) {
  const std::u16string moved = PathAfterMove(path, source, target), stayed = ExtendedPath(path);
  if (!moved.empty())
    if (const Restored there = RestoreSecurity(moved, block); there != Restored::Gone) return there == Restored::Yes;
  const Restored here = IsGone(stayed) ? Restored::Gone : RestoreSecurity(stayed, block);
  return here == Restored::Yes || (here == Restored::Gone && !moved.empty());
}

bool IsShareViolation(win32::DWORD error) {
  return error == win32::ERROR_SHARING_VIOLATION || error == win32::ERROR_LOCK_VIOLATION;
}

// Bit 0x8 is no attribute that Windows sets; it is set when the attributes could not be read. A read-only file is
// therefore asked for write access as well and answers "access denied", which counts as not locked.
win32::DWORD AloneAccess(win32::DWORD attributes) {
  constexpr win32::DWORD kReadAlone = 0x8;
  return attributes & kReadAlone ? win32::GENERIC_READ : win32::GENERIC_READ | win32::GENERIC_WRITE;
}

// No violation of what another process shares keeps the file from being opened so.
int IsSharedFor(const std::u16string& path, win32::DWORD access, win32::DWORD share, win32::DWORD flags) {
  win32::SetLastError(win32::ERROR_SUCCESS);  // an open that succeeds need not set it
  const win32::UniqueFile file{
      win32::CreateFileW(path.c_str(), access, share, nullptr, win32::OPEN_EXISTING, flags, nullptr)};
  return IsShareViolation(win32::GetLastError()) ? 0 : 1;
}

}  // namespace

ImpersonatedCaller::ImpersonatedCaller() {
  impersonating_ = win32::ImpersonateSelf(win32::SECURITY_IMPERSONATION_LEVEL::SecurityImpersonation) != win32::FALSE;
  if (impersonating_ &&
      !win32::OpenThreadToken(win32::GetCurrentThread(), win32::TOKEN_QUERY, win32::TRUE, token_.put()))
    token_.reset();
}

// Back to the process's own token: privileges that are enabled in it later would not count for a thread with a copy.
ImpersonatedCaller::~ImpersonatedCaller() {
  if (impersonating_) win32::RevertToSelf();
}

int CopyDacl(const std::u16string& source, const std::u16string& target, const DaclCopyOptions& options) {
  const DaclCopy copied = CopyReadableDacl(source, target, options);
  if (copied != DaclCopy::NotRead) return copied == DaclCopy::Written ? 1 : 0;
  return SetDacl(target, win32::DACL_SECURITY_INFORMATION | win32::PROTECTED_DACL_SECURITY_INFORMATION, nullptr) ==
                 win32::ERROR_SUCCESS
             ? 1
             : 0;
}

DaclCopy CopyReadableDacl(const std::u16string& source, const std::u16string& target,
                          const DaclCopyOptions& options) try {
  win32::ACL* dacl = nullptr;
  win32::UniqueLocalMemory descriptor;
  if (const win32::DWORD error = win32::GetNamedSecurityInfoW(source.c_str(), kFile, win32::DACL_SECURITY_INFORMATION,
                                                              nullptr, nullptr, &dacl, nullptr, descriptor.put());
      error != win32::ERROR_SUCCESS) {
    win32::SetLastError(error);
    return DaclCopy::NotRead;
  }
  const bool sawInherited = dacl && StripInherited(*dacl, options.keepInheritedAces, source);
  const win32::DWORD protection = options.allowInheritance && sawInherited
                                      ? win32::UNPROTECTED_DACL_SECURITY_INFORMATION
                                      : win32::PROTECTED_DACL_SECURITY_INFORMATION;
  const win32::DWORD error = SetDacl(target, win32::DACL_SECURITY_INFORMATION | protection, dacl);
  if (error == win32::ERROR_SUCCESS) return DaclCopy::Written;
  win32::SetLastError(error);
  return DaclCopy::NotWritten;
} catch (const std::exception&) {
  return DaclCopy::NotWritten;
}

// The reasons why it failed are nobody's to see: the callers only ask whether it worked.
int GrantEveryoneAndAdministrators(const std::u16string& path) try {
  win32::SID_IDENTIFIER_AUTHORITY world{{0, 0, 0, 0, 0, 1}};
  win32::UniqueSid everyone;
  if (!win32::AllocateAndInitializeSid(&world, 1, win32::SECURITY_WORLD_RID, 0, 0, 0, 0, 0, 0, 0, everyone.put()))
    return 0;
  const win32::UniqueSid administrators = AdministratorsSid();
  if (!administrators) return 0;

  win32::EXPLICIT_ACCESS_W entries[] = {
      Entry(everyone.get(), win32::TRUSTEE_TYPE::TRUSTEE_IS_WELL_KNOWN_GROUP, win32::GENERIC_READ),
      Entry(administrators.get(), win32::TRUSTEE_TYPE::TRUSTEE_IS_GROUP, win32::GENERIC_ALL)};
  win32::ACL* acl = nullptr;
  if (win32::SetEntriesInAclW(2, entries, nullptr, &acl) != win32::ERROR_SUCCESS) return 0;
  const win32::UniqueLocalMemory ownedAcl{acl};

  const win32::DWORD error = SetDacl(path, win32::DACL_SECURITY_INFORMATION, acl);
  if (error != win32::ERROR_ACCESS_DENIED) return error == win32::ERROR_SUCCESS ? 1 : 0;

  // The owner may always change the DACL.
  std::u16string name = path;
  if (win32::SetNamedSecurityInfoW(name.data(), kFile, win32::OWNER_SECURITY_INFORMATION, administrators.get(), nullptr,
                                   nullptr, nullptr) != win32::ERROR_SUCCESS)
    return 0;
  return SetDacl(path, win32::DACL_SECURITY_INFORMATION, acl) == win32::ERROR_SUCCESS ? 1 : 0;
} catch (const std::exception&) {
  return 0;
}

FileRights::FileRights(win32::DWORD desiredAccess)
    : mapping_{win32::FILE_GENERIC_READ, win32::FILE_GENERIC_WRITE, win32::FILE_GENERIC_EXECUTE,
               win32::FILE_ALL_ACCESS},
      mask_(desiredAccess) {
  win32::MapGenericMask(&mask_, &mapping_);
  // By the privilege to take ownership the command has this right wherever it asks; a run that only looks enables none.
  if (OnlyLooks::Current() && (mask_ & win32::WRITE_OWNER) != 0 && HoldsPrivilege(u"SeTakeOwnershipPrivilege"))
    mask_ &= ~win32::WRITE_OWNER;
}

int HasAccess(win32::HANDLE token, const std::u16string& path, win32::DWORD desiredAccess) try {
  return HasAccess(token, path, FileRights(desiredAccess));
} catch (const std::exception&) {
  return 0;
}

int HasAccess(win32::HANDLE token, const std::u16string& path, const FileRights& rights) try {
  win32::GENERIC_MAPPING mapping = rights.mapping();
  win32::UniqueLocalMemory descriptor;
  const win32::DWORD information =
      win32::OWNER_SECURITY_INFORMATION | win32::GROUP_SECURITY_INFORMATION | win32::DACL_SECURITY_INFORMATION;
  if (win32::GetNamedSecurityInfoW(path.c_str(), kFile, information, nullptr, nullptr, nullptr, nullptr,
                                   descriptor.put()) != win32::ERROR_SUCCESS)
    return 0;
  win32::PRIVILEGE_SET privileges{};
  static_assert(sizeof privileges == 20);
  win32::DWORD privilegesSize = sizeof privileges, granted = 0;
  win32::BOOL status = win32::FALSE;
  return win32::AccessCheck(descriptor.get(), token, rights.mask(), &mapping, &privileges, &privilegesSize, &granted,
                            &status) &&
                 status
             ? 1
             : 0;
} catch (const std::exception&) {
  return 0;
}

int IsFileNotLocked(const std::u16string& path) {
  return IsFileNotLocked(path, win32::GetFileAttributesW(path.c_str()));
}

namespace {

// Without opening it for writing: alone for reading, which is in the way of as many others. But where it could not be
// opened for writing, it counts as not locked.
int IsNotLockedAsFarAsSeen(const std::u16string& path, win32::DWORD attributes) {
  OnlyLooks::Current()->Leave(
      u"Whether a file in the source is a program that is running: Windows tells that only to who opens the file for "
      u"writing.");
  if (IsSharedFor(path, win32::GENERIC_READ, 0, win32::FILE_ATTRIBUTE_NORMAL)) return 1;
  const bool isReadOnly =
      attributes != win32::INVALID_FILE_ATTRIBUTES && (attributes & win32::FILE_ATTRIBUTE_READONLY) != 0;
  return isReadOnly || !HasAccess(ImpersonatedCaller().token(), path, win32::GENERIC_READ | win32::GENERIC_WRITE);
}

}  // namespace

int IsFileNotLocked(const std::u16string& path, win32::DWORD attributes) {
  if (OnlyLooks::Current()) return IsNotLockedAsFarAsSeen(path, attributes);
  return IsSharedFor(path, AloneAccess(attributes), 0, win32::FILE_ATTRIBUTE_NORMAL);
}

// Whoever holds a named stream alone does not keep its file from being opened, but does keep it from going.
int IsDeletable(const std::u16string& path) {
  return IsSharedFor(path, win32::DELETE, win32::FILE_SHARE_READ | win32::FILE_SHARE_WRITE | win32::FILE_SHARE_DELETE,
                     win32::FILE_FLAG_OPEN_REPARSE_POINT | win32::FILE_FLAG_BACKUP_SEMANTICS);
}

int IsFileFree(const std::u16string& path, win32::DWORD attributes) {
  if (!OnlyLooks::Current()) {
    const win32::UniqueFile file{win32::CreateFileW(path.c_str(), AloneAccess(attributes) | win32::DELETE, 0, nullptr,
                                                    win32::OPEN_EXISTING, win32::FILE_ATTRIBUTE_NORMAL, nullptr)};
    if (file) return 1;
    if (IsShareViolation(win32::GetLastError())) return 0;
  }
  return IsFileNotLocked(path, attributes) && IsDeletable(path) ? 1 : 0;
}

int HaveInheritedPermissions(InheritanceCache& cache, const std::u16string& path) try {
  const auto known = cache.find(path);
  return known != cache.end() ? known->second : cache.emplace(path, ExamineInheritance(path)).first->second;
} catch (const std::exception&) {
  return 0;
}

void HeapBlockDeleter::operator()(void* block) const { win32::HeapFree(win32::GetProcessHeap(), 0, block); }

int SaveSecurityInfo(const std::u16string& path, SecurityBlock& block) try {
  win32::DWORD size = 0;
  win32::GetFileSecurityW(path.c_str(), kOwnerAndDacl, nullptr, 0, &size);
  // The descriptor may grow between asking for its size and reading it: one more try at the new size.
  for (int attempt = 0; attempt < 2 && size != 0; ++attempt) {
    SecurityBlock candidate{win32::HeapAlloc(win32::GetProcessHeap(), win32::HEAP_ZERO_MEMORY, size)};
    if (!candidate) return 0;
    if (win32::GetFileSecurityW(path.c_str(), kOwnerAndDacl, candidate.get(), size, &size)) {
      KeepInheritanceMark(candidate.get());
      block = std::move(candidate);
      return 1;
    }
    if (win32::GetLastError() != win32::ERROR_INSUFFICIENT_BUFFER) return 0;
  }
  return 0;
} catch (const std::exception&) {
  return 0;
}

void KeepInheritanceMark(void* descriptor) {
  constexpr std::size_t kControlOffset = 2;  // of a self-relative descriptor (MS-DTYP 2.4.6)
  win32::BYTE* const bytes = static_cast<win32::BYTE*>(descriptor);
  win32::WORD control = 0;
  std::memcpy(&control, bytes + kControlOffset, sizeof control);
  if ((control & win32::SE_DACL_AUTO_INHERITED) != 0) control |= win32::SE_DACL_AUTO_INHERIT_REQ;
  if ((control & win32::SE_SACL_AUTO_INHERITED) != 0) control |= win32::SE_SACL_AUTO_INHERIT_REQ;
  std::memcpy(bytes + kControlOffset, &control, sizeof control);
}

int WriteSecurityInfo(const std::u16string& path, const SecurityBlock& block) {
  return block && win32::SetFileSecurityW(path.c_str(), kOwnerAndDacl, block.get()) ? 1 : 0;
}

int RestoreRemovedSecurityInfo(const SavedSecurityMap& saved, const char16_t* source, const char16_t* target) try {
  int result = 1;
  for (const auto& [path, block] : saved)
    if (source && target ? !RestoreMoved(path, block, source, target)
                         : RestoreSecurity(ExtendedPath(path), block) == Restored::No)
      result = 0;
  return result;
} catch (const std::exception&) {
  return 0;
}
