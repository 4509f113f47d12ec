// ls, cat, put, get, mkdir, rm, link, attrib, acl, touch.

#include <cstdio>
#include <fstream>
#include <iostream>
#include <iterator>
#include <system_error>

#include <fcntl.h>
#include <sys/stat.h>

#include "win32/emulated/files/file_service.h"
#include "win32/emulated/files/runtime_bound.h"
#include "win32/emulated/text.h"
#include "win32/win32.h"
#include "workstation/command.h"

namespace workstation {

namespace fs = std::filesystem;
using emulated::Utf16;
using emulated::Utf8;
using win32::UniqueFile;

namespace {

constexpr win32::DWORD kShareAll = win32::FILE_SHARE_READ | win32::FILE_SHARE_WRITE | win32::FILE_SHARE_DELETE;

[[noreturn]] void FailLast(std::u16string_view path) { FailWith(Utf8(path), win32::GetLastError()); }

// What lies on the volume, whoever has it open: the system's hives are files like others here.
void CopyOut(const std::u16string& path, std::ostream& to) {
  emulated::Location location;
  win32::DWORD error = emulated::Machine::Current().files().Resolve(path, true, location);
  if (error == 0 && location.file == 0) error = win32::ERROR_FILE_NOT_FOUND;
  if (error == 0 && (location.info.attributes & win32::FILE_ATTRIBUTE_DIRECTORY) && location.stream.empty())
    error = win32::ERROR_ACCESS_DENIED;
  emulated::Bytes buffer(1 << 20);
  for (std::uint64_t offset = 0; error == 0;) {
    std::size_t done = 0;
    error = location.volume->volume->Read(location.file, location.stream, offset, buffer, done);
    if (error != 0 || done == 0) break;
    if (!to.write(reinterpret_cast<const char*>(buffer.data()), static_cast<std::streamsize>(done)))
      throw Failure("the host file could not be written");
    offset += done;
  }
  if (error != 0) FailWith(Utf8(path), error);
}

// A file of the host, under another name until it is whole.
void CopyOutTo(const std::u16string& path, const fs::path& to) {
  const fs::path part = to.string() + ".part";
  try {
    std::ofstream file(part, std::ios::binary | std::ios::trunc);
    if (!file) throw Failure(to.string() + ": cannot be written");
    CopyOut(path, file);
    file.close();
    if (!file) throw Failure(to.string() + ": cannot be written");
    fs::rename(part, to);
  } catch (...) {
    std::error_code ignored;
    fs::remove(part, ignored);
    throw;
  }
}

void CopyIn(std::istream& from, const std::u16string& path) {
  const UniqueFile file{win32::CreateFileW(path.c_str(), win32::GENERIC_WRITE, 0, nullptr, win32::CREATE_ALWAYS,
                                           win32::FILE_FLAG_BACKUP_SEMANTICS, nullptr)};
  if (!file) FailLast(path);
  std::vector<char> buffer(1 << 20);
  while (from.read(buffer.data(), static_cast<std::streamsize>(buffer.size())), from.gcount() > 0) {
    win32::DWORD written = 0;
    if (!win32::WriteFile(file.get(), buffer.data(), static_cast<win32::DWORD>(from.gcount()), &written, nullptr))
      FailLast(path);
  }
}

struct Entry {
  std::u16string name;
  win32::WIN32_FIND_DATAW data;
};

std::vector<Entry> Enumerate(const std::u16string& folder) {
  std::vector<Entry> entries;
  win32::WIN32_FIND_DATAW data{};
  const win32::UniqueFind find{
      win32::FindFirstFileW((folder + (folder.back() == u'\\' ? u"*" : u"\\*")).c_str(), &data)};
  if (!find) {
    if (win32::GetLastError() == win32::ERROR_FILE_NOT_FOUND) return entries;  // an empty root
    FailLast(folder);
  }
  do {
    const std::u16string name = data.cFileName;
    if (name != u"." && name != u"..") entries.push_back({name, data});
  } while (win32::FindNextFileW(find.get(), &data));
  return entries;
}

std::u16string Join(const std::u16string& folder, const std::u16string& name) {
  return folder + (folder.back() == u'\\' ? u"" : u"\\") + name;
}

bool IsLink(const Entry& entry) { return (entry.data.dwFileAttributes & win32::FILE_ATTRIBUTE_REPARSE_POINT) != 0; }
bool IsDirectory(const Entry& entry) { return (entry.data.dwFileAttributes & win32::FILE_ATTRIBUTE_DIRECTORY) != 0; }

void ListFolder(const std::u16string& folder, bool recursive, int depth) {
  for (const Entry& entry : Enumerate(folder)) {
    const auto size = (static_cast<unsigned long long>(entry.data.nFileSizeHigh) << 32) | entry.data.nFileSizeLow;
    const char* const kind =
        IsLink(entry)        ? (entry.data.dwReserved0 == win32::IO_REPARSE_TAG_MOUNT_POINT ? "<JUNCTION>" : "<LINK>")
        : IsDirectory(entry) ? "<DIR>"
                             : "";
    std::printf("%10s %14s  %*s%s\n", kind, IsDirectory(entry) ? "" : std::to_string(size).c_str(), depth * 2, "",
                Utf8(entry.name).c_str());
    if (recursive && IsDirectory(entry) && !IsLink(entry)) ListFolder(Join(folder, entry.name), true, depth + 1);
  }
}

win32::FILETIME ToFileTime(std::int64_t time) {
  return {static_cast<win32::DWORD>(time & 0xFFFFFFFF), static_cast<win32::DWORD>(time >> 32)};
}

void PutTree(const fs::path& from, const std::u16string& to) {
  if (fs::is_directory(fs::symlink_status(from))) {
    if (!win32::CreateDirectoryW(to.c_str(), nullptr) && win32::GetLastError() != win32::ERROR_ALREADY_EXISTS)
      FailLast(to);
    for (const auto& entry : fs::directory_iterator(from))
      PutTree(entry.path(), Join(to, Utf16(entry.path().filename().string())));
    return;
  }
  if (!fs::is_regular_file(fs::symlink_status(from))) throw Failure(from.string() + ": is neither a file nor a folder");
  std::ifstream file(from, std::ios::binary);
  if (!file) throw Failure(from.string() + ": cannot be read");
  CopyIn(file, to);
}

void GetTree(const std::u16string& from, win32::DWORD attributes, const fs::path& to) {
  if ((attributes & win32::FILE_ATTRIBUTE_DIRECTORY) == 0) return CopyOutTo(from, to);
  fs::create_directories(to);
  for (const Entry& entry : Enumerate(from))
    if (!IsLink(entry)) GetTree(Join(from, entry.name), entry.data.dwFileAttributes, to / fs::path(Utf8(entry.name)));
}

void RemoveTree(const std::u16string& path, win32::DWORD attributes, bool recursive) {
  const bool directory = (attributes & win32::FILE_ATTRIBUTE_DIRECTORY) != 0;
  if (attributes & win32::FILE_ATTRIBUTE_READONLY)
    win32::SetFileAttributesW(path.c_str(), attributes & ~win32::FILE_ATTRIBUTE_READONLY);
  if (directory && recursive && (attributes & win32::FILE_ATTRIBUTE_REPARSE_POINT) == 0)
    for (const Entry& entry : Enumerate(path)) RemoveTree(Join(path, entry.name), entry.data.dwFileAttributes, true);
  if (!(directory ? win32::RemoveDirectoryW(path.c_str()) : win32::DeleteFileW(path.c_str()))) FailLast(path);
}

win32::DWORD AttributesOf(const std::u16string& path) {
  const win32::DWORD attributes = win32::GetFileAttributesW(path.c_str());
  if (attributes == win32::INVALID_FILE_ATTRIBUTES) FailLast(path);
  return attributes;
}

void MakeJunction(const std::u16string& path, const std::u16string& target) {
  if (!win32::CreateDirectoryW(path.c_str(), nullptr)) FailLast(path);
  const std::u16string substitute = u"\\??\\" + target;
  const auto bytes = [](std::size_t units) { return static_cast<win32::WORD>(units * 2); };
  std::vector<std::uint8_t> data;
  emulated::AppendLittleEndian(data, std::uint32_t{win32::IO_REPARSE_TAG_MOUNT_POINT});
  for (const win32::WORD field : {bytes(4 + substitute.size() + 1 + target.size() + 1), bytes(0), bytes(0),
                                  bytes(substitute.size()), bytes(substitute.size() + 1), bytes(target.size())})
    emulated::AppendLittleEndian(data, field);
  for (const std::u16string& name : {substitute, target}) {
    for (const char16_t unit : name) emulated::AppendLittleEndian(data, unit);
    emulated::AppendLittleEndian(data, u'\0');
  }
  const UniqueFile folder{win32::CreateFileW(path.c_str(), win32::GENERIC_WRITE, 0, nullptr, win32::OPEN_EXISTING,
                                             win32::FILE_FLAG_BACKUP_SEMANTICS | win32::FILE_FLAG_OPEN_REPARSE_POINT,
                                             nullptr)};
  if (!folder || !win32::DeviceIoControl(folder.get(), win32::FSCTL_SET_REPARSE_POINT, data.data(),
                                         static_cast<win32::DWORD>(data.size()), nullptr, 0, nullptr, nullptr))
    FailLast(path);
}

}  // namespace

void List(const fs::path& folder, const Arguments& arguments) {
  if (arguments.size() > 1 && arguments[1] != "-R") throw Failure("\"" + arguments[1] + "\" is not an option of ls");
  OnMachine(folder, false, [&](emulated::Machine&) { ListFolder(Utf16(arguments[0]), arguments.size() > 1, 0); });
}

void Cat(const fs::path& folder, const Arguments& arguments) {
  OnMachine(folder, false, [&](emulated::Machine&) { CopyOut(Utf16(arguments[0]), std::cout); });
}

void Put(const fs::path& folder, const Arguments& arguments) {
  OnMachine(folder, true, [&](emulated::Machine&) {
    const std::u16string to = Utf16(arguments[1]);
    if (arguments[0] == "-") {
      CopyIn(std::cin, to);
    } else {
      PutTree(arguments[0], to);
    }
  });
}

void Get(const fs::path& folder, const Arguments& arguments) {
  OnMachine(folder, false, [&](emulated::Machine&) {
    const std::u16string from = Utf16(arguments[0]);
    const bool stream = from.find(u':', 2) != std::u16string::npos;
    GetTree(from, stream ? 0 : AttributesOf(from), arguments[1]);
  });
}

void MakeDirectory(const fs::path& folder, const Arguments& arguments) {
  OnMachine(folder, true, [&](emulated::Machine&) {
    const std::u16string path = Utf16(arguments[0]);
    const int error = win32::SHCreateDirectoryExW(nullptr, path.c_str(), nullptr);
    if (error != 0 && error != static_cast<int>(win32::ERROR_ALREADY_EXISTS))
      FailWith(arguments[0], static_cast<std::uint32_t>(error));
  });
}

void Remove(const fs::path& folder, const Arguments& arguments) {
  if (arguments.size() > 1 && arguments[1] != "-r") throw Failure("\"" + arguments[1] + "\" is not an option of rm");
  OnMachine(folder, true, [&](emulated::Machine&) {
    const std::u16string path = Utf16(arguments[0]);
    RemoveTree(path, AttributesOf(path), arguments.size() > 1);
  });
}

void Link(const fs::path& folder, const Arguments& arguments) {
  OnMachine(folder, true, [&](emulated::Machine&) {
    const std::u16string path = Utf16(arguments[1]), target = Utf16(arguments[2]);
    if (arguments[0] == "junction") {
      MakeJunction(path, target);
    } else if (arguments[0] == "hard") {
      if (!win32::CreateHardLinkW(path.c_str(), target.c_str(), nullptr)) FailLast(path);
    } else if (arguments[0] == "symlink") {
      const bool directory = win32::PathIsDirectoryW(target.c_str()) != 0;
      if (!emulated::CreateSymbolicLinkW(path.c_str(), target.c_str(),
                                         directory ? win32::SYMBOLIC_LINK_FLAG_DIRECTORY : 0))
        FailLast(path);
    } else {
      throw Failure("\"" + arguments[0] + "\" is not a kind of link: junction, symlink or hard");
    }
  });
}

void Attributes(const fs::path& folder, const Arguments& arguments) {
  OnMachine(folder, true, [&](emulated::Machine&) {
    const std::u16string path = Utf16(arguments[0]);
    win32::DWORD attributes = AttributesOf(path) & (win32::FILE_ATTRIBUTE_READONLY | win32::FILE_ATTRIBUTE_HIDDEN |
                                                    win32::FILE_ATTRIBUTE_SYSTEM | win32::FILE_ATTRIBUTE_ARCHIVE |
                                                    win32::FILE_ATTRIBUTE_NOT_CONTENT_INDEXED);
    for (std::size_t i = 1; i < arguments.size(); ++i) {
      const std::string& change = arguments[i];
      const char letter = change.size() == 2 ? change[1] : '\0';
      const win32::DWORD bit = letter == 'R'   ? win32::FILE_ATTRIBUTE_READONLY
                               : letter == 'H' ? win32::FILE_ATTRIBUTE_HIDDEN
                               : letter == 'S' ? win32::FILE_ATTRIBUTE_SYSTEM
                               : letter == 'A' ? win32::FILE_ATTRIBUTE_ARCHIVE
                                               : 0;
      if (bit == 0 || (change[0] != '+' && change[0] != '-'))
        throw Failure("\"" + change + "\" is not a change such as +R");
      attributes = change[0] == '+' ? attributes | bit : attributes & ~bit;
    }
    if (!win32::SetFileAttributesW(path.c_str(), attributes == 0 ? win32::FILE_ATTRIBUTE_NORMAL : attributes))
      FailLast(path);
  });
}

void SetDescriptor(const fs::path& folder, const Arguments& arguments) {
  OnMachine(folder, true, [&](emulated::Machine&) {
    const std::u16string path = Utf16(arguments[0]), sddl = Utf16(arguments[1]);
    win32::UniqueLocalMemory descriptor;
    if (!win32::ConvertStringSecurityDescriptorToSecurityDescriptorW(sddl.c_str(), 1, descriptor.put(), nullptr))
      FailWith(arguments[1], win32::GetLastError());
    win32::DWORD information = 0;
    if (sddl.find(u"O:") != std::u16string::npos) information |= win32::OWNER_SECURITY_INFORMATION;
    if (sddl.find(u"G:") != std::u16string::npos) information |= win32::GROUP_SECURITY_INFORMATION;
    if (sddl.find(u"D:") != std::u16string::npos) information |= win32::DACL_SECURITY_INFORMATION;
    if (sddl.find(u"S:") != std::u16string::npos) information |= win32::SACL_SECURITY_INFORMATION;
    if (!win32::SetFileSecurityW(path.c_str(), information, descriptor.get())) FailLast(path);
  });
}

void SetTimes(const fs::path& folder, const Arguments& arguments) {
  OnMachine(folder, true, [&](emulated::Machine&) {
    const std::u16string path = Utf16(arguments[0]);
    const UniqueFile file{
        win32::CreateFileW(path.c_str(), win32::FILE_WRITE_ATTRIBUTES, kShareAll, nullptr, win32::OPEN_EXISTING,
                           win32::FILE_FLAG_BACKUP_SEMANTICS | win32::FILE_FLAG_OPEN_REPARSE_POINT, nullptr)};
    if (!file) FailLast(path);
    win32::FILETIME times[3]{};
    for (std::size_t i = 0; i < 3; ++i) {
      if (arguments[i + 1] == "-") continue;
      try {
        times[i] = ToFileTime(std::stoll(arguments[i + 1]));
      } catch (const std::exception&) {
        throw Failure("\"" + arguments[i + 1] + "\" is not a FILETIME count");
      }
    }
    if (!win32::SetFileTime(file.get(), &times[0], &times[1], &times[2])) FailLast(path);
  });
}

}  // namespace workstation
