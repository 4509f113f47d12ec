#include "profiles/profile_place.h"

#include "fsops/backup_copy.h"
#include "fsops/folders.h"
#include "fsops/security.h"
#include "fsops/volume_root.h"
#include "links/mounted_folder.h"
#include "links/presence.h"
#include "links/real_path.h"
#include "profiles/profiles_location.h"
#include "profiles/recorded_home.h"
#include "report/debugger.h"
#include "report/lines.h"
#include "report/log.h"
#include "report/only_looks.h"
#include "text/path_text.h"
#include "validate/validate.h"
#include "win32/win32.h"

namespace {

constexpr std::u16string_view kMountSuffix = u".mount";
constexpr std::u16string_view kTemporarySuffix = u".temp";

std::u16string MountedVolume(const std::u16string& folder) {
  std::u16string volume;
  return IsVolumeMountPoint(folder.c_str(), &volume) ? volume : std::u16string();
}

}  // namespace

ProfilePlace::ProfilePlace(const std::u16string& folder, const std::u16string& target)
    : folder_(folder),
      volume_(IsVolumePath(target.c_str()) ? target + (target.ends_with(u'\\') ? u"" : u"\\") : std::u16string()),
      formerVolume_(MountedVolume(folder)),
      side_(folder, IsVolume() ? kMountSuffix : kTemporarySuffix),
      keepsPath_(IsVolume() || (!formerVolume_.empty() && EqualPaths(RealTargetOf(folder, target), folder))),
      path_(keepsPath_ ? side_.path() : RealTargetOf(folder, target)),
      created_(path_) {}

bool ProfilePlace::Mount() {
  if (IsVolume()) return MountBesideProfile();
  // Everything in the place becomes the profile's.
  if (!IsGathered() || side_.IsFreeFor(formerVolume_)) return true;
  return LogFailure(line::kNotEmpty, path_);
}

// A run that was cut off may have left the volume mounted there: then this one goes on with what that began.
bool ProfilePlace::MountBesideProfile() {
  if (!ValidateProfileVolume(volume_.c_str(), path_.c_str())) return false;
  stoodThere_ = PathExists(path_);
  const bool mountedBefore = stoodThere_ && IsMountedOn(path_, volume_);
  if (mountedBefore) return true;
  if (IsUsableMount() && MakeFolder(path_) != FolderMade::Failed) mountedHere_ = MountVolume(path_, volume_);
  if (mountedHere_ && IsMountedOn(path_, volume_)) return true;
  return LogFailure(line::kVolumeNotMounted, path_);
}

bool ProfilePlace::IsUsableMount() const { return !stoodThere_ || IsEmptyPlainFolder(path_); }

bool ProfilePlace::MayBeMade() {
  stoodThere_ = PathExists(path_);
  if (IsVolume()) {
    if (!ValidateProfileVolume(volume_.c_str(), path_.c_str())) return false;
    return IsUsableMount() || IsMountedOn(path_, volume_) || LogFailure(line::kVolumeNotMounted, path_);
  }
  if (IsGathered()) return side_.IsFreeFor(formerVolume_) || LogFailure(line::kNotEmpty, path_);
  if (stoodThere_) return true;
  OnlyLooks::Current()->Leave(u"Whether the folder that the profile goes to can be made.");
  constexpr win32::DWORD kAddFolder = win32::FILE_APPEND_DATA;  // of a folder
  const std::u16string above = NearestFolder(path_);
  return (DirectoryExists(above) && HasAccess(ImpersonatedCaller().token(), above, kAddFolder)) ||
         LogFailure(line::kTargetFolderNotCreated, path_);
}

std::u16string ProfilePlace::StandIn() const { return IsVolume() ? volume_ : NearestFolder(path_); }

bool ProfilePlace::Make() {
  std::u16string home;
  if (!keepsPath_ && (!ReadProfilesHome(home) || !MakeProfilesLocation(ParentPath(path_), home))) return false;
  // Closed from the beginning: nobody gets hold of the folder while it is open to him.
  const FolderMade made = MakeFolder(
      path_, keepsPath_ ? FolderDescriptor() : OpenToAdministrators(ProtectedDescriptor(ReadDescriptor(folder_))));
  if (!IsVolume()) stoodThere_ = made == FolderMade::StoodThere;
  if (made != FolderMade::Failed && (!stoodThere_ || before_.Save(path_)) &&
      (!IsGathered() || side_.NoteFillingFrom(formerVolume_))) {
    OpenLeftFolder();
    return true;
  }
  return LogFailure(line::kTargetFolderNotCreated, path_);
}

// An empty folder that a profile has left lets in whom the profile lets in, and that may be nobody but its user.
void ProfilePlace::OpenLeftFolder() const {
  if (stoodThere_ && IsEmptyPlainFolder(path_) && !HasAccess(ImpersonatedCaller().token(), path_, kFullControl))
    GrantEveryoneAndAdministrators(path_);
}

bool ProfilePlace::HoldsNothingOfOthers(const std::u16string& user, bool ntfsPermissions) {
  return keepsPath_ || !stoodThere_ || standing_.Examine(path_, folder_, user, ntfsPermissions);
}

bool ProfilePlace::BecomeLikeProfile(bool descriptorOnly, bool isHome) {
  descriptor_ = ReadDescriptor(folder_);
  if (!formerVolume_.empty()) {
    // Of the folder itself nobody saw more than the root of the volume.
    FolderDescriptor changed = ChangedRootSecurity(folder_, formerVolume_);
    if (!changed.empty()) descriptor_ = std::move(changed);
  }
  if (!keepsPath_) {
    descriptor_ = ProtectedDescriptor(descriptor_);
    const FolderDescriptor& own = before_.descriptor();
    if (isHome && SayTheSame(ProtectedDescriptor(own), descriptor_)) descriptor_ = own;
  }
  const bool wholly = keepsPath_ || (!stoodThere_ && !descriptorOnly);
  if (!descriptor_.empty() && (!wholly || BackupCopyFolderItself(folder_, path_)) &&
      WriteDescriptor(path_, descriptor_)) {
    if (!IsVolume()) return true;
    lent_ = LendSecurityToRoot(path_, volume_);
    if (lent_) return true;
  }
  return LogFailure(u"#ERROR: Unable to give the folder %ls the security of %ls.", path_, folder_);
}

bool ProfilePlace::TakeFormerPlace() {
  if (!keepsPath_) return true;
  if (!IsVolume() && !CopyFileTimesAndAttributes(folder_, path_, {.isReparsePoint = true})) {
    return LogFailure(line::kTimesNotCopied, folder_);
  }
  if (!formerVolume_.empty() && !UnmountVolume(folder_)) return LogSystemFailure(line::kVolumeNotUnmounted, folder_);
  if (!RemoveEmptyFolder(folder_)) return LogSystemFailure(line::kFolderNotRemoved, folder_);
  return RenameToFormerPlace();
}

// Renamed or not at all. The shell, asked to move what cannot be renamed, would copy it item by item: without its
// security, and off the volume that is mounted there.
bool ProfilePlace::RenameToFormerPlace() const {
  if (win32::MoveFileW(path_.c_str(), side_.place().c_str())) return true;
  TellDebugger(u"****Move File Failed...trying to rename again.");
  win32::Sleep(2000);
  return Rename(path_, side_.place());
}

bool ProfilePlace::MakeFormerFolderAgain() const {
  if (!keepsPath_) return true;
  const bool made =
      PathExists(folder_) || (MakeFolderLike(side_.place(), path_) && WriteDescriptor(side_.place(), descriptor_));
  if (made && (formerVolume_.empty() || IsMountedOn(folder_, formerVolume_) || MountVolume(folder_, formerVolume_)))
    return true;
  return LogFailure(u"#ERROR: Unable to make folder %ls again.", folder_);
}

void ProfilePlace::Unmount() const {
  if (lent_) GiveRootItsOwnSecurity(volume_);
  if (mountedHere_ && IsMountedOn(path_, volume_) && !UnmountVolume(path_))
    LogWithSystemError(line::kVolumeNotUnmounted, path_);
}

void ProfilePlace::TakeAway() const {
  if (IsVolume()) Unmount();
  if (!stoodThere_)
    created_.RemoveIfEmpty();
  else if (!before_.Restore())
    Log(line::kItselfNotRestored, path_);
  if (IsGathered() && (!PathExists(path_) || IsEmptyPlainFolder(path_))) side_.ForgetFilling();
}

void ProfilePlace::LeaveFormerVolume() const {
  if (formerVolume_.empty()) return;
  if (IsGathered()) side_.ForgetFilling();
  GiveRootItsOwnSecurity(formerVolume_);
  if (!keepsPath_ && !UnmountVolume(folder_)) LogWithSystemError(line::kVolumeNotUnmounted, folder_);
}
