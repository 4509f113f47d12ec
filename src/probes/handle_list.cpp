#include "probes/handle_list.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <optional>

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

// What each of this Windows's numbers of types stands for, as far as it was asked: one handle answers for all.
using KnownTypes = std::array<std::optional<bool>, 256>;

bool IsFile(const HandleRecord& record, KnownTypes& isFile) {
  // Handles of this kind cannot be asked about before Windows 2000.
  constexpr win32::DWORD kFirstSafeVersion = 5, kUnsafeProcess = 2;
  constexpr win32::BYTE kUnsafeType = 0x10;
  if (INtDll::Get().majorVersion < kFirstSafeVersion && record.processId == kUnsafeProcess &&
      record.typeNumber == kUnsafeType)
    return false;
  std::optional<bool>& known = isFile[record.typeNumber];
  std::u16string typeName;
  if (!known && GetObjectTypeName(HandleOf(record), record.processId, typeName)) known = typeName == u"File";
  return known.value_or(false);
}

}  // namespace

bool HandleList::Read() {
  handles_.clear();
  if (!QueryTable(table_)) return false;
  const auto* const header = reinterpret_cast<const win32::SYSTEM_HANDLE_INFORMATION*>(table_.data());
  constexpr std::size_t kFirst = offsetof(win32::SYSTEM_HANDLE_INFORMATION, Handles);
  const std::size_t count =
      std::min<std::size_t>(header->NumberOfHandles, (table_.size() - kFirst) / sizeof(HandleRecord));
  KnownTypes isFile;
  if (count == 0) TellDebugger(u"No handle information\n");
  for (std::size_t index = 0; index < count; ++index) {
    HandleRecord record;
    std::memcpy(&record, table_.data() + kFirst + index * sizeof record, sizeof record);
    if (IsFile(record, isFile)) handles_.push_back(record);
  }
  table_ = SystemMemory();
  return true;
}
