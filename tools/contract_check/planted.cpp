// Facts that are none: what they do shows that the report tells it and that all is taken away. Asked by name only.
#include "contract/fixture.h"

#include <algorithm>

#include "contract_check/asked.h"

namespace {

using namespace contract;

static_assert(std::equal(std::begin(kKey), std::end(kKey), std::begin(check::kKey), std::end(check::kKey),
                         [](char16_t ours, wchar_t theirs) { return static_cast<wchar_t>(ours) == theirs; }));

class DISABLED_Planted : public FileTest {
 protected:
  // Things that are hard to take away, and a link that leads out of the folder.
  void LeaveThings() {
    MakeDirectory(Path(u"kept"));
    Put(Path(u"kept\\read only"));
    win32::SetFileAttributesW(Path(u"kept\\read only").c_str(), win32::FILE_ATTRIBUTE_READONLY);
    Put(u"\\\\?\\" + Path(u"nul"));
    std::u16string deep = u"\\\\?\\" + Path(u"kept");
    while (deep.size() < 500) MakeDirectory(deep += u"\\" + std::u16string(50, u'd'));
    win32::UniqueKey key;
    const std::u16string name = std::u16string(kKey) + u"\\left\\behind";
    win32::RegCreateKeyExW(win32::HKEY_CURRENT_USER, name.c_str(), 0, nullptr, 0, win32::KEY_ALL_ACCESS, nullptr,
                           key.put(), nullptr);
    if (OnWine()) return;
    MakeJunction(Path(u"to Windows"), ObjectName(u"C:\\Windows"));
    std::u16string kept = Path(u"kept");
    win32::UniqueLocalMemory nobody;
    win32::ULONG size = 0;
    win32::ConvertStringSecurityDescriptorToSecurityDescriptorW(u"D:P(D;OICI;FA;;;WD)", 1, nobody.put(), &size);
    win32::SetFileSecurityW(kept.c_str(), win32::DACL_SECURITY_INFORMATION, nobody.get());
  }
};

TEST_F(DISABLED_Planted, DoesNotHold) {
  RecordProperty("measured", 54);
  win32::SetLastError(win32::ERROR_ACCESS_DENIED);
  EXPECT_EQ(6 * 9, 42) << "as planted";
}

TEST_F(DISABLED_Planted, HoldsWhenAskedAgain) { EXPECT_TRUE(check::asked.folder.ends_with(L"again")); }

TEST_F(DISABLED_Planted, LeavesThings) { LeaveThings(); }

TEST_F(DISABLED_Planted, Crashes) {
  LeaveThings();
  EXPECT_EQ(1, 2);
  const volatile std::uintptr_t address = 0x10;  // nothing is ever there, which the compiler need not know
  *reinterpret_cast<volatile int*>(address) = 1;
}

TEST_F(DISABLED_Planted, Hangs) {
  LeaveThings();
  win32::Sleep(win32::INFINITE);
}

TEST_F(DISABLED_Planted, IsNotAsked) { GTEST_SKIP() << "as planted"; }

}  // namespace
