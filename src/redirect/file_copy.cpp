#include "redirect/file_copy.h"

#include "fsops/backup_copy.h"
#include "fsops/security.h"
#include "links/presence.h"
#include "report/lines.h"
#include "report/log.h"
#include "win32/win32.h"

namespace {

constexpr int kFreeNames = 99;  // tried one after the other

// Why the last call failed.
bool NameIsTaken() {
  const win32::DWORD error = win32::GetLastError();
  return error == win32::ERROR_ALREADY_EXISTS || error == win32::ERROR_FILE_EXISTS;
}

// The source is deleted on the strength of the copy, so the copy must outlast a power failure in the next moment.
bool IsOnDisk(const std::u16string& path, std::uint64_t size) {
  const win32::UniqueFile file{win32::CreateFileW(path.c_str(), win32::GENERIC_READ | win32::GENERIC_WRITE,
                                                  win32::FILE_SHARE_READ, nullptr, win32::OPEN_EXISTING, 0, nullptr)};
  const std::optional<FileFacts> facts = FactsOf(file);
  if (!facts || !win32::FlushFileBuffers(file.get())) return false;
  if (facts->size == size) return true;
  win32::SetLastError(win32::ERROR_HANDLE_EOF);
  return false;
}

}  // namespace

bool HeldFile::Hold(const std::u16string& path) {
  file_.reset(win32::CreateFileW(path.c_str(), win32::GENERIC_READ, win32::FILE_SHARE_READ | win32::FILE_SHARE_DELETE,
                                 nullptr, win32::OPEN_EXISTING, 0, nullptr));
  const std::optional<FileFacts> facts = FactsOf(file_);
  if (!facts) {
    const win32::DWORD error = win32::GetLastError();
    file_.reset();
    win32::SetLastError(error);
    return false;
  }
  facts_ = *facts;
  return true;
}

bool CopyContents(const std::u16string& from, const std::u16string& to, const CopyWatch& watch) {
  const std::optional<FileFacts> source = FactsOf(from);
  // What is to be overwritten has been put aside before; what came since is somebody else's.
  if (!source || !CopyFileWatched(from, to, /*failIfExists=*/true, watch)) return false;
  if (win32::SetFileAttributesW(to.c_str(), win32::FILE_ATTRIBUTE_NORMAL) && IsOnDisk(to, source->size)) return true;
  const win32::DWORD error = win32::GetLastError();
  RemoveFile(to);
  win32::SetLastError(error);
  return false;
}

bool CopyTimesAndAttributes(const std::u16string& from, const std::u16string& to) {
  constexpr win32::DWORD kCompared = win32::FILE_ATTRIBUTE_READONLY | win32::FILE_ATTRIBUTE_HIDDEN |
                                     win32::FILE_ATTRIBUTE_SYSTEM | win32::FILE_ATTRIBUTE_ARCHIVE |
                                     win32::FILE_ATTRIBUTE_NOT_CONTENT_INDEXED;
  if (!CopyFileTimesAndAttributes(from, to)) return false;
  const Look wanted = LookAt(from), given = LookAt(to);
  return wanted.IsThere() && given.IsThere() && (wanted.attributes & kCompared) == (given.attributes & kCompared);
}

bool CopyOwnerAndDacl(const std::u16string& from, const std::u16string& to) {
  SecurityBlock block;
  if (!SaveSecurityInfo(from, block)) return false;
  return WriteSecurityInfo(to, block) || CopyReadableDacl(from, to, {.keepInheritedAces = true}) == DaclCopy::Written;
}

bool RemoveFile(const std::u16string& path) {
  const Look look = LookAt(path);
  const bool readOnly = look.Has(win32::FILE_ATTRIBUTE_READONLY);
  if (readOnly) win32::SetFileAttributesW(path.c_str(), look.attributes & ~win32::FILE_ATTRIBUTE_READONLY);
  if (win32::DeleteFileW(path.c_str())) return true;
  const win32::DWORD error = win32::GetLastError();
  if (readOnly) win32::SetFileAttributesW(path.c_str(), look.attributes);
  win32::SetLastError(error);
  return false;
}

void WaitUntilGone(const std::u16string& path) {
  constexpr int kTries = 5;
  for (int attempt = 1; attempt <= kTries; ++attempt) {
    if (win32::GetFileAttributesW(path.c_str()) == win32::INVALID_FILE_ATTRIBUTES &&
        win32::GetLastError() == win32::ERROR_FILE_NOT_FOUND)
      return;
    win32::Sleep(1000);
  }
}

bool CopyBeside::Make(const std::u16string& from, const CopyWatch& watch) {
  for (int number = 1; number <= kFreeNames; ++number) {
    path_ = FormatText(u"%ls.copy%d", place_, number);
    if (CopyContents(from, path_, watch)) {
      file_.reset(win32::CreateFileW(path_.c_str(), win32::GENERIC_WRITE, kShareAll, nullptr, win32::OPEN_EXISTING, 0,
                                     nullptr));
      openError_ = file_ ? win32::DWORD{win32::ERROR_SUCCESS} : win32::GetLastError();
      return true;
    }
    // What an interrupted run has left has the name.
    if (!NameIsTaken()) return false;
  }
  return false;
}

bool CopyBeside::PutInPlace() { return win32::MoveFileW(path_.c_str(), place_.c_str()) != win32::FALSE; }

bool CopyBeside::IsOnDisk() const {
  if (!file_) win32::SetLastError(openError_);
  return file_ && win32::FlushFileBuffers(file_.get()) != win32::FALSE;
}

void CopyBeside::Remove() {
  file_.reset();
  if (!RemoveFile(path_)) LogWithSystemError(line::kFileNotRemoved, path_);
}

bool KeptAside::Keep() {
  const Look look = LookAt(path_);
  if (!look.IsThere()) return look.IsGone();
  // CopyFileExW does not overwrite these either.
  constexpr win32::DWORD kNotReplaced =
      win32::FILE_ATTRIBUTE_DIRECTORY | win32::FILE_ATTRIBUTE_HIDDEN | win32::FILE_ATTRIBUTE_READONLY;
  if (look.Has(kNotReplaced)) {
    win32::SetLastError(win32::ERROR_ACCESS_DENIED);
    return false;
  }
  // A name that is taken holds what an interrupted run has kept.
  for (int number = 1; number <= kFreeNames; ++number) {
    const std::u16string aside = FormatText(u"%ls.kept%d", path_, number);
    if (win32::MoveFileW(path_.c_str(), aside.c_str())) {
      aside_ = aside;
      Log(u"#INFO: The file %ls is kept as %ls until it can be replaced.", path_, aside_);
      return true;
    }
    if (!NameIsTaken()) return false;
  }
  return false;
}

void KeptAside::PutBack() {
  if (aside_.empty()) return;
  if (!win32::MoveFileW(aside_.c_str(), path_.c_str()))
    LogWithSystemError(u"#ERROR: Unable to put the file %ls back. It stays in %ls. ", path_, aside_);
  aside_.clear();
}

void KeptAside::Remove() {
  if (aside_.empty()) return;
  if (!RemoveFile(aside_)) LogWithSystemError(line::kFileNotRemoved, aside_);
  aside_.clear();
}

void KeptAside::Leave() {
  if (!aside_.empty()) Log(u"#INFO: The file that was %ls before stays in %ls.", path_, aside_);
  aside_.clear();
}
