// Making, removing, moving, copying, linking and finding names.
#include "contract/fixture.h"

using namespace win32;
using namespace contract;

namespace {

using FilesNames = FileTest;

using Text = const std::u16string&;
DWORD MakeError(Text path) { return ErrorOf(CreateDirectoryW(path.c_str(), nullptr)); }
DWORD RemoveError(Text path) { return ErrorOf(RemoveDirectoryW(path.c_str())); }
DWORD DeleteError(Text path) { return ErrorOf(DeleteFileW(path.c_str())); }
DWORD MoveError(Text from, Text to) { return ErrorOf(MoveFileW(from.c_str(), to.c_str())); }
DWORD ReplaceError(Text from, Text to) {
  return ErrorOf(MoveFileExW(from.c_str(), to.c_str(), MOVEFILE_REPLACE_EXISTING));
}
DWORD CopyError(Text from, Text to, BOOL failIfExists = FALSE) {
  return ErrorOf(CopyFileW(from.c_str(), to.c_str(), failIfExists));
}
DWORD LinkError(Text path, Text existing) { return ErrorOf(CreateHardLinkW(path.c_str(), existing.c_str(), nullptr)); }
// What is read-only is neither removed nor deleted. Wine is root, to whom nothing is read-only.
void ExpectReadOnlyToStay(Text path, DWORD (*remove)(Text)) {
  if (OnWine()) return;
  ASSERT_TRUE(SetFileAttributesW(path.c_str(), FILE_ATTRIBUTE_READONLY));
  EXPECT_EQ(remove(path), ERROR_ACCESS_DENIED);
  ASSERT_TRUE(SetFileAttributesW(path.c_str(), FILE_ATTRIBUTE_NORMAL));
}

TEST_F(FilesNames, MakingDirectories) {
  const std::u16string directory = Path(u"directory");
  EXPECT_EQ(MakeError(directory), 0u);
  EXPECT_EQ(MakeError(directory), ERROR_ALREADY_EXISTS);
  EXPECT_EQ(MakeError(directory + u"\\"), ERROR_ALREADY_EXISTS);
  EXPECT_EQ(MakeError(directory + u"\\child\\"), 0u);
  EXPECT_EQ(MakeError(Path(u"missing\\child")), ERROR_PATH_NOT_FOUND);
  EXPECT_EQ(MakeError(Path(u"a*b")), ERROR_INVALID_NAME);
  EXPECT_EQ(MakeError(Path(u"dotted. .")), 0u);
  EXPECT_EQ(Find(Path(u"dot*")), std::vector<std::u16string>{u"dotted"});
  Put(Path(u"file"));
  EXPECT_EQ(MakeError(Path(u"file")), ERROR_ALREADY_EXISTS);
  EXPECT_EQ(MakeError(Path(u"file\\child")), ERROR_PATH_NOT_FOUND);
  EXPECT_EQ(MakeError(u"Q:\\x"), OnWine() ? ERROR_FILE_NOT_FOUND : ERROR_PATH_NOT_FOUND);
  EXPECT_EQ(MakeError(u""), ERROR_PATH_NOT_FOUND);
}

// Windows takes these for devices, whatever folder they are looked for in; files of such names are reached by "\\?\".
TEST_F(FilesNames, NamesOfDevices) {
  SKIP_ON_WINE("it makes folders of these names, and knows fewer of them");
  for (const char16_t* const name :
       {u"nul", u"NUL.txt", u"con", u"prn.a.b", u"aux.c", u"com1", u"Com9.log", u"lpt1 .x", u"lpt\u00b3", u"nul. "}) {
    const std::u16string plain = Path(name), literal = u"\\\\?\\" + plain;
    EXPECT_EQ(MakeError(plain), ERROR_DIRECTORY);
    EXPECT_EQ(DeleteError(literal), ERROR_FILE_NOT_FOUND);
    Put(literal, "content");
    EXPECT_EQ(GetFileAttributesW(plain.c_str()), FILE_ATTRIBUTE_ARCHIVE);
    EXPECT_EQ(DeleteError(plain), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(MakeError(plain + u"\\child"), ERROR_PATH_NOT_FOUND) << "the file, for this is no device's name";
    EXPECT_EQ(DeleteError(literal), 0u);
  }
  Put(Path(u"file"), "content");
  EXPECT_EQ(CopyError(Path(u"file"), Path(u"nul.txt")), 0u);
  EXPECT_EQ(AttributesError(u"\\\\?\\" + Path(u"nul.txt")), ERROR_FILE_NOT_FOUND) << "it keeps nothing";
  for (const char16_t* const name : {u"nulx", u"com10", u"com0", u"console", u"x.nul", u"lpt"}) {
    Put(Path(name), "content");
    EXPECT_EQ(DeleteError(Path(name)), 0u);
  }
}

TEST_F(FilesNames, RemovingDirectories) {
  const std::u16string directory = Path(u"directory"), child = directory + u"\\child";
  MakeDirectory(directory);
  Put(child);
  EXPECT_EQ(RemoveError(directory), ERROR_DIR_NOT_EMPTY);
  EXPECT_EQ(RemoveError(child), ERROR_DIRECTORY);
  EXPECT_EQ(RemoveError(Path(u"missing")), ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(RemoveError(Path(u"missing\\child")), ERROR_PATH_NOT_FOUND);
  EXPECT_EQ(DeleteError(child), 0u);
  {
    const auto open = Open(directory, GENERIC_READ, FILE_SHARE_READ, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS);
    EXPECT_EQ(RemoveError(directory), ERROR_SHARING_VIOLATION);
  }
  ExpectReadOnlyToStay(directory, RemoveError);
  EXPECT_EQ(RemoveError(directory), 0u);
  EXPECT_EQ(AttributesError(directory), ERROR_FILE_NOT_FOUND);
}

TEST_F(FilesNames, DeletingFiles) {
  const std::u16string file = Path(u"file");
  EXPECT_EQ(DeleteError(u""), ERROR_PATH_NOT_FOUND);
  EXPECT_EQ(DeleteError(file), ERROR_FILE_NOT_FOUND);
  MakeDirectory(Path(u"directory"));
  EXPECT_EQ(DeleteError(Path(u"directory")), ERROR_ACCESS_DENIED);
  Put(file);
  {
    const auto open = Open(file, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE);
    EXPECT_EQ(DeleteError(file), ERROR_SHARING_VIOLATION);
  }
  ExpectReadOnlyToStay(file, DeleteError);
  EXPECT_EQ(DeleteError(file), 0u);
  EXPECT_FALSE(Exists(file));
}

TEST_F(FilesNames, DeletingWhatIsOpen) {
  const auto mark = [](const UniqueFile& open, BOOLEAN deleteIt) {
    FILE_DISPOSITION_INFO disposition{deleteIt};
    return ErrorOf(SetFileInformationByHandle(open.get(), FileDispositionInfo, &disposition, sizeof disposition));
  };
  const auto toDelete = [](const std::u16string& path) {
    return Open(path, DELETE | FILE_READ_ATTRIBUTES, kShareAll, OPEN_EXISTING, kOpenLink);
  };
  const std::u16string directory = Path(u"directory"), file = directory + u"\\file";
  MakeDirectory(directory);
  Put(file);
  EXPECT_EQ(mark(Open(file, GENERIC_READ, kShareAll), TRUE), ERROR_ACCESS_DENIED);
  EXPECT_EQ(mark(toDelete(directory), TRUE), ERROR_DIR_NOT_EMPTY);
  if (!OnWine()) {
    FILE_DISPOSITION_INFO disposition{TRUE};
    EXPECT_EQ(ErrorOf(SetFileInformationByHandle(toDelete(file).get(), FileDispositionInfo, &disposition, 0)),
              ERROR_BAD_LENGTH);
    ASSERT_TRUE(SetFileAttributesW(file.c_str(), FILE_ATTRIBUTE_READONLY));
    EXPECT_EQ(mark(toDelete(file), TRUE), ERROR_ACCESS_DENIED);
    ASSERT_TRUE(SetFileAttributesW(file.c_str(), FILE_ATTRIBUTE_NORMAL));
  }
  {
    const auto open = toDelete(file);
    EXPECT_EQ(mark(open, TRUE) + mark(open, FALSE), 0u);
  }
  EXPECT_TRUE(Exists(file)) << "it stays after all";
  {
    const auto open = toDelete(file);
    EXPECT_EQ(mark(open, TRUE), 0u);
    if (!OnWine()) {
      EXPECT_EQ(OpenError(file, GENERIC_READ), ERROR_ACCESS_DENIED);
    }
  }
  EXPECT_EQ(AttributesError(file), ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(mark(toDelete(directory), TRUE), 0u);
  EXPECT_EQ(AttributesError(directory), ERROR_FILE_NOT_FOUND);
}

TEST_F(FilesNames, MovingWithinAVolume) {
  const std::u16string a = Path(u"a"), b = Path(u"b"), directory = Path(u"directory"), other = Path(u"other");
  Put(a, "a");
  Put(b, "b");
  MakeDirectory(directory);
  MakeDirectory(other);
  EXPECT_EQ(MoveError(Path(u"missing"), Path(u"new")), ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(MoveError(a, Path(u"missing\\new")), ERROR_PATH_NOT_FOUND);
  EXPECT_EQ(MoveError(a, a), 0u);
  EXPECT_EQ(MoveError(a, b), ERROR_ALREADY_EXISTS);
  EXPECT_EQ(MoveError(a, directory), ERROR_ALREADY_EXISTS);
  EXPECT_EQ(MoveError(directory, other), ERROR_ALREADY_EXISTS);
  EXPECT_EQ(MoveError(a, directory + u"\\a"), 0u);
  EXPECT_EQ(MoveError(directory, Path(u"Renamed")), 0u);
  EXPECT_EQ(Get(Path(u"renamed\\a")), "a");
  EXPECT_FALSE(Exists(directory + u"\\a"));
  if (!OnWine()) {
    EXPECT_EQ(MoveError(Path(u"Renamed"), Path(u"RENAMED")), 0u);
    EXPECT_EQ(Find(Path(u"r*")), std::vector<std::u16string>{u"RENAMED"});
    EXPECT_EQ(MoveError(Path(u"renamed"), Path(u"renamed\\below")), ERROR_SHARING_VIOLATION);
  }
}

TEST_F(FilesNames, MovingWhatIsOpen) {
  const std::u16string file = Path(u"file"), directory = Path(u"directory"), child = directory + u"\\child";
  Put(file);
  MakeDirectory(directory);
  Put(child);
  {
    const auto open = Open(file, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE);
    EXPECT_EQ(MoveError(file, Path(u"new")), ERROR_SHARING_VIOLATION);
  }
  {
    const auto open = Open(file, FILE_READ_ATTRIBUTES, 0);
    EXPECT_EQ(MoveError(file, Path(u"new")), 0u);
  }
  if (!OnWine()) {
    const auto open = Open(child, GENERIC_READ, kShareAll);
    EXPECT_EQ(MoveError(directory, Path(u"moved")), ERROR_ACCESS_DENIED);
  }
  EXPECT_EQ(MoveError(directory, Path(u"moved")), 0u);
}

TEST_F(FilesNames, MovingOverAnother) {
  const std::u16string a = Path(u"a"), b = Path(u"b"), directory = Path(u"directory");
  Put(a, "a");
  Put(b, "b");
  MakeDirectory(directory);
  EXPECT_EQ(ReplaceError(a, directory), ERROR_ACCESS_DENIED);
  if (!OnWine()) {
    const auto open = Open(b, GENERIC_READ, kShareAll);
    EXPECT_EQ(ReplaceError(a, b), ERROR_ACCESS_DENIED);
  }
  EXPECT_EQ(ReplaceError(a, b), 0u);
  EXPECT_EQ(Get(b), "a");
  EXPECT_FALSE(Exists(a));
  if (!OnWine()) {  // Wine deletes the file
    EXPECT_EQ(ErrorOf(MoveFileExW(b.c_str(), nullptr, 0)), ERROR_INVALID_PARAMETER);
  }
}

TEST_F(FilesNames, MovingToAnotherVolume) {
  const std::u16string elsewhere = OtherVolume(), a = Path(u"a"), directory = Path(u"directory");
  if (elsewhere.empty()) GTEST_SKIP() << "there is no other volume";
  Put(a, "a");
  MakeDirectory(directory);
  EXPECT_EQ(MoveError(directory, elsewhere + u"\\directory"), ERROR_NOT_SAME_DEVICE);
  EXPECT_EQ(ErrorOf(MoveFileExW(a.c_str(), (elsewhere + u"\\a").c_str(), 0)), ERROR_NOT_SAME_DEVICE);
  EXPECT_EQ(MoveError(a, elsewhere + u"\\a"), 0u);
  EXPECT_EQ(Get(elsewhere + u"\\a"), "a");
  EXPECT_FALSE(Exists(a));
  EXPECT_EQ(LinkError(a, elsewhere + u"\\a"), ERROR_NOT_SAME_DEVICE);
}

TEST_F(FilesNames, Copying) {
  const std::u16string a = Path(u"a"), b = Path(u"b"), directory = Path(u"directory");
  Put(a, "a");
  MakeDirectory(directory);
  EXPECT_EQ(CopyError(Path(u"missing"), b), ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(CopyError(directory, b), ERROR_ACCESS_DENIED);
  EXPECT_EQ(CopyError(a, directory), ERROR_ACCESS_DENIED);
  EXPECT_EQ(CopyError(a, b), 0u);
  EXPECT_EQ(Get(b), "a");
  EXPECT_EQ(CopyError(a, b, TRUE), ERROR_FILE_EXISTS);
  if (!OnWine()) {
    EXPECT_EQ(CopyError(a, a), ERROR_SHARING_VIOLATION);
  }
  {
    const auto open = Open(b, GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ);
    EXPECT_EQ(CopyError(a, b), ERROR_SHARING_VIOLATION);
  }
  EXPECT_EQ(Get(a), "a");
}

TEST_F(FilesNames, WhatACopyKeeps) {
  SKIP_ON_WINE("Unix keeps neither streams nor attributes");
  const std::u16string a = Path(u"a"), b = Path(u"b");
  Put(a, "a");
  Put(a + u":s", "stream");
  ASSERT_TRUE(SetFileAttributesW(a.c_str(), FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN));
  FILETIME set{0x1000, 0x01C0'0000}, got{};
  ASSERT_TRUE(SetFileTime(Open(a, FILE_WRITE_ATTRIBUTES, kShareAll).get(), nullptr, nullptr, &set));
  Put(b + u":old", "goes");
  EXPECT_EQ(CopyError(a, b), 0u);
  EXPECT_EQ(Get(b + u":s"), "stream");
  EXPECT_EQ(OpenError(b + u":old", GENERIC_READ), ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(GetFileAttributesW(b.c_str()), FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_ARCHIVE);
  EXPECT_TRUE(GetFileTime(Open(b, GENERIC_READ, kShareAll).get(), nullptr, nullptr, &got));
  EXPECT_EQ(got.dwHighDateTime, set.dwHighDateTime);
  EXPECT_EQ(CopyError(a, b), ERROR_ACCESS_DENIED);  // the copy is read-only now
}

TEST_F(FilesNames, HardLinks) {
  const std::u16string a = Path(u"a"), b = Path(u"b");
  Put(a, "a");
  MakeDirectory(Path(u"directory"));
  EXPECT_EQ(LinkError(b, a), 0u);
  EXPECT_EQ(LinkError(b, a), ERROR_ALREADY_EXISTS);
  EXPECT_EQ(LinkError(Path(u"c"), Path(u"directory")), ERROR_ACCESS_DENIED);
  EXPECT_EQ(LinkError(Path(u"c"), Path(u"missing")), ERROR_FILE_NOT_FOUND);
  Put(b, "changed");
  EXPECT_EQ(Get(a), "changed");
  EXPECT_EQ(DeleteError(a), 0u);
  EXPECT_EQ(Get(b), "changed");
}

TEST_F(FilesNames, Searching) {
  const std::u16string directory = Path(u"directory");
  MakeDirectory(directory);
  for (const char16_t* const name : {u"b.txt", u"A.TXT", u"noextension", u"x.tar.gz"}) Put(directory + u'\\' + name);
  using Names = std::vector<std::u16string>;
  if (!OnWine()) {  // the host's order
    EXPECT_EQ(Find(directory + u"\\*"), (Names{u".", u"..", u"A.TXT", u"b.txt", u"noextension", u"x.tar.gz"}));
    EXPECT_EQ(Find(directory + u"\\*.txt"), (Names{u"A.TXT", u"b.txt"}));
    EXPECT_EQ(Find(directory + u"\\*."), (Names{u".", u"..", u"noextension"}));
    EXPECT_EQ(FindError(directory + u"\\b.txt\\*"), ERROR_DIRECTORY);
  }
  EXPECT_EQ(Find(directory + u"\\*.*").size(), 6u);
  EXPECT_EQ(Find(directory + u"\\?.txt").size(), 2u);
  for (const auto& [pattern, name] :
       {std::pair{u"\\x.*", u"x.tar.gz"}, {u"\\*.gz", u"x.tar.gz"}, {u"\\a.txt", u"A.TXT"}, {u"", u"directory"}})
    EXPECT_EQ(Find(directory + pattern), Names{name});
  EXPECT_EQ(FindError(u"C:\\"), ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(FindError(directory + u"\\"), ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(FindError(directory + u"\\no*"), 0u);
  EXPECT_EQ(FindError(directory + u"\\none*"), ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(FindError(directory + u"\\missing\\*"), ERROR_PATH_NOT_FOUND);
  for (const std::u16string& name : Find(u"C:\\*")) EXPECT_FALSE(name == u"." || name == u"..");
}

TEST_F(FilesNames, ASearchOutlivesWhatItFinds) {
  const std::u16string directory = Path(u"directory");
  MakeDirectory(directory);
  for (char16_t letter = u'a'; letter <= u'z'; ++letter) Put(directory + u'\\' + letter);
  WIN32_FIND_DATAW data{};
  UniqueFind search(FindFirstFileW((directory + u"\\*").c_str(), &data));
  ASSERT_TRUE(search);
  int deleted = 0;
  do {
    if (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) continue;
    EXPECT_EQ(DeleteError(directory + u'\\' + data.cFileName), 0u);
    ++deleted;
  } while (FindNextFileW(search.get(), &data));
  EXPECT_EQ(deleted, 26);
  EXPECT_EQ(ErrorOf(FindNextFileW(search.get(), &data)), ERROR_NO_MORE_FILES);
  search.reset();
  EXPECT_EQ(RemoveError(directory), 0u);
  EXPECT_EQ(ErrorOf(FindClose(nullptr)), ERROR_INVALID_HANDLE);
}

}  // namespace
