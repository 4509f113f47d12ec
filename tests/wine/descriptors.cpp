// BackupRead and BackupWrite as far as a move without permissions needs them, which Wine has not: a folder's or a
// file's descriptor. The linker puts them in the place of the native ones.
#include <windows.h>

#include <algorithm>
#include <vector>

namespace {

struct Backup {
  std::vector<BYTE> bytes;
  std::size_t at = 0;
};

constexpr SECURITY_INFORMATION kParts =
    OWNER_SECURITY_INFORMATION | GROUP_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION;

bool Read(HANDLE file, Backup& backup) {
  DWORD size = 0;
  GetKernelObjectSecurity(file, kParts, nullptr, 0, &size);
  constexpr DWORD kHeader = 20;
  backup.bytes.resize(kHeader + size);
  auto& header = *reinterpret_cast<WIN32_STREAM_ID*>(backup.bytes.data());
  header.dwStreamId = BACKUP_SECURITY_DATA;
  header.dwStreamAttributes = STREAM_CONTAINS_SECURITY;
  header.Size.QuadPart = size;
  return GetKernelObjectSecurity(file, kParts, backup.bytes.data() + kHeader, size, &size);
}

}  // namespace

extern "C" BOOL __wrap__ZN5win3210BackupReadEPvPhmPmiiPS0_(HANDLE file, BYTE* buffer, DWORD wanted, DWORD* read,
                                                           BOOL abort, BOOL, void** context) {
  auto*& backup = *reinterpret_cast<Backup**>(context);
  if (abort) {
    delete backup;
    return TRUE;
  }
  if (!backup && !Read(file, *(backup = new Backup))) return FALSE;
  *read = static_cast<DWORD>(std::min<std::size_t>(wanted, backup->bytes.size() - backup->at));
  std::copy_n(backup->bytes.begin() + static_cast<std::ptrdiff_t>(backup->at), *read, buffer);
  backup->at += *read;
  return TRUE;
}

extern "C" BOOL __wrap__ZN5win3211BackupWriteEPvPhmPmiiPS0_(HANDLE, BYTE*, DWORD count, DWORD* written, BOOL, BOOL,
                                                            void**) {
  *written = count;
  return TRUE;
}
