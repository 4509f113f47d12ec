// Is there room for the source, to the byte.
#include "program/validation.h"

namespace {

using namespace test;
using namespace win32;

class FreeSpace : public ValidationTest {
 protected:
  FreeSpace() : ValidationTest({.volumes = 1}) {
    volume = machine->volumes.back()->guidName;
    MakeFolder(u"C:\\mounted");
    EXPECT_TRUE(SetVolumeMountPointW(u"C:\\mounted\\", volume.c_str()));
  }

  static std::uint64_t FreeBytesOf(const std::u16string& folder) {
    ULARGE_INTEGER available{};
    EXPECT_TRUE(GetDiskFreeSpaceExW(folder.c_str(), &available, nullptr, nullptr));
    return available.QuadPart;
  }
  Lines RefusedRoom(const std::u16string& from, const std::u16string& to) {
    return Refusal([&] { return HasEnoughFreeSpace(from.c_str(), to.c_str()); });
  }
  std::u16string volume;
};

TEST_F(FreeSpace, MustBeMoreThanTheFilesTake) {
  MakeFolder(source + u"\\sub");
  MakeFile(source + u"\\sub\\f", std::string(1000, 'x'));
  const std::uint64_t room = FreeBytesOf(target) - 1000;
  for (const int more : {-1, 0, 1}) {
    MakeHole(source + u"\\hole", room + static_cast<std::uint64_t>(more));
    EXPECT_LINES(RefusedRoom(source, target), more < 0 ? passed : Lines{NoRoom(target)});
    EXPECT_LINES(RefusedRoom(source, u"D:\\New"), more < 0 ? passed : Lines{NoRoom(u"D:\\New")});
    EXPECT_LINES(Refusal(source.c_str(), target.c_str()), more < 0 ? passed : Lines{NoRoom(target)});
  }
  // What is behind a link takes no room, neither below the source nor in its place.
  ASSERT_TRUE(DeleteFileW((source + u"\\hole").c_str()));
  MakeFolder(u"C:\\Huge");
  MakeHole(u"C:\\Huge\\hole", std::uint64_t{5} << 30);
  ASSERT_EQ(CreateJunction((source + u"\\j").c_str(), u"C:\\Huge"), 1);
  EXPECT_LINES(RefusedRoom(source, target), passed);
  EXPECT_LINES(RefusedRoom(source + u"\\j", target), passed);
  EXPECT_LINES(RefusedRoom(u"C:\\Huge", target), Lines{NoRoom(target)});
}

TEST_F(FreeSpace, IsLookedForWhereTheTargetWillBe) {
  EXPECT_LINES(LinesOf([&] { HasEnoughFreeSpace(source.c_str(), u"D:\\New"); }),
               Lines{u"#INFO: Target D:\\New doesn't exists so checking free space using parent directory D:"});
  MakeHole(source + u"\\hole", FreeBytesOf(u"C:\\mounted"));
  EXPECT_LINES(RefusedRoom(source, u"C:\\mounted"), Lines{NoRoom(volume)});
  // What Windows cannot tell counts as none; for a volume it is an error of its own.
  machine->gate.FailCallsFrom("GetDiskFreeSpaceExW", 1, ERROR_NOT_READY);
  EXPECT_LINES(RefusedRoom(source, target), Lines{NoRoom(target)});
  for (const std::u16string& place : {std::u16string(u"C:\\mounted"), volume}) {
    EXPECT_LINES(RefusedRoom(source, place), Lines{u"#ERROR: Failed to obtain available free space on : " + place});
    EXPECT_LINES(RefusedRoom(place, target), Lines{u"#ERROR: Failed to obtain size of " + place});
  }
}

TEST_F(FreeSpace, AVolumeTakesWhatIsUsedOfIt) {
  for (const std::u16string& place : {std::u16string(u"C:\\mounted"), volume})
    EXPECT_LINES(RefusedRoom(place, target), passed);
  // Something that is no file, but is used.
  MakeFolder(u"D:\\Filled");
  MakeFile(u"D:\\Filled\\f", std::string(FreeBytesOf(target) - (1 << 20), 'x'));
  MakeFile(u"C:\\mounted\\f", std::string(1 << 20, 'x'));
  EXPECT_LINES(RefusedRoom(u"C:\\mounted", target), Lines{NoRoom(target)});
  EXPECT_LINES(RefusedRoom(u"C:\\missing", target), Lines{u"#ERROR: Failed to obtain size of C:\\missing"});
}

}  // namespace
