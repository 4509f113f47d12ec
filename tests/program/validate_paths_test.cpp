// The whole decision on a source and a target: which rules are still tried after one has failed, and what the flags of
// profile operations change.
#include "links/junction.h"
#include "program/validation.h"
#include "win32/emulated/registry/services.h"

namespace {

using namespace win32;
using test::Lines, test::MakeFile, test::MakeFolder;

const std::u16string kNoPaths =
    u"#ERROR: There was an error during path validation. Error message: Source Or Target path missing.";
const std::u16string kUnreadable =
    u" - Insufficient permissions. The minimum permissions requirement is read & execute.";

class RedirectionPaths : public test::ValidationTest {
 protected:
  Lines Logged(const char16_t* from, const char16_t* to, const RedirectionOptions& options = {}) {
    return LinesOf([&] { Refusal(from, to, options); });
  }
};

TEST_F(RedirectionPaths, AnOrdinaryFolderMayGo) {
  MakeFile(source + u"\\f", "x");
  EXPECT_LINES(Refusal(source.c_str(), target.c_str()), passed);
  EXPECT_LINES(Logged(source.c_str(), target.c_str()), Lines{});
  EXPECT_LINES(Logged(source.c_str(), u"D:\\New"),
               Lines{u"#INFO: The selected target folder D:\\New does not exist. Ignoring PathIsDirectory validation.",
                     u"#ERROR: Unable to get File Attributes for path = D:\\NewThe system cannot find the file "
                     u"specified.",
                     u"#INFO: Target D:\\New doesn't exists so checking free space using parent directory D:"});
}

TEST_F(RedirectionPaths, EveryFlagReachesItsRule) {
  ASSERT_EQ(CreateSymbolicLinkEntry(u"C:\\link", source.c_str()), 1);
  const Lines symbolic{u"#ERROR: The folder C:\\link is Symbolic Link. Browse to a different location."};
  EXPECT_LINES(Refusal(u"C:\\link", target.c_str()), symbolic);
  EXPECT_LINES(Refusal(u"C:\\link", target.c_str(), {.quietSystemFolder = true}), passed);
  EXPECT_LINES(Refusal(u"C:\\link", target.c_str(), {.sourceIsRedirectedProfile = true}), passed);

  MakeFolder(source + u"\\closed");
  test::SetSecurity(source + u"\\closed", u"O:SYD:P(A;;FA;;;SY)");
  EXPECT_LINES(Refusal(source.c_str(), target.c_str()), Lines{u"#ERROR: C:\\Data\\closed" + kUnreadable});
  EXPECT_LINES(Refusal(source.c_str(), target.c_str(), {.allowLockedSpecialCase = true}), passed);

  // What is open is asked below both places, and only when the scan is to look for it.
  machine->gate.ResetCounts();
  Refusal(source.c_str(), target.c_str(), {.prescan = false});
  EXPECT_EQ(machine->gate.Count("NtQuerySystemInformation"), 0u);
  MakeFolder(source + u"\\held");
  const auto held = HoldOpen(source + u"\\held", GENERIC_READ, 7);
  EXPECT_LINES(Refusal(source.c_str(), target.c_str(), {.allowLockedSpecialCase = true}), passed);
  EXPECT_LINES(Refusal(source.c_str(), target.c_str(), {.prescan = false, .allowLockedSpecialCase = true}), passed);
}

TEST_F(RedirectionPaths, AFailedSourceEndsItAndAFailedTargetDoesNot) {
  MakeFile(source + u"\\busy", "x");
  MakeFile(u"D:\\file", "x");
  const auto held = HoldOpen(source + u"\\busy", GENERIC_READ, 0);
  EXPECT_LINES(Refusal(u"C:\\", u"D:\\file"),
               Lines{u"#ERROR: C:\\ - A folder is required for folder redirection. Browse to a different location."});
  const RedirectionOptions opensOnly{.prescan = false};  // nobody is asked for the handles of others
  const Lines busy = {u"#INFO: C:\\Data\\busy - File is not accessible.", test::InUse(u"C:\\Data\\busy")};
  EXPECT_LINES(Logged(source.c_str(), target.c_str(), opensOnly), busy);
  EXPECT_LINES(Logged(source.c_str(), u"D:\\file", opensOnly),
               Lines{u"#ERROR: The specified path D:\\file is not a valid directory path.", busy[0], busy[1]});
  // Of the relations those that look at the two places alone are left.
  EXPECT_LINES(Logged(source.c_str(), u"C:\\Data\\busy", opensOnly),
               Lines{u"#ERROR: The specified path C:\\Data\\busy is not a valid directory path.",
                     u"Checking source folder contained in target.\nSource: C:\\Data Target: C:\\Data\\busy #ERROR: "
                     u"Cannot redirect within the same Source folder. Browse to a different location.",
                     busy[0], busy[1]});
  EXPECT_LINES(Logged(source.c_str(), nullptr, opensOnly),
               Lines{u"#ERROR: Input path missing.", kNoPaths, busy[0], busy[1]});
  EXPECT_LINES(Logged(nullptr, target.c_str(), opensOnly), Lines{u"#ERROR: Input path missing."});
}

TEST_F(RedirectionPaths, TheTargetAloneIsReadWhenAskedFor) {
  const RedirectionOptions targetOnly{.targetOnly = true}, special{.allowLockedSpecialCase = true, .targetOnly = true};
  MakeFolder(u"D:\\closed");
  MakeFile(u"D:\\file", "x");
  test::SetSecurity(u"D:\\closed", u"O:SYD:P(A;OICI;0x1F01DF;;;BA)(A;OICI;FA;;;SY)");  // all but execute
  // A source that the rules for sources would not pass.
  std::u16string longSource = source;
  for (const char16_t name : {u'a', u'b'}) MakeFolder(u"\\\\?\\" + (longSource += u"\\" + std::u16string(120, name)));
  EXPECT_LINES(Refusal(longSource.c_str(), target.c_str(), targetOnly), passed);
  const std::u16string cannotBeMade =
      u"#ERROR: The target folder D:\\closed can not be created. Insufficient permissions. The minimum permissions "
      u"requirement to create the target folder is full control.";
  EXPECT_LINES(Logged(source.c_str(), u"D:\\closed"), Lines{cannotBeMade});
  EXPECT_LINES(Logged(source.c_str(), u"D:\\closed", targetOnly),
               Lines{cannotBeMade, u"##ERROR: D:\\closed" + kUnreadable});
  EXPECT_LINES(Logged(source.c_str(), u"D:\\closed", special),
               Lines{cannotBeMade, u"##INFO: D:\\closed - Folder locked but allowing it anyways (special case)."});
  const Lines noDirectory = {u"#ERROR: The specified path D:\\file is not a valid directory path."};
  EXPECT_LINES(Logged(source.c_str(), u"D:\\file", special), noDirectory);
  const auto held = HoldOpen(u"D:\\file", GENERIC_READ, 0);
  EXPECT_LINES(Logged(source.c_str(), u"D:\\file", special),
               Lines{noDirectory[0], u"##INFO: D:\\file - File is not accessible."});
  EXPECT_LINES(Logged(source.c_str(), nullptr, targetOnly),
               Lines{u"#ERROR: Input path missing.", kNoPaths, u"##ERROR: (null)" + kUnreadable});
  EXPECT_LINES(Logged(nullptr, target.c_str(), targetOnly), Lines{kNoPaths, u"#ERROR: Source path is missing."});
}

TEST_F(RedirectionPaths, MediaSharingStopsWhenAskedFor) {
  machine->services().Install(u"WMPNetworkSvc", u"C:\\Windows\\System32\\svchost.exe", SERVICE_DEMAND_START);
  machine->services().SetState(u"WMPNetworkSvc", SERVICE_RUNNING);
  Refusal(source.c_str(), target.c_str());
  EXPECT_EQ(machine->services().State(u"WMPNetworkSvc"), SERVICE_RUNNING);
  Refusal(u"C:\\missing", target.c_str(), {.stopMediaSharing = true});
  EXPECT_EQ(machine->services().State(u"WMPNetworkSvc"), SERVICE_RUNNING);
  Refusal(source.c_str(), u"Q:\\x", {.stopMediaSharing = true});
  EXPECT_EQ(machine->services().State(u"WMPNetworkSvc"), SERVICE_STOPPED) << "whatever the target";
  EXPECT_LINES(Refusal(source.c_str(), target.c_str(), {.stopMediaSharing = true}), passed);
}

// The quiet flags reach the rule about Windows' own folders.
TEST_F(RedirectionPaths, ProfilesAreNotWarnedAbout) {
  MakeFolder(u"C:\\Windows\\Profiles");
  for (const RedirectionOptions& options : {RedirectionOptions{}, RedirectionOptions{.sourceIsRedirectedProfile = true},
                                            RedirectionOptions{.quietSystemFolder = true}}) {
    machine->console.clear();
    EXPECT_LINES(Refusal(u"C:\\Windows\\Profiles", target.c_str(), options), passed);
    EXPECT_EQ(machine->console.empty(), options.sourceIsRedirectedProfile || options.quietSystemFolder);
  }
}

}  // namespace
