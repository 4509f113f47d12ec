// BackupRead and BackupWrite as far as a move without permissions needs them and Wine has them not: descriptors, read
// one after the other. The linker puts these in the place of the native ones.
#include <windows.h>

#include <algorithm>
#include <vector>

extern "C" BOOL __wrap__ZN5win3210BackupReadEPvPhmPmiiPS0_(HANDLE file, BYTE* buffer, DWORD wanted, DWORD* read,
                                                           BOOL abort, BOOL, void** context) {
  static std::vector<BYTE> bytes;
  static std::size_t at = 0;
  if (abort) return TRUE;
  if (!*context) {
    constexpr DWORD kHeader = 20, kParts = 7;  // owner, group, access list
    DWORD size = 0;
    GetKernelObjectSecurity(file, kParts, nullptr, 0, &size);
    bytes.assign(kHeader + size, 0);
    bytes[0] = BACKUP_SECURITY_DATA;
    *reinterpret_cast<DWORD*>(&bytes[8]) = size;
    if (!GetKernelObjectSecurity(file, kParts, &bytes[kHeader], size, &size)) return FALSE;
    at = 0;
    *context = &bytes;
  }
  *read = static_cast<DWORD>(std::min<std::size_t>(wanted, bytes.size() - at));
  std::copy_n(&bytes[0] + at, *read, buffer);
  at += *read;
  return TRUE;
}

extern "C" BOOL __wrap__ZN5win3211BackupWriteEPvPhmPmiiPS0_(HANDLE, BYTE*, DWORD count, DWORD* written, BOOL, BOOL,
                                                            void**) {
  *written = count;
  return TRUE;
}
