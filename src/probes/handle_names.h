// What the handles of other processes name.
#pragma once

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

// A file's name can take for ever to come (a synchronous pipe that waits for data), so a thread of its own asks for it,
// which is ended after 100 ms; the handle then has an empty name and is asked nothing more. Where Windows starts no
// thread within 5 seconds, both throw std::runtime_error: no further handle is worth asking.

// The object's full native name, of a process "PID: 0x1C8". Empty for an object without a name.
int GetObjectName(win32::HANDLE handle, int typeNumber, std::u16string& name, win32::DWORD processId);

// The same of a file ("\Device\HarddiskVolume3\Users\a\file.txt"). Empty, too, for a null handle and process 0. The
// file is asked for its name within the volume first: that tells whether it answers.
int GetFileObjectName(win32::HANDLE handle, std::u16string& name, win32::DWORD processId);
