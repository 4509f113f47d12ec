// The whole decision on a source and a target: which rules are still tried after one has failed, and what the flags of
// profile operations change.
#include "program/validation.h"

namespace {

using namespace win32;
using test::About, test::Lines, test::MakeFile, test::MakeFolder;

const std::u16string kNoPaths =
    u"#ERROR: There was an error during path validation. Error message: Source Or Target path missing.";
const auto Unreadable =
    About(u"##ERROR: ", u" - Insufficient permissions. The minimum permissions requirement is read & execute.");
const auto NoDirectory = About(u"#ERROR: The specified path ", u" is not a valid directory path.");
const auto NotAccessible = About(u"#INFO: ", u" - File is not accessible.");

class RedirectionPaths : public test::ValidationTest {
 protected:
  RedirectionPaths() : ValidationTest({.volumes = 1}) {}

  // The answer, and all that is logged.
  void Expect(std::optional<std::u16string> from, std::optional<std::u16string> to, const RedirectionOptions& options,
              const Lines& lines) {
    EXPECT_LINES(Decision([&] {
                   return ValidateRedirectionPaths(from ? from->c_str() : nullptr, to ? to->c_str() : nullptr, options);
                 }),
                 lines);
  }
};

TEST_F(RedirectionPaths, EveryFlagReachesItsRule) {
  Expect(source, target, {}, passed);
  ASSERT_EQ(CreateSymbolicLinkEntry(u"C:\\link", source.c_str()), 1);
  const auto link = [&](const RedirectionOptions& options) { return Refusal(u"C:\\link", target.c_str(), options); };
  EXPECT_LINES(link({}), Lines{u"#ERROR: The folder C:\\link is Symbolic Link. Browse to a different location."});
  EXPECT_LINES(link({.quietSystemFolder = true}), passed);
  EXPECT_LINES(link({.sourceIsRedirectedProfile = true}), passed);
  MakeFolder(u"D:\\mounted");
  ASSERT_TRUE(SetVolumeMountPointW(u"D:\\mounted\\", machine->volumes.back()->guidName.c_str()));
  Expect(source, u"D:\\mounted", {.excludeMountedVolume = true}, passed);
  Expect(source, u"D:\\mounted", {},
         {u"#ERROR: The folder D:\\mounted is already redirected. Browse to a different location."});
  // Nobody is warned of a profile below Windows' own folders.
  MakeFolder(u"C:\\Windows\\Profiles");
  Expect(u"C:\\Windows\\Profiles", target, {.sourceIsRedirectedProfile = true}, passed);
  Expect(u"C:\\Windows\\Profiles", target, {.quietSystemFolder = true}, passed);
  EXPECT_EQ(machine->console, "");
  Expect(u"C:\\Windows\\Profiles", target, {}, passed);
  EXPECT_NE(machine->console, "");

  const std::u16string closed = source + u"\\closed";
  MakeFolder(closed);
  test::SetSecurity(closed, u"O:SYD:P(A;;FA;;;SY)");
  Expect(source, target, {}, {Unreadable(closed).substr(1)});
  const Lines allowed = {passed[0],
                         u"#INFO: C:\\Data\\closed - Insufficient permissions but allowing it anyways (special case)."};
  Expect(source, target, {.allowLockedSpecialCase = true}, allowed);
  // What is open is asked below both places, and only when the scan is to look for it.
  MakeFolder(source + u"\\held");
  const auto held = HoldOpen(source + u"\\held", GENERIC_READ, 7);
  machine->gate.ResetCounts();
  Expect(source, target, {.prescan = false, .allowLockedSpecialCase = true}, allowed);
  EXPECT_EQ(machine->gate.Count("NtQuerySystemInformation"), 0u);
  EXPECT_LINES(Refusal(source.c_str(), target.c_str()),
               Lines{Unreadable(closed).substr(1), test::InUse(source + u"\\held")});
}

TEST_F(RedirectionPaths, AFailedSourceEndsItAndAFailedTargetDoesNot) {
  const std::u16string busy = source + u"\\busy";
  for (const std::u16string& file : {busy, std::u16string(u"D:\\file")}) MakeFile(file, "x");
  const auto held = HoldOpen(busy, GENERIC_READ, 0);
  const RedirectionOptions opensOnly{.prescan = false};  // nobody is asked for the handles of others
  Expect(u"C:\\", u"D:\\file", opensOnly,
         {u"#ERROR: C:\\ - A folder is required for folder redirection. Browse to a different location."});
  Expect(source, target, opensOnly, {NotAccessible(busy), test::InUse(busy)});
  Expect(source, u"D:\\file", opensOnly, {NoDirectory(u"D:\\file"), NotAccessible(busy), test::InUse(busy)});
  // Of the relations those that look at the two places alone are left.
  Expect(source, busy, opensOnly,
         {NoDirectory(busy),
          u"Checking source folder contained in target.\nSource: C:\\Data Target: C:\\Data\\busy #ERROR: Cannot "
          u"redirect within the same Source folder. Browse to a different location.",
          NotAccessible(busy), test::InUse(busy)});
  Expect(source, std::nullopt, opensOnly,
         {u"#ERROR: Input path missing.", kNoPaths, NotAccessible(busy), test::InUse(busy)});
  Expect(std::nullopt, target, opensOnly, {u"#ERROR: Input path missing."});
}

TEST_F(RedirectionPaths, TheTargetAloneIsReadWhenAskedFor) {
  const RedirectionOptions targetOnly{.targetOnly = true}, special{.allowLockedSpecialCase = true, .targetOnly = true};
  // A source that the rules for sources would not pass.
  std::u16string longSource = source;
  for (const char16_t name : {u'a', u'b'}) MakeFolder(u"\\\\?\\" + (longSource += u"\\" + std::u16string(120, name)));
  Expect(longSource, target, targetOnly, passed);
  Expect(source, target, special,
         {passed[0], u"##INFO: D:\\Target - Folder locked but allowing it anyways (special case)."});
  // What is not there yet cannot be read.
  EXPECT_LINES(Refusal(source.c_str(), u"D:\\New", targetOnly),
               Lines{u"#ERROR: Unable to get File Attributes for path = D:\\NewThe system cannot find the file "
                     u"specified.",
                     Unreadable(u"D:\\New")});
  MakeFile(u"D:\\file", "x");
  Expect(source, u"D:\\file", special, {NoDirectory(u"D:\\file")});
  const auto held = HoldOpen(u"D:\\file", GENERIC_READ, 0);
  Expect(source, u"D:\\file", special, {NoDirectory(u"D:\\file"), u"#" + NotAccessible(u"D:\\file")});
  Expect(source, std::nullopt, targetOnly, {u"#ERROR: Input path missing.", kNoPaths, Unreadable(u"(null)")});
  Expect(std::nullopt, target, targetOnly, {kNoPaths, u"#ERROR: Source path is missing."});
}

TEST_F(RedirectionPaths, MediaSharingStopsWhenAskedFor) {
  machine->services().Install(u"WMPNetworkSvc", u"C:\\Windows\\System32\\svchost.exe", SERVICE_DEMAND_START);
  machine->services().SetState(u"WMPNetworkSvc", SERVICE_RUNNING);
  Refusal(source.c_str(), target.c_str());
  Refusal(u"C:\\missing", target.c_str(), {.stopMediaSharing = true});
  EXPECT_EQ(machine->services().State(u"WMPNetworkSvc"), SERVICE_RUNNING);
  Refusal(source.c_str(), u"Q:\\x", {.stopMediaSharing = true});
  EXPECT_EQ(machine->services().State(u"WMPNetworkSvc"), SERVICE_STOPPED) << "whatever the target";
  Expect(source, target, {.stopMediaSharing = true}, passed);
}

}  // namespace
