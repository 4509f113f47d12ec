// The configuration file as bytes: read, written, and made anew from the default in the program's resources.
#pragma once

#include <string>

// The file's text: what follows its first two bytes, taken as UTF-16 up to the first zero. False when the file cannot
// be opened or read, or has four bytes or fewer.
bool ReadConfigText(const std::u16string& path, std::u16string& text);

// Puts a byte-order mark and the text in place of what the file holds; makes the file where there is none. False with
// the last error of the call that failed; what the file held is put back then, as far as it can be written.
bool WriteConfigText(const std::u16string& path, const std::u16string& text);

// The default's text, as ReadConfigText reads it once it is written. False without one in the resources.
bool DefaultConfigText(std::u16string& text);

// Writes the default over whatever is there; makes the file's folder where it is missing. Without a default in the
// resources nothing is touched.
bool WriteDefaultConfigFile(const std::u16string& path);

// The folder that holds the user profiles, its environment variables replaced (ProfileList, "ProfilesDirectory").
// False when it cannot be read or is longer than 260 characters.
bool ReadProfilesDirectory(std::u16string& directory);
