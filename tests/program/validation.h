// What the tests of the rules share: folders of every kind, drives of every type, and the lines that a decision logs.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "support/engine.h"
#include "support/program.h"
#include "validate/relations.h"
#include "validate/validate.h"
#include "win32/emulated/text.h"
#include "win32/handle.h"

namespace test {

using Lines = std::vector<std::u16string>;

// Makes the line about a path.
inline auto About(const char16_t* before, const char16_t* after) {
  return [=](const std::u16string& path) { return before + path + after; };
}
inline const auto NoRoom = About(u"#ERROR: There is not enough free disk space on target ",
                                 u". Browse to a different location or delete one or more files to free disk space, "
                                 u"and try again.");
inline const auto BelowRedirected =
    About(u"#ERROR: The parent folder of ", u" is already redirected. Browse to a different location.");
inline const auto InUse = About(u"#ERROR: ",
                                u" - File or folder is used by another process.  Close any application that might be "
                                u"using the file or folder and try again.");

class ValidationTest : public Engine {
 protected:
  explicit ValidationTest(const MachineFacts& facts = {}) : Engine(facts) { UseProgramModule(*machine); }

  // The messages that an action logs, whole, without their times. Windows' text for an error is the end of its message.
  Lines LinesOf(const std::function<void()>& action) {
    const std::size_t before = LogText().size();
    action();
    const std::u16string text = LogText().substr(before);
    Lines lines;
    constexpr std::u16string_view kStart = u"\r\n[", kPrefixEnd = u"] ";
    for (std::size_t at = text.find(kStart); at != std::u16string::npos;) {
      const std::size_t next = text.find(kStart, at + kStart.size());
      std::u16string line = text.substr(at, next - at);
      line.erase(0, line.find(kPrefixEnd) + kPrefixEnd.size());
      while (line.ends_with(u'\n') || line.ends_with(u'\r')) line.pop_back();
      lines.push_back(std::move(line));
      at = next;
    }
    return lines;
  }
  static Lines ErrorsIn(const Lines& lines) {
    Lines errors;
    for (const std::u16string& line : lines)
      if (line.find(u"#ERROR") != std::u16string::npos) errors.push_back(line);
    return errors;
  }
  // The error lines of a decision that says no; "(passed)" of one that says yes, before whatever it logged.
  Lines Refusal(const std::function<int()>& decide) {
    int result = -1;
    Lines errors = ErrorsIn(LinesOf([&] { result = decide(); }));
    if (result != 0) errors.insert(errors.begin(), u"(passed)");
    return errors;
  }
  Lines Refusal(const char16_t* from, const char16_t* to, const RedirectionOptions& options = {}) {
    return Refusal([&] { return ValidateRedirectionPaths(from, to, options); });
  }

  // A file of this size without its data on the disk.
  static void MakeHole(const std::u16string& path, std::uint64_t size) {
    using namespace win32;
    const UniqueFile file{CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr)};
    DWORD returned = 0;
    EXPECT_TRUE(DeviceIoControl(file.get(), FSCTL_SET_SPARSE, nullptr, 0, nullptr, 0, &returned, nullptr));
    LONG high = static_cast<LONG>(size >> 32);
    SetFilePointer(file.get(), static_cast<LONG>(size & 0xFFFFFFFF), &high, FILE_BEGIN);
    EXPECT_TRUE(SetEndOfFile(file.get()));
  }

  // A drive that is known by name alone.
  void AddDrive(char16_t letter, win32::UINT type, const std::u16string& fileSystem) {
    auto drive = std::make_unique<emulated::MountedVolume>();
    drive->letter = letter;
    drive->driveType = type;
    drive->fileSystem = fileSystem;
    machine->volumes.push_back(std::move(drive));
  }
  emulated::MountedVolume& Drive(char16_t letter) { return *machine->FindByLetter(letter); }

  const Lines passed = {u"(passed)"};
};

// For the message of a test that fails.
inline std::string Shown(const Lines& lines) {
  std::string all;
  for (const std::u16string& line : lines) all += emulated::Utf8(line) + "\n";
  return all;
}

}  // namespace test

#define EXPECT_LINES(actual, ...)                                              \
  do {                                                                         \
    const ::test::Lines &actualLines = (actual), &expectedLines = __VA_ARGS__; \
    EXPECT_EQ(::test::Shown(actualLines), ::test::Shown(expectedLines));       \
  } while (false)
