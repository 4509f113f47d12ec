#include "regredirect/registry_data.h"

#include <exception>
#include <string_view>
#include <utility>
#include <vector>

#include "links/presence.h"
#include "links/real_path.h"
#include "links/reparse_data.h"
#include "probes/rimehold_status.h"
#include "records/records.h"
#include "report/log.h"
#include "text/path_text.h"
#include "win32/win32.h"

namespace {

std::u16string ProductFolder(const std::u16string& location) { return JoinPath(location, u"Quillbay"); }
std::u16string DataFolder(const std::u16string& location) { return JoinPath(ProductFolder(location), u"RegistryData"); }

bool IsKept(std::u16string_view name) {
  for (const std::u16string_view log : {u"Quillbay.log", u"OutOfDiskSpace.txt", u"QuillbayService.log"})
    if (EqualPaths(name, log)) return true;
  return false;
}

// The names are collected before anything is deleted.
std::vector<std::u16string> DataFiles(const std::u16string& folder) {
  std::vector<std::u16string> names;
  win32::WIN32_FIND_DATAW found{};
  const win32::UniqueFind find{win32::FindFirstFileW(ExtendedPath(JoinPath(folder, u"*")).c_str(), &found)};
  if (!find) return names;
  do {
    constexpr win32::DWORD kNoFile = win32::FILE_ATTRIBUTE_DIRECTORY | win32::FILE_ATTRIBUTE_REPARSE_POINT;
    if (!(found.dwFileAttributes & kNoFile) && !IsKept(found.cFileName)) names.emplace_back(found.cFileName);
  } while (win32::FindNextFileW(find.get(), &found));
  return names;
}

// A file or folder that is no link, opened itself, and where it really lies.
struct PlainItem {
  win32::UniqueFile handle;
  std::u16string place;
};
enum class Kind { File, Folder };

// Nothing is opened where something else stands, or Windows does not tell.
PlainItem OpenPlain(const std::u16string& path, Kind kind, win32::DWORD access, win32::DWORD share) {
  PlainItem item{win32::UniqueFile{win32::CreateFileW(ExtendedPath(path).c_str(), access, share, nullptr,
                                                      win32::OPEN_EXISTING, kOpenLinkFlags, nullptr)},
                 {}};
  win32::BY_HANDLE_FILE_INFORMATION facts{};
  constexpr win32::DWORD kMask = win32::FILE_ATTRIBUTE_DIRECTORY | win32::FILE_ATTRIBUTE_REPARSE_POINT;
  const win32::DWORD wanted = kind == Kind::Folder ? win32::FILE_ATTRIBUTE_DIRECTORY : 0;
  if (item.handle && win32::GetFileInformationByHandle(item.handle.get(), &facts) &&
      (facts.dwFileAttributes & kMask) == wanted)
    item.place = PathOf(item.handle);
  if (item.place.empty()) item.handle.reset();
  return item;
}

// Deletes the file or empty folder at `path` if that is what lies at `place`, as it does unless a folder of the path
// has become a link. Sharing does not prevent that: a handle with FILE_WRITE_ATTRIBUTES alone makes a link of an
// emptied folder. So what goes is what was looked at, by its handle.
void DeleteAt(const std::u16string& path, Kind kind, const std::u16string& place) {
  const PlainItem item = OpenPlain(path, kind, win32::DELETE | win32::FILE_READ_ATTRIBUTES, kShareAll);
  if (!item.handle || !EqualPaths(item.place, place)) return;
  win32::FILE_DISPOSITION_INFO disposition{.DeleteIt = win32::TRUE};
  win32::SetFileInformationByHandle(item.handle.get(), win32::FileDispositionInfo, &disposition, sizeof disposition);
}

// While this is held the folder is neither renamed nor deleted.
PlainItem HoldFolder(const std::u16string& path) {
  return OpenPlain(path, Kind::Folder, win32::GENERIC_READ, win32::FILE_SHARE_READ);
}

// Do the data of a location lie in this folder, or would they? By where things really are, whatever the location is
// called. True also when Windows does not tell.
bool KeepsDataIn(const std::u16string& location, const std::u16string& place) {
  if (location.empty()) return false;
  for (const std::u16string& folder : {location, ProductFolder(location), DataFolder(location)}) {
    const win32::UniqueFile opened = OpenForAttributes(ExtendedPath(folder), LastLink::Followed);
    if (!opened && MeansGone(win32::GetLastError())) continue;
    const std::u16string itsPlace = PathOf(opened);
    if (itsPlace.empty() || IsSameOrBelow(itsPlace, place)) return true;
  }
  return false;
}

enum class Answer { No, Yes, NotTold };
// Do the data of a redirection lie in the folder, or the folder among them? `source`: what was redirected.
Answer HoldsRedirectedData(const std::u16string& folder, std::u16string& source) {
  for (const int isFile : {0, 1}) {
    std::vector<JunctionRecord> records;
    if (!ReadJunctionRecords(isFile, records)) return Answer::NotTold;
    for (const JunctionRecord& record : records) {
      if (IsGone(record.target) || AreApart(folder, record.target)) continue;
      source = record.source;
      return Answer::Yes;
    }
  }
  return Answer::No;
}

// All that goes of a held folder, and then it itself.
void DeleteData(const std::u16string& data, PlainItem held) {
  for (const std::u16string& name : DataFiles(data))
    DeleteAt(JoinPath(data, name), Kind::File, JoinPath(held.place, name));
  const std::u16string inData = u"KeyToDelete";
  DeleteAt(JoinPath(data, inData), Kind::Folder, JoinPath(held.place, inData));
  held.handle.reset();
  DeleteAt(data, Kind::Folder, held.place);
}

}  // namespace

void CleanRegistryData(const std::u16string& location, const std::u16string& locationInUse) try {
  const std::u16string product = ProductFolder(location), data = DataFolder(location);
  if (location.empty() || IsRimeholdFrozen() || !DirectoryExists(ExtendedPath(product))) return;
  PlainItem outer = HoldFolder(product), inner = HoldFolder(data);
  if (!outer.handle || KeepsDataIn(locationInUse, outer.place)) return;
  std::u16string source;
  const Answer redirected = HoldsRedirectedData(data, source);
  if (redirected == Answer::Yes) Log(u"#INFO: The files in %ls stay: they are those of %ls.", data, source);
  if (redirected != Answer::No) return;
  if (inner.handle && EqualPaths(inner.place, JoinPath(outer.place, LastComponent(data))))
    DeleteData(data, std::move(inner));
  outer.handle.reset();
  DeleteAt(product, Kind::Folder, outer.place);
} catch (const std::exception&) {
}

bool MayHoldRegistryData(const std::u16string& location) {
  std::u16string source;
  switch (HoldsRedirectedData(DataFolder(location), source)) {
    case Answer::No:
      return true;
    case Answer::Yes:
      return LogFailure(u"#ERROR: The folder %ls holds what is redirected from %ls. Browse to a different location.",
                        location, source);
    case Answer::NotTold:
      break;
  }
  return LogFailure(u"#ERROR: Unable to read the redirected folders and files in registry.");
}

void TellOfFormerRegistryData(const std::u16string& location) {
  if (LookAt(DataFolder(location)).IsPlainDirectory() && !DataFiles(DataFolder(location)).empty())
    Log(u"#INFO: There are files in %ls already. They are taken for the service's and go with the location.",
        DataFolder(location));
}
