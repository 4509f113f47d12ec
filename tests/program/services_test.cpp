// Services, privileges and the version of Windows.
#include <gtest/gtest.h>

#include <limits>

#include "probes/privileges.h"
#include "probes/services.h"
#include "probes/windows_version.h"
#include "report/log.h"
#include "support/program.h"
#include "win32/emulated/registry/registry.h"
#include "win32/emulated/registry/services.h"

namespace {

constexpr const char16_t* kProduct = u"QuillbayService";

class Probes : public ::testing::Test {
 protected:
  std::uint32_t StartType() {
    const auto value =
        machine->registry().Query(u"HKLM\\SYSTEM\\CurrentControlSet\\Services\\QuillbayService", u"Start");
    return value && value->data.size() == 4 ? emulated::LoadLittleEndian<std::uint32_t>(value->data, 0) : 0;
  }
  std::unique_ptr<emulated::Machine> machine = test::InstalledMachine();
};

TEST_F(Probes, StartsTheProductsService) {
  machine->services().SetState(kProduct, win32::SERVICE_STOPPED);
  machine->services().Behaviour(kProduct).startMilliseconds = 5000;
  ASSERT_TRUE(DisableQuillbayService());
  EXPECT_EQ(StartType(), win32::SERVICE_DEMAND_START);
  for (int run = 0; run < 2; ++run) {  // the second time it is running already
    EXPECT_TRUE(StartQuillbayService());
    EXPECT_EQ(StartType(), win32::SERVICE_AUTO_START);
    EXPECT_EQ(machine->sleptMilliseconds, 6000u);
  }
  machine->services().SetState(kProduct, win32::SERVICE_STOPPED);
  machine->services().Behaviour(kProduct).startMilliseconds = std::numeric_limits<std::uint64_t>::max();
  machine->gate.ResetCounts();
  EXPECT_FALSE(StartQuillbayService()) << "it never starts";
  EXPECT_EQ(machine->gate.Count("QueryServiceStatus"), 30u);
  EXPECT_EQ(machine->sleptMilliseconds, 6000u + 29u * 2000);
}

TEST_F(Probes, LogsWhyAServiceCannotBeChanged) {
  LogFile log;
  for (const auto& [call, error, line] :
       {std::tuple("OpenSCManagerW", win32::ERROR_ACCESS_DENIED, "OpenSCManager failed (5)\n"),
        {"OpenServiceW", win32::ERROR_SERVICE_DOES_NOT_EXIST, "OpenService failed (1060)\n"},
        {"ChangeServiceConfigW", win32::ERROR_ACCESS_DENIED, "ChangeServiceConfig failed (5)\n"}}) {
    machine->gate.FailCall(call, 1, error);
    EXPECT_FALSE(DisableQuillbayService());
    std::string text = test::LogBytes(*machine);
    std::erase(text, '\0');
    EXPECT_NE(text.find(line), std::string::npos) << line;
  }
}

TEST_F(Probes, StopsAndStartsAnyService) {
  machine->services().Install(u"Other", u"C:\\Program Files\\Velmora\\Quillbay\\QuillbayService.exe",
                              win32::SERVICE_DEMAND_START);
  machine->services().Behaviour(u"Other") = {
      .startMilliseconds = 2500, .stopMilliseconds = 1500, .startError = 0, .acceptsStop = true};
  win32::SetLastError(win32::ERROR_ACCESS_DENIED);  // an older error is not this call's
  EXPECT_TRUE(ControlServiceAndWait(u"Other", kStartService));
  EXPECT_TRUE(IsServiceRunning(u"other"));
  EXPECT_EQ(machine->sleptMilliseconds, 3000u);
  EXPECT_FALSE(ControlServiceAndWait(u"Other", kStartService));  // running already
  EXPECT_TRUE(ControlServiceAndWait(u"Other", win32::SERVICE_CONTROL_STOP));
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
  for (const char* call : {"OpenThreadToken", "GetTokenInformation", "AllocateAndInitializeSid"}) {
    machine->gate.FailCall(call, 1, win32::ERROR_ACCESS_DENIED);
    EXPECT_FALSE(IsUserAdministrator()) << call;
  }
  machine->gate.FailCall("CheckTokenMembership", 1, win32::ERROR_ACCESS_DENIED);
  EXPECT_FALSE(IsMemberOfAdministrators());
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
  const emulated::Token& token = *machine->process.token;
  machine->gate.FailCall("LookupPrivilegeValueW", 5, win32::ERROR_NO_SUCH_PRIVILEGE);
  EXPECT_FALSE(EnablePrivileges());
  EXPECT_FALSE(token.PrivilegeEnabled(u"SeBackupPrivilege"));
  EXPECT_TRUE(EnablePrivileges());
  for (const auto* name : {u"SeSecurityPrivilege", u"SeBackupPrivilege", u"SeRestorePrivilege", u"SeDebugPrivilege",
                           u"SeTakeOwnershipPrivilege"})
    EXPECT_TRUE(token.PrivilegeEnabled(name));
  machine->process.token = emulated::MakeUserToken(emulated::SidFromText(u"S-1-5-21-1-2-3-1001"));
  EXPECT_TRUE(EnablePrivileges());  // what is not held does not make it fail
}

TEST_F(Probes, NamesTheVersionOfWindows) {
  const std::tuple<win32::DWORD, win32::DWORD, int, bool, bool, bool> cases[] = {
      {5, 0, 4, false, false, false}, {5, 1, 3, false, false, false}, {5, 2, 2, false, false, false},
      {6, 0, 1, true, false, false},  {6, 1, 5, true, false, false},  {6, 2, 6, true, true, false},
      {6, 3, 7, true, true, false},   {10, 0, 7, true, true, true},   {7, 0, 0, true, true, false},
      {11, 0, 0, true, true, false}};
  for (const auto& [major, minor, code, vista, eight, ten] : cases) {
    machine->majorVersion = major;
    machine->minorVersion = minor;
    EXPECT_EQ(GetWindowsVersionCode(), code) << major << '.' << minor;
    EXPECT_EQ(IsVistaOrLater(), vista);
    EXPECT_EQ(IsWindows8OrLater(), eight);
    EXPECT_EQ(IsWindows10(), ten);
  }
  machine->gate.FailCall("GetVersionExW", 1, win32::ERROR_INSUFFICIENT_BUFFER);
  EXPECT_TRUE(IsVistaOrLater());  // the plain form answers
  machine->versionQueryFails = true;
  EXPECT_FALSE(IsWindows10());
  EXPECT_EQ(GetWindowsVersionCode(), 0);
  EXPECT_EQ(machine->console, "");
  EXPECT_FALSE(IsVistaOrLater());
  EXPECT_FALSE(IsWindows8OrLater());
  EXPECT_EQ(machine->console,
            "Failed to get current OS version information.Failed to get current OS version information.");
}

}  // namespace
