#include "workstation/help.h"

#include <algorithm>
#include <string>
#include <string_view>

namespace workstation {
namespace {

constexpr std::size_t kColumns = 79;

// `text` in lines of kColumns, `first` blanks before the first and `others` before all others.
void PrintWrapped(std::FILE* to, std::string_view text, std::size_t first, std::size_t others) {
  std::string line(first, ' ');
  bool isEmpty = true;
  while (!text.empty()) {
    const std::string_view word = text.substr(0, text.find(' '));
    text.remove_prefix(std::min(text.size(), word.size() + 1));
    if (!isEmpty && line.size() + 1 + word.size() > kColumns) {
      std::fprintf(to, "%s\n", line.c_str());
      line.assign(others, ' ');
      isEmpty = true;
    }
    if (!isEmpty) line += ' ';
    line += word;
    isEmpty = false;
  }
  std::fprintf(to, "%s\n", line.c_str());
}

void PrintForms(std::FILE* to, const Command& command, const std::string& before, std::size_t indent) {
  std::string_view forms = command.synopsis;
  while (!forms.empty()) {
    const std::string_view form = forms.substr(0, forms.find('\n'));
    forms.remove_prefix(std::min(forms.size(), form.size() + 1));
    PrintWrapped(to, before + std::string(command.name) + " " + std::string(form), indent, indent + 8);
  }
}

}  // namespace

void PrintHelp(std::FILE* to) {
  std::fputs(
      "Usage: workstation COMMAND FOLDER [ARGUMENT]...\n"
      "       workstation --help [COMMAND]\n"
      "       workstation --version\n"
      "\n"
      "Makes emulated workstations, on which qbc and qbcreport run, and looks into\n"
      "them. FOLDER is the workstation's on this machine. PATH and KEY are the\n"
      "workstation's own, as Windows writes them: quote them for the shell. Sizes end\n"
      "in K, M or G.\n"
      "\n"
      "Commands:\n",
      to);
  for (const Command& command : Commands()) {
    PrintForms(to, command, "", 2);
    PrintWrapped(to, command.purpose, 6, 6);
  }
  std::fputs(
      "\n"
      "Exit codes:\n"
      "  0  it is done\n"
      "  1  it is not done, and a line on stderr says why\n"
      "  2  there is no such command, or it takes fewer or more arguments\n",
      to);
}

void PrintHelp(std::FILE* to, const Command& command) {
  std::fputs("Usage:\n", to);
  PrintForms(to, command, "workstation ", 2);
  PrintWrapped(to, command.purpose, 0, 0);
}

}  // namespace workstation
