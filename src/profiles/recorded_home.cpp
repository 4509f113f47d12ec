#include "profiles/recorded_home.h"

#include <optional>

#include "configuration/service_config.h"
#include "profiles/redirection_notes.h"
#include "report/lines.h"
#include "report/log.h"
#include "text/path_text.h"

namespace {

std::u16string WithoutBlanks(const std::u16string& text) {
  constexpr std::u16string_view kBlanks = u" \t\r\n";
  const std::size_t begin = text.find_first_not_of(kBlanks);
  return begin == std::u16string::npos ? std::u16string()
                                       : text.substr(begin, text.find_last_not_of(kBlanks) - begin + 1);
}

}  // namespace

std::u16string RecordedProfilesFolder(const CQBConfig& config) {
  std::u16string folder;
  if (!config.GetUserProfileRedirection(nullptr, nullptr, &folder)) return {};
  folder = WithoutTrailingBackslash(WithoutBlanks(folder));
  std::optional<NewProfilesNote> note;
  if (ReadNote(note) && note && (folder.empty() || EqualPaths(folder, note->location))) return note->home;
  return folder;
}

bool ReadRecordedProfilesFolder(std::u16string& folder) {
  CQBConfig config;
  if (config.path().empty()) return ReadProfilesHome(folder);
  if (!config.Init()) return LogFailure(line::kConfigNotRead);
  folder = RecordedProfilesFolder(config);
  if (folder.empty()) Log(line::kConfigLacksInformation);
  return !folder.empty();
}

bool ReadProfilesHome(std::u16string& folder) {
  ProfileFolderValue directory;
  std::optional<NewProfilesNote> note;
  if (!RequireProfileFolder(ProfileFolder::ProfilesDirectory, directory) || !ReadNote(note)) return false;
  folder = note && EqualPaths(note->location, directory.folder) ? note->home : directory.folder;
  return true;
}
