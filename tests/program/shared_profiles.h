// What the tests of the Default and Public profiles share: the commands, and what Windows' profile list and the
// configuration say.
#pragma once

#include "program/profile_stories.h"

namespace test {

class SharedProfilesTest : public ProfileStories {
 protected:
  static inline const std::u16string kList = kProfileList;
  static inline const std::u16string kErrors = u"Errors logged in C:\\Program Files\\Velmora\\Quillbay\\QBC.log.";
  static constexpr const char16_t* kConfig = u"C:\\Program Files\\Velmora\\Quillbay\\ServiceConfig.xml";
  // What is noted of profiles that are redirected, each with its name.
  static constexpr const char16_t* kNotes = u"HKLM\\SOFTWARE\\WOW6432Node\\Velmora\\Quillbay\\ProfileRedirection";

  // The three values, byte for byte.
  using Values = std::map<std::u16string, std::pair<win32::DWORD, emulated::Bytes>>;
  struct Configuration {
    std::u16string status, location, defaultPath;
    int registryStatus = -2;
    std::u16string registryLocation;
    Lines keys;
    bool operator==(const Configuration&) const = default;
  };
  // The files of a profile by their names in it. Streams are there, too.
  using Files = std::map<std::u16string, std::string>;

  SharedProfilesTest() { Restart(); }
  void Restart(const MachineFacts& facts = {.volumes = 1}) {
    ProfileStories::Restart(facts);
    machine->services().SetState(u"QuillbayService", win32::SERVICE_STOPPED);
  }

  static std::u16string LinkTarget(const std::u16string& link) {
    std::u16string target;
    return EnablePrivileges() && GetJunctionTarget(link.c_str(), target) ? target : u"(none)";
  }
  RunResult Set(const std::u16string& location) { return Run({u"/AutoRedirectUP", u"/loc:" + location}); }
  RunResult SetWithBoth(const std::u16string& location) {
    return Run({u"/AutoRedirectUP", u"/loc:" + location, u"/RedirectDefaultAndPublicProfile"});
  }
  RunResult Remove() { return Run({u"/AutoRedirectUP", u"/d"}); }
  RunResult Redirect(const std::u16string& profile, const std::u16string& location) {
    return Run({u"/RedirectUP", u"/" + profile, u"/loc:" + location});
  }
  RunResult BringBack(const std::u16string& profile) { return Run({u"/RedirectUPDefault", u"/" + profile}); }

  Values ProfileValues() {
    Values values;
    for (const char16_t* name : {u"ProfilesDirectory", u"Default", u"Public"}) {
      const auto value = machine->registry().Query(kList, name);
      if (value) values[name] = {value->type, value->data};
    }
    return values;
  }
  std::u16string Value(const char16_t* name) {
    const auto value = machine->registry().Query(kList, name);
    return value ? value->Text() : u"(none)";
  }
  static Configuration Config() {
    CQBConfig config;
    Configuration read;
    EXPECT_TRUE(config.Init() && config.GetUserProfileRedirection(&read.location, &read.status, &read.defaultPath) &&
                config.GetOutDir(read.registryStatus, read.registryLocation));
    if (read.status == u"0") read.location.clear();  // a line break and blanks, or nothing
    if (read.registryStatus == 0) read.registryLocation.clear();
    read.keys = config.MonitoredKeys();
    return read;
  }
  static Files FilesOf(const std::u16string& profile) {
    EnablePrivileges();
    Files files;
    for (const std::u16string& name : Names(profile)) {
      const win32::DWORD attributes = Attributes(profile + name);
      if (attributes & (win32::FILE_ATTRIBUTE_DIRECTORY | win32::FILE_ATTRIBUTE_REPARSE_POINT)) continue;
      const bool isHive = name == u"\\NTUSER.DAT";  // long, and binary
      const std::string contents = Contents(profile + name), note = Contents(profile + name + u":note");
      files[name] = isHive ? std::to_string(std::hash<std::string>()(contents)) : contents;
      if (note != "(none)") files[name + u":note"] = note;
    }
    return files;
  }
  // Of the profile list, the configuration, and what is noted.
  using Settings = std::tuple<Values, Configuration, Lines>;
  Settings AllSettings() { return {ProfileValues(), Config(), Notes()}; }
  Lines Notes() {
    Lines names;
    for (const char16_t* name : {u"NewProfiles", u"Default", u"Public"})
      if (machine->registry().Query(kNotes, name)) names.emplace_back(name);
    return names;
  }
  bool ServiceRuns() { return machine->services().State(u"QuillbayService") == win32::SERVICE_RUNNING; }
};

}  // namespace test
