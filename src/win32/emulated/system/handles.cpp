// Handles, mutexes and the identity of the process, of win32/system.h.
#include <algorithm>

#include "win32/emulated/machine.h"
#include "win32/emulated/security/access.h"
#include "win32/emulated/system/console.h"
#include "win32/emulated/system/mutex.h"
#include "win32/emulated/system/pseudo_handles.h"
#include "win32/emulated/text.h"
#include "win32/system.h"

namespace emulated {

std::u16string MutexObject::NativeName() const {
  if (name_.empty()) return {};
  constexpr std::u16string_view kGlobal = u"Global\\";
  if (name_.starts_with(kGlobal)) return u"\\BaseNamedObjects\\" + name_.substr(kGlobal.size());
  return u"\\Sessions\\1\\BaseNamedObjects\\" + name_;
}

void MutexObject::Closed() {
  const auto& foreign = machine_.foreignObjects;
  const bool othersHoldIt =
      std::any_of(foreign.begin(), foreign.end(), [&](const auto& object) { return object.get() == this; });
  if (!name_.empty() && !othersHoldIt) machine_.namedObjects.erase(name_);
}

}  // namespace emulated

namespace win32 {

namespace {

using emulated::Machine;
using emulated::MutexObject;

constexpr ACCESS_MASK kMutexAllAccess = 0x1F0001;
constexpr GENERIC_MAPPING kMutexMapping{0x20001, 0x20000, 0x120000, kMutexAllAccess};

// "Local\X" is X of the session; "Global\X" is another name.
std::u16string ObjectName(std::u16string_view name) {
  constexpr std::u16string_view kLocal = u"Local\\";
  if (name.starts_with(kLocal)) name.remove_prefix(kLocal.size());
  return std::u16string(name);
}

// A mutex whose name is taken. An entry without an object stands for another process's mutex that lets everybody in.
DWORD OpenExisting(Machine& machine, const std::shared_ptr<emulated::Object>& object, HANDLE& handle) {
  auto mutex = std::dynamic_pointer_cast<MutexObject>(object);
  if (object && !mutex) return ERROR_INVALID_HANDLE;  // the name belongs to an object of another type
  DWORD granted = kMutexAllAccess;
  if (mutex && !mutex->descriptor().empty()) {
    const DWORD denied = emulated::CheckAccess(machine.EffectiveToken(), mutex->descriptor(), kMutexAllAccess,
                                               kMutexMapping, false, std::nullopt, granted);
    if (denied != 0) return denied;
  }
  // Its name stays with the other process, so the object of our handle takes none away when it is closed.
  if (!mutex) mutex = std::make_shared<MutexObject>(machine, std::u16string(), emulated::Bytes());
  handle = emulated::NewHandle(std::move(mutex), granted);
  return ERROR_SUCCESS;
}

}  // namespace

// What the last error is has nothing to do with any call's success, so these two do not pass the gate.
DWORD GetLastError() { return emulated::LastError(); }
void SetLastError(DWORD dwErrCode) { emulated::SetLastError(dwErrCode); }

BOOL CloseHandle(HANDLE hObject) {
  WIN32_CALL(hObject);
  if (call.Refused()) return FALSE;
  if (hObject == kCurrentProcess || hObject == kCurrentThread) return call.Done(ERROR_SUCCESS);
  Machine& machine = Machine::Current();
  return call.Done(machine.objects.Close(hObject, machine.process.id) ? ERROR_SUCCESS : ERROR_INVALID_HANDLE);
}

// A handle also for a mutex that exists: then the last error is ERROR_ALREADY_EXISTS, else 0.
HANDLE CreateMutexW(SECURITY_ATTRIBUTES* lpMutexAttributes, BOOL bInitialOwner, const char16_t* lpName) {
  WIN32_CALL(lpMutexAttributes, bInitialOwner, lpName);
  if (call.Refused()) return nullptr;
  const auto fail = [&](DWORD error) {
    emulated::SetLastError(error);
    return call.Return(HANDLE{nullptr});
  };
  emulated::Bytes descriptor;
  if (lpMutexAttributes && lpMutexAttributes->lpSecurityDescriptor) {
    descriptor = emulated::SelfRelative(lpMutexAttributes->lpSecurityDescriptor);
    if (descriptor.empty()) return fail(ERROR_INVALID_SECURITY_DESCR);
  }
  Machine& machine = Machine::Current();
  const std::u16string name = lpName ? ObjectName(lpName) : std::u16string();
  const auto taken = machine.namedObjects.find(name);
  HANDLE handle = nullptr;
  if (!name.empty() && taken != machine.namedObjects.end()) {
    if (const DWORD error = OpenExisting(machine, taken->second.lock(), handle)) return fail(error);
    emulated::SetLastError(ERROR_ALREADY_EXISTS);
    return call.Return(handle);
  }
  const auto mutex = std::make_shared<MutexObject>(machine, name, std::move(descriptor));
  if (!name.empty()) machine.namedObjects[name] = mutex;
  handle = emulated::NewHandle(mutex, kMutexAllAccess);
  emulated::SetLastError(ERROR_SUCCESS);
  return call.Return(handle);
}

HANDLE GetCurrentProcess() {
  WIN32_CALL();
  return call.Return(kCurrentProcess);
}

HANDLE GetCurrentThread() {
  WIN32_CALL();
  return call.Return(kCurrentThread);
}

DWORD GetCurrentProcessId() {
  WIN32_CALL();
  return call.Return(Machine::Current().process.id);
}

DWORD GetCurrentThreadId() {
  WIN32_CALL();
  return call.Return(emulated::CallingThreadId());
}

void OutputDebugStringW(const char16_t* lpOutputString) {
  WIN32_CALL(lpOutputString);
  if (call.Refused() || !lpOutputString) return;
  Machine& machine = Machine::Current();
  machine.debugOutput += lpOutputString;
  if (machine.debugSink) machine.debugSink(lpOutputString);
  emulated::SetLastError(ERROR_FILE_NOT_FOUND);  // of the shared buffer, which exists while somebody listens
}

HANDLE GetStdHandle(DWORD nStdHandle) {
  WIN32_CALL(nStdHandle);
  if (call.Refused()) return INVALID_HANDLE_VALUE;
  constexpr DWORD kStandardError = 0xFFFFFFF4;
  if (nStdHandle != STD_OUTPUT_HANDLE && nStdHandle != kStandardError) {
    emulated::SetLastError(ERROR_INVALID_HANDLE);
    return call.Return(INVALID_HANDLE_VALUE);
  }
  Machine& machine = Machine::Current();
  for (const auto& [value, entry] : machine.objects.all())
    if (entry.processId == machine.process.id && dynamic_cast<emulated::ConsoleObject*>(entry.object.get()))
      return call.Return(reinterpret_cast<HANDLE>(value));
  return call.Return(
      emulated::NewHandle(std::make_shared<emulated::ConsoleObject>(), FILE_GENERIC_READ | FILE_GENERIC_WRITE));
}

}  // namespace win32
