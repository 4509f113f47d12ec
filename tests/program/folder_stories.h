// What the stories of folder redirections share: a workstation with C:, D: and E:, the commands, and the records.
#pragma once

#include <gtest/gtest.h>

#include <initializer_list>
#include <map>
#include <memory>
#include <string>
#include <utility>

#include "support/program.h"
#include "support/tree.h"
#include "win32/emulated/registry/registry.h"
#include "win32/emulated/text.h"
#include "win32/win32.h"

namespace test {

// Source and target of the records, by their numbers.
using Records = std::map<std::u16string, std::pair<std::u16string, std::u16string>>;

class FolderStories : public ::testing::Test {
 protected:
  RunResult Run(std::initializer_list<std::u16string> words) { return RunProgram(*machine, words); }

  void Redirect(const std::u16string& folder, const std::u16string& location) {
    const RunResult run = Run({u"/RedirectFolder", folder, u"/loc:" + location});
    ASSERT_EQ(run.exitCode, 0) << emulated::Utf8(folder) << ": " << emulated::Utf8(run.log);
    ASSERT_TRUE(IsLink(folder)) << emulated::Utf8(folder);
  }
  void Remove(const std::u16string& folder, const std::u16string& location) {
    const RunResult run = Run({u"/RedirectFolder", folder, u"/loc:" + location, u"/d"});
    ASSERT_EQ(run.exitCode, 0) << emulated::Utf8(folder) << ": " << emulated::Utf8(run.log);
    ASSERT_FALSE(IsLink(folder)) << emulated::Utf8(folder);
  }

  Records AllRecords() const {
    const std::u16string list = u"HKLM\\SOFTWARE\\Wow6432Node\\Velmora\\Quillbay\\Junctions";
    const auto text = [&](const std::u16string& number, const char16_t* name) {
      const auto value = machine->registry().Query(list + u"\\" + number, name);
      return value ? value->Text() : u"(none)";
    };
    Records records;
    for (const std::u16string& number : machine->registry().SubKeys(list))
      records[number] = {text(number, u"Source"), text(number, u"Target")};
    return records;
  }
  static bool IsLink(const std::u16string& path) {
    return (Attributes(path) & win32::FILE_ATTRIBUTE_REPARSE_POINT) != 0;
  }

  std::unique_ptr<emulated::Machine> machine = test::InstalledMachine({.extraDrives = 1});
};

}  // namespace test
