// Steps that the two forms of folder redirection - onto a folder, onto a volume - have in common.
#pragma once

#include <string>
#include <vector>

#include "records/records.h"

// May the path stand in a redirection as it is written? No "." or "..", no odd separators or blanks; a refusal has its
// line in the log.
bool IsUsablePath(const std::u16string& path);

// PathFileExistsW.
bool PathExists(const std::u16string& path);
// Are both ends of a redirection that is to be removed there? The first that is not has its line in the log.
bool AreThere(const std::u16string& source, const std::u16string& target);

// How a folder came to be there.
enum class FolderMade { New, StoodThere, Failed };
// SHCreateDirectoryExW. Nothing is said about a failure.
FolderMade MakeFolder(const std::u16string& folder);

// Makes the folder at `path` if it is gone, and gives it what `like` has of its own.
bool MakeFolderLike(const std::u16string& path, const std::u16string& like);
// MoveFileW; a failure has its line in the log.
bool Rename(const std::u16string& from, const std::u16string& to);
// Is it this volume ("\\?\Volume{...}\") that is mounted on the folder?
bool IsMountedOn(const std::u16string& folder, const std::u16string& volume);

// Tells on the console that the target folder exists already: contents are merged into it.
void SayThatTargetExists(const std::u16string& target);

void LogMoveFailed(const std::u16string& source, const std::u16string& target);

// Where the contents of `source` go: a folder of its name below the target.
std::u16string RealTargetOf(const std::u16string& source, const std::u16string& target);

// Data moved from oldPath to newPath: the folders' records follow, and are read again into `records`. False when one
// still names the old place, or the registry does not tell; the log names it.
bool UpdateRecords(const std::u16string& oldPath, const std::u16string& newPath, std::vector<JunctionRecord>& records);

// Of a redirection that is recorded: when `source` is an ordinary folder, the log tells that the way back was cut off
// (a power failure), and what to do.
void TellIfRemovalWasCutOff(const std::u16string& source, const std::u16string& target);
// When `source` is a junction to `target` that no record names, the log tells the same of the way there.
void TellIfRedirectionWasCutOff(const std::u16string& source, const std::u16string& target);
