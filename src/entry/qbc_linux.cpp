// qbc: the program on the workstation in the folder named by QBC_WORKSTATION. Its arguments, output and exit code are
// those of QBC.exe; 3 with one line on stderr when the workstation cannot be opened or written back.

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>

#include <unistd.h>

#include "cli/main.h"
#include "entry/on_workstation.h"
#include "entry/program_module.h"
#include "win32/emulated/console_text.h"
#include "win32/emulated/machine.h"
#include "win32/emulated/text.h"
#include "win32/emulated/workstation.h"
#include "workstation/control_signals.h"
#include "workstation/intruder.h"
#include "workstation/progress.h"
#include "workstation/quillbay_service.h"

namespace {

constexpr int kWorkstationError = 3;

int Fail(const std::string& error) {
  std::fprintf(stderr, "qbc: %s\n", error.c_str());
  return kWorkstationError;
}

workstation::TitleBar& Bar() {
  static workstation::TitleBar bar;
  return bar;
}

// Redirected output gets the console's bytes as they are, as on Windows; a terminal here reads UTF-8.
void WriteConsole(std::string_view bytes) {
  static const bool terminal = isatty(STDOUT_FILENO) == 1;
  const std::string shown =
      terminal ? emulated::OemToUtf8(bytes, emulated::Machine::Current().oemCodePage) : std::string(bytes);
  if (terminal) Bar().Hide();
  std::fwrite(shown.data(), 1, shown.size(), stdout);
  emulated::Machine::Current().console.clear();  // nobody here reads it again
  if (terminal && shown.ends_with('\n')) Bar().ShowAgain();
}

// The title of the window is a bar on the terminal here.
void ShowTitles(emulated::Machine& machine) {
  machine.outputIsWindow = isatty(STDERR_FILENO) == 1;
  machine.titleSink = [](std::u16string_view title) { Bar().Show(emulated::Utf8(title)); };
  machine.tickCount = [] {
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    return static_cast<win32::DWORD>(std::chrono::duration_cast<std::chrono::milliseconds>(now).count());
  };
}

}  // namespace

int main(int argc, char** argv) {
  const char* const folder = WorkstationFolder("qbc");
  if (!folder) return kWorkstationError;

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
  ShowTitles(machine);
  if (const char* const intruder = std::getenv("QBC_INTRUDER")) {
    workstation::Intrusion intrusion;
    if (!workstation::ParseIntrusion(intruder, intrusion))
      return Fail("the environment variable QBC_INTRUDER is not CALL|NUMBER|FOLDER|TARGET");
    workstation::Intrude(machine, intrusion);
  }
  if (const char* const control = std::getenv("QBC_CONTROL");
      control && !workstation::PlanControlEvent(machine, control))
    return Fail("the environment variable QBC_CONTROL is not EVENT|NUMBER");
  TraceAsAsked(machine);

  const WideArguments arguments(argc, argv);
  const workstation::SignalsAsEvents signals(machine);  // which end nothing any more, the saving neither
  const int result = QuillbayMain(argc, arguments.argv());
  CountAsAsked(machine);
  std::fflush(stdout);
  return !station->MayBeSaved() || station->Save(error, workstation::DrawProgress()) ? result : Fail(error);
}
