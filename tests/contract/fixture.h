// What the contract tests stand on: a place to work in, on the emulated workstation and on Windows.
//
// A contract test states how Windows behaves, through win32/*.h only, so that it holds in both worlds.
#pragma once

#include <cstring>
#include <string>
#include <type_traits>
#include <vector>

#include <gtest/gtest.h>

#include "win32/win32.h"

namespace contract {

// An empty scratch folder of this test, u"C:\\Scratch" on the workstation. No trailing backslash.
std::u16string Scratch();
// A folder on another volume than Scratch(); empty where there is none.
std::u16string OtherVolume();
// Below this key of HKEY_CURRENT_USER tests may leave what they like, and nowhere else in the registry.
inline constexpr char16_t kKey[] = u"Software\\ContractTests";
// Wine implements only a part of Windows: tests of what it lacks are skipped there.
bool OnWine();

// By the name of the function; null where the system has none.
win32::CreateSymbolicLinkWFunction CreateSymbolicLink();
win32::GetFinalPathNameByHandleWFunction GetFinalPathNameByHandle();

// A test that begins with an empty scratch folder and works in it.
class FileTest : public testing::Test {
 protected:
  FileTest() : scratch_(Scratch()) {}
  std::u16string Path(std::u16string_view name) const { return scratch_ + u'\\' + std::u16string(name); }

 private:
  std::u16string scratch_;
};

// Short forms. Tests of what only the workstation has use them, too.

inline constexpr win32::DWORD kShareAll = win32::FILE_SHARE_READ | win32::FILE_SHARE_WRITE | win32::FILE_SHARE_DELETE;
inline constexpr win32::DWORD kOpenLink = win32::FILE_FLAG_BACKUP_SEMANTICS | win32::FILE_FLAG_OPEN_REPARSE_POINT;

inline win32::UniqueFile Open(const std::u16string& path, win32::DWORD access, win32::DWORD share,
                              win32::DWORD disposition = win32::OPEN_EXISTING, win32::DWORD flags = 0) {
  return win32::UniqueFile(win32::CreateFileW(path.c_str(), access, share, nullptr, disposition, flags, nullptr));
}

// The error that opening the path ends with; 0 when it opens.
inline win32::DWORD OpenError(const std::u16string& path, win32::DWORD access, win32::DWORD share = kShareAll,
                              win32::DWORD disposition = win32::OPEN_EXISTING, win32::DWORD flags = 0) {
  return Open(path, access, share, disposition, flags) ? 0 : win32::GetLastError();
}

// 0 for a call that succeeded, by its BOOL, handle or pointer; else the last error.
template <typename Result>
win32::DWORD ErrorOf(const Result& result) {
  if constexpr (std::is_same_v<Result, win32::HANDLE>)
    return result && result != win32::INVALID_HANDLE_VALUE ? 0 : win32::GetLastError();
  else
    return result ? 0 : win32::GetLastError();
}

inline win32::DWORD AttributesError(const std::u16string& path) {
  return win32::GetFileAttributesW(path.c_str()) != win32::INVALID_FILE_ATTRIBUTES ? 0 : win32::GetLastError();
}
inline win32::DWORD RemoveError(const std::u16string& path) { return ErrorOf(win32::RemoveDirectoryW(path.c_str())); }
inline win32::DWORD DeleteError(const std::u16string& path) { return ErrorOf(win32::DeleteFileW(path.c_str())); }
inline bool Exists(const std::u16string& path) { return AttributesError(path) == 0; }

inline void Put(const std::u16string& path, std::string_view content = "content") {
  const auto file = Open(path, win32::GENERIC_WRITE, 0, win32::CREATE_ALWAYS);
  ASSERT_TRUE(file) << win32::GetLastError();
  win32::DWORD written = 0;
  ASSERT_TRUE(
      win32::WriteFile(file.get(), content.data(), static_cast<win32::DWORD>(content.size()), &written, nullptr));
  ASSERT_EQ(written, content.size());
}

inline std::string Get(const std::u16string& path) {
  const auto file = Open(path, win32::GENERIC_READ, kShareAll);
  if (!file) return "error " + std::to_string(win32::GetLastError());
  std::string content(65536, '\0');
  win32::DWORD read = 0;
  if (!win32::ReadFile(file.get(), content.data(), static_cast<win32::DWORD>(content.size()), &read, nullptr))
    return "unreadable";
  content.resize(read);
  return content;
}

inline void MakeDirectory(const std::u16string& path) {
  ASSERT_TRUE(win32::CreateDirectoryW(path.c_str(), nullptr)) << win32::GetLastError();
}

// The names that a search finds, in its order.
inline std::vector<std::u16string> Find(const std::u16string& pattern) {
  std::vector<std::u16string> names;
  win32::WIN32_FIND_DATAW data{};
  const win32::UniqueFind search(win32::FindFirstFileW(pattern.c_str(), &data));
  if (!search) return names;
  do names.push_back(data.cFileName);
  while (win32::FindNextFileW(search.get(), &data));
  EXPECT_EQ(win32::GetLastError(), win32::ERROR_NO_MORE_FILES);
  return names;
}
inline win32::DWORD FindError(const std::u16string& pattern) {
  win32::WIN32_FIND_DATAW data{};
  return win32::UniqueFind(win32::FindFirstFileW(pattern.c_str(), &data)) ? 0 : win32::GetLastError();
}

// Reparse data of a junction, its header included (the substitute and the print name, each with a terminator).
inline std::vector<std::uint8_t> JunctionData(const std::u16string& substitute, const std::u16string& print = u"") {
  const auto length = [](const std::u16string& text) { return static_cast<std::uint16_t>(text.size() * 2); };
  std::vector<std::uint16_t> words{
      0x0003, 0xA000, 0, 0, 0, length(substitute), static_cast<std::uint16_t>(length(substitute) + 2), length(print)};
  words.insert(words.end(), substitute.begin(), substitute.end());
  words.push_back(0);
  words.insert(words.end(), print.begin(), print.end());
  words.push_back(0);
  words[2] = static_cast<std::uint16_t>(words.size() * 2 - 8);
  std::vector<std::uint8_t> bytes(words.size() * 2);
  std::memcpy(bytes.data(), words.data(), bytes.size());
  return bytes;
}

inline win32::DWORD SetReparse(win32::HANDLE handle, std::vector<std::uint8_t> data) {
  win32::DWORD returned = 0;
  return ErrorOf(win32::DeviceIoControl(handle, win32::FSCTL_SET_REPARSE_POINT, data.data(),
                                        static_cast<win32::DWORD>(data.size()), nullptr, 0, &returned, nullptr));
}

// Makes a junction at `path` (a new folder) to an object name such as u"\\??\\C:\\x".
inline void MakeJunction(const std::u16string& path, const std::u16string& substitute) {
  MakeDirectory(path);
  const auto handle = Open(path, win32::GENERIC_WRITE, 0, win32::OPEN_EXISTING, kOpenLink);
  ASSERT_TRUE(handle) << win32::GetLastError();
  ASSERT_EQ(SetReparse(handle.get(), JunctionData(substitute)), 0u);
}
inline std::u16string ObjectName(const std::u16string& path) { return u"\\??\\" + path; }

}  // namespace contract

#define SKIP_ON_WINE(reason) \
  if (contract::OnWine()) GTEST_SKIP() << reason
