// The images of a folder: everything at once or nothing, also when the process is killed.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>

#include "support/images.h"
#include "win32/constants.h"
#include "win32/emulated/storage/image_set.h"
#include "win32/emulated/storage/volume.h"

namespace emulated {
namespace {

constexpr FileTime kNow = 132'000'000'000'000'000;

Bytes ContentOf(const std::filesystem::path& file) {
  std::ifstream stream(file, std::ios::binary);
  return Bytes(std::istreambuf_iterator<char>(stream), {});
}

class StorageImages : public testing::Test {
 protected:
  StorageImages() {
    test::FreshNtfsFile(folder_ / "C.ntfs", 16, "System");
    test::FreshNtfsFile(folder_ / "D.ntfs", 16, "Data");
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
    EXPECT_TRUE(c && d) << error;
    EXPECT_EQ(0u, Volume::Mount(*c, opened.c));
    EXPECT_EQ(0u, Volume::Mount(*d, opened.d));
    return opened;
  }

  static void Commit(Opened& opened) {
    EXPECT_EQ(0u, opened.c->Flush());
    EXPECT_EQ(0u, opened.d->Flush());
    std::string error;
    EXPECT_TRUE(opened.set->Commit(error)) << error;
  }

  // A file of so many bytes, which all are `fill`.
  static win32::DWORD Put(Volume& volume, const std::u16string& name, std::size_t size, std::uint8_t fill) {
    FileId file = 0;
    win32::DWORD error = volume.LookupPath(name, file);
    if (error) error = volume.Create(volume.Root(), name, false, 0, test::NumberedDescriptor(fill), kNow, file);
    return error ? error : volume.Write(file, {}, 0, Bytes(size, fill));
  }

  // What Put has put there; 0 when the file is missing or holds anything else.
  static int Fill(Volume& volume, const std::u16string& name) {
    Bytes content;
    if (ReadWholeFile(volume, name, content) != 0 || content.empty()) return 0;
    return content == Bytes(content.size(), content[0]) ? content[0] : 0;
  }

  void ExpectSound() {
    for (const char* const name : {"C.ntfs", "D.ntfs"}) {
      const auto accounting = test::RunCommand("ntfsresize -i -f " + (folder_ / name).string());
      EXPECT_EQ(0, accounting.exitCode) << accounting.output;
      EXPECT_EQ(0, test::RunCommand("ntfsls -f -a -R " + (folder_ / name).string()).exitCode);
    }
  }

  const test::TemporaryFolder folder_;
};

TEST_F(StorageImages, ShowNothingUntilTheCommitAndAllAfterIt) {
  {
    Opened opened = Open();
    for (char16_t letter = u'a'; letter <= u'z'; ++letter) ASSERT_EQ(0u, Put(*opened.c, {letter}, 100'000, 7));
    ASSERT_EQ(0u, opened.c->Flush());
  }
  {
    Opened opened = Open();
    EXPECT_EQ(0, Fill(*opened.c, u"a"));
    ASSERT_EQ(0u, Put(*opened.c, u"a", 100'000, 8));
    ASSERT_EQ(0u, Put(*opened.d, u"b", 50, 9));
    Commit(opened);
    ASSERT_EQ(0u, Put(*opened.c, u"a", 100'000, 10));  // its clusters are no longer free
    ASSERT_EQ(0u, opened.c->Flush());
  }
  ExpectSound();
  Opened opened = Open();
  EXPECT_EQ(8, Fill(*opened.c, u"a"));
  EXPECT_EQ(9, Fill(*opened.d, u"b"));
}

TEST_F(StorageImages, ARunThatChangesNothingTouchesNoFile) {
  const auto c = std::filesystem::last_write_time(folder_ / "C.ntfs");
  const auto folder = std::filesystem::last_write_time(folder_.path());
  usleep(20'000);
  {
    Opened opened = Open(true);
    std::vector<DirectoryEntry> entries;
    EXPECT_EQ(0u, opened.c->List(opened.c->Root(), entries));
    Commit(opened);
  }
  EXPECT_EQ(c, std::filesystem::last_write_time(folder_ / "C.ntfs"));
  EXPECT_EQ(folder, std::filesystem::last_write_time(folder_.path()));
}

TEST_F(StorageImages, WhatIsWrittenToAFrozenImageLiesBesideItUntilItIsDropped) {
  const Bytes before = ContentOf(folder_ / "D.ntfs");
  {
    Opened opened = Open(true);
    ASSERT_EQ(0u, Put(*opened.d, u"kept", 300'000, 3));
    Commit(opened);
    ASSERT_EQ(0u, Put(*opened.d, u"kept", 300'000, 4));
    ASSERT_EQ(0u, opened.d->Flush());
  }
  {
    Opened opened = Open(true);
    EXPECT_EQ(3, Fill(*opened.d, u"kept"));
    ASSERT_EQ(0u, Put(*opened.d, u"kept", 300'000, 5));
    Commit(opened);
  }
  EXPECT_EQ(5, Fill(*Open(true).d, u"kept"));
  EXPECT_TRUE(before == ContentOf(folder_ / "D.ntfs"));
  std::string error;
  ASSERT_TRUE(ImageSet::Open(folder_.path(), error)->DropFrozen("D.ntfs", error)) << error;
  EXPECT_EQ(0, Fill(*Open(true).d, u"kept"));
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
  const auto put = [](Opened& opened, std::uint8_t state, unsigned files = 8) {
    for (unsigned i = 0; i < files; ++i) {
      const std::u16string name(1, static_cast<char16_t>(u'a' + i));
      ASSERT_EQ(0u, Put(*opened.c, name, 40'000, state));
      ASSERT_EQ(0u, Put(*opened.d, name, 600, state));
    }
  };
  std::uint8_t committed = 1;
  {
    Opened opened = Open();
    put(opened, committed);
    Commit(opened);
  }
  for (unsigned round = 0; round < 12; ++round) {
    const auto next = static_cast<std::uint8_t>(committed + 1);
    const unsigned kind = round % 3;
    const pid_t child = fork();
    if (child == 0) {
      Opened opened = Open();
      put(opened, next, kind == 0 ? round : 8);
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
    if (kind != 0) committed = next;
    {
      Opened opened = Open();
      for (char16_t letter = u'a'; letter <= u'h'; ++letter) {
        EXPECT_EQ(committed, Fill(*opened.c, {letter}));
        EXPECT_EQ(committed, Fill(*opened.d, {letter}));
      }
    }
    ExpectSound();
  }
}

}  // namespace
}  // namespace emulated
