// The profiles of an installed machine: who gets in, what a program sees of the compatibility links, and what a first
// logon and a logon make.
#include <gtest/gtest.h>

#include <algorithm>

#include "support/images.h"
#include "support/installed_machine.h"
#include "win32/emulated/files/file_service.h"
#include "win32/emulated/registry/registry.h"
#include "win32/emulated/registry/system_hives.h"
#include "win32/emulated/security/access.h"
#include "win32/emulated/setup/first_logon.h"
#include "win32/emulated/setup/user_profile.h"
#include "win32/emulated/system/logon.h"
#include "win32/emulated/text.h"
#include "win32/emulated/workstation.h"
#include "win32/file.h"
#include "win32/handle.h"
#include "win32/system.h"

namespace {

using namespace win32;

constexpr const char16_t* kAnna = u"S-1-5-21-1004336348-1177238915-682003330-1001";
constexpr const char16_t* kJan = u"S-1-5-21-1004336348-1177238915-682003330-1002";

class Profiles : public ::testing::Test {
 protected:
  Profiles() : machine(test::InstalledMachine()) {}

  void Become(const char16_t* sid) { machine->process.token = emulated::MakeUserToken(emulated::SidFromText(sid)); }

  // The names in a folder, or the error of the search.
  static DWORD List(const std::u16string& folder, std::vector<std::u16string>& names) {
    WIN32_FIND_DATAW found;
    const UniqueFind search(FindFirstFileW((folder + u"\\*").c_str(), &found));
    if (!search) return GetLastError();
    do {
      const std::u16string name = found.cFileName;
      if (name != u"." && name != u"..") names.push_back(name);
    } while (FindNextFileW(search.get(), &found));
    return ERROR_SUCCESS;
  }
  static DWORD OpenError(const std::u16string& path, DWORD access, DWORD flags) {
    const UniqueFile file(CreateFileW(path.c_str(), access, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                      nullptr, OPEN_EXISTING, flags, nullptr));
    return file ? ERROR_SUCCESS : GetLastError();
  }
  static bool Exists(const std::u16string& path) { return GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES; }
  // Calls `visit` with every link below a folder; a search that does not know links sees an empty list behind each.
  template <typename Visit>
  static void ForEachLink(const std::u16string& folder, const Visit& visit) {
    std::vector<std::u16string> names;
    ASSERT_EQ(List(folder, names), ERROR_SUCCESS) << emulated::Utf8(folder);
    for (const std::u16string& name : names) {
      const std::u16string path = folder + u"\\" + name;
      const DWORD attributes = GetFileAttributesW(path.c_str());
      if (attributes & FILE_ATTRIBUTE_REPARSE_POINT) {
        visit(path);
      } else if (attributes & FILE_ATTRIBUTE_DIRECTORY) {
        ForEachLink(path, visit);
      }
    }
  }

  std::unique_ptr<emulated::Machine> machine;
};

TEST_F(Profiles, HaveCompatibilityLinksThatNobodyListsButThroughWhichNamesAreReached) {
  const std::u16string link = u"C:\\Users\\anna\\Application Data";
  constexpr DWORD kLink = FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM | FILE_ATTRIBUTE_REPARSE_POINT;
  EXPECT_EQ(GetFileAttributesW(link.c_str()) & kLink, kLink);
  constexpr DWORD kOfTheLink = FILE_FLAG_OPEN_REPARSE_POINT | FILE_FLAG_BACKUP_SEMANTICS;
  EXPECT_EQ(OpenError(link, FILE_READ_DATA, kOfTheLink), ERROR_ACCESS_DENIED);
  EXPECT_EQ(OpenError(link, GENERIC_READ, kOfTheLink), ERROR_ACCESS_DENIED);
  EXPECT_EQ(OpenError(link, FILE_READ_ATTRIBUTES | DELETE, kOfTheLink), ERROR_SUCCESS);
  std::vector<std::u16string> names;
  EXPECT_EQ(List(link, names), ERROR_ACCESS_DENIED) << "nor what is behind it";
  EXPECT_EQ(OpenError(link, GENERIC_READ, FILE_FLAG_BACKUP_SEMANTICS), ERROR_ACCESS_DENIED);
  EXPECT_TRUE(Exists(link + u"\\Microsoft\\Windows\\SendTo"));
  // A backup reads it, when it may.
  machine->process.token->EnablePrivilege(u"SeBackupPrivilege", true);
  EXPECT_EQ(OpenError(link, GENERIC_READ, kOfTheLink), ERROR_SUCCESS);
}

TEST_F(Profiles, HaveLinksThatAllLeadToFoldersOfTheSameProfile) {
  const std::pair<const char16_t*, int> profiles[] = {
      {u"C:\\Users\\anna", 16}, {u"C:\\Users\\Default", 16}, {u"C:\\Users\\Public", 3}};
  for (const auto& [home, expected] : profiles) {
    int links = 0;
    ForEachLink(home, [&, below = std::u16string(home) + u"\\"](const std::u16string& path) {
      ++links;
      emulated::Location target;
      ASSERT_EQ(machine->files().Resolve(path, true, target), 0U);
      ASSERT_NE(target.file, 0U) << emulated::Utf8(path);
      const std::u16string leads = u"C:" + machine->files().PathInVolume(*target.volume, target.file);
      EXPECT_TRUE(leads.starts_with(below)) << emulated::Utf8(path + u" to " + leads);
    });
    EXPECT_EQ(links, expected) << emulated::Utf8(home);
  }
}

TEST_F(Profiles, LetOnlyTheirUserTheSystemAndAdministratorsIn) {
  std::vector<std::u16string> names;
  EXPECT_EQ(List(u"C:\\Users\\anna\\Documents", names), ERROR_SUCCESS) << "an administrator";
  Become(kAnna);
  EXPECT_EQ(List(u"C:\\Users\\anna\\Documents", names), ERROR_SUCCESS);
  EXPECT_EQ(List(u"C:\\Users\\Public\\Documents", names), ERROR_SUCCESS);
  EXPECT_EQ(List(u"C:\\Users\\jan", names), ERROR_ACCESS_DENIED);
  EXPECT_EQ(OpenError(u"C:\\Users\\jan\\NTUSER.DAT", GENERIC_READ, 0), ERROR_ACCESS_DENIED);
}

TEST_F(Profiles, OfAFirstLogonAreCopiesOfTheDefaultProfileWhereTheListSays) {
  using emulated::ByteView;
  emulated::Registry& registry = machine->registry();
  const std::u16string list = u"HKLM\\SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion\\ProfileList";
  ASSERT_TRUE(CreateDirectoryW(u"D:\\Profiles", nullptr));
  UniqueFile(
      CreateFileW(u"C:\\Users\\Default\\Desktop\\welcome.txt", GENERIC_WRITE, 0, nullptr, CREATE_NEW, 0, nullptr))
      .reset();
  registry.SetText(list, u"ProfilesDirectory", u"D:\\Profiles", REG_EXPAND_SZ);
  // What is set for new users is in the default profile's hive; one key of it is for administrators alone.
  const std::u16string shell = u"\\Software\\Microsoft\\Windows\\CurrentVersion\\Explorer\\";
  ASSERT_EQ(registry.LoadHive(u"HKU\\default", u"C:\\Users\\Default\\NTUSER.DAT"), 0U);
  registry.SetText(u"HKU\\default\\Software\\Contoso\\Closed", u"Greeting", u"hello");
  registry.SetSecurity(u"HKU\\default\\Software\\Contoso\\Closed",
                       *emulated::DescriptorFromText(u"O:BAG:SYD:PAI(A;;KA;;;BA)"));
  registry.SetText(u"HKU\\default" + shell + u"User Shell Folders", u"Personal", u"%USERPROFILE%\\Papers",
                   REG_EXPAND_SZ);
  registry.SetText(u"HKU\\default" + shell + u"User Shell Folders", u"My Music", u"D:\\Music", REG_EXPAND_SZ);
  registry.SetText(u"HKU\\default" + shell + u"Shell Folders", u"My Music", u"D:\\Music");
  ASSERT_EQ(registry.UnloadHive(u"HKU\\default"), 0U);
  const emulated::Account petra{u"WORKSTATION", u"petra", emulated::WithRid(emulated::MachineSid(*machine), 1003), 1};
  std::u16string folder;
  ASSERT_EQ(emulated::CreateUserProfile(*machine, petra, folder), 0U);
  EXPECT_EQ(emulated::CreateUserProfile(*machine, petra, folder), ERROR_ALREADY_EXISTS);
  EXPECT_EQ(folder, u"D:\\Profiles\\petra");
  const std::u16string sid = emulated::SidToText(petra.sid);
  EXPECT_EQ(registry.Query(list + u"\\" + sid, u"ProfileImagePath")->Text(), folder);
  EXPECT_TRUE(Exists(folder + u"\\Desktop\\welcome.txt"));
  EXPECT_TRUE(Exists(folder + u"\\My Documents\\My Music"));
  emulated::Location target;
  ASSERT_EQ(machine->files().Resolve(folder + u"\\Start Menu", true, target), 0U);
  EXPECT_EQ(target.volume->letter, u'D');
  // Another account of that name.
  const emulated::Account other{u"CORP", u"petra", emulated::SidFromText(u"S-1-5-21-1-2-3-1101"), 1};
  ASSERT_EQ(emulated::CreateUserProfile(*machine, other, folder), 0U);
  EXPECT_EQ(folder, u"D:\\Profiles\\petra.CORP");
  // It is hers: a logon loads the hive, another user is kept out.
  emulated::LogOn(*machine, sid);
  const std::u16string root = u"HKU\\" + sid, closed = root + u"\\Software\\Contoso\\Closed";
  EXPECT_EQ(registry.Query(closed, u"Greeting")->Text(), u"hello");
  EXPECT_EQ(registry.Query(root + shell + u"Shell Folders", u"Desktop")->Text(), u"D:\\Profiles\\petra\\Desktop");
  EXPECT_EQ(registry.Query(root + shell + u"Shell Folders", u"Personal")->Text(), u"D:\\Profiles\\petra\\Papers");
  EXPECT_EQ(registry.Query(root + shell + u"Shell Folders", u"My Music")->Text(), u"D:\\Music");
  const auto lets = [&](const std::u16string& key) {
    const auto text = emulated::DescriptorToText(*registry.Security(key), DACL_SECURITY_INFORMATION);
    return text.find(u";KA;;;" + sid) != text.npos;
  };
  EXPECT_TRUE(lets(root) && lets(root + u"\\Control Panel\\Desktop") && !lets(closed));
  EXPECT_TRUE(registry.KeyExists(root + u"_Classes"));
  Become(sid.c_str());
  std::vector<std::u16string> names;
  EXPECT_EQ(List(u"D:\\Profiles\\petra\\Documents", names), ERROR_SUCCESS);
  Become(kJan);
  EXPECT_EQ(List(u"D:\\Profiles\\petra\\Documents", names), ERROR_ACCESS_DENIED);
}

TEST_F(Profiles, AreNotMadeWithoutTheHiveOfTheDefaultProfile) {
  const std::u16string hive = u"C:\\Users\\Default\\NTUSER.DAT";
  const emulated::Account petra{u"WORKSTATION", u"petra", emulated::WithRid(emulated::MachineSid(*machine), 1003), 1};
  std::u16string folder;
  ASSERT_TRUE(DeleteFileW(hive.c_str()));
  EXPECT_EQ(emulated::CreateUserProfile(*machine, petra, folder), ERROR_FILE_NOT_FOUND);
  UniqueFile(CreateFileW(hive.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW, 0, nullptr)).reset();
  EXPECT_EQ(emulated::CreateUserProfile(*machine, petra, folder), 1009U) << "an empty file is no hive";
  EXPECT_FALSE(Exists(u"C:\\Users\\petra"));
}

TEST_F(Profiles, AreInUseWhileTheirUserIsLoggedOn) {
  const std::u16string classes = u"C:\\Users\\anna\\AppData\\Local\\Microsoft\\Windows\\UsrClass.dat";
  const std::u16string hive = u"C:\\Users\\anna\\NTUSER.DAT", loaded = std::u16string(u"HKU\\") + kAnna;
  const DWORD desktop = emulated::LogOn(*machine, kAnna);
  EXPECT_EQ(emulated::LogOn(*machine, kAnna), desktop) << "once is enough";
  EXPECT_EQ(OpenError(hive, GENERIC_READ, 0), ERROR_SHARING_VIOLATION);
  EXPECT_EQ(OpenError(classes, GENERIC_READ, 0), ERROR_SHARING_VIOLATION);
  const auto wallpaper = machine->registry().Query(loaded + u"\\Control Panel\\Desktop", u"WallPaper");
  ASSERT_TRUE(wallpaper);
  EXPECT_EQ(wallpaper->Text(), std::u16string(u"C:\\Users\\anna") + std::u16string(emulated::kOwnWallpaper));
  EXPECT_TRUE(Exists(wallpaper->Text()));
  EXPECT_TRUE(emulated::LogOff(*machine, kAnna));
  EXPECT_TRUE(machine->others.empty());
  EXPECT_FALSE(machine->registry().KeyExists(loaded));
  EXPECT_EQ(OpenError(hive, GENERIC_READ, 0), ERROR_SUCCESS);
  EXPECT_EQ(OpenError(classes, GENERIC_READ, 0), ERROR_SUCCESS);
}

TEST_F(Profiles, HavePicturesWhereTheRegistrySaysFromWindows8On) {
  const auto pictures = [](emulated::Machine& on, const std::u16string& sid = kAnna) {
    return on.registry().Values(std::u16string(u"HKLM\\SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\AccountPicture\\"
                                               u"Users\\") +
                                sid);
  };
  EXPECT_EQ(pictures(*machine).size(), 8U);
  for (const emulated::RegistryValue& picture : pictures(*machine)) EXPECT_TRUE(Exists(picture.Text()));
  // A new account's are where everybody's files are by then.
  const std::u16string list(emulated::kProfileList);
  machine->registry().SetText(list, u"Public", u"D:\\");
  const emulated::Account petra{u"WORKSTATION", u"petra", emulated::WithRid(emulated::MachineSid(*machine), 1003), 1};
  std::u16string folder;
  ASSERT_EQ(emulated::CreateUserProfile(*machine, petra, folder), 0U);
  EXPECT_EQ(pictures(*machine, emulated::SidToText(petra.sid)).size(), 8U);
  for (const emulated::RegistryValue& picture : pictures(*machine, emulated::SidToText(petra.sid)))
    EXPECT_TRUE(picture.Text().starts_with(u"D:\\AccountPictures\\") && Exists(picture.Text()));
  machine.reset();
  machine = test::InstalledMachine({.majorVersion = 6, .minorVersion = 1});
  EXPECT_TRUE(pictures(*machine).empty());
  EXPECT_FALSE(Exists(u"C:\\Users\\Public\\AccountPictures"));
}

TEST_F(Profiles, OfServicesAreWhereTheListSays) {
  emulated::Registry& registry = machine->registry();
  for (const std::u16string& sid : registry.SubKeys(emulated::kProfileList)) {
    const auto path = registry.Query(std::u16string(emulated::kProfileList) + u"\\" + sid, u"ProfileImagePath");
    const std::u16string folder = emulated::ExpandSystemVariables(registry, path->Text());
    EXPECT_TRUE(Exists(folder + u"\\NTUSER.DAT")) << emulated::Utf8(folder);
  }
}

// A workstation in a folder: its state and its images.
class ProfilesInAFolder : public Profiles {
 protected:
  ProfilesInAFolder() {
    for (const auto& [name, device] : machine->Snapshot()) device->SaveTo(folder / name);
    machine.reset();
  }

  std::unique_ptr<emulated::Workstation> Open() {
    auto station = emulated::Workstation::Open(folder.path(), error);
    EXPECT_TRUE(station) << error;
    return station;
  }

  test::TemporaryFolder folder;
  std::string error;
};

TEST_F(ProfilesInAFolder, AndTheAccountsOfDomainsAreSavedTogetherOrCanBeMadeAgain) {
  const emulated::DomainAccount maria{u"CORP", u"corp.example", u"maria",
                                      emulated::SidFromText(u"S-1-5-21-1-2-3-1101")};
  const emulated::Account account{maria.domain, maria.name, maria.sid, 1};
  const std::u16string key = std::u16string(emulated::kProfileList) + u"\\S-1-5-21-1-2-3-1101";
  std::u16string home;
  std::filesystem::create_directories(folder / "state.new" / "in the way");
  {
    const auto station = Open();
    station->state().domainAccounts.push_back(maria);
    ASSERT_EQ(emulated::CreateUserProfile(station->machine(), account, home), 0U);
    EXPECT_FALSE(station->Save(error)) << "the state cannot be written";
    const auto logOn = [](emulated::WorkstationState& state) { state.account = "user"; };
    EXPECT_FALSE(emulated::Workstation::ChangeState(folder.path(), logOn, error)) << "the folder is in use";
  }
  EXPECT_FALSE(Open()->machine().registry().KeyExists(key)) << "a profile of nobody's";
  std::filesystem::remove_all(folder / "state.new");
  // A run that ends between the two, and the next.
  {
    const auto station = Open();
    station->state().domainAccounts.push_back(maria);
    EXPECT_TRUE(station->SaveState(error)) << error;
  }
  const auto station = Open();
  EXPECT_EQ(station->machine().domainAccounts.size(), 1U);
  EXPECT_EQ(emulated::CreateUserProfile(station->machine(), account, home), 0U);
  EXPECT_TRUE(station->Save(error)) << error;
}

}  // namespace
