// The service's configuration file, and what the program does to it.
#include <algorithm>
#include <functional>
#include <set>

#include "configuration/service_config.h"
#include "resources/program_resources.h"
#include "support/engine.h"
#include "support/program.h"
#include "win32/emulated/registry/registry.h"
#include "win32/emulated/registry/services.h"
#include "win32/emulated/setup/volume_builder.h"
#include "win32/emulated/text.h"

namespace {

const std::u16string kPath = u"C:\\Program Files\\Velmora\\Quillbay\\ServiceConfig.xml";
const std::u16string kSoftware = u"HKEY_LOCAL_MACHINE\\SOFTWARE\\";
const std::u16string kProfileList = u"HKLM\\SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion\\ProfileList";

std::string FileBytes(std::u16string_view text) {
  std::string bytes = "\xff\xfe";
  for (const char16_t unit : text) {
    bytes += static_cast<char>(unit & 0xFF);
    bytes += static_cast<char>(unit >> 8);
  }
  return bytes;
}

std::u16string FileText(const std::string& bytes) {
  std::u16string text;
  for (std::size_t i = 2; i + 1 < bytes.size(); i += 2)
    text += static_cast<char16_t>(static_cast<unsigned char>(bytes[i]) | static_cast<unsigned char>(bytes[i + 1]) << 8);
  return text;
}

std::u16string Element(const std::u16string& name, const std::u16string& content) {
  return u"<" + name + u">" + content + u"</" + name + u">";
}

std::u16string RegKey(const std::u16string& baseKey, const std::u16string& path) {
  return Element(u"RegKey", Element(u"BaseKey", baseKey) + Element(u"RegKeyPath", path));
}

// A file with these elements below the root.
std::u16string Document(const std::u16string& content) {
  return u"<?xml version=\"1.0\"?>\r\n" + Element(u"VelmoraQuillbayConfig", content) + u"\r\n";
}

// With the file's content.
struct Config : CQBConfig {
  Config() { EXPECT_EQ(Init(), 1); }
};
using Lines = std::vector<std::u16string>;

class ServiceConfig : public test::Engine {
 protected:
  ServiceConfig() { test::UseProgramModule(*machine); }

  void Begin() {
    Restart();
    test::UseProgramModule(*machine);
  }
  void PutFile(const std::string& bytes) {
    if (test::Exists(kPath)) {
      EXPECT_TRUE(win32::DeleteFileW(kPath.c_str()));
    }
    test::MakeFile(kPath, bytes);
  }
  void PutDocument(const std::u16string& content) { PutFile(FileBytes(Document(content))); }
  std::u16string Text() const { return FileText(test::Contents(kPath)); }
  bool Has(const std::u16string& text) const { return Text().find(text) != std::u16string::npos; }
  Lines Init() {
    const std::size_t before = LogText().size();
    CQBConfig config;
    const bool loaded = config.Init() == 1;
    Lines lines = test::Messages(LogText().substr(before));
    lines.insert(lines.begin(), loaded ? u"loaded" : u"not loaded");
    return lines;
  }
};

// Whatever the file says: the location for registry data, new profiles, the keys. "-" where an element is missing.
std::u16string Said(const CQBConfig& config) {
  int status = 9;
  std::u16string folder, type, below, text = u"-", profiles = u"-", home = u"-", all = u"location ";
  if (config.GetOutDir(status, folder, &type, &below))
    all += emulated::Utf16(std::to_string(status)) + u'|' + folder + u'|' + type + u'|' + below;
  all += config.IsOutDirEnabled() == 1 ? u" enabled" : u"";
  all += config.IsOutDirSet() ? u" set" : u"";
  config.GetUserProfileRedirection(nullptr, &text, nullptr);
  config.GetUserProfileRedirection(&profiles, nullptr, nullptr);
  config.GetUserProfileRedirection(nullptr, nullptr, &home);
  all += u"; profiles " + text + u'|' + profiles + u'|' + home + u"; keys";
  for (const std::u16string& key : config.MonitoredKeys()) all += u' ' + key;
  return all;
}

TEST_F(ServiceConfig, IsCreatedFromTheDefaultAndCompleted) {
  EXPECT_EQ(Init(), (Lines{u"loaded", u"CQBConfig::Init: could not find config file. Default config created."}));
  const std::u16string blank = u"\n\t\t";
  EXPECT_EQ(Said(Config()),
            u"location 0|" + blank + u"|AbsoluteDir|Quillbay\\RegistryData; profiles 0|" + blank + u"|C:\\Users; keys");
  // The default's bytes but for the declaration, which loses its encoding, and the folder that was filled in.
  const auto resources = ProgramResources();
  const auto found = std::ranges::find_if(resources, [](const ProgramResource& resource) {
    return std::u16string_view(resource.type) == u"BINARY" && std::u16string_view(resource.name) == u"#102";
  });
  std::u16string expected = FileText({reinterpret_cast<const char*>(found->data), found->size});
  for (const auto& [what, by] : {std::pair<std::u16string, const char16_t*>(u" encoding=\"utf-16\"", u""),
                                 {u"<DefaultProfilePath></", u"<DefaultProfilePath>C:\\Users</"}})
    expected.replace(expected.find(what), what.size(), by);
  EXPECT_EQ(test::Contents(kPath), FileBytes(expected));
  EXPECT_EQ(Init(), Lines{u"loaded"});
}

TEST_F(ServiceConfig, LoadsOnce) {
  Config config;
  EXPECT_EQ(config.path(), kPath);
  ASSERT_EQ(config.SetOutDir(true, u"D:\\Keys"), 1);
  EXPECT_EQ(config.Init(), 0);
  EXPECT_EQ(config.IsOutDirEnabled(), 1);
  config.Close();
  EXPECT_EQ(config.path(), u"");
  EXPECT_EQ(config.IsOutDirEnabled() + config.SetOutDir(true, u"D:\\Keys") + config.AddRegKey(kSoftware + u"X") +
                config.Save() + config.Init(),
            0);
}

TEST_F(ServiceConfig, LiesBesideTheServicesExecutable) {
  machine->services().Install(u"QuillbayService", u"\"C:\\New\\Place\\s.exe\" -x", win32::SERVICE_AUTO_START);
  EXPECT_EQ(CQBConfig().Init(), 1) << "a missing folder is made";
  EXPECT_TRUE(test::Exists(u"C:\\New\\Place\\ServiceConfig.xml"));
  machine->registry().DeleteTree(u"HKLM\\SYSTEM\\CurrentControlSet\\Services\\QuillbayService");
  EXPECT_EQ(CQBConfig().path(), u"");
  EXPECT_EQ(Init(),
            (Lines{u"not loaded", u"CQBConfig::Init: could not find config file. Create default config failed"}));
  EXPECT_FALSE(test::Exists(u"C:\\ServiceConfig.xml"));
}

TEST_F(ServiceConfig, UnreadableFilesBecomeTheDefault) {
  std::string utf8 = "\xef\xbb\xbf<?xml version=\"1.0\" encoding=\"utf-16\"?>\r\n<VelmoraQuillbayConfig/>\r\n";
  std::u16string deep;
  for (int i = 0; i < 3000; ++i) deep += u"<a>";
  for (const std::string& bytes :
       {std::string(), std::string("\xff\xfe"), std::string("\xff\xfe\0\0", 4), FileBytes(u"<"), FileBytes(u"text"),
        utf8, utf8 + "x", FileBytes(Document(u"<open>")), FileBytes(Document(u"")).substr(2), FileBytes(deep),
        FileBytes(u"<!DOCTYPE a [<!ENTITY b \"c\">]><a>&b;</a>"), FileBytes(Document(u"\x01")),
        std::string(3 << 20, 'x')}) {
    PutFile(bytes);
    EXPECT_EQ(Init(), (Lines{u"loaded", u"CQBConfig::Init: failed to load config file; Default config created"}));
    EXPECT_TRUE(Has(u"<DefaultProfilePath>C:\\Users</DefaultProfilePath>"));
  }
}

TEST_F(ServiceConfig, FilesOfOddSizesAndWithoutDeclarationAreRead) {
  const std::u16string keys = Element(u"RegistryKeysToMonitor", RegKey(u"HKEY_LOCAL_MACHINE", u"SOFTWARE\\A"));
  const std::string bytes = FileBytes(Element(u"VelmoraQuillbayConfig", keys));
  for (const std::string& file :
       {bytes, bytes + '\n', bytes + std::string("\n\0\n", 3), "xx" + bytes.substr(2), bytes + std::string(7, '\0')}) {
    PutFile(file);
    EXPECT_EQ(Said(Config()), u"location ; profiles -|-|-; keys " + kSoftware + u"A");
    EXPECT_EQ(test::Contents(kPath), file);
  }
}

TEST_F(ServiceConfig, WhatCannotBeCompletedIsNotBegun) {
  PutFile("rubbish");
  const Lines failed = {u"not loaded", u"CQBConfig::Init: failed to load config file; Create default config failed"};
  machine->registry().Set(kProfileList, u"ProfilesDirectory", win32::REG_SZ, emulated::Bytes(600, 'x'));
  EXPECT_EQ(Init(), failed);
  machine->registry().SetDword(kProfileList, u"ProfilesDirectory", 7);
  EXPECT_EQ(Init(), failed);
  machine->registry().SetText(kProfileList, u"ProfilesDirectory", u"C:\\" + std::u16string(250, u'x') + u"%windir%");
  EXPECT_EQ(Init(), failed);
  machine->registry().SetText(kProfileList, u"ProfilesDirectory", u"C:\\Users");
  machine->gate.FailCallsFrom("CreateInstance", 1, win32::ERROR_MOD_NOT_FOUND);
  EXPECT_EQ(Init(), failed);
  machine->gate.ClearFailures();
  const auto resources = machine->module.resources;
  machine->module.resources.clear();
  EXPECT_EQ(Init(), failed);
  EXPECT_EQ(test::Contents(kPath), "rubbish");
  machine->module.resources = resources;
  machine->gate.FailCall("SetEndOfFile", 1, win32::ERROR_DISK_FULL);
  EXPECT_EQ(Init(),
            (Lines{failed[0], u"CQBConfig::Save: failed to save config file:\nThere is not enough space on the disk.",
                   failed[1]}));
  EXPECT_FALSE(test::Exists(kPath)) << "nobody would complete it later";
  static const unsigned char rubbish[] = {0xff, 0xfe, 'x', 0, 'y', 0};
  for (auto& resource : machine->module.resources)
    if (resource.type == u"BINARY") resource.data = rubbish;
  EXPECT_EQ(CQBConfig().Init(), 0) << "what cannot be read is not tried for ever";
}

// What is read of a document, what an edit answers, and what is read when it was saved.
TEST_F(ServiceConfig, ElementsAreReadAndSetOneByOne) {
  const auto outDir = [](const char16_t* status) {
    return Element(u"OutDir", Element(u"Status", status) + Element(u"BaseDir", u"b") + Element(u"Type", u"t") +
                                  Element(u"SubDir", u"s"));
  };
  const std::u16string half = Element(u"OutDir", Element(u"Status", u"1") + Element(u"BaseDir", u"b")),
                       profiles = Element(u"UserProfileRedirection",
                                          Element(u"DefaultProfilePath", u"p") + Element(u"ProfileStatus", u"0"));
  const auto nothing = [](CQBConfig&) { return 1; };
  const auto enable = [](CQBConfig& config) { return config.SetOutDir(true, u"D:\\A & <B>"); };
  const auto disable = [](CQBConfig& config) { return config.SetOutDir(false, u"ignored"); };
  const auto setStatus = [](CQBConfig& config) { return config.SetUserProfileRedirection(u"1", nullptr, nullptr); };
  const auto setHome = [](CQBConfig& config) { return config.SetUserProfileRedirection(nullptr, nullptr, u"h"); };
  const auto setAll = [](CQBConfig& config) { return config.SetUserProfileRedirection(u"1", u"D:\\P", u"h"); };
  struct {
    std::u16string content;
    std::function<int(CQBConfig&)> edit;
    int answer;
    std::u16string said;
  } const cases[] = {
      {outDir(u"0"), nothing, 1, u"location 0|b|t|s; profiles -|-|-; keys"},
      {outDir(u"1"), nothing, 1, u"location 1|b|t|s enabled set; profiles -|-|-; keys"},
      {outDir(u" 1"), nothing, 1, u"location -1|b|t|s set; profiles -|-|-; keys"},
      {outDir(u""), nothing, 1, u"location -1|b|t|s set; profiles -|-|-; keys"},
      {outDir(u"01"), nothing, 1, u"location 1|b|t|s set; profiles -|-|-; keys"},
      {outDir(u"0"), enable, 1, u"location 1|D:\\A & <B>|t|s enabled set; profiles -|-|-; keys"},
      {outDir(u"1"), disable, 1, u"location 0||t|s; profiles -|-|-; keys"},
      {half, nothing, 1, u"location  enabled set; profiles -|-|-; keys"},
      {Element(u"OutDir", Element(u"Status", u"0")), enable, 0, u"location  enabled; profiles -|-|-; keys"},
      {u"", enable, 0, u"location ; profiles -|-|-; keys"},
      {u"", setStatus, 0, u"location ; profiles -|-|-; keys"},
      {profiles, nothing, 1, u"location ; profiles 0|-|p; keys"},
      {profiles, setStatus, 1, u"location ; profiles 1|-|p; keys"},
      {profiles, setHome, 1, u"location ; profiles 0|-|h; keys"},
      {profiles, setAll, 0, u"location ; profiles 1|-|p; keys"},  // none after the first that failed
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(emulated::Utf8(each.said));
    PutDocument(each.content);
    const std::string before = test::Contents(kPath);
    Config config;
    EXPECT_EQ(each.edit(config), each.answer);
    EXPECT_EQ(test::Contents(kPath), before) << "nothing reaches the disk before Save";
    EXPECT_EQ(config.Save(), 1);
    EXPECT_EQ(Said(Config()), each.said);
  }
  Config config;
  std::u16string text;
  EXPECT_TRUE(config.PeekOutDirStatus(text = u"-") == false && text == u"-");
  PutDocument(outDir(u" 1 "));
  EXPECT_TRUE(config.PeekOutDirStatus(text));
  EXPECT_EQ(text, u" 1 ");
}

TEST_F(ServiceConfig, KeysAreAddedWithTheirBackupFiles) {
  PutDocument(u"");
  Config config;
  EXPECT_EQ(config.AddRegKey(u"hkey_local_machine\\Software\\X") + config.AddRegKey(kSoftware + u"Y & Z"), 2);
  EXPECT_EQ(config.MonitoredKeys(), (Lines{u"hkey_local_machine\\Software\\X", kSoftware + u"Y & Z"}));
  for (const std::u16string name :
       {u"", u"HKEY_LOCAL_MACHINE", u"HKEY_LOCAL_MACHINEX\\SOFTWARE\\A", u"HKLM\\SOFTWARE\\A",
        u"HKEY_CURRENT_USER\\SOFTWARE\\A", u"\\HKEY_LOCAL_MACHINE\\A"})
    EXPECT_EQ(config.AddRegKey(name) + config.RemoveRegKey(name), 0);
  ASSERT_EQ(config.Save(), 1);
  // The names of the files, which no two keys share.
  std::u16string text = Text(), file;
  std::set<std::u16string> files;
  const std::u16string tag = u"<BackUpFile>";
  for (std::size_t at = 0; (at = text.find(tag, at)) != std::u16string::npos; at += tag.size()) {
    files.insert(file = text.substr(at + tag.size(), 40));
    EXPECT_EQ(file.find_first_not_of(u"0123456789ABCDEF-"), 36u);
    text.replace(at + tag.size(), 36, u"guid");
  }
  EXPECT_EQ(files.size(), 2u);
  const auto element = [](const std::u16string& path) {
    return Element(u"RegKey", Element(u"BaseKey", u"HKEY_LOCAL_MACHINE") + Element(u"RegKeyPath", path) +
                                  Element(u"BackUpFile", u"guid.bak"));
  };
  EXPECT_EQ(text,
            Document(Element(u"RegistryKeysToMonitor", element(u"Software\\X") + element(u"SOFTWARE\\Y &amp; Z"))));
  EXPECT_EQ(config.AddRegKey(kSoftware + u"bell\x07"), 0);  // no file could hold it
}

TEST_F(ServiceConfig, DuplicatesLeaveTheDocumentTogetherAndTheListOneByOne) {
  const std::u16string others = u"<RegKey/>" + Element(u"RegKey", Element(u"BaseKey", u"HKEY_LOCAL_MACHINE")) +
                                RegKey(u"HKEY_CURRENT_USER", u"SOFTWARE\\A") +
                                RegKey(u"HKEY_LOCAL_MACHINE", u"SOFTWARE\\B\u00c4");
  PutDocument(Element(u"RegistryKeysToMonitor", RegKey(u"HKEY_LOCAL_MACHINE", u"SOFTWARE\\A") +
                                                    RegKey(u"hkey_local_machine", u"software\\a") + others));
  Config config;
  const std::u16string rest = u" HKEY_CURRENT_USER\\SOFTWARE\\A " + kSoftware + u"B\u00c4";
  EXPECT_EQ(Said(config),
            u"location ; profiles -|-|-; keys " + kSoftware + u"A hkey_local_machine\\software\\a" + rest);
  EXPECT_EQ(config.RemoveRegKey(kSoftware + u"AB"), 0);
  EXPECT_EQ(test::Messages(LogText()).back(), u"key path not found in list :- " + kSoftware + u"AB");
  EXPECT_EQ(config.RemoveRegKey(kSoftware + u"a"), 1);
  EXPECT_EQ(Said(config), u"location ; profiles -|-|-; keys hkey_local_machine\\software\\a" + rest);
  EXPECT_EQ(config.RemoveRegKey(kSoftware + u"A"), 0);        // in the list, and no more in the document
  EXPECT_EQ(config.RemoveRegKey(kSoftware + u"B\u00e4"), 0);  // only A to Z are the same in both cases
  ASSERT_EQ(config.Save(), 1);
  EXPECT_EQ(Text(), Document(Element(u"RegistryKeysToMonitor", others)));
}

TEST_F(ServiceConfig, ParentsAndChildrenAreToldByWholeComponents) {
  PutDocument(Element(u"RegistryKeysToMonitor", RegKey(u"HKEY_LOCAL_MACHINE", u"software\\a\\b") +
                                                    RegKey(u"HKEY_LOCAL_MACHINE", u"SOFTWARE\\AB") +
                                                    RegKey(u"HKEY_LOCAL_MACHINE", u"SOFTWARE\\A\\c\\d")));
  Config config;
  Lines children{u"kept"};
  EXPECT_EQ(config.GetChildKeys(kSoftware + u"A", children), 1);
  EXPECT_EQ(children, (Lines{u"kept", u"HKEY_LOCAL_MACHINE\\software\\a\\b", kSoftware + u"A\\c\\d"}));
  EXPECT_EQ(config.GetChildKeys(kSoftware + u"A\\b", children) + config.GetChildKeys(kSoftware + u"A\\", children), 0);
  EXPECT_EQ(children.size(), 3u);
  EXPECT_TRUE(config.IsMonitored(kSoftware + u"ab") && !config.IsMonitored(kSoftware + u"A"));
  std::u16string parent = u"none";
  EXPECT_EQ(config.HasParentKey(kSoftware + u"AB", &parent) + config.HasParentKey(kSoftware + u"ABC\\d", &parent), 0);
  EXPECT_EQ(parent, u"none");
  EXPECT_EQ(config.HasParentKey(kSoftware + u"AB\\"), 1);
  EXPECT_EQ(config.HasParentKey(kSoftware + u"ab\\X", &parent), 1);
  EXPECT_EQ(parent, kSoftware + u"AB");
}

TEST_F(ServiceConfig, AFailedSaveTellsWhyAndKeepsWhatItCan) {
  Config config;
  const std::string before = test::Contents(kPath);
  ASSERT_EQ(config.SetOutDir(true, u"D:\\Keys"), 1);
  {
    const auto reader = HoldOpen(kPath, win32::GENERIC_READ, win32::FILE_SHARE_READ);
    EXPECT_EQ(config.Save(), 0);
    EXPECT_EQ(win32::GetLastError(), win32::ERROR_SHARING_VIOLATION);
    machine->files().CloseForeign(reader);
  }
  machine->gate.FailCall("get_xml", 1, win32::ERROR_NOT_ENOUGH_MEMORY);
  EXPECT_EQ(config.Save(), 0);
  EXPECT_EQ(win32::GetLastError(), win32::ERROR_INVALID_DATA);
  EXPECT_EQ(test::Contents(kPath), before);
}

// Whatever call fails, the file is the old one, the new one, or a default (where it could not be read). So it is at
// every call of one that succeeds, should the machine stop there: shorter or longer than before, blanks behind it do
// not count.
TEST_F(ServiceConfig, AFailureAtAnyCallLeavesAWholeFile) {
  PutDocument(Element(u"OutDir", u"") +
              Element(u"RegistryKeysToMonitor", RegKey(u"HKEY_LOCAL_MACHINE", u"SOFTWARE\\A")));
  const std::string before = test::Contents(kPath);
  const auto run = [] {
    CQBConfig config;
    return config.Init() && config.AddRegKey(kSoftware + u"B") && config.Save();
  };
  const auto inFile = [&] {  // read below the handles: a refused CloseHandle has left one open
    emulated::Bytes bytes;
    EXPECT_EQ(emulated::ReadWholeFile(*machine->SystemVolume()->volume, kPath.substr(2), bytes), 0u);
    return std::string(bytes.begin(), bytes.end());
  };
  std::set<std::string> outcomes;
  for (std::uint64_t n = 1, failures = 1; failures != 0; ++n) {
    Begin();
    PutFile(before);
    machine->gate.ResetCounts();
    machine->gate.FailCall(n, win32::ERROR_ACCESS_DENIED);
    const bool done = run();
    failures = machine->gate.failures();
    machine->gate.ClearFailures();
    const std::u16string text = FileText(inFile());
    const bool isNew = text.find(u"SOFTWARE\\B<") != std::u16string::npos && text.ends_with(u"Config>\r\n");
    const bool isDefault = text.find(u"<DefaultProfilePath>C:\\Users<") != std::u16string::npos;
    EXPECT_TRUE(isNew || (!done && (isDefault || inFile() == before))) << "call " << n;
    outcomes.insert(isDefault ? "default" : isNew ? "new" : "old");
  }
  EXPECT_EQ(outcomes.size(), 3u);
  for (const bool adds : {true, false}) {
    Begin();
    PutFile(before);
    std::set<std::string> met;
    machine->gate.Observe([&](const char*, std::uint64_t) {
      std::string now = inFile();
      while (now.ends_with(std::string(" \0", 2))) now.resize(now.size() - 2);
      met.insert(now);
    });
    CQBConfig config;
    EXPECT_TRUE(config.Init() && (adds ? config.AddRegKey(kSoftware + u"B") : config.RemoveRegKey(kSoftware + u"A")) &&
                config.Save());
    config.Close();
    machine->gate.Observe(nullptr);
    EXPECT_EQ(met, (std::set<std::string>{before, test::Contents(kPath)}));
  }
}

}  // namespace
