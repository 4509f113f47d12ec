#include "links/presence.h"

#include "win32/win32.h"

bool PathExists(const std::u16string& path) { return win32::PathFileExistsW(path.c_str()) != win32::FALSE; }

bool DirectoryExists(const char16_t* path) {
  const win32::DWORD attributes = win32::GetFileAttributesW(path);
  return attributes != win32::INVALID_FILE_ATTRIBUTES && (attributes & win32::FILE_ATTRIBUTE_DIRECTORY) != 0;
}
