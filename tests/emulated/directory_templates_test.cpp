// Directories made after a template, and what an edition without the encrypting file system answers.
#include "emulated/on_machine.h"
#include "support/tree.h"

namespace {

using namespace contract;
using namespace win32;

class DirectoryTemplates : public test::OnBareMachine {
 protected:
  DirectoryTemplates() {
    MakeDirectory(u"C:\\template");
    MakeDirectory(u"C:\\template\\inside");
    Put(u"C:\\template:icon", std::string(300000, 'i'));
    EXPECT_EQ(volume().SetExtendedAttributes(Find(u"\\template"), {{0, "KIND", {1, 2, 3}}}), 0u);
    EXPECT_TRUE(SetFileAttributesW(u"C:\\template", FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_READONLY));
  }
  static DWORD Make(const char16_t* after, const char16_t* path) {
    return ErrorOf(CreateDirectoryExW(after, path, nullptr));
  }
};

TEST_F(DirectoryTemplates, NewDirectoryHasWhatTheTemplateHas) {
  ASSERT_EQ(Make(u"C:\\template", u"D:\\new"), 0u);
  EXPECT_EQ(GetFileAttributesW(u"D:\\new"), FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_READONLY);
  EXPECT_FALSE(Exists(u"D:\\new\\inside")) << "what is in the template is not copied";
  const std::string streams = test::Streams(u"D:\\new");
  EXPECT_EQ(streams, test::Streams(u"C:\\template"));
  EXPECT_TRUE(streams.find("KIND") != streams.npos && streams.find(std::string(300000, 'i')) != streams.npos);
}

TEST_F(DirectoryTemplates, RefusalsLeaveNothingBehind) {
  MakeDirectory(u"D:\\there");
  EXPECT_EQ(Make(u"C:\\template", u"D:\\there"), ERROR_ALREADY_EXISTS);
  EXPECT_EQ(Make(u"C:\\missing", u"D:\\new"), ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(Make(u"C:\\template", u"D:\\missing\\new"), ERROR_PATH_NOT_FOUND);
  // The disk has room for the directory, not for all of its stream.
  Put(u"D:\\there:fill", std::string(volume(u'D').FreeBytes() - 150000, 'f'));
  EXPECT_EQ(Make(u"C:\\template", u"D:\\new"), ERROR_DISK_FULL);
  EXPECT_FALSE(Exists(u"D:\\new"));
  EXPECT_EQ(ErrorOf(EncryptFileW(u"C:\\template")), ERROR_NOT_SUPPORTED);
  EXPECT_EQ(ErrorOf(EncryptFileW(u"C:\\missing")), ERROR_FILE_NOT_FOUND);
}

TEST_F(DirectoryTemplates, NobodyAnswersTheShellsQuestions) {
  SHFILEOPSTRUCTW operation{};
  operation.wFunc = FO_DELETE;
  operation.pFrom = u"C:\\template\0";
  for (const bool asks : {true, false}) {
    operation.fFlags = asks ? FOF_SILENT : FOF_SILENT | FOF_NOCONFIRMATION;
    EXPECT_EQ(SHFileOperationW(&operation) != 0, asks);
    EXPECT_EQ(operation.fAnyOperationsAborted != 0, asks);
    EXPECT_EQ(Exists(u"C:\\template"), asks);
  }
}

}  // namespace
