// Critical sections and heaps, of win32/system.h.
#include <cstdlib>
#include <cstring>
#include <mutex>

#include "win32/emulated/call.h"
#include "win32/system.h"

namespace win32 {

namespace {

std::recursive_mutex* MutexOf(CRITICAL_SECTION* section) {
  std::recursive_mutex* mutex = nullptr;
  std::memcpy(&mutex, section->opaque, sizeof mutex);
  return mutex;
}

void SetMutex(CRITICAL_SECTION* section, std::recursive_mutex* mutex) {
  std::memcpy(section->opaque, &mutex, sizeof mutex);
}

int heap;  // its address is the process heap's handle

}  // namespace

// Critical sections do not pass the gate: a thread may wait in one, and the gate's lock is not to be held meanwhile.
void InitializeCriticalSection(CRITICAL_SECTION* lpCriticalSection) {
  SetMutex(lpCriticalSection, new std::recursive_mutex);
}

void EnterCriticalSection(CRITICAL_SECTION* lpCriticalSection) { MutexOf(lpCriticalSection)->lock(); }

void LeaveCriticalSection(CRITICAL_SECTION* lpCriticalSection) { MutexOf(lpCriticalSection)->unlock(); }

void DeleteCriticalSection(CRITICAL_SECTION* lpCriticalSection) {
  delete MutexOf(lpCriticalSection);
  SetMutex(lpCriticalSection, nullptr);
}

HANDLE GetProcessHeap() {
  WIN32_CALL();
  return call.Return(HANDLE{&heap});
}

void* HeapAlloc(HANDLE hHeap, DWORD dwFlags, SIZE_T dwBytes) {
  WIN32_CALL(hHeap, dwFlags, dwBytes);
  if (call.Refused()) return nullptr;
  const SIZE_T size = dwBytes == 0 ? 1 : dwBytes;
  void* const memory = (dwFlags & HEAP_ZERO_MEMORY) != 0 ? std::calloc(1, size) : std::malloc(size);
  return call.Return(memory);
}

// A refused call that frees says so and frees all the same: no program can do anything but go on.
BOOL HeapFree(HANDLE hHeap, DWORD dwFlags, void* lpMem) {
  WIN32_CALL(hHeap, dwFlags, lpMem);
  std::free(lpMem);
  if (call.Refused()) return FALSE;
  return call.Done(ERROR_SUCCESS);
}

// All local memory is fixed: its handle is its address, and locks are not counted.
void* LocalLock(HLOCAL hMem) {
  WIN32_CALL(hMem);
  if (call.Refused()) return nullptr;
  return call.Return(hMem);
}

BOOL LocalUnlock(HLOCAL hMem) {
  WIN32_CALL(hMem);
  if (call.Refused()) return FALSE;
  return call.Done(ERROR_NOT_LOCKED);
}

HLOCAL LocalFree(HLOCAL hMem) {
  WIN32_CALL(hMem);
  std::free(hMem);
  if (call.Refused()) return hMem;
  return call.Return(HLOCAL{nullptr});
}

}  // namespace win32
