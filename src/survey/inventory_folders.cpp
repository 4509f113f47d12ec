// The redirections of folders and files, by their records.
#include <algorithm>
#include <map>

#include "fsops/side_folder.h"
#include "links/mounted_folder.h"
#include "links/volume_paths.h"
#include "records/records.h"
#include "survey/inventory.h"
#include "survey/place.h"
#include "links/link_data.h"
#include "text/format.h"
#include "text/ascii_case.h"
#include "text/path_text.h"
#include "win32/win32.h"

namespace {

// What the registry notes of folders that removals fill: the volume, by the folder's path in lower case.
using Fillings = std::map<std::u16string, std::u16string>;

bool IsLocal(const std::u16string& path) {
  const std::u16string plain(WithoutExtendedPrefix(path));
  return IsVolumePath(path.c_str()) || (plain.size() > 2 && plain[1] == u':' && plain[2] == u'\\');
}

// False, found, when Windows does not tell what stands there.
bool IsTold(Row& row, const std::u16string& path, const Stands& stands) {
  if (stands.look.presence != Presence::NotTold && stands.IsReadable()) return true;
  row.Find(Finds::NotTold, NotToldOf(path, stands.error));
  return false;
}

// A link that is there: does it lead to the target, which is there, too?
void ExamineWay(Row& row, const std::u16string& text, bool targetIsThere, Finds elsewhere) {
  if (EqualPaths(text, row.target)) return;
  win32::DWORD error = 0;
  // Where a link that leads elsewhere leads is not asked of the network, nor of what nobody can follow.
  if (text.empty() || !IsLocal(text)) return row.Find(elsewhere, text.empty() ? u"nothing that can be read" : text);
  const win32::UniqueFile reached = OpenForAttributes(row.source, LastLink::Followed);
  if (!reached) error = win32::GetLastError();
  if (!reached && !MeansGone(error)) return row.Find(Finds::NotTold, NotToldOf(row.source, error));
  if (!reached && targetIsThere)
    return row.Find(elsewhere == Finds::LeadsElsewhere ? Finds::LeadsNowhere : elsewhere, text);
  if (!targetIsThere) return reached ? row.Find(elsewhere, text) : void();
  const std::optional<bool> same = LeadToOne(row.source, row.target, error);
  if (!same) return row.Find(Finds::NotTold, NotToldOf(row.source, error));
  if (!*same) row.Find(elsewhere, text);
}

// A folder's target, as far as it stands there. False: nothing to lead to.
bool ExamineTarget(Row& row, const Stands& target) {
  if (!IsTold(row, row.target, target)) return false;
  if (target.look.IsGone()) {
    row.Find(Finds::TargetMissing);
    return false;
  }
  if (!target.look.IsDirectory())
    row.Find(Finds::TargetIsNoFolder);
  else if (target.look.IsReparsePoint())
    row.Find(Finds::TargetIsLink, target.LeadsTo());
  return true;
}

void FindFolder(Row& row) {
  const std::optional<bool> empty = IsFolderEmpty(row.source);
  if (!empty) return row.Find(Finds::NotTold, NotToldOf(row.source, win32::GetLastError()));
  row.Find(*empty ? Finds::SourceIsEmptyFolder : Finds::SourceIsFolder);
}

void ExamineFolder(Row& row) {
  const Stands source = WhatStandsAt(row.source), target = WhatStandsAt(row.target);
  if (source.look.IsGone() && target.look.IsGone()) return row.Find(Finds::BothMissing);
  const bool sourceTold = IsTold(row, row.source, source), targetIsThere = ExamineTarget(row, target);
  if (!sourceTold) return;
  if (source.look.IsGone()) return row.Find(Finds::SourceMissing);
  if (!source.look.IsDirectory()) return row.Find(Finds::SourceIsFile);
  if (!source.look.IsReparsePoint()) return FindFolder(row);
  if (source.IsVolume()) return row.Find(Finds::SourceHasVolume, source.LeadsTo());
  if (source.IsSymbolicLink()) return row.Find(Finds::SourceIsSymbolicLink, source.LeadsTo());
  if (!source.IsJunction()) return row.Find(Finds::SourceIsOtherLink, FormatText(u"0x%08x", TagOf(source.data)));
  ExamineWay(row, source.LeadsTo(), targetIsThere, Finds::LeadsElsewhere);
}

// Where the volume of a row is mounted, if it is; empty otherwise.
std::u16string MountOf(const Row& row) {
  std::u16string volume = row.target, path;
  return VolumePathToNormalPath(volume, path) ? WithoutTrailingBackslash(path) : std::u16string();
}

void ExamineMount(Row& row, const Stands& source) {
  if (source.IsVolume() && EqualPaths(source.LeadsTo(), row.target)) return;
  const std::u16string mounted = MountOf(row);
  if (EqualPaths(mounted, row.source + u".mount")) return row.Find(Finds::MountedBeside, mounted);
  if (!mounted.empty()) return row.Find(Finds::MountedElsewhere, mounted);
  if (source.look.IsGone()) return row.Find(Finds::MountPlaceMissing);
  if (source.IsVolume()) return row.Find(Finds::MountPlaceHasOther, source.LeadsTo());
  if (source.look.IsReparsePoint()) return row.Find(Finds::MountPlaceIsLink, source.LeadsTo());
  if (!source.look.IsDirectory()) return row.Find(Finds::MountPlaceIsFile);
  const std::optional<bool> empty = IsFolderEmpty(row.source);
  if (!empty) return row.Find(Finds::NotTold, NotToldOf(row.source, win32::GetLastError()));
  row.Find(*empty ? Finds::NotMounted : Finds::MountPlaceIsFull);
}

void ExamineVolume(Row& row, const Fillings& fillings) {
  const Stands source = WhatStandsAt(row.source);
  const Look volume = LookAt(row.target);
  if (volume.presence == Presence::NotTold)
    row.Find(Finds::NotTold, NotToldOf(row.target, win32::GetLastError()));
  else if (volume.IsGone())
    row.Find(Finds::VolumeMissing);
  if (IsTold(row, row.source, source) && !volume.IsGone()) ExamineMount(row, source);
  const std::u16string beside = row.source + u".mount";
  const auto filling = fillings.find(LowerAscii(beside));
  if (filling == fillings.end() || !EqualPaths(filling->second, row.target) || row.Has(Finds::MountedBeside)) return;
  const std::optional<bool> empty = IsFolderEmpty(beside);
  if (!empty && !MeansGone(win32::GetLastError()))
    row.Find(Finds::NotTold, NotToldOf(beside, win32::GetLastError()));
  else if (empty && !*empty)
    row.Find(Finds::RemovalCutOff, beside);
}

void ExamineFile(Row& row) {
  const Stands source = WhatStandsAt(row.source), target = WhatStandsAt(row.target);
  if (source.look.IsGone() && target.look.IsGone()) return row.Find(Finds::FileBothMissing);
  const bool sourceTold = IsTold(row, row.source, source), targetTold = IsTold(row, row.target, target);
  if (targetTold && target.look.IsGone()) row.Find(Finds::FileTargetMissing);
  if (targetTold && target.look.IsDirectory()) row.Find(Finds::FileTargetIsNoFile);
  if (!sourceTold || !targetTold) return;
  if (source.look.IsGone()) return row.Find(Finds::FileLinkMissing);
  if (source.look.IsDirectory()) return row.Find(Finds::FileIsNoLink, u"a folder");
  if (!source.look.IsReparsePoint()) return row.Find(Finds::FileIsBack);
  if (!source.IsSymbolicLink())
    return row.Find(Finds::FileIsNoLink, FormatText(u"an item with the reparse tag 0x%08x", TagOf(source.data)));
  if (TextOfLink(source.data).relative) return row.Find(Finds::FileLeadsElsewhere, source.LeadsTo());
  ExamineWay(row, source.LeadsTo(), target.look.IsThere(), Finds::FileLeadsElsewhere);
}

// A file that was moved on from its target, by way of it, shares that with the later record.
bool MayShareTarget(const Row& row, const Row& other) {
  return row.kind == RowKind::File && other.kind == RowKind::File && row.IsWhole() && other.IsWhole();
}

void FindDoubles(std::vector<Row>& rows) {
  std::vector<bool> shares(rows.size() * rows.size());
  for (std::size_t i = 0; i < rows.size(); ++i)
    for (std::size_t j = 0; j < rows.size(); ++j) shares[i * rows.size() + j] = MayShareTarget(rows[i], rows[j]);
  for (std::size_t i = 0; i < rows.size(); ++i)
    for (std::size_t j = 0; j < rows.size(); ++j) {
      if (i == j || rows[i].Has(Finds::HalfRecord) || rows[j].Has(Finds::HalfRecord)) continue;
      const std::u16string number = FormatText(u"%u", rows[j].number);
      if (EqualPaths(rows[i].source, rows[j].source)) {
        // It cannot lead to both.
        std::erase_if(rows[i].findings, [](const Finding& finding) {
          return finding.what == Finds::LeadsElsewhere || finding.what == Finds::LeadsNowhere ||
                 finding.what == Finds::FileLeadsElsewhere;
        });
        rows[i].Find(Finds::SameSource, number);
      }
      if (EqualPaths(rows[i].target, rows[j].target) && !shares[i * rows.size() + j])
        rows[i].Find(Finds::SameTarget, number);
    }
}

// What a profile has left is a folder, and its record leads to where the profile is.
bool IsWayOfProfile(const Row& row, const ProfileFolders& profiles) {
  const Look source = LookAt(row.source);
  return ContainsIgnoringAsciiCase(profiles.paths, row.target) && source.presence != Presence::NotTold &&
         !source.IsReparsePoint();
}

Row RowOf(const JunctionRecord& record, int isFile) {
  const bool onVolume = !isFile && IsVolumePath(record.target.c_str());
  const bool bare = onVolume && !record.target.ends_with(u'\\');
  return {.kind = isFile     ? RowKind::File
                  : onVolume ? RowKind::FolderOnVolume
                             : RowKind::Folder,
          .source = record.source,
          .target = onVolume ? record.target + (bare ? u"\\" : u"") : WithoutTrailingBackslash(record.target),
          .number = NumberOf(record)};
}

void AddRecords(Inventory& inventory, int isFile, const ProfileFolders& profiles, const Fillings& fillings,
                std::vector<Row>& rows) {
  std::vector<JunctionRecord> records;
  if (!ReadWholeAndHalfRecords(isFile, records))
    inventory.untold.push_back(isFile ? u"The registry does not tell all redirected files."
                                      : u"The registry does not tell all redirected folders.");
  for (const JunctionRecord& record : records) {
    Row row = RowOf(record, isFile);
    if (record.source.empty() || record.target.empty())
      row.Find(Finds::HalfRecord, isFile ? u"FileJunctions" : u"Junctions");
    else if (isFile)
      ExamineFile(row);
    else if (row.kind == RowKind::FolderOnVolume)
      ExamineVolume(row, fillings);
    else if (IsWayOfProfile(row, profiles))
      continue;
    else if (!profiles.areAll && !LookAt(row.source).IsReparsePoint())
      row.Find(Finds::NotTold, row.source + u" may be what a user profile has left, which the registry does not tell.");
    else
      ExamineFolder(row);
    rows.push_back(std::move(row));
  }
}

// Removals whose record has gone, with the contents beside their place still.
void AddLostRemovals(const std::vector<std::pair<std::u16string, std::u16string>>& fillings, std::vector<Row>& rows) {
  constexpr std::u16string_view kSuffix = u".mount";
  for (const auto& [beside, volume] : fillings) {
    if (!beside.ends_with(kSuffix)) continue;
    Row row{
        .kind = RowKind::FolderOnVolume, .source = beside.substr(0, beside.size() - kSuffix.size()), .target = volume};
    const bool isRecorded = std::ranges::any_of(rows, [&](const Row& other) {
      return EqualPaths(other.source, row.source) && EqualPaths(other.target, row.target);
    });
    const std::optional<bool> empty = isRecorded ? true : IsFolderEmpty(beside);
    if (!empty && !MeansGone(win32::GetLastError()))
      row.Find(Finds::NotTold, NotToldOf(beside, win32::GetLastError()));
    else if (empty && !*empty)
      row.Find(Finds::RemovalAllButDone, beside);
    if (!row.IsWhole()) rows.push_back(std::move(row));
  }
}

}  // namespace

void AddFoldersAndFiles(Inventory& inventory, const ProfileFolders& profiles) {
  std::vector<std::pair<std::u16string, std::u16string>> noted;
  if (!ReadFillings(noted)) inventory.untold.push_back(u"The registry does not tell which removals were cut off.");
  Fillings fillings;
  for (const auto& [folder, volume] : noted) fillings[LowerAscii(folder)] = volume;
  std::vector<Row> rows;
  AddRecords(inventory, 0, profiles, fillings, rows);
  AddRecords(inventory, 1, profiles, fillings, rows);
  FindDoubles(rows);
  AddLostRemovals(noted, rows);
  for (Row& row : rows) inventory.rows.push_back(std::move(row));
}
