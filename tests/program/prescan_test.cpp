// The scan of a source: what it names, in which order, and what it lets through.
#include "validate/prescan.h"

#include "links/junction.h"
#include "probes/locked_handles.h"
#include "program/validation.h"
#include "text/ascii_case.h"

namespace {

using namespace win32;
using test::About, test::InUse, test::Lines, test::MakeFile, test::MakeFolder;

const auto Unreadable =
    About(u"#ERROR: ", u" - Insufficient permissions. The minimum permissions requirement is read & execute.");
const auto UnreadableButAllowed =
    About(u"#INFO: ", u" - Insufficient permissions but allowing it anyways (special case).");
const auto Locked = About(u"#INFO: ", u" - File or Folder is locked.");
const auto LockedButAllowed = About(u"#INFO: ", u" - Folder locked but allowing it anyways (special case).");
const auto NotAccessible = About(u"#INFO: ", u" - File is not accessible.");

LockedPaths LockedList(const Lines& paths) {
  LockedPaths locked;
  for (const std::u16string& path : paths)
    path.copy(locked.paths.get() + std::ptrdiff_t{locked.count++} * LockedPaths::kPathCharacters, path.size());
  return locked;
}

class PreScan : public test::ValidationTest {
 protected:
  // Everything that the scan of C:\Data logs, and what it answers, against paths that are locked.
  void ExpectScan(const Lines& locked, bool allowSpecialCase, int result, const Lines& expected) {
    TreeListing listing;
    ASSERT_EQ(GetFileList(source, listing), 1);
    const LockedPaths list = LockedList(locked);
    int answer = -1;
    const Lines lines = LinesOf([&] { answer = PreScanListing(listing, &list, allowSpecialCase); });
    EXPECT_EQ(answer, result);
    EXPECT_EQ(test::Shown(lines), test::Shown(expected));
  }
  void DenyAll(const std::u16string& path) { test::SetSecurity(path, u"O:BAD:P(A;;FA;;;SY)"); }
};

TEST_F(PreScan, NamesEachItemInTheOrderOfTheTree) {
  const std::u16string a = source + u"\\a", b = source + u"\\b", bf = b + u"\\f", c = source + u"\\c",
                       d = source + u"\\d", readOnly = source + u"\\readonly";
  for (const std::u16string& folder : {b, d}) MakeFolder(folder);
  for (const std::u16string& file : {a, bf, c}) MakeFile(file, "x");
  MakeFile(readOnly, "x", FILE_ATTRIBUTE_READONLY);
  ExpectScan({}, false, 1, {});
  // Refused, listed as locked, held open: every test of an item speaks, one line says what to do. What the user may not
  // open at all is not found to be in use.
  for (const std::u16string& item : {b, bf}) DenyAll(item);
  const auto held = HoldOpen(c, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE);
  const Lines locked = {c, bf, u"C:\\elsewhere", a, b, source};
  const Lines ofC = {Locked(c), NotAccessible(c), InUse(c)};
  ExpectScan(locked, false, 0,
             {Locked(a), InUse(a), Unreadable(b), Locked(b), InUse(b), Unreadable(bf), Locked(bf), InUse(bf), ofC[0],
              ofC[1], ofC[2]});
  // The special case is for folders alone.
  ExpectScan(locked, true, 0,
             {Locked(a), InUse(a), UnreadableButAllowed(b), LockedButAllowed(b), Unreadable(bf), Locked(bf), InUse(bf),
              ofC[0], ofC[1], ofC[2]});
  ExpectScan({b, d}, true, 0,
             {UnreadableButAllowed(b), LockedButAllowed(b), Unreadable(bf), ofC[1], ofC[2], LockedButAllowed(d)});
}

TEST_F(PreScan, EachCounterAloneMakesItNo) {
  const std::u16string folder = source + u"\\folder", file = source + u"\\file";
  MakeFolder(folder);
  MakeFile(file, "x");
  ExpectScan({folder}, false, 0, {Locked(folder), InUse(folder)});
  ExpectScan({folder}, true, 1, {LockedButAllowed(folder)});
  ExpectScan({file}, true, 0, {Locked(file), InUse(file)});
  DenyAll(folder);
  ExpectScan({}, false, 0, {Unreadable(folder)});
  ExpectScan({}, true, 1, {UnreadableButAllowed(folder)});
  test::SetSecurity(folder, u"O:BAD:P(A;;0x1200a9;;;BA)");
  ExpectScan({}, false, 1, {});
  test::SetSecurity(folder, u"O:BAD:P(A;;0x120089;;;BA)");  // no execute
  ExpectScan({}, false, 0, {Unreadable(folder)});
  test::SetSecurity(folder, u"O:BAD:P(A;;FA;;;BA)");
}

TEST_F(PreScan, ComparesAsPathsAreCompared) {
  const std::u16string item = source + u"\\Caf\u00e9";
  MakeFile(item, "x");
  ExpectScan({u"c:\\DATA\\cAF\u00e9"}, false, 0, {Locked(item), InUse(item)});
  ExpectScan({u"\\\\?\\C:\\Data\\Caf\u00e9"}, false, 0, {Locked(item), InUse(item)});
  ExpectScan({u"C:\\Data\\Caf\u00c9", u"C:\\Data\\Caf", u"C:\\Data\\Caf\u00e9\\", u""}, false, 1, {});
  ASSERT_TRUE(DeleteFileW(item.c_str()));
  // Where the plain form does not reach, the listing has the long one.
  std::u16string deep = source;
  for (const char16_t name : {u'a', u'b', u'c'}) {
    deep += u"\\" + std::u16string(100, name);
    MakeFolder(u"\\\\?\\" + deep);
  }
  ExpectScan({LowerAscii(deep)}, false, 0, {Locked(u"\\\\?\\" + deep), InUse(u"\\\\?\\" + deep)});
}

TEST_F(PreScan, FindsFilesInUse) {
  MakeFile(source + u"\\busy", "x");
  MakeFile(source + u"\\free", "x");
  SetLastError(ERROR_SHARING_VIOLATION);  // of some call before
  EXPECT_LINES(Refusal([&] { return PreScanSource(source.c_str(), nullptr, {.checkLocks = true}); }), passed);
  const auto held = HoldOpen(source + u"\\busy", GENERIC_READ, 0);
  EXPECT_LINES(LinesOf([&] { EXPECT_EQ(PreScanSource(source.c_str(), nullptr, {.allowSpecialCase = true}), 0); }),
               Lines{NotAccessible(source + u"\\busy"), InUse(source + u"\\busy")});
  machine->files().CloseForeign(held);
  for (const DWORD error : {ERROR_SHARING_VIOLATION, ERROR_LOCK_VIOLATION, ERROR_ACCESS_DENIED}) {
    TreeListing listing;
    ASSERT_EQ(GetFileList(source, listing), 1);
    const Lines lines = LinesOf([&] {
      machine->gate.FailCall("CreateFileW", 1, error);
      PreScanListing(listing, nullptr, false);
    });
    const bool inUse = error != ERROR_ACCESS_DENIED;
    EXPECT_LINES(lines, inUse ? Lines{NotAccessible(source + u"\\busy"), InUse(source + u"\\busy")} : Lines{});
  }
}

TEST_F(PreScan, PassesEmptyTreesAndWindowsOwnFolders) {
  EXPECT_LINES(Refusal([&] { return PreScanSource(source.c_str(), nullptr, {.checkLocks = true}); }), passed);
  EXPECT_LINES(Refusal([] { return PreScanSource(nullptr, nullptr, {.checkLocks = true}); }),
               Lines{u"#ERROR: Source path is missing."});
  EXPECT_LINES(Refusal([] { return PreScanSource(u"C:\\missing", nullptr, {.checkLocks = true}); }),
               (Lines{u"#ERROR: Unable to list the folder C:\\missing. The system cannot find the file specified.",
                      u"#ERROR: Unable to get list of files for path = C:\\missing."}));
  MakeFolder(source + u"\\sub");
  std::vector<std::shared_ptr<emulated::FileObject>> held;
  for (const char16_t* name : {u"\\$recycle.bin", u"\\sub\\System Volume Information"}) {
    MakeFolder(source + name);
    MakeFile(source + name + u"\\busy", "x");
    held.push_back(HoldOpen(source + name + u"\\busy", GENERIC_READ, 0));
    DenyAll(source + name);
  }
  EXPECT_LINES(Refusal([&] { return PreScanSource(source.c_str(), nullptr, {.checkLocks = true}); }), passed);
}

TEST_F(PreScan, LinksAreListedButNotEntered) {
  MakeFile(target + u"\\busy", "x");
  ASSERT_EQ(CreateJunction((source + u"\\j").c_str(), target.c_str()), 1);
  ASSERT_EQ(CreateSymbolicLinkEntry((source + u"\\s").c_str(), target.c_str()), 1);
  MakeFolder(source + u"\\d");
  MakeFile(source + u"\\d\\f", "x");
  const auto held = HoldOpen(target + u"\\busy", GENERIC_READ, 0);
  const std::u16string link = source + u"\\s";
  EXPECT_LINES(LinesOf([&] { EXPECT_EQ(PreScanSource(source.c_str(), nullptr, {.checkLocks = true}), 1); }),
               Lines{u"IsSymbolicLink()::The specified directory or file " + link + u" is symbolic link"});
  ExpectScan({source + u"\\j"}, false, 0, {Locked(source + u"\\j"), InUse(source + u"\\j")});
  TreeListing listing;
  ASSERT_EQ(GetFileList(source, listing), 1);
  EXPECT_EQ(listing.entries.size(), 4u);
  EXPECT_EQ(listing.links.size(), 2u);
  // A listing that breaks off is none, and the log names the folder.
  const std::pair<const char*, std::u16string> calls[] = {{"FindFirstFileW", source + u"\\d"},
                                                          {"FindNextFileW", source}};
  for (const auto& [call, folder] : calls) {
    machine->gate.FailCall(call, 3, ERROR_ACCESS_DENIED);
    EXPECT_LINES(ErrorsIn(LinesOf([&] { EXPECT_EQ(GetFileList(source, listing), 0); })),
                 Lines{u"#ERROR: Unable to list the folder " + folder + u". Access is denied."});
    machine->gate.ClearFailures();
  }
  // What keeps most folders of documents from moving is named.
  DenyAll(source + u"\\j");
  ASSERT_TRUE(SetFileAttributesW((source + u"\\j").c_str(), FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM));
  ExpectScan(
      {}, false, 0,
      {Unreadable(source + u"\\j"),
       u"#INFO: " + source +
           u"\\j - Windows keeps this hidden link for old programs, and nobody may list what it leads to. Redirect "
           u"the whole user profile instead, or remove the link."});
}

// An item whose contents a cloud service, deduplication or a storage tier keeps would arrive as an empty shell.
TEST_F(PreScan, WhatIsKeptElsewhereIsRefusedByNameAndTheRestTravels) {
  const std::u16string users = u"C:\\Users\\anna\\Documents\\item", item = source + u"\\item",
                       kept = u" - Its contents are kept elsewhere (reparse tag 0x";
  log.reset();
  enum class Kind { File, Folder, Source };
  const struct {
    DWORD tag;
    const char16_t* shown;  // null: it travels
    Kind kind = Kind::File;
  } cases[] = {{0x9000001A, u"9000001A"},
               {0x9000601A, u"9000601A", Kind::Folder},
               {0x9000601A, u"9000601A", Kind::Source},
               {0x80000013, u"80000013"},
               {0x8000001E, u"8000001E"},
               {0x80000017, nullptr},
               {0x8000001B, nullptr}};
  for (const DWORD tag : {0x80000023u, 0xA000001Du, 0x80000024u, 0x80000025u, 0x80000026u})
    EXPECT_TRUE(IsWholeInItsStreams(tag)) << "the workstation's volumes do not take these";
  const auto disks = machine->Snapshot();
  for (const auto& [tag, shown, kind] : cases) {
    test::Disks copies;
    for (const auto& [name, device] : disks) copies[name] = device->Clone();
    machine.reset();
    machine = test::BootFrom(std::move(copies));
    EnablePrivileges();
    SCOPED_TRACE(tag);
    for (const std::u16string& path : {item, users}) {
      if (kind == Kind::File) {
        MakeFile(path, "shell");
      } else {
        MakeFolder(path);
        MakeFile(path + u"\\in it", "shell");
      }
      if (kind != Kind::Source) test::SetTag(path, tag);
    }
    if (kind == Kind::Source) test::SetTag(source, tag);
    const test::Tree before = test::DescribeTree(source);
    const std::string streams = test::Streams(item);
    const auto run = test::RunProgram(*machine, {u"/RedirectFolder", source, u"/loc:" + target});
    if (!shown) {
      EXPECT_EQ(run.exitCode, 0) << emulated::Utf8(run.log);
      EXPECT_EQ(test::Streams(target + u"\\Data\\item"), streams);
      EXPECT_EQ(test::RunProgram(*machine, {u"/RedirectFolder", source, u"/loc:" + target, u"/d"}).exitCode, 0);
      EXPECT_EQ(test::Streams(item), streams);
      continue;
    }
    const auto expectRefused = [&, ofTag = std::u16string(shown)](const test::RunResult& refused,
                                                                  const std::u16string& path) {
      EXPECT_EQ(refused.exitCode, 1);
      EXPECT_TRUE(refused.Logged(u"#ERROR: " + path + kept + ofTag + u")")) << emulated::Utf8(refused.log);
    };
    expectRefused(run, kind == Kind::Source ? source : item);
    EXPECT_EQ(run.log.find(kept), run.log.rfind(kept)) << "one line says it";
    EXPECT_EQ(test::DescribeTree(source), before);
    EXPECT_TRUE(test::Names(target).empty());
    if (kind == Kind::Source) continue;
    expectRefused(test::RunProgram(*machine, {u"/RedirectUP", u"anna", u"/loc:D:\\"}), users);
    if (kind == Kind::Folder) continue;
    expectRefused(test::RunProgram(*machine, {u"/RedirectFile", item, u"/loc:" + target}), item);
    ASSERT_TRUE(MoveFileW(item.c_str(), u"C:\\Users\\Public\\item"));
    expectRefused(test::RunProgram(*machine, {u"/RedirectUP", u"/PublicProfile", u"/loc:D:\\"}),
                  u"C:\\Users\\Public\\item");
  }
}

// Programs of other systems make files of such names; a plain path would lead to the device, and lose what is copied.
TEST_F(PreScan, NamesOfDevicesAreReachedLikeOthers) {
  const std::u16string literal = u"\\\\?\\" + source;
  log.reset();
  for (const char16_t* const name : {u"nul", u"con.txt", u"aux.c", u"com1.log", u"lpt\u00b2", u"prn. "})
    MakeFile(literal + u"\\" + name, "content of " + emulated::Utf8(name));
  MakeFolder(literal + u"\\com9");
  MakeFile(literal + u"\\com9\\nul.txt", "below");
  const test::Tree before = test::DescribeTree(literal);
  for (const char16_t* const permissions : {u"/NTFS", u"/-NTFS"}) {
    const auto run = test::RunProgram(*machine, {u"/RedirectFolder", source, u"/loc:" + target, permissions});
    EXPECT_EQ(run.exitCode, 0) << emulated::Utf8(run.log);
    EXPECT_EQ(test::DescribeTree(u"\\\\?\\" + target + u"\\Data"), before);
    EXPECT_EQ(test::RunProgram(*machine, {u"/RedirectFolder", source, u"/loc:" + target, u"/d"}).exitCode, 0);
    EXPECT_EQ(test::DescribeTree(literal), before);
  }
}

}  // namespace
