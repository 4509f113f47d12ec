// Whichever call of a folder redirection or its removal fails: no file is lost, success means success, and after a
// failure all is as it was, but for what the log names: the items that were on their way, and what stood where they
// were to go. The same command then succeeds.
#include "program/redirections.h"

namespace {

using namespace test;
using emulated::Utf8;

const std::u16string kData = u"C:\\Data", kTheirs = u"D:\\Target\\Data";

// C:\Data with a redirected folder in it, a junction within it, and a share; E:\Foo's contents lie in it, or in its
// target.
class EveryCall : public Redirections {
 protected:
  EveryCall() {
    for (const auto* folder : {u"C:\\Data", u"C:\\Data\\inner", u"C:\\Data\\nested", u"D:\\Target", u"E:\\Foo"})
      MakeFolder(folder);
    for (const auto& [name, contents] : files)
      if (!name.starts_with(u"\\Foo")) MakeFile(kData + name, contents);
    MakeFile(u"E:\\Foo\\f.txt", "foo");
    win32::SetFileAttributesW(u"C:\\Data\\inner\\two.bin",
                              win32::FILE_ATTRIBUTE_READONLY | win32::FILE_ATTRIBUTE_HIDDEN);
    Redirect(u"C:\\Data\\nested", u"D:\\");
    EXPECT_TRUE(CreateJunction(u"C:\\Data\\link", u"C:\\Data\\inner"));
    EXPECT_TRUE(CreateSymbolicLinkEntry(u"C:\\Data\\file", u"C:\\Data\\one.txt"));
    EXPECT_TRUE(CreateSymbolicLinkEntry(u"C:\\Data\\nowhere", u"..\\gone"));
    Share(u"inner", u"C:\\Data\\inner");
  }

  // Somebody's folders, with security and times of their own, and a link, where C:\Data is to go.
  void MakeTheirs() {
    MakeFolder(u"D:\\Theirs");
    for (const auto* folder : {u"", u"\\inner", u"\\nested"}) MakeFolder(kTheirs + folder);
    MakeFile(kTheirs + u"\\inner\\private.txt", "theirs");
    EXPECT_TRUE(CreateJunction((kTheirs + u"\\link").c_str(), u"D:\\Theirs"));
    MakeOwn(kTheirs, {u"\\inner\\private.txt", u"\\link", u"\\nested", u"\\inner", u""});
    MakeOwn(kData, {u"\\link", u"\\nested", u"\\inner"});
    merges = true;
  }
  static void MakeOwn(const std::u16string& folder, std::initializer_list<std::u16string> items) {
    ASSERT_TRUE(EnablePrivileges());  // to give them to another owner
    for (const std::u16string& item : items) {
      SetSecurity(folder + item, u"O:SYD:P(A;OICI;FA;;;BA)(A;OICI;FA;;;SY)S:(AU;FA;FA;;;WD)");
      SetTimes(folder + item, static_cast<unsigned>(item.size()));
    }
  }

  // Without the folder around the target, which has the time of what came and went, and what a link leads to.
  State Now() const {
    State now = Redirections::Now();
    for (const char* name : {"D:\\Target", "C:\\gone"}) now.erase(name);
    return now;
  }

  // Complete at `place`, or at the other one, which the log then names. An administrator with backup privileges looks:
  // a DACL that could not be copied is not lost data.
  void ExpectFiles(const std::u16string& place, const std::u16string& other, const RunResult& run,
                   const std::string& when) const {
    ASSERT_TRUE(EnablePrivileges());
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
    const std::u16string name = u"\\inner\\private.txt";
    EXPECT_TRUE(!merges || Contents(place + name) == "theirs" || Contents(other + name) == "theirs") << when;
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
    std::size_t succeeded = 0, asBefore = 0;
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
      EXPECT_EQ(IsLink(kData), place == kData) << when;
      EXPECT_EQ(AllRecords(), records) << when;
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
      const std::string different = Differences(before, Now());
      asBefore += different.empty();
      // The end of the process closes what could not be closed, and then a time may change.
      EXPECT_TRUE(different.empty() || Tells(run, other) || when.starts_with("CloseHandle")) << different << when;
      const RunResult again = Run(words);
      if (again.exitCode == 0)
        expectSuccess(again, "once more after " + when);
      else
        EXPECT_NE(different, "") << Utf8(again.log) << "once more after " << when;
    };
    WithEachCallRefused(machine, command, examine, inUse.empty() ? 0 : 1);
    EXPECT_GT(asBefore, 200 / CallsInOneStep());
    EXPECT_TRUE(!inUse.empty() || succeeded > 200 / CallsInOneStep());
  }

  const std::map<std::u16string, std::string> files = {{u"\\one.txt", "first"},
                                                       {u"\\one.txt:note", "a named stream"},
                                                       {u"\\inner\\two.bin", std::string(70000, 'x')},
                                                       {u"\\nested\\n.txt", "nested"},
                                                       {u"\\Foo\\f.txt", "foo"}};
  const Records redirected = {{u"1", {u"D:\\Target\\Data\\nested", u"D:\\nested"}},
                              {u"2", {u"E:\\Foo", u"D:\\Target\\Data\\Foo"}},
                              {u"3", {kData, kTheirs}}};
  bool merges = false;
};

// What the copy does not carry is there again all the same.
TEST_F(EveryCall, OfARedirectionWithoutPermissionsMayFail) {
  Redirect(u"E:\\Foo", kData);
  for (const auto* folder : {u"C:\\Data\\inner:own", u"C:\\Data:own"}) MakeFile(folder, "a stream of the folder");
  MakeOwn(kData, {u"\\inner\\two.bin", u"\\inner", u"\\link", u""});
  ASSERT_TRUE(win32::SetFileAttributesW(u"C:\\Data", win32::FILE_ATTRIBUTE_HIDDEN));
  FailEach({u"/RedirectFolder", kData, u"/loc:D:\\Target", u"/-NTFS", u"/-Share"}, kData, kTheirs, redirected);
}

TEST_F(EveryCall, OfAMergeMayFail) {
  MakeTheirs();
  Share(u"root", kData);
  Redirect(u"E:\\Foo", kData);
  FailEach({u"/RedirectFolder", kData, u"/loc:D:\\Target"}, kData, kTheirs, redirected);
}

// A source that cannot be emptied, or cannot become the junction, gets all back.
TEST_F(EveryCall, OfTheWayBackFromAMergeMayFail) {
  MakeTheirs();
  Redirect(u"E:\\Foo", kData);
  FailEach({u"/RedirectFolder", kData, u"/loc:D:\\Target"}, kData, kTheirs, redirected, u"C:\\Data\\one.txt:note");
}

TEST_F(EveryCall, OfARemovalMayFail) {
  MakeTheirs();
  Redirect(kData, u"D:\\Target");
  Redirect(u"E:\\Foo", kTheirs);
  Share(u"root", kTheirs);
  // As Windows' own mklink makes them.
  ASSERT_TRUE(RestoreLink({kData, {}, true, MountPointData(u"\\??\\D:\\Target\\Data\\", kTheirs)}));
  MakeOwn(kData, {u""});
  FailEach({u"/RedirectFolder", kData, u"/loc:D:\\Target", u"/d"}, kTheirs, kData,
           {{u"1", {u"C:\\Data\\nested", u"D:\\nested"}}, {u"3", {u"E:\\Foo", u"C:\\Data\\Foo"}}});
}

}  // namespace
