// The rules for a volume that is to be mounted in a folder's place.
#include "links/junction.h"
#include "program/validation.h"

namespace {

using namespace win32;
using test::BelowRedirected, test::Contents, test::InUse, test::Lines, test::MakeFile, test::MakeFolder;

class VolumeRules : public test::ValidationTest {
 protected:
  VolumeRules() : ValidationTest({.volumes = 2}) {
    volume = machine->volumes[machine->volumes.size() - 2]->guidName;
    other = machine->volumes.back()->guidName;
    notNtfs = u"#ERROR: Volume " + volume + u" must be a NTFS formatted volume. Browse to a different location.";
    mounted = u"#ERROR: The selected volume " + volume + u" already mounted.";
    notWritable = u"#ERROR: The selected volume " + volume + u" doesn't have write permission.";
  }
  Lines RefusedVolume(const std::u16string& name) {
    return Decision([&] { return ValidateVolume(name.c_str()); });
  }
  Lines RefusedProfile(const char16_t* folder) {
    return Decision([&] { return ValidateProfileVolume(volume.c_str(), folder); });
  }
  Lines RefusedMove(const char16_t* from) {
    return Refusal([&] { return ValidateVolumeRedirection(from, volume.c_str()); });
  }
  void Mount(const char16_t* folder, const std::u16string& name) {
    MakeFolder(folder);
    ASSERT_TRUE(SetVolumeMountPointW((std::u16string(folder) + u"\\").c_str(), name.c_str()));
  }
  std::u16string volume, other, notNtfs, mounted, notWritable;
};

TEST_F(VolumeRules, EachAlone) {
  EXPECT_LINES(RefusedVolume(volume), passed);
  std::u16string upper = volume;
  for (char16_t& unit : upper)
    if (unit >= u'a' && unit <= u'z') unit = static_cast<char16_t>(unit - 32);
  EXPECT_LINES(RefusedVolume(upper), passed);
  EXPECT_LINES(Refusal([] { return ValidateVolume(nullptr); }), Lines{});
  for (const std::u16string& name : {std::u16string(u"\\\\?\\Volume{no}\\"), volume.substr(0, volume.size() - 1),
                                     volume + u"x", std::u16string(u"D:\\")})
    EXPECT_LINES(RefusedVolume(name), Lines{u"#ERROR: The selected volume " + name + u" does not exist."});

  auto& facts = *machine->FindByGuidName(volume);
  for (const char16_t* fileSystem : {u"FAT", u"FAT32", u"exFAT"}) {
    facts.fileSystem = fileSystem;
    EXPECT_LINES(RefusedVolume(volume), Lines{notNtfs});
  }
  facts.fileSystem = u"NTFS";

  Mount(u"C:\\mounted", other);
  EXPECT_LINES(RefusedVolume(other), Lines{u"#ERROR: The selected volume " + other + u" already mounted."});
  const std::u16string drive = Drive(u'D').guidName;
  EXPECT_LINES(RefusedVolume(drive), Lines{u"#ERROR: The selected volume " + drive + u" already mounted."});
  // Paths that do not fit the room for them are paths; what cannot be told is none.
  machine->gate.FailCall("GetVolumePathNamesForVolumeNameW", 1, ERROR_MORE_DATA);
  EXPECT_LINES(RefusedVolume(volume), Lines{mounted});
  machine->gate.FailCall("GetVolumePathNamesForVolumeNameW", 1, ERROR_INVALID_NAME);
  EXPECT_LINES(RefusedVolume(volume), passed);

  for (const DWORD error : {ERROR_WRITE_PROTECT, ERROR_SHARING_VIOLATION}) {
    EXPECT_LINES(Refusal([&] {
                   machine->gate.FailCall("CreateFileW", 1, error);
                   return ValidateVolume(volume.c_str());
                 }),
                 passed);
  }
  test::SetSecurity(volume, u"O:SYD:P(A;OICI;FRFX;;;BA)(A;OICI;FA;;;SY)");
  EXPECT_LINES(RefusedVolume(volume), Lines{notWritable});
}

// It may be mounted where it is to go, and nowhere else.
TEST_F(VolumeRules, OfProfiles) {
  MakeFolder(u"C:\\away");
  EXPECT_LINES(RefusedProfile(u"C:\\place"), passed);
  Mount(u"C:\\place", volume);
  EXPECT_LINES(RefusedProfile(u"C:\\place"), passed);
  EXPECT_LINES(RefusedProfile(u"C:\\away"), Lines{mounted});
  Mount(u"C:\\other", other);
  EXPECT_LINES(RefusedProfile(u"C:\\other"), Lines{mounted});
  Mount(u"C:\\second", volume);
  EXPECT_LINES(RefusedProfile(u"C:\\place"), Lines{mounted});
  for (const DWORD error : {ERROR_MORE_DATA, ERROR_ACCESS_DENIED}) {
    machine->gate.FailCall("GetVolumePathNamesForVolumeNameW", 1, error);
    EXPECT_LINES(RefusedProfile(u"C:\\place"), Lines{mounted});
  }
  machine->FindByGuidName(volume)->fileSystem = u"FAT32";
  EXPECT_LINES(RefusedProfile(u"C:\\place"), Lines{notNtfs});
  volume = u"\\\\?\\Volume{no}\\";
  EXPECT_LINES(RefusedProfile(u"C:\\place"), Lines{u"#ERROR: The selected volume " + volume + u" does not exist."});
}

TEST_F(VolumeRules, AllAreTriedInTheirOrder) {
  machine->FindByGuidName(volume)->fileSystem = u"FAT32";
  Mount(u"C:\\mounted", volume);
  test::SetSecurity(volume, u"O:SYD:P(A;OICI;FRFX;;;BA)(A;OICI;FA;;;SY)");
  EXPECT_LINES(RefusedVolume(volume), Lines{notNtfs, mounted, notWritable});
  EXPECT_LINES(RefusedMove(u"C:\\missing"),
               Lines{u"#ERROR: The selected folder C:\\missing does not exist.The system cannot find the file "
                     u"specified."});
  // A volume that fails is not measured, but the source is examined.
  MakeFile(source + u"\\busy", "x");
  const auto held = HoldOpen(source + u"\\busy", GENERIC_READ, 0);
  ASSERT_EQ(CreateJunction(u"C:\\Data\\above", u"C:\\Windows"), 1);
  EXPECT_LINES(RefusedMove(source.c_str()), Lines{notNtfs, mounted, notWritable, InUse(u"C:\\Data\\busy")});
  const std::u16string below = u"C:\\Data\\above\\Logs";
  EXPECT_LINES(RefusedMove(below.c_str()), Lines{notNtfs, mounted, notWritable, BelowRedirected(below)});
}

// With a volume that nothing is wrong with, each of the others decides alone.
TEST_F(VolumeRules, TheSourceAloneIsRefusedToo) {
  ASSERT_EQ(CreateJunction(u"C:\\above", u"C:\\Windows"), 1);
  const std::u16string below = u"C:\\above\\Logs";
  EXPECT_LINES(RefusedMove(below.c_str()), Lines{BelowRedirected(below)});
  MakeFile(source + u"\\busy", "x");
  const auto file = HoldOpen(source + u"\\busy", GENERIC_READ, 0);
  EXPECT_LINES(RefusedMove(source.c_str()), Lines{InUse(source + u"\\busy")});
  machine->files().CloseForeign(file);
  EXPECT_LINES(RefusedMove(source.c_str()), passed);
  MakeFolder(source + u"\\held");
  const auto folder = HoldOpen(source + u"\\held", GENERIC_READ, 7);
  EXPECT_LINES(RefusedMove(source.c_str()), Lines{InUse(source + u"\\held")});  // that only the handle table tells
}

TEST_F(VolumeRules, TheSourceMayFillTheVolumeToTheLastByte) {
  EXPECT_LINES(RefusedMove(source.c_str()), passed);
  ULARGE_INTEGER room{};
  ASSERT_TRUE(GetDiskFreeSpaceExW(volume.c_str(), &room, nullptr, nullptr));
  for (const unsigned more : {0u, 1u}) {
    MakeHole(u"C:\\Data\\hole", room.QuadPart + more);
    EXPECT_LINES(RefusedMove(source.c_str()),
                 more == 0 ? passed : Lines{u"#ERROR: Volume " + volume + u" doesn't have enough free disk space."});
  }
  // A volume that failed is not measured.
  machine->FindByGuidName(volume)->fileSystem = u"FAT32";
  EXPECT_LINES(RefusedMove(source.c_str()), Lines{notNtfs});
}

TEST_F(VolumeRules, TheProbeLeavesNothing) {
  EXPECT_LINES(RefusedVolume(volume), passed);
  EXPECT_FALSE(test::Exists(volume + u"temp.check"));
  // A file of that name is somebody's.
  for (const DWORD attributes : {DWORD{FILE_ATTRIBUTE_ARCHIVE}, DWORD{FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM}}) {
    MakeFile(volume + u"temp.check", "theirs", attributes);
    const std::string before = test::Describe(volume + u"temp.check");
    EXPECT_LINES(RefusedVolume(volume), passed);
    EXPECT_EQ(test::Describe(volume + u"temp.check"), before);
    EXPECT_EQ(Contents(volume + u"temp.check"), "theirs");
    ASSERT_TRUE(DeleteFileW((volume + u"temp.check").c_str()));
  }
  MakeFile(volume + u"temp.check", "theirs", FILE_ATTRIBUTE_READONLY);
  EXPECT_LINES(RefusedVolume(volume), Lines{notWritable});
  EXPECT_EQ(Contents(volume + u"temp.check"), "theirs");
}

}  // namespace
