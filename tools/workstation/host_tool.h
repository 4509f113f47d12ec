// Programs of the host that do what we leave to them.
#pragma once

#include <string>
#include <vector>

namespace workstation {

// Where a program that is given `inherited` finds that file.
inline constexpr const char* kInheritedFile = "/proc/self/fd/9";

// Runs `words` and answers what it printed. Fails with its own message, or with the name of the Debian package when
// the program is not there. `inherited`: a descriptor that it finds as kInheritedFile.
std::string RunHostTool(std::vector<std::string> words, const std::string& package, int inherited = -1);

}  // namespace workstation
