// DeviceIoControl: reparse points set, read and deleted; sparse files.
#include <algorithm>

#include "win32/emulated/call.h"
#include "win32/emulated/files/file_service.h"
#include "win32/emulated/files/reparse.h"
#include "win32/file.h"

namespace emulated {

namespace {

using win32::DWORD;

constexpr std::size_t kGuidDataBuffer = 28;  // sizeof(REPARSE_GUID_DATA_BUFFER)
constexpr DWORD kMayWrite = win32::FILE_WRITE_DATA | win32::FILE_WRITE_ATTRIBUTES;

std::uint32_t TagOf(ByteView data) { return LoadLittleEndian<std::uint32_t>(data, 0); }

// Two reparse points belong to the same owner: equal tags, and equal GUIDs where the tag is nobody's alone.
DWORD CompareOwners(ByteView present, ByteView given) {
  if (present.size() < kReparseHeader || TagOf(present) != TagOf(given)) return win32::ERROR_REPARSE_TAG_MISMATCH;
  if (IsMicrosoftTag(TagOf(given))) return 0;
  if (present.size() < kReparseGuidHeader || given.size() < kReparseGuidHeader)
    return win32::ERROR_REPARSE_ATTRIBUTE_CONFLICT;
  const bool same = std::equal(present.begin() + kReparseHeader, present.begin() + kReparseGuidHeader,
                               given.begin() + kReparseHeader);
  return same ? 0 : DWORD{win32::ERROR_REPARSE_ATTRIBUTE_CONFLICT};
}

void Changed(FileObject& file) {
  Machine& machine = Machine::Current();
  file.volume->volume->SetTimes(file.file, {.change = machine.Now()});
  machine.files().ForgetPaths();
}

// A directory must be empty, a file with a symbolic link's tag without data, a mount point on a directory.
DWORD MayCarry(const FileObject& file, DWORD tag) {
  Volume& volume = *file.volume->volume;
  if (!file.isDirectory) {
    if (tag == win32::IO_REPARSE_TAG_MOUNT_POINT) return win32::ERROR_DIRECTORY;
    FileInfo info;
    if (const DWORD error = volume.Stat(file.file, info)) return error;
    return tag == win32::IO_REPARSE_TAG_SYMLINK && info.size != 0 ? DWORD{win32::ERROR_INVALID_REPARSE_DATA} : 0;
  }
  if (tag & kDirectoryTagBit) return 0;
  std::vector<DirectoryEntry> entries;
  if (const DWORD error = volume.List(file.file, entries)) return error;
  return entries.empty() ? 0 : DWORD{win32::ERROR_DIR_NOT_EMPTY};
}

DWORD SetReparsePoint(FileObject& file, ByteView data) {
  if (!(file.granted & kMayWrite)) return win32::ERROR_ACCESS_DENIED;
  if (const DWORD error = CheckReparseData(data)) return error;
  const DWORD tag = TagOf(data);
  if (tag == win32::IO_REPARSE_TAG_SYMLINK &&
      !Machine::Current().EffectiveToken().HasPrivilege(u"SeCreateSymbolicLinkPrivilege"))
    return win32::ERROR_PRIVILEGE_NOT_HELD;
  Volume& volume = *file.volume->volume;
  Bytes present;
  const DWORD none = volume.GetReparse(file.file, present);
  if (none == 0) {
    if (const DWORD error = CompareOwners(present, data)) return error;
  } else if (none != win32::ERROR_NOT_A_REPARSE_POINT) {
    return none;
  } else if (const DWORD error = MayCarry(file, tag)) {
    return error;
  }
  if (const DWORD error = volume.SetReparse(file.file, data)) return error;
  Changed(file);
  return 0;
}

DWORD GetReparsePoint(const FileObject& file, std::span<std::uint8_t> to, DWORD& returned, bool& answered) {
  Bytes data;
  if (const DWORD error = file.volume->volume->GetReparse(file.file, data)) return error;
  if (to.empty()) return win32::ERROR_INVALID_USER_BUFFER;
  if (to.size() < kGuidDataBuffer) return win32::ERROR_INSUFFICIENT_BUFFER;
  const std::size_t count = std::min(to.size(), data.size());
  std::copy_n(data.begin(), count, to.begin());
  returned = static_cast<DWORD>(count);
  answered = true;
  return count < data.size() ? DWORD{win32::ERROR_MORE_DATA} : 0;
}

// The input is a header without data: of 8 bytes for a tag of Microsoft's, of 24 for any.
DWORD DeleteReparsePoint(FileObject& file, ByteView header) {
  if (!(file.granted & kMayWrite)) return win32::ERROR_ACCESS_DENIED;
  if (header.empty()) return win32::ERROR_INVALID_USER_BUFFER;
  if (header.size() != kReparseHeader && header.size() != kReparseGuidHeader) return win32::ERROR_INVALID_REPARSE_DATA;
  if (LoadLittleEndian<std::uint16_t>(header, 4) != 0) return win32::ERROR_INVALID_REPARSE_DATA;
  const DWORD tag = TagOf(header);
  if (tag <= 1) return win32::ERROR_REPARSE_TAG_INVALID;
  if (!IsMicrosoftTag(tag) && header.size() != kReparseGuidHeader) return win32::ERROR_INVALID_REPARSE_DATA;
  Volume& volume = *file.volume->volume;
  Bytes present;
  if (const DWORD error = volume.GetReparse(file.file, present)) return error;
  if (const DWORD error = CompareOwners(present, header)) return error;
  if (const DWORD error = volume.RemoveReparse(file.file)) return error;
  Changed(file);
  return 0;
}

// FILE_SET_SPARSE_BUFFER, one byte, may say that the file is to be sparse no longer.
DWORD SetSparse(FileObject& file, ByteView input) {
  if (file.isDirectory) return win32::ERROR_INVALID_PARAMETER;
  if (!(file.granted & kMayWrite)) return win32::ERROR_ACCESS_DENIED;
  if (!input.empty() && input[0] == 0) return win32::ERROR_NOT_SUPPORTED;
  return file.volume->volume->SetSparse(file.file, file.stream);
}

}  // namespace

}  // namespace emulated

namespace win32 {

BOOL DeviceIoControl(HANDLE hDevice, DWORD dwIoControlCode, void* lpInBuffer, DWORD nInBufferSize, void* lpOutBuffer,
                     DWORD nOutBufferSize, DWORD* lpBytesReturned, OVERLAPPED* lpOverlapped) {
  WIN32_CALL(hDevice, dwIoControlCode, nInBufferSize, nOutBufferSize);
  if (call.Refused()) return FALSE;
  const auto file = emulated::FileOf(hDevice);
  if (!file) return call.Done(ERROR_INVALID_HANDLE);
  if (lpOverlapped) return call.Done(ERROR_INVALID_PARAMETER);
  const emulated::ByteView input{static_cast<const std::uint8_t*>(lpInBuffer), lpInBuffer ? nInBufferSize : 0};
  const std::span<std::uint8_t> output{static_cast<std::uint8_t*>(lpOutBuffer), lpOutBuffer ? nOutBufferSize : 0};
  DWORD error = ERROR_INVALID_FUNCTION, returned = 0;
  bool answered = false;
  switch (dwIoControlCode) {
    case FSCTL_SET_REPARSE_POINT:
      error = emulated::SetReparsePoint(*file, input);
      break;
    case FSCTL_GET_REPARSE_POINT:
      error = emulated::GetReparsePoint(*file, output, returned, answered);
      break;
    case FSCTL_DELETE_REPARSE_POINT:
      error = emulated::DeleteReparsePoint(*file, input);
      break;
    case FSCTL_SET_SPARSE:
      error = emulated::SetSparse(*file, input);
      break;
    default:
      break;
  }
  if (lpBytesReturned && (answered || error == 0)) *lpBytesReturned = returned;
  return call.Done(error);
}

}  // namespace win32
