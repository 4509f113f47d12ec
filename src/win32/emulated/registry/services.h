// The service control manager's state: what is configured is in SYSTEM\CurrentControlSet\Services, what runs is here.
#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "win32/constants.h"
#include "win32/emulated/machine.h"

namespace emulated {

// How a service behaves while the machine runs. A service that nobody scripted starts and stops at once.
struct ServiceBehaviour {
  std::uint64_t startMilliseconds = 0;  // how long it stays START_PENDING on the virtual clock; UINT64_MAX: for ever
  std::uint64_t stopMilliseconds = 0;
  win32::DWORD startError = 0;  // StartServiceW fails with this
  bool acceptsStop = true;
  // Called when the service has become RUNNING or STOPPED: what its program does then. A service that is running when
  // this is set has come up before.
  std::function<void()> onStart = nullptr, onStop = nullptr;
};

struct ServiceConfiguration {
  win32::DWORD type = 0, start = 0, errorControl = 0, tag = 0;
  std::u16string imagePath;  // variables replaced
  std::u16string group;
  std::vector<std::u16string> dependencies;  // services; groups begin with '+'
  std::u16string account;
  std::u16string displayName;
};

class ServiceManager {
 public:
  explicit ServiceManager(Machine& machine);

  // The user's hive is loaded and the services of automatic start run. Part of Boot.
  void StartAutomaticServices();

  bool Exists(std::u16string_view name);
  win32::DWORD State(std::u16string_view name);  // SERVICE_STOPPED ... by the clock of the machine
  void SetState(std::u16string_view name, win32::DWORD state);
  ServiceBehaviour& Behaviour(std::u16string_view name);
  // Services whose time of starting or stopping is over by the clock become RUNNING or STOPPED.
  void Settle();
  // Adds or replaces a service's configuration in the registry.
  void Install(std::u16string_view name, std::u16string_view imagePath, win32::DWORD startType);

  // For the functions of win32/service.h.
  static std::u16string KeyPath(std::u16string_view name);  // as Registry takes it
  // Nothing when there is no such service.
  std::optional<ServiceConfiguration> Configuration(std::u16string_view name);
  win32::SERVICE_STATUS Status(std::u16string_view name);
  // 0, or 2 (no program), 1056, 1058 (disabled), 1059 (circular), 1060, 1068 (what it depends on does not start), 1075
  // (what it depends on does not exist), or the scripted error.
  win32::DWORD Start(std::u16string_view name);
  // 0, or 1051 (others that run need it), 1052, 1061, 1062.
  win32::DWORD Stop(std::u16string_view name);
  // The name of the service that has this display name; empty when there is none.
  std::u16string NameOfDisplayName(std::u16string_view displayName);

 private:
  struct Running {
    win32::DWORD state = win32::SERVICE_STOPPED;
    FileTime since = 0;
    bool everRan = false;
  };
  win32::DWORD Start(std::u16string_view name, unsigned depth);
  // An automatic or demanded start takes effect.
  void Launch(std::u16string_view name);
  bool ProgramExists(const std::u16string& commandLine);
  Running& Current(std::u16string_view name);
  void Become(std::u16string_view name, Running& running, win32::DWORD state);

  Machine& machine_;
  std::map<std::u16string, Running> running_;  // by lower-case name
  std::map<std::u16string, ServiceBehaviour> behaviours_;
};

}  // namespace emulated
