// Values in the registry, above all texts that name folders and pictures of users.
#pragma once

#include <string>
#include <vector>

#include "win32/types.h"

// Windows' profile list, below HKEY_LOCAL_MACHINE.
inline constexpr const char16_t* kProfileListPath = u"SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion\\ProfileList";

// A value as it stands, byte for byte.
struct RegistryValue {
  win32::DWORD type = 0;
  std::vector<win32::BYTE> data;
};

// The error of the registry: ERROR_FILE_NOT_FOUND when there is no such value. After a failure `value` is as it was.
win32::LSTATUS ReadRegistryValue(win32::HKEY key, const char16_t* name, RegistryValue& value);
win32::LSTATUS WriteRegistryValue(win32::HKEY key, const char16_t* name, const RegistryValue& value);
// The same of a key below HKEY_LOCAL_MACHINE, which is not made where it is missing: ERROR_FILE_NOT_FOUND then, too.
// view: KEY_WOW64_32KEY, KEY_WOW64_64KEY, or the program's own.
win32::LSTATUS ReadMachineValue(const std::u16string& key, const char16_t* name, RegistryValue& value,
                                win32::ACCESS_MASK view = 0);
win32::LSTATUS WriteMachineValue(const std::u16string& key, const char16_t* name, const RegistryValue& value);

// All of the value as UTF-16 units, terminators included; whatever its type.
std::u16string UnitsOf(const RegistryValue& value);
bool IsText(const RegistryValue& value);  // REG_SZ or REG_EXPAND_SZ
// Its text up to the terminator, if it has one; with its variables as they are.
std::u16string RawText(const RegistryValue& value);
// The text with its variables replaced where the type says so. Empty for what is no text, or cannot be told.
std::u16string ExpandedText(const RegistryValue& value);
// The value of this text and type, with its terminator.
RegistryValue TextValue(const std::u16string& text, win32::DWORD type);
