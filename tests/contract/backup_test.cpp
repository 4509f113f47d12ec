// The streams that BackupRead gives of simple files, and what BackupWrite makes of them.
#include <gtest/gtest.h>

#include <cstring>

#include "contract/fixture.h"
#include "win32/file.h"
#include "win32/handle.h"

namespace {

using namespace win32;

struct Stream {
  DWORD id = 0;
  std::u16string name;
  std::string content;
};

class Backup : public contract::FileTest {
 protected:
  void SetUp() override { SKIP_ON_WINE("Wine has neither BackupRead nor BackupWrite"); }

  static UniqueFile Open(const std::u16string& path, DWORD access) {
    return UniqueFile(CreateFileW(path.c_str(), access, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_ALWAYS,
                                  FILE_FLAG_BACKUP_SEMANTICS, nullptr));
  }

  static void Make(const std::u16string& path, std::string_view content) {
    const UniqueFile file = Open(path, GENERIC_WRITE);
    DWORD written = 0;
    ASSERT_TRUE(file && WriteFile(file.get(), content.data(), static_cast<DWORD>(content.size()), &written, nullptr));
  }

  // The whole backup. At its end BackupRead succeeds with nothing.
  static std::vector<BYTE> Read(const std::u16string& path, BOOL security) {
    const UniqueFile file = Open(path, GENERIC_READ);
    std::vector<BYTE> backup(65536);
    void* context = nullptr;
    DWORD read = 0, more = 1;
    EXPECT_TRUE(
        BackupRead(file.get(), backup.data(), static_cast<DWORD>(backup.size()), &read, FALSE, security, &context));
    EXPECT_TRUE(BackupRead(file.get(), backup.data() + read, 100, &more, FALSE, security, &context));
    EXPECT_EQ(more, 0u);
    EXPECT_TRUE(BackupRead(file.get(), nullptr, 0, &more, TRUE, security, &context));
    backup.resize(read);
    return backup;
  }

  static std::vector<Stream> Streams(const std::vector<BYTE>& backup) {
    std::vector<Stream> streams;
    for (std::size_t at = 0; at + 20 <= backup.size();) {
      WIN32_STREAM_ID header;
      std::memcpy(&header, backup.data() + at, 20);
      Stream stream{header.dwStreamId, std::u16string(header.dwStreamNameSize / 2, u'\0'), {}};
      std::memcpy(stream.name.data(), backup.data() + at + 20, header.dwStreamNameSize);
      at += 20 + header.dwStreamNameSize;
      const auto size = static_cast<std::size_t>(header.Size.QuadPart);
      stream.content.assign(reinterpret_cast<const char*>(backup.data()) + at, size);
      at += size;
      streams.push_back(std::move(stream));
    }
    return streams;
  }
};

TEST_F(Backup, PlainFilesAndNamedStreams) {
  Make(Path(u"empty"), "");
  EXPECT_TRUE(Read(Path(u"empty"), FALSE).empty()) << "an empty file has no data stream";
  Make(Path(u"file"), "hello");
  Make(Path(u"file:ads.txt"), "named");
  const std::vector<Stream> streams = Streams(Read(Path(u"file"), FALSE));
  ASSERT_EQ(streams.size(), 2u);
  EXPECT_EQ(streams[0].id, BACKUP_DATA);
  EXPECT_EQ(streams[0].name, u"");
  EXPECT_EQ(streams[0].content, "hello");
  EXPECT_EQ(streams[1].id, BACKUP_ALTERNATE_DATA);
  EXPECT_EQ(streams[1].name, u":ads.txt:$DATA");
  EXPECT_EQ(streams[1].content, "named");
}

TEST_F(Backup, SecurityOnlyWhenAskedFor) {
  Make(Path(u"file"), "hello");
  EXPECT_EQ(Streams(Read(Path(u"file"), FALSE)).front().id, BACKUP_DATA);
  EXPECT_EQ(Streams(Read(Path(u"file"), TRUE)).front().id, BACKUP_SECURITY_DATA);
}

TEST_F(Backup, WhatIsWrittenReplacesTheData) {
  Make(Path(u"file"), "hello");
  Make(Path(u"file:ads.txt"), "named");
  Make(Path(u"copy"), "something longer that was there before");
  std::vector<BYTE> backup = Read(Path(u"file"), FALSE);
  {
    const UniqueFile copy = Open(Path(u"copy"), GENERIC_WRITE);
    void* context = nullptr;
    DWORD written = 0;
    EXPECT_TRUE(
        BackupWrite(copy.get(), backup.data(), static_cast<DWORD>(backup.size()), &written, FALSE, FALSE, &context));
    EXPECT_EQ(written, backup.size());
    EXPECT_TRUE(BackupWrite(copy.get(), nullptr, 0, &written, TRUE, FALSE, &context));
  }
  EXPECT_EQ(Read(Path(u"copy"), FALSE), backup);
}

}  // namespace
