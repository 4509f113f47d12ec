#include "profiles/profile_move.h"

#include <algorithm>
#include <exception>
#include <vector>

#include "fsops/folders.h"
#include "fsops/file_list.h"
#include "fsops/move_tree.h"
#include "links/mounted_folder.h"
#include "links/presence.h"
#include "links/real_path.h"
#include "profiles/profile_folders.h"
#include "profiles/profiles_location.h"
#include "profiles/user_hive.h"
#include "records/redirected_places.h"
#include "report/console.h"
#include "report/lines.h"
#include "report/log.h"
#include "report/only_looks.h"
#include "text/path_text.h"
#include "validate/closed_items.h"
#include "validate/path_rules.h"
#include "validate/relations.h"
#include "validate/validate.h"

namespace {

// The folder with the hive is the one that Windows can log the user on with.
bool HoldsHive(const std::u16string& folder) { return PathExists(JoinPath(folder, u"NTUSER.DAT")); }

// A command that was cut off while the two folders changed places left the profile beside its own.
void TellIfCutOff(const std::u16string& folder) {
  if (PathExists(folder)) return;
  for (const char16_t* const suffix : {u".mount", u".temp"})
    if (const std::u16string beside = folder + suffix; PathExists(beside))
      Log(u"#INFO: A redirection of the User Profile %ls was interrupted. The profile is in %ls: rename this folder to "
          u"the first one.",
          folder, beside);
}

}  // namespace

ProfileMove::ProfileMove(const UserProfile& profile, const std::u16string& target, const ProfileMoveFlags& flags)
    : profile_(profile),
      target_(target),
      flags_(flags),
      place_(profile.folder, target),
      records_(profile, place_.path()) {}

bool ProfileMove::Run() {
  try {
    // What a volume holds is told by the folder that it is mounted on.
    if (IsAllowed() && IsNoRedirectedData() && place_.Mount() && IsNobodyElses() && List() && place_.Make() &&
        MayMove() && place_.BecomeLikeProfile(!flags_.carried.ntfsPermissions, flags_.backToDefault) &&
        MoveContents() && Follow() && RestoreSecurity() && place_.TakeFormerPlace()) {
      contentsMoved_ = false;  // nothing to take back any more
      Finish();
      return true;
    }
  } catch (const std::exception&) {
    Log(u"#ERROR: The User Profile %ls could not be moved to %ls.", profile_.folder, place_.path());
  }
  TakeBack();
  return false;
}

bool ProfileMove::MayRun() {
  return AllHold({[this] { return IsAllowed(); }, [this] { return IsNoRedirectedData(); },
                  [this] { return place_.MayBeMade(); }, [this] { return IsNobodyElses(); }, [this] { return List(); },
                  [this] { return MayMove(); }});
}

// What can be told before anything is made.
bool ProfileMove::IsAllowed() const {
  if (!IsOrdinaryPath(profile_.folder) || !(place_.IsVolume() || IsOrdinaryPath(target_)) ||
      !HasAllowedLength(place_.path()) || !IsOnADrive())
    return false;
  if (!place_.KeepsPath() && IsShortNameOfAnother(place_.path()))
    return LogFailure(line::kNameTaken, profile_.folder, place_.path());
  // The way home would be refused from there.
  return place_.IsVolume() ||
         (!IsSystemFolder(place_.path().c_str(), {.quiet = true}) && IsOutsideSystemFolders(place_.path()));
}

// Nothing of it is another redirection's.
bool ProfileMove::IsNoRedirectedData() const {
  if (!MayProfileLeave(profile_.folder) || !MayComeTo(profile_.folder, place_.path(), Comes::Profile)) return false;
  return !place_.IsVolume() || MayComeTo(profile_.folder, target_, Comes::Profile);
}

// A network path, or a relative one, could not even be made; the rules say what it is.
bool ProfileMove::IsOnADrive() const {
  const std::u16string& path = place_.path();
  if (place_.IsVolume() || (path.size() > 2 && path[1] == u':' && path[2] == u'\\')) return true;
  ValidateTargetPath(path.c_str());
  return LogFailure(line::kPreScanningFailed, profile_.folder, path);
}

// Two profiles in one folder would overwrite each other, and one that holds another would take it along.
bool ProfileMove::IsNobodyElses() const {
  std::vector<UserProfile> others;
  if (!ReadOtherProfiles(profile_, others)) return false;
  for (const UserProfile& other : others) {
    const std::u16string folder = DriveForm(other.folder);
    // An entry without a hive, above this profile, is what is left of one.
    const bool isLeftover = other.hiveState == kHiveMissing && !EqualPaths(folder, profile_.folder) &&
                            IsReallySameOrBelow(profile_.folder, folder);
    if (AreApart(place_.path(), folder) && (isLeftover || AreApart(profile_.folder, folder))) continue;
    return LogFailure(u"#ERROR: The folder %ls holds another User Profile. Browse to a different location.",
                      other.folder);
  }
  return true;
}

bool ProfileMove::List() {
  const ImpersonatedCaller caller;
  TreeListing listing;
  if (GetFileList(profile_.folder, listing, caller.token(), savedSecurity_)) return true;
  Log(line::kNoListing, profile_.folder);
  TellIfCutOff(profile_.folder);
  return false;
}

// What could refuse once the contents have moved is asked now.
bool ProfileMove::MayMove() {
  const bool carriesOn = place_.KeepsPath();
  if (!AllHold({[this] { return IsFitForIt(); },
                [this] { return place_.HoldsNothingOfOthers(profile_.sid, flags_.carried.ntfsPermissions); },
                [&] { return carriesOn || records_.CanFollow(); },
                // The way home is open for a profile whose hive has been damaged since; the log then tells.
                [&] { return carriesOn || flags_.backToDefault || CanRewriteWallpaper(profile_); }}))
    return false;
  if (!place_.KeepsPath() && !flags_.backToDefault) TellIfOnOneVolume(profile_.folder, place_.path());
  return true;
}

bool ProfileMove::IsFitForIt() {
  const std::u16string standIn = OnlyLooks::Current() ? place_.StandIn() : std::u16string();
  const bool isMade = standIn.empty() || (!place_.IsVolume() && place_.StoodThere());
  if (ValidateRedirectionPaths(profile_.folder.c_str(), place_.path().c_str(),
                               {.excludeMountedVolume = place_.IsVolume(),
                                .quietSystemFolder = flags_.backToDefault,
                                .stopMediaSharing = true,
                                .standIn = isMade ? nullptr : standIn.c_str()}))
    return true;
  return LogFailure(line::kPreScanningFailed, profile_.folder, place_.path());
}

bool ProfileMove::MoveContents() {
  if (place_.StoodThere() || place_.IsVolume()) Say(StringId::TargetExists, place_.path());
  Log(u"#INFO: Going to move files and folders from Source = %ls to Target = %ls.", profile_.folder, place_.path());
  const MoveFlags flags{.carried = flags_.carried, .copyOnly = place_.KeepsPath(), .keepInheritedAces = true};
  contentsMoved_ = MoveDirectoryTree(profile_.folder, place_.path(), flags, moved_) != 0;
  if (!contentsMoved_) Log(line::kMoveFailed, profile_.folder, place_.path());
  return contentsMoved_;
}

bool ProfileMove::Follow() { return place_.KeepsPath() || records_.Follow(); }

bool ProfileMove::RestoreSecurity() const {
  if (RestoreRemovedSecurityInfo(savedSecurity_, profile_.folder.c_str(), place_.path().c_str())) return true;
  return LogFailure(line::kSecurityNotRestored, place_.path());
}

// What is left to do when the profile is in its place. Should one of these fail, the log tells.
void ProfileMove::Finish() const {
  place_.CloseWhatStoodThere();
  if (!place_.KeepsPath() && !flags_.backToDefault) TellWhoMayReplace(ParentPath(place_.path()));
  if (!place_.KeepsPath() && flags_.carried.shares) MoveShares(profile_.folder, place_.path());
  place_.LeaveFormerVolume();
  // Of a profile that is home again nothing need stay elsewhere.
  if (flags_.backToDefault && !place_.KeepsPath()) RemoveEmptyFolder(profile_.folder);
}

// What could not be brought back stays where the log says that it is: a volume that holds it stays mounted there.
void ProfileMove::TakeBack() noexcept try {
  if (contentsMoved_) records_.TakeBack();
  if (contentsMoved_ && place_.MakeFormerFolderAgain()) UndoMove(moved_);
  RestoreRemovedSecurityInfo(savedSecurity_);
  const bool stayed = SomethingStayed();
  if (stayed) {
    RestoreRemovedSecurityInfo(savedSecurity_, profile_.folder.c_str(), place_.path().c_str());
    Log(u"#ERROR: The User Profile, or a part of it, stays in %ls.", place_.path());
  }
  if (stayed && HoldsHive(place_.path()) && !HoldsHive(profile_.folder))
    records_.NameNewFolder();
  else if (contentsMoved_)
    records_.NameOldFolder();
  if (!stayed) place_.TakeAway();
  if (!stayed && !HoldsHive(profile_.folder) && HoldsHive(place_.path()))
    Log(u"#INFO: A redirection of the User Profile %ls was interrupted. What is missing there is in %ls.",
        profile_.folder, place_.path());
} catch (const std::exception&) {
  Log(u"#ERROR: The User Profile is in %ls, in %ls, or partly in both.", profile_.folder, place_.path());
}

bool ProfileMove::SomethingStayed() const {
  if (moved_.outcome == MoveOutcome::NothingDone || moved_.outcome == MoveOutcome::Undone) return false;
  return std::ranges::any_of(moved_.items, [](const CopiedItem& item) {
    return item.complete && !PathExists(item.source.path) && PathExists(item.target);
  });
}
