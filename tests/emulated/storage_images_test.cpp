// The images of a folder: everything at once or nothing, also when the process is killed; and a full volume.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <fstream>
#include <random>

#include "support/installed_machine.h"
#include "win32/constants.h"
#include "win32/emulated/storage/image_set.h"
#include "win32/emulated/storage/volume.h"
#include "win32/emulated/text.h"

namespace emulated {
namespace {

constexpr FileTime kNow = 132'000'000'000'000'000;

// A file of so many bytes, which all are `fill`.
win32::DWORD Put(Volume& volume, std::u16string_view name, std::size_t size, unsigned fill) {
  FileId file = 0;
  win32::DWORD error = volume.LookupPath(name, file);
  if (error) error = volume.Create(volume.Root(), name, false, 0, test::NumberedDescriptor(fill), kNow, file);
  return error ? error : volume.Write(file, {}, 0, Bytes(size, static_cast<std::uint8_t>(fill)));
}

// What Put has put there; 0 when the file is missing or holds anything else.
unsigned Fill(Volume& volume, std::u16string_view name) {
  Bytes content;
  if (ReadWholeFile(volume, name, content) != 0 || content.empty()) return 0;
  return content == Bytes(content.size(), content[0]) ? content[0] : 0;
}

std::string ExpectSound(const std::filesystem::path& image) {
  constexpr const char* kChecks =
      "; ntfsresize -i -f $i && ntfsls -f -a -R $i && fakeroot ntfssecaudit -a $i 2>/dev/null";
  const auto checked = test::RunCommand("i=" + image.string() + kChecks);
  EXPECT_EQ(0, checked.exitCode) << checked.output;
  return checked.output;
}

class StorageImages : public testing::Test {
 protected:
  StorageImages() {
    for (const auto* const name : {"C.ntfs", "D.ntfs"})
      EXPECT_TRUE(test::FreshNtfs(16, "Data")->SaveTo(folder_ / name));
  }

  struct Opened {
    std::unique_ptr<ImageSet> set;
    std::unique_ptr<Volume> c, d;
  };
  Opened Open(bool dIsFrozen = false, ImageAccess access = ImageAccess::kWrite) {
    Opened opened;
    std::string error;
    opened.set = ImageSet::Open(folder_.path(), error, access);
    EXPECT_TRUE(opened.set) << error;
    if (!opened.set) return opened;
    BlockDevice* const c = opened.set->OpenImage("C.ntfs", false, error);
    BlockDevice* const d = opened.set->OpenImage("D.ntfs", dIsFrozen, error);
    EXPECT_TRUE(c && d && Volume::Mount(*c, opened.c) == 0 && Volume::Mount(*d, opened.d) == 0) << error;
    return opened;
  }
  static void Commit(Opened& opened) {
    std::string error;
    EXPECT_TRUE(opened.c->Flush() == 0 && opened.d->Flush() == 0 && opened.set->Commit(error)) << error;
  }

  const test::TemporaryFolder folder_;
};

TEST_F(StorageImages, AreOneForWhoeverReachesThemByLinks) {
  const test::TemporaryFolder other;
  std::filesystem::create_symlink(folder_ / "C.ntfs", other / "C.ntfs");
  std::filesystem::create_hard_link(folder_ / "D.ntfs", other / "D.ntfs");
  const Opened opened = Open(true);
  std::string error;
  const auto set = ImageSet::Open(other.path(), error);
  for (const auto* const image : {"C.ntfs", "D.ntfs"}) {
    EXPECT_FALSE(set->OpenImage(image, false, error));
    EXPECT_EQ(error, (other / image).string() + ": in use by another process");
  }
  EXPECT_TRUE(set->OpenImage("D.ntfs", true, error)) << "a frozen one is only read: " << error;
}

TEST_F(StorageImages, ShowNothingUntilTheCommitAndAllAfterIt) {
  {
    Opened opened = Open();
    for (char16_t letter = u'a'; letter <= u'z'; ++letter) ASSERT_EQ(0u, Put(*opened.c, {&letter, 1}, 100'000, 7));
    ASSERT_EQ(0u, opened.c->Flush());
  }
  {
    Opened opened = Open();
    EXPECT_EQ(0u, Fill(*opened.c, u"a"));
    ASSERT_EQ(0u, Put(*opened.c, u"a", 100'000, 8));
    ASSERT_EQ(0u, Put(*opened.d, u"b", 50, 9));
    Commit(opened);
    ASSERT_EQ(0u, Put(*opened.c, u"a", 100'000, 10));  // its clusters are no longer free
    ASSERT_EQ(0u, opened.c->Flush());
  }
  for (const auto* const name : {"C.ntfs", "D.ntfs"}) ExpectSound(folder_ / name);
  Opened opened = Open();
  EXPECT_EQ(8u, Fill(*opened.c, u"a"));
  EXPECT_EQ(9u, Fill(*opened.d, u"b"));
}

// Short pieces and long ones, in free clusters (where the longest are written behind) and in others, more than is held
// in memory, before and after commits.
TEST_F(StorageImages, ReadWhatWasWrittenWhereverItWaits) {
  constexpr std::size_t kSize = 24 << 20;
  ASSERT_TRUE(test::FreshNtfs(48, "Data")->SaveTo(folder_ / "C.ntfs"));
  std::mt19937 random(4711);
  Bytes expected(kSize, 1), committed = expected;
  for (int round = 0; round < 4; ++round) {
    Opened opened = Open();
    FileId file = 0;
    ASSERT_EQ(0u, round == 0 ? Put(*opened.c, u"file", kSize, 1) : 0);
    ASSERT_EQ(0u, opened.c->LookupPath(u"file", file));
    for (int piece = 0; piece < 4000; ++piece) {
      const std::size_t unit = piece % 2 ? 4096 : 1, longest = piece % 30 == 0 ? 3'000'000 : piece % 5 ? 9'000 : 60'000;
      const std::size_t size = std::max(unit, random() % longest / unit * unit),
                        at = random() % (kSize - size) / unit * unit;
      Bytes content(size, static_cast<std::uint8_t>(random()));
      if (piece % 3 == 0) {
        std::ranges::copy(content, expected.begin() + static_cast<std::ptrdiff_t>(at));
        ASSERT_EQ(0u, opened.c->Write(file, {}, at, content));
      } else {
        std::size_t done = 0;
        ASSERT_EQ(0u, opened.c->Read(file, {}, at, content, done));
        ASSERT_TRUE(std::ranges::equal(content, std::span(expected).subspan(at, size))) << round << ' ' << piece;
      }
      if (piece % 1000 != 999 || round == 2) continue;  // the third round is given up
      Commit(opened);
      committed = expected;
    }
    expected = committed;
  }
  Bytes content;
  EXPECT_TRUE(ReadWholeFile(*Open().c, u"file", content) == 0 && content == expected);
  ExpectSound(folder_ / "C.ntfs");
}

TEST_F(StorageImages, AFrozenImageAndARunThatChangesNothingTouchNoImage) {
  const auto content = [&] {
    std::ifstream stream(folder_ / "D.ntfs", std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(stream), {});
  };
  const std::string before = content();
  const auto changed = std::filesystem::last_write_time(folder_ / "C.ntfs");
  for (unsigned round = 0; round < 3; ++round) {
    Opened opened = Open(true);
    EXPECT_EQ(round, Fill(*opened.d, u"kept"));
    ASSERT_EQ(0u, Put(*opened.d, u"kept", 300'000, round + 1));
    Commit(opened);
    ASSERT_EQ(0u, Put(*opened.d, u"kept", 300'000, 99));
    ASSERT_EQ(0u, opened.d->Flush());
  }
  EXPECT_EQ(3u, Fill(*Open(true).d, u"kept"));
  EXPECT_TRUE(before == content() && changed == std::filesystem::last_write_time(folder_ / "C.ntfs"));
  std::string error;
  ASSERT_TRUE(ImageSet::Open(folder_.path(), error)->DropFrozen("D.ntfs", error)) << error;
  EXPECT_EQ(0u, Fill(*Open(true).d, u"kept"));
}

TEST_F(StorageImages, ADamagedJournalIsReportedAndAnUnfinishedOneDropped) {
  std::ofstream(folder_ / "journal.new") << "half";
  EXPECT_TRUE(Open().c);
  EXPECT_FALSE(std::filesystem::exists(folder_ / "journal.new"));
  std::ofstream(folder_ / "journal") << "IMGJRNL1 and nothing that makes sense";
  std::string error;
  EXPECT_FALSE(ImageSet::Open(folder_.path(), error));
  EXPECT_NE(error.npos, error.find("damaged"));
}

// The host refuses what goes behind the limit, and takes it again afterwards: what was lost stays lost.
TEST_F(StorageImages, AWriteBehindThatFailsIsToldAndNothingIsCommitted) {
  struct rlimit before {};
  ASSERT_EQ(0, getrlimit(RLIMIT_FSIZE, &before));
  const rlimit limit{.rlim_cur = 1 << 20, .rlim_max = before.rlim_max};
  signal(SIGXFSZ, SIG_IGN);
  {
    Opened opened = Open();
    ASSERT_EQ(0u, Put(*opened.d, u"other", 50, 1) | opened.d->Flush());
    ASSERT_EQ(0, setrlimit(RLIMIT_FSIZE, &limit));
    Put(*opened.c, u"first", 1 << 20, 1);  // may not know yet
    EXPECT_NE(0u, Put(*opened.c, u"second", 6 << 20, 2));
    ASSERT_EQ(0, setrlimit(RLIMIT_FSIZE, &before));
    EXPECT_NE(0u, Put(*opened.c, u"third", 1 << 20, 3));
    std::string error;
    EXPECT_FALSE(opened.set->Commit(error));
    EXPECT_EQ(error, folder_.path().string() + ": the images cannot be written: File too large");
  }
  Opened opened = Open();
  EXPECT_EQ(0u, Fill(*opened.c, u"first") | Fill(*opened.d, u"other"));
}

// At no particular moment it is killed in the checks from outside.
TEST_F(StorageImages, AKillLeavesTheOldStateOrTheNewOne) {
  const std::u16string_view letters = u"abcdefgh";
  unsigned committed = 0;
  for (unsigned round = 0; round < 12; ++round) {
    const unsigned kind = round % 3;
    const pid_t child = fork();
    if (child == 0) {
      Opened opened = Open(true);
      for (unsigned i = 0; i < (kind == 0 ? round : 8); ++i) {
        Put(*opened.c, letters.substr(i, 1), 40'000, committed + 1);
        Put(*opened.d, letters.substr(i, 1), 600, committed + 1);
      }
      if (kind == 0) Put(*opened.c, u"written behind", 6 << 20, 1), kill(getpid(), SIGKILL);
      dynamic_cast<ImageFolder&>(*opened.set).onStep = [kind](CommitStep step) {
        if (step == (kind == 1 ? CommitStep::kJournalWritten : CommitStep::kJournalRemoved)) kill(getpid(), SIGKILL);
      };
      Commit(opened);
      _exit(1);
    }
    int status = 0;
    ASSERT_EQ(child, waitpid(child, &status, 0));
    ASSERT_TRUE(WIFSIGNALED(status));
    committed += kind != 0;
    // Who only reads leaves the journal to the next, and reads through it, with others; what he writes is nowhere.
    for (const ImageAccess access : {ImageAccess::kRead, ImageAccess::kRead, ImageAccess::kWrite}) {
      Opened opened = Open(true, access);
      EXPECT_EQ(0u, Fill(*opened.c, u"written behind"));
      for (std::size_t i = 0; i < 8; ++i) {
        EXPECT_EQ(committed, Fill(*opened.c, letters.substr(i, 1)));
        EXPECT_EQ(committed, Fill(*opened.d, letters.substr(i, 1)));
      }
      if (access == ImageAccess::kWrite) continue;
      EXPECT_EQ(committed, Fill(*Open(true, access).d, u"a"));
      std::string error;
      EXPECT_EQ(0u, Put(*opened.c, u"a", 40'000, 99) | Put(*opened.d, u"new", 9, 99) | opened.d->Flush());
      EXPECT_FALSE(opened.set->Commit(error));
    }
    for (const auto* const name : {"C.ntfs", "D.ntfs"}) ExpectSound(folder_ / name);
  }
}

TEST(StorageVolume, WhenFullKeepsWhatFitsAndNothingHalf) {
  const auto device = test::FreshNtfs(4, "Data");
  std::unique_ptr<Volume> volume;
  ASSERT_EQ(0u, Volume::Mount(*device, volume));
  FileId file = 0;
  unsigned number = 0;
  const auto name = [](unsigned of) { return std::u16string(of, u'f'); };
  win32::DWORD error = 0;
  for (; error == 0 && number < 250; error = Put(*volume, name(number), 12'000, number)) ++number;
  EXPECT_EQ(win32::ERROR_DISK_FULL, error);
  FileInfo info;
  EXPECT_TRUE(volume->LookupPath(name(number), file) != 0 || (volume->Stat(file, info) == 0 && info.size == 0));
  // A write that is too large leaves the stream as it was; what is deleted is free again, and its reference is no
  // other's.
  const std::uint64_t before = volume->FreeBytes();
  ASSERT_EQ(0u, volume->LookupPath(name(1), file));
  EXPECT_EQ(win32::ERROR_DISK_FULL, volume->Write(file, {}, 1000, Bytes(4'000'000, 9)));
  EXPECT_EQ(before, volume->FreeBytes());
  for (unsigned of = 1; of < number; ++of) EXPECT_EQ(of, Fill(*volume, name(of)));
  ASSERT_EQ(0u, volume->Unlink(volume->Root(), name(1)));
  EXPECT_EQ(before + 3 * volume->ClusterSize(), volume->FreeBytes());
  ASSERT_EQ(0u, Put(*volume, u"in its record", 100, 1));
  EXPECT_EQ(win32::ERROR_FILE_NOT_FOUND, volume->Stat(file, info));
  const test::TemporaryFolder folder;
  ASSERT_TRUE(volume->Flush() == 0 && device->SaveTo(folder / "D.ntfs"));
  ExpectSound(folder / "D.ntfs");
}

// 3,000 are more than a block of $SDS; of each two $SDH cannot tell one from the other.
TEST(StorageVolume, EachDescriptorIsKeptOnceInBothCopiesAndBothIndexes) {
  const auto device = test::FreshNtfs(32, "Data");
  const test::TemporaryFolder folder;
  std::unique_ptr<Volume> volume;
  for (const unsigned count : {3000u, 4000u}) {
    ASSERT_EQ(0u, Volume::Mount(*device, volume));
    std::vector<FileId> files(count);
    for (unsigned number = 0; number < count; ++number)
      ASSERT_EQ(0u, volume->Create(volume->Root(), Utf16(std::to_string(count * 10'000 + number)), false, 0,
                                   test::NumberedDescriptor(number), kNow, files[number]));
    volume.reset();
    ASSERT_TRUE(device->SaveTo(folder / "D.ntfs"));
    const std::string audit = ExpectSound(folder / "D.ntfs");
    EXPECT_NE(std::string::npos, audit.find("\n" + std::to_string(count + 2) + " valid entries in $SDH"));
    ASSERT_EQ(0u, Volume::Mount(*device, volume));
    Bytes stored;
    for (unsigned number = 0; number < count; ++number)
      ASSERT_EQ(0u, volume->GetSecurity(files[number], stored) + (stored != test::NumberedDescriptor(number)));
  }
}

TEST(StorageVolume, AWriteThatFailsIsToldByTheFlushAtTheLatest) {
  struct FailingOnce : MemoryDevice {
    FailingOnce(const MemoryDevice& device, int writes) : MemoryDevice(device), left(writes) {}
    bool Write(std::uint64_t at, ByteView from) override { return --left != 0 && MemoryDevice::Write(at, from); }
    int left;
  };
  for (int failing = 1; failing < 900; failing += 3) {
    FailingOnce device(*test::FreshNtfs(16, "Data"), failing);
    std::unique_ptr<Volume> volume;
    win32::DWORD told = Volume::Mount(device, volume);
    for (unsigned of = 1; of < 80 && !told; ++of) told = Put(*volume, std::u16string(of, u'f'), 2000, of);
    volume->Flush();  // what that could not put down is not forgotten by the next
    if (told || volume->Flush()) continue;
    volume.reset();
    ASSERT_EQ(0u, Volume::Mount(device, volume));
    for (unsigned of = 1; of < 80; ++of) EXPECT_EQ(of, Fill(*volume, std::u16string(of, u'f'))) << failing;
  }
}

// The library would close the folder that is open while what is in it is put down.
TEST(StorageVolume, AnEntryThatIsMissingCostsNoOtherFile) {
  const auto device = test::FreshNtfs(16, "Data");
  std::unique_ptr<Volume> volume;
  FileId files[100] = {};
  const auto each = [&](auto what) {
    volume.reset();
    ASSERT_EQ(0u, Volume::Mount(*device, volume));
    for (std::size_t number = 0; number < std::size(files); ++number)
      EXPECT_EQ(0u, what(std::u16string{u'\\', static_cast<char16_t>(0x4E00 + number)}, files[number]));
  };
  each([&](const auto& path, FileId& file) {
    return Put(*volume, path.substr(1), 9, 1) | volume->LookupPath(path, file) | volume->Flush();
  });
  std::uint8_t mft[8], record[1024];
  ASSERT_TRUE(device->Read(48, mft));
  const std::uint64_t at =
      LoadLittleEndian<std::uint64_t>(mft, 0) * volume->ClusterSize() + (files[1] & 0xFFFFFF) * 1024;
  ASSERT_TRUE(device->Read(at, record));
  constexpr std::uint8_t kName[] = {1, 0, 0x01, 0x4E};  // its length, its namespace
  std::search(std::begin(record), std::end(record), std::begin(kName), std::end(kName))[2] = 0xFF;
  ASSERT_TRUE(device->Write(at, record));
  each([&](const auto&, FileId file) { return volume->SetAttributes(file, win32::FILE_ATTRIBUTE_HIDDEN); });
  EXPECT_EQ(win32::ERROR_FILE_CORRUPT, volume->Flush());
  FileInfo info;
  each([&](auto, FileId file) { return volume->Stat(file, info) | (info.attributes ^ win32::FILE_ATTRIBUTE_HIDDEN); });
}

}  // namespace
}  // namespace emulated
