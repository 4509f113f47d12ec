// What a fact's process works with; contract/fixture_windows.cpp hands it on to the tests.
#pragma once

#include <string>

namespace check {

// Below HKEY_CURRENT_USER: the one key that is made. contract/fixture.h has it for the tests.
inline constexpr wchar_t kKey[] = L"Software\\ContractTests";

struct Asked {
  std::wstring folder;  // of this fact alone, and empty when it begins
  std::wstring other;   // the same on another volume; empty when there is none
};
extern Asked asked;

}  // namespace check
