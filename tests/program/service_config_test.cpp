// The service's configuration file, and what the program does to it.
#include <set>

#include "configuration/service_config.h"
#include "resources/program_resources.h"
#include "support/engine.h"
#include "support/program.h"
#include "win32/emulated/registry/registry.h"
#include "win32/emulated/registry/services.h"
#include "win32/emulated/setup/volume_builder.h"

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
  static std::string DefaultFile() {
    for (const ProgramResource& resource : ProgramResources())
      if (std::u16string_view(resource.type) == u"BINARY" && std::u16string_view(resource.name) == u"#102")
        return {reinterpret_cast<const char*>(resource.data), resource.size};
    return {};
  }
};

TEST_F(ServiceConfig, IsCreatedFromTheDefaultAndCompleted) {
  CQBConfig config;
  EXPECT_EQ(config.path(), kPath);
  ASSERT_EQ(config.Init(), 1);
  EXPECT_TRUE(Logged(u"CQBConfig::Init: could not find config file. Default config created."));

  int status = 5;
  std::u16string baseDir, type, subDir, newProfiles, profileStatus, profiles;
  ASSERT_EQ(config.GetOutDir(status, baseDir, &type, &subDir), 1);
  EXPECT_EQ(status, 0);
  EXPECT_EQ(baseDir, u"\n\t\t");
  EXPECT_EQ(type, u"AbsoluteDir");
  EXPECT_EQ(subDir, u"Quillbay\\RegistryData");
  ASSERT_EQ(config.GetUserProfileRedirection(&newProfiles, &profileStatus, &profiles), 1);
  EXPECT_EQ(newProfiles, u"\n\t\t");
  EXPECT_EQ(profileStatus, u"0");
  EXPECT_EQ(profiles, u"C:\\Users");
  EXPECT_EQ(config.IsOutDirEnabled(), 0);
  EXPECT_TRUE(config.MonitoredKeys().empty());

  // The default's bytes but for the declaration, which loses its encoding, and the folder that was filled in.
  std::u16string expected = FileText(DefaultFile());
  ASSERT_FALSE(expected.empty());
  const auto replace = [&expected](const std::u16string& what, const std::u16string& by) {
    ASSERT_NE(expected.find(what), std::u16string::npos);
    expected.replace(expected.find(what), what.size(), by);
  };
  replace(u" encoding=\"utf-16\"", u"");
  replace(u"<DefaultProfilePath></", u"<DefaultProfilePath>C:\\Users</");
  EXPECT_EQ(test::Contents(kPath), FileBytes(expected));
}

TEST_F(ServiceConfig, LoadsOnce) {
  Config config;
  ASSERT_EQ(config.SetOutDir(true, u"D:\\Keys"), 1);
  EXPECT_EQ(config.Init(), 0);
  EXPECT_EQ(config.IsOutDirEnabled(), 1);
  config.Close();
  EXPECT_EQ(config.path(), u"");
  EXPECT_EQ(config.IsOutDirEnabled(), 0);
  EXPECT_EQ(config.SetOutDir(true, u"D:\\Keys"), 0);
  EXPECT_EQ(config.AddRegKey(kSoftware + u"X"), 0);
  EXPECT_EQ(config.Save(), 0);
  EXPECT_EQ(CQBConfig().Init(), 1);
}

TEST_F(ServiceConfig, IsFoundBesideTheServicesExecutable) {
  for (const auto& [commandLine, expected] :
       {std::pair(u"\"C:\\My Service\\s.exe\" -x -y", u"C:\\My Service\\ServiceConfig.xml"),
        {u"C:\\My Service\\s.exe -x", u"C:\\My Service\\ServiceConfig.xml"},
        {u"C:\\s.exe", u"C:\\ServiceConfig.xml"},
        {u"service.exe", u"(none)"},
        {u"\"C:\\New\\Place\\s.exe\"", u"C:\\New\\Place\\ServiceConfig.xml"}}) {
    machine->services().Install(u"QuillbayService", commandLine, win32::SERVICE_AUTO_START);
    std::u16string path;
    EXPECT_EQ(CQBConfig::GetConfigFilePath(path) ? path : u"(none)", expected);
  }
  EXPECT_EQ(CQBConfig().Init(), 1) << "a missing folder is made";
  EXPECT_TRUE(test::Exists(u"C:\\New\\Place\\ServiceConfig.xml"));
}

TEST_F(ServiceConfig, WithoutTheServiceNothingIsLoadedOrWritten) {
  machine->registry().DeleteTree(u"HKLM\\SYSTEM\\CurrentControlSet\\Services\\QuillbayService");
  CQBConfig config;
  EXPECT_EQ(config.path(), u"");
  EXPECT_EQ(config.Init(), 0);
  EXPECT_TRUE(Logged(u"CQBConfig::Init: could not find config file. Create default config failed"));
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
    Begin();
    PutFile(bytes);
    EXPECT_EQ(CQBConfig().Init(), 1);
    EXPECT_TRUE(Logged(u"CQBConfig::Init: failed to load config file; Default config created")) << bytes.substr(0, 40);
    EXPECT_TRUE(Has(u"<DefaultProfilePath>C:\\Users</DefaultProfilePath>"));
  }
}

TEST_F(ServiceConfig, FilesOfOddSizesAndWithoutDeclarationAreRead) {
  const std::u16string keys = Element(u"RegistryKeysToMonitor", RegKey(u"HKEY_LOCAL_MACHINE", u"SOFTWARE\\A"));
  const std::string bytes = FileBytes(Element(u"VelmoraQuillbayConfig", keys));
  for (const std::string& file :
       {bytes, bytes + '\n', bytes + std::string("\n\0\n", 3), "xx" + bytes.substr(2), bytes + std::string(7, '\0')}) {
    PutFile(file);
    Config config;
    EXPECT_EQ(config.MonitoredKeys(), std::vector<std::u16string>{kSoftware + u"A"});
    EXPECT_EQ(test::Contents(kPath), file);
  }
}

TEST_F(ServiceConfig, WhatCannotBeCompletedIsNotBegun) {
  PutFile("rubbish");
  machine->registry().Set(kProfileList, u"ProfilesDirectory", win32::REG_SZ, emulated::Bytes(600, 'x'));
  EXPECT_EQ(CQBConfig().Init(), 0);
  machine->registry().SetDword(kProfileList, u"ProfilesDirectory", 7);
  EXPECT_EQ(CQBConfig().Init(), 0);
  machine->registry().SetText(kProfileList, u"ProfilesDirectory", u"C:\\Users");
  machine->gate.FailCallsFrom("CreateInstance", 1, win32::ERROR_MOD_NOT_FOUND);
  EXPECT_EQ(CQBConfig().Init(), 0);
  machine->gate.ClearFailures();
  const auto resources = machine->module.resources;
  machine->module.resources.clear();
  EXPECT_EQ(CQBConfig().Init(), 0);
  EXPECT_EQ(test::Contents(kPath), "rubbish");
  EXPECT_TRUE(Logged(u"CQBConfig::Init: failed to load config file; Create default config failed"));
  machine->module.resources = resources;
  machine->gate.FailCall("SetEndOfFile", 1, win32::ERROR_DISK_FULL);
  EXPECT_EQ(CQBConfig().Init(), 0);
  EXPECT_TRUE(Logged(u"CQBConfig::Save: failed to save config file:\nThere is not enough space on the disk."));
  static const unsigned char rubbish[] = {0xff, 0xfe, 'x', 0, 'y', 0};
  for (auto& resource : machine->module.resources)
    if (resource.type == u"BINARY") resource.data = rubbish;
  EXPECT_EQ(CQBConfig().Init(), 0) << "what cannot be read is not tried for ever";
}

TEST_F(ServiceConfig, TheLocationIsSetAndTakenAway) {
  for (const std::u16string location : {u"D:\\A & <B>", u""}) {
    const bool enable = !location.empty();
    {
      Config config;
      EXPECT_EQ(config.SetOutDir(enable, enable ? location : u"ignored"), 1);
      EXPECT_EQ(Has(u"D:\\A"), !enable) << "nothing reaches the disk before Save";
      EXPECT_EQ(config.Save(), 1);
    }
    Config config;
    EXPECT_EQ(config.IsOutDirEnabled(), enable);
    int status = 9;
    std::u16string baseDir;
    ASSERT_EQ(config.GetOutDir(status, baseDir), 1);
    EXPECT_EQ(std::pair(status, baseDir), std::pair(enable ? 1 : 0, location));
  }
}

TEST_F(ServiceConfig, TheStatusIsComparedAsText) {
  for (const auto& [text, status, enabled] :
       {std::tuple(u"0", 0, 0), {u"1", 1, 1}, {u" 1", -1, 0}, {u"", -1, 0}, {u"01", 1, 0}}) {
    PutDocument(Element(u"OutDir", Element(u"Status", text) + Element(u"BaseDir", u"")));
    Config config;
    int value = 9;
    std::u16string baseDir;
    EXPECT_EQ(config.GetOutDir(value, baseDir), 1);
    EXPECT_EQ(std::pair(value, config.IsOutDirEnabled()), std::pair(status, enabled));
  }
}

TEST_F(ServiceConfig, ProfileSettingsAreReadAndWrittenOneByOne) {
  Config config;
  EXPECT_EQ(config.SetUserProfileRedirection(u"1", u"D:\\Profiles", nullptr), 1);
  EXPECT_EQ(config.SetUserProfileRedirection(nullptr, nullptr, nullptr), 1);
  std::u16string folder, status, profiles;
  EXPECT_EQ(config.GetUserProfileRedirection(&folder, &status, nullptr), 1);
  EXPECT_EQ(config.GetUserProfileRedirection(nullptr, nullptr, &profiles), 1);
  EXPECT_EQ(folder + u"|" + status + u"|" + profiles, u"D:\\Profiles|1|C:\\Users");
}

TEST_F(ServiceConfig, MissingElementsMakeOperationsFailAndAreNotCreated) {
  PutDocument(Element(u"OutDir", Element(u"Status", u"0") + Element(u"BaseDir", u"x")) +
              Element(u"UserProfileRedirection", Element(u"DefaultNewUserProfileDirectory", u"D:\\P")));
  Config config;
  int status = 0;
  std::u16string text, type;
  EXPECT_EQ(config.GetOutDir(status, text), 1);
  EXPECT_EQ(config.GetOutDir(status, text, &type), 0);
  EXPECT_EQ(config.GetUserProfileRedirection(&text, nullptr, nullptr), 1);
  EXPECT_EQ(config.GetUserProfileRedirection(&text, &type, nullptr), 0);
  EXPECT_EQ(config.SetUserProfileRedirection(u"1", u"E:\\P", nullptr), 0);
  EXPECT_EQ(config.GetUserProfileRedirection(&text, nullptr, nullptr), 1);
  EXPECT_EQ(text, u"D:\\P");  // the one after the first that failed
  PutDocument(u"");
  Config empty;
  EXPECT_EQ(empty.GetOutDir(status, text) + empty.SetOutDir(true, u"x") + empty.IsOutDirEnabled(), 0);
  EXPECT_EQ(empty.SetUserProfileRedirection(u"1", nullptr, nullptr), 0);
  ASSERT_EQ(empty.Save(), 1);
  EXPECT_EQ(Text(), u"<?xml version=\"1.0\"?>\r\n<VelmoraQuillbayConfig/>\r\n");
}

TEST_F(ServiceConfig, KeysAreAddedWithTheirBackupFiles) {
  Config config;
  EXPECT_EQ(config.AddRegKey(u"hkey_local_machine\\Software\\X"), 1);
  EXPECT_EQ(config.AddRegKey(kSoftware + u"Y & Z"), 1);
  EXPECT_EQ(config.MonitoredKeys(),
            (std::vector<std::u16string>{u"hkey_local_machine\\Software\\X", kSoftware + u"Y & Z"}));
  ASSERT_EQ(config.Save(), 1);
  const std::u16string text = Text();
  EXPECT_TRUE(Has(u"<BaseKey>HKEY_LOCAL_MACHINE</BaseKey><RegKeyPath>Software\\X</RegKeyPath><BackUpFile>"));
  EXPECT_TRUE(text.ends_with(u".bak</BackUpFile></RegKey></RegistryKeysToMonitor></VelmoraQuillbayConfig>\r\n"));
  std::set<std::u16string> files;
  const std::u16string tag = u"<BackUpFile>";
  for (std::size_t at = 0; (at = text.find(tag, at)) != std::u16string::npos; at += tag.size())
    files.insert(text.substr(at + tag.size(), text.find(u'<', at + 1) - at - tag.size()));
  ASSERT_EQ(files.size(), 2u);
  for (const std::u16string& file : files) {
    EXPECT_EQ(file.size(), 40u);
    EXPECT_EQ(file.find_first_not_of(u"0123456789ABCDEF-"), 36u);
    EXPECT_TRUE(file.ends_with(u".bak"));
  }
  Config again;
  EXPECT_EQ(again.MonitoredKeys(),
            (std::vector<std::u16string>{u"HKEY_LOCAL_MACHINE\\Software\\X", kSoftware + u"Y & Z"}));
}

TEST_F(ServiceConfig, NamesOutsideTheMachineHiveAreRefused) {
  Config config;
  const std::u16string before = LogText();
  for (const std::u16string name :
       {u"", u"HKEY_LOCAL_MACHINE", u"HKEY_LOCAL_MACHINEX\\SOFTWARE\\A", u"HKLM\\SOFTWARE\\A",
        u"HKEY_CURRENT_USER\\SOFTWARE\\A", u"\\HKEY_LOCAL_MACHINE\\A"}) {
    EXPECT_EQ(config.AddRegKey(name), 0);
    EXPECT_EQ(config.RemoveRegKey(name), 0);
  }
  EXPECT_TRUE(config.MonitoredKeys().empty());
  EXPECT_EQ(LogText(), before);
  EXPECT_EQ(config.AddRegKey(kSoftware + u"bell\x07"), 0);  // no file could hold it
}

TEST_F(ServiceConfig, AnUnknownKeyIsNotRemoved) {
  PutDocument(Element(u"RegistryKeysToMonitor", RegKey(u"HKEY_LOCAL_MACHINE", u"SOFTWARE\\A")));
  const std::u16string before = Text();
  Config config;
  EXPECT_EQ(config.RemoveRegKey(kSoftware + u"AB"), 0);
  EXPECT_TRUE(Logged(u"key path not found in list :- HKEY_LOCAL_MACHINE\\SOFTWARE\\AB"));
  EXPECT_TRUE(config.Save() && Text() == before);
}

TEST_F(ServiceConfig, DuplicatesLeaveTheDocumentTogetherAndTheListOneByOne) {
  PutDocument(Element(u"RegistryKeysToMonitor", RegKey(u"HKEY_LOCAL_MACHINE", u"SOFTWARE\\A") +
                                                    RegKey(u"hkey_local_machine", u"software\\a") + u"<RegKey/>" +
                                                    Element(u"RegKey", Element(u"BaseKey", u"HKEY_LOCAL_MACHINE")) +
                                                    RegKey(u"HKEY_CURRENT_USER", u"SOFTWARE\\A") +
                                                    RegKey(u"HKEY_LOCAL_MACHINE", u"SOFTWARE\\B\u00c4")));
  Config config;
  ASSERT_EQ(config.MonitoredKeys().size(), 4u);
  EXPECT_EQ(config.RemoveRegKey(kSoftware + u"a"), 1);
  ASSERT_EQ(config.MonitoredKeys().size(), 3u);
  EXPECT_EQ(config.MonitoredKeys()[0], u"hkey_local_machine\\software\\a");
  EXPECT_EQ(config.RemoveRegKey(kSoftware + u"A"), 0);        // in the list, and no more in the document
  EXPECT_EQ(config.RemoveRegKey(kSoftware + u"B\u00e4"), 0);  // only A to Z are the same in both cases
  ASSERT_EQ(config.Save(), 1);
  EXPECT_EQ(Text(), Document(Element(u"RegistryKeysToMonitor",
                                     u"<RegKey/>" + Element(u"RegKey", Element(u"BaseKey", u"HKEY_LOCAL_MACHINE")) +
                                         RegKey(u"HKEY_CURRENT_USER", u"SOFTWARE\\A") +
                                         RegKey(u"HKEY_LOCAL_MACHINE", u"SOFTWARE\\B\u00c4"))));
}

TEST_F(ServiceConfig, ParentsAndChildrenAreToldByWholeComponents) {
  PutDocument(Element(u"RegistryKeysToMonitor", RegKey(u"HKEY_LOCAL_MACHINE", u"software\\a\\b") +
                                                    RegKey(u"HKEY_LOCAL_MACHINE", u"SOFTWARE\\AB") +
                                                    RegKey(u"HKEY_LOCAL_MACHINE", u"SOFTWARE\\A\\c\\d")));
  Config config;
  std::vector<std::u16string> children{u"kept"};
  EXPECT_EQ(config.GetChildKeys(kSoftware + u"A", children), 1);
  EXPECT_EQ(children,
            (std::vector<std::u16string>{u"kept", u"HKEY_LOCAL_MACHINE\\software\\a\\b", kSoftware + u"A\\c\\d"}));
  EXPECT_EQ(config.GetChildKeys(kSoftware + u"A\\b", children), 0);
  EXPECT_EQ(config.GetChildKeys(kSoftware + u"A\\", children), 0);
  EXPECT_EQ(children.size(), 3u);
  std::u16string parent = u"none";
  EXPECT_EQ(config.HasParentKey(kSoftware + u"AB", &parent), 0);
  EXPECT_EQ(config.HasParentKey(kSoftware + u"ABC\\d", &parent), 0);
  EXPECT_EQ(parent, u"none");
  EXPECT_EQ(config.HasParentKey(kSoftware + u"ab\\X", &parent), 1);
  EXPECT_EQ(parent, kSoftware + u"AB");
  EXPECT_EQ(config.HasParentKey(kSoftware + u"AB\\"), 1);
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
  EXPECT_EQ(test::Contents(kPath), before);
  EXPECT_EQ(config.Save(), 1);
  EXPECT_TRUE(Has(u"<BaseDir>D:\\Keys</BaseDir>"));
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
  int olds = 0, news = 0, defaults = 0;
  for (std::uint64_t n = 1, failures = 1; failures != 0; ++n) {
    Begin();
    PutFile(before);
    machine->gate.ResetCounts();
    std::string failed;
    machine->gate.Observe([&failed, n](const char* name, std::uint64_t number) {
      if (number == n) failed = name;
    });
    machine->gate.FailCall(n, win32::ERROR_ACCESS_DENIED);
    const bool done = run();
    failures = machine->gate.failures();
    machine->gate.ClearFailures();
    machine->gate.Observe(nullptr);

    emulated::Bytes bytes;  // read below the handles: a refused CloseHandle has left one open
    ASSERT_EQ(emulated::ReadWholeFile(*machine->SystemVolume()->volume, kPath.substr(2), bytes), 0u);
    const std::string after(bytes.begin(), bytes.end());
    const std::u16string text = FileText(after);
    const bool isNew = text.find(u"SOFTWARE\\B<") != std::u16string::npos && text.ends_with(u"Config>\r\n");
    const bool isDefault = text.find(u"<DefaultProfilePath>C:\\Users<") != std::u16string::npos;
    if (done) {
      EXPECT_TRUE(isNew) << n << failed;
    }
    if (after == before)
      ++olds;
    else if (isDefault)
      ++defaults;
    else if (isNew)
      ++news;
    else
      ADD_FAILURE() << "cut after call " << n << ", " << failed;
  }
  for (const bool adds : {true, false}) {
    Begin();
    PutFile(before);
    std::set<std::string> met;
    machine->gate.Observe([&](const char*, std::uint64_t) {
      emulated::Bytes bytes;
      ASSERT_EQ(emulated::ReadWholeFile(*machine->SystemVolume()->volume, kPath.substr(2), bytes), 0u);
      std::string now(bytes.begin(), bytes.end());
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
  EXPECT_GT(olds, 10);
  EXPECT_GT(news, 0);
  EXPECT_GT(defaults, 0);
}

}  // namespace
