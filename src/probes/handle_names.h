// What the handles of other processes name.
#pragma once

#include <cstddef>
#include <span>
#include <string>

#include "probes/handle_list.h"

// The record's handle, as its own process knows it.
win32::HANDLE HandleOf(const HandleRecord& record);

// Closes what a question that a structured exception has ended had open.
void CloseWhatWasAsked();

// All of these answer 1 or 0 and fail while INtDll is not bound; a handle is one of that process.

// The name of the handle's type as this Windows calls it: "File", "Key", ...
int GetObjectTypeName(win32::HANDLE handle, win32::DWORD processId, std::u16string& name);

// The number under which the product knows a type (not this Windows's own number). Names are compared to the letter.
int GetObjectTypeNumber(const std::u16string& typeName, int& number);

// A file's name can take for ever to come (a synchronous pipe that waits for data), so another thread asks for it,
// which is ended when none has come for 100 ms; the handle then has an empty name and is asked nothing more. Where
// Windows starts no thread within 5 seconds, both throw std::runtime_error: no further handle is worth asking.

// The object's full native name, of a process "PID: 0x1C8". Empty for an object without a name.
int GetObjectName(win32::HANDLE handle, int typeNumber, std::u16string& name, win32::DWORD processId);

// The same of a file ("\Device\HarddiskVolume3\Users\a\file.txt"). Empty, too, for a null handle and process 0. The
// file is asked for its name within the volume first: that tells whether it answers.
int GetFileObjectName(win32::HANDLE handle, std::u16string& name, win32::DWORD processId);

// The same of kFilesAtOnce files at most, for which one thread asks, and another behind each that does not answer.
// False instead of the exception: what was answered before is there.
inline constexpr std::size_t kFilesAtOnce = 64;
struct FileToName {
  win32::HANDLE handle = nullptr;
  win32::DWORD processId = 0;
  std::u16string name = {};
  int result = 0;  // of GetFileObjectName
};
bool GetFileObjectNames(std::span<FileToName> files);
