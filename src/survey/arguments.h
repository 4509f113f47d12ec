// The report program's command line: a verb, words, and options ("--name" or "--name VALUE") in any order.
#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "survey/answer.h"

struct Verb;

struct Arguments {
  const Verb* verb = nullptr;
  std::vector<std::u16string> words;                // behind the verb
  std::map<std::u16string, std::u16string> values;  // of the options that are given, by name without "--"

  bool Has(std::u16string_view option) const { return values.contains(std::u16string(option)); }
  // Empty when the option is not given.
  std::u16string Value(std::u16string_view option) const {
    const auto found = values.find(std::u16string(option));
    return found == values.end() ? std::u16string() : found->second;
  }
};

struct VerbOption {
  std::u16string_view name;       // without "--"
  std::u16string_view valueName;  // as the help shows it; empty: the option has no value
  std::u16string_view help;
};

// A row of the table of verbs (verbs.cpp).
struct Verb {
  std::u16string_view name;
  std::u16string_view usage;  // behind the name
  std::u16string_view help;
  std::vector<VerbOption> options;
  std::size_t leastWords, mostWords;
  Answer (*run)(const Arguments& arguments);
};

const std::vector<Verb>& Verbs();

// False: `error` says what is wrong, in one line. Words and options behind the verb are held against the verb's row.
bool ParseArguments(int argc, const char16_t* const* argv, Arguments& arguments, std::u16string& error);

// All verbs, or one with its options.
std::u16string SurveyHelp(const Verb* verb);
