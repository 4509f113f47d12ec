#include "probes/services.h"

#include "report/log.h"
#include "win32/handle.h"

namespace {

struct OpenedService {
  win32::UniqueService manager;
  win32::UniqueService service;
  explicit operator bool() const { return static_cast<bool>(service); }
};

OpenedService Open(const char16_t* name, win32::DWORD managerAccess, win32::DWORD serviceAccess) {
  OpenedService opened;
  opened.manager.reset(win32::OpenSCManagerW(nullptr, nullptr, managerAccess));
  if (opened.manager) opened.service.reset(win32::OpenServiceW(opened.manager.get(), name, serviceAccess));
  return opened;
}

// Changes the start type and nothing else.
bool SetStartType(const win32::UniqueService& service, win32::DWORD startType) {
  return win32::ChangeServiceConfigW(service.get(), win32::SERVICE_NO_CHANGE, startType, win32::SERVICE_NO_CHANGE,
                                     nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr) != win32::FALSE;
}

bool LeavesStartPending(const win32::UniqueService& service) {
  constexpr int kPolls = 30;
  for (int poll = 1;; ++poll) {
    win32::SERVICE_STATUS status{};
    if (!win32::QueryServiceStatus(service.get(), &status)) return false;
    if (status.dwCurrentState != win32::SERVICE_START_PENDING) return true;
    if (poll == kPolls) return false;
    win32::Sleep(2000);
  }
}

void WaitWhilePending(const win32::UniqueService& service) {
  win32::SERVICE_STATUS status{};
  do {
    win32::Sleep(1000);
  } while (
      win32::QueryServiceStatus(service.get(), &status) &&
      (status.dwCurrentState == win32::SERVICE_START_PENDING || status.dwCurrentState == win32::SERVICE_STOP_PENDING));
}

void ControlAndWait(const char16_t* name, win32::DWORD code) {
  const OpenedService opened = Open(name, win32::SC_MANAGER_ALL_ACCESS, win32::SERVICE_ALL_ACCESS);
  if (!opened) return;
  win32::SERVICE_STATUS status{};
  const win32::BOOL accepted = code == kStartService ? win32::StartServiceW(opened.service.get(), 0, nullptr)
                                                     : win32::ControlService(opened.service.get(), code, &status);
  if (accepted) WaitWhilePending(opened.service);
}

}  // namespace

bool IsServiceRunning(const char16_t* name) {
  if (!name) return false;
  const OpenedService opened = Open(name, win32::SC_MANAGER_ENUMERATE_SERVICE, win32::SERVICE_QUERY_STATUS);
  win32::SERVICE_STATUS status{};
  return opened && win32::QueryServiceStatus(opened.service.get(), &status) &&
         status.dwCurrentState == win32::SERVICE_RUNNING;
}

bool ControlServiceAndWait(const char16_t* name, win32::DWORD code) {
  if (!name) return false;
  win32::SetLastError(win32::ERROR_SUCCESS);  // the answer is read from the last error, where an older one may stand
  ControlAndWait(name, code);
  return win32::GetLastError() == win32::ERROR_SUCCESS;
}

bool StopServiceIfRunning(const char16_t* name) {
  if (!IsServiceRunning(name)) return false;
  ControlServiceAndWait(name, win32::SERVICE_CONTROL_STOP);
  return true;
}

bool StartQuillbayService() {
  const OpenedService opened = Open(kQuillbayService, win32::SC_MANAGER_ALL_ACCESS, win32::SERVICE_ALL_ACCESS);
  if (!opened || !SetStartType(opened.service, win32::SERVICE_AUTO_START)) return false;
  if (!win32::StartServiceW(opened.service.get(), 0, nullptr) &&
      win32::GetLastError() != win32::ERROR_SERVICE_ALREADY_RUNNING)
    return false;
  return LeavesStartPending(opened.service);
}

bool DisableQuillbayService() {
  const win32::UniqueService manager{win32::OpenSCManagerW(nullptr, nullptr, win32::SC_MANAGER_ALL_ACCESS)};
  if (!manager) return LogFailure(u"OpenSCManager failed (%d)\n", win32::GetLastError());
  const win32::UniqueService service{
      win32::OpenServiceW(manager.get(), kQuillbayService, win32::SERVICE_CHANGE_CONFIG)};
  if (!service) return LogFailure(u"OpenService failed (%d)\n", win32::GetLastError());
  // Manual, although the line says "disabled": the service can still be started, by StartQuillbayService above all.
  if (!SetStartType(service, win32::SERVICE_DEMAND_START))
    return LogFailure(u"ChangeServiceConfig failed (%d)\n", win32::GetLastError());
  Log(u"Service disabled successfully.\n");
  return true;
}

void RetireQuillbayService() {
  DisableQuillbayService();
  ControlServiceAndWait(kQuillbayService, win32::SERVICE_CONTROL_STOP);
}
