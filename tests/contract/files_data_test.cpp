// Positions, last-write times, and what a handle lets do.
#include "contract/fixture.h"

using namespace win32;
using namespace contract;

namespace {

using FilesData = FileTest;

constexpr FILETIME kYear2001{0xC89DC000, 0x01C07385}, kKeep{0xFFFFFFFF, 0xFFFFFFFF}, kLeave{0, 0};

TEST_F(FilesData, PositionsAndTheRightsOfTheHandle) {
  const std::u16string path = Path(u"file"), link = Path(u"link");
  Put(path, "0123456789");
  const auto reader = Open(path, GENERIC_READ, kShareAll), writer = Open(path, GENERIC_WRITE, kShareAll);
  DWORD done = 9;
  char bytes[10] = {};
  EXPECT_EQ(SetFilePointer(reader.get(), -4, nullptr, FILE_END), 6u);
  EXPECT_TRUE(ReadFile(reader.get(), bytes, 10, &done, nullptr) && done == 4);
  EXPECT_TRUE(ReadFile(reader.get(), bytes, 10, &done, nullptr) && done == 0);  // the end is a success with nothing
  EXPECT_EQ(SetFilePointer(reader.get(), -1, nullptr, FILE_BEGIN), INVALID_SET_FILE_POINTER);
  EXPECT_EQ(GetLastError(), ERROR_NEGATIVE_SEEK);
  done = 9;
  EXPECT_EQ(ErrorOf(WriteFile(reader.get(), "x", 1, &done, nullptr)), ERROR_ACCESS_DENIED);
  EXPECT_EQ(done, 0u);
  EXPECT_TRUE(OnWine() || ErrorOf(SetEndOfFile(reader.get())) == ERROR_ACCESS_DENIED);
  EXPECT_EQ(ErrorOf(FlushFileBuffers(reader.get())), ERROR_ACCESS_DENIED);
  EXPECT_TRUE(OnWine() || ErrorOf(SetFileTime(reader.get(), &kYear2001, nullptr, nullptr)) == ERROR_ACCESS_DENIED);
  EXPECT_EQ(SetFilePointer(writer.get(), 4, nullptr, FILE_BEGIN), 4u);
  EXPECT_TRUE(SetEndOfFile(writer.get()));
  EXPECT_EQ(SetFilePointer(writer.get(), 8, nullptr, FILE_BEGIN), 8u);  // a gap reads as zeros
  EXPECT_TRUE(WriteFile(writer.get(), "y", 1, &done, nullptr));
  EXPECT_EQ(Get(path), std::string("0123\0\0\0\0y", 9));

  ASSERT_TRUE(CreateHardLinkW(link.c_str(), path.c_str(), nullptr));
  BY_HANDLE_FILE_INFORMATION one{}, two{};
  EXPECT_TRUE(GetFileInformationByHandle(reader.get(), &one));
  EXPECT_TRUE(GetFileInformationByHandle(Open(link, GENERIC_READ, kShareAll).get(), &two));
  EXPECT_TRUE(one.nFileSizeLow == 9 && one.nNumberOfLinks == 2);
  EXPECT_EQ(std::tuple(one.nFileIndexLow, one.nFileIndexHigh, one.dwVolumeSerialNumber),
            std::tuple(two.nFileIndexLow, two.nFileIndexHigh, two.dwVolumeSerialNumber));
  WIN32_FILE_ATTRIBUTE_DATA named{};
  EXPECT_TRUE(GetFileAttributesExW(link.c_str(), GetFileExInfoStandard, &named));
  EXPECT_EQ(std::tuple(named.nFileSizeLow, named.ftLastWriteTime.dwLowDateTime, named.ftCreationTime.dwLowDateTime),
            std::tuple(9u, one.ftLastWriteTime.dwLowDateTime, one.ftCreationTime.dwLowDateTime));
}

TEST_F(FilesData, WritingSetsTheLastWriteTimeUnlessTheHandleKeepsIt) {
  const std::u16string path = Path(u"file");
  // Sets all times, writes through another handle that sets `first` before and `last` after; is the write time the
  // same?
  const auto isKept = [&](const FILETIME* first, const FILETIME* last) {
    Put(path);
    FILETIME write{};
    DWORD done = 0;
    EXPECT_TRUE(SetFileTime(Open(path, FILE_WRITE_ATTRIBUTES, 0).get(), &kYear2001, &kYear2001, &kYear2001));
    {
      const auto file = Open(path, GENERIC_WRITE, 0);
      EXPECT_TRUE(!first || SetFileTime(file.get(), first, first, first));
      EXPECT_TRUE(first == &kLeave || WriteFile(file.get(), "x", 1, &done, nullptr));
      EXPECT_TRUE(!last || SetFileTime(file.get(), nullptr, nullptr, last));
      EXPECT_TRUE(!last || WriteFile(file.get(), "x", 1, &done, nullptr));
    }
    EXPECT_TRUE(GetFileTime(Open(path, FILE_READ_ATTRIBUTES, 0).get(), nullptr, nullptr, &write));
    return write.dwHighDateTime == kYear2001.dwHighDateTime;
  };
  EXPECT_TRUE(isKept(&kLeave, nullptr));
  SKIP_ON_WINE("Wine takes all ones without keeping the time");
  EXPECT_FALSE(isKept(nullptr, nullptr));
  EXPECT_TRUE(isKept(&kKeep, nullptr));
  EXPECT_TRUE(isKept(nullptr, &kYear2001))
      << "a time set through the handle stays, whatever is written after or before";
}

}  // namespace
