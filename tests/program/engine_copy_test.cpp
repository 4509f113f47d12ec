// The copy of single items: what arrives, how it is read and written, and what refuses.
#include "program/everything.h"

namespace {

using namespace test;
using namespace win32;
using emulated::Utf8;

class BackupCopies : public Engine {
 protected:
  std::string Traced(const std::function<void()>& action) {
    machine->debugOutput.clear();
    action();
    return Utf8(machine->debugOutput);
  }
  static std::uint64_t LastAccess(const std::u16string& path) {
    const UniqueFile file{CreateFileW(path.c_str(), FILE_READ_ATTRIBUTES, 7, nullptr, OPEN_EXISTING,
                                      FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OPEN_REPARSE_POINT, nullptr)};
    FILETIME access{};
    EXPECT_TRUE(GetFileTime(file.get(), nullptr, &access, nullptr));
    return std::uint64_t{access.dwHighDateTime} << 32 | access.dwLowDateTime;
  }
  const std::u16string from = source + u"\\item", to = target + u"\\item";
};

TEST_F(BackupCopies, AnItemKeepsAllThatItHas) {
  machine->files().lastAccessUpdates = true;
  unsigned number = 0;
  for (const bool isFolder : {false, true})
    for (const bool byStreams : {false, true}) {
      const std::u16string item = from + static_cast<char16_t>(u'0' + ++number), copy = target + item.substr(7);
      isFolder ? MakeFolder(item) : MakeFile(item, "main contents");
      MakeFile(item + u":notes", "in a stream");
      SetSecurity(item, u"O:SYD:P(A;OICI;FA;;;BA)(A;;FR;;;WD)S:(AU;FA;FA;;;WD)");
      ASSERT_TRUE(SetFileAttributesW(item.c_str(), FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN));
      SetTimes(item, number);
      const std::uint64_t accessed = LastAccess(item);
      ASSERT_EQ((byStreams ? BackupCopyEx : BackupCopy)(item, copy, {.isDirectory = isFolder}), 1);
      EXPECT_EQ(LastAccess(copy), accessed) << "before it was copied";
      EXPECT_EQ(Describe(copy), Describe(item));
      const std::u16string security = Security(item), audit = u"S:(AU;FA;FA;;;WD)";
      ASSERT_TRUE(security.ends_with(audit));
      EXPECT_EQ(Security(copy) + (byStreams ? audit : u""), security) << "stream by stream without the audit entries";
    }
  // What stands there is overwritten to its end.
  for (const char* contents : {"new", ""}) {
    MakeFile(from, contents);
    MakeFile(to, "an older and much longer text");
    ASSERT_EQ(BackupCopy(from, to), 1);
    EXPECT_EQ(Contents(to), contents);
  }
}

TEST_F(BackupCopies, EverySizeArrivesWhole) {
  for (const std::size_t size : {0u, 1u, 19u, 20u, 21u, 4096u, 0xFFFFFu, 0x100000u, 0x100001u, 0x250000u}) {
    std::string contents(size, '\0');
    for (std::size_t i = 0; i < size; ++i) contents[i] = static_cast<char>(i * 7 + i / 251);
    MakeFile(from, contents);
    ASSERT_EQ(BackupCopy(from, to), 1) << size;
    EXPECT_TRUE(Contents(to) == contents) << size;
    ASSERT_EQ(BackupCopyEx(from, to + u"ex"), 1) << size;
    EXPECT_TRUE(Contents(to + u"ex") == contents) << size;
  }
  // If reads stopped at the end of each stream, the first would end the copy - too early, and that must show.
  machine->backupReadStopsAtStreams = true;
  EXPECT_EQ(BackupCopy(from, to), 0);
}

// Whom the copy keeps out, and whom it lets in, is in the access and the share modes of its opens.
TEST_F(BackupCopies, ReadsAndWritesAsABackup) {
  MakeFile(from, std::string(0x100000, 'x'));
  SetTimes(from, 1);
  // The copy's times are set; where accesses are noted, the file system is told to keep the time of the source's last.
  const std::string times =
      "SetFileTime(0x3E9:0x1D00001, 0x3EA:0x1D00001, 0x3EB:0x1D00001)\n"
      "SetFileTime(null, 0xFFFFFFFF:0xFFFFFFFF, null)\n";
  EXPECT_EQ(Calls("CreateFileW BackupRead BackupWrite SetFileTime",
                  [&] { BackupCopy(from, to, {.leaveParentTimes = true}); }),
            "CreateFileW(\"C:\\Data\\item\", 0x81000000, 1, 3, 0x2000000)\n"
            "CreateFileW(\"D:\\Target\\item\", 0x110C0000, 3, 4, 0x2000000)\n"
            "BackupRead(0x100000, 0, 1)\nBackupWrite(0x100000, 0, 1)\n"
            "BackupRead(0x100000, 0, 1)\nBackupWrite(0xC8, 0, 1)\nBackupRead(0x100000, 0, 1)\n"
            "BackupRead(0, 1, 1)\nBackupWrite(0, 1, 1)\n" +
                times);
  MakeFile(from, "x");
  SetTimes(from, 1);
  const std::string calls =
      Calls("CreateFileW BackupWrite SetFileTime", [&] { BackupCopyEx(from, to, {.leaveParentTimes = true}); });
  EXPECT_TRUE(calls.starts_with("CreateFileW(\"C:\\Data\\item\", 0x80000000, 1, 3, 0x2000000)\n"
                                "CreateFileW(\"D:\\Target\\item\", 0x10000000, 3, 4, 0x2000000)\n") &&
              calls.ends_with("BackupWrite(0, 1, 1)\n" + times))
      << calls;
}

TEST_F(BackupCopies, AFailureOnTheWayFails) {
  MakeFile(from, std::string(3'000'000, 'x'));
  const std::string read = "#ERROR: BackupCopy: BackupRead() failed for path = C:\\Data\\item",
                    write = "#ERROR: BackupCopy: BackupWrite() failed for path = D:\\Target\\item",
                    ofSource = "#ERROR: BackupCopy: CreateFile() failed for path = C:\\Data\\item",
                    ofTarget = "#ERROR: BackupCopy: CreateFile() failed for path = D:\\Target\\item";
  const struct {
    const char* call;
    unsigned nth;
    std::string traced = {};
  } cases[] = {{"BackupRead", 1, read},   {"BackupRead", 2, read},      {"BackupRead", 3, read},
               {"BackupRead", 4, read},   {"BackupWrite", 1, write},    {"BackupWrite", 2, write},
               {"BackupWrite", 3, write}, {"CreateFileW", 1, ofSource}, {"CreateFileW", 2, ofTarget},
               {"CreateFileW", 3},        {"CreateFileW", 4},           {"SetEndOfFile", 1, ofTarget},
               {"GetFileSize", 1},        {"GetFileTime", 1},           {"SetFileTime", 3},
               {"GetFileAttributesW", 1}, {"GetFileAttributesW", 2},    {"GetFileInformationByHandle", 1},
               {"SetFileTime", 1}};
  for (const auto& [call, nth, traced] : cases)
    for (const bool streams : {false, true}) {
      if (streams && call == std::string_view("GetFileSize")) continue;
      SCOPED_TRACE(call + std::to_string(nth) + (streams ? " by streams" : " by chunks"));
      MakeFile(to, "old");
      machine->gate.FailCall(call, nth, ERROR_DISK_FULL);
      EXPECT_EQ(Traced([&] { EXPECT_EQ((streams ? BackupCopyEx : BackupCopy)(from, to, {}), 0); }),
                streams ? "" : traced);
      machine->gate.ClearFailures();
    }
}

// A junction that leads nowhere, and cannot be opened, counts as copied.
TEST_F(BackupCopies, AJunctionThatCannotBeOpenedGivesItsAttributes) {
  const std::u16string junction = source + u"\\j", folder = source + u"\\f";
  ASSERT_EQ(CreateJunction(junction.c_str(), u"C:\\nowhere"), 1);
  MakeFolder(folder);
  ASSERT_TRUE(SetFileAttributesW(junction.c_str(), FILE_ATTRIBUTE_HIDDEN));
  for (const DWORD error : {ERROR_FILE_NOT_FOUND, ERROR_PATH_NOT_FOUND, ERROR_ACCESS_DENIED})
    for (const std::u16string& item : {junction, folder}) {
      const std::u16string copy = to + static_cast<char16_t>(u'0' + error) + item.back();
      machine->gate.FailCall("CreateFileW", 1, error);
      const bool counts = item == junction && error != ERROR_ACCESS_DENIED;
      EXPECT_EQ(BackupCopy(item, copy, {.isDirectory = true}), counts ? 1 : 0) << error;
      EXPECT_EQ(Attributes(copy), FILE_ATTRIBUTE_DIRECTORY | (counts ? FILE_ATTRIBUTE_HIDDEN : 0u)) << error;
    }
}

// The workstation encrypts nothing: what is asked of it shows.
TEST_F(BackupCopies, EncryptedItemsAreCopiedByTheShell) {
  MakeFile(from, "secret");
  SetTimes(from, 4);
  SetTimes(source, 5);
  const auto copy = [](const std::u16string& item, const std::u16string& copied, bool isFolder = false) {
    return BackupCopy(item, copied, {.isDirectory = isFolder, .isEncrypted = true});
  };
  EXPECT_EQ(Calls("BackupRead SHFileOperationW", [&] { EXPECT_EQ(copy(from, to), 1); }),
            "SHFileOperationW(2, \"C:\\Data\\item\", \"D:\\Target\\item\")\n");
  EXPECT_EQ(Describe(to), Describe(from));
  EXPECT_EQ(Describe(target), Describe(source));
  for (const auto& [call, nth] : {std::pair{"SHFileOperationW", 1u}, {"GetFileTime", 1u}, {"GetFileTime", 2u}}) {
    machine->gate.FailCall(call, nth, ERROR_ACCESS_DENIED);
    EXPECT_EQ(copy(from, to), 0) << call << nth;
  }
  const std::u16string folder = from + u"s", copied = to + u"s";
  MakeFolder(folder);
  MakeFile(folder + u":note", "of the folder");
  EXPECT_EQ(Calls("BackupRead EncryptFileW",
                  [&] {
                    EXPECT_EQ(copy(folder, copied, true) + copy(folder, copied, true) + copy(from + u"none", to, true),
                              2);
                  }),
            "EncryptFileW(\"D:\\Target\\items\")\n");
  EXPECT_EQ(Contents(copied + u":note"), "of the folder");
}

TEST_F(BackupCopies, ParentTimesFollowUnlessItIsADriveRoot) {
  MakeFile(from, "x");
  const auto followed = [&](const std::u16string& item, const std::u16string& copy) {
    SetTimes(source, 5);
    SetTimes(target, 9);
    EXPECT_EQ(CopyParentDirectoryTimes(item, copy), 1);
    return Describe(target) == Describe(source);
  };
  EXPECT_TRUE(followed(from, to));
  EXPECT_FALSE(followed(u"C:\\f", to) || followed(u"\\\\?\\C:\\f", to) || followed(from, u"D:\\f"));
  for (const auto& [item, copy] : {std::pair{std::u16string(u"f"), to}, {from, u"f"}, {u"C:\\none\\f", to}})
    EXPECT_EQ(CopyParentDirectoryTimes(item, copy), 0);
}

// Streams as no file of the workstation has them.
class Streams : public BackupCopies {
 protected:
  static constexpr std::uint64_t kBuffer = 0x100000, kEndless = INT64_MAX;
  static void Append(emulated::Bytes& bytes, std::uint64_t value, int size) {
    for (; size > 0; --size, value >>= 8) bytes.push_back(static_cast<std::uint8_t>(value));
  }
  // A header that promises `size` bytes behind a name of `name` bytes, and `given` bytes after it.
  static emulated::Bytes Stream(DWORD id, DWORD attributes, std::uint64_t size, DWORD name, std::size_t given) {
    emulated::Bytes bytes;
    Append(bytes, id, 4), Append(bytes, attributes, 4), Append(bytes, size, 8), Append(bytes, name, 4);
    for (std::size_t i = 0; i < given; ++i) bytes.push_back(static_cast<std::uint8_t>(i * 7 + i / 253));
    return bytes;
  }
};

TEST_F(Streams, AreCopiedOrRefusedByTheirHeaders) {
  MakeFile(from, "x");
  constexpr std::size_t kAll = 0;
  const struct {
    const char* what;
    DWORD id, attributes;
    std::uint64_t size;
    DWORD name;
    std::size_t given;
    bool copied;
    std::size_t written;  // bytes that reach the target until the refusal
  } cases[] = {{"no kind", BACKUP_INVALID, 0, 8, 0, 8, false, 20},
               {"hard link", BACKUP_LINK, 0, 8, 0, 8, false, 20},
               {"unknown", 11, 0, 100, 8, 108, true, kAll},
               {"extended attributes", BACKUP_EA_DATA, 0, kBuffer + 1, 0, kBuffer + 1, true, kAll},
               {"changed by reading", BACKUP_DATA, STREAM_MODIFIED_WHEN_READ, 8, 0, 8, false, 20},
               {"and secret", BACKUP_DATA, STREAM_MODIFIED_WHEN_READ | STREAM_CONTAINS_SECURITY, 8, 0, 8, false, 20},
               {"just secret", BACKUP_DATA, STREAM_CONTAINS_SECURITY, 8, 0, 8, true, kAll},
               {"security", BACKUP_SECURITY_DATA, 0, kBuffer, 0, kBuffer, true, kAll},
               {"too much security", BACKUP_SECURITY_DATA, 0, kBuffer + 1, 0, kBuffer + 1, false, 20},
               {"object id", BACKUP_OBJECT_ID, 0, kBuffer + 1, 0, kBuffer + 1, false, 20},
               {"reparse data", BACKUP_REPARSE_DATA, 0, kBuffer + 1, 0, kBuffer + 1, false, 20},
               {"named", BACKUP_ALTERNATE_DATA, 0, kBuffer + 1, 8, kBuffer + 9, true, kAll},
               {"name without end", BACKUP_ALTERNATE_DATA, 0, 8, kBuffer + 1, kBuffer + 9, false, 20},
               {"named too short", BACKUP_ALTERNATE_DATA, 0, 8, 8, 15, false, 28},
               {"data too short", BACKUP_DATA, 0, 100, 0, 99, false, 20},
               {"endless", BACKUP_DATA, 0, kEndless, 0, kBuffer, false, 20 + kBuffer},
               {"below nothing", BACKUP_DATA, 0, kEndless + 1, 0, kBuffer, false, 20}};
  for (const auto& [what, id, attributes, size, name, given, copied, written] : cases) {
    SCOPED_TRACE(what);
    const emulated::Bytes bytes = Stream(id, attributes, size, name, given);
    machine->scriptedBackup = {bytes, {}};
    EXPECT_EQ(BackupCopyEx(from, to), copied ? 1 : 0);
    const std::size_t expected = written == kAll ? bytes.size() : written;
    EXPECT_TRUE(machine->scriptedBackup->written ==
                emulated::Bytes(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(expected)))
        << machine->scriptedBackup->written.size();
  }
  for (const std::size_t header : {0u, 19u}) {
    machine->scriptedBackup = {emulated::Bytes(header, 1), {}};
    EXPECT_EQ(BackupCopyEx(from, to), header == 0 ? 1 : 0);
    EXPECT_TRUE(machine->scriptedBackup->written.empty());
  }
}

}  // namespace
