// Opening: dispositions, names, sharing, deleting on close; sections of what is open.
#include "contract/fixture.h"

using namespace win32;
using namespace contract;

namespace {

using FilesOpen = FileTest;

TEST_F(FilesOpen, WhatOpensAndWhatDoesNot) {
  const std::u16string file = Path(u"file"), directory = Path(u"directory"), missing = Path(u"missing"),
                       hidden = Path(u"hidden"), readOnly = Path(u"readOnly");
  for (const auto& path : {file, hidden, readOnly}) Put(path, "old");
  MakeDirectory(directory);
  ASSERT_TRUE(SetFileAttributesW(hidden.c_str(), FILE_ATTRIBUTE_HIDDEN));
  ASSERT_TRUE(SetFileAttributesW(readOnly.c_str(), FILE_ATTRIBUTE_READONLY));
  const bool windows = !OnWine();  // Wine is root, to whom nothing is read-only, and looks at no old attributes
  const struct {
    std::u16string path;
    DWORD access, disposition, error, flags = 0;
    bool known = true;
  } cases[] = {
      {file, GENERIC_READ, 0, ERROR_INVALID_PARAMETER},
      {missing + u"\\child", GENERIC_READ, OPEN_EXISTING, ERROR_PATH_NOT_FOUND},
      {u"", GENERIC_READ, OPEN_EXISTING, ERROR_PATH_NOT_FOUND},
      {file, GENERIC_WRITE, CREATE_NEW, ERROR_FILE_EXISTS},
      {file, GENERIC_READ, TRUNCATE_EXISTING, ERROR_INVALID_PARAMETER, 0, windows},
      {directory, GENERIC_READ, OPEN_EXISTING, ERROR_ACCESS_DENIED},
      {directory, GENERIC_READ, CREATE_ALWAYS, ERROR_ACCESS_DENIED},
      {directory + u"\\", GENERIC_READ | GENERIC_WRITE, OPEN_EXISTING, 0, FILE_FLAG_BACKUP_SEMANTICS},
      {hidden, GENERIC_WRITE, CREATE_ALWAYS, ERROR_ACCESS_DENIED, 0, windows},
      {hidden, GENERIC_WRITE, CREATE_ALWAYS, 0, FILE_ATTRIBUTE_HIDDEN},
      {readOnly, GENERIC_WRITE, OPEN_EXISTING, ERROR_ACCESS_DENIED, 0, windows},
      {readOnly, GENERIC_WRITE, CREATE_ALWAYS, ERROR_ACCESS_DENIED, 0, windows},
      {readOnly, DELETE, OPEN_EXISTING, ERROR_ACCESS_DENIED, FILE_FLAG_DELETE_ON_CLOSE, windows},
      {readOnly, DELETE | FILE_WRITE_ATTRIBUTES | GENERIC_READ, OPEN_EXISTING, 0},
      {Path(u"a*"), GENERIC_WRITE, CREATE_NEW, ERROR_INVALID_NAME},
      {Path(u"a\"b"), GENERIC_WRITE, CREATE_NEW, ERROR_INVALID_NAME},
      {u"\\\\?\\" + Path(std::u16string(256, u'x')), GENERIC_READ, OPEN_EXISTING, ERROR_INVALID_NAME, 0, windows},
      {u"c:c:\\x", GENERIC_READ, OPEN_EXISTING, ERROR_INVALID_NAME, 0, windows},
      {u"\\\\?\\" + missing + u"\\\\", GENERIC_READ, OPEN_EXISTING, ERROR_INVALID_NAME, FILE_FLAG_BACKUP_SEMANTICS},
      {u"\\\\?\\" + directory + u"\\\\", GENERIC_READ, OPEN_EXISTING, ERROR_INVALID_NAME, FILE_FLAG_BACKUP_SEMANTICS},
      {u"Q:\\missing", GENERIC_READ, OPEN_EXISTING, ERROR_PATH_NOT_FOUND, 0, windows},
      {u"\\\\.\\pipe\\nobody serves this", GENERIC_WRITE, OPEN_EXISTING, ERROR_FILE_NOT_FOUND}};
  for (const auto& one : cases) {
    if (!one.known) continue;
    EXPECT_EQ(OpenError(one.path, one.access, kShareAll, one.disposition, one.flags), one.error) << &one - cases;
  }
  EXPECT_EQ(Get(file), "old");
  EXPECT_EQ(ErrorOf(WaitNamedPipeW(u"\\\\.\\pipe\\nobody serves this", 20000)), ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(AttributesError(u"\\\\?\\"), ERROR_INVALID_NAME);
  for (const auto& [path, disposition, error] : {std::tuple(missing, OPEN_ALWAYS, 0u),
                                                 {missing, OPEN_ALWAYS, ERROR_ALREADY_EXISTS},
                                                 {missing, OPEN_EXISTING, 0u},
                                                 {missing, TRUNCATE_EXISTING, 0u},
                                                 {missing + u"3", CREATE_NEW, 0u},
                                                 {missing, CREATE_ALWAYS, ERROR_ALREADY_EXISTS},
                                                 {missing + u"2", CREATE_ALWAYS, 0u}}) {
    SetLastError(0xDEAD);
    EXPECT_TRUE(Open(path, GENERIC_WRITE, 0, disposition));
    EXPECT_EQ(GetLastError(), error);
  }
}

TEST_F(FilesOpen, PathsAreNormalizedUnlessLiteral) {
  MakeDirectory(Path(u"a"));
  Put(Path(u"a\\File.txt"));
  for (const char16_t* const name : {u"a/File.txt", u"a\\.\\File.txt", u"a\\b\\..\\File.txt", u"a\\\\File.txt",
                                     u"A\\FILE.TXT", u"a\\File.txt.", u"a\\File.txt  ", u"a.\\File.txt"})
    EXPECT_TRUE(Exists(Path(name))) << testing::PrintToString(std::u16string(name));
  const std::u16string literal = u"\\\\?\\" + Path(u"a");
  EXPECT_EQ(AttributesError(literal + u"\\..\\a"), ERROR_INVALID_NAME);
  std::u16string path = literal;
  while (path.size() < 300) MakeDirectory(path += u'\\' + std::u16string(49, u'd'));
  EXPECT_TRUE(Exists(path));
  if (OnWine()) return;  // its plain paths may be as long
  EXPECT_EQ(AttributesError(literal + u"\\File.txt."), ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(AttributesError(path.substr(4)), ERROR_PATH_NOT_FOUND);
}

TEST_F(FilesOpen, SharingIsCheckedBothWays) {
  const std::u16string file = Path(u"file");
  Put(file);
  const struct {
    DWORD access, share, secondAccess, secondShare;
    bool opens;
  } cases[] = {
      {GENERIC_READ, FILE_SHARE_READ, GENERIC_WRITE, kShareAll, false},
      {GENERIC_READ, kShareAll, GENERIC_WRITE, FILE_SHARE_WRITE, false},  // the second does not share reading
      {GENERIC_WRITE, FILE_SHARE_READ, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, true},
      {GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, DELETE, kShareAll, false},
      {FILE_READ_ATTRIBUTES, 0, GENERIC_READ | GENERIC_WRITE, 0, true},  // attributes never conflict
      {GENERIC_READ | GENERIC_WRITE, 0, FILE_WRITE_ATTRIBUTES | READ_CONTROL, 0, true},
      {FILE_APPEND_DATA, FILE_SHARE_READ, FILE_APPEND_DATA, kShareAll, false},
  };
  for (const auto& one : cases) {
    const auto first = Open(file, one.access, one.share);
    EXPECT_EQ(OpenError(file, one.secondAccess, one.secondShare), one.opens ? 0u : ERROR_SHARING_VIOLATION)
        << &one - cases;
  }
}

TEST_F(FilesOpen, NamedStreams) {
  SKIP_ON_WINE("Wine has no alternate streams");
  const std::u16string file = Path(u"file");
  Put(file, "main");
  Put(file + u":s", "stream");
  EXPECT_EQ(Get(file + u":S:$DATA"), "stream");
  EXPECT_EQ(Get(file + u"::$DATA"), "main");
  for (const char16_t* const bad : {u":", u":s:", u":s:$NONEXIST"})
    EXPECT_EQ(OpenError(file + bad, GENERIC_READ), ERROR_INVALID_NAME);
  {  // sharing is a matter of the stream
    const auto exclusive = Open(file + u":s", GENERIC_READ | GENERIC_WRITE, 0);
    EXPECT_EQ(OpenError(file, GENERIC_WRITE, 0), 0u);
    EXPECT_EQ(OpenError(file + u":s", GENERIC_READ), ERROR_SHARING_VIOLATION);
  }
  // Whoever has a stream open without FILE_SHARE_DELETE keeps the file from being deleted, but not the other way round.
  for (const bool fileFirst : {true, false})
    for (const DWORD fileShare : {DWORD{0}, FILE_SHARE_DELETE})
      for (const DWORD streamShare : {DWORD{0}, FILE_SHARE_DELETE})
        for (const DWORD fileAccess : {DELETE, FILE_READ_DATA, FILE_WRITE_DATA})
          for (const DWORD streamAccess : {FILE_READ_DATA, FILE_WRITE_DATA, DELETE, FILE_READ_ATTRIBUTES}) {
            const auto first =
                fileFirst ? Open(file, fileAccess, fileShare) : Open(file + u":s", streamAccess, streamShare);
            const bool keeps = fileAccess == DELETE && streamShare == 0 && streamAccess != FILE_READ_ATTRIBUTES;
            EXPECT_EQ(
                fileFirst ? OpenError(file + u":s", streamAccess, streamShare) : OpenError(file, fileAccess, fileShare),
                keeps ? ERROR_SHARING_VIOLATION : 0u)
                << fileFirst << fileShare << streamShare << fileAccess << streamAccess;
          }
  {
    const auto held = Open(file + u":s", GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE);
    EXPECT_EQ(DeleteError(file), ERROR_SHARING_VIOLATION);
    EXPECT_EQ(ErrorOf(MoveFileW(file.c_str(), Path(u"moved").c_str())), ERROR_SHARING_VIOLATION);
  }
  {  // a stream that goes leaves the file open to all
    const auto held = Open(file, GENERIC_READ, kShareAll), stream = Open(file + u":s", GENERIC_READ, kShareAll);
    EXPECT_TRUE(DeleteFileW((file + u":s").c_str()));
    EXPECT_NE(OpenError(file + u":S", GENERIC_READ), 0u) << "5, or 2 where names go at once";
    EXPECT_EQ(Get(file), "main");
  }
  EXPECT_EQ(OpenError(file + u":s", GENERIC_READ), ERROR_FILE_NOT_FOUND);
  Put(file + u":t", "stream");
  {  // a name that goes takes its file's streams with it, when it is the last one
    EXPECT_TRUE(CreateHardLinkW(Path(u"other").c_str(), file.c_str(), nullptr));
    const auto held = Open(file + u":t", GENERIC_READ, kShareAll);
    EXPECT_TRUE(DeleteFileW(file.c_str()));
    EXPECT_NE(OpenError(file, GENERIC_READ), 0u);
    EXPECT_EQ(Get(Path(u"other:t")), "stream");
  }
  EXPECT_FALSE(Exists(file));
  EXPECT_EQ(Get(Path(u"other")), "main");
}

TEST_F(FilesOpen, AViewOfASectionWritesTheFileAndOutlivesItsHandles) {
  const auto section = [](HANDLE file, DWORD size) {
    return UniqueKernelHandle{CreateFileMappingW(file, nullptr, PAGE_READWRITE, 0, size, nullptr)};
  };
  UniqueFile file = Open(Path(u"mapped"), GENERIC_READ | GENERIC_WRITE, 0, OPEN_ALWAYS);
  EXPECT_EQ(ErrorOf(section(file.get(), 0)), ERROR_FILE_INVALID) << "it is empty";
  UniqueKernelHandle mapped = section(file.get(), 7);
  EXPECT_EQ(GetFileSize(file.get(), nullptr), 7u);
  EXPECT_EQ(ErrorOf(MapViewOfFile(mapped.get(), FILE_MAP_WRITE, 0, 1, 1)), ERROR_MAPPED_ALIGNMENT);
  void* const view = MapViewOfFile(mapped.get(), FILE_MAP_READ | FILE_MAP_WRITE, 0, 0, 0);
  ASSERT_TRUE(view);
  const HANDLE closed = file.get();
  mapped.reset();
  file.reset();
  std::memcpy(view, "content", 7);
  EXPECT_TRUE(UnmapViewOfFile(view));
  EXPECT_EQ(ErrorOf(UnmapViewOfFile(view)), ERROR_INVALID_ADDRESS);
  EXPECT_EQ(Get(Path(u"mapped")), "content");
  EXPECT_EQ(ErrorOf(section(closed, 5)), ERROR_INVALID_HANDLE);
  EXPECT_EQ(ErrorOf(section(Open(Path(u"mapped"), GENERIC_READ, 0).get(), 5)), ERROR_ACCESS_DENIED);
}

}  // namespace
