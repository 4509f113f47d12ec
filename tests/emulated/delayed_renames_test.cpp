// What MoveFileExW leaves for the next start, and what that start makes of it.
#include <gtest/gtest.h>

#include "support/installed_machine.h"
#include "win32/emulated/registry/registry.h"
#include "win32/file.h"
#include "win32/handle.h"

namespace {

using namespace win32;

constexpr std::u16string_view kKey = u"HKLM\\SYSTEM\\CurrentControlSet\\Control\\Session Manager";
constexpr std::u16string_view kValue = u"PendingFileRenameOperations";

class DelayedRenames : public ::testing::Test {
 protected:
  DelayedRenames() : machine(test::InstalledMachine()) {}

  static void Make(const char16_t* path, const char* content = "content") {
    const UniqueFile file{CreateFileW(path, GENERIC_WRITE, 0, nullptr, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr)};
    DWORD written = 0;
    EXPECT_TRUE(file && WriteFile(file.get(), content, static_cast<DWORD>(std::strlen(content)), &written, nullptr));
  }

  static std::string Content(const char16_t* path) {
    const UniqueFile file{CreateFileW(path, GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr)};
    char text[64];
    DWORD read = 0;
    return file && ReadFile(file.get(), text, sizeof text, &read, nullptr) ? std::string(text, read) : "(none)";
  }

  static bool Exists(const char16_t* path) { return GetFileAttributesW(path) != INVALID_FILE_ATTRIBUTES; }
  static BOOL Delay(const char16_t* from, const char16_t* to, DWORD flags = 0) {
    return MoveFileExW(from, to, flags | MOVEFILE_DELAY_UNTIL_REBOOT);
  }

  void Restart() {
    machine->objects.CloseAll(machine->process.id);
    test::Disks disks = machine->Snapshot();
    machine.reset();
    machine = test::BootFrom(std::move(disks));
  }

  std::unique_ptr<emulated::Machine> machine;
};

TEST_F(DelayedRenames, AreWrittenAsWindowsWritesThem) {
  Make(u"C:\\a");
  Make(u"C:\\b");
  ASSERT_TRUE(Delay(u"C:\\a", nullptr));
  ASSERT_TRUE(Delay(u"\\\\?\\C:\\b", u"C:\\c", MOVEFILE_REPLACE_EXISTING));
  ASSERT_TRUE(Delay(u"C:\\Windows\\..\\b", u"C:/d"));
  const auto value = machine->registry().Query(kKey, kValue);
  ASSERT_TRUE(value);
  EXPECT_EQ(value->type, REG_MULTI_SZ);
  constexpr char16_t expected[] = u"\\??\\C:\\a\0\0\\??\\C:\\b\0!\\??\\C:\\c\0\\??\\C:\\b\0\\??\\C:\\d\0";
  ASSERT_EQ(value->data.size(), sizeof expected);
  EXPECT_EQ(std::memcmp(value->data.data(), expected, value->data.size()), 0);
  EXPECT_TRUE(Exists(u"C:\\a")) << "nothing happens before the start";
}

TEST_F(DelayedRenames, AreCarriedOutInOrderAtTheStart) {
  Make(u"C:\\file");
  Make(u"C:\\from", "new");
  Make(u"C:\\to", "old");
  Make(u"C:\\kept", "kept");
  Make(u"C:\\blocked", "blocked");
  ASSERT_TRUE(CreateDirectoryW(u"C:\\full", nullptr));
  Make(u"C:\\full\\inside");
  ASSERT_TRUE(CreateDirectoryW(u"C:\\folder", nullptr));
  ASSERT_TRUE(Delay(u"C:\\file", nullptr));
  ASSERT_TRUE(Delay(u"C:\\from", u"C:\\to", MOVEFILE_REPLACE_EXISTING));
  ASSERT_TRUE(Delay(u"C:\\blocked", u"C:\\kept"));
  ASSERT_TRUE(Delay(u"C:\\full", nullptr));
  ASSERT_TRUE(Delay(u"C:\\folder", u"C:\\full\\moved"));
  ASSERT_TRUE(Delay(u"C:\\full\\inside", nullptr));
  ASSERT_TRUE(Delay(u"C:\\Documents and Settings", nullptr));
  Restart();
  EXPECT_FALSE(Exists(u"C:\\file"));
  EXPECT_FALSE(Exists(u"C:\\from"));
  EXPECT_EQ(Content(u"C:\\to"), "new");
  EXPECT_EQ(Content(u"C:\\kept"), "kept");
  EXPECT_EQ(Content(u"C:\\blocked"), "blocked");
  EXPECT_TRUE(Exists(u"C:\\full\\moved"));
  EXPECT_FALSE(Exists(u"C:\\full\\inside"));
  EXPECT_FALSE(Exists(u"C:\\Documents and Settings"));
  EXPECT_TRUE(Exists(u"C:\\Users\\Public")) << "the link goes, not what it leads to";
  EXPECT_FALSE(machine->registry().Query(kKey, kValue)) << "done once";
}

TEST_F(DelayedRenames, MalformedListsAreHarmless) {
  Make(u"C:\\file");
  constexpr char16_t odd[] = u"C:\\file\0\0\\??\\Q:\\missing\0\0\\??\\C:\\\0\0\\??\\C:\\file\0C:\\x\0\\??\\C:\\file";
  emulated::Bytes data;
  for (const char16_t unit : std::u16string_view(odd, std::size(odd) - 1)) emulated::AppendLittleEndian(data, unit);
  data.push_back(7);
  machine->registry().Set(kKey, kValue, REG_MULTI_SZ, data);
  Restart();
  EXPECT_TRUE(Exists(u"C:\\file"));
  EXPECT_FALSE(machine->registry().Query(kKey, kValue));
}

TEST_F(DelayedRenames, WhoMayNotOrIsWrong) {
  EXPECT_FALSE(Delay(u"C:\\missing", nullptr));
  EXPECT_EQ(GetLastError(), ERROR_FILE_NOT_FOUND);
  Make(u"C:\\file");
  EXPECT_FALSE(Delay(u"C:\\file", u"D:\\file", MOVEFILE_COPY_ALLOWED));
  EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
  machine->process.token = emulated::MakeFilteredAdministratorToken(machine->process.token->user);
  EXPECT_FALSE(Delay(u"C:\\file", nullptr));
  EXPECT_EQ(GetLastError(), ERROR_ACCESS_DENIED);
}

}  // namespace
