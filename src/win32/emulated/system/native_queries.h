// ntdll's queries, which programs look up at run time (see win32/ntdll.h). They pass the gate like every other call,
// and leave the last error alone.
#pragma once

#include <string_view>

#include "win32/ntdll.h"

namespace emulated {

win32::NTSTATUS NtQuerySystemInformation(int SystemInformationClass, void* SystemInformation,
                                         win32::ULONG SystemInformationLength, win32::ULONG* ReturnLength);
// Of a file whose name query hangs: does not return until its thread is ended.
win32::NTSTATUS NtQueryObject(win32::HANDLE Handle, int ObjectInformationClass, void* ObjectInformation,
                              win32::ULONG ObjectInformationLength, win32::ULONG* ReturnLength);
win32::NTSTATUS NtQueryInformationThread(win32::HANDLE ThreadHandle, int ThreadInformationClass,
                                         void* ThreadInformation, win32::ULONG ThreadInformationLength,
                                         win32::ULONG* ReturnLength);
// As NtQueryObject.
win32::NTSTATUS NtQueryInformationFile(win32::HANDLE FileHandle, win32::IO_STATUS_BLOCK* IoStatusBlock,
                                       void* FileInformation, win32::ULONG Length, int FileInformationClass);
win32::NTSTATUS NtQueryInformationProcess(win32::HANDLE ProcessHandle, int ProcessInformationClass,
                                          void* ProcessInformation, win32::ULONG ProcessInformationLength,
                                          win32::ULONG* ReturnLength);

// The number of a type in the system's handle table, as Windows 10 counts them; 0 for what is no object of the kernel.
win32::BYTE ObjectTypeIndex(std::u16string_view typeName);

}  // namespace emulated
