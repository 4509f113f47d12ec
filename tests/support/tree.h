// Trees of files for tests: made, filled and described through the Windows interface alone.
#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "win32/types.h"

namespace test {

void MakeFolder(const std::u16string& path);
// A file, or a named stream of one ("C:\x:name"), with these contents. The attributes are set when they are not 0.
void MakeFile(const std::u16string& path, std::string_view contents, win32::DWORD attributes = 0);
// Sets creation, last-access and last-write time to distinct values that belong to this number.
void SetTimes(const std::u16string& path, unsigned number);
// Gives what is there a reparse point of this tag, with a few bytes of data.
void SetTag(const std::u16string& path, win32::DWORD tag);
// Owner and DACL; the SACL, too, when the text has one.
void SetSecurity(const std::u16string& path, const std::u16string& sddl);

bool Exists(const std::u16string& path);
win32::DWORD Attributes(const std::u16string& path);
// The contents of a file's main or named stream; "(none)" when it cannot be read.
std::string Contents(const std::u16string& path);
// Owner, group and DACL as text, and the SACL where it may be read.
std::u16string Security(const std::u16string& path);
std::u16string Dacl(const std::u16string& path);
// What ends up in a backup of the item but for its security: data, named streams, extended attributes, reparse data.
std::string Streams(const std::u16string& path);
// Attributes, times (without last access) and streams of the item itself, readable.
std::string Describe(const std::u16string& path);

// Everything below the root, by its path below it, with its description; links are not entered. In the order of paths.
using Tree = std::map<std::u16string, std::string>;
Tree DescribeTree(const std::u16string& root);
// The names only.
std::vector<std::u16string> Names(const std::u16string& root);

}  // namespace test
