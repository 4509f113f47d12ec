// Network shares for tests, made and told through the Windows interface alone.
#pragma once

#include <map>
#include <string>

namespace test {

// Shares a folder under this name, with a remark and a limit of its own.
void Share(std::u16string name, std::u16string path);

// Name and path of every share that Share made and that kept all else it was given.
std::map<std::u16string, std::u16string> Shares();

}  // namespace test
