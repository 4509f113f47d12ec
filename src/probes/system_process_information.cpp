#include "probes/system_process_information.h"

#include <cstring>

#include "probes/nt_dll.h"
#include "win32/system.h"

namespace {

using win32::SYSTEM_PROCESS_INFORMATION;

// Where the id of a record's process is read. On 64-bit Windows the id begins 4 bytes later, and what stands here is
// the padding before it: there no process is found under its own id, and names stay empty. Kept as the product's other
// components know it; nothing but names hangs on it.
constexpr std::size_t kProcessIdOffset = 76;

}  // namespace

bool SystemProcessInformation::Refresh() {
  processes_.clear();
  const INtDll& ntDll = INtDll::Get();
  if (!ntDll.IsBound() || !buffer_.data()) return false;
  if (!win32::NT_SUCCESS(ntDll.NtQuerySystemInformation(win32::SystemProcessInformationClass, buffer_.data(),
                                                        buffer_.size(), nullptr)))
    return false;
  for (std::size_t offset = 0; offset + sizeof(SYSTEM_PROCESS_INFORMATION) <= buffer_.size();) {
    const win32::BYTE* const at = buffer_.data() + offset;
    const auto* const record = reinterpret_cast<const SYSTEM_PROCESS_INFORMATION*>(at);
    win32::DWORD id = 0;
    std::memcpy(&id, at + kProcessIdOffset, sizeof id);
    processes_[id] = record;
    if (record->NextEntryOffset == 0) break;
    offset += record->NextEntryOffset;
  }
  return true;
}

std::u16string SystemProcessInformation::ImageName(win32::DWORD processId) const {
  const auto found = processes_.find(processId);
  return found == processes_.end() ? std::u16string()
                                   : TextIn(found->second->ImageName, buffer_.data(), buffer_.size());
}
