// The registry's record of redirections.
#include "program/everything.h"

namespace {

const std::u16string kFolders = u"HKLM\\SOFTWARE\\Wow6432Node\\Velmora\\Quillbay\\Junctions";
using Map = std::map<std::u16string, std::u16string>;

class Records : public test::Engine {
 protected:
  void Put(const std::u16string& name, const std::u16string& from, const std::u16string& to) {
    machine->registry().SetText(kFolders + u"\\" + name, u"Source", from);
    machine->registry().SetText(kFolders + u"\\" + name, u"Target", to);
  }
  // All that is recorded, by the names of the keys: source and target.
  Map All(const std::u16string& list = kFolders) {
    Map all;
    for (const std::u16string& name : machine->registry().SubKeys(list)) {
      const auto from = machine->registry().Query(list + u"\\" + name, u"Source");
      const auto to = machine->registry().Query(list + u"\\" + name, u"Target");
      all[name] = (from ? from->Text() : u"none") + u" > " + (to ? to->Text() : u"none");
    }
    return all;
  }
  std::u16string LastLine() const { return LogText().substr(LogText().rfind(u"] ") + 2); }
};

TEST_F(Records, AreStoredOnceInThe32BitView) {
  ASSERT_EQ(AddJunctionRegKey(u"C:\\Data", u"D:\\T\\Data", 0), 1);
  const auto stored = machine->registry().Query(kFolders + u"\\1", u"Target");
  // The call's size leaves the terminator out, but one stands behind.
  EXPECT_TRUE(stored && stored->type == win32::REG_SZ && stored->data == emulated::RegistryText(u"D:\\T\\Data"));
  EXPECT_EQ(FindJunctionRegKey(u"c:\\data", u"d:\\t\\DATA", 0), u"SOFTWARE\\Velmora\\Quillbay\\Junctions\\1");
  EXPECT_FALSE(AddJunctionRegKey(nullptr, nullptr, 0) || !FindJunctionRegKey(u"C:\\Data", nullptr, 0).empty());
  ASSERT_EQ(AddJunctionRegKey(u"C:\\f.txt", u"D:\\f.txt", 1), 1);
  EXPECT_EQ(All(u"HKLM\\SOFTWARE\\Wow6432Node\\Velmora\\Quillbay\\FileJunctions"),
            (Map{{u"1", u"C:\\f.txt > D:\\f.txt"}}));
  EXPECT_EQ(AddJunctionRegKey(u"c:\\DATA", u"d:\\t\\data", 0), 0);
  EXPECT_EQ(LastLine(), u"ERROR: Source and Target Path already exists in Registry.");
  EXPECT_EQ(AddJunctionRegKey(u"C:\\Data", u"D:\\Other", 0), 1);
  EXPECT_EQ(All(), (Map{{u"1", u"C:\\Data > D:\\T\\Data"}, {u"2", u"C:\\Data > D:\\Other"}}));

  EXPECT_EQ(DeleteRegKey(u"c:\\DATA", u"D:\\T\\Data", 0), 1);
  EXPECT_EQ(All(), (Map{{u"2", u"C:\\Data > D:\\Other"}}));
  EXPECT_EQ(DeleteRegKey(u"C:\\Data", u"D:\\T\\Data", 0), 0);
  EXPECT_EQ(LastLine(), u"#ERROR: Key with the source = C:\\Data and target = D:\\T\\Data not found.");
  EXPECT_TRUE(MayHaveJunctionRecords(0));
  EXPECT_EQ(DeleteRegKey(u"C:\\Data", u"D:\\Other", 0), 1);
  EXPECT_FALSE(MayHaveJunctionRecords(0));
}

TEST_F(Records, GetTheNumberAfterTheLargest) {
  for (const auto& [name, next] : {std::pair(u"-5", std::uint64_t{1}),
                                   {u" \t+7x", 8},
                                   {u"5", 8},
                                   {u"2147483647", 2147483648},
                                   {u"99999999999999999999999", 18446744073709551615u}}) {
    Put(name, u"C:\\a", u"D:\\a");
    EXPECT_EQ(GetNextJunctionIndex(0), next);
  }
}

TEST_F(Records, AreReadWithAndWithoutTerminatorButNoOthers) {
  const std::u16string name499(499 - 3, u'x');
  Put(u"1", u"C:\\a", u"D:\\a");  // with
  Put(u"2", u"C:\\" + name499, u"D:\\cut");
  Put(u"3", u"C:\\" + name499 + u"x", u"D:\\b");
  machine->registry().SetDword(kFolders + u"\\4", u"Source", 0x00430043);
  machine->registry().SetText(kFolders + u"\\4", u"Target", u"D:\\c");
  const emulated::Bytes odd{'C', 0, ':', 0, '\\', 0, 'o', 0, 'x'};
  machine->registry().Set(kFolders + u"\\5", u"Source", win32::REG_EXPAND_SZ, odd);
  machine->registry().SetText(kFolders + u"\\5", u"Target", u"D:\\odd");
  Put(u"6", u"C:\\none", u"");
  Put(u"7", u"C:\\a", u"D:\\later");
  Map records;
  GetJunctionRecords(0, records);
  EXPECT_EQ(records, (Map{{u"C:\\a", u"D:\\later"}, {u"C:\\" + name499, u"D:\\cut"}, {u"C:\\o", u"D:\\odd"}}));
  EXPECT_EQ(JunctionRegKeyExists(u"C:\\None", u"", 0), 1) << "found, though it is not listed";
  EXPECT_EQ(UpdateJunctionRegKeys(u"C:\\none", u"E:\\none", 0), 1);
  EXPECT_EQ(All()[u"6"], u"C:\\none > ");
}

TEST_F(Records, FollowMovedDataByWholeComponents) {
  Put(u"1", u"C:\\Data\\inner", u"D:\\x");
  Put(u"2", u"C:\\Database", u"c:\\data");
  Put(u"3", u"E:\\C:\\Data", u"D:\\y");
  const Map before = All();
  EXPECT_FALSE(UpdateJunctionRegKeys(nullptr, u"D:\\T", 0) || UpdateJunctionRegKeys(u"C:\\Data", nullptr, 0));
  const auto saved = SaveJunctionRecords(0);
  EXPECT_EQ(UpdateJunctionRegKeys(u"C:\\DATA", u"D:\\T\\Data", 0), 1);
  EXPECT_EQ(All(), (Map{{u"1", u"D:\\T\\Data\\inner > D:\\x"},
                        {u"2", u"C:\\Database > D:\\T\\Data"},
                        {u"3", u"E:\\C:\\Data > D:\\y"}}));
  EXPECT_TRUE(RestoreJunctionRecords(saved));
  EXPECT_EQ(All(), before);
  // A path that nobody could read would lose the record.
  const std::u16string name(499 - 9, u'x');  // "E:\\" and "\\inner" make it one of 499 characters
  UpdateJunctionRegKeys(u"C:\\Data", (u"E:\\" + name + u"x").c_str(), 0);
  EXPECT_EQ(All()[u"1"], u"C:\\Data\\inner > D:\\x");
  UpdateJunctionRegKeys(u"C:\\Data", (u"E:\\" + name).c_str(), 0);
  EXPECT_EQ(All()[u"1"].size(), 499u + 7u);
}

TEST_F(Records, AHalfWrittenRecordIsTakenAwayAndTheDebuggerHearsOfFailures) {
  const std::u16string list = u"SOFTWARE\\Velmora\\Quillbay\\Junctions\\";
  const auto add = [] { return AddJunctionRegKey(u"C:\\a", u"D:\\a", 0); };
  std::u16string from, to;
  const auto read = [&] { return ReadKeyValues(list + u"1", from, to); };
  const auto remove = [] { return DeleteRegKey(u"C:\\b", u"D:\\b", 0); };
  Put(u"1", u"C:\\b", u"D:\\b");
  const std::tuple<const char*, unsigned, std::function<int()>, std::u16string> failures[] = {
      {"RegCreateKeyExW", 1, add, u"#ERROR: AddJunctionRegKey: RegCreateKeyEx() failed for path = " + list + u"2"},
      {"RegSetValueExW", 1, add, u"ERROR: AddJunctionRegKey: RegSetValueEx() failed for value name 'Source':\n"},
      {"RegSetValueExW", 2, add, u"ERROR: AddJunctionRegKey: RegSetValueEx() failed for value name 'Target':\n"},
      {"RegOpenKeyExW", 1, read, u"#ERROR: ReadKeyValues: RegOpenKeyEx() failed for path = " + list + u"1"},
      {"RegQueryValueExW", 3, read, u"#ERROR: ReadKeyValues: RegQueryValueEx() failed for path = Target"},
      {"RegDeleteKeyW", 1, remove, u"#ERROR: DeleteRegKey: RegDeleteKey() failed for path = " + list + u"1"}};
  for (const auto& [call, nth, action, told] : failures) {
    machine->debugOutput.clear();
    machine->gate.FailCall(call, nth, win32::ERROR_ACCESS_DENIED);
    EXPECT_EQ(action(), 0);
    EXPECT_EQ(machine->debugOutput, told);
    EXPECT_EQ(All(), (Map{{u"1", u"C:\\b > D:\\b"}}));
    machine->gate.ClearFailures();
  }
}

TEST_F(Records, TextsOfTheRegistryMayBeLong) {
  std::u16string variables, expanded;
  for (int i = 0; i < 40; ++i) variables += u"%SystemRoot%", expanded += u"C:\\Windows";
  EXPECT_EQ(ExpandedText(TextValue(variables, win32::REG_EXPAND_SZ)), expanded);
  EXPECT_EQ(ExpandedText(TextValue(variables, win32::REG_SZ)), variables);
}

TEST(PathText, CutsAndComparesByComponents) {
  EXPECT_TRUE(EqualPaths(u"C:\\\u00c4", u"c:\\\u00c4"));
  EXPECT_FALSE(EqualPaths(u"C:\\\u00c4", u"C:\\\u00e4") || EqualPaths(u"C:\\[", u"C:\\{"));  // letters A to Z only
  EXPECT_TRUE(IsSameOrBelow(u"c:\\data\\x", u"C:\\Data") && IsSameOrBelow(u"C:\\Data", u"C:\\"));
  EXPECT_FALSE(IsSameOrBelow(u"C:\\Database", u"C:\\Data") || IsSameOrBelow(u"C:\\Data", u""));
  EXPECT_EQ(ReplaceFolder(u"C:\\Data\\x", u"C:\\", u"D:\\T"), u"D:\\T\\Data\\x");
  EXPECT_EQ(ReplaceFolder(u"C:\\Data\\x", u"c:\\data\\", u"D:\\"), u"D:\\x");
  for (const std::size_t length : {259u, 260u})
    EXPECT_EQ(ExtendedPath(std::u16string(length, u'x')).size(), length == 259 ? 259u : 264u);
  for (const auto* path : {u"C:\\a\\..\\b", u".", u"C:/./a", u"C:\\a\\.."}) EXPECT_TRUE(HasDotComponents(path));
  EXPECT_FALSE(HasDotComponents(u"C:\\..a\\b..\\c.d"));
  for (const auto* name : {u"nul", u"CON.txt", u"com1 .log", u"LPT\u00b3", u"conin$", u"aux:x", u"prn"})
    EXPECT_TRUE(IsDeviceName(name));
  for (const auto* name : {u"nulx", u"com", u"com10", u"coma", u"xcon", u"dom1"}) EXPECT_FALSE(IsDeviceName(name));
}

}  // namespace
