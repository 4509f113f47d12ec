// workstation: makes emulated workstations and looks into them. docs/workstation.md describes every command.

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "workstation/command.h"
#include "workstation/staging.h"

namespace workstation {
namespace {

void PrintUsage(std::FILE* to) {
  std::fprintf(to, "Usage: workstation COMMAND FOLDER [ARGUMENT]...\n\n");
  for (const Command& command : Commands())
    std::fprintf(to, "  %-8.*s %.*s\n           %.*s\n", static_cast<int>(command.name.size()), command.name.data(),
                 static_cast<int>(command.synopsis.size()), command.synopsis.data(),
                 static_cast<int>(command.purpose.size()), command.purpose.data());
}

int Run(int argc, char** argv) {
  if (argc == 2 && std::string_view(argv[1]) == "--help") return PrintUsage(stdout), 0;
  if (argc < 3) return PrintUsage(stderr), 2;
  const auto& commands = Commands();
  const auto command =
      std::find_if(commands.begin(), commands.end(), [&](const Command& c) { return c.name == argv[1]; });
  const Arguments arguments(argv + 3, argv + argc);
  if (command == commands.end() || arguments.size() < command->least || arguments.size() > command->most) {
    if (command == commands.end()) {
      std::fprintf(stderr, "workstation: no command \"%s\"; workstation --help lists them\n", argv[1]);
    } else {
      std::fprintf(stderr, "Usage: workstation %s %.*s\n", argv[1], static_cast<int>(command->synopsis.size()),
                   command->synopsis.data());
    }
    return 2;
  }
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
