// Whichever call of a folder redirection or its removal fails: no file is lost, success means success, and after a
// failure all is as it was, but for what the log names: the items that were on their way, and what stood where they
// were to go. The same command then succeeds.
#include "program/redirections.h"

namespace {

using emulated::Utf8;
using test::Contents, test::Exists, test::MakeFile, test::MakeFolder, test::Records, test::RunResult;

// C:\Data with a redirected folder in it, a junction within it, and two shares; E:\Foo's contents lie in it, or in its
// target.
class EveryCall : public test::Redirections {
 protected:
  // All that each item is, and its security; the records and the shares.
  using State = test::Tree;

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
    EXPECT_TRUE(CreateSymbolicLinkEntry(u"C:\\Data\\file", u"C:\\Data\\one.txt"));
    EXPECT_TRUE(CreateSymbolicLinkEntry(u"C:\\Data\\nowhere", u"..\\gone"));
    test::Share(u"inner", u"C:\\Data\\inner");
  }

  // Somebody's folders, with security and times of their own, and a link, where C:\Data is to go.
  void MakeTheirs() {
    MakeFolder(u"D:\\Theirs");
    for (const auto* folder : {u"", u"\\inner", u"\\nested"}) MakeFolder(theirs + folder);
    MakeFile(theirs + u"\\inner\\private.txt", "theirs");
    EXPECT_TRUE(CreateJunction((theirs + u"\\link").c_str(), u"D:\\Theirs"));
    for (const auto* item : {u"\\inner\\private.txt", u"\\link", u"\\nested", u"\\inner", u""}) MakeOwn(theirs + item);
    merges = true;
  }
  static void MakeOwn(const std::u16string& item) {
    ASSERT_TRUE(EnablePrivileges());  // to give it to another owner
    test::SetSecurity(item, u"O:SYD:P(A;OICI;FA;;;BA)(A;OICI;FA;;;SY)S:(AU;FA;FA;;;WD)");
    test::SetTimes(item, static_cast<unsigned>(item.size()));
  }

  State Now() const {
    EXPECT_TRUE(EnablePrivileges());
    State state;
    for (const auto& [number, record] : AllRecords())
      state[u"record " + number] = Utf8(record.first + u" -> " + record.second);
    for (const auto& [name, path] : test::Shares()) state[u"share " + name] = Utf8(path);
    for (const std::u16string root : {u"C:\\Data", u"D:\\Target\\Data", u"E:\\Foo"}) {
      if (!Exists(root)) continue;
      auto tree = IsLink(root) ? test::Tree() : test::DescribeTree(root);
      tree[u""] = test::Describe(root);
      for (const auto& [path, description] : tree)
        state[root + path] = description + " " + Utf8(test::Security(root + path));
    }
    return state;
  }
  static std::string Difference(const State& now, const State& before) {
    std::vector<State::value_type> different;
    std::ranges::set_symmetric_difference(now, before, std::back_inserter(different));
    std::string text;
    for (const auto& [path, state] : different) text += Utf8(path) + ": " + state.substr(0, 60) + "; ";
    return text;
  }

  // Complete at `place`, or at the other one, which the log then names. An administrator with backup privileges looks:
  // a DACL that could not be copied is not lost data.
  void ExpectFiles(const std::u16string& place, const std::u16string& other, const RunResult& run,
                   const std::string& when) const {
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
    const auto isTheirs = [](const std::u16string& folder) {
      return Contents(folder + u"\\inner\\private.txt") == "theirs";
    };
    EXPECT_TRUE(!merges || isTheirs(place) || isTheirs(other)) << when;
  }

  // The log says of something that it is not as it was.
  static bool Tells(const RunResult& run, const std::u16string& other) {
    return run.Logged(u"delete directory path = " + other + u".") ||
           std::ranges::any_of(std::vector{u" stay in ", u" stays in ", u" stay at ", u" stays at ", u" back in ",
                                           u"Unable to restore", u"Unable to add network share",
                                           u"Unable to create junction for Source", u"Unable to update redirected"},
                               [&](const char16_t* text) { return run.Logged(text); });
  }

  // `inUse` (if any) is held open as soon as the copy has begun: the command fails, and something else fails on the
  // way.
  void FailEach(std::initializer_list<std::u16string> words, const std::u16string& place, const std::u16string& other,
                const Records& records, const std::u16string& inUse = {}) {
    const State before = Now();
    int succeeded = 0, asBefore = 0;
    std::shared_ptr<emulated::FileObject> held;
    const auto command = [&] {
      held.reset();
      machine->consoleSink = [&](std::string_view text) {
        if (!inUse.empty() && !held && text.find(" -> ") != text.npos)
          held = machine->files().OpenForeign(4242, inUse, win32::GENERIC_READ, win32::FILE_SHARE_READ);
      };
      return Run(words);
    };
    const auto expectSuccess = [&](const RunResult& run, const std::string& when) {
      ExpectFiles(other, place, run, when);
      EXPECT_EQ(IsLink(u"C:\\Data"), place == u"C:\\Data") << when;
      EXPECT_EQ(AllRecords(), records) << Difference(Now(), before) << when;
    };
    const auto examine = [&](const RunResult& run, const std::string& when) {
      machine->consoleSink = {};
      if (held) machine->files().CloseForeign(held);
      ASSERT_TRUE(run.exitCode == 0 || run.exitCode == 1) << when;
      if (run.exitCode == 0) {
        ++succeeded;
        return expectSuccess(run, when);
      }
      ExpectFiles(place, other, run, when);
      const State now = Now();
      const bool same = now == before;
      asBefore += same ? 1 : 0;
      // The end of the process closes what could not be closed, and then a time may change.
      EXPECT_TRUE(same || Tells(run, other) || when.starts_with("CloseHandle")) << Difference(now, before) << when;
      const RunResult again = Run(words);
      if (again.exitCode == 0)
        expectSuccess(again, "once more after " + when);
      else
        EXPECT_FALSE(same) << Utf8(again.log) << "once more after " << when;
    };
    test::WithEachCallRefused(machine, command, examine, inUse.empty() ? 0 : 1);
    EXPECT_GT(asBefore, test::OfTheRuns(200));
    EXPECT_GT(succeeded, inUse.empty() ? test::OfTheRuns(200) : -1);
  }

  const std::u16string theirs = u"D:\\Target\\Data";
  bool merges = false;
};

const Records kRedirected = {{u"1", {u"D:\\Target\\Data\\nested", u"D:\\nested"}},
                             {u"2", {u"E:\\Foo", u"D:\\Target\\Data\\Foo"}},
                             {u"3", {u"C:\\Data", u"D:\\Target\\Data"}}};

// What the copy does not carry is there again all the same.
TEST_F(EveryCall, OfARedirectionWithoutPermissionsMayFail) {
  Redirect(u"E:\\Foo", u"C:\\Data");
  for (const auto* folder : {u"C:\\Data\\inner:own", u"C:\\Data:own"}) MakeFile(folder, "a stream of the folder");
  for (const auto* item : {u"\\inner\\two.bin", u"\\inner", u"\\link", u""})
    MakeOwn(u"C:\\Data" + std::u16string(item));
  ASSERT_TRUE(win32::SetFileAttributesW(u"C:\\Data", win32::FILE_ATTRIBUTE_HIDDEN));
  FailEach({u"/RedirectFolder", u"C:\\Data", u"/loc:D:\\Target", u"/-NTFS", u"/-Share"}, u"C:\\Data", theirs,
           kRedirected);
}

TEST_F(EveryCall, OfAMergeMayFail) {
  MakeTheirs();
  for (const auto* item : {u"\\link", u"\\nested", u"\\inner"}) MakeOwn(u"C:\\Data" + std::u16string(item));
  test::Share(u"root", u"C:\\Data");
  Redirect(u"E:\\Foo", u"C:\\Data");
  FailEach({u"/RedirectFolder", u"C:\\Data", u"/loc:D:\\Target"}, u"C:\\Data", theirs, kRedirected);
}

// A source that cannot be emptied, or cannot become the junction, gets all back.
TEST_F(EveryCall, OfTheWayBackFromAMergeMayFail) {
  MakeTheirs();
  for (const auto* item : {u"\\link", u"\\nested", u"\\inner"}) MakeOwn(u"C:\\Data" + std::u16string(item));
  Redirect(u"E:\\Foo", u"C:\\Data");
  FailEach({u"/RedirectFolder", u"C:\\Data", u"/loc:D:\\Target"}, u"C:\\Data", theirs, kRedirected,
           u"C:\\Data\\one.txt");
}

TEST_F(EveryCall, OfTheWayBackWithoutPermissionsMayFail) {
  Redirect(u"E:\\Foo", u"C:\\Data");
  FailEach({u"/RedirectFolder", u"C:\\Data", u"/loc:D:\\Target", u"/-NTFS"}, u"C:\\Data", theirs, kRedirected,
           u"C:\\Data");
}

TEST_F(EveryCall, OfARemovalMayFail) {
  MakeTheirs();
  Redirect(u"C:\\Data", u"D:\\Target");
  Redirect(u"E:\\Foo", u"D:\\Target\\Data");
  test::Share(u"root", u"D:\\Target\\Data");
  // As Windows' own mklink makes them.
  ASSERT_TRUE(RestoreLink({u"C:\\Data", {}, true, MountPointData(u"\\??\\D:\\Target\\Data\\", theirs)}));
  MakeOwn(u"C:\\Data");
  FailEach({u"/RedirectFolder", u"C:\\Data", u"/loc:D:\\Target", u"/d"}, theirs, u"C:\\Data",
           {{u"1", {u"C:\\Data\\nested", u"D:\\nested"}}, {u"3", {u"E:\\Foo", u"C:\\Data\\Foo"}}});
}

}  // namespace
