// A snapshot of the system's list of processes.
#pragma once

#include <map>
#include <string>

#include "probes/system_memory.h"
#include "win32/ntdll.h"

class SystemProcessInformation {
 public:
  SystemProcessInformation() : buffer_(kBufferSize) {}

  // Takes the snapshot. False when INtDll is not bound or the list does not fit into 65,536 bytes: a machine on which
  // many processes with many threads run has a longer one.
  bool Refresh();

  // The name of the image that the process runs; empty for a process that is not in the snapshot.
  std::u16string ImageName(win32::DWORD processId) const;

 private:
  static constexpr win32::DWORD kBufferSize = 65536;

  SystemMemory buffer_;
  std::map<win32::DWORD, const win32::SYSTEM_PROCESS_INFORMATION*> processes_;
};
