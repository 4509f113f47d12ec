#include "redirect/folder_removal.h"

#include <exception>
#include <optional>
#include <utility>
#include <vector>

#include "fsops/folders.h"
#include "fsops/kept_link.h"
#include "fsops/move_tree.h"
#include "fsops/shares.h"
#include "links/junction.h"
#include "links/presence.h"
#include "records/folder_followers.h"
#include "records/records.h"
#include "records/redirected_places.h"
#include "redirect/folder_steps.h"
#include "report/lines.h"
#include "report/log.h"
#include "text/path_text.h"
#include "validate/path_rules.h"
#include "validate/validate.h"

namespace {

// One folder on its way back.
class FolderRemoval {
 public:
  // `record` as it is found; without one, the pair as the command names it.
  FolderRemoval(JunctionRecord record, CarriedAlong carried)
      : source_(std::move(record.source)),
        target_(std::move(record.target)),
        isRecorded_(!record.subkey.empty()),
        followers_(target_, source_),
        carried_(carried) {}

  // Nothing has changed when this says no.
  bool MayRemove();
  // Each leaves the redirection as it was when it answers false, or the log says what could not be put back.
  bool TakeJunctionAway();
  bool MoveContentsBack();
  bool ForgetRecord();

  // The rest, once the redirection is no more. What one of these cannot do stays undone, and the log names it.
  // Redirections inside this one follow: their records, and the junctions that led into the target.
  bool UpdateNested() const;
  // The shares of the folder that is about to go.
  bool MoveSharesOfTarget() const;
  void RemoveEmptyTarget() const;

  // The record of the move, for who has to tell where the contents are.
  const MoveRecord& moved() const { return moved_; }

 private:
  void PutJunctionBack() const;

  const std::u16string source_, target_;
  const bool isRecorded_;
  FolderFollowers followers_;
  const CarriedAlong carried_;
  MoveRecord moved_;
  std::u16string junctionTarget_;
  KeptLink junction_;
};

bool FolderRemoval::MayRemove() {
  if (!AreThere(source_, target_)) {
    if (isRecorded_ && IsGone(source_)) TellIfRemovalWasCutOff(source_, target_);
    return false;
  }
  if (isRecorded_) return followers_.Note();
  Log(line::kNoJunction, source_, target_);
  for (const std::u16string& path : {source_, target_})
    if (IsExtendedDrivePath(path)) Log(line::kInvalidPath, path);
  return false;
}

bool FolderRemoval::TakeJunctionAway() {
  if (!GetJunctionTarget(source_.c_str(), junctionTarget_)) {
    Log(line::kJunctionTargetUnknown);
    TellIfRemovalWasCutOff(source_, target_);
    return false;
  }
  if (!junction_.Keep(source_, /*isDirectory=*/true)) return LogSystemFailure(line::kItselfNotRead, source_);
  if (IsVolumeMount(junction_.data()))
    return LogFailure(
        u"#ERROR: A volume is mounted on the folder %ls, where the junction to %ls was. Unmount it, make the junction "
        u"again, and remove the redirection again.",
        source_, target_);
  if (!DeleteJunction(source_.c_str())) return LogFailure(u"#ERROR: Unable to delete Junction. path = %ls.", source_);
  return true;
}

bool FolderRemoval::MoveContentsBack() {
  if (!ValidateRedirectionPaths(target_.c_str(), source_.c_str(), {.sourceIsRedirectedProfile = true})) {
    Log(line::kPreScanningFailed, source_, target_);
    PutJunctionBack();
    return false;
  }
  // What stood in the junction's place is an empty folder that only kept the place: the target's root comes back as
  // well.
  if (!MoveDirectoryTree(target_, source_, {.carried = carried_, .targetIsNew = true}, moved_)) {
    Log(line::kMoveFailed, source_, target_);
    PutJunctionBack();
    return false;
  }
  return true;
}

bool FolderRemoval::ForgetRecord() {
  if (!DeleteRegKey(source_.c_str(), target_.c_str(), 0)) {
    Log(line::kRecordNotRemoved, source_, target_);
    if (UndoMove(moved_))
      PutJunctionBack();
    else
      Log(line::kOthersStay, target_, source_);
    return false;
  }
  return true;
}

bool FolderRemoval::UpdateNested() const {
  std::vector<JunctionRecord> records;
  const bool recordsUpdated = UpdateRecords(target_, source_, records);
  return followers_.Lead() && recordsUpdated;
}

bool FolderRemoval::MoveSharesOfTarget() const { return !carried_.shares || MoveShares(target_, source_); }

void FolderRemoval::RemoveEmptyTarget() const {
  if (!RemoveEmptyFolder(target_)) LogWithSystemError(u"#INFO: The folder %ls could not be removed. ", target_);
}

// As it was: it does not always lead to the recorded target, which follows when data moves, while the junction may lead
// there through another one. The folder that it is has been given what the target has of its own.
void FolderRemoval::PutJunctionBack() const {
  if (!junction_.PutBack()) Log(line::kJunctionNotCreated, source_, junctionTarget_);
}

bool Remove(FolderRemoval& removal, const std::u16string& source) {
  if (!removal.MayRemove() || !removal.TakeJunctionAway() || !removal.MoveContentsBack() || !removal.ForgetRecord())
    return false;
  const bool nestedUpdated = removal.UpdateNested();
  // A share of the folder keeps the folder.
  const bool sharesMoved = removal.MoveSharesOfTarget();
  if (sharesMoved) removal.RemoveEmptyTarget();
  if (nestedUpdated && sharesMoved) return true;
  return LogFailure(u"#INFO: The files and folders are back in %ls, and the redirection is no longer recorded.",
                    source);
}

}  // namespace

bool RemoveFolderFromFolder(const std::u16string& source, const std::u16string& target, CarriedAlong carried) {
  // The location may be the folder in which the contents' folder was made as well as that folder itself.
  const std::optional<JunctionRecord> record = FindRecord(source, target, 0);
  FolderRemoval removal(record ? *record : JunctionRecord{{}, source, target}, carried);
  try {
    return Remove(removal, source);
  } catch (const std::exception&) {
    LogWhereContentsAre(removal.moved());
    return false;
  }
}
