#include "profiles/profile_records.h"

#include <algorithm>
#include <optional>
#include <utility>

#include "links/junction.h"
#include "links/link_data.h"
#include "links/presence.h"
#include "links/real_path.h"
#include "profiles/user_hive.h"
#include "report/lines.h"
#include "report/log.h"
#include "text/path_text.h"
#include "win32/win32.h"

namespace {

constexpr std::size_t kLongestJunctionTarget = 255;

void LogProfilePathMustName(const std::u16string& folder) {
  Log(line::kProfilePathNotUpdated);
  Log(u"#ERROR: It must name the folder that holds the profile: %ls.", folder);
}

// A link, or what may be one: an answer that failed is none.
bool MayBeLink(const std::u16string& path) {
  const Look look = LookAt(path);
  return look.presence == Presence::NotTold || look.IsReparsePoint();
}

// One more try: a profile that its record does not lead to is worth the second.
template <typename Write>
bool Insist(Write write) {
  if (write()) return true;
  win32::Sleep(1000);
  return write();
}

}  // namespace

bool ProfileRecords::IsInProfile(const std::u16string& path) const { return IsSameOrBelow(path, profile_.folder); }

bool ProfileRecords::CanFollow() {
  if (!CanSetProfileImagePath(profile_.sid, newFolder_) || !ReadProfileImagePath(profile_.sid, imagePath_))
    return LogFailure(line::kProfilePathNotUpdated);
  if (!ReadJunctionRecords(0, folders_) || !ReadJunctionRecords(1, files_) || !CanAddJunctionRegKey(0))
    return LogFailure(line::kRecordsNotUpdated);
  return FindJunctions() && NoFileLinksLeadIn();
}

// Links in the profile itself move with it.
bool ProfileRecords::FindJunctions() {
  for (const JunctionRecord& record : folders_) {
    if (IsInProfile(record.source) || !MayBeLink(record.source)) continue;
    Junction junction{SaveLink(record.source, {}, true), {}, {}};
    junction.oldTarget = TextOfLink(junction.before.reparseData).path;
    // By its record it may lead elsewhere, and still go by the profile on its way.
    if (junction.oldTarget.empty() && IsInProfile(record.target)) return LogFailure(line::kJunctionTargetUnknown);
    const std::optional<std::u16string> rest = BehindFolder(junction.oldTarget, profile_.folder);
    if (!rest) continue;
    junction.newTarget = newFolder_ + *rest;
    if (junction.newTarget.size() > kLongestJunctionTarget)
      return LogFailure(line::kJunctionNotCreated, record.source, junction.newTarget);
    junctions_.push_back(std::move(junction));
  }
  return true;
}

// A symbolic link cannot be led elsewhere in one step; while it is made again, the file would have no name outside.
bool ProfileRecords::NoFileLinksLeadIn() const {
  for (const JunctionRecord& record : files_)
    if (!IsInProfile(record.source) && MayBeLink(record.source) &&
        (BehindFolder(record.target, profile_.folder) ||
         BehindFolder(SymbolicLinkText(record.source), profile_.folder)))
      return LogFailure(
          u"#ERROR: The file %ls is redirected into the User Profile, to %ls. Remove this redirection first.",
          record.source, record.target);
  return true;
}

// When the profile goes back to where a move has brought it from: the record of that move, and those of moves since.
std::vector<JunctionRecord> ProfileRecords::RecordsOfWayHere() const {
  const auto wayHere = std::ranges::find_if(folders_, [&](const JunctionRecord& record) {
    return EqualPaths(record.source, newFolder_) && EqualPaths(record.target, profile_.folder);
  });
  if (wayHere == folders_.end()) return {};
  std::vector<JunctionRecord> records;
  for (const JunctionRecord& record : folders_)
    if (&record == &*wayHere || (EqualPaths(record.target, profile_.folder) && NumberOf(record) > NumberOf(*wayHere) &&
                                 !MayBeLink(record.source)))
      records.push_back(record);
  return records;
}

// Its own records first: as they stand, not rewritten with those that follow.
bool ProfileRecords::RecordPair() {
  const std::u16string& folder = profile_.folder;
  const std::vector<JunctionRecord> wayHere = RecordsOfWayHere();
  for (const JunctionRecord& record : wayHere) {
    if (!DeleteRegKey(record.source.c_str(), record.target.c_str(), 0)) return false;
    deleted_.push_back(record);
  }
  if (!wayHere.empty() || JunctionRegKeyExists(folder.c_str(), newFolder_.c_str(), 0)) return true;
  pairAdded_ = AddJunctionRegKey(folder.c_str(), newFolder_.c_str(), 0) != 0;
  return pairAdded_;
}

bool ProfileRecords::Follow() {
  const std::u16string& folder = profile_.folder;
  if (!SetProfileImagePath(profile_.sid, newFolder_)) return LogFailure(line::kProfilePathNotUpdated);
  recordsChanged_ = true;
  if (!RecordPair() || !UpdateOtherJunctionRecords(folder, newFolder_, 0, {{}, folder, newFolder_}) ||
      !UpdateOtherJunctionRecords(folder, newFolder_, 1, {})) {
    return LogFailure(line::kRecordsNotUpdated);
  }
  for (Junction& junction : junctions_) {
    const std::u16string& path = junction.before.source;
    junction.changed = ChangeJunctionTarget(path.c_str(), junction.newTarget.c_str()) != 0;
    if (junction.changed) continue;
    return LogFailure(line::kJunctionNotCreated, path, junction.newTarget);
  }
  // A picture that is not found is no reason to take a profile back; the log tells.
  wallpaperChanged_ = RewriteWallpaper({profile_.sid, newFolder_, profile_.hiveState}, folder, newFolder_) != 0;
  return true;
}

void ProfileRecords::TakeBack() {
  const std::u16string& folder = profile_.folder;
  if (std::exchange(wallpaperChanged_, false))
    RewriteWallpaper({profile_.sid, newFolder_, profile_.hiveState}, newFolder_, folder);
  for (Junction& junction : junctions_)
    if (std::exchange(junction.changed, false) && !RestoreLink(junction.before))
      Log(line::kJunctionNotCreated, junction.before.source, junction.oldTarget);
  if (!std::exchange(recordsChanged_, false)) return;
  bool all = !pairAdded_ || DeleteRegKey(folder.c_str(), newFolder_.c_str(), 0);
  for (const JunctionRecord& record : deleted_) {
    if (!AddJunctionRegKey(record.source.c_str(), record.target.c_str(), 0)) all = false;
    std::erase_if(folders_, [&](const JunctionRecord& saved) { return saved.subkey == record.subkey; });
  }
  const bool foldersBack = RestoreJunctionRecords(folders_), filesBack = RestoreJunctionRecords(files_);
  if (!all || !foldersBack || !filesBack) Log(line::kRecordsNotUpdated);
}

void ProfileRecords::NameOldFolder() {
  if (imagePath_.data.empty() || Insist([&] { return RestoreProfileImagePath(profile_.sid, imagePath_); })) return;
  LogProfilePathMustName(profile_.folder);
}

void ProfileRecords::NameNewFolder() {
  if (Insist([&] { return SetProfileImagePath(profile_.sid, newFolder_) != 0; })) return;
  LogProfilePathMustName(newFolder_);
}
