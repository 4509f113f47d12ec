// Names as the disk has them.
#pragma once

#include <string>

// The path with its last component as the disk has it: the command may have written it in another letter case or as a
// short name. A path that nothing is found by stays as it is, and so does one that Windows would not write so.
std::u16string AsStored(const std::u16string& path);
