#include "profiles/shared_profiles_steps.h"

#include <algorithm>

#include "links/real_path.h"
#include "probes/windows_version.h"
#include "profiles/account_pictures.h"
#include "profiles/redirection_notes.h"
#include "profiles/shared_profiles_rules.h"
#include "records/redirected_places.h"
#include "report/console.h"
#include "report/log.h"
#include "report/only_looks.h"
#include "text/path_text.h"

namespace {

std::vector<ProfileFolder> ListOf(SharedProfiles which) {
  std::vector<ProfileFolder> list;
  if (which.defaultProfile) list.push_back(ProfileFolder::Default);
  if (which.publicProfile) list.push_back(ProfileFolder::Public);
  return list;
}

bool IsIn(const std::u16string& folder, const std::u16string& parent) {
  return EqualPaths(folder, JoinPath(parent, LastComponent(folder)));
}

void MoveAccountPictures(std::u16string from, std::u16string to) {
  if (!IsWindows8OrLater()) {
    Log(u"#INFO: No need to update profile image file paths for Public User in OSes < Windows 8.");
    return;
  }
  Log(u"#INFO: Going to update profile image file paths for Public User.");
  UpdateUserAccountImagesIfRequiredSvc(from, to);
}

}  // namespace

bool PlanCopies(SharedProfiles which, const std::u16string& location, const std::u16string& home, bool skipThere,
                CarriedAlong carried, ProfileCopies& copies) {
  for (const ProfileFolder folder : ListOf(which)) {
    ProfileFolderValue value;
    if (!RequireProfileFolder(folder, value)) return false;
    if (skipThere && IsIn(value.folder, location)) {
      Log(u"#INFO: The profile %ls is there already.", value.folder);
      continue;
    }
    if (!IsIn(value.folder, home))
      return LogFailure(u"#ERROR: The profile %ls is redirected already: it is not in %ls.", value.folder, home);
    copies.push_back(
        std::make_unique<SharedProfileCopy>(folder, value, JoinPath(location, LastComponent(value.folder)), carried));
  }
  return true;
}

bool MayBeCopied(const ProfileCopies& copies, const std::u16string& location) {
  std::vector<std::u16string> trees;
  bool all = true;
  for (const auto& copy : copies) {
    all = AllHold({[&] { return IsFolderAndNoLink(copy->original()); },
                   [&] { return !HoldsRedirectedData(copy->original()); }, [&] { return IsFree(copy->copy()); },
                   [&] { return MayComeTo(copy->original(), copy->copy(), Comes::Profile); }}) &&
          all;
    if (!all && !OnlyLooks::Current()) return false;
    trees.push_back(copy->original());
  }
  return (trees.empty() || HasRoomFor(trees, location)) && all;
}

bool CopyAndMakeLive(const ProfileCopies& copies) {
  return std::ranges::all_of(copies, [](const auto& copy) { return copy->Copy(); }) &&
         std::ranges::all_of(copies, [](const auto& copy) { return copy->MakeLive(); });
}

bool PlanReturns(SharedProfiles which, const std::u16string& home, const std::u16string& location, CarriedAlong carried,
                 ProfileReturns& returns) {
  for (const ProfileFolder folder : ListOf(which)) {
    ProfileFolderValue value;
    std::optional<SharedProfileNote> note;
    if (!RequireProfileFolder(folder, value) || !ReadNote(folder, note)) return false;
    if (note && !EqualPaths(note->copy, value.folder)) note.reset();
    if (!note && IsIn(value.folder, home)) {
      Log(u"#INFO: The profile %ls is not redirected.", value.folder);
      continue;
    }
    if (!note && (location.empty() || !IsIn(value.folder, location))) {
      Log(u"#INFO: Nothing is noted of a redirection of the profile %ls. It stays there.", value.folder);
      continue;
    }
    if (!note) note = {JoinPath(home, LastComponent(value.folder)), value.folder, {}};
    if (!AreApart(note->original, value.folder))
      return LogFailure(u"#ERROR: The profile %ls cannot be brought back to %ls: one lies in the other.", value.folder,
                        note->original);
    if (HoldsRedirectedData(value.folder)) return false;
    returns.push_back(std::make_unique<SharedProfileReturn>(folder, value, *note, carried));
  }
  return true;
}

bool CopyBackAndMakeLive(const ProfileReturns& returns) {
  return std::ranges::all_of(returns, [](const auto& back) { return back->CopyBack(); }) &&
         std::ranges::all_of(returns, [](const auto& back) { return back->MakeLive(); });
}

void LeaveCopies(const ProfileReturns& returns) {
  for (const auto& back : returns) back->LeaveCopy();
}

bool DeleteCopies(const ProfileReturns& returns) {
  bool restartOwed = false;
  for (const auto& back : returns)
    if (back->DeleteCopy()) restartOwed = true;
  return restartOwed;
}

void FollowPublicProfile(const ProfileCopies& copies) {
  for (const auto& copy : copies)
    if (copy->which() == ProfileFolder::Public) MoveAccountPictures(copy->original(), copy->copy());
}

void FollowPublicProfile(const ProfileReturns& returns) {
  for (const auto& back : returns)
    if (back->which() == ProfileFolder::Public) MoveAccountPictures(back->copy(), back->original());
}

RestartOwed SayIfRestartIsOwed(const std::vector<std::u16string>& places) {
  const RestartOwed owed = IsRestartOwed(places);
  if (owed == RestartOwed::Yes) Say(StringId::RestartFirst);
  return owed;
}
