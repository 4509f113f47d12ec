// What MoveFileExW leaves for the next start, and what that start makes of it.
#include "emulated/on_machine.h"

namespace {

using namespace contract;
using namespace win32;

constexpr std::u16string_view kKey = u"HKLM\\SYSTEM\\CurrentControlSet\\Control\\Session Manager";
constexpr std::u16string_view kValue = u"PendingFileRenameOperations";

class DelayedRenames : public test::OnWindows {
 protected:
  // 0 or the error.
  static DWORD Delay(const char16_t* from, const char16_t* to, DWORD flags = 0) {
    return ErrorOf(MoveFileExW(from, to, flags | MOVEFILE_DELAY_UNTIL_REBOOT));
  }
};

TEST_F(DelayedRenames, AreWrittenAsWindowsWritesThem) {
  Put(u"C:\\a");
  Put(u"C:\\b");
  EXPECT_EQ(Delay(u"C:\\a", nullptr), 0u);
  EXPECT_EQ(Delay(u"\\\\?\\C:\\b", u"C:\\c", MOVEFILE_REPLACE_EXISTING), 0u);
  EXPECT_EQ(Delay(u"C:\\Windows\\..\\b", u"C:/d"), 0u);
  const auto value = registry().Query(kKey, kValue);
  ASSERT_TRUE(value);
  EXPECT_EQ(value->type, REG_MULTI_SZ);
  constexpr char16_t expected[] = u"\\??\\C:\\a\0\0\\??\\C:\\b\0!\\??\\C:\\c\0\\??\\C:\\b\0\\??\\C:\\d\0";
  ASSERT_EQ(value->data.size(), sizeof expected);
  EXPECT_EQ(std::memcmp(value->data.data(), expected, value->data.size()), 0);
  EXPECT_TRUE(Exists(u"C:\\a")) << "nothing happens before the start";

  EXPECT_EQ(Delay(u"C:\\missing", nullptr), ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(Delay(u"C:\\a", u"D:\\a", MOVEFILE_COPY_ALLOWED), ERROR_INVALID_PARAMETER);
  LoseElevation();
  EXPECT_EQ(Delay(u"C:\\a", nullptr), ERROR_ACCESS_DENIED);
}

TEST_F(DelayedRenames, AreCarriedOutInOrderAtTheStart) {
  MakeDirectory(u"C:\\full");
  MakeDirectory(u"C:\\folder");
  for (const auto* const path : {u"C:\\file", u"C:\\full\\inside"}) Put(path);
  for (const auto& [path, content] : {std::pair{u"C:\\from", "new"}, {u"C:\\to", "old"}, {u"C:\\kept", "kept"}})
    Put(path, content);
  Put(u"C:\\blocked", "blocked");
  EXPECT_EQ(Delay(u"C:\\from", u"C:\\to", MOVEFILE_REPLACE_EXISTING), 0u);
  EXPECT_EQ(Delay(u"C:\\blocked", u"C:\\kept"), 0u);
  EXPECT_EQ(Delay(u"C:\\full", nullptr), 0u);
  EXPECT_EQ(Delay(u"C:\\folder", u"C:\\full\\moved"), 0u);
  const char16_t* const deleted[] = {u"C:\\file", u"C:\\full\\inside", u"C:\\Documents and Settings"};
  for (const auto* const path : deleted) EXPECT_EQ(Delay(path, nullptr), 0u);
  Restart();
  for (const auto* const path : deleted) EXPECT_FALSE(Exists(path));
  EXPECT_FALSE(Exists(u"C:\\from"));
  EXPECT_EQ(Get(u"C:\\to"), "new");
  EXPECT_EQ(Get(u"C:\\kept"), "kept");
  EXPECT_EQ(Get(u"C:\\blocked"), "blocked");
  EXPECT_TRUE(Exists(u"C:\\full\\moved"));
  EXPECT_TRUE(Exists(u"C:\\Users\\Public")) << "the link goes, not what it leads to";
  EXPECT_FALSE(registry().Query(kKey, kValue)) << "done once";
}

TEST_F(DelayedRenames, MalformedListsAreHarmless) {
  Put(u"C:\\file");
  constexpr char16_t odd[] = u"C:\\file\0\0\\??\\Q:\\missing\0\0\\??\\C:\\\0\0\\??\\C:\\file\0C:\\x\0\\??\\C:\\file";
  emulated::Bytes data;
  for (const char16_t unit : std::u16string_view(odd, std::size(odd) - 1)) emulated::AppendLittleEndian(data, unit);
  data.push_back(7);
  registry().Set(kKey, kValue, REG_MULTI_SZ, data);
  Restart();
  EXPECT_TRUE(Exists(u"C:\\file"));
  EXPECT_FALSE(registry().Query(kKey, kValue));
}

}  // namespace
