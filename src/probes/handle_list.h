// The handles of files in the system's handle table.
#pragma once

#include <vector>

#include "probes/system_memory.h"
#include "win32/ntdll.h"

// One entry of the table. The process id is read as 32 bits: its own 16 and the 16 of the back-trace index, which are 0
// unless handle tracing is on. Ids of 65,536 and more are cut off by Windows here, so such a process's handles go by
// another id and are passed over when that process cannot be asked.
struct HandleRecord {
  win32::DWORD processId;
  win32::BYTE typeNumber;
  win32::BYTE flags;
  win32::WORD handle;
  void* object;
  win32::DWORD grantedAccess;
};
static_assert(sizeof(HandleRecord) == 24);

class HandleList {
 public:
  // Reads the table. False when INtDll is not bound or the table cannot be had, which is tried twice: with 8,192 bytes,
  // then with 256 more than the system asked for.
  bool Read();
  // Those of every process, in the table's order.
  const std::vector<HandleRecord>& handles() const { return handles_; }

 private:
  SystemMemory table_;  // while it is read; not on the stack, which a structured exception leaves as it is
  std::vector<HandleRecord> handles_;
};
