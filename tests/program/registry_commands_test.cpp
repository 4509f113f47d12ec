// Registry redirection as an administrator sees it: where the data goes, which keys are preserved, what the service
// does.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <map>
#include <set>

#include "configuration/service_config.h"
#include "links/junction.h"
#include "regredirect/registry_data.h"
#include "regredirect/registry_keys.h"
#include "support/every_call.h"
#include "support/tree.h"
#include "workstation/intruder.h"
#include "workstation/product.h"
#include "win32/emulated/registry/registry.h"
#include "win32/emulated/registry/services.h"
#include "win32/emulated/security/token.h"

namespace {

using emulated::Utf8;
using test::Contents, test::Exists, test::MakeFile, test::MakeFolder, test::RunProgram, test::RunResult;
using Lines = std::vector<std::u16string>;

const std::u16string kService = u"QuillbayService";
const std::u16string kConfig = u"C:\\Program Files\\Velmora\\Quillbay\\ServiceConfig.xml";
const std::u16string kErrors = u"\nErrors logged in \"C:\\Program Files\\Velmora\\Quillbay\\QBC.log\".\n";
const std::u16string kSoftware = u"HKEY_LOCAL_MACHINE\\SOFTWARE\\";
const std::u16string kVolume = u"\\\\?\\Volume{12345678-0000-4000-8000-000000000000}\\";
const std::u16string kMount = u"C:\\Program Files (x86)\\Velmora\\Rimehold\\RegRedirect";
const std::u16string kData = u"D:\\Registry\\Quillbay\\RegistryData";

auto About(const char16_t* before, const char16_t* after) {
  return [=](const std::u16string& name) { return before + name + after; };
}
const auto kSet = About(u"\nRedirect Registry Key Thawed location - ", u" successful.\n\n");
const auto kRemoved = About(u"\nRedirect registry key thawed location - ", u" has been removed.\n\n");
std::u16string kNotSet(const std::u16string& location) {
  return kErrors + u"Redirect registry key thawed location - " + location + u" is not successful.\n\n";
}
// Everybody may do everything below the root of a test's drive.
const auto kOthers = About(u"#INFO: The entry (A;OICIID;0x1301bf;;;AU) of the folder ",
                           u" lets others change the registry data that are kept there.");

class RegistryCommands : public ::testing::Test {
 protected:
  RegistryCommands() {
    Restart();
    MakeFolder(u"D:\\Registry");
    for (const char16_t* key : {u"A\\B\\C", u"AB", u"Microsoft\\Windows NT\\CurrentVersion\\Winlogon"})
      machine->registry().SetText(u"HKLM\\SOFTWARE\\" + std::u16string(key), u"x", u"1");
  }
  void Restart(const test::MachineFacts& facts = {}) {
    machine.reset();
    machine = test::InstalledMachine(facts);
    test::UseProgramModule(*machine);
    settings_ = OtherSettings();
    RemoveLocation();  // so that there is a file, and the service stands
  }

  RunResult Location(const std::u16string& word) { return RunProgram(*machine, {u"/RedirectRegKeyLocation", word}); }
  RunResult SetLocation(const std::u16string& location = u"D:\\Registry") { return Location(u"/loc:" + location); }
  RunResult SetVolume() { return Location(u"/vol:" + kVolume); }
  RunResult RemoveLocation() { return Location(u"/d"); }
  void RestartWithVolume() {
    Restart({.volumes = 1});
    workstation::InstallRimehold(*machine, u"Thawed");
  }
  void Boot(const test::Disks& disks) {
    test::Disks copies;
    for (const auto& [name, device] : disks) copies[name] = device->Clone();
    machine.reset();
    machine = test::BootFrom(std::move(copies));
  }
  // The service's folders at a location, with one file of its.
  static void MakeData(const std::u16string& location) {
    for (const char16_t* folder : {u"", u"\\RegistryData", u"\\RegistryData\\KeyToDelete"})
      MakeFolder(location + u"\\Quillbay" + folder);
    MakeFile(location + u"\\Quillbay\\RegistryData\\1.bak", "x");
  }
  RunResult Add(const std::u16string& key) { return RunProgram(*machine, {u"/RedirectRegKey", key}); }
  RunResult Remove(const std::u16string& key) { return RunProgram(*machine, {u"/RedirectRegKey", key, u"/d"}); }

  // What the file holds, as its own class reads it: "1 D:\\Registry: A, A\\B". Keys below another can be left out: they
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
  // Replaces a text in the file.
  static void Edit(const std::u16string& from, const std::u16string& to) {
    const auto bytes = [](const std::u16string& text) {
      return std::string(reinterpret_cast<const char*>(text.data()), text.size() * sizeof(char16_t));
    };
    std::string file = Contents(kConfig);
    MakeFile(kConfig, file.replace(file.find(bytes(from)), bytes(from).size(), bytes(to)));
  }
  // As another of the product's programs does it: the location stays in the file.
  void SwitchOff() {
    SetLocation();
    Edit(u"<Status>1<", u"<Status>0<");
  }
  // Of the service: "automatic, runs" or "manual, stands", and whether anything else of it has changed.
  std::string Service() {
    const win32::DWORD start = machine->services().Configuration(kService)->start;
    const bool runs = machine->services().State(kService) == win32::SERVICE_RUNNING;
    return std::string(start == win32::SERVICE_AUTO_START     ? "automatic"
                       : start == win32::SERVICE_DEMAND_START ? "manual"
                                                              : "?") +
           (runs ? ", runs" : ", stands") + (OtherSettings() == settings_ ? "" : ", changed");
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
    const std::u16string before = After();
    const RunResult run = RunProgram(*machine, words);
    SCOPED_TRACE(Utf8(words.end()[-1]) + ": " + Utf8(run.log));
    EXPECT_EQ(run.exitCode, after.empty() ? 1 : 0);
    EXPECT_EQ(run.said, said);
    EXPECT_EQ(test::Messages(run.log), log);
    EXPECT_EQ(After(), after.empty() ? before : after);
  }
  std::u16string After() { return InFile() + u"; " + emulated::Utf16(Service()); }

  std::unique_ptr<emulated::Machine> machine;

 private:
  std::map<std::u16string, emulated::Bytes> settings_;
};

TEST_F(RegistryCommands, TheWholeStory) {
  const std::u16string place = u"/RedirectRegKeyLocation", keys = u"/RedirectRegKey", a = kSoftware + u"A",
                       ab = kSoftware + u"AB", windows = kSoftware + u"Microsoft\\Windows NT\\CurrentVersion";
  const auto notAdded = [](const std::u16string& key) {
    return (key.empty() ? key : u"\n" + key) + kErrors + u"Registry Key Redirection was not successful.\n\n";
  };
  const auto notRemoved = [](const std::u16string& key) {
    return u"\n" + key + kErrors + u"Removal of the Registry Key Redirection was not successful.\n\n";
  };
  const auto added = About(u"\n", u"  Redirect Registry Key was successful.\n\n");
  const auto removed = About(u"\n", u" Removal of the Redirect Registry Key was successful.\n\n");
  const auto in = About(u"1 D:\\Registry:", u"; automatic, runs");
  // There is no location yet.
  Expect({place}, u"\n\n\n\n", {}, u"0 :; manual, stands");
  Expect({keys}, u"\n\n\n", {}, u"0 :; manual, stands");
  Expect({keys, a}, notAdded(a), {u"#ERROR: redirect location not set (redirection disabled)."});
  Expect({keys, a, u"/d"}, notRemoved(a), {u"#ERROR: Registry key redirection is disabled."});
  Expect({keys, u"/d"}, notAdded(u""),
         {u"Please specify registry key to be removed.\n Registry Key Redirection was not successful."});
  Expect({place, u"/d"},
         kErrors + u"Redirect registry key thawed location -  can not be removed.\nCheck location and try again.\n\n",
         {u"#ERROR: Redirect Registry key location already empty."});
  // It is set, and a second one is not.
  Expect({place, u"/loc:D:\\Registry"}, kSet(u"D:\\Registry"), {kOthers(u"D:\\Registry")}, in(u""));
  Expect({place, u"/loc:D:\\"}, kNotSet(u"D:\\"),
         {u"#ERROR: Registry Key Redirection location already set. To set new location,please remove existing "
          u"location"});
  Expect({place}, u"\n\nD:\\Registry\n\n", {}, in(u""));
  // Keys join the list, and those below another go into that one.
  machine->services().SetState(kService, win32::SERVICE_STOPPED);
  Expect({keys, a + u"\\B"}, added(a + u"\\B"), {}, in(u" A\\B"));
  Expect({keys, ab}, added(ab), {}, in(u" A\\B AB"));
  Expect({keys, kSoftware + u"a\\b"}, notAdded(kSoftware + u"a\\b"),
         {u"#ERROR: Registry key already present in list."});
  Expect({keys, a + u"\\b\\C"}, notAdded(a + u"\\b\\C"), {u"#ERROR: parent key already present: " + a + u"\\B"});
  Expect({keys, a}, added(a), {a + u"\\B"}, in(u" AB A"));
  for (const std::u16string& key : {a + u"\\missing", std::u16string(u"HKEY_CURRENT_USER\\Software")})
    Expect({keys, key}, notAdded(key), {u"#ERROR: Invalid Registry path: " + key});
  for (const std::u16string tail : {u"", u"\\", u"\\MICROSOFT", u"\\Microsoft\\"}) {
    const std::u16string refusal =
        u"#ERROR: Redirection of HKEY_LOCAL_MACHINE\\Software" + tail + u" key is not allowed.";
    Expect({keys, u"HKEY_LOCAL_MACHINE\\Software" + tail}, refusal + u"\n", {refusal});
  }
  Expect({keys, ab, u"/d"}, removed(ab), {}, in(u" A"));
  Expect({keys, ab, u"/d"}, notRemoved(ab), {u"key path not found in list :- " + ab});
  // The profile list stays while new profiles need it, and beside whatever takes in its neighbours.
  const auto needed = [](const char16_t* status) {
    CQBConfig config;
    EXPECT_TRUE(config.Init() && config.SetUserProfileRedirection(status, nullptr, nullptr) && config.Save());
  };
  const std::u16string list = windows + u"\\PROFILELIST", mine = u" Microsoft\\Windows NT\\CurrentVersion";
  ASSERT_EQ(Add(kProfileListKey).exitCode + Add(windows + u"\\Winlogon").exitCode, 0);
  needed(u"1");
  Expect({keys, list, u"/d"}, notRemoved(list),
         {u"#ERROR: This registry key is required for redirecting new user profiles automatically."});
  Expect({place, u"/d"},
         u"\n\nAutomatic user profile redirection is enabled. Automactic User Profile redirection must be disabled "
         u"before you can remove Redirect Registry key Location.\n",
         {u"#ERROR: Redirect new user profile redirection is enabled."});
  Expect({keys, windows}, added(windows), {kProfileListKey, windows + u"\\Winlogon"},
         in(u" A" + mine + u"\\ProfileList" + mine));
  needed(u"0");
  Expect({keys, list, u"/d"}, removed(list), {}, in(u" A" + mine));
  // Listing is for a Frozen machine, too, and for who is no administrator in effect.
  workstation::InstallRimehold(*machine, u"Frozen");
  Expect({place}, u"\n\nD:\\Registry\n\n", {}, in(u" A" + mine));
  Expect({keys}, u"\n\n" + a + u"\n" + windows + u"\n\n", {}, in(u" A" + mine));
  workstation::RemoveRimehold(*machine);
  Expect({place, u"/loc:D:\\", u"/d"}, u"RedirectRegKeyLocation\n   " + LoadResourceString(106),
         {u"Remove Redirect Registry Key was not successful.\nUsage:"});
  // The keys stay for the next location.
  Expect({place, u"/d"}, kRemoved(u"D:\\Registry"), {u"Service disabled successfully."},
         u"0 : A" + mine + u"; manual, stands");
  SetLocation();
  machine->process.token = emulated::MakeFilteredAdministratorToken(emulated::SidFromText(u"S-1-5-21-1-2-3-1001"));
  const std::u16string refused = u"Registry Redirection requires administrator privileges to run.\n\n";
  Expect({place, u"/loc:D:\\"}, u"\n\n" + refused);
  Expect({place, u"/d"}, u"\n\nRemove " + refused);
  Expect({keys, ab}, u"\n\n" + refused);
  Expect({keys, a, u"/d"}, u"\n\n" + refused);
  Expect({place}, u"\n\nD:\\Registry\n\n", {}, in(u" A" + mine));
}

TEST_F(RegistryCommands, WhatIsNoLocation) {
  const auto refused = [&](const std::u16string& location, const Lines& log) {
    Expect({u"/RedirectRegKeyLocation", u"/loc:" + location}, kNotSet(location), log);
  };
  refused(u"C:\\Nowhere",
          {u"#ERROR: The selected folder C:\\Nowhere does not exist.The system cannot find the file specified."});
  refused(u"\\\\?\\D:\\Registry", {u"#ERROR:Invalid path : \\\\?\\D:\\Registry"});
  refused(
      u"C:\\Windows",
      {u"#ERROR: C:\\Windows - Cannot redirect from or to Windows system folders. Browse to a different location."});
  refused(u"C:\\Program Files\\Velmora", {});
  refused(kVolume, {u"#ERROR: Unable to get mount volume path."});
  // All that the file says of a location is asked for.
  Edit(u"<SubDir>Quillbay\\RegistryData</SubDir>", u"");
  refused(u"D:\\Registry", {u"#ERROR: Unable to get Registry Redirect Location from config file."});
  Edit(u"</OutDir>", u"<SubDir>Quillbay\\RegistryData</SubDir></OutDir>");
  EXPECT_EQ(SetLocation(u"C:\\").exitCode, 0) << "a drive's root will do";
}

TEST_F(RegistryCommands, WhatGoesWithALocation) {
  test::SetSecurity(u"D:\\Registry", u"O:BAD:P(A;OICI;FA;;;BA)(A;OICI;0x1301bf;;;AU)");
  MakeData(u"D:\\Registry");
  const test::Disks disks = machine->Snapshot();
  EXPECT_EQ(
      test::Messages(SetLocation().log),
      (Lines{u"#INFO: There are files in " + kData +
                 u" already. They are taken for the service's and go with the location.",
             u"#INFO: The entry (A;OICI;0x1301bf;;;AU) of the folder D:\\Registry lets others change the registry "
             u"data that are kept there."}));
  EXPECT_EQ(RemoveLocation().exitCode, 0);
  EXPECT_TRUE(test::Names(u"D:\\Registry").empty()) << "an emptied place is taken away";

  Boot(disks);
  for (const char16_t* log : {u"\\quillbay.LOG", u"\\OutOfDiskSpace.txt", u"\\QuillbayService.log"})
    MakeFile(kData + log, "a log");
  MakeFile(u"D:\\Registry\\Quillbay\\mine.txt", "x");
  MakeFolder(kData + u"\\folder");
  MakeFile(kData + u"\\2.bak", "x", win32::FILE_ATTRIBUTE_HIDDEN);
  MakeFolder(u"D:\\Other");
  ASSERT_EQ(CreateSymbolicLinkEntry((kData + u"\\link").c_str(), u"D:\\Other"), 1);
  const test::Tree before = test::DescribeTree(u"D:\\Registry");
  workstation::InstallRimehold(*machine, u"Frozen");
  CleanRegistryData(u"D:\\Registry");
  EXPECT_EQ(test::DescribeTree(u"D:\\Registry"), before) << "after a restart it would be back";
  workstation::RemoveRimehold(*machine);
  CleanRegistryData(u"");
  CleanRegistryData(u"D:\\Registry", u"D:\\Registry");
  EXPECT_EQ(test::DescribeTree(u"D:\\Registry"), before);
  CleanRegistryData(u"D:\\Registry", u"D:\\Other");
  EXPECT_EQ(
      test::Names(u"D:\\Registry"),
      (Lines{u"\\Quillbay", u"\\Quillbay\\RegistryData", u"\\Quillbay\\RegistryData\\OutOfDiskSpace.txt",
             u"\\Quillbay\\RegistryData\\QuillbayService.log", u"\\Quillbay\\RegistryData\\folder",
             u"\\Quillbay\\RegistryData\\link", u"\\Quillbay\\RegistryData\\quillbay.LOG", u"\\Quillbay\\mine.txt"}));
}

// A user who may write to the location makes a link of the emptied folder, at any call of the clean-up.
TEST_F(RegistryCommands, AFolderMadeALinkMeanwhileLeadsNowhere) {
  MakeFolder(u"C:\\Precious");
  for (const char16_t* name : {u"1.bak", u"2.bak"}) MakeFile(u"C:\\Precious\\" + std::u16string(name), "x");
  MakeFolder(u"C:\\Precious\\KeyToDelete");
  SetLocation();
  MakeData(u"D:\\Registry");
  MakeFile(kData + u"\\2.bak", "x");
  for (const std::u16string& path : {kData, kData + u"\\1.bak", kData + u"\\2.bak", kData + u"\\KeyToDelete"})
    test::SetSecurity(path, u"O:BAD:P(A;;FA;;;WD)");
  const test::Disks disks = machine->Snapshot();
  std::vector<std::string> calls;
  machine->gate.Observe([&](const char* name, std::uint64_t) { calls.emplace_back(name); });
  ASSERT_EQ(RemoveLocation().exitCode, 0);
  ASSERT_FALSE(Exists(kData));
  const auto listing = std::ranges::find(calls, "FindFirstFileW");
  ASSERT_NE(listing, calls.end());
  int links = 0;
  for (auto call = listing - 8; call != calls.end(); ++call) {
    Boot(disks);
    bool happened = false;
    const auto number = static_cast<std::uint64_t>(call - calls.begin()) + 1;
    workstation::Intrude(*machine, {"", number, kData, u"C:\\Precious"}, &happened);
    EXPECT_EQ(RemoveLocation().exitCode, 0);
    machine->gate.Observe({});
    EXPECT_EQ(test::Names(u"C:\\Precious"), (std::vector<std::u16string>{u"\\1.bak", u"\\2.bak", u"\\KeyToDelete"}))
        << *call << ", call " << number;
    links += happened ? 1 : 0;
  }
  EXPECT_GE(links, 10);
}

// The location is switched off, but still named, and set again by another of its names.
TEST_F(RegistryCommands, DataOfTheNewLocationStay) {
  for (const char16_t* folder : {u"D:\\Link", u"D:\\Other", u"D:\\Other\\Quillbay"}) MakeFolder(folder);
  ASSERT_TRUE(CreateJunction(u"D:\\Link", u"D:\\Registry") &&
              CreateJunction(u"D:\\Other\\Quillbay", u"D:\\Registry\\Quillbay"));
  MakeData(u"D:\\Registry");
  const test::Disks disks = machine->Snapshot();
  for (const std::u16string location :
       {u"D:\\Registry", u"d:\\REGISTRY\\", u"D:\\Link", u"D:\\Other", u"D:\\Registry\\Quillbay\\RegistryData"}) {
    for (const char* refused : {"", "GetFinalPathNameByHandleW"}) {
      Boot(disks);
      SwitchOff();
      if (*refused) machine->gate.FailCallsFrom(refused, 1, win32::ERROR_ACCESS_DENIED);
      EXPECT_EQ(SetLocation(location).exitCode, 0);
      machine->gate.ClearFailures();
      EXPECT_EQ(Contents(kData + u"\\1.bak"), "x") << Utf8(location) << refused;
    }
  }
  // Those of the old one go, and the new one's stay.
  Boot(disks);
  SwitchOff();
  MakeFolder(u"D:\\New");
  MakeData(u"D:\\New");
  EXPECT_EQ(SetLocation(u"D:\\New").exitCode, 0);
  EXPECT_FALSE(Exists(u"D:\\Registry\\Quillbay"));
  EXPECT_EQ(Contents(u"D:\\New\\Quillbay\\RegistryData\\1.bak"), "x");
}

// What a redirection keeps is not the service's, whichever came first.
TEST_F(RegistryCommands, RedirectedDataAreNotTakenForTheServices) {
  MakeFolder(u"C:\\RegistryData");
  MakeFile(u"C:\\RegistryData\\letter", "x");
  MakeFile(u"C:\\single.txt", "x");
  const std::pair<std::u16string, std::u16string> redirections[] = {{u"/RedirectFolder", u"C:\\RegistryData"},
                                                                    {u"/RedirectFile", u"C:\\single.txt"}};
  for (const auto& [command, source] : redirections) {
    const std::u16string target = u"/loc:" + (command == u"/RedirectFile" ? kData : u"D:\\Registry\\Quillbay");
    SetLocation();
    ASSERT_EQ(RunProgram(*machine, {command, source, target}).exitCode, 0);
    Expect({u"/RedirectRegKeyLocation", u"/d"}, kRemoved(u"D:\\Registry"),
           {u"Service disabled successfully.",
            u"#INFO: The files in " + kData + u" stay: they are those of " + source + u"."},
           u"0 :; manual, stands");
    Expect({u"/RedirectRegKeyLocation", u"/loc:D:\\Registry"}, kNotSet(u"D:\\Registry"),
           {u"#ERROR: The folder D:\\Registry holds what is redirected from " + source +
            u". Browse to a different location."});
    EXPECT_EQ(RunProgram(*machine, {command, source, target, u"/d"}).exitCode, 0);
    EXPECT_EQ(Contents(u"C:\\RegistryData\\letter") + Contents(u"C:\\single.txt"), "xx");
  }
  // Where the records cannot be read, nothing is taken for the service's.
  machine->gate.FailCallsFrom("RegOpenKeyExW", 1, win32::ERROR_ACCESS_DENIED);
  EXPECT_FALSE(MayHoldRegistryData(u"D:\\Registry"));
  machine->gate.ClearFailures();
}

// What is on the volume stays there: unmounting comes before any clean-up, and what cannot be unmounted, or is not told
// to be a mount of this program's, is left alone.
TEST_F(RegistryCommands, AVolumeBecomesALocationBesideRimehold) {
  RestartWithVolume();
  const std::u16string volume = kVolume.substr(0, kVolume.size() - 1);
  Expect({u"/RedirectRegKeyLocation", u"/vol:" + kVolume}, kSet(kVolume),
         {u"#INFO: The entry (A;OICI;0x1301bf;;;AU) of the folder " + kVolume +
          u" lets others change the registry data that are kept there."},
         u"1 " + kMount + u":; automatic, runs");
  MakeData(volume);
  EXPECT_EQ(Contents(kMount + u"\\Quillbay\\RegistryData\\1.bak"), "x");
  const test::Tree before = test::DescribeTree(volume);
  const test::Disks disks = machine->Snapshot();
  struct {
    std::function<void()> hinder;
    bool unmounted;
  } const cases[] = {
      {[] {}, true},
      {[&] { workstation::RemoveRimehold(*machine); }, true},
      {[&] { machine->gate.FailCallsFrom("DeleteVolumeMountPointW", 1, win32::ERROR_ACCESS_DENIED); }, false},
      {[&] { machine->gate.FailCallsFrom("GetVolumeNameForVolumeMountPointW", 1, win32::ERROR_ACCESS_DENIED); },
       false}};
  for (const auto& each : cases) {
    Boot(disks);
    each.hinder();
    Lines log{u"Service disabled successfully."};
    if (!each.unmounted) log.insert(log.begin(), u"#INFO: The volume stays mounted on folder " + kMount + u".");
    Expect({u"/RedirectRegKeyLocation", u"/d"}, kRemoved(kMount), log, u"0 :; manual, stands");
    machine->gate.ClearFailures();
    EXPECT_EQ(Exists(kMount), !each.unmounted);
    EXPECT_EQ(test::DescribeTree(volume), before);
  }
  EXPECT_EQ(SetVolume().exitCode, 0) << "the one that stayed mounted is taken up";
  EXPECT_EQ(RemoveLocation().exitCode, 0);
  // A later failure takes the mount back, and only what this run made.
  MakeFolder(kMount);
  machine->gate.FailCall("get_xml", 1, win32::ERROR_WRITE_PROTECT);
  EXPECT_EQ(SetVolume().exitCode, 1);
  EXPECT_TRUE(Exists(kMount));
  EXPECT_TRUE(test::Names(kMount).empty()) << "no longer mounted";
  EXPECT_EQ(test::DescribeTree(volume), before);
}

// A location on a volume that another program has mounted is a place like any; one that is mounted beside Rimehold is
// left mounted.
TEST_F(RegistryCommands, AnothersMountStays) {
  RestartWithVolume();
  MakeFolder(u"C:\\Theirs");
  ASSERT_TRUE(win32::SetVolumeMountPointW(u"C:\\Theirs\\", kVolume.c_str()));
  MakeData(u"C:\\Theirs");
  EXPECT_EQ(SetLocation(u"C:\\Theirs").exitCode + RemoveLocation().exitCode, 0);
  EXPECT_TRUE(Exists(u"C:\\Theirs")) << "still mounted";
  EXPECT_EQ(test::Names(u"C:\\Theirs"), Lines{u"\\$RECYCLE.BIN"});
  ASSERT_EQ(SetVolume().exitCode, 0);
  MakeData(kMount);
  MakeFile(u"D:\\theirs", "x");
  ASSERT_TRUE(win32::DeleteVolumeMountPointW((kMount + u"\\").c_str()));
  ASSERT_TRUE(win32::SetVolumeMountPointW((kMount + u"\\").c_str(), machine->volumes[1]->guidName.c_str()));
  EXPECT_EQ(test::Messages(RemoveLocation().log),
            (Lines{u"#INFO: The volume stays mounted on folder " + kMount + u".", u"Service disabled successfully."}));
  EXPECT_TRUE(Exists(kMount + u"\\theirs") && Exists(u"C:\\Theirs\\Quillbay\\RegistryData\\1.bak"));
}

// The same command afterwards does what is left of it, and what is on the volume stays there.
TEST_F(RegistryCommands, APowerFailureAtAnyCallIsGoneOnFrom) {
  RestartWithVolume();
  MakeData(kVolume.substr(0, kVolume.size() - 1));
  machine->registry().SetText(u"HKLM\\SOFTWARE\\A", u"x", u"1");
  SetLocation(u"D:\\");
  ASSERT_EQ(Add(kSoftware + u"A").exitCode, 0);
  RemoveLocation();
  for (const bool removal : {false, true}) {
    const auto command = [&](emulated::Machine&) { return removal ? RemoveLocation() : SetVolume(); };
    test::Disks done;
    test::AtEveryMoment(*machine, command, [&](emulated::Machine& after, const std::string& moment) {
      if (done.empty()) done = machine->Snapshot();
      const bool isSet = InFile() == u"1 " + kMount + u": A";
      EXPECT_TRUE(isSet || InFile() == u"0 : A") << moment;
      const auto run = [&](const std::u16string& word) {
        return RunProgram(after, {u"/RedirectRegKeyLocation", word}).exitCode;
      };
      EXPECT_EQ(run(isSet || removal ? u"/d" : u"/vol:" + kVolume), isSet || !removal ? 0 : 1) << moment;
      if (isSet || removal) {
        EXPECT_EQ(run(u"/vol:" + kVolume), 0) << moment;
      }
      EXPECT_EQ(Contents(kVolume + u"Quillbay\\RegistryData\\1.bak"), "x") << moment;
    });
    Boot(done);
  }
}

TEST_F(RegistryCommands, AFailureAmongTheKeysIsToldAsItIs) {
  SetLocation();
  ASSERT_EQ(Add(kSoftware + u"A\\B").exitCode + Add(kSoftware + u"AB").exitCode, 0);
  machine->gate.FailCall("get_text", 4, win32::ERROR_ACCESS_DENIED);
  const RunResult run = RunProgram(*machine, {u"/RedirectRegKey"});
  EXPECT_EQ(run.exitCode, 1);
  EXPECT_EQ(run.said, u"\n\n\n") << "a part of the list would be taken for all of it";
  machine->gate.FailCall("removeChild", 1, win32::ERROR_ACCESS_DENIED);
  EXPECT_EQ(test::Messages(Add(kSoftware + u"A").log),
            (Lines{kSoftware + u"A\\B", u"#INFO: The child key stays in the config file: " + kSoftware + u"A\\B"}));
  EXPECT_EQ(InFile(), u"1 D:\\Registry: A\\B AB A");
  machine->gate.FailCallsFrom("RegOpenKeyExW", 1, win32::ERROR_ACCESS_DENIED);
  EXPECT_TRUE(IsValidRegistryPath(kSoftware + u"A")) << "a key closed to the user is there";
  machine->gate.ClearFailures();
}

// What a refused call leaves of the file and of the service, and whether the console told the truth about it.
class RegistryCommandsRefusedCalls : public RegistryCommands {
 protected:
  template <typename Command>
  void Check(Command command, std::u16string_view success, const char* service, const char16_t* mountFolder = nullptr) {
    Add(kSoftware + u"AB");
    const std::string before = Contents(kConfig);
    std::u16string after;
    std::set<std::string> outcomes;
    const auto run = [&] {
      standing_ = Service();
      const RunResult result = command();
      if (after.empty()) after = InFile(false);
      return result;
    };
    test::WithEachCallRefused(machine, run, [&](const RunResult& result, const std::string& when) {
      const std::string now = Contents(kConfig), call = when.substr(0, when.find(','));
      const bool done = result.exitCode == 0, old = now == before;
      const bool complete = now.ends_with(std::string(">\0\r\0\n\0", 6));
      const bool isNew = !old && complete && InFile(false) == after;
      EXPECT_TRUE(done || !result.Said(success)) << when;
      // A file that is not found or cannot be read is replaced by the default.
      EXPECT_TRUE(complete && (done == isNew || kReplacing.contains(call)) &&
                  (old || isNew || kReplacing.contains(call)))
          << when;
      // Only a command that succeeded has done anything to the service.
      EXPECT_TRUE(Service() == (done ? service : standing_) || (done && kOfServices.contains(call)))
          << when << Service();
      EXPECT_TRUE(!mountFolder || Exists(mountFolder) == done) << when;
      outcomes.insert((done ? "success, " : "failure, ") + std::string(old ? "old" : isNew ? "new" : "default"));
    });
    EXPECT_TRUE(outcomes.contains("failure, old"));
  }
  static inline const std::set<std::string> kReplacing{
      "PathFileExistsW",        "CreateFileW", "SetFilePointer", "GetFileSize", "ReadFile", "CreateInstance",
      "put_preserveWhiteSpace", "loadXML",     "CoInitializeEx"};
  static inline const std::set<std::string> kOfServices{"OpenSCManagerW", "OpenServiceW", "ChangeServiceConfigW",
                                                        "StartServiceW", "ControlService"};

 private:
  std::string standing_;
};

TEST_F(RegistryCommandsRefusedCalls, OfSettingALocation) {
  SetLocation();
  Add(kSoftware + u"A");
  RemoveLocation();
  Check([&] { return SetLocation(); }, u"D:\\Registry successful", "automatic, runs");
}
TEST_F(RegistryCommandsRefusedCalls, OfSettingALocationOnAVolume) {
  RestartWithVolume();
  Check([&] { return SetVolume(); }, kVolume + u" successful", "automatic, runs", kMount.c_str());
}
TEST_F(RegistryCommandsRefusedCalls, OfRemovingALocation) {
  SetLocation();
  Check([&] { return RemoveLocation(); }, u"has been removed", "manual, stands");
}
TEST_F(RegistryCommandsRefusedCalls, OfAddingAKey) {
  SetLocation();
  Add(kSoftware + u"A\\B");
  Check([&] { return Add(kSoftware + u"A"); }, u"Redirect Registry Key was successful", "automatic, runs");
}
TEST_F(RegistryCommandsRefusedCalls, OfRemovingAKey) {
  SetLocation();
  Add(kSoftware + u"A");
  Check([&] { return Remove(kSoftware + u"A"); }, u"Removal of the Redirect Registry Key was successful",
        "automatic, runs");
}

}  // namespace
