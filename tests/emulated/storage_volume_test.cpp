// What the random operations do not reach: refusals, a full volume, sparse streams, object ids, damaged images, and
// what other readers make of the result.
#include <gtest/gtest.h>

#include <numeric>

#include "support/images.h"
#include "win32/constants.h"
#include "win32/emulated/storage/volume.h"
#include "win32/emulated/text.h"

namespace emulated {
namespace {

constexpr FileTime kNow = 132'000'000'000'000'000;

class StorageVolume : public testing::Test {
 protected:
  StorageVolume() { Format(16); }

  void Format(std::uint64_t megabytes) {
    volume_.reset();
    device_ = test::FreshNtfs(megabytes, "Data");
    Remount();
  }
  void Remount() {
    if (volume_) {
      EXPECT_EQ(0u, volume_->Flush());
    }
    volume_.reset();
    ASSERT_EQ(0u, Volume::Mount(*device_, volume_));
  }
  FileId Make(const std::u16string& name, bool isDirectory = false, std::uint32_t descriptor = 1) {
    FileId file = 0;
    EXPECT_EQ(0u,
              volume_->Create(volume_->Root(), name, isDirectory, 0, test::NumberedDescriptor(descriptor), kNow, file));
    return file;
  }
  win32::DWORD TryMake(std::u16string_view name, FileId& file) {
    return volume_->Create(volume_->Root(), name, false, 0, test::NumberedDescriptor(1), kNow, file);
  }
  std::string Inspect(const std::string& command) {
    EXPECT_EQ(0u, volume_->Flush());
    const test::TemporaryFolder folder;
    EXPECT_TRUE(device_->SaveTo(folder / "i"));
    return test::RunCommand("cd " + folder.path().string() + " && " + command).output;
  }

  std::unique_ptr<MemoryDevice> device_;
  std::unique_ptr<Volume> volume_;
};

TEST_F(StorageVolume, RefusesNamesThatNtfsDoesNotTake) {
  FileId file = 0;
  const std::vector<std::u16string> bad{
      u"", u".", u"..", u"a\\b", u"a:b", u"a?", u"a\x1F", std::u16string(1, u'\0'), std::u16string(256, u'n')};
  for (const std::u16string& name : bad) EXPECT_EQ(win32::ERROR_INVALID_NAME, TryMake(name, file));
  EXPECT_EQ(0u, TryMake(std::u16string(255, u'n'), file));
  EXPECT_EQ(win32::ERROR_ALREADY_EXISTS, TryMake(std::u16string(255, u'N'), file));
  EXPECT_EQ(win32::ERROR_ACCESS_DENIED, TryMake(u"$mft", file));
  EXPECT_EQ(win32::ERROR_FILE_NOT_FOUND, volume_->Lookup(volume_->Root(), u"$MFT", file, nullptr));
  EXPECT_EQ(win32::ERROR_DIRECTORY,
            volume_->Create(Make(u"file"), u"x", false, 0, test::NumberedDescriptor(1), kNow, file));
  EXPECT_EQ(win32::ERROR_INVALID_SECURITY_DESCR,
            volume_->Create(volume_->Root(), u"x", false, 0, Bytes(20, 0), kNow, file));
  EXPECT_EQ(win32::ERROR_FILE_NOT_FOUND, volume_->Lookup(volume_->Root(), u"x", file, nullptr));
}

TEST_F(StorageVolume, AStaleReferenceFindsNothingAlsoWhenItsRecordIsUsedAgain) {
  const FileId old = Make(u"old");
  ASSERT_EQ(0u, volume_->Unlink(volume_->Root(), u"old"));
  FileId next = 0;
  for (int count = 0; (next & 0xFFFFFFFFFFFF) != (old & 0xFFFFFFFFFFFF) && count < 5; ++count)
    next = Make(u"next" + std::u16string(static_cast<std::size_t>(count), u'x'));
  FileInfo info;
  Bytes bytes;
  EXPECT_EQ(win32::ERROR_FILE_NOT_FOUND, volume_->Stat(old, info));
  EXPECT_EQ(win32::ERROR_FILE_NOT_FOUND, volume_->GetSecurity(old, bytes));
  Remount();
  EXPECT_EQ(win32::ERROR_FILE_NOT_FOUND, volume_->Stat(old, info));
  EXPECT_EQ(0u, volume_->Stat(next, info));
}

TEST_F(StorageVolume, AFullVolumeKeepsWhatFitsAndNothingHalf) {
  Format(4);
  const auto content = [](std::size_t number) { return Bytes(3000, static_cast<std::uint8_t>(number)); };
  std::vector<FileId> files;
  win32::DWORD error = 0;
  for (std::uint32_t number = 0; error == 0; ++number) {
    const std::u16string name = u"file" + Utf16(std::to_string(number));
    FileId file = 0;
    error = volume_->Create(volume_->Root(), name, false, 0, test::NumberedDescriptor(number), kNow, file);
    if (error != 0) {
      EXPECT_EQ(win32::ERROR_FILE_NOT_FOUND, volume_->Lookup(volume_->Root(), name, file, nullptr));
      break;
    }
    files.push_back(file);
    error = volume_->Write(file, {}, 0, content(number));
    std::uint64_t size = 0;
    ASSERT_EQ(0u, volume_->StreamSize(file, {}, size));
    EXPECT_EQ(error == 0 ? 3000u : 0u, size);
  }
  EXPECT_EQ(win32::ERROR_DISK_FULL, error);
  EXPECT_GT(files.size(), 100u);
  Remount();
  // A write that is too large leaves the stream as it was; what is deleted is free again.
  const std::uint64_t before = volume_->FreeBytes();
  EXPECT_EQ(win32::ERROR_DISK_FULL, volume_->Write(files[0], {}, 1000, Bytes(4'000'000, 9)));
  EXPECT_EQ(before, volume_->FreeBytes());
  for (std::size_t index = 0; index + 1 < files.size(); ++index) {
    Bytes read(5000);
    std::size_t done = 0;
    ASSERT_EQ(0u, volume_->Read(files[index], {}, 0, read, done));
    read.resize(done);
    EXPECT_EQ(content(index), read);
    ASSERT_EQ(0u, volume_->GetSecurity(files[index], read));
    EXPECT_EQ(test::NumberedDescriptor(static_cast<std::uint32_t>(index)), read);
  }
  ASSERT_EQ(0u, volume_->Unlink(volume_->Root(), u"file1"));
  EXPECT_EQ(before + volume_->ClusterSize(), volume_->FreeBytes());
  ASSERT_EQ(0u, volume_->Unlink(volume_->Root(), u"file2"));
  EXPECT_EQ("0\n", Inspect("ntfsresize -i -f i > out; echo $?"));
}

TEST_F(StorageVolume, SparseStreamsHaveHoles) {
  const FileId file = Make(u"sparse");
  ASSERT_EQ(0u, volume_->SetSparse(file, {}));
  const std::uint64_t before = volume_->FreeBytes();
  ASSERT_EQ(0u, volume_->SetStreamSize(file, {}, 1 << 20));
  ASSERT_EQ(0u, volume_->Write(file, {}, 512 * 1024, Bytes(4096, 1)));
  EXPECT_LE(before - volume_->FreeBytes(), 64u * 1024);
  for (int pass = 0; pass < 2; ++pass) {
    FileInfo info;
    ASSERT_EQ(0u, volume_->Stat(file, info));
    EXPECT_EQ(win32::FILE_ATTRIBUTE_SPARSE_FILE, info.attributes);
    EXPECT_EQ(1u << 20, info.size);
    EXPECT_LE(info.allocated, 64u * 1024);
    std::vector<StreamRange> ranges;
    ASSERT_EQ(0u, volume_->AllocatedRanges(file, {}, ranges));
    ASSERT_EQ(1u, ranges.size());
    EXPECT_LE(ranges[0].offset, 512u * 1024);
    EXPECT_GE(ranges[0].offset + ranges[0].length, 516u * 1024);
    Remount();
  }
}

TEST_F(StorageVolume, ObjectIdsAreUniqueAndGoWithTheirFile) {
  const FileId file = Make(u"first");
  Bytes id(64);
  std::iota(id.begin(), id.end(), std::uint8_t{1});
  Bytes read;
  EXPECT_EQ(win32::ERROR_FILE_NOT_FOUND, volume_->GetObjectId(file, read));
  ASSERT_EQ(0u, volume_->SetObjectId(file, id));
  EXPECT_EQ(win32::ERROR_ALREADY_EXISTS, volume_->SetObjectId(Make(u"second"), id));
  Remount();
  ASSERT_EQ(0u, volume_->GetObjectId(file, read));
  EXPECT_EQ(id, read);
  ASSERT_EQ(0u, volume_->Unlink(volume_->Root(), u"first"));
  EXPECT_EQ(0u, volume_->SetObjectId(Make(u"third"), id));
}

TEST_F(StorageVolume, OtherReadersSeeTimesAttributesAndOneDescriptorEntryPerFile) {
  const std::string before = Inspect("ntfsinfo -f -v -F '$Secure' i 2>/dev/null | grep -a -c 'Key security id'");
  const FileId folder = Make(u"Folder", true, 1);
  FileId file = 0;
  ASSERT_EQ(0u, volume_->Create(folder, u"file.txt", false, win32::FILE_ATTRIBUTE_ARCHIVE, test::NumberedDescriptor(2),
                                kNow, file));
  ASSERT_EQ(0u, volume_->Write(file, {}, 0, Bytes(1024, 7)));
  ASSERT_EQ(0u, volume_->SetSecurity(file, test::NumberedDescriptor(3)));
  ASSERT_EQ(0u, volume_->SetSecurity(file, test::NumberedDescriptor(4)));
  // 2001-02-03 04:05:06 and a day after each other
  const FileTime day = 864'000'000'000, first = 126'256'467'060'000'000;
  ASSERT_EQ(0u, volume_->SetTimes(file, {first, first + 3 * day, first + day, first + 2 * day}));
  ASSERT_EQ(0u, volume_->SetAttributes(file, win32::FILE_ATTRIBUTE_HIDDEN));
  const std::string record = Inspect("TZ=UTC istat -f ntfs i " + std::to_string(file & 0xFFFFFFFFFFFF));
  for (const char* const part : {"Flags: Hidden\n", "Created:\t2001-02-03 04:05:06", "File Modified:\t2001-02-04",
                                 "MFT Modified:\t2001-02-05", "Accessed:\t2001-02-06", "size: 1024"}) {
    EXPECT_NE(record.npos, record.find(part)) << part << record;
  }
  // The copies in the parent's index.
  const std::string index = Inspect("TZ=UTC ntfsinfo -f -v -F Folder i");
  EXPECT_NE(index.npos, index.find("2001")) << index;
  ASSERT_FALSE(before.empty());
  ASSERT_TRUE(before.find_first_not_of("0123456789\n") == before.npos) << before;
  // Two new descriptors, each in two indexes.
  EXPECT_EQ(std::to_string(std::stoi(before) + 2 * 2) + "\n",
            Inspect("ntfsinfo -f -v -F '$Secure' i 2>/dev/null | grep -a -c 'Key security id'"));
}

}  // namespace
}  // namespace emulated
