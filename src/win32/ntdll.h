// The native system calls of ntdll.dll that the program looks up at run time (GetProcAddress), and what they fill in,
// as on 64-bit Windows. Nothing here is linked: the types say how to call what GetProcAddress found.
#pragma once

#include "win32/constants.h"

namespace win32 {

using NTSTATUS = LONG;

inline constexpr NTSTATUS STATUS_SUCCESS = 0;
inline constexpr NTSTATUS STATUS_BUFFER_OVERFLOW = static_cast<NTSTATUS>(0x80000005);
inline constexpr NTSTATUS STATUS_INFO_LENGTH_MISMATCH = static_cast<NTSTATUS>(0xC0000004);
inline constexpr bool NT_SUCCESS(NTSTATUS status) { return status >= 0; }

struct UNICODE_STRING {
  WORD Length;  // bytes, without a terminator (there need not be one)
  WORD MaximumLength;
  char16_t* Buffer;  // null for an empty one
};

struct IO_STATUS_BLOCK {
  union {
    NTSTATUS Status;
    void* Pointer;
  };
  ULONG_PTR Information;
};

// Information classes of NtQuerySystemInformation.
inline constexpr int SystemProcessInformationClass = 5;
inline constexpr int SystemHandleInformationClass = 16;
// Of NtQueryObject.
inline constexpr int ObjectNameInformation = 1;
inline constexpr int ObjectTypeInformation = 2;
// Of NtQueryInformationFile.
inline constexpr int FileNameInformation = 9;
// Of NtQueryInformationProcess.
inline constexpr int ProcessBasicInformation = 0;

// One handle of one process. Process ids and handle values of more than 16 bits are cut off here.
struct SYSTEM_HANDLE_TABLE_ENTRY_INFO {
  WORD UniqueProcessId;
  WORD CreatorBackTraceIndex;  // 0 unless handle tracing is on
  BYTE ObjectTypeIndex;        // numbers differ between versions of Windows
  BYTE HandleAttributes;
  WORD HandleValue;
  void* Object;
  DWORD GrantedAccess;
};

// What SystemHandleInformation fills in; `Handles` has NumberOfHandles entries.
struct SYSTEM_HANDLE_INFORMATION {
  DWORD NumberOfHandles;
  SYSTEM_HANDLE_TABLE_ENTRY_INFO Handles[1];
};

// The beginning of what SystemProcessInformation fills in for each process; its threads' records follow.
struct SYSTEM_PROCESS_INFORMATION {
  DWORD NextEntryOffset;  // bytes from this record to the next; 0 in the last
  DWORD NumberOfThreads;
  BYTE Reserved1[48];
  UNICODE_STRING ImageName;
  LONG BasePriority;
  HANDLE UniqueProcessId;  // at offset 80
  HANDLE InheritedFromUniqueProcessId;
  DWORD HandleCount;
  DWORD SessionId;
  ULONG_PTR UniqueProcessKey;
  BYTE Reserved2[144];  // sizes of memory and counts of input and output: 256 bytes in all
};

struct PROCESS_BASIC_INFORMATION {
  NTSTATUS ExitStatus;
  void* PebBaseAddress;
  ULONG_PTR AffinityMask;
  LONG BasePriority;
  ULONG_PTR UniqueProcessId;
  ULONG_PTR InheritedFromUniqueProcessId;
};

// What FileNameInformation fills in: the name within its volume ("\folder\file").
struct FILE_NAME_INFORMATION {
  DWORD FileNameLength;  // bytes
  char16_t FileName[1];
};

using NtQuerySystemInformationFunction = NTSTATUS (*)(int SystemInformationClass, void* SystemInformation,
                                                      ULONG SystemInformationLength, ULONG* ReturnLength);
using NtQueryObjectFunction = NTSTATUS (*)(HANDLE Handle, int ObjectInformationClass, void* ObjectInformation,
                                           ULONG ObjectInformationLength, ULONG* ReturnLength);
using NtQueryInformationThreadFunction = NTSTATUS (*)(HANDLE ThreadHandle, int ThreadInformationClass,
                                                      void* ThreadInformation, ULONG ThreadInformationLength,
                                                      ULONG* ReturnLength);
using NtQueryInformationFileFunction = NTSTATUS (*)(HANDLE FileHandle, IO_STATUS_BLOCK* IoStatusBlock,
                                                    void* FileInformation, ULONG Length, int FileInformationClass);
using NtQueryInformationProcessFunction = NTSTATUS (*)(HANDLE ProcessHandle, int ProcessInformationClass,
                                                       void* ProcessInformation, ULONG ProcessInformationLength,
                                                       ULONG* ReturnLength);

}  // namespace win32
