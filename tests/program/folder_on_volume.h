// A machine with a folder C:\Data and a volume without a letter; what a redirection of the one onto the other leaves.
#pragma once

#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <string>

#include "support/program.h"
#include "support/tree.h"
#include "win32/emulated/registry/registry.h"
#include "win32/emulated/text.h"
#include "win32/win32.h"

inline const std::u16string kVolume = u"\\\\?\\Volume{12345678-0000-4000-8000-000000000000}\\";
inline const std::u16string kRecords = u"HKLM\\SOFTWARE\\Wow6432Node\\Velmora\\Quillbay\\Junctions";
inline const std::u16string kRoots = u"HKLM\\SOFTWARE\\Wow6432Node\\Velmora\\Quillbay\\VolumeRoots";
inline const std::u16string kRemovals = u"HKLM\\SOFTWARE\\Wow6432Node\\Velmora\\Quillbay\\VolumeRemovals";
inline const std::u16string kLogged = u"Errors logged in C:\\Program Files\\Velmora\\Quillbay\\QBC.log.";

class FolderOnVolume : public ::testing::Test {
 protected:
  FolderOnVolume() {
    test::MakeFolder(u"C:\\Data");
    test::SetSecurity(u"C:\\Data", u"O:BAD:P(A;OICI;FA;;;BA)(A;OICI;FA;;;SY)(A;OICI;0x1200a9;;;BU)");
    test::MakeFolder(u"C:\\Data\\inner");
    test::MakeFile(u"C:\\Data\\one.txt", "first");
    test::MakeFile(u"C:\\Data\\one.txt:note", "a named stream");
    test::MakeFile(u"C:\\Data\\inner\\two.bin", std::string(70000, 'x'),
                   win32::FILE_ATTRIBUTE_READONLY | win32::FILE_ATTRIBUTE_HIDDEN);
    test::MakeFile(u"C:\\Data:label", "of the folder");
    test::SetTimes(u"C:\\Data", 7);
  }
  // Onto the volume, with one more word.
  test::RunResult Onto(const std::u16string& folder, const std::u16string& word = u"/NTFS") {
    return test::RunProgram(*machine, {u"/RedirectFolder", folder, u"/vol:" + kVolume, word});
  }
  test::RunResult Redirect() {
    return test::RunProgram(*machine, {u"/RedirectFolder", u"C:\\Data", u"/vol:" + kVolume});
  }
  test::RunResult Remove() { return Onto(u"C:\\Data", u"/d"); }

  // Where the volume is mounted, each path followed by "|".
  static std::u16string MountPaths() {
    char16_t buffer[300];
    win32::DWORD length = 0;
    if (!win32::GetVolumePathNamesForVolumeNameW(kVolume.c_str(), buffer, 300, &length)) return u"(error)";
    std::u16string paths(buffer, length - 1);
    for (char16_t& unit : paths)
      if (unit == 0) unit = u'|';
    return paths;
  }
  std::size_t RecordCount() { return machine->registry().SubKeys(kRecords).size(); }
  std::u16string Record(const char16_t* value) {
    const auto found = machine->registry().Query(kRecords + u"\\1", value);
    return found ? found->Text() : u"(none)";
  }
  bool RootIsRemembered() { return machine->registry().Query(kRoots, kVolume).has_value(); }
  // Owner and entries of an item, the root by the volume's name; a folder with a mount answers for itself.
  static std::u16string Access(const std::u16string& path) {
    const std::u16string text = test::Security(path);
    return text.substr(0, text.find(u"G:")) + text.substr(std::min(text.find(u'('), text.size()));
  }
  // What the folder shows: the volume's own bin is not part of it.
  static test::Tree Shown() {
    test::Tree tree = test::DescribeTree(u"C:\\Data");
    tree.erase(u"\\$RECYCLE.BIN");
    return tree;
  }
  // Of every item, and of the folder itself.
  static std::map<std::u16string, std::u16string> AccessOfAll() {
    std::map<std::u16string, std::u16string> all{{u"", Access(u"C:\\Data")}};
    for (const auto& [name, description] : Shown()) all[name] = Access(u"C:\\Data" + name);
    return all;
  }
  void ExpectFailure(const test::RunResult& run, const std::u16string& logged) {
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_TRUE(run.said.ends_with(kLogged + u"\nFolder Redirection was unsuccessful.")) << emulated::Utf8(run.said);
    EXPECT_TRUE(run.Logged(logged)) << emulated::Utf8(run.log);
    EXPECT_TRUE(run.log.ends_with(u"Folder Redirection was unsuccessful."));
  }
  // Nothing is left of a redirection.
  void ExpectPlain(const std::string& when = {}) {
    EXPECT_EQ(test::Attributes(u"C:\\Data") & win32::FILE_ATTRIBUTE_REPARSE_POINT, 0u) << when;
    EXPECT_FALSE(test::Exists(u"C:\\Data.mount")) << when;
    EXPECT_EQ(MountPaths(), u"") << when;
    EXPECT_EQ(RecordCount(), 0u) << when;
    EXPECT_EQ(Access(kVolume), rootAccess) << when;
    EXPECT_FALSE(RootIsRemembered()) << when;
  }
  void ExpectRedirected(const std::string& when = {}) {
    EXPECT_EQ(MountPaths(), u"C:\\Data\\|") << when;
    EXPECT_FALSE(test::Exists(u"C:\\Data.mount")) << when;
    EXPECT_EQ(RecordCount(), 1u) << when;
  }

  std::unique_ptr<emulated::Machine> machine = test::InstalledMachine({.volumes = 1});
  const std::u16string rootAccess = Access(kVolume);
};
