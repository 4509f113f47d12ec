// The machine stops dead between any two calls of a redirection or its removal; what the disks then hold is booted
// again. Each file is whole in one place, and the same command then goes on, or says what to do and changes nothing.
#include "program/everything.h"

namespace {

using emulated::Machine, emulated::Utf8, test::RunProgram;

struct Form {
  const char* name;
  std::u16string target;  // the words behind the folder's name
  std::vector<std::u16string> places;
  bool removes;
};

class PowerFailure : public testing::TestWithParam<Form> {};

TEST_P(PowerFailure, AtAnyCallLosesNoFile) {
  const auto& [form, target, places, removes] = GetParam();
  const std::map<std::u16string, std::string> files = {
      {u"\\one.txt", "first"}, {u"\\one.txt:note", "a named stream"}, {u"\\inner\\two.bin", std::string(70'000, 'x')}};
  auto machine = test::InstalledMachine({.volumes = 1});
  test::MakeFolder(u"C:\\Data");
  test::MakeFolder(u"C:\\Data\\inner");
  for (const auto& [name, contents] : files) test::MakeFile(u"C:\\Data" + name, contents);
  ASSERT_TRUE(win32::SetFileAttributesW(u"C:\\Data\\inner\\two.bin", win32::FILE_ATTRIBUTE_READONLY));
  const auto run = [&, words = target](Machine& on, bool remove) {
    return RunProgram(on, {u"/RedirectFolder", u"C:\\Data", words, remove ? u"/d" : u"/c"});
  };
  const auto whereFiles = [&, all = places] {
    EnablePrivileges();
    std::string where;
    for (const auto& file : files) {
      const auto found = std::ranges::find_if(
          all, [&](const std::u16string& place) { return test::Contents(place + file.first) == file.second; });
      where += found == all.end() ? Utf8(file.first) + " is lost" : Utf8(*found) + " ";
    }
    return where;
  };
  if (removes) {
    ASSERT_EQ(run(*machine, false).exitCode, 0);
  }
  int finished = 0, toldWhatToDo = 0;
  test::AtEveryMoment(
      *machine, [&, remove = removes](Machine& on) { return run(on, remove); },
      [&, remove = removes](Machine& after, const std::string& moment) {
        const std::string before = whereFiles();
        EXPECT_EQ(before.find("lost"), std::string::npos) << moment << before;
        const auto again = run(after, remove);
        const bool tells = again.Logged(u"After a power failure, ") ||
                           again.Logged(u"but no redirection is recorded") ||
                           again.Logged(u"although its redirection is recorded");
        finished += again.exitCode == 0;
        toldWhatToDo += again.exitCode == 1 && tells;
        if (again.exitCode == 1 && tells) {
          EXPECT_EQ(whereFiles(), before) << moment;
        }
        EXPECT_EQ(whereFiles().find("lost"), std::string::npos) << moment << whereFiles();
      });
  EXPECT_GE(finished, static_cast<int>(100 / test::CallsInOneStep()));
  EXPECT_TRUE(toldWhatToDo > 0 || test::CallsInOneStep() > 1);
}

const std::u16string kVolume = u"\\\\?\\Volume{12345678-0000-4000-8000-000000000000}";
const std::vector<std::u16string> kFolders{u"C:\\Data", u"D:\\Kept\\Data"},
    kMounts{u"C:\\Data", u"C:\\Data.mount", kVolume};
INSTANTIATE_TEST_SUITE_P(PowerFailureAt, PowerFailure,
                         testing::Values(Form{"Redirection", u"/loc:D:\\Kept", kFolders, false},
                                         Form{"Removal", u"/loc:D:\\Kept", kFolders, true},
                                         Form{"OntoAVolume", u"/vol:" + kVolume + u"\\", kMounts, false},
                                         Form{"FromAVolume", u"/vol:" + kVolume + u"\\", kMounts, true}),
                         [](const auto& form) { return form.param.name; });

}  // namespace
