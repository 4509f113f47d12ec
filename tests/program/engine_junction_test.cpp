// Junctions and symbolic links, and where paths really lead.
#include "program/everything.h"

namespace {

using namespace test;
using namespace win32;
using emulated::Utf8;

class Junction : public Engine {
 protected:
  static std::u16string TargetOf(const std::u16string& path) {
    std::u16string found;
    return GetJunctionTarget(path.c_str(), found) ? found : u"(none)";
  }
  static std::u16string Final(const std::u16string& path) {
    std::u16string found;
    return GetFinalTargetPath(path.c_str(), found) ? found : u"(none)";
  }
  // Gives the folder these data, as nobody's mklink makes them.
  void Write(const ReparseData& data) {
    DeleteJunction(junction.c_str());
    const UniqueFile folder = OpenReparseDirectory(junction.c_str(), {.forWrite = true});
    ASSERT_TRUE(folder && WriteReparseData(folder, data)) << GetLastError();
  }
  const std::u16string junction = u"C:\\Data\\link";
};

TEST_F(Junction, IsWrittenByteForByte) {
  ASSERT_EQ(CreateJunction(junction.c_str(), u"D:\\T"), 1);
  ReparseData expected = {0x03, 0, 0, 0xA0, 28, 0, 0, 0, 0, 0, 16, 0, 18, 0, 0, 0};
  for (const char unit : std::string_view("\\??\\D:\\T"))
    for (const BYTE byte : {static_cast<BYTE>(unit), BYTE{0}}) expected.push_back(byte);
  expected.insert(expected.end(), 4, 0);
  EXPECT_EQ(ReadLinkData(junction), expected);
  EXPECT_EQ(MountPointData(u"x", u"P"),
            (ReparseData{3, 0, 0, 0xA0, 16, 0, 0, 0, 0, 0, 2, 0, 4, 0, 2, 0, 'x', 0, 0, 0, 'P', 0, 0, 0}));
  EXPECT_EQ(LinkTagAt(junction), IO_REPARSE_TAG_MOUNT_POINT);
  // The opens are this program's alone.
  EXPECT_EQ(Calls("CreateFileW", [&] { CreateJunction(u"C:\\Data\\a", u"D:\\T"); }),
            "CreateFileW(\"C:\\Data\\a\", 0x40000000, 0, 3, 0x2200000)\n");
  EXPECT_EQ(Calls("CreateFileW", [&] { DeleteJunction(u"C:\\Data\\a"); }),
            "CreateFileW(\"C:\\Data\\a\", 0x80000000, 0, 3, 0x2200000)\n"
            "CreateFileW(\"C:\\Data\\a\", 0xC0000000, 0, 3, 0x2200000)\n");
}

TEST_F(Junction, LeadsToItsTargetAndBecomesAFolderAgain) {
  MakeFile(target + u"\\x.txt", "there");
  ASSERT_EQ(CreateJunction(junction.c_str(), (target + u"\\").c_str()), 1);
  EXPECT_EQ(Contents(junction + u"\\x.txt"), "there");
  EXPECT_EQ(IsJunction(junction.c_str()), 1);
  EXPECT_EQ(IsJunction(junction.c_str(), {.excludeMountedVolume = true}), 1);
  EXPECT_EQ(IsSymbolicLink(junction.c_str()), 0);
  EXPECT_EQ(TargetOf(junction), target) << "less exactly one backslash";
  EXPECT_EQ(Final(junction + u"\\x.txt"), target + u"\\x.txt");
  {
    const UniqueFile held{CreateFileW(junction.c_str(), GENERIC_READ, 7, nullptr, OPEN_EXISTING,
                                      FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OPEN_REPARSE_POINT, nullptr)};
    EXPECT_EQ(IsJunction(junction.c_str()), 0);
    EXPECT_EQ(TargetOf(junction), u"(none)");
    EXPECT_EQ(DeleteJunction(junction.c_str()), 0);
  }
  for (const char* call : {"CreateFileW", "DeviceIoControl"}) {
    machine->gate.FailCall(call, 2, ERROR_ACCESS_DENIED);
    EXPECT_EQ(DeleteJunction(junction.c_str()), 0);
  }
  ASSERT_EQ(DeleteJunction(junction.c_str()), 1);
  EXPECT_EQ(Attributes(junction), FILE_ATTRIBUTE_DIRECTORY);
  EXPECT_TRUE(Exists(target + u"\\x.txt"));
  EXPECT_EQ(Told([&] { EXPECT_EQ(DeleteJunction(junction.c_str()), 0); }),
            "|#ERROR: Path C:\\Data\\link is not junction.");
}

TEST_F(Junction, LeavesNothingBehindWhenItCannotBeSet) {
  MakeFolder(junction);
  MakeFile(junction + u"\\mine.txt", "kept");
  EXPECT_EQ(CreateJunction(junction.c_str(), target.c_str()), 0);
  EXPECT_EQ(Contents(junction + u"\\mine.txt"), "kept");
  const std::u16string other = u"C:\\Data\\other";
  const struct {
    const char* call;
    bool removed;
    const char* log = "";
    const char* traced = "";
  } cases[] = {{"DeviceIoControl", true},
               {"OpenProcessToken", false},
               {"AdjustTokenPrivileges", false, "|ERROR: Unable to adjust token privileges.Access is denied."},
               {"CreateFileW", false, "", "#ERROR: CreateJunction: CreateFile() Failed for path = C:\\Data\\other"},
               {"CreateDirectoryW", true, "|#ERROR: Failed To create directory = C:\\Data\\other.Access is denied."}};
  for (const auto& [call, removed, text, traced] : cases) {
    machine->debugOutput.clear();
    machine->gate.FailCallsFrom(call, 1, ERROR_ACCESS_DENIED);
    EXPECT_EQ(Told([&] { EXPECT_EQ(CreateJunction(other.c_str(), target.c_str()), 0); }), text) << call;
    machine->gate.ClearFailures();
    EXPECT_EQ(Utf8(machine->debugOutput), traced);
    EXPECT_EQ(Exists(other), !removed) << call;
    RemoveDirectoryW(other.c_str());
  }
  // What holds the folder up is often over soon.
  machine->sleptMilliseconds = 0;
  machine->gate.FailCall("CreateDirectoryW", 1, ERROR_ACCESS_DENIED);
  EXPECT_EQ(CreateJunction(other.c_str(), target.c_str()), 1);
  EXPECT_EQ(machine->sleptMilliseconds, 2000u);
  std::u16string found;
  EXPECT_EQ(CreateJunction(nullptr, u"D:\\T") + CreateJunction(u"C:\\T", nullptr) + DeleteJunction(nullptr), 0);
  EXPECT_EQ(IsJunction(nullptr) + IsSymbolicLink(nullptr) + GetJunctionTarget(nullptr, found), 0);
  EXPECT_EQ(CreateSymbolicLinkEntry(nullptr, u"D:\\T") + CreateSymbolicLinkEntry(u"C:\\T", nullptr), 0);
  EXPECT_FALSE(OpenReparseDirectory(nullptr) || GetFinalTargetPath(nullptr, found));
}

TEST_F(Junction, TakesTargetsOfAtMost255Characters) {
  const std::u16string longest = u"D:\\" + std::u16string(252, u'x');
  EXPECT_EQ(CreateJunction(junction.c_str(), longest.c_str()), 1);
  EXPECT_EQ(ReadLinkData(junction).size(), (255u + 4) * 2 + 20);
  EXPECT_EQ(TargetOf(junction), longest);
  EXPECT_EQ(CreateJunction(u"C:\\Data\\second", (longest + u"x").c_str()), 0);
  EXPECT_EQ(GetLastError(), ERROR_FILENAME_EXCED_RANGE);
  EXPECT_FALSE(Exists(u"C:\\Data\\second"));
  EXPECT_EQ(ChangeJunctionTarget(junction.c_str(), (longest + u"x").c_str()), 0);
}

// What others wrote: another target leaves the rest of the data, and the times, as they are.
TEST_F(Junction, OddDataAreReadAndLedElsewhereWithCare) {
  ASSERT_EQ(CreateJunction(junction.c_str(), u"D:\\T"), 1);
  const std::u16string tooLong = u"D:\\" + std::u16string(257, u'x'),
                       volume = u"Volume{12345678-0000-4000-8000-000000000000}", none = u"(none)";
  const struct {
    std::u16string name, print, leadsTo, changedName, changedPrint;
    bool isVolume = false;
  } cases[] = {{u"D:\\T", u"", u"D:\\T", u"E:\\N", u""},
               {u"D:\\T\\", u"d:\\t", u"D:\\T", u"E:\\N\\", u"E:\\N"},
               {u"D:\\T", u"D:\\T\\", u"D:\\T", u"E:\\N", u"E:\\N\\"},
               {u"D:\\T", u"shown", u"D:\\T", u"E:\\N", u"shown"},
               {tooLong, u"", none, u"E:\\N", u""},
               {volume + u"\\", u"", volume, u"", u"", true},
               {volume + u"\\x", u"", volume + u"\\x", u"E:\\N", u""}};
  for (const auto& [name, print, leadsTo, changedName, changedPrint, isVolume] : cases) {
    SCOPED_TRACE(Utf8(name));
    const ReparseData data = MountPointData(u"\\??\\" + name, print);
    Write(data);
    EXPECT_EQ(IsVolumeMount(data), isVolume);
    EXPECT_EQ(TargetOf(junction), leadsTo);
    EXPECT_EQ(TextOfLink(data).path, name);
    SetTimes(junction, 3);
    const SavedLink before = SaveLink(junction, {}, true);
    EXPECT_EQ(ChangeJunctionTarget(junction.c_str(), u"E:\\N"), isVolume ? 0 : 1);
    const SavedLink after = SaveLink(junction, {}, true);
    EXPECT_EQ(after.reparseData, isVolume ? data : MountPointData(u"\\??\\" + changedName, changedPrint));
    for (const auto time : {&SavedLink::creation, &SavedLink::lastAccess, &SavedLink::lastWrite})
      EXPECT_EQ((after.*time).dwHighDateTime, (before.*time).dwHighDateTime);
  }
  Write(MountPointData(u"\\??\\"));
  EXPECT_EQ(Told([&] { EXPECT_EQ(TargetOf(junction), none); }),
            "|#ERROR: Unable to obtain a valid target pathReparseBuffer.ReparseTag = -1610612733pszTemp= \\??\\");
  machine->gate.FailCall("DeviceIoControl", 1, ERROR_ACCESS_DENIED);
  EXPECT_EQ(Told([&] { EXPECT_EQ(TargetOf(junction), none); }),
            "|#ERROR: Unable to perform DeviceIoControl operation.");
}

TEST_F(Junction, SymbolicLinksAreToldFromJunctions) {
  MakeFile(target + u"\\file.txt", "data");
  const struct {
    std::u16string link, to;
    SymbolicLinkOptions options;
    DWORD kind;
  } cases[] = {{source + u"\\file", target + u"\\file.txt", {}, 0},
               {source + u"\\folder", target, {}, FILE_ATTRIBUTE_DIRECTORY},
               {source + u"\\asFile", target, {.forceFileLink = true}, 0},
               {source + u"\\asFolder", u"C:\\none", {.forceDirectoryLink = true}, FILE_ATTRIBUTE_DIRECTORY}};
  for (const auto& [link, to, options, kind] : cases) {
    ASSERT_EQ(CreateSymbolicLinkEntry(link.c_str(), to.c_str(), options), 1);
    EXPECT_EQ(Told([&, asked = link] { EXPECT_EQ(IsSymbolicLink(asked.c_str()) + IsJunction(asked.c_str()), 1); }),
              "|IsSymbolicLink()::The specified directory or file " + Utf8(link) + " is symbolic link");
    EXPECT_EQ(Attributes(link) & FILE_ATTRIBUTE_DIRECTORY, kind);
    EXPECT_EQ(SymbolicLinkText(link), to);
  }
  const std::u16string& link = cases[1].link;
  EXPECT_EQ(Final(cases[0].link), target + u"\\file.txt");
  EXPECT_EQ(Told([&] { EXPECT_EQ(DeleteJunction(link.c_str()), 0); }).find("is not junction"), std::string::npos);
  for (const char* call : {"LoadLibraryW", "GetProcAddress"}) {
    machine->gate.FailCallsFrom(call, 1, ERROR_PROC_NOT_FOUND);
    EXPECT_EQ(CreateSymbolicLinkEntry(u"C:\\Data\\new", target.c_str()), 0) << call;
    EXPECT_EQ(Final(link), u"(none)") << call;
    machine->gate.ClearFailures();
  }
}

}  // namespace
