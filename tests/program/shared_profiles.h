// What the tests of the Default and Public profiles share: a machine whose two profiles hold something of every kind,
// and what Windows' profile list and the configuration say.
#pragma once

#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include "configuration/service_config.h"
#include "fsops/folder_itself.h"
#include "links/junction.h"
#include "probes/privileges.h"
#include "regredirect/registry_keys.h"
#include "support/program.h"
#include "support/tree.h"
#include "win32/emulated/registry/hive.h"
#include "win32/emulated/registry/registry.h"
#include "win32/emulated/registry/services.h"
#include "win32/emulated/text.h"
#include "win32/win32.h"

namespace test {

class SharedProfilesTest : public ::testing::Test {
 protected:
  static constexpr const char16_t* kList = u"HKLM\\SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion\\ProfileList";
  static constexpr const char16_t* kConfig = u"C:\\Program Files\\Velmora\\Quillbay\\ServiceConfig.xml";
  static inline const std::u16string kErrors = u"Errors logged in C:\\Program Files\\Velmora\\Quillbay\\QBC.log.";
  static inline const std::u16string kDefault = u"C:\\Users\\Default", kPublic = u"C:\\Users\\Public";

  // The three values, byte for byte.
  using Values = std::map<std::u16string, std::pair<win32::DWORD, emulated::Bytes>>;
  struct Configuration {
    std::u16string status, location, defaultPath;
    int registryStatus = -2;
    std::u16string registryLocation;
    std::vector<std::u16string> keys;
    bool operator==(const Configuration&) const = default;
  };
  // The files of a profile by their names in it. Streams are there, too.
  using Files = std::map<std::u16string, std::string>;

  SharedProfilesTest() { Restart(); }

  void Restart(const MachineFacts& facts = {}) {
    machine.reset();
    machine = InstalledMachine(facts);
    UseProgramModule(*machine);
    machine->services().SetState(u"QuillbayService", win32::SERVICE_STOPPED);
    MakeFile(kDefault + u"\\AppData\\Roaming\\settings.ini", "new users start with this");
    MakeLink(kDefault + u"\\Old Data", kDefault + u"\\AppData\\Roaming");
    if (!Exists(kPublic + u"\\AccountPictures")) MakeFolder(kPublic + u"\\AccountPictures");
    MakeFile(kPublic + u"\\AccountPictures\\anna.jpg", "a face");
    MakeFile(kPublic + u"\\Documents\\report.txt", "first");
    MakeFile(kPublic + u"\\Documents\\report.txt:note", "a named stream");
    MakeFile(kPublic + u"\\Documents\\fixed.txt", "read-only and hidden",
             win32::FILE_ATTRIBUTE_READONLY | win32::FILE_ATTRIBUTE_HIDDEN | win32::FILE_ATTRIBUTE_SYSTEM);
    MakeLink(kPublic + u"\\Documents\\Old Music", kPublic + u"\\Music");
    Config();  // so that there is a file
  }

  // A junction as Windows makes them for old programs: nobody may list what it leads to by it.
  static void MakeLink(const std::u16string& link, const std::u16string& target) {
    ASSERT_TRUE(EnablePrivileges());
    MakeFolder(u"C:\\Template");
    SetSecurity(u"C:\\Template", u"O:SYD:P(D;;CC;;;WD)(A;;0x1200a9;;;WD)(A;;FA;;;SY)(A;;FA;;;BA)");
    ASSERT_TRUE(CreateJunction(link.c_str(), target.c_str()));
    ASSERT_TRUE(WriteDescriptor(link, ReadDescriptor(u"C:\\Template")));
    ASSERT_TRUE(win32::RemoveDirectoryW(u"C:\\Template"));
  }
  static std::u16string LinkTarget(const std::u16string& link) {
    std::u16string target;
    return EnablePrivileges() && GetJunctionTarget(link.c_str(), target) ? target : u"(none)";
  }

  RunResult Set(const std::u16string& location) {
    return RunProgram(*machine, {u"/AutoRedirectUP", u"/loc:" + location});
  }
  RunResult SetWithBoth(const std::u16string& location) {
    return RunProgram(*machine, {u"/AutoRedirectUP", u"/loc:" + location, u"/RedirectDefaultAndPublicProfile"});
  }
  RunResult Remove() { return RunProgram(*machine, {u"/AutoRedirectUP", u"/d"}); }
  RunResult Redirect(const std::u16string& profile, const std::u16string& location) {
    return RunProgram(*machine, {u"/RedirectUP", u"/" + profile, u"/loc:" + location});
  }
  RunResult BringBack(const std::u16string& profile) {
    return RunProgram(*machine, {u"/RedirectUPDefault", u"/" + profile});
  }

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
  // Long contents by their size and hash, so that a difference can be read.
  static std::string Short(const std::string& contents) {
    constexpr std::size_t kReadable = 60;
    if (contents.size() <= kReadable) return contents;
    return std::to_string(contents.size()) + " bytes, " + std::to_string(std::hash<std::string>()(contents));
  }
  static Files FilesOf(const std::u16string& profile) {
    EnablePrivileges();
    Files files;
    for (const std::u16string& name : Names(profile)) {
      const win32::DWORD attributes = Attributes(profile + name);
      if (attributes & (win32::FILE_ATTRIBUTE_DIRECTORY | win32::FILE_ATTRIBUTE_REPARSE_POINT)) continue;
      files[name] = Short(Contents(profile + name));
      const std::string note = Contents(profile + name + u":note");
      if (note != "(none)") files[name + u":note"] = note;
    }
    return files;
  }
  // The messages that a run logged, without their times.
  static std::vector<std::u16string> LinesOf(const RunResult& run) {
    std::vector<std::u16string> lines;
    constexpr std::u16string_view kStart = u"\n[", kPrefixEnd = u"] ";
    const std::u16string text = u"\n" + run.log;
    for (std::size_t at = text.find(kStart); at != std::u16string::npos;) {
      const std::size_t next = text.find(kStart, at + kStart.size());
      std::u16string line = text.substr(at, next - at);
      line.erase(0, line.find(kPrefixEnd) + kPrefixEnd.size());
      while (line.ends_with(u'\n')) line.pop_back();
      if (!line.starts_with(u"---")) lines.push_back(std::move(line));
      at = next;
    }
    return lines;
  }
  // What is noted of profiles that are redirected, each with its name.
  static constexpr const char16_t* kNotes = u"HKLM\\SOFTWARE\\WOW6432Node\\Velmora\\Quillbay\\ProfileRedirection";
  std::vector<std::u16string> Notes() {
    std::vector<std::u16string> names;
    for (const char16_t* name : {u"NewProfiles", u"Default", u"Public"})
      if (machine->registry().Query(kNotes, name)) names.emplace_back(name);
    return names;
  }
  bool ServiceRuns() { return machine->services().State(u"QuillbayService") == win32::SERVICE_RUNNING; }

  std::unique_ptr<emulated::Machine> machine;
};

}  // namespace test
