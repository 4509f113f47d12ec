// workstation: makes emulated workstations and looks into them. docs/man/workstation.1.scd describes every command.

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "workstation/command.h"
#include "workstation/help.h"
#include "workstation/staging.h"

namespace workstation {
namespace {

const Command* FindCommand(std::string_view name) {
  const auto& commands = Commands();
  const auto found = std::find_if(commands.begin(), commands.end(), [&](const Command& c) { return c.name == name; });
  return found == commands.end() ? nullptr : &*found;
}

int NoCommand(const char* name) {
  std::fprintf(stderr, "workstation: no command \"%s\"; workstation --help lists them\n", name);
  return 2;
}

// `--help` and `--version`, which need no folder.
int Say(std::string_view what, const char* name) {
  if (what == "--version") return std::printf("workstation %s\n", QBC_VERSION), 0;
  if (!name) return PrintHelp(stdout), 0;
  const Command* const command = FindCommand(name);
  return command ? (PrintHelp(stdout, *command), 0) : NoCommand(name);
}

int Run(int argc, char** argv) {
  const std::string_view first = argc > 1 ? argv[1] : "";
  if ((first == "--help" && argc <= 3) || (first == "--version" && argc == 2))
    return Say(first, argc == 3 ? argv[2] : nullptr);
  if (argc < 3) return PrintHelp(stderr), 2;
  if (argc == 3 && std::string_view(argv[2]) == "--help") return Say("--help", argv[1]);
  const Command* const command = FindCommand(first);
  if (!command) return NoCommand(argv[1]);
  const Arguments arguments(argv + 3, argv + argc);
  if (arguments.size() < command->least || arguments.size() > command->most) return PrintHelp(stderr, *command), 2;
  try {
    ClearUnfinished(argv[2]);
    command->run(argv[2], arguments);
    return 0;
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "workstation: %s\n", failure.what());
    return 1;
  }
}

}  // namespace
}  // namespace workstation

int main(int argc, char** argv) {
  // mkntfs is where the path of a user who is not root does not lead.
  const char* const path = std::getenv("PATH");
  setenv("PATH", (std::string(path ? path : "/usr/bin:/bin") + ":/usr/sbin:/sbin").c_str(), 1);
  return workstation::Run(argc, argv);
}
