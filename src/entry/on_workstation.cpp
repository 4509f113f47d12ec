#include "entry/on_workstation.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "win32/emulated/machine.h"
#include "win32/emulated/text.h"

namespace {

bool TraceIs(const char* kind) {
  const char* const trace = std::getenv("QBC_TRACE");
  return trace && std::strcmp(trace, kind) == 0;
}

}  // namespace

const char* WorkstationFolder(const char* program) {
  const char* const folder = std::getenv("QBC_WORKSTATION");
  if (folder && *folder) return folder;
  std::fprintf(stderr, "%s: the environment variable QBC_WORKSTATION does not name a workstation folder\n", program);
  return nullptr;
}

void TraceAsAsked(emulated::Machine& machine) {
  if (TraceIs("1")) machine.gate.Trace([](const std::string& line) { std::fprintf(stderr, "%s\n", line.c_str()); });
}

void CountAsAsked(const emulated::Machine& machine) {
  if (!TraceIs("count")) return;
  for (const auto& [name, count] : machine.gate.Counts())
    std::fprintf(stderr, "%10llu %s\n", static_cast<unsigned long long>(count), name.c_str());
  std::fprintf(stderr, "%10llu calls\n", static_cast<unsigned long long>(machine.gate.Count()));
}

WideArguments::WideArguments(int argc, char** argv) {
  for (int i = 0; i < argc; ++i) texts_.push_back(emulated::Utf16(argv[i]));
  for (const std::u16string& text : texts_) pointers_.push_back(text.c_str());
  pointers_.push_back(nullptr);
}
