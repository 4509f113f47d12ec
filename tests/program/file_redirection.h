// What the tests of file redirection share: a machine, one file, and how they look at both.
#pragma once

#include <gtest/gtest.h>

#include <map>

#include "probes/privileges.h"
#include "probes/services.h"
#include "support/program.h"
#include "support/tree.h"
#include "win32/emulated/registry/registry.h"
#include "win32/emulated/registry/services.h"
#include "win32/emulated/text.h"
#include "win32/win32.h"

namespace test {

inline const std::u16string kRecords = u"HKLM\\SOFTWARE\\Wow6432Node\\Velmora\\Quillbay\\FileJunctions";
inline const std::u16string kLogged = u"Errors logged in C:\\Program Files\\Velmora\\Quillbay\\QBC.log.";
inline const std::u16string kSource = u"C:\\Data\\file.txt";
inline const std::u16string kTarget = u"D:\\Target\\file.txt";
inline const std::string kText(70'000, 'x');

class FileRedirection : public ::testing::Test {
 protected:
  FileRedirection() {
    MakeFolder(u"C:\\Data");
    MakeFile(kSource, kText);
    MakeFile(kSource + u":note", "a named stream");
    MakeFolder(u"D:\\Target");
  }
  static void Secure(const std::u16string& path, const std::u16string& sddl) {
    ASSERT_TRUE(EnablePrivileges());  // to give files to others
    test::SetSecurity(path, sddl);
  }
  test::RunResult Redirect(const std::u16string& source = kSource, const std::u16string& folder = u"D:\\Target") {
    return RunProgram(*machine, {u"/RedirectFile", source, u"/loc:" + folder});
  }
  test::RunResult Remove(const std::u16string& location = u"D:\\Target") {
    return RunProgram(*machine, {u"/RedirectFile", kSource, u"/loc:" + location, u"/d"});
  }

  static bool IsLink(const std::u16string& path) {
    const win32::DWORD attributes = test::Attributes(path);
    return attributes != win32::INVALID_FILE_ATTRIBUTES && (attributes & win32::FILE_ATTRIBUTE_REPARSE_POINT) != 0;
  }
  static void MakeLink(const std::u16string& path, const std::u16string& target, win32::DWORD flags = 0) {
    const auto create = reinterpret_cast<win32::CreateSymbolicLinkWFunction>(
        win32::GetProcAddress(win32::LoadLibraryW(u"Kernel32.dll"), "CreateSymbolicLinkW"));
    ASSERT_TRUE(create(path.c_str(), target.c_str(), flags));
  }
  std::u16string Record(const std::u16string& number, const char16_t* value) {
    const auto found = machine->registry().Query(kRecords + u"\\" + number, value);
    return found ? found->Text() : u"(none)";
  }
  // All records, source and target.
  std::multimap<std::u16string, std::u16string> Records() {
    std::multimap<std::u16string, std::u16string> records;
    for (const std::u16string& number : machine->registry().SubKeys(kRecords))
      records.emplace(Record(number, u"Source"), Record(number, u"Target"));
    return records;
  }
  std::size_t RecordCount() { return machine->registry().SubKeys(kRecords).size(); }
  bool ServiceRuns() { return machine->services().State(kQuillbayService) == win32::SERVICE_RUNNING; }
  win32::DWORD ServiceStart() { return machine->services().Configuration(kQuillbayService)->start; }

  void ExpectRedirected() {
    EXPECT_TRUE(IsLink(kSource));
    EXPECT_FALSE(IsLink(kTarget));
    EXPECT_TRUE(Contents(kSource) == kText);
    EXPECT_TRUE(Contents(kTarget) == kText);
    EXPECT_EQ(Contents(kTarget + u":note"), "a named stream");
    EXPECT_EQ(Record(u"1", u"Source"), kSource);
    EXPECT_EQ(Record(u"1", u"Target"), kTarget);
  }
  void ExpectAtHome() {
    EXPECT_FALSE(IsLink(kSource));
    EXPECT_TRUE(Contents(kSource) == kText);
    EXPECT_EQ(Contents(kSource + u":note"), "a named stream");
  }
  static void ExpectFailure(const test::RunResult& run, const std::u16string& logged) {
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(run.said, kLogged + u"\nFile Redirection was unsuccessful.") << emulated::Utf8(run.said);
    EXPECT_TRUE(run.Logged(logged)) << emulated::Utf8(run.log);
    EXPECT_TRUE(run.Logged(u"File Redirection was unsuccessful."));
  }
  static void ExpectRemovalFailure(const test::RunResult& run, const std::u16string& logged) {
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(run.said, kLogged + u"\nFile Redirection Removal was not successful.") << emulated::Utf8(run.said);
    EXPECT_TRUE(run.Logged(logged)) << emulated::Utf8(run.log);
    EXPECT_TRUE(run.Logged(u"RemoveFileRedirection - ENTER"));
    EXPECT_TRUE(run.log.ends_with(u"RemoveFileRedirection - EXIT"));
  }

  std::unique_ptr<emulated::Machine> machine = test::InstalledMachine();
};

}  // namespace test
