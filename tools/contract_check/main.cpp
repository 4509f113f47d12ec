// contract_tests.exe: asks the facts of tests/contract on this machine, writes a report, and leaves nothing else.
#include <atomic>
#include <chrono>
#include <map>
#include <memory>

#include <gtest/gtest.h>

#include "contract_check/arguments.h"
#include "contract_check/asked.h"
#include "contract_check/cleaning.h"
#include "contract_check/facts.h"
#include "contract_check/machine.h"
#include "contract_check/place.h"
#include "contract_check/text.h"

namespace check {
namespace {

enum ExitCode { kAllHeld = 0, kSomeDidNot = 1, kWrongArguments = 2, kNotRun = 3, kNotCleanedUp = 4 };

constexpr char kTitle[] = "contract_tests: what Quillbay takes for granted of Windows, asked on this machine";
const std::map<Verdict, const char*> kVerdicts{{Verdict::Held, "held"},
                                               {Verdict::HeldLater, "held later"},
                                               {Verdict::DidNotHold, "did not hold"},
                                               {Verdict::NotAsked, "not asked"}};

std::atomic<bool> isStopped{false};

// Ctrl+C ends the fact's process by itself; this one goes on to take away what it made. When its window is closed
// Windows gives it some seconds for that.
BOOL WINAPI Stop(DWORD event) {
  isStopped = true;
  if (event == CTRL_CLOSE_EVENT) Sleep(INFINITE);
  return TRUE;
}

std::string Padded(std::string text, std::size_t width) {
  text.resize(std::max(width, text.size() + 1), ' ');
  return text;
}

bool IsBelow(const std::wstring& path, const std::wstring& folder) {
  return CompareStringOrdinal(path.c_str(), static_cast<int>(std::min(path.size(), folder.size() + 1)),
                              (folder + L'\\').c_str(), static_cast<int>(folder.size() + 1), TRUE) == CSTR_EQUAL;
}

class Run {
 public:
  explicit Run(const Arguments& arguments) : arguments_(arguments) {}

  // The whole of it; the exit code.
  int Go() {
    std::wstring whyNot = Prepare();
    if (!whyNot.empty()) {
      Say(Utf8(whyNot) + "\r\nNothing was changed.");
      return kNotRun;
    }
    if (!TakeAwayLeftovers()) return kNotCleanedUp;
    if (arguments_.task == Task::Clean) return kAllHeld;
    facts_ = FactsLike(Utf8(arguments_.fact));
    whyNot = Make();
    if (!whyNot.empty()) {
      Say(Utf8(whyNot));
      return CleanUp() ? kNotRun : kNotCleanedUp;
    }
    SetConsoleCtrlHandler(Stop, TRUE);
    Describe();
    for (std::size_t i = 0; i < facts_.size() && !isStopped; ++i)
      Tell(facts_[i], AskTwice(facts_[i], std::to_wstring(i + 1)));
    const bool isClean = Finish();
    return !isClean ? kNotCleanedUp : isStopped ? kNotRun : counts_[Verdict::DidNotHold] > 0 ? kSomeDidNot : kAllHeld;
  }

 private:
  // Looks at everything and changes nothing. Why it cannot be run; empty when it can.
  std::wstring Prepare() {
    one_ = Handle(CreateMutexW(nullptr, FALSE, L"Global\\ContractTests"));
    if (!one_ || GetLastError() == ERROR_ALREADY_EXISTS) return L"Another contract_tests.exe is at work.";
    std::wstring whyNot = WhyNotHere();
    if (!whyNot.empty()) return whyNot;
    places_.push_back(std::make_unique<Place>(arguments_.folder, whyNot));
    if (whyNot.empty() && !arguments_.other.empty()) {
      places_.push_back(std::make_unique<Place>(arguments_.other, whyNot));
      if (whyNot.empty() && places_[0]->root() == places_[1]->root()) whyNot = L"--other must be on another volume.";
    }
    return whyNot.empty() && arguments_.task == Task::Run ? WhyNotReport() : whyNot;
  }

  std::wstring WhyNotReport() {
    if (arguments_.report.empty()) arguments_.report = places_[0]->folder() + L"-report.txt";
    wchar_t full[1000] = {};
    const DWORD length = GetFullPathNameW(arguments_.report.c_str(), 1000, full, nullptr);
    report_ = length < 1000 ? full : L"";
    for (const auto& place : places_)
      if (IsBelow(report_, place->folder())) return report_ + L" lies in a folder that is taken away at the end.";
    const DWORD attributes = GetFileAttributesW(report_.c_str());
    if (attributes != INVALID_FILE_ATTRIBUTES && !ReadAll(report_).starts_with(kTitle))
      return report_ + L" is there and no report of this program. Name another file with --report.";
    return {};
  }

  // What a run that was ended has left.
  bool TakeAwayLeftovers() {
    bool isAny = false;
    for (const auto& place : places_)
      if (place->hasLeftovers()) {
        isAny = true;
        Say("Taking away what a run that was ended left in " + Utf8(place->work()) + ".");
      }
    HKEY key = nullptr;
    if (RegOpenKeyExW(HKEY_CURRENT_USER, kKey, REG_OPTION_OPEN_LINK, KEY_READ, &key) == 0) {
      RegCloseKey(key);
      isAny = true;
      Say("Taking away what a run that was ended left in HKEY_CURRENT_USER\\" + Utf8(kKey) + ".");
    }
    if (!isAny && arguments_.task == Task::Clean) Say("Nothing was left behind.");
    return !isAny || CleanUp();
  }

  std::wstring Make() {
    for (const auto& place : places_)
      if (std::wstring failed = place->Make(); !failed.empty()) return failed;
    if (const DWORD error = MakeKey()) return std::wstring(kKey) + L" cannot be made: " + ErrorText(error);
    if (!file_.Open(report_)) return report_ + L" cannot be written: " + ErrorText(GetLastError());
    return {};
  }

  void Line(const std::string& line) { file_.Line(line); }
  // What came from Windows: without the names of the machine and its owner.
  void VeiledLine(const std::string& line) { Line(veil_.Over(line)); }

  void Describe() {
    Line(kTitle);
    Line("");
    for (const std::string& line : DescribeMachine()) VeiledLine(line);
    for (const auto& place : places_)
      for (const std::string& line : DescribeVolume(place->root(), place->work())) VeiledLine(line);
    Line("");
  }

  // The folder of a fact on one of the volumes; empty without such a volume.
  std::wstring FolderFor(std::size_t place, const std::wstring& name) const {
    if (place >= places_.size()) return {};
    std::wstring folder = places_[place]->work() + L'\\' + name;
    CreateDirectoryW(folder.c_str(), nullptr);
    return folder;
  }

  Answer Ask(const std::string& fact, const std::wstring& name) {
    Answer answer =
        AskInProcess(fact, FolderFor(0, name), FolderFor(1, name), places_[0]->work() + L"\\answer", arguments_.limit);
    std::vector<std::wstring> stayed = EmptyKey();
    for (const auto& place : places_) {
      const std::vector<std::wstring> files = EmptyFolder(place->work(), L"mark");
      stayed.insert(stayed.end(), files.begin(), files.end());
    }
    for (const std::wstring& what : stayed) answer.lines.push_back("    not taken away yet: " + Utf8(what));
    return answer;
  }

  // A scanner or an indexer that looks at a file in the wrong moment makes a fact fail once.
  Answer AskTwice(const std::string& fact, const std::wstring& name) {
    Answer first = Ask(fact, name);
    if (first.verdict != Verdict::DidNotHold || first.wasEnded || isStopped) return first;
    Answer second = Ask(fact, name + L"-again");
    if (second.verdict != Verdict::Held) return second;
    second.verdict = Verdict::HeldLater;
    second.lines.emplace_back("    when it was asked first it did not hold:");
    second.lines.insert(second.lines.end(), first.lines.begin(), first.lines.end());
    return second;
  }

  void Tell(const std::string& fact, const Answer& answer) {
    if (isStopped) return;
    ++counts_[answer.verdict];
    const std::string line = Padded(kVerdicts.at(answer.verdict), 14) + "[" + fact + "]";
    Say(line);
    Line(line + " " + InWords(fact));
    for (const std::string& below : answer.lines) VeiledLine(below);
  }

  // Takes everything away and says so, and whether all of it is gone.
  bool CleanUp() {
    std::vector<std::wstring> stayed;
    for (const auto& place : places_) {
      const std::vector<std::wstring> files = place->Remove();
      stayed.insert(stayed.end(), files.begin(), files.end());
    }
    EmptyKey();
    if (const DWORD error = DeleteKey()) stayed.push_back(std::wstring(kKey) + L": " + ErrorText(error));
    for (const std::wstring& what : stayed) SayBoth(veil_.Over("not taken away: " + Utf8(what)));
    if (stayed.empty()) SayBoth("All that this program made was taken away again, in the folder and in the registry.");
    return stayed.empty();
  }

  void SayBoth(const std::string& line) {
    Say(line);
    if (file_.isOpen()) Line(line);
  }

  bool Finish() {
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(std::chrono::steady_clock::now() - begun_);
    std::string sum = std::to_string(facts_.size()) + " facts:";
    for (const auto& [verdict, word] : kVerdicts) sum += " " + std::to_string(counts_[verdict]) + " " + word + ",";
    Line("");
    if (isStopped) SayBoth("Stopped before all were asked.");
    SayBoth(sum + " in " + std::to_string(seconds.count()) + " seconds");
    const bool isClean = CleanUp();
    Line("end of the report");
    Say(file_.isFailed() ? "The report could not be written whole." : "The report: " + Utf8(report_));
    return isClean;
  }

  Arguments arguments_;
  std::wstring report_;
  std::vector<std::string> facts_;
  std::vector<std::unique_ptr<Place>> places_;
  Handle one_;
  LineFile file_;
  const Veil veil_;
  std::map<Verdict, int> counts_;
  const std::chrono::steady_clock::time_point begun_ = std::chrono::steady_clock::now();
};

int Main(int argc, wchar_t** argv) {
  SetDllDirectoryW(L"");
  std::wstring wrong;
  const Arguments arguments = Parse(argc, argv, wrong);
  int programOnly = 1;
  testing::InitGoogleTest(&programOnly, argv);
  if (wrong.empty() && arguments.task == Task::Run && FactsLike(Utf8(arguments.fact)).empty())
    wrong = L"no fact has that name: " + arguments.fact;
  if (!wrong.empty()) {
    Say(Utf8(wrong) + "\r\nNothing was changed. --help says what there is.");
    return kWrongArguments;
  }
  switch (arguments.task) {
    case Task::Help:
      Say(kHelp);
      return kAllHeld;
    case Task::List:
      for (const std::string& fact : FactsLike("*")) Say(fact);
      return kAllHeld;
    case Task::Ask:
      return AskHere(arguments);
    case Task::Run:
    case Task::Clean:
      break;
  }
  return Run(arguments).Go();
}

}  // namespace
}  // namespace check

int wmain(int argc, wchar_t** argv);  // the C runtime calls it, no header declares it

int wmain(int argc, wchar_t** argv) { return check::Main(argc, argv); }
