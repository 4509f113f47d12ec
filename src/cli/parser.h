// The command line, matched against the command table.
#pragma once

#include <string_view>

#include "cli/command_table.h"
#include "profiles/shared_profiles.h"

struct CommandLine {
  const CommandEntry* entry = nullptr;
  std::vector<std::u16string> arguments;  // in order; a location without its "/loc:" or "/vol:"
  std::vector<std::u16string> switches;   // without their "/"

  // Case does not count.
  bool Has(std::u16string_view name) const;
  bool NamesDefaultOrPublic() const { return Has(kDefaultProfile) || Has(kPublicProfile); }
};

enum class ParseResult { Good = 0, NoCommand = 1, InvalidArguments = 2, InvalidSwitch = 3, ImproperNumber = 4 };

// Anything but Good: `error` says what is wrong.
ParseResult ParseCommandLine(const CommandTable& table, int argc, const char16_t* const* argv, CommandLine& line,
                             std::u16string& error);
