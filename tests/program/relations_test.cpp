// The rules for a source and a target together: each alone, in their order, and what the flags change.
#include "links/junction.h"
#include "program/validation.h"

namespace {

using namespace win32;
using test::About, test::BelowRedirected, test::Lines, test::MakeFolder, test::NoRoom;

const auto Redirected = About(u"#ERROR: The folder ", u" is already redirected. Browse to a different location.");
const auto Symbolic = About(u"#ERROR: The folder ", u" is Symbolic Link. Browse to a different location.");
const auto BelowSymbolic =
    About(u"#ERROR: The parent folder of ", u" is Symbolic Link. Browse to a different location.");
const auto CannotBeMade = About(u"#ERROR: The target folder ",
                                u" can not be created. Insufficient permissions. The minimum permissions requirement "
                                u"to create the target folder is full control.");
// Not a refusal: the question whether something is a junction, asked of what does not exist.
const auto Unread =
    About(u"#ERROR: Unable to get File Attributes for path = ", u"The system cannot find the file specified.");
std::u16string Same(const std::u16string& from, const std::u16string& to) {
  return u"Checking source folder equals to target.\nSource: " + from + u" Target: " + to +
         u" #ERROR: Cannot redirect when Source and Target folder are the same. Browse to a different location.";
}
std::u16string Inside(const std::u16string& from, const std::u16string& to) {
  return u"Checking source folder contained in target.\nSource: " + from + u" Target: " + to +
         u" #ERROR: Cannot redirect within the same Source folder. Browse to a different location.";
}

// Below C:\Links, "junction" and "symbolic" lead to D:\Other, and a volume is mounted on "mounted"; each shows a folder
// "sub".
class Relations : public test::ValidationTest {
 protected:
  Relations() : ValidationTest({.volumes = 1}) {
    MakeFolder(u"D:\\Other");
    MakeFolder(u"D:\\Other\\sub");
    MakeFolder(u"C:\\Links");
    MakeFolder(u"C:\\Links\\mounted");
    const std::u16string volume = machine->volumes.back()->guidName;
    EXPECT_TRUE(SetVolumeMountPointW(u"C:\\Links\\mounted\\", volume.c_str()));
    MakeFolder(u"C:\\Links\\mounted\\sub");
    EXPECT_EQ(CreateJunction(u"C:\\Links\\junction", u"D:\\Other"), 1);
    EXPECT_EQ(CreateSymbolicLinkEntry(u"C:\\Links\\symbolic", u"D:\\Other"), 1);
  }

  struct Case {
    std::u16string source, target;
    Lines lines;
    bool skipTarget = false;
  };
  void Expect(const std::vector<Case>& cases, RelationOptions options = {}) {
    for (const Case& each : cases) {
      options.skipTarget = each.skipTarget;
      const Lines lines =
          Refusal([&] { return CheckPathRelations(each.source.c_str(), each.target.c_str(), options); });
      EXPECT_EQ(test::Shown(lines), test::Shown(each.lines))
          << emulated::Utf8(each.source) << " to " << emulated::Utf8(each.target);
    }
  }
  void ExpectBothWays(const std::u16string& path, const Lines& lines, RelationOptions options = {}) {
    Expect({{path, target, lines}, {source, path, lines}}, options);
  }
};

TEST_F(Relations, LinksOnEitherSide) {
  for (const char16_t* path : {u"C:\\Links\\junction", u"C:\\Links\\mounted"}) ExpectBothWays(path, {Redirected(path)});
  for (const char16_t* path : {u"C:\\Links\\junction\\sub", u"C:\\Links\\mounted\\sub"})
    ExpectBothWays(path, {BelowRedirected(path)});
  ExpectBothWays(u"C:\\Links\\symbolic", {Symbolic(u"C:\\Links\\symbolic")});
  ExpectBothWays(u"C:\\Links\\symbolic\\sub", {BelowSymbolic(u"C:\\Links\\symbolic\\sub")});
  // A backslash at the end makes a folder the first of those above itself.
  Expect({{source, target, passed},
          {u"C:\\Links\\junction\\", target, {Redirected(u"C:\\Links\\junction\\")}},
          {u"\\\\?\\C:\\Links\\junction\\sub", target, {BelowRedirected(u"\\\\?\\C:\\Links\\junction\\sub")}},
          {source,
           u"C:\\Links\\junction\\new",
           {Unread(u"C:\\Links\\junction\\new"), BelowRedirected(u"C:\\Links\\junction\\new")}}});
}

// In a profile operation symbolic links are let through, and a mounted volume is a folder like any other.
TEST_F(Relations, LinksOfProfiles) {
  const RelationOptions redirected{.sourceIsRedirectedProfile = true}, quiet{.quietSystemFolder = true};
  for (const RelationOptions& options : {redirected, quiet}) {
    for (const char16_t* path : {u"C:\\Links\\mounted\\sub", u"C:\\Links\\symbolic\\sub"})
      ExpectBothWays(path, passed, options);
    ExpectBothWays(u"C:\\Links\\junction", {Redirected(u"C:\\Links\\junction")}, options);
    ExpectBothWays(u"C:\\Links\\junction\\sub", {BelowRedirected(u"C:\\Links\\junction\\sub")}, options);
    Expect({{u"C:\\Links\\symbolic", target, passed},
            {u"C:\\Links\\mounted", target, passed},
            {source, u"C:\\Links\\mounted", {Redirected(u"C:\\Links\\mounted")}}},
           options);
  }
  Expect({{source, u"C:\\Links\\symbolic", passed}}, redirected);
  Expect({{source, u"C:\\Links\\symbolic", {Symbolic(u"C:\\Links\\symbolic")}}}, quiet);
  // excludeMountedVolume is about the target alone, and not about one that comes back from a redirection.
  Expect({{source, u"C:\\Links\\mounted", passed},
          {u"C:\\Links\\mounted", target, {Redirected(u"C:\\Links\\mounted")}},
          {source, u"C:\\Links\\mounted\\sub", {BelowRedirected(u"C:\\Links\\mounted\\sub")}}},
         {.excludeMountedVolume = true});
  Expect({{source, u"C:\\Links\\mounted", {Redirected(u"C:\\Links\\mounted")}}},
         {.sourceIsRedirectedProfile = true, .excludeMountedVolume = true});
}

// Rights, links above and room are not asked of a target that is a junction, nor links above of a source that is a
// link.
TEST_F(Relations, WhatIsALinkIsNotExaminedFurther) {
  MakeFolder(u"D:\\closed");
  test::SetSecurity(u"D:\\closed", u"O:SYD:P(A;OICI;FRFX;;;BA)(A;OICI;FA;;;SY)");
  ASSERT_EQ(CreateJunction(u"C:\\Links\\closed", u"D:\\closed"), 1);
  ASSERT_EQ(CreateSymbolicLinkEntry(u"C:\\Links\\junction\\link", target.c_str()), 1);
  Expect({{source, u"C:\\Links\\closed", {Redirected(u"C:\\Links\\closed")}},
          {u"C:\\Links\\junction\\link", target, {Symbolic(u"C:\\Links\\junction\\link")}}});
}

TEST_F(Relations, EveryRuleSpeaksInItsOrder) {
  const std::u16string junction = u"C:\\Links\\junction", symbolic = u"C:\\Links\\symbolic";
  const std::u16string inner = symbolic + u"\\inner", deep = inner + u"\\deep", sub = junction + u"\\sub";
  ASSERT_EQ(CreateJunction(u"D:\\Other\\inner", u"D:\\Target"), 1);
  MakeFolder(u"D:\\Target\\deep");
  // Above both lie a junction and a symbolic link; neither hides the other.
  Expect({{deep,
           deep,
           {BelowRedirected(deep), BelowSymbolic(deep), BelowRedirected(deep), BelowSymbolic(deep), Same(deep, deep)}},
          // What is a link itself is not asked for links above it, and is left where it stands.
          {inner, target, {Redirected(inner)}},
          {junction, junction, {Redirected(junction), Redirected(junction)}},
          {symbolic, symbolic, {Symbolic(symbolic), Symbolic(symbolic), Same(symbolic, symbolic)}},
          // A target that is a symbolic link ends the questions about what is above, of the source as well.
          {sub, symbolic, {Symbolic(symbolic)}}});
  // Without the target's rules, those of the source and of the two places are left.
  Expect({{sub, junction, {BelowRedirected(sub)}, true},
          {source, sub, passed, true},
          {source, source, {Same(source, source)}, true},
          {source, u"c:\\data\\x", {Inside(source, u"c:\\data\\x")}, true},
          {source, u"", passed, true},
          {u"", target, passed}});
  for (const auto& [from, to] :
       {std::pair<const char16_t*, const char16_t*>{nullptr, u"D:\\Target"}, {u"C:\\Data", nullptr}})
    EXPECT_LINES(
        Refusal([&, from = from, to = to] { return CheckPathRelations(from, to, {}); }),
        Lines{u"#ERROR: There was an error during path validation. Error message: Source Or Target path missing."});
}

TEST_F(Relations, TheTargetMustBeOpenToTheUser) {
  const auto grant = [](const std::u16string& path, const std::u16string& rights) {
    test::SetSecurity(path, u"O:SYD:P(A;OICI;" + rights + u";;;BA)(A;OICI;FA;;;SY)");
  };
  for (const char16_t* folder : {u"D:\\closed", u"D:\\closed\\open"}) MakeFolder(folder);
  grant(u"D:\\closed\\open", u"FA");
  grant(u"D:\\closed", u"FRFX");
  Expect({{source, u"D:\\closed", {CannotBeMade(u"D:\\closed")}},
          {source, u"D:\\closed\\open", passed},
          // What it takes to make the folder, and what it takes to fill it.
          {source,
           u"D:\\closed\\new",
           {Unread(u"D:\\closed\\new"), CannotBeMade(u"D:\\closed\\new"), CannotBeMade(u"D:\\closed\\new")}},
          {source, u"D:\\new", {passed[0], Unread(u"D:\\new")}},
          {source,
           u"new",
           {Unread(u"new"), u"#ERROR: Unable to get Parent Directory for path = new.",
            u"#ERROR: Failed to get parent directory for path = new.", NoRoom(u"new")}}});
  // Each of the rights is needed.
  constexpr DWORD kNeeded = 0x1F01FF;
  for (DWORD right = 1; right <= SYNCHRONIZE; right <<= 1) {
    if (!(kNeeded & right) || right == WRITE_OWNER) continue;  // which a privilege gives
    const std::u16string rights = emulated::Utf16(std::to_string(kNeeded & ~right)), folder = u"D:\\" + rights;
    MakeFolder(folder);
    grant(folder, rights);
    Expect({{source, folder, {CannotBeMade(folder)}}});
  }
}

TEST_F(Relations, TheTwoPlaces) {
  MakeFolder(u"C:\\Data\\inner");
  MakeFolder(u"C:\\Database");
  for (const auto& [from, to] : {std::pair(u"C:\\Data", u"c:\\DATA"), {u"C:\\Data\\", u"C:\\Data"}})
    Expect({{from, to, {Same(from, to)}, true}});
  const std::u16string longPath = source + u"\\" + std::u16string(120, u'a') + u"\\" + std::u16string(150, u'b');
  for (const std::u16string& to :
       {std::u16string(u"C:\\Data\\"), std::u16string(u"C:\\DATA\\missing\\x"), longPath,
        std::u16string(u"C:\\Windows\\..\\Data\\x"), std::u16string(u"\\\\?\\C:\\Data\\inner")})
    Expect({{source, to, {Inside(source, to)}, true}});
  for (const char16_t* to : {u"C:\\Database", u"C:\\Database\\x", u"\\\\server\\share\\Data"})
    Expect({{source, to, passed, true}});
  Expect({{u"\"C:\\Data\"",
           u" C:\\Data\\x ",
           {u"#ERROR: Unable to get File Attributes for path = \"C:\\Data\"The system cannot find the path specified.",
            Inside(u"\"C:\\Data\"", u" C:\\Data\\x ")},
           true},
          {u"C:\\", u"c:\\Data\\x", {Inside(u"C:\\", u"c:\\Data\\x")}, true},
          {u"C:", u"C:\\Data", {Inside(u"C:", u"C:\\Data")}, true},
          {u"C:\\Data\\inner", source, passed}});
}

TEST_F(Relations, PlacesOnOneVolumeAreTold) {
  for (const char16_t* to : {u"D:\\new", u"c:\\Links\\junction\\new", u"Q:\\new"})
    EXPECT_LINES(LinesOf([&] { TellIfOnOneVolume(source, to); }), Lines{});
  for (const char16_t* to : {u"c:\\new\\x", u"C:\\Links"})
    EXPECT_LINES(LinesOf([&] { TellIfOnOneVolume(source, to); }),
                 Lines{u"#INFO: " + std::u16string(to) +
                       u" is on the same volume as C:\\Data: what is discarded there at a restart is discarded at both "
                       u"places."});
}

}  // namespace
