// The rules for a volume that is to be mounted in a folder's place.
#include "program/validation.h"

namespace {

using namespace win32;
using test::About, test::BelowRedirected, test::InUse, test::Lines, test::MakeFile, test::MakeFolder;

const auto NotNtfs = About(u"#ERROR: Volume ", u" must be a NTFS formatted volume. Browse to a different location.");
const auto Mounted = About(u"#ERROR: The selected volume ", u" already mounted.");
const auto NotWritable = About(u"#ERROR: The selected volume ", u" doesn't have write permission.");
const auto NoVolume = About(u"#ERROR: The selected volume ", u" does not exist.");

class VolumeRules : public test::ValidationTest {
 protected:
  VolumeRules() : ValidationTest({.volumes = 2}) {
    volume = machine->volumes[machine->volumes.size() - 2]->guidName;
    other = machine->volumes.back()->guidName;
  }
  void Expect(const std::u16string& name, const Lines& lines) {
    EXPECT_LINES(Decision([&] { return ValidateVolume(name.c_str()); }), lines);
  }
  void ExpectMove(const std::u16string& from, const Lines& lines) {
    EXPECT_LINES(Refusal([&] { return ValidateVolumeRedirection(from.c_str(), volume.c_str()); }), lines);
  }
  void Mount(const std::u16string& folder, const std::u16string& name) {
    MakeFolder(folder);
    ASSERT_TRUE(SetVolumeMountPointW((folder + u"\\").c_str(), name.c_str()));
  }
  void FailWithMounts(DWORD error) { machine->gate.FailCall("GetVolumePathNamesForVolumeNameW", 1, error); }
  std::u16string volume, other;
};

TEST_F(VolumeRules, EachAlone) {
  Expect(volume, passed);
  std::u16string upper = volume;
  std::ranges::transform(upper, upper.begin(), [](char16_t unit) {
    return unit >= u'a' && unit <= u'z' ? static_cast<char16_t>(unit - 32) : unit;
  });
  Expect(upper, passed);
  EXPECT_LINES(Decision([] { return ValidateVolume(nullptr); }), Lines{});
  for (const std::u16string name :
       {u"\\\\?\\Volume{no}\\", volume.substr(0, volume.size() - 1).c_str(), (volume + u"x").c_str(), u"D:\\"})
    Expect(name, {NoVolume(name)});
  for (const char16_t* fileSystem : {u"FAT", u"exFAT", u"NTFS"}) {
    machine->FindByGuidName(volume)->fileSystem = fileSystem;
    Expect(volume, fileSystem == std::u16string_view(u"NTFS") ? passed : Lines{NotNtfs(volume)});
  }
  Mount(u"C:\\mounted", other);
  for (const std::u16string& name : {other, Drive(u'D').guidName}) Expect(name, {Mounted(name)});
  // Paths that do not fit the room for them are paths; what cannot be told is none.
  FailWithMounts(ERROR_MORE_DATA);
  Expect(volume, {Mounted(volume)});
  FailWithMounts(ERROR_INVALID_NAME);
  Expect(volume, passed);
  for (const DWORD error : {ERROR_WRITE_PROTECT, ERROR_SHARING_VIOLATION})
    for (const std::uint64_t call : {1u, 2u}) {
      EXPECT_LINES(Decision([&] {
                     machine->gate.FailCall("CreateFileW", call, call == 1 ? error : ERROR_DISK_FULL);
                     return ValidateVolume(volume.c_str());
                   }),
                   passed);
    }
  test::SetSecurity(volume, u"O:SYD:P(A;OICI;FRFX;;;BA)(A;OICI;FA;;;SY)");
  Expect(volume, {NotWritable(volume)});
}

// It may be mounted where a profile is to go, and nowhere else.
TEST_F(VolumeRules, OfProfiles) {
  const auto expect = [&](const char16_t* folder, const Lines& lines) {
    EXPECT_LINES(Decision([&] { return ValidateProfileVolume(volume.c_str(), folder); }), lines);
  };
  Mount(u"C:\\other", other);
  expect(u"C:\\place", passed);
  Mount(u"C:\\place", volume);
  expect(u"C:\\place", passed);
  for (const char16_t* folder : {u"C:\\Data", u"C:\\other"}) expect(folder, {Mounted(volume)});
  FailWithMounts(ERROR_ACCESS_DENIED);
  expect(u"C:\\place", {Mounted(volume)});
  Mount(u"C:\\second", volume);
  expect(u"C:\\place", {Mounted(volume)});
  machine->FindByGuidName(volume)->fileSystem = u"FAT32";
  expect(u"C:\\place", {NotNtfs(volume)});
  volume = u"\\\\?\\Volume{no}\\";
  expect(u"C:\\place", {NoVolume(volume)});
}

// Of a volume all rules are tried; one that fails is not measured, but the source is examined.
TEST_F(VolumeRules, WithASource) {
  const std::u16string busy = source + u"\\busy", below = u"C:\\Data\\above\\Logs";
  MakeFile(busy, "x");
  ASSERT_EQ(CreateJunction(u"C:\\Data\\above", u"C:\\Windows"), 1);
  ExpectMove(source, passed);
  ExpectMove(below, {BelowRedirected(below)});
  const auto file = HoldOpen(busy, GENERIC_READ, 0);
  ExpectMove(source, {InUse(busy)});
  machine->FindByGuidName(volume)->fileSystem = u"FAT32";
  Mount(u"C:\\mounted", volume);
  test::SetSecurity(volume, u"O:SYD:P(A;OICI;FRFX;;;BA)(A;OICI;FA;;;SY)");
  MakeHole(source + u"\\hole", std::uint64_t{1} << 40);
  const Lines wrong = {NotNtfs(volume), Mounted(volume), NotWritable(volume)};
  Expect(volume, wrong);
  ExpectMove(u"C:\\missing", {u"#ERROR: The selected folder C:\\missing does not exist.The system cannot find the file "
                              u"specified."});
  ExpectMove(source, {wrong[0], wrong[1], wrong[2], InUse(busy)});
  ExpectMove(below, {wrong[0], wrong[1], wrong[2], BelowRedirected(below)});
}

TEST_F(VolumeRules, TheSourceMayFillTheVolumeToTheLastByte) {
  MakeFolder(source + u"\\held");
  const auto held = HoldOpen(source + u"\\held", GENERIC_READ, 7);
  ExpectMove(source, {InUse(source + u"\\held")});  // that only the handle table tells
  machine->files().CloseForeign(held);
  ULARGE_INTEGER room{};
  ASSERT_TRUE(GetDiskFreeSpaceExW(volume.c_str(), &room, nullptr, nullptr));
  for (const unsigned more : {0u, 1u}) {
    MakeHole(u"C:\\Data\\hole", room.QuadPart + more);
    ExpectMove(source,
               more == 0 ? passed : Lines{u"#ERROR: Volume " + volume + u" doesn't have enough free disk space."});
  }
}

// The probe leaves nothing, and a file of its name is somebody's.
TEST_F(VolumeRules, WritingIsTriedWithoutATrace) {
  const std::u16string probe = volume + u"temp.check";
  Expect(volume, passed);
  EXPECT_FALSE(test::Exists(probe));
  for (const DWORD attributes : {FILE_ATTRIBUTE_HIDDEN, FILE_ATTRIBUTE_READONLY}) {
    MakeFile(probe, "theirs", attributes);
    const std::string before = test::Describe(probe);
    Expect(volume, attributes == FILE_ATTRIBUTE_READONLY ? Lines{NotWritable(volume)} : passed);
    EXPECT_EQ(test::Describe(probe), before);
    DeleteFileW(probe.c_str());
  }
}

}  // namespace
