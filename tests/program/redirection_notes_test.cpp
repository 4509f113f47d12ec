// What is noted of redirected profiles: the way home from a lost configuration, and a removal that takes away nothing
// of anybody else's.
#include "program/shared_profiles.h"

namespace {

using namespace test;

const std::u16string kPlace = u"D:\\Profiles";

class RedirectionNotes : public SharedProfilesTest {
 protected:
  void Expect(const RunResult& run, int exitCode) { EXPECT_EQ(run.exitCode, exitCode) << emulated::Utf8(run.log); }
  void PutPublicElsewhere() {
    MakeFolder(u"D:\\Shared");
    MakeFile(u"D:\\Shared\\x", "x");
    machine->registry().SetText(kList, u"Public", u"D:\\Shared", win32::REG_EXPAND_SZ);
  }
};

// The configuration as the service's other settings leave it, or lost; with or without what was noted.
TEST_F(RedirectionNotes, WithADamagedConfigurationNothingIsOverwritten) {
  const Values before = ProfileValues();
  const auto damage = [] {
    CQBConfig config;
    EXPECT_TRUE(config.Init() && config.SetUserProfileRedirection(nullptr, nullptr, u" ") && config.Save());
  };
  Expect(SetWithBoth(kPlace), 0);
  damage();
  const auto note = machine->registry().Query(kNotes, u"NewProfiles");
  machine->registry().DeleteValue(kNotes, u"NewProfiles");
  const Values values = ProfileValues();
  const RunResult run = Remove();
  EXPECT_TRUE(run.exitCode == 1 && run.Logged(u"#ERROR: Failed to obtain information from config file."));
  EXPECT_TRUE(
      run.Said(u"\nNewly created user profile location at D:\\Profiles can not be removed.  Check location and "));
  Expect(BringBack(u"PublicProfile"), 1);
  MakeFile(kConfig, "damaged");
  EXPECT_TRUE(Remove().Said(u"Automatic user profile redirection is not enabled."));
  Expect(SetWithBoth(kPlace), 1);
  EXPECT_EQ(ProfileValues(), values);
  EXPECT_EQ(FilesOf(kPlace + u"\\Public"), FilesOf(kPublic));
  // What was noted leads home.
  machine->registry().Set(kNotes, u"NewProfiles", note->type, note->data);
  Expect(SetWithBoth(kPlace), 0);
  damage();
  Expect(Remove(), 0);
  EXPECT_EQ(ProfileValues(), before);
}

// The configuration is lost and made anew, or the power fails between the values and the saved configuration.
TEST_F(RedirectionNotes, FromWhatWasNotedAWayLeadsHome) {
  const Values values = ProfileValues();
  const Configuration before = Config();
  const std::string old = Contents(kConfig);
  for (const std::string& found : {std::string("damaged"), old}) {
    Expect(SetWithBoth(kPlace), 0);
    MakeFile(kConfig, found);
    const Values redirected = ProfileValues();
    EXPECT_TRUE(
        Remove().Logged(u"#INFO: To have them created in C:\\Users again, redirect them to D:\\Profiles once more"));
    EXPECT_TRUE(Set(u"D:\\Elsewhere").Logged(u"#ERROR: New user profiles are created in D:\\Profiles already, which "));
    machine->gate.FailCall("RegSetValueExW", 2, win32::ERROR_ACCESS_DENIED);  // a setting that fails forgets nothing
    Expect(Set(kPlace), 1);
    machine->gate.ClearFailures();
    EXPECT_EQ(ProfileValues(), redirected);
    Expect(Set(kPlace), 0);
    EXPECT_EQ(Config(), (Configuration{u"1", kPlace, u"C:\\Users", 1, kPlace, {kProfileListKey}}));
    Expect(Remove(), 0);
    EXPECT_EQ(ProfileValues(), values);
    EXPECT_EQ(Config(), before);
    EXPECT_EQ(Notes(), Lines{});
  }
  // Without notes, as an older version left it, the location tells what comes back.
  Expect(SetWithBoth(kPlace), 0);
  machine->registry().DeleteTree(kNotes);
  PutPublicElsewhere();
  const RunResult run = Remove();
  Expect(run, 0);
  for (const char16_t* name : {u"Default", u"ProfilesDirectory"}) EXPECT_EQ(ProfileValues().at(name), values.at(name));
  EXPECT_EQ(Value(u"Public"), u"D:\\Shared");
  EXPECT_TRUE(run.Logged(u"The monitored registry keys and the location for registry data stay."));
  EXPECT_EQ(Config(), (Configuration{u"0", u"", u"C:\\Users", 1, kPlace, {kProfileListKey}}));
  EXPECT_TRUE(Exists(kPlace));
}

TEST_F(RedirectionNotes, RemovalTakesAwayWhatCameWithItOnly) {
  // The same folder had been the location for registry data.
  const std::u16string data = kPlace + u"\\Quillbay\\RegistryData\\key.dat";
  MakeFolder(kPlace);
  Expect(Run({u"/RedirectRegKeyLocation", u"/loc:" + kPlace}), 0);
  const Configuration withLocation = Config();
  for (const bool isEmpty : {true, false}) {
    if (!isEmpty) MakeFile(data, "of the service");
    Expect(SetWithBoth(kPlace), 0);
    Expect(Remove(), 0);
    EXPECT_EQ(Config(), withLocation);
    EXPECT_TRUE(Exists(isEmpty ? kPlace : data) && ServiceRuns());
    for (const auto* folder : {u"\\Quillbay", u"\\Quillbay\\RegistryData"})
      if (isEmpty) MakeFolder(kPlace + folder);
  }
  // The profile list, or what holds it, had been monitored.
  for (const char16_t* key : {kProfileListKey, u"HKEY_LOCAL_MACHINE\\SOFTWARE\\Microsoft\\Windows NT"}) {
    MakeFile(kConfig, "damaged");
    Expect(Run({u"/RedirectRegKeyLocation", u"/loc:" + kPlace}), 0);
    Expect(Run({u"/RedirectRegKey", key}), 0);
    Expect(Set(u"D:\\Users"), 0);
    EXPECT_EQ(Config().keys, Lines{key});
    Expect(Remove(), 0);
    EXPECT_EQ(Config().keys, Lines{key});
  }
  // Somebody else had put Public elsewhere.
  PutPublicElsewhere();
  const Values values = ProfileValues();
  Expect(Set(u"D:\\Users"), 0);
  const RunResult run = Remove();
  Expect(run, 0);
  EXPECT_TRUE(run.Logged(u"#INFO: Nothing is noted of a redirection of the profile D:\\Shared. It stays there."));
  Expect(BringBack(u"PublicProfile"), 1);
  EXPECT_EQ(ProfileValues(), values);
  EXPECT_EQ(Contents(u"D:\\Shared\\x"), "x");
}

}  // namespace
