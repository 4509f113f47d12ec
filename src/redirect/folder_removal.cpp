#include "redirect/folder_removal.h"

#include <map>
#include <optional>
#include <utility>
#include <vector>

#include "fsops/folders.h"
#include "fsops/move_tree.h"
#include "fsops/shares.h"
#include "links/junction.h"
#include "links/presence.h"
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
        carried_(carried) {}

  // Nothing has changed when this says no.
  bool MayRemove() const;
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

 private:
  void PutJunctionBack() const;
  bool LeadBack(const std::u16string& junction) const;

  const std::u16string source_, target_;
  const bool isRecorded_;
  const CarriedAlong carried_;
  MoveRecord moved_;
  std::u16string junctionTarget_;
};

bool FolderRemoval::MayRemove() const {
  if (!AreThere(source_, target_)) {
    if (isRecorded_ && IsGone(source_)) TellIfRemovalWasCutOff(source_, target_);
    return false;
  }
  if (isRecorded_) return NoFileLinksLeadInto(target_);
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

// The records are read before and after they are rewritten: what one reading does not tell, the other may.
bool FolderRemoval::UpdateNested() const {
  std::map<std::u16string, std::u16string> junctions;
  const auto note = [&](const std::vector<JunctionRecord>& records) {
    for (const JunctionRecord& record : records)
      if (IsSameOrBelow(record.target, target_) || IsSameOrBelow(record.target, source_))
        junctions[ReplaceFolder(record.source, target_, source_)] = ReplaceFolder(record.target, target_, source_);
  };
  std::vector<JunctionRecord> records = SaveJunctionRecords(0);
  note(records);
  bool all = UpdateRecords(target_, source_, records);
  note(records);
  // A file that was redirected from within, by this path.
  if (!UpdateOtherJunctionRecords(target_, source_, 1, {})) all = LogFailure(line::kRecordsNotUpdated);
  for (const auto& [junction, contents] : junctions)
    if (!LeadBack(junction)) {
      Log(line::kJunctionNotCreated, junction, contents);
      all = false;
    }
  return all;
}

// The junction of another redirection, whose contents lie in this one's, led into the target, or to where the junction
// at the source led: nothing is there any more.
bool FolderRemoval::LeadBack(const std::u16string& junction) const {
  const Look look = LookAt(junction);
  if (!look.IsThere()) return look.IsGone();
  if (!look.IsReparsePoint()) return true;
  std::u16string text;
  if (!GetJunctionTarget(junction.c_str(), text)) return false;
  for (const std::u16string& emptied : {target_, junctionTarget_})
    if (IsSameOrBelow(text, emptied))
      return ChangeJunctionTarget(junction.c_str(), ReplaceFolder(text, emptied, source_).c_str()) != 0;
  return true;
}

bool FolderRemoval::MoveSharesOfTarget() const { return !carried_.shares || MoveShares(target_, source_); }

void FolderRemoval::RemoveEmptyTarget() const {
  if (!RemoveEmptyFolder(target_)) LogWithSystemError(u"#INFO: The folder %ls could not be removed. ", target_);
}

// To where it led: not always the recorded target, which follows when data moves, while the junction may lead there
// through another one.
void FolderRemoval::PutJunctionBack() const {
  if (!CreateJunction(source_.c_str(), junctionTarget_.c_str()))
    Log(line::kJunctionNotCreated, source_, junctionTarget_);
}

}  // namespace

bool RemoveFolderFromFolder(const std::u16string& source, const std::u16string& target, CarriedAlong carried) {
  // The location may be the folder in which the contents' folder was made as well as that folder itself.
  const std::optional<JunctionRecord> record = FindRecord(source, target, 0);
  FolderRemoval removal(record ? *record : JunctionRecord{{}, source, target}, carried);
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
