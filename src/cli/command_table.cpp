#include "cli/command_table.h"

#include <array>
#include <string_view>

#include "probes/windows_version.h"
#include "report/console.h"

namespace {

constexpr unsigned kHelpEntry = 130;

// A row of the table in numbers of the string table; 0 for no switches. Where Windows is older than Vista the usage and
// the switches of some commands differ.
struct Row {
  Command command;
  unsigned aliases;
  unsigned usage, olderUsage;
  std::size_t arguments, argumentsAndSwitches;
  unsigned switches, olderSwitches;
  bool mayRunBare;
};
constexpr std::array<Row, 11> kRows{{
    {Command::Help, 121, 122, 122, 0, 0, 0, 0, false},
    {Command::Version, 119, 120, 120, 0, 0, 0, 0, false},
    {Command::GetRHStatus, 117, 118, 118, 0, 0, 0, 0, false},
    {Command::CheckForUpdate, 115, 116, 116, 0, 0, 0, 0, false},
    {Command::AutoRedirectUP, 113, 114, 188, 1, 3, 186, 125, true},
    {Command::RedirectUP, 111, 112, 189, 2, 5, 187, 123, true},
    {Command::RedirectUPDefault, 109, 110, 190, 1, 4, 187, 123, false},
    {Command::RedirectFolder, 107, 108, 108, 2, 6, 124, 124, true},
    {Command::RedirectRegKeyLocation, 105, 106, 106, 1, 3, 125, 125, true},
    {Command::RedirectRegKey, 103, 104, 104, 1, 3, 125, 125, true},
    {Command::RedirectFile, 191, 192, 192, 2, 6, 124, 124, true},
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
  const unsigned switches = vistaOrLater ? row.switches : row.olderSwitches;
  return {.command = row.command,
          .aliases = SplitAtCommas(LoadResourceString(row.aliases)),
          .usage = LoadResourceString(vistaOrLater ? row.usage : row.olderUsage),
          .arguments = row.arguments,
          .mayRunBare = row.mayRunBare,
          .argumentsAndSwitches = row.argumentsAndSwitches,
          .switches = switches == 0 ? std::vector<std::u16string>() : SplitAtCommas(LoadResourceString(switches))};
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
    text += FormatText<int, std::u16string>(TableText(LoadResourceString(kHelpEntry)), ++number, name) + u"\n   " +
            entry.usage;
  }
  return text;
}
