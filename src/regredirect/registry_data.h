// What the product's service leaves below a registry redirection location, in "Quillbay\RegistryData".
#pragma once

#include <string>

// Deletes the service's data files below `location` (not its logs), and its folders there as far as they are empty.
// Does nothing while Rimehold would undo it, nor where the data lie of `locationInUse` (may be empty) or of a
// redirected folder, file or profile. Nothing is reached through a link, also not through one that somebody puts there
// meanwhile. Failures are ignored.
void CleanRegistryData(const std::u16string& location, const std::u16string& locationInUse = {});

// May the service keep its data below `location`? Not among those of a redirected folder, file or profile: they would
// go with them when the one or the other redirection is removed. A refusal has its line in the log.
bool MayHoldRegistryData(const std::u16string& location);

// The log tells of files that are there already, and that will go with the location.
void TellOfFormerRegistryData(const std::u16string& location);
