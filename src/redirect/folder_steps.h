// Steps that the two forms of folder redirection - onto a folder, onto a volume - have in common.
#pragma once

#include <string>

// May the path stand in a redirection as it is written? No "." or "..", no odd separators or blanks; a refusal has its
// line in the log.
bool IsUsablePath(const std::u16string& path);

// PathFileExistsW.
bool PathExists(const std::u16string& path);

// How a folder came to be there.
enum class FolderMade { New, StoodThere, Failed };
// SHCreateDirectoryExW. Nothing is said about a failure.
FolderMade MakeFolder(const std::u16string& folder);

// Tells on the console that the target folder exists already: contents are merged into it.
void SayThatTargetExists(const std::u16string& target);

void LogMoveFailed(const std::u16string& source, const std::u16string& target);
