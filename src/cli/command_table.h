// The commands: their names, arguments, switches and usage texts.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

// The numbers are those of the help's order.
enum class Command {
  Help = 1,
  Version,
  GetRHStatus,
  CheckForUpdate,
  AutoRedirectUP,
  RedirectUP,
  RedirectUPDefault,
  RedirectFolder,
  RedirectRegKeyLocation,
  RedirectRegKey,
  RedirectFile
};

struct CommandEntry {
  Command command;
  std::vector<std::u16string> aliases;  // the first is the command's name
  std::u16string usage;
  std::size_t arguments;             // exactly so many,
  bool mayRunBare;                   // or none
  std::size_t argumentsAndSwitches;  // at most
  std::vector<std::u16string> switches;
};

struct CommandTable {
  bool vistaOrLater;  // Windows has the Default and Public profiles that some switches are about
  std::vector<CommandEntry> entries;
};

CommandTable BuildCommandTable();

// The help: every command's name and usage.
std::u16string HelpText(const CommandTable& table);
