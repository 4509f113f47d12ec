// Which redirection names a place: as its source, as its target, or as a folder that holds one of them or lies in it.
// Asked of the records of folders and of files, by the paths as they are written and as they really are.
//
// What one of these refuses has its line in the log, which names the other redirection, and nothing has changed.
// Records that the registry does not tell are a refusal, too. A record whose link and whose contents are both gone is
// what is left of one, and its target is nobody's.
#pragma once

#include <optional>
#include <string>

#include "records/records.h"

// What comes to a place.
enum class Comes {
  Folder,   // whose record follows when the folder around it moves
  File,     // whose link leads nowhere when that happens
  Profile,  // which Windows does not find any more then
  Profiles  // several, beside what is there
};

// May the contents of `source` come to `place`, a folder or file that is there or not, or a volume by its name? Not to
// what holds another redirection's contents, nor to a folder around them or a folder that is among them already: they
// would be mixed, and the first to go home would take both. A file may lie among them where its path goes by the link.
// A place that a record names as its source is kept for what comes home there. A folder comes to none that is or holds
// somebody's profile, either.
bool MayComeTo(const std::u16string& source, const std::u16string& place, Comes what);

// May the folder `source` be redirected? Not what is exactly the contents of another redirection, or what a removal
// that was cut off has left: that one would lose its way home. Nor the folder in which Windows makes new profiles, or
// one that holds it.
bool MayLeave(const std::u16string& source);
// The same of a user's profile, which moves on from where it was moved to.
bool MayProfileLeave(const std::u16string& folder);
// And of a file.
bool MayFileLeave(const std::u16string& file);

// The record of a redirection as a command names it: by its target, or by the folder in which that was made; however it
// is spelled.
std::optional<JunctionRecord> FindRecord(const std::u16string& source, const std::u16string& location, int isFile);
