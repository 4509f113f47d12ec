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

// What the report program may call, whatever the arguments; those in small letters are of an XML document.
const char* const kHarmless =
    " AccessCheck AdjustTokenPrivileges AllocateAndInitializeSid BackupRead CheckTokenMembership CloseHandle"
    " CloseServiceHandle CoInitializeEx ConvertSidToStringSidW ConvertStringSidToSidW CoUninitialize CreateInstance"
    " CreateThread DuplicateHandle EqualSid ExpandEnvironmentStringsW FindClose FindFirstFileW FindFirstVolumeW"
    " FindNextFileW FindNextVolumeW FindResourceExW FindResourceW FindVolumeClose FormatMessageW FreeLibrary FreeSid"
    " get_documentElement get_item get_length get_text GetAce GetCurrentProcess GetCurrentProcessId GetCurrentThread"
    " GetDiskFreeSpaceExW GetDriveTypeW GetFileAttributesW GetFileInformationByHandle GetFileSecurityW GetFileSize"
    " GetFileTime GetFileVersionInfoSizeW GetFileVersionInfoW GetFinalPathNameByHandleW GetLogicalDriveStringsW"
    " GetModuleFileNameW GetModuleHandleW GetNamedSecurityInfoW GetProcAddress GetProcessHeap GetSystemDirectoryW"
    " GetTokenInformation GetVersionExW GetVolumeInformationW GetVolumeNameForVolumeMountPointW"
    " GetVolumePathNamesForVolumeNameW GetVolumePathNameW HeapAlloc HeapFree ImpersonateSelf LoadLibraryExW"
    " LoadLibraryW LoadResource loadXML LocalFree LocalLock LocalUnlock LockResource LookupAccountNameW"
    " LookupAccountSidW LookupPrivilegeValueW MapGenericMask NetApiBufferFree NetShareEnum nextNode"
    " NtQueryInformationFile NtQueryInformationProcess NtQueryObject NtQuerySystemInformation OpenProcess"
    " OpenProcessToken OpenThreadToken OutputDebugStringW PathFileExistsW PathGetDriveNumberW PathIsDirectoryW"
    " PathIsRelativeW PathIsUNCW PathUnquoteSpacesW put_preserveWhiteSpace QueryDosDeviceW QueryServiceConfigW"
    " QueryServiceStatus ReadFile RegCloseKey RegEnumKeyExW RegEnumKeyW RegEnumValueW RegQueryInfoKeyW"
    " RegQueryValueExW RevertToSelf selectNodes selectSingleNode SetFilePointer SHGetSpecialFolderPathW SizeofResource"
    " StrStrIW TerminateThread VerQueryValueW VirtualAlloc VirtualFree WaitForSingleObject WTSEnumerateProcessesW"
    " WTSFreeMemory ";

// A call of the trace, "Name(arguments) = result  [error]": may it be made? A plan asks whether values could be set and
// files be deleted.
bool ChangesNothing(const std::string& line, bool isPlan) {
  const std::string name = line.substr(0, line.find('('));
  if (std::string(kHarmless).find(" " + name + " ") != std::string::npos) return true;
  // The numbers behind the path or name.
  std::vector<unsigned long> numbers;
  const std::string arguments = line.substr(0, line.rfind(") = "));
  std::istringstream rest(
      arguments.substr(arguments.rfind('"') == arguments.npos ? name.size() : arguments.rfind('"')));
  for (std::string word; std::getline(rest, word, ',');)
    if (word.find_first_of("0123456789") == 1) numbers.push_back(std::strtoul(word.c_str(), nullptr, 0));
  const auto isWithin = [&](std::size_t i, unsigned long rights) {
    return numbers.size() > i && (numbers[i] & ~rights) == 0;
  };
  if (name == "OpenSCManagerW" || name == "OpenServiceW")  // query configuration and status
    return isWithin(numbers.size() - 1, win32::GENERIC_READ | 5);
  if (name == "RegOpenKeyExW")  // query, enumerate, notify, the two views
    return isWithin(1, win32::READ_CONTROL | (isPlan ? 0x31F : 0x319));
  if (name == "DeviceIoControl") return line.find(", 0x900A8, ") != std::string::npos;  // FSCTL_GET_REPARSE_POINT
  constexpr unsigned long kReading = win32::GENERIC_READ | win32::READ_CONTROL | 0x89;  // data, attributes
  return name == "CreateFileW" && numbers.size() == 4 && isWithin(0, isPlan ? kReading | win32::DELETE : kReading) &&
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
  UseProgramModule(machine, u"QBCReport.exe");
  const auto token = machine.process.token;
  const auto own = std::make_shared<emulated::Token>(*token);
  for (emulated::TokenPrivilege& held : own->privileges)  // as when a program starts
    if ((held.attributes & win32::SE_PRIVILEGE_ENABLED_BY_DEFAULT) == 0) held.attributes = 0;
  machine.process.token = own;
  std::vector<const char16_t*> argv{u"QBCReport.exe"};
  for (const std::u16string& word : words) argv.push_back(word.c_str());
  std::set<std::string> bad;
  machine.gate.Trace([&](const std::string& line) {
    if (!ChangesNothing(line, words.front() == u"plan")) bad.insert(line);
  });
  const OpenHandles open(machine);
  const auto [result, output, errors] = SurveyMain(static_cast<int>(argv.size()), argv.data());
  machine.gate.Trace({});
  for (const std::string& line : bad) ADD_FAILURE() << "the report program calls " << line;
  for (const auto* name : {u"SeRestorePrivilege", u"SeTakeOwnershipPrivilege", u"SeDebugPrivilege"})
    EXPECT_FALSE(own->PrivilegeEnabled(name)) << Utf8(name);
  machine.process.token = token;
  return {static_cast<int>(result), output, errors};
}

RunResult RunPlanned(emulated::Machine& machine, const std::vector<std::u16string>& words) {
  const std::vector<std::u16string> plan = PlanOf(words);
  if (plan.empty() || machine.gate.IsScripted() || machine.controls.onEnd || machine.consoleSink)
    return RunProgram(machine, words);
  const ReportRun answer = RunReport(machine, plan);
  const RunResult run = RunProgram(machine, words);
  const std::string shown = "\n" + answer.errors + answer.output;
  const Json document = Json::parse(answer.output, nullptr, false);
  if (document.is_object())
    Compare(document, run, shown);
  else
    ADD_FAILURE() << shown;
  return run;
}

}  // namespace test
