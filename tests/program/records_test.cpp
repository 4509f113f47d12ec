// The registry's record of redirections.
#include <gtest/gtest.h>

#include "records/records.h"
#include "support/program.h"
#include "text/path_text.h"
#include "win32/emulated/registry/registry.h"

namespace {

const std::u16string kFolders = u"HKLM\\SOFTWARE\\Wow6432Node\\Velmora\\Quillbay\\Junctions";
const std::u16string kFiles = u"HKLM\\SOFTWARE\\Wow6432Node\\Velmora\\Quillbay\\FileJunctions";

class Records : public ::testing::Test {
 protected:
  void Put(const std::u16string& name, const std::u16string& source, const std::u16string& target) {
    machine->registry().SetText(kFolders + u"\\" + name, u"Source", source);
    machine->registry().SetText(kFolders + u"\\" + name, u"Target", target);
  }
  std::pair<std::u16string, std::u16string> Get(const std::u16string& name) {
    const auto source = machine->registry().Query(kFolders + u"\\" + name, u"Source");
    const auto target = machine->registry().Query(kFolders + u"\\" + name, u"Target");
    return {source ? source->Text() : u"(none)", target ? target->Text() : u"(none)"};
  }
  using Pair = std::pair<std::u16string, std::u16string>;

  std::unique_ptr<emulated::Machine> machine = test::InstalledMachine();
};

TEST_F(Records, AreStoredWithoutTerminatorInThe32BitView) {
  ASSERT_EQ(AddJunctionRegKey(u"C:\\Data", u"D:\\T\\Data", 0), 1);
  const auto source = machine->registry().Query(kFolders + u"\\1", u"Source");
  ASSERT_TRUE(source);
  EXPECT_EQ(source->type, win32::REG_SZ);
  EXPECT_EQ(source->data.size(), 7u * 2);
  EXPECT_FALSE(machine->registry().KeyExists(u"HKLM\\SOFTWARE\\Velmora\\Quillbay\\Junctions"));
  EXPECT_EQ(FindJunctionRegKey(u"c:\\data", u"d:\\t\\DATA", 0), u"SOFTWARE\\Velmora\\Quillbay\\Junctions\\1");
  EXPECT_EQ(JunctionRegKeyExists(u"C:\\Data", u"D:\\T\\Data", 1), 0);
  ASSERT_EQ(AddJunctionRegKey(u"C:\\f.txt", u"D:\\f.txt", 1), 1);
  EXPECT_TRUE(machine->registry().KeyExists(kFiles + u"\\1"));
}

TEST_F(Records, GetTheNumberAfterTheLargest) {
  EXPECT_EQ(GetNextJunctionIndex(0), 1u);
  Put(u"abc", u"C:\\a", u"D:\\a");
  EXPECT_EQ(GetNextJunctionIndex(0), 1u);
  for (const auto* name : {u"1", u"2", u"7"}) Put(name, u"C:\\a", u"D:\\a");
  EXPECT_EQ(GetNextJunctionIndex(0), 8u);
  Put(u"2147483647", u"C:\\a", u"D:\\a");
  EXPECT_EQ(GetNextJunctionIndex(0), 2147483648u);  // never a number that is taken
  Put(u"99999999999999999999999", u"C:\\a", u"D:\\a");
  EXPECT_GT(GetNextJunctionIndex(0), 2147483648u);
}

TEST_F(Records, RefusesDuplicatesAndTwoMissingPaths) {
  ASSERT_EQ(AddJunctionRegKey(u"C:\\Data", u"D:\\Data", 0), 1);
  EXPECT_EQ(AddJunctionRegKey(u"c:\\DATA", u"d:\\data", 0), 0);
  EXPECT_EQ(AddJunctionRegKey(nullptr, nullptr, 0), 0);
  EXPECT_EQ(AddJunctionRegKey(u"C:\\Data", u"D:\\Other", 0), 1);
  EXPECT_EQ(Get(u"2"), Pair(u"C:\\Data", u"D:\\Other"));
}

TEST_F(Records, ReadsValuesWithAndWithoutTerminatorButNoOthers) {
  Put(u"1", u"C:\\a", u"D:\\a");  // with
  EXPECT_EQ(JunctionRegKeyExists(u"C:\\a", u"D:\\a", 0), 1);
  Put(u"2", u"C:\\" + std::u16string(600, u'x'), u"D:\\b");
  machine->registry().SetDword(kFolders + u"\\3", u"Source", 0x00430043);
  machine->registry().SetText(kFolders + u"\\3", u"Target", u"D:\\c");
  const emulated::Bytes odd{'C', 0, ':', 0, '\\', 0, 'o', 0, 'x'};
  machine->registry().Set(kFolders + u"\\4", u"Source", win32::REG_SZ, odd);
  machine->registry().SetText(kFolders + u"\\4", u"Target", u"D:\\odd");
  for (const auto& [question, left] : {std::pair(1, Pair(u"", u"D:\\a")), {3, Pair(u"C:\\a", u"")}}) {
    Pair read(u"before", u"before");
    machine->gate.FailCall("RegQueryValueExW", static_cast<std::uint64_t>(question), win32::ERROR_ACCESS_DENIED);
    EXPECT_EQ(ReadKeyValues(u"SOFTWARE\\Velmora\\Quillbay\\Junctions\\1", read.first, read.second), 0);
    EXPECT_EQ(read, left) << question;
    machine->gate.ClearFailures();
  }
  std::map<std::u16string, std::u16string> records;
  GetJunctionRecords(0, records);
  EXPECT_EQ(records, (std::map<std::u16string, std::u16string>{{u"C:\\a", u"D:\\a"}, {u"C:\\o", u"D:\\odd"}}));
}

TEST_F(Records, FindsButDoesNotListARecordWithoutTarget) {
  Put(u"1", u"C:\\a", u"");
  std::map<std::u16string, std::u16string> records;
  GetJunctionRecords(0, records);
  EXPECT_TRUE(records.empty());
  EXPECT_EQ(JunctionRegKeyExists(u"C:\\A", u"", 0), 1);
  EXPECT_EQ(UpdateJunctionRegKeys(u"C:\\a", u"E:\\a", 0), 1);
  EXPECT_EQ(Get(u"1"), Pair(u"C:\\a", u""));
}

TEST_F(Records, DeletesOneAndOnlyThat) {
  Put(u"1", u"C:\\a", u"D:\\a");
  Put(u"2", u"C:\\b", u"D:\\b");
  EXPECT_EQ(DeleteRegKey(u"c:\\A", u"D:\\a", 0), 1);
  EXPECT_FALSE(machine->registry().KeyExists(kFolders + u"\\1"));
  EXPECT_EQ(Get(u"2"), Pair(u"C:\\b", u"D:\\b"));
  EXPECT_EQ(DeleteRegKey(u"C:\\a", u"D:\\a", 0), 0);
}

TEST_F(Records, FollowMovedDataByWholeComponents) {
  Put(u"1", u"C:\\Data\\inner", u"D:\\x");
  Put(u"2", u"C:\\Database", u"c:\\data");
  Put(u"3", u"E:\\C:\\Data", u"D:\\y");
  EXPECT_EQ(UpdateJunctionRegKeys(nullptr, u"D:\\T", 0), 0);
  const auto saved = SaveJunctionRecords(0);
  EXPECT_EQ(UpdateJunctionRegKeys(u"C:\\DATA", u"D:\\T\\Data", 0), 1);
  EXPECT_EQ(Get(u"1"), Pair(u"D:\\T\\Data\\inner", u"D:\\x"));
  EXPECT_EQ(Get(u"2"), Pair(u"C:\\Database", u"D:\\T\\Data"));
  EXPECT_EQ(Get(u"3"), Pair(u"E:\\C:\\Data", u"D:\\y"));
  RestoreJunctionRecords(saved);
  EXPECT_EQ(Get(u"1"), Pair(u"C:\\Data\\inner", u"D:\\x"));
  EXPECT_EQ(Get(u"2"), Pair(u"C:\\Database", u"c:\\data"));
}

TEST_F(Records, AHalfWrittenRecordIsTakenAway) {
  machine->gate.FailCall("RegSetValueExW", 2, win32::ERROR_ACCESS_DENIED);
  EXPECT_EQ(AddJunctionRegKey(u"C:\\a", u"D:\\a", 0), 0);
  EXPECT_EQ(machine->debugOutput, u"ERROR: AddJunctionRegKey: RegSetValueEx() failed for value name 'Target':\n");
  EXPECT_TRUE(machine->registry().SubKeys(kFolders).empty());
}

TEST_F(Records, AreListedBySource) {
  EXPECT_EQ(test::RunProgram(*machine, {u"/RedirectFolder"}).said, u"");
  Put(u"1", u"C:\\b", u"D:\\b");
  Put(u"2", u"C:\\a", u"D:\\a");
  Put(u"7", u"C:\\A", u"D:\\upper");
  Put(u"8", u"C:\\b", u"D:\\later");
  const auto run = test::RunProgram(*machine, {u"/RedirectFolder"});
  EXPECT_EQ(run.said, u"Source   Target\n\nC:\\A   D:\\upper\nC:\\a   D:\\a\nC:\\b   D:\\later\n");
  EXPECT_EQ(run.exitCode, 0);
  EXPECT_EQ(test::RunProgram(*machine, {u"/RedirectFile"}).said, u"");
}

TEST(PathText, CutsAndComparesByComponents) {
  EXPECT_TRUE(EqualPaths(u"C:\\\u00c4", u"c:\\\u00c4"));
  EXPECT_FALSE(EqualPaths(u"C:\\\u00c4", u"C:\\\u00e4"));  // letters A to Z only
  EXPECT_TRUE(IsSameOrBelow(u"c:\\data\\x", u"C:\\Data"));
  EXPECT_TRUE(IsSameOrBelow(u"C:\\Data", u"C:\\"));
  EXPECT_FALSE(IsSameOrBelow(u"C:\\Database", u"C:\\Data"));
  EXPECT_FALSE(IsSameOrBelow(u"C:\\Data", u""));
  EXPECT_EQ(ReplaceFolder(u"C:\\Data\\x", u"C:\\", u"D:\\T"), u"D:\\T\\Data\\x");
  EXPECT_EQ(ReplaceFolder(u"C:\\Data\\x", u"c:\\data\\", u"D:\\"), u"D:\\x");
  EXPECT_EQ(WithoutTrailingBackslash(u"C:\\Data\\\\"), u"C:\\Data");
  EXPECT_EQ(WithoutTrailingBackslash(u"C:\\"), u"C:\\");
  EXPECT_EQ(JoinPath(u"D:\\", u"x"), u"D:\\x");
  EXPECT_EQ(ExtendedPath(std::u16string(259, u'x')).size(), 259u);
  EXPECT_EQ(ExtendedPath(std::u16string(260, u'x')).size(), 264u);
  EXPECT_TRUE(HasDotComponents(u"C:\\a\\..\\b"));
  EXPECT_TRUE(HasDotComponents(u"."));
  EXPECT_FALSE(HasDotComponents(u"C:\\..a\\b..\\c.d"));
}

}  // namespace
