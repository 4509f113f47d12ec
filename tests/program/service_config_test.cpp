// The service's configuration file, and what the program does to it.
#include "program/everything.h"

namespace {

using namespace test;
using namespace win32;

const std::u16string kPath = u"C:\\Program Files\\Velmora\\Quillbay\\ServiceConfig.xml";
const std::u16string kSoftware = u"HKEY_LOCAL_MACHINE\\SOFTWARE\\";
const std::u16string kProfileList = u"HKLM\\SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion\\ProfileList";

std::string FileBytes(const std::u16string& text) {
  return "\xff\xfe" + std::string(reinterpret_cast<const char*>(text.data()), text.size() * 2);
}
// A file with these elements below the root; a list of keys; an entry of it.
std::u16string Document(const std::u16string& content) {
  return u"<?xml version=\"1.0\"?>\r\n<VelmoraQuillbayConfig>" + content + u"</VelmoraQuillbayConfig>\r\n";
}
std::u16string List(const std::u16string& keys) {
  return u"<RegistryKeysToMonitor>" + keys + u"</RegistryKeysToMonitor>";
}
std::u16string RegKey(const std::u16string& baseKey, const std::u16string& path) {
  return u"<RegKey><BaseKey>" + baseKey + u"</BaseKey><RegKeyPath>" + path + u"</RegKeyPath></RegKey>";
}

// With the file's content.
struct Config : CQBConfig {
  Config() { EXPECT_EQ(Init(), 1); }
};

class ServiceConfig : public Engine {
 protected:
  ServiceConfig() { UseProgramModule(*machine); }

  void PutFile(const std::string& bytes) {
    DeleteFileW(kPath.c_str());
    MakeFile(kPath, bytes);
  }
  void PutDocument(const std::u16string& content) { PutFile(FileBytes(Document(content))); }
  // The messages of loading the file, and the answer.
  std::string Load() {
    int loaded = -1;
    const std::string told = Told([&] { loaded = CQBConfig().Init(); });
    return told + std::to_string(loaded);
  }
};

// Whatever is there of the location for registry data ("status|folder|type|below it"), of new profiles
// ("status|place|home", "-" for none) and of the keys.
std::u16string Said(const CQBConfig& config) {
  int number = 9;
  std::u16string folder, type, below, status = u"-", place = u"-", home = u"-", all;
  if (config.GetOutDir(number, folder, &type, &below))
    all += emulated::Utf16(std::to_string(number)) + u'|' + folder + u'|' + type + u'|' + below;
  all += config.IsOutDirEnabled() == 1 ? u" enabled" : u"";
  all += config.IsOutDirSet() ? u" set" : u"";
  config.GetUserProfileRedirection(nullptr, &status, nullptr);
  config.GetUserProfileRedirection(&place, nullptr, nullptr);
  config.GetUserProfileRedirection(nullptr, nullptr, &home);
  if (const std::u16string profiles = status + u'|' + place + u'|' + home; profiles != u"-|-|-")
    all += u" profiles " + profiles;
  for (const std::u16string& key : config.MonitoredKeys()) all += u' ' + key;
  return all;
}

TEST_F(ServiceConfig, IsCreatedFromTheDefaultBesideTheServicesExecutable) {
  EXPECT_EQ(CQBConfig().path(), kPath);
  machine->services().Install(u"QuillbayService", u"\"C:\\New\\Place\\s.exe\" -x", SERVICE_AUTO_START);
  EXPECT_EQ(Load(), "|CQBConfig::Init: could not find config file. Default config created.1");
  EXPECT_EQ(Load(), "1");
  Config config;
  EXPECT_EQ(config.Init(), 0) << "once is enough";
  EXPECT_EQ(Said(config), u"0|\n\t\t|AbsoluteDir|Quillbay\\RegistryData profiles 0|\n\t\t|C:\\Users");
  config.Close();
  EXPECT_EQ(config.SetOutDir(true, u"D:\\Keys") + config.AddRegKey(kSoftware + u"X") + config.Save(), 0);
  machine->registry().DeleteTree(u"HKLM\\SYSTEM\\CurrentControlSet\\Services\\QuillbayService");
  EXPECT_EQ(Load(), "|CQBConfig::Init: could not find config file. Create default config failed0");
}

TEST_F(ServiceConfig, UnreadableFilesBecomeTheDefault) {
  const std::string utf8 = "\xef\xbb\xbf<?xml version=\"1.0\" encoding=\"utf-16\"?>\r\n<VelmoraQuillbayConfig/>\r\n";
  std::u16string deep;
  for (int i = 0; i < 3000; ++i) deep += u"<a>";
  for (const std::string& bytes :
       {std::string(), std::string("\xff\xfe"), std::string("\xff\xfe\0\0", 4), FileBytes(u"<"), FileBytes(u"text"),
        utf8, utf8 + "x", FileBytes(Document(u"<open>")), FileBytes(Document(u"")).substr(2), FileBytes(deep),
        FileBytes(u"<!DOCTYPE a [<!ENTITY b \"c\">]><a>&b;</a>"), FileBytes(Document(u"\x01")),
        std::string(3 << 20, 'x')}) {
    PutFile(bytes);
    EXPECT_EQ(Load(), "|CQBConfig::Init: failed to load config file; Default config created1");
    EXPECT_TRUE(Said(Config()).ends_with(u"|C:\\Users"));
  }
  // Odd sizes and a missing declaration are no reason.
  const std::string bytes = FileBytes(u"<VelmoraQuillbayConfig>" + List(RegKey(u"HKEY_LOCAL_MACHINE", u"SOFTWARE\\A")) +
                                      u"</VelmoraQuillbayConfig>");
  for (const std::string& file :
       {bytes, bytes + '\n', bytes + std::string("\n\0\n", 3), "xx" + bytes.substr(2), bytes + std::string(7, '\0')}) {
    PutFile(file);
    EXPECT_EQ(Said(Config()), u" " + kSoftware + u"A");
    EXPECT_EQ(Contents(kPath), file);
  }
}

TEST_F(ServiceConfig, WhatCannotBeCompletedIsNotBegun) {
  PutFile("rubbish");
  const std::string failed = "|CQBConfig::Init: failed to load config file; Create default config failed0";
  emulated::Registry& registry = machine->registry();
  registry.Set(kProfileList, u"ProfilesDirectory", REG_SZ, emulated::Bytes(600, 'x'));
  EXPECT_EQ(Load(), failed);
  registry.SetDword(kProfileList, u"ProfilesDirectory", 7);
  EXPECT_EQ(Load(), failed);
  registry.SetText(kProfileList, u"ProfilesDirectory", u"C:\\" + std::u16string(250, u'x') + u"%windir%");
  EXPECT_EQ(Load(), failed);
  registry.SetText(kProfileList, u"ProfilesDirectory", u"C:\\Users");
  machine->gate.FailCallsFrom("FindResourceW", 1, ERROR_ACCESS_DENIED);
  EXPECT_EQ(Load(), failed);
  machine->gate.ClearFailures();
  EXPECT_EQ(Contents(kPath), "rubbish");
  machine->gate.FailCall("loadXML", 3, ERROR_ACCESS_DENIED);
  EXPECT_EQ(Load(), "0");
  PutFile("rubbish");
  machine->gate.FailCall("SetEndOfFile", 1, ERROR_DISK_FULL);
  EXPECT_EQ(Load(), "|CQBConfig::Save: failed to save config file:There is not enough space on the disk." + failed);
  EXPECT_FALSE(Exists(kPath)) << "nobody would complete it later";
}

// A document, an edit and its answer, and what is read when it was saved.
TEST_F(ServiceConfig, ElementsAreReadAndSetOneByOne) {
  const auto outDir = [](const std::u16string& status, const std::u16string& type = u"<Type>t</Type>",
                         const std::u16string& below = u"<SubDir>s</SubDir>") {
    return u"<OutDir><Status>" + status + u"</Status><BaseDir>b</BaseDir>" + type + below + u"</OutDir>";
  };
  const std::u16string bare = u"<OutDir><Status>1</Status></OutDir>", machineKey = u"HKEY_LOCAL_MACHINE",
                       profiles =
                           u"<UserProfileRedirection><DefaultProfilePath>p</DefaultProfilePath>"
                           u"<ProfileStatus>0</ProfileStatus></UserProfileRedirection>",
                       list = List(RegKey(machineKey, u"SOFTWARE\\A") + RegKey(u"hkey_local_machine", u"software\\a") +
                                   u"<RegKey/><RegKey><BaseKey>HKEY_LOCAL_MACHINE</BaseKey></RegKey>" +
                                   RegKey(u"HKEY_CURRENT_USER", u"SOFTWARE\\A") + RegKey(machineKey, u"B\u00c4")),
                       others = u" HKEY_CURRENT_USER\\SOFTWARE\\A " + machineKey + u"\\B\u00c4",
                       all = u" " + kSoftware + u"A hkey_local_machine\\software\\a" + others;
  using Edit = std::function<int(CQBConfig&)>;
  const Edit nothing = [](CQBConfig&) { return 1; };
  const Edit enable = [](CQBConfig& config) { return config.SetOutDir(true, u"D:\\A & <B>"); };
  const Edit disable = [](CQBConfig& config) { return config.SetOutDir(false, u"ignored"); };
  const auto set = [](const char16_t* status, const char16_t* place, const char16_t* home) -> Edit {
    return [=](CQBConfig& config) { return config.SetUserProfileRedirection(status, place, home); };
  };
  const auto add = [](const std::u16string& key) -> Edit {
    return [=](CQBConfig& config) { return config.AddRegKey(key); };
  };
  const auto remove = [](const std::u16string& key) -> Edit {
    return [=](CQBConfig& config) { return config.RemoveRegKey(key); };
  };
  const std::tuple<std::u16string, Edit, int, std::u16string> cases[] = {
      {outDir(u"1"), nothing, 1, u"1|b|t|s enabled set"},
      {outDir(u""), nothing, 1, u"-1|b|t|s set"},
      {outDir(u"01"), nothing, 1, u"1|b|t|s set"},
      {outDir(u"0"), enable, 1, u"1|D:\\A & <B>|t|s enabled set"},
      {outDir(u"1"), disable, 1, u"0||t|s"},
      {outDir(u"1", u""), nothing, 1, u" enabled set"},
      {outDir(u"1", u"<Type>t</Type>", u""), nothing, 1, u" enabled set"},
      {bare, disable, 0, u""},  // none after the first that failed is set
      {u"", enable, 0, u""},
      {profiles, nothing, 1, u" profiles 0|-|p"},
      {profiles, set(u"1", nullptr, nullptr), 1, u" profiles 1|-|p"},
      {profiles, set(nullptr, nullptr, u"h"), 1, u" profiles 0|-|h"},
      {profiles, set(u"1", u"D:\\P", u"h"), 0, u" profiles 1|-|p"},
      {u"", add(u"hkey_local_machine\\Software\\X & Y"), 1, u" HKEY_LOCAL_MACHINE\\Software\\X & Y"},
      {list, add(machineKey), 0, all},
      {list, add(u"HKEY_LOCAL_MACHINEX\\SOFTWARE\\B"), 0, all},
      {list, remove(u"HKEY_CURRENT_USER\\SOFTWARE\\A"), 0, all},
      {list, remove(machineKey + u"\\b\u00e4"), 0, all},  // only A to Z are the same in both cases
      {list, remove(kSoftware + u"a"), 1, others},
  };
  for (const auto& [content, edit, answer, said] : cases) {
    SCOPED_TRACE(emulated::Utf8(content + u" -> " + said));
    PutDocument(content);
    const std::string before = Contents(kPath);
    Config config;
    EXPECT_EQ(edit(config), answer);
    EXPECT_EQ(Contents(kPath), before) << "nothing reaches the disk before Save";
    EXPECT_EQ(config.Save(), 1);
    EXPECT_EQ(Said(Config()), said);
  }
  PutDocument(list);
  Config config;
  EXPECT_EQ(config.RemoveRegKey(kSoftware + u"a"), 1);
  EXPECT_EQ(Said(config), u" hkey_local_machine\\software\\a" + others) << "the list loses one";
  EXPECT_EQ(config.RemoveRegKey(kSoftware + u"A"), 0) << "in the list, and no more in the document";
  EXPECT_EQ(Told([&] { EXPECT_EQ(config.RemoveRegKey(kSoftware + u"A"), 0); }),
            "|key path not found in list :- HKEY_LOCAL_MACHINE\\SOFTWARE\\A");
  std::vector<std::u16string> children;
  EXPECT_EQ(config.GetChildKeys(u"HKEY_CURRENT_USER", children), 1);
  EXPECT_EQ(config.GetChildKeys(kSoftware, children) + config.HasParentKey(u"HKEY_CURRENT_USER"), 0);
  EXPECT_EQ(children, std::vector<std::u16string>{u"HKEY_CURRENT_USER\\SOFTWARE\\A"});
  std::u16string text;
  EXPECT_FALSE(config.PeekOutDirStatus(text));
  PutDocument(outDir(u" 1 "));
  EXPECT_TRUE(config.PeekOutDirStatus(text) && text == u" 1 ");
  // Each key that is added has its backup file.
  PutDocument(u"");
  Config added;
  EXPECT_EQ(added.AddRegKey(kSoftware + u"X") + added.AddRegKey(kSoftware + u"Y") + added.Save(), 3);
  std::string document = Contents(kPath);
  std::erase(document, '\0');
  const std::string tag = "<BackUpFile>";
  std::set<std::string> files;
  for (std::size_t at = 0; (at = document.find(tag, at)) != document.npos;) {
    files.insert(document.substr(at += tag.size(), 36));
    EXPECT_EQ(document.find_first_not_of("0123456789ABCDEF-", at), document.find(".bak</BackUpFile>", at));
  }
  EXPECT_EQ(files.size(), 2u) << "no two keys share one";
  EXPECT_EQ(added.AddRegKey(kSoftware + u"bell\x07"), 0) << "no file could hold it";
}

// Should the machine stop at any call, the file is the old one or the new one, shorter or longer: blanks behind it do
// not count.
TEST_F(ServiceConfig, IsWholeAtEveryMoment) {
  for (const bool adds : {true, false}) {
    PutDocument(List(RegKey(u"HKEY_LOCAL_MACHINE", u"SOFTWARE\\A")));
    const std::string before = Contents(kPath);
    std::set<std::string> met;
    machine->gate.Observe([&](const char*, std::uint64_t) {
      emulated::Bytes bytes;
      ASSERT_EQ(emulated::ReadWholeFile(*machine->SystemVolume()->volume, kPath.substr(2), bytes), 0u);
      while (bytes.size() > 2 && bytes[bytes.size() - 2] == ' ') bytes.resize(bytes.size() - 2);
      met.emplace(bytes.begin(), bytes.end());
    });
    {
      Config config;
      EXPECT_EQ(adds ? config.AddRegKey(kSoftware + u"B") : config.RemoveRegKey(kSoftware + u"A"), 1);
      EXPECT_EQ(config.Save(), 1);
    }
    machine->gate.Observe(nullptr);
    EXPECT_EQ(met, (std::set<std::string>{before, Contents(kPath)}));
  }
  // A reader keeps others from writing.
  Config config;
  const auto reader = HoldOpen(kPath, GENERIC_READ, FILE_SHARE_READ);
  EXPECT_EQ(config.Save(), 0);
  EXPECT_EQ(GetLastError(), ERROR_SHARING_VIOLATION);
}

}  // namespace
