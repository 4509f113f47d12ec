// Registry redirection as an administrator sees it: where the data goes, which keys are preserved, what the service
// does.
#include "program/everything.h"

namespace {

using namespace test;
using emulated::Utf8;
using Lines = std::vector<std::u16string>;

const std::u16string kPlace = u"/RedirectRegKeyLocation", kOff = u"0 :; manual, stands";
const std::u16string kService = u"QuillbayService";
const std::u16string kConfig = u"C:\\Program Files\\Velmora\\Quillbay\\ServiceConfig.xml";
const std::u16string kErrors = u"\nErrors logged in \"C:\\Program Files\\Velmora\\Quillbay\\QBC.log\".\n";
const std::u16string kSoftware = u"HKEY_LOCAL_MACHINE\\SOFTWARE\\";
const std::u16string kVolume = u"\\\\?\\Volume{12345678-0000-4000-8000-000000000000}\\";
const std::u16string kOnVolume = kVolume.substr(0, kVolume.size() - 1), kDisabled = u"Service disabled successfully.";
const std::u16string kMount = u"C:\\Program Files (x86)\\Velmora\\Rimehold\\RegRedirect";
const std::u16string kNotes = u"HKLM\\SOFTWARE\\WOW6432Node\\Velmora\\Quillbay\\RegistryVolumes";
const std::u16string kProduct = u"D:\\Registry\\Quillbay", kData = kProduct + u"\\RegistryData";

auto About(const std::u16string& before, const std::u16string& after) {
  return [=](const std::u16string& name) { return before + name + after; };
}
const auto Set = About(u"\nRedirect Registry Key Thawed location - ", u" successful.\n\n");
const auto NotSet = About(kErrors + u"Redirect registry key thawed location - ", u" is not successful.\n\n");
const auto Removed = About(u"\nRedirect registry key thawed location - ", u" has been removed.\n\n");

class RegistryCommands : public ::testing::Test {
 protected:
  RegistryCommands() { Restart(); }
  void Restart(const MachineFacts& facts = {}) {
    machine.reset();
    machine = InstalledMachine(facts);
    UseProgramModule(*machine);
    settings_ = OtherSettings();
    RemoveLocation();  // so that there is a file, and the service stands
    MakeFolder(u"D:\\Registry");
    SetSecurity(u"D:\\Registry", u"O:BAD:P(A;OICI;FA;;;BA)(A;OICI;FA;;;SY)");
    for (const char16_t* key : {u"A\\B\\C", u"AB", u"Microsoft\\Windows NT\\CurrentVersion\\Winlogon"})
      machine->registry().SetText(u"HKLM\\SOFTWARE\\" + std::u16string(key), u"x", u"1");
    if (facts.volumes == 0) return;
    workstation::InstallRimehold(*machine, u"Thawed");
    for (const auto& volume : machine->volumes)
      if (volume->letter == 0) SetSecurity(volume->guidName, u"O:BAD:P(A;OICI;FA;;;BA)(A;OICI;FA;;;SY)");
  }

  RunResult Location(const std::u16string& word) { return RunProgram(*machine, {u"/RedirectRegKeyLocation", word}); }
  RunResult SetLocation(const std::u16string& location = u"D:\\Registry") { return Location(u"/loc:" + location); }
  RunResult SetVolume() { return Location(u"/vol:" + kVolume); }
  RunResult RemoveLocation() { return Location(u"/d"); }
  RunResult Add(const std::u16string& key) { return RunProgram(*machine, {u"/RedirectRegKey", kSoftware + key}); }

  // The service's folders at a location, with one file of its.
  static void MakeData(const std::u16string& location) {
    for (const char16_t* folder : {u"", u"\\RegistryData", u"\\RegistryData\\KeyToDelete"})
      MakeFolder(location + u"\\Quillbay" + folder);
    MakeFile(location + u"\\Quillbay\\RegistryData\\1.bak", "x");
  }
  // What the file holds, as its own class reads it: "1 D:\\Registry: A AB". Keys below another can be left out: they
  // are as good as absorbed.
  static std::u16string InFile(bool withChildren = true) {
    CQBConfig config;
    int status = -2;
    std::u16string folder;
    EXPECT_EQ(config.Init() && config.GetOutDir(status, folder), 1);
    std::u16string all = (status == 0 ? u"0 " : u"1 ") + folder + u':';
    for (const std::u16string& key : config.MonitoredKeys())
      if (withChildren || !config.HasParentKey(key)) all += u' ' + key.substr(kSoftware.size());
    return all;
  }
  // As another of the product's programs does it.
  static void Edit(const std::function<int(CQBConfig&)>& edit) {
    CQBConfig config;
    EXPECT_TRUE(config.Init() && edit(config) && config.Save());
  }
  // The location stays in the file.
  static void SwitchOff() {
    std::string file = Contents(kConfig);
    const std::string status("1\0<\0/\0S\0t\0a", 11);
    MakeFile(kConfig, file.replace(file.find(status), 1, "0"));
  }
  // Of the service: its start type, whether it runs, and whether anything else of it has changed.
  std::u16string Service() {
    const std::u16string starts[] = {u"?", u"?", u"automatic", u"manual", u"?"};
    const bool runs = machine->services().State(kService) == win32::SERVICE_RUNNING;
    return starts[machine->services().Configuration(kService)->start] + (runs ? u", runs" : u", stands") +
           (OtherSettings() == settings_ ? u"" : u", changed");
  }
  std::map<std::u16string, emulated::Bytes> OtherSettings() {
    std::map<std::u16string, emulated::Bytes> settings;
    for (const auto& value : machine->registry().Values(emulated::ServiceManager::KeyPath(kService)))
      if (value.name != u"Start") settings[value.name] = value.data;
    return settings;
  }
  // A run, all that it says and logs, and what is so afterwards: the file and the service. Without that, it changes
  // nothing and fails.
  void Expect(std::initializer_list<std::u16string> words, const std::u16string& said, const Lines& log = {},
              const std::u16string& after = {}) {
    const std::u16string before = InFile() + u"; " + Service();
    const RunResult run = RunProgram(*machine, words);
    SCOPED_TRACE(Utf8(words.end()[-1]) + ": " + Utf8(run.log));
    EXPECT_EQ(run.exitCode, after.empty() ? 1 : 0);
    EXPECT_EQ(run.said, said);
    EXPECT_EQ(Messages(run.log), log);
    EXPECT_EQ(InFile() + u"; " + Service(), after.empty() ? before : after);
  }

  std::unique_ptr<emulated::Machine> machine;

 private:
  std::map<std::u16string, emulated::Bytes> settings_;
};

TEST_F(RegistryCommands, TheWholeStory) {
  const std::u16string keys = u"/RedirectRegKey", a = kSoftware + u"A", ab = kSoftware + u"AB",
                       windows = kSoftware + u"Microsoft\\Windows NT\\CurrentVersion";
  const auto notAdded = About(u"\n", kErrors + u"Registry Key Redirection was not successful.\n\n");
  const auto notRemoved = About(u"\n", kErrors + u"Removal of the Registry Key Redirection was not successful.\n\n");
  const auto added = About(u"\n", u"  Redirect Registry Key was successful.\n\n");
  const auto removed = About(u"\n", u" Removal of the Redirect Registry Key was successful.\n\n");
  const auto in = About(u"1 D:\\Registry:", u"; automatic, runs");
  // There is no location yet.
  Expect({kPlace}, u"\n\n\n\n", {}, kOff);
  Expect({keys, a}, notAdded(a), {u"#ERROR: redirect location not set (redirection disabled)."});
  Expect({keys, a, u"/d"}, notRemoved(a), {u"#ERROR: Registry key redirection is disabled."});
  Expect({kPlace, u"/d"},
         kErrors + u"Redirect registry key thawed location -  can not be removed.\nCheck location and try again.\n\n",
         {u"#ERROR: Redirect Registry key location already empty."});
  // It is set, and a second one is not. Empty folders are not worth a line.
  for (const std::u16string& folder : {kProduct, kData}) MakeFolder(folder);
  Expect({kPlace, u"/loc:D:\\Registry"}, Set(u"D:\\Registry"), {}, in(u""));
  Expect({kPlace, u"/loc:D:\\"}, NotSet(u"D:\\"),
         {u"#ERROR: Registry Key Redirection location already set. To set new location,please remove existing "
          u"location"});
  // Keys join the list, and those below another go into that one.
  machine->services().SetState(kService, win32::SERVICE_STOPPED);
  Expect({keys, a + u"\\B"}, added(a + u"\\B"), {}, in(u" A\\B"));
  Expect({keys, ab}, added(ab), {}, in(u" A\\B AB"));
  Expect({keys, kSoftware + u"a\\b"}, notAdded(kSoftware + u"a\\b"),
         {u"#ERROR: Registry key already present in list."});
  Expect({keys, a + u"\\b\\C"}, notAdded(a + u"\\b\\C"), {u"#ERROR: parent key already present: " + a + u"\\B"});
  Edit([&](CQBConfig& config) { return config.AddRegKey(kSoftware + u"a\\b"); });  // as another program spells it
  Expect({keys, a}, added(a), {a + u"\\B", kSoftware + u"a\\b"}, in(u" AB A"));
  for (const std::u16string& key : {a + u"\\missing", std::u16string(u"HKEY_CURRENT_USER\\Software")})
    Expect({keys, key}, notAdded(key), {u"#ERROR: Invalid Registry path: " + key});
  for (const std::u16string key : {u"Software", u"Software\\", u"Software\\MICROSOFT", u"SOFTWARE\\Microsoft\\"}) {
    const std::u16string name = u"HKEY_LOCAL_MACHINE\\" + key,
                         line = u"#ERROR: Redirection of " + name + u" key is not allowed.";
    Expect({keys, name}, line + u"\n", {line});
  }
  machine->services().SetState(kService, win32::SERVICE_STOPPED);
  Expect({keys, ab, u"/d"}, removed(ab), {}, u"1 D:\\Registry: A; automatic, stands");
  Expect({keys, ab, u"/d"}, notRemoved(ab), {u"key path not found in list :- " + ab});
  // The profile list stays while new profiles need it, and beside whatever takes in its neighbours.
  const auto needed = [](const char16_t* status) {
    Edit([&](CQBConfig& config) { return config.SetUserProfileRedirection(status, nullptr, nullptr); });
  };
  const std::u16string list = windows + u"\\PROFILELIST", mine = u" Microsoft\\Windows NT\\CurrentVersion";
  for (const char16_t* name : {u"\\ProfileList", u"\\Winlogon"})
    ASSERT_EQ(Add(windows.substr(kSoftware.size()) + name).exitCode, 0);
  needed(u"1");
  Expect({keys, list, u"/d"}, notRemoved(list),
         {u"#ERROR: This registry key is required for redirecting new user profiles automatically."});
  Expect({kPlace, u"/d"},
         u"\n\nAutomatic user profile redirection is enabled. Automactic User Profile redirection must be disabled "
         u"before you can remove Redirect Registry key Location.\n",
         {u"#ERROR: Redirect new user profile redirection is enabled."});
  Expect({keys, windows}, added(windows), {kProfileListKey, windows + u"\\Winlogon"},
         in(u" A" + mine + u"\\ProfileList" + mine));
  needed(u"0");
  Expect({keys, list, u"/d"}, removed(list), {}, in(u" A" + mine));
  // Listing is for who is no administrator in effect, too.
  Expect({keys}, u"\n\n" + a + u"\n" + windows + u"\n\n", {}, in(u" A" + mine));
  // The keys stay for the next location.
  Expect({kPlace, u"/d"}, Removed(u"D:\\Registry"), {kDisabled}, u"0 : A" + mine + u"; manual, stands");
  SetLocation();
  machine->process.token = emulated::MakeFilteredAdministratorToken(emulated::SidFromText(u"S-1-5-21-1-2-3-1001"));
  const std::u16string refused = u"Registry Redirection requires administrator privileges to run.\n\n";
  Expect({kPlace, u"/loc:D:\\"}, u"\n\n" + refused);
  Expect({kPlace, u"/d"}, u"\n\nRemove " + refused);
  Expect({keys, ab}, u"\n\n" + refused);
  Expect({keys, a, u"/d"}, u"\n\n" + refused);
  Expect({kPlace}, u"\n\nD:\\Registry\n\n", {}, in(u" A" + mine));
}

TEST_F(RegistryCommands, WhatGoesWithALocation) {
  for (const std::u16string& location : {std::u16string(u"C:\\Program Files\\Velmora"), kVolume})
    Expect({kPlace, u"/loc:" + location}, NotSet(location),
           location == kVolume ? Lines{u"#ERROR: Unable to get mount volume path."} : Lines{});
  EXPECT_EQ(SetLocation(u"C:\\").exitCode + RemoveLocation().exitCode, 0) << "a drive's root will do";

  MakeData(u"D:\\Registry");
  SetSecurity(u"D:\\Registry", u"O:BAD:P(A;OICI;FA;;;BA)(A;OICI;0x1301bf;;;AU)");
  Expect(
      {u"/RedirectRegKeyLocation", u"/loc:D:\\Registry"}, Set(u"D:\\Registry"),
      {u"#INFO: There are files in " + kData + u" already. They are taken for the service's and go with the location.",
       u"#INFO: The entry (A;OICI;0x1301bf;;;AU) of the folder D:\\Registry lets others change the registry data that "
       u"are kept there."},
      u"1 D:\\Registry:; automatic, runs");
  EXPECT_EQ(RemoveLocation().exitCode, 0);
  EXPECT_TRUE(Names(u"D:\\Registry").empty()) << "an emptied place is taken away";

  MakeData(u"D:\\Registry");
  for (const char16_t* log : {u"\\quillbay.LOG", u"\\OutOfDiskSpace.txt", u"\\QuillbayService.log"})
    MakeFile(kData + log, "a log");
  MakeFile(kProduct + u"\\mine.txt", "x");
  MakeFile(kData + u"\\2.bak", "x", win32::FILE_ATTRIBUTE_HIDDEN);
  MakeFolder(kData + u"\\folder");
  // The same place by other names, and one within it.
  for (const char16_t* name : {u"Other", u"Third", u"Linked", u"Linked\\Quillbay"})
    MakeFolder(std::u16string(u"D:\\") + name);
  ASSERT_TRUE(CreateJunction(u"D:\\Link", u"D:\\Registry") &&
              CreateJunction(u"D:\\Third\\Quillbay", kProduct.c_str()) &&
              CreateJunction(u"D:\\Linked\\Quillbay\\RegistryData", u"D:\\Other") &&
              CreateSymbolicLinkEntry((kData + u"\\link").c_str(), u"D:\\Other"));
  const Tree before = DescribeTree(u"D:\\Registry");
  workstation::InstallRimehold(*machine, u"Frozen");
  CleanRegistryData(u"D:\\Registry");
  EXPECT_EQ(DescribeTree(u"D:\\Registry"), before) << "after a restart it would be back";
  workstation::RemoveRimehold(*machine);
  CleanRegistryData(u"");
  for (const std::u16string inUse : {u"d:\\REGISTRY\\", u"D:\\Link", u"D:\\Third", kData.c_str()}) {
    CleanRegistryData(u"D:\\Registry", inUse);
    EXPECT_EQ(DescribeTree(u"D:\\Registry"), before) << Utf8(inUse);
  }
  machine->gate.FailCallsFrom("GetFinalPathNameByHandleW", 3, win32::ERROR_ACCESS_DENIED);
  CleanRegistryData(u"D:\\Registry", u"D:\\Other");
  machine->gate.ClearFailures();
  EXPECT_EQ(DescribeTree(u"D:\\Registry"), before) << "where they lie is not told";
  CleanRegistryData(u"D:\\Linked");
  EXPECT_TRUE(Exists(u"D:\\Linked\\Quillbay\\RegistryData")) << "a link is somebody's";
  // The location is switched off, but still named, and another one is set.
  MakeData(u"D:\\Other");
  SetLocation();
  SwitchOff();
  EXPECT_EQ(SetLocation(u"D:\\Link").exitCode, 0);
  EXPECT_EQ(DescribeTree(u"D:\\Registry"), before) << "it is the same place";
  SwitchOff();
  EXPECT_EQ(SetLocation(u"D:\\Other").exitCode, 0);
  EXPECT_EQ(Names(kProduct), (Lines{u"\\RegistryData", u"\\RegistryData\\OutOfDiskSpace.txt",
                                    u"\\RegistryData\\QuillbayService.log", u"\\RegistryData\\folder",
                                    u"\\RegistryData\\link", u"\\RegistryData\\quillbay.LOG", u"\\mine.txt"}));
  EXPECT_EQ(Contents(u"D:\\Other\\Quillbay\\RegistryData\\1.bak"), "x") << "the new one's stay";
}

// A user who may write to the location makes a link of the emptied folder before anything is opened.
TEST_F(RegistryCommands, AFolderMadeALinkMeanwhileLeadsNowhere) {
  for (const char16_t* folder : {u"C:\\Precious", u"C:\\Precious\\KeyToDelete"}) MakeFolder(folder);
  MakeFile(u"C:\\Precious\\1.bak", "x");
  SetLocation();
  MakeData(u"D:\\Registry");
  for (const char16_t* item : {u"", u"\\1.bak", u"\\KeyToDelete"}) SetSecurity(kData + item, u"O:BAD:P(A;;FA;;;WD)");
  const Disks disks = machine->Snapshot();
  int links = 0;
  for (std::uint64_t call = 1; call <= 30; ++call) {
    StartAgain(machine, disks);
    bool happened = false;
    workstation::Intrude(*machine, {"CreateFileW", call, kData, u"C:\\Precious"}, &happened);
    EXPECT_EQ(RemoveLocation().exitCode, 0);
    machine->gate.Observe({});
    EXPECT_EQ(Names(u"C:\\Precious"), (Lines{u"\\1.bak", u"\\KeyToDelete"})) << call;
    links += happened ? 1 : 0;
  }
  EXPECT_GE(links, 5);
}

// What a redirection keeps is not the service's, whichever came first.
TEST_F(RegistryCommands, RedirectedDataAreNotTakenForTheServices) {
  for (const char16_t* folder : {u"C:\\RegistryData", u"C:\\Elsewhere", u"D:\\Kept"}) MakeFolder(folder);
  ASSERT_EQ(RunProgram(*machine, {u"/RedirectFolder", u"C:\\Elsewhere", u"/loc:D:\\Kept"}).exitCode, 0);
  MakeFile(u"C:\\RegistryData\\letter", "x");
  MakeFile(u"C:\\single.txt", "x");
  const std::tuple<const char16_t*, std::u16string, std::u16string> redirections[] = {
      {u"/RedirectFolder", u"C:\\RegistryData", u"/loc:" + kProduct},
      {u"/RedirectFile", u"C:\\single.txt", u"/loc:" + kData}};
  for (const auto& [command, source, target] : redirections) {
    SetLocation();
    ASSERT_EQ(RunProgram(*machine, {command, source, target}).exitCode, 0);
    Expect({kPlace, u"/d"}, Removed(u"D:\\Registry"),
           {kDisabled, u"#INFO: The files in " + kData + u" stay: they are those of " + source + u"."}, kOff);
    Expect({kPlace, u"/loc:D:\\Registry"}, NotSet(u"D:\\Registry"),
           {u"#ERROR: The folder D:\\Registry holds what is redirected from " + source +
            u". Browse to a different location."});
    EXPECT_EQ(RunProgram(*machine, {command, source, target, u"/d"}).exitCode, 0);
    EXPECT_EQ(Contents(u"C:\\RegistryData\\letter") + Contents(u"C:\\single.txt"), "xx");
  }
  // Where the records cannot be read, nothing is taken for the service's.
  machine->gate.FailCallsFrom("RegOpenKeyExW", 1, win32::ERROR_ACCESS_DENIED);
  EXPECT_FALSE(MayHoldRegistryData(u"D:\\Registry"));
}

// What is on the volume stays there: unmounting comes before any clean-up, and what cannot be unmounted, or is not told
// to be a mount of this program's, is left alone.
TEST_F(RegistryCommands, AVolumeBecomesALocationBesideRimehold) {
  Restart({.volumes = 1});
  Expect({kPlace, u"/vol:" + kVolume}, Set(kVolume), {}, u"1 " + kMount + u":; automatic, runs");
  MakeData(kOnVolume);
  EXPECT_EQ(Contents(kMount + u"\\Quillbay\\RegistryData\\1.bak"), "x");
  const Tree before = DescribeTree(kOnVolume);
  const Disks disks = machine->Snapshot();
  struct {
    const char* refused;
    bool noted, withRimehold, unmounted;  // older versions noted nothing
  } const cases[] = {{"", true, true, true},
                     {"", true, false, true},
                     {"", false, true, true},
                     {"", false, false, false},
                     {"DeleteVolumeMountPointW", true, true, false},
                     {"GetVolumeNameForVolumeMountPointW", true, true, false}};
  for (const auto& [refused, noted, withRimehold, unmounted] : cases) {
    StartAgain(machine, disks);
    if (!noted) machine->registry().DeleteTree(kNotes);
    if (!withRimehold) workstation::RemoveRimehold(*machine);
    if (*refused) machine->gate.FailCallsFrom(refused, 1, win32::ERROR_ACCESS_DENIED);
    Lines log{kDisabled};
    if (!unmounted) log.insert(log.begin(), u"#INFO: The volume stays mounted on folder " + kMount + u".");
    Expect({kPlace, u"/d"}, Removed(kMount), log, kOff);
    machine->gate.ClearFailures();
    EXPECT_TRUE(unmounted ? !Exists(kMount) && !machine->registry().Query(kNotes, kMount) : Exists(kMount));
    EXPECT_EQ(DescribeTree(kOnVolume), before);
  }
  EXPECT_EQ(SetVolume().exitCode, 0) << "the one that stayed mounted is taken up";
  SwitchOff();
  EXPECT_EQ(SetLocation().exitCode, 0);
  EXPECT_EQ(DescribeTree(kOnVolume), before);
  EXPECT_EQ(RemoveLocation().exitCode, 0);
  // What is mounted beside Rimehold by another program stays; elsewhere it is a place like any.
  MakeFile(u"D:\\theirs", "x");
  const std::u16string mount = kMount + u"\\";
  ASSERT_TRUE(win32::DeleteVolumeMountPointW(mount.c_str()));
  EXPECT_EQ(SetVolume().exitCode, 0);
  ASSERT_TRUE(win32::DeleteVolumeMountPointW(mount.c_str()));
  ASSERT_TRUE(win32::SetVolumeMountPointW(mount.c_str(), machine->volumes[1]->guidName.c_str()));
  Expect({kPlace, u"/d"}, Removed(kMount), {u"#INFO: The volume stays mounted on folder " + kMount + u".", kDisabled},
         kOff);
  EXPECT_TRUE(Exists(mount + u"theirs"));
  for (const std::u16string folder : {u"C:\\Theirs", u"C:\\RegRedirect"}) {
    MakeFolder(folder);
    ASSERT_TRUE(win32::SetVolumeMountPointW((folder + u"\\").c_str(), kVolume.c_str()));
    EXPECT_EQ(SetLocation(folder).exitCode + RemoveLocation().exitCode, 0);
    EXPECT_EQ(Names(folder), Lines{u"\\$RECYCLE.BIN"});
  }
}

// What a power failure left is gone on from: the same volume, or another one in its place.
TEST_F(RegistryCommands, AMountIsTakenBackOrTakenUp) {
  Restart({.volumes = 2});
  for (const std::u16string& next : {kVolume, machine->volumes.back()->guidName}) {
    machine->gate.FailCall("get_xml", 1, win32::ERROR_WRITE_PROTECT);
    machine->gate.FailCall("DeleteVolumeMountPointW", 1, win32::ERROR_ACCESS_DENIED);
    Expect({kPlace, u"/vol:" + kVolume}, NotSet(kVolume),
           {u"CQBConfig::Save: failed to save config file:\nThe data is invalid.",
            u"#ERROR: Failed to unmount the volume from the folder " + kMount + u". Access is denied."});
    Expect({kPlace, u"/vol:" + next}, Set(next), {}, u"1 " + kMount + u":; automatic, runs");
    EXPECT_EQ(RemoveLocation().exitCode, 0);
  }
}

TEST_F(RegistryCommands, AFailureAmongTheKeysIsToldAsItIs) {
  SetLocation();
  ASSERT_EQ(Add(u"A\\B").exitCode + Add(u"AB").exitCode, 0);
  machine->gate.FailCall("get_text", 4, win32::ERROR_ACCESS_DENIED);
  const RunResult run = RunProgram(*machine, {u"/RedirectRegKey"});
  EXPECT_TRUE(run.exitCode == 1 && run.said == u"\n\n\n") << "a part of the list would be taken for all of it";
  machine->gate.FailCall("removeChild", 1, win32::ERROR_ACCESS_DENIED);
  EXPECT_EQ(Messages(Add(u"A").log),
            (Lines{kSoftware + u"A\\B", u"#INFO: The child key stays in the config file: " + kSoftware + u"A\\B"}));
  EXPECT_EQ(InFile(), u"1 D:\\Registry: A\\B AB A");
}

// What a refused call leaves of the file and of the service, and whether the console told the truth about it.
TEST_F(RegistryCommands, RefusedCallsLeaveEachThingAsItWasOrAsItIsToBe) {
  const std::tuple<bool, std::function<RunResult()>, std::u16string, const char16_t*> commands[] = {
      {true, [&] { return Add(u"A"); }, u"Redirect Registry Key was successful", u"automatic, runs"},
      {true, [&] { return RemoveLocation(); }, u"has been removed", u"manual, stands"},
      {false, [&] { return SetLocation(); }, u"D:\\Registry successful", u"automatic, runs"},
      {false, [&] { return SetVolume(); }, kVolume + u" successful", u"automatic, runs"}};
  for (const auto& [isSet, command, success, service] : commands) {
    const bool onVolume = success.starts_with(kVolume);
    Restart({.volumes = onVolume ? 1u : 0u});
    if (isSet) SetLocation();
    for (const char16_t* key : {u"AB", u"A\\B"})
      if (isSet) Add(key);
    const std::string before = Contents(kConfig);
    std::u16string after, standing;
    const auto run = [&, &command = command] {
      standing = Service();
      const RunResult result = command();
      if (after.empty()) after = InFile(false);
      return result;
    };
    WithEachCallRefused(
        machine, run, [&, &told = success, &afterwards = service](const RunResult& result, const std::string& when) {
          const std::string now = Contents(kConfig), call = when.substr(0, when.find(','));
          const bool done = result.exitCode == 0;
          EXPECT_TRUE(done || !result.Said(told)) << when;
          // The file is whole: the old one, the new one, or one made anew when it was not found or could not be read.
          EXPECT_TRUE(now.ends_with(std::string(">\0\r\0\n\0", 6))) << when;
          EXPECT_TRUE((done ? InFile(false) == after : now == before) || result.Logged(u"Default config created"))
              << when;
          // Only a command that succeeded has done anything to the service.
          const bool ofServices = call.find("Service") != call.npos || call == "OpenSCManagerW";
          EXPECT_TRUE(Service() == (done ? afterwards : standing) || (done && ofServices)) << when;
          EXPECT_TRUE(!onVolume || Exists(kMount) == done) << when;
        });
  }
}

}  // namespace
