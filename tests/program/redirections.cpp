#include "program/redirections.h"

namespace test {

namespace {

using emulated::Utf8;

void Replace(std::string& text, std::string_view old, std::string_view by) {
  for (std::size_t at = 0; (at = text.find(old, at)) != std::string::npos; at += by.size())
    text.replace(at, old.size(), by);
}

// Long names are short in what is compared.
void Neutralize(std::string& text) {
  for (const auto& [name, shorter] : {std::pair(Utf8(kVolume), "VOLUME\\"),
                                      {Utf8(kQuillbay), "QUILLBAY"},
                                      {"C:\\Data\\file.txt", "SOURCE"},
                                      {"D:\\Target\\file.txt", "TARGET"},
                                      {"D:\\Target\\Data", "TARGET"},
                                      {"C:\\Data.mount", "MOUNT"}})
    Replace(text, name, shorter);
}

std::string Outcome(bool good, const std::string& what, const std::string& said, const std::string& log) {
  const bool removal = what.ends_with("Removal");
  const std::string text = what + (good ? " was successful." : removal ? " was not successful." : " was unsuccessful.");
  const std::string logged = good ? "" : "Errors logged in C:\\Program Files\\Velmora\\Quillbay\\QBC.log.\n";
  return (good ? "exit 0\n" : "exit 1\n") + said + logged + text + "\n" + log + text;
}

void AddKey(emulated::Registry& registry, const std::u16string& path, std::map<std::string, std::string>& state) {
  for (const auto& value : registry.Values(path)) state[Utf8(path + u" " + value.name + u" = " + value.Text())];
  for (const std::u16string& key : registry.SubKeys(path)) AddKey(registry, path + u"\\" + key, state);
}

// Everything below a folder; links are not entered, nor what is Windows' own.
void AddBelow(const std::u16string& folder, bool withTimes, std::map<std::string, std::string>& state) {
  static const std::set<std::u16string> kWindows{
      u".", u"..", u"System Volume Information", u"Windows", u"Users", u"ProgramData", u"QBC.log"};
  win32::WIN32_FIND_DATAW found{};
  const win32::UniqueFind find{win32::FindFirstFileW((folder + u"\\*").c_str(), &found)};
  if (!find) return;
  do {
    const std::u16string path = folder + u"\\" + found.cFileName;
    if (kWindows.contains(found.cFileName)) continue;
    const bool isLink = (found.dwFileAttributes & win32::FILE_ATTRIBUTE_REPARSE_POINT) != 0;
    const bool isFolder = (found.dwFileAttributes & win32::FILE_ATTRIBUTE_DIRECTORY) != 0;
    const bool noTimes = (!withTimes && (isFolder || isLink)) || path.starts_with(u"C:\\Program Files");
    state[Utf8(path)] = (noTimes ? std::to_string(found.dwFileAttributes) + " " + Streams(path) : Describe(path)) +
                        " " + Utf8(Security(path));
    Replace(state[Utf8(path)], "AI(", "(");  // whether Windows has worked out inheritance is nobody's business
    if (isFolder && !isLink) AddBelow(path, withTimes, state);
  } while (win32::FindNextFileW(find.get(), &found));
}

}  // namespace

std::string AnswerOf(const RunResult& run) {
  std::string log;
  for (std::u16string_view rest = run.log; !rest.empty();) {
    const std::size_t end = std::min(rest.find(u'\n', 1), rest.size());
    std::string line = Utf8(rest.substr(1, end - 1));
    rest.remove_prefix(end);
    if (const std::size_t time = line.find("] "); line.starts_with("[") && time != std::string::npos)
      line.erase(0, time + 2);
    const bool isOfLinks = line.starts_with("IsSymbolicLink()::");  // said of every look at one
    if (line != "----------------------------------" && !isOfLinks) log += "\n" + line;
  }
  std::string text = "exit " + std::to_string(run.exitCode) + "\n" + Utf8(run.said) + log;
  Neutralize(text);
  return text;
}

std::string Succeeded(const std::string& what, const std::string& log, const std::string& said) {
  return Outcome(true, what, said, log);
}
std::string Failed(const std::string& what, const std::string& log, const std::string& said) {
  return Outcome(false, what, said, log);
}

void Redirections::ExpectFailures(std::initializer_list<std::u16string> words, const std::string& what,
                                  const std::string& first, const std::vector<Failure>& rows) {
  const Disks disks = machine->Snapshot();
  const State before = Now();
  for (const Failure& row : rows) {
    Restart(disks);
    std::istringstream calls(row.calls);
    std::uint64_t number = 0;
    for (std::string name; calls >> name >> number; calls.ignore())
      machine->gate.FailCall(name, number, win32::ERROR_ACCESS_DENIED);
    const std::string answer = AnswerTo(words);
    machine->gate.ClearFailures();
    // Whether the service has work left, which a file's removal tells at the end, the changes show.
    EXPECT_EQ(answer.substr(0, answer.find("\nRemoveFileRedirection - Is")),
              Outcome(row.done, what, row.said, first + row.log))
        << row.calls;
    EXPECT_EQ(ChangesSince(before), row.changes) << row.calls;
  }
  Restart(disks);
}

void Redirections::RefuseEachCall(std::initializer_list<std::u16string> words, const Told& told) {
  const Disks disks = machine->Snapshot();
  const State before = Now();
  ASSERT_EQ(Run(words).exitCode, 0);
  const State done = Now();
  Restart(disks);
  const auto examine = [&](const RunResult& run, const std::string& when) {
    ASSERT_TRUE(run.exitCode == 0 || run.exitCode == 1) << when;
    const std::string different = Differences(run.exitCode == 0 ? done : before, Now());
    if (different.empty()) return;
    ExpectNothingLost(when);
    // What a handle still holds that could not be closed can be neither removed nor replaced.
    if (when.substr(0, when.find(',')).find("Close") != std::string::npos) return;
    const auto tells = [&](const auto& one) { return one.first == different && run.Logged(one.second); };
    EXPECT_TRUE(std::ranges::any_of(told, tells)) << "exit " << run.exitCode << ", " << different << when;
  };
  WithEachCallRefused(
      machine, [&] { return Run(words); }, examine);
  Restart(disks);
}

void Redirections::Redirect(const std::u16string& folder, const std::u16string& location, const std::u16string& way) {
  const RunResult run = Run({u"/RedirectFolder", folder, u"/loc:" + location, way});
  ASSERT_EQ(run.exitCode, 0) << Utf8(folder) << ": " << Utf8(run.log);
  ASSERT_EQ(IsLink(folder), way == u"/c") << Utf8(folder);
}

void Redirections::ExpectRefused(const std::u16string& command, const std::vector<Refusal>& rows,
                                 const std::u16string& way, const std::u16string& option) {
  const std::string what = Utf8(command.substr(9)) + " Redirection" + (way == u"/d" ? " Removal" : "");
  const State before = Now();
  for (const auto& [source, target, logged] : rows) {
    const std::string answer = AnswerTo({command, source, option + target, way}), shown = Utf8(source + u" " + target);
    if (logged.ends_with('\n'))
      EXPECT_EQ(answer, Failed(what, logged)) << shown;
    else
      EXPECT_TRUE(answer.starts_with("exit 1\n") && answer.find(logged) != std::string::npos) << shown << answer;
    EXPECT_EQ(ChangesSince(before), "") << shown;
  }
}

Records Redirections::AllRecords(const std::u16string& list) const {
  Records records;
  for (const std::u16string& number : machine->registry().SubKeys(kQuillbay + u"\\" + list)) {
    const auto text = [&](const char16_t* name) {
      return machine->registry().Query(kQuillbay + u"\\" + list + u"\\" + number, name).value().Text();
    };
    records[number] = {text(u"Source"), text(u"Target")};
  }
  return records;
}

std::u16string Redirections::Access(const std::u16string& path) {
  const std::u16string text = Security(path);
  return text.substr(0, text.find(u"G:")) + Entries(path);
}

Redirections::State Redirections::Now() const {
  EXPECT_TRUE(EnablePrivileges());  // what nobody but SYSTEM may read is looked at, too
  State state;
  const std::u16string volume = kVolume.substr(0, kVolume.size() - 1);
  for (const std::u16string& root : {std::u16string(u"C:"), std::u16string(u"D:"), std::u16string(u"E:"), volume})
    AddBelow(root, timesOfFolders, state);
  state["root of the volume"] = Utf8(Access(kVolume));
  AddKey(machine->registry(), kQuillbay, state);
  for (const auto& [name, path] : Shares()) state["share " + Utf8(name) + " = " + Utf8(path)];
  char16_t mounts[300];
  win32::DWORD length = 0;
  EXPECT_TRUE(win32::GetVolumePathNamesForVolumeNameW(kVolume.c_str(), mounts, 300, &length));
  std::replace(mounts, mounts + length - 1, u'\0', u'|');
  state["mounts = " + Utf8({mounts, length - 1})];
  state["service: " + std::to_string(machine->services().State(kQuillbayService)) + ", starts " +
        std::to_string(machine->services().Configuration(kQuillbayService)->start)];
  return state;
}

std::string Redirections::Differences(const State& before, const State& after) {
  std::string text;
  for (const auto& [name, value] : before)
    if (const auto found = after.find(name); found == after.end() || found->second != value)
      text += (found == after.end() ? "gone: " : "changed: ") + name + "\n";
  for (const auto& [name, value] : after)
    if (!before.contains(name)) text += "new: " + name + "\n";
  Neutralize(text);
  return text;
}

Redirections::State Redirections::Below(const State& state, const std::string& folder) {
  State below;
  for (const auto& [name, value] : state)
    if (name == folder || name.starts_with(folder + "\\")) below[name.substr(folder.size())] = value;
  return below;
}

OneFolder::OneFolder(std::u16string target) : to(std::move(target)) {
  EXPECT_TRUE(EnablePrivileges());
  MakeFolder(u"C:\\Data");
  SetSecurity(u"C:\\Data", u"O:SYD:P(A;OICI;FA;;;BA)(A;OICI;FA;;;SY)(A;OICI;0x1200a9;;;BU)");
  MakeFile(u"C:\\Data:label", "of the folder");
  MakeFolder(u"C:\\Data\\inner");
  MakeFile(u"C:\\Data\\one.txt", "first");
  MakeFile(u"C:\\Data\\one.txt:note", "a named stream");
  SetSecurity(u"C:\\Data\\one.txt", u"O:SYD:P(A;;FA;;;BA)(A;;FR;;;AU)");
  MakeFile(u"C:\\Data\\inner\\two.bin", std::string(70000, 'x'),
           win32::FILE_ATTRIBUTE_READONLY | win32::FILE_ATTRIBUTE_HIDDEN);
  unsigned number = 20;
  for (const auto* item : {u"C:\\Data\\inner\\two.bin", u"C:\\Data\\inner", u"C:\\Data\\one.txt", u"C:\\Data"})
    SetTimes(item, ++number);
  MakeFolder(u"D:\\Target");
}

// An administrator with backup privileges looks: a DACL that could not be copied is not lost data.
void OneFolder::ExpectNothingLost(const std::string& when) {
  ASSERT_TRUE(EnablePrivileges());
  for (const auto& [name, contents] : {std::pair(u"\\one.txt", std::string("first")),
                                       {u"\\one.txt:note", "a named stream"},
                                       {u"\\inner\\two.bin", std::string(70000, 'x')}}) {
    bool found = false;
    for (const auto& place : {std::u16string(u"C:\\Data"), std::u16string(u"C:\\Data.mount"),
                              std::u16string(u"D:\\Target\\Data"), kVolume.substr(0, kVolume.size() - 1)})
      found |= Contents(place + name) == contents;
    EXPECT_TRUE(found) << Utf8(name) << " is lost: " << when;
  }
}

std::string Items(const std::string& prefix, const std::string& folder) {
  return prefix + folder + "\\inner\n" + prefix + folder + "\\inner\\two.bin\n" + prefix + folder + "\\one.txt\n";
}
std::string Moved(const std::string& from, const std::string& to) {
  std::string lines;
  for (const std::string name : {"\\inner", "\\inner\\two.bin", "\\one.txt"})
    lines += from + name + " -> " + to + name + "\n";
  return lines;
}
std::string NotCopied(const std::string& from, const std::string& to) {
  return "#ERROR: Unable to copy from Source = " + from + "\\inner\\two.bin to Target = " + to +
         "\\inner\\two.bin. Access is denied.\n\n";
}
std::string NotMovedBack(const std::string& from) {
  return NotCopied(from, "C:\\Data") + "#ERROR: Unable to move C:\\Data\\inner\\two.bin back. It stays at " + from +
         "\\inner\\two.bin.\n#ERROR: Unable to move all files and folders back to C:\\Data. The others stay ";
}

}  // namespace test
