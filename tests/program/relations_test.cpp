// The rules for a source and a target together: each alone, in their order, and what the flags change.
#include "links/junction.h"
#include "program/validation.h"

namespace {

using namespace win32;
using test::Lines, test::MakeFolder;

std::u16string Redirected(const std::u16string& path) {
  return u"#ERROR: The folder " + path + u" is already redirected. Browse to a different location.";
}
std::u16string Symbolic(const std::u16string& path) {
  return u"#ERROR: The folder " + path + u" is Symbolic Link. Browse to a different location.";
}
std::u16string BelowRedirected(const std::u16string& path) {
  return u"#ERROR: The parent folder of " + path + u" is already redirected. Browse to a different location.";
}
std::u16string BelowSymbolic(const std::u16string& path) {
  return u"#ERROR: The parent folder of " + path + u" is Symbolic Link. Browse to a different location.";
}
std::u16string CannotBeMade(const std::u16string& path) {
  return u"#ERROR: The target folder " + path +
         u" can not be created. Insufficient permissions. The minimum permissions requirement to create the target "
         u"folder is full control.";
}
std::u16string Same(const std::u16string& from, const std::u16string& to) {
  return u"Checking source folder equals to target.\nSource: " + from + u" Target: " + to +
         u" #ERROR: Cannot redirect when Source and Target folder are the same. Browse to a different location.";
}
std::u16string Inside(const std::u16string& from, const std::u16string& to) {
  return u"Checking source folder contained in target.\nSource: " + from + u" Target: " + to +
         u" #ERROR: Cannot redirect within the same Source folder. Browse to a different location.";
}
std::u16string NoRoom(const std::u16string& path) {
  return u"#ERROR: There is not enough free disk space on target " + path +
         u". Browse to a different location or delete one or more files to free disk space, and try again.";
}
// Not a refusal: the question whether something is a junction, asked of what does not exist.
std::u16string Unread(const std::u16string& path) {
  return u"#ERROR: Unable to get File Attributes for path = " + path + u"The system cannot find the file specified.";
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
};

TEST_F(Relations, LinksOnEitherSide) {
  const auto from = [&](const std::u16string& path, const Lines& lines) { return Case{path, target, lines}; };
  const auto to = [&](const std::u16string& path, const Lines& lines) { return Case{source, path, lines}; };
  Expect({from(source, passed), from(u"C:\\Links\\junction", {Redirected(u"C:\\Links\\junction")}),
          from(u"C:\\Links\\symbolic", {Symbolic(u"C:\\Links\\symbolic")}),
          from(u"C:\\Links\\mounted", {Redirected(u"C:\\Links\\mounted")}),
          from(u"C:\\Links\\junction\\sub", {BelowRedirected(u"C:\\Links\\junction\\sub")}),
          from(u"C:\\Links\\symbolic\\sub", {BelowSymbolic(u"C:\\Links\\symbolic\\sub")}),
          from(u"C:\\Links\\mounted\\sub", {BelowRedirected(u"C:\\Links\\mounted\\sub")}),
          // A backslash at the end makes a folder the first of those above itself.
          from(u"C:\\Links\\junction\\", {Redirected(u"C:\\Links\\junction\\")}),
          from(u"\\\\?\\C:\\Links\\junction\\sub", {BelowRedirected(u"\\\\?\\C:\\Links\\junction\\sub")}),
          to(u"C:\\Links\\junction", {Redirected(u"C:\\Links\\junction")}),
          to(u"C:\\Links\\symbolic", {Symbolic(u"C:\\Links\\symbolic")}),
          to(u"C:\\Links\\mounted", {Redirected(u"C:\\Links\\mounted")}),
          to(u"C:\\Links\\junction\\sub", {BelowRedirected(u"C:\\Links\\junction\\sub")}),
          to(u"C:\\Links\\symbolic\\sub", {BelowSymbolic(u"C:\\Links\\symbolic\\sub")}),
          to(u"C:\\Links\\mounted\\sub", {BelowRedirected(u"C:\\Links\\mounted\\sub")}),
          to(u"C:\\Links\\junction\\new",
             {Unread(u"C:\\Links\\junction\\new"), BelowRedirected(u"C:\\Links\\junction\\new")})});
}

// In a profile operation symbolic links are let through, and a mounted volume is a folder like any other.
TEST_F(Relations, LinksOfProfiles) {
  for (const RelationOptions& options :
       {RelationOptions{.sourceIsRedirectedProfile = true}, RelationOptions{.quietSystemFolder = true}})
    Expect({{u"C:\\Links\\junction", target, {Redirected(u"C:\\Links\\junction")}},
            {u"C:\\Links\\symbolic", target, passed},
            {u"C:\\Links\\mounted", target, passed},
            {u"C:\\Links\\junction\\sub", target, {BelowRedirected(u"C:\\Links\\junction\\sub")}},
            {u"C:\\Links\\symbolic\\sub", target, passed},
            {u"C:\\Links\\mounted\\sub", target, passed},
            {source, u"C:\\Links\\junction", {Redirected(u"C:\\Links\\junction")}},
            {source, u"C:\\Links\\mounted", {Redirected(u"C:\\Links\\mounted")}},
            {source, u"C:\\Links\\junction\\sub", {BelowRedirected(u"C:\\Links\\junction\\sub")}},
            {source, u"C:\\Links\\symbolic\\sub", passed},
            {source, u"C:\\Links\\mounted\\sub", passed}},
           options);
  Expect({{source, u"C:\\Links\\symbolic", passed}}, {.sourceIsRedirectedProfile = true});
  Expect({{source, u"C:\\Links\\symbolic", {Symbolic(u"C:\\Links\\symbolic")}}}, {.quietSystemFolder = true});
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
  ASSERT_EQ(CreateJunction(u"D:\\Other\\inner", u"D:\\Target"), 1);
  MakeFolder(u"D:\\Target\\deep");
  // Above both lie a junction and a symbolic link; neither hides the other.
  Expect({{u"C:\\Links\\symbolic\\inner\\deep",
           u"C:\\Links\\symbolic\\inner\\deep",
           {BelowRedirected(u"C:\\Links\\symbolic\\inner\\deep"), BelowSymbolic(u"C:\\Links\\symbolic\\inner\\deep"),
            BelowRedirected(u"C:\\Links\\symbolic\\inner\\deep"), BelowSymbolic(u"C:\\Links\\symbolic\\inner\\deep"),
            Same(u"C:\\Links\\symbolic\\inner\\deep", u"C:\\Links\\symbolic\\inner\\deep")}},
          // What is a link itself is not asked for links above it, and is left where it stands.
          {u"C:\\Links\\symbolic\\inner", target, {Redirected(u"C:\\Links\\symbolic\\inner")}},
          {u"C:\\Links\\junction",
           u"C:\\Links\\junction",
           {Redirected(u"C:\\Links\\junction"), Redirected(u"C:\\Links\\junction")}},
          {u"C:\\Links\\symbolic",
           u"C:\\Links\\symbolic",
           {Symbolic(u"C:\\Links\\symbolic"), Symbolic(u"C:\\Links\\symbolic"),
            Same(u"C:\\Links\\symbolic", u"C:\\Links\\symbolic")}},
          // A target that is a symbolic link ends the questions about what is above, of the source as well.
          {u"C:\\Links\\junction\\sub", u"C:\\Links\\symbolic", {Symbolic(u"C:\\Links\\symbolic")}}});
  // Without the target's rules, those of the source and of the two places are left.
  Expect({{u"C:\\Links\\junction\\sub", u"C:\\Links\\junction", {BelowRedirected(u"C:\\Links\\junction\\sub")}, true},
          {source, u"C:\\Links\\junction\\sub", passed, true},
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
  MakeFolder(u"D:\\closed");
  MakeFolder(u"D:\\closed\\open");
  test::SetSecurity(u"D:\\closed\\open", u"O:BAD:P(A;OICI;FA;;;BA)");
  test::SetSecurity(u"D:\\closed", u"O:SYD:P(A;OICI;FR;;;BA)(A;OICI;FA;;;SY)");
  Expect({{source, u"D:\\closed", {CannotBeMade(u"D:\\closed")}},
          {source, u"D:\\closed\\open", passed},
          // What it takes to make the folder, and what it takes to fill it.
          {source,
           u"D:\\closed\\new",
           {Unread(u"D:\\closed\\new"), CannotBeMade(u"D:\\closed\\new"), CannotBeMade(u"D:\\closed\\new")}},
          {source, u"D:\\new", {u"(passed)", Unread(u"D:\\new")}},
          {source,
           u"new",
           {Unread(u"new"), u"#ERROR: Unable to get Parent Directory for path = new.",
            u"#ERROR: Failed to get parent directory for path = new.", NoRoom(u"new")}}});
}

TEST_F(Relations, TheTwoPlaces) {
  MakeFolder(u"C:\\Data\\inner");
  MakeFolder(u"C:\\Database");
  const std::u16string longPath = source + u"\\" + std::u16string(120, u'a') + u"\\" + std::u16string(150, u'b');
  Expect({{source, u"c:\\DATA", {Same(source, u"c:\\DATA")}, true},
          {u"C:\\Data\\", u"C:\\Data", {Same(u"C:\\Data\\", u"C:\\Data")}, true},
          {u"\"C:\\Data\"",
           u" C:\\Data\\x ",
           {u"#ERROR: Unable to get File Attributes for path = \"C:\\Data\"The system cannot find the path specified.",
            Inside(u"\"C:\\Data\"", u" C:\\Data\\x ")},
           1},
          {source, u"C:\\Data\\", {Inside(source, u"C:\\Data\\")}, true},
          {source, u"C:\\DATA\\missing\\x", {Inside(source, u"C:\\DATA\\missing\\x")}, true},
          {source, longPath, {Inside(source, longPath)}, true},
          {source, u"C:\\Windows\\..\\Data\\x", {Inside(source, u"C:\\Windows\\..\\Data\\x")}, true},
          {source, u"\\\\?\\C:\\Data\\inner", {Inside(source, u"\\\\?\\C:\\Data\\inner")}, true},
          {u"C:\\", u"c:\\Data\\x", {Inside(u"C:\\", u"c:\\Data\\x")}, true},
          {u"C:", u"C:\\Data", {Inside(u"C:", u"C:\\Data")}, true},
          {source, u"C:\\Database", passed, true},
          {source, u"C:\\Database\\x", passed, true},
          {source, u"\\\\server\\share\\Data", passed, true},
          {u"C:\\Data\\inner", source, passed}});
}

}  // namespace
