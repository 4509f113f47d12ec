#include "cli/command_table.h"

#include <array>
#include <string_view>

#include "probes/windows_version.h"
#include "report/console.h"

namespace {

using enum StringId;

constexpr StringId kNone{};

// A row of the table. Where Windows is older than Vista the usage and the switches of some commands differ.
struct Row {
  Command command;
  StringId aliases, usage;
  std::size_t arguments, argumentsAndSwitches;
  bool mayRunBare;
  StringId switches = kNone;
  StringId olderUsage = usage, olderSwitches = switches;
};
constexpr std::array<Row, 11> kRows{{
    {Command::Help, HelpName, HelpUsage, 0, 0, false},
    {Command::Version, VersionName, VersionUsage, 0, 0, false},
    {Command::GetRHStatus, GetRHStatusName, GetRHStatusUsage, 0, 0, false},
    {Command::CheckForUpdate, CheckForUpdateName, CheckForUpdateUsage, 0, 0, false},
    {Command::AutoRedirectUP, AutoRedirectUPName, AutoRedirectUPUsage, 1, 3, true, AutoRedirectUPSwitches,
     AutoRedirectUPUsageBeforeVista, RemovalSwitches},
    {Command::RedirectUP, RedirectUPName, RedirectUPUsage, 2, 5, true, ProfileSwitches, RedirectUPUsageBeforeVista,
     ProfileSwitchesBeforeVista},
    {Command::RedirectUPDefault, RedirectUPDefaultName, RedirectUPDefaultUsage, 1, 4, false, ProfileSwitches,
     RedirectUPDefaultUsageBeforeVista, ProfileSwitchesBeforeVista},
    {Command::RedirectFolder, RedirectFolderName, RedirectFolderUsage, 2, 6, true, FolderSwitches},
    {Command::RedirectRegKeyLocation, RedirectRegKeyLocationName, RedirectRegKeyLocationUsage, 1, 3, true,
     RemovalSwitches},
    {Command::RedirectRegKey, RedirectRegKeyName, RedirectRegKeyUsage, 1, 3, true, RemovalSwitches},
    {Command::RedirectFile, RedirectFileName, RedirectFileUsage, 2, 6, true, FolderSwitches},
}};

std::vector<std::u16string> SplitAtCommas(std::u16string_view text) {
  std::vector<std::u16string> parts;
  while (!text.empty()) {
    const std::size_t comma = text.find(u',');
    parts.emplace_back(text.substr(0, comma));
    text.remove_prefix(comma == std::u16string_view::npos ? text.size() : comma + 1);
  }
  return parts;
}

CommandEntry MakeEntry(const Row& row, bool vistaOrLater) {
  const StringId switches = vistaOrLater ? row.switches : row.olderSwitches;
  return {.command = row.command,
          .aliases = SplitAtCommas(LoadResourceString(row.aliases)),
          .usage = LoadResourceString(vistaOrLater ? row.usage : row.olderUsage),
          .arguments = row.arguments,
          .mayRunBare = row.mayRunBare,
          .argumentsAndSwitches = row.argumentsAndSwitches,
          .switches = switches == kNone ? std::vector<std::u16string>() : SplitAtCommas(LoadResourceString(switches))};
}

}  // namespace

CommandTable BuildCommandTable() {
  CommandTable table{IsVistaOrLater(), {}};
  for (const Row& row : kRows) table.entries.push_back(MakeEntry(row, table.vistaOrLater));
  return table;
}

std::u16string HelpText(const CommandTable& table) {
  std::u16string text;
  int number = 0;
  for (const CommandEntry& entry : table.entries) {
    const std::u16string name = entry.aliases.empty() ? std::u16string() : entry.aliases.front();
    text += FormatString(HelpEntry, ++number, name) + u"\n   " + entry.usage;
  }
  return text;
}
