// Whole backups of files with every kind of stream, in pieces of every size, and backups that are not what they say.
#include <fstream>
#include <random>

#include "emulated/on_machine.h"
#include "support/images.h"
#include "win32/emulated/files/backup_format.h"

namespace {

using contract::kOpenLink;
using contract::kShareAll;
using emulated::Bytes;
using emulated::ByteView;
using namespace win32;

Bytes Noise(std::size_t size, unsigned seed) {
  std::mt19937 random(seed);
  Bytes bytes(size);
  for (auto& byte : bytes) byte = static_cast<std::uint8_t>(random());
  return bytes;
}

struct Header {
  DWORD id, attributes;
  std::uint64_t size;
  std::u16string name;
  bool operator==(const Header&) const = default;
};

std::vector<Header> Headers(ByteView backup) {
  std::vector<Header> headers;
  while (!backup.empty()) {
    const auto header = emulated::LoadStreamHeader(backup);
    Header& added = headers.emplace_back(Header{header.id, header.attributes, header.size, {}});
    for (std::size_t at = 0; at < header.nameSize; at += 2)
      added.name += emulated::LoadLittleEndian<char16_t>(backup, 20 + at);
    backup = backup.subspan(20 + header.nameSize + static_cast<std::size_t>(header.size));
  }
  return headers;
}

class BackupStreams : public test::OnWindows {
 protected:
  BackupStreams() {
    for (const auto* const name : {u"SeBackupPrivilege", u"SeRestorePrivilege", u"SeSecurityPrivilege"}) Enable(name);
  }

  emulated::FileId Make(std::u16string_view name, bool isDirectory = false) {
    const auto descriptor =
        emulated::DescriptorFromText(u"O:SYG:BAD:P(D;;WP;;;BG)(A;;FA;;;SY)(A;;FA;;;BA)S:(AU;SAFA;FA;;;WD)");
    emulated::FileId file = 0;
    EXPECT_EQ(volume().Create(volume().Root(), name, isDirectory, 0, *descriptor, machine->Now(), file), 0u);
    return file;
  }
  void Put(emulated::FileId file, std::u16string_view stream, ByteView content, std::uint64_t offset = 0) {
    std::uint64_t size = 0;
    const bool missing = volume().StreamSize(file, stream, size) != 0;
    EXPECT_TRUE(!missing || volume().CreateStream(file, stream) == 0);
    EXPECT_EQ(volume().Write(file, stream, offset, content), 0u);
  }
  void MakeSparse(emulated::FileId file, std::u16string_view stream, std::uint64_t size) {
    EXPECT_EQ(volume().SetSparse(file, stream), 0u);
    EXPECT_EQ(volume().SetStreamSize(file, stream, size), 0u);
  }
  // "rich", a file of C: with a stream of each kind, or a folder with all but data.
  void MakeRich(std::u16string_view name = u"rich", bool isDirectory = false) {
    const emulated::FileId file = Make(name, isDirectory);
    if (!isDirectory) Put(file, u"", Noise(70001, 1));
    Put(file, u"first", Noise(3333, 2));
    Put(file, u"second", Noise(1, 3));
    for (const auto* const empty : {u"empty", u"holes"}) EXPECT_EQ(volume().CreateStream(file, empty), 0u);
    MakeSparse(file, u"holes", 0x90007);
    Put(file, u"holes", Noise(0x10000, 4), 0x20000);
    Put(file, u"holes", Noise(0x11111, 5), 0x60000);
    EXPECT_EQ(volume().SetExtendedAttributes(file, {{0, "ONE", Noise(7, 6)}, {0x80, "SECOND.EA", Noise(260, 7)}}), 0u);
    EXPECT_EQ(volume().SetObjectId(file, Noise(64, isDirectory ? 8 : 9)), 0u);
  }

  static UniqueFile Open(const std::u16string& path, DWORD access, DWORD flags = FILE_FLAG_BACKUP_SEMANTICS) {
    return contract::Open(path, access, kShareAll, OPEN_ALWAYS, flags);
  }
  // All that BackupRead gives, read in pieces of `size`; the pieces' lengths on request.
  static Bytes ReadAll(HANDLE file, DWORD size = 4096, std::vector<DWORD>* lengths = nullptr) {
    Bytes all, piece(size);
    void* context = nullptr;
    DWORD read = 0;
    do {
      EXPECT_EQ(contract::ErrorOf(BackupRead(file, piece.data(), size, &read, FALSE, TRUE, &context)), 0u);
      all.insert(all.end(), piece.begin(), piece.begin() + static_cast<std::ptrdiff_t>(read));
      if (lengths) lengths->push_back(read);
    } while (read != 0 && !HasFailure());
    EXPECT_TRUE(BackupRead(file, nullptr, 0, &read, TRUE, FALSE, &context));
    EXPECT_EQ(context, nullptr);
    return all;
  }
  static Bytes ReadAll(const std::u16string& path, DWORD size = 4096, std::vector<DWORD>* lengths = nullptr) {
    return ReadAll(Open(path, GENERIC_READ | ACCESS_SYSTEM_SECURITY, kOpenLink).get(), size, lengths);
  }
  // 0, or the error of the first BackupWrite that fails.
  static DWORD WriteAll(HANDLE file, Bytes backup, DWORD size = 4096) {
    void* context = nullptr;
    DWORD written = 0, error = 0;
    for (std::size_t at = 0; at < backup.size() && error == 0; at += written) {
      const auto count = static_cast<DWORD>(std::min<std::size_t>(size, backup.size() - at));
      error = contract::ErrorOf(BackupWrite(file, backup.data() + at, count, &written, FALSE, TRUE, &context));
      EXPECT_TRUE(error != 0 || written == count);
    }
    EXPECT_TRUE(BackupWrite(file, nullptr, 0, &written, TRUE, FALSE, &context));
    return error;
  }
  static DWORD WriteAll(const std::u16string& path, const Bytes& backup, DWORD size = 4096) {
    return WriteAll(Open(path, GENERIC_ALL | ACCESS_SYSTEM_SECURITY | WRITE_DAC | WRITE_OWNER, kOpenLink).get(), backup,
                    size);
  }

  // D: as a file for other tools.
  std::string Image() {
    std::string error;
    EXPECT_TRUE(machine->Flush(error)) << error;
    EXPECT_TRUE(machine->Snapshot().at("D.ntfs")->SaveTo(folder_ / "D.ntfs"));
    return (folder_ / "D.ntfs").string();
  }

  const test::TemporaryFolder folder_;
};

TEST_F(BackupStreams, EveryKindOfStreamArrivesWhateverThePieces) {
  MakeRich();
  MakeRich(u"rich folder", true);
  const Bytes whole = ReadAll(u"C:\\rich"), ofDirectory = ReadAll(u"C:\\rich folder");
  for (const DWORD size : {1u, 19u, 20u, 21u, 4096u, 1u << 20}) {
    SCOPED_TRACE(size);
    ASSERT_EQ(ReadAll(u"C:\\rich", size), whole);
    // Object ids are unique on a volume: the last copy is taken away first.
    ASSERT_EQ(WriteAll(u"D:\\copy", whole, size), 0u);
    ASSERT_EQ(ReadAll(u"D:\\copy"), whole);
    ASSERT_TRUE(DeleteFileW(u"D:\\copy") && CreateDirectoryW(u"D:\\copy", nullptr));
    ASSERT_EQ(WriteAll(u"D:\\copy", ofDirectory, size), 0u);
    ASSERT_EQ(ReadAll(u"D:\\copy"), ofDirectory);
    ASSERT_TRUE(RemoveDirectoryW(u"D:\\copy"));
  }
}

TEST_F(BackupStreams, OrderAndHeaders) {
  MakeRich();
  const Bytes whole = ReadAll(u"C:\\rich", 1 << 20);
  const std::vector<Header> headers = Headers(whole);
  ASSERT_EQ(headers.size(), 11u);
  EXPECT_EQ(headers[0].id, BACKUP_SECURITY_DATA);
  EXPECT_EQ(headers[0].attributes, STREAM_CONTAINS_SECURITY);
  EXPECT_EQ(headers[1].id, BACKUP_EA_DATA);
  EXPECT_EQ(headers[2], (Header{BACKUP_DATA, STREAM_NORMAL_ATTRIBUTE, 70001, u""}));
  EXPECT_EQ(headers[10].id, BACKUP_OBJECT_ID);
  // Named streams in whatever order the file has them; the blocks of a sparse one stand behind its empty header.
  std::size_t named = 0;
  for (std::size_t i = 3; i < 10; ++i) {
    named += headers[i].id == BACKUP_ALTERNATE_DATA;
    if (headers[i].name != u":holes:$DATA") continue;
    EXPECT_EQ(headers[i], (Header{BACKUP_ALTERNATE_DATA, STREAM_SPARSE_ATTRIBUTE, 0, u":holes:$DATA"}));
    ASSERT_LT(i + 3, headers.size());
    EXPECT_EQ(headers[i + 1], (Header{BACKUP_SPARSE_BLOCK, STREAM_SPARSE_ATTRIBUTE, 8 + 0x10000, u""}));
    EXPECT_EQ(headers[i + 2].id, BACKUP_SPARSE_BLOCK);
    EXPECT_EQ(headers[i + 3], (Header{BACKUP_SPARSE_BLOCK, STREAM_SPARSE_ATTRIBUTE, 8, u""}));
  }
  EXPECT_EQ(named, 4u);

  // A machine may be told to stop at the end of each.
  machine->backupReadStopsAtStreams = true;
  std::vector<DWORD> lengths;
  EXPECT_EQ(ReadAll(u"C:\\rich", 1 << 20, &lengths), whole);
  ASSERT_EQ(lengths.size(), headers.size() + 1);
  for (std::size_t i = 0; i < headers.size(); ++i)
    EXPECT_EQ(lengths[i], 20 + 2 * headers[i].name.size() + headers[i].size);
}

TEST_F(BackupStreams, ShapesOfSparseFiles) {
  const auto header = [](DWORD id, std::uint64_t size) { return Header{id, STREAM_SPARSE_ATTRIBUTE, size, u""}; };
  const Header empty = header(BACKUP_DATA, 0), end = header(BACKUP_SPARSE_BLOCK, 8);
  const struct {
    std::uint64_t size, writtenAt, written;
    std::vector<Header> headers;
  } cases[] = {{0, 0, 0, {empty}},
               {0x40000, 0, 0, {empty, end}},
               {0x20000, 0, 0x20000, {header(BACKUP_DATA, 0x20000)}},
               {0x50000, 0x10000, 0x10000, {empty, header(BACKUP_SPARSE_BLOCK, 8 + 0x10000), end}}};
  for (const auto& one : cases) {
    const emulated::FileId file = Make(u"sparse");
    MakeSparse(file, u"", one.size);
    Put(file, u"", Noise(one.written, 1), one.writtenAt);
    const Bytes backup = ReadAll(u"C:\\sparse");
    std::vector<Header> headers = Headers(backup);
    headers.erase(headers.begin());  // the security
    EXPECT_EQ(headers, one.headers);
    EXPECT_EQ(WriteAll(u"D:\\sparse", backup, 777), 0u);
    EXPECT_TRUE(GetFileAttributesW(u"D:\\sparse") & FILE_ATTRIBUTE_SPARSE_FILE);
    EXPECT_EQ(ReadAll(u"D:\\sparse"), backup);
    Bytes content(one.size);
    std::size_t done = 0;
    EXPECT_EQ(volume(u'D').Read(Find(u"\\sparse", u'D'), u"", 0, content, done), 0u);
    EXPECT_EQ(done, one.size);
    const auto written = Noise(one.written, 1);
    EXPECT_TRUE(
        std::equal(written.begin(), written.end(), content.begin() + static_cast<std::ptrdiff_t>(one.writtenAt)));
    EXPECT_TRUE(DeleteFileW(u"C:\\sparse") && DeleteFileW(u"D:\\sparse"));
  }
}

TEST_F(BackupStreams, ReparsePointsGoWithTheirData) {
  ASSERT_TRUE(emulated::CreateSymbolicLinkW(u"C:\\link", u"C:\\Windows", 0));
  ASSERT_TRUE(emulated::CreateSymbolicLinkW(u"C:\\folder link", u"C:\\Windows", SYMBOLIC_LINK_FLAG_DIRECTORY));
  ASSERT_TRUE(CreateDirectoryW(u"D:\\folder link", nullptr));
  for (const std::u16string name : {u"link", u"folder link"}) {
    const Bytes backup = ReadAll(u"C:\\" + name, 20);
    EXPECT_EQ(Headers(backup).back().id, BACKUP_REPARSE_DATA);
    ASSERT_EQ(WriteAll(u"D:\\" + name, backup, 20), 0u);
    Bytes original, copied;
    EXPECT_EQ(volume().GetReparse(Find(u"\\" + name), original), 0u);
    EXPECT_EQ(volume(u'D').GetReparse(Find(u"\\" + name, u'D'), copied), 0u);
    EXPECT_EQ(copied, original);
  }
}

TEST_F(BackupStreams, RightsOfTheHandles) {
  MakeRich();
  // Without ACCESS_SYSTEM_SECURITY there is no SACL in the backup and none is restored.
  const Bytes whole = ReadAll(u"C:\\rich"), bare = ReadAll(Open(u"C:\\rich", GENERIC_READ).get());
  EXPECT_GT(Headers(whole)[0].size, Headers(bare)[0].size);
  EXPECT_EQ(WriteAll(Open(u"D:\\plain", GENERIC_ALL).get(), whole), 0u);
  Bytes descriptor;
  ASSERT_EQ(volume(u'D').GetSecurity(Find(u"\\plain", u'D'), descriptor), 0u);
  const auto text = emulated::DescriptorToText(descriptor, OWNER_SECURITY_INFORMATION | SACL_SECURITY_INFORMATION);
  EXPECT_TRUE(text.starts_with(u"O:SY") && text.find(u"(AU") == text.npos);
  // Who may write the data only cannot give security, who may give that cannot write data.
  EXPECT_EQ(WriteAll(Open(u"D:\\data", GENERIC_READ | FILE_WRITE_DATA).get(), whole), ERROR_ACCESS_DENIED);
  EXPECT_EQ(WriteAll(Open(u"D:\\security", WRITE_DAC | WRITE_OWNER | FILE_WRITE_EA).get(), whole), ERROR_ACCESS_DENIED);
  // Someone else is made the owner only with the restore privilege.
  Enable(u"SeRestorePrivilege", false);
  EXPECT_EQ(WriteAll(Open(u"D:\\owner", GENERIC_ALL).get(), whole), ERROR_INVALID_OWNER);
}

// With last access updates switched on, only the mark that SetFileTime puts on a handle keeps the time of the source.
TEST_F(BackupStreams, ReadingIsAnAccess) {
  machine->files().lastAccessUpdates = true;
  const emulated::FileId file = Make(u"read");
  Put(file, u"", Noise(10, 1));
  const emulated::FileTime before = machine->Now();
  for (const bool keep : {true, false}) {
    machine->Advance(10'000'000);
    {
      const auto source = Open(u"C:\\read", GENERIC_READ | FILE_WRITE_ATTRIBUTES);
      const FILETIME never{0xFFFFFFFF, 0xFFFFFFFF};
      EXPECT_TRUE(!keep || SetFileTime(source.get(), nullptr, &never, nullptr));
      ReadAll(source.get());
    }
    emulated::FileInfo info;
    EXPECT_EQ(volume().Stat(file, info), 0u);
    EXPECT_EQ(info.lastAccess <= before, keep);
  }
}

TEST_F(BackupStreams, WhatIsThereOnceIsNotDoubled) {
  MakeRich();
  const Bytes whole = ReadAll(u"C:\\rich");
  ASSERT_EQ(WriteAll(u"C:\\copy", whole), 0u);  // which does without the object id
  Bytes id;
  EXPECT_EQ(volume().GetObjectId(Find(u"\\rich"), id), 0u);
  EXPECT_EQ(volume().GetObjectId(Find(u"\\copy"), id), ERROR_FILE_NOT_FOUND);

  const std::u16string_view path = u"C:\\another name";
  Bytes link;
  emulated::AppendStreamHeader(link, {BACKUP_LINK, 0, (path.size() + 1) * 2, 0});
  for (const char16_t unit : std::u16string(path) + u'\0') emulated::AppendLittleEndian(link, unit);
  ASSERT_EQ(WriteAll(u"C:\\rich", link, 21), 0u);
  EXPECT_EQ(Find(u"\\another name"), Find(u"\\rich"));
  for (const Header& header : Headers(ReadAll(u"C:\\rich")))
    EXPECT_NE(header.id, BACKUP_LINK) << "a backup says nothing of a second name";
  EXPECT_EQ(WriteAll(u"C:\\rich", link, 21), ERROR_ALREADY_EXISTS);
}

TEST_F(BackupStreams, ContextsAreChecked) {
  Make(u"one");
  const auto one = Open(u"C:\\one", GENERIC_READ), two = Open(u"C:\\one", GENERIC_READ);
  BYTE buffer[8];
  DWORD count = 1;
  int notOurs = 0;
  void* context = &notOurs;
  const auto read = [&](HANDLE file, BOOL abort = FALSE) {
    return contract::ErrorOf(BackupRead(file, buffer, abort ? 0 : 8, &count, abort, TRUE, &context));
  };
  EXPECT_EQ(read(one.get()), ERROR_INVALID_PARAMETER);
  EXPECT_NE(read(one.get(), TRUE), 0u);
  context = nullptr;
  EXPECT_EQ(read(reinterpret_cast<HANDLE>(0x7FFF0)), ERROR_INVALID_HANDLE);
  const std::size_t before = machine->objects.all().size();
  ASSERT_EQ(read(one.get()), 0u);
  EXPECT_EQ(count, 8u);
  EXPECT_NE(read(two.get()), 0u) << "a context of another open";
  EXPECT_FALSE(BackupWrite(one.get(), buffer, 8, &count, FALSE, TRUE, &context)) << "a context of a read";
  void* const freed = context;
  EXPECT_EQ(read(one.get(), TRUE), 0u);
  EXPECT_EQ(machine->objects.all().size(), before);
  context = freed;
  EXPECT_NE(read(one.get()), 0u) << "a context that was freed";
}

TEST_F(BackupStreams, MalformedBackupsAreRefused) {
  const struct {
    emulated::BackupStreamHeader header;
    std::u16string_view name;
    Bytes content;
    DWORD error = ERROR_INVALID_DATA;
  } cases[] = {{{BACKUP_INVALID, 0, 0, 0}, u"", {}},
               {{11, 0, 0, 0}, u"", {}},
               {{BACKUP_DATA, 0, 0x8000000000000000, 0}, u"", {}},
               {{BACKUP_SECURITY_DATA, 0, 0x7FFFFFFF, 0}, u"", {}},
               {{BACKUP_SECURITY_DATA, 0, 40, 0}, u"", Noise(40, 1), ERROR_INVALID_SECURITY_DESCR},
               {{BACKUP_ALTERNATE_DATA, 0, 0, 0}, u"no colon", {}},
               {{BACKUP_ALTERNATE_DATA, 0, 0, 0}, u":a\\b:$DATA", {}},
               {{BACKUP_SPARSE_BLOCK, 8, 8, 0}, u"", Bytes(8)},
               {{BACKUP_OBJECT_ID, 0, 5, 0}, u"", Bytes(5)},
               {{BACKUP_EA_DATA, 0, 12, 0}, u"", Bytes(12, 0xFF), ERROR_EA_LIST_INCONSISTENT}};
  for (const auto& one : cases) {
    Bytes backup;
    emulated::AppendStreamHeader(backup, one.header, one.name);
    backup.insert(backup.end(), one.content.begin(), one.content.end());
    EXPECT_EQ(WriteAll(u"D:\\target", backup), one.error) << one.header.id << ' ' << one.header.size;
  }
  Bytes block;
  emulated::AppendStreamHeader(block, {BACKUP_DATA, STREAM_SPARSE_ATTRIBUTE, 0, 0});
  emulated::AppendStreamHeader(block, {BACKUP_SPARSE_BLOCK, STREAM_SPARSE_ATTRIBUTE, 100, 0});
  emulated::AppendLittleEndian(block, std::uint64_t{0x7FFFFFFFFFFFFFF0});
  EXPECT_EQ(WriteAll(u"D:\\target", block), ERROR_INVALID_DATA);
}

// Whatever a damaged backup does, it does it within its bounds, and the volume stays sound.
TEST_F(BackupStreams, DamagedBackupsDoNoHarm) {
  MakeRich();
  const Bytes whole = ReadAll(u"C:\\rich");
  std::mt19937 random(1);
  for (int round = 0; round < 300; ++round) {
    Bytes damaged(whole.begin(), whole.begin() + 1200);
    for (int i = 0; i < 3; ++i) damaged[random() % damaged.size()] = static_cast<std::uint8_t>(random());
    WriteAll(u"D:\\target", damaged, static_cast<DWORD>(1 + random() % 300));
    DeleteFileW(u"D:\\target");
  }
  const auto check = test::RunCommand("ntfsresize -i -f " + Image());
  EXPECT_EQ(check.exitCode, 0) << check.output;
}

// An independent reader of NTFS finds what was restored.
TEST_F(BackupStreams, OtherToolsReadTheResult) {
  MakeRich();
  ASSERT_EQ(WriteAll(u"D:\\copy", ReadAll(u"C:\\rich")), 0u);
  const std::string image = Image(), expected = (folder_ / "expected").string();
  for (const auto& [stream, content] : {std::pair{"", Noise(70001, 1)}, {"-n first ", Noise(3333, 2)}}) {
    std::ofstream(expected, std::ios::binary)
        .write(reinterpret_cast<const char*>(content.data()), static_cast<std::streamsize>(content.size()));
    EXPECT_EQ(test::RunCommand("ntfscat -f " + (stream + image) + " copy | cmp - " + expected).output, "");
  }
  const std::string information = test::RunCommand("ntfsinfo -f -v -F copy " + image).output;
  for (const auto* const part : {"$OBJECT_ID", "$EA"}) EXPECT_NE(information.find(part), std::string::npos) << part;
}

}  // namespace
