// What "list" and "undo" of the report program say of what commands have left: of whole redirections, of broken ones,
// and of those that were cut off at any call; and what they say when they cannot ask.
#include <regex>

#include "program/profile_stories.h"
#include "support/only_reads.h"
#include "survey/json.h"
#include "survey/main.h"

namespace {

using namespace test;
using emulated::Machine, emulated::Utf16, emulated::Utf8;

class SurveyOfWhatIs : public ProfileStories {
 protected:
  SurveyOfWhatIs() {
    for (const auto* folder : {u"C:\\Data", u"C:\\Data\\in", u"C:\\Lists", u"D:\\Kept"}) MakeFolder(folder);
    for (const auto* file :
         {u"C:\\Data\\one.txt", u"C:\\Data\\in\\two.txt", u"C:\\Lists\\list.txt", u"C:\\Lists\\more.txt"})
      MakeFile(file, "contents");
  }

  // One run, which only reads.
  static Answer Survey(Machine& on, std::vector<const char16_t*> words) {
    UseProgramModule(on, u"QBCReport.exe");
    words.insert(words.begin(), u"QBCReport.exe");
    const OnlyReads rule(on);
    const OpenHandles handles(on);
    return SurveyMain(static_cast<int>(words.size()), words.data());
  }
  Answer Survey(std::vector<const char16_t*> words) { return Survey(*machine, std::move(words)); }
  static std::string NamesIn(const Json& row) {
    std::string names;
    for (const Json& finding : row["findings"]) names += " " + finding["name"].get<std::string>();
    return names;
  }
  // "STATE SOURCE NAME..." a row.
  std::string Listed(int exitCode) {
    const Answer answer = Survey({u"list", u"--check", u"--json"});
    std::string rows;
    const Json document = Json::parse(answer.output);
    for (const Json& row : document["rows"])
      rows += row["state"].get<std::string>() + " " + row["source"].get<std::string>() + NamesIn(row) + "\n";
    EXPECT_EQ(static_cast<int>(answer.result), exitCode) << rows << answer.errors;
    return rows;
  }

  void Redirect(std::vector<std::u16string> words) {
    const RunResult run = RunProgram(*machine, words);
    ASSERT_EQ(run.exitCode, 0) << Utf8(words[1]) << Utf8(run.log);
    EnablePrivileges();
  }
  // As cmd.exe and the C library split a line of a script.
  void RunLine(std::string line) {
    line = std::regex_replace(line, std::regex("%%"), "%");
    std::vector<std::u16string> words{u""};
    bool quoted = false;
    for (const char16_t unit : Utf16(line)) {
      if (unit == u'"') quoted = !quoted;
      if (unit == u' ' && !quoted) words.emplace_back();
      if (unit != u'"' && (unit != u' ' || quoted)) words.back() += unit;
    }
    EXPECT_EQ(line.find("\\\""), line.npos) << line;
    words.erase(words.begin());
    Redirect(words);
  }
  void RunScript(const std::string& script) {
    std::istringstream lines(script);
    for (std::string line; std::getline(lines, line);)
      if (line.starts_with("QBC ")) RunLine(line);
  }
  // All that is on the disks outside Windows, and what the product and Windows record.
  std::map<std::u16string, std::string> Everything() {
    std::map<std::u16string, std::string> all;
    for (const auto* folder : {u"C:\\Data", u"C:\\Lists", u"C:\\Users", u"C:\\100% & 'more'"})
      for (const auto& [path, description] : AllOf(folder))
        if (path.find(u"NTUSER.DAT") == path.npos)  // folders have the times of what came and went
          all[folder + path] =
              std::regex_replace(description, std::regex("^(attributes \\d+6 )created.*written \\d+"), "$1");
    for (const auto& path : Names(u"D:\\"))
      if (path.find(u"$RECYCLE") == path.npos && path.find(u"System Volume") == path.npos) all[path];
    for (const auto* value : {u"Default", u"Public", u"ProfilesDirectory"})
      all[value] = Utf8(machine->registry().Query(kProfileList, value)->Text());
    all[u"profile"] = Utf8(ImagePath());
    for (const auto* kind : {u"Junctions", u"FileJunctions"})
      for (const auto& [source, target] : AllRecords(kind)) all[source] = Utf8(target);
    return all;
  }

  // Does what a text says, word by word, with the tools of cmd.exe that it names.
  void DoAsTold(const std::string& todo) {
    static const std::regex kCommand(
        R"RE((rmdir|mklink /J|mklink|del|ren|mkdir|robocopy|mountvol|QBC \S+) "([^"]*)"( "([^"]*)"| /D| \S*Volume\S+| /d)?)RE");
    for (std::sregex_iterator at(todo.begin(), todo.end(), kCommand), end; at != end; ++at) {
      const std::string tool = (*at)[1];
      const std::u16string path = Utf16((*at)[2].str()), other = Utf16((*at)[4].str());
      bool done = true;
      if (tool == "rmdir") done = win32::RemoveDirectoryW(path.c_str());
      if (tool == "mklink /J") done = !Exists(path) && CreateJunction(path.c_str(), other.c_str());
      if (tool == "mklink") done = CreateSymbolicLinkEntry(path.c_str(), other.c_str());
      if (tool == "del") done = win32::DeleteFileW(path.c_str());
      if (tool == "ren") done = win32::MoveFileW(path.c_str(), (ParentPath(path) + u"\\" + other).c_str());
      if (tool == "mkdir") MakeFolder(path);
      if (tool == "mountvol")
        done = (*at)[3] == " /D" ? UnmountVolume(path) : MountVolume(path, Utf16((*at)[3].str().substr(1)));
      for (const std::u16string& item : tool == "robocopy" ? Names(path) : std::vector<std::u16string>())
        if (!Exists(other + item)) MakeFile(other + item, Contents(path + item));
      if (tool.starts_with("QBC")) RunLine((*at)[0]);
      EXPECT_TRUE(done) << todo << ": " << tool;
    }
  }
  // Breaks something; list finds just that, undo withholds what is broken; what it says is done, then `mends`, and all
  // is whole again.
  void BreakAndMend(
      const std::string& names, const std::function<bool()>& breaks,
      const std::function<bool()>& mends = [] { return true; }) {
    ASSERT_TRUE(breaks()) << names;
    const Answer answer = Survey({u"list", u"--check", u"--json"}), undo = Survey({u"undo", u"--json"});
    EXPECT_EQ(answer.result, SurveyResult::Amiss) << names;
    std::string found;
    const Json rows = Json::parse(answer.output)["rows"], steps = Json::parse(undo.output)["steps"];
    EXPECT_EQ(rows.size(), steps.size());
    for (const Json& row : rows) {
      found += NamesIn(row);
      for (const Json& step : steps) {
        if (step["source"] == row["source"] && step["target"] == row["target"] && step["kind"] == row["kind"]) {
          EXPECT_TRUE(row["state"] == "whole" || step["words"].empty() || step["kind"] == "registry-key") << step;
        }
      }
    }
    EXPECT_EQ(found, " " + names);
    for (const Json& row : rows)
      for (const Json& finding : row["findings"]) DoAsTold(finding["todo"]);
    EXPECT_TRUE(mends()) << names;
    EnablePrivileges();
    Listed(0);
  }
  // Something is not where it was, and comes back.
  void TakeAway(const std::string& names, const std::u16string& path) {
    const auto move = [](const std::u16string& from, const std::u16string& to) {
      return win32::MoveFileW(from.c_str(), to.c_str()) != 0;
    };
    BreakAndMend(
        names, [&] { return move(path, path + u".away"); }, [&] { return move(path + u".away", path); });
  }
  static bool Drop(const std::u16string& path) {
    return win32::RemoveDirectoryW(path.c_str()) || win32::DeleteFileW(path.c_str());
  }
};

TEST_F(SurveyOfWhatIs, TheWayHomeOfWhatLiesInEachOther) {
  EXPECT_EQ(Survey({u"list"}).output + Survey({u"undo"}).output,
            "Nothing is redirected.\nREM - Nothing is redirected.\n");
  for (const auto* folder : {u"C:\\100% & 'more'", u"C:\\Data\\in\\most", u"D:\\Files"}) MakeFolder(folder);
  const auto before = Everything();
  // From within a source, out of a target, into a target; files out of them and into them; the same of profiles.
  Redirect({u"/RedirectFile", u"C:\\Data\\in\\two.txt", u"/loc:D:\\Files"});
  Redirect({u"/RedirectFolder", u"C:\\Data\\in\\most", u"/loc:D:\\Kept"});
  Redirect({u"/RedirectFolder", u"C:\\Data\\in", u"/vol:" + kVolume});
  Redirect({u"/RedirectFolder", u"C:\\Data", u"/loc:D:\\Kept"});
  Redirect({u"/RedirectFolder", u"C:\\100% & 'more'", u"/loc:D:\\Kept\\Data"});
  Redirect({u"/RedirectFile", u"C:\\Lists\\list.txt", u"/loc:C:\\Data"});
  Redirect({u"/RedirectFolder", kAnna + u"\\Pictures", u"/loc:D:\\Kept"});
  Redirect({u"/RedirectUP", u"anna", u"/loc:D:\\Profiles"});
  Redirect({u"/RedirectFile", u"C:\\Lists\\more.txt", u"/loc:D:\\Profiles\\anna\\Documents"});
  Redirect({u"/RedirectRegKeyLocation", u"/loc:D:\\Files"});
  Redirect({u"/RedirectRegKey", u"HKEY_LOCAL_MACHINE\\SOFTWARE\\Classes"});
  Redirect({u"/AutoRedirectUP", u"/loc:D:\\Profiles", u"/RedirectDefaultAndPublicProfile"});
  const std::string listed = Listed(0);
  EXPECT_EQ(std::count(listed.begin(), listed.end(), '\n'), 15) << listed;
  RunScript(Survey({u"undo"}).output);
  EXPECT_EQ(Survey({u"list"}).output, "Nothing is redirected.\n");
  auto after = Everything();
  after.erase(u"\\Profiles");  // the place of profiles may stay
  for (const auto& [path, what] : before)
    EXPECT_TRUE(after.contains(path) && after.at(path) == what) << Utf8(path) << " was " << what;
  for (const auto& [path, what] : after) EXPECT_TRUE(before.contains(path)) << Utf8(path) << " is " << what;
}

TEST_F(SurveyOfWhatIs, WhatIsBrokenIsWholeAgainWhenWhatListSaysIsDone) {
  const std::u16string data = u"C:\\Data", kept = u"D:\\Kept\\Data", mount = kept + u"\\in",
                       list = u"C:\\Lists\\list.txt";
  Redirect({u"/RedirectFolder", data + u"\\in", u"/vol:" + kVolume});
  Redirect({u"/RedirectFolder", data, u"/loc:D:\\Kept"});
  Redirect({u"/RedirectFile", list, u"/loc:D:\\Files"});
  Redirect({u"/RedirectUP", u"anna", u"/loc:D:\\Profiles"});
  Redirect({u"/AutoRedirectUP", u"/loc:D:\\Profiles", u"/RedirectDefaultAndPublicProfile"});
  machine->registry().SetText(u"HKLM\\SOFTWARE\\Gone", u"x", u"y");
  Redirect({u"/RedirectRegKey", u"HKEY_LOCAL_MACHINE\\SOFTWARE\\Gone"});
  const auto junction = [](const std::u16string& from, const std::u16string& to) {
    return CreateJunction(from.c_str(), to.c_str()) != 0;
  };
  const auto file = [](const std::u16string& path) {
    MakeFile(path, "theirs");
    return true;
  };
  BreakAndMend("source-missing", [&] { return Drop(data); });
  BreakAndMend("source-is-empty-folder", [&] { return DeleteJunction(data.c_str()); });
  BreakAndMend(
      "source-is-file", [&] { return Drop(data) && file(data); }, [&] { return Drop(data + u".old"); });
  BreakAndMend(
      "source-is-folder", [&] { return DeleteJunction(data.c_str()) && file(data + u"\\new.txt"); },
      [&] {
        return Contents(kept + u"\\new.txt") == "theirs" && Drop(data + u".old\\new.txt") && Drop(data + u".old");
      });
  BreakAndMend("source-is-symbolic-link", [&] {
    return Drop(data) && CreateSymbolicLinkEntry(data.c_str(), kept.c_str(), {.forceDirectoryLink = true});
  });
  BreakAndMend("leads-elsewhere", [&] { return Drop(data) && junction(data, u"C:\\Lists"); });
  BreakAndMend("leads-nowhere", [&] { return Drop(data) && junction(data, u"D:\\gone"); });
  BreakAndMend("volume-not-mounted", [&] { return UnmountVolume(mount); });
  BreakAndMend("mount-folder-missing", [&] { return UnmountVolume(mount) && Drop(mount); });
  BreakAndMend("mount-folder-is-link",
               [&] { return UnmountVolume(mount) && Drop(mount) && junction(mount, u"C:\\Lists"); });
  BreakAndMend("mount-folder-is-file", [&] { return UnmountVolume(mount) && Drop(mount) && file(mount); });
  BreakAndMend("mount-folder-is-full",
               [&] { return Drop(mount + u".old") && UnmountVolume(mount) && file(mount + u"\\x"); });
  BreakAndMend("volume-mounted-elsewhere", [&] {
    MakeFolder(u"C:\\Else");
    return UnmountVolume(mount) && MountVolume(u"C:\\Else", kVolume);
  });
  BreakAndMend("link-missing", [&] { return Drop(list); });
  BreakAndMend("file-without-link", [&] { return Drop(list) && file(list); });
  BreakAndMend("link-leads-elsewhere",
               [&] { return Drop(list) && CreateSymbolicLinkEntry(list.c_str(), u"D:\\gone"); });
  BreakAndMend("link-is-other", [&] {
    MakeFolder(list + u".dir");
    return Drop(list) && win32::MoveFileW((list + u".dir").c_str(), list.c_str());
  });
  BreakAndMend(
      "target-is-link", [&] { return win32::MoveFileW(kept.c_str(), u"D:\\Other") && junction(kept, u"D:\\Other"); },
      [&] { return Drop(kept) && win32::MoveFileW(u"D:\\Other", kept.c_str()); });
  BreakAndMend(
      "same-source target-missing same-source", [&] { return AddJunctionRegKey(data.c_str(), u"D:\\Other", 0); },
      [&] { return DeleteRegKey(data.c_str(), u"D:\\Other", 0); });
  BreakAndMend(
      "same-target source-missing same-target", [&] { return AddJunctionRegKey(u"C:\\Else\\x", kept.c_str(), 0); },
      [&] { return DeleteRegKey(u"C:\\Else\\x", kept.c_str(), 0); });
  BreakAndMend(
      "half-record", [&] { return AddJunctionRegKey(u"C:\\Half", nullptr, 1); },
      [&] { return DeleteRegKey(u"C:\\Half", u"", 1); });
  BreakAndMend(
      "both-missing", [&] { return AddJunctionRegKey(u"C:\\x", u"D:\\x", 0); },
      [&] { return DeleteRegKey(u"C:\\x", u"D:\\x", 0); });
  const std::u16string profile = u"D:\\Profiles\\anna", hive = u"\\NTUSER.DAT";
  TakeAway("target-missing inside-broken", kept);
  TakeAway("file-missing", u"D:\\Files\\list.txt");
  TakeAway("profile-missing", profile);
  TakeAway("hive-missing", profile + hive);
  TakeAway("shared-missing", u"D:\\Profiles\\Public");
  BreakAndMend(
      "second-hive", [&] { return file(kAnna + hive); }, [&] { return Drop(kAnna + hive); });
  BreakAndMend(
      "hive-elsewhere",
      [&] {
        const std::u16string loaded = u"HKU\\" + kSidOfAnna;
        machine->registry().LoadHive(loaded, profile + hive);
        machine->registry().SetText(loaded + u"\\Volatile Environment", u"USERPROFILE", kAnna);
        return true;
      },
      [&] { return machine->registry().UnloadHive(u"HKU\\" + kSidOfAnna) == 0; });
  BreakAndMend("key-missing", [] { return win32::RegDeleteKeyW(win32::HKEY_LOCAL_MACHINE, u"SOFTWARE\\Gone") == 0; });
}

}  // namespace
