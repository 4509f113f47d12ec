// The descriptors of files, by name.
#include <cstring>
#include <vector>

#include "contract/fixture.h"

namespace {

using namespace win32;

class FileSecurity : public contract::FileTest {
 protected:
  void SetUp() override { SKIP_ON_WINE("it keeps only Unix modes of a descriptor"); }

  std::u16string Directory(std::u16string_view name) const {
    EXPECT_TRUE(CreateDirectoryW(Path(name).c_str(), nullptr));
    return Path(name);
  }

  // The DACL as text; the error when it cannot be read.
  static std::u16string Dacl(const std::u16string& path) {
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    const DWORD error = GetNamedSecurityInfoW(path.c_str(), SE_OBJECT_TYPE::SE_FILE_OBJECT, DACL_SECURITY_INFORMATION,
                                              nullptr, nullptr, nullptr, nullptr, &descriptor);
    if (error != 0) return u"unreadable";
    const UniqueLocalMemory owner{descriptor};
    char16_t* text = nullptr;
    EXPECT_TRUE(
        ConvertSecurityDescriptorToStringSecurityDescriptorW(descriptor, 1, DACL_SECURITY_INFORMATION, &text, nullptr));
    const UniqueLocalMemory textOwner{text};
    return text;
  }

  // Writes the DACL of a text by name.
  static DWORD SetDacl(std::u16string path, const char16_t* sddl, DWORD more = 0) {
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    EXPECT_TRUE(ConvertStringSecurityDescriptorToSecurityDescriptorW(sddl, 1, &descriptor, nullptr));
    const UniqueLocalMemory owner{descriptor};
    auto* const bytes = static_cast<BYTE*>(descriptor);
    DWORD offset = 0;
    std::memcpy(&offset, bytes + 16, sizeof offset);
    return SetNamedSecurityInfoW(path.data(), SE_OBJECT_TYPE::SE_FILE_OBJECT, DACL_SECURITY_INFORMATION | more, nullptr,
                                 nullptr, offset == 0 ? nullptr : reinterpret_cast<ACL*>(bytes + offset), nullptr);
  }
};

TEST_F(FileSecurity, InheritedEntriesComeFromTheDirectoryNotFromTheCaller) {
  const std::u16string directory = Directory(u"d");
  ASSERT_EQ(SetDacl(directory, u"D:(A;OICI;FA;;;BA)(A;OICI;FR;;;BU)", PROTECTED_DACL_SECURITY_INFORMATION), 0u);
  EXPECT_TRUE(Dacl(directory) == u"D:PAI(A;OICI;FA;;;BA)(A;OICI;FR;;;BU)");
  const std::u16string child = Directory(u"d\\child");
  EXPECT_TRUE(Dacl(child) == u"D:AI(A;OICIID;FA;;;BA)(A;OICIID;FR;;;BU)");

  // Explicit entries are taken; those that the caller calls inherited are not.
  ASSERT_EQ(SetDacl(child, u"D:(A;;FW;;;SY)(A;ID;FA;;;AN)"), 0u);
  EXPECT_TRUE(Dacl(child) == u"D:AI(A;;FW;;;SY)(A;OICIID;FA;;;BA)(A;OICIID;FR;;;BU)");
  // Protected: nothing is inherited, and what was becomes explicit.
  ASSERT_EQ(SetDacl(child, u"D:(A;;FA;;;SY)(A;ID;FA;;;BA)", PROTECTED_DACL_SECURITY_INFORMATION), 0u);
  EXPECT_TRUE(Dacl(child) == u"D:PAI(A;;FA;;;SY)(A;;FA;;;BA)");
  ASSERT_EQ(SetDacl(child, u"D:", UNPROTECTED_DACL_SECURITY_INFORMATION), 0u);
  EXPECT_TRUE(Dacl(child) == u"D:AI(A;OICIID;FA;;;BA)(A;OICIID;FR;;;BU)");
}

TEST_F(FileSecurity, AChangeReachesEverythingBelowThatIsNotProtected) {
  const std::u16string top = Directory(u"top"), child = Directory(u"top\\child"),
                       grandchild = Directory(u"top\\child\\grandchild"), apart = Directory(u"top\\apart"),
                       below = Directory(u"top\\apart\\below");
  ASSERT_EQ(SetDacl(apart, u"D:(A;OICI;FA;;;BA)", PROTECTED_DACL_SECURITY_INFORMATION), 0u);
  ASSERT_EQ(SetDacl(child, u"D:(A;;FW;;;SY)"), 0u);
  ASSERT_EQ(SetDacl(top, u"D:(A;OICI;FA;;;BA)(A;CI;FR;;;BU)", PROTECTED_DACL_SECURITY_INFORMATION), 0u);
  EXPECT_TRUE(Dacl(child) == u"D:AI(A;;FW;;;SY)(A;OICIID;FA;;;BA)(A;CIID;FR;;;BU)");
  EXPECT_TRUE(Dacl(grandchild) == u"D:AI(A;OICIID;FA;;;BA)(A;CIID;FR;;;BU)");
  EXPECT_TRUE(Dacl(apart) == u"D:PAI(A;OICI;FA;;;BA)");
  EXPECT_TRUE(Dacl(below) == u"D:AI(A;OICIID;FA;;;BA)");
}

TEST_F(FileSecurity, GenericRightsBecomeTheFileSystemsOwn) {
  const std::u16string directory = Directory(u"d");
  ASSERT_EQ(SetDacl(directory, u"D:(A;;GR;;;WD)(A;OICIIO;GA;;;CO)(A;;GA;;;BA)", PROTECTED_DACL_SECURITY_INFORMATION),
            0u);
  EXPECT_TRUE(Dacl(directory) == u"D:PAI(A;;FR;;;WD)(A;OICIIO;GA;;;CO)(A;;FA;;;BA)");
}

TEST_F(FileSecurity, ANullDaclIsWritten) {
  const std::u16string directory = Directory(u"d");
  std::u16string path = directory;
  ASSERT_EQ(SetNamedSecurityInfoW(path.data(), SE_OBJECT_TYPE::SE_FILE_OBJECT, DACL_SECURITY_INFORMATION, nullptr,
                                  nullptr, nullptr, nullptr),
            0u);
  ACL* dacl = nullptr;
  PSECURITY_DESCRIPTOR descriptor = nullptr;
  ASSERT_EQ(GetNamedSecurityInfoW(path.c_str(), SE_OBJECT_TYPE::SE_FILE_OBJECT, DACL_SECURITY_INFORMATION, nullptr,
                                  nullptr, &dacl, nullptr, &descriptor),
            0u);
  const UniqueLocalMemory owner{descriptor};
  EXPECT_EQ(dacl, nullptr);
}

TEST_F(FileSecurity, ErrorsAreReturned) {
  PSECURITY_DESCRIPTOR descriptor = nullptr;
  const auto read = [&](const std::u16string& path) {
    return GetNamedSecurityInfoW(path.c_str(), SE_OBJECT_TYPE::SE_FILE_OBJECT, DACL_SECURITY_INFORMATION, nullptr,
                                 nullptr, nullptr, nullptr, &descriptor);
  };
  EXPECT_EQ(read(Path(u"missing")), ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(read(Path(u"missing\\file")), ERROR_PATH_NOT_FOUND);
  EXPECT_EQ(SetDacl(Path(u"missing"), u"D:"), ERROR_FILE_NOT_FOUND);
}

TEST_F(FileSecurity, AWholeDescriptorIsReadWithItsSizeFirstAndWrittenBackAsItIs) {
  constexpr DWORD kParts = OWNER_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION;
  const std::u16string directory = Directory(u"d"), child = Directory(u"d\\child");
  ASSERT_EQ(SetDacl(child, u"D:(A;;FW;;;SY)"), 0u);
  const std::u16string before = Dacl(child);
  DWORD needed = 0;
  EXPECT_FALSE(GetFileSecurityW(child.c_str(), kParts, nullptr, 0, &needed));
  EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);
  std::vector<std::uint64_t> saved(needed / 8 + 1);
  ASSERT_TRUE(GetFileSecurityW(child.c_str(), kParts, saved.data(), needed, &needed));

  ASSERT_EQ(SetDacl(child, u"D:(A;;FA;;;WD)", PROTECTED_DACL_SECURITY_INFORMATION), 0u);
  ASSERT_TRUE(SetFileSecurityW(child.c_str(), kParts, saved.data()));
  // The entries are the same; that they were inherited automatically is said only on request.
  const std::u16string after = Dacl(child);
  EXPECT_TRUE(before.starts_with(u"D:AI(") && after == u"D:" + before.substr(4));
  EXPECT_FALSE(GetFileSecurityW(Path(u"missing").c_str(), kParts, nullptr, 0, &needed));
  EXPECT_EQ(GetLastError(), ERROR_FILE_NOT_FOUND);
}

}  // namespace
