// Other processes and handles of theirs: the scripting, and the calls of win32/process.h that reach for them.
#include "win32/emulated/system/processes.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <optional>

#include "win32/emulated/security/access.h"
#include "win32/emulated/system/pseudo_handles.h"
#include "win32/emulated/system/threads.h"
#include "win32/process.h"

namespace emulated {

const Process* FindProcess(const Machine& machine, win32::DWORD id) {
  if (id == machine.process.id) return &machine.process;
  const auto found =
      std::find_if(machine.others.begin(), machine.others.end(), [&](const Process& other) { return other.id == id; });
  return found == machine.others.end() ? nullptr : &*found;
}

Process& AddProcess(Machine& machine, win32::DWORD id, std::u16string_view image) {
  for (Process& other : machine.others)
    if (other.id == id) return other;
  return machine.others.emplace_back(Process{id, std::u16string(image), MakeSystemToken()});
}

void EndProcess(Machine& machine, win32::DWORD id) {
  machine.objects.CloseAll(id);
  std::erase_if(machine.others, [&](const Process& other) { return other.id == id; });
}

win32::HANDLE OpenInProcess(Machine& machine, win32::DWORD id, std::shared_ptr<Object> object,
                            win32::ACCESS_MASK granted) {
  AddProcess(machine, id);
  return machine.objects.Insert(std::move(object), id, granted);
}

std::uint64_t DeviceFile::NameQueryDelay() const {
  return delays_.empty() ? 0 : delays_[std::min(asked_++, delays_.size() - 1)];
}

DeviceFile::DeviceFile(std::u16string_view name, std::vector<std::uint64_t> nameQueryDelays)
    : delays_(std::move(nameQueryDelays)) {
  const std::size_t folder = name.find(u'\\', 1);  // behind \Device
  const std::size_t end = folder == name.npos ? name.size() : std::min(name.find(u'\\', folder + 1), name.size());
  device_ = name.substr(0, end);
  name_ = name.substr(end);
}

}  // namespace emulated

namespace win32 {

namespace {

using emulated::Machine;
using emulated::ProcessObject;

constexpr ACCESS_MASK kProcessAllAccess = 0x1FFFFF, kThreadAllAccess = 0x1FFFFF;
constexpr GENERIC_MAPPING kProcessMapping{0x20410, 0x20BEA, 0x121001, kProcessAllAccess};
constexpr DWORD kCloseSource = 1, kSameAccess = DUPLICATE_SAME_ACCESS;

ACCESS_MASK Mapped(ACCESS_MASK access, const GENERIC_MAPPING& mapping) {
  if (access & GENERIC_READ) access |= mapping.GenericRead;
  if (access & GENERIC_WRITE) access |= mapping.GenericWrite;
  if (access & GENERIC_EXECUTE) access |= mapping.GenericExecute;
  if (access & (GENERIC_ALL | MAXIMUM_ALLOWED)) access |= mapping.GenericAll;
  return access & 0x01FFFFFF;
}

// Administrators, who may debug, and a process's own user open it.
bool MayOpen(Machine& machine, const emulated::Process& process) {
  if (process.id == machine.process.id) return true;
  if (process.isProtected) return false;
  static const emulated::Sid administrators = emulated::SidFromText(u"S-1-5-32-544");
  const emulated::Token& token = machine.EffectiveToken();
  return token.Allows(administrators) || token.PrivilegeEnabled(u"SeDebugPrivilege") ||
         (process.token && process.token->user == token.user);
}

// The owner of a process as far as the caller may know it.
emulated::Sid SidToTell(Machine& machine, const emulated::Process& process) {
  return process.token && MayOpen(machine, process) ? process.token->user : emulated::Sid();
}

// Records with their names and SIDs behind them, in one block as WTSFreeMemory frees it.
class ProcessList {
 public:
  void Add(const emulated::Process& process, emulated::Sid sid) {
    texts_ += (process.image.size() + 1) * sizeof(char16_t);
    sids_ += sid.size();
    processes_.emplace_back(&process, std::move(sid));
  }

  // Null when there is no memory.
  WTS_PROCESS_INFOW* Take(DWORD& count) const {
    const std::size_t records = processes_.size() * sizeof(WTS_PROCESS_INFOW);
    auto* const block = static_cast<BYTE*>(std::malloc(records + sids_ + texts_));
    if (!block) return nullptr;
    auto* const first = reinterpret_cast<WTS_PROCESS_INFOW*>(block);
    BYTE* sid = block + records;  // their lengths are multiples of four, so the texts lie well behind them
    BYTE* text = sid + sids_;
    for (std::size_t i = 0; i < processes_.size(); ++i) {
      const auto& [process, owner] = processes_[i];
      const std::size_t length = (process->image.size() + 1) * sizeof(char16_t);
      first[i] = {process->id == 0 ? 0u : 1u, process->id, reinterpret_cast<char16_t*>(text),
                  owner.empty() ? nullptr : sid};
      std::memcpy(text, process->image.c_str(), length);
      if (!owner.empty()) std::memcpy(sid, owner.data(), owner.size());
      text += length;
      sid += owner.size();
    }
    count = static_cast<DWORD>(processes_.size());
    return first;
  }

 private:
  std::vector<std::pair<const emulated::Process*, emulated::Sid>> processes_;
  std::size_t texts_ = 0, sids_ = 0;
};

// The process that a handle with PROCESS_DUP_HANDLE names. 0, 5 or 6.
DWORD ProcessToReach(Machine& machine, HANDLE handle, DWORD& id) {
  id = machine.process.id;
  if (handle == kCurrentProcess) return ERROR_SUCCESS;
  const auto process = emulated::ObjectOf<ProcessObject>(handle);
  if (!process) return ERROR_INVALID_HANDLE;
  if (!(machine.objects.Entry(handle, machine.process.id)->granted & PROCESS_DUP_HANDLE)) return ERROR_ACCESS_DENIED;
  id = process->id();
  return emulated::FindProcess(machine, id) ? ERROR_SUCCESS : ERROR_ACCESS_DENIED;  // one that has ended
}

// What a handle of a process names; the two that every process has for itself as well.
std::optional<emulated::HandleEntry> EntryOf(Machine& machine, HANDLE handle, DWORD processId) {
  if (handle == kCurrentProcess)
    return emulated::HandleEntry{std::make_shared<ProcessObject>(processId), processId, kProcessAllAccess};
  if (handle == kCurrentThread && processId == machine.process.id)
    return emulated::HandleEntry{machine.threads().Calling(), processId, kThreadAllAccess};
  const emulated::HandleEntry* const entry = machine.objects.Entry(handle, processId);
  return entry ? std::optional(*entry) : std::nullopt;
}

}  // namespace

HANDLE OpenProcess(DWORD dwDesiredAccess, BOOL bInheritHandle, DWORD dwProcessId) {
  WIN32_CALL(dwDesiredAccess, bInheritHandle, dwProcessId);
  if (call.Refused()) return nullptr;
  Machine& machine = Machine::Current();
  const emulated::Process* const process = emulated::FindProcess(machine, dwProcessId);
  if (!process || !MayOpen(machine, *process)) {
    emulated::SetLastError(process ? ERROR_ACCESS_DENIED : ERROR_INVALID_PARAMETER);
    return call.Return(HANDLE{nullptr});
  }
  return call.Return(
      emulated::NewHandle(std::make_shared<ProcessObject>(dwProcessId), Mapped(dwDesiredAccess, kProcessMapping)));
}

// Who may not open a process is not told whose it is. The idle process has neither a name nor an owner.
BOOL WTSEnumerateProcessesW(HANDLE hServer, DWORD Reserved, DWORD Version, WTS_PROCESS_INFOW** ppProcessInfo,
                            DWORD* pCount) {
  WIN32_CALL(hServer, Reserved, Version);
  if (call.Refused()) return FALSE;
  if (Reserved != 0 || Version != 1 || !ppProcessInfo || !pCount) return call.Done(ERROR_INVALID_PARAMETER);
  if (hServer != WTS_CURRENT_SERVER_HANDLE) return call.Done(ERROR_INVALID_HANDLE);
  Machine& machine = Machine::Current();
  const emulated::Process idle;
  ProcessList list;
  list.Add(idle, {});
  list.Add(machine.process, SidToTell(machine, machine.process));
  for (const emulated::Process& other : machine.others) list.Add(other, SidToTell(machine, other));
  *ppProcessInfo = list.Take(*pCount);
  if (!*ppProcessInfo) return call.Done(ERROR_NOT_ENOUGH_MEMORY);
  emulated::SetLastError(ERROR_SUCCESS);
  return call.Return(TRUE);
}

// A refused call frees all the same, as LocalFree does.
void WTSFreeMemory(void* pMemory) {
  WIN32_CALL(pMemory);
  std::free(pMemory);
}

// Rights that the source handle does not have are refused (5): no object of this machine is asked for them anew.
BOOL DuplicateHandle(HANDLE hSourceProcessHandle, HANDLE hSourceHandle, HANDLE hTargetProcessHandle,
                     HANDLE* lpTargetHandle, DWORD dwDesiredAccess, BOOL bInheritHandle, DWORD dwOptions) {
  WIN32_CALL(hSourceProcessHandle, hSourceHandle, hTargetProcessHandle, dwDesiredAccess, bInheritHandle, dwOptions);
  if (call.Refused()) return FALSE;
  if (lpTargetHandle) *lpTargetHandle = nullptr;
  Machine& machine = Machine::Current();
  DWORD source = 0, target = 0;
  if (const DWORD error = ProcessToReach(machine, hSourceProcessHandle, source)) return call.Done(error);
  const auto entry = EntryOf(machine, hSourceHandle, source);
  if (!entry) return call.Done(ERROR_INVALID_HANDLE);
  if (lpTargetHandle) {
    if (const DWORD error = ProcessToReach(machine, hTargetProcessHandle, target)) return call.Done(error);
    const ACCESS_MASK access =
        dwOptions & kSameAccess ? entry->granted : Mapped(dwDesiredAccess, emulated::kFileMapping);
    if (access & ~entry->granted) return call.Done(ERROR_ACCESS_DENIED);
    *lpTargetHandle = machine.objects.Insert(entry->object, target, access);
  }
  if (dwOptions & kCloseSource) machine.objects.Close(hSourceHandle, source);
  return call.Done(ERROR_SUCCESS);
}

}  // namespace win32
