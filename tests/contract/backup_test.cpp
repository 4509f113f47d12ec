// The streams that BackupRead gives of simple files, and what BackupWrite makes of them.
#include "contract/fixture.h"

namespace {

using namespace contract;
using namespace win32;

struct Stream {
  DWORD id;
  std::u16string name;
  std::string content;
  bool operator==(const Stream&) const = default;
};

class Backup : public FileTest {
 protected:
  void SetUp() override { SKIP_ON_WINE("Wine has neither BackupRead nor BackupWrite"); }

  // The whole backup. At its end BackupRead succeeds with nothing.
  std::vector<BYTE> Read(const char16_t* name, BOOL security = FALSE) {
    const UniqueFile file = Open(Path(name), GENERIC_READ, kShareAll);
    std::vector<BYTE> backup(65536);
    void* context = nullptr;
    DWORD read = 0, more = 1;
    EXPECT_TRUE(BackupRead(file.get(), backup.data(), 65536, &read, FALSE, security, &context));
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
      const auto size = static_cast<std::size_t>(header.Size.QuadPart);
      const auto* const name = reinterpret_cast<const char16_t*>(backup.data() + at + 20);
      const auto* const content = reinterpret_cast<const char*>(backup.data()) + at + 20 + header.dwStreamNameSize;
      streams.push_back({header.dwStreamId, {name, header.dwStreamNameSize / 2}, {content, size}});
      at += 20 + header.dwStreamNameSize + size;
    }
    return streams;
  }
};

TEST_F(Backup, PlainFilesAndNamedStreamsAndSecurityOnlyWhenAskedFor) {
  Put(Path(u"empty"), "");
  EXPECT_TRUE(Read(u"empty").empty()) << "an empty file has no data stream";
  Put(Path(u"file"), "hello");
  Put(Path(u"file:ads.txt"), "named");
  EXPECT_EQ(Streams(Read(u"file")),
            (std::vector<Stream>{{BACKUP_DATA, u"", "hello"}, {BACKUP_ALTERNATE_DATA, u":ads.txt:$DATA", "named"}}));
  EXPECT_EQ(Streams(Read(u"file", TRUE)).front().id, BACKUP_SECURITY_DATA);
}

TEST_F(Backup, WhatIsWrittenReplacesTheData) {
  Put(Path(u"file"), "hello");
  Put(Path(u"file:ads.txt"), "named");
  Put(Path(u"copy"), "something longer that was there before");
  std::vector<BYTE> backup = Read(u"file");
  {
    const UniqueFile copy = Open(Path(u"copy"), GENERIC_WRITE, kShareAll);
    void* context = nullptr;
    DWORD written = 0;
    EXPECT_TRUE(
        BackupWrite(copy.get(), backup.data(), static_cast<DWORD>(backup.size()), &written, FALSE, FALSE, &context));
    EXPECT_EQ(written, backup.size());
    EXPECT_TRUE(BackupWrite(copy.get(), nullptr, 0, &written, TRUE, FALSE, &context));
  }
  EXPECT_EQ(Read(u"copy"), backup);
}

}  // namespace
