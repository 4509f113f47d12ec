// Memory may be short in the middle of anything. Whoever is asked then and has a bad answer gives the bad one: what is
// refused is never let through, what was not done is never called done.
#include "program/everything.h"

namespace {

// Until memory is short, for once; 0: it is not.
thread_local int requestsLeft = 0;

void Request() {
  if (requestsLeft > 0 && --requestsLeft == 0) throw std::bad_alloc();
}

}  // namespace

// The program's own requests; those of the calls that it makes count as one.
void* operator new(std::size_t size) {
  if (requestsLeft > 0 && !emulated::Machine::Current().gate.InCall()) Request();
  if (void* const memory = std::malloc(size)) return memory;
  throw std::bad_alloc();
}
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }

namespace {

using namespace test;

struct Question {
  const char* text;
  std::function<bool()> succeeds;  // where it cannot
};
#define QUESTION(expression)                                   \
  Question {                                                   \
#expression, [&] { return static_cast<bool>(expression); } \
  }

class OutOfMemory : public Engine {
 protected:
  OutOfMemory() {
    UseProgramModule(*machine);
    machine->gate.Observe([](std::string_view call, std::uint64_t) {
      static const std::set<std::string_view> kInDestructors{"BackupRead",     "BackupWrite",       "CoUninitialize",
                                                             "GetProcessHeap", "LocalLock",         "RevertToSelf",
                                                             "SetFileTime",    "SetFileAttributesW"};
      if (call.find("Close") == call.npos && call.find("Free") == call.npos && !kInDestructors.contains(call))
        Request();
    });
  }

  // Asks once as it is, then with memory short at each request in turn (of very many, not each).
  static void ExpectNoSuccess(const Question& question) {
    EXPECT_FALSE(question.succeeds()) << question.text;
    for (int failing = 1, left = 0; left == 0 && !HasFailure(); failing += 1 + failing / 50) {
      requestsLeft = failing;
      bool succeeded = false;
      try {
        succeeded = question.succeeds();
      } catch (const std::bad_alloc&) {  // of the question's own text
      }
      left = std::exchange(requestsLeft, 0);
      EXPECT_FALSE(succeeded) << question.text << ", request " << failing;
    }
  }
};

const std::u16string kFolder = u"C:\\Data", kMissing = u"C:\\No such folder\\item", kItem = u"D:\\Target\\No such item";
const std::u16string kNoVolume = u"\\\\?\\Volume{00000000-0000-0000-0000-000000000001}\\";
const std::u16string kNobody = u"S-1-5-21-1000000000-2000000000-3000000000-4711", kNoName = u"nobody by this name";

TEST_F(OutOfMemory, NoQuestionAboutThePlacesOfDataIsAnsweredWithYes) {
  MakeFile(u"C:\\Data\\one.txt", "data");
  std::u16string text;
  TreeListing listing;
  SavedSecurityMap saved;
  LockedPaths locked;
  const ImpersonatedCaller caller;
  const FolderTree missing(kMissing.c_str()), data(kFolder.c_str());
  TreeListing elsewhere;
  elsewhere.entries = {{kMissing, 0, 0, 0}};
  for (const Question& question : {QUESTION(IsJunction(kFolder.c_str())),
                                   QUESTION(IsSymbolicLink(kFolder.c_str())),
                                   QUESTION(GetJunctionTarget(kFolder.c_str(), text)),
                                   QUESTION(IsVolumeMountPoint(kFolder.c_str(), &text)),
                                   QUESTION(GetFinalTargetPath(kMissing.c_str(), text)),
                                   QUESTION(FindFinalTargetPath(kMissing.c_str(), text)),
                                   QUESTION(VolumePathToNormalPath(text = kNoVolume, text)),
                                   QUESTION(NormalPathToVolumePath(text = u"Q:\\Data\\folder", text)),
                                   QUESTION(GetFileList(kMissing, listing)),
                                   QUESTION(GetFileList(kMissing, listing, caller.token(), saved)),
                                   QUESTION(HasAccess(caller.token(), kMissing, kReadAndExecute)),
                                   QUESTION(!IsSystemFolder(u"C:\\Windows\\System32")),
                                   QUESTION(GetParentDirPath(u"name without folder", text)),
                                   QUESTION(HasEnoughFreeSpace(missing, u"D:\\Target")),
                                   QUESTION(PreScanListing(elsewhere, &locked, false)),
                                   QUESTION(PreScanSource(missing, u"D:\\Target", {.checkLocks = true})),
                                   QUESTION(CheckPathRelations(data, u"C:\\Data\\inner", {})),
                                   QUESTION(ValidateTargetPath(u"Q:\\Data")),
                                   QUESTION(ValidateRedirectionPaths(kFolder.c_str(), u"C:\\Data\\inner")),
                                   QUESTION(ValidateRedirectionPaths(u"", kMissing.c_str(), {.targetOnly = true})),
                                   QUESTION(ValidateVolume(kNoVolume.c_str())),
                                   QUESTION(ValidateProfileVolume(kNoVolume.c_str(), u"C:\\Users")),
                                   QUESTION(ValidateVolumeRedirection(kFolder.c_str(), kNoVolume.c_str()))})
    ExpectNoSuccess(question);
}

TEST_F(OutOfMemory, NoQuestionToTheSystemIsAnsweredWithYes) {
  std::u16string text, more;
  std::vector<std::u16string> names;
  win32::VS_FIXEDFILEINFO fixed{};
  FileVersionRecord version;
  UserProfile profile;
  CQBConfig config;
  EXPECT_TRUE(config.Init());
  for (const Question& question : {QUESTION(ReadFixedFileInfo(kMissing.c_str(), fixed)),
                                   QUESTION(GetFileVersionRecord(kMissing, version)),
                                   QUESTION(IsNewKeelroomVersion()),
                                   QUESTION(IsKeelroomDrive(u'T')),
                                   QUESTION(ReadKeelroomVolumes(names)),
                                   QUESTION(GetRegRedirectPath(text)),
                                   QUESTION(GetRHStatus(text) != 1),
                                   QUESTION(GetUserProfile(kNoName, profile)),
                                   QUESTION(SetProfileImagePath(kNobody, kFolder)),
                                   QUESTION(CanSetProfileImagePath(kNobody, kFolder)),
                                   QUESTION(IsUserLoggedOn(kNoName)),
                                   QUESTION(!SidOfAccount(kNoName).empty()),
                                   QUESTION(IsRestartOwed({kMissing}) == RestartOwed::Yes),
                                   QUESTION(ReadKeyValues(u"1", text, more)),
                                   QUESTION(DeleteRegKey(kFolder.c_str(), kItem.c_str(), 0)),
                                   QUESTION(!FindJunctionRegKey(kFolder.c_str(), kItem.c_str(), 0).empty()),
                                   QUESTION(AddJunctionRegKey(nullptr, nullptr, 0)),
                                   QUESTION(config.AddRegKey(u"HKEY_CURRENT_USER\\Software")),
                                   QUESTION(config.RemoveRegKey(u"HKEY_LOCAL_MACHINE\\SOFTWARE\\Nothing")),
                                   QUESTION(config.GetChildKeys(u"HKEY_LOCAL_MACHINE\\SOFTWARE\\Nothing", names)),
                                   QUESTION(config.HasParentKey(u"HKEY_LOCAL_MACHINE\\SOFTWARE\\Nothing", &text))})
    ExpectNoSuccess(question);
}

// Who answers at all answers with all there is.
TEST_F(OutOfMemory, NoAnswerIsHalfOne) {
  std::u16string text, path, location;
  int status = 0;
  std::vector<JunctionRecord> records;
  std::vector<UserProfile> profiles;
  std::optional<NewProfilesNote> newProfiles;
  std::optional<SharedProfileNote> publicProfile;
  ProfileFolderValue folder;
  ProductVersion product;
  SecurityBlock block;
  CQBConfig config;
  EXPECT_TRUE(config.Init() && CQBConfig::GetConfigFilePath(path) && config.GetOutDir(status, location));
  EXPECT_TRUE(ReadUserProfiles(profiles) && AddJunctionRegKey(kFolder.c_str(), kItem.c_str(), 0));
  EXPECT_TRUE(WriteNote({.home = u"C:\\Users", .location = kFolder}));
  EXPECT_TRUE(WriteNote(ProfileFolder::Public, {.original = u"C:\\Users\\Public", .copy = kItem, .volume = kNoVolume}));
  EXPECT_TRUE(config.AddRegKey(u"HKEY_LOCAL_MACHINE\\SOFTWARE\\Velmora") && config.Save());
  const std::size_t users = profiles.size(), keys = config.MonitoredKeys().size();
  EXPECT_TRUE(users > 0 && keys > 0);
  const auto loadedWithoutItsKeys = [&] {
    CQBConfig other;
    return other.Init() && other.MonitoredKeys().size() != keys;
  };
  for (const Question& question :
       {QUESTION(ReadJunctionRecords(0, records) && records.size() != 1), QUESTION(config.IsOutDirEnabled()),
        QUESTION(ReadUserProfiles(profiles) && profiles.size() != users),
        QUESTION(ReadNote(newProfiles = {}) && !newProfiles),
        QUESTION(ReadNote(ProfileFolder::Public, publicProfile = {}) && !publicProfile),
        QUESTION(ReadProfileFolder(ProfileFolder::Public, folder = {}) && folder.folder != u"C:\\Users\\Public"),
        QUESTION(CQBConfig::GetConfigFilePath(text) && text != path), QUESTION(loadedWithoutItsKeys()),
        QUESTION(config.GetOutDir(status, text = u"none") && text != location),
        QUESTION(config.GetUserProfileRedirection(nullptr, &(text = u"none"), nullptr) && text != u"0"),
        QUESTION(GetProductVersion(product = {}) && product.dotted.empty()),
        QUESTION(SaveSecurityInfo(kFolder, block) && !std::exchange(block, nullptr))})
    ExpectNoSuccess(question);
}

TEST_F(OutOfMemory, NothingThatCannotBeDoneIsCalledDone) {
  MakeFile(u"C:\\Data\\one.txt", "data");
  CopyRecord copy;
  MoveRecord move;
  SecurityBlock block;
  for (const Question& question :
       {QUESTION(CreateJunction(kFolder.c_str(), u"D:\\Target")),
        QUESTION(ChangeJunctionTarget(kMissing.c_str(), u"D:\\Target")), QUESTION(DeleteJunction(kMissing.c_str())),
        QUESTION(CreateSymbolicLinkEntry(kMissing.c_str(), u"D:\\Target")),
        QUESTION(RestoreLink({.source = kMissing, .target = kMissing})),
        QUESTION(CopyFiles(kMissing, target, {}, copy)), QUESTION(MoveDirectoryTree(kMissing, target, {}, move)),
        QUESTION(BackupCopy(kMissing, kItem)), QUESTION(BackupCopyEx(kMissing, kItem)),
        QUESTION(BackupCopyFolderItself(kMissing, target)), QUESTION(CopyParentDirectoryTimes(kMissing, kItem)),
        QUESTION(DeleteEntry({kMissing, 0, 0, 0})), QUESTION(DeleteDirectoryTree(kMissing.c_str())),
        QUESTION(DeleteDirectoryTreeAtReboot(kMissing.c_str())),
        QUESTION(CopyReadableDacl(kFolder, kMissing, {}) == DaclCopy::Written),
        QUESTION(GrantEveryoneAndAdministrators(kMissing)), QUESTION(SaveSecurityInfo(kMissing, block))})
    ExpectNoSuccess(question);
}

// Exit code 0 alone says that a command has done its work.
TEST_F(OutOfMemory, NoCommandThatIsRefusedEndsAsIfItHadWorked) {
  machine->gate.Observe({});  // some take back what they have begun, in destructors
  const CarriedAlong all;
  RemoveRegKeyLocation();
  for (const Question& question :
       {QUESTION(!RedirectFolder(kMissing.c_str(), u"D:\\Target", all)),
        QUESTION(!RemoveFolderRedirection(kFolder.c_str(), u"D:\\Target", all)),
        QUESTION(!RedirectFile(kMissing.c_str(), u"D:\\Target", 1)),
        QUESTION(!RemoveFileRedirection(kMissing.c_str(), u"D:\\Target")),
        QUESTION(!RedirectUserProfile(kNoName.c_str(), u"D:\\Target", {})),
        QUESTION(!RedirectUserProfileToDefault(kNoName.c_str(), all)),
        QUESTION(!RedirectSharedProfiles({true, true}, u"Q:\\Kept", all)),
        QUESTION(!RedirectSharedProfilesToDefault({true, true}, all)), QUESTION(!SetAutoRedirection(u"Q:\\Kept", true)),
        QUESTION(!RemoveAutoRedirection()), QUESTION(!SetRegKeyLocation(u"Q:\\Kept")),
        QUESTION(!RemoveRegKeyLocation()), QUESTION(!AddRedirectedRegKey(u"HKEY_LOCAL_MACHINE\\No such key")),
        QUESTION(!RemoveRedirectedRegKey(u"HKEY_LOCAL_MACHINE\\No such key"))})
    ExpectNoSuccess(question);
}

}  // namespace
