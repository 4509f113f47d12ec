// What is noted of redirected profiles: the way home from a lost configuration, and a removal that takes away nothing
// of anybody else's.
#include "program/shared_profiles.h"

namespace {

using emulated::Utf8;
using test::Contents, test::Exists, test::MakeFile, test::MakeFolder, test::RunProgram, test::RunResult;
using Lines = std::vector<std::u16string>;

const std::u16string kPlace = u"D:\\Profiles";

class RedirectionNotes : public test::SharedProfilesTest {};

// The configuration as the service's other settings leave it, or lost; with or without what was noted.
TEST_F(RedirectionNotes, WithADamagedConfigurationNothingIsOverwritten) {
  const Values before = ProfileValues();
  const auto damage = [] {
    CQBConfig config;
    EXPECT_TRUE(config.Init() && config.SetUserProfileRedirection(nullptr, nullptr, u" ") && config.Save());
  };
  ASSERT_EQ(SetWithBoth(kPlace).exitCode, 0);
  damage();
  const auto note = machine->registry().Query(kNotes, u"NewProfiles");
  machine->registry().DeleteValue(kNotes, u"NewProfiles");
  const Values values = ProfileValues();
  const RunResult run = Remove();
  EXPECT_EQ(run.exitCode, 1);
  EXPECT_EQ(run.said, kErrors +
                          u"\nNewly created user profile location at D:\\Profiles can not be removed.  Check "
                          u"location and try again.");
  EXPECT_TRUE(run.Logged(u"#ERROR: Failed to obtain information from config file."));
  EXPECT_EQ(BringBack(u"PublicProfile").exitCode, 1);
  MakeFile(kConfig, "damaged");
  EXPECT_TRUE(Remove().Said(u"Automatic user profile redirection is not enabled."));
  EXPECT_EQ(SetWithBoth(kPlace).exitCode, 1);
  EXPECT_EQ(ProfileValues(), values);
  EXPECT_EQ(FilesOf(kPlace + u"\\Public"), FilesOf(kPublic));
  // What was noted leads home.
  machine->registry().Set(kNotes, u"NewProfiles", note->type, note->data);
  ASSERT_EQ(SetWithBoth(kPlace).exitCode, 0);
  damage();
  EXPECT_EQ(Remove().exitCode, 0);
  EXPECT_EQ(ProfileValues(), before);
}

// The configuration is lost and made anew, or the power fails between the values and the saved configuration.
TEST_F(RedirectionNotes, FromWhatWasNotedAWayLeadsHome) {
  const Values values = ProfileValues();
  const Configuration before = Config();
  const std::string old = Contents(kConfig);
  for (const std::string& found : {std::string("damaged"), old}) {
    ASSERT_EQ(SetWithBoth(kPlace).exitCode, 0);
    MakeFile(kConfig, found);
    const Values redirected = ProfileValues();
    RunResult run = Remove();
    EXPECT_TRUE(run.Logged(u"new user profiles are created in D:\\Profiles (ProfilesDirectory in the profile list)."));
    EXPECT_TRUE(
        run.Logged(u"#INFO: To have them created in C:\\Users again, redirect them to D:\\Profiles once more, "
                   u"then remove that."));
    run = Set(u"D:\\Elsewhere");
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_TRUE(run.Logged(u"#ERROR: New user profiles are created in D:\\Profiles already, which the configuration "));
    machine->gate.FailCall("RegSetValueExW", 2, win32::ERROR_ACCESS_DENIED);  // a setting that fails forgets nothing
    EXPECT_EQ(Set(kPlace).exitCode, 1);
    machine->gate.ClearFailures();
    EXPECT_EQ(ProfileValues(), redirected);
    run = Set(kPlace);
    ASSERT_EQ(run.exitCode, 0) << Utf8(run.log);
    EXPECT_EQ(Config(), (Configuration{u"1", kPlace, u"C:\\Users", 1, kPlace, {kProfileListKey}}));
    run = Remove();
    ASSERT_EQ(run.exitCode, 0) << Utf8(run.log);
    EXPECT_EQ(ProfileValues(), values);
    EXPECT_EQ(Config(), before);
    EXPECT_EQ(Notes(), Lines{});
  }
}

TEST_F(RedirectionNotes, RemovalTakesAwayWhatCameWithItOnly) {
  const auto monitor = [](const char16_t* key) {
    CQBConfig config;
    EXPECT_TRUE(config.Init() && config.AddRegKey(key) && config.Save());
  };
  // The same folder had been the location for registry data.
  MakeFolder(kPlace);
  ASSERT_EQ(RunProgram(*machine, {u"/RedirectRegKeyLocation", u"/loc:" + kPlace}).exitCode, 0);
  const Configuration withLocation = Config();
  const std::u16string data = kPlace + u"\\Quillbay\\RegistryData\\key.dat";
  for (const bool isEmpty : {true, false}) {
    if (!isEmpty) {
      for (const auto* folder : {u"\\Quillbay", u"\\Quillbay\\RegistryData"}) MakeFolder(kPlace + folder);
      MakeFile(data, "of the service");
    }
    ASSERT_EQ(SetWithBoth(kPlace).exitCode, 0);
    ASSERT_EQ(Remove().exitCode, 0);
    EXPECT_EQ(Config(), withLocation);
    EXPECT_TRUE(Exists(isEmpty ? kPlace : data));
    EXPECT_TRUE(ServiceRuns());
  }
  // The profile list, or what holds it, had been monitored.
  for (const char16_t* key : {kProfileListKey, u"HKEY_LOCAL_MACHINE\\SOFTWARE\\Microsoft\\Windows NT"}) {
    MakeFile(kConfig, "damaged");
    Config();
    monitor(key);
    ASSERT_EQ(Set(u"D:\\Users").exitCode, 0);
    EXPECT_EQ(Config().keys, Lines{key});
    ASSERT_EQ(Remove().exitCode, 0);
    EXPECT_EQ(Config().keys, Lines{key});
  }
  // Somebody else had put Public elsewhere.
  MakeFolder(u"D:\\Shared");
  MakeFile(u"D:\\Shared\\x", "x");
  machine->registry().SetText(kList, u"Public", u"D:\\Shared", win32::REG_EXPAND_SZ);
  const Values values = ProfileValues();
  ASSERT_EQ(Set(u"D:\\Users").exitCode, 0);
  RunResult run = Remove();
  ASSERT_EQ(run.exitCode, 0) << Utf8(run.log);
  EXPECT_TRUE(run.Logged(u"#INFO: Nothing is noted of a redirection of the profile D:\\Shared. It stays there."));
  EXPECT_EQ(BringBack(u"PublicProfile").exitCode, 1);
  EXPECT_EQ(ProfileValues(), values);
  EXPECT_EQ(Contents(u"D:\\Shared\\x"), "x");
}

// What an older version redirected.
TEST_F(RedirectionNotes, WithoutNotesTheLocationTellsWhatComesBack) {
  const Values values = ProfileValues();
  ASSERT_EQ(SetWithBoth(kPlace).exitCode, 0);
  machine->registry().DeleteTree(kNotes);
  MakeFolder(u"D:\\Shared");
  machine->registry().SetText(kList, u"Public", u"D:\\Shared", win32::REG_EXPAND_SZ);
  const RunResult run = Remove();
  ASSERT_EQ(run.exitCode, 0) << Utf8(run.log);
  EXPECT_EQ(ProfileValues().at(u"Default"), values.at(u"Default"));
  EXPECT_EQ(ProfileValues().at(u"ProfilesDirectory"), values.at(u"ProfilesDirectory"));
  EXPECT_EQ(Value(u"Public"), u"D:\\Shared");
  EXPECT_TRUE(run.Logged(u"The monitored registry keys and the location for registry data stay."));
  EXPECT_EQ(Config(), (Configuration{u"0", u"", u"C:\\Users", 1, kPlace, {kProfileListKey}}));
  EXPECT_TRUE(Exists(kPlace));
}

}  // namespace
