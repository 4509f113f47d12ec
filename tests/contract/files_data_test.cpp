// Data, positions, sizes, times and attributes.
#include "contract/fixture.h"

using namespace win32;
using namespace contract;

namespace {

using FilesData = FileTest;

FILETIME Time(std::uint64_t count) { return {static_cast<DWORD>(count & 0xFFFFFFFF), static_cast<DWORD>(count >> 32)}; }
bool operator==(const FILETIME& a, const FILETIME& b) {
  return a.dwLowDateTime == b.dwLowDateTime && a.dwHighDateTime == b.dwHighDateTime;
}

constexpr std::uint64_t kYear2001 = 126'227'808'000'000'000;

struct Times {
  FILETIME creation{}, access{}, write{};
};
Times TimesOf(HANDLE handle) {
  Times times;
  EXPECT_TRUE(GetFileTime(handle, &times.creation, &times.access, &times.write));
  return times;
}
Times TimesOf(const std::u16string& path) {
  return TimesOf(Open(path, FILE_READ_ATTRIBUTES, kShareAll, OPEN_EXISTING, kOpenLink).get());
}

void SetTimes(const std::u16string& path, std::uint64_t time) {
  const FILETIME all = Time(time);
  EXPECT_TRUE(
      SetFileTime(Open(path, FILE_WRITE_ATTRIBUTES, kShareAll, OPEN_EXISTING, kOpenLink).get(), &all, &all, &all));
}

TEST_F(FilesData, PositionsAndSizes) {
  const auto file = Open(Path(u"file"), GENERIC_READ | GENERIC_WRITE, 0, CREATE_NEW);
  DWORD done = 0, high = 1;
  ASSERT_TRUE(WriteFile(file.get(), "0123456789", 10, &done, nullptr));
  EXPECT_EQ(GetFileSize(file.get(), &high), 10u);
  EXPECT_EQ(high, 0u);
  EXPECT_EQ(SetFilePointer(file.get(), 0, nullptr, FILE_CURRENT), 10u);
  EXPECT_EQ(SetFilePointer(file.get(), -4, nullptr, FILE_END), 6u);
  char buffer[10] = {};
  EXPECT_TRUE(ReadFile(file.get(), buffer, 10, &done, nullptr));
  EXPECT_EQ(std::string(buffer, done), "6789");
  EXPECT_TRUE(ReadFile(file.get(), buffer, 10, &done, nullptr));  // the end is a success with nothing
  EXPECT_EQ(done, 0u);

  EXPECT_EQ(SetFilePointer(file.get(), -1, nullptr, FILE_BEGIN), INVALID_SET_FILE_POINTER);
  EXPECT_EQ(GetLastError(), ERROR_NEGATIVE_SEEK);
  EXPECT_EQ(SetFilePointer(file.get(), 0, nullptr, 9), INVALID_SET_FILE_POINTER);
  EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
  LONG up = 1;
  EXPECT_EQ(SetFilePointer(file.get(), 5, &up, FILE_BEGIN), 5u);
  EXPECT_EQ(up, 1);
  up = 0;
  EXPECT_EQ(SetFilePointer(file.get(), 4, &up, FILE_BEGIN), 4u);
  EXPECT_TRUE(SetEndOfFile(file.get()));
  EXPECT_EQ(GetFileSize(file.get(), nullptr), 4u);

  EXPECT_EQ(SetFilePointer(file.get(), 8, nullptr, FILE_BEGIN), 8u);  // a gap reads as zeros
  ASSERT_TRUE(WriteFile(file.get(), "x", 1, &done, nullptr));
  SetFilePointer(file.get(), 0, nullptr, FILE_BEGIN);
  EXPECT_TRUE(ReadFile(file.get(), buffer, 10, &done, nullptr));
  EXPECT_EQ(std::string(buffer, done), std::string("0123\0\0\0\0x", 9));
}

TEST_F(FilesData, RightsOfTheHandle) {
  const std::u16string path = Path(u"file");
  Put(path, "0123");
  DWORD done = 9;
  char byte = 0;
  const FILETIME time = Time(kYear2001);
  const auto reader = Open(path, GENERIC_READ, kShareAll);
  EXPECT_EQ(ErrorOf(WriteFile(reader.get(), "x", 1, &done, nullptr)), ERROR_ACCESS_DENIED);
  EXPECT_EQ(done, 0u);
  EXPECT_EQ(ErrorOf(SetEndOfFile(reader.get())), OnWine() ? ERROR_INVALID_PARAMETER : ERROR_ACCESS_DENIED);
  EXPECT_EQ(ErrorOf(FlushFileBuffers(reader.get())), ERROR_ACCESS_DENIED);
  if (!OnWine()) {
    EXPECT_EQ(ErrorOf(SetFileTime(reader.get(), &time, nullptr, nullptr)), ERROR_ACCESS_DENIED);
  }
  const auto writer = Open(path, GENERIC_WRITE, kShareAll);
  EXPECT_EQ(ErrorOf(ReadFile(writer.get(), &byte, 1, &done, nullptr)), ERROR_ACCESS_DENIED);
  const auto appender = Open(path, FILE_APPEND_DATA, kShareAll);
  EXPECT_TRUE(WriteFile(appender.get(), "4", 1, &done, nullptr));
  EXPECT_EQ(Get(path), "01234");
  EXPECT_EQ(ErrorOf(ReadFile(INVALID_HANDLE_VALUE, &byte, 1, &done, nullptr)), ERROR_INVALID_HANDLE);
}

TEST_F(FilesData, SettingTimes) {
  const std::u16string path = Path(u"file");
  Put(path);
  const FILETIME creation = Time(kYear2001), access = Time(kYear2001 + 10'000'000),
                 write = Time(kYear2001 + 20'000'000), leave = Time(0);
  {
    const auto file = Open(path, FILE_WRITE_ATTRIBUTES, kShareAll);
    EXPECT_TRUE(SetFileTime(file.get(), &creation, &access, &write));
    EXPECT_TRUE(SetFileTime(file.get(), nullptr, &leave, nullptr));
  }
  const Times times = TimesOf(path);
  EXPECT_TRUE(times.creation == creation || OnWine());  // Unix keeps none
  EXPECT_TRUE(times.access == access);
  EXPECT_TRUE(times.write == write);
}

TEST_F(FilesData, WritingSetsTheLastWriteTimeUnlessTheHandleKeepsIt) {
  SKIP_ON_WINE("Wine takes all ones without keeping the time");
  const std::u16string path = Path(u"file");
  const FILETIME keep = Time(~std::uint64_t{0});
  DWORD done = 0;
  for (const bool kept : {false, true}) {
    Put(path);
    SetTimes(path, kYear2001);
    {
      const auto file = Open(path, GENERIC_WRITE, 0);
      if (kept) {
        EXPECT_TRUE(SetFileTime(file.get(), &keep, &keep, &keep));
      }
      EXPECT_TRUE(WriteFile(file.get(), "x", 1, &done, nullptr));
    }
    EXPECT_EQ(TimesOf(path).write == Time(kYear2001), kept);
    EXPECT_TRUE(TimesOf(path).creation == Time(kYear2001));
    EXPECT_TRUE(TimesOf(path).access == Time(kYear2001));
  }
  {  // a time set through the handle stays, whatever is written after or before
    const auto file = Open(path, GENERIC_WRITE, 0);
    const FILETIME set = Time(kYear2001);
    EXPECT_TRUE(WriteFile(file.get(), "x", 1, &done, nullptr));
    EXPECT_TRUE(SetFileTime(file.get(), nullptr, nullptr, &set));
    EXPECT_TRUE(WriteFile(file.get(), "x", 1, &done, nullptr));
  }
  EXPECT_TRUE(TimesOf(path).write == Time(kYear2001));
}

TEST_F(FilesData, EntriesThatComeAndGoChangeTheirDirectory) {
  SKIP_ON_WINE("the host's clock is too coarse");
  const std::u16string directory = Path(u"directory"), file = directory + u"\\file", other = directory + u"\\other",
                       child = directory + u"\\child";
  MakeDirectory(directory);
  const auto changes = [&](auto&& act) {
    SetTimes(directory, kYear2001);
    act();
    return !(TimesOf(directory).write == Time(kYear2001));
  };
  EXPECT_TRUE(changes([&] { Put(file); }));
  EXPECT_FALSE(changes([&] { Put(file); }));
  EXPECT_FALSE(changes([&] { Get(file); }));
  EXPECT_TRUE(changes([&] { EXPECT_TRUE(MoveFileW(file.c_str(), other.c_str())); }));
  EXPECT_TRUE(changes([&] { EXPECT_TRUE(CreateHardLinkW(file.c_str(), other.c_str(), nullptr)); }));
  EXPECT_TRUE(changes([&] { EXPECT_TRUE(DeleteFileW(other.c_str())); }));
  EXPECT_TRUE(changes([&] { MakeDirectory(child); }));
  EXPECT_TRUE(changes([&] { EXPECT_TRUE(RemoveDirectoryW(child.c_str())); }));
  EXPECT_FALSE(changes([&] { EXPECT_TRUE(SetFileAttributesW(file.c_str(), FILE_ATTRIBUTE_HIDDEN)); }));
}

TEST_F(FilesData, Attributes) {
  SKIP_ON_WINE("of the attributes Unix keeps none");
  const std::u16string file = Path(u"file"), directory = Path(u"directory");
  Put(file);
  MakeDirectory(directory);
  EXPECT_EQ(GetFileAttributesW(file.c_str()), FILE_ATTRIBUTE_ARCHIVE);
  EXPECT_EQ(GetFileAttributesW(directory.c_str()), FILE_ATTRIBUTE_DIRECTORY);
  EXPECT_TRUE(SetFileAttributesW(file.c_str(), FILE_ATTRIBUTE_NORMAL));
  EXPECT_EQ(GetFileAttributesW(file.c_str()), FILE_ATTRIBUTE_NORMAL);
  EXPECT_TRUE(SetFileAttributesW(file.c_str(), FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM |
                                                   FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_COMPRESSED));
  EXPECT_EQ(GetFileAttributesW(file.c_str()), FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM);
  const auto handle = Open(file, GENERIC_WRITE, 0);
  DWORD done = 0;
  EXPECT_TRUE(WriteFile(handle.get(), "x", 1, &done, nullptr));
  EXPECT_EQ(GetFileAttributesW(file.c_str()), FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM | FILE_ATTRIBUTE_ARCHIVE);
  EXPECT_TRUE(SetFileAttributesW(directory.c_str(), FILE_ATTRIBUTE_READONLY));
  EXPECT_EQ(GetFileAttributesW(directory.c_str()), FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_READONLY);
  Put(directory + u"\\file");  // a read-only directory takes files
  EXPECT_EQ(ErrorOf(SetFileAttributesW(Path(u"missing").c_str(), FILE_ATTRIBUTE_NORMAL)), ERROR_FILE_NOT_FOUND);
}

TEST_F(FilesData, InformationByHandle) {
  const std::u16string path = Path(u"file"), link = Path(u"link");
  Put(path, "12345");
  ASSERT_TRUE(CreateHardLinkW(link.c_str(), path.c_str(), nullptr));
  BY_HANDLE_FILE_INFORMATION one{}, two{};
  EXPECT_TRUE(GetFileInformationByHandle(Open(path, GENERIC_READ, kShareAll).get(), &one));
  EXPECT_TRUE(GetFileInformationByHandle(Open(link, GENERIC_READ, kShareAll).get(), &two));
  EXPECT_EQ(one.nFileSizeLow, 5u);
  EXPECT_EQ(one.nNumberOfLinks, 2u);
  EXPECT_EQ(one.nFileIndexLow, two.nFileIndexLow);
  EXPECT_EQ(one.nFileIndexHigh, two.nFileIndexHigh);
  EXPECT_EQ(one.dwVolumeSerialNumber, two.dwVolumeSerialNumber);
  EXPECT_EQ(ErrorOf(GetFileInformationByHandle(INVALID_HANDLE_VALUE, &one)), ERROR_INVALID_HANDLE);
}

}  // namespace
