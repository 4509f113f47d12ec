// The service control manager.
#include <gtest/gtest.h>

#include "support/installed_machine.h"
#include "win32/emulated/registry/registry.h"
#include "win32/emulated/registry/services.h"
#include "win32/handle.h"

namespace {

using namespace win32;

constexpr std::u16string_view kServices = u"HKLM\\SYSTEM\\CurrentControlSet\\Services\\";
constexpr DWORD kDuplicateServiceName = 1078, kDependencyFailed = 1068, kDependencyDeleted = 1075,
                kDependentsRunning = 1051, kCircular = 1059;

class Services : public ::testing::Test {
 protected:
  Services() : machine(test::InstalledMachine({.product = false})) {
    machine->services().Install(u"Probe", u"%SystemRoot%\\system32\\svchost.exe -k probe", SERVICE_DEMAND_START);
  }

  emulated::ServiceManager& services() { return machine->services(); }
  UniqueService Open(const char16_t* name, DWORD access = SERVICE_ALL_ACCESS) {
    const UniqueService manager(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT));
    EXPECT_TRUE(manager);
    return UniqueService(OpenServiceW(manager.get(), name, access));
  }
  // 0 or the last error.
  DWORD Start(const char16_t* name) {
    return StartServiceW(Open(name).get(), 0, nullptr) ? ERROR_SUCCESS : GetLastError();
  }
  DWORD Stop(const char16_t* name, SERVICE_STATUS* status = nullptr) {
    SERVICE_STATUS ignored{};
    return ControlService(Open(name).get(), SERVICE_CONTROL_STOP, status ? status : &ignored) ? ERROR_SUCCESS
                                                                                              : GetLastError();
  }
  DWORD State(const char16_t* name) {
    SERVICE_STATUS status{};
    EXPECT_TRUE(QueryServiceStatus(Open(name).get(), &status));
    return status.dwCurrentState;
  }
  DWORD ChangeStart(SC_HANDLE service, DWORD start) {
    return ChangeServiceConfigW(service, SERVICE_NO_CHANGE, start, SERVICE_NO_CHANGE, nullptr, nullptr, nullptr,
                                nullptr, nullptr, nullptr, nullptr)
               ? ERROR_SUCCESS
               : GetLastError();
  }
  void DependOn(std::u16string_view service, std::u16string_view needed) {
    machine->registry().Set(std::u16string(kServices) + std::u16string(service), u"DependOnService", REG_MULTI_SZ,
                            emulated::RegistryMultiText({std::u16string(needed)}));
  }

  std::unique_ptr<emulated::Machine> machine;
};

TEST_F(Services, AutomaticServicesRunAfterAStart) {
  services().Install(u"Other", u"C:\\Windows\\System32\\svchost.exe", SERVICE_AUTO_START);
  machine = test::BootFrom(machine->Snapshot());
  EXPECT_EQ(State(u"Other"), SERVICE_RUNNING);
  EXPECT_EQ(State(u"LanmanServer"), SERVICE_RUNNING);
  EXPECT_EQ(State(u"Probe"), SERVICE_STOPPED);
}

TEST_F(Services, OpeningTellsWhatIsWrong) {
  EXPECT_EQ(OpenSCManagerW(nullptr, u"nonsense", SC_MANAGER_CONNECT), nullptr);
  EXPECT_EQ(GetLastError(), ERROR_INVALID_NAME);
  EXPECT_EQ(OpenSCManagerW(nullptr, u"ServicesFailed", SC_MANAGER_CONNECT), nullptr);
  EXPECT_EQ(GetLastError(), ERROR_DATABASE_DOES_NOT_EXIST);
  const UniqueService manager(OpenSCManagerW(u"", u"ServicesActive", GENERIC_READ));
  ASSERT_TRUE(manager);
  const auto open = [&](SC_HANDLE from, const char16_t* name) {
    EXPECT_EQ(OpenServiceW(from, name, SERVICE_QUERY_STATUS), nullptr);
    return GetLastError();
  };
  EXPECT_EQ(open(manager.get(), u"none"), ERROR_SERVICE_DOES_NOT_EXIST);
  EXPECT_EQ(open(manager.get(), u"Windows Event Log"), ERROR_SERVICE_DOES_NOT_EXIST);  // a display name
  EXPECT_EQ(open(manager.get(), nullptr), ERROR_INVALID_ADDRESS);
  EXPECT_EQ(open(nullptr, u"Probe"), ERROR_INVALID_HANDLE);
  EXPECT_FALSE(CloseServiceHandle(nullptr));
  EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
}

TEST_F(Services, UsersMayLookAndAdministratorsMayChange) {
  machine->process.token = emulated::MakeUserToken(machine->process.token->user);
  EXPECT_EQ(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_ALL_ACCESS), nullptr);
  EXPECT_EQ(GetLastError(), ERROR_ACCESS_DENIED);
  EXPECT_TRUE(UniqueService(OpenSCManagerW(nullptr, nullptr, GENERIC_READ)));
  EXPECT_TRUE(Open(u"Probe", SERVICE_QUERY_CONFIG | SERVICE_QUERY_STATUS));
  for (const DWORD access : {SERVICE_CHANGE_CONFIG, SERVICE_START, SERVICE_STOP, SERVICE_ALL_ACCESS}) {
    EXPECT_FALSE(Open(u"Probe", access));
    EXPECT_EQ(GetLastError(), ERROR_ACCESS_DENIED);
  }
  const UniqueService service = Open(u"Probe", SERVICE_QUERY_STATUS);
  DWORD needed = 0;
  EXPECT_FALSE(QueryServiceConfigW(service.get(), nullptr, 0, &needed));
  EXPECT_EQ(GetLastError(), ERROR_ACCESS_DENIED);
  EXPECT_EQ(ChangeStart(service.get(), SERVICE_DISABLED), ERROR_ACCESS_DENIED);
}

TEST_F(Services, ConfigurationComesInOneBuffer) {
  DependOn(u"Probe", u"EventLog");
  const UniqueService service = Open(u"Probe");
  DWORD needed = 0;
  EXPECT_FALSE(QueryServiceConfigW(service.get(), nullptr, 0, &needed));
  EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);
  alignas(8) BYTE buffer[1024];
  ASSERT_LE(needed, sizeof buffer);
  auto* const configuration = reinterpret_cast<QUERY_SERVICE_CONFIGW*>(buffer);
  EXPECT_FALSE(QueryServiceConfigW(service.get(), configuration, needed - 1, &needed));
  EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);
  ASSERT_TRUE(QueryServiceConfigW(service.get(), configuration, needed, &needed));
  EXPECT_EQ(configuration->dwServiceType, SERVICE_WIN32_OWN_PROCESS);
  EXPECT_EQ(configuration->dwStartType, SERVICE_DEMAND_START);
  EXPECT_EQ(std::u16string(configuration->lpBinaryPathName), u"C:\\Windows\\system32\\svchost.exe -k probe");
  EXPECT_EQ(std::u16string(configuration->lpLoadOrderGroup), u"");
  EXPECT_EQ(std::u16string(configuration->lpDependencies, 10), std::u16string(u"EventLog\0\0", 10));
  EXPECT_EQ(std::u16string(configuration->lpServiceStartName), u"LocalSystem");
  EXPECT_EQ(std::u16string(configuration->lpDisplayName), u"Probe");
  for (const char16_t* const text :
       {configuration->lpBinaryPathName, configuration->lpLoadOrderGroup, configuration->lpDependencies,
        configuration->lpServiceStartName, configuration->lpDisplayName}) {
    EXPECT_GE(reinterpret_cast<const BYTE*>(text), buffer + sizeof *configuration);
    EXPECT_LT(reinterpret_cast<const BYTE*>(text), buffer + needed);
  }
  EXPECT_FALSE(QueryServiceConfigW(service.get(), configuration, needed, nullptr));
  EXPECT_EQ(GetLastError(), ERROR_INVALID_ADDRESS);
}

TEST_F(Services, ChangingLeavesTheRestAndIsCheckedFirst) {
  const UniqueService service = Open(u"Probe");
  EXPECT_EQ(ChangeStart(service.get(), SERVICE_AUTO_START), 0U);
  const auto before = services().Configuration(u"Probe");
  ASSERT_TRUE(before);
  EXPECT_EQ(before->start, SERVICE_AUTO_START);
  EXPECT_EQ(before->displayName, u"Probe");
  EXPECT_EQ(ChangeStart(service.get(), 0), ERROR_INVALID_PARAMETER);  // for drivers
  EXPECT_EQ(ChangeStart(service.get(), 5), ERROR_INVALID_PARAMETER);
  const auto rename = [&](const char16_t* displayName) {
    return ChangeServiceConfigW(service.get(), SERVICE_NO_CHANGE, SERVICE_DISABLED, SERVICE_NO_CHANGE, u"C:\\new.exe",
                                nullptr, nullptr, u"A\0+G\0B\0", nullptr, nullptr, displayName)
               ? ERROR_SUCCESS
               : GetLastError();
  };
  EXPECT_EQ(rename(u"Themes"), kDuplicateServiceName);
  EXPECT_EQ(services().Configuration(u"Probe")->start, SERVICE_AUTO_START);
  EXPECT_EQ(rename(u"A probe"), 0U);
  const auto after = services().Configuration(u"Probe");
  EXPECT_EQ(after->start, SERVICE_DISABLED);
  EXPECT_EQ(after->imagePath, u"C:\\new.exe");
  EXPECT_EQ(after->displayName, u"A probe");
  EXPECT_EQ(after->dependencies, (std::vector<std::u16string>{u"A", u"B", u"+G"}));
}

TEST_F(Services, StartAndStop) {
  SERVICE_STATUS status{};
  EXPECT_EQ(Stop(u"Probe", &status), ERROR_SERVICE_NOT_ACTIVE);
  EXPECT_EQ(status.dwCurrentState, SERVICE_STOPPED);
  EXPECT_EQ(Start(u"Probe"), 0U);
  EXPECT_EQ(State(u"probe"), SERVICE_RUNNING);
  EXPECT_EQ(Start(u"Probe"), ERROR_SERVICE_ALREADY_RUNNING);
  EXPECT_EQ(Stop(u"Probe", &status), 0U);
  EXPECT_EQ(status.dwCurrentState, SERVICE_STOPPED);
  EXPECT_FALSE(ControlService(Open(u"Probe").get(), 99, &status));
  EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
  EXPECT_EQ(ChangeStart(Open(u"Probe").get(), SERVICE_DISABLED), 0U);
  EXPECT_EQ(Start(u"Probe"), ERROR_SERVICE_DISABLED);
  services().Install(u"Gone", u"C:\\none\\gone.exe", SERVICE_DEMAND_START);
  EXPECT_EQ(Start(u"Gone"), ERROR_FILE_NOT_FOUND);
  services().Install(u"Quoted", u"\"C:\\Windows\\System32\\svchost.exe\" /x", SERVICE_DEMAND_START);
  EXPECT_EQ(Start(u"Quoted"), 0U);
}

TEST_F(Services, PendingStatesLastByTheClock) {
  services().Behaviour(u"Probe") = {.startMilliseconds = 3000, .stopMilliseconds = 500};
  EXPECT_EQ(Start(u"Probe"), 0U);
  EXPECT_EQ(State(u"Probe"), SERVICE_START_PENDING);
  EXPECT_EQ(Stop(u"Probe"), ERROR_SERVICE_CANNOT_ACCEPT_CTRL);
  EXPECT_EQ(Start(u"Probe"), ERROR_SERVICE_ALREADY_RUNNING);
  machine->Advance(2999);
  EXPECT_EQ(State(u"Probe"), SERVICE_START_PENDING);
  machine->Advance(1);
  EXPECT_EQ(State(u"Probe"), SERVICE_RUNNING);
  SERVICE_STATUS status{};
  EXPECT_EQ(Stop(u"Probe", &status), 0U);
  EXPECT_EQ(status.dwCurrentState, SERVICE_STOP_PENDING);
  machine->Advance(500);
  EXPECT_EQ(State(u"Probe"), SERVICE_STOPPED);

  services().Behaviour(u"Probe") = {.startMilliseconds = UINT64_MAX, .acceptsStop = false};
  EXPECT_EQ(Start(u"Probe"), 0U);
  machine->Advance(86'400'000);
  EXPECT_EQ(State(u"Probe"), SERVICE_START_PENDING);
  services().SetState(u"Probe", SERVICE_RUNNING);
  EXPECT_EQ(Stop(u"Probe"), ERROR_INVALID_SERVICE_CONTROL);
  services().SetState(u"Probe", SERVICE_STOPPED);
  services().Behaviour(u"Probe").startError = ERROR_SERVICE_REQUEST_TIMEOUT;
  EXPECT_EQ(Start(u"Probe"), ERROR_SERVICE_REQUEST_TIMEOUT);
}

TEST_F(Services, DependenciesStartFirstAndStopLast) {
  services().Install(u"Base", u"C:\\Windows\\System32\\svchost.exe", SERVICE_DEMAND_START);
  DependOn(u"Probe", u"Base");
  EXPECT_EQ(Start(u"Probe"), 0U);
  EXPECT_EQ(State(u"Base"), SERVICE_RUNNING);
  EXPECT_EQ(Stop(u"Base"), kDependentsRunning);
  EXPECT_EQ(Stop(u"Probe"), 0U);
  EXPECT_EQ(Stop(u"Base"), 0U);
  EXPECT_EQ(ChangeStart(Open(u"Base").get(), SERVICE_DISABLED), 0U);
  EXPECT_EQ(Start(u"Probe"), kDependencyFailed);
  DependOn(u"Probe", u"Nobody");
  EXPECT_EQ(Start(u"Probe"), kDependencyDeleted);
  DependOn(u"Probe", u"Probe");
  EXPECT_EQ(Start(u"Probe"), kCircular);
}

}  // namespace
