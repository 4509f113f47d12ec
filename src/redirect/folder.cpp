#include "redirect/folder.h"

#include <exception>

#include "fsops/folders.h"
#include "fsops/move_tree.h"
#include "links/junction.h"
#include "links/mounted_folder.h"
#include "links/presence.h"
#include "links/real_path.h"
#include "links/volume_paths.h"
#include "records/records.h"
#include "records/redirected_places.h"
#include "redirect/folder_on_volume.h"
#include "redirect/folder_removal.h"
#include "redirect/folder_steps.h"
#include "report/lines.h"
#include "report/log.h"
#include "report/only_looks.h"
#include "report/outcome.h"
#include "text/path_text.h"
#include "validate/path_rules.h"
#include "validate/relations.h"
#include "validate/validate.h"
#include "win32/win32.h"

namespace {

// One folder on its way to its new place.
class FolderRedirection {
 public:
  FolderRedirection(std::u16string source, std::u16string target, CarriedAlong carried)
      : source_(std::move(source)),
        target_(std::move(target)),
        realTarget_(AsStored(RealTargetOf(source_, target_))),
        carried_(carried),
        created_(realTarget_) {}

  // Nothing has changed when one of these says no.
  bool MayRedirect() const;
  bool TargetMayBeUsed() const;
  // Each leaves everything as it was when it answers false, or the log says where the data is.
  bool MakeTarget();
  bool MoveContents();
  bool LeaveJunction();
  // An exception came; the same.
  void TakeBackMoved() noexcept;

 private:
  bool IsNotRecorded() const;
  bool IsFitForIt() const;
  bool TargetIsPlainFolder() const;
  bool MayComeBack() const;
  void TakeBack();
  void RemoveTargetIfEmpty() const;

  const std::u16string source_, target_, realTarget_;
  const CarriedAlong carried_;
  const CreatedFolders created_;
  bool targetStoodThere_ = false, junctionMade_ = false;
  MoveRecord moved_;
  std::vector<JunctionRecord> records_;
};

bool FolderRedirection::MayRedirect() const {
  if (!IsUsablePath(source_) || !IsUsablePath(target_) ||
      !AllHold({[this] { return IsNotRecorded(); }, [this] { return IsFitForIt(); },
                [this] { return MayLeave(source_); }, [this] { return TargetMayBeUsed(); },
                [this] { return MayComeTo(source_, realTarget_, Comes::Folder); }, [this] { return MayComeBack(); }}))
    return false;
  TellIfOnOneVolume(source_, realTarget_);
  return true;
}

bool FolderRedirection::IsNotRecorded() const {
  if (FindJunctionRegKey(source_.c_str(), realTarget_.c_str(), 0).empty()) return true;
  Log(line::kJunctionExists, source_, realTarget_);
  TellIfRemovalWasCutOff(source_, realTarget_);
  return false;
}

bool FolderRedirection::IsFitForIt() const {
  if (ValidateRedirectionPaths(source_.c_str(), target_.c_str())) return true;
  Log(line::kPreScanningFailed, source_, realTarget_);
  TellIfRedirectionWasCutOff(source_, realTarget_);
  return false;
}

// The removal asks the contents' folder as a source, and the right to fill the place that they left.
bool FolderRedirection::MayComeBack() const {
  return !IsSystemFolder(realTarget_.c_str(), {.quiet = true}) && IsOutsideSystemFolders(realTarget_) &&
         MayBeBroughtBack(source_, source_);
}

bool FolderRedirection::TargetMayBeUsed() const {
  if (!HasAllowedLength(realTarget_)) return false;
  if (const std::u16string made = RealTargetOf(source_, target_); IsShortNameOfAnother(made))
    return LogFailure(line::kNameTaken, source_, made);
  if (EqualPaths(source_, realTarget_)) return LogFailure(line::kSamePlace, source_, realTarget_);
  // A folder below the place that its contents go to: they would be merged into a tree that holds them, and a junction
  // to a folder above itself has no end.
  if (IsSameOrBelow(source_, realTarget_)) return LogFailure(line::kInsideSource, source_, realTarget_);
  return !PathExists(realTarget_) || TargetIsPlainFolder();
}

// An existing real target: a folder, no link, and not the source by another name (a short one, another letter case).
bool FolderRedirection::TargetIsPlainFolder() const {
  if (!win32::PathIsDirectoryW(realTarget_.c_str())) return LogFailure(line::kNotADirectory, realTarget_);
  if (LinkTagAt(realTarget_) == win32::IO_REPARSE_TAG_MOUNT_POINT || IsJunction(realTarget_.c_str()))
    return LogFailure(line::kRedirectedAlready, realTarget_);
  if (IsSymbolicLink(realTarget_.c_str())) return LogFailure(line::kSymbolicLink, realTarget_);
  std::u16string finalSource, finalTarget;
  if (!GetFinalTargetPath(source_.c_str(), finalSource) || !GetFinalTargetPath(realTarget_.c_str(), finalTarget))
    return false;
  if (!IsSameOrBelow(finalSource, finalTarget)) return true;
  return LogFailure(line::kSamePlace, source_, realTarget_);
}

bool FolderRedirection::MakeTarget() {
  const FolderMade made = MakeFolder(realTarget_);
  if (made == FolderMade::Failed) {
    Log(line::kTargetFolderNotCreated, realTarget_);
    created_.RemoveIfEmpty();
    return false;
  }
  targetStoodThere_ = made == FolderMade::StoodThere;
  if (!targetStoodThere_) return true;
  // It may have come since it was looked for.
  if (!TargetIsPlainFolder()) return false;
  Say(StringId::TargetExists, realTarget_);
  return true;
}

bool FolderRedirection::MoveContents() {
  if (MoveDirectoryTree(source_, realTarget_, {.carried = carried_, .targetIsNew = !targetStoodThere_}, moved_))
    return true;
  Log(line::kMoveFailed, source_, realTarget_);
  RemoveTargetIfEmpty();
  return false;
}

bool FolderRedirection::LeaveJunction() {
  if (!CreateJunction(source_.c_str(), realTarget_.c_str())) {
    Log(line::kJunctionNotCreated, source_, realTarget_);
    TakeBack();
    return false;
  }
  junctionMade_ = true;
  // Records that could not all be read could not all be put back.
  if (!ReadJunctionRecords(0, records_)) {
    Log(line::kRecordsNotUpdated);
    TakeBack();
    return false;
  }
  std::vector<JunctionRecord> updated;
  if (!UpdateRecords(source_, realTarget_, updated)) {
    TakeBack();
    return false;
  }
  if (!AddJunctionRegKey(source_.c_str(), realTarget_.c_str(), 0)) {
    Log(line::kRecordNotAdded, source_, realTarget_);
    TakeBack();
    return false;
  }
  return true;
}

// The target now holds the only copy: it goes only as far as everything is back. The junction goes first, or what is
// moved back would pass through it to where it comes from.
void FolderRedirection::TakeBack() {
  if (junctionMade_ && !DeleteJunction(source_.c_str())) {
    Log(u"#ERROR: Unable to delete Junction. path = %ls. The files and folders stay in %ls.", source_, realTarget_);
    return;
  }
  if (!RestoreJunctionRecords(records_)) Log(line::kRecordsNotUpdated);
  if (UndoMove(moved_))
    Log(u"#INFO: All files and folders are back in %ls.", source_);
  else
    Log(line::kOthersStay, source_, realTarget_);
  RemoveTargetIfEmpty();
}

void FolderRedirection::TakeBackMoved() noexcept try {
  if (moved_.outcome == MoveOutcome::Moved) TakeBack();
} catch (const std::exception&) {
  LogWhereContentsAre(moved_);
}

void FolderRedirection::RemoveTargetIfEmpty() const {
  if (!targetStoodThere_) created_.RemoveIfEmpty();
}

// A target that is yet to be made has its parent above its own name, not above the backslash behind it.
std::u16string TargetFolder(const char16_t* target) {
  return AsStored(IsPlainPath(target) ? WithoutTrailingBackslash(target) : std::u16string(target));
}

bool RedirectFolderToFolder(const std::u16string& source, const char16_t* target, CarriedAlong carried) {
  FolderRedirection redirection(source, TargetFolder(target), carried);
  try {
    return redirection.MayRedirect() && redirection.MakeTarget() && redirection.MoveContents() &&
           redirection.LeaveJunction();
  } catch (const std::exception&) {
    redirection.TakeBackMoved();
    return false;
  }
}

// A path by a volume's name becomes the one by the folder or letter that it is mounted on.
bool ToNormalPath(std::u16string& path) {
  if (!IsVolumePath(path.c_str())) return true;
  std::u16string given = path;
  if (VolumePathToNormalPath(given, path)) return true;
  return LogFailure(line::kNoNormalPath);
}

bool IsNoVolume(const char16_t* source) {
  if (IsVolumePath(source)) return LogFailure(u"#ERROR: Source Folder can not be Volume path.");
  return !IsVolumeMountPoint(source) || LogFailure(line::kRedirectedAlready, source);
}

std::u16string SourceFolder(const char16_t* source) { return AsStored(WithoutTrailingBackslash(source)); }

}  // namespace

bool MayRedirectFolder(const char16_t* source, const char16_t* target) {
  const auto allowsIt = [&] {
    const std::u16string folder = SourceFolder(source);
    return IsVolumePath(target) ? MayRedirectFolderOntoVolume(folder, target)
                                : FolderRedirection(folder, TargetFolder(target), {}).MayRedirect();
  };
  return AllHold(
      {[&] { return MayBegin(source, target, line::kPathMissing); }, [&] { return IsNoVolume(source); }, allowsIt});
}

int RedirectFolder(const char16_t* source, const char16_t* target, CarriedAlong carried) try {
  if (!MayBegin(source, target, line::kPathMissing)) return 1;
  if (!IsNoVolume(source)) return Fail(StringId::FolderRedirectionFailed);
  const std::u16string folder = SourceFolder(source);
  const bool redirected = IsVolumePath(target) ? RedirectFolderOntoVolume(folder, target, carried)
                                               : RedirectFolderToFolder(folder, target, carried);
  return redirected ? Succeed(StringId::FolderRedirected) : Fail(StringId::FolderRedirectionFailed);
} catch (const std::exception&) {
  return Fail(StringId::FolderRedirectionFailed);
}

int RemoveFolderRedirection(const char16_t* source, const char16_t* target, CarriedAlong carried) try {
  if (!MayBegin(source, target, line::kPathMissingForRemoval)) return 1;
  std::u16string folder = source, location = target, volume;
  if (!ToNormalPath(folder)) return Fail(StringId::FolderRemovalFailed);
  folder = WithoutTrailingBackslash(folder);
  bool removed = false;
  if (IsVolumeMountedAt(folder, location, volume))
    removed = RemoveFolderFromVolume(folder, location, volume, carried);
  else if (ToNormalPath(location))
    removed = RemoveFolderFromFolder(folder, WithoutTrailingBackslash(location), carried);
  return removed ? Succeed(StringId::FolderRemovalDone) : Fail(StringId::FolderRemovalFailed);
} catch (const std::exception&) {
  return Fail(StringId::FolderRemovalFailed);
}
