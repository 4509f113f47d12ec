// Folders that are made and renamed on the way of a redirection.
#pragma once

#include <string>

// How a folder came to be there.
enum class FolderMade { New, StoodThere, Failed };
// SHCreateDirectoryExW. Nothing is said about a failure.
FolderMade MakeFolder(const std::u16string& folder);

// Makes the folder at `path` if it is gone, and gives it what `like` has of its own.
bool MakeFolderLike(const std::u16string& path, const std::u16string& like);
// MoveFileW; a failure has its line in the log.
bool Rename(const std::u16string& from, const std::u16string& to);
