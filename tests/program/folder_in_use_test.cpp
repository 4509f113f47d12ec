// Days in the life of a workstation: files and folders that somebody is working with, or that are not the
// administrator's.
#include <sstream>
#include <vector>

#include "probes/privileges.h"
#include "program/folder_stories.h"
#include "win32/emulated/files/file_service.h"
#include "win32/emulated/system/processes.h"
#include "win32/emulated/system/threads.h"

namespace {

using emulated::Utf8;
using test::DescribeTree, test::Exists, test::FolderStories, test::MakeFile, test::MakeFolder, test::Records,
    test::RunResult;

// People are at work in the folder, and some of what is in it is not the administrator's.
class InUse : public FolderStories {
 protected:
  static constexpr win32::DWORD kWord = 4242, kExplorer = 4300, kBackupAgent = 4400;

  InUse() {
    EnablePrivileges();  // the test looks at what nobody but SYSTEM may read
    MakeFolder(u"D:\\Target");
    MakeFolder(u"C:\\Data");
    MakeFolder(u"C:\\Data\\open");
    MakeFolder(u"C:\\Data\\vault");
    for (const auto* file : {u"book.docx", u"free.txt", u"minutes.txt", u"open\\inner.txt", u"secret.txt"})
      MakeFile(u"C:\\Data\\" + std::u16string(file), "contents");
    before = DescribeTree(u"C:\\Data");
  }
  std::shared_ptr<emulated::FileObject> Hold(win32::DWORD process, const std::u16string& path, win32::DWORD access,
                                             win32::DWORD share) {
    auto held = machine->files().OpenForeign(process, path, access, share);
    EXPECT_TRUE(held) << Utf8(path);
    return held;
  }
  void HoldAll() {
    constexpr win32::DWORD kAll = win32::FILE_SHARE_READ | win32::FILE_SHARE_WRITE | win32::FILE_SHARE_DELETE;
    holders = {Hold(kWord, u"C:\\Data\\book.docx", win32::GENERIC_READ | win32::GENERIC_WRITE, 0),
               Hold(kWord, u"C:\\Data\\minutes.txt", win32::GENERIC_READ, kAll),
               Hold(kBackupAgent, u"C:\\Data\\minutes.txt", win32::GENERIC_READ, kAll),
               Hold(kExplorer, u"C:\\Data\\open", win32::FILE_READ_ATTRIBUTES, kAll)};
  }
  void LetGo() {
    for (const auto& holder : holders) machine->files().CloseForeign(holder);
    holders.clear();
  }
  // All that they may do is give themselves more; and list the folder.
  void KeepFromAdministrators() {
    test::SetSecurity(u"C:\\Data\\secret.txt", u"O:BAD:P(A;;FA;;;SY)(A;;0xC0000;;;BA)");
    test::SetSecurity(u"C:\\Data\\vault", u"O:BAD:P(A;;FA;;;SY)(A;;0x1C0001;;;BA)");
  }
  void GiveToAdministrators() {
    for (const auto* item : {u"C:\\Data\\secret.txt", u"C:\\Data\\vault"})
      test::SetSecurity(item, u"O:BAD:(A;;FA;;;BA)");
  }
  RunResult Redirect() { return Run({u"/RedirectFolder", u"C:\\Data", u"/loc:D:\\Target"}); }

  // What the log of a run says from "#" on, line by line.
  static std::vector<std::string> Findings(const RunResult& run) {
    std::vector<std::string> findings;
    std::istringstream lines(Utf8(run.log));
    for (std::string line; std::getline(lines, line);)
      if (const std::size_t at = line.find("] #"); at != std::string::npos) findings.push_back(line.substr(at + 2));
    return findings;
  }
  static std::string Locked(const std::string& path) { return "#INFO: " + path + " - File or Folder is locked."; }
  static std::string NotAccessible(const std::string& path) { return "#INFO: " + path + " - File is not accessible."; }
  static std::string Used(const std::string& path) {
    return "#ERROR: " + path +
           " - File or folder is used by another process.  Close any application that might be using the file or "
           "folder "
           "and try again.";
  }
  static std::string NotReadable(const std::string& path) {
    return "#ERROR: " + path + " - Insufficient permissions. The minimum permissions requirement is read & execute.";
  }

  // All that stands in the way is told in one run, in the order of the tree.
  void ExpectAllIsNamedAndNothingMoved(const RunResult& run) {
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_TRUE(run.said.ends_with(u"QBC.log.\nFolder Redirection was unsuccessful.")) << Utf8(run.said);
    const std::string book = "C:\\Data\\book.docx", minutes = "C:\\Data\\minutes.txt", open = "C:\\Data\\open";
    EXPECT_EQ(Findings(run),
              (std::vector<std::string>{
                  Locked(book), NotAccessible(book), Used(book), Locked(minutes), NotAccessible(minutes), Used(minutes),
                  Locked(open), Used(open), NotReadable("C:\\Data\\secret.txt"), NotReadable("C:\\Data\\vault"),
                  "#ERROR: PreScanning failed for Source = C:\\Data and Target = D:\\Target\\Data."}));
    LetGo();  // or the test could not look either
    EXPECT_EQ(DescribeTree(u"C:\\Data"), before);
    EXPECT_FALSE(Exists(u"D:\\Target\\Data"));
    EXPECT_EQ(AllRecords(), Records());
  }

  test::Tree before;
  std::vector<std::shared_ptr<emulated::FileObject>> holders;
};

TEST_F(InUse, EverythingInTheWayIsNamedInOneRun) {
  HoldAll();
  KeepFromAdministrators();
  ExpectAllIsNamedAndNothingMoved(Redirect());
  const RunResult released = Redirect();
  EXPECT_EQ(released.exitCode, 1);
  EXPECT_EQ(Findings(released).size(), 3u) << Utf8(released.log);
  GiveToAdministrators();
  EXPECT_EQ(Redirect().exitCode, 0);
}

// A program waits at its pipe, so whoever asks for the name of that handle waits as well. The answers about all the
// others come nevertheless, and before long.
TEST_F(InUse, AHandleThatHangsChangesNothing) {
  emulated::OpenInProcess(
      *machine, kWord,
      std::make_shared<emulated::DeviceFile>(u"\\Device\\NamedPipe\\first", std::vector{emulated::kForEver}),
      win32::GENERIC_READ);
  HoldAll();
  KeepFromAdministrators();
  emulated::OpenInProcess(
      *machine, kBackupAgent,
      std::make_shared<emulated::DeviceFile>(u"\\Device\\NamedPipe\\last", std::vector{emulated::kForEver}),
      win32::GENERIC_READ);
  const emulated::FileTime started = machine->Now();
  ExpectAllIsNamedAndNothingMoved(Redirect());
  const auto waited = (machine->Now() - started) / 10'000;
  EXPECT_GE(waited, 200u) << "milliseconds; two such handles";
  EXPECT_LT(waited, 1000u);
  EXPECT_EQ(machine->threads().count(), 0u);
  GiveToAdministrators();
  EXPECT_EQ(Redirect().exitCode, 0);
}

// Nobody has the folders open for more than a look, which no share mode stands against; still they cannot be removed.
TEST_F(InUse, AFolderInUseStopsTheWayBackToo) {
  ASSERT_EQ(Redirect().exitCode, 0);
  holders = {Hold(kExplorer, u"C:\\Data\\open", win32::FILE_READ_ATTRIBUTES,
                  win32::FILE_SHARE_READ | win32::FILE_SHARE_WRITE | win32::FILE_SHARE_DELETE)};
  const RunResult run = Run({u"/RedirectFolder", u"C:\\Data", u"/loc:D:\\Target", u"/d"});
  EXPECT_EQ(run.exitCode, 1);
  EXPECT_EQ(Findings(run), (std::vector<std::string>{
                               Locked("D:\\Target\\Data\\open"), Used("D:\\Target\\Data\\open"),
                               "#ERROR: PreScanning failed for Source = C:\\Data and Target = D:\\Target\\Data."}));
  EXPECT_EQ(DescribeTree(u"D:\\Target\\Data"), before);
  EXPECT_TRUE(IsLink(u"C:\\Data"));
  EXPECT_EQ(AllRecords(), (Records{{u"1", {u"C:\\Data", u"D:\\Target\\Data"}}}));
  LetGo();
  Remove(u"C:\\Data", u"D:\\Target");
  EXPECT_EQ(DescribeTree(u"C:\\Data"), before);
}

// The folder next door, and files on the target's drive, are nobody's business.
TEST_F(InUse, WhatIsOpenElsewhereIsNotInTheWay) {
  MakeFolder(u"C:\\Database");
  MakeFile(u"C:\\Database\\x.mdb", "x");
  MakeFile(u"D:\\Target\\theirs.txt", "x");
  holders = {Hold(kWord, u"C:\\Database\\x.mdb", win32::GENERIC_READ, 0),
             Hold(kWord, u"C:\\Database", win32::FILE_READ_ATTRIBUTES, win32::FILE_SHARE_READ),
             Hold(kWord, u"D:\\Target\\theirs.txt", win32::GENERIC_READ, 0)};
  const RunResult run = Redirect();
  EXPECT_EQ(run.exitCode, 0) << Utf8(run.log);
  EXPECT_EQ(Findings(run), std::vector<std::string>());
}

}  // namespace
