#include "profiles/profile_listing.h"

#include <algorithm>
#include <exception>
#include <string>
#include <vector>

#include "links/mounted_folder.h"
#include "profiles/profile_list.h"
#include "profiles/recorded_home.h"
#include "profiles/user_accounts.h"
#include "report/console.h"
#include "report/lines.h"
#include "report/log.h"
#include "text/ascii_case.h"
#include "text/path_text.h"

namespace {

struct Line {
  std::u16string key;  // what it is sorted by
  std::u16string name, folder;
  auto operator<=>(const Line&) const = default;  // NOLINT(modernize-use-nullptr): none is missing
};

}  // namespace

int ListRedirectedProfiles() try {
  std::u16string home;
  if (!ReadRecordedProfilesFolder(home)) return 0;
  std::vector<UserProfile> profiles;
  if (!ReadUserProfiles(profiles)) {
    Log(line::kProfilesNotRead);
    return 0;
  }
  std::vector<Line> lines;
  for (const UserProfile& profile : profiles) {
    if (EqualPaths(profile.folder, JoinPath(home, LastComponent(profile.folder))) &&
        !IsVolumeMountPoint(profile.folder.c_str()))
      continue;
    std::u16string name = NameOfAccount(profile.sid);
    if (name.empty()) name = profile.sid;
    lines.push_back({LowerAscii(name), name, profile.folder});
  }
  if (lines.empty()) return 1;
  std::ranges::sort(lines);
  ConsolePrint(u"User   Profile folder\n\n");
  for (const Line& line : lines) ConsoleFormat(u"%ls   %ls\n", line.name, line.folder);
  return 1;
} catch (const std::exception&) {
  return 0;
}
