// May this file be redirected to that folder? Every operation answers yes or no; each rule that says no has its line in
// the log, and nothing has changed.
#pragma once

#include <string>

// The paths as the disk has them.
struct FilePlaces {
  FilePlaces(const std::u16string& file, const std::u16string& targetFolder);

  const std::u16string source;      // the file
  const std::u16string folder;      // where it goes
  const std::u16string realTarget;  // the file there
};

// What can be told before the target folder is there: the paths, the source, an earlier redirection.
bool MayBeRedirected(const FilePlaces& places);

// Source and target to each other, and the access to both. The target folder exists; for a run that only looks, what
// is there of its path will do.
bool MayGoThere(const FilePlaces& places);

// With the last error.
void LogCopyFailed(const std::u16string& source, const std::u16string& target);

// Somebody has the source open.
bool IsInUse(const std::u16string& source);

// Both names lead to one file (a junction on the way, a short name, a second name of the file), or that cannot be told.
// True has its line in the log.
bool AreOneFile(const FilePlaces& places);
