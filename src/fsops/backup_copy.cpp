#include "fsops/backup_copy.h"

#include <algorithm>
#include <exception>
#include <memory>

#include "fsops/backup_stream.h"
#include "fsops/folder_itself.h"
#include "links/junction.h"
#include "links/presence.h"
#include "links/reparse_data.h"
#include "report/debugger.h"
#include "report/log.h"
#include "text/format.h"
#include "text/path_text.h"
#include "win32/win32.h"

namespace {

constexpr win32::DWORD kBufferSize = 0x100000;
constexpr win32::DWORD kShareReadWrite = win32::FILE_SHARE_READ | win32::FILE_SHARE_WRITE;
constexpr win32::DWORD kReadAll = win32::GENERIC_READ | win32::ACCESS_SYSTEM_SECURITY;
constexpr win32::DWORD kWriteAll =
    win32::GENERIC_ALL | win32::ACCESS_SYSTEM_SECURITY | win32::WRITE_DAC | win32::WRITE_OWNER;

std::unique_ptr<win32::BYTE[]> CopyBuffer() { return std::make_unique_for_overwrite<win32::BYTE[]>(kBufferSize); }

win32::DWORD OpenFlags(bool isReparsePoint) {
  return isReparsePoint ? kOpenLinkFlags : win32::FILE_FLAG_BACKUP_SEMANTICS;
}

struct ItemKind {
  bool isDirectory;
  bool isReparsePoint;
  bool isEncrypted;
};

// Nothing when Windows does not tell: an item that may be encrypted is not copied as if it were not.
std::optional<ItemKind> KindOf(const std::u16string& source, const BackupCopyOptions& options) {
  std::optional<bool> isEncrypted = options.isEncrypted;
  if (const Look look = isEncrypted ? Look() : LookAt(source); look.IsThere()) isEncrypted = look.IsEncrypted();
  if (!isEncrypted) return std::nullopt;
  const bool isReparsePoint = options.isReparsePoint ? *options.isReparsePoint : IsReparsePoint(source);
  return ItemKind{options.isDirectory, isReparsePoint, *isEncrypted};
}

// AttributesAlone: there is nothing else to copy, and no more to be done.
enum class Copied { Failed, All, AttributesAlone };
Copied AllCopied(bool copied) { return copied ? Copied::All : Copied::Failed; }

// To the debugger only.
void Trace(FormatFor<std::u16string> format, const std::u16string& path) {
  constexpr std::size_t kTraceBuffer = 512;
  TellDebugger(CutToBuffer(FormatText<std::u16string>(format, path), kTraceBuffer).c_str());
}

// Makes the directory, or takes the one that is there. A path too long for the plain form is written with "\\?\" from
// then on.
bool MakeDirectory(std::u16string& path, win32::SECURITY_ATTRIBUTES* attributes) {
  if (win32::CreateDirectoryW(path.c_str(), attributes) || win32::GetLastError() == win32::ERROR_ALREADY_EXISTS)
    return true;
  if (HasExtendedPrefix(path)) return false;
  path = WithExtendedPrefix(path);
  return win32::CreateDirectoryW(path.c_str(), attributes) || win32::GetLastError() == win32::ERROR_ALREADY_EXISTS;
}

// Open to everyone for the moment; its real security comes with the streams.
bool MakeOpenDirectory(std::u16string& path) {
  win32::SECURITY_DESCRIPTOR descriptor{};
  win32::SECURITY_ATTRIBUTES attributes{sizeof attributes, &descriptor, win32::FALSE};
  const bool described = win32::InitializeSecurityDescriptor(&descriptor, win32::SECURITY_DESCRIPTOR_REVISION) &&
                         win32::SetSecurityDescriptorDacl(&descriptor, win32::TRUE, nullptr, win32::FALSE);
  return MakeDirectory(path, described ? &attributes : nullptr);
}

AccessTimeKeepingFile OpenSource(const std::u16string& path, win32::DWORD access, bool isReparsePoint) {
  return AccessTimeKeepingFile{win32::CreateFileW(path.c_str(), access, win32::FILE_SHARE_READ, nullptr,
                                                  win32::OPEN_EXISTING, OpenFlags(isReparsePoint), nullptr)};
}

// Opens the item to copy to. A file that was there is emptied: what it held beyond the end of the new contents (all of
// it, when those are empty and so have no data stream) would otherwise stay.
AccessTimeKeepingFile OpenTarget(const std::u16string& path, win32::DWORD access, ItemKind kind,
                                 const BackupCopyOptions& options) {
  AccessTimeKeepingFile file{win32::CreateFileW(path.c_str(), access, kShareReadWrite, nullptr, win32::OPEN_ALWAYS,
                                                OpenFlags(kind.isReparsePoint), nullptr)};
  const bool existed = file && win32::GetLastError() == win32::ERROR_ALREADY_EXISTS;
  if (!existed || kind.isDirectory) return file;
  if (options.targetIsNew) {
    if (options.told) options.told->targetIsTaken = true;
    file.reset();
    win32::SetLastError(win32::ERROR_FILE_EXISTS);
  } else if (!kind.isReparsePoint && !win32::SetEndOfFile(file.get())) {
    file.reset();
  }
  return file;
}

constexpr char16_t kReadFailed[] = u"#ERROR: BackupCopy: BackupRead() failed for path = %ls";

// Copies in chunks until the first short read. Then nothing may be left: if BackupRead stopped at the end of a stream
// instead of at the end of all, the copy is not complete and has failed.
bool CopyChunks(const AccessTimeKeepingFile& source, const AccessTimeKeepingFile& target, win32::DWORD chunk,
                const std::u16string& sourcePath, const std::u16string& targetPath, const BackupCopyOptions& options) {
  FirstDescriptor descriptor;
  const std::unique_ptr<win32::BYTE[]> buffer = CopyBuffer();
  BackupWriter writer(target);
  BackupReader reader(source);  // its end comes first
  win32::DWORD read = chunk;
  while (read == chunk) {
    if (!reader.Read(buffer.get(), chunk, read)) {
      Trace(kReadFailed, sourcePath);
      return false;
    }
    descriptor.Take(buffer.get(), read);
    if (!writer.Write(buffer.get(), read)) {
      Trace(u"#ERROR: BackupCopy: BackupWrite() failed for path = %ls", targetPath);
      return false;
    }
    if (read == chunk && !options.watch.GoesOn(read)) return false;
  }
  if (options.told) options.told->descriptor = descriptor.Get();
  win32::DWORD left = 0;
  if (read == 0) return true;
  const bool told = reader.Read(buffer.get(), chunk, left);
  if (told && left == 0) return true;
  if (told) IsInvalidStream();
  Trace(kReadFailed, sourcePath);
  return false;
}

// Gives the target the times and attributes that were found of the source, closes both, and tells them. The times are
// the last thing that the target's handle does: what was set stays when it is closed, without being told so.
bool CarryTimesAndAttributes(const win32::BY_HANDLE_FILE_INFORMATION& found, AccessTimeKeepingFile& source,
                             AccessTimeKeepingFile& target, const std::u16string& targetPath, CopiedSource* told) {
  if (!win32::SetFileTime(target.get(), &found.ftCreationTime, &found.ftLastAccessTime, &found.ftLastWriteTime))
    return false;
  win32::CloseHandle(target.release());
  source.reset();
  win32::SetFileAttributesW(targetPath.c_str(), found.dwFileAttributes);
  if (told) told->information = found;
  return true;
}

// A junction that leads nowhere can refuse to be opened: then the target gets its attributes and is done.
Copied CopyUnopened(const std::u16string& source, const std::u16string& target, CopiedSource* told) {
  const bool gone = MeansGone(win32::GetLastError());
  if (told) told->isGone = gone;
  if (gone && IsJunction(source.c_str())) {
    if (const Look look = LookAt(source); look.IsThere()) win32::SetFileAttributesW(target.c_str(), look.attributes);
    return Copied::AttributesAlone;
  }
  Trace(u"#ERROR: BackupCopy: CreateFile() failed for path = %ls", source);
  return Copied::Failed;
}

// What was opened is of the kind that the caller has seen there. (A link that has come into a file's place is followed:
// the path tells that, when the file is to be deleted.) With the last error.
bool IsOfKind(const win32::BY_HANDLE_FILE_INFORMATION& found, ItemKind kind) {
  const Look look{Presence::There, found.dwFileAttributes};
  if (look.IsDirectory() == kind.isDirectory && (kind.isDirectory || !look.IsEncrypted())) return true;
  win32::SetLastError(win32::ERROR_FILE_INVALID);
  return false;
}

Copied CopyContents(const std::u16string& sourcePath, const std::u16string& targetPath, ItemKind kind,
                    const BackupCopyOptions& options) {
  AccessTimeKeepingFile source = OpenSource(sourcePath, kReadAll, kind.isReparsePoint);
  if (!source) return CopyUnopened(sourcePath, targetPath, options.told);
  // Asked before anything is read, which is an access, too, and before a file that stands at the target is emptied.
  win32::BY_HANDLE_FILE_INFORMATION found{};
  if (!win32::GetFileInformationByHandle(source.get(), &found) || !IsOfKind(found, kind)) return Copied::Failed;
  AccessTimeKeepingFile target = OpenTarget(targetPath, kWriteAll, kind, options);
  if (!target) {
    Trace(u"#ERROR: BackupCopy: CreateFile() failed for path = %ls", targetPath);
    return Copied::Failed;
  }
  // For the many files of a tree it is not asked once more.
  const bool isKnown = options.told && !kind.isDirectory;
  const win32::DWORD size = isKnown ? found.nFileSizeLow : win32::GetFileSize(source.get(), nullptr);
  return AllCopied(
      size != win32::INVALID_FILE_SIZE &&
      CopyChunks(source, target, std::clamp(size, kStreamHeaderSize, kBufferSize), sourcePath, targetPath, options) &&
      CarryTimesAndAttributes(found, source, target, targetPath, options.told));
}

// The shell sets no last error, nor are its codes errors of the system.
bool CopyEncryptedFile(const std::u16string& source, const std::u16string& target) {
  if (source.size() >= win32::MAX_PATH || target.size() >= win32::MAX_PATH) {  // it takes no longer paths
    win32::SetLastError(win32::ERROR_FILENAME_EXCED_RANGE);
    return false;
  }
  const std::u16string from = source + std::u16string(2, u'\0');
  const std::u16string to = target + std::u16string(2, u'\0');
  win32::SHFILEOPSTRUCTW operation{};
  operation.wFunc = win32::FO_COPY;
  operation.pFrom = from.c_str();
  operation.pTo = to.c_str();
  operation.fFlags = win32::FOF_SILENT | win32::FOF_NOCONFIRMATION;
  if (win32::SHFileOperationW(&operation) != 0 || operation.fAnyOperationsAborted) {
    win32::SetLastError(win32::ERROR_WRITE_FAULT);
    return false;
  }
  return CopyFileTimesAndAttributes(source, target) && CopyParentDirectoryTimes(source, target);
}

bool CopyEncryptedDirectory(const std::u16string& source, const std::u16string& target) {
  if (win32::CreateDirectoryExW(source.c_str(), target.c_str(), nullptr)) return true;
  if (win32::GetLastError() != win32::ERROR_ALREADY_EXISTS) return false;
  win32::EncryptFileW(target.c_str());
  return true;
}

// One item on its way from BackupRead to BackupWrite, every stream's header looked at.
class StreamCopy {
 public:
  StreamCopy(const AccessTimeKeepingFile& source, const AccessTimeKeepingFile& target, bool withReparseData = true)
      : writer_(target), reader_(source), withReparseData_(withReparseData) {}

  bool Run() {
    for (;;) {
      win32::DWORD read = 0;
      // A read that fails is a failure even if it brought no byte: it does not say that this is the end.
      if (!reader_.Read(buffer_.get(), kStreamHeaderSize, read)) return false;
      if (read == 0) return writer_.Write(buffer_.get(), 0);
      if (read != kStreamHeaderSize) return IsInvalidStream();
      const win32::WIN32_STREAM_ID header = StreamHeaderAt(buffer_.get());
      if (header.dwStreamId == win32::BACKUP_REPARSE_DATA && !withReparseData_) {
        if (!ReadPiece(SizeOf(header))) return false;
      } else if (!writer_.Write(buffer_.get(), read) || !CopyBody(header)) {
        return false;
      }
    }
  }

 private:
  bool CopyBody(const win32::WIN32_STREAM_ID& header) {
    if ((header.dwStreamAttributes & win32::STREAM_MODIFIED_WHEN_READ) != 0) return IsInvalidStream();
    const std::uint64_t size = SizeOf(header);
    if (size > static_cast<std::uint64_t>(INT64_MAX)) return IsInvalidStream();
    switch (header.dwStreamId) {
      case win32::BACKUP_INVALID:
      case win32::BACKUP_LINK:
        return IsInvalidStream();
      case win32::BACKUP_SECURITY_DATA:
      case win32::BACKUP_OBJECT_ID:
      case win32::BACKUP_REPARSE_DATA:
        return CopyWhole(size);
      case win32::BACKUP_SPARSE_BLOCK:
        return CopyPieces(size);  // whole when it fits the buffer
      case win32::BACKUP_ALTERNATE_DATA:
        return CopyWhole(header.dwStreamNameSize) && CopyPieces(size);
      default:
        return CopyPieces(header.dwStreamNameSize + size);
    }
  }

  bool ReadPiece(std::uint64_t size) {
    win32::DWORD read = 0;
    if (size > kBufferSize) return IsInvalidStream();
    return reader_.Read(buffer_.get(), static_cast<win32::DWORD>(size), read) && (read == size || IsInvalidStream());
  }
  // What is one unit to Windows and always small; more than the buffer holds is no such thing.
  bool CopyWhole(std::uint64_t size) { return size <= kBufferSize ? CopyPieces(size) : IsInvalidStream(); }
  bool CopyPieces(std::uint64_t size) {
    while (size > 0) {
      const auto piece = static_cast<win32::DWORD>(std::min<std::uint64_t>(size, kBufferSize));
      if (!ReadPiece(piece) || !writer_.Write(buffer_.get(), piece)) return false;
      size -= piece;
    }
    return true;
  }

  std::unique_ptr<win32::BYTE[]> buffer_ = CopyBuffer();
  BackupWriter writer_;
  BackupReader reader_;  // its end comes first
  const bool withReparseData_;
};

// These two make a directory first, whose path may then begin with "\\?\".
Copied CopyByStreams(const std::u16string& sourcePath, std::u16string& targetPath, ItemKind kind,
                     const BackupCopyOptions& options) {
  if (kind.isDirectory && !MakeDirectory(targetPath, nullptr)) return Copied::Failed;
  if (kind.isReparsePoint) Log(u"BackupCopyEx : %s is reparse point", sourcePath);
  AccessTimeKeepingFile source = OpenSource(sourcePath, win32::GENERIC_READ, kind.isReparsePoint);
  if (!source) return Copied::Failed;
  win32::BY_HANDLE_FILE_INFORMATION found{};
  if (!win32::GetFileInformationByHandle(source.get(), &found)) return Copied::Failed;
  AccessTimeKeepingFile target = OpenTarget(targetPath, win32::GENERIC_ALL, kind, options);
  const bool copied = target && StreamCopy(source, target).Run();  // it has ended before the two are closed
  return AllCopied(copied && CarryTimesAndAttributes(found, source, target, targetPath, options.told));
}

Copied CopyByChunks(const std::u16string& source, std::u16string& target, ItemKind kind,
                    const BackupCopyOptions& options) {
  if (kind.isReparsePoint && !kind.isDirectory) return CopyByStreams(source, target, kind, options);
  if (!kind.isDirectory || MakeOpenDirectory(target)) return CopyContents(source, target, kind, options);
  return AllCopied(LogFailure(u"ERROR: Failed To create directory = %ls.", target));
}

using CopyWay = Copied (*)(const std::u16string&, std::u16string&, ItemKind, const BackupCopyOptions&);

int CopyItem(CopyWay copy, const std::u16string& source, const std::u16string& target,
             const BackupCopyOptions& options) try {
  const std::optional<ItemKind> kind = KindOf(source, options);
  if (!kind) return 0;
  if (kind->isEncrypted) {
    if (!(kind->isDirectory ? CopyEncryptedDirectory(source, target) : CopyEncryptedFile(source, target))) return 0;
  } else {
    std::u16string reached = target;
    const Copied copied = copy(source, reached, *kind, options);
    if (copied == Copied::AttributesAlone) return 1;
    if (copied == Copied::Failed) return 0;
  }
  return options.leaveParentTimes ? 1 : CopyParentDirectoryTimes(source, target);
} catch (const std::exception&) {
  // Nothing says how far the copy came, and an incomplete copy must not count as done.
  return 0;
}

}  // namespace

int BackupCopy(const std::u16string& source, const std::u16string& target, const BackupCopyOptions& options) {
  return CopyItem(CopyByChunks, source, target, options);
}

int BackupCopyEx(const std::u16string& source, const std::u16string& target, const BackupCopyOptions& options) {
  return CopyItem(CopyByStreams, source, target, options);
}

int BackupCopyFolderItself(const std::u16string& source, const std::u16string& target) try {
  {
    const AccessTimeKeepingFile from = OpenSource(source, kReadAll, true);
    if (!from) return 0;
    const AccessTimeKeepingFile to{win32::CreateFileW(target.c_str(), kWriteAll, kShareReadWrite, nullptr,
                                                      win32::OPEN_EXISTING, kOpenLinkFlags, nullptr)};
    if (!to || !StreamCopy(from, to, /*withReparseData=*/false).Run()) return 0;
  }
  const Look look = LookAt(source);
  if (!look.IsThere() || (look.IsEncrypted() && !win32::EncryptFileW(target.c_str()))) return 0;
  // The streams brought the descriptor without the mark of an inherited DACL.
  const FolderDescriptor descriptor = ReadDescriptor(source);
  return !descriptor.empty() && WriteDescriptor(target, descriptor) &&
                 CopyFileTimesAndAttributes(source, target, {.isReparsePoint = true})
             ? 1
             : 0;
} catch (const std::exception&) {
  return 0;
}

int CopyFileTimesAndAttributes(const std::u16string& source, const std::u16string& target,
                               const TimesCopyOptions& options) {
  const bool isReparsePoint = options.isReparsePoint ? *options.isReparsePoint : IsReparsePoint(source);
  const Look look = LookAt(source);
  if (!look.IsThere()) return 0;
  win32::FILETIME creation{}, lastAccess{}, lastWrite{};
  {
    const win32::UniqueFile file{win32::CreateFileW(source.c_str(), win32::GENERIC_READ, win32::FILE_SHARE_READ,
                                                    nullptr, win32::OPEN_EXISTING, OpenFlags(isReparsePoint), nullptr)};
    if (!file || !win32::GetFileTime(file.get(), &creation, &lastAccess, &lastWrite)) return 0;
  }

  win32::SetFileAttributesW(target.c_str(), win32::FILE_ATTRIBUTE_NORMAL);  // a read-only item can then be opened
  {
    const win32::UniqueFile file{win32::CreateFileW(target.c_str(), win32::FILE_WRITE_ATTRIBUTES,
                                                    win32::FILE_SHARE_WRITE, nullptr, win32::OPEN_EXISTING,
                                                    OpenFlags(isReparsePoint), nullptr)};
    if (!file || !win32::SetFileTime(file.get(), &creation, &lastAccess, &lastWrite)) return 0;
  }
  win32::SetFileAttributesW(target.c_str(), look.attributes);
  return 1;
}

int CopyParentDirectoryTimes(const std::u16string& source, const std::u16string& target) try {
  const auto isInDriveRoot = [](const std::u16string& path) {
    return WithoutExtendedPrefix(path).rfind(u'\\') == 2;  // "C:\x"
  };
  const std::size_t sourceCut = source.rfind(u'\\');
  const std::size_t targetCut = target.rfind(u'\\');
  if (sourceCut == std::u16string::npos || targetCut == std::u16string::npos) return 0;
  if (isInDriveRoot(source) || isInDriveRoot(target)) return 1;
  return CopyFileTimesAndAttributes(source.substr(0, sourceCut), target.substr(0, targetCut));
} catch (const std::exception&) {
  return 0;
}
