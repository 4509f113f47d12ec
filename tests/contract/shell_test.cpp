// The shell's path tests, folders and file operations.
#include "contract/fixture.h"

namespace {

using namespace contract;
using namespace win32;

class Shell : public FileTest {
 protected:
  int MakeAll(std::u16string_view name) const { return SHCreateDirectoryExW(nullptr, Path(name).c_str(), nullptr); }
};

TEST_F(Shell, TextOfPaths) {
  for (const auto* const path : {u"\\\\server\\share", u"\\\\server", u"\\\\", u"\\\\?\\UNC\\server\\share"})
    EXPECT_TRUE(PathIsUNCW(path) && !PathIsRelativeW(path) && PathGetDriveNumberW(path) == -1);
  for (const auto* const path : {u"name", u"a\\b", u""}) EXPECT_TRUE(PathIsRelativeW(path) && !PathIsUNCW(path));
  for (const auto* const path : {u"C:\\x", u"C:x", u"c:"})
    EXPECT_TRUE(!PathIsRelativeW(path) && !PathIsUNCW(path) && PathGetDriveNumberW(path) == 2);
  EXPECT_TRUE(!PathIsRelativeW(u"\\x"));
  EXPECT_TRUE(OnWine() || !PathIsUNCW(u"\\\\?\\C:\\x"));  // Wine: as before Vista
  EXPECT_EQ(PathGetDriveNumberW(u"1:\\"), -1);
  const char16_t* const letters = u"x\u00C4\u0416";
  EXPECT_TRUE(StrStrIW(letters, u"\u00E4\u0436") == letters + 1 && !StrStrIW(letters, u""));
  for (const auto& [path, unquoted] : {std::pair{u"\"C:\\a b\"", u"C:\\a b"},
                                       {u"\"\"", u""},
                                       {u"\"", u""},
                                       {u"\"C:\\a b", u"\"C:\\a b"},
                                       {u"C:\\a\"", u"C:\\a\""}}) {
    std::u16string text = path;
    EXPECT_EQ(PathUnquoteSpacesW(text.data()) != 0, std::u16string_view(path) != unquoted);
    EXPECT_EQ(std::u16string(text.c_str()), unquoted);
  }
}

TEST_F(Shell, CreatingADirectoryMakesTheWayToIt) {
  EXPECT_EQ(MakeAll(u"a\\b\\c"), 0);
  EXPECT_TRUE(PathIsDirectoryW(Path(u"a\\b\\c").c_str()) && PathFileExistsW(Path(u"a\\").c_str()));
  EXPECT_EQ(MakeAll(u"a\\b\\c"), 183);
  EXPECT_EQ(SHCreateDirectory(nullptr, Path(u"a\\x\\y").c_str()), 0);
  EXPECT_EQ(SHCreateDirectoryExW(nullptr, u"relative\\path", nullptr), 161);
  EXPECT_TRUE(OnWine() || MakeAll(std::u16string(300, u'x')) == 206);  // it lets the host decide
  Put(Path(u"file"));
  EXPECT_TRUE(PathFileExistsW(Path(u"file").c_str()) && !PathIsDirectoryW(Path(u"file").c_str()));
  for (const std::u16string& path : {Path(u"missing"), Path(u"f*"), std::u16string()})
    EXPECT_FALSE(PathFileExistsW(path.c_str()) || PathIsDirectoryW(path.c_str()));
  EXPECT_NE(MakeAll(u"file\\below"), 0);
  EXPECT_NE(MakeAll(u"file"), 0);
}

TEST_F(Shell, CopyingReplacesWhatIsThereAndGoesIntoFolders) {
  const auto copy = [](std::u16string from, std::u16string to) {
    from += u'\0';
    to += u'\0';
    SHFILEOPSTRUCTW operation{};
    operation.wFunc = FO_COPY;
    operation.pFrom = from.c_str();
    operation.pTo = to.c_str();
    operation.fFlags = FOF_NOCONFIRMATION | FOF_SILENT | FOF_NOERRORUI;
    return SHFileOperationW(&operation);
  };
  ASSERT_EQ(MakeAll(u"from\\sub"), 0);
  MakeDirectory(Path(u"to"));
  Put(Path(u"from\\sub\\file"), "new");
  Put(Path(u"another name"), "old");
  EXPECT_EQ(copy(Path(u"from"), Path(u"to")), 0);
  EXPECT_EQ(Get(Path(u"to\\from\\sub\\file")), "new");
  EXPECT_EQ(copy(Path(u"from\\sub\\file"), Path(u"another name")), 0);
  EXPECT_EQ(Get(Path(u"another name")), "new");
  EXPECT_NE(copy(Path(u"missing"), Path(u"to")), 0);
}

}  // namespace
