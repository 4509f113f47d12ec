// Virtual memory and structured exceptions, of win32/process.h.
#include <cstdlib>
#include <cstring>

#include "win32/emulated/machine.h"
#include "win32/process.h"

namespace win32 {

namespace {

using emulated::Machine;

constexpr SIZE_T kPage = 4096;
constexpr SIZE_T kAddressSpace = SIZE_T{1} << 47;

}  // namespace

// Whole pages of zeros, reserved and committed at once for reading and writing; any other wish gives 87.
void* VirtualAlloc(void* lpAddress, SIZE_T dwSize, DWORD flAllocationType, DWORD flProtect) {
  WIN32_CALL(lpAddress, dwSize, flAllocationType, flProtect);
  if (call.Refused()) return nullptr;
  const auto fail = [&](DWORD error) {
    emulated::SetLastError(error);
    return call.Return(static_cast<void*>(nullptr));
  };
  if (lpAddress || dwSize == 0 || dwSize > kAddressSpace || flAllocationType != (MEM_COMMIT | MEM_RESERVE) ||
      flProtect != PAGE_READWRITE)
    return fail(ERROR_INVALID_PARAMETER);
  const SIZE_T size = (dwSize + kPage - 1) / kPage * kPage;
  void* const memory = std::aligned_alloc(kPage, size);
  if (!memory) return fail(ERROR_NOT_ENOUGH_MEMORY);
  std::memset(memory, 0, size);
  Machine::Current().virtualMemory.emplace(memory, std::unique_ptr<void, decltype(&std::free)>(memory, &std::free));
  return call.Return(memory);
}

// A refused call leaves the memory to the machine.
BOOL VirtualFree(void* lpAddress, SIZE_T dwSize, DWORD dwFreeType) {
  WIN32_CALL(lpAddress, dwSize, dwFreeType);
  if (call.Refused()) return FALSE;
  if (dwFreeType != MEM_RELEASE || dwSize != 0) return call.Done(ERROR_INVALID_PARAMETER);
  return call.Done(Machine::Current().virtualMemory.erase(lpAddress) == 1 ? ERROR_SUCCESS : ERROR_INVALID_ADDRESS);
}

// Only what Gate::RaiseInCall plans is a structured exception here; a real fault ends the host's process.
BOOL CallWithExceptionFilter(void (*call)(void* context), void* context, LONG (*filter)(DWORD exceptionCode)) {
  try {
    call(context);
    return TRUE;
  } catch (const emulated::StructuredException& exception) {
    if (filter(exception.code) != EXCEPTION_EXECUTE_HANDLER) throw;
    return FALSE;
  }
}

}  // namespace win32
