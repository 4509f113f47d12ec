#include <algorithm>
#include <set>

#include "fsops/file_facts.h"
#include "fsops/file_list.h"
#include "fsops/shares.h"
#include "links/junction.h"
#include "links/link_data.h"
#include "links/mounted_folder.h"
#include "links/real_path.h"
#include "links/volume_paths.h"
#include "probes/keelroom.h"
#include "probes/rimehold_status.h"
#include "records/records.h"
#include "survey/plan.h"
#include "text/path_text.h"
#include "validate/free_space.h"

namespace {

constexpr std::size_t kLargest = 10;

std::u16string Shown(const std::u16string& path) { return std::u16string(WithoutExtendedPrefix(path)); }

// Keeps the largest, the largest first; of equals the first.
void Note(std::vector<PlannedFile>& largest, PlannedFile file) {
  const auto place = std::ranges::upper_bound(largest, file.bytes, std::greater{}, &PlannedFile::bytes);
  if (place == largest.end() && largest.size() == kLargest) return;
  largest.insert(place, std::move(file));
  if (largest.size() > kLargest) largest.pop_back();
}

PlannedLink Describe(const TreeEntry& link) {
  PlannedLink described{Shown(link.path), u"symbolic link", {}};
  if (link.IsSymbolicLink()) {
    described.leadsTo = SymbolicLinkText(link.path);
  } else if (IsVolumeMountPoint(link.path.c_str(), &described.leadsTo)) {
    described.kind = u"mounted volume";
  } else {
    described.kind = u"junction";
    GetJunctionTarget(link.path.c_str(), described.leadsTo);
  }
  return described;
}

void AddShares(const ShareList& shares, const std::u16string& folder, PlannedMove& move) {
  for (const win32::SHARE_INFO_502* share : shares.FindByPath(folder))
    move.shares.push_back({share->shi502_netname, share->shi502_path});
}

bool AddRecords(const std::u16string& source, PlannedMove& move) {
  for (const int isFile : {0, 1}) {
    std::vector<JunctionRecord> records;
    if (!ReadJunctionRecords(isFile, records)) return false;
    for (const JunctionRecord& record : records)
      if (IsSameOrBelow(record.source, source) || IsSameOrBelow(record.target, source))
        move.records.push_back({isFile ? u"file" : u"folder", record.source, record.target});
  }
  return true;
}

bool AddTree(const std::u16string& folder, PlannedMove& move) {
  const FolderTree tree(folder.c_str());
  const TreeListing* const listing = tree.Get();
  const ShareList shares = ShareList::Read();
  if (!listing) return false;
  if (!shares.IsWhole()) move.sharesAreTold = false;
  AddShares(shares, folder, move);
  move.items += listing->entries.size();
  move.bytes += listing->TotalSize();
  for (const TreeEntry& entry : listing->entries) {
    if (entry.IsLink()) {
      move.links.push_back(Describe(entry));
    } else if (entry.IsDirectory()) {
      ++move.folders;
      AddShares(shares, Shown(entry.path), move);
    } else {
      Note(move.largest, {Shown(entry.path), entry.size});
    }
  }
  return AddRecords(folder, move);
}

bool AddFile(const std::u16string& file, PlannedMove& move) {
  const std::optional<FileFacts> facts = FactsOf(file);
  if (!facts) return false;
  move.items += 1;
  move.bytes += facts->size;
  Note(move.largest, {file, facts->size});
  return AddRecords(file, move);
}

// Where the contents would lie, as far as it is there.
std::u16string PlaceOf(const PlanRequest& request) {
  return IsVolumePath(request.target.c_str()) ? FolderForm(request.target) : NearestFolder(request.target);
}

}  // namespace

std::optional<PlannedMove> WhatMoves(const PlanRequest& request, const std::vector<std::u16string>& sources) {
  PlannedMove move;
  for (const std::u16string& given : sources) {
    const std::u16string source = AsStored(WithoutTrailingBackslash(given));
    move.sources.push_back(source);
    if (request.kind == PlanKind::File ? !AddFile(source, move) : !AddTree(source, move)) return std::nullopt;
  }
  return move;
}

PlannedPlace WhereTo(const PlanRequest& request, const std::vector<std::u16string>& sources) {
  PlannedPlace place;
  const std::u16string folder = PlaceOf(request);
  place.room = AvailableBytes(folder);
  const std::u16string volume = VolumeThatHolds(folder);
  const std::u16string from = sources.empty() ? std::u16string() : VolumeThatHolds(sources.front());
  if (!volume.empty() && !from.empty()) place.sameDrive = EqualPaths(volume, from);
  constexpr int kNotInstalled = 1;
  std::u16string status;
  if (GetRHStatus(status) != kNotInstalled) place.rimehold = status;
  // Of other drives Rimehold does not say whether it freezes them.
  if (const std::u16string real = RealPath(folder); !real.empty() && real[0] < 0x80 && IsKeelroomDrive(real.front()))
    place.keepsChanges = true;
  return place;
}
