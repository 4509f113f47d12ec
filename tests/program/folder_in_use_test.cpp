// People are at work in the folder that is to go, and some of what is in it is not the administrator's.
#include "program/redirections.h"

namespace {

using test::Answer, test::Failed, test::MakeFile, test::MakeFolder;

class InUse : public test::Redirections {
 protected:
  static constexpr win32::DWORD kWord = 4242, kExplorer = 4300, kBackupAgent = 4400;
  static constexpr win32::DWORD kAll = win32::FILE_SHARE_READ | win32::FILE_SHARE_WRITE | win32::FILE_SHARE_DELETE;

  InUse() {
    EnablePrivileges();  // the test looks at what nobody but SYSTEM may read
    for (const auto* folder : {u"D:\\Target", u"C:\\Data", u"C:\\Data\\open", u"C:\\Data\\vault", u"C:\\Database"})
      MakeFolder(folder);
    for (const auto* file :
         {u"C:\\Data\\book.docx", u"C:\\Data\\free.txt", u"C:\\Data\\minutes.txt", u"C:\\Data\\open\\inner.txt",
          u"C:\\Data\\secret.txt", u"C:\\Database\\x.mdb", u"D:\\Target\\theirs.txt"})
      MakeFile(file, "contents");
  }
  void Hold(win32::DWORD process, const std::u16string& path, win32::DWORD access, win32::DWORD share) {
    holders.push_back(machine->files().OpenForeign(process, path, access, share));
    EXPECT_TRUE(holders.back()) << emulated::Utf8(path);
  }
  // Whoever asks for the name of such a pipe waits until its server looks at it.
  void HoldPipe(win32::DWORD process, const std::u16string& name) {
    emulated::OpenInProcess(*machine, process,
                            std::make_shared<emulated::DeviceFile>(name, std::vector{emulated::kForEver}),
                            win32::GENERIC_READ);
  }
  void LetGo() {
    for (const auto& holder : holders) machine->files().CloseForeign(holder);
    holders.clear();
  }
  test::RunResult Redirect() { return Run({u"/RedirectFolder", u"C:\\Data", u"/loc:D:\\Target"}); }

  std::vector<std::shared_ptr<emulated::FileObject>> holders;
};

// All that stands in the way is told in one run, in the order of the tree; handles that hang make it no longer.
TEST_F(InUse, EverythingInTheWayIsNamedInOneRun) {
  // All that they may do is give themselves more; and list the folder.
  test::SetSecurity(u"C:\\Data\\secret.txt", u"O:BAD:P(A;;FA;;;SY)(A;;0xC0000;;;BA)");
  test::SetSecurity(u"C:\\Data\\vault", u"O:BAD:P(A;;FA;;;SY)(A;;0x1C0001;;;BA)");
  const State before = Now();
  HoldPipe(kWord, u"\\Device\\NamedPipe\\first");
  Hold(kWord, u"C:\\Data\\book.docx", win32::GENERIC_READ | win32::GENERIC_WRITE, 0);
  Hold(kWord, u"C:\\Data\\minutes.txt", win32::GENERIC_READ, kAll);
  Hold(kBackupAgent, u"C:\\Data\\minutes.txt", win32::GENERIC_READ, kAll);
  Hold(kExplorer, u"C:\\Data\\open", win32::FILE_READ_ATTRIBUTES, kAll);
  HoldPipe(kBackupAgent, u"\\Device\\NamedPipe\\last");
  const emulated::FileTime started = machine->Now();
  const std::string answer = Answer(Redirect());
  const auto waited = (machine->Now() - started) / 10'000;
  EXPECT_GE(waited, 200u) << "milliseconds; two such handles";
  EXPECT_LT(waited, 1000u);
  EXPECT_EQ(machine->threads().count(), 0u);
  const auto isUsed = [](const std::string& path) {
    return "#ERROR: C:\\Data\\" + path +
           " - File or folder is used by another process.  Close any application that might be using the file or "
           "folder and try again.\n";
  };
  const auto isLocked = [](const std::string& path) {
    return "#INFO: C:\\Data\\" + path + " - File or Folder is locked.\n";
  };
  const auto notAccessible = [](const std::string& path) {
    return "#INFO: C:\\Data\\" + path + " - File is not accessible.\n";
  };
  const auto notReadable = [](const std::string& path) {
    return "#ERROR: C:\\Data\\" + path +
           " - Insufficient permissions. The minimum permissions requirement is read & execute.\n";
  };
  const std::string failed = "#ERROR: PreScanning failed for Source = C:\\Data and Target = TARGET.\n";
  EXPECT_EQ(answer,
            Failed("Folder Redirection", isLocked("book.docx") + notAccessible("book.docx") + isUsed("book.docx") +
                                             isLocked("minutes.txt") + notAccessible("minutes.txt") +
                                             isUsed("minutes.txt") + isLocked("open") + isUsed("open") +
                                             notReadable("secret.txt") + notReadable("vault") + failed));
  LetGo();  // or the test could not look either
  EXPECT_EQ(ChangesSince(before), "");
  for (const auto* item : {u"C:\\Data\\secret.txt", u"C:\\Data\\vault"}) test::SetSecurity(item, u"O:BAD:(A;;FA;;;BA)");
  EXPECT_EQ(Redirect().exitCode, 0);
}

// The folder next door, and files on the target's drive, are nobody's business.
TEST_F(InUse, WhatIsOpenElsewhereIsNotInTheWay) {
  Hold(kWord, u"C:\\Database\\x.mdb", win32::GENERIC_READ, 0);
  Hold(kWord, u"C:\\Database", win32::FILE_READ_ATTRIBUTES, win32::FILE_SHARE_READ);
  Hold(kWord, u"D:\\Target\\theirs.txt", win32::GENERIC_READ, 0);
  EXPECT_TRUE(Answer(Redirect()).starts_with("exit 0"));
}

}  // namespace
