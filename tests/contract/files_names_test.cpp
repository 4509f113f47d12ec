// Making, removing, moving, copying, linking and finding names.
#include <algorithm>

#include "contract/fixture.h"

using namespace win32;
using namespace contract;

namespace {

using FilesNames = FileTest;

using Text = const std::u16string&;
DWORD MakeError(Text path) { return ErrorOf(CreateDirectoryW(path.c_str(), nullptr)); }
DWORD MoveError(Text from, Text to) { return ErrorOf(MoveFileW(from.c_str(), to.c_str())); }
DWORD ReplaceError(Text from, Text to) {
  return ErrorOf(MoveFileExW(from.c_str(), to.c_str(), MOVEFILE_REPLACE_EXISTING));
}
DWORD CopyError(Text from, Text to, DWORD failIfExists = 0) {
  return ErrorOf(CopyFileExW(from.c_str(), to.c_str(), nullptr, nullptr, nullptr, failIfExists));
}

TEST_F(FilesNames, MakingRemovingAndDeleting) {
  const std::u16string directory = Path(u"directory"), child = directory + u"\\child", file = Path(u"file");
  EXPECT_EQ(MakeError(directory), 0u);
  EXPECT_EQ(MakeError(directory + u"\\"), ERROR_ALREADY_EXISTS);
  Put(file);
  Put(child);
  EXPECT_EQ(MakeError(file), ERROR_ALREADY_EXISTS);
  EXPECT_EQ(MakeError(file + u"\\child"), ERROR_PATH_NOT_FOUND);
  EXPECT_EQ(MakeError(u"Q:\\x"), OnWine() ? ERROR_FILE_NOT_FOUND : ERROR_PATH_NOT_FOUND);
  EXPECT_EQ(RemoveError(directory), ERROR_DIR_NOT_EMPTY);
  EXPECT_EQ(RemoveError(child), ERROR_DIRECTORY);
  EXPECT_EQ(DeleteError(directory), ERROR_ACCESS_DENIED);
  EXPECT_EQ(DeleteError(child), 0u);
  for (const auto& [path, remove] : {std::pair{directory, &RemoveError}, {file, &DeleteError}}) {
    {
      const auto open = Open(path, GENERIC_READ, FILE_SHARE_READ, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS);
      EXPECT_EQ(remove(path), ERROR_SHARING_VIOLATION);
    }
    if (!OnWine()) {  // which is root, to whom nothing is read-only
      ASSERT_TRUE(SetFileAttributesW(path.c_str(), FILE_ATTRIBUTE_READONLY));
      EXPECT_EQ(remove(path), ERROR_ACCESS_DENIED);
      ASSERT_TRUE(SetFileAttributesW(path.c_str(), FILE_ATTRIBUTE_NORMAL));
    }
    EXPECT_EQ(remove(path), 0u);
  }
}

// Windows takes these for devices, whatever folder they are looked for in; files of such names are reached by "\\?\".
TEST_F(FilesNames, NamesOfDevices) {
  const std::u16string nul = Path(u"nul");
  Put(Path(u"nulx"));
  EXPECT_EQ(CopyError(Path(u"nulx"), nul), 0u);
  EXPECT_EQ(Find(nul), std::vector<std::u16string>{u"nul"});
  EXPECT_EQ(Find(u"lpt1"), std::vector<std::u16string>{u"lpt1"});
  EXPECT_EQ(FindError(nul + u"\\*"), ERROR_PATH_NOT_FOUND);
  EXPECT_EQ(FindError(nul + u"y*"), ERROR_FILE_NOT_FOUND);
  DWORD done = 0;
  char byte = 'x';
  const auto open = Open(nul, GENERIC_READ | GENERIC_WRITE, 0, CREATE_ALWAYS);
  EXPECT_TRUE(WriteFile(open.get(), &byte, 1, &done, nullptr) && done == 1);
  EXPECT_TRUE(ReadFile(open.get(), &byte, 1, &done, nullptr) && done == 0 && GetFileSize(open.get(), nullptr) == 0);
  EXPECT_EQ(DeleteError(nul), ERROR_INVALID_PARAMETER);
  EXPECT_EQ(FindError(Path(u"missing\\con")), ERROR_PATH_NOT_FOUND);
  EXPECT_EQ(OpenError(Path(u"missing\\nul"), GENERIC_WRITE, 0, CREATE_ALWAYS), ERROR_PATH_NOT_FOUND);
}

TEST_F(FilesNames, NamesOfDevicesAreFilesBehindThePrefixAlone) {
  SKIP_ON_WINE("it makes folders of these names, and knows fewer of them");
  for (const char16_t* const name :
       {u"nul", u"NUL.txt", u"con", u"prn.a.b", u"aux.c", u"com1", u"Com9.log", u"lpt1 .x", u"lpt\u00b3", u"nul. "}) {
    const std::u16string plain = Path(name), literal = u"\\\\?\\" + plain;
    for (const char16_t* const file : {u"nulx", u"com10", u"com0", u"x.nul"}) Put(Path(file));
    EXPECT_EQ(MakeError(plain), ERROR_DIRECTORY);
    EXPECT_EQ(DeleteError(literal), ERROR_FILE_NOT_FOUND);
    Put(literal, "content");
    EXPECT_EQ(GetFileAttributesW(plain.c_str()), FILE_ATTRIBUTE_ARCHIVE);
    EXPECT_NE(DeleteError(plain), 0u);
    EXPECT_EQ(DeleteError(literal), 0u);
  }
  EXPECT_EQ(GetFileAttributesW(u"C:nul:"), FILE_ATTRIBUTE_ARCHIVE);
  EXPECT_EQ(CopyError(Path(u"nulx"), Path(u"nul.txt")), 0u);
  EXPECT_EQ(AttributesError(u"\\\\?\\" + Path(u"nul.txt")), ERROR_FILE_NOT_FOUND) << "it keeps nothing";
}

TEST_F(FilesNames, ACopyThatIsStoppedLeavesNothing) {
  SKIP_ON_WINE("it asks nobody whether to go on");
  const std::u16string file = Path(u"file"), copy = Path(u"copy");
  Put(file, std::string(3'000'000, 'x'));
  for (DWORD answer : {PROGRESS_CONTINUE, PROGRESS_CANCEL}) {
    const LPPROGRESS_ROUTINE routine = [](LARGE_INTEGER, LARGE_INTEGER, LARGE_INTEGER, LARGE_INTEGER, DWORD, DWORD,
                                          HANDLE, HANDLE, void* data) { return *static_cast<DWORD*>(data); };
    const BOOL done = CopyFileExW(file.c_str(), copy.c_str(), routine, &answer, nullptr, 0);
    EXPECT_EQ(ErrorOf(done), done ? 0 : ERROR_REQUEST_ABORTED);
    EXPECT_TRUE(Exists(copy) == done && done == (answer == PROGRESS_CONTINUE));
  }
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
    ASSERT_TRUE(SetFileAttributesW(file.c_str(), FILE_ATTRIBUTE_READONLY));
    EXPECT_EQ(mark(toDelete(file), TRUE), ERROR_ACCESS_DENIED);
    ASSERT_TRUE(SetFileAttributesW(file.c_str(), FILE_ATTRIBUTE_NORMAL));
  }
  auto open = toDelete(file);
  EXPECT_EQ(mark(open, TRUE) + mark(open, FALSE), 0u);
  open.reset();
  EXPECT_TRUE(Exists(file)) << "it stays after all";
  open = toDelete(file);
  EXPECT_EQ(mark(open, TRUE), 0u);
  EXPECT_TRUE(OnWine() || OpenError(file, GENERIC_READ) == ERROR_ACCESS_DENIED);
  open.reset();
  EXPECT_EQ(AttributesError(file), ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(mark(toDelete(directory), TRUE), 0u);
  EXPECT_FALSE(Exists(directory));
}

TEST_F(FilesNames, Moving) {
  const std::u16string a = Path(u"a"), b = Path(u"b"), directory = Path(u"directory"), other = Path(u"other");
  Put(a, "a");
  Put(b, "b");
  MakeDirectory(directory);
  MakeDirectory(other);
  EXPECT_EQ(MoveError(a, Path(u"missing\\new")), ERROR_PATH_NOT_FOUND);
  EXPECT_EQ(MoveError(a, b), ERROR_ALREADY_EXISTS);
  EXPECT_EQ(MoveError(directory, other), ERROR_ALREADY_EXISTS);
  EXPECT_EQ(ReplaceError(a, directory), ERROR_ACCESS_DENIED);
  {
    const auto open = Open(a, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE);
    EXPECT_EQ(MoveError(a, Path(u"new")), ERROR_SHARING_VIOLATION);
  }
  if (!OnWine()) {  // which renames what is open, replaces it, and deletes what is moved to nothing
    const auto open = Open(b, GENERIC_READ, kShareAll);
    EXPECT_EQ(ReplaceError(a, b), ERROR_ACCESS_DENIED);
    EXPECT_EQ(ErrorOf(MoveFileExW(b.c_str(), nullptr, 0)), ERROR_INVALID_PARAMETER);
    Put(directory + u"\\child");
    const auto child = Open(directory + u"\\child", GENERIC_READ, kShareAll);
    EXPECT_EQ(MoveError(directory, Path(u"moved")), ERROR_ACCESS_DENIED);
    EXPECT_EQ(MoveError(other, Path(u"other\\below")), ERROR_SHARING_VIOLATION);
  }
  {
    const auto open = Open(a, FILE_READ_ATTRIBUTES, 0);
    EXPECT_EQ(ReplaceError(a, b), 0u);
  }
  EXPECT_EQ(Get(b), "a");
  const std::u16string elsewhere = OtherVolume();
  if (elsewhere.empty()) return;
  EXPECT_EQ(MoveError(directory, elsewhere + u"\\directory"), ERROR_NOT_SAME_DEVICE);
  EXPECT_EQ(ErrorOf(MoveFileExW(b.c_str(), (elsewhere + u"\\b").c_str(), 0)), ERROR_NOT_SAME_DEVICE);
  EXPECT_EQ(MoveError(b, elsewhere + u"\\b"), 0u);
  EXPECT_EQ(Get(elsewhere + u"\\b"), "a");
  EXPECT_FALSE(Exists(b));
}

TEST_F(FilesNames, Copying) {
  const std::u16string a = Path(u"a"), b = Path(u"b"), directory = Path(u"directory");
  Put(a, "a");
  MakeDirectory(directory);
  EXPECT_EQ(CopyError(directory, b), ERROR_ACCESS_DENIED);
  EXPECT_EQ(CopyError(a, directory), ERROR_ACCESS_DENIED);
  EXPECT_EQ(CopyError(a, b), 0u);
  EXPECT_EQ(CopyError(a, b, TRUE), ERROR_FILE_EXISTS);
  EXPECT_TRUE(OnWine() || CopyError(a, a) == ERROR_SHARING_VIOLATION);
  const struct {
    DWORD access, share, error;
  } held[] = {{GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ, ERROR_SHARING_VIOLATION},
              {DELETE, kShareAll, ERROR_SHARING_VIOLATION},
              {GENERIC_READ | GENERIC_WRITE, FILE_SHARE_WRITE, 0},
              {GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, 0}};
  for (const auto& one : held) {
    Put(b, "old");
    {
      const auto open = Open(b, one.access, one.share);
      SetLastError(0xDEAD);
      EXPECT_EQ(CopyError(a, b), one.error) << &one - held;
      EXPECT_EQ(GetLastError(), one.error) << "0 after a success, too";
    }
    EXPECT_EQ(Get(b), one.error == 0 ? "a" : "old");
  }
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
}

TEST_F(FilesNames, Searching) {
  for (const char16_t* const name : {u"b.txt", u"A.TXT", u"_c"}) Put(Path(name));
  std::vector<std::u16string> names = Find(Path(u"*")), expected{u".", u"..", u"A.TXT", u"b.txt", u"_c"};
  if (OnWine()) std::ranges::sort(names), std::ranges::sort(expected);  // it has the host's order
  EXPECT_EQ(names, expected);
  EXPECT_EQ(Find(Path(u"a.txt")), std::vector<std::u16string>{u"A.TXT"});
  for (const std::u16string& directory : {Path(u""), std::u16string(u"C:\\")})
    EXPECT_EQ(FindError(directory), ERROR_FILE_NOT_FOUND);
  EXPECT_TRUE(OnWine() || FindError(Path(u"missing\\")) == ERROR_PATH_NOT_FOUND);
  EXPECT_EQ(FindError(Path(u"missing\\*")), ERROR_PATH_NOT_FOUND);
  EXPECT_TRUE(OnWine() || FindError(Path(u"b.txt\\*")) == ERROR_DIRECTORY);
  for (const std::u16string& name : Find(u"C:\\*")) EXPECT_FALSE(name == u"." || name == u"..");
}

TEST_F(FilesNames, ShortNames) {
  WIN32_FIND_DATAW found{};
  const auto shortName = [&](const std::u16string& path) {
    EXPECT_TRUE(UniqueFind(FindFirstFileW(path.c_str(), &found)));
    return std::u16string(found.cAlternateFileName);
  };
  const std::u16string file = Path(u"Letter to Jan.html"), moved = Path(u"moved to.html");
  Put(file, "Dear Jan");
  const std::u16string name = shortName(file), byShort = Path(name);
  if (name.empty() && Path(u"") != u"C:\\Scratch\\") GTEST_SKIP() << "the volume makes none";  // the workstation's do
  EXPECT_EQ(Get(byShort), "Dear Jan");
  EXPECT_EQ(OpenError(byShort, GENERIC_WRITE, 0, CREATE_NEW), ERROR_FILE_EXISTS);
  for (const std::u16string& pattern : {byShort, byShort.substr(0, byShort.size() - 3) + u'*', file})
    EXPECT_EQ(Find(pattern), std::vector<std::u16string>{u"Letter to Jan.html"});
  char16_t path[300];
  EXPECT_LT(GetFinalPathNameByHandle()(Open(byShort, GENERIC_READ, kShareAll).get(), path, 300, 0), 300u);
  EXPECT_EQ(std::u16string(path).substr(4), file);
  EXPECT_TRUE(CreateHardLinkW(moved.c_str(), byShort.c_str(), nullptr));  // a further link has none
  BY_HANDLE_FILE_INFORMATION facts{};
  EXPECT_TRUE(GetFileInformationByHandle(Open(byShort, 0, kShareAll).get(), &facts) && facts.nNumberOfLinks == 2);
  EXPECT_TRUE(OnWine() || (name == u"LETTER~1.HTM" && shortName(moved).empty()));  // Wine has rules of its own
  EXPECT_EQ(DeleteError(moved) + MoveError(byShort, moved), 0u);
  EXPECT_EQ(DeleteError(byShort), ERROR_FILE_NOT_FOUND);
}

}  // namespace
