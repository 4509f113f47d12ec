// qbc: the program on the workstation in the folder named by QBC_WORKSTATION. Its arguments, output and exit code are
// those of QBC.exe; 3 with one line on stderr when the workstation cannot be opened or written back.

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include <unistd.h>

#include "cli/main.h"
#include "entry/program_module.h"
#include "win32/emulated/console_text.h"
#include "win32/emulated/machine.h"
#include "win32/emulated/text.h"
#include "win32/emulated/workstation.h"
#include "workstation/intruder.h"
#include "workstation/progress.h"
#include "workstation/quillbay_service.h"

namespace {

constexpr int kWorkstationError = 3;

int Fail(const std::string& error) {
  std::fprintf(stderr, "qbc: %s\n", error.c_str());
  return kWorkstationError;
}

// Redirected output gets the console's bytes as they are, as on Windows; a terminal here reads UTF-8.
void WriteConsole(std::string_view bytes) {
  static const bool terminal = isatty(STDOUT_FILENO) == 1;
  const std::string shown =
      terminal ? emulated::OemToUtf8(bytes, emulated::Machine::Current().oemCodePage) : std::string(bytes);
  std::fwrite(shown.data(), 1, shown.size(), stdout);
}

}  // namespace

int main(int argc, char** argv) {
  const char* const folder = std::getenv("QBC_WORKSTATION");
  if (!folder || !*folder) return Fail("the environment variable QBC_WORKSTATION does not name a workstation folder");

  // Every command that changes something takes an argument. One that asks is answered also where nothing can be
  // written; its log is lost then.
  const bool isLook = argc <= 2;
  std::string error;
  auto station = emulated::Workstation::Open(folder, error);
  if (!station && isLook) station = emulated::Workstation::Open(folder, error, emulated::ImageAccess::kRead);
  if (!station) return Fail(error);
  const std::string& protection = station->writeProtection();
  if (!protection.empty() && !isLook) return Fail(protection);
  if (!protection.empty()) std::fprintf(stderr, "qbc: %s (a look is all that is done)\n", protection.c_str());
  emulated::Machine& machine = station->machine();
  UseProgramModule(machine);
  workstation::RunQuillbayService(machine);
  machine.consoleSink = WriteConsole;
  if (const char* const intruder = std::getenv("QBC_INTRUDER")) {
    workstation::Intrusion intrusion;
    if (!workstation::ParseIntrusion(intruder, intrusion))
      return Fail("the environment variable QBC_INTRUDER is not CALL|NUMBER|FOLDER|TARGET");
    workstation::Intrude(machine, intrusion);
  }
  const char* const trace = std::getenv("QBC_TRACE");
  if (trace && std::strcmp(trace, "1") == 0)
    machine.gate.Trace([](const std::string& line) { std::fprintf(stderr, "%s\n", line.c_str()); });

  std::vector<std::u16string> arguments;
  for (int i = 0; i < argc; ++i) arguments.push_back(emulated::Utf16(argv[i]));
  std::vector<const char16_t*> pointers;
  for (const std::u16string& argument : arguments) pointers.push_back(argument.c_str());
  pointers.push_back(nullptr);

  const int result = QuillbayMain(argc, pointers.data());
  if (trace && std::strcmp(trace, "count") == 0) {
    for (const auto& [name, count] : machine.gate.Counts())
      std::fprintf(stderr, "%10llu %s\n", static_cast<unsigned long long>(count), name.c_str());
    std::fprintf(stderr, "%10llu calls\n", static_cast<unsigned long long>(machine.gate.Count()));
  }
  std::fflush(stdout);
  return !station->MayBeSaved() || station->Save(error, workstation::DrawProgress()) ? result : Fail(error);
}
