// The copy of trees: what goes where, what stands in the way, and what the copy carries.
#include "program/everything.h"

namespace {

using namespace test;
using namespace win32;
using emulated::Utf8;

class TreeCopies : public Engine {
 protected:
  TreeCopies() : Engine({.volumes = 1}) {}
  int Copy(const CopyFlags& flags) {
    record = {};
    return CopyFiles(source, target, flags, record);
  }
  // Everything below a folder, and itself: what it is and has, and whose it is.
  static Tree States(const std::u16string& root) {
    Tree states = DescribeTree(root);
    states[u""] = Describe(root);
    for (auto& [path, state] : states) state += " " + Utf8(Security(root + path));
    return states;
  }
  const CopyFlags moving{.useBackupCopy = true, .removeSourceLinks = true, .allowInheritance = true};
  CopyRecord record;
};

TEST_F(TreeCopies, ADrivesRootIsATargetToo) {
  MakeFolder(source + u"\\sub");
  MakeFile(source + u"\\sub\\f", "x");
  MakeFile(source + u"\\g", "y");
  ASSERT_EQ(CreateJunction((source + u"\\all").c_str(), source.c_str()), 1);
  for (const bool backup : {true, false}) {
    record = {};
    ASSERT_EQ(CopyFiles(source, u"D:\\", {.useBackupCopy = backup, .allowInheritance = true}, record), 1);
    EXPECT_EQ(Contents(u"D:\\sub\\f"), "x");
    EXPECT_EQ(Contents(u"D:\\all\\g"), "y");
    EXPECT_EQ(TextOfLink(ReadLinkData(u"D:\\all")).path, u"D:\\") << "the root itself, not the drive's device";
    EXPECT_EQ(RemoveCopiedItems(record), 1);
    EXPECT_FALSE(Exists(u"D:\\sub") || Exists(u"D:\\all") || Exists(u"D:\\g"));
  }
}

// Whatever stands there, of whatever kind: it is refused before anything has changed, or can be given back.
class StandingItems : public TreeCopies {
 protected:
  StandingItems() {
    MakeFolder(u"D:\\Theirs");
    MakeFile(u"D:\\Theirs\\f", "theirs");
  }
  // f and r: a file, read-only; h: another name of a file; e, F, M: a folder, empty, with a file, with a volume on it;
  // J: a junction; l, L: links to a file and to a folder.
  void Make(char kind, const std::u16string& item, const char* contents) const {
    if (kind == 'J') {
      EXPECT_EQ(CreateJunction(item.c_str(), u"D:\\Theirs"), 1);
    } else if (kind == 'l' || kind == 'L') {
      EXPECT_EQ(CreateSymbolicLinkEntry(item.c_str(), kind == 'l' ? u"D:\\Theirs\\f" : u"D:\\Theirs"), 1);
    } else if (kind == 'h') {
      EXPECT_TRUE(CreateHardLinkW(item.c_str(), u"D:\\Theirs\\f", nullptr));
    } else if (kind == 'f' || kind == 'r') {
      MakeFile(item, contents, kind == 'r' ? FILE_ATTRIBUTE_READONLY : 0);
    } else {
      MakeFolder(item);
      if (kind == 'F') MakeFile(item + u"\\" + static_cast<char16_t>(*contents), contents);
      EXPECT_TRUE(kind != 'M' ||
                  SetVolumeMountPointW((item + u"\\").c_str(), machine->volumes.back()->guidName.c_str()));
      SetSecurity(item, u"O:SYD:P(A;OICI;FA;;;BA)(A;OICI;FA;;;SY)S:(AU;FA;FA;;;WD)");
    }
  }
};

TEST_F(StandingItems, AreReplacedByTheirOwnKindAlone) {
  int number = 0;
  for (const bool backup : {true, false}) {
    std::string matrix;
    for (const char from : std::string("feFJlL")) {
      for (const char stands : std::string("frheFMJlL")) {
        const std::u16string name = u"\\" + emulated::Utf16(std::to_string(++number)), root = source + name,
                             place = target + name;
        SCOPED_TRACE(std::string(1, from) + stands);
        MakeFolder(root);
        MakeFolder(place);
        Make(from, root + u"\\item", "mine");
        Make(stands, place + u"\\item", "theirs");
        for (const std::u16string& item : {place + u"\\item", place, root + u"\\item"}) SetTimes(item, 7);
        const auto before = States(place), all = States(u"D:\\Theirs");
        const auto mine = test::Streams(root + u"\\item");
        CopyRecord copied;
        const bool done = CopyFiles(root, place, {.useBackupCopy = backup, .allowInheritance = true}, copied) != 0;
        matrix += done ? from : '-';
        if (done && from != 'e' && from != 'F') {
          EXPECT_EQ(test::Streams(place + u"\\item"), mine);
        }
        EXPECT_EQ(Attributes(place + u"\\item") & FILE_ATTRIBUTE_READONLY,
                  stands == 'r' ? FILE_ATTRIBUTE_READONLY : 0u);
        EXPECT_EQ(RemoveCopiedItems(copied), 1);
        auto after = States(place);
        if (done && from == 'f') after[u"\\item"] = before.at(u"\\item");  // a file's old contents are gone
        EXPECT_EQ(after, before);
        EXPECT_EQ(States(u"D:\\Theirs"), all);
      }
      matrix += ' ';
    }
    EXPECT_EQ(matrix, "ff------- ---ee---- ---FF---- ---J--J-- ------lll ------LLL ");
  }
}

TEST_F(TreeCopies, GoingOnNeverOverwritesAndPassesFailedItems) {
  for (const char16_t* name : {u"\\a", u"\\b", u"\\c"}) MakeFile(source + name, "mine");
  ASSERT_EQ(CreateSymbolicLinkEntry((source + u"\\l").c_str(), u"C:\\nowhere"), 1);
  MakeFile(target + u"\\a", "kept");
  MakeFile(target + u"\\l", "kept");
  CopyFlags going{.useBackupCopy = true, .continueOnError = true, .allowInheritance = true};
  const std::string failed = "|#ERROR: Unable to copy from Source = C:\\Data\\b to Target = D:\\Target\\b. ";
  const struct {
    bool backup;
    DWORD error;
    int result;
    std::string log;
  } cases[] = {{true, 0, 1, failed + "The process cannot access the file because it is being used by another process."},
               {false, ERROR_ACCESS_DENIED, 1, failed + "Access is denied."},
               {false, ERROR_DISK_FULL, 0, failed + "There is not enough space on the disk."}};
  for (const auto& [backup, error, result, text] : cases) {
    going.useBackupCopy = backup;
    const auto held = backup ? HoldOpen(source + u"\\b", GENERIC_WRITE, FILE_SHARE_READ) : nullptr;
    if (!backup) machine->gate.FailCall("CopyFileExW", 1, error);
    const std::string lines = Told([&, expected = result] { EXPECT_EQ(Copy(going), expected); });
    EXPECT_NE(lines.find(text), std::string::npos) << lines;
    EXPECT_EQ(Contents(target + u"\\a") + Contents(target + u"\\l"), "keptkept");
    EXPECT_EQ(Exists(target + u"\\c"), result == 1);
    if (held) machine->files().CloseForeign(held);
    DeleteFileW((target + u"\\b").c_str());
    DeleteFileW((target + u"\\c").c_str());
  }
}

// Explicit entries are carried, of the inherited ones every second; with all of them kept, the copy's own folder adds
// nothing to a root.
TEST_F(TreeCopies, AccessListsAreCarriedAsTheFlagsSay) {
  const std::u16string item = source + u"\\d", copy = target + u"\\d";
  MakeFolder(item);
  MakeFolder(copy);
  SetSecurity(target, u"O:BAD:P(A;OICI;FA;;;BA)(A;OICI;FR;;;LS)");
  const std::u16string inherited = u"D:AI(A;;FA;;;BA)(A;ID;FA;;;SY)(A;ID;FR;;;WD)(A;ID;FR;;;BU)",
                       all = u"D:PAI(A;;FA;;;BA)(A;;FA;;;SY)(A;;FR;;;WD)(A;;FR;;;BU)",
                       above = u"D:AI(A;;FA;;;BA)(A;OICIID;FA;;;BA)(A;OICIID;FR;;;LS)";
  const struct {
    std::u16string sddl;
    bool allow, keep;
    std::u16string copied;
  } cases[] = {{inherited, false, false, u"D:PAI(A;;FA;;;BA)(A;;FR;;;WD)"},
               {inherited, true, false, above},
               {inherited, false, true, all},
               {u"D:P(A;;FA;;;BA)(A;;FR;;;WD)", true, false, u"D:PAI(A;;FA;;;BA)(A;;FR;;;WD)"},
               {u"D:P(A;;FA;;;BA)(A;;FR;;;WD)", false, true, u"D:PAI(A;;FA;;;BA)(A;;FR;;;WD)"}};
  for (const auto& [sddl, allow, keep, copied] : cases) {
    SetSecurity(item, u"O:BA" + sddl);
    EXPECT_EQ(CopyDacl(item, copy, {.allowInheritance = allow, .keepInheritedAces = keep}), 1);
    EXPECT_EQ(Utf8(Dacl(copy)), Utf8(copied));
  }
  machine->gate.FailCall("SetNamedSecurityInfoW", 1, ERROR_ACCESS_DENIED);
  EXPECT_EQ(CopyDacl(item, copy, {}), 0);
  ASSERT_TRUE(RemoveDirectoryW(copy.c_str()));
  SetSecurity(item, u"O:BA" + inherited);
  SetSecurity(source, u"O:BA" + inherited);
  const std::u16string own = u"D:P(A;OICI;FA;;;BA)(A;OICI;FR;;;LS)",
                       ofDrive =
                           u"D:AI(A;;FA;;;BA)(A;OICIID;FA;;;BA)(A;OICIID;FA;;;SY)(A;OICIID;0x1301bf;;;AU)"
                           u"(A;OICIID;0x1200a9;;;BU)";
  const struct {
    CopyFlags flags;
    std::u16string root, folder;
  } trees[] = {{{.useBackupCopy = true, .allowInheritance = true, .keepInheritedAces = true, .carryRoot = true},
                all,
                u"D:AI(A;;FA;;;BA)"},
               {{.useBackupCopy = true, .allowInheritance = true, .carryRoot = true}, ofDrive, ofDrive},
               {{.allowInheritance = true, .folderAccessLists = true}, own, above},
               {{.allowInheritance = true, .carryRoot = true}, own, u"D:AI(A;OICIID;FA;;;BA)(A;OICIID;FR;;;LS)"}};
  for (const auto& [flags, root, folder] : trees) {
    SetSecurity(target, u"O:BA" + own);
    ASSERT_EQ(Copy(flags), 1);
    EXPECT_EQ(Utf8(Dacl(target)), Utf8(root));
    EXPECT_EQ(Utf8(Dacl(copy)), Utf8(folder));
    ASSERT_EQ(RemoveCopiedItems(record), 1);
  }
}

TEST_F(TreeCopies, ASourceWithoutReadableDaclOpensTheTargetOfCopyDaclAlone) {
  const std::u16string file = source + u"\\f", copy = target + u"\\f";
  for (const std::u16string& item : {file, copy}) MakeFile(item, "x");
  machine->gate.FailCall("GetNamedSecurityInfoW", 1, ERROR_ACCESS_DENIED);
  ASSERT_EQ(CopyDacl(file, copy, {.allowInheritance = true}), 1);
  EXPECT_EQ(Dacl(copy), u"D:PNO_ACCESS_CONTROL") << "a null DACL";
  // In a tree, such an item is not copied.
  ASSERT_TRUE(DeleteFileW(copy.c_str()));
  machine->gate.FailCall("GetNamedSecurityInfoW", 1, ERROR_ACCESS_DENIED);
  EXPECT_EQ(Told([&] { EXPECT_EQ(Copy(moving), 0); }),
            "|#ERROR: Unable to read the access rights of C:\\Data\\f. Access is denied."
            "|#ERROR: Unable to copy from Source = C:\\Data\\f to Target = D:\\Target\\f. Access is denied.");
  // What the call answers is what the log says, whatever the last error was.
  MakeFolder(source + u"\\d");
  machine->gate.FailCall("SetNamedSecurityInfoW", 1, ERROR_INVALID_ACL);
  EXPECT_EQ(
      Told([&] { EXPECT_EQ(Copy({.folderAccessLists = true}), 0); }),
      "|#ERROR: Unable to copy from Source = C:\\Data\\d to Target = D:\\Target\\d. The access control list (ACL) "
      "structure is invalid.");
}

TEST_F(TreeCopies, LinksInsideLeadIntoTheCopyAndLinksOutsideStay) {
  MakeFolder(source + u"\\real");
  MakeFile(source + u"\\real\\f.txt", "f");
  MakeFolder(u"C:\\Elsewhere");
  MakeFile(u"C:\\Elsewhere\\other.txt", "theirs");
  const auto elsewhere = States(u"C:\\Elsewhere");
  ASSERT_EQ(CreateJunction((source + u"\\in").c_str(), (source + u"\\real").c_str()), 1);
  ASSERT_EQ(CreateJunction((source + u"\\out").c_str(), u"C:\\Elsewhere"), 1);
  ASSERT_EQ(CreateSymbolicLinkEntry((source + u"\\file").c_str(), (source + u"\\in\\f.txt").c_str()), 1)
      << "through a junction that will be taken off";
  ASSERT_EQ(CreateSymbolicLinkEntry((source + u"\\folder").c_str(), (source + u"\\real").c_str()), 1);
  ASSERT_EQ(CreateSymbolicLinkEntry((source + u"\\dangling").c_str(), u"C:\\nowhere"), 1);
  for (const char16_t* link : {u"\\in", u"\\out", u"\\file", u"\\folder", u"\\dangling"})
    SetTimes(source + link, static_cast<unsigned>(std::u16string_view(link).size()));
  const auto before = DescribeTree(source);
  const auto arrived = [&](const char16_t* link) {
    std::u16string text;
    (IsJunction((target + link).c_str()) ? GetJunctionTarget : GetFinalTargetPath)((target + link).c_str(), text);
    return text;
  };
  // The links' own data, when they are to stay as they are.
  CopyFlags flags{.useBackupCopy = true, .copyOnly = true, .allowInheritance = true};
  ASSERT_EQ(Copy(flags), 1);
  EXPECT_EQ(DescribeTree(target), before);
  ASSERT_EQ(RemoveCopiedItems(record), 1);
  for (const bool backup : {true, false}) {
    flags = moving;
    flags.useBackupCopy = backup;
    ASSERT_EQ(Copy(flags), 1);
    EXPECT_EQ(arrived(u"\\in"), target + u"\\real");
    EXPECT_EQ(arrived(u"\\out"), u"C:\\Elsewhere");
    EXPECT_EQ(arrived(u"\\file"), target + u"\\real\\f.txt");
    EXPECT_EQ(arrived(u"\\folder"), target + u"\\real");
    auto after = DescribeTree(target);
    EXPECT_EQ(after.at(u"\\dangling"), before.at(u"\\dangling")) << "carried, not lost";
    EXPECT_EQ(after.at(u"\\out"), before.at(u"\\out")) << "with its times";
    EXPECT_EQ(after.size(), before.size()) << "not entered";
    EXPECT_EQ(IsJunction((source + u"\\out").c_str()), 0) << "taken off at the source";
    EXPECT_EQ(States(u"C:\\Elsewhere"), elsewhere);
    ASSERT_EQ(RemoveCopiedItems(record), 1);
    for (const SavedLink& link : record.links) ASSERT_EQ(RestoreLink(link), 1);
  }
}

TEST_F(TreeCopies, LongPathsAreCopied) {
  std::u16string folder = u"\\\\?\\C:\\Data";
  for (int i = 0; i < 4; ++i) {
    folder += u"\\" + std::u16string(80, static_cast<char16_t>(u'a' + i));
    MakeFolder(folder);
  }
  MakeFile(folder + u"\\file.txt", "far down");
  ASSERT_TRUE(SetFileAttributesW(folder.c_str(), FILE_ATTRIBUTE_HIDDEN));
  MakeFile(u"\\\\?\\C:\\Data\\dot.", "a name that ends with a dot");
  MakeFile(u"C:\\Data\\dot", "its twin");
  for (const bool backup : {true, false}) {
    ASSERT_EQ(Copy({.useBackupCopy = backup, .allowInheritance = true}), 1);
    EXPECT_EQ(Attributes(u"\\\\?\\D:\\Target" + folder.substr(11)), FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_HIDDEN);
    EXPECT_EQ(Contents(u"\\\\?\\D:\\Target" + folder.substr(11) + u"\\file.txt"), "far down");
    EXPECT_EQ(Contents(u"\\\\?\\D:\\Target\\dot."), "a name that ends with a dot");
    EXPECT_EQ(Contents(u"D:\\Target\\dot"), "its twin");
    ASSERT_EQ(RemoveCopiedItems(record), 1);
  }
}

}  // namespace
