#include "support/tree.h"

#include <gtest/gtest.h>

#include "contract/fixture.h"

namespace test {

namespace {

using namespace win32;

UniqueFile OpenItself(const std::u16string& path, DWORD access) {
  return contract::Open(path, access, contract::kShareAll, OPEN_EXISTING, contract::kOpenLink);
}

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
  for (const std::u16string& name : contract::Find(root + below + u"\\*")) {
    if (name == u"." || name == u".." || name == u"System Volume Information") continue;
    const std::u16string path = below + u"\\" + name;
    tree[path] = Describe(root + path);
    const DWORD kind = Attributes(root + path) & (FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT);
    if (kind == FILE_ATTRIBUTE_DIRECTORY) DescribeBelow(root, path, tree);
  }
}

}  // namespace

void MakeFolder(const std::u16string& path) { contract::MakeDirectory(path); }
void MakeFile(const std::u16string& path, std::string_view contents, DWORD attributes) {
  contract::Put(path, contents);
  ASSERT_TRUE(attributes == 0 || SetFileAttributesW(path.c_str(), attributes));
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
  const DWORD audit = sddl.find(u"S:(") == sddl.npos ? 0 : SACL_SECURITY_INFORMATION;
  ASSERT_TRUE(
      SetFileSecurityW(path.c_str(), OWNER_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION | audit, descriptor.get()))
      << GetLastError();
}

bool Exists(const std::u16string& path) { return Attributes(path) != INVALID_FILE_ATTRIBUTES; }
DWORD Attributes(const std::u16string& path) { return GetFileAttributesW(path.c_str()); }

std::string Contents(const std::u16string& path) {
  const UniqueFile file =
      contract::Open(path, GENERIC_READ, contract::kShareAll, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS);
  std::string contents(file ? GetFileSize(file.get(), nullptr) : 0, '\0');
  DWORD read = 0;
  const auto size = static_cast<DWORD>(contents.size());
  return file && ReadFile(file.get(), contents.data(), size, &read, nullptr) ? contents.substr(0, read) : "(none)";
}

std::u16string Security(const std::u16string& path) {
  constexpr DWORD kParts = OWNER_SECURITY_INFORMATION | GROUP_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION;
  const std::u16string all = SecurityText(path, kParts | SACL_SECURITY_INFORMATION);
  return all == u"(none)" ? SecurityText(path, kParts) : all;
}
std::u16string Dacl(const std::u16string& path) { return SecurityText(path, DACL_SECURITY_INFORMATION); }

std::string Streams(const std::u16string& path) {
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

std::string Describe(const std::u16string& path) {
  FILETIME creation{}, access{}, write{};
  if (!GetFileTime(OpenItself(path, FILE_READ_ATTRIBUTES).get(), &creation, &access, &write)) return "(unreadable)";
  const auto number = [](FILETIME time) {
    return std::to_string((std::uint64_t{time.dwHighDateTime} << 32) | time.dwLowDateTime);
  };
  return "attributes " + std::to_string(Attributes(path)) + " created " + number(creation) + " written " +
         number(write) + " holds " + Streams(path);
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
