#include "profiles/user_accounts.h"

#include <exception>
#include <vector>

#include "profiles/profile_list.h"
#include "text/ascii_case.h"
#include "win32/win32.h"

namespace {

constexpr std::u16string_view kShell = u"Explorer.exe";

// Empty when it is no SID.
std::u16string TextOfSid(win32::PSID sid) {
  char16_t* text = nullptr;
  if (!sid || !win32::ConvertSidToStringSidW(sid, &text)) return {};
  const win32::UniqueLocalMemory memory{text};
  return text;
}

// The processes of all sessions, as the terminal service tells them.
class ProcessList {
 public:
  ProcessList() {
    if (!win32::WTSEnumerateProcessesW(win32::WTS_CURRENT_SERVER_HANDLE, 0, 1, &processes_, &count_)) count_ = 0;
  }
  ~ProcessList() {
    if (processes_) win32::WTSFreeMemory(processes_);
  }
  ProcessList(const ProcessList&) = delete;
  ProcessList& operator=(const ProcessList&) = delete;
  const win32::WTS_PROCESS_INFOW* begin() const { return processes_; }
  const win32::WTS_PROCESS_INFOW* end() const { return processes_ + count_; }

 private:
  win32::WTS_PROCESS_INFOW* processes_ = nullptr;
  win32::DWORD count_ = 0;
};

// As the process's own token says; empty when it does not let itself be asked.
std::u16string OwnerByToken(win32::DWORD processId) {
  const win32::UniqueKernelHandle process{
      win32::OpenProcess(win32::PROCESS_QUERY_LIMITED_INFORMATION, win32::FALSE, processId)};
  win32::UniqueKernelHandle token;
  if (!process || !win32::OpenProcessToken(process.get(), win32::TOKEN_QUERY, token.put())) return {};
  win32::DWORD size = 0;
  win32::GetTokenInformation(token.get(), win32::TOKEN_INFORMATION_CLASS::TokenUser, nullptr, 0, &size);
  if (size < sizeof(win32::TOKEN_USER)) return {};
  std::vector<win32::BYTE> user(size);
  if (!win32::GetTokenInformation(token.get(), win32::TOKEN_INFORMATION_CLASS::TokenUser, user.data(), size, &size))
    return {};
  return TextOfSid(reinterpret_cast<const win32::TOKEN_USER*>(user.data())->User.Sid);
}

}  // namespace

std::u16string SidOfAccount(const std::u16string& name) try {
  using win32::SID_NAME_USE;
  win32::DWORD sidSize = 0, domainLength = 0;
  SID_NAME_USE use{};
  win32::LookupAccountNameW(nullptr, name.c_str(), nullptr, &sidSize, nullptr, &domainLength, &use);
  if (name.empty() || sidSize == 0) return {};
  std::vector<win32::BYTE> sid(sidSize);
  std::u16string domain(domainLength, u'\0');
  if (!win32::LookupAccountNameW(nullptr, name.c_str(), sid.data(), &sidSize, domain.data(), &domainLength, &use) ||
      use != SID_NAME_USE::SidTypeUser)
    return {};
  return TextOfSid(sid.data());
} catch (const std::exception&) {
  return {};
}

std::u16string NameOfAccount(const std::u16string& text) try {
  win32::UniqueLocalMemory sid;
  if (!win32::ConvertStringSidToSidW(text.c_str(), sid.put())) return {};
  win32::DWORD nameLength = 0, domainLength = 0;
  win32::SID_NAME_USE use{};
  win32::LookupAccountSidW(nullptr, sid.get(), nullptr, &nameLength, nullptr, &domainLength, &use);
  if (nameLength == 0) return {};
  std::u16string name(nameLength, u'\0'), domain(domainLength, u'\0');
  if (!win32::LookupAccountSidW(nullptr, sid.get(), name.data(), &nameLength, domain.data(), &domainLength, &use))
    return {};
  return name.c_str();
} catch (const std::exception&) {
  return {};
}

bool IsUserLoggedOn(const std::u16string& user) try {
  UserProfile profile;
  const std::u16string sid = GetUserProfile(user, profile) ? profile.sid : SidOfAccount(user);
  if (sid.empty()) return false;
  for (const win32::WTS_PROCESS_INFOW& process : ProcessList()) {
    if (!process.pProcessName || !EqualIgnoringAsciiCase(process.pProcessName, kShell)) continue;
    const std::u16string owner = process.pUserSid ? TextOfSid(process.pUserSid) : OwnerByToken(process.ProcessId);
    if (EqualIgnoringAsciiCase(owner, sid)) return true;
  }
  return false;
} catch (const std::exception&) {
  return false;
}
