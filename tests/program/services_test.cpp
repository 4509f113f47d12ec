// Services, privileges and the version of Windows.
#include "program/everything.h"

namespace {

constexpr const char16_t* kProduct = u"QuillbayService";
constexpr auto kForEver = std::numeric_limits<std::uint64_t>::max();

class Probes : public test::Engine {
 protected:
  emulated::ServiceConfiguration Configuration() { return machine->services().Configuration(kProduct).value(); }
  std::u16string LastLine() const { return LogText().substr(LogText().rfind(u"] ") + 2); }
};

TEST_F(Probes, StartsTheProductsService) {
  const emulated::ServiceConfiguration before = Configuration();
  machine->services().SetState(kProduct, win32::SERVICE_STOPPED);
  machine->services().Behaviour(kProduct).startMilliseconds = 5000;
  ASSERT_TRUE(DisableQuillbayService());
  EXPECT_EQ(LastLine(), u"Service disabled successfully.\n");
  EXPECT_EQ(Configuration().start, win32::SERVICE_DEMAND_START);
  for (int run = 0; run < 2; ++run) {  // the second time it is running already
    EXPECT_TRUE(StartQuillbayService());
    EXPECT_EQ(Configuration().start, win32::SERVICE_AUTO_START);
    EXPECT_EQ(machine->sleptMilliseconds, 6000u);
  }
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
  machine->services().Behaviour(kProduct).startMilliseconds = kForEver;
  machine->gate.ResetCounts();
  const std::uint64_t slept = machine->sleptMilliseconds;
  EXPECT_FALSE(StartQuillbayService()) << "it never starts";
  EXPECT_EQ(machine->gate.Count("QueryServiceStatus"), 30u);
  EXPECT_EQ(machine->sleptMilliseconds, slept + 29u * 2000);

  for (const auto& [call, error, line] :
       {std::tuple("OpenSCManagerW", win32::ERROR_ACCESS_DENIED, u"OpenSCManager failed (5)\n"),
        {"OpenServiceW", win32::ERROR_SERVICE_DOES_NOT_EXIST, u"OpenService failed (1060)\n"},
        {"ChangeServiceConfigW", win32::ERROR_ACCESS_DENIED, u"ChangeServiceConfig failed (5)\n"}}) {
    machine->gate.FailCall(call, 1, error);
    EXPECT_FALSE(DisableQuillbayService());
    EXPECT_EQ(LastLine(), line);
  }
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
  EXPECT_FALSE(ControlServiceAndWait(u"Nobody", kStartService));
  EXPECT_FALSE(ControlServiceAndWait(nullptr, kStartService));
  EXPECT_FALSE(IsServiceRunning(nullptr));
}

TEST_F(Probes, TellsAdministratorsFromOthers) {
  const emulated::Sid user = emulated::SidFromText(u"S-1-5-21-1-2-3-1001");
  EXPECT_TRUE(IsUserAdministrator());
  EXPECT_TRUE(IsMemberOfAdministrators());
  for (const char* call : {"OpenThreadToken", "OpenProcessToken", "GetTokenInformation", "AllocateAndInitializeSid"}) {
    machine->gate.FailCall(call, 1, win32::ERROR_ACCESS_DENIED);
    EXPECT_FALSE(IsUserAdministrator()) << call;
  }
  for (const char* call : {"CheckTokenMembership", "AllocateAndInitializeSid"}) {
    machine->gate.FailCall(call, 1, win32::ERROR_ACCESS_DENIED);
    EXPECT_FALSE(IsMemberOfAdministrators());
  }
  machine->process.token = emulated::MakeFilteredAdministratorToken(user);
  EXPECT_TRUE(IsUserAdministrator());  // the group is listed, if only to deny
  EXPECT_FALSE(IsMemberOfAdministrators());
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
    EXPECT_FALSE(EnablePrivileges());
    EXPECT_FALSE(token.PrivilegeEnabled(u"SeBackupPrivilege"));
    machine->gate.ClearFailures();
  }
  EXPECT_EQ(EnablePrivilege(u"SeShutdownPrivilege"), PrivilegeResult::Enabled);
  EXPECT_TRUE(EnablePrivileges());
  for (const auto* name : {u"SeSecurityPrivilege", u"SeBackupPrivilege", u"SeRestorePrivilege", u"SeDebugPrivilege",
                           u"SeTakeOwnershipPrivilege", u"SeShutdownPrivilege"})
    EXPECT_TRUE(token.PrivilegeEnabled(name));
  EXPECT_EQ(EnablePrivilege(u"SeNoSuchPrivilege"), PrivilegeResult::NotFound);
  machine->gate.FailCall("OpenProcessToken", 1, win32::ERROR_ACCESS_DENIED);
  EXPECT_EQ(EnablePrivilege(u"SeBackupPrivilege"), PrivilegeResult::NotFound);
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
    EXPECT_EQ(GetWindowsVersionCode(), code) << major << '.' << minor;
    EXPECT_EQ(GetWindowsMajorVersion(), major);
    EXPECT_EQ(IsVistaOrLater(), vista);
    EXPECT_EQ(IsWindows8OrLater(), eight);
    EXPECT_EQ(IsWindows10(), ten);
    machine->platformId = 1;
    EXPECT_EQ(GetWindowsVersionCode(), otherCode) << major << '.' << minor;
    EXPECT_FALSE(IsWindows10());
    machine->platformId = win32::VER_PLATFORM_WIN32_NT;
  }
  machine->gate.FailCall("GetVersionExW", 1, win32::ERROR_INSUFFICIENT_BUFFER);
  EXPECT_TRUE(IsVistaOrLater());  // the plain form answers
  machine->versionQueryFails = true;
  EXPECT_FALSE(IsWindows10());
  EXPECT_EQ(GetWindowsVersionCode(), 0);
  EXPECT_EQ(GetWindowsMajorVersion(), 0u);
  EXPECT_EQ(machine->console, "");
  EXPECT_FALSE(IsVistaOrLater());
  EXPECT_FALSE(IsWindows8OrLater());
  EXPECT_EQ(machine->console,
            "Failed to get current OS version information.Failed to get current OS version information.");
}

}  // namespace
