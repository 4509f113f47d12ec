// What the tests of file redirection share: one file with all that a file has, and how they look at it.
#pragma once

#include "program/redirections.h"

namespace test {

inline const std::u16string kSource = u"C:\\Data\\file.txt";
inline const std::u16string kTarget = u"D:\\Target\\file.txt";
inline const std::string kText(70'000, 'x');

class FileRedirection : public Redirections {
 protected:
  static constexpr win32::DWORD kAttributes = win32::FILE_ATTRIBUTE_READONLY | win32::FILE_ATTRIBUTE_HIDDEN |
                                              win32::FILE_ATTRIBUTE_SYSTEM | win32::FILE_ATTRIBUTE_ARCHIVE;

  FileRedirection() {
    timesOfFolders = false;  // a file that goes, and comes back, leaves its mark on those of its folder
    EXPECT_TRUE(EnablePrivileges());
    MakeFolder(u"C:\\Data");
    MakeFolder(u"D:\\Target");
    MakeFile(kSource, kText);
    MakeFile(kSource + u":note", "a named stream");
    SetSecurity(kSource, u"O:SYD:AI(A;;FA;;;BA)(A;;0x1200a9;;;SY)(A;ID;FA;;;BA)(A;ID;FA;;;SY)(A;ID;FR;;;AU)");
    SetTimes(kSource, 7);
    EXPECT_TRUE(win32::SetFileAttributesW(kSource.c_str(), kAttributes));
    item = Item(kSource);
  }
  RunResult Redirect(const std::u16string& source = kSource, const std::u16string& folder = u"D:\\Target") {
    return Run({u"/RedirectFile", source, u"/loc:" + folder});
  }
  RunResult Remove(const std::u16string& location = u"D:\\Target") {
    return Run({u"/RedirectFile", kSource, u"/loc:" + location, u"/d"});
  }
  // What a removal answers; the service keeps running while another file is redirected, or a location is set.
  enum class Service { HasWork, IsIdle };
  static std::string Removal(bool done, const std::string& log, Service service) {
    const std::string what = "File Redirection Removal", begin = "RemoveFileRedirection - ENTER\n" + log;
    const std::string settings =
        "\nRemoveFileRedirection - IsRegistryRedirectionEnabled: 0 and IsFileRedirectionEnabled: ";
    return (done ? Succeeded(what, begin) : Failed(what, begin)) + settings +
           (service == Service::HasWork
                ? "1 \n"
                : "0 \nRemoveFileRedirection - Going to stop Quillbay Service\nService disabled "
                  "successfully.\n\n") +
           "RemoveFileRedirection - EXIT";
  }
  // All that the file is, but for its group.
  static std::string Item(const std::u16string& path) {
    return Describe(path) + emulated::Utf8(Access(path) + Dacl(path));
  }
  static void MakeLink(const std::u16string& path, const std::u16string& target, win32::DWORD flags = 0) {
    const auto create = reinterpret_cast<win32::CreateSymbolicLinkWFunction>(
        win32::GetProcAddress(win32::LoadLibraryW(u"Kernel32.dll"), "CreateSymbolicLinkW"));
    ASSERT_TRUE(create(path.c_str(), target.c_str(), flags));
  }
  static void Delete(const std::u16string& path) {
    win32::SetFileAttributesW(path.c_str(), win32::FILE_ATTRIBUTE_NORMAL);
    ASSERT_TRUE(win32::DeleteFileW(path.c_str()));
  }
  bool ServiceRuns() { return machine->services().State(kQuillbayService) == win32::SERVICE_RUNNING; }

  void ExpectRedirected() {
    EXPECT_TRUE(IsLink(kSource));
    EXPECT_TRUE(Contents(kSource) == kText);
    EXPECT_TRUE(Item(kTarget) == item);
  }
  void ExpectAtHome() {
    EXPECT_FALSE(IsLink(kSource));
    EXPECT_TRUE(Item(kSource) == item);
  }

  std::string item;  // what the file is at first
};

}  // namespace test
