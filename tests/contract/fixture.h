// What the contract tests stand on: a place to work in, on the emulated workstation and on Windows.
//
// A contract test states how Windows behaves, through win32/*.h only, so that it holds in both worlds.
#pragma once

#include <string>

#include <gtest/gtest.h>

#include "win32/win32.h"

namespace contract {

// An empty scratch folder of this test; u"C:\\Scratch", or a fresh one below %TEMP%. No trailing backslash.
std::u16string Scratch();
// A folder on another volume than Scratch(); empty where there is none.
std::u16string OtherVolume();
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

}  // namespace contract

#define SKIP_ON_WINE(reason) \
  if (contract::OnWine()) GTEST_SKIP() << reason
