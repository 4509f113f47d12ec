// What the stories of user profiles share: a workstation with profiles, the two commands, and what there is to see of a
// profile.
#pragma once

#include <gtest/gtest.h>

#include <initializer_list>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "links/junction.h"
#include "probes/privileges.h"
#include "support/program.h"
#include "support/tree.h"
#include "text/path_text.h"
#include "win32/emulated/registry/registry.h"
#include "win32/emulated/security/access.h"
#include "win32/emulated/system/processes.h"
#include "win32/emulated/text.h"
#include "win32/win32.h"

namespace test {

inline const std::u16string kProfileList = u"HKLM\\SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion\\ProfileList";
inline const std::u16string kVolume = u"\\\\?\\Volume{12345678-0000-4000-8000-000000000000}\\";
inline const std::u16string kSidOfAnna = std::u16string(u"S-1-5-21-1004336348-1177238915-682003330-1001");
inline const std::u16string kSidOfJan = std::u16string(u"S-1-5-21-1004336348-1177238915-682003330-1002");

class ProfileStories : public ::testing::Test {
 protected:
  explicit ProfileStories(const MachineFacts& facts = {.volumes = 1}) : machine(InstalledMachine(facts)) {
    EnablePrivileges();  // the test looks at what is the user's own
    MakeFile(u"C:\\Users\\anna\\Documents\\letter.txt", "Dear Jan");
    MakeFile(u"C:\\Users\\anna\\Documents\\letter.txt:note", "a named stream");
    MakeFile(u"C:\\Users\\anna\\Documents\\old.bin", std::string(70000, 'x'),
             win32::FILE_ATTRIBUTE_READONLY | win32::FILE_ATTRIBUTE_HIDDEN);
  }

  RunResult Run(std::initializer_list<std::u16string> words) { return RunProgram(*machine, words); }
  RunResult Move(const std::u16string& user, const std::u16string& location) {
    return Run({u"/RedirectUP", user, u"/loc:" + location});
  }
  RunResult MoveHome(const std::u16string& user) { return Run({u"/RedirectUPDefault", user}); }

  // The messages of the log, without times and numbers; a line break within one is "/".
  static std::vector<std::u16string> Messages(const RunResult& run) {
    std::vector<std::u16string> messages;
    std::u16string_view rest = run.log;
    while (!rest.empty()) {
      if (rest.front() == u'\n') rest.remove_prefix(1);
      const std::size_t end = std::min(rest.find(u'\n'), rest.size());
      const std::u16string_view line = rest.substr(0, end);
      const std::size_t text = line.starts_with(u'[') ? line.find(u"] ") : line.npos;
      if (text != line.npos)
        messages.emplace_back(line.substr(text + 2));
      else if (!messages.empty() && !line.empty())
        messages.back() += u"/" + std::u16string(line);
      rest.remove_prefix(end);
    }
    return messages;
  }

  std::u16string ImagePath(const std::u16string& sid) {
    const auto value = machine->registry().Query(kProfileList + u"\\" + sid, u"ProfileImagePath");
    return value ? value->Text() : u"(none)";
  }
  using Pairs = std::vector<std::pair<std::u16string, std::u16string>>;
  // Source and target of the records of folders, or of files.
  Pairs AllRecords(const std::u16string& kind = u"Junctions") {
    const std::u16string list = u"HKLM\\SOFTWARE\\Wow6432Node\\Velmora\\Quillbay\\" + kind;
    Pairs pairs;
    for (const std::u16string& number : machine->registry().SubKeys(list)) {
      const auto source = machine->registry().Query(list + u"\\" + number, u"Source");
      const auto target = machine->registry().Query(list + u"\\" + number, u"Target");
      pairs.emplace_back(source ? source->Text() : u"(none)", target ? target->Text() : u"(none)");
    }
    return pairs;
  }
  bool HiveIsLoaded() { return machine->registry().KeyExists(u"HKU\\_ntuser"); }
  // The wallpaper in the hive of the profile in that folder; a new one is written where it is given.
  std::u16string Wallpaper(const std::u16string& folder, const std::u16string& written = {}) {
    emulated::Registry& registry = machine->registry();
    if (registry.LoadHive(u"HKU\\look", folder + u"\\NTUSER.DAT") != 0) return u"(no hive)";
    if (!written.empty()) registry.SetText(u"HKU\\look\\Control Panel\\Desktop", u"WallPaper", written);
    const auto value = registry.Query(u"HKU\\look\\Control Panel\\Desktop", u"WallPaper");
    const std::u16string text = value ? value->Text() : u"(none)";
    EXPECT_EQ(registry.UnloadHive(u"HKU\\look"), 0u);
    return text;
  }
  // A process of this user; nobody may ask a closed one whose it is.
  void StartProcess(const std::u16string& image, const std::u16string& sid, bool closed = false) {
    emulated::Process& process = emulated::AddProcess(*machine, 5000, image);
    process.token = std::make_shared<emulated::Token>(*machine->process.token);
    process.token->user = emulated::SidFromText(sid);
    process.isProtected = closed;
  }

  // Everything in a profile, wherever it is: descriptions, owners and entries; of a junction, where below the profile
  // it leads. The hive is looked into by itself.
  using Items = std::map<std::u16string, std::string>;
  static Items AllOf(const std::u16string& folder) {
    EnablePrivileges();
    Items all;
    for (const auto& [path, description] : DescribeTree(folder)) {
      if (path == u"\\NTUSER.DAT" || path == u"\\$RECYCLE.BIN") continue;
      std::u16string target;
      const bool isLink = (Attributes(folder + path) & win32::FILE_ATTRIBUTE_REPARSE_POINT) != 0;
      if (isLink) GetJunctionTarget((folder + path).c_str(), target);
      all[path] = (isLink ? emulated::Utf8(ReplaceFolder(target, folder, u"*")) : description) + " " +
                  emulated::Utf8(Security(folder + path));
    }
    return all;
  }
  static void ExpectSame(const Items& now, const Items& before, const std::string& when = {}) {
    for (const auto& [path, item] : before) {
      const auto found = now.find(path);
      ASSERT_TRUE(found != now.end()) << emulated::Utf8(path) << " is missing " << when;
      EXPECT_EQ(found->second, item) << emulated::Utf8(path) << " " << when;
    }
    for (const auto& [path, item] : now) EXPECT_TRUE(before.contains(path)) << emulated::Utf8(path) << " " << when;
  }

  std::unique_ptr<emulated::Machine> machine;
};

inline std::string Text(const std::vector<std::u16string>& lines) {
  std::string text;
  for (const std::u16string& line : lines) text += emulated::Utf8(line) + "\n";
  return text;
}

}  // namespace test
