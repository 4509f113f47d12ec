// Sections of files.
#include <cstring>

#include "contract/files_support.h"
#include "contract/fixture.h"

namespace {

using namespace win32;

class FileMapping : public contract::FileTest {
 protected:
  UniqueFile Create(DWORD access = GENERIC_READ | GENERIC_WRITE) {
    return UniqueFile{CreateFileW(path.c_str(), access, 0, nullptr, OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr)};
  }
  std::string Content() {
    const UniqueFile file{CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr)};
    char buffer[100];
    DWORD read = 0;
    EXPECT_TRUE(ReadFile(file.get(), buffer, sizeof buffer, &read, nullptr));
    return {buffer, read};
  }
  const std::u16string path = Path(u"mapped");
};

TEST_F(FileMapping, AViewWritesTheFileThatTheSectionMadeLarge) {
  {
    const UniqueFile file = Create();
    const UniqueKernelHandle section{CreateFileMappingW(file.get(), nullptr, PAGE_READWRITE, 0, 7, nullptr)};
    ASSERT_TRUE(section);
    EXPECT_EQ(GetFileSize(file.get(), nullptr), 7u);
    void* const view = MapViewOfFile(section.get(), FILE_MAP_READ | FILE_MAP_WRITE, 0, 0, 0);
    ASSERT_TRUE(view);
    std::memcpy(view, "content", 7);
    EXPECT_TRUE(UnmapViewOfFile(view));
    EXPECT_FALSE(UnmapViewOfFile(view));
    EXPECT_EQ(GetLastError(), ERROR_INVALID_ADDRESS);
  }
  EXPECT_EQ(Content(), "content");
}

TEST_F(FileMapping, AViewShowsWhatIsThereAndOutlivesTheHandles) {
  UniqueFile file = Create();
  DWORD written = 0;
  ASSERT_TRUE(WriteFile(file.get(), "0123456789", 10, &written, nullptr));
  UniqueKernelHandle section{CreateFileMappingW(file.get(), nullptr, PAGE_READWRITE, 0, 0, nullptr)};
  ASSERT_TRUE(section);
  EXPECT_FALSE(MapViewOfFile(section.get(), FILE_MAP_WRITE, 0, 1, 1));
  EXPECT_EQ(GetLastError(), ERROR_MAPPED_ALIGNMENT);
  EXPECT_FALSE(MapViewOfFile(section.get(), FILE_MAP_WRITE, 0, 0x10000, 1));
  if (!contract::OnWine()) {  // which says 87
    EXPECT_EQ(GetLastError(), ERROR_ACCESS_DENIED);
  }
  void* const view = MapViewOfFile(section.get(), FILE_MAP_READ | FILE_MAP_WRITE, 0, 0, 5);
  ASSERT_TRUE(view);
  section.reset();
  file.reset();
  EXPECT_EQ(std::memcmp(view, "01234", 5), 0);
  std::memcpy(view, "abc", 3);
  EXPECT_TRUE(UnmapViewOfFile(view));
  EXPECT_EQ(Content(), "abc3456789");
}

TEST_F(FileMapping, NeedsAFileWithContentAndBothRights) {
  const UniqueFile empty = Create();
  EXPECT_FALSE(CreateFileMappingW(empty.get(), nullptr, PAGE_READWRITE, 0, 0, nullptr));
  EXPECT_EQ(GetLastError(), ERROR_FILE_INVALID);
  UniqueFile closed{
      CreateFileW(Path(u"closed").c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr)};
  const HANDLE noHandle = closed.get();
  closed.reset();
  EXPECT_FALSE(CreateFileMappingW(noHandle, nullptr, PAGE_READWRITE, 0, 5, nullptr));
  EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
  const UniqueFile readOnly{
      CreateFileW(Path(u"other").c_str(), GENERIC_READ, 0, nullptr, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr)};
  EXPECT_FALSE(CreateFileMappingW(readOnly.get(), nullptr, PAGE_READWRITE, 0, 5, nullptr));
  EXPECT_EQ(GetLastError(), ERROR_ACCESS_DENIED);
}

}  // namespace
