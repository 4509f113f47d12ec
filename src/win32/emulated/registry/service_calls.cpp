// The functions of win32/service.h.
#include "win32/service.h"

#include <algorithm>

#include "win32/emulated/registry/registry.h"
#include "win32/emulated/registry/services.h"
#include "win32/emulated/security/access.h"
#include "win32/emulated/text.h"

namespace emulated {

using win32::DWORD;

namespace {

// Rights, errors and types that no program text needs.
constexpr DWORD kServiceInterrogate = 0x80, kServiceUserDefinedControl = 0x100;
constexpr DWORD kControlInterrogate = 4;
constexpr DWORD kErrorServerUnavailable = 1722;  // RPC_S_SERVER_UNAVAILABLE
constexpr DWORD kErrorDuplicateServiceName = 1078;
constexpr DWORD kProcessTypes = 0x30, kInteractive = 0x100;
constexpr DWORD kLastErrorControl = 3;

constexpr win32::GENERIC_MAPPING kManagerMapping{0x20014, 0x20022, 0x20009, win32::SC_MANAGER_ALL_ACCESS};
constexpr win32::GENERIC_MAPPING kServiceMapping{0x2008D, 0x20002, 0x20170, win32::SERVICE_ALL_ACCESS};
constexpr std::u16string_view kManagerDescriptor =
    u"O:SYG:SYD:(A;;CC;;;AU)(A;;CCLCRPRC;;;IU)(A;;CCLCRPRC;;;SU)(A;;CCLCRPWPRC;;;SY)(A;;KA;;;BA)";
constexpr std::u16string_view kServiceDescriptor =
    u"O:SYG:SYD:(A;;CCLCSWRPWPDTLOCRRC;;;SY)(A;;CCDCLCSWRPWPDTLOCRSDRCWDWO;;;BA)(A;;CCLCSWLOCRRC;;;IU)(A;;CCLCSWLOCRRC;"
    u";;SU)";

class ServiceManagerObject : public Object {
 public:
  const char16_t* TypeName() const override { return u"SC_MANAGER HANDLE"; }
};

class ServiceObject : public Object {
 public:
  const char16_t* TypeName() const override { return u"SERVICE HANDLE"; }
  std::u16string name;
};

DWORD Grant(ByteView descriptor, DWORD desired, const win32::GENERIC_MAPPING& mapping, win32::ACCESS_MASK& granted) {
  return CheckAccess(Machine::Current().EffectiveToken(), descriptor, desired, mapping, false, std::nullopt, granted);
}

// The service of a handle that has `rights`; else null and 6 or 5.
std::shared_ptr<ServiceObject> FindService(win32::SC_HANDLE handle, win32::ACCESS_MASK rights, DWORD& error) {
  auto service = ObjectOf<ServiceObject>(handle);
  if (!service) {
    error = win32::ERROR_INVALID_HANDLE;
    return nullptr;
  }
  Machine& machine = Machine::Current();
  const bool allowed = (machine.objects.Entry(handle, machine.process.id)->granted & rights) == rights;
  error = allowed ? win32::ERROR_SUCCESS : win32::ERROR_ACCESS_DENIED;
  return allowed ? service : nullptr;
}

// The service's own descriptor, where the manager keeps it, or the one that new services have.
Bytes ServiceSecurity(const std::u16string& name) {
  const auto own = Machine::Current().registry().Query(ServiceManager::KeyPath(name) + u"\\Security", u"Security");
  if (own && own->type == win32::REG_BINARY && IsSoundDescriptor(own->data)) return own->data;
  return DescriptorFromText(kServiceDescriptor).value();
}

DWORD OpenManager(const char16_t* machineName, const char16_t* database, DWORD desired, win32::SC_HANDLE& handle) {
  Machine& machine = Machine::Current();
  if (machineName && *machineName) {
    const auto own = machine.registry().Query(u"HKLM\\SYSTEM\\CurrentControlSet\\Control\\ComputerName\\ComputerName",
                                              u"ComputerName");
    std::u16string_view name = machineName;
    if (name.starts_with(u"\\\\")) name.remove_prefix(2);
    if (!EqualAsciiNoCase(name, u"localhost") && !(own && EqualAsciiNoCase(name, own->Text())))
      return kErrorServerUnavailable;
  }
  if (database && *database && !EqualAsciiNoCase(database, u"ServicesActive"))
    return EqualAsciiNoCase(database, u"ServicesFailed") ? win32::ERROR_DATABASE_DOES_NOT_EXIST
                                                         : win32::ERROR_INVALID_NAME;
  win32::ACCESS_MASK granted = 0;
  const Bytes descriptor = DescriptorFromText(kManagerDescriptor).value();
  if (const DWORD error = Grant(descriptor, desired | win32::SC_MANAGER_CONNECT, kManagerMapping, granted))
    return error;
  handle = NewHandle(std::make_shared<ServiceManagerObject>(), granted);
  return win32::ERROR_SUCCESS;
}

DWORD OpenOneService(win32::SC_HANDLE manager, const char16_t* name, DWORD desired, win32::SC_HANDLE& handle) {
  Machine& machine = Machine::Current();
  if (!ObjectOf<ServiceManagerObject>(manager)) return win32::ERROR_INVALID_HANDLE;
  if (!name) return win32::ERROR_INVALID_ADDRESS;
  if (!*name) return win32::ERROR_INVALID_NAME;
  if (!machine.services().Exists(name)) return win32::ERROR_SERVICE_DOES_NOT_EXIST;
  win32::ACCESS_MASK granted = 0;
  if (const DWORD error = Grant(ServiceSecurity(name), desired, kServiceMapping, granted)) return error;
  auto service = std::make_shared<ServiceObject>();
  service->name = name;
  handle = NewHandle(std::move(service), granted);
  return win32::ERROR_SUCCESS;
}

// Everything of QueryServiceConfigW in one buffer: the structure, then the texts that it points to.
class ConfigurationBuffer {
 public:
  ConfigurationBuffer(win32::QUERY_SERVICE_CONFIGW* buffer, std::size_t size) : buffer_(buffer), size_(size) {}
  // Where the text will be; null as long as it is only counted or does not fit.
  char16_t* Add(const std::u16string& text) {
    const std::size_t at = used_;
    used_ += (text.size() + 1) * sizeof(char16_t);
    if (!buffer_ || used_ > size_) return nullptr;
    auto* const to = reinterpret_cast<char16_t*>(reinterpret_cast<win32::BYTE*>(buffer_) + at);
    std::copy_n(text.c_str(), text.size() + 1, to);
    return to;
  }
  std::size_t used() const { return used_; }

 private:
  win32::QUERY_SERVICE_CONFIGW* buffer_;
  std::size_t size_;
  std::size_t used_ = sizeof(win32::QUERY_SERVICE_CONFIGW);
};

DWORD QueryConfiguration(const std::u16string& name, win32::QUERY_SERVICE_CONFIGW* buffer, DWORD size, DWORD* needed) {
  if (!needed || (!buffer && size != 0)) return win32::ERROR_INVALID_ADDRESS;
  const auto configuration = Machine::Current().services().Configuration(name);
  if (!configuration) return win32::ERROR_SERVICE_DOES_NOT_EXIST;
  std::u16string dependencies;  // each ends with a zero, and so does the list
  for (const std::u16string& one : configuration->dependencies) dependencies += one + u'\0';
  win32::QUERY_SERVICE_CONFIGW answer{};
  answer.dwServiceType = configuration->type;
  answer.dwStartType = configuration->start;
  answer.dwErrorControl = configuration->errorControl;
  answer.dwTagId = configuration->tag;
  ConfigurationBuffer texts(buffer, size);
  answer.lpBinaryPathName = texts.Add(configuration->imagePath);
  answer.lpLoadOrderGroup = texts.Add(configuration->group);
  answer.lpDependencies = texts.Add(dependencies);
  answer.lpServiceStartName = texts.Add(configuration->account);
  answer.lpDisplayName = texts.Add(configuration->displayName);
  *needed = static_cast<DWORD>(texts.used());
  if (texts.used() > size) return win32::ERROR_INSUFFICIENT_BUFFER;
  *buffer = answer;
  return win32::ERROR_SUCCESS;
}

// What ChangeServiceConfigW is to change; null pointers and SERVICE_NO_CHANGE leave a thing as it is.
struct ConfigurationChange {
  DWORD type, start, errorControl;
  const char16_t* imagePath;
  const char16_t* group;
  DWORD* tag;
  const char16_t* dependencies;
  const char16_t* account;
  const char16_t* displayName;
};

DWORD CheckChange(const std::u16string& name, const ConfigurationChange& change) {
  ServiceManager& services = Machine::Current().services();
  const auto configuration = services.Configuration(name);
  if (!configuration) return win32::ERROR_SERVICE_DOES_NOT_EXIST;
  const auto changes = [](DWORD value) { return value != win32::SERVICE_NO_CHANGE; };
  const DWORD type = changes(change.type) ? change.type : configuration->type;
  const bool isProcess = (type & kProcessTypes) != 0;
  const auto isKnown = [](DWORD value) {
    const DWORD kind = value & ~kInteractive;
    return kind == 1 || kind == 2 || kind == 0x10 || kind == 0x20;
  };
  if (changes(change.type) && !isKnown(change.type)) return win32::ERROR_INVALID_PARAMETER;
  // Boot and system start are for drivers.
  if (changes(change.start) &&
      (change.start > win32::SERVICE_DISABLED || (isProcess && change.start < win32::SERVICE_AUTO_START)))
    return win32::ERROR_INVALID_PARAMETER;
  if (changes(change.errorControl) && change.errorControl > kLastErrorControl) return win32::ERROR_INVALID_PARAMETER;
  if (change.tag && !(change.group && *change.group)) return win32::ERROR_INVALID_PARAMETER;
  if (change.displayName && *change.displayName) {
    const std::u16string owner = services.NameOfDisplayName(change.displayName);
    const bool isOthersName = services.Exists(change.displayName) && !EqualAsciiNoCase(change.displayName, name);
    if ((!owner.empty() && !EqualAsciiNoCase(owner, name)) || isOthersName) return kErrorDuplicateServiceName;
  }
  return win32::ERROR_SUCCESS;
}

// A number that no service of the group has yet.
DWORD NextTag(const std::u16string& group) {
  Machine& machine = Machine::Current();
  DWORD tag = 0;
  for (const std::u16string& name : machine.registry().SubKeys(u"HKLM\\SYSTEM\\CurrentControlSet\\Services")) {
    const auto configuration = machine.services().Configuration(name);
    if (configuration && EqualAsciiNoCase(configuration->group, group)) tag = std::max(tag, configuration->tag);
  }
  return tag + 1;
}

void ChangeDependencies(const std::u16string& key, const char16_t* list) {
  Registry& registry = Machine::Current().registry();
  std::vector<std::u16string> services, groups;
  for (; *list; list += std::u16string_view(list).size() + 1) {
    if (*list == u'+') {
      groups.emplace_back(list + 1);
    } else {
      services.emplace_back(list);
    }
  }
  const auto put = [&](std::u16string_view value, const std::vector<std::u16string>& texts) {
    if (texts.empty()) {
      registry.DeleteValue(key, value);
    } else {
      registry.Set(key, value, win32::REG_MULTI_SZ, RegistryMultiText(texts));
    }
  };
  put(u"DependOnService", services);
  put(u"DependOnGroup", groups);
}

void Change(const std::u16string& name, const ConfigurationChange& change) {
  Registry& registry = Machine::Current().registry();
  const std::u16string key = ServiceManager::KeyPath(name);
  const auto number = [&](std::u16string_view value, DWORD to) {
    if (to != win32::SERVICE_NO_CHANGE) registry.SetDword(key, value, to);
  };
  const auto text = [&](std::u16string_view value, const char16_t* to, DWORD type = win32::REG_SZ) {
    if (to) registry.SetText(key, value, to, type);
  };
  number(u"Type", change.type);
  number(u"Start", change.start);
  number(u"ErrorControl", change.errorControl);
  text(u"ImagePath", change.imagePath, win32::REG_EXPAND_SZ);
  text(u"Group", change.group);
  if (change.tag) number(u"Tag", *change.tag = NextTag(change.group));
  if (change.dependencies) ChangeDependencies(key, change.dependencies);
  text(u"ObjectName", change.account);
  text(u"DisplayName", change.displayName);
}

// The right that a control needs; 0 for a control that does not exist.
win32::ACCESS_MASK RightForControl(DWORD control) {
  if (control == win32::SERVICE_CONTROL_STOP) return win32::SERVICE_STOP;
  if (control == kControlInterrogate) return kServiceInterrogate;
  return control >= 128 && control <= 255 ? kServiceUserDefinedControl : 0;
}

DWORD Control(const std::u16string& name, DWORD control, win32::SERVICE_STATUS* status) {
  ServiceManager& services = Machine::Current().services();
  DWORD error = win32::ERROR_SUCCESS;
  if (control == win32::SERVICE_CONTROL_STOP) {
    error = services.Stop(name);
  } else if (services.State(name) == win32::SERVICE_STOPPED) {
    error = win32::ERROR_SERVICE_NOT_ACTIVE;
  } else if (services.State(name) != win32::SERVICE_RUNNING && control != kControlInterrogate) {
    error = win32::ERROR_SERVICE_CANNOT_ACCEPT_CTRL;
  }
  *status = services.Status(name);
  return error;
}

}  // namespace

}  // namespace emulated

namespace win32 {

using namespace emulated;

SC_HANDLE OpenSCManagerW(const char16_t* lpMachineName, const char16_t* lpDatabaseName, DWORD dwDesiredAccess) {
  WIN32_CALL(lpMachineName, lpDatabaseName, dwDesiredAccess);
  if (call.Refused()) return nullptr;
  SC_HANDLE handle = nullptr;
  emulated::SetLastError(OpenManager(lpMachineName, lpDatabaseName, dwDesiredAccess, handle));
  return call.Return(handle);
}

SC_HANDLE OpenServiceW(SC_HANDLE hSCManager, const char16_t* lpServiceName, DWORD dwDesiredAccess) {
  WIN32_CALL(hSCManager, lpServiceName, dwDesiredAccess);
  if (call.Refused()) return nullptr;
  SC_HANDLE handle = nullptr;
  if (const DWORD error = OpenOneService(hSCManager, lpServiceName, dwDesiredAccess, handle))
    emulated::SetLastError(error);
  return call.Return(handle);
}

BOOL CloseServiceHandle(SC_HANDLE hSCObject) {
  WIN32_CALL(hSCObject);
  if (call.Refused()) return FALSE;
  if (!ObjectOf<ServiceManagerObject>(hSCObject) && !ObjectOf<ServiceObject>(hSCObject))
    return call.Done(ERROR_INVALID_HANDLE);
  Machine& machine = Machine::Current();
  machine.objects.Close(hSCObject, machine.process.id);
  return call.Done(ERROR_SUCCESS);
}

BOOL QueryServiceConfigW(SC_HANDLE hService, QUERY_SERVICE_CONFIGW* lpServiceConfig, DWORD cbBufSize,
                         DWORD* pcbBytesNeeded) {
  WIN32_CALL(hService, cbBufSize);
  if (call.Refused()) return FALSE;
  DWORD error = 0;
  const auto service = FindService(hService, SERVICE_QUERY_CONFIG, error);
  return call.Done(service ? QueryConfiguration(service->name, lpServiceConfig, cbBufSize, pcbBytesNeeded) : error);
}

BOOL ChangeServiceConfigW(SC_HANDLE hService, DWORD dwServiceType, DWORD dwStartType, DWORD dwErrorControl,
                          const char16_t* lpBinaryPathName, const char16_t* lpLoadOrderGroup, DWORD* lpdwTagId,
                          const char16_t* lpDependencies, const char16_t* lpServiceStartName, const char16_t*,
                          const char16_t* lpDisplayName) {
  WIN32_CALL(hService, dwServiceType, dwStartType, dwErrorControl, lpBinaryPathName);
  if (call.Refused()) return FALSE;
  DWORD error = 0;
  const auto service = FindService(hService, SERVICE_CHANGE_CONFIG, error);
  if (!service) return call.Done(error);
  const ConfigurationChange change{dwServiceType,    dwStartType,        dwErrorControl,
                                   lpBinaryPathName, lpLoadOrderGroup,   lpdwTagId,
                                   lpDependencies,   lpServiceStartName, lpDisplayName};
  error = CheckChange(service->name, change);
  if (error == 0) Change(service->name, change);
  return call.Done(error);
}

BOOL QueryServiceStatus(SC_HANDLE hService, SERVICE_STATUS* lpServiceStatus) {
  WIN32_CALL(hService);
  if (call.Refused()) return FALSE;
  DWORD error = 0;
  if (!ObjectOf<ServiceObject>(hService)) return call.Done(ERROR_INVALID_HANDLE);
  if (!lpServiceStatus) return call.Done(ERROR_INVALID_ADDRESS);
  const auto service = FindService(hService, SERVICE_QUERY_STATUS, error);
  if (service) *lpServiceStatus = Machine::Current().services().Status(service->name);
  return call.Done(error);
}

BOOL StartServiceW(SC_HANDLE hService, DWORD dwNumServiceArgs, const char16_t**) {
  WIN32_CALL(hService, dwNumServiceArgs);
  if (call.Refused()) return FALSE;
  DWORD error = 0;
  const auto service = FindService(hService, SERVICE_START, error);
  return call.Done(service ? Machine::Current().services().Start(service->name) : error);
}

BOOL ControlService(SC_HANDLE hService, DWORD dwControl, SERVICE_STATUS* lpServiceStatus) {
  WIN32_CALL(hService, dwControl);
  if (call.Refused()) return FALSE;
  if (!ObjectOf<ServiceObject>(hService)) return call.Done(ERROR_INVALID_HANDLE);
  if (!lpServiceStatus) return call.Done(ERROR_INVALID_ADDRESS);
  const ACCESS_MASK right = RightForControl(dwControl);
  if (right == 0) return call.Done(ERROR_INVALID_PARAMETER);
  DWORD error = 0;
  const auto service = FindService(hService, right, error);
  return call.Done(service ? Control(service->name, dwControl, lpServiceStatus) : error);
}

}  // namespace win32
