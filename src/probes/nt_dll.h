// The entry points of ntdll.dll that the walk over the handle table needs. They are no part of the documented interface
// of Windows, so they are looked up when the program runs.
#pragma once

#include "win32/ntdll.h"

class INtDll {
 public:
  // The process's one.
  static INtDll& Get();

  // Looks the entry points up unless that has succeeded before. False when one is missing: none is to be called then.
  bool Bind();
  bool IsBound() const { return bound_; }

  win32::NtQuerySystemInformationFunction NtQuerySystemInformation = nullptr;
  win32::NtQueryObjectFunction NtQueryObject = nullptr;
  win32::NtQueryInformationThreadFunction NtQueryInformationThread = nullptr;
  win32::NtQueryInformationFileFunction NtQueryInformationFile = nullptr;
  win32::NtQueryInformationProcessFunction NtQueryInformationProcess = nullptr;
  win32::DWORD majorVersion = 0;  // of Windows; 0 when it does not tell

 private:
  bool bound_ = false;
};
