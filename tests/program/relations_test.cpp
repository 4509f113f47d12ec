// The rules for a source and a target together: each alone, in their order, and what the flags change.
#include "program/validation.h"

namespace {

using namespace win32;
using test::About, test::BelowRedirected, test::Lines, test::MakeFolder;

const std::u16string kJunction = u"C:\\Links\\junction", kSymbolic = u"C:\\Links\\symbolic",
                     kMounted = u"C:\\Links\\mounted", kElsewhere = u" Browse to a different location.";

// The lines of the rules, each with a letter: about the source (a capital) or the target.
std::u16string LineOf(char rule, const std::u16string& source, const std::u16string& target) {
  const std::u16string places = u"\nSource: " + source + u" Target: " + target + u" #ERROR: Cannot redirect w";
  if (rule == '=')
    return u"Checking source folder equals to target." + places + u"hen Source and Target folder are the same." +
           kElsewhere;
  if (rule == '<')
    return u"Checking source folder contained in target." + places + u"ithin the same Source folder." + kElsewhere;
  static const std::map<char, std::function<std::u16string(const std::u16string&)>> lines{
      {'+', [](const std::u16string&) { return u"(passed)"; }},
      {'j', About(u"#ERROR: The folder ", u" is already redirected. Browse to a different location.")},
      {'s', About(u"#ERROR: The folder ", u" is Symbolic Link. Browse to a different location.")},
      {'a', BelowRedirected},  // a junction above it, or a symbolic link
      {'b', About(u"#ERROR: The parent folder of ", u" is Symbolic Link. Browse to a different location.")},
      {'c', About(u"#ERROR: The target folder ",
                  u" can not be created. Insufficient permissions. The minimum permissions requirement to create the "
                  u"target folder is full control.")},
      {'r', test::NoRoom},
      // No refusal: the question whether something that does not exist is a junction.
      {'n',
       About(u"#ERROR: Unable to get File Attributes for path = ", u"The system cannot find the file specified.")}};
  const bool ofSource = rule >= 'A' && rule <= 'Z';
  return lines.at(ofSource ? static_cast<char>(rule - 'A' + 'a') : rule)(ofSource ? source : target);
}

// "junction" and "symbolic" lead to D:\Other, and a volume is mounted on "mounted"; each shows a folder "sub".
class Relations : public test::ValidationTest {
 protected:
  Relations() : ValidationTest({.volumes = 1}) {
    for (const std::u16string& folder :
         {std::u16string(u"D:\\Other"), std::u16string(u"D:\\Other\\sub"), std::u16string(u"C:\\Links"), kMounted})
      MakeFolder(folder);
    EXPECT_TRUE(SetVolumeMountPointW((kMounted + u"\\").c_str(), machine->volumes.back()->guidName.c_str()));
    MakeFolder(kMounted + u"\\sub");
    EXPECT_EQ(CreateJunction(kJunction.c_str(), u"D:\\Other"), 1);
    EXPECT_EQ(CreateSymbolicLinkEntry(kSymbolic.c_str(), u"D:\\Other"), 1);
  }

  void Expect(const std::u16string& from, const std::u16string& to, std::string_view rules,
              const RelationOptions& options = {}) {
    Lines lines;
    for (const char rule : rules) lines.push_back(LineOf(rule, from, to));
    EXPECT_LINES(Refusal([&] { return CheckPathRelations(from.c_str(), to.c_str(), options); }), lines);
  }
  void ExpectBothWays(const std::u16string& path, char asSource, char asTarget, const RelationOptions& options = {}) {
    Expect(path, target, {&asSource, 1}, options);
    Expect(source, path, {&asTarget, 1}, options);
  }
};

TEST_F(Relations, LinksOnEitherSide) {
  for (const std::u16string& path : {kJunction, kMounted}) {
    ExpectBothWays(path, 'J', 'j');
    ExpectBothWays(path + u"\\sub", 'A', 'a');
  }
  ExpectBothWays(kSymbolic, 'S', 's');
  ExpectBothWays(kSymbolic + u"\\sub", 'B', 'b');
  Expect(source, target, "+");
  Expect(kJunction + u"\\", target, "J");  // which is the first of the folders above itself
  Expect(u"\\\\?\\" + kJunction + u"\\sub", target, "A");
  Expect(source, kJunction + u"\\new", "na");
}

// In a profile operation symbolic links are let through, and a mounted volume is a folder like any other.
TEST_F(Relations, LinksOfProfiles) {
  const RelationOptions redirected{.sourceIsRedirectedProfile = true}, quiet{.quietSystemFolder = true};
  for (const RelationOptions& options : {redirected, quiet}) {
    for (const std::u16string& path : {kMounted, kSymbolic}) ExpectBothWays(path + u"\\sub", '+', '+', options);
    ExpectBothWays(kJunction, 'J', 'j', options);
    ExpectBothWays(kJunction + u"\\sub", 'A', 'a', options);
    ExpectBothWays(kMounted, '+', 'j', options);
    ExpectBothWays(kSymbolic, '+', options.quietSystemFolder ? 's' : '+', options);
  }
  // excludeMountedVolume is about the target alone, and not about one that comes back from a redirection.
  ExpectBothWays(kMounted, 'J', '+', {.excludeMountedVolume = true});
  Expect(source, kMounted + u"\\sub", "a", {.excludeMountedVolume = true});
  Expect(source, kMounted, "j", {.sourceIsRedirectedProfile = true, .excludeMountedVolume = true});
}

TEST_F(Relations, EveryRuleSpeaksInItsOrder) {
  const std::u16string inner = kSymbolic + u"\\inner", deep = inner + u"\\deep", sub = kJunction + u"\\sub";
  const RelationOptions skip{.skipTarget = true};
  ASSERT_EQ(CreateJunction(u"D:\\Other\\inner", u"D:\\Target"), 1);
  MakeFolder(u"D:\\Target\\deep");
  // Above both lie a junction and a symbolic link; neither hides the other.
  Expect(deep, deep, "ABab=");
  // What is a link itself is not asked for links above it, and is left where it stands.
  Expect(inner, target, "J");
  Expect(kJunction, kJunction, "Jj");
  Expect(kSymbolic, kSymbolic, "Ss=");
  // A target that is a symbolic link ends the questions about what is above, of the source as well.
  Expect(sub, kSymbolic, "s");
  // Without the target's rules, those of the source and of the two places are left.
  Expect(sub, kJunction, "A", skip);
  Expect(source, sub, "+", skip);
  Expect(source, source, "=", skip);
  Expect(source, u"c:\\data\\x", "<", skip);
  Expect(source, u"", "+", skip);
  Expect(u"", target, "+");
  const std::u16string missing =
      u"#ERROR: There was an error during path validation. Error message: Source Or Target path missing.";
  EXPECT_LINES(Refusal([&] { return CheckPathRelations(nullptr, target.c_str(), {}); }), Lines{missing});
  EXPECT_LINES(Refusal([&] { return CheckPathRelations(source.c_str(), nullptr, {}); }), Lines{missing});
}

TEST_F(Relations, TheTargetMustBeOpenToTheUser) {
  const auto grant = [](const std::u16string& path, const std::u16string& rights) {
    MakeFolder(path);
    test::SetSecurity(path, u"O:SYD:P(A;OICI;" + rights + u";;;BA)(A;OICI;FA;;;SY)");
  };
  grant(u"D:\\closed", u"FA");
  grant(u"D:\\closed\\open", u"FA");
  test::SetSecurity(u"D:\\closed", u"O:SYD:P(A;OICI;FRFX;;;BA)(A;OICI;FA;;;SY)");
  Expect(source, u"D:\\closed", "c");
  Expect(source, u"D:\\closed\\open", "+");
  Expect(source, u"D:\\closed\\new", "ncc");  // what it takes to make the folder, and what it takes to fill it
  Expect(source, u"D:\\new", "+n");
  EXPECT_LINES(Refusal([&] { return CheckPathRelations(source.c_str(), u"new", {}); }),
               Lines{LineOf('n', u"", u"new"), u"#ERROR: Unable to get Parent Directory for path = new.",
                     u"#ERROR: Failed to get parent directory for path = new.", LineOf('r', u"", u"new")});
  // Rights, links above and room are not asked of a target that is a junction.
  ASSERT_EQ(CreateJunction(u"C:\\Links\\closed", u"D:\\closed"), 1);
  Expect(source, u"C:\\Links\\closed", "j");
  // Each of the rights is needed.
  constexpr DWORD kNeeded = 0x1F01FF;
  for (DWORD right = 1; right <= SYNCHRONIZE; right <<= 1) {
    if (!(kNeeded & right) || right == WRITE_OWNER) continue;  // which a privilege gives
    const std::u16string rights = emulated::Utf16(std::to_string(kNeeded & ~right));
    grant(u"D:\\" + rights, rights);
    Expect(source, u"D:\\" + rights, "c");
  }
}

TEST_F(Relations, TheTwoPlaces) {
  const RelationOptions skip{.skipTarget = true};
  for (const char16_t* folder : {u"C:\\Data\\inner", u"C:\\Database"}) MakeFolder(folder);
  Expect(source, u"c:\\DATA", "=", skip);
  Expect(source + u"\\", source, "=", skip);
  const std::u16string longPath = source + u"\\" + std::u16string(120, u'a') + u"\\" + std::u16string(150, u'b');
  for (const std::u16string to : {u"C:\\Data\\", u"C:\\DATA\\missing\\x", longPath.c_str(), u"C:\\Windows\\..\\Data\\x",
                                  u"\\\\?\\C:\\Data\\inner"})
    Expect(source, to, "<", skip);
  for (const char16_t* to : {u"C:\\Database", u"C:\\Database\\x", u"\\\\server\\share\\Data"})
    Expect(source, to, "+", skip);
  for (const char16_t* root : {u"C:\\", u"C:"}) Expect(root, u"c:\\Data\\x", "<", skip);
  Expect(u"C:\\Data\\inner", source, "+");
  EXPECT_LINES(
      Refusal([] { return CheckPathRelations(u"\"C:\\Data\"", u" C:\\Data\\x ", {.skipTarget = true}); }),
      Lines{u"#ERROR: Unable to get File Attributes for path = \"C:\\Data\"The system cannot find the path specified.",
            LineOf('<', u"\"C:\\Data\"", u" C:\\Data\\x ")});
  for (const char16_t* to : {u"D:\\new", u"c:\\Links\\junction\\new", u"Q:\\new"})
    EXPECT_LINES(LinesOf([&] { TellIfOnOneVolume(source, to); }), Lines{});
  EXPECT_LINES(LinesOf([&] { TellIfOnOneVolume(source, u"c:\\new\\x"); }),
               Lines{u"#INFO: c:\\new\\x is on the same volume as C:\\Data: what is discarded there at a restart is "
                     u"discarded at both places."});
}

}  // namespace
