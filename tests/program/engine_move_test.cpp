// Deleting and moving trees, and what is left after any failure.
#include "program/everything.h"

namespace {

using namespace test;
using namespace win32;

class Deletes : public Engine {
 protected:
  Deletes() : Engine({.extraDrives = 1, .volumes = 1}) {}
  static int Strictly(const std::u16string& root) { return DeleteDirectoryTree(root.c_str(), {.stopOnFailure = true}); }
  const std::u16string a = source + u"\\a", f = a + u"\\f";
};

TEST_F(Deletes, EverythingBelowTheRoot) {
  MakeFolder(a);
  MakeFile(f, "x", FILE_ATTRIBUTE_READONLY);
  MakeFolder(source + u"\\closed");
  ASSERT_TRUE(SetFileAttributesW((source + u"\\closed").c_str(), FILE_ATTRIBUTE_READONLY));
  EXPECT_EQ(Told([&] { EXPECT_EQ(DeleteDirectoryTree(source.c_str()), 1); }), "");
  EXPECT_EQ(Names(source).size(), 3u) << "best effort leaves it";
  const auto held = HoldOpen(f, GENERIC_READ, FILE_SHARE_READ);
  EXPECT_EQ(Told([&] { EXPECT_EQ(Strictly(source), 0); }), "|Failed to delete File : C:\\Data\\a\\f.");
  EXPECT_EQ(Attributes(f), FILE_ATTRIBUTE_READONLY);
  machine->files().CloseForeign(held);
  EXPECT_EQ(Strictly(source), 1);
  EXPECT_TRUE(Exists(source));
  EXPECT_TRUE(Names(source).empty());
}

TEST_F(Deletes, NothingBehindALink) {
  MakeFile(target + u"\\theirs", "kept");
  const std::u16string junction = source + u"\\j";
  ASSERT_EQ(CreateJunction(junction.c_str(), target.c_str()), 1);
  ASSERT_EQ(CreateSymbolicLinkEntry((source + u"\\d").c_str(), target.c_str()), 1);
  ASSERT_EQ(CreateSymbolicLinkEntry((source + u"\\f").c_str(), (target + u"\\theirs").c_str()), 1);
  EXPECT_EQ(Strictly(source), 1);
  EXPECT_TRUE(Names(source).empty());
  EXPECT_EQ(Contents(target + u"\\theirs"), "kept");
  ASSERT_EQ(CreateJunction(junction.c_str(), target.c_str()), 1);
  {
    // One that cannot be read is one all the same.
    const UniqueFile held{CreateFileW(junction.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                      FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OPEN_REPARSE_POINT, nullptr)};
    EXPECT_EQ(Strictly(junction), 0);
  }
  EXPECT_EQ(Strictly(junction), 1);
  EXPECT_FALSE(Exists(junction));
  EXPECT_EQ(Contents(target + u"\\theirs"), "kept");
}

TEST_F(Deletes, MountedVolumesAreUnmounted) {
  const std::u16string volume = machine->volumes.back()->guidName;
  MakeFile(volume + u"theirs", "kept");
  for (const std::u16string& mount : {a, std::u16string(u"C:\\mount"), std::u16string(u"C:\\later")}) {
    MakeFolder(mount);
    ASSERT_TRUE(SetVolumeMountPointW((mount + u"\\").c_str(), volume.c_str()));
    ASSERT_EQ(Contents(mount + u"\\theirs"), "kept");
    EXPECT_EQ(
        mount == u"C:\\later" ? DeleteDirectoryTreeAtReboot(mount.c_str()) : Strictly(mount == a ? source : mount), 1);
    EXPECT_FALSE(Exists(mount + u"\\theirs"));
    EXPECT_EQ(Exists(mount), mount != a);
    EXPECT_EQ(Contents(volume + u"theirs"), "kept");
  }
  ASSERT_TRUE(SetVolumeMountPointW(u"C:\\mount\\", volume.c_str()));
  machine->gate.FailCallsFrom("DeleteVolumeMountPointW", 1, ERROR_ACCESS_DENIED);
  EXPECT_EQ(DeleteDirectoryTree(u"C:\\mount"), 1);
  EXPECT_EQ(Strictly(u"C:\\mount") + DeleteDirectoryTreeAtReboot(u"C:\\mount"), 0);
  machine->gate.ClearFailures();
  EXPECT_EQ(DeleteDirectoryTree(u"E:\\"), 1) << "a drive's root is no mount";
}

// What is not empty yet is often so soon after; any other reason stays.
TEST_F(Deletes, AFolderThatIsNotEmptyYetIsTriedAgainOnce) {
  const std::string failed = "|Failed to delete directory : C:\\Data\\a. Error: ",
                    again = failed + "145. Going to retry after a short while.";
  const struct {
    DWORD errors[3];  // of the three attempts
    int result;
    unsigned slept;
    std::string log;
  } cases[] = {{{ERROR_ACCESS_DENIED, 0, 0}, 1, 0, ""},
               {{ERROR_ACCESS_DENIED, ERROR_ACCESS_DENIED, 0}, 0, 0, failed + "5"},
               {{ERROR_DIR_NOT_EMPTY, ERROR_SHARING_VIOLATION, 0}, 0, 0, failed + "32"},
               {{ERROR_ACCESS_DENIED, ERROR_DIR_NOT_EMPTY, 0}, 1, 5000, again},
               {{ERROR_DIR_NOT_EMPTY, ERROR_DIR_NOT_EMPTY, ERROR_DIR_NOT_EMPTY}, 0, 5000, again + failed + "145"}};
  for (const auto& [errors, result, slept, text] : cases) {
    if (!Exists(a)) MakeFolder(a);
    ASSERT_TRUE(SetFileAttributesW(a.c_str(), FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN));
    machine->sleptMilliseconds = 0;
    for (unsigned call = 0; call < 3; ++call)
      if (errors[call] != 0) machine->gate.FailCall("RemoveDirectoryW", call + 1, errors[call]);
    EXPECT_EQ(Told([&, expected = result] { EXPECT_EQ(Strictly(source), expected); }), text);
    EXPECT_EQ(machine->sleptMilliseconds, slept);
    EXPECT_EQ(Exists(a), result == 0);
    if (result == 0) {
      EXPECT_EQ(Attributes(a), FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN);
    }
  }
  // Held with delete sharing: the name stays until the other process closes it.
  MakeFile(f, "x");
  auto held = HoldOpen(f, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_DELETE);
  machine->onSleep = [&](std::uint64_t) { machine->files().CloseForeign(held); };
  EXPECT_EQ(Told([&] { EXPECT_EQ(Strictly(source), 1); }), again);
  EXPECT_FALSE(Exists(a));
}

TEST_F(Deletes, AtTheNextRestart) {
  MakeFolder(a);
  for (const char16_t* name : {u"\\f", u"\\g"}) MakeFile(a + name, "x", FILE_ATTRIBUTE_READONLY);
  machine->gate.FailCall("MoveFileExW", 1, ERROR_ACCESS_DENIED);
  EXPECT_EQ(Told([&] { EXPECT_EQ(DeleteDirectoryTreeAtReboot(source.c_str()), 0); }), "");
  EXPECT_EQ(Attributes(a + u"\\g"), FILE_ATTRIBUTE_READONLY);
  Reboot();
  EXPECT_EQ(Names(source), (std::vector<std::u16string>{u"\\a", u"\\a\\g"})) << "the others were registered";
  ASSERT_EQ(DeleteDirectoryTreeAtReboot(source.c_str()), 1);
  Reboot();
  EXPECT_TRUE(Exists(source) && Names(source).empty());
}

class Moves : public Engine {
 protected:
  Moves() : Engine({.volumes = 1}) {}
  void Link(const char16_t* name, const std::u16string& to) {
    ASSERT_EQ(CreateSymbolicLinkEntry((source + name).c_str(), to.c_str()), 1);
  }
  int Move(const std::u16string& from, const std::u16string& to, bool backup = true) {
    return MoveDirectoryTree(from, to, {.carried = {.ntfsPermissions = backup, .shares = false}}, record);
  }
  int Move(bool backup = true) { return Move(source, target, backup); }
  // What the files hold, links by their reparse data, without attributes and times.
  static std::map<std::u16string, std::string> Holdings(const std::u16string& root) {
    std::map<std::u16string, std::string> holdings;
    for (const std::u16string& name : Names(root)) holdings[name] = test::Streams(root + name);
    return holdings;
  }
  MoveRecord record;
};

// What needs no other text arrives even when the link cannot be made by it.
TEST_F(Moves, LinksThatLeadElsewhereOrNowhereAreCarriedOver) {
  MakeFolder(u"C:\\Elsewhere");
  MakeFile(u"C:\\Elsewhere\\f", "theirs");
  MakeFolder(source + u"\\sub");
  MakeFile(source + u"\\sub\\near", "near");
  Link(u"\\out", u"C:\\Elsewhere\\f");
  Link(u"\\relative", u"sub\\..\\sub\\near");
  Link(u"\\sub\\up", u"..\\sub\\near");
  Link(u"\\dangling", source + u"\\gone");
  Link(u"\\share", u"\\\\server\\share\\f");
  const auto before = Holdings(source);
  machine->gate.FailCallsFrom("GetProcAddress", 1, ERROR_PROC_NOT_FOUND);
  ASSERT_EQ(Move(), 1);
  EXPECT_EQ(Holdings(target), before);
  // Those that led out of the tree, or to its root's drive, would lead elsewhere.
  machine->gate.ClearFailures();
  for (const char16_t* text : {u"..\\Elsewhere\\f", u"\\Elsewhere\\f"}) {
    Link(u"\\away", text);
    machine->gate.FailCallsFrom("GetProcAddress", 1, ERROR_PROC_NOT_FOUND);
    EXPECT_EQ(Move(), 0);
    machine->gate.ClearFailures();
    EXPECT_EQ(Names(source), std::vector<std::u16string>{u"\\away"});
    ASSERT_TRUE(DeleteFileW((source + u"\\away").c_str()));
  }
}

TEST_F(Moves, WindowsOwnFoldersAreNotMoved) {
  MakeFolder(source + u"\\sub");
  MakeFolder(source + u"\\sub\\$Recycle.Bin");
  MakeFile(source + u"\\sub\\$Recycle.Bin\\f", "x");
  EXPECT_EQ(Told([&] { EXPECT_EQ(Move(), 0); }),
            "|#ERROR: The folder C:\\Data\\sub\\$Recycle.Bin belongs to Windows and cannot be moved.");
  EXPECT_TRUE(Exists(source + u"\\sub\\$Recycle.Bin\\f"));
  EXPECT_TRUE(Names(target).empty());
}

TEST_F(Moves, ASourceThatIsALinkStays) {
  MakeFile(target + u"\\f", "x");
  const std::u16string link = u"C:\\link", other = u"D:\\Other";
  MakeFolder(other);
  ASSERT_EQ(CreateSymbolicLinkEntry(link.c_str(), target.c_str()) + CreateJunction(source.c_str(), target.c_str()), 2);
  EXPECT_EQ(Move(link, other) + Move(source, other), 0);
  EXPECT_EQ(record.outcome, MoveOutcome::NothingDone);
  EXPECT_TRUE(Exists(link + u"\\f") && Exists(source + u"\\f"));
  EXPECT_TRUE(Names(other).empty());
}

TEST_F(Moves, AFileThatWentInTheMeantimeIsPassedOver) {
  const std::u16string theirs = target + u"\\went";
  const std::string much(0x100000, 'x');  // the line of so much goes out at once
  MakeFile(source + u"\\f", much);
  MakeFile(source + u"\\went", "x");
  MakeFile(theirs, "theirs", FILE_ATTRIBUTE_READONLY);
  machine->consoleSink = [&](std::string_view) { DeleteFileW((source + u"\\went").c_str()); };
  EXPECT_EQ(Move(), 1);
  EXPECT_EQ(Contents(target + u"\\f"), much);
  EXPECT_EQ(Contents(theirs), "theirs");
  EXPECT_EQ(Attributes(theirs), FILE_ATTRIBUTE_READONLY);
}

// Others change what is being moved. Nothing is deleted but what its copy holds, nor is anything reached through a link
// that has come, or overwritten that came to the target; the roll-back leaves their changes.
TEST_F(Moves, WhatIsNotWhatWasCopiedStays) {
  const std::u16string a = source + u"\\a", sub = source + u"\\sub", f = sub + u"\\f", theirs = u"C:\\Theirs";
  std::shared_ptr<emulated::FileObject> held;
  const auto becomeLinks = [&] {
    for (const std::u16string& file : {a, f})
      if (DeleteFileW(file.c_str())) CreateSymbolicLinkEntry(file.c_str(), (theirs + u"\\f").c_str());
  };
  const auto becomeJunction = [&] {
    EXPECT_TRUE(MoveFileExW(sub.c_str(), u"C:\\away", 0));
    MakeFolder(sub);
    EXPECT_EQ(CreateJunction(sub.c_str(), theirs.c_str()), 1);
  };
  const std::pair<std::u16string, std::function<void()>> cases[] = {
      {u"\\a", [&] { MakeFile(source + u"\\new", "new"); }},
      {u"\\sub\\f", [&] { MakeFile(a, "NEW"); }},
      {u"\\sub\\f", [&] { DeleteFileW(a.c_str()), MakeFile(a, "new"); }},
      {u"\\sub\\f", becomeLinks},
      {u"\\a", becomeLinks},
      {u"\\sub\\f", becomeJunction},
      {u"\\sub", becomeJunction},
      {u"\\a", becomeJunction},
      {u"\\sub\\f",
       [&] { SetSecurity(a, u"O:BAG:SYD:P(A;;FA;;;SY)"), held = HoldOpen(a, GENERIC_READ, FILE_SHARE_READ); }}};
  for (std::size_t number = 0; number < 2 * std::size(cases); ++number) {
    const auto& [behind, change] = cases[number / 2];  // the copy of this item
    SCOPED_TRACE(number);
    Restart();
    for (const std::u16string& folder : {theirs, sub}) MakeFolder(folder);
    for (const auto& [path, text] : {std::pair{theirs + u"\\f", "theirs"}, {a, "old"}, {f, "ours"}})
      MakeFile(path, text);
    const auto now = [&] {
      return std::tuple(Holdings(source), Holdings(theirs), FactsOf(theirs + u"\\f")->index, Describe(a), Security(a));
    };
    std::optional<decltype(now())> changed;
    bool isLooking = false;
    machine->gate.Observe([&, &behind = behind, &change = change](std::string_view name, std::uint64_t) {
      if (changed || isLooking || name != "GetFileAttributesW") return;
      isLooking = true;
      if (Exists(target + behind)) {
        machine->Advance(1000);
        change();
        changed = now();
      }
      isLooking = false;
    });
    EXPECT_EQ(Move(/*backup=*/number % 2 == 0), 0);
    machine->gate.Observe({});
    held.reset();
    EXPECT_TRUE(changed && now() == *changed && Names(target).empty());
    EXPECT_NE(record.outcome, MoveOutcome::Split);
  }
  Restart();
  MakeFile(a, "ours");
  machine->gate.Observe([&](const char* name, std::uint64_t) {
    if (std::string_view(name) == "GetFileInformationByHandle" && !Exists(target + u"\\a"))
      MakeFile(target + u"\\a", "theirs");
  });
  EXPECT_EQ(Move(), 0);
  machine->gate.Observe({});
  EXPECT_EQ(Contents(a) + Contents(target + u"\\a"), "ourstheirs");
}

// A file that was moved and deleted is gone from its old place, whatever somebody else has put there since.
TEST_F(Moves, ANewFileInTheOldPlaceIsNotTakenForTheMovedOne) {
  MakeFolder(source + u"\\sub");
  MakeFile(source + u"\\sub\\f", "ours");
  // Held with delete sharing, the file goes when it is closed; the folder is waited for, and is not empty even then.
  auto held = HoldOpen(source + u"\\sub\\f", GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_DELETE);
  machine->onSleep = [&](std::uint64_t) {
    if (!held) return;
    machine->files().CloseForeign(std::exchange(held, nullptr));
    MakeFile(source + u"\\sub\\f", "theirs");
  };
  EXPECT_EQ(Move(), 0);
  EXPECT_EQ(Contents(source + u"\\sub\\f"), "theirs");
  EXPECT_EQ(Contents(target + u"\\sub\\f"), "ours");
  EXPECT_NE(LogText().find(u"#ERROR: Unable to move C:\\Data\\sub\\f back. It stays at D:\\Target\\sub\\f."),
            std::u16string::npos);
}

TEST_F(Moves, MountedVolumesInsideGoAlong) {
  const std::u16string volume = machine->volumes.back()->guidName;
  MakeFolder(source + u"\\mnt");
  ASSERT_TRUE(SetVolumeMountPointW((source + u"\\mnt\\").c_str(), volume.c_str()));
  MakeFile(source + u"\\mnt\\theirs", "kept");
  for (const bool backup : {true, false}) {
    const std::u16string from = backup ? source : target, to = backup ? target : source;
    ASSERT_EQ(Move(from, to, backup), 1);
    EXPECT_FALSE(Exists(from + u"\\mnt"));
    EXPECT_EQ(Contents(to + u"\\mnt\\theirs"), "kept");
  }
}

}  // namespace
