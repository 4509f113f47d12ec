// Paths as texts: comparing, cutting, replacing.
#pragma once

#include <string>
#include <string_view>

// Do the texts name the same path, or part of one? Only A to Z are folded. A volume folds more letters, by a table of
// its own: two texts that differ here may still name one item, but equal ones never name two.
bool EqualPaths(std::u16string_view a, std::u16string_view b);

// Can a file system take the two names for one? It folds more letters than A to Z; here the others count as alike.
bool MayBeOneName(std::u16string_view a, std::u16string_view b);
// Could a volume have made this name (8.3), or make it, as the short one of a longer name?
bool MayBeShortName(std::u16string_view name);

// The path begins with "\\?\".
bool HasExtendedPrefix(std::u16string_view path);
// The path without "\\?\".
std::u16string_view WithoutExtendedPrefix(std::u16string_view path);
// The path with one "\\?\" in front.
std::u16string WithExtendedPrefix(std::u16string_view path);
// The path as file-system calls take it: "\\?\" goes in front of one of 260 characters or more that does not have it.
std::u16string ExtendedPath(std::u16string_view path);

// The path up to its last backslash, which is left out; empty without one.
std::u16string ParentPath(std::u16string_view path);
// What follows the last backslash; the whole path without one.
std::u16string LastComponent(std::u16string_view path);
// Folder and name with one backslash between them.
std::u16string JoinPath(std::u16string_view folder, std::u16string_view name);
// The path without the backslashes at its end; a drive's root ("C:\") keeps its own.
std::u16string WithoutTrailingBackslash(std::u16string_view path);
// A folder that a path was cut to, as Windows is asked about it: the bare "D:" would mean the drive's current folder.
std::u16string FolderForm(std::u16string path);
// One of the path's components is "." or "..".
bool HasDotComponents(std::u16string_view path);
// Is the path as Windows would write it: backslashes only, each of its components with a name, and none that ends in a
// dot or a blank? (One backslash may end it.)
bool IsPlainPath(std::u16string_view path);

// Would Windows take a path that ends with this name for a device ("nul", "con.txt", "COM1 .log"), whatever folder the
// path names? Such items are reached by "\\?\" only.
bool IsDeviceName(std::u16string_view name);

// The path is `folder` or lies below it: C:\Database is not below C:\Data.
bool IsSameOrBelow(std::u16string_view path, std::u16string_view folder);
// With newFolder in the place of oldFolder when the path is oldFolder or lies below it; otherwise as it is.
std::u16string ReplaceFolder(std::u16string_view path, std::u16string_view oldFolder, std::u16string_view newFolder);
// Where the contents of `source` go: a folder of its name below the target.
std::u16string RealTargetOf(const std::u16string& source, const std::u16string& target);
