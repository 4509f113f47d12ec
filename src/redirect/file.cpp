#include "redirect/file.h"

#include <exception>
#include <optional>
#include <vector>

#include "fsops/folders.h"
#include "fsops/kept_link.h"
#include "fsops/security.h"
#include "links/junction.h"
#include "links/link_data.h"
#include "links/presence.h"
#include "links/real_path.h"
#include "probes/service_pause.h"
#include "records/records.h"
#include "records/redirected_places.h"
#include "redirect/file_copy.h"
#include "redirect/file_rules.h"
#include "redirect/folder_steps.h"
#include "redirect/idle_service.h"
#include "report/lines.h"
#include "report/log.h"
#include "report/only_looks.h"
#include "report/outcome.h"
#include "report/progress.h"
#include "report/stop_request.h"
#include "text/path_text.h"
#include "win32/win32.h"

namespace {

void LogMetadataFailed(const std::u16string& from, const std::u16string& to) {
  LogWithSystemError(u"#ERROR: Unable to copy times, attributes and permissions from %ls to %ls. ", from, to);
}

bool LogNoTargetFolder(const std::u16string& folder, win32::DWORD error) {
  return LogFailure(u"#ERROR: Target directory '%ls' doesn't exists. Error: %d", folder, error);
}

// Nothing but folders is there of the target folder's path.
bool MayTargetFolderBeMade(const std::u16string& folder) {
  for (std::u16string above = folder; above.find(u'\\') != std::u16string::npos; above = ParentPath(above)) {
    const Look look = LookAt(above);
    if (look.IsGone()) continue;
    return look.IsDirectory() || LogNoTargetFolder(folder, win32::ERROR_FILE_EXISTS);
  }
  return true;
}

// One file on its way to its new place.
class FileRedirection {
 public:
  FileRedirection(const FilePlaces& places, int copyNtfsPermissions)
      : places_(places),
        copyNtfsPermissions_(copyNtfsPermissions),
        created_(places_.folder),
        replaced_(places_.realTarget) {}

  // The steps in their order. After one that answers false, TakeBack is due.
  bool MakeTargetFolder() const;
  bool HoldSource();
  bool Copy();
  bool LeaveLink();
  bool Record();

  // The file is at its new place for good. What a redirection of before had led to there is somebody's only copy, more
  // of this very file, it may be, than the source held.
  void Complete() {
    if (targetWasRecorded_)
      replaced_.Leave();
    else
      replaced_.Remove();
  }
  // Everything as it was, or the log says where the file is.
  void TakeBack();

 private:
  bool RemoveSource();
  bool CopyBack();
  bool PutBack(CopyBeside& back);

  const FilePlaces& places_;
  const int copyNtfsPermissions_;
  const CreatedFolders created_;
  KeptAside replaced_;
  HeldFile source_;
  SecurityBlock sourceSecurity_;
  std::vector<JunctionRecord> records_;
  // What has been done.
  bool copied_ = false, toldOfMove_ = false, sourceRemoved_ = false, linkMade_ = false;
  bool targetWasRecorded_ = false;
};

bool FileRedirection::MakeTargetFolder() const {
  const auto result = static_cast<win32::DWORD>(win32::SHCreateDirectoryExW(nullptr, places_.folder.c_str(), nullptr));
  if (DirectoryExists(places_.folder)) return true;
  return LogNoTargetFolder(places_.folder, result != win32::ERROR_SUCCESS ? result : win32::GetLastError());
}

// From here on nobody writes to the source until it is removed: the copy cannot be older than what is deleted.
bool FileRedirection::HoldSource() {
  if (IsInUse(places_.source) || AreOneFile(places_)) return false;
  if (!source_.Hold(places_.source)) {
    LogCopyFailed(places_.source, places_.realTarget);
    return false;
  }
  if (source_.facts().linkCount > 1)
    Log(u"#INFO: The file %ls has %u names. The others keep the file as it is now.", places_.source,
        source_.facts().linkCount);
  return true;
}

bool FileRedirection::Copy() {
  Progress progress(ProgressOf::Copying, {1, source_.facts().size});
  copied_ =
      replaced_.Keep() && CopyContents(places_.source, places_.realTarget, {.progress = &progress, .mayStop = true});
  if (!copied_) {
    LogCopyFailed(places_.source, places_.realTarget);
    return false;
  }
  if (CopyTimesAndAttributes(places_.source, places_.realTarget) &&
      (!copyNtfsPermissions_ || CopyOwnerAndDacl(places_.source, places_.realTarget)))
    return !IsStopRequested();  // from here on the file is at its new place, and then all that is left is quickly done
  LogMetadataFailed(places_.source, places_.realTarget);
  return false;
}

bool FileRedirection::LeaveLink() {
  if (RemoveSource() &&
      CreateSymbolicLinkEntry(places_.source.c_str(), places_.realTarget.c_str(), {.forceFileLink = true})) {
    linkMade_ = true;
    return true;
  }
  return LogFailure(line::kJunctionNotCreated, places_.source, places_.realTarget);
}

bool FileRedirection::RemoveSource() {
  if (!SaveSecurityInfo(places_.source, sourceSecurity_)) return false;
  Log(u"#INFO: The file %ls is now in %ls.", places_.source, places_.realTarget);
  toldOfMove_ = true;
  sourceRemoved_ = RemoveFile(places_.source);
  source_.LetGo();
  if (sourceRemoved_) WaitUntilGone(places_.source);
  return sourceRemoved_;
}

// Other records that name the source follow the file; the one of this pair, left by an earlier run, is right already.
bool FileRedirection::Record() {
  const bool allTold = ReadJunctionRecords(1, records_);
  if (!allTold ||
      !UpdateOtherJunctionRecords(places_.source, places_.realTarget, 1, {{}, places_.source, places_.realTarget})) {
    return LogFailure(line::kRecordsNotUpdated);
  }
  for (const JunctionRecord& record : records_)
    if (EqualPaths(record.target, places_.realTarget)) targetWasRecorded_ = true;
  if (JunctionRegKeyExists(places_.source.c_str(), places_.realTarget.c_str(), 1)) {
    Log(line::kRecordExists);
    return true;
  }
  if (AddJunctionRegKey(places_.source.c_str(), places_.realTarget.c_str(), 1)) return true;
  return LogFailure(line::kRecordNotAdded, places_.source, places_.realTarget);
}

// The copy at the target goes only when the source stands.
void FileRedirection::TakeBack() {
  source_.LetGo();
  if (sourceRemoved_ && !CopyBack()) {
    Log(u"#ERROR: The file stays in %ls.", places_.realTarget);
    return;
  }
  // The log has said that the file is there.
  if (toldOfMove_) Log(u"#INFO: The file %ls is back in its place.", places_.source);
  if (linkMade_ && !RestoreJunctionRecords(records_)) Log(line::kRecordsNotUpdated);
  if (copied_ && !RemoveFile(places_.realTarget)) LogWithSystemError(line::kFileNotRemoved, places_.realTarget);
  replaced_.PutBack();
  created_.RemoveIfEmpty();
}

// A link that was made stands until the whole file is beside it.
bool FileRedirection::CopyBack() {
  CopyBeside back(places_.source);
  const bool made = back.Make(places_.realTarget);
  if (made) {
    const bool sameTimes = CopyTimesAndAttributes(places_.realTarget, back.path());
    if (!sameTimes) LogMetadataFailed(places_.realTarget, places_.source);
    if (!WriteSecurityInfo(back.path(), sourceSecurity_) && sameTimes)
      LogMetadataFailed(places_.realTarget, places_.source);
    if (PutBack(back)) {
      // What a power failure could still take from the source stays at the target.
      if (!back.IsOnDisk()) {
        LogWithSystemError(line::kFileNotRemoved, places_.realTarget);
        copied_ = false;
      }
      return true;
    }
  }
  const win32::DWORD error = win32::GetLastError();
  if (made) back.Remove();
  return LogFailure(u"#ERROR: Unable to copy back file from Source = %ls and Target = %ls. Error: %d", places_.source,
                    places_.realTarget, error);
}

bool FileRedirection::PutBack(CopyBeside& back) {
  if (linkMade_ && !RemoveFile(places_.source)) {
    const win32::DWORD error = win32::GetLastError();
    LogWithSystemError(u"#ERROR: Unable to delete Symbolic Link %ls. ", places_.source);
    win32::SetLastError(error);
    return false;
  }
  if (linkMade_) WaitUntilGone(places_.source);
  return back.PutInPlace();
}

// One file on its way back.
class FileRemoval {
 public:
  // The pair as it is recorded; where it is not, as the command names it.
  explicit FileRemoval(const JunctionRecord& pair)
      : pair_(pair), source_(AsStored(pair.source)), target_(pair.target) {}

  // Nothing has changed when one of these says no.
  bool MayRemove() const;
  bool HoldTarget();
  // After one that answers false, PutLinkBack is due.
  bool CopyBack();
  bool ForgetRecord() const;
  void PutLinkBack() const;

 private:
  bool LinkLeadsToTarget() const;
  bool LeadsThroughNoOther() const;
  bool ReplaceLink(CopyBeside& back);

  const JunctionRecord pair_;
  const std::u16string source_, target_;
  HeldFile held_;
  KeptLink link_;
  // What has been done.
  bool linkRemoved_ = false, isBack_ = false;
};

// A link that somebody has made anew since leads elsewhere, and is not this program's.
bool FileRemoval::LinkLeadsToTarget() const {
  const std::optional<FileFacts> reached = FactsOf(source_, LastLink::Followed);
  const std::optional<FileFacts> target = FactsOf(target_, LastLink::Followed);
  return reached && target && reached->IsSameFileAs(*target);
}

bool FileRemoval::MayRemove() const {
  if (!AreThere(source_, target_)) return false;
  if (!IsSymbolicLink(source_.c_str()))
    return LogFailure(u"#ERROR: Symbolic Link doesn't exists for Source = %ls.", source_);
  if (FindJunctionRegKey(pair_.source.c_str(), target_.c_str(), 1).empty() || !LinkLeadsToTarget())
    return LogFailure(u"#ERROR: Symbolic Link wasn't created by Quillbay for Source = %ls and Target = %ls.", source_,
                      target_);
  return LeadsThroughNoOther();
}

// Of a file that was redirected and then redirected on from there, the last redirection is removed first: the link in
// the middle would lead nowhere, and nothing could bring it back in order.
bool FileRemoval::LeadsThroughNoOther() const {
  const std::u16string leadsTo = SymbolicLinkText(source_);
  for (const JunctionRecord& record : SaveJunctionRecords(1)) {
    // The link may lead to the end of the way by now: it is made anew when the folder around it moves.
    const bool isLater = EqualPaths(record.target, target_) && NumberOf(record) > NumberOf(pair_);
    const bool between = EqualPaths(record.source, leadsTo) || EqualPaths(record.source, target_) || isLater;
    if (!between || EqualPaths(record.source, source_) || !IsSymbolicLink(record.source.c_str())) continue;
    return LogFailure(
        u"#ERROR: Symbolic Link %ls leads through another redirection, Source = %ls and Target = %ls. Remove that one "
        u"first.",
        source_, record.source, record.target);
  }
  return true;
}

// Who has the file open for writing would go on writing to what is deleted.
bool FileRemoval::HoldTarget() {
  if (held_.Hold(target_)) return true;
  const win32::DWORD error = win32::GetLastError();
  if (error == win32::ERROR_SHARING_VIOLATION || error == win32::ERROR_LOCK_VIOLATION)
    Log(u"#ERROR: (Target) %ls - File is locked.", target_);
  else
    LogCopyFailed(source_, target_);
  return false;
}

bool FileRemoval::CopyBack() {
  Log(u"#INFO: The file %ls is in %ls until it is back in its place.", source_, target_);
  CopyBeside back(source_);
  Progress progress(ProgressOf::Copying, {1, held_.facts().size});
  if (!back.Make(target_, {.progress = &progress, .mayStop = true})) {
    LogCopyFailed(source_, target_);
    return false;
  }
  if (!CopyTimesAndAttributes(target_, back.path()) || !CopyOwnerAndDacl(target_, back.path())) {
    LogMetadataFailed(target_, source_);
    back.Remove();
    return false;
  }
  if (IsStopRequested()) {
    back.Remove();
    return false;
  }
  if (!ReplaceLink(back)) {
    LogCopyFailed(source_, target_);
    back.Remove();
    return false;
  }
  Log(u"#INFO: The file %ls is back in its place.", source_);
  if (!back.IsOnDisk() || !RemoveFile(target_)) LogWithSystemError(line::kFileNotRemoved, target_);
  held_.LetGo();
  return true;
}

bool FileRemoval::ReplaceLink(CopyBeside& back) {
  linkRemoved_ = link_.Keep(source_, /*isDirectory=*/false) && RemoveFile(source_);
  if (!linkRemoved_) return false;
  WaitUntilGone(source_);
  isBack_ = back.PutInPlace();
  return isBack_;
}

bool FileRemoval::ForgetRecord() const {
  if (!DeleteRegKey(pair_.source.c_str(), target_.c_str(), 1))
    return LogFailure(u"#ERROR: Unable to remove Symbolic Link from Registry for Source = %ls and Target = %ls.",
                      source_, target_);
  if (UpdateOtherJunctionRecords(target_, source_, 1, pair_)) return true;
  return LogFailure(u"#ERROR: Unable to update redirected file path in registry.");
}

// A file that is complete at its old place is never deleted for a link.
void FileRemoval::PutLinkBack() const {
  if (!linkRemoved_ || (!isBack_ && link_.PutBack())) return;
  Log(u"#ERROR: Unable to re-create symlink for Source = %ls and Target = %ls.", source_, target_);
  Log(u"#INFO: The file is complete in %ls.", isBack_ ? source_ : target_);
}

bool RedirectFileToFolder(const FilePlaces& places, int copyNtfsPermissions, ServicePause& service) {
  if (!MayBeRedirected(places)) return false;
  FileRedirection redirection(places, copyNtfsPermissions);
  bool redirected = redirection.MakeTargetFolder() && MayGoThere(places);
  if (redirected) {
    service.Begin();
    redirected = redirection.HoldSource() && redirection.Copy() && redirection.LeaveLink() && redirection.Record();
  }
  if (redirected)
    redirection.Complete();
  else
    redirection.TakeBack();
  return redirected;
}

// The given target is the file as it is recorded or named; otherwise it is the folder.
JunctionRecord PairOf(const std::u16string& source, const std::u16string& target) {
  if (const std::optional<JunctionRecord> record = FindRecord(source, target, 1)) return *record;
  const bool namesFile = EqualPaths(LastComponent(source), LastComponent(target));
  return {{}, source, namesFile && !DirectoryExists(target) ? target : JoinPath(target, LastComponent(source))};
}

bool RemoveFileFromFolder(const char16_t* source, const char16_t* target, ServicePause& service) {
  FileRemoval removal(PairOf(AsStored(source), target));
  if (!removal.MayRemove()) return false;
  service.Begin();
  if (!removal.HoldTarget()) return false;
  if (removal.CopyBack() && removal.ForgetRecord()) return true;
  removal.PutLinkBack();
  return false;
}

int RemoveFileAndSay(const char16_t* source, const char16_t* target) try {
  if (!MayBegin(source, target, line::kPathMissingForRemoval)) return 1;
  ServicePause service(ServicePause::kQuillbay);
  const int result = RemoveFileFromFolder(source, target, service) ? Succeed(StringId::FileRemovalDone)
                                                                   : Fail(StringId::FileRemovalFailed);
  service.End();
  StopServiceWithoutWork();
  return result;
} catch (const std::exception&) {
  return Fail(StringId::FileRemovalFailed);
}

}  // namespace

bool MayRedirectFile(const char16_t* source, const char16_t* target) {
  if (!source || !target) return MayBegin(source, target, line::kPathMissing);
  const FilePlaces places(source, target);
  const auto isFree = [&] {
    return !IsInUse(places.source) && (!DirectoryExists(places.folder) || !AreOneFile(places));
  };
  return AllHold({[&] { return MayBegin(source, target, line::kPathMissing); }, [&] { return MayBeRedirected(places); },
                  [&] { return MayTargetFolderBeMade(places.folder); }, [&] { return MayGoThere(places); }, isFree});
}

int RedirectFile(const char16_t* source, const char16_t* target, int copyNtfsPermissions) try {
  if (!MayBegin(source, target, line::kPathMissing)) return 1;
  ServicePause service(ServicePause::kQuillbay);
  return RedirectFileToFolder({source, target}, copyNtfsPermissions, service) ? Succeed(StringId::FileRedirected)
                                                                              : Fail(StringId::FileRedirectionFailed);
} catch (const std::exception&) {
  return Fail(StringId::FileRedirectionFailed);
}

int RemoveFileRedirection(const char16_t* source, const char16_t* target) {
  Log(u"RemoveFileRedirection - ENTER");
  const int result = RemoveFileAndSay(source, target);
  Log(u"RemoveFileRedirection - EXIT");
  return result;
}
