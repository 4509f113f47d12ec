#include "profiles/profiles_location.h"

#include <vector>

#include "fsops/backwards.h"
#include "fsops/folder_itself.h"
#include "links/presence.h"
#include "report/lines.h"
#include "report/log.h"
#include "text/path_text.h"
#include "validate/path_rules.h"
#include "win32/win32.h"

namespace {

// The folder by another name, or another folder by this one.
constexpr win32::DWORD kMayTakeAway = win32::DELETE | win32::WRITE_DAC | win32::WRITE_OWNER;

}  // namespace

void TellWhoMayReplace(const std::u16string& location) {
  for (std::u16string folder = location; !folder.empty(); folder = ParentPath(folder)) {
    const std::u16string place = FolderForm(folder);
    // A drive's root has no other name. Whoever may delete what is in a folder may also rename it.
    const win32::DWORD rights =
        win32::FILE_DELETE_CHILD | (IsDriveRoot(place.c_str()) ? kMayTakeAway & ~win32::DELETE : kMayTakeAway);
    const FolderDescriptor descriptor = ReadDescriptor(place);
    if (descriptor.empty()) continue;
    if (const std::u16string entry = EntryOfOthers(descriptor, rights, {}); !entry.empty())
      Log(u"#INFO: The folder %ls was there before and keeps its access rights. Its entry %ls lets others rename or "
          u"replace it, or what is in it.",
          place, entry);
  }
}

bool MakeProfilesLocation(const std::u16string& location, const std::u16string& home) {
  std::vector<std::u16string> missing;
  for (std::u16string folder = location; !folder.empty() && !PathExists(FolderForm(folder));
       folder = ParentPath(folder))
    missing.push_back(folder);
  const FolderDescriptor descriptor = missing.empty() ? FolderDescriptor() : ProtectedDescriptor(ReadDescriptor(home));
  for (const std::u16string& folder : Backwards(missing)) {
    // With it from the beginning: nobody gets hold of the folder while it is open to him.
    const FolderMade made = descriptor.empty() ? FolderMade::Failed : MakeFolder(folder, descriptor);
    if (made == FolderMade::StoodThere) continue;
    if (descriptor.empty() || (made == FolderMade::New && !WriteDescriptor(folder, descriptor)))
      return LogSystemFailure(u"#ERROR: Unable to give the folder %ls the access rights of %ls. ", folder, home);
    if (made == FolderMade::Failed) return LogFailure(line::kTargetFolderNotCreated, folder);
  }
  return true;
}

ProfilesLocation::ProfilesLocation(const std::u16string& folder) : folder_(folder), created_(folder) {}

void ProfilesLocation::Keep() {
  kept_ = true;
  TellWhoMayReplace(folder_);
}

ProfilesLocation::~ProfilesLocation() {
  if (!kept_) created_.RemoveIfEmpty();
}
