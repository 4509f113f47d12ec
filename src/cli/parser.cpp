#include "cli/parser.h"

#include <algorithm>

#include "report/console.h"
#include "text/ascii_case.h"

namespace {

constexpr std::size_t kLocationPrefix = 5;

bool HasLocationPrefix(std::u16string_view word) {
  return StartsWithIgnoringAsciiCase(word, u"/loc:") || StartsWithIgnoringAsciiCase(word, u"/vol:");
}

const CommandEntry* FindCommand(const CommandTable& table, std::u16string_view word) {
  for (const CommandEntry& entry : table.entries)
    if (ContainsIgnoringAsciiCase(entry.aliases, word)) return &entry;
  return nullptr;
}

void Split(int argc, const char16_t* const* argv, CommandLine& line) {
  for (int i = 2; i < argc; ++i) {
    const std::u16string_view word = argv[i];
    if (!word.starts_with(u'/') || HasLocationPrefix(word))
      line.arguments.emplace_back(word);
    else
      line.switches.emplace_back(word.substr(1));
  }
}

std::size_t RequiredArguments(const CommandLine& line) {
  if (line.NamesDefaultOrPublic() && line.entry->command == Command::RedirectUP) return 1;
  if (line.NamesDefaultOrPublic() && line.entry->command == Command::RedirectUPDefault) return 0;
  return line.entry->arguments;
}

bool NumberIsProper(const CommandLine& line) {
  if (line.arguments.empty() && line.entry->mayRunBare) return true;
  return line.arguments.size() == RequiredArguments(line) &&
         line.arguments.size() + line.switches.size() <= line.entry->argumentsAndSwitches;
}

// Whether the location, and nothing else, has the prefix of one; the prefix is taken off.
bool TakeLocation(CommandLine& line) {
  const auto takePrefix = [](std::u16string& argument) {
    if (!HasLocationPrefix(argument)) return false;
    argument.erase(0, kLocationPrefix);
    return true;
  };
  switch (line.entry->command) {
    case Command::AutoRedirectUP:
    case Command::RedirectRegKeyLocation:
      return takePrefix(line.arguments.front());
    case Command::RedirectUP:
    case Command::RedirectFolder:
    case Command::RedirectFile:
      // A lone argument beside /DefaultProfile or /PublicProfile is the location.
      if (line.arguments.size() > 1 && HasLocationPrefix(line.arguments.front())) return false;
      return takePrefix(line.arguments.back());
    case Command::RedirectUPDefault:
    case Command::RedirectRegKey:
      return !HasLocationPrefix(line.arguments.front());
    default:
      return true;
  }
}

auto Count(const CommandLine& line, std::u16string_view name) {
  return std::ranges::count_if(line.switches,
                               [&](const std::u16string& given) { return EqualIgnoringAsciiCase(given, name); });
}

bool SwitchesAreValid(const CommandLine& line) {
  for (const std::u16string& given : line.switches) {
    const std::vector<std::u16string>& allowed = line.entry->switches;
    if (!ContainsIgnoringAsciiCase(allowed, given) && !ContainsIgnoringAsciiCase(allowed, u"/" + given)) return false;
  }
  return Count(line, u"NTFS") + Count(line, u"-NTFS") <= 1 && Count(line, u"Share") + Count(line, u"-Share") <= 1 &&
         Count(line, u"c") <= 1 && Count(line, u"d") <= 1;
}

ParseResult Validate(CommandLine& line) {
  ParseResult result = NumberIsProper(line) ? ParseResult::Good : ParseResult::ImproperNumber;
  if (result == ParseResult::Good && !line.arguments.empty() && !TakeLocation(line))
    result = ParseResult::InvalidArguments;
  return SwitchesAreValid(line) ? result : ParseResult::InvalidSwitch;
}

std::u16string ErrorText(ParseResult result, const CommandEntry& entry, std::u16string_view typed) {
  const StringId id = result == ParseResult::InvalidArguments ? StringId::InvalidArguments
                      : result == ParseResult::InvalidSwitch  ? StringId::InvalidSwitch
                                                              : StringId::ImproperNumber;
  return FormatString(id, typed, entry.aliases.front(), entry.usage);
}

}  // namespace

bool CommandLine::Has(std::u16string_view name) const { return ContainsIgnoringAsciiCase(switches, name); }

ParseResult ParseCommandLine(const CommandTable& table, int argc, const char16_t* const* argv, CommandLine& line,
                             std::u16string& error) {
  if (argc < 2) {
    error = LoadResourceString(StringId::NoCommand);
    return ParseResult::NoCommand;
  }
  const std::u16string_view typed = argv[1];
  // The first character is not looked at: "/ver", "-ver" and "xver" are the same.
  line.entry = typed.size() >= 2 ? FindCommand(table, typed.substr(1)) : nullptr;
  if (!line.entry) {
    error = FormatString(StringId::InvalidCommand, typed);
    return ParseResult::NoCommand;
  }
  Split(argc, argv, line);
  const ParseResult result = Validate(line);
  if (result != ParseResult::Good) error = ErrorText(result, *line.entry, typed);
  return result;
}
