// Directories made after a template, and what an edition without the encrypting file system answers.
#include <gtest/gtest.h>

#include "support/machine.h"
#include "win32/file.h"
#include "win32/shell.h"
#include "win32/system.h"

namespace {

using namespace win32;

class DirectoryTemplates : public ::testing::Test {
 protected:
  DirectoryTemplates() : machine(test::TestMachine()) {
    emulated::Volume& c = *machine->FindByLetter(u'C')->volume;
    EXPECT_TRUE(CreateDirectoryW(u"C:\\template", nullptr) && CreateDirectoryW(u"C:\\template\\inside", nullptr));
    emulated::FileId file = 0;
    EXPECT_EQ(c.LookupPath(u"\\template", file), 0u);
    EXPECT_EQ(c.CreateStream(file, u"icon"), 0u);
    EXPECT_EQ(c.Write(file, u"icon", 0, emulated::Bytes(300000, 7)), 0u);
    EXPECT_EQ(c.SetExtendedAttributes(file, {{0, "KIND", {1, 2, 3}}}), 0u);
    EXPECT_TRUE(SetFileAttributesW(u"C:\\template", FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_READONLY));
  }

  static DWORD ErrorOf(BOOL result) { return result ? 0 : GetLastError(); }

  std::unique_ptr<emulated::Machine> machine;
};

TEST_F(DirectoryTemplates, NewDirectoryHasWhatTheTemplateHas) {
  ASSERT_EQ(ErrorOf(CreateDirectoryExW(u"C:\\template", u"D:\\new", nullptr)), 0u);
  EXPECT_EQ(GetFileAttributesW(u"D:\\new"), FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_READONLY);
  EXPECT_FALSE(PathFileExistsW(u"D:\\new\\inside")) << "what is in the template is not copied";
  emulated::Volume& d = *machine->FindByLetter(u'D')->volume;
  emulated::FileId file = 0;
  ASSERT_EQ(d.LookupPath(u"\\new", file), 0u);
  emulated::Bytes content(300001);
  std::size_t done = 0;
  ASSERT_EQ(d.Read(file, u"icon", 0, content, done), 0u);
  EXPECT_EQ(done, 300000u);
  EXPECT_EQ(content[299999], 7);
  std::vector<emulated::ExtendedAttribute> attributes;
  ASSERT_EQ(d.GetExtendedAttributes(file, attributes), 0u);
  ASSERT_EQ(attributes.size(), 1u);
  EXPECT_EQ(attributes[0].name, "KIND");
}

TEST_F(DirectoryTemplates, RefusalsLeaveNothingBehind) {
  ASSERT_TRUE(CreateDirectoryW(u"D:\\there", nullptr));
  EXPECT_EQ(ErrorOf(CreateDirectoryExW(u"C:\\template", u"D:\\there", nullptr)), ERROR_ALREADY_EXISTS);
  EXPECT_EQ(ErrorOf(CreateDirectoryExW(u"C:\\missing", u"D:\\new", nullptr)), ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(ErrorOf(CreateDirectoryExW(u"C:\\template", u"D:\\missing\\new", nullptr)), ERROR_PATH_NOT_FOUND);
  // The disk has room for the directory, not for all of its stream.
  emulated::Volume& d = *machine->FindByLetter(u'D')->volume;
  emulated::FileId there = 0;
  ASSERT_EQ(d.LookupPath(u"\\there", there), 0u);
  ASSERT_EQ(d.CreateStream(there, u"fill"), 0u);
  ASSERT_EQ(d.Write(there, u"fill", 0, emulated::Bytes(d.FreeBytes() - 150000)), 0u);
  EXPECT_EQ(ErrorOf(CreateDirectoryExW(u"C:\\template", u"D:\\new", nullptr)), ERROR_DISK_FULL);
  EXPECT_FALSE(PathFileExistsW(u"D:\\new"));
}

TEST_F(DirectoryTemplates, EncryptionIsNotSupported) {
  EXPECT_EQ(ErrorOf(EncryptFileW(u"C:\\template")), ERROR_NOT_SUPPORTED);
  EXPECT_EQ(ErrorOf(EncryptFileW(u"C:\\missing")), ERROR_FILE_NOT_FOUND);
  EXPECT_FALSE(GetFileAttributesW(u"C:\\template") & FILE_ATTRIBUTE_ENCRYPTED);
}

TEST_F(DirectoryTemplates, NobodyAnswersTheShellsQuestions) {
  SHFILEOPSTRUCTW operation{};
  operation.wFunc = FO_DELETE;
  operation.pFrom = u"C:\\template\0";
  operation.fFlags = FOF_SILENT;
  EXPECT_NE(SHFileOperationW(&operation), 0);
  EXPECT_TRUE(operation.fAnyOperationsAborted);
  EXPECT_TRUE(PathFileExistsW(u"C:\\template\\inside"));
  operation.fFlags |= FOF_NOCONFIRMATION;
  EXPECT_EQ(SHFileOperationW(&operation), 0);
  EXPECT_FALSE(operation.fAnyOperationsAborted);
  EXPECT_FALSE(PathFileExistsW(u"C:\\template"));
}

}  // namespace
