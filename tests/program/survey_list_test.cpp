// What "list" and "undo" of the report program say of what commands have left: whole or cut off at any call.
#include "program/profile_stories.h"
#include "survey/inventory.h"
#include "survey/undo.h"

namespace {

using namespace test;
using emulated::Machine, emulated::Utf8;

struct Form {
  const char* name;
  std::vector<std::u16string> words;
  std::u16string source, target;  // of what moves
  std::vector<std::u16string> files;
  bool removes;
};

class SurveyOfWhatIsLeft : public ProfileStories, public testing::WithParamInterface<Form> {
 protected:
  // Empty when each of the files holds what it should by way of this folder.
  std::string Missing(const std::u16string& folder) const {
    std::string missing;
    for (const std::u16string& file : GetParam().files)
      if (Contents(folder + file) != Utf8(file)) missing += Utf8(file);
    return missing;
  }
};

TEST_P(SurveyOfWhatIsLeft, IsTrueAtAnyMoment) {
  const auto& [name, words, source, target, files, removes] = GetParam();
  (void)removes;
  auto start = std::chrono::steady_clock::now();
  int n = 0;
  const auto before = machine->Snapshot();
  AtEveryMoment(
      *machine, [&words = words](Machine& on) { return RunProgram(on, words); },
      [&](Machine& after, const std::string& moment) {
        UseProgramModule(after);
        EnablePrivilege(u"SeBackupPrivilege");
        const Inventory inventory = TakeInventory();
        ++n;
        std::cerr << moment << ": ";
        for (const Row& row : inventory.rows) {
          std::cerr << Utf8(row.source) << " " << int(row.State());
          for (const auto& finding : row.findings) std::cerr << " " << SayingOf(finding.what).name << " [" << Utf8(finding.says) << "]";
        }
        for (const auto& step : PlanUndo(inventory)) std::cerr << " " << Utf8(CommandLineOf(step));
        std::cerr << "\n";
      });
  std::cerr << name << " " << n << " moments, " << std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count() << " s\n";
}

const std::vector<std::u16string> kThere{u"/RedirectUP", u"anna", u"/loc:D:\\Profiles"};
INSTANTIATE_TEST_SUITE_P(Of, SurveyOfWhatIsLeft,
                         testing::Values(Form{"Profile", kThere, u"", u"", {}, false}),
                         [](const auto& form) { return form.param.name; });

}  // namespace
