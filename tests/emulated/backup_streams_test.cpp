// Whole backups of files with every kind of stream, in pieces of every size, and backups that are not what they say.
#include <random>

#include "contract/backups.h"
#include "emulated/on_machine.h"
#include "win32/emulated/files/backup_format.h"

namespace {

using contract::kOpenLink;
using contract::ReadBackup, contract::WriteBackup;
using emulated::Bytes;
using namespace win32;

Bytes Noise(std::size_t size, unsigned seed) {
  std::mt19937 random(seed);
  Bytes bytes(size);
  for (auto& byte : bytes) byte = static_cast<std::uint8_t>(random());
  return bytes;
}

class BackupStreams : public test::OnMachine {
 protected:
  BackupStreams() {
    for (const auto* const name : {u"SeBackupPrivilege", u"SeRestorePrivilege", u"SeSecurityPrivilege"}) Enable(name);
    MakeRich(u"rich", false);
    MakeRich(u"rich folder", true);
  }

  // A file of C: with a stream of each kind, or a folder with all but data.
  void MakeRich(std::u16string_view name, bool isDirectory) {
    const auto descriptor =
        emulated::DescriptorFromText(u"O:SYG:BAD:P(D;;WP;;;BG)(A;;FA;;;SY)(A;;FA;;;BA)S:(AU;SAFA;FA;;;WD)");
    emulated::FileId file = 0;
    EXPECT_EQ(volume().Create(volume().Root(), name, isDirectory, 0, *descriptor, machine->Now(), file), 0u);
    for (const auto* const stream : {u"first", u"empty", u"holes"}) EXPECT_EQ(volume().CreateStream(file, stream), 0u);
    EXPECT_EQ(volume().SetSparse(file, u"holes"), 0u);
    EXPECT_EQ(volume().SetStreamSize(file, u"holes", 0x90007), 0u);
    EXPECT_TRUE(isDirectory || volume().Write(file, u"", 0, Noise(70001, 1)) == 0);
    EXPECT_EQ(volume().Write(file, u"first", 0, Noise(3333, 2)), 0u);
    EXPECT_EQ(volume().Write(file, u"holes", 0x20000, Noise(0x10000, 4)), 0u);
    EXPECT_EQ(volume().Write(file, u"holes", 0x60000, Noise(0x11111, 5)), 0u);
    EXPECT_EQ(volume().SetExtendedAttributes(file, {{0, "ONE", Noise(7, 6)}, {0x80, "SECOND.EA", Noise(260, 7)}}), 0u);
    EXPECT_EQ(volume().SetObjectId(file, Noise(64, isDirectory ? 8 : 9)), 0u);
  }

  static UniqueFile Open(const std::u16string& path, DWORD access, DWORD flags = FILE_FLAG_BACKUP_SEMANTICS) {
    return contract::Open(path, access, contract::kShareAll, OPEN_ALWAYS, flags);
  }
  static Bytes ReadAll(const std::u16string& path, DWORD size = 4096) {
    return ReadBackup(Open(path, GENERIC_READ | ACCESS_SYSTEM_SECURITY, kOpenLink), size);
  }
  static DWORD WriteAll(const std::u16string& path, const Bytes& backup, DWORD size = 4096) {
    return WriteBackup(Open(path, GENERIC_ALL | ACCESS_SYSTEM_SECURITY | WRITE_DAC | WRITE_OWNER, kOpenLink), backup,
                       size);
  }
};

TEST_F(BackupStreams, EveryKindOfStreamArrivesWhateverThePieces) {
  const Bytes whole = ReadAll(u"C:\\rich"), ofDirectory = ReadAll(u"C:\\rich folder");
  for (const DWORD size : {1u, 20u, 21u, 1u << 20}) {
    ASSERT_EQ(ReadAll(u"C:\\rich", size), whole);
    // Object ids are unique on a volume: the last copy is taken away first.
    ASSERT_EQ(WriteAll(u"D:\\copy", whole, size), 0u);
    ASSERT_EQ(ReadAll(u"D:\\copy"), whole);
    ASSERT_TRUE(DeleteFileW(u"D:\\copy") && CreateDirectoryW(u"D:\\copy", nullptr));
    ASSERT_EQ(WriteAll(u"D:\\copy", ofDirectory, size), 0u);
    ASSERT_EQ(ReadAll(u"D:\\copy"), ofDirectory);
    ASSERT_TRUE(RemoveDirectoryW(u"D:\\copy"));
  }
  machine->backupReadStopsAtStreams = true;
  EXPECT_EQ(ReadAll(u"C:\\rich", 1 << 20), whole);
}

TEST_F(BackupStreams, ObeyTheRightsOfTheirHandles) {
  // Without ACCESS_SYSTEM_SECURITY there is no SACL in the backup and none is restored.
  const Bytes whole = ReadAll(u"C:\\rich"), bare = ReadBackup(Open(u"C:\\rich", GENERIC_READ));
  EXPECT_GT(whole.size(), bare.size());
  EXPECT_EQ(WriteBackup(Open(u"D:\\plain", GENERIC_ALL), whole), 0u);
  Bytes descriptor;
  ASSERT_EQ(volume(u'D').GetSecurity(Find(u"\\plain", u'D'), descriptor), 0u);
  const auto text = emulated::DescriptorToText(descriptor, OWNER_SECURITY_INFORMATION | SACL_SECURITY_INFORMATION);
  EXPECT_TRUE(text.starts_with(u"O:SY") && text.find(u"(AU") == text.npos);
  // Who may write the data only cannot give security, who may give that cannot write data.
  EXPECT_EQ(WriteBackup(Open(u"D:\\data", GENERIC_READ | FILE_WRITE_DATA), whole), ERROR_ACCESS_DENIED);
  EXPECT_EQ(WriteBackup(Open(u"D:\\security", WRITE_DAC | WRITE_OWNER | FILE_WRITE_EA), whole), ERROR_ACCESS_DENIED);
}

TEST_F(BackupStreams, WhatIsMalformedIsRefusedAndDoesNoHarm) {
  Bytes block;
  emulated::AppendStreamHeader(block, {BACKUP_DATA, STREAM_SPARSE_ATTRIBUTE, 0, 0});
  emulated::AppendStreamHeader(block, {BACKUP_SPARSE_BLOCK, STREAM_SPARSE_ATTRIBUTE, 100, 0});
  emulated::AppendLittleEndian(block, std::uint64_t{0x7FFFFFFFFFFFFFF0});
  EXPECT_EQ(WriteAll(u"D:\\target", block), ERROR_INVALID_DATA);

  // Whatever a damaged backup does, it does it within its bounds, and the volume stays sound.
  const Bytes whole = ReadAll(u"C:\\rich");
  std::mt19937 random(1);
  for (int round = 0; round < 300; ++round) {
    Bytes damaged(whole.begin(), whole.begin() + 1200);
    for (int i = 0; i < 3; ++i) damaged[random() % damaged.size()] = static_cast<std::uint8_t>(random());
    WriteAll(u"D:\\target", damaged, static_cast<DWORD>(1 + random() % 300));
    DeleteFileW(u"D:\\target");
  }
  const test::TemporaryFolder folder;
  EXPECT_EQ(volume(u'D').Flush(), 0u);
  EXPECT_TRUE(machine->Snapshot().at("D.ntfs")->SaveTo(folder / "D.ntfs"));
  const auto check = test::RunCommand("ntfsresize -i -f " + (folder / "D.ntfs").string());
  EXPECT_EQ(check.exitCode, 0) << check.output;
}

}  // namespace
