// Deleting and moving trees, and what is left after any failure.
#include <algorithm>
#include <functional>
#include <utility>

#include "fsops/delete_tree.h"
#include "fsops/move_tree.h"
#include "links/junction.h"
#include "support/engine.h"
#include "support/every_call.h"
#include "win32/emulated/text.h"

namespace {

using namespace win32;
using test::Attributes, test::Contents, test::DescribeTree, test::Exists, test::MakeFile, test::MakeFolder;

class Deletes : public test::Engine {};

TEST_F(Deletes, EverythingBelowTheRoot) {
  MakeFolder(source + u"\\a");
  MakeFile(source + u"\\a\\readonly", "x", FILE_ATTRIBUTE_READONLY);
  MakeFolder(source + u"\\locked");
  ASSERT_TRUE(SetFileAttributesW((source + u"\\locked").c_str(), FILE_ATTRIBUTE_READONLY));
  EXPECT_EQ(DeleteDirectoryTree(source.c_str()), 1);
  EXPECT_TRUE(Exists(source + u"\\a\\readonly")) << "best effort leaves it";
  EXPECT_EQ(DeleteDirectoryTree(source.c_str(), {.stopOnFailure = true}), 1);
  EXPECT_TRUE(Exists(source));
  EXPECT_TRUE(test::Names(source).empty());
  EXPECT_EQ(DeleteDirectoryTree(nullptr, {.stopOnFailure = true}), 0);
  EXPECT_EQ(DeleteDirectoryTree(u"C:\\missing", {.stopOnFailure = true}), 0);
}

TEST_F(Deletes, NothingBehindALink) {
  MakeFile(target + u"\\theirs", "kept");
  ASSERT_EQ(CreateJunction((source + u"\\j").c_str(), target.c_str()), 1);
  ASSERT_EQ(CreateSymbolicLinkEntry((source + u"\\d").c_str(), target.c_str()), 1);
  ASSERT_EQ(CreateSymbolicLinkEntry((source + u"\\f").c_str(), (target + u"\\theirs").c_str()), 1);
  EXPECT_EQ(DeleteDirectoryTree(source.c_str(), {.stopOnFailure = true}), 1);
  EXPECT_TRUE(test::Names(source).empty());
  EXPECT_EQ(Contents(target + u"\\theirs"), "kept");
  ASSERT_EQ(CreateJunction((source + u"\\j").c_str(), target.c_str()), 1);
  EXPECT_EQ(DeleteDirectoryTree((source + u"\\j").c_str(), {.stopOnFailure = true}), 1);
  EXPECT_FALSE(Exists(source + u"\\j"));
  EXPECT_EQ(Contents(target + u"\\theirs"), "kept");
}

TEST_F(Deletes, MountedVolumesAreUnmounted) {
  Restart({.extraDrives = 1, .volumes = 1});
  std::u16string volume;
  for (const auto& mounted : machine->volumes)
    if (mounted->letter == 0) volume = mounted->guidName;
  MakeFile(volume + u"theirs", "kept");
  for (const bool inside : {true, false}) {
    const std::u16string mount = inside ? source + u"\\mnt" : u"C:\\mount";
    MakeFolder(mount);
    ASSERT_TRUE(SetVolumeMountPointW((mount + u"\\").c_str(), volume.c_str()));
    ASSERT_EQ(Contents(mount + u"\\theirs"), "kept");
    EXPECT_EQ(DeleteDirectoryTree(inside ? source.c_str() : mount.c_str(), {.stopOnFailure = true}), 1);
    EXPECT_FALSE(Exists(mount + u"\\theirs"));
    EXPECT_EQ(Contents(volume + u"theirs"), "kept");
  }
}

TEST_F(Deletes, AFolderThatIsNotEmptyYetIsTriedAgain) {
  MakeFolder(source + u"\\a");
  MakeFile(source + u"\\a\\f", "x");
  // Held with delete sharing: the name stays until the other process closes it.
  auto held = HoldOpen(source + u"\\a\\f", GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_DELETE);
  machine->onSleep = [&](std::uint64_t) { machine->files().CloseForeign(held); };
  EXPECT_EQ(DeleteDirectoryTree(source.c_str(), {.stopOnFailure = true}), 1);
  EXPECT_EQ(machine->sleptMilliseconds, 5000u);
  EXPECT_TRUE(Logged(u"Failed to delete directory : C:\\Data\\a. Error: 145. Going to retry after a short while."));
}

TEST_F(Deletes, WhatIsHeldOpenEndsAStrictRun) {
  MakeFolder(source + u"\\a");
  MakeFile(source + u"\\a\\f", "x", FILE_ATTRIBUTE_READONLY);
  const auto held = HoldOpen(source + u"\\a\\f", GENERIC_READ, FILE_SHARE_READ);
  EXPECT_EQ(DeleteDirectoryTree(source.c_str()), 1);
  EXPECT_EQ(DeleteDirectoryTree(source.c_str(), {.stopOnFailure = true}), 0);
  EXPECT_TRUE(Logged(u"Failed to delete File : C:\\Data\\a\\f."));
  EXPECT_EQ(Attributes(source + u"\\a\\f"), FILE_ATTRIBUTE_READONLY);
}

TEST_F(Deletes, AtTheNextRestart) {
  MakeFolder(source + u"\\a");
  MakeFile(source + u"\\a\\f", "x", FILE_ATTRIBUTE_READONLY);
  ASSERT_EQ(DeleteDirectoryTreeAtReboot(source.c_str()), 1);
  EXPECT_TRUE(Exists(source + u"\\a\\f"));
  auto disks = machine->Snapshot();
  log.reset();
  machine.reset();
  machine = test::BootFrom(std::move(disks));
  EXPECT_TRUE(Exists(source));
  EXPECT_FALSE(Exists(source + u"\\a"));
  EXPECT_EQ(DeleteDirectoryTreeAtReboot(nullptr), 0);
}

class Moves : public test::Engine {
 protected:
  // A small tree with something of everything.
  void MakeTree() {
    MakeFolder(source + u"\\sub");
    MakeFile(source + u"\\sub\\f.txt", "inner");
    MakeFile(source + u"\\sub\\f.txt:s", "stream");
    MakeFile(source + u"\\top.txt", "top", FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN);
    ASSERT_EQ(CreateJunction((source + u"\\j").c_str(), (source + u"\\sub").c_str()), 1);
    ASSERT_EQ(CreateSymbolicLinkEntry((source + u"\\l").c_str(), (source + u"\\top.txt").c_str()), 1);
    ASSERT_EQ(CreateSymbolicLinkEntry((source + u"\\dangling").c_str(), u"..\\gone"), 1);
    // Of the other kind than what they lead to.
    ASSERT_EQ(
        CreateSymbolicLinkEntry((source + u"\\odd1").c_str(), (source + u"\\sub").c_str(), {.forceFileLink = true}), 1);
    ASSERT_EQ(CreateSymbolicLinkEntry((source + u"\\odd2").c_str(), (source + u"\\top.txt").c_str(),
                                      {.forceDirectoryLink = true}),
              1);
    for (const char16_t* item : {u"\\sub\\f.txt", u"\\top.txt", u"\\sub", u"\\j", u""})
      test::SetTimes(source + item, static_cast<unsigned>(std::u16string_view(item).size()) + 1);
  }
  static int Move(const std::u16string& from, const std::u16string& to, bool backup = true) {
    MoveRecord record;
    return MoveDirectoryTree(from, to, {.carried = {.ntfsPermissions = backup, .shares = false}}, record);
  }
  int Move(bool backup = true) { return Move(source, target, backup); }
  // What the files hold, links by their reparse data, without attributes and times.
  static std::map<std::u16string, std::string> Holdings(const std::u16string& root) {
    std::map<std::u16string, std::string> holdings;
    for (const std::u16string& name : test::Names(root)) holdings[name] = test::Streams(root + name);
    return holdings;
  }
};

TEST_F(Moves, EverythingToTheTarget) {
  MakeTree();
  const auto isFolder = [](const std::u16string& path) { return Attributes(path) & FILE_ATTRIBUTE_DIRECTORY; };
  std::map<std::u16string, DWORD> kinds;
  for (const char16_t* link : {u"\\j", u"\\l", u"\\dangling", u"\\odd1", u"\\odd2"})
    kinds[link] = isFolder(source + link);
  auto before = DescribeTree(source);
  const std::string root = test::Describe(source);
  MoveRecord record;
  ASSERT_EQ(MoveDirectoryTree(source, target, {.carried = {.shares = false}, .targetIsNew = true}, record), 1);
  EXPECT_TRUE(test::Names(source).empty());
  auto after = DescribeTree(target);
  std::u16string text;
  EXPECT_EQ(GetJunctionTarget((target + u"\\j").c_str(), text), 1);
  EXPECT_EQ(text, target + u"\\sub");
  EXPECT_EQ(Contents(target + u"\\l"), "top");
  for (const auto& [link, kind] : kinds) {
    EXPECT_TRUE(after.contains(link));
    EXPECT_EQ(isFolder(target + link), kind);
    before.erase(link);
    after.erase(link);
  }
  EXPECT_EQ(after, before);
  EXPECT_EQ(test::Describe(target), root) << "a new target's root is carried as well";
}

// A link into the tree must lead to the tree's new place; as it was, it would lead nowhere once the old one is gone.
TEST_F(Moves, ALinkIntoTheTreeThatCannotBeLedToItsNewPlaceStopsTheMove) {
  const std::u16string junction = source + u"\\j";
  const std::u16string longName = std::u16string(120, u'm') + u"\\" + std::u16string(125, u'n');
  MakeFolder(source + u"\\" + longName.substr(0, 120));
  MakeFolder(u"\\\\?\\" + source + u"\\" + longName);
  // 254 characters fit a junction, and 256 at the target do not.
  ASSERT_EQ(CreateJunction(junction.c_str(), (source + u"\\" + longName).c_str()), 1);
  const auto before = Holdings(source);
  EXPECT_EQ(Move(), 0);
  EXPECT_EQ(Holdings(source), before);
  EXPECT_TRUE(test::Names(target).empty());
}

// What needs no other text arrives even when the link cannot be made by it.
TEST_F(Moves, LinksThatLeadElsewhereOrNowhereAreCarriedOver) {
  MakeFolder(u"C:\\Elsewhere");
  MakeFile(u"C:\\Elsewhere\\f", "theirs");
  MakeFolder(source + u"\\sub");
  MakeFile(source + u"\\sub\\near", "near");
  ASSERT_EQ(CreateSymbolicLinkEntry((source + u"\\out").c_str(), u"C:\\Elsewhere\\f"), 1);
  ASSERT_EQ(CreateSymbolicLinkEntry((source + u"\\relative").c_str(), u"sub\\..\\sub\\near"), 1);
  ASSERT_EQ(CreateSymbolicLinkEntry((source + u"\\dangling").c_str(), (source + u"\\gone").c_str()), 1);
  ASSERT_EQ(CreateSymbolicLinkEntry((source + u"\\upwards").c_str(), u"..\\gone"), 1);
  ASSERT_EQ(CreateSymbolicLinkEntry((source + u"\\share").c_str(), u"\\\\server\\share\\f"), 1);
  const auto before = Holdings(source);
  machine->gate.FailCallsFrom("GetProcAddress", 1, ERROR_PROC_NOT_FOUND);
  ASSERT_EQ(Move(), 1);
  EXPECT_EQ(Holdings(target), before);
  EXPECT_EQ(Contents(target + u"\\out"), "theirs");
  EXPECT_EQ(Contents(target + u"\\relative"), "near");
}

// The junction is taken off at the source before the symbolic link through it is looked at, if links go by their names.
TEST_F(Moves, ASymbolicLinkThroughAJunctionOfTheTreeFollows) {
  MakeFolder(source + u"\\sub");
  MakeFile(source + u"\\sub\\f", "f");
  ASSERT_EQ(CreateJunction((source + u"\\a").c_str(), (source + u"\\sub").c_str()), 1);
  ASSERT_EQ(CreateSymbolicLinkEntry((source + u"\\b").c_str(), (source + u"\\a\\f").c_str()), 1);
  ASSERT_EQ(Move(), 1);
  EXPECT_EQ(Contents(target + u"\\b"), "f");
}

TEST_F(Moves, AFullTargetChangesNothing) {
  for (int i = 0; i < 5; ++i) MakeFile(source + u"\\" + static_cast<char16_t>(u'0' + i), std::string(8 << 20, 'x'));
  EXPECT_EQ(Move(), 0);
  EXPECT_EQ(test::Names(source).size(), 5u);
  EXPECT_TRUE(test::Names(target).empty());
}

TEST_F(Moves, WindowsOwnFoldersAreNotMoved) {
  MakeFolder(source + u"\\sub");
  MakeFolder(source + u"\\sub\\$Recycle.Bin");
  MakeFile(source + u"\\sub\\$Recycle.Bin\\f", "x");
  EXPECT_EQ(Move(), 0);
  EXPECT_TRUE(Exists(source + u"\\sub\\$Recycle.Bin\\f"));
  EXPECT_TRUE(test::Names(target).empty());
}

// The file system knows the case of more letters than A to Z.
TEST_F(Moves, NamesThatAreOneToTheFileSystemAreMerged) {
  MakeFolder(source + u"\\\u00FCbung");
  MakeFile(source + u"\\\u00FCbung\\\u00E4.txt", "new");
  MakeFolder(target + u"\\\u00DCBUNG");
  MakeFile(target + u"\\\u00DCBUNG\\\u00C4.txt", "old");
  EXPECT_EQ(Move(), 1);
  EXPECT_EQ(test::Names(target), (std::vector<std::u16string>{u"\\\u00DCBUNG", u"\\\u00DCBUNG\\\u00C4.txt"}));
  EXPECT_EQ(Contents(target + u"\\\u00FCbung\\\u00E4.txt"), "new");
}

TEST_F(Moves, ASourceThatIsALinkStays) {
  MakeFile(target + u"\\f", "x");
  const std::u16string link = u"C:\\link", other = u"D:\\Other";
  MakeFolder(other);
  ASSERT_EQ(CreateSymbolicLinkEntry(link.c_str(), target.c_str()), 1);
  EXPECT_EQ(Move(link, other), 0);
  EXPECT_TRUE(Exists(link + u"\\f"));
  ASSERT_EQ(CreateJunction(source.c_str(), target.c_str()), 1);
  EXPECT_EQ(Move(source, other), 0);
  EXPECT_TRUE(Exists(source + u"\\f"));
  EXPECT_TRUE(test::Names(other).empty());
}

TEST_F(Moves, AFileThatCameInTheMeantimeIsNotDeleted) {
  MakeFile(source + u"\\f", "x");
  bool made = false;
  machine->consoleSink = [&](std::string_view) {  // the copy shows its progress
    if (!std::exchange(made, true)) MakeFile(source + u"\\new", "new");
  };
  EXPECT_EQ(Move(), 0);
  EXPECT_EQ(Contents(source + u"\\new"), "new");
  EXPECT_EQ(Contents(source + u"\\f"), "x");
}

// Nothing is waited for where it is known to stay, and the log tells of nothing that was not tried. (Of the path of
// 260 characters and of the folder above it, only one begins with "\\?\".)
TEST_F(Moves, ARollBackDoesNotWaitForFoldersOfWhatStays) {
  const std::u16string sub = u"\\sub\\" + std::u16string(110, u'm'), file = u"\\" + std::u16string(140, u'n');
  MakeFolder(source + u"\\sub");
  MakeFolder(source + sub);
  MakeFile(u"\\\\?\\" + source + sub + file, "ours");
  MoveRecord record;
  ASSERT_EQ(MoveDirectoryTree(source, target, {.carried = {.shares = false}}, record), 1);
  for (const std::u16string& inTheWay : {std::u16string(u"\\sub"), sub, sub + file})
    MakeFolder(u"\\\\?\\" + source + inTheWay);
  EXPECT_EQ(UndoMove(record), 0);
  EXPECT_EQ(Contents(u"\\\\?\\" + target + sub + file), "ours");
  EXPECT_EQ(machine->sleptMilliseconds, 0u);
  EXPECT_TRUE(Logged(u"It stays at \\\\?\\" + target + sub + file + u"."));
  EXPECT_FALSE(Logged(u"delete directory"));
}

// A file that was moved and deleted is gone from its old place, whatever somebody else has put there since.
TEST_F(Moves, ANewFileInTheOldPlaceIsNotTakenForTheMovedOne) {
  MakeFolder(source + u"\\sub");
  MakeFile(source + u"\\sub\\f", "ours");
  // Held with delete sharing, the file goes when it is closed; the folder is waited for, and is not empty even then.
  auto held = HoldOpen(source + u"\\sub\\f", GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_DELETE);
  machine->onSleep = [&](std::uint64_t) {
    machine->onSleep = {};
    machine->files().CloseForeign(held);
    MakeFile(source + u"\\sub\\f", "theirs");
  };
  EXPECT_EQ(Move(), 0);
  EXPECT_EQ(Contents(source + u"\\sub\\f"), "theirs");
  EXPECT_EQ(Contents(target + u"\\sub\\f"), "ours");
  EXPECT_TRUE(Logged(u"#ERROR: Unable to move C:\\Data\\sub\\f back. It stays at D:\\Target\\sub\\f."));
}

TEST_F(Moves, MountedVolumesInsideGoAlongAndOneAsRootIsEmptied) {
  Restart({.volumes = 1});
  std::u16string volume;
  for (const auto& mounted : machine->volumes)
    if (mounted->letter == 0) volume = mounted->guidName;
  for (const bool backup : {true, false}) {
    const std::u16string from = backup ? source : target, to = backup ? target : source;
    if (backup) {
      MakeFolder(source + u"\\mnt");
      ASSERT_TRUE(SetVolumeMountPointW((source + u"\\mnt\\").c_str(), volume.c_str()));
      MakeFile(source + u"\\mnt\\theirs", "kept");
    }
    ASSERT_EQ(Move(from, to, backup), 1);
    EXPECT_FALSE(Exists(from + u"\\mnt"));
    EXPECT_EQ(Contents(to + u"\\mnt\\theirs"), "kept");
  }
  MakeFolder(u"D:\\Plain");
  ASSERT_EQ(Move(source + u"\\mnt", u"D:\\Plain"), 1);
  EXPECT_EQ(Contents(u"D:\\Plain\\theirs"), "kept");
  EXPECT_FALSE(Exists(volume + u"theirs"));
}

// The promise that matters most: after anything, each file is complete at its old place or at its new one; the log
// names what could not be brought back. And folders and links of both places have what they had, as has what strangers
// keep in them: the tree is merged into one with a folder and links of the same names.
class Failures : public Moves {
 protected:
  // By its path: what it is and has, and whose it is.
  using States = std::map<std::u16string, std::string>;

  void Prepare() {
    held_.reset();
    Restart();
    MakeTree();
    MakeFile(source + u":note", "of the folder");
    MakeFile(source + u"\\sub:note", "of a folder in it");
    test::SetSecurity(source, u"O:SYD:P(A;OICI;FA;;;BA)(A;OICI;FA;;;SY)(A;OICI;0x1200a9;;;BU)");
    test::SetSecurity(source + u"\\sub", u"O:SYD:PAI(A;OICI;FA;;;BA)(A;OICI;FA;;;SY)(A;OICI;FA;;;WD)");
    test::SetSecurity(source + u"\\top.txt", u"O:SYD:(A;;FA;;;BA)(A;;FR;;;SY)");
    MakeFile(target + u"\\stood", "here before");
    MakeFolder(target + u"\\sub");
    MakeFile(target + u"\\sub:theirs", "of the folder that stood there");
    test::SetSecurity(target + u"\\sub", u"O:BAD:PAI(A;OICI;FA;;;BA)(A;OICI;FA;;;SY)");
    MakeFolder(target + u"\\sub\\deep");
    MakeFile(target + u"\\sub\\deep\\private.txt", "nobody else's");
    MakeFolder(u"D:\\Elsewhere");
    ASSERT_EQ(CreateJunction((target + u"\\j").c_str(), u"D:\\Elsewhere"), 1);
    ASSERT_EQ(CreateSymbolicLinkEntry((target + u"\\l").c_str(), (target + u"\\stood").c_str()), 1);
    ASSERT_TRUE(SetFileAttributesW((target + u"\\sub").c_str(), FILE_ATTRIBUTE_HIDDEN));
    for (const std::u16string& item : {target + u"\\sub\\deep", target + u"\\sub", target + u"\\j", target, source})
      test::SetTimes(item, static_cast<unsigned>(item.size()) + 40);
    before_ = Holdings(source);
    states_ = Now();
  }
  States Now() const {
    States states;
    for (const std::u16string& root : {source, target}) {
      std::vector<std::u16string> items = test::Names(root);
      items.emplace_back();
      for (const std::u16string& item : items)
        states[root + item] = test::Describe(root + item) + " " + emulated::Utf8(test::Security(root + item));
    }
    return states;
  }
  // Looks at what is on the disks, whatever handle could not be closed.
  void Check(int moved, const std::string& where) {
    machine->gate.Observe({});
    machine->gate.ClearFailures();
    const std::u16string lines = LogText();
    log.reset();
    auto disks = machine->Snapshot();
    held_.reset();
    machine.reset();
    machine = test::BootFrom(std::move(disks));
    EnablePrivileges();
    const auto left = Holdings(source), arrived = Holdings(target);
    EXPECT_EQ(Contents(target + u"\\stood"), "here before") << where;
    EXPECT_EQ(Contents(target + u"\\sub\\deep\\private.txt"), "nobody else's") << where;
    EXPECT_TRUE(!moved || left.empty()) << where;
    if (moved) {
      std::u16string text;
      EXPECT_EQ(GetJunctionTarget((target + u"\\j").c_str(), text), 1) << where;
      EXPECT_EQ(text, target + u"\\sub") << where;
      EXPECT_EQ(Contents(target + u"\\l"), "top") << where;
    }
    for (const auto& [name, holds] : before_) {
      const std::string item = where + " " + std::string(name.begin(), name.end());
      // A link's text may have changed, and a folder that stood there has streams of its own.
      const bool isOther = (Attributes(target + name) & (FILE_ATTRIBUTE_REPARSE_POINT | FILE_ATTRIBUTE_DIRECTORY)) != 0;
      const bool atSource = left.contains(name) && left.at(name) == holds;
      const bool atTarget = arrived.contains(name) && (arrived.at(name) == holds || isOther);
      EXPECT_TRUE(atSource || atTarget) << item;
      if (!moved && !atSource) {
        EXPECT_TRUE(lines.find(target + name) != std::u16string::npos ||
                    lines.find(u"They stay at " + target) != std::u16string::npos)
            << item << " is not named";
      }
    }
    if (moved || lines.find(u"They stay at " + target) != std::u16string::npos) return;
    const States now = Now();
    for (const auto& [path, state] : states_) {
      if (lines.find(path + u".") != std::u16string::npos) continue;
      const auto found = now.find(path);
      EXPECT_EQ(found == now.end() ? "missing" : found->second, state) << where << " " << emulated::Utf8(path);
    }
    EXPECT_TRUE(now != states_ || Move()) << where << ", and once more";
  }
  // The calls of one run, by name.
  std::vector<std::string> Calls(const std::function<void()>& run) {
    std::vector<std::string> calls;
    machine->gate.Observe([&](const char* name, std::uint64_t) { calls.emplace_back(name); });
    run();
    machine->gate.Observe({});
    return calls;
  }
  // Memory that is not freed loses nobody's files, and the leak checker would have its say.
  static bool OnlyFrees(const std::string& call) { return call == "NetApiBufferFree" || call == "LocalFree"; }

  // `prepare`, then `run` with each of its calls refused (from so many thirds of them on), which answers whether all
  // has moved.
  void FailEach(const std::string& what, const std::function<void()>& prepare, const std::function<int()>& run,
                std::size_t from = 0) {
    prepare();
    int moved = 0;
    const auto calls = Calls([&] { moved = run(); });
    Check(moved, what + ", no failure");
    EXPECT_GT(calls.size(), 200u);
    for (std::size_t i = from * calls.size() / 3; i < calls.size() && !HasFailure(); i += test::CallsInOneStep()) {
      if (OnlyFrees(calls[i])) continue;
      prepare();
      machine->gate.FailCall(i + 1, ERROR_ACCESS_DENIED);
      moved = run();
      Check(moved, what + ", call " + std::to_string(i + 1) + " " + calls[i]);
    }
  }

  std::map<std::u16string, std::string> before_;
  States states_;
  std::shared_ptr<emulated::FileObject> held_;
};

TEST_F(Failures, OfAnyCallLoseNothing) {
  for (const bool backup : {true, false})
    FailEach(
        backup ? "backup" : "plain", [&] { Prepare(); }, [&] { return Move(backup); });
}

// A source that cannot be emptied is brought back; then that fails, too.
TEST_F(Failures, OfTheWayBackLoseNothing) {
  for (const bool backup : {true, false})
    FailEach(
        backup ? "backup" : "plain",
        [&] {
          Prepare();
          held_ = HoldOpen(source + u"\\sub\\f.txt", GENERIC_READ, FILE_SHARE_READ);
        },
        [&] { return Move(backup); }, 1);
}

// The last step of a command has failed, and has taken the emptied folder with it.
TEST_F(Failures, OfTakingAFinishedMoveBackLoseNothing) {
  for (const bool backup : {true, false}) {
    MoveRecord record;
    FailEach(
        backup ? "backup" : "plain",
        [&] {
          Prepare();
          ASSERT_EQ(
              MoveDirectoryTree(source, target, {.carried = {.ntfsPermissions = backup, .shares = false}}, record), 1);
          ASSERT_TRUE(RemoveDirectoryW(source.c_str()));
        },
        [&] {
          UndoMove(record);
          return 0;
        });
  }
}

}  // namespace
