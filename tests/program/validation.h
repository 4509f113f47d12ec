// What the tests of the rules share: folders of every kind, drives of every type, and the lines that a decision logs.
#pragma once

#include "program/everything.h"

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

  // The messages that an action logs.
  Lines LinesOf(const std::function<void()>& action) {
    const std::size_t before = LogText().size();
    action();
    return Messages(LogText().substr(before));
  }
  // All that a decision logs, behind "(passed)" when it says yes: 1 and no other number.
  Lines Decision(const std::function<int()>& decide) {
    int result = -1;
    Lines lines = LinesOf([&] { result = decide(); });
    EXPECT_TRUE(result == 0 || result == 1) << result;
    if (result == 1) lines.insert(lines.begin(), passed.front());
    return lines;
  }
  // Of what a decision logs, the errors.
  Lines Refusal(const std::function<int()>& decide) {
    Lines lines = Decision(decide);
    std::erase_if(lines, [&](const std::u16string& line) {
      return line != passed[0] && line.find(u"#ERROR") == std::u16string::npos;
    });
    return lines;
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

#define EXPECT_LINES(actual, ...) EXPECT_EQ(::test::Shown(actual), ::test::Shown(__VA_ARGS__))
