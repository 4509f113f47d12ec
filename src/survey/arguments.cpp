#include "survey/arguments.h"

#include <algorithm>
#include <optional>

namespace {

const VerbOption* FindOption(const Verb& verb, std::u16string_view name) {
  const auto found = std::ranges::find(verb.options, name, &VerbOption::name);
  return found == verb.options.end() ? nullptr : &*found;
}

std::u16string Shown(const VerbOption& option) {
  std::u16string shown = u"--" + std::u16string(option.name);
  if (!option.valueName.empty()) shown += u" " + std::u16string(option.valueName);
  return shown;
}

// Takes "--name", "--name VALUE" or "--name=VALUE"; `next` is the word behind it, and `taken` tells that it was used.
std::u16string TakeOption(Arguments& arguments, std::u16string_view word, const char16_t* next, bool& taken) {
  const std::size_t equals = word.find(u'=');
  const std::u16string name(word.substr(2, equals == word.npos ? word.npos : equals - 2));
  const VerbOption* const option = FindOption(*arguments.verb, name);
  if (!option) return u"\"" + std::u16string(arguments.verb->name) + u"\" has no option \"--" + name + u"\".";
  std::optional<std::u16string> value;
  if (equals != word.npos) value = word.substr(equals + 1);
  if (option->valueName.empty() && value) return u"The option \"--" + name + u"\" has no value.";
  if (!option->valueName.empty() && !value && next) {
    value = next;
    taken = true;
  }
  if (!option->valueName.empty() && (!value || value->empty()))
    return u"The option \"--" + name + u"\" lacks its value.";
  if (!arguments.values.emplace(name, value.value_or(u"")).second)
    return u"The option \"--" + name + u"\" is given twice.";
  return {};
}

}  // namespace

bool ParseArguments(int argc, const char16_t* const* argv, Arguments& arguments, std::u16string& error) {
  const std::u16string_view name = argc > 1 ? argv[1] : u"";
  const auto verb = std::ranges::find(Verbs(), name, &Verb::name);
  if (verb == Verbs().end()) {
    error = name.empty() ? u"There is no verb." : u"There is no verb \"" + std::u16string(name) + u"\".";
    return false;
  }
  arguments.verb = &*verb;
  for (int i = 2; i < argc && error.empty(); ++i) {
    const std::u16string_view word = argv[i];
    bool taken = false;
    if (word.starts_with(u"--"))
      error = TakeOption(arguments, word, i + 1 < argc ? argv[i + 1] : nullptr, taken);
    else
      arguments.words.emplace_back(word);
    if (taken) ++i;
  }
  if (error.empty() && (arguments.words.size() < verb->leastWords || arguments.words.size() > verb->mostWords))
    error = u"The number of arguments of \"" + std::u16string(name) + u"\" is not proper.";
  return error.empty();
}

std::u16string SurveyHelp(const Verb* verb) {
  std::u16string text = u"Usage:\n";
  for (const Verb& one : Verbs())
    if (!verb || verb == &one) {
      text += u"  QBCReport " + std::u16string(one.name);
      if (!one.usage.empty()) text += u" " + std::u16string(one.usage);
      text += u"\n      " + std::u16string(one.help) + u"\n";
      for (const VerbOption& option : one.options) {
        std::u16string shown = Shown(option);
        shown.resize(std::max<std::size_t>(shown.size(), 16), u' ');
        text += u"      " + shown + u"  " + std::u16string(option.help) + u"\n";
      }
    }
  if (!verb) text += u"  QBCReport --help | --version\n";
  text += u"It only looks. Exit codes: 0 fine, 1 refused or not whole, 2 wrong arguments, 3 cannot be told.\n";
  return text;
}
