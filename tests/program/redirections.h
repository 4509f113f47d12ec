// What the tests of redirections share: a workstation with C:, D:, E: and a volume without a letter; what a command
// answers, and all that it may have changed.
#pragma once

#include "program/everything.h"

namespace test {

inline const std::u16string kQuillbay = u"HKLM\\SOFTWARE\\Wow6432Node\\Velmora\\Quillbay";
inline const std::u16string kVolume = u"\\\\?\\Volume{12345678-0000-4000-8000-000000000000}\\";

// Source and target of the records, by their numbers.
using Records = std::map<std::u16string, std::pair<std::u16string, std::u16string>>;

// All that a run answers: exit code, console, log without times and looks at links. It calls the volume VOLUME, a file
// that moves SOURCE at its old place, what moves TARGET at its new one, the mount folder MOUNT; so do changes.
std::string AnswerOf(const RunResult& run);
// The same as it must be, of "File Redirection" and its like: `log` is what comes before the outcome, `said` what the
// console says before it.
std::string Succeeded(const std::string& what, const std::string& log = {}, const std::string& said = {});
std::string Failed(const std::string& what, const std::string& log, const std::string& said = {});

// A command some of whose calls are refused ("CopyFileW 1, MoveFileW 2"): what it logs before its outcome, what it then
// changed, what it says before its outcome, and whether it succeeds all the same.
struct Failure {
  std::string calls, log, changes = {}, said = {};
  bool done = false;
};

class Redirections : public ::testing::Test {
 protected:
  // What is on the disks outside Windows, items with all that they have and their security; the product's registry,
  // shares, where the volume is mounted, the service.
  using State = std::map<std::string, std::string>;

  RunResult Run(std::initializer_list<std::u16string> words) { return RunPlanned(*machine, words); }
  // The same disks in another machine.
  void Restart(const Disks& disks) { StartAgain(machine, disks); }
  // Each row on the disks as they are now; `first` is what the log has before all else.
  void ExpectFailures(std::initializer_list<std::u16string> words, const std::string& what, const std::string& first,
                      const std::vector<Failure>& rows);
  // With each of its calls refused in turn, it is done as ever, or all is as before; or what is different is one of
  // `told`, with the words that the log must have for it. Nothing is lost in any case.
  using Told = std::vector<std::pair<std::string, std::u16string>>;
  void RefuseEachCall(std::initializer_list<std::u16string> words, const Told& told);
  virtual void ExpectNothingLost(const std::string& /*when*/) {}

  std::string AnswerTo(std::initializer_list<std::u16string> words) { return AnswerOf(Run(words)); }

  // With "/d" back.
  void Redirect(const std::u16string& folder, const std::u16string& location, const std::u16string& way = u"/c");
  void Remove(const std::u16string& folder, const std::u16string& location) { Redirect(folder, location, u"/d"); }
  // Each is refused and changes nothing. What is logged is all of it when it ends with its line.
  struct Refusal {
    std::u16string source, target;
    std::string logged;
  };
  void ExpectRefused(const std::u16string& command, const std::vector<Refusal>& rows, const std::u16string& way = u"/c",
                     const std::u16string& option = u"/loc:");

  Records AllRecords(const std::u16string& list = u"Junctions") const;
  static bool IsLink(const std::u16string& path) {
    return Exists(path) && (Attributes(path) & win32::FILE_ATTRIBUTE_REPARSE_POINT) != 0;
  }
  // Owner and entries of an item, without the control bits, which tell whether Windows has worked out inheritance.
  static std::u16string Access(const std::u16string& path);
  static std::u16string Entries(const std::u16string& path) {
    const std::u16string dacl = Dacl(path);
    return dacl.substr(std::min(dacl.find(u'('), dacl.size()));
  }

  State Now() const;
  // What differs, a line for each name; empty when nothing does.
  static std::string Differences(const State& before, const State& after);
  // What there is in a folder, and itself, by the path below it.
  static State Below(const State& state, const std::string& folder);
  std::string ChangesSince(const State& before) const { return Differences(before, Now()); }

  bool timesOfFolders = true;  // and of links: part of the state
  std::unique_ptr<emulated::Machine> machine = test::InstalledMachine({.extraDrives = 1, .volumes = 1});
};

// A folder with security, a stream and times of its own, and what is in it; and where it goes.
class OneFolder : public Redirections {
 protected:
  explicit OneFolder(std::u16string target = u"/loc:D:\\Target");
  RunResult Redirect(const std::u16string& word = u"/c") { return Run({u"/RedirectFolder", u"C:\\Data", to, word}); }
  RunResult Remove() { return Redirect(u"/d"); }
  // There or not: every file is somewhere.
  void ExpectNothingLost(const std::string& when) override;

  const std::u16string to;
};
// A line for each item in it, and for each that moves.
std::string Items(const std::string& prefix, const std::string& folder);
std::string Moved(const std::string& from, const std::string& to);
// What is logged when its largest file cannot be copied, and cannot on the way back.
std::string NotCopied(const std::string& from, const std::string& to);
std::string NotMovedBack(const std::string& from);

}  // namespace test
