// The images of a folder: everything at once or nothing, also when the process is killed; and what the random
// operations on a volume do not reach.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>

#include "support/installed_machine.h"
#include "win32/constants.h"
#include "win32/emulated/storage/image_set.h"
#include "win32/emulated/storage/volume.h"

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

void ExpectSound(const std::filesystem::path& image) {
  const auto accounting = test::RunCommand("ntfsresize -i -f " + image.string());
  EXPECT_EQ(0, accounting.exitCode) << accounting.output;
  EXPECT_EQ(0, test::RunCommand("ntfsls -f -a -R " + image.string()).exitCode);
}

class StorageImages : public testing::Test {
 protected:
  StorageImages() {
    for (const auto* const name : {"C.ntfs", "D.ntfs"}) test::FreshNtfsFile(folder_ / name, 16, "Data");
  }

  struct Opened {
    std::unique_ptr<ImageSet> set;
    std::unique_ptr<Volume> c, d;
  };
  Opened Open(bool dIsFrozen = false) {
    Opened opened;
    std::string error;
    opened.set = ImageSet::Open(folder_.path(), error);
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

// At no particular moment it is killed in the checks from outside.
TEST_F(StorageImages, AKillLeavesTheOldStateOrTheNewOne) {
  const std::u16string_view letters = u"abcdefgh";
  unsigned committed = 0;
  for (unsigned round = 0; round < 12; ++round) {
    const unsigned kind = round % 3;
    const pid_t child = fork();
    if (child == 0) {
      Opened opened = Open();
      for (unsigned i = 0; i < (kind == 0 ? round : 8); ++i) {
        Put(*opened.c, letters.substr(i, 1), 40'000, committed + 1);
        Put(*opened.d, letters.substr(i, 1), 600, committed + 1);
      }
      if (kind == 0) kill(getpid(), SIGKILL);
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
    {
      Opened opened = Open();
      for (std::size_t i = 0; i < 8; ++i) {
        EXPECT_EQ(committed, Fill(*opened.c, letters.substr(i, 1)));
        EXPECT_EQ(committed, Fill(*opened.d, letters.substr(i, 1)));
      }
    }
    for (const auto* const name : {"C.ntfs", "D.ntfs"}) ExpectSound(folder_ / name);
  }
}

class StorageVolume : public testing::Test {
 protected:
  StorageVolume() { Remount(); }
  void Remount() {
    EXPECT_TRUE(!volume_ || volume_->Flush() == 0);
    volume_.reset();
    EXPECT_EQ(0u, Volume::Mount(*device_, volume_));
  }
  win32::DWORD Make(std::u16string_view name, FileId& file, std::uint32_t descriptor = 1) {
    return volume_->Create(volume_->Root(), name, false, 0, test::NumberedDescriptor(descriptor), kNow, file);
  }

  const std::unique_ptr<MemoryDevice> device_ = test::FreshNtfs(4, "Data");
  std::unique_ptr<Volume> volume_;
};

TEST_F(StorageVolume, RefusesNamesThatNtfsDoesNotTakeAndReferencesThatAreOld) {
  FileId old = 0, next = 0;
  const std::u16string longest(255, u'n');
  for (const std::u16string& bad : std::vector<std::u16string>{u"", u".", u"..", u"a\\b", u"a:b", u"a?", u"a\x1F",
                                                               std::u16string(1, u'\0'), longest + u'n'})
    EXPECT_EQ(win32::ERROR_INVALID_NAME, Make(bad, old));
  EXPECT_EQ(0u, Make(longest, old));
  EXPECT_EQ(win32::ERROR_ALREADY_EXISTS, Make(std::u16string(255, u'N'), next));
  EXPECT_EQ(win32::ERROR_ACCESS_DENIED, Make(u"$mft", next));
  EXPECT_EQ(win32::ERROR_DIRECTORY, volume_->Create(old, u"x", false, 0, test::NumberedDescriptor(1), kNow, next));
  EXPECT_EQ(win32::ERROR_INVALID_SECURITY_DESCR,
            volume_->Create(volume_->Root(), u"x", false, 0, Bytes(20, 0), kNow, next));
  for (const char16_t* const name : {u"x", u"$MFT"})
    EXPECT_EQ(win32::ERROR_FILE_NOT_FOUND, volume_->Lookup(volume_->Root(), name, next, nullptr));
  // Another file has the record, but not the reference.
  ASSERT_EQ(0u, volume_->Unlink(volume_->Root(), longest));
  for (std::u16string name = u"next"; (next & 0xFFFFFFFFFFFF) != (old & 0xFFFFFFFFFFFF) && name.size() < 10;
       name += u'x')
    EXPECT_EQ(0u, Make(name, next));
  for (int pass = 0; pass < 2; ++pass) {
    FileInfo info;
    EXPECT_EQ(win32::ERROR_FILE_NOT_FOUND, volume_->Stat(old, info));
    EXPECT_EQ(0u, volume_->Stat(next, info));
    Remount();
  }
}

TEST_F(StorageVolume, WhenFullKeepsWhatFitsAndNothingHalf) {
  std::vector<FileId> files;
  win32::DWORD error = 0;
  const auto name = [](std::size_t number) { return std::u16string(number + 1, u'f'); };
  for (std::uint32_t number = 0; error == 0 && number < 250; ++number) {
    FileId file = 0;
    if ((error = Make(name(number), file, number)) == 0) {
      error = volume_->Write(file, {}, 0, Bytes(12'000, static_cast<std::uint8_t>(number)));
      files.push_back(file);
      std::uint64_t size = 0;
      ASSERT_EQ(0u, volume_->StreamSize(file, {}, size));
      EXPECT_EQ(error == 0 ? 12'000u : 0u, size);
    } else {
      EXPECT_EQ(win32::ERROR_FILE_NOT_FOUND, volume_->Lookup(volume_->Root(), name(number), file, nullptr));
    }
  }
  EXPECT_EQ(win32::ERROR_DISK_FULL, error);
  Remount();
  // A write that is too large leaves the stream as it was; what is deleted is free again.
  const std::uint64_t before = volume_->FreeBytes();
  EXPECT_EQ(win32::ERROR_DISK_FULL, volume_->Write(files[0], {}, 1000, Bytes(4'000'000, 9)));
  EXPECT_EQ(before, volume_->FreeBytes());
  for (std::size_t index = 1; index + 1 < files.size(); ++index) EXPECT_EQ(index & 0xFF, Fill(*volume_, name(index)));
  ASSERT_EQ(0u, volume_->Unlink(volume_->Root(), name(1)));
  EXPECT_EQ(before + 3 * volume_->ClusterSize(), volume_->FreeBytes());
  ASSERT_EQ(0u, volume_->Flush());
  const test::TemporaryFolder folder;
  ASSERT_TRUE(device_->SaveTo(folder / "D.ntfs"));
  ExpectSound(folder / "D.ntfs");
}

}  // namespace
}  // namespace emulated
