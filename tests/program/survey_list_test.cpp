// What "list" and "undo" of the report program say of what commands have left: of whole redirections, of broken ones,
// and of those that were cut off at any call; and what they say when they cannot ask.
#include <regex>

#include "program/profile_stories.h"
#include "survey/json.h"

namespace {

using namespace test;
using emulated::Machine, emulated::Utf16, emulated::Utf8;
using Words = std::vector<std::u16string>;

class SurveyOfWhatIs : public ProfileStories {
 protected:
  SurveyOfWhatIs() {
    for (const auto* folder : {u"C:\\Data", u"C:\\Data\\in", u"C:\\Lists", u"D:\\Kept", u"D:\\Files"})
      MakeFolder(folder);
    for (const auto* file : {u"C:\\Data\\1.txt", u"C:\\Data\\in\\2.txt", u"C:\\Lists\\a.txt", u"C:\\Lists\\b.txt"})
      MakeFile(file, "contents");
  }
  ReportRun Survey(const Words& words) { return RunReport(*machine, words); }
  static std::string NamesIn(const Json& row) {
    std::string names;
    for (const Json& finding : row["findings"]) names += finding["name"].get<std::string>() + " ";
    return names;
  }
  // What list says; undo prints no command for what is broken, unless that is what mends it.
  Json Rows(int exitCode, const std::string& when) {
    const ReportRun list = Survey({u"list", u"--check", u"--json"}), undo = Survey({u"undo", u"--json"});
    const Json rows = Json::parse(list.output)["rows"], steps = Json::parse(undo.output)["steps"];
    const auto isWhole = [](const Json& row) { return row["state"] == "whole"; };
    EXPECT_EQ(list.exitCode, exitCode < 0 ? std::ranges::all_of(rows, isWhole) ? 0 : 1 : exitCode)
        << when << rows << list.errors;
    for (const Json& row : rows)
      for (const Json& step : steps)
        EXPECT_TRUE(isWhole(row) || step["words"].empty() || step["source"] != row["source"] ||
                    step["target"] != row["target"] || NamesIn(row) == "removal-cut-off " ||
                    row["kind"] == "registry-key" || row["kind"] == "new-profiles")
            << when << step;
    return rows;
  }

  void Redirect(const Words& words) {
    const RunResult run = RunProgram(*machine, words);
    ASSERT_EQ(run.exitCode, 0) << Utf8(words[1]) << Utf8(run.log);
    EnablePrivileges();
  }
  // As cmd.exe and the C library split a line of a script.
  void RunLine(const std::string& line) {
    Words words{u""};
    bool quoted = false;
    EXPECT_EQ(line.find("\\\""), line.npos) << line;
    for (const char16_t unit : Utf16(std::regex_replace(line, std::regex("%%"), "%"))) {
      if (unit == u'"') quoted = !quoted;
      if (unit == u' ' && !quoted) words.emplace_back();
      if (unit != u'"' && (unit != u' ' || quoted)) words.back() += unit;
    }
    Redirect({words.begin() + 1, words.end()});
  }
  // Does what a text says, with the tools of cmd.exe that it names; "put" makes a file, "note" and "forget" a record,
  // "reg" "KEY*VALUE" sets a text, or with bars several, "outdir" the location for registry data; "load" a hive.
  void DoAsTold(const std::string& todo) {
    static const std::regex kCommand(
        R"RE((rmdir|mklink /J|mklink|del|ren|mkdir|robocopy|mountvol|put|note|forget|reg|outdir|load|unload|QBC \S+) "([^"]*)"( "([^"]*)"| /D| \S*Volume\S+| /d)?)RE");
    for (std::sregex_iterator at(todo.begin(), todo.end(), kCommand), end; at != end; ++at) {
      const std::string tool = (*at)[1], rest = (*at)[3];
      const std::u16string path = Utf16((*at)[2].str()), other = Utf16((*at)[4].str());
      bool done = true;
      if (tool == "rmdir") done = win32::RemoveDirectoryW(path.c_str());
      if (tool == "mklink /J") done = !Exists(path) && CreateJunction(path.c_str(), other.c_str());
      if (tool == "mklink") done = CreateSymbolicLinkEntry(path.c_str(), other.c_str());
      if (tool == "del") done = win32::DeleteFileW(path.c_str());
      if (tool == "ren") done = win32::MoveFileW(path.c_str(), JoinPath(ParentPath(path), other).c_str());
      if (tool == "mkdir") done = win32::CreateDirectoryW(path.c_str(), nullptr);
      if (tool == "mountvol") done = rest == " /D" ? UnmountVolume(path) : MountVolume(path, Utf16(rest.substr(1)));
      if (tool == "put") MakeFile(path, "theirs");
      if (tool == "note") done = AddJunctionRegKey(path.c_str(), other.c_str(), 0);
      if (const std::size_t key = path.find(u'*'); tool == "reg") {
        const std::u16string software = u"HKLM\\SOFTWARE\\", full = path.starts_with(u"HKU") ? path : software + path;
        std::u16string text = other;
        std::ranges::replace(text, u'|', u'\0');
        machine->registry().SetText(full.substr(0, full.find(u'*')), path.substr(key + 1), text,
                                    text == other ? win32::REG_SZ : win32::REG_MULTI_SZ);
      }
      if (CQBConfig config; tool == "outdir")
        done = config.Init() && config.SetOutDir(!path.empty(), path) && SaveConfiguration(config);
      if (tool == "load") done = machine->registry().LoadHive(path, other) == 0;
      if (tool == "unload") done = machine->registry().UnloadHive(path) == 0;
      if (tool == "forget") done = DeleteRegKey(path.c_str(), other.c_str(), 0);
      for (const std::u16string& item : tool == "robocopy" ? Names(path) : Words())
        if (!Exists(other + item)) MakeFile(other + item, Contents(path + item));
      if (tool.starts_with("QBC")) RunLine((*at)[0]);
      EXPECT_TRUE(done) << todo << ": " << tool;
    }
    EnablePrivileges();
  }
  // All that is on the disks outside Windows, and what the product and Windows record.
  std::map<std::u16string, std::string> Everything() {
    std::map<std::u16string, std::string> all{{u"profile", Utf8(ImagePath())}};
    for (const auto* folder : {u"C:\\Data", u"C:\\Lists", u"C:\\Users", u"C:\\100% & 'more'"})
      for (const auto& [path, description] : AllOf(folder))
        if (path.find(u"NTUSER.DAT") == path.npos)  // folders have the times of what came and went
          all[folder + path] = std::regex_replace(description, std::regex("^(attributes 1.).*written \\d+"), "$1");
    for (const auto& path : Names(u"D:\\"))
      if (path[1] != u'$' && !path.starts_with(u"\\System") && path != u"\\Profiles") all[path];  // that place may stay
    for (const auto* value : {u"Default", u"Public", u"ProfilesDirectory"})
      all[value] = Utf8(machine->registry().Query(kProfileList, value)->Text());
    for (const auto* kind : {u"Junctions", u"FileJunctions"})
      for (const auto& [source, target] : AllRecords(kind)) all[source] = Utf8(target);
    return all;
  }
};

// From within a source, out of a target, into a target; files out of them and into them; the same of profiles.
TEST_F(SurveyOfWhatIs, TheWayHomeOfWhatLiesInEachOther) {
  const char* const kNothing = "Nothing is redirected.\n";
  EXPECT_EQ(Survey({u"list"}).output + Survey({u"undo"}).output, std::string(kNothing) + "REM - " + kNothing);
  for (const auto* folder : {u"C:\\100% & 'more'", u"C:\\Data\\in\\most"}) MakeFolder(folder);
  const auto before = Everything();
  for (const Words& words : {Words{u"/RedirectFile", u"C:\\Data\\in\\2.txt", u"/loc:D:\\Files"},
                             {u"/RedirectFolder", u"C:\\Data\\in\\most", u"/loc:D:\\Kept"},
                             {u"/RedirectFolder", u"C:\\Data\\in", u"/vol:" + kVolume},
                             {u"/RedirectFolder", u"C:\\Data", u"/loc:D:\\Kept"},
                             {u"/RedirectFolder", u"C:\\100% & 'more'", u"/loc:D:\\Kept\\Data"},
                             {u"/RedirectFile", u"C:\\Lists\\a.txt", u"/loc:C:\\Data"},
                             {u"/RedirectFolder", kAnna + u"\\Pictures", u"/loc:D:\\Kept"},
                             {u"/RedirectUP", u"anna", u"/loc:D:\\Profiles"},
                             {u"/RedirectFile", u"C:\\Lists\\b.txt", u"/loc:D:\\Profiles\\anna\\Documents"},
                             {u"/RedirectRegKeyLocation", u"/loc:D:\\Files"},
                             {u"/RedirectRegKey", u"HKEY_LOCAL_MACHINE\\SOFTWARE\\Classes"},
                             {u"/AutoRedirectUP", u"/loc:D:\\Profiles", u"/RedirectDefaultAndPublicProfile"}})
    Redirect(words);
  EXPECT_EQ(Rows(0, "").size(), 15u);
  std::istringstream script(Survey({u"undo"}).output);
  for (std::string line; std::getline(script, line);)
    if (line.starts_with("QBC ")) RunLine(line);
  EXPECT_EQ(Survey({u"list"}).output, kNothing);
  const auto after = Everything();
  for (const auto& [path, what] : before)
    EXPECT_TRUE(after.contains(path) && after.at(path) == what) << Utf8(path) << " was " << what;
  for (const auto& [path, what] : after) EXPECT_TRUE(before.contains(path)) << Utf8(path) << " is " << what;
}

// Each is broken; list finds just that; what it says is done, then what is left to do, and all is whole again.
TEST_F(SurveyOfWhatIs, WhatIsBrokenIsMendedByWhatListSaysAndWhatCannotBeAskedIsNotCalledWhole) {
  machine->registry().SetText(u"HKLM\\SOFTWARE\\Gone", u"x", u"y");
  for (const Words& words : {Words{u"/RedirectFolder", u"C:\\Data\\in", u"/vol:" + kVolume},
                             {u"/RedirectFolder", u"C:\\Data", u"/loc:D:\\Kept"},
                             {u"/RedirectFile", u"C:\\Lists\\a.txt", u"/loc:D:\\Files"},
                             {u"/RedirectUP", u"anna", u"/loc:D:\\Profiles"},
                             {u"/AutoRedirectUP", u"/loc:D:\\Profiles", u"/RedirectDefaultAndPublicProfile"},
                             {u"/RedirectRegKey", u"HKEY_LOCAL_MACHINE\\SOFTWARE\\Gone"}})
    Redirect(words);
  const char* const kRows[][3] = {
      {"source-missing ", R"(rmdir "C:\Data")", ""},
      {"source-is-empty-folder ", R"(rmdir "C:\Data" mkdir "C:\Data")", ""},
      {"source-is-file ", R"(rmdir "C:\Data" put "C:\Data")", R"(del "C:\Data.old")"},
      {"source-is-folder ", R"(rmdir "C:\Data" mkdir "C:\Data" put "C:\Data\x")", R"(del "D:\Kept\Data\x")"},
      {"source-is-symbolic-link ", R"(rmdir "C:\Data" mklink "C:\Data" "D:\Kept\Data")", ""},
      {"leads-elsewhere ", R"(rmdir "C:\Data" mklink /J "C:\Data" "C:\Lists")", ""},
      {"leads-nowhere ", R"(rmdir "C:\Data" mklink /J "C:\Data" "D:\gone")", ""},
      {"target-is-link ", R"(ren "D:\Kept\Data" "Other" mklink /J "D:\Kept\Data" "D:\Kept\Other")",
       R"(rmdir "D:\Kept\Data" ren "D:\Kept\Other" "Data")"},
      {"target-missing inside-broken ", R"(ren "D:\Kept\Data" "Other")", R"(ren "D:\Kept\Other" "Data")"},
      {"same-source target-missing same-source ", R"(note "C:\Data" "D:\x")", R"(forget "C:\Data" "D:\x")"},
      {"same-target source-missing same-target ", R"(note "C:\x" "D:\Kept\Data")",
       R"(forget "C:\x" "D:\Kept\Data" rmdir "C:\x")"},
      {"half-record ", R"(note "C:\x" "")", R"(forget "C:\x" "")"},
      {"both-missing ", R"(note "C:\y" "D:\y")", R"(forget "C:\y" "D:\y" rmdir "C:\y")"},
      {"volume-not-mounted ", R"(mountvol "D:\Kept\Data\in" /D)", ""},
      {"mount-folder-missing ", R"(mountvol "D:\Kept\Data\in" /D rmdir "D:\Kept\Data\in")", ""},
      {"mount-folder-is-link ",
       R"(mountvol "D:\Kept\Data\in" /D rmdir "D:\Kept\Data\in" mklink /J "D:\Kept\Data\in" "C:\Lists")", ""},
      {"mount-folder-is-file ", R"(mountvol "D:\Kept\Data\in" /D rmdir "D:\Kept\Data\in" put "D:\Kept\Data\in")",
       R"(del "D:\Kept\Data\in.old")"},
      {"mount-folder-is-full ", R"(mountvol "D:\Kept\Data\in" /D put "D:\Kept\Data\in\x")", ""},
      {"volume-mounted-elsewhere ",
       R"(mountvol "D:\Kept\Data\in" /D mkdir "C:\V" mountvol "C:\V" \\?\Volume{12345678-0000-4000-8000-000000000000}\ )",
       ""},
      {"link-missing ", R"(del "C:\Lists\a.txt")", ""},
      {"file-without-link ", R"(del "C:\Lists\a.txt" put "C:\Lists\a.txt")", ""},
      {"link-leads-elsewhere ", R"(del "C:\Lists\a.txt" mklink "C:\Lists\a.txt" "D:\gone")", ""},
      {"link-is-other ", R"(del "C:\Lists\a.txt" mkdir "C:\Lists\a.txt")", ""},
      {"file-missing ", R"(ren "D:\Files\a.txt" "x")", R"(ren "D:\Files\x" "a.txt")"},
      {"profile-missing ", R"(ren "D:\Profiles\anna" "x")", R"(ren "D:\Profiles\x" "anna")"},
      {"hive-missing ", R"(ren "D:\Profiles\anna\NTUSER.DAT" "x")", R"(ren "D:\Profiles\anna\x" "NTUSER.DAT")"},
      {"hive-damaged ", R"(ren "D:\Profiles\anna\NTUSER.DAT" "x" put "D:\Profiles\anna\NTUSER.DAT")",
       R"(del "D:\Profiles\anna\NTUSER.DAT" ren "D:\Profiles\anna\x" "NTUSER.DAT")"},
      {"second-hive ", R"(put "C:\Users\anna\NTUSER.DAT")", R"(del "C:\Users\anna\NTUSER.DAT")"},
      {"profile-split ", R"(put "C:\Users\anna\x")", R"(del "C:\Users\anna\x")"},
      {"profile-part-beside ", R"(mkdir "D:\Profiles\anna.temp" put "D:\Profiles\anna.temp\x")",
       R"(del "D:\Profiles\anna.temp\x")"},
      {"shared-missing ", R"(ren "D:\Profiles\Public" "x")", R"(ren "D:\Profiles\x" "Public")"},
      {"source-has-volume ",
       R"(rmdir "C:\Data" mkdir "C:\Data" mountvol "C:\Data" \\?\Volume{12345678-0000-4000-8000-000000000000}\ )", ""},
      {"target-is-no-folder inside-broken ", R"(ren "D:\Kept\Data" "Other" put "D:\Kept\Data")",
       R"(del "D:\Kept\Data" ren "D:\Kept\Other" "Data")"},
      {"volume-missing ", R"(note "C:\z" "\\?\Volume{0}\")", R"(forget "C:\z" "\\?\Volume{0}\")"},
      {"file-both-missing ", R"(del "C:\Lists\a.txt" ren "D:\Files\a.txt" "x")", R"(ren "D:\Files\x" "a.txt")"},
      {"file-is-folder ", R"(ren "D:\Files\a.txt" "x" mkdir "D:\Files\a.txt")",
       R"(rmdir "D:\Files\a.txt" ren "D:\Files\x" "a.txt")"},
      {"profile-is-file ", R"(ren "D:\Profiles\anna" "x" put "D:\Profiles\anna")",
       R"(del "D:\Profiles\anna" ren "D:\Profiles\x" "anna")"},
      {"same-profile same-profile ",
       R"(reg "Microsoft\Windows NT\CurrentVersion\ProfileList\S-1-5-21-1004336348-1177238915-682003330-1002*ProfileImagePath" "D:\Profiles\anna")",
       R"(reg "Microsoft\Windows NT\CurrentVersion\ProfileList\S-1-5-21-1004336348-1177238915-682003330-1002*ProfileImagePath" "C:\Users\jan")"},
      {"automatic-elsewhere ", R"(reg "Microsoft\Windows NT\CurrentVersion\ProfileList*ProfilesDirectory" "D:\Kept")",
       R"(reg "Microsoft\Windows NT\CurrentVersion\ProfileList*ProfilesDirectory" "D:\Profiles")"},
      {"profile-missing automatic-missing shared-missing shared-missing location-missing ", R"(ren "D:\Profiles" "x")",
       R"(ren "D:\x" "Profiles")"},
      {"automatic-not-recorded configuration-damaged ",
       R"(ren "C:\Program Files\Velmora\Quillbay\ServiceConfig.xml" "x" put "C:\Program Files\Velmora\Quillbay\ServiceConfig.xml")",
       R"(del "C:\Program Files\Velmora\Quillbay\ServiceConfig.xml" ren "C:\Program Files\Velmora\Quillbay\x" "ServiceConfig.xml")"},
      {"shared-volume-missing ",
       R"(reg "Wow6432Node\Velmora\Quillbay\ProfileRedirection*Public" "C:\Users\Public|D:\Profiles\Public|x|")",
       R"(reg "Wow6432Node\Velmora\Quillbay\ProfileRedirection*Public" "C:\Users\Public|D:\Profiles\Public|")"},
      {"profile-list-not-kept no-location no-location ", R"(outdir "")", R"(outdir "D:\Profiles")"},
      {"hive-elsewhere ",
       R"(load "HKU\S-1-5-21-1004336348-1177238915-682003330-1001" "D:\Profiles\anna\NTUSER.DAT" reg "HKU\S-1-5-21-1004336348-1177238915-682003330-1001\Volatile Environment*USERPROFILE" "C:\x")",
       R"(unload "HKU\S-1-5-21-1004336348-1177238915-682003330-1001")"},
      {"key-missing ", "", ""}};
  for (const auto& [names, breaking, mending] : kRows) {
    DoAsTold(breaking);
    if (std::string(names) == "key-missing ") win32::RegDeleteKeyW(win32::HKEY_LOCAL_MACHINE, u"SOFTWARE\\Gone");
    const Json rows = Rows(1, names);
    std::string found;
    for (const Json& row : rows) found += NamesIn(row);
    EXPECT_EQ(found, names);
    for (const Json& row : rows)
      for (const Json& finding : row["findings"])
        if (finding["todo"].get<std::string>().find("FOLDER") == std::string::npos) DoAsTold(finding["todo"]);
    DoAsTold(mending);
    Rows(0, names);
  }
  // Broken and whole ones, asked with each of the calls refused: what is broken is never called whole, what is whole
  // never broken, and what is not in the list is told to be missing.
  DoAsTold(R"(rmdir "C:\Data" del "C:\Lists\a.txt" mountvol "D:\Kept\Data\in" /D)");
  DoAsTold(R"(ren "D:\Profiles\anna\NTUSER.DAT" "y" ren "D:\Profiles\Public" "y")");
  int exitCode = 0;
  const auto states = [&] {
    const ReportRun answer = Survey({u"list", u"--check", u"--json"});
    exitCode = answer.exitCode;
    std::map<std::string, Json> all;
    const Json document = answer.output.empty() ? Json::object() : Json::parse(answer.output);
    for (const Json& row : document.value("rows", Json::array()))
      all[row["kind"].get<std::string>() + row["source"].dump() + row["target"].dump()] = row["state"];
    return all;
  };
  const auto truth = states();
  ASSERT_EQ(exitCode, 1);
  std::uint64_t call = 1;
  for (bool happened = true; happened && !HasFailure(); ++call) {
    constexpr win32::DWORD kGeneralFailure = 31;
    const std::uint64_t before = machine->gate.failures();
    machine->gate.FailCall(call, kGeneralFailure);
    const auto found = states();
    happened = machine->gate.failures() != before;
    machine->gate.ClearFailures();
    for (const auto& [row, state] : truth)
      EXPECT_TRUE(!found.contains(row) ? exitCode == 3 : found.at(row) == state || found.at(row) == "cannot-be-told")
          << "call " << call << ": " << row;
    EXPECT_NE(exitCode, 0) << "call " << call;
  }
  EXPECT_GT(call, 100u);
}

struct Form {
  const char* name;
  Words words, before;
  std::u16string source, target;
  Words files;
};

class SurveyOfWhatIsLeft : public SurveyOfWhatIs, public testing::WithParamInterface<Form> {
 protected:
  static bool IsPlain(const std::u16string& path) {
    return Exists(path) && (Attributes(path) & win32::FILE_ATTRIBUTE_REPARSE_POINT) == 0;
  }
  static bool IsFull(const std::u16string& folder) { return IsPlain(folder) && !Names(folder).empty(); }
  static bool Holds(const std::u16string& place) {
    return std::ranges::all_of(GetParam().files, [&](const auto& file) { return Exists(place + file); });
  }
  // What the disks and the registry are, without a question to what is tested.
  bool IsWhole() {
    const auto& [name, words, before, source, target, files] = GetParam();
    const bool onVolume = target == kVolume;
    if (IsFull(source + u".mount") || IsFull(source + u".temp")) return false;
    const Pairs records = AllRecords(files.size() == 1 ? u"FileJunctions" : u"Junctions");
    const auto isHalf = [](const auto& record) { return record.second == u"(none)"; };
    if (source == kAnna)
      return ImagePath() == (onVolume ? source : target) && Holds(ImagePath()) && onVolume != IsPlain(source) &&
             !IsFull(source) && !Exists(source + u".mount") && std::ranges::none_of(records, isHalf);
    return std::ranges::count(records, std::pair(source, target)) && !IsPlain(source) && Holds(source) &&
           Holds(onVolume ? target.substr(0, target.size() - 1) : target);
  }
  bool IsSo(const std::string& finding) {
    const std::u16string &source = GetParam().source, &target = GetParam().target, hive = u"\\NTUSER.DAT",
                         mount = source + u".mount", temporary = source + u".temp";
    const bool isEmpty = IsPlain(source) && !IsFull(source);
    const std::map<std::string, bool> facts{{"source-is-folder", IsFull(source)},
                                            {"source-is-empty-folder", isEmpty},
                                            {"link-missing", !Exists(source)},
                                            {"file-without-link", IsPlain(source)},
                                            {"file-missing", !Exists(target)},
                                            {"half-record", !Exists(mount)},
                                            {"removal-cut-off", IsFull(mount)},
                                            {"removal-all-but-done", IsFull(mount)},
                                            {"hive-missing", !Exists(ImagePath() + hive)},
                                            {"profile-beside", Exists(mount + hive) || Exists(temporary + hive)},
                                            {"profile-part-beside", Exists(mount) || Exists(temporary)},
                                            {"profile-in-side-folder", ImagePath() != source && ImagePath() != target},
                                            {"profile-split", IsFull(source)},
                                            {"second-hive", Exists(source + hive) && Exists(target + hive)}};
    return facts.contains(finding) && facts.at(finding);
  }
  void ExpectTruth(const std::string& when) {
    EnablePrivileges();
    const bool isWhole = IsWhole();
    const Json rows = Rows(-1, when);
    EnablePrivileges();
    for (const Json& row : rows)
      for (const Json& finding : row["findings"]) EXPECT_TRUE(IsSo(finding["name"])) << when << row;
    EXPECT_EQ(rows.size() == 1 && rows[0]["state"] == "whole", isWhole) << when << rows;
    whole_ += isWhole;
  }

  int whole_ = 0;
};

TEST_P(SurveyOfWhatIsLeft, IsTrueAfterAPowerFailureAndAfterAFailure) {
  const std::size_t step = 13 * CallsInOneStep();  // of a thousand calls and more
  if (!GetParam().before.empty()) Redirect(GetParam().before);
  const Disks disks = machine->Snapshot();
  const auto run = [&](Machine& on) { return RunProgram(on, GetParam().words); };
  std::unique_ptr<Machine> first = std::move(machine);
  const auto look = [&](Machine& after, const std::string& moment) {
    machine.reset(&after);
    ExpectTruth(moment);
    (void)machine.release();  // it is not ours
  };
  StartAgain(first, disks);
  AtEveryMoment(*first, run, look, step);
  machine = std::move(first);
  bool happened = true;
  for (std::uint64_t call = step; happened && !HasFailure(); call += 2 * step) {
    StartAgain(machine, disks);
    machine->gate.FailCall(call, win32::ERROR_ACCESS_DENIED);
    run(*machine);
    happened = machine->gate.failures() != 0;
    machine->gate.ClearFailures();
    ExpectTruth("call " + std::to_string(call));
  }
  EXPECT_GT(whole_, 0);
}

const std::u16string kData = u"C:\\Data", kKept = u"D:\\Kept\\Data", kOne = kData + u"\\1.txt",
                     kAnnas = u"C:\\Users\\anna";
const Words kInData{u"\\1.txt", u"\\in\\2.txt"}, kOfAnna{u"\\NTUSER.DAT", u"\\Documents\\letter.txt"},
    kToKept{u"/RedirectFolder", kData, u"/loc:D:\\Kept"}, kToVolume{u"/RedirectFolder", kData, u"/vol:" + kVolume},
    kFile{u"/RedirectFile", kOne, u"/loc:D:\\Kept"}, kAnnaThere{u"/RedirectUP", u"anna", u"/loc:" + kPlace},
    kAnnaOnto{u"/RedirectUP", u"anna", u"/vol:" + kVolume}, kAnnaHome{u"/RedirectUPDefault", u"anna"};
Words Home(Words words) {
  words.push_back(u"/d");
  return words;
}
INSTANTIATE_TEST_SUITE_P(Of, SurveyOfWhatIsLeft,
                         testing::Values(Form{"Folder", kToKept, {}, kData, kKept, kInData},
                                         Form{"FolderHome", Home(kToKept), kToKept, kData, kKept, kInData},
                                         Form{"Volume", kToVolume, {}, kData, kVolume, kInData},
                                         Form{"VolumeHome", Home(kToVolume), kToVolume, kData, kVolume, kInData},
                                         Form{"File", kFile, {}, kOne, u"D:\\Kept\\1.txt", {u""}},
                                         Form{"FileHome", Home(kFile), kFile, kOne, u"D:\\Kept\\1.txt", {u""}},
                                         Form{"Profile", kAnnaThere, {}, kAnnas, kPlace + u"\\anna", kOfAnna},
                                         Form{"ProfileHome", kAnnaHome, kAnnaThere, kAnnas, kPlace + u"\\anna",
                                              kOfAnna},
                                         Form{"ProfileOnto", kAnnaOnto, {}, kAnnas, kVolume, kOfAnna},
                                         Form{"ProfileFrom", kAnnaHome, kAnnaOnto, kAnnas, kVolume, kOfAnna}),
                         [](const auto& form) { return form.param.name; });

}  // namespace
