// What copies are made of: the streams of files and folders, in pieces of every size, and folders made after others.
#include "contract/backups.h"

namespace {

using namespace contract;
using namespace win32;

class Backups : public FileTest {
 protected:
  void SetUp() override { SKIP_ON_WINE("BackupRead and BackupWrite fail with 50"); }

  static Bytes Read(const std::u16string& path, DWORD size = 4096, std::string* reads = nullptr) {
    return ReadBackup(Open(path, GENERIC_READ, FILE_SHARE_READ, OPEN_EXISTING, kOpenLink), size, reads);
  }
  static DWORD Write(const std::u16string& path, const Bytes& backup, DWORD size = 4096) {
    return WriteBackup(Open(path, GENERIC_ALL, kShareAll, OPEN_ALWAYS, kOpenLink), backup, size);
  }
  // Number, name and size of each stream; the size of a descriptor is left out.
  static std::string Streams(const Bytes& backup) {
    std::string text;
    constexpr std::size_t kHeader = 20;
    for (std::size_t at = 0, end = 0; at + kHeader <= backup.size(); at = end) {
      WIN32_STREAM_ID header{};
      std::memcpy(&header, backup.data() + at, kHeader);
      text += std::to_string(header.dwStreamId) + " ";
      for (at += kHeader, end = at + header.dwStreamNameSize; at < end; at += 2) text += static_cast<char>(backup[at]);
      text += header.dwStreamId == BACKUP_SECURITY_DATA ? "" : std::to_string(header.Size.QuadPart) + " ";
      end += static_cast<std::size_t>(header.Size.QuadPart);
    }
    return text;
  }
};

// No public test asserts that a read goes on behind the end of a stream: the copy in chunks stands on it.
TEST_F(Backups, ReadsGoOnBehindTheEndOfAStreamAndPiecesBeginAndEndAnywhere) {
  const std::u16string path = Path(u"file"), copy = Path(u"copy");
  Put(path, "content");
  Put(path + u":s", "stream");
  UniqueLocalMemory security;  // one without the mark of inheritance, which would not be written back
  ASSERT_TRUE(ConvertStringSecurityDescriptorToSecurityDescriptorW(u"D:P(A;;FA;;;WD)", 1, security.put(), nullptr));
  ASSERT_TRUE(SetFileSecurityW(path.c_str(), DACL_SECURITY_INFORMATION, security.get()));
  // One extended attribute: no next one, no flags, 3 bytes of name, 2 bytes of value.
  const Bytes attribute{2, 0, 0, 0, 0, 0, 0, 0, 14, 0, 0, 0,   0,   0,   0, 0,   0,
                        0, 0, 0, 0, 0, 0, 0, 0, 3,  2, 0, 'O', 'n', 'e', 0, 'x', 'y'};
  ASSERT_EQ(Write(path, attribute), 0u);
  std::string reads;
  const Bytes whole = Read(path, 4096, &reads);
  RecordProperty("StreamsOfAFile", Streams(whole));
  RecordProperty("BytesOfItsReads", reads);
  EXPECT_EQ(Streams(whole), "3 2 14 1 7 4 :s:$DATA6 ");
  EXPECT_EQ(reads, std::to_string(whole.size()) + " 0 ");
  for (const DWORD size : {20u, 21u, 100u}) {
    EXPECT_EQ(Read(path, size), whole) << size;
    EXPECT_EQ(Write(copy, whole, size), 0u) << size;
    EXPECT_EQ(Read(copy), whole) << size;
    EXPECT_EQ(DeleteError(copy), 0u);
  }
}

TEST_F(Backups, FoldersAndJunctionsHaveNoDataOfTheirOwn) {
  const std::u16string folder = Path(u"folder"), junction = Path(u"junction"), copy = Path(u"copy");
  for (const std::u16string& path : {folder, copy}) MakeDirectory(path);
  Put(folder + u":s", "stream");
  MakeJunction(junction, ObjectName(folder));
  const Bytes whole = Read(junction), data = JunctionData(ObjectName(folder));
  EXPECT_EQ(Streams(Read(copy)) + Streams(Read(folder)), "3 3 4 :s:$DATA6 ");
  EXPECT_EQ(Streams(whole), "3 8 " + std::to_string(data.size()) + " ");
  EXPECT_TRUE(std::equal(data.rbegin(), data.rend(), whole.rbegin()));
  EXPECT_EQ(Write(copy, whole, 21), 0u);
  EXPECT_EQ(Get(copy + u":s"), "stream") << "it is a junction, too";
}

using Folders = FileTest;

TEST_F(Folders, OpenAlwaysAndAreMadeAfterOneAnother) {
  const std::u16string folder = Path(u"folder"), made = Path(u"made"), none = Path(u"none");
  const auto make = [&](const std::u16string& path) {
    return ErrorOf(CreateDirectoryExW(folder.c_str(), path.c_str(), nullptr));
  };
  MakeDirectory(folder);
  const auto open = Open(folder, GENERIC_READ, kShareAll, OPEN_ALWAYS, FILE_FLAG_BACKUP_SEMANTICS);
  EXPECT_EQ(GetLastError(), ERROR_ALREADY_EXISTS);
  EXPECT_NE(GetFileSize(open.get(), nullptr), INVALID_FILE_SIZE);
  RecordProperty("SizeOfAFolder", std::to_string(GetFileSize(open.get(), nullptr)));
  EXPECT_EQ(make(folder), ERROR_ALREADY_EXISTS);
  EXPECT_EQ(make(none + u"\\x"), ERROR_PATH_NOT_FOUND);
  if (OnWine()) return;  // it passes over the template
  Put(folder + u":s", "stream");
  ASSERT_TRUE(SetFileAttributesW(folder.c_str(), FILE_ATTRIBUTE_HIDDEN));
  EXPECT_EQ(make(made), 0u);
  EXPECT_EQ(GetFileAttributesW(made.c_str()), FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_HIDDEN);
  EXPECT_EQ(Get(made + u":s"), "stream");
}

}  // namespace
