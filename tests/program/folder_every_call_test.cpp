// Whichever call of a folder redirection or its removal fails: no file is lost, success means success, and after a
// failure all is as it was, but for what the log names.
#include <algorithm>
#include <map>
#include <string>
#include <vector>

#include "links/junction.h"
#include "probes/privileges.h"
#include "program/folder_stories.h"
#include "support/every_call.h"
#include "support/shares.h"

namespace {

using emulated::Utf8;
using test::Contents, test::Exists, test::FolderStories, test::MakeFile, test::MakeFolder, test::Records,
    test::RunResult;

// C:\Data with a redirected folder in it, a junction within it, and two shares; E:\Foo's contents lie in it, or in its
// target.
class EveryCall : public FolderStories {
 protected:
  using Shares = std::map<std::u16string, std::u16string>;
  // What can be seen beside the files.
  struct State {
    bool isLink = false;
    Records records;
    Shares shares;
    bool operator==(const State&) const = default;
  };

  EveryCall() {
    for (const auto* folder : {u"C:\\Data", u"C:\\Data\\inner", u"C:\\Data\\nested", u"D:\\Target", u"E:\\Foo"})
      MakeFolder(folder);
    MakeFile(u"C:\\Data\\one.txt", "first");
    MakeFile(u"C:\\Data\\one.txt:note", "a named stream");
    MakeFile(u"C:\\Data\\inner\\two.bin", std::string(70000, 'x'),
             win32::FILE_ATTRIBUTE_READONLY | win32::FILE_ATTRIBUTE_HIDDEN);
    MakeFile(u"C:\\Data\\nested\\n.txt", "nested");
    MakeFile(u"E:\\Foo\\f.txt", "foo");
    Redirect(u"C:\\Data\\nested", u"D:\\");
    EXPECT_TRUE(CreateJunction(u"C:\\Data\\link", u"C:\\Data\\inner"));
    test::Share(u"inner", u"C:\\Data\\inner");
  }

  State Now() const { return {IsLink(u"C:\\Data"), AllRecords(), test::Shares()}; }
  static std::string Text(const State& state) {
    std::string text = state.isLink ? "a junction;" : "a folder;";
    for (const auto& [number, record] : state.records)
      text += " " + Utf8(number) + ": " + Utf8(record.first) + " -> " + Utf8(record.second) + ";";
    for (const auto& [name, path] : state.shares) text += " " + Utf8(name) + " = " + Utf8(path) + ";";
    return text;
  }

  // Complete at `place`, or at the other one, which the log then names. An administrator with backup privileges looks:
  // a DACL that could not be copied is not lost data.
  static void ExpectFiles(const std::u16string& place, const std::u16string& other, const RunResult& run,
                          const std::string& when) {
    ASSERT_TRUE(EnablePrivileges());
    const std::map<std::u16string, std::string> files = {{u"\\one.txt", "first"},
                                                         {u"\\one.txt:note", "a named stream"},
                                                         {u"\\inner\\two.bin", std::string(70000, 'x')},
                                                         {u"\\nested\\n.txt", "nested"},
                                                         {u"\\Foo\\f.txt", "foo"}};
    for (const auto& [name, contents] : files) {
      if (Contents(place + name) == contents) continue;
      EXPECT_TRUE(Contents(other + name) == contents) << Utf8(name) << " is lost: " << when;
      // Of the redirected folder in it, just the junction was on its way.
      const std::u16string item = name.starts_with(u"\\nested") ? u"\\nested" : name.substr(0, name.find(u':'));
      EXPECT_TRUE(run.Logged(other + item) || run.Logged(u"stay in " + other) || run.Logged(u"stay at " + other) ||
                  run.Logged(u"are back in " + other))
          << Utf8(name) << " is not named: " << when;
    }
    EXPECT_TRUE(Contents(u"E:\\Foo\\f.txt") == "foo" || run.Logged(u"\\Foo")) << when;
  }

  // The log says of something that it is not as it was.
  static bool Tells(const RunResult& run) {
    return std::ranges::any_of(std::vector{u" stay in ", u" stays in ", u" stay at ", u" stays at ", u" back in ",
                                           u"Unable to add network share", u"Unable to create junction for Source",
                                           u"Unable to update redirected"},
                               [&](const char16_t* text) { return run.Logged(text); });
  }

  template <typename Command>
  void FailEach(Command command, const std::u16string& place, const std::u16string& other) {
    const State before = Now();
    int succeeded = 0, asBefore = 0;
    test::WithEachCallRefused(machine, command, [&](const RunResult& run, const std::string& when) {
      ASSERT_TRUE(run.exitCode == 0 || run.exitCode == 1) << when;
      const State now = Now();
      if (run.exitCode == 0) {
        ++succeeded;
        ExpectFiles(other, place, run, when);
        EXPECT_EQ(now.isLink, expected.isLink) << when;
        EXPECT_EQ(now.records, expected.records) << Text(now) << when;
      } else {
        ExpectFiles(place, other, run, when);
        const bool same = now == before;
        asBefore += same ? 1 : 0;
        EXPECT_TRUE(same || Tells(run)) << Text(now) << when;
      }
    });
    EXPECT_GT(asBefore, test::OfTheRuns(300));
    EXPECT_GT(succeeded, test::OfTheRuns(300));
  }

  State expected;
};

TEST_F(EveryCall, OfARedirectionMayFail) {
  test::Share(u"root", u"C:\\Data");
  Redirect(u"E:\\Foo", u"C:\\Data");
  expected = {true,
              {{u"1", {u"D:\\Target\\Data\\nested", u"D:\\nested"}},
               {u"2", {u"E:\\Foo", u"D:\\Target\\Data\\Foo"}},
               {u"3", {u"C:\\Data", u"D:\\Target\\Data"}}},
              {}};
  FailEach(
      [this] {
        return Run({u"/RedirectFolder", u"C:\\Data", u"/loc:D:\\Target"});
      },
      u"C:\\Data", u"D:\\Target\\Data");
}

TEST_F(EveryCall, OfARemovalMayFail) {
  Redirect(u"C:\\Data", u"D:\\Target");
  Redirect(u"E:\\Foo", u"D:\\Target\\Data");
  test::Share(u"root", u"D:\\Target\\Data");
  expected = {false, {{u"1", {u"C:\\Data\\nested", u"D:\\nested"}}, {u"3", {u"E:\\Foo", u"C:\\Data\\Foo"}}}, {}};
  FailEach(
      [this] {
        return Run({u"/RedirectFolder", u"C:\\Data", u"/loc:D:\\Target", u"/d"});
      },
      u"D:\\Target\\Data", u"C:\\Data");
}

}  // namespace
