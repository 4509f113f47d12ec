// What the program says on the console: texts of the string table and a few fixed ones, in the console's OEM code page.
#pragma once

#include <cstdint>
#include <exception>
#include <string>
#include <utility>

#include "resources/string_ids.h"
#include "text/format.h"
#include "win32/types.h"

// Nothing here throws but FormatString: where memory is short, a text is empty or is not printed.

// A text of the string table; empty when there is none.
std::u16string LoadResourceString(StringId id);
// The same with its arguments put in.
template <typename... Arguments>
std::u16string FormatString(StringId id, const Arguments&... arguments) {
  return FormatText<Arguments...>(TableText(LoadResourceString(id)), arguments...);
}

// Writes a text to the standard output. A line break leaves as carriage return and line feed, as the text streams of C
// write it on Windows. Characters that the OEM code page lacks become its replacement characters.
// False when the text could not be converted; an empty text prints nothing.
bool ConsolePrint(std::u16string_view text);

// The standard output for one work that prints a line for each of many items: where that goes is asked once, plain
// ASCII, which is the same in every OEM code page, is not converted, and the lines of small items go out together: a
// few of them, or those of a MiB of work, whatever else is printed, and the end of the work send them off.
class ConsoleLines {
 public:
  ConsoleLines();
  ~ConsoleLines();
  ConsoleLines(const ConsoleLines&) = delete;
  ConsoleLines& operator=(const ConsoleLines&) = delete;

  // As ConsolePrint. `bytes`: the work that the line tells of.
  bool Print(std::u16string_view text, std::uint64_t bytes) const;

 private:
  win32::HANDLE output_;
};

// While it lives, ConsolePrint adds to it instead of writing: for who asks rules that warn on the console, and prints
// something else. When it goes, the one before it is again.
class ConsoleCapture {
 public:
  ConsoleCapture();
  ~ConsoleCapture();
  ConsoleCapture(const ConsoleCapture&) = delete;
  ConsoleCapture& operator=(const ConsoleCapture&) = delete;

  // What came since this was asked last.
  std::u16string Take() { return std::exchange(text_, {}); }

 private:
  friend bool ConsolePrint(std::u16string_view text);
  ConsoleCapture* const before_;
  std::u16string text_;
};

template <typename... Arguments>
bool ConsoleFormat(FormatFor<Arguments...> format, const Arguments&... arguments) try {
  return ConsolePrint(FormatText<Arguments...>(format, arguments...));
} catch (const std::exception&) {
  return false;
}

// A text of the string table with its arguments.
template <typename... Arguments>
void Say(StringId id, const Arguments&... arguments) {
  ConsoleFormat<Arguments...>(TableText(LoadResourceString(id)), arguments...);
}
