// Sections of files.
#include "contract/fixture.h"

namespace {

using namespace contract;
using namespace win32;

class FileMapping : public FileTest {
 protected:
  UniqueFile Create(const char16_t* name, DWORD access = GENERIC_READ | GENERIC_WRITE) {
    return Open(Path(name), access, 0, OPEN_ALWAYS);
  }
  static UniqueKernelHandle Section(HANDLE file, DWORD size) {
    return UniqueKernelHandle{CreateFileMappingW(file, nullptr, PAGE_READWRITE, 0, size, nullptr)};
  }
};

TEST_F(FileMapping, AViewWritesTheFileThatTheSectionMadeLarge) {
  {
    const UniqueFile file = Create(u"mapped");
    const UniqueKernelHandle section = Section(file.get(), 7);
    ASSERT_TRUE(section);
    EXPECT_EQ(GetFileSize(file.get(), nullptr), 7u);
    void* const view = MapViewOfFile(section.get(), FILE_MAP_READ | FILE_MAP_WRITE, 0, 0, 0);
    ASSERT_TRUE(view);
    std::memcpy(view, "content", 7);
    EXPECT_TRUE(UnmapViewOfFile(view));
    EXPECT_EQ(ErrorOf(UnmapViewOfFile(view)), ERROR_INVALID_ADDRESS);
  }
  EXPECT_EQ(Get(Path(u"mapped")), "content");
}

TEST_F(FileMapping, AViewShowsWhatIsThereAndOutlivesTheHandles) {
  Put(Path(u"mapped"), "0123456789");
  UniqueFile file = Create(u"mapped");
  UniqueKernelHandle section = Section(file.get(), 0);
  ASSERT_TRUE(section);
  EXPECT_EQ(ErrorOf(MapViewOfFile(section.get(), FILE_MAP_WRITE, 0, 1, 1)), ERROR_MAPPED_ALIGNMENT);
  const DWORD beyond = ErrorOf(MapViewOfFile(section.get(), FILE_MAP_WRITE, 0, 0x10000, 1));
  EXPECT_EQ(beyond, OnWine() ? ERROR_INVALID_PARAMETER : ERROR_ACCESS_DENIED);
  void* const view = MapViewOfFile(section.get(), FILE_MAP_READ | FILE_MAP_WRITE, 0, 0, 5);
  ASSERT_TRUE(view);
  section.reset();
  file.reset();
  EXPECT_EQ(std::memcmp(view, "01234", 5), 0);
  std::memcpy(view, "abc", 3);
  EXPECT_TRUE(UnmapViewOfFile(view));
  EXPECT_EQ(Get(Path(u"mapped")), "abc3456789");
}

TEST_F(FileMapping, NeedsAFileWithContentAndBothRights) {
  const UniqueFile empty = Create(u"empty"), readOnly = Create(u"other", GENERIC_READ);
  const HANDLE closed = Create(u"closed").get();  // and gone again
  EXPECT_EQ(ErrorOf(Section(empty.get(), 0)), ERROR_FILE_INVALID);
  EXPECT_EQ(ErrorOf(Section(closed, 5)), ERROR_INVALID_HANDLE);
  EXPECT_EQ(ErrorOf(Section(readOnly.get(), 5)), ERROR_ACCESS_DENIED);
}

}  // namespace
