// What stands at a path.
#pragma once

#include <string>

// PathFileExistsW: something is there.
bool PathExists(const std::u16string& path);
// A folder is there, whatever it leads to.
bool DirectoryExists(const char16_t* path);
