// The descriptors of files, by name.
#include "contract/security_support.h"

namespace {

using namespace contract;
using namespace win32;

constexpr DWORD kProtected = PROTECTED_DACL_SECURITY_INFORMATION;

class FileSecurity : public FileTest {
 protected:
  void SetUp() override { SKIP_ON_WINE("it keeps only Unix modes of a descriptor"); }

  std::u16string Directory(std::u16string_view name) const {
    MakeDirectory(Path(name));
    return Path(name);
  }
  static DWORD Read(const std::u16string& path, UniqueLocalMemory& descriptor, ACL** dacl = nullptr) {
    return GetNamedSecurityInfoW(path.c_str(), SE_OBJECT_TYPE::SE_FILE_OBJECT, DACL_SECURITY_INFORMATION, nullptr,
                                 nullptr, dacl, nullptr, descriptor.put());
  }
  static std::u16string Dacl(const std::u16string& path) {
    UniqueLocalMemory descriptor;
    return Read(path, descriptor) == 0 ? TextOf(descriptor.get(), DACL_SECURITY_INFORMATION) : u"unreadable";
  }
  // Writes the DACL of a text by name.
  static DWORD SetDacl(std::u16string path, const char16_t* sddl, DWORD more = 0) {
    const UniqueLocalMemory descriptor = Parse(sddl);
    return SetNamedSecurityInfoW(path.data(), SE_OBJECT_TYPE::SE_FILE_OBJECT, DACL_SECURITY_INFORMATION | more, nullptr,
                                 nullptr, DaclOf(descriptor), nullptr);
  }
};

TEST_F(FileSecurity, InheritedEntriesComeFromTheDirectoryNotFromTheCaller) {
  const std::u16string directory = Directory(u"d");
  ASSERT_EQ(SetDacl(directory, u"D:(A;OICI;FA;;;BA)(A;OICI;FR;;;BU)", kProtected), 0u);
  EXPECT_EQ(Dacl(directory), u"D:PAI(A;OICI;FA;;;BA)(A;OICI;FR;;;BU)");
  const std::u16string child = Directory(u"d\\child");
  EXPECT_EQ(Dacl(child), u"D:AI(A;OICIID;FA;;;BA)(A;OICIID;FR;;;BU)");

  // Explicit entries are taken; those that the caller calls inherited are not.
  ASSERT_EQ(SetDacl(child, u"D:(A;;FW;;;SY)(A;ID;FA;;;AN)"), 0u);
  EXPECT_EQ(Dacl(child), u"D:AI(A;;FW;;;SY)(A;OICIID;FA;;;BA)(A;OICIID;FR;;;BU)");
  // Protected: nothing is inherited, and what was becomes explicit; so it stays until another is said.
  ASSERT_EQ(SetDacl(child, u"D:(A;;FA;;;SY)(A;ID;FA;;;BA)", kProtected), 0u);
  EXPECT_EQ(Dacl(child), u"D:PAI(A;;FA;;;SY)(A;;FA;;;BA)");
  ASSERT_EQ(SetDacl(child, u"D:(A;;FR;;;WD)"), 0u);
  EXPECT_EQ(Dacl(child), u"D:PAI(A;;FR;;;WD)");
  ASSERT_EQ(SetDacl(child, u"D:", UNPROTECTED_DACL_SECURITY_INFORMATION), 0u);
  EXPECT_EQ(Dacl(child), u"D:AI(A;OICIID;FA;;;BA)(A;OICIID;FR;;;BU)");
}

TEST_F(FileSecurity, AChangeReachesEverythingBelowThatIsNotProtected) {
  const std::u16string top = Directory(u"top"), child = Directory(u"top\\child"),
                       grandchild = Directory(u"top\\child\\grandchild"), apart = Directory(u"top\\apart"),
                       below = Directory(u"top\\apart\\below");
  ASSERT_EQ(SetDacl(apart, u"D:(A;OICI;FA;;;BA)", kProtected), 0u);
  ASSERT_EQ(SetDacl(child, u"D:(A;;FW;;;SY)"), 0u);
  ASSERT_EQ(SetDacl(top, u"D:(A;OICI;FA;;;BA)(A;CI;FR;;;BU)", kProtected), 0u);
  EXPECT_EQ(Dacl(child), u"D:AI(A;;FW;;;SY)(A;OICIID;FA;;;BA)(A;CIID;FR;;;BU)");
  EXPECT_EQ(Dacl(grandchild), u"D:AI(A;OICIID;FA;;;BA)(A;CIID;FR;;;BU)");
  EXPECT_EQ(Dacl(apart), u"D:PAI(A;OICI;FA;;;BA)");
  EXPECT_EQ(Dacl(below), u"D:AI(A;OICIID;FA;;;BA)");
}

TEST_F(FileSecurity, GenericRightsBecomeTheFileSystemsOwnAndANullDaclIsWritten) {
  std::u16string directory = Directory(u"d");
  ASSERT_EQ(SetDacl(directory, u"D:(A;;GR;;;WD)(A;OICIIO;GA;;;CO)(A;;GA;;;BA)", kProtected), 0u);
  EXPECT_EQ(Dacl(directory), u"D:PAI(A;;FR;;;WD)(A;OICIIO;GA;;;CO)(A;;FA;;;BA)");
  ASSERT_EQ(SetNamedSecurityInfoW(directory.data(), SE_OBJECT_TYPE::SE_FILE_OBJECT, DACL_SECURITY_INFORMATION, nullptr,
                                  nullptr, nullptr, nullptr),
            0u);
  ACL none, *dacl = &none;
  UniqueLocalMemory descriptor;
  ASSERT_EQ(Read(directory, descriptor, &dacl), 0u);
  EXPECT_EQ(dacl, nullptr);
  EXPECT_EQ(Read(Path(u"missing"), descriptor), ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(SetDacl(Path(u"missing"), u"D:"), ERROR_FILE_NOT_FOUND);
}

TEST_F(FileSecurity, AWholeDescriptorIsWrittenAsItIsButForTheMarkOfInheritance) {
  const std::u16string directory = Directory(u"d"), child = Directory(u"d\\child"), before = Dacl(child);
  UniqueLocalMemory saved;
  ASSERT_EQ(Read(child, saved), 0u);
  ASSERT_EQ(SetDacl(child, u"D:(A;;FA;;;WD)", kProtected), 0u);
  ASSERT_TRUE(SetFileSecurityW(child.c_str(), DACL_SECURITY_INFORMATION, saved.get()));
  // That the entries were inherited automatically is said only on request.
  EXPECT_TRUE(before.starts_with(u"D:AI(") && Dacl(child) == u"D:" + before.substr(4));
}

}  // namespace
