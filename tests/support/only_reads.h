// The rule of the report program: no call that could change a disk, the registry or a service.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <string_view>

#include "win32/emulated/machine.h"

namespace test {

// Fails the test for each call, of those that are made while it lives, that is not known to read only, or that opens
// something for more than reading.
class OnlyReads {
 public:
  explicit OnlyReads(emulated::Machine& machine) : machine_(machine) {
    machine_.gate.Trace([](const std::string& line) { EXPECT_TRUE(IsHarmless(line)) << line; });
  }
  ~OnlyReads() { machine_.gate.Trace({}); }
  OnlyReads(const OnlyReads&) = delete;
  OnlyReads& operator=(const OnlyReads&) = delete;

  // A line of a trace.
  static bool IsHarmless(const std::string& line) {
    static constexpr std::string_view kReading =
        " AdjustTokenPrivileges CloseHandle CloseServiceHandle CoInitializeEx CoUninitialize "
        "ConvertSidToStringSidW ConvertStringSidToSidW CreateInstance ExpandEnvironmentStringsW FindClose "
        "FindFirstFileW FindNextFileW FindResourceExW FindResourceW FreeLibrary GetCurrentProcess "
        "GetFileAttributesW GetFileInformationByHandle GetFileSize GetFileVersionInfoSizeW "
        "GetFileVersionInfoW GetFinalPathNameByHandleW GetModuleFileNameW GetModuleHandleW GetProcAddress "
        "GetVolumeNameForVolumeMountPointW GetVolumePathNameW GetVolumePathNamesForVolumeNameW LoadLibraryW "
        "LoadResource LocalFree LockResource LookupAccountNameW LookupAccountSidW LookupPrivilegeValueW "
        "OpenProcessToken OutputDebugStringW PathFileExistsW QueryServiceConfigW ReadFile RegCloseKey "
        "RegEnumKeyExW RegEnumKeyW RegEnumValueW RegQueryInfoKeyW RegQueryValueExW SetFilePointer "
        "SizeofResource VerQueryValueW get_documentElement get_text loadXML selectNodes selectSingleNode ";
    const std::string name = line.substr(0, line.find('('));
    if (kReading.find(" " + name + " ") != kReading.npos) return true;
    // The numbers behind the last text.
    const std::string numbers = line.substr(line.rfind('"', line.rfind(" = ")) + 1);
    const auto number = [&](std::size_t index) {
      std::size_t at = 0;
      for (std::size_t i = 0; i <= index; ++i) at = numbers.find(", ", i == 0 ? 0 : at + 1);
      return at == numbers.npos ? ~0ull : std::strtoull(numbers.c_str() + at + 2, nullptr, 0);
    };
    constexpr unsigned long long kRead = 0x80000000, kReadControl = 0x20000, kOpenExisting = 3,
                                 kDeleteOnClose = 0x4000000;
    if (name == "CreateFileW")  // read data, extended attributes, attributes
      return (number(0) & ~(kRead | kReadControl | 0x89)) == 0 && number(2) == kOpenExisting &&
             (number(3) & kDeleteOnClose) == 0;
    if (name == "RegOpenKeyExW")  // query, enumerate, notify, the two views
      return (number(1) & ~(kReadControl | 0x319)) == 0;
    if (name == "OpenServiceW") return (number(0) & ~0x5ull) == 0;  // query configuration and status
    if (name == "OpenSCManagerW") return line.find(", 0x80000000)") != line.npos;
    return name == "DeviceIoControl" && line.find(", 0x900A8, ") != line.npos;  // FSCTL_GET_REPARSE_POINT
  }

 private:
  emulated::Machine& machine_;
};

}  // namespace test
