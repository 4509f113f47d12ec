#include "win32/emulated/registry/services.h"

#include <algorithm>
#include <utility>

#include "win32/emulated/files/file_service.h"
#include "win32/emulated/registry/registry.h"
#include "win32/emulated/text.h"

namespace emulated {

using win32::DWORD;

namespace {

constexpr std::u16string_view kServices = u"HKLM\\SYSTEM\\CurrentControlSet\\Services";
constexpr DWORD kProcessTypes = 0x30;  // SERVICE_WIN32_OWN_PROCESS | SERVICE_WIN32_SHARE_PROCESS
constexpr DWORD kErrorDependentServicesRunning = 1051, kErrorCircularDependency = 1059, kErrorDependencyFailed = 1068,
                kErrorNeverStarted = 1077, kErrorDependencyDeleted = 1075;
constexpr DWORD kAcceptStop = 1, kAcceptShutdown = 4;
constexpr unsigned kDeepestDependency = 32;
constexpr DWORD kWaitHint = 2000;

bool IsPending(DWORD state) { return state == win32::SERVICE_START_PENDING || state == win32::SERVICE_STOP_PENDING; }

}  // namespace

ServiceManager::ServiceManager(Machine& machine) : machine_(machine) {}

std::u16string ServiceManager::KeyPath(std::u16string_view name) {
  return std::u16string(kServices) + u"\\" + std::u16string(name);
}

bool ServiceManager::Exists(std::u16string_view name) {
  return !name.empty() && name.find(u'\\') == name.npos &&
         machine_.registry().Query(KeyPath(name), u"Type").has_value();
}

std::optional<ServiceConfiguration> ServiceManager::Configuration(std::u16string_view name) {
  if (!Exists(name)) return std::nullopt;
  Registry& registry = machine_.registry();
  const std::vector<RegistryValue> values = registry.Values(KeyPath(name));
  const auto query = [&](std::u16string_view wanted) -> const RegistryValue* {
    const auto found =
        std::ranges::find_if(values, [&](const RegistryValue& value) { return EqualAsciiNoCase(value.name, wanted); });
    return found == values.end() ? nullptr : &*found;
  };
  const auto number = [&](std::u16string_view value) -> DWORD {
    const RegistryValue* const found = query(value);
    return found && found->type == win32::REG_DWORD && found->data.size() == 4
               ? LoadLittleEndian<std::uint32_t>(found->data, 0)
               : 0;
  };
  const auto text = [&](std::u16string_view value, std::u16string_view otherwise) {
    const RegistryValue* const found = query(value);
    if (!found) return std::u16string(otherwise);
    return found->type == win32::REG_EXPAND_SZ ? ExpandSystemVariables(registry, found->Text()) : found->Text();
  };
  ServiceConfiguration configuration{number(u"Type"),
                                     number(u"Start"),
                                     number(u"ErrorControl"),
                                     number(u"Tag"),
                                     text(u"ImagePath", u""),
                                     text(u"Group", u""),
                                     {},
                                     text(u"ObjectName", u""),
                                     text(u"DisplayName", name)};
  if (configuration.account.empty() && (configuration.type & kProcessTypes) != 0)
    configuration.account = u"LocalSystem";
  const auto append = [&](std::u16string_view value, std::u16string_view prefix) {
    if (const RegistryValue* const found = query(value))
      for (const std::u16string& one : MultiText(*found))
        configuration.dependencies.push_back(std::u16string(prefix) + one);
  };
  append(u"DependOnService", u"");
  append(u"DependOnGroup", u"+");
  return configuration;
}

void ServiceManager::Install(std::u16string_view name, std::u16string_view imagePath, DWORD startType) {
  Registry& registry = machine_.registry();
  const std::u16string key = KeyPath(name);
  registry.SetDword(key, u"Type", win32::SERVICE_WIN32_OWN_PROCESS);
  registry.SetDword(key, u"Start", startType);
  registry.SetDword(key, u"ErrorControl", 1);
  registry.SetText(key, u"ImagePath", imagePath, win32::REG_EXPAND_SZ);
  registry.SetText(key, u"DisplayName", name);
  registry.SetText(key, u"ObjectName", u"LocalSystem");
}

void ServiceManager::StartAutomaticServices() {
  Registry& registry = machine_.registry();
  registry.LoadUserHive();
  for (const std::u16string& name : registry.SubKeys(kServices)) {
    const auto configuration = Configuration(name);
    if (configuration && configuration->start == win32::SERVICE_AUTO_START &&
        (configuration->type & kProcessTypes) != 0 && Behaviour(name).startError == 0)
      Launch(name);
  }
}

ServiceManager::Running& ServiceManager::Current(std::u16string_view name) {
  Running& running = running_[LowerAscii(name)];
  if (IsPending(running.state)) {
    const bool starting = running.state == win32::SERVICE_START_PENDING;
    const ServiceBehaviour& behaviour = Behaviour(name);
    const std::uint64_t takes = starting ? behaviour.startMilliseconds : behaviour.stopMilliseconds;
    if (takes != UINT64_MAX && static_cast<std::uint64_t>(machine_.Now() - running.since) / 10'000 >= takes)
      Become(name, running, starting ? win32::SERVICE_RUNNING : win32::SERVICE_STOPPED);
  }
  return running;
}

DWORD ServiceManager::State(std::u16string_view name) { return Current(name).state; }

void ServiceManager::Settle() {
  for (const auto& [name, running] : running_) Current(name);
}

void ServiceManager::Become(std::u16string_view name, Running& running, DWORD state) {
  const DWORD before = std::exchange(running.state, state);
  if (before == state) return;
  // A copy: what is called may script the service anew.
  const ServiceBehaviour behaviour = Behaviour(name);
  if (state == win32::SERVICE_RUNNING && behaviour.onStart) behaviour.onStart();
  if (state == win32::SERVICE_STOPPED && behaviour.onStop) behaviour.onStop();
}

void ServiceManager::SetState(std::u16string_view name, DWORD state) {
  Running& running = running_[LowerAscii(name)];
  running.since = machine_.Now();
  running.everRan = true;
  Become(name, running, state);
}

ServiceBehaviour& ServiceManager::Behaviour(std::u16string_view name) { return behaviours_[LowerAscii(name)]; }

win32::SERVICE_STATUS ServiceManager::Status(std::u16string_view name) {
  const Running& running = Current(name);
  const auto configuration = Configuration(name);
  win32::SERVICE_STATUS status{};
  status.dwServiceType = configuration ? configuration->type : win32::SERVICE_WIN32_OWN_PROCESS;
  status.dwCurrentState = running.state;
  if (running.state == win32::SERVICE_RUNNING && Behaviour(name).acceptsStop)
    status.dwControlsAccepted = kAcceptStop | kAcceptShutdown;
  if (running.state == win32::SERVICE_STOPPED && !running.everRan) status.dwWin32ExitCode = kErrorNeverStarted;
  if (IsPending(running.state)) {
    status.dwCheckPoint = 1;
    status.dwWaitHint = kWaitHint;
  }
  return status;
}

std::u16string ServiceManager::NameOfDisplayName(std::u16string_view displayName) {
  for (const std::u16string& name : machine_.registry().SubKeys(kServices)) {
    const auto found = machine_.registry().Query(KeyPath(name), u"DisplayName");
    if (found && EqualAsciiNoCase(found->Text(), displayName)) return name;
  }
  return {};
}

// As CreateProcess finds it: a quoted path, or the shortest beginning that ends at a blank and is a file.
bool ServiceManager::ProgramExists(const std::u16string& commandLine) {
  if (!machine_.SystemVolume()) return true;  // a machine without disks has no programs to look for
  const auto isFile = [&](const std::u16string& path) {
    Location location;
    return machine_.files().Resolve(path, true, location) == 0 && location.file != 0;
  };
  if (commandLine.starts_with(u'"')) return isFile(commandLine.substr(1, commandLine.find(u'"', 1) - 1));
  for (std::size_t end = commandLine.find(u' ');; end = commandLine.find(u' ', end + 1)) {
    const std::u16string path = commandLine.substr(0, end);
    if (!path.empty() && (isFile(path) || isFile(path + u".exe"))) return true;
    if (end == commandLine.npos) return false;
  }
}

void ServiceManager::Launch(std::u16string_view name) {
  SetState(name, Behaviour(name).startMilliseconds == 0 ? win32::SERVICE_RUNNING : win32::SERVICE_START_PENDING);
}

DWORD ServiceManager::Start(std::u16string_view name) { return Start(name, 0); }

DWORD ServiceManager::Start(std::u16string_view name, unsigned depth) {
  const auto configuration = Configuration(name);
  if (!configuration) return win32::ERROR_SERVICE_DOES_NOT_EXIST;
  if (depth > kDeepestDependency) return kErrorCircularDependency;
  if (configuration->start == win32::SERVICE_DISABLED) return win32::ERROR_SERVICE_DISABLED;
  if (State(name) != win32::SERVICE_STOPPED) return win32::ERROR_SERVICE_ALREADY_RUNNING;
  for (const std::u16string& needed : configuration->dependencies) {
    if (needed.starts_with(u'+')) continue;  // of a group one member must run; drivers, which always do here
    if (!Exists(needed)) return kErrorDependencyDeleted;
    const DWORD error = Start(needed, depth + 1);
    if (error == kErrorCircularDependency) return error;
    if (error != 0 && error != win32::ERROR_SERVICE_ALREADY_RUNNING) return kErrorDependencyFailed;
  }
  if (const DWORD error = Behaviour(name).startError) return error;
  if ((configuration->type & kProcessTypes) != 0 && !ProgramExists(configuration->imagePath))
    return win32::ERROR_FILE_NOT_FOUND;
  Launch(name);
  return win32::ERROR_SUCCESS;
}

DWORD ServiceManager::Stop(std::u16string_view name) {
  const DWORD state = State(name);
  if (state == win32::SERVICE_STOPPED) return win32::ERROR_SERVICE_NOT_ACTIVE;
  if (IsPending(state)) return win32::ERROR_SERVICE_CANNOT_ACCEPT_CTRL;
  if (!Behaviour(name).acceptsStop) return win32::ERROR_INVALID_SERVICE_CONTROL;
  for (const auto& [other, running] : running_) {
    if (State(other) == win32::SERVICE_STOPPED) continue;
    const auto configuration = Configuration(other);
    if (configuration && std::any_of(configuration->dependencies.begin(), configuration->dependencies.end(),
                                     [&](const std::u16string& needed) { return EqualAsciiNoCase(needed, name); }))
      return kErrorDependentServicesRunning;
  }
  SetState(name, Behaviour(name).stopMilliseconds == 0 ? win32::SERVICE_STOPPED : win32::SERVICE_STOP_PENDING);
  return win32::ERROR_SUCCESS;
}

}  // namespace emulated
