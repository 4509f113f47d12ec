// Data, positions, sizes, times and attributes.
#include "contract/fixture.h"

using namespace win32;
using namespace contract;

namespace {

using FilesData = FileTest;

constexpr FILETIME kYear2001{0xC89DC000, 0x01C07385}, kKeep{0xFFFFFFFF, 0xFFFFFFFF};
bool operator==(const FILETIME& a, const FILETIME& b) {
  return a.dwLowDateTime == b.dwLowDateTime && a.dwHighDateTime == b.dwHighDateTime;
}

struct Times {
  FILETIME creation{}, access{}, write{};
};
Times TimesOf(const std::u16string& path) {
  Times times;
  const auto file = Open(path, FILE_READ_ATTRIBUTES, kShareAll, OPEN_EXISTING, kOpenLink);
  EXPECT_TRUE(GetFileTime(file.get(), &times.creation, &times.access, &times.write));
  return times;
}
void SetTimes(const std::u16string& path, const FILETIME& time = kYear2001) {
  const auto file = Open(path, FILE_WRITE_ATTRIBUTES, kShareAll, OPEN_EXISTING, kOpenLink);
  EXPECT_TRUE(SetFileTime(file.get(), &time, &time, &time));
}

TEST_F(FilesData, PositionsAndSizes) {
  const auto file = Open(Path(u"file"), GENERIC_READ | GENERIC_WRITE, 0, CREATE_NEW);
  DWORD done = 0, high = 1;
  ASSERT_TRUE(WriteFile(file.get(), "0123456789", 10, &done, nullptr));
  EXPECT_EQ(GetFileSize(file.get(), &high), 10u);
  EXPECT_EQ(high, 0u);
  EXPECT_EQ(SetFilePointer(file.get(), -4, nullptr, FILE_END), 6u);
  char buffer[10] = {};
  EXPECT_TRUE(ReadFile(file.get(), buffer, 10, &done, nullptr) && done == 4);
  EXPECT_TRUE(ReadFile(file.get(), buffer, 10, &done, nullptr) && done == 0);  // the end is a success with nothing
  EXPECT_EQ(SetFilePointer(file.get(), -1, nullptr, FILE_BEGIN), INVALID_SET_FILE_POINTER);
  EXPECT_EQ(GetLastError(), ERROR_NEGATIVE_SEEK);
  EXPECT_EQ(SetFilePointer(file.get(), 0, nullptr, 9), INVALID_SET_FILE_POINTER);
  EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
  LONG up = 1;
  EXPECT_EQ(SetFilePointer(file.get(), 5, &up, FILE_BEGIN), 5u);
  EXPECT_EQ(up, 1);
  EXPECT_EQ(SetFilePointer(file.get(), 4, nullptr, FILE_BEGIN), 4u);
  EXPECT_TRUE(SetEndOfFile(file.get()));
  EXPECT_EQ(SetFilePointer(file.get(), 8, nullptr, FILE_BEGIN), 8u);  // a gap reads as zeros
  ASSERT_TRUE(WriteFile(file.get(), "x", 1, &done, nullptr));
  SetFilePointer(file.get(), 0, nullptr, FILE_BEGIN);
  EXPECT_TRUE(ReadFile(file.get(), buffer, 10, &done, nullptr));
  EXPECT_EQ(std::string(buffer, done), std::string("0123\0\0\0\0x", 9));
}

TEST_F(FilesData, RightsOfTheHandle) {
  const std::u16string path = Path(u"file"), link = Path(u"link");
  Put(path, "0123");
  DWORD done = 9;
  char byte = 0;
  const auto reader = Open(path, GENERIC_READ, kShareAll), writer = Open(path, GENERIC_WRITE, kShareAll);
  EXPECT_EQ(ErrorOf(WriteFile(reader.get(), "x", 1, &done, nullptr)), ERROR_ACCESS_DENIED);
  EXPECT_EQ(done, 0u);
  EXPECT_EQ(ErrorOf(SetEndOfFile(reader.get())), OnWine() ? ERROR_INVALID_PARAMETER : ERROR_ACCESS_DENIED);
  EXPECT_EQ(ErrorOf(FlushFileBuffers(reader.get())), ERROR_ACCESS_DENIED);
  EXPECT_TRUE(OnWine() || ErrorOf(SetFileTime(reader.get(), &kYear2001, nullptr, nullptr)) == ERROR_ACCESS_DENIED);
  EXPECT_EQ(ErrorOf(ReadFile(writer.get(), &byte, 1, &done, nullptr)), ERROR_ACCESS_DENIED);
  EXPECT_TRUE(WriteFile(Open(path, FILE_APPEND_DATA, kShareAll).get(), "4", 1, &done, nullptr));
  EXPECT_EQ(Get(path), "01234");
  EXPECT_EQ(ErrorOf(ReadFile(INVALID_HANDLE_VALUE, &byte, 1, &done, nullptr)), ERROR_INVALID_HANDLE);

  ASSERT_TRUE(CreateHardLinkW(link.c_str(), path.c_str(), nullptr));
  BY_HANDLE_FILE_INFORMATION one{}, two{};
  EXPECT_TRUE(GetFileInformationByHandle(reader.get(), &one));
  EXPECT_TRUE(GetFileInformationByHandle(Open(link, GENERIC_READ, kShareAll).get(), &two));
  EXPECT_EQ(one.nFileSizeLow, 5u);
  EXPECT_EQ(one.nNumberOfLinks, 2u);
  EXPECT_EQ(std::tuple(one.nFileIndexLow, one.nFileIndexHigh, one.dwVolumeSerialNumber),
            std::tuple(two.nFileIndexLow, two.nFileIndexHigh, two.dwVolumeSerialNumber));
  EXPECT_EQ(ErrorOf(GetFileInformationByHandle(INVALID_HANDLE_VALUE, &one)), ERROR_INVALID_HANDLE);
}

TEST_F(FilesData, WritingSetsTheLastWriteTimeUnlessTheHandleKeepsIt) {
  const std::u16string path = Path(u"file");
  const FILETIME leave{};
  DWORD done = 0;
  Put(path);
  SetTimes(path);
  EXPECT_TRUE(SetFileTime(Open(path, FILE_WRITE_ATTRIBUTES, kShareAll).get(), nullptr, &leave, nullptr));
  EXPECT_TRUE(TimesOf(path).access == kYear2001 && TimesOf(path).write == kYear2001);
  SKIP_ON_WINE("Wine takes all ones without keeping the time");
  for (const bool kept : {false, true}) {
    Put(path);
    SetTimes(path);
    {
      const auto file = Open(path, GENERIC_WRITE, 0);
      EXPECT_TRUE(!kept || SetFileTime(file.get(), &kKeep, &kKeep, &kKeep));
      EXPECT_TRUE(WriteFile(file.get(), "x", 1, &done, nullptr));
    }
    EXPECT_EQ(TimesOf(path).write == kYear2001, kept);
    EXPECT_TRUE(TimesOf(path).creation == kYear2001 && TimesOf(path).access == kYear2001);
  }
  {  // a time set through the handle stays, whatever is written after or before
    const auto file = Open(path, GENERIC_WRITE, 0);
    EXPECT_TRUE(WriteFile(file.get(), "x", 1, &done, nullptr));
    EXPECT_TRUE(SetFileTime(file.get(), nullptr, nullptr, &kYear2001));
    EXPECT_TRUE(WriteFile(file.get(), "x", 1, &done, nullptr));
  }
  EXPECT_TRUE(TimesOf(path).write == kYear2001);
}

TEST_F(FilesData, EntriesThatComeAndGoChangeTheirDirectory) {
  SKIP_ON_WINE("the host's clock is too coarse");
  const std::u16string directory = Path(u"directory"), file = directory + u"\\file", other = directory + u"\\other";
  MakeDirectory(directory);
  const auto changes = [&](auto&& act) {
    SetTimes(directory);
    act();
    return !(TimesOf(directory).write == kYear2001);
  };
  EXPECT_TRUE(changes([&] { Put(file); }));
  EXPECT_FALSE(changes([&] { Put(file); }));
  EXPECT_TRUE(changes([&] { EXPECT_TRUE(MoveFileW(file.c_str(), other.c_str())); }));
  EXPECT_TRUE(changes([&] { EXPECT_TRUE(CreateHardLinkW(file.c_str(), other.c_str(), nullptr)); }));
  EXPECT_TRUE(changes([&] { EXPECT_TRUE(DeleteFileW(other.c_str())); }));
  EXPECT_TRUE(changes([&] { MakeDirectory(other); }));
  EXPECT_TRUE(changes([&] { EXPECT_TRUE(RemoveDirectoryW(other.c_str())); }));
  EXPECT_FALSE(changes([&] { EXPECT_TRUE(SetFileAttributesW(file.c_str(), FILE_ATTRIBUTE_HIDDEN)); }));
}

TEST_F(FilesData, Attributes) {
  SKIP_ON_WINE("of the attributes Unix keeps none");
  const std::u16string file = Path(u"file"), directory = Path(u"directory");
  Put(file);
  MakeDirectory(directory);
  constexpr DWORD kHidden = FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM;
  EXPECT_EQ(GetFileAttributesW(file.c_str()), FILE_ATTRIBUTE_ARCHIVE);
  EXPECT_EQ(GetFileAttributesW(directory.c_str()), FILE_ATTRIBUTE_DIRECTORY);
  EXPECT_TRUE(SetFileAttributesW(file.c_str(), FILE_ATTRIBUTE_NORMAL));
  EXPECT_EQ(GetFileAttributesW(file.c_str()), FILE_ATTRIBUTE_NORMAL);
  EXPECT_TRUE(SetFileAttributesW(file.c_str(), kHidden | FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_COMPRESSED));
  EXPECT_EQ(GetFileAttributesW(file.c_str()), kHidden);
  DWORD done = 0;
  EXPECT_TRUE(WriteFile(Open(file, GENERIC_WRITE, 0).get(), "x", 1, &done, nullptr));
  EXPECT_EQ(GetFileAttributesW(file.c_str()), kHidden | FILE_ATTRIBUTE_ARCHIVE);
  EXPECT_TRUE(SetFileAttributesW(directory.c_str(), FILE_ATTRIBUTE_READONLY));
  EXPECT_EQ(GetFileAttributesW(directory.c_str()), FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_READONLY);
  Put(directory + u"\\file");  // a read-only directory takes files
  EXPECT_EQ(ErrorOf(SetFileAttributesW(Path(u"missing").c_str(), FILE_ATTRIBUTE_NORMAL)), ERROR_FILE_NOT_FOUND);
}

}  // namespace
