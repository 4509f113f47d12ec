#include "profiles/standing_items.h"

#include "fsops/file_list.h"
#include "fsops/folder_itself.h"
#include "fsops/security.h"
#include "links/presence.h"
#include "report/lines.h"
#include "report/log.h"
#include "text/path_text.h"
#include "win32/win32.h"

namespace {

constexpr win32::DWORD kWrites = win32::FILE_WRITE_DATA | win32::FILE_APPEND_DATA | win32::FILE_WRITE_EA |
                                 win32::FILE_DELETE_CHILD | win32::DELETE | win32::WRITE_DAC | win32::WRITE_OWNER;

}  // namespace

bool StandingItems::Examine(const std::u16string& folder, const std::u16string& profile, const std::u16string& user,
                            bool replaced) {
  TreeListing listing;
  if (!GetFileList(folder, listing)) return LogFailure(line::kNoListing, folder);
  for (const TreeEntry& entry : listing.entries) {
    const std::u16string inProfile =
        ExtendedPath(ReplaceFolder(WithoutExtendedPrefix(entry.path), WithoutExtendedPrefix(folder), profile));
    if (replaced && PathExists(inProfile)) continue;
    const std::u16string writer = EntryOfOthers(ReadDescriptor(entry.path), kWrites, user, Entries::OwnOnly);
    if (!writer.empty())
      return LogFailure(
          u"#ERROR: %ls would become a part of the User Profile, but others may write to it: %ls. Take it away, or "
          u"have Administrators own it and nobody else write to it, and try again.",
          entry.path, writer);
    items_.push_back(entry.path);
  }
  return true;
}

void StandingItems::InheritAnew() const {
  InheritanceCache unused;
  for (const std::u16string& item : items_)
    if (LookAt(item).IsThere() && HaveInheritedPermissions(unused, item))
      CopyDacl(item, item, {.allowInheritance = true, .keepInheritedAces = true});
}
