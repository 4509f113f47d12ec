#include "contract_check/arguments.h"

#include <cwchar>
#include <map>

namespace check {

const char* const kHelp =
    "contract_tests.exe: does this Windows behave as Quillbay takes it to?\n"
    "\n"
    "  contract_tests.exe --folder X:\\scratch [--other Y:\\scratch] [--report FILE]\n"
    "                     [--fact NAME] [--limit SECONDS]\n"
    "  contract_tests.exe --clean --folder X:\\scratch [--other Y:\\scratch]\n"
    "  contract_tests.exe --list\n"
    "\n"
    "Run it as an administrator (from a prompt that was opened with \"Run as administrator\").\n"
    "\n"
    "  --folder  a folder on an NTFS volume, not there yet or empty. All that is tried is tried below it\n"
    "            and below HKEY_CURRENT_USER\\Software\\ContractTests, and both are taken away again.\n"
    "  --other   a folder on a second NTFS volume, for the facts that need two\n"
    "  --report  the file that the answers go to; without it, one beside the folder: X:\\scratch-report.txt\n"
    "  --fact    only this fact, or those whose names fit: FilesNames.Moving, FilesNames.*\n"
    "  --limit   how many seconds a fact may take (120)\n"
    "  --clean   only takes away what a run that was ended left behind\n"
    "  --list    the names of all facts\n"
    "\n"
    "The exit code: 0 all held, 1 some did not hold, 2 wrong arguments, 3 it could not be run or was stopped,\n"
    "4 something could not be taken away again (the report says what).\n";

Arguments Parse(int argc, const wchar_t* const* argv, std::wstring& wrong) {
  Arguments arguments;
  std::wstring limit;
  const std::map<std::wstring_view, std::wstring*> values{{L"--folder", &arguments.folder},
                                                          {L"--other", &arguments.other},
                                                          {L"--report", &arguments.report},
                                                          {L"--fact", &arguments.fact},
                                                          {L"--answer", &arguments.answer},
                                                          {L"--root", &arguments.root},
                                                          {L"--limit", &limit}};
  const std::map<std::wstring_view, Task> tasks{
      {L"--help", Task::Help}, {L"--list", Task::List}, {L"--clean", Task::Clean}, {L"--ask", Task::Ask}};
  bool isTold = argc < 2;
  for (int i = 1; i < argc; ++i) {
    if (const auto task = tasks.find(argv[i]); task != tasks.end()) {
      if (isTold) wrong = std::wstring(L"not with another task: ") + argv[i];
      arguments.task = task->second;
      isTold = true;
    } else if (const auto value = values.find(argv[i]); value == values.end()) {
      wrong = std::wstring(L"unknown: ") + argv[i];
    } else if (i + 1 == argc || argv[i + 1][0] == L'\0') {
      wrong = std::wstring(L"a value is missing: ") + argv[i];
    } else {
      *value->second = argv[++i];
    }
  }
  if (!isTold) arguments.task = Task::Run;
  if (!limit.empty()) {
    wchar_t* end = nullptr;
    arguments.limit = static_cast<unsigned>(std::wcstoul(limit.c_str(), &end, 10));
    if (*end != L'\0' || arguments.limit == 0 || arguments.limit > 86400) wrong = L"no number of seconds: " + limit;
  }
  const bool needsFolder = arguments.task == Task::Run || arguments.task == Task::Clean || arguments.task == Task::Ask;
  if (wrong.empty() && needsFolder && arguments.folder.empty()) wrong = L"--folder is missing";
  return arguments;
}

}  // namespace check
