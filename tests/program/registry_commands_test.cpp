// Registry redirection as an administrator sees it: where the data goes, which keys are preserved, what the service
// does.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <iostream>
#include <map>
#include <optional>
#include <set>
#include <tuple>

#include "configuration/service_config.h"
#include "links/junction.h"
#include "regredirect/registry_keys.h"
#include "support/every_call.h"
#include "support/program.h"
#include "support/tree.h"
#include "workstation/intruder.h"
#include "workstation/product.h"
#include "win32/emulated/registry/registry.h"
#include "win32/emulated/registry/services.h"
#include "win32/emulated/security/token.h"
#include "win32/emulated/text.h"
#include "win32/win32.h"

namespace {

using test::Contents, test::Exists, test::MakeFile, test::MakeFolder, test::RunProgram, test::RunResult;

const std::u16string kService = u"QuillbayService";
const std::u16string kConfig = u"C:\\Program Files\\Velmora\\Quillbay\\ServiceConfig.xml";
const std::u16string kSoftware = u"HKEY_LOCAL_MACHINE\\SOFTWARE\\";
const std::u16string kVolume = u"\\\\?\\Volume{12345678-0000-4000-8000-000000000000}\\";
const std::u16string kMount = u"C:\\Program Files (x86)\\Velmora\\Rimehold\\RegRedirect";
const std::u16string kData = u"D:\\Registry\\Quillbay\\RegistryData";

class RegistryCommands : public ::testing::Test {
 protected:
  RegistryCommands() {
    Restart();
    MakeFolder(u"D:\\Registry");
    for (const char16_t* key : {u"A", u"A\\B", u"A\\B\\C", u"AB"})
      machine->registry().SetText(u"HKLM\\SOFTWARE\\" + std::u16string(key), u"x", u"1");
  }
  void Restart(const test::MachineFacts& facts = {}) {
    machine.reset();
    machine = test::InstalledMachine(facts);
    test::UseProgramModule(*machine);
    machine->services().SetState(kService, win32::SERVICE_STOPPED);
  }

  RunResult Location(std::initializer_list<std::u16string> words) {
    return words.size() == 0 ? RunProgram(*machine, {u"/RedirectRegKeyLocation"})
                             : RunProgram(*machine, {u"/RedirectRegKeyLocation", *words.begin()});
  }
  RunResult SetLocation(const std::u16string& location = u"D:\\Registry") { return Location({u"/loc:" + location}); }
  RunResult SetVolume() { return Location({u"/vol:" + kVolume}); }
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
  // The service's folders at a location, with one file.
  static void MakeData(const std::u16string& location) {
    for (const char16_t* folder : {u"", u"\\RegistryData", u"\\RegistryData\\KeyToDelete"})
      MakeFolder(location + u"\\Quillbay" + folder);
    MakeFile(location + u"\\Quillbay\\RegistryData\\1.bak", "x");
  }
  RunResult Add(const std::u16string& key) { return RunProgram(*machine, {u"/RedirectRegKey", key}); }
  RunResult Remove(const std::u16string& key) { return RunProgram(*machine, {u"/RedirectRegKey", key, u"/d"}); }

  // What the file holds, as its own class reads it.
  std::vector<std::u16string> Keys() {
    CQBConfig config;
    EXPECT_EQ(config.Init(), 1);
    return config.MonitoredKeys();
  }
  std::pair<int, std::u16string> LocationInFile() {
    CQBConfig config;
    int status = -2;
    std::u16string folder;
    EXPECT_EQ(config.Init() && config.GetOutDir(status, folder), 1);
    return {status, folder};
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
  win32::DWORD StartType() { return machine->services().Configuration(kService)->start; }
  bool Runs() { return machine->services().State(kService) == win32::SERVICE_RUNNING; }

  std::unique_ptr<emulated::Machine> machine;
};

TEST_F(RegistryCommands, TheLogTellsWhoMayWriteToALocation) {
  test::SetSecurity(u"D:\\Registry", u"O:BAD:P(A;OICI;FA;;;BA)(A;OICI;0x1301bf;;;AU)");
  MakeData(u"D:\\Registry");
  const RunResult run = SetLocation();
  EXPECT_EQ(run.exitCode, 0);
  EXPECT_TRUE(run.Logged(u"AU) of the folder D:\\Registry lets others change the registry data"));
  EXPECT_TRUE(run.Logged(u"#INFO: There are files in " + kData + u" already."));
}

TEST_F(RegistryCommands, DataOfAnotherAreNotReachedThroughALink) {
  SetLocation();
  MakeData(u"D:\\Registry");
  EXPECT_EQ(Location({u"/d"}).exitCode, 0);
  EXPECT_TRUE(test::Names(u"D:\\Registry").empty()) << "an emptied place is taken away";

  SetLocation();
  MakeFolder(u"D:\\Registry\\Quillbay");
  MakeFolder(u"D:\\Precious");
  MakeFolder(kData);
  ASSERT_EQ(RunProgram(*machine, {u"/RedirectFolder", kData, u"/loc:D:\\Precious"}).exitCode, 0);
  MakeFile(u"D:\\Precious\\RegistryData\\file", "x");
  EXPECT_EQ(Location({u"/d"}).exitCode, 0);
  EXPECT_EQ(Contents(u"D:\\Precious\\RegistryData\\file"), "x");
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
  ASSERT_EQ(Location({u"/d"}).exitCode, 0);
  ASSERT_FALSE(Exists(kData));
  const auto listing = std::ranges::find(calls, "FindFirstFileW");
  ASSERT_NE(listing, calls.end());
  int links = 0;
  for (auto call = listing - 8; call != calls.end(); ++call) {
    Boot(disks);
    bool happened = false;
    const auto number = static_cast<std::uint64_t>(call - calls.begin()) + 1;
    workstation::Intrude(*machine, {"", number, kData, u"C:\\Precious"}, &happened);
    EXPECT_EQ(Location({u"/d"}).exitCode, 0);
    machine->gate.Observe({});
    EXPECT_EQ(test::Names(u"C:\\Precious"), (std::vector<std::u16string>{u"\\1.bak", u"\\2.bak", u"\\KeyToDelete"}))
        << *call << ", call " << number;
    links += happened ? 1 : 0;
  }
  EXPECT_GE(links, 10);
}

// The location is switched off, but still named, and set again by another of its names.
TEST_F(RegistryCommands, DataOfTheNewLocationStay) {
  MakeFolder(u"D:\\Link");
  MakeFolder(u"D:\\Other");
  MakeFolder(u"D:\\Other\\Quillbay");
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
      EXPECT_EQ(Contents(kData + u"\\1.bak"), "x") << emulated::Utf8(location) << refused;
    }
  }
  Boot(disks);
  SwitchOff();
  EXPECT_EQ(SetLocation(u"D:\\").exitCode, 0);
  EXPECT_FALSE(Exists(kData)) << "those of the old one go";
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
    RunResult run = Location({u"/d"});
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_TRUE(run.Logged(u"#INFO: The files in " + kData + u" stay: they are those of " + source + u"."));
    run = SetLocation();
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_TRUE(run.Logged(u"#ERROR: The folder D:\\Registry holds what is redirected from " + source));
    EXPECT_EQ(RunProgram(*machine, {command, source, target, u"/d"}).exitCode, 0);
    EXPECT_EQ(Contents(u"C:\\RegistryData\\letter") + Contents(u"C:\\single.txt"), "xx");
  }
}

TEST_F(RegistryCommands, AreForElevatedAdministrators) {
  SetLocation();
  machine->process.token = emulated::MakeFilteredAdministratorToken(emulated::SidFromText(u"S-1-5-21-1-2-3-1001"));
  const std::string before = Contents(kConfig);
  const std::u16string set = u"\n\nRegistry Redirection requires administrator privileges to run.\n\n";
  const std::u16string remove = u"\n\nRemove Registry Redirection requires administrator privileges to run.\n\n";
  const std::pair<RunResult, std::u16string> runs[] = {{SetLocation(u"D:\\"), set},
                                                       {Location({u"/d"}), remove},
                                                       {Add(kSoftware + u"A"), set},
                                                       {Remove(kSoftware + u"A"), set}};
  for (const auto& [run, said] : runs) {
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(run.said, said);
  }
}

TEST_F(RegistryCommands, WhatIsNoLocation) {
  machine->FindByLetter(u'D')->fileSystem = u"FAT32";
  const auto refused = [&](const std::u16string& location, const std::u16string& line) {
    const RunResult run = SetLocation(location);
    EXPECT_EQ(run.exitCode, 1) << emulated::Utf8(location);
    EXPECT_TRUE(run.Logged(line)) << emulated::Utf8(run.log);
    EXPECT_TRUE(run.Said(u"location - " + location + u" is not successful.")) << emulated::Utf8(run.said);
    EXPECT_EQ(LocationInFile().first, 0);
  };
  refused(u"C:\\Nowhere", u"#ERROR: The selected folder C:\\Nowhere does not exist.");
  refused(u"D:\\Registry",
          u"#ERROR: Folder D:\\Registry must be on NTFS formatted volume. Browse to a different location.");
  refused(u"C:\\Windows", u"#ERROR: C:\\Windows - Cannot redirect from or to Windows system folders.");
  MakeFile(u"C:\\file", "x");
  refused(u"C:\\file", u"#ERROR: The specified path C:\\file is not a valid directory path.");
  std::u16string longest = u"C:\\" + std::u16string(120, u'a');
  MakeFolder(longest);
  longest += u"\\" + std::u16string(246 - longest.size() - 1, u'b');
  MakeFolder(longest);
  MakeFolder(u"\\\\?\\" + longest + u"b");
  refused(longest + u"b", u"exceeds the system-defined maximum length of 248 characters.");
  // All that the file says of a location is asked for.
  Edit(u"<SubDir>Quillbay\\RegistryData</SubDir>", u"");
  EXPECT_EQ(SetLocation(longest).exitCode, 1);
  Edit(u"</OutDir>", u"<SubDir>Quillbay\\RegistryData</SubDir></OutDir>");
  // A drive's root will do; so will Rimehold's own folder, but nobody else's below Program Files.
  EXPECT_EQ(SetLocation(longest).exitCode, 0);
  EXPECT_EQ(Location({u"/d"}).exitCode, 0);
  EXPECT_EQ(SetLocation(u"C:\\Program Files\\Velmora").exitCode, 1);
  EXPECT_EQ(SetLocation(u"C:\\").exitCode, 0);
}

TEST_F(RegistryCommands, AVolumeBecomesALocationBesideRimehold) {
  RestartWithVolume();
  const std::u16string kept = kVolume + u"Quillbay\\RegistryData\\kept";
  const RunResult run = SetVolume();
  EXPECT_EQ(run.exitCode, 0) << emulated::Utf8(run.log);
  EXPECT_EQ(LocationInFile(), std::pair(1, kMount));
  for (const char16_t* name : {u"Quillbay", u"Quillbay\\RegistryData"}) MakeFolder(kVolume + name);
  MakeFile(kept, "on the volume");
  EXPECT_EQ(Contents(kMount + u"\\Quillbay\\RegistryData\\kept"), "on the volume");
  // Whoever cannot tell whose the mount is leaves what is on it alone; so does who cannot take it off.
  const test::Disks set = machine->Snapshot();
  const std::function<void()> hindrances[] = {
      [] {}, [&] { workstation::RemoveRimehold(*machine); },
      [&] { machine->gate.FailCallsFrom("DeleteVolumeMountPointW", 1, win32::ERROR_ACCESS_DENIED); },
      [&] { machine->gate.FailCallsFrom("GetVolumeNameForVolumeMountPointW", 1, win32::ERROR_ACCESS_DENIED); }};
  for (const auto& hinder : hindrances) {
    Boot(set);
    hinder();
    EXPECT_EQ(Location({u"/d"}).exitCode, 0);
    EXPECT_EQ(Exists(kMount), machine->gate.failures() > 0) << "unmounted and removed";
    machine->gate.ClearFailures();
    EXPECT_EQ(Contents(kept), "on the volume");
  }
  EXPECT_EQ(SetVolume().exitCode, 0) << "the one that stayed mounted is taken up";
  EXPECT_EQ(Location({u"/d"}).exitCode, 0);

  // A later failure takes the mount back, and only what this run made.
  MakeFolder(kMount);
  machine->gate.FailCall("get_xml", 1, win32::ERROR_WRITE_PROTECT);
  EXPECT_EQ(SetVolume().exitCode, 1);
  EXPECT_TRUE(Exists(kMount));
  EXPECT_TRUE(test::Names(kMount).empty()) << "no longer mounted";
  workstation::RemoveRimehold(*machine);
  const RunResult without = SetVolume();
  EXPECT_EQ(without.exitCode, 1);
  EXPECT_TRUE(without.Logged(u"#ERROR: Unable to get mount volume path."));
}

// The same command afterwards does what is left of it, and what is on the volume stays there.
TEST_F(RegistryCommands, APowerFailureAtAnyCallIsGoneOnFrom) {
  RestartWithVolume();
  MakeData(kVolume.substr(0, kVolume.size() - 1));
  const std::u16string kept = kVolume + u"Quillbay\\RegistryData\\1.bak";
  machine->registry().SetText(u"HKLM\\SOFTWARE\\A", u"x", u"1");
  SetLocation(u"D:\\");
  ASSERT_EQ(Add(kSoftware + u"A").exitCode, 0);
  Location({u"/d"});
  for (const bool removal : {false, true}) {
    std::vector<std::pair<std::string, test::Disks>> moments;
    machine->gate.ResetCounts();
    machine->gate.Observe([&](const char* name, std::uint64_t number) {
      if (number % test::CallsInOneStep() == 0)
        moments.emplace_back(std::to_string(number) + " " + name, machine->Snapshot());
    });
    EXPECT_EQ((removal ? Location({u"/d"}) : SetVolume()).exitCode, 0);
    const test::Disks done = machine->Snapshot();
    for (auto& [moment, disks] : moments) {
      Boot(disks);
      EXPECT_EQ(Keys(), std::vector<std::u16string>{kSoftware + u"A"}) << moment;
      const bool isSet = LocationInFile().first != 0;
      const RunResult again = isSet || removal ? Location({u"/d"}) : SetVolume();
      EXPECT_EQ(again.exitCode, isSet || !removal ? 0 : 1) << moment << emulated::Utf8(again.log);
      if (isSet || removal) {
        EXPECT_EQ(SetVolume().exitCode, 0) << moment;
      }
      EXPECT_EQ(Contents(kept), "x") << moment;
    }
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
  EXPECT_EQ(Add(kSoftware + u"A").exitCode, 0) << "a child may stay beside its parent";
  EXPECT_EQ(Keys().size(), 3u);
  machine->gate.FailCallsFrom("RegOpenKeyExW", 1, win32::ERROR_ACCESS_DENIED);
  EXPECT_TRUE(IsValidRegistryPath(kSoftware + u"A")) << "a key closed to the user is there";
  machine->gate.ClearFailures();
}

// What a refused call leaves of the file, and whether the console told the truth about it.
class RegistryCommandsRefusedCalls : public RegistryCommands {
 protected:
  using Content = std::tuple<int, std::u16string, std::vector<std::u16string>>;
  // Keys below another are as good as absorbed.
  Content InFile() {
    const auto [status, folder] = LocationInFile();
    std::vector<std::u16string> keys = Keys();
    for (const std::u16string& parent : Keys())
      std::erase_if(keys, [&](const std::u16string& key) { return key.starts_with(parent + u'\\'); });
    return {status, folder, keys};
  }

  template <typename Command>
  void Check(Command command, std::u16string_view success, const char16_t* mountFolder = nullptr) {
    Add(kSoftware + u"AB");
    Keys();  // there is a file from the beginning
    const std::string before = Contents(kConfig);
    std::optional<Content> after;
    std::map<std::string, int> outcomes;
    std::set<std::string> replacing;
    const auto run = [&] {
      const RunResult result = command();
      if (!after) after = InFile();
      return result;
    };
    test::WithEachCallRefused(machine, run, [&](const RunResult& result, const std::string& when) {
      const std::string now = Contents(kConfig);
      const bool old = now == before;
      const bool complete = now.ends_with(std::string(">\0\r\0\n\0", 6));
      const bool isNew = !old && complete && InFile() == *after;
      EXPECT_TRUE(result.exitCode == 0 || !result.Said(success)) << when;
      const std::string call = when.substr(0, when.find(','));
      EXPECT_TRUE((result.exitCode == 0) == isNew || kReplacing.contains(call)) << when;
      EXPECT_TRUE(complete) << when;
      const std::string file = old ? "old" : isNew ? "new" : "the default";
      if (!old && !isNew) replacing.insert(call);
      // The machine has just started: only a command that succeeded has done anything to the service.
      EXPECT_TRUE(result.exitCode == 0 || Runs() == (StartType() == win32::SERVICE_AUTO_START)) << when;
      EXPECT_TRUE(!mountFolder || Exists(mountFolder) == (result.exitCode == 0)) << when;
      ++outcomes[(result.exitCode == 0 ? "success, " : "failure, ") + file +
                 (Runs() ? ", service runs" : ", service stands")];
    });
    for (const auto& [outcome, count] : outcomes) std::cout << outcome << ": " << count << "\n";
    // A file that is not found or cannot be read is replaced by the default.
    for (const std::string& call : replacing) EXPECT_TRUE(kReplacing.contains(call)) << call;
    EXPECT_GT(
        std::ranges::count_if(outcomes, [](const auto& entry) { return entry.first.starts_with("failure, old"); }), 0);
  }
  static inline const std::set<std::string> kReplacing{
      "PathFileExistsW",        "CreateFileW", "SetFilePointer", "GetFileSize", "ReadFile", "CreateInstance",
      "put_preserveWhiteSpace", "loadXML",     "CoInitializeEx"};
};

TEST_F(RegistryCommandsRefusedCalls, OfSettingALocation) {
  SetLocation();
  Add(kSoftware + u"A");
  Location({u"/d"});
  Check([&] { return SetLocation(); }, u"D:\\Registry successful");
}
TEST_F(RegistryCommandsRefusedCalls, OfSettingALocationOnAVolume) {
  RestartWithVolume();
  Location({u"/d"});  // so that the service does not run
  Check([&] { return SetVolume(); }, kVolume + u" successful", kMount.c_str());
}
TEST_F(RegistryCommandsRefusedCalls, OfRemovingALocation) {
  SetLocation();
  Check([&] { return Location({u"/d"}); }, u"has been removed");
}
TEST_F(RegistryCommandsRefusedCalls, OfAddingAKey) {
  SetLocation();
  Add(kSoftware + u"A\\B");
  Check([&] { return Add(kSoftware + u"A"); }, u"Redirect Registry Key was successful");
}
TEST_F(RegistryCommandsRefusedCalls, OfRemovingAKey) {
  SetLocation();
  Add(kSoftware + u"A");
  Check([&] { return Remove(kSoftware + u"A"); }, u"Removal of the Redirect Registry Key was successful");
}

}  // namespace
