#include "profiles/recorded_home.h"

#include "log/log.h"
#include "redirect/path_text.h"
#include "regredirect/service_config.h"

std::u16string RecordedProfilesFolder(const CQBConfig& config) {
  std::u16string folder;
  if (!config.GetUserProfileRedirection(nullptr, nullptr, &folder)) return {};
  constexpr std::u16string_view kBlanks = u" \t\r\n";
  const std::size_t begin = folder.find_first_not_of(kBlanks);
  if (begin == std::u16string::npos) return {};
  return WithoutTrailingBackslash(folder.substr(begin, folder.find_last_not_of(kBlanks) - begin + 1));
}

bool ReadRecordedProfilesFolder(std::u16string& folder) {
  CQBConfig config;
  if (!config.Init()) {
    Log(u"#ERROR: Failed to read config file.");
    return false;
  }
  folder = RecordedProfilesFolder(config);
  if (folder.empty()) Log(u"#ERROR: Failed to obtain information from config file.");
  return !folder.empty();
}
