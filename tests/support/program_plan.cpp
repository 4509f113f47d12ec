#include "support/program_plan.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>

#include "survey/json.h"
#include "survey/main.h"
#include "win32/emulated/text.h"

namespace test {
namespace {

using emulated::Utf8;

// What the verb may call, whatever the arguments; the last are those of an XML document.
const char* const kHarmless =
    " AccessCheck AdjustTokenPrivileges AllocateAndInitializeSid CheckTokenMembership CloseHandle CloseServiceHandle "
    "CoInitializeEx CoUninitialize ConvertSidToStringSidW ConvertStringSidToSidW CreateThread DuplicateHandle EqualSid "
    "ExpandEnvironmentStringsW FindClose FindFirstFileW FindFirstVolumeW FindNextFileW FindNextVolumeW FindResourceExW "
    "FindResourceW FindVolumeClose FormatMessageW FreeLibrary FreeSid GetAce GetCurrentProcess GetCurrentProcessId "
    "GetCurrentThread GetDiskFreeSpaceExW GetDriveTypeW GetFileAttributesW GetFileInformationByHandle GetFileSecurityW "
    "GetFileSize GetFileVersionInfoSizeW GetFileVersionInfoW GetFinalPathNameByHandleW GetLogicalDriveStringsW "
    "GetModuleFileNameW GetModuleHandleW GetNamedSecurityInfoW GetProcAddress GetProcessHeap GetSystemDirectoryW "
    "GetTokenInformation GetVersionExW GetVolumeInformationW GetVolumeNameForVolumeMountPointW GetVolumePathNameW "
    "GetVolumePathNamesForVolumeNameW HeapAlloc HeapFree ImpersonateSelf LoadLibraryExW LoadLibraryW LoadResource "
    "LocalFree LocalLock LocalUnlock LockResource LookupAccountNameW LookupAccountSidW MapGenericMask NetApiBufferFree "
    "NetShareEnum NtQueryInformationFile NtQueryInformationProcess NtQueryObject NtQuerySystemInformation OpenProcess "
    "OpenProcessToken OpenThreadToken OutputDebugStringW PathFileExistsW PathGetDriveNumberW PathIsDirectoryW "
    "PathIsRelativeW PathIsUNCW PathUnquoteSpacesW QueryDosDeviceW QueryServiceConfigW QueryServiceStatus ReadFile "
    "RegCloseKey RegEnumKeyExW RegEnumKeyW RegEnumValueW RegOpenKeyExW RegQueryInfoKeyW RegQueryValueExW RevertToSelf "
    "SHGetSpecialFolderPathW SizeofResource StrStrIW TerminateThread VerQueryValueW VirtualAlloc VirtualFree "
    "WaitForSingleObject WTSEnumerateProcessesW WTSFreeMemory BackupRead GetFileTime SetFilePointer "
    "CreateInstance get_documentElement get_item get_length get_text loadXML nextNode put_preserveWhiteSpace "
    "selectNodes selectSingleNode ";

// A call of the trace, "Name(arguments) = result  [error]": may it be made?
bool ChangesNothing(const std::string& line) {
  const std::string name = line.substr(0, line.find('('));
  if (std::string(kHarmless).find(" " + name + " ") != std::string::npos) return true;
  // The numbers behind the path or name.
  std::vector<unsigned long> numbers;
  const std::string arguments = line.substr(0, line.rfind(") = "));
  std::istringstream rest(
      arguments.substr(arguments.rfind('"') == arguments.npos ? name.size() : arguments.rfind('"')));
  for (std::string word; std::getline(rest, word, ',');)
    if (word.find_first_of("0123456789") == 1) numbers.push_back(std::strtoul(word.c_str(), nullptr, 0));
  if (name == "LookupPrivilegeValueW") return line.find("\"SeBackupPrivilege\"") != std::string::npos;
  if (name == "OpenSCManagerW" || name == "OpenServiceW")
    return !numbers.empty() && (numbers.back() & ~(win32::GENERIC_READ | 5ul)) == 0;
  if (name == "DeviceIoControl") return line.find(", 0x900A8") != std::string::npos;  // FSCTL_GET_REPARSE_POINT
  constexpr unsigned long kWrites = win32::GENERIC_WRITE | win32::GENERIC_ALL | win32::FILE_WRITE_DATA |
                                    win32::FILE_APPEND_DATA | win32::FILE_WRITE_EA | win32::FILE_WRITE_ATTRIBUTES |
                                    win32::WRITE_DAC | win32::WRITE_OWNER;
  return name == "CreateFileW" && numbers.size() == 4 && (numbers[0] & kWrites) == 0 &&
         numbers[2] == win32::OPEN_EXISTING && (numbers[3] & win32::FILE_FLAG_DELETE_ON_CLOSE) == 0;
}

// The plan of a command; nothing for one that redirects nothing, or that is used wrongly.
std::vector<std::u16string> PlanOf(const std::vector<std::u16string>& words) {
  static const std::map<std::u16string, std::u16string> kKinds{{u"/RedirectFolder", u"folder"},
                                                               {u"/RedirectFile", u"file"},
                                                               {u"/RedirectUP", u"profile"},
                                                               {u"/AutoRedirectUP", u"auto"}};
  std::vector<std::u16string> plan{u"plan"}, rest;
  if (words.empty() || !kKinds.contains(words.front())) return {};
  plan.push_back(kKinds.at(words.front()));
  const bool isAuto = plan.back() == u"auto";
  bool both = false;
  for (const std::u16string& word : std::vector(words.begin() + 1, words.end())) {
    if (word == u"/d" || word == u"/DefaultProfile" || word == u"/PublicProfile") return {};
    both |= word == u"/RedirectDefaultAndPublicProfile";
    if (!word.starts_with(u"/") || word.starts_with(u"/loc:") || word.starts_with(u"/vol:")) rest.push_back(word);
  }
  if (rest.size() != (isAuto ? 1u : 2u) || isAuto != both || rest.back().size() < 6 || rest.front().empty()) return {};
  if (!isAuto) plan.push_back(rest.front());
  plan.insert(plan.end(), {u"--json", u"--to", rest.back().substr(5)});
  return plan;
}

bool Has(const Json& list, const std::string& line) {
  return std::ranges::any_of(list, [&](const Json& one) { return (one.is_string() ? one : one["line"]) == line; });
}

void Compare(const Json& plan, const RunResult& run, const std::string& shown) {
  const bool begun = !run.Said(u"must be Thawed") && !run.Said(u"cannot be done on volume");
  const bool done = run.exitCode == 0 && begun;
  // What no rule can tell: that a copy fails, or the user's hive cannot be loaded.
  const bool failsLater = run.Logged(u"#ERROR: Unable to copy") || run.Logged(u"is damaged, or in use. Nothing") ||
                          run.Logged(u"was pressed.");
  EXPECT_EQ(plan["verdict"], done || failsLater ? "may" : "refused") << shown << Utf8(run.log);
  if (done || failsLater) return;
  for (const std::u16string& message : Messages(run.log)) {
    std::string line = Utf8(message);
    line.erase(line.find_last_not_of("\r\n ") + 1);
    const bool told =
        line.find("#ERROR") == std::string::npos || Has(plan["refusals"], line) || Has(plan["notes"], line);
    EXPECT_TRUE(told) << line << shown;
  }
}

}  // namespace

ReportRun RunReport(emulated::Machine& machine, const std::vector<std::u16string>& words) {
  UseProgramModule(machine);
  const auto token = machine.process.token;
  machine.process.token = std::make_shared<emulated::Token>(*token);
  std::vector<const char16_t*> argv{u"QBCReport.exe"};
  for (const std::u16string& word : words) argv.push_back(word.c_str());
  const OpenHandles open(machine);
  const auto [result, output, errors] = SurveyMain(static_cast<int>(argv.size()), argv.data());
  machine.process.token = token;
  return {static_cast<int>(result), output, errors};
}

RunResult RunPlanned(emulated::Machine& machine, const std::vector<std::u16string>& words) {
  const std::vector<std::u16string> plan = PlanOf(words);
  if (plan.empty() || machine.gate.IsScripted() || machine.controls.onEnd || machine.consoleSink)
    return RunProgram(machine, words);
  std::set<std::string> bad;
  machine.gate.Trace([&](const std::string& line) {
    if (!ChangesNothing(line)) bad.insert(line);
  });
  const ReportRun answer = RunReport(machine, plan);
  machine.gate.Trace({});
  for (const std::string& line : bad) ADD_FAILURE() << "the plan calls " << line;
  const RunResult run = RunProgram(machine, words);
  std::string shown = "\n" + answer.errors + answer.output;
  const Json document = Json::parse(answer.output, nullptr, false);
  if (document.is_object())
    Compare(document, run, shown);
  else
    ADD_FAILURE() << shown;
  return run;
}

}  // namespace test
