#include "probes/handle_list.h"

#include <algorithm>
#include <cstring>

#include "probes/handle_names.h"
#include "probes/nt_dll.h"
#include "report/debugger.h"
#include "win32/system.h"

namespace {

constexpr win32::DWORD kFirstSize = 8192;
constexpr win32::DWORD kSlack = 256;  // handles come while the table is asked for

bool QueryTable(SystemMemory& table) {
  const INtDll& ntDll = INtDll::Get();
  if (!ntDll.IsBound()) return false;
  table = SystemMemory(kFirstSize);
  if (!table.data()) return false;
  win32::ULONG needed = 0;
  const auto query = [&] {
    return win32::NT_SUCCESS(
        ntDll.NtQuerySystemInformation(win32::SystemHandleInformationClass, table.data(), table.size(), &needed));
  };
  if (query()) return true;
  if (needed == 0) return false;
  table = SystemMemory(needed + kSlack);
  return table.data() && query();
}

bool IsFile(const HandleRecord& record) {
  // Handles of this kind cannot be asked about before Windows 2000.
  constexpr win32::DWORD kFirstSafeVersion = 5, kUnsafeProcess = 2;
  constexpr win32::BYTE kUnsafeType = 0x10;
  if (INtDll::Get().majorVersion < kFirstSafeVersion && record.processId == kUnsafeProcess &&
      record.typeNumber == kUnsafeType)
    return false;
  std::u16string typeName;
  return GetObjectTypeName(HandleOf(record), record.processId, typeName) && typeName == u"File";
}

}  // namespace

bool HandleList::Read() {
  handles_.clear();
  if (!QueryTable(table_)) return false;
  const auto* const header = reinterpret_cast<const win32::SYSTEM_HANDLE_INFORMATION*>(table_.data());
  constexpr std::size_t kFirst = offsetof(win32::SYSTEM_HANDLE_INFORMATION, Handles);
  const std::size_t count =
      std::min<std::size_t>(header->NumberOfHandles, (table_.size() - kFirst) / sizeof(HandleRecord));
  if (count == 0) TellDebugger(u"No handle information\n");
  for (std::size_t index = 0; index < count; ++index) {
    HandleRecord record;
    std::memcpy(&record, table_.data() + kFirst + index * sizeof record, sizeof record);
    if (IsFile(record)) handles_.push_back(record);
  }
  table_ = SystemMemory();
  return true;
}
