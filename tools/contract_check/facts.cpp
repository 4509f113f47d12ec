#include "contract_check/facts.h"

#include <algorithm>
#include <cctype>
#include <cstring>

#include <gtest/gtest.h>

#include "contract_check/asked.h"
#include "contract_check/text.h"

namespace check {

Asked asked;

namespace {

constexpr char kHidden[] = "DISABLED_", kIndent[] = "    ";
// The last line of an answer.
constexpr char kHeld[] = "=held", kDidNotHold[] = "=did not hold", kNotAsked[] = "=not asked";

bool Fits(const char* name, const char* pattern) {
  if (*pattern == '*') return Fits(name, pattern + 1) || (*name != '\0' && Fits(name + 1, pattern));
  return *name == *pattern && (*name == '\0' || Fits(name + 1, pattern + 1));
}

LineFile answerFile;

// The lines of a text, indented as what stands below a fact.
void Tell(const std::string& text) {
  for (std::size_t begin = 0; begin < text.size();) {
    const std::size_t end = std::min(text.find('\n', begin), text.size());
    answerFile.Line(kIndent + text.substr(begin, end - begin));
    begin = end + 1;
  }
}

class Listener : public testing::EmptyTestEventListener {
  void OnTestPartResult(const testing::TestPartResult& result) override {
    const DWORD error = GetLastError();  // of the call that was looked at, most often
    if (result.skipped()) return Tell(std::string("reason: ") + result.message());
    const std::string file = result.file_name() ? result.file_name() : "";
    Tell(file.substr(file.find_last_of("/\\") + 1) + ":" + std::to_string(std::max(result.line_number(), 0)));
    Tell(result.message());
    Tell("the last error then: " + std::to_string(error));
  }
  void OnTestEnd(const testing::TestInfo& test) override {
    const testing::TestResult& result = *test.result();
    for (int i = 0; i < result.test_property_count(); ++i)
      Tell(std::string("value ") + result.GetTestProperty(i).key() + " = " + result.GetTestProperty(i).value());
    answerFile.Line(result.Failed() ? kDidNotHold : result.Skipped() ? kNotAsked : kHeld);
  }
};

// Says where, and ends the process without Windows' own report of the crash, which would lie elsewhere on the machine.
LONG WINAPI TellOfCrash(EXCEPTION_POINTERS* exception) {
  const EXCEPTION_RECORD& record = *exception->ExceptionRecord;
  char line[100];
  wsprintfA(line, "    ended by exception 0x%08x at 0x%08x of the program", record.ExceptionCode,
            static_cast<DWORD>(reinterpret_cast<ULONG_PTR>(record.ExceptionAddress) -
                               reinterpret_cast<ULONG_PTR>(GetModuleHandleW(nullptr))));
  answerFile.Line(line);
  TerminateProcess(GetCurrentProcess(), record.ExceptionCode);
  return EXCEPTION_EXECUTE_HANDLER;
}

// The job ends the fact's process when this one ends, however it does.
Handle JobThatEndsWithUs() {
  Handle job(CreateJobObjectW(nullptr, nullptr));
  JOBOBJECT_EXTENDED_LIMIT_INFORMATION limits{};
  limits.BasicLimitInformation.LimitFlags = JOB_OBJECT_LIMIT_KILL_ON_JOB_CLOSE;
  SetInformationJobObject(job.get(), JobObjectExtendedLimitInformation, &limits, sizeof limits);
  return job;
}

Answer Read(const std::wstring& file) {
  Answer answer;
  const std::string all = ReadAll(file);
  for (std::size_t begin = 0; begin < all.size();) {
    const std::size_t end = std::min(all.find("\r\n", begin), all.size());
    answer.lines.push_back(all.substr(begin, end - begin));
    begin = end + 2;
  }
  return answer;
}

}  // namespace

std::vector<std::string> FactsLike(const std::string& pattern) {
  std::vector<std::string> facts;
  const testing::UnitTest& all = *testing::UnitTest::GetInstance();
  for (int i = 0; i < all.total_test_suite_count(); ++i) {
    const testing::TestSuite& suite = *all.GetTestSuite(i);
    for (int k = 0; k < suite.total_test_count(); ++k) {
      const std::string fact = std::string(suite.name()) + "." + suite.GetTestInfo(k)->name();
      const bool isHidden = fact.find(kHidden) != std::string::npos && !pattern.starts_with(kHidden);
      if (!isHidden && Fits(fact.c_str(), pattern.c_str())) facts.push_back(fact);
    }
  }
  std::ranges::sort(facts);
  return facts;
}

std::string InWords(const std::string& fact) {
  std::string words;
  for (std::size_t i = 0; i < fact.size(); ++i) {
    const auto isUpper = [&](std::size_t at) {
      return at < fact.size() && std::isupper(static_cast<unsigned char>(fact[at]));
    };
    const bool isStart = isUpper(i) && i > 0 && fact[i - 1] != '.' && (!isUpper(i - 1) || !isUpper(i + 1));
    if (fact[i] == '.') {
      words += ": ";
    } else {
      if (isStart) words += ' ';
      words += static_cast<char>(std::tolower(static_cast<unsigned char>(fact[i])));
    }
  }
  return words;
}

int AskHere(const Arguments& arguments) {
  asked = {arguments.folder, arguments.other};
  if (!answerFile.Open(arguments.answer)) return 1;
  SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX);  // nobody is there to press a button
  SetUnhandledExceptionFilter(TellOfCrash);
  GTEST_FLAG_SET(filter, Utf8(arguments.fact));
  GTEST_FLAG_SET(also_run_disabled_tests, true);
  testing::TestEventListeners& listeners = testing::UnitTest::GetInstance()->listeners();
  delete listeners.Release(listeners.default_result_printer());
  listeners.Append(new Listener);  // which GoogleTest deletes
  return RUN_ALL_TESTS();
}

Answer AskInProcess(const std::string& fact, const std::wstring& folder, const std::wstring& other,
                    const std::wstring& answerPath, unsigned limit) {
  wchar_t program[1000] = {};
  GetModuleFileNameW(nullptr, program, 1000);
  std::wstring line = std::wstring(L"\"") + program + L"\" --ask --fact \"" + Wide(fact) + L"\" --folder \"" + folder +
                      L"\" --answer \"" + answerPath + L"\"";
  if (!other.empty()) line += L" --other \"" + other + L"\"";
  const Handle job = JobThatEndsWithUs();
  STARTUPINFOW startup{};
  startup.cb = sizeof startup;
  PROCESS_INFORMATION started{};
  Answer answer;
  if (!CreateProcessW(program, line.data(), nullptr, nullptr, FALSE, CREATE_SUSPENDED, nullptr, folder.c_str(),
                      &startup, &started)) {
    answer.lines = {kIndent + Utf8(L"no process for it: " + ErrorText(GetLastError()))};
    return answer;
  }
  const Handle process(started.hProcess), thread(started.hThread);
  AssignProcessToJobObject(job.get(), process.get());
  ResumeThread(thread.get());
  const bool isLate = WaitForSingleObject(process.get(), limit * 1000) == WAIT_TIMEOUT;
  if (isLate) TerminateProcess(process.get(), 1);
  WaitForSingleObject(process.get(), 10000);
  DWORD code = 0;
  GetExitCodeProcess(process.get(), &code);

  answer = Read(answerPath);
  answer.wasEnded = isLate;
  const std::string last = answer.lines.empty() ? "" : answer.lines.back();
  if (last.starts_with('=')) answer.lines.pop_back();
  if (last == kHeld) answer.verdict = Verdict::Held;
  if (last == kNotAsked) answer.verdict = Verdict::NotAsked;
  const std::string seconds = std::to_string(limit);
  if (isLate) answer.lines.push_back(kIndent + ("it was ended after " + seconds + " seconds"));
  if (!last.starts_with('=') && !isLate) {
    char text[60];
    wsprintfA(text, "    its process ended with 0x%08x", code);
    answer.lines.emplace_back(text);
  }
  return answer;
}

}  // namespace check
