#include "support/tree.h"

#include <gtest/gtest.h>

#include <cstring>

#include "win32/win32.h"

namespace test {

namespace {

using namespace win32;

constexpr DWORD kItself = FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OPEN_REPARSE_POINT;
constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

UniqueFile OpenItself(const std::u16string& path, DWORD access) {
  return UniqueFile{CreateFileW(path.c_str(), access, kShareAll, nullptr, OPEN_EXISTING, kItself, nullptr)};
}

std::string Backup(const std::u16string& path) {
  const UniqueFile file = OpenItself(path, GENERIC_READ);
  std::string bytes;
  BYTE buffer[4096];
  DWORD read = 0;
  void* context = nullptr;
  while (file && BackupRead(file.get(), buffer, sizeof buffer, &read, FALSE, FALSE, &context) && read != 0)
    bytes.append(reinterpret_cast<const char*>(buffer), read);
  if (context) BackupRead(file.get(), nullptr, 0, &read, TRUE, FALSE, &context);
  return bytes;
}

std::uint64_t Number(FILETIME time) { return (std::uint64_t{time.dwHighDateTime} << 32) | time.dwLowDateTime; }

std::u16string SecurityText(const std::u16string& path, DWORD information) {
  UniqueLocalMemory descriptor, memory;
  if (GetNamedSecurityInfoW(path.c_str(), SE_OBJECT_TYPE::SE_FILE_OBJECT, information, nullptr, nullptr, nullptr,
                            nullptr, descriptor.put()) != ERROR_SUCCESS)
    return u"(none)";
  char16_t* text = nullptr;
  if (!ConvertSecurityDescriptorToStringSecurityDescriptorW(descriptor.get(), 1, information, &text, nullptr))
    return u"(bad)";
  memory.reset(text);
  return text;
}

void DescribeBelow(const std::u16string& root, const std::u16string& below, Tree& tree) {
  WIN32_FIND_DATAW found{};
  const UniqueFind find{FindFirstFileW((root + below + u"\\*").c_str(), &found)};
  if (!find) return;
  do {
    const std::u16string name = found.cFileName;
    if (name == u"." || name == u".." || name == u"System Volume Information") continue;
    const std::u16string path = below + u"\\" + name;
    tree[path] = Describe(root + path);
    const bool folder = (found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
    const bool link = (found.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0;
    if (folder && !link) DescribeBelow(root, path, tree);
  } while (FindNextFileW(find.get(), &found));
}

}  // namespace

void MakeFolder(const std::u16string& path) { ASSERT_TRUE(CreateDirectoryW(path.c_str(), nullptr)) << GetLastError(); }

void MakeFile(const std::u16string& path, std::string_view contents, DWORD attributes) {
  {
    const UniqueFile file{
        CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr)};
    ASSERT_TRUE(file) << GetLastError();
    DWORD written = 0;
    ASSERT_TRUE(WriteFile(file.get(), contents.data(), static_cast<DWORD>(contents.size()), &written, nullptr));
  }
  if (attributes) {
    ASSERT_TRUE(SetFileAttributesW(path.c_str(), attributes));
  }
}

void SetTimes(const std::u16string& path, unsigned number) {
  const UniqueFile file = OpenItself(path, FILE_WRITE_ATTRIBUTES);
  ASSERT_TRUE(file) << GetLastError();
  const auto time = [number](DWORD kind) { return FILETIME{number * 1000 + kind, 0x01D00000 + number}; };
  const FILETIME creation = time(1), access = time(2), write = time(3);
  ASSERT_TRUE(SetFileTime(file.get(), &creation, &access, &write));
}

void SetTag(const std::u16string& path, DWORD tag) {
  struct {
    DWORD tag;
    WORD length = 4, reserved = 0;
    BYTE bytes[4] = {1, 2, 3, 4};
  } data{tag};
  const UniqueFile file = OpenItself(path, GENERIC_WRITE);
  DWORD returned = 0;
  ASSERT_TRUE(DeviceIoControl(file.get(), FSCTL_SET_REPARSE_POINT, &data, sizeof data, nullptr, 0, &returned, nullptr));
}

void SetSecurity(const std::u16string& path, const std::u16string& sddl) {
  UniqueLocalMemory descriptor;
  ASSERT_TRUE(ConvertStringSecurityDescriptorToSecurityDescriptorW(sddl.c_str(), 1, descriptor.put(), nullptr));
  ASSERT_TRUE(SetFileSecurityW(path.c_str(), OWNER_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION, descriptor.get()))
      << GetLastError();
}

bool Exists(const std::u16string& path) { return Attributes(path) != INVALID_FILE_ATTRIBUTES; }
DWORD Attributes(const std::u16string& path) { return GetFileAttributesW(path.c_str()); }

std::string Contents(const std::u16string& path) {
  const UniqueFile file{
      CreateFileW(path.c_str(), GENERIC_READ, kShareAll, nullptr, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr)};
  if (!file) return "(none)";
  std::string contents(GetFileSize(file.get(), nullptr), '\0');
  DWORD read = 0;
  if (!ReadFile(file.get(), contents.data(), static_cast<DWORD>(contents.size()), &read, nullptr)) return "(none)";
  contents.resize(read);
  return contents;
}

std::u16string Security(const std::u16string& path) {
  return SecurityText(path, OWNER_SECURITY_INFORMATION | GROUP_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION);
}
std::u16string Dacl(const std::u16string& path) { return SecurityText(path, DACL_SECURITY_INFORMATION); }

std::string Streams(const std::u16string& path) { return Backup(path); }

std::string Describe(const std::u16string& path) {
  FILETIME creation{}, access{}, write{};
  {
    const UniqueFile file = OpenItself(path, FILE_READ_ATTRIBUTES);
    if (!file || !GetFileTime(file.get(), &creation, &access, &write)) return "(unreadable)";
  }
  std::string text = "attributes " + std::to_string(Attributes(path)) + " created " + std::to_string(Number(creation)) +
                     " written " + std::to_string(Number(write)) + " holds ";
  return text + Streams(path);
}

Tree DescribeTree(const std::u16string& root) {
  Tree tree;
  DescribeBelow(root, u"", tree);
  return tree;
}

std::vector<std::u16string> Names(const std::u16string& root) {
  std::vector<std::u16string> names;
  for (const auto& [path, description] : DescribeTree(root)) names.push_back(path);
  return names;
}

}  // namespace test
