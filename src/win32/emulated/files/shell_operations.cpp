// The shell's copying, moving and deleting of whole trees.

#include <string>
#include <string_view>
#include <vector>

#include "win32/emulated/call.h"
#include "win32/emulated/text.h"
#include "win32/file.h"
#include "win32/handle.h"
#include "win32/shell.h"

namespace {

using win32::DWORD;

constexpr std::size_t kLongestPath = 260;
// The shell's own codes of SHFileOperation, from before Windows' error codes were used for it.
constexpr DWORD DE_SAMEFILE = 0x71;
constexpr DWORD DE_DESTSUBTREE = 0x7D;
constexpr DWORD DE_PATHTOODEEP = 0x79;

struct Item {
  std::u16string path;
  DWORD attributes;
  std::u16string_view name() const { return std::u16string_view(path).substr(path.rfind(u'\\') + 1); }
  bool IsDirectory() const { return (attributes & win32::FILE_ATTRIBUTE_DIRECTORY) != 0; }
  bool IsLink() const { return (attributes & win32::FILE_ATTRIBUTE_REPARSE_POINT) != 0; }
};

DWORD ErrorUnless(win32::BOOL done) { return done ? 0 : emulated::LastError(); }

// The entries that a search finds, without "." and "..".
DWORD Find(const std::u16string& pattern, std::vector<Item>& items) {
  win32::WIN32_FIND_DATAW data;
  const win32::UniqueFind search{win32::FindFirstFileW(pattern.c_str(), &data)};
  if (!search) return emulated::LastError();
  const std::u16string folder = pattern.substr(0, pattern.rfind(u'\\') + 1);
  do {
    const std::u16string_view name = data.cFileName;
    if (name != u"." && name != u"..") items.push_back({folder + std::u16string(name), data.dwFileAttributes});
  } while (win32::FindNextFileW(search.get(), &data));
  return emulated::LastError() == win32::ERROR_NO_MORE_FILES ? 0 : emulated::LastError();
}

DWORD ListFolder(const std::u16string& folder, std::vector<Item>& items) {
  if (folder.size() + 2 >= kLongestPath) return DE_PATHTOODEEP;
  const DWORD error = Find(folder + u"\\*", items);
  return error == win32::ERROR_FILE_NOT_FOUND ? 0 : error;
}

// Whoever deletes without asking deletes what is read-only too. Links go themselves; what they lead to stays.
DWORD Delete(const Item& item) {
  if (item.IsDirectory() && !item.IsLink()) {
    std::vector<Item> inside;
    if (const DWORD error = ListFolder(item.path, inside)) return error;
    for (const Item& child : inside)
      if (const DWORD error = Delete(child)) return error;
  }
  if (item.attributes & win32::FILE_ATTRIBUTE_READONLY)
    win32::SetFileAttributesW(item.path.c_str(), win32::FILE_ATTRIBUTE_NORMAL);
  return ErrorUnless(item.IsDirectory() ? win32::RemoveDirectoryW(item.path.c_str())
                                        : win32::DeleteFileW(item.path.c_str()));
}

// A folder is merged into one of the same name, a file put in the place of one.
DWORD Copy(const Item& item, const std::u16string& target) {
  if (target.size() >= kLongestPath) return DE_PATHTOODEEP;
  const DWORD there = win32::GetFileAttributesW(target.c_str());
  if (!item.IsDirectory()) {
    if (there != win32::INVALID_FILE_ATTRIBUTES && (there & win32::FILE_ATTRIBUTE_READONLY))
      win32::SetFileAttributesW(target.c_str(), win32::FILE_ATTRIBUTE_NORMAL);
    return ErrorUnless(win32::CopyFileExW(item.path.c_str(), target.c_str(), nullptr, nullptr, nullptr, 0));
  }
  if (there == win32::INVALID_FILE_ATTRIBUTES) {
    if (!win32::CreateDirectoryW(target.c_str(), nullptr)) return emulated::LastError();
    win32::SetFileAttributesW(target.c_str(), item.attributes & ~win32::FILE_ATTRIBUTE_REPARSE_POINT);
  }
  std::vector<Item> inside;
  if (const DWORD error = ListFolder(item.path, inside)) return error;
  for (const Item& child : inside)
    if (const DWORD error = Copy(child, target + u"\\" + std::u16string(child.name()))) return error;
  return 0;
}

DWORD Move(const Item& item, const std::u16string& target) {
  if (target.size() >= kLongestPath) return DE_PATHTOODEEP;
  const DWORD error = ErrorUnless(
      win32::MoveFileExW(item.path.c_str(), target.c_str(),
                         item.IsDirectory() ? 0 : win32::MOVEFILE_REPLACE_EXISTING | win32::MOVEFILE_COPY_ALLOWED));
  // Another volume, or a folder of that name to merge with: copied and deleted.
  const bool another = error == win32::ERROR_NOT_SAME_DEVICE || error == win32::ERROR_ALREADY_EXISTS ||
                       error == win32::ERROR_ACCESS_DENIED;
  if (!item.IsDirectory() || item.IsLink() || !another) return error;
  const DWORD copied = Copy(item, target);
  return copied == 0 ? Delete(item) : copied;
}

// The texts of a list that ends with an empty one, without trailing backslashes.
std::vector<std::u16string> Paths(const char16_t* list) {
  std::vector<std::u16string> paths;
  while (list && *list) {
    std::u16string path = list;
    list += path.size() + 1;
    while (path.size() > 3 && path.back() == u'\\') path.pop_back();
    paths.push_back(std::move(path));
  }
  return paths;
}

DWORD Sources(const char16_t* list, std::vector<Item>& items) {
  const std::vector<std::u16string> paths = Paths(list);
  if (paths.empty()) return win32::ERROR_INVALID_PARAMETER;
  for (const std::u16string& path : paths) {
    if (path.size() >= kLongestPath) return DE_PATHTOODEEP;
    if (const DWORD error = Find(path, items)) return error;
  }
  return 0;
}

bool IsBelow(const std::u16string& path, const std::u16string& folder) {
  return path.size() > folder.size() && path[folder.size()] == u'\\' &&
         win32::StrStrIW(path.c_str(), folder.c_str()) == path.c_str();
}

// Into a folder that is there each source goes by its own name; otherwise the one source gets the name that is given.
DWORD Transfer(const std::vector<Item>& items, const std::u16string& to, bool move, bool ask) {
  const DWORD there = win32::GetFileAttributesW(to.c_str());
  const bool into =
      (there != win32::INVALID_FILE_ATTRIBUTES && (there & win32::FILE_ATTRIBUTE_DIRECTORY)) || items.size() > 1;
  const std::u16string folder = into ? to : to.substr(0, to.rfind(u'\\') == std::u16string::npos ? 0 : to.rfind(u'\\'));
  if (folder.size() > 2) {
    const int made = win32::SHCreateDirectoryExW(nullptr, folder.c_str(), nullptr);
    if (made != 0 && made != static_cast<int>(win32::ERROR_ALREADY_EXISTS)) return static_cast<DWORD>(made);
  }
  for (const Item& item : items) {
    const std::u16string target = into ? to + (to.back() == u'\\' ? u"" : u"\\") + std::u16string(item.name()) : to;
    if (emulated::EqualAsciiNoCase(target, item.path)) return DE_SAMEFILE;
    if (ask && win32::PathFileExistsW(target.c_str())) return win32::ERROR_CANCELLED;
    if (item.IsDirectory() && IsBelow(target, item.path)) return DE_DESTSUBTREE;
    if (const DWORD error = move ? Move(item, target) : Copy(item, target)) return error;
  }
  return 0;
}

DWORD Operate(const win32::SHFILEOPSTRUCTW& operation) {
  std::vector<Item> items;
  if (const DWORD error = Sources(operation.pFrom, items)) return error;
  if (operation.wFunc == win32::FO_DELETE) {
    for (const Item& item : items)
      if (const DWORD error = Delete(item)) return error;
    return 0;
  }
  const std::vector<std::u16string> to = Paths(operation.pTo);
  if (to.size() != 1) return win32::ERROR_INVALID_PARAMETER;
  return Transfer(items, to.front(), operation.wFunc == win32::FO_MOVE,
                  !(operation.fFlags & win32::FOF_NOCONFIRMATION));
}

}  // namespace

namespace win32 {

// Nobody sits before the workstation to answer the shell's questions: without FOF_NOCONFIRMATION what it would ask
// about, a deletion or something in the place of the target, ends as cancelled.
int SHFileOperationW(SHFILEOPSTRUCTW* lpFileOp) {
  WIN32_CALL(lpFileOp ? lpFileOp->wFunc : 0, lpFileOp ? lpFileOp->pFrom : nullptr, lpFileOp ? lpFileOp->pTo : nullptr);
  if (call.Refused()) return call.Code<int>(call.error());
  if (!lpFileOp || !lpFileOp->pFrom) return call.Code<int>(ERROR_INVALID_PARAMETER);
  if (lpFileOp->wFunc != FO_COPY && lpFileOp->wFunc != FO_MOVE && lpFileOp->wFunc != FO_DELETE)
    return call.Code<int>(ERROR_INVALID_PARAMETER);
  const bool asks = lpFileOp->wFunc == FO_DELETE && !(lpFileOp->fFlags & FOF_NOCONFIRMATION);
  const DWORD error = asks ? ERROR_CANCELLED : Operate(*lpFileOp);
  lpFileOp->fAnyOperationsAborted = error == ERROR_CANCELLED;
  return call.Code<int>(error);
}

}  // namespace win32
