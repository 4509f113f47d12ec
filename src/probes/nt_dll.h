// The entry points of ntdll.dll that the walk over the handle table needs. They are no part of the documented interface
// of Windows, so they are looked up when the program runs.
#pragma once

#include <cstddef>
#include <string>

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

// The text of a UNICODE_STRING that came with an answer of `size` bytes; empty unless its characters lie in the answer.
std::u16string TextIn(const win32::UNICODE_STRING& text, const win32::BYTE* answer, std::size_t size);
