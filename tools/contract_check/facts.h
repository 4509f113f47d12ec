// The facts: tests of GoogleTest, each asked in a process of its own. So one that crashes or hangs costs only itself,
// and whatever it had opened is closed before its folder is taken away.
#pragma once

#include <string>
#include <vector>

#include "contract_check/arguments.h"

namespace check {

// "FilesNames.Moving" of all facts that the pattern fits. Planted ones (DISABLED_) only for a pattern that says so.
std::vector<std::string> FactsLike(const std::string& pattern);
// "files names: moving"
std::string InWords(const std::string& fact);

// In the process of one fact: asks it, and writes the answer to arguments.answer. The process's exit code.
int AskHere(const Arguments& arguments);

enum class Verdict { Held, HeldLater, DidNotHold, NotAsked };
struct Answer {
  Verdict verdict = Verdict::DidNotHold;
  bool wasEnded = false;  // it took too long
  std::vector<std::string> lines;
};
// Starts that process, and waits for its end.
Answer AskInProcess(const std::string& fact, const std::wstring& folder, const std::wstring& other,
                    const std::wstring& answer, unsigned limit);

}  // namespace check
