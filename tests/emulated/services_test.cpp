// The service control manager.
#include "win32/emulated/registry/services.h"

#include "emulated/on_machine.h"

namespace {

using contract::ErrorOf;
using namespace win32;

constexpr DWORD kDuplicateServiceName = 1078, kDependencyFailed = 1068, kDependencyDeleted = 1075,
                kDependentsRunning = 1051, kCircular = 1059;

class Services : public test::OnWindows {
 protected:
  Services() : OnWindows({.product = false}) { Install(u"Probe", u"%SystemRoot%\\system32\\svchost.exe -k probe"); }

  emulated::ServiceManager& services() { return machine->services(); }
  void Install(const char16_t* name, const char16_t* image = u"C:\\Windows\\System32\\svchost.exe",
               DWORD start = SERVICE_DEMAND_START) {
    services().Install(name, image, start);
  }
  static UniqueService Open(const char16_t* name, DWORD access = SERVICE_ALL_ACCESS) {
    const UniqueService manager(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT));
    EXPECT_TRUE(manager);
    return UniqueService(OpenServiceW(manager.get(), name, access));
  }
  static DWORD Start(const char16_t* name) { return ErrorOf(StartServiceW(Open(name).get(), 0, nullptr)); }
  // The state that the control leaves is State's own.
  DWORD Stop(const char16_t* name) {
    SERVICE_STATUS status{};
    const DWORD error = ErrorOf(ControlService(Open(name).get(), SERVICE_CONTROL_STOP, &status));
    EXPECT_EQ(status.dwCurrentState, State(name));
    return error;
  }
  static DWORD State(const char16_t* name) {
    SERVICE_STATUS status{};
    EXPECT_TRUE(QueryServiceStatus(Open(name).get(), &status));
    return status.dwCurrentState;
  }
  static DWORD ChangeStart(SC_HANDLE service, DWORD start) {
    return ErrorOf(ChangeServiceConfigW(service, SERVICE_NO_CHANGE, start, SERVICE_NO_CHANGE, nullptr, nullptr, nullptr,
                                        nullptr, nullptr, nullptr, nullptr));
  }
  void DependOn(const char16_t* service, const char16_t* needed) {
    registry().Set(u"HKLM\\SYSTEM\\CurrentControlSet\\Services\\" + std::u16string(service), u"DependOnService",
                   REG_MULTI_SZ, emulated::RegistryMultiText({needed}));
  }
};

TEST_F(Services, OpeningTellsWhatIsWrong) {
  const auto managerError = [](const char16_t* database, DWORD access = SC_MANAGER_CONNECT) {
    return ErrorOf(UniqueService(OpenSCManagerW(nullptr, database, access)));
  };
  EXPECT_EQ(managerError(u"nonsense"), ERROR_INVALID_NAME);
  EXPECT_EQ(managerError(u"ServicesFailed"), ERROR_DATABASE_DOES_NOT_EXIST);
  const UniqueService manager(OpenSCManagerW(u"", u"ServicesActive", GENERIC_READ));
  ASSERT_TRUE(manager);
  const auto error = [](SC_HANDLE from, const char16_t* name) {
    return ErrorOf(UniqueService(OpenServiceW(from, name, SERVICE_QUERY_STATUS)));
  };
  EXPECT_EQ(error(manager.get(), u"none"), ERROR_SERVICE_DOES_NOT_EXIST);
  EXPECT_EQ(error(manager.get(), u"Windows Event Log"), ERROR_SERVICE_DOES_NOT_EXIST);  // a display name
  EXPECT_EQ(error(manager.get(), nullptr), ERROR_INVALID_ADDRESS);
  EXPECT_EQ(error(nullptr, u"Probe"), ERROR_INVALID_HANDLE);
  EXPECT_EQ(ErrorOf(CloseServiceHandle(nullptr)), ERROR_INVALID_HANDLE);

  // Users may look, administrators may change.
  Become(emulated::SidToText(machine->process.token->user));
  EXPECT_EQ(managerError(nullptr, SC_MANAGER_ALL_ACCESS), ERROR_ACCESS_DENIED);
  EXPECT_EQ(managerError(nullptr, GENERIC_READ), 0u);
  EXPECT_TRUE(Open(u"Probe", SERVICE_QUERY_CONFIG | SERVICE_QUERY_STATUS));
  for (const DWORD access : {SERVICE_CHANGE_CONFIG, SERVICE_START, SERVICE_STOP, SERVICE_ALL_ACCESS})
    EXPECT_EQ(ErrorOf(Open(u"Probe", access)), ERROR_ACCESS_DENIED);
  const UniqueService service = Open(u"Probe", SERVICE_QUERY_STATUS);
  DWORD needed = 0;
  EXPECT_EQ(ErrorOf(QueryServiceConfigW(service.get(), nullptr, 0, &needed)), ERROR_ACCESS_DENIED);
  EXPECT_EQ(ChangeStart(service.get(), SERVICE_DISABLED), ERROR_ACCESS_DENIED);
}

TEST_F(Services, ConfigurationComesInOneBuffer) {
  DependOn(u"Probe", u"EventLog");
  const UniqueService service = Open(u"Probe");
  alignas(8) BYTE buffer[1024];
  auto* const configuration = reinterpret_cast<QUERY_SERVICE_CONFIGW*>(buffer);
  DWORD needed = 0;
  EXPECT_EQ(ErrorOf(QueryServiceConfigW(service.get(), nullptr, 0, &needed)), ERROR_INSUFFICIENT_BUFFER);
  ASSERT_LE(needed, sizeof buffer);
  EXPECT_EQ(ErrorOf(QueryServiceConfigW(service.get(), configuration, needed - 1, &needed)), ERROR_INSUFFICIENT_BUFFER);
  ASSERT_TRUE(QueryServiceConfigW(service.get(), configuration, needed, &needed));
  EXPECT_EQ(configuration->dwServiceType, SERVICE_WIN32_OWN_PROCESS);
  EXPECT_EQ(configuration->dwStartType, SERVICE_DEMAND_START);
  const std::u16string_view dependencies(u"EventLog\0\0", 10);
  EXPECT_EQ(std::u16string_view(configuration->lpDependencies, 10), dependencies);
  for (const auto& [text, expected] :
       {std::pair{configuration->lpBinaryPathName, u"C:\\Windows\\system32\\svchost.exe -k probe"},
        {configuration->lpLoadOrderGroup, u""},
        {configuration->lpDependencies, u"EventLog"},
        {configuration->lpServiceStartName, u"LocalSystem"},
        {configuration->lpDisplayName, u"Probe"}}) {
    EXPECT_EQ(std::u16string(text), expected);
    EXPECT_GE(reinterpret_cast<const BYTE*>(text), buffer + sizeof *configuration);
    EXPECT_LT(reinterpret_cast<const BYTE*>(text), buffer + needed);
  }
  EXPECT_EQ(ErrorOf(QueryServiceConfigW(service.get(), configuration, needed, nullptr)), ERROR_INVALID_ADDRESS);
}

TEST_F(Services, StartAndStop) {
  EXPECT_EQ(Stop(u"Probe"), ERROR_SERVICE_NOT_ACTIVE);
  EXPECT_EQ(Start(u"Probe"), 0U);
  EXPECT_EQ(State(u"probe"), SERVICE_RUNNING);
  EXPECT_EQ(Start(u"Probe"), ERROR_SERVICE_ALREADY_RUNNING);
  EXPECT_EQ(Stop(u"Probe"), 0U);
  EXPECT_EQ(State(u"Probe"), SERVICE_STOPPED);
  SERVICE_STATUS status{};
  EXPECT_EQ(ErrorOf(ControlService(Open(u"Probe").get(), 99, &status)), ERROR_INVALID_PARAMETER);
  EXPECT_EQ(ChangeStart(Open(u"Probe").get(), SERVICE_DISABLED), 0U);
  EXPECT_EQ(Start(u"Probe"), ERROR_SERVICE_DISABLED);
  Install(u"Gone", u"C:\\none\\gone.exe");
  EXPECT_EQ(Start(u"Gone"), ERROR_FILE_NOT_FOUND);
  Install(u"Quoted", u"\"C:\\Windows\\System32\\svchost.exe\" /x");
  EXPECT_EQ(Start(u"Quoted"), 0U);
}

TEST_F(Services, PendingStatesLastByTheClock) {
  services().Behaviour(u"Probe") = {.startMilliseconds = 3000, .stopMilliseconds = 500};
  EXPECT_EQ(Start(u"Probe"), 0U);
  EXPECT_EQ(Stop(u"Probe"), ERROR_SERVICE_CANNOT_ACCEPT_CTRL);
  EXPECT_EQ(Start(u"Probe"), ERROR_SERVICE_ALREADY_RUNNING);
  machine->Advance(2999);
  EXPECT_EQ(State(u"Probe"), SERVICE_START_PENDING);
  machine->Advance(1);
  EXPECT_EQ(State(u"Probe"), SERVICE_RUNNING);
  EXPECT_EQ(Stop(u"Probe"), 0U);
  EXPECT_EQ(State(u"Probe"), SERVICE_STOP_PENDING);
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
  Install(u"Base");
  DependOn(u"Probe", u"Base");
  EXPECT_EQ(Start(u"Probe"), 0U);
  EXPECT_EQ(State(u"Base"), SERVICE_RUNNING);
  EXPECT_EQ(Stop(u"Base"), kDependentsRunning);
  EXPECT_EQ(Stop(u"Probe"), 0U);
  EXPECT_EQ(Stop(u"Base"), 0U);
  EXPECT_EQ(ChangeStart(Open(u"Base").get(), SERVICE_DISABLED), 0U);
  for (const auto& [needed, error] :
       {std::pair{u"Base", kDependencyFailed}, {u"Nobody", kDependencyDeleted}, {u"Probe", kCircular}}) {
    DependOn(u"Probe", needed);
    EXPECT_EQ(Start(u"Probe"), error);
  }
}

}  // namespace
