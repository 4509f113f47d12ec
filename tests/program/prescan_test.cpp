// The scan of a source: what it names, in which order, and what it lets through.
#include "program/validation.h"

namespace {

using namespace test;
using namespace win32;
using emulated::Utf8;

LockedPaths LockedList(const Lines& paths) {
  LockedPaths locked;
  for (const std::u16string& path : paths)
    path.copy(locked.paths.get() + std::ptrdiff_t{locked.count++} * LockedPaths::kPathCharacters, path.size());
  return locked;
}

class PreScan : public ValidationTest {
 protected:
  // What is said of a path, by a letter.
  static std::string Line(char what, const std::u16string& path) {
    static const std::map<char, std::pair<std::string, std::string>> lines = {
        {'X', {"#ERROR: ", " - Insufficient permissions. The minimum permissions requirement is read & execute."}},
        {'x', {"#INFO: ", " - Insufficient permissions but allowing it anyways (special case)."}},
        {'L', {"#INFO: ", " - File or Folder is locked."}},
        {'l', {"#INFO: ", " - Folder locked but allowing it anyways (special case)."}},
        {'N', {"#INFO: ", " - File is not accessible."}},
        {'U',
         {"#ERROR: ",
          " - File or folder is used by another process.  Close any application that might be using the file or folder "
          "and try again."}}};
    return "|" + lines.at(what).first + Utf8(path) + lines.at(what).second;
  }
  // All that the scan of C:\\Data logs, and what it answers, against paths that are locked.
  void ExpectScan(const Lines& locked, bool allowSpecialCase, int result,
                  const std::vector<std::pair<const char*, std::u16string>>& said, const std::string& more = {}) {
    TreeListing listing;
    ASSERT_EQ(GetFileList(source, listing), 1);
    const LockedPaths list = LockedList(locked);
    std::string expected;
    for (const auto& [letters, path] : said)
      for (const char what : std::string_view(letters)) expected += Line(what, path);
    EXPECT_EQ(Told([&] { EXPECT_EQ(PreScanListing(listing, &list, allowSpecialCase), result); }), expected + more);
  }
  std::string Scanned(const char16_t* path, int result, const PreScanOptions& options = {.checkLocks = true}) {
    return Told([&] { EXPECT_EQ(PreScanSource(path, nullptr, options), result); });
  }
  void DenyAll(const std::u16string& path) { SetSecurity(path, u"O:BAD:P(A;;FA;;;SY)"); }
};

TEST_F(PreScan, NamesEachItemInTheOrderOfTheTree) {
  const std::u16string a = source + u"\\a", b = source + u"\\b", bf = b + u"\\f", c = source + u"\\c",
                       d = source + u"\\d", readOnly = source + u"\\readonly";
  for (const std::u16string& folder : {b, d}) MakeFolder(folder);
  for (const std::u16string& file : {a, bf, c}) MakeFile(file, "x");
  MakeFile(readOnly, "x", FILE_ATTRIBUTE_READONLY);
  ExpectScan({}, false, 1, {});
  // Each counter alone makes it no.
  ExpectScan({d}, false, 0, {{"LU", d}});
  ExpectScan({d}, true, 1, {{"l", d}});
  ExpectScan({a}, true, 0, {{"LU", a}});
  DenyAll(d);
  ExpectScan({}, false, 0, {{"X", d}});
  ExpectScan({}, true, 1, {{"x", d}});
  SetSecurity(d, u"O:BAD:P(A;;0x120089;;;BA)");  // no execute
  ExpectScan({}, false, 0, {{"X", d}});
  SetSecurity(d, u"O:BAD:P(A;;0x1200a9;;;BA)");
  ExpectScan({}, false, 1, {});
  // Refused, listed as locked, held open: every test of an item speaks, one line says what to do. What the user may not
  // open at all is not found to be in use. The special case is for folders alone.
  for (const std::u16string& item : {b, bf}) DenyAll(item);
  const auto held = HoldOpen(c, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE);
  const auto alsoHeld = HoldOpen(readOnly, GENERIC_READ, 0), folderHeld = HoldOpen(d, FILE_EXECUTE, FILE_SHARE_READ);
  const Lines locked = {c, bf, u"C:\\elsewhere", a, b, source};
  ExpectScan(locked, false, 0, {{"LU", a}, {"XLU", b}, {"XLU", bf}, {"LNU", c}, {"LU", d}, {"NU", readOnly}});
  ExpectScan(locked, true, 0, {{"LU", a}, {"xl", b}, {"XLU", bf}, {"LNU", c}, {"NU", readOnly}});
  ExpectScan({b, d}, true, 0, {{"xl", b}, {"X", bf}, {"NU", c}, {"l", d}, {"NU", readOnly}});
  // What went since the listing is not made.
  TreeListing listing;
  ASSERT_EQ(GetFileList(source, listing), 1);
  ASSERT_TRUE(DeleteFileW(a.c_str()));
  EXPECT_EQ(PreScanListing(listing, nullptr, false), 0);
  EXPECT_FALSE(Exists(a));
}

TEST_F(PreScan, ComparesAsPathsAreCompared) {
  const std::u16string item = source + u"\\Caf\u00e9";
  MakeFile(item, "x");
  for (const char16_t* same : {u"c:\\DATA\\cAF\u00e9", u"\\\\?\\C:\\Data\\Caf\u00e9"})
    ExpectScan({same}, false, 0, {{"LU", item}});
  ExpectScan({u"C:\\Data\\Caf\u00c9", u"C:\\Data\\Caf", u"C:\\Data\\Caf\u00e9\\", u""}, false, 1, {});
}

TEST_F(PreScan, FindsFilesInUseAndPassesWindowsOwnFolders) {
  EXPECT_EQ(Scanned(source.c_str(), 1), "");
  MakeFile(source + u"\\busy", "x");
  MakeFolder(source + u"\\sub");
  for (const char16_t* name : {u"\\$recycle.bin", u"\\sub\\System Volume Information"}) {
    MakeFolder(source + name);
    MakeFile(source + name + u"\\busy", "x");
    HoldOpen(source + name + u"\\busy", GENERIC_READ, 0);
    DenyAll(source + name);
  }
  SetLastError(ERROR_SHARING_VIOLATION);  // of some call before
  EXPECT_EQ(Scanned(source.c_str(), 1), "");
  HoldOpen(source + u"\\busy", GENERIC_READ, 0);
  const std::string inUse = Line('N', source + u"\\busy") + Line('U', source + u"\\busy");
  EXPECT_EQ(Scanned(source.c_str(), 0, {.allowSpecialCase = true}), inUse);
  EXPECT_EQ(Scanned(source.c_str(), 0), Line('L', source + u"\\busy") + inUse);
}

TEST_F(PreScan, LinksAreListedButNotEntered) {
  MakeFile(target + u"\\busy", "x");
  const std::u16string junction = source + u"\\j";
  ASSERT_EQ(CreateJunction(junction.c_str(), target.c_str()), 1);
  ASSERT_EQ(CreateSymbolicLinkEntry((source + u"\\s").c_str(), target.c_str()), 1);
  MakeFolder(source + u"\\d");
  MakeFile(source + u"\\d\\f", "x");
  HoldOpen(target + u"\\busy", GENERIC_READ, 0);
  EXPECT_EQ(Scanned(source.c_str(), 1),
            "|IsSymbolicLink()::The specified directory or file C:\\Data\\s is symbolic link");
  TreeListing listing;
  ASSERT_EQ(GetFileList(source, listing), 1);
  EXPECT_EQ(listing.entries.size() + listing.links.size(), 6u);
  // A listing that breaks off is none, and the log names the folder.
  for (const auto& [call, folder] : {std::pair{"FindFirstFileW", "C:\\Data\\d"}, {"FindNextFileW", "C:\\Data"}}) {
    machine->gate.FailCall(call, 3, ERROR_ACCESS_DENIED);
    const std::string lines = Told([&] { EXPECT_EQ(GetFileList(source, listing), 0); });
    EXPECT_TRUE(lines.starts_with("|#ERROR: Unable to list the folder " + std::string(folder) + ". Access is denied."))
        << lines;
    machine->gate.ClearFailures();
  }
  // What keeps most folders of documents from moving is named.
  DenyAll(junction);
  ASSERT_TRUE(SetFileAttributesW(junction.c_str(), FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM));
  ExpectScan({}, false, 0, {{"X", junction}},
             "|#INFO: C:\\Data\\j - Windows keeps this hidden link for old programs, and nobody may list what it leads "
             "to. Redirect the whole user profile instead, or remove the link.");
  ASSERT_TRUE(SetFileAttributesW(junction.c_str(), FILE_ATTRIBUTE_HIDDEN));
  ExpectScan({}, false, 0, {{"X", junction}});
}

// An item whose contents a cloud service, deduplication or a storage tier keeps would arrive as an empty shell.
TEST_F(PreScan, WhatIsKeptElsewhereIsRefusedByName) {
  for (const DWORD tag : {0x9000001Au, 0x9000601Au, 0x80000013u, 0x8000001Eu}) EXPECT_FALSE(IsWholeInItsStreams(tag));
  for (const DWORD tag : {0x80000017u, 0x8000001Bu, 0x80000023u, 0xA000001Du, 0x80000024u, 0x80000025u, 0x80000026u,
                          0xA0000003u, 0xA000000Cu})
    EXPECT_TRUE(IsWholeInItsStreams(tag));
  const std::u16string users = u"C:\\Users\\anna\\Documents\\item", item = source + u"\\item",
                       everyones = u"C:\\Users\\Public\\item", far = u"C:\\Far";
  log.reset();
  MakeFolder(far);
  for (const std::u16string& shell : {item, users, everyones, far}) {
    if (shell != far) MakeFile(shell, "shell");
    SetTag(shell, 0x9000001A);
  }
  const struct {
    std::initializer_list<std::u16string> words;
    std::u16string refused;
  } cases[] = {{{u"/RedirectFolder", source, u"/loc:" + target}, item},
               {{u"/RedirectFolder", far, u"/loc:" + target}, far},
               {{u"/RedirectFile", item, u"/loc:" + target}, item},
               {{u"/RedirectUP", u"anna", u"/loc:D:\\"}, users},
               {{u"/RedirectUP", u"/PublicProfile", u"/loc:D:\\"}, everyones}};
  for (const auto& [words, refused] : cases) {
    const auto run = RunProgram(*machine, words);
    EXPECT_EQ(run.exitCode, 1);
    const std::u16string line = u"#ERROR: " + refused +
                                u" - Its contents are kept elsewhere (reparse tag 0x9000001A), by a cloud service, "
                                u"deduplication or a storage tier. Bring them back to this disk and try again.";
    EXPECT_TRUE(run.Logged(line) && run.log.find(line) == run.log.rfind(line)) << Utf8(run.log);
    EXPECT_TRUE(Exists(refused));
  }
  EXPECT_TRUE(Names(target).empty());
}

// Programs of other systems make files of such names; a plain path would lead to the device, and lose what is copied.
TEST_F(PreScan, NamesOfDevicesAreReachedLikeOthers) {
  const std::u16string literal = u"\\\\?\\" + source;
  log.reset();
  for (const char16_t* const name : {u"nul", u"con.txt", u"aux.c", u"com1.log", u"lpt\u00b2", u"prn. "})
    MakeFile(literal + u"\\" + name, "content of " + emulated::Utf8(name));
  MakeFolder(literal + u"\\com9");
  MakeFile(literal + u"\\com9\\nul.txt", "below");
  const Tree before = DescribeTree(literal);
  for (const char16_t* const permissions : {u"/NTFS", u"/-NTFS"}) {
    const auto run = RunProgram(*machine, {u"/RedirectFolder", source, u"/loc:" + target, permissions});
    EXPECT_EQ(run.exitCode, 0) << emulated::Utf8(run.log);
    EXPECT_EQ(DescribeTree(u"\\\\?\\" + target + u"\\Data"), before);
    EXPECT_EQ(RunProgram(*machine, {u"/RedirectFolder", source, u"/loc:" + target, u"/d"}).exitCode, 0);
    EXPECT_EQ(DescribeTree(literal), before);
  }
}

}  // namespace
