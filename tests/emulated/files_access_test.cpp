// Who may open what, and whose descriptors change. How a descriptor decides is in security_test.cpp.
#include "emulated/on_machine.h"

using namespace contract;
using namespace win32;

namespace {

constexpr const char16_t *kUser = u"S-1-5-21-1-2-3-1001", *kNobody = u"O:SYG:SYD:P(A;;FA;;;SY)";

class FilesAccess : public test::OnMachine {
 protected:
  FilesAccess() {
    for (const auto* const path : {u"C:\\d", u"C:\\d\\child"}) MakeDirectory(path);
    Put(u"C:\\d\\file");
  }
  static DWORD Read(const char16_t* path, DWORD parts = DACL_SECURITY_INFORMATION) {
    UniqueLocalMemory descriptor;
    return GetNamedSecurityInfoW(path, SE_OBJECT_TYPE::SE_FILE_OBJECT, parts, nullptr, nullptr, nullptr, nullptr,
                                 descriptor.put());
  }
  static DWORD WriteDacl(std::u16string path, std::u16string_view sddl) {
    const emulated::Bytes descriptor = *emulated::DescriptorFromText(sddl);
    const emulated::ByteView view = emulated::ViewDescriptor(descriptor)->dacl;
    emulated::Bytes dacl(view.begin(), view.end());
    return SetNamedSecurityInfoW(path.data(), SE_OBJECT_TYPE::SE_FILE_OBJECT, DACL_SECURITY_INFORMATION, nullptr,
                                 nullptr, reinterpret_cast<ACL*>(dacl.data()), nullptr);
  }
  static DWORD WriteOwner(std::u16string path, std::u16string_view sid) {
    emulated::Sid owner = emulated::SidFromText(sid);
    return SetNamedSecurityInfoW(path.data(), SE_OBJECT_TYPE::SE_FILE_OBJECT, OWNER_SECURITY_INFORMATION, owner.data(),
                                 nullptr, nullptr, nullptr);
  }
};

TEST_F(FilesAccess, AUserDoesWhatTheDescriptorsLetHim) {
  Protect(u"\\d\\file", u"O:SYG:SYD:P(A;;FR;;;WD)(A;;FA;;;SY)");
  Protect(u"\\d", u"O:SYG:SYD:P(A;OICI;FA;;;WD)");
  Become(kUser);
  for (const DWORD disposition : {OPEN_EXISTING, CREATE_ALWAYS})
    EXPECT_EQ(OpenError(u"C:\\d\\file", GENERIC_WRITE, 0, disposition), ERROR_ACCESS_DENIED);
  EXPECT_EQ(OpenError(u"C:\\d\\file", DELETE), 0u) << "by the directory's right to delete children";
  Protect(u"\\d", u"O:SYG:SYD:P(A;OICI;FRFX;;;WD)(A;OICI;FA;;;SY)");
  EXPECT_EQ(ErrorOf(DeleteFileW(u"C:\\d\\file")), ERROR_ACCESS_DENIED);
  EXPECT_EQ(ErrorOf(CreateDirectoryW(u"C:\\d\\new", nullptr)), ERROR_ACCESS_DENIED);
  EXPECT_EQ(ErrorOf(emulated::CreateSymbolicLinkW(u"C:\\d\\new", u"x", 0)), ERROR_PRIVILEGE_NOT_HELD);
  // Attributes are read through the directory's right to list, until that goes, too.
  Protect(u"\\d\\file", kNobody);
  EXPECT_EQ(AttributesError(u"C:\\d\\file"), 0u);
  Protect(u"\\d", kNobody);
  EXPECT_EQ(AttributesError(u"C:\\d\\file"), ERROR_ACCESS_DENIED) << "though nothing stops the walk there";
  EXPECT_EQ(FindError(u"C:\\d\\*"), ERROR_ACCESS_DENIED);
}

TEST_F(FilesAccess, PrivilegesNeedBothTheirFlagAndTheirEnabling) {
  for (const auto* const path : {u"\\d\\file", u"\\d"}) Protect(path, kNobody);
  for (const auto& [privilege, path, access, disposition] :
       {std::tuple(u"SeBackupPrivilege", u"C:\\d\\file", GENERIC_READ | ACCESS_SYSTEM_SECURITY, OPEN_EXISTING),
        {u"SeRestorePrivilege", u"C:\\d\\file", GENERIC_WRITE | WRITE_DAC | WRITE_OWNER | DELETE, OPEN_EXISTING},
        {u"SeRestorePrivilege", u"C:\\d\\new", GENERIC_WRITE, CREATE_NEW}}) {
    EXPECT_TRUE(disposition == CREATE_NEW ||
                OpenError(path, access, kShareAll, disposition, FILE_FLAG_BACKUP_SEMANTICS) != 0);
    Enable(privilege);
    EXPECT_NE(OpenError(path, access, kShareAll, disposition), 0u);
    EXPECT_EQ(OpenError(path, access, kShareAll, disposition, FILE_FLAG_BACKUP_SEMANTICS), 0u);
  }
}

TEST_F(FilesAccess, ByNameNoPrivilegeOpensWhatIsClosedButTheOneToTakeIt) {
  constexpr const char16_t *kAdministrators = u"S-1-5-32-544", *kPath = u"C:\\d";
  EXPECT_EQ(Read(kPath, SACL_SECURITY_INFORMATION), ERROR_PRIVILEGE_NOT_HELD);
  EXPECT_EQ(WriteOwner(kPath, kUser), ERROR_INVALID_OWNER) << "only who may restore makes anybody the owner";
  Enable(u"SeRestorePrivilege");
  EXPECT_EQ(WriteOwner(kPath, kUser), 0u);
  Protect(u"\\d", kNobody);
  Enable(u"SeBackupPrivilege");
  DWORD needed = 0;
  EXPECT_EQ(Read(kPath), ERROR_ACCESS_DENIED);
  EXPECT_EQ(ErrorOf(GetFileSecurityW(kPath, DACL_SECURITY_INFORMATION, nullptr, 0, &needed)), ERROR_ACCESS_DENIED);
  EXPECT_EQ(WriteOwner(kPath, kAdministrators), ERROR_ACCESS_DENIED);
  Enable(u"SeTakeOwnershipPrivilege");
  EXPECT_EQ(WriteOwner(kPath, kAdministrators), 0u);
  EXPECT_EQ(WriteDacl(kPath, u"D:(A;;FA;;;BA)"), 0u);
  EXPECT_EQ(SecurityOf(u"\\d"), "O:BAD:PAI(A;;FA;;;BA)");
}

TEST_F(FilesAccess, NothingIsPropagatedThroughALinkNorToWhatTheCallerMayNotChange) {
  MakeJunction(u"C:\\d\\link", u"\\??\\C:\\Users\\Public");
  const auto mentions = [&](std::u16string_view path, const char* who) {
    return SecurityOf(path).find(who) != std::string::npos;
  };
  Protect(u"\\d\\child", u"O:SYG:SYD:AI(A;ID;FA;;;SY)");
  EXPECT_EQ(WriteDacl(u"C:\\d\\link", u"D:(A;OICI;FR;;;AN)"), 0u);
  EXPECT_EQ(WriteDacl(u"C:\\d", u"D:(A;OICI;FA;;;BA)(A;OICI;FW;;;BG)"), 0u);
  EXPECT_TRUE(mentions(u"\\d\\link", "AN") && mentions(u"\\d\\link", "BG") && mentions(u"\\d\\file", "BG"));
  EXPECT_EQ(SecurityOf(u"\\d\\child"), "O:SYD:AI(A;ID;FA;;;SY)");
  EXPECT_FALSE(mentions(u"\\Users\\Public\\Documents", "AN") || mentions(u"\\Users\\Public\\Documents", "BG"));
  EXPECT_EQ(WriteDacl(u"C:\\d\\link\\Documents", u"D:(A;;FX;;;PU)"), 0u) << "a link on the way is followed";
  EXPECT_TRUE(mentions(u"\\Users\\Public\\Documents", "PU"));
}

}  // namespace
