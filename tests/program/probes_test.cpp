// Services, privileges, the version of Windows, and Keelroom: its volumes and its driver.
#include "program/everything.h"

namespace {

using emulated::Bytes;
using Drives = std::vector<std::u16string>;

constexpr const char16_t* kProduct = u"QuillbayService";
constexpr const char16_t* kDriver = u"C:\\Windows\\System32\\drivers\\Keeldisk.sys";

class Probes : public test::Engine {
 protected:
  emulated::ServiceConfiguration Configuration() { return machine->services().Configuration(kProduct).value(); }
  std::u16string LastLine() const { return LogText().substr(LogText().rfind(u"] ") + 2); }
  // What the question, that is answered with 1, answers when each of its calls is refused in turn.
  template <typename Question>
  std::string AnswersWhenRefused(Question question) {
    std::vector<std::string> calls;
    std::string answers;
    machine->gate.Observe([&](const char* name, std::uint64_t) { calls.emplace_back(name); });
    EXPECT_EQ(question(), 1);
    machine->gate.Observe({});
    for (std::size_t call = 0; call < calls.size(); ++call) {
      if (calls[call] == "RegCloseKey") continue;
      machine->gate.FailCall(call + 1, win32::ERROR_ACCESS_DENIED);
      answers += question() ? '.' : 'x';
      machine->gate.ClearFailures();
    }
    return answers;
  }
};

TEST_F(Probes, StartsTheProductsService) {
  machine->registry().SetDword(u"HKLM\\SYSTEM\\CurrentControlSet\\Services\\QuillbayService", u"Type", 0x110);
  const emulated::ServiceConfiguration before = Configuration();
  machine->services().SetState(kProduct, win32::SERVICE_STOPPED);
  machine->services().Behaviour(kProduct).startMilliseconds = 5000;
  ASSERT_TRUE(DisableQuillbayService());
  EXPECT_EQ(LastLine(), u"Service disabled successfully.\n");
  EXPECT_TRUE(StartQuillbayService() && StartQuillbayService());  // the second time it is running already
  EXPECT_EQ(Configuration().start, win32::SERVICE_AUTO_START);
  EXPECT_EQ(machine->sleptMilliseconds, 6000u);
  const auto others = [](const emulated::ServiceConfiguration& all) {
    return std::tie(all.type, all.errorControl, all.imagePath, all.account, all.displayName, all.dependencies);
  };
  EXPECT_EQ(others(Configuration()), others(before));
  RetireQuillbayService();
  EXPECT_EQ(Configuration().start, win32::SERVICE_DEMAND_START);
  EXPECT_EQ(machine->services().State(kProduct), win32::SERVICE_STOPPED);

  for (const auto* call :
       {"OpenSCManagerW", "OpenServiceW", "ChangeServiceConfigW", "StartServiceW", "QueryServiceStatus"}) {
    machine->gate.FailCall(call, 1, win32::ERROR_ACCESS_DENIED);
    EXPECT_FALSE(StartQuillbayService()) << call;
  }
  machine->gate.ClearFailures();
  machine->services().SetState(kProduct, win32::SERVICE_STOPPED);
  machine->services().Behaviour(kProduct).startMilliseconds = std::numeric_limits<std::uint64_t>::max();
  EXPECT_FALSE(StartQuillbayService()) << "it never starts";
  EXPECT_EQ(machine->sleptMilliseconds, 7000u + 29 * 2000);
  machine->gate.FailCall("ChangeServiceConfigW", 1, win32::ERROR_ACCESS_DENIED);
  EXPECT_FALSE(DisableQuillbayService());
  EXPECT_EQ(LastLine(), u"ChangeServiceConfig failed (5)\n");
}

TEST_F(Probes, StopsAndStartsAnyService) {
  machine->services().Install(u"Other", u"C:\\Program Files\\Velmora\\Quillbay\\QuillbayService.exe",
                              win32::SERVICE_DEMAND_START);
  machine->services().Behaviour(u"Other") = {.startMilliseconds = 2500, .stopMilliseconds = 1500};
  win32::SetLastError(win32::ERROR_ACCESS_DENIED);  // an older error is not this call's
  EXPECT_FALSE(StopServiceIfRunning(u"Other"));
  EXPECT_TRUE(ControlServiceAndWait(u"Other", kStartService));
  EXPECT_TRUE(IsServiceRunning(u"other"));
  EXPECT_EQ(machine->sleptMilliseconds, 3000u);
  EXPECT_FALSE(ControlServiceAndWait(u"Other", kStartService));  // running already
  for (const auto* call : {"OpenSCManagerW", "OpenServiceW", "QueryServiceStatus"}) {
    machine->gate.FailCall(call, 1, win32::ERROR_ACCESS_DENIED);
    EXPECT_FALSE(IsServiceRunning(u"Other")) << call;
  }
  EXPECT_TRUE(StopServiceIfRunning(u"Other"));
  EXPECT_FALSE(IsServiceRunning(u"Other"));
  EXPECT_EQ(machine->sleptMilliseconds, 5000u);
  for (const auto* none : {u"Nobody", static_cast<const char16_t*>(nullptr)})
    EXPECT_FALSE(ControlServiceAndWait(none, kStartService) || IsServiceRunning(none));
}

TEST_F(Probes, TellsAdministratorsFromOthers) {
  const emulated::Sid user = emulated::SidFromText(u"S-1-5-21-1-2-3-1001");
  EXPECT_TRUE(IsUserAdministrator() && IsMemberOfAdministrators());
  for (const char* call : {"OpenThreadToken", "OpenProcessToken", "GetTokenInformation", "AllocateAndInitializeSid"}) {
    machine->gate.FailCall(call, 1, win32::ERROR_ACCESS_DENIED);
    EXPECT_FALSE(IsUserAdministrator()) << call;
  }
  machine->gate.FailCall("CheckTokenMembership", 1, win32::ERROR_ACCESS_DENIED);
  EXPECT_FALSE(IsMemberOfAdministrators());
  machine->process.token = emulated::MakeFilteredAdministratorToken(user);
  EXPECT_TRUE(IsUserAdministrator() && !IsMemberOfAdministrators());  // the group is listed, if only to deny
  machine->process.token = emulated::MakeUserToken(user);
  EXPECT_FALSE(IsUserAdministrator());
  machine->threadToken = emulated::MakeAdministratorToken(user);
  machine->threadToken->impersonation = true;
  EXPECT_TRUE(IsUserAdministrator());  // the thread's token is asked first
}

TEST_F(Probes, EnablesAllPrivilegesAtOnceOrNone) {
  const emulated::Sid user = emulated::SidFromText(u"S-1-5-21-1-2-3-1001");
  machine->process.token = emulated::MakeAdministratorToken(user);
  const emulated::Token& token = *machine->process.token;
  for (const auto& [call, nth] :
       {std::pair("OpenProcessToken", 1u), {"LookupPrivilegeValueW", 5u}, {"AdjustTokenPrivileges", 1u}}) {
    machine->gate.FailCall(call, nth, win32::ERROR_NO_SUCH_PRIVILEGE);
    EXPECT_FALSE(EnablePrivileges() || token.PrivilegeEnabled(u"SeBackupPrivilege"));
    machine->gate.ClearFailures();
  }
  EXPECT_EQ(EnablePrivilege(u"SeShutdownPrivilege"), PrivilegeResult::Enabled);
  EXPECT_TRUE(EnablePrivileges());
  for (const auto* name : {u"SeSecurityPrivilege", u"SeBackupPrivilege", u"SeRestorePrivilege", u"SeDebugPrivilege",
                           u"SeTakeOwnershipPrivilege", u"SeShutdownPrivilege"})
    EXPECT_TRUE(token.PrivilegeEnabled(name));
  EXPECT_EQ(EnablePrivilege(u"SeNoSuchPrivilege"), PrivilegeResult::NotFound);
  machine->gate.FailCall("AdjustTokenPrivileges", 1, win32::ERROR_ACCESS_DENIED);
  EXPECT_EQ(EnablePrivilege(u"SeBackupPrivilege"), PrivilegeResult::NotAdjusted);
  machine->process.token = emulated::MakeUserToken(user);
  EXPECT_TRUE(EnablePrivileges());  // what is not held does not make it fail
}

TEST_F(Probes, NamesTheVersionOfWindows) {
  const std::tuple<win32::DWORD, win32::DWORD, int, int, bool, bool, bool> cases[] = {
      {5, 0, 4, 0, false, false, false}, {5, 1, 3, 0, false, false, false}, {5, 2, 2, 0, false, false, false},
      {6, 0, 1, 8, true, false, false},  {6, 1, 5, 9, true, false, false},  {6, 2, 6, 10, true, true, false},
      {6, 3, 7, 11, true, true, false},  {10, 0, 7, 0, true, true, true},   {10, 1, 0, 0, true, true, false},
      {7, 0, 0, 0, true, true, false},   {11, 0, 0, 0, true, true, false}};
  for (const auto& [major, minor, code, otherCode, vista, eight, ten] : cases) {
    machine->majorVersion = major;
    machine->minorVersion = minor;
    EXPECT_EQ(std::tuple(GetWindowsVersionCode(), IsVistaOrLater(), IsWindows8OrLater(), IsWindows10()),
              std::tuple(code, vista, eight, ten))
        << major << '.' << minor;
    EXPECT_EQ(GetWindowsMajorVersion(), major);
    machine->platformId = 1;
    EXPECT_EQ(GetWindowsVersionCode(), otherCode) << major << '.' << minor;
    EXPECT_FALSE(IsWindows10());
    machine->platformId = win32::VER_PLATFORM_WIN32_NT;
  }
  machine->gate.FailCall("GetVersionExW", 1, win32::ERROR_INSUFFICIENT_BUFFER);
  EXPECT_TRUE(IsVistaOrLater());  // the plain form answers
  machine->versionQueryFails = true;
  EXPECT_FALSE(IsWindows10() || GetWindowsVersionCode() != 0 || GetWindowsMajorVersion() != 0);
  EXPECT_EQ(machine->console, "");
  EXPECT_FALSE(IsVistaOrLater() || IsWindows8OrLater());
  EXPECT_EQ(machine->console,
            "Failed to get current OS version information.Failed to get current OS version information.");
}

TEST_F(Probes, KnowsKeelroomsDrives) {
  const std::u16string parameters = u"HKLM\\SYSTEM\\CurrentControlSet\\Services\\Keeldisk\\Parameters";
  for (char16_t letter = u'A'; letter <= u'Z'; ++letter) EXPECT_FALSE(IsKeelroomDrive(letter));
  machine->registry().CreateKey(parameters);
  Drives drives{u"an old answer"};
  EXPECT_FALSE(ReadKeelroomVolumes(drives) || !drives.empty());
  test::AddKeelroomVolume(*machine, u"Volume2", u"T:");
  EXPECT_EQ(AnswersWhenRefused([] { return IsKeelroomDrive(u'T'); }), "xxx.xx......")
      << "the keys, and the two questions for MountAs";
  test::AddKeelroomVolume(*machine, u"Volume10", u"k:");
  machine->registry().SetDword(parameters + u"\\Volume1", u"Size", 100);  // mounted nowhere
  EXPECT_TRUE(ReadKeelroomVolumes(drives) && drives == Drives({u"", u"k:", u"T:"}));
  for (const char16_t letter : {u'T', u't', u'K', u'k'}) EXPECT_TRUE(IsKeelroomDrive(letter));
  for (const char16_t letter : {u'S', u'\\', u':', u'\0', u'\u212A'}) EXPECT_FALSE(IsKeelroomDrive(letter));
  // Whatever its type, with half a terminator, and beside a number that is too long.
  machine->registry().Set(parameters + u"\\Volume1", u"Extents", win32::REG_BINARY, Bytes(4096, 0xFF));
  machine->registry().Set(parameters + u"\\Volume1", u"MountAs", win32::REG_BINARY, Bytes{'S', 0, ':', 0, 0});
  EXPECT_TRUE(ReadKeelroomVolumes(drives) && drives == Drives({u"S:", u"k:", u"T:"}));
}

TEST_F(Probes, TellsKeelroomsOldDriversFromNewOnes) {
  FileVersionRecord record;
  EXPECT_EQ(IsNewKeelroomVersion(), 0);
  EXPECT_EQ(LogText(), u"") << "no driver is an old one";
  for (const auto& [driver, text, isNew] : {std::tuple("none", std::u16string(), 0),
                                            {"8.32", u"8.32.9.9", 0},
                                            {"8.33", u"8.33.0.0", 1},
                                            {"9.0", u"9.0.0.0", 1},
                                            {"7.99", u"7.99.1.2", 0}}) {
    test::InstallKeeldisk(*machine, driver);
    EXPECT_EQ(IsNewKeelroomVersion(), isNew) << driver;
    EXPECT_EQ(LastLine(),
              u"#ERROR: Failed to find the version of Keeldisk driver at C:\\Windows\\system32\\drivers\\Keeldisk.sys");
    EXPECT_EQ(GetFileVersionRecord(kDriver, record), text.empty() ? 0 : 1);
    EXPECT_EQ(record.text, text);
  }
  EXPECT_EQ(std::ranges::count(LogText(), u'['), 2) << "only the first one has no version";
  EXPECT_TRUE(record.major == 7 && record.minor == 99 && record.build == 1 && record.revision == 2);
  EXPECT_EQ(record.majorText + record.minorText + record.buildText + record.revisionText, u"79912");
  test::InstallKeeldisk(*machine, "9.0");
  EXPECT_EQ(AnswersWhenRefused(IsNewKeelroomVersion), "xxxxx");
}

TEST_F(Probes, ReadsNoVersionThatIsNotWhollyThere) {
  const Bytes whole = test::KeeldiskDriver("9.0"), signature{0xBD, 0x04, 0xEF, 0xFE};
  const auto fixed = std::search(whole.begin(), whole.end(), signature.begin(), signature.end());
  ASSERT_NE(fixed, whole.end());
  const auto hasVersion = [&](const Bytes& driver) {
    test::PutKeeldisk(*machine, driver);
    FileVersionRecord record;
    return GetFileVersionRecord(kDriver, record) == 1;
  };
  for (auto end = whole.begin(); end < fixed + 52; end += std::min<std::ptrdiff_t>(61, whole.end() - end))
    EXPECT_FALSE(hasVersion(Bytes(whole.begin(), end))) << end - whole.begin();
  for (const int offset : {-40, -38})  // the length of its block, and of its value
    for (const unsigned length : {0u, 5u, 51u, 53u, 91u, 0xFFFFu}) {
      Bytes driver = whole;
      std::memcpy(&driver[static_cast<std::size_t>(fixed - whole.begin() + offset)], &length, 2);
      EXPECT_FALSE(hasVersion(driver)) << offset << ' ' << length;
    }
}

}  // namespace
