// The profiles of an installed machine: who gets in, what a program sees of the compatibility links, and what a first
// logon and a logon make.
#include "emulated/on_machine.h"
#include "support/images.h"
#include "win32/emulated/registry/system_hives.h"
#include "win32/emulated/setup/first_logon.h"
#include "win32/emulated/setup/user_profile.h"
#include "win32/emulated/system/logon.h"
#include "win32/emulated/workstation.h"

namespace {

using namespace contract;
using namespace win32;

constexpr const char16_t* kAnna = u"S-1-5-21-1004336348-1177238915-682003330-1001";
constexpr const char16_t* kJan = u"S-1-5-21-1004336348-1177238915-682003330-1002";
const std::u16string kList(emulated::kProfileList);

class Profiles : public test::OnWindows {
 protected:
  static DWORD ErrorIn(const std::u16string& folder) { return FindError(folder + u"\\*"); }

  // Calls `visit` with every link below a folder.
  template <typename Visit>
  static void ForEachLink(const std::u16string& folder, const Visit& visit) {
    for (const std::u16string& name : contract::Find(folder + u"\\*")) {
      const std::u16string path = folder + u"\\" + name;
      const DWORD attributes = name == u"." || name == u".." ? 0 : GetFileAttributesW(path.c_str());
      if (attributes & FILE_ATTRIBUTE_REPARSE_POINT)
        visit(path);
      else if (attributes & FILE_ATTRIBUTE_DIRECTORY)
        ForEachLink(path, visit);
    }
  }
  emulated::Location Resolved(const std::u16string& path) {
    emulated::Location target;
    EXPECT_EQ(machine->files().Resolve(path, true, target), 0U);
    EXPECT_NE(target.file, 0U) << emulated::Utf8(path);
    return target;
  }

  emulated::Account Petra() {
    return {u"WORKSTATION", u"petra", emulated::WithRid(emulated::MachineSid(*machine), 1003), 1};
  }
  std::u16string home;  // of the last profile that was made
};

TEST_F(Profiles, HaveCompatibilityLinksThatNobodyListsButThroughWhichNamesAreReached) {
  const std::u16string link = u"C:\\Users\\anna\\Application Data";
  constexpr DWORD kLink = FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM | FILE_ATTRIBUTE_REPARSE_POINT;
  EXPECT_EQ(GetFileAttributesW(link.c_str()) & kLink, kLink);
  const auto error = [&](DWORD access, DWORD flags = kOpenLink) {
    return OpenError(link, access, kShareAll, OPEN_EXISTING, flags);
  };
  EXPECT_EQ(error(FILE_READ_DATA), ERROR_ACCESS_DENIED);
  EXPECT_EQ(error(GENERIC_READ), ERROR_ACCESS_DENIED);
  EXPECT_EQ(error(FILE_READ_ATTRIBUTES | DELETE), ERROR_SUCCESS);
  EXPECT_EQ(ErrorIn(link), ERROR_ACCESS_DENIED) << "nor what is behind it";
  EXPECT_EQ(error(GENERIC_READ, FILE_FLAG_BACKUP_SEMANTICS), ERROR_ACCESS_DENIED);
  EXPECT_TRUE(Exists(link + u"\\Microsoft\\Windows\\SendTo"));
  // A backup reads it, when it may.
  Enable(u"SeBackupPrivilege");
  EXPECT_EQ(error(GENERIC_READ), ERROR_SUCCESS);
}

TEST_F(Profiles, HaveLinksThatAllLeadToFoldersOfTheSameProfile) {
  for (const auto& [profile, expected] : {std::pair{u"anna", 16}, {u"Default", 16}, {u"Public", 3}}) {
    int links = 0;
    const std::u16string folder = std::u16string(u"C:\\Users\\") + profile;
    ForEachLink(folder, [&](const std::u16string& path) {
      ++links;
      const emulated::Location target = Resolved(path);
      const std::u16string leads = u"C:" + machine->files().PathInVolume(*target.volume, target.file);
      EXPECT_TRUE(leads.starts_with(folder + u"\\")) << emulated::Utf8(path + u" to " + leads);
    });
    EXPECT_EQ(links, expected) << emulated::Utf8(folder);
  }
  // Of services they are where the list says.
  for (const std::u16string& sid : registry().SubKeys(kList)) {
    const auto path = registry().Query(kList + u"\\" + sid, u"ProfileImagePath");
    EXPECT_TRUE(Exists(emulated::ExpandSystemVariables(registry(), path->Text()) + u"\\NTUSER.DAT"));
  }
}

TEST_F(Profiles, LetOnlyTheirUserTheSystemAndAdministratorsIn) {
  EXPECT_EQ(ErrorIn(u"C:\\Users\\anna\\Documents"), ERROR_SUCCESS) << "an administrator";
  Become(kAnna);
  EXPECT_EQ(ErrorIn(u"C:\\Users\\anna\\Documents"), ERROR_SUCCESS);
  EXPECT_EQ(ErrorIn(u"C:\\Users\\Public\\Documents"), ERROR_SUCCESS);
  EXPECT_EQ(ErrorIn(u"C:\\Users\\jan"), ERROR_ACCESS_DENIED);
  EXPECT_EQ(OpenError(u"C:\\Users\\jan\\NTUSER.DAT", GENERIC_READ), ERROR_ACCESS_DENIED);
}

TEST_F(Profiles, OfAFirstLogonAreCopiesOfTheDefaultProfileWhereTheListSays) {
  MakeDirectory(u"D:\\Profiles");
  Put(u"C:\\Users\\Default\\Desktop\\welcome.txt");
  registry().SetText(kList, u"ProfilesDirectory", u"D:\\Profiles", REG_EXPAND_SZ);
  // What is set for new users is in the default profile's hive; one key of it is for administrators alone.
  const std::u16string explorer = u"\\Software\\Microsoft\\Windows\\CurrentVersion\\Explorer\\", made = u"HKU\\default",
                       closed = u"\\Software\\Contoso\\Closed";
  ASSERT_EQ(registry().LoadHive(made, u"C:\\Users\\Default\\NTUSER.DAT"), 0U);
  registry().SetText(made + closed, u"Greeting", u"hello");
  registry().SetSecurity(made + closed, *emulated::DescriptorFromText(u"O:BAG:SYD:PAI(A;;KA;;;BA)"));
  registry().SetText(made + explorer + u"User Shell Folders", u"Personal", u"%USERPROFILE%\\Papers", REG_EXPAND_SZ);
  registry().SetText(made + explorer + u"User Shell Folders", u"My Music", u"D:\\Music", REG_EXPAND_SZ);
  registry().SetText(made + explorer + u"Shell Folders", u"My Music", u"D:\\Music");
  ASSERT_EQ(registry().UnloadHive(made), 0U);

  ASSERT_EQ(emulated::CreateUserProfile(*machine, Petra(), home), 0U);
  EXPECT_EQ(emulated::CreateUserProfile(*machine, Petra(), home), ERROR_ALREADY_EXISTS);
  EXPECT_EQ(home, u"D:\\Profiles\\petra");
  const std::u16string sid = emulated::SidToText(Petra().sid), root = u"HKU\\" + sid;
  EXPECT_EQ(registry().Query(kList + u"\\" + sid, u"ProfileImagePath")->Text(), home);
  EXPECT_TRUE(Exists(home + u"\\Desktop\\welcome.txt") && Exists(home + u"\\My Documents\\My Music"));
  EXPECT_EQ(Resolved(home + u"\\Start Menu").volume->letter, u'D');
  // Another account of that name.
  const emulated::Account other{u"CORP", u"petra", emulated::SidFromText(u"S-1-5-21-1-2-3-1101"), 1};
  ASSERT_EQ(emulated::CreateUserProfile(*machine, other, home), 0U);
  EXPECT_EQ(home, u"D:\\Profiles\\petra.CORP");
  // It is hers: a logon loads the hive, another user is kept out.
  emulated::LogOn(*machine, sid);
  EXPECT_EQ(registry().Query(root + closed, u"Greeting")->Text(), u"hello");
  for (const auto& [name, path] : {std::pair{u"Desktop", u"D:\\Profiles\\petra\\Desktop"},
                                   {u"Personal", u"D:\\Profiles\\petra\\Papers"},
                                   {u"My Music", u"D:\\Music"}})
    EXPECT_EQ(registry().Query(root + explorer + u"Shell Folders", name)->Text(), path);
  for (const auto& [key, lets] :
       {std::pair{root, true}, {root + u"\\Control Panel\\Desktop", true}, {root + closed, false}})
    EXPECT_EQ(emulated::DescriptorToText(*registry().Security(key), DACL_SECURITY_INFORMATION).find(u";KA;;;" + sid) !=
                  std::u16string::npos,
              lets)
        << emulated::Utf8(key);
  EXPECT_TRUE(registry().KeyExists(root + u"_Classes"));
  Become(sid);
  EXPECT_EQ(ErrorIn(u"D:\\Profiles\\petra\\Documents"), ERROR_SUCCESS);
  Become(kJan);
  EXPECT_EQ(ErrorIn(u"D:\\Profiles\\petra\\Documents"), ERROR_ACCESS_DENIED);
}

TEST_F(Profiles, AreNotMadeWithoutTheHiveOfTheDefaultProfile) {
  const std::u16string hive = u"C:\\Users\\Default\\NTUSER.DAT";
  ASSERT_TRUE(DeleteFileW(hive.c_str()));
  EXPECT_EQ(emulated::CreateUserProfile(*machine, Petra(), home), ERROR_FILE_NOT_FOUND);
  Put(hive, "");
  EXPECT_EQ(emulated::CreateUserProfile(*machine, Petra(), home), 1009U) << "an empty file is no hive";
  EXPECT_FALSE(Exists(u"C:\\Users\\petra"));
}

TEST_F(Profiles, AreInUseWhileTheirUserIsLoggedOn) {
  const std::u16string hives[] = {u"C:\\Users\\anna\\NTUSER.DAT",
                                  u"C:\\Users\\anna\\AppData\\Local\\Microsoft\\Windows\\UsrClass.dat"};
  const std::u16string loaded = std::u16string(u"HKU\\") + kAnna;
  const DWORD desktop = emulated::LogOn(*machine, kAnna);
  EXPECT_EQ(emulated::LogOn(*machine, kAnna), desktop) << "once is enough";
  for (const auto& hive : hives) EXPECT_EQ(OpenError(hive, GENERIC_READ), ERROR_SHARING_VIOLATION);
  const auto wallpaper = registry().Query(loaded + u"\\Control Panel\\Desktop", u"WallPaper");
  ASSERT_TRUE(wallpaper);
  EXPECT_EQ(wallpaper->Text(), u"C:\\Users\\anna" + std::u16string(emulated::kOwnWallpaper));
  EXPECT_TRUE(Exists(wallpaper->Text()));
  EXPECT_TRUE(emulated::LogOff(*machine, kAnna));
  EXPECT_TRUE(machine->others.empty());
  EXPECT_FALSE(registry().KeyExists(loaded));
  for (const auto& hive : hives) EXPECT_EQ(OpenError(hive, GENERIC_READ), ERROR_SUCCESS);
}

// A workstation in a folder: its state and its images are saved together, or what is half can be made again.
TEST_F(Profiles, OfDomainAccountsAreNobodysWithoutTheirAccounts) {
  const test::TemporaryFolder folder;
  for (const auto& [name, device] : machine->Snapshot()) device->SaveTo(folder / name);
  machine.reset();
  std::string error;
  const emulated::DomainAccount maria{u"CORP", u"corp.example", u"maria",
                                      emulated::SidFromText(u"S-1-5-21-1-2-3-1101")};
  const emulated::Account account{maria.domain, maria.name, maria.sid, 1};
  std::filesystem::create_directories(folder / "state.new" / "in the way");
  {
    const auto station = emulated::Workstation::Open(folder.path(), error);
    ASSERT_TRUE(station) << error;
    station->state().domainAccounts.push_back(maria);
    ASSERT_EQ(emulated::CreateUserProfile(station->machine(), account, home), 0U);
    EXPECT_FALSE(station->Save(error)) << "the state cannot be written";
    const auto logOn = [](emulated::WorkstationState& state) { state.account = "user"; };
    EXPECT_FALSE(emulated::Workstation::ChangeState(folder.path(), logOn, error)) << "the folder is in use";
  }
  std::filesystem::remove_all(folder / "state.new");
  {  // a run that ends between the two, and the next
    const auto station = emulated::Workstation::Open(folder.path(), error);
    EXPECT_FALSE(station->machine().registry().KeyExists(kList + u"\\S-1-5-21-1-2-3-1101")) << "a profile of nobody's";
    station->state().domainAccounts.push_back(maria);
    EXPECT_TRUE(station->SaveState(error)) << error;
  }
  const auto station = emulated::Workstation::Open(folder.path(), error);
  EXPECT_EQ(station->machine().domainAccounts.size(), 1U);
  EXPECT_EQ(emulated::CreateUserProfile(station->machine(), account, home), 0U);
  EXPECT_TRUE(station->Save(error)) << error;
}

}  // namespace
