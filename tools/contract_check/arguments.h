// The command line of contract_tests.exe.
#pragma once

#include <string>

namespace check {

enum class Task { Help, List, Run, Clean, Ask };

struct Arguments {
  Task task = Task::Help;
  std::wstring folder;        // on the volume that is asked
  std::wstring other;         // on another one, for the facts that need two; may be empty
  std::wstring report;        // the report's file; empty: beside the folder
  std::wstring fact = L"*";   // of which facts: a name, with * for any letters
  unsigned limit = 120;       // seconds that one fact may take
  std::wstring answer, root;  // Task::Ask: where the answer goes; the folder that holds all of this run
};

// What the arguments say. When they are wrong, `wrong` says why.
Arguments Parse(int argc, const wchar_t* const* argv, std::wstring& wrong);

extern const char* const kHelp;

}  // namespace check
