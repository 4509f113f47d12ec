// What the product's service leaves below a registry redirection location.
#pragma once

#include <string>

// Deletes the service's data files below `location` (not its logs), and its folders there as far as they are empty.
// Does nothing while Rimehold would undo it, nor through a link. Failures are ignored.
void CleanRegistryData(const std::u16string& location);
