// The shell's path tests, folders and file operations.
#include <gtest/gtest.h>

#include "contract/fixture.h"
#include "win32/file.h"
#include "win32/handle.h"
#include "win32/shell.h"

namespace {

using namespace win32;

class Shell : public contract::FileTest {
 protected:
  static void Make(const std::u16string& path, std::string_view content = "content") {
    const UniqueFile file{
        CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr)};
    DWORD written = 0;
    ASSERT_TRUE(file && WriteFile(file.get(), content.data(), static_cast<DWORD>(content.size()), &written, nullptr));
  }

  static std::string Content(const std::u16string& path) {
    const UniqueFile file{CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr)};
    char text[64];
    DWORD read = 0;
    return file && ReadFile(file.get(), text, sizeof text, &read, nullptr) ? std::string(text, read) : "(none)";
  }

  static int Operate(UINT what, std::u16string from, std::u16string to = {}) {
    from += u'\0';
    to += u'\0';
    SHFILEOPSTRUCTW operation{};
    operation.wFunc = what;
    operation.pFrom = from.c_str();
    operation.pTo = to.c_str();
    operation.fFlags = FOF_NOCONFIRMATION | FOF_SILENT;
    return SHFileOperationW(&operation);
  }
};

TEST_F(Shell, TextOfPaths) {
  EXPECT_TRUE(PathIsUNCW(u"\\\\server\\share") && PathIsUNCW(u"\\\\server") && PathIsUNCW(u"\\\\"));
  EXPECT_TRUE(PathIsUNCW(u"\\\\?\\UNC\\server\\share"));
  EXPECT_FALSE(PathIsUNCW(u"C:\\x") || PathIsUNCW(u"\\x") || PathIsUNCW(u"") || PathIsUNCW(nullptr));
  EXPECT_TRUE(contract::OnWine() || !PathIsUNCW(u"\\\\?\\C:\\x"));  // Wine: as before Vista

  EXPECT_TRUE(PathIsRelativeW(u"name") && PathIsRelativeW(u"a\\b") && PathIsRelativeW(u"") && PathIsRelativeW(nullptr));
  EXPECT_FALSE(PathIsRelativeW(u"C:\\x") || PathIsRelativeW(u"C:x") || PathIsRelativeW(u"\\x") ||
               PathIsRelativeW(u"\\\\server"));

  EXPECT_EQ(PathGetDriveNumberW(u"A:\\x"), 0);
  EXPECT_EQ(PathGetDriveNumberW(u"z:"), 25);
  EXPECT_EQ(PathGetDriveNumberW(u"\\x"), -1);
  EXPECT_EQ(PathGetDriveNumberW(u""), -1);
  EXPECT_EQ(PathGetDriveNumberW(u"1:\\"), -1);
}

TEST_F(Shell, QuotationMarksAtBothEndsGo) {
  const auto unquoted = [](std::u16string text) {
    PathUnquoteSpacesW(text.data());
    return std::u16string(text.c_str());
  };
  EXPECT_EQ(unquoted(u"\"C:\\a b\""), u"C:\\a b");
  EXPECT_EQ(unquoted(u"\"\""), u"");
  EXPECT_EQ(unquoted(u"\"C:\\a"), u"\"C:\\a");
  EXPECT_EQ(unquoted(u"C:\\a\""), u"C:\\a\"");
  EXPECT_EQ(unquoted(u"\"\"x\"\""), u"\"x\"");
}

TEST_F(Shell, NameAtTheEndOfAPath) {
  const auto name = [](const char16_t* path) { return std::u16string(PathFindFileNameW(path)); };
  EXPECT_EQ(name(u"C:\\folder\\file.txt"), u"file.txt");
  EXPECT_EQ(name(u"C:\\folder\\"), u"folder\\");
  EXPECT_EQ(name(u"C:\\"), u"C:\\");
  EXPECT_EQ(name(u"C:file"), u"file");
  EXPECT_EQ(name(u"a/b"), u"b");
  EXPECT_EQ(name(u"name"), u"name");
  EXPECT_EQ(name(u""), u"");
  EXPECT_EQ(PathFindFileNameW(nullptr), nullptr);
}

TEST_F(Shell, TextInTextWhateverTheCase) {
  const char16_t* const text = u"C:\\WINDOWS\\System32";
  EXPECT_EQ(StrStrIW(text, u"windows"), text + 3);
  EXPECT_EQ(StrStrIW(text, u"SYSTEM32"), text + 11);
  EXPECT_EQ(StrStrIW(text, u"system32\\"), nullptr);
  EXPECT_EQ(StrStrIW(text, u""), nullptr);
  EXPECT_EQ(StrStrIW(nullptr, u"x"), nullptr);
  const char16_t* const letters = u"x\u00C4\u0416";
  EXPECT_EQ(StrStrIW(letters, u"\u00E4\u0436"), letters + 1);
}

TEST_F(Shell, WhatThePathsLeadTo) {
  Make(Path(u"file"));
  EXPECT_TRUE(PathFileExistsW(Path(u"file").c_str()));
  EXPECT_FALSE(PathFileExistsW(Path(u"missing").c_str()) || PathFileExistsW(u"") || PathFileExistsW(nullptr));
  EXPECT_TRUE(PathIsDirectoryW(Path(u"").c_str()));
  EXPECT_FALSE(PathIsDirectoryW(Path(u"file").c_str()) || PathIsDirectoryW(Path(u"missing").c_str()) ||
               PathIsDirectoryW(nullptr));
}

TEST_F(Shell, CreatingADirectoryMakesTheWayToIt) {
  EXPECT_EQ(SHCreateDirectoryExW(nullptr, Path(u"a\\b\\c").c_str(), nullptr), 0);
  EXPECT_TRUE(PathIsDirectoryW(Path(u"a\\b\\c").c_str()));
  EXPECT_EQ(SHCreateDirectoryExW(nullptr, Path(u"a\\b\\c").c_str(), nullptr), 183);
  EXPECT_EQ(SHCreateDirectory(nullptr, Path(u"a\\x\\y").c_str()), 0);
  EXPECT_EQ(SHCreateDirectoryExW(nullptr, u"relative\\path", nullptr), 161);
  if (!contract::OnWine()) {  // Wine lets the host decide
    EXPECT_EQ(SHCreateDirectoryExW(nullptr, Path(std::u16string(300, u'x')).c_str(), nullptr), 206);
  }
  Make(Path(u"file"));
  EXPECT_NE(SHCreateDirectoryExW(nullptr, Path(u"file\\below").c_str(), nullptr), 0);
  EXPECT_NE(SHCreateDirectoryExW(nullptr, Path(u"file").c_str(), nullptr), 0);
  EXPECT_FALSE(PathIsDirectoryW(Path(u"file").c_str()));
}

TEST_F(Shell, DeletingATree) {
  ASSERT_EQ(SHCreateDirectoryExW(nullptr, Path(u"tree\\sub").c_str(), nullptr), 0);
  Make(Path(u"tree\\sub\\file"));
  SetFileAttributesW(Path(u"tree\\sub\\file").c_str(), FILE_ATTRIBUTE_READONLY);
  Make(Path(u"second"));
  EXPECT_EQ(Operate(FO_DELETE, Path(u"tree") + u'\0' + Path(u"second")), 0);
  EXPECT_FALSE(PathFileExistsW(Path(u"tree").c_str()) || PathFileExistsW(Path(u"second").c_str()));
  EXPECT_NE(Operate(FO_DELETE, Path(u"missing")), 0);
}

TEST_F(Shell, DeletingDoesNotFollowLinks) {
  SKIP_ON_WINE("Wine makes no reparse points");
  ASSERT_EQ(SHCreateDirectoryExW(nullptr, Path(u"tree\\link").c_str(), nullptr), 0);
  ASSERT_TRUE(CreateDirectoryW(Path(u"outside").c_str(), nullptr));
  Make(Path(u"outside\\file"));
  const std::u16string target = u"\\??\\" + Path(u"outside");
  std::u16string data(8 + target.size() + 2, u'\0');
  data[0] = 3;
  data[1] = 0xA000;
  data[2] = static_cast<char16_t>(8 + target.size() * 2 + 4);
  data[5] = static_cast<char16_t>(target.size() * 2);
  data[6] = static_cast<char16_t>(target.size() * 2 + 2);
  target.copy(data.data() + 8, target.size());
  {
    const UniqueFile link{CreateFileW(Path(u"tree\\link").c_str(), GENERIC_WRITE, 0, nullptr, OPEN_EXISTING,
                                      FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OPEN_REPARSE_POINT, nullptr)};
    DWORD returned = 0;
    ASSERT_TRUE(DeviceIoControl(link.get(), FSCTL_SET_REPARSE_POINT, data.data(), static_cast<DWORD>(data.size() * 2),
                                nullptr, 0, &returned, nullptr));
  }
  ASSERT_TRUE(PathFileExistsW(Path(u"tree\\link\\file").c_str()));
  EXPECT_EQ(Operate(FO_DELETE, Path(u"tree")), 0);
  EXPECT_FALSE(PathFileExistsW(Path(u"tree").c_str()));
  EXPECT_EQ(Content(Path(u"outside\\file")), "content");
}

TEST_F(Shell, CopyingAndMoving) {
  ASSERT_EQ(SHCreateDirectoryExW(nullptr, Path(u"from\\sub").c_str(), nullptr), 0);
  Make(Path(u"from\\sub\\file"), "new");
  ASSERT_TRUE(CreateDirectoryW(Path(u"to").c_str(), nullptr));
  EXPECT_EQ(Operate(FO_COPY, Path(u"from"), Path(u"to")), 0);  // into the folder that is there
  EXPECT_EQ(Content(Path(u"to\\from\\sub\\file")), "new");
  EXPECT_EQ(Operate(FO_COPY, Path(u"from\\sub\\file"), Path(u"another name")), 0);
  EXPECT_EQ(Content(Path(u"another name")), "new");
  Make(Path(u"another name"), "old");
  EXPECT_EQ(Operate(FO_COPY, Path(u"from\\sub\\file"), Path(u"another name")), 0);  // in the place of what is there
  EXPECT_EQ(Content(Path(u"another name")), "new");
  EXPECT_EQ(Operate(FO_MOVE, Path(u"from"), Path(u"moved")), 0);
  EXPECT_EQ(Content(Path(u"moved\\sub\\file")), "new");
  EXPECT_FALSE(PathFileExistsW(Path(u"from").c_str()));
  EXPECT_NE(Operate(FO_COPY, Path(u"missing"), Path(u"to")), 0);
}

TEST_F(Shell, WhereWindowsIs) {
  char16_t path[260];
  for (const int folder : {CSIDL_WINDOWS, CSIDL_SYSTEM, CSIDL_PROGRAM_FILES, CSIDL_PROGRAM_FILESX86}) {
    ASSERT_TRUE(SHGetSpecialFolderPathW(nullptr, path, folder, FALSE)) << folder;
    EXPECT_EQ(PathGetDriveNumberW(path), 2);
    EXPECT_NE(path[std::u16string_view(path).size() - 1], u'\\');
  }
  ASSERT_TRUE(SHGetSpecialFolderPathW(nullptr, path, CSIDL_SYSTEM, FALSE));
  EXPECT_TRUE(StrStrIW(path, u"\\system32"));
}

}  // namespace
