// Whole backups of files with every kind of stream, in pieces of every size, and backups that are not what they say.
#include <gtest/gtest.h>

#include <random>

#include "support/images.h"
#include "support/installed_machine.h"
#include "win32/emulated/files/backup_format.h"
#include "win32/emulated/files/file_service.h"
#include "win32/emulated/security/access.h"
#include "win32/handle.h"

namespace {

using emulated::Bytes;
using emulated::ByteView;
using namespace win32;

constexpr DWORD kAllShared = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
constexpr DWORD kLinkFlags = FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OPEN_REPARSE_POINT;

Bytes Noise(std::size_t size, unsigned seed) {
  std::mt19937 random(seed);
  Bytes bytes(size);
  for (auto& byte : bytes) byte = static_cast<std::uint8_t>(random());
  return bytes;
}

class BackupStreams : public ::testing::Test {
 protected:
  BackupStreams() : machine(test::InstalledMachine()) {
    for (const auto* const name : {u"SeBackupPrivilege", u"SeRestorePrivilege", u"SeSecurityPrivilege"})
      machine->process.token->EnablePrivilege(name, true);
  }

  emulated::Volume& volume(char16_t letter) { return *machine->FindByLetter(letter)->volume; }

  emulated::FileId Make(char16_t letter, std::u16string_view name, bool isDirectory = false) {
    const auto descriptor =
        emulated::DescriptorFromText(u"O:SYG:BAD:PAI(D;;WP;;;BG)(A;;FA;;;SY)(A;;FA;;;BA)S:AI(AU;SAFA;FA;;;WD)");
    emulated::FileId file = 0;
    EXPECT_EQ(volume(letter).Create(volume(letter).Root(), name, isDirectory, 0, *descriptor, machine->Now(), file),
              0u);
    return file;
  }

  void Put(emulated::FileId file, std::u16string_view stream, ByteView content, std::uint64_t offset = 0) {
    std::uint64_t size = 0;
    const bool missing = volume(u'C').StreamSize(file, stream, size) != 0;
    EXPECT_TRUE(!missing || volume(u'C').CreateStream(file, stream) == 0);
    EXPECT_EQ(volume(u'C').Write(file, stream, offset, content), 0u);
  }

  // A file of C: with a stream of each kind.
  emulated::FileId MakeRich(std::u16string_view name, bool isDirectory) {
    const emulated::FileId file = Make(u'C', name, isDirectory);
    if (!isDirectory) Put(file, u"", Noise(70001, 1));
    Put(file, u"first", Noise(3333, 2));
    Put(file, u"second", Noise(1, 3));
    EXPECT_EQ(volume(u'C').CreateStream(file, u"empty"), 0u);
    EXPECT_EQ(volume(u'C').CreateStream(file, u"holes"), 0u);
    EXPECT_EQ(volume(u'C').SetSparse(file, u"holes"), 0u);
    EXPECT_EQ(volume(u'C').SetStreamSize(file, u"holes", 0x90007), 0u);
    EXPECT_EQ(volume(u'C').Write(file, u"holes", 0x20000, Noise(0x10000, 4)), 0u);
    EXPECT_EQ(volume(u'C').Write(file, u"holes", 0x60000, Noise(0x11111, 5)), 0u);
    EXPECT_EQ(volume(u'C').SetExtendedAttributes(file, {{0, "ONE", Noise(7, 6)}, {0x80, "SECOND.EA", Noise(260, 7)}}),
              0u);
    EXPECT_EQ(volume(u'C').SetObjectId(file, Noise(64, isDirectory ? 8 : 9)), 0u);
    return file;
  }

  static UniqueFile OpenSource(const std::u16string& path) {
    return UniqueFile(CreateFileW(path.c_str(), GENERIC_READ | ACCESS_SYSTEM_SECURITY, kAllShared, nullptr,
                                  OPEN_EXISTING, kLinkFlags, nullptr));
  }

  static UniqueFile OpenTarget(const std::u16string& path) {
    return UniqueFile(CreateFileW(path.c_str(), GENERIC_ALL | ACCESS_SYSTEM_SECURITY | WRITE_DAC | WRITE_OWNER,
                                  kAllShared, nullptr, OPEN_ALWAYS, kLinkFlags, nullptr));
  }

  // All that BackupRead gives, read in pieces of `size`; the pieces' lengths on request.
  static Bytes ReadAll(HANDLE file, DWORD size, std::vector<DWORD>* lengths = nullptr) {
    Bytes all, piece(size);
    void* context = nullptr;
    DWORD read = 0;
    do {
      if (!BackupRead(file, piece.data(), size, &read, FALSE, TRUE, &context)) {
        ADD_FAILURE() << "BackupRead fails with " << GetLastError();
        break;
      }
      all.insert(all.end(), piece.begin(), piece.begin() + static_cast<std::ptrdiff_t>(read));
      if (lengths) lengths->push_back(read);
    } while (read != 0);
    EXPECT_TRUE(BackupRead(file, nullptr, 0, &read, TRUE, FALSE, &context));
    EXPECT_EQ(context, nullptr);
    return all;
  }

  // 0, or the error of the first BackupWrite that fails.
  static DWORD WriteAll(HANDLE file, Bytes backup, DWORD size) {
    void* context = nullptr;
    DWORD written = 0, error = 0;
    for (std::size_t at = 0; at < backup.size() && error == 0; at += written) {
      const auto count = static_cast<DWORD>(std::min<std::size_t>(size, backup.size() - at));
      if (!BackupWrite(file, backup.data() + at, count, &written, FALSE, TRUE, &context))
        error = GetLastError();
      else
        EXPECT_EQ(written, count);
    }
    EXPECT_TRUE(BackupWrite(file, nullptr, 0, &written, TRUE, FALSE, &context));
    return error;
  }

  Bytes Content(char16_t letter, emulated::FileId file, std::u16string_view stream, std::uint64_t size) {
    Bytes content(size);
    std::size_t done = 0;
    EXPECT_EQ(volume(letter).Read(file, stream, 0, content, done), 0u);
    EXPECT_EQ(done, size);
    return content;
  }

  void ExpectSame(emulated::FileId source, char16_t letter, emulated::FileId copy) {
    Bytes a, b;
    EXPECT_EQ(volume(u'C').GetSecurity(source, a), 0u);
    EXPECT_EQ(volume(letter).GetSecurity(copy, b), 0u);
    const DWORD all =
        OWNER_SECURITY_INFORMATION | GROUP_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION | SACL_SECURITY_INFORMATION;
    std::u16string text = emulated::DescriptorToText(b, all), expected = emulated::DescriptorToText(a, all);
    // Setting a descriptor clears the automatic-inheritance bits unless it asks for them.
    for (std::u16string* const it : {&text, &expected})
      for (std::size_t at = 0; (at = it->find(u"AI(")) != std::u16string::npos;) it->erase(at, 2);
    EXPECT_EQ(text, expected);
    std::vector<emulated::StreamInfo> streams, copied;
    EXPECT_EQ(volume(u'C').Streams(source, streams), 0u);
    EXPECT_EQ(volume(letter).Streams(copy, copied), 0u);
    EXPECT_EQ(copied.size(), streams.size());
    for (const emulated::StreamInfo& stream : streams) {
      std::uint64_t size = 0;
      ASSERT_EQ(volume(letter).StreamSize(copy, stream.name, size), 0u);
      ASSERT_EQ(size, stream.size);
      EXPECT_EQ(Content(letter, copy, stream.name, size), Content(u'C', source, stream.name, size));
      std::vector<emulated::StreamRange> ranges, copiedRanges;
      if (!stream.sparse) continue;
      EXPECT_EQ(volume(u'C').AllocatedRanges(source, stream.name, ranges), 0u);
      EXPECT_EQ(volume(letter).AllocatedRanges(copy, stream.name, copiedRanges), 0u);
      ASSERT_EQ(copiedRanges.size(), ranges.size());
      for (std::size_t i = 0; i < ranges.size(); ++i) EXPECT_EQ(copiedRanges[i].offset, ranges[i].offset);
    }
    std::vector<emulated::ExtendedAttribute> attributes, copiedAttributes;
    EXPECT_EQ(volume(u'C').GetExtendedAttributes(source, attributes), 0u);
    EXPECT_EQ(volume(letter).GetExtendedAttributes(copy, copiedAttributes), 0u);
    ASSERT_EQ(copiedAttributes.size(), attributes.size());
    for (std::size_t i = 0; i < attributes.size(); ++i) {
      EXPECT_EQ(copiedAttributes[i].name, attributes[i].name);
      EXPECT_EQ(copiedAttributes[i].flags, attributes[i].flags);
      EXPECT_EQ(copiedAttributes[i].value, attributes[i].value);
    }
    Bytes id, copiedId;
    EXPECT_EQ(volume(u'C').GetObjectId(source, id), 0u);
    EXPECT_EQ(volume(letter).GetObjectId(copy, copiedId), 0u);
    EXPECT_EQ(copiedId, id);
  }

  emulated::FileId Find(char16_t letter, std::u16string_view path) {
    emulated::FileId file = 0;
    EXPECT_EQ(volume(letter).LookupPath(path, file), 0u);
    return file;
  }

  std::unique_ptr<emulated::Machine> machine;
};

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

TEST_F(BackupStreams, EveryKindOfStreamArrivesWhateverThePieces) {
  const emulated::FileId file = MakeRich(u"rich", false), directory = MakeRich(u"rich folder", true);
  const std::vector<DWORD> sizes = {1, 19, 20, 21, 4096, 1 << 20};
  Bytes first;
  for (const DWORD readSize : sizes) {
    const Bytes backup = ReadAll(OpenSource(u"C:\\rich").get(), readSize);
    if (first.empty()) first = backup;
    ASSERT_EQ(backup, first) << readSize;
  }
  const Bytes ofDirectory = ReadAll(OpenSource(u"C:\\rich folder").get(), 4096);
  for (const DWORD writeSize : sizes) {
    const std::u16string name = u"copy" + std::u16string(1, static_cast<char16_t>(u'a' + (writeSize % 26)));
    // Object ids are unique on a volume: the last copy is taken away first.
    ASSERT_EQ(WriteAll(OpenTarget(u"D:\\" + name).get(), first, writeSize), 0u) << writeSize;
    ExpectSame(file, u'D', Find(u'D', u"\\" + name));
    ASSERT_TRUE(DeleteFileW((u"D:\\" + name).c_str()));
    ASSERT_TRUE(CreateDirectoryW((u"D:\\" + name).c_str(), nullptr));
    ASSERT_EQ(WriteAll(OpenTarget(u"D:\\" + name).get(), ofDirectory, writeSize), 0u) << writeSize;
    ExpectSame(directory, u'D', Find(u'D', u"\\" + name));
    ASSERT_TRUE(RemoveDirectoryW((u"D:\\" + name).c_str()));
  }
}

TEST_F(BackupStreams, OrderAndHeaders) {
  MakeRich(u"rich", false);
  std::vector<Header> headers = Headers(ReadAll(OpenSource(u"C:\\rich").get(), 4096));
  ASSERT_EQ(headers.size(), 11u);
  EXPECT_EQ(headers[0].id, BACKUP_SECURITY_DATA);
  EXPECT_EQ(headers[0].attributes, STREAM_CONTAINS_SECURITY);
  EXPECT_EQ(headers[1].id, BACKUP_EA_DATA);
  EXPECT_EQ(headers[2], (Header{BACKUP_DATA, STREAM_NORMAL_ATTRIBUTE, 70001, u""}));
  // Named streams in whatever order the file has them; the blocks of a sparse one stand behind its empty header.
  std::size_t named = 0, blocks = 0;
  for (std::size_t i = 3; i < 11; ++i) {
    if (headers[i].id == BACKUP_ALTERNATE_DATA) {
      ++named;
      if (headers[i].name != u":holes:$DATA") continue;
      EXPECT_EQ(headers[i].attributes, STREAM_SPARSE_ATTRIBUTE);
      EXPECT_EQ(headers[i].size, 0u);
      ASSERT_LT(i + 3, headers.size());
      EXPECT_EQ(headers[i + 1], (Header{BACKUP_SPARSE_BLOCK, STREAM_SPARSE_ATTRIBUTE, 8 + 0x10000, u""}));
      EXPECT_EQ(headers[i + 3], (Header{BACKUP_SPARSE_BLOCK, STREAM_SPARSE_ATTRIBUTE, 8, u""}));
    } else {
      EXPECT_EQ(headers[i].id, i == 10 ? BACKUP_OBJECT_ID : BACKUP_SPARSE_BLOCK);
      blocks += headers[i].id == BACKUP_SPARSE_BLOCK;
    }
  }
  EXPECT_EQ(named, 4u);
  EXPECT_EQ(blocks, 3u);
}

TEST_F(BackupStreams, ShapesOfSparseFiles) {
  const auto shape = [&](std::uint64_t size, const std::vector<emulated::StreamRange>& written) {
    const emulated::FileId file = Make(u'C', u"sparse");
    EXPECT_EQ(volume(u'C').SetSparse(file, u""), 0u);
    EXPECT_EQ(volume(u'C').SetStreamSize(file, u"", size), 0u);
    for (const auto& range : written)
      EXPECT_EQ(volume(u'C').Write(file, u"", range.offset, Noise(range.length, 1)), 0u);
    const Bytes backup = ReadAll(OpenSource(u"C:\\sparse").get(), 4096);
    EXPECT_EQ(WriteAll(OpenTarget(u"D:\\sparse").get(), backup, 777), 0u);
    emulated::FileInfo copy;
    const emulated::FileId target = Find(u'D', u"\\sparse");
    EXPECT_EQ(volume(u'D').Stat(target, copy), 0u);
    EXPECT_EQ(copy.size, size);
    EXPECT_TRUE(copy.attributes & FILE_ATTRIBUTE_SPARSE_FILE);
    EXPECT_EQ(Content(u'D', target, u"", size), Content(u'C', file, u"", size));
    EXPECT_TRUE(DeleteFileW(u"C:\\sparse") && DeleteFileW(u"D:\\sparse"));
    std::vector<Header> headers = Headers(backup);
    headers.erase(headers.begin());  // the security
    return headers;
  };
  const Header empty{BACKUP_DATA, STREAM_SPARSE_ATTRIBUTE, 0, u""},
      end{BACKUP_SPARSE_BLOCK, STREAM_SPARSE_ATTRIBUTE, 8, u""};
  EXPECT_EQ(shape(0, {}), std::vector{empty});
  EXPECT_EQ(shape(0x40000, {}), (std::vector{empty, end}));
  EXPECT_EQ(shape(0x20000, {{0, 0x20000}}), (std::vector{Header{BACKUP_DATA, STREAM_SPARSE_ATTRIBUTE, 0x20000, u""}}));
  EXPECT_EQ(shape(0x50000, {{0x10000, 0x10000}}),
            (std::vector{empty, Header{BACKUP_SPARSE_BLOCK, STREAM_SPARSE_ATTRIBUTE, 8 + 0x10000, u""}, end}));
}

TEST_F(BackupStreams, ReadStopsAtStreamsWhenToldTo) {
  MakeRich(u"rich", false);
  const Bytes whole = ReadAll(OpenSource(u"C:\\rich").get(), 1 << 20);
  machine->backupReadStopsAtStreams = true;
  std::vector<DWORD> lengths;
  EXPECT_EQ(ReadAll(OpenSource(u"C:\\rich").get(), 1 << 20, &lengths), whole);
  const std::vector<Header> headers = Headers(whole);
  ASSERT_EQ(lengths.size(), headers.size() + 1);
  for (std::size_t i = 0; i < headers.size(); ++i)
    EXPECT_EQ(lengths[i], 20 + 2 * headers[i].name.size() + headers[i].size);
}

TEST_F(BackupStreams, ReparsePointsGoWithTheirData) {
  Bytes symlink;
  const std::u16string target = u"\\??\\C:\\Windows";
  emulated::AppendLittleEndian(symlink, std::uint32_t{IO_REPARSE_TAG_SYMLINK});
  emulated::AppendLittleEndian(symlink, static_cast<std::uint16_t>(12 + target.size() * 2));
  for (const std::size_t field : {std::size_t{0}, std::size_t{0}, target.size() * 2, std::size_t{0}, std::size_t{0},
                                  std::size_t{0}, std::size_t{0}})
    emulated::AppendLittleEndian(symlink, static_cast<std::uint16_t>(field));
  for (const char16_t unit : target) emulated::AppendLittleEndian(symlink, unit);
  const emulated::FileId file = Make(u'C', u"link"), folder = Make(u'C', u"folder link", true);
  ASSERT_EQ(volume(u'C').SetReparse(file, symlink), 0u);
  ASSERT_EQ(volume(u'C').SetReparse(folder, symlink), 0u);
  ASSERT_TRUE(CreateDirectoryW(u"D:\\folder link", nullptr));
  for (const std::u16string name : {u"link", u"folder link"}) {
    const Bytes backup = ReadAll(OpenSource(u"C:\\" + name).get(), 20);
    EXPECT_EQ(Headers(backup).back().id, BACKUP_REPARSE_DATA);
    ASSERT_EQ(WriteAll(OpenTarget(u"D:\\" + name).get(), backup, 20), 0u);
    Bytes copied;
    EXPECT_EQ(volume(u'D').GetReparse(Find(u'D', u"\\" + name), copied), 0u);
    EXPECT_EQ(copied, symlink);
  }
}

TEST_F(BackupStreams, RightsOfTheHandles) {
  MakeRich(u"rich", false);
  const auto open = [](const char16_t* path, DWORD access) {
    return UniqueFile(CreateFileW(path, access, kAllShared, nullptr, OPEN_ALWAYS, FILE_FLAG_BACKUP_SEMANTICS, nullptr));
  };
  // Without ACCESS_SYSTEM_SECURITY there is no SACL in the backup and none is restored.
  const Bytes whole = ReadAll(OpenSource(u"C:\\rich").get(), 4096),
              bare = ReadAll(open(u"C:\\rich", GENERIC_READ).get(), 4096);
  EXPECT_GT(Headers(whole)[0].size, Headers(bare)[0].size);
  EXPECT_EQ(WriteAll(open(u"D:\\plain", GENERIC_ALL).get(), whole, 4096), 0u);
  Bytes descriptor;
  ASSERT_EQ(volume(u'D').GetSecurity(Find(u'D', u"\\plain"), descriptor), 0u);
  EXPECT_EQ(emulated::DescriptorToText(descriptor, SACL_SECURITY_INFORMATION).find(u"(AU"), std::u16string::npos);
  EXPECT_EQ(emulated::DescriptorToText(descriptor, OWNER_SECURITY_INFORMATION), u"O:SY");
  // A handle that may write the data only cannot take security; one that may take it cannot write data without the
  // right.
  EXPECT_EQ(WriteAll(open(u"D:\\data", GENERIC_READ | FILE_WRITE_DATA).get(), whole, 4096), ERROR_ACCESS_DENIED);
  EXPECT_EQ(WriteAll(open(u"D:\\security", WRITE_DAC | WRITE_OWNER | FILE_WRITE_EA).get(), whole, 4096),
            ERROR_ACCESS_DENIED);
  // Someone else is made the owner only with the restore privilege.
  machine->process.token->EnablePrivilege(u"SeRestorePrivilege", false);
  EXPECT_EQ(WriteAll(open(u"D:\\owner", GENERIC_ALL).get(), whole, 4096), ERROR_INVALID_OWNER);
}

TEST_F(BackupStreams, DataIsOverwrittenInPlaceAndCut) {
  Put(Make(u'C', u"short"), u"", Noise(10, 1));
  const Bytes backup = ReadAll(OpenSource(u"C:\\short").get(), 4096);
  const emulated::FileId old = Make(u'D', u"old");
  ASSERT_EQ(volume(u'D').Write(old, u"", 0, Noise(50000, 2)), 0u);
  ASSERT_EQ(WriteAll(OpenTarget(u"D:\\old").get(), backup, 4096), 0u);
  EXPECT_EQ(Find(u'D', u"\\old"), old);
  std::uint64_t size = 0;
  EXPECT_EQ(volume(u'D').StreamSize(old, u"", size), 0u);
  EXPECT_EQ(size, 10u);
  EXPECT_EQ(Content(u'D', old, u"", 10), Noise(10, 1));
}

// With last access updates switched on, only the mark that SetFileTime puts on a handle keeps the time of the source.
TEST_F(BackupStreams, ReadingIsAnAccess) {
  machine->files().lastAccessUpdates = true;
  const emulated::FileId file = Make(u'C', u"read");
  Put(file, u"", Noise(10, 1));
  const auto accessAfterReading = [&](bool keep) {
    machine->Advance(10'000'000);
    {
      const UniqueFile source{CreateFileW(u"C:\\read", GENERIC_READ | FILE_WRITE_ATTRIBUTES, kAllShared, nullptr,
                                          OPEN_EXISTING, kLinkFlags, nullptr)};
      const FILETIME never{0xFFFFFFFF, 0xFFFFFFFF};
      EXPECT_TRUE(!keep || SetFileTime(source.get(), nullptr, &never, nullptr));
      ReadAll(source.get(), 4096);
    }
    emulated::FileInfo info;
    EXPECT_EQ(volume(u'C').Stat(file, info), 0u);
    return info.lastAccess;
  };
  const emulated::FileTime before = machine->Now();
  EXPECT_LE(accessAfterReading(true), before);
  EXPECT_GT(accessAfterReading(false), before);
}

TEST_F(BackupStreams, ObjectIdThatIsTakenIsPassedOver) {
  const emulated::FileId file = MakeRich(u"rich", false);
  ASSERT_EQ(WriteAll(OpenTarget(u"C:\\copy").get(), ReadAll(OpenSource(u"C:\\rich").get(), 4096), 4096), 0u);
  Bytes id;
  EXPECT_EQ(volume(u'C').GetObjectId(file, id), 0u);
  EXPECT_EQ(volume(u'C').GetObjectId(Find(u'C', u"\\copy"), id), ERROR_FILE_NOT_FOUND);
}

TEST_F(BackupStreams, LinkStreamMakesAnotherName) {
  Put(Make(u'C', u"linked"), u"", Noise(5, 1));
  const std::u16string_view path = u"C:\\another name";
  Bytes link;
  emulated::AppendStreamHeader(link, {BACKUP_LINK, 0, (path.size() + 1) * 2, 0});
  for (const char16_t unit : path) emulated::AppendLittleEndian(link, unit);
  emulated::AppendLittleEndian(link, u'\0');
  ASSERT_EQ(WriteAll(OpenTarget(u"C:\\linked").get(), link, 21), 0u);
  EXPECT_EQ(Find(u'C', u"\\another name"), Find(u'C', u"\\linked"));
  // A backup of a file with two names says nothing of them.
  for (const Header& header : Headers(ReadAll(OpenSource(u"C:\\linked").get(), 4096)))
    EXPECT_NE(header.id, BACKUP_LINK);
  EXPECT_EQ(WriteAll(OpenTarget(u"C:\\linked").get(), link, 21), ERROR_ALREADY_EXISTS);
}

TEST_F(BackupStreams, ContextsAreChecked) {
  Make(u'C', u"one");
  const UniqueFile one = OpenSource(u"C:\\one"), two = OpenSource(u"C:\\one");
  BYTE buffer[8];
  DWORD count = 1;
  int notOurs = 0;
  void* context = &notOurs;
  EXPECT_FALSE(BackupRead(one.get(), buffer, 8, &count, FALSE, TRUE, &context));
  EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
  EXPECT_FALSE(BackupRead(one.get(), nullptr, 0, &count, TRUE, TRUE, &context));
  context = nullptr;
  EXPECT_FALSE(BackupRead(reinterpret_cast<HANDLE>(0x7FFF0), buffer, 8, &count, FALSE, TRUE, &context));
  EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
  const std::size_t before = machine->objects.all().size();
  ASSERT_TRUE(BackupRead(one.get(), buffer, 8, &count, FALSE, TRUE, &context));
  EXPECT_EQ(count, 8u);
  EXPECT_FALSE(BackupRead(two.get(), buffer, 8, &count, FALSE, TRUE, &context)) << "a context of another open";
  EXPECT_FALSE(BackupWrite(one.get(), buffer, 8, &count, FALSE, TRUE, &context)) << "a context of a read";
  void* const freed = context;
  EXPECT_TRUE(BackupRead(one.get(), nullptr, 0, &count, TRUE, FALSE, &context));
  EXPECT_EQ(machine->objects.all().size(), before);
  context = freed;
  EXPECT_FALSE(BackupRead(one.get(), buffer, 8, &count, FALSE, TRUE, &context)) << "a context that was freed";
}

TEST_F(BackupStreams, MalformedBackupsAreRefused) {
  const auto refused = [&](emulated::BackupStreamHeader header, std::u16string_view name, Bytes content, DWORD error) {
    Bytes backup;
    emulated::AppendStreamHeader(backup, header, name);
    backup.insert(backup.end(), content.begin(), content.end());
    EXPECT_EQ(WriteAll(OpenTarget(u"D:\\target").get(), backup, 4096), error) << header.id << ' ' << header.size;
  };
  refused({BACKUP_INVALID, 0, 0, 0}, u"", {}, ERROR_INVALID_DATA);
  refused({11, 0, 0, 0}, u"", {}, ERROR_INVALID_DATA);
  refused({BACKUP_DATA, 0, 0x8000000000000000, 0}, u"", {}, ERROR_INVALID_DATA);
  refused({BACKUP_SECURITY_DATA, 0, 0x7FFFFFFF, 0}, u"", {}, ERROR_INVALID_DATA);
  refused({BACKUP_SECURITY_DATA, 0, 40, 0}, u"", Noise(40, 1), ERROR_INVALID_SECURITY_DESCR);
  refused({BACKUP_ALTERNATE_DATA, 0, 0, 0}, u"no colon", {}, ERROR_INVALID_DATA);
  refused({BACKUP_ALTERNATE_DATA, 0, 0, 0}, u":a\\b:$DATA", {}, ERROR_INVALID_DATA);
  refused({BACKUP_SPARSE_BLOCK, 8, 8, 0}, u"", Bytes(8), ERROR_INVALID_DATA);
  refused({BACKUP_OBJECT_ID, 0, 5, 0}, u"", Bytes(5), ERROR_INVALID_DATA);
  refused({BACKUP_EA_DATA, 0, 12, 0}, u"", Bytes(12, 0xFF), ERROR_EA_LIST_INCONSISTENT);
  Bytes block;
  emulated::AppendStreamHeader(block, {BACKUP_DATA, STREAM_SPARSE_ATTRIBUTE, 0, 0});
  emulated::AppendStreamHeader(block, {BACKUP_SPARSE_BLOCK, STREAM_SPARSE_ATTRIBUTE, 100, 0});
  emulated::AppendLittleEndian(block, std::uint64_t{0x7FFFFFFFFFFFFFF0});
  EXPECT_EQ(WriteAll(OpenTarget(u"D:\\target").get(), block, 4096), ERROR_INVALID_DATA);
}

// Whatever a damaged backup does, it does it within its bounds, and the volume stays sound.
TEST_F(BackupStreams, DamagedBackupsDoNoHarm) {
  MakeRich(u"rich", false);
  const Bytes whole = ReadAll(OpenSource(u"C:\\rich").get(), 4096);
  std::mt19937 random(1);
  for (int round = 0; round < 300; ++round) {
    Bytes damaged(whole.begin(), whole.begin() + 1200);
    for (int i = 0; i < 3; ++i) damaged[random() % damaged.size()] = static_cast<std::uint8_t>(random());
    WriteAll(OpenTarget(u"D:\\target").get(), damaged, static_cast<DWORD>(1 + random() % 300));
    DeleteFileW(u"D:\\target");
  }
  std::string error;
  ASSERT_TRUE(machine->Flush(error)) << error;
  const test::TemporaryFolder folder;
  ASSERT_TRUE(machine->Snapshot().at("D.ntfs")->SaveTo(folder / "D.ntfs"));
  const auto check = test::RunCommand("ntfsresize -i -f " + (folder / "D.ntfs").string());
  EXPECT_EQ(check.exitCode, 0) << check.output;
}

// An independent reader of NTFS finds what was restored.
TEST_F(BackupStreams, OtherToolsReadTheResult) {
  MakeRich(u"rich", false);
  ASSERT_EQ(WriteAll(OpenTarget(u"D:\\copy").get(), ReadAll(OpenSource(u"C:\\rich").get(), 4096), 4096), 0u);
  std::string error;
  ASSERT_TRUE(machine->Flush(error)) << error;
  const test::TemporaryFolder folder;
  ASSERT_TRUE(machine->Snapshot().at("D.ntfs")->SaveTo(folder / "D.ntfs"));
  const std::string image = (folder / "D.ntfs").string();
  const auto read = [&](const std::string& stream) {
    const auto result = test::RunCommand("ntfscat -f " + stream + image + " copy | sha1sum");
    return result.output.substr(0, 40);
  };
  const auto expected = [&](const Bytes& content) {
    const auto path = folder / "expected";
    FILE* const file = std::fopen(path.c_str(), "wb");
    std::fwrite(content.data(), 1, content.size(), file);
    std::fclose(file);
    return test::RunCommand("sha1sum < " + path.string()).output.substr(0, 40);
  };
  EXPECT_EQ(read(""), expected(Noise(70001, 1)));
  EXPECT_EQ(read("-n first "), expected(Noise(3333, 2)));
  const std::string information = test::RunCommand("ntfsinfo -f -v -F copy " + image).output;
  EXPECT_NE(information.find("$OBJECT_ID"), std::string::npos);
  EXPECT_NE(information.find("$EA"), std::string::npos);
}

}  // namespace
