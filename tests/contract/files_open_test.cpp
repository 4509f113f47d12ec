// Opening: dispositions, names, sharing, deleting on close.
#include "contract/fixture.h"

using namespace win32;
using namespace contract;

namespace {

using FilesOpen = FileTest;

TEST_F(FilesOpen, DispositionsAndTheirErrors) {
  const std::u16string file = Path(u"file"), missing = Path(u"missing");
  EXPECT_EQ(OpenError(file, GENERIC_READ, 0, 0), ERROR_INVALID_PARAMETER);
  EXPECT_EQ(OpenError(missing, GENERIC_READ), ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(OpenError(missing + u"\\child", GENERIC_READ), ERROR_PATH_NOT_FOUND);
  EXPECT_EQ(OpenError(missing, GENERIC_READ | GENERIC_WRITE, 0, TRUNCATE_EXISTING), ERROR_FILE_NOT_FOUND);

  SetLastError(0xDEAD);
  EXPECT_TRUE(Open(file, GENERIC_WRITE, 0, CREATE_ALWAYS));
  EXPECT_EQ(GetLastError(), 0u);
  EXPECT_EQ(OpenError(file, GENERIC_WRITE, 0, CREATE_NEW), ERROR_FILE_EXISTS);
  EXPECT_TRUE(Open(file, GENERIC_WRITE, 0, OPEN_ALWAYS));
  EXPECT_EQ(GetLastError(), ERROR_ALREADY_EXISTS);
  EXPECT_TRUE(Open(file, GENERIC_WRITE, 0, CREATE_ALWAYS));
  EXPECT_EQ(GetLastError(), ERROR_ALREADY_EXISTS);
  SetLastError(0xDEAD);
  EXPECT_TRUE(Open(missing, GENERIC_WRITE, 0, OPEN_ALWAYS));
  EXPECT_EQ(GetLastError(), 0u);
}

TEST_F(FilesOpen, WhatReplacesTheContent) {
  const std::u16string file = Path(u"file");
  Put(file, "old");
  if (!OnWine()) {  // Wine truncates
    EXPECT_EQ(OpenError(file, GENERIC_READ, kShareAll, TRUNCATE_EXISTING), ERROR_INVALID_PARAMETER);
  }
  EXPECT_TRUE(Open(file, GENERIC_WRITE, 0, OPEN_ALWAYS));
  EXPECT_EQ(Get(file), "old");
  EXPECT_TRUE(Open(file, GENERIC_WRITE, 0, TRUNCATE_EXISTING));
  EXPECT_EQ(Get(file), "");
  Put(file, "old");
  EXPECT_TRUE(Open(file, GENERIC_WRITE, 0, CREATE_ALWAYS));
  EXPECT_EQ(Get(file), "");
}

TEST_F(FilesOpen, AHiddenFileIsNotReplacedByAPlainOne) {
  SKIP_ON_WINE("Wine does not look at the old attributes");
  const std::u16string file = Path(u"file");
  Put(file, "old");
  ASSERT_TRUE(SetFileAttributesW(file.c_str(), FILE_ATTRIBUTE_HIDDEN));
  EXPECT_EQ(OpenError(file, GENERIC_WRITE, 0, CREATE_ALWAYS), ERROR_ACCESS_DENIED);
  EXPECT_EQ(Get(file), "old");
  EXPECT_EQ(OpenError(file, GENERIC_WRITE, 0, CREATE_ALWAYS, FILE_ATTRIBUTE_HIDDEN), 0u);
}

TEST_F(FilesOpen, DirectoriesOpenWithBackupSemanticsOnly) {
  const std::u16string directory = Path(u"directory");
  MakeDirectory(directory);
  for (const DWORD disposition : {OPEN_EXISTING, CREATE_ALWAYS, OPEN_ALWAYS})
    EXPECT_EQ(OpenError(directory, GENERIC_READ, kShareAll, disposition), ERROR_ACCESS_DENIED);
  const auto open = [](const std::u16string& path, DWORD access) {
    return Open(path, access, kShareAll, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS);
  };
  EXPECT_TRUE(open(directory, GENERIC_READ | GENERIC_WRITE) && open(directory + u'\\', GENERIC_READ));
  const auto handle = open(directory, GENERIC_READ);
  ASSERT_TRUE(handle);
  if (OnWine()) return;
  DWORD high = 7, read = 0;
  char byte = 0;
  EXPECT_EQ(GetFileSize(handle.get(), &high), 0u);
  EXPECT_EQ(high, 0u);
  EXPECT_EQ(ErrorOf(ReadFile(handle.get(), &byte, 1, &read, nullptr)), ERROR_INVALID_FUNCTION);
}

TEST_F(FilesOpen, ReadOnlyDeniesWriting) {
  SKIP_ON_WINE("as root nothing is read-only");
  const std::u16string file = Path(u"file");
  Put(file);
  ASSERT_TRUE(SetFileAttributesW(file.c_str(), FILE_ATTRIBUTE_READONLY));
  for (const DWORD access : {GENERIC_WRITE, GENERIC_ALL}) EXPECT_EQ(OpenError(file, access), ERROR_ACCESS_DENIED);
  EXPECT_EQ(OpenError(file, GENERIC_WRITE, kShareAll, CREATE_ALWAYS), ERROR_ACCESS_DENIED);
  EXPECT_EQ(OpenError(file, DELETE, kShareAll, OPEN_EXISTING, FILE_FLAG_DELETE_ON_CLOSE), ERROR_ACCESS_DENIED);
  for (const DWORD access : {DELETE, FILE_WRITE_ATTRIBUTES, GENERIC_READ}) EXPECT_EQ(OpenError(file, access), 0u);
}

TEST_F(FilesOpen, NamesThatAreRefused) {
  for (const char16_t* const name : {u"a*", u"a?", u"a<b", u"a|b", u"a\"b"})
    EXPECT_EQ(OpenError(Path(name), GENERIC_WRITE, 0, CREATE_NEW), ERROR_INVALID_NAME);
  if (!OnWine()) {  // Wine finds no such file, drive or path
    EXPECT_EQ(OpenError(u"\\\\?\\" + Path(std::u16string(256, u'x')), GENERIC_READ), ERROR_INVALID_NAME);
    EXPECT_EQ(OpenError(u"c:c:\\x", GENERIC_READ), ERROR_INVALID_NAME);
    EXPECT_EQ(AttributesError(u"Q:\\missing"), ERROR_PATH_NOT_FOUND);
  }
  EXPECT_EQ(OpenError(u"", GENERIC_READ), ERROR_PATH_NOT_FOUND);
}

TEST_F(FilesOpen, PathsAreNormalizedUnlessLiteral) {
  MakeDirectory(Path(u"a"));
  Put(Path(u"a\\File.txt"));
  for (const char16_t* const name : {u"a/File.txt", u"a\\.\\File.txt", u"a\\b\\..\\File.txt", u"a\\\\File.txt",
                                     u"A\\FILE.TXT", u"a\\File.txt.", u"a\\File.txt  ", u"a.\\File.txt"})
    EXPECT_TRUE(Exists(Path(name))) << testing::PrintToString(std::u16string(name));
  const std::u16string literal = u"\\\\?\\" + Path(u"a");
  EXPECT_TRUE(Exists(literal + u"\\File.txt"));
  EXPECT_EQ(AttributesError(literal + u"\\..\\a"), ERROR_INVALID_NAME);
  if (!OnWine()) {
    EXPECT_EQ(AttributesError(literal + u"\\File.txt."), ERROR_FILE_NOT_FOUND);
  }
}

TEST_F(FilesOpen, LongPathsNeedThePrefix) {
  std::u16string path = u"\\\\?\\" + Path(u"");
  path.pop_back();
  while (path.size() < 300) {
    path += u'\\' + std::u16string(49, u'd');
    MakeDirectory(path);
  }
  EXPECT_TRUE(Exists(path));
  if (OnWine()) return;  // its plain paths may be as long
  EXPECT_EQ(AttributesError(path.substr(4)), ERROR_PATH_NOT_FOUND);
  std::u16string tooLong = Path(std::u16string(100, u'x'));
  tooLong += u'\\' + std::u16string(250 - tooLong.size(), u'y');
  EXPECT_EQ(ErrorOf(CreateDirectoryW(tooLong.c_str(), nullptr)), ERROR_FILENAME_EXCED_RANGE);
}

TEST_F(FilesOpen, SharingIsCheckedBothWays) {
  const std::u16string file = Path(u"file");
  Put(file);
  const struct {
    DWORD access, share, secondAccess, secondShare;
    bool opens;
  } cases[] = {
      {GENERIC_READ, FILE_SHARE_READ, GENERIC_READ, FILE_SHARE_READ, true},
      {GENERIC_READ, FILE_SHARE_READ, GENERIC_WRITE, kShareAll, false},
      {GENERIC_READ, kShareAll, GENERIC_WRITE, FILE_SHARE_WRITE, false},  // the second does not share reading
      {GENERIC_WRITE, FILE_SHARE_READ, GENERIC_READ, FILE_SHARE_READ, false},
      {GENERIC_WRITE, FILE_SHARE_READ, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, true},
      {GENERIC_READ, 0, GENERIC_READ, kShareAll, false},
      {GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, DELETE, kShareAll, false},
      {GENERIC_READ, kShareAll, DELETE, kShareAll, true},
      {FILE_READ_ATTRIBUTES, 0, GENERIC_READ | GENERIC_WRITE, 0, true},  // attributes never conflict
      {GENERIC_READ | GENERIC_WRITE, 0, FILE_WRITE_ATTRIBUTES | READ_CONTROL, 0, true},
      {FILE_APPEND_DATA, FILE_SHARE_READ, FILE_APPEND_DATA, kShareAll, false},
  };
  for (const auto& one : cases) {
    const auto first = Open(file, one.access, one.share);
    ASSERT_TRUE(first);
    EXPECT_EQ(OpenError(file, one.secondAccess, one.secondShare), one.opens ? 0u : ERROR_SHARING_VIOLATION)
        << &one - cases;
  }
  EXPECT_EQ(OpenError(file, GENERIC_ALL, 0), 0u);
}

TEST_F(FilesOpen, DeletionWaitsForTheLastHandle) {
  const std::u16string file = Path(u"file");
  Put(file);
  {
    auto first = Open(file, GENERIC_READ, kShareAll);
    {
      const auto second = Open(file, DELETE, kShareAll, OPEN_EXISTING, FILE_FLAG_DELETE_ON_CLOSE);
      ASSERT_TRUE(second);
      EXPECT_EQ(OpenError(file, GENERIC_READ), 0u);  // not yet marked
    }
    if (!OnWine()) {  // Wine opens the file until it is gone
      EXPECT_EQ(OpenError(file, GENERIC_READ), ERROR_ACCESS_DENIED);
      EXPECT_EQ(OpenError(file, GENERIC_WRITE, 0, CREATE_NEW), ERROR_ACCESS_DENIED);
    }
    EXPECT_EQ(Find(Path(u"f*")).size(), 1u);
    first.reset();
  }
  EXPECT_EQ(AttributesError(file), ERROR_FILE_NOT_FOUND);
}

TEST_F(FilesOpen, NamedStreams) {
  SKIP_ON_WINE("Wine has no alternate streams");
  const std::u16string file = Path(u"file");
  Put(file, "main");
  EXPECT_EQ(OpenError(file + u":s", GENERIC_READ), ERROR_FILE_NOT_FOUND);
  Put(file + u":s", "stream");
  EXPECT_EQ(Get(file), "main");
  EXPECT_EQ(Get(file + u":S:$DATA"), "stream");
  EXPECT_EQ(Get(file + u"::$DATA"), "main");
  for (const char16_t* const bad : {u":", u":s:", u":s:$NONEXIST"})
    EXPECT_EQ(OpenError(file + bad, GENERIC_READ), ERROR_INVALID_NAME);
  {  // sharing is a matter of the stream
    const auto exclusive = Open(file + u":s", GENERIC_READ | GENERIC_WRITE, 0);
    EXPECT_EQ(OpenError(file, GENERIC_WRITE, 0), 0u);
    EXPECT_EQ(OpenError(file + u":s", GENERIC_READ), ERROR_SHARING_VIOLATION);
  }
  EXPECT_TRUE(DeleteFileW((file + u":s").c_str()));
  EXPECT_EQ(OpenError(file + u":s", GENERIC_READ), ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(Get(file), "main");

  MakeDirectory(Path(u"directory"));
  Put(Path(u"directory:s"), "of a directory");
  EXPECT_EQ(Get(Path(u"directory:s")), "of a directory");
  EXPECT_EQ(ErrorOf(CreateDirectoryW(Path(u"new:s").c_str(), nullptr)), ERROR_DIRECTORY);
}

TEST_F(FilesOpen, APipeThatNobodyServesIsNotThere) {
  const char16_t* const pipe = u"\\\\.\\pipe\\nobody serves this";
  EXPECT_EQ(OpenError(pipe, GENERIC_WRITE, 0), ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(ErrorOf(WaitNamedPipeW(pipe, 20000)), ERROR_FILE_NOT_FOUND);
}

}  // namespace
