// FindFirstFileW and what follows it.
#include <algorithm>

#include "win32/emulated/call.h"
#include "win32/emulated/files/file_service.h"
#include "win32/emulated/files/paths.h"
#include "win32/emulated/files/wildcards.h"
#include "win32/file.h"

namespace emulated {

namespace {

using win32::DWORD;

// As many entries are read ahead as a buffer of the directory query would hold, about.
constexpr std::size_t kReadAhead = 32;

win32::WIN32_FIND_DATAW FindData(std::u16string_view name, std::u16string_view shortName, const FileInfo& info) {
  win32::WIN32_FIND_DATAW data{};
  data.dwFileAttributes = info.attributes;
  data.ftCreationTime = ToFileTime(info.creation);
  data.ftLastAccessTime = ToFileTime(info.lastAccess);
  data.ftLastWriteTime = ToFileTime(info.lastWrite);
  data.nFileSizeHigh = static_cast<DWORD>(info.size >> 32);
  data.nFileSizeLow = static_cast<DWORD>(info.size & 0xFFFFFFFF);
  if (info.attributes & win32::FILE_ATTRIBUTE_REPARSE_POINT) data.dwReserved0 = info.reparseTag;
  name.copy(data.cFileName, std::size(data.cFileName) - 1);
  shortName.copy(data.cAlternateFileName, std::size(data.cAlternateFileName) - 1);
  return data;
}

// What Windows shows of a device: its bare name, a file without contents.
win32::WIN32_FIND_DATAW DeviceData(std::u16string_view path) {
  const std::u16string_view name = path.substr(path.find_last_of(u"\\/") + 1);
  FileInfo info;
  info.attributes = win32::FILE_ATTRIBUTE_ARCHIVE;
  return FindData(name.substr(0, name.find_first_of(u".: ")), u"", info);
}

// A running search. The names are those of its beginning; what there is to say of each is read a little ahead.
class FindObject : public OpenedFile {
 public:
  FindObject(std::shared_ptr<FileObject> directory, std::vector<DirectoryEntry> entries)
      : directory_(std::move(directory)), entries_(std::move(entries)) {}
  std::u16string Device() const override { return directory_ ? directory_->Device() : std::u16string(); }
  std::u16string NameOnDevice() const override { return directory_ ? directory_->NameOnDevice() : std::u16string(); }
  void Closed() override { directory_.reset(); }
  // 18 at the end.
  DWORD Next(win32::WIN32_FIND_DATAW& data);

 private:
  std::shared_ptr<FileObject> directory_;
  std::vector<DirectoryEntry> entries_;
  std::size_t next_ = 0;
  std::vector<win32::WIN32_FIND_DATAW> ahead_;
  std::size_t taken_ = 0;
};

DWORD FindObject::Next(win32::WIN32_FIND_DATAW& data) {
  while (taken_ == ahead_.size()) {
    if (next_ == entries_.size()) return win32::ERROR_NO_MORE_FILES;
    ahead_.clear();
    taken_ = 0;
    for (const std::size_t end = std::min(entries_.size(), next_ + kReadAhead); next_ < end; ++next_) {
      const DirectoryEntry& entry = entries_[next_];
      FileInfo info;  // an entry that has gone meanwhile is not reported
      if (directory_->volume->volume->Stat(entry.id, info) == 0)
        ahead_.push_back(FindData(entry.name, entry.shortName, info));
    }
  }
  data = ahead_[taken_++];
  return 0;
}

// A search path: the directory, with its backslash, and the pattern, empty where the path ends with the backslash.
DWORD SplitSearch(std::u16string_view path, std::u16string& directory, std::u16string& pattern) {
  const bool literal = IsLiteral(path);
  std::size_t separator = path.find_last_of(literal ? u"\\" : u"\\/");
  std::u16string_view last = separator == std::u16string_view::npos ? path : path.substr(separator + 1);
  std::u16string full;
  if (!literal && (last == u"." || last == u".." || separator == std::u16string_view::npos)) {
    full = FullPath(path);  // these are names of the directories themselves
    path = full;
    separator = path.rfind(u'\\');
    last = path.substr(separator + 1);
  }
  if (separator == std::u16string_view::npos) return win32::ERROR_PATH_NOT_FOUND;
  if (!literal && last.find_first_of(u"*?") == std::u16string_view::npos)
    while (!last.empty() && (last.back() == u'.' || last.back() == u' ')) last.remove_suffix(1);
  if (last.find_first_of(u"<>\"|:/") != std::u16string_view::npos) return win32::ERROR_INVALID_NAME;
  directory = path.substr(0, separator + 1);
  pattern = last;
  return 0;
}

// The entries that the pattern names, "." and ".." among them unless it is the root.
DWORD MatchingEntries(const FileObject& directory, const NamePattern& pattern, std::vector<DirectoryEntry>& found) {
  Volume& volume = *directory.volume->volume;
  std::vector<DirectoryEntry> all;
  if (const DWORD error = volume.List(directory.file, all)) return error;
  if (directory.file != volume.Root()) {
    FileId parent = directory.file;
    std::vector<std::pair<FileId, std::u16string>> names;
    if (volume.Names(directory.file, names) == 0 && !names.empty()) parent = names.front().first;
    if (pattern.Matches(u".")) found.push_back({u".", u"", directory.file});
    if (pattern.Matches(u"..")) found.push_back({u"..", u"", parent});
  }
  for (DirectoryEntry& entry : all)
    if (pattern.Matches(entry.name) || (!entry.shortName.empty() && pattern.Matches(entry.shortName)))
      found.push_back(std::move(entry));
  return 0;
}

// One name without wildcards is looked up, not listed.
DWORD NamedEntry(const FileObject& directory, std::u16string_view name, std::vector<DirectoryEntry>& found) {
  Volume& volume = *directory.volume->volume;
  DirectoryEntry entry;
  if (const DWORD error = volume.Lookup(directory.file, name, entry.id, &entry.name, &entry.shortName)) return error;
  found.push_back(std::move(entry));
  return 0;
}

DWORD Find(std::u16string_view path, std::shared_ptr<FindObject>& search, win32::WIN32_FIND_DATAW& first) {
  DosDevice device{};
  if (const DWORD error = Machine::Current().files().FindDevice(path, device)) return error;
  if (device != DosDevice::None) {
    search = std::make_shared<FindObject>(nullptr, std::vector<DirectoryEntry>());
    first = DeviceData(path);
    return 0;
  }
  std::u16string directoryPath, pattern;
  if (const DWORD error = SplitSearch(path, directoryPath, pattern)) return error;
  OpenRequest request;
  request.path = directoryPath;
  request.access = win32::FILE_READ_DATA | win32::SYNCHRONIZE;
  request.share = kAnyShare;
  request.flags = win32::FILE_FLAG_BACKUP_SEMANTICS;
  request.wantDirectory = true;
  std::shared_ptr<FileObject> directory;
  DWORD error = Machine::Current().files().Open(request, directory);
  // A file in the directory's place is told from a directory that is not there.
  if (error == win32::ERROR_INVALID_NAME) {
    request.path = std::u16string_view(directoryPath).substr(0, directoryPath.size() - 1);
    if (Machine::Current().files().Open(request, directory) == win32::ERROR_DIRECTORY) error = win32::ERROR_DIRECTORY;
    directory.reset();
  }
  if (error == win32::ERROR_FILE_NOT_FOUND) error = win32::ERROR_PATH_NOT_FOUND;
  if (error != 0) return error;
  if (pattern.empty()) return win32::ERROR_FILE_NOT_FOUND;  // a directory is not found by its own path with a backslash
  directory->accessed = true;
  std::vector<DirectoryEntry> found;
  const NamePattern names(pattern, *directory->volume->volume);
  error = names.HasWildcards() ? MatchingEntries(*directory, names, found) : NamedEntry(*directory, pattern, found);
  if (error != 0) return error;
  search = std::make_shared<FindObject>(std::move(directory), std::move(found));
  error = search->Next(first);
  if (error != 0) search->Closed();
  return error == win32::ERROR_NO_MORE_FILES ? DWORD{win32::ERROR_FILE_NOT_FOUND} : error;
}

}  // namespace

}  // namespace emulated

namespace win32 {

HANDLE FindFirstFileW(const char16_t* lpFileName, WIN32_FIND_DATAW* lpFindFileData) {
  WIN32_CALL(lpFileName);
  if (call.Refused()) return INVALID_HANDLE_VALUE;
  std::shared_ptr<emulated::FindObject> search;
  const DWORD error =
      lpFileName && lpFindFileData ? emulated::Find(lpFileName, search, *lpFindFileData) : ERROR_PATH_NOT_FOUND;
  if (error != 0) {
    emulated::SetLastError(error);
    return call.Return(INVALID_HANDLE_VALUE);
  }
  return call.Return(emulated::NewHandle(std::move(search), FILE_READ_DATA));
}

BOOL FindNextFileW(HANDLE hFindFile, WIN32_FIND_DATAW* lpFindFileData) {
  WIN32_CALL(hFindFile);
  if (call.Refused()) return FALSE;
  const auto search = emulated::ObjectOf<emulated::FindObject>(hFindFile);
  if (!search) return call.Done(ERROR_INVALID_HANDLE);
  if (!lpFindFileData) return call.Done(ERROR_INVALID_PARAMETER);
  return call.Done(search->Next(*lpFindFileData));
}

BOOL FindClose(HANDLE hFindFile) {
  WIN32_CALL(hFindFile);
  if (call.Refused()) return FALSE;
  emulated::Machine& machine = emulated::Machine::Current();
  if (!emulated::ObjectOf<emulated::FindObject>(hFindFile)) return call.Done(ERROR_INVALID_HANDLE);
  return call.Done(machine.objects.Close(hFindFile, machine.process.id) ? 0 : ERROR_INVALID_HANDLE);
}

}  // namespace win32
