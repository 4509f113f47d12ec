#include "redirect/folder_on_volume.h"

#include <exception>
#include <optional>

#include "fsops/backup_copy.h"
#include "fsops/folder_itself.h"
#include "fsops/folders.h"
#include "fsops/move_tree.h"
#include "fsops/side_folder.h"
#include "fsops/volume_root.h"
#include "links/mounted_folder.h"
#include "links/presence.h"
#include "records/records.h"
#include "records/redirected_places.h"
#include "redirect/folder_steps.h"
#include "report/console.h"
#include "report/lines.h"
#include "report/log.h"
#include "report/only_looks.h"
#include "text/path_text.h"
#include "validate/path_rules.h"
#include "validate/validate.h"

namespace {

// A command that was cut off left some of the contents in the side folder, or on the volume that is mounted there.
void LogInterrupted(const std::u16string& source, const std::u16string& sideFolder) {
  Log(u"#INFO: A redirection of %ls, or its removal, was interrupted. What is missing there is in %ls. See \"After a "
      u"power failure, volume form\" in what-is-refused.md.",
      source, sideFolder);
}

// One folder on its way onto a volume.
class FolderOntoVolume {
 public:
  FolderOntoVolume(const std::u16string& source, const std::u16string& volume, CarriedAlong carried)
      : source_(source), volume_(volume), mountFolder_(source), carried_(carried) {}

  // Nothing has changed when this says no.
  bool MayRedirect() const;
  // The folder beside the source, on which the volume is to be mounted, is not there, or empty.
  bool MayBeMounted() const;
  // Each leaves everything as it was when it answers false, or the log says where the data is.
  bool MountBesideSource();
  bool MakeTarget();
  bool MoveContents();
  bool PutInPlaceOfSource();
  bool Record();

  // The record of the move, for who has to tell where the contents are.
  const MoveRecord& moved() const { return moved_; }

 private:
  const std::u16string& realTarget() const { return mountFolder_.path(); }
  bool IsNotRecorded() const;
  bool IsFitForIt() const;
  std::u16string RecordedTarget() const;
  void LogIfInterrupted() const;
  bool LendSecurity() const;
  void TakeBack();
  void Unmount() const;
  void TellWhatStayed() const;

  const std::u16string source_, volume_;
  SideFolder mountFolder_;
  const CarriedAlong carried_;
  MoveRecord moved_;
};

// A pair that is recorded is refused before the volume is examined: that tries whether it can be written to.
bool FolderOntoVolume::MayRedirect() const {
  return IsUsablePath(source_) &&
         AllHold({[this] { return IsNotRecorded(); }, [this] { return IsFitForIt(); },
                  [this] { return HasAllowedLength(realTarget()); }, [this] { return MayLeave(source_); },
                  [this] { return MayComeTo(source_, volume_, Comes::Folder); },
                  [this] { return MayComeTo(source_, realTarget(), Comes::Folder); },
                  [this] { return MayBeBroughtBack(source_, ParentPath(source_)); }});
}

bool FolderOntoVolume::IsNotRecorded() const {
  const std::u16string recorded = RecordedTarget();
  if (recorded.empty()) return true;
  if (ValidateSourcePath(source_.c_str())) Log(line::kJunctionExists, source_, recorded);
  return false;
}

bool FolderOntoVolume::IsFitForIt() const {
  if (ValidateVolumeRedirection(source_.c_str(), volume_.c_str())) return true;
  LogIfInterrupted();
  return false;
}

bool FolderOntoVolume::MayBeMounted() const {
  if (!PathExists(realTarget()) || IsEmptyPlainFolder(realTarget())) return true;
  LogIfInterrupted();
  return LogFailure(line::kVolumeNotMounted, realTarget());
}

// Empty when none is.
std::u16string FolderOntoVolume::RecordedTarget() const {
  for (const std::u16string& target : {volume_, realTarget()})
    if (JunctionRegKeyExists(source_.c_str(), target.c_str(), 0)) return target;
  return {};
}

void FolderOntoVolume::LogIfInterrupted() const {
  if (IsMountedOn(realTarget(), volume_) || mountFolder_.IsBeingFilledFrom(volume_))
    LogInterrupted(source_, realTarget());
}

// The mount folder becomes what the source is before the volume is mounted on it; the mount changes its times.
bool FolderOntoVolume::MountBesideSource() {
  if (!mountFolder_.Make()) return LogFailure(line::kTargetFolderNotCreated, realTarget());
  const bool usable = !mountFolder_.stoodThere() || IsEmptyPlainFolder(realTarget());
  if (usable)
    mountFolder_.ForgetFilling();  // noted by a removal that was cut off at its very end: nothing is in the folder
  else
    LogIfInterrupted();
  if (usable && BackupCopyFolderItself(source_, realTarget()) && MountVolume(realTarget(), volume_) &&
      IsMountedOn(realTarget(), volume_) && CopyFileTimesAndAttributes(source_, realTarget(), {.isReparsePoint = true}))
    return true;
  Log(line::kVolumeNotMounted, realTarget());
  Unmount();
  return false;
}

// Everything that is copied to the volume inherits from its root: what in the source was open only to those whom the
// folder above lets in must not be open to whoever may read the volume.
bool FolderOntoVolume::LendSecurity() const {
  return carried_.ntfsPermissions ? LendSecurityToRoot(source_, volume_) : GiveRootItsOwnSecurity(volume_);
}

// The mount folder exists, so this only tells that contents may be merged into what is on the volume.
bool FolderOntoVolume::MakeTarget() {
  if (MakeFolder(realTarget()) == FolderMade::StoodThere) {
    Say(StringId::TargetExists, realTarget());
    return true;
  }
  Log(line::kTargetFolderNotCreated, realTarget());
  Unmount();
  return false;
}

bool FolderOntoVolume::MoveContents() {
  if (LendSecurity() && MoveDirectoryTree(source_, realTarget(), {.carried = carried_, .copyOnly = true}, moved_))
    return true;
  Log(line::kMoveFailed, source_, realTarget());
  TellWhatStayed();
  Unmount();
  return false;
}

bool FolderOntoVolume::PutInPlaceOfSource() {
  if (RemoveEmptyFolder(source_)) {
    if (Rename(realTarget(), mountFolder_.place())) return true;
  } else {
    LogWithSystemError(line::kFolderNotRemoved, source_);
  }
  TakeBack();
  return false;
}

bool FolderOntoVolume::Record() {
  if (AddJunctionRegKey(source_.c_str(), volume_.c_str(), 0)) return true;
  Log(line::kRecordNotAdded, source_, realTarget());
  if (Rename(source_, realTarget()))
    TakeBack();
  else
    Log(u"#ERROR: The files and folders stay on volume %ls, which is mounted at %ls.", volume_, source_);
  return false;
}

// The volume, mounted beside the source, holds the only copy.
void FolderOntoVolume::TakeBack() {
  if (!MakeFolderLike(mountFolder_.place(), realTarget())) Log(line::kDirectoryNotCreated, source_);
  if (!UndoMove(moved_)) TellWhatStayed();
  Unmount();
}

// What a roll-back could not bring back is reached by the volume's name only, once it is mounted no more.
void FolderOntoVolume::TellWhatStayed() const {
  if (moved_.outcome != MoveOutcome::Split) return;
  for (const CopiedItem& item : moved_.items)
    if (item.complete && PathExists(item.target) && (item.created || !PathExists(item.source.path))) {
      Log(u"#ERROR: Unable to move all files and folders back to %ls. The others stay on volume %ls.", source_,
          volume_);
      return;
    }
}

// Only what the mount folder leads to is taken off it, never deleted.
void FolderOntoVolume::Unmount() const {
  GiveRootItsOwnSecurity(volume_);
  if (IsMountedOn(realTarget(), volume_)) {
    // Emptied and filled again, the source has other times than it had.
    if (PathExists(source_)) CopyFileTimesAndAttributes(realTarget(), source_, {.isReparsePoint = true});
    if (!UnmountVolume(realTarget())) LogWithSystemError(line::kVolumeNotUnmounted, realTarget());
  }
  mountFolder_.TakeAway();
}

// One folder on its way back from a volume.
class FolderFromVolume {
 public:
  FolderFromVolume(const std::u16string& source, const std::u16string& target, const std::u16string& volume,
                   CarriedAlong carried)
      : source_(source), target_(target), volume_(volume), newFolder_(source), carried_(carried) {}

  // Nothing has changed when this says no.
  bool MayRemove();
  // Each leaves the redirection as it was when it answers false, or the log says where the data is.
  bool MakeFolderBesideSource();
  bool MoveContentsBack();
  bool ForgetRecord();
  bool PutInPlaceOfMount();

  const MoveRecord& moved() const { return moved_; }

 private:
  bool FindRecord();
  void Abandon() const;
  bool Exchange();
  void TakeBack();

  const std::u16string source_, target_, volume_;
  std::u16string recordedSource_, recordedTarget_;
  SideFolder newFolder_;
  const CarriedAlong carried_;
  FolderDescriptor ownDescriptor_;  // of the folder under the mount
  MoveRecord moved_;
};

// The record names the volume as the command that made it did.
bool FolderFromVolume::FindRecord() {
  for (const std::u16string& target : {target_, volume_, WithoutTrailingBackslash(volume_)})
    if (const std::optional<JunctionRecord> record = ::FindRecord(source_, target, 0)) {
      recordedSource_ = record->source;
      recordedTarget_ = record->target;
      return true;
    }
  return false;
}

bool FolderFromVolume::MayRemove() {
  if (!PathExists(source_)) return LogFailure(line::kSourceDoesNotExist, source_);
  if (!FindRecord()) {
    Log(line::kNoJunction, source_, target_);
    if (newFolder_.IsBeingFilledFrom(volume_)) LogInterrupted(source_, newFolder_.path());
    return false;
  }
  // Contents are merged only into what an earlier removal, one that was cut off, left there.
  if (!newFolder_.IsFreeFor(volume_)) return LogFailure(line::kNotEmpty, newFolder_.path());
  if (ValidateRedirectionPaths(source_.c_str(), newFolder_.path().c_str(), {.sourceIsRedirectedProfile = true}))
    return true;
  return LogFailure(line::kPreScanningFailed, source_, target_);
}

// The new folder becomes what the folder under the mount is, before anything inherits from it. Of the root it takes the
// owner and the entries, and those only if they were changed while they were what users saw of the folder.
bool FolderFromVolume::MakeFolderBesideSource() {
  if (!newFolder_.Make()) return LogFailure(line::kTargetFolderNotCreated, newFolder_.path());
  if (newFolder_.stoodThere()) Say(StringId::TargetExists, newFolder_.path());
  ownDescriptor_ = ReadDescriptor(source_);
  if (newFolder_.NoteFillingFrom(volume_) && !ownDescriptor_.empty() &&
      BackupCopyFolderItself(source_, newFolder_.path())) {
    const FolderDescriptor changed = ChangedRootSecurity(newFolder_.path(), volume_);
    if (changed.empty() || WriteDescriptor(newFolder_.path(), changed)) return true;
  }
  Log(line::kMoveFailed, source_, newFolder_.path());
  Abandon();
  return false;
}

// What could not be brought back onto the volume stays in the folder, for the next removal to go on with.
void FolderFromVolume::Abandon() const {
  newFolder_.TakeAway();
  if (!PathExists(newFolder_.path()) || IsEmptyPlainFolder(newFolder_.path())) newFolder_.ForgetFilling();
}

bool FolderFromVolume::MoveContentsBack() {
  if (MoveDirectoryTree(source_, newFolder_.path(), {.carried = carried_, .copyOnly = true}, moved_)) return true;
  Log(line::kMoveFailed, source_, newFolder_.path());
  Abandon();
  return false;
}

bool FolderFromVolume::ForgetRecord() {
  if (DeleteRegKey(recordedSource_.c_str(), recordedTarget_.c_str(), 0)) return true;
  Log(line::kRecordNotRemoved, source_, target_);
  TakeBack();
  return false;
}

bool FolderFromVolume::PutInPlaceOfMount() {
  if (!Exchange()) {
    TakeBack();
    return false;
  }
  newFolder_.ForgetFilling();
  GiveRootItsOwnSecurity(volume_);  // the volume is empty: should it fail, the log tells
  return true;
}

bool FolderFromVolume::Exchange() {
  if (!CopyFileTimesAndAttributes(source_, newFolder_.path(), {.isReparsePoint = true})) return false;
  if (!UnmountVolume(source_)) return LogSystemFailure(line::kVolumeNotUnmounted, source_);
  if (!RemoveEmptyFolder(source_)) return LogSystemFailure(line::kFolderNotRemoved, source_);
  return Rename(newFolder_.path(), newFolder_.place());
}

// The new folder holds the only copy. It goes back through the mount, so that has to be there first.
void FolderFromVolume::TakeBack() {
  const std::u16string& newFolder = newFolder_.path();
  const bool gone = !PathExists(source_);
  if (!MakeFolderLike(newFolder_.place(), newFolder) || (gone && !WriteDescriptor(source_, ownDescriptor_)) ||
      (!IsMountedOn(source_, volume_) && !MountVolume(source_, volume_))) {
    Log(u"#ERROR: Unable to mount volume %ls on folder %ls. The files and folders stay in %ls.", volume_, source_,
        newFolder);
    return;
  }
  if (!CopyFileTimesAndAttributes(newFolder, source_, {.isReparsePoint = true})) Log(line::kTimesNotCopied, newFolder);
  if (!UndoMove(moved_)) Log(line::kOthersStay, source_, newFolder);
  if (!JunctionRegKeyExists(recordedSource_.c_str(), recordedTarget_.c_str(), 0) &&
      !AddJunctionRegKey(recordedSource_.c_str(), recordedTarget_.c_str(), 0))
    Log(line::kRecordNotAdded, source_, recordedTarget_);
  Abandon();
}

}  // namespace

bool MayRedirectFolderOntoVolume(const std::u16string& source, const std::u16string& volume) {
  const FolderOntoVolume redirection(source, volume, {});
  return AllHold({[&] { return redirection.MayRedirect(); }, [&] { return redirection.MayBeMounted(); }});
}

bool RedirectFolderOntoVolume(const std::u16string& source, const std::u16string& volume, CarriedAlong carried) {
  FolderOntoVolume redirection(source, volume, carried);
  try {
    return redirection.MayRedirect() && redirection.MountBesideSource() && redirection.MakeTarget() &&
           redirection.MoveContents() && redirection.PutInPlaceOfSource() && redirection.Record();
  } catch (const std::exception&) {
    LogWhereContentsAre(redirection.moved());
    return false;
  }
}

bool IsVolumeMountedAt(const std::u16string& source, const std::u16string& target, std::u16string& volume) {
  std::u16string mounted, named;
  if (!IsVolumeMountPoint(source.c_str(), &mounted)) return false;
  if (IsVolumePath(target.c_str()))
    named = target.ends_with(u'\\') ? target : target + u"\\";
  else if (!IsVolumeMountPoint(target.c_str(), &named))
    return false;
  if (!EqualPaths(named, mounted)) return false;
  volume = mounted;
  return true;
}

bool RemoveFolderFromVolume(const std::u16string& source, const std::u16string& target, const std::u16string& volume,
                            CarriedAlong carried) {
  FolderFromVolume removal(source, target, volume, carried);
  try {
    return removal.MayRemove() && removal.MakeFolderBesideSource() && removal.MoveContentsBack() &&
           removal.ForgetRecord() && removal.PutInPlaceOfMount();
  } catch (const std::exception&) {
    LogWhereContentsAre(removal.moved());
    return false;
  }
}
