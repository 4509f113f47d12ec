// What the programs of a workstation have in common around their run.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "win32/emulated/workstation.h"

// The folder that the environment variable QBC_WORKSTATION names; null, and a line on stderr, when it names none.
const char* WorkstationFolder(const char* program);

// The trace that the environment variable QBC_TRACE asks for, on stderr: "1" each call as it comes; "count", when the
// run is over, how often each was made.
void TraceAsAsked(emulated::Machine& machine);
void CountAsAsked(const emulated::Machine& machine);

// The command line as Windows gives it, with the null behind its end.
class WideArguments {
 public:
  WideArguments(int argc, char** argv);
  const char16_t* const* argv() const { return pointers_.data(); }

 private:
  std::vector<std::u16string> texts_;
  std::vector<const char16_t*> pointers_;
};
