// Memory may be short in the middle of anything. Whoever is asked then and has a bad answer gives the bad one: what is
// refused is never let through, what was not done is never called done.
#include "program/everything.h"

namespace {

// Until memory is short, for once; 0: it is not.
thread_local int requestsLeft = 0;

// Not by `throw`: clang-tidy would then have every destructor throw that allocates.
void ThrowBadAlloc() { std::rethrow_exception(std::make_exception_ptr(std::bad_alloc())); }
void Request() {
  if (requestsLeft > 0 && --requestsLeft == 0) ThrowBadAlloc();
}

}  // namespace

// The program's own requests; those of the calls that it makes count as one.
void* operator new(std::size_t size) {
  if (requestsLeft > 0 && !emulated::Machine::Current().gate.InCall()) Request();
  void* const memory = std::malloc(size);
  if (!memory) ThrowBadAlloc();
  return memory;
}
extern "C" const char* __asan_default_options() { return "alloc_dealloc_mismatch=0"; }  // the library keeps its own
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }

namespace {

using namespace test;

// What is not to succeed, with its text.
#define ASK(expression) \
  std::pair<const char*, std::function<bool()>>(#expression, [&] { return static_cast<bool>(expression); })

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
  template <typename... Questions>
  static void ExpectNoSuccess(const Questions&... questions) {
    for (const auto& [text, succeeds] : {questions...}) {
      EXPECT_FALSE(succeeds()) << text;
      for (int failing = 1, left = 0; left == 0 && !HasFailure(); failing += 1 + failing / 50) {
        requestsLeft = failing;
        bool succeeded = false;
        try {
          succeeded = succeeds();
        } catch (const std::bad_alloc&) {  // of the question's own text
        }
        left = std::exchange(requestsLeft, 0);
        EXPECT_FALSE(succeeded) << text << ", request " << failing;
      }
    }
  }
};

constexpr const char16_t *kFolder = u"C:\\Data", *kMissing = u"C:\\No such folder\\item",
                         *kItem = u"D:\\Target\\No such item";
constexpr const char16_t* kNoVolume = u"\\\\?\\Volume{00000000-0000-0000-0000-000000000001}\\";
constexpr const char16_t *kNobody = u"S-1-5-21-1000000000-2000000000-3000000000-4711",
                         *kNoName = u"nobody by this name";

TEST_F(OutOfMemory, NoQuestionAboutThePlacesOfDataIsAnsweredWithYes) {
  MakeFile(u"C:\\Data\\one.txt", "data");
  std::u16string text;
  TreeListing listing;
  SavedSecurityMap saved;
  LockedPaths locked;
  const ImpersonatedCaller caller;
  const FolderTree missing(kMissing), data(kFolder);
  TreeListing elsewhere;
  elsewhere.entries = {{kMissing, 0, 0, 0}};
  ExpectNoSuccess(
      ASK(IsJunction(kFolder)), ASK(IsSymbolicLink(kFolder)), ASK(GetJunctionTarget(kFolder, text)),
      ASK(IsVolumeMountPoint(kFolder, &text)), ASK(GetFinalTargetPath(kMissing, text)),
      ASK(FindFinalTargetPath(kMissing, text)), ASK(VolumePathToNormalPath(text = kNoVolume, text)),
      ASK(NormalPathToVolumePath(text = u"Q:\\Data\\folder", text)), ASK(GetFileList(kMissing, listing)),
      ASK(GetFileList(kMissing, listing, caller.token(), saved)),
      ASK(HasAccess(caller.token(), kMissing, kReadAndExecute)), ASK(!IsSystemFolder(u"C:\\Windows\\System32")),
      ASK(GetParentDirPath(u"name without folder", text)), ASK(HasEnoughFreeSpace(missing, u"D:\\Target")),
      ASK(PreScanListing(elsewhere, &locked, false)), ASK(PreScanSource(missing, u"D:\\Target", {.checkLocks = true})),
      ASK(CheckPathRelations(data, u"C:\\Data\\inner", {})), ASK(ValidateTargetPath(u"Q:\\Data")),
      ASK(ValidateRedirectionPaths(kFolder, u"C:\\Data\\inner")),
      ASK(ValidateRedirectionPaths(u"", kMissing, {.targetOnly = true})), ASK(ValidateVolume(kNoVolume)),
      ASK(ValidateProfileVolume(kNoVolume, u"C:\\Users")), ASK(ValidateVolumeRedirection(kFolder, kNoVolume)));
}

TEST_F(OutOfMemory, NoQuestionToTheSystemIsAnsweredWithYes) {
  std::u16string text, more;
  std::vector<std::u16string> names;
  win32::VS_FIXEDFILEINFO fixed{};
  FileVersionRecord version;
  UserProfile profile;
  CQBConfig config;
  EXPECT_TRUE(config.Init());
  ExpectNoSuccess(ASK(ReadFixedFileInfo(kMissing, fixed)), ASK(GetFileVersionRecord(kMissing, version)),
                  ASK(IsNewKeelroomVersion()), ASK(IsKeelroomDrive(u'T')), ASK(ReadKeelroomVolumes(names)),
                  ASK(GetRegRedirectPath(text)), ASK(GetRHStatus(text) != 1), ASK(GetUserProfile(kNoName, profile)),
                  ASK(SetProfileImagePath(kNobody, kFolder)), ASK(CanSetProfileImagePath(kNobody, kFolder)),
                  ASK(IsUserLoggedOn(kNoName)), ASK(!SidOfAccount(kNoName).empty()),
                  ASK(IsRestartOwed({kMissing}) == RestartOwed::Yes), ASK(ReadKeyValues(u"1", text, more)),
                  ASK(DeleteRegKey(kFolder, kItem, 0)), ASK(!FindJunctionRegKey(kFolder, kItem, 0).empty()),
                  ASK(AddJunctionRegKey(nullptr, nullptr, 0)), ASK(config.AddRegKey(u"HKEY_CURRENT_USER\\Software")),
                  ASK(config.RemoveRegKey(u"HKEY_LOCAL_MACHINE\\SOFTWARE\\Nothing")),
                  ASK(config.GetChildKeys(u"HKEY_LOCAL_MACHINE\\SOFTWARE\\Nothing", names)),
                  ASK(config.HasParentKey(u"HKEY_LOCAL_MACHINE\\SOFTWARE\\Nothing", &text)));
}

// Who answers at all answers with all there is.
TEST_F(OutOfMemory, NoAnswerIsHalfOne) {
  std::u16string text, more, path, location;
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
  EXPECT_TRUE(ReadUserProfiles(profiles) && WriteNote({.home = u"C:\\Users", .location = kFolder}));
  EXPECT_TRUE(WriteNote(ProfileFolder::Public, {.original = u"C:\\Users\\Public", .copy = kItem, .volume = kNoVolume}));
  EXPECT_TRUE(config.AddRegKey(u"HKEY_LOCAL_MACHINE\\SOFTWARE\\Velmora") && config.Save());
  EXPECT_TRUE(AddJunctionRegKey(kFolder, kItem, 0));
  const std::size_t users = profiles.size(), keys = 1;
  const auto loadedWithoutItsKeys = [&] {
    CQBConfig other;
    return other.Init() && other.MonitoredKeys().size() != keys;
  };
  ExpectNoSuccess(ASK(ReadJunctionRecords(0, records) && records.size() != 1), ASK(config.IsOutDirEnabled()),
                  ASK(ReadUserProfiles(profiles) && profiles.size() != users),
                  ASK(ReadNote(newProfiles = {}) && !newProfiles),
                  ASK(ReadNote(ProfileFolder::Public, publicProfile = {}) && !publicProfile),
                  ASK(ReadProfileFolder(ProfileFolder::Public, folder = {}) && folder.folder != u"C:\\Users\\Public"),
                  ASK(CQBConfig::GetConfigFilePath(text) && text != path), ASK(loadedWithoutItsKeys()),
                  ASK(config.GetOutDir(status, text = u"none") && text != location),
                  ASK(config.GetUserProfileRedirection(nullptr, &(text = u"none"), nullptr) && text != u"0"),
                  ASK(GetProductVersion(product = {}) && product.dotted.empty()),
                  ASK(NormalPathToVolumePath(text = kItem, more) && !more.ends_with(u"}\\Target\\No such item")),
                  ASK(SaveSecurityInfo(kFolder, block) && !std::exchange(block, nullptr)));
}

TEST_F(OutOfMemory, NothingThatCannotBeDoneIsCalledDone) {
  MakeFile(u"C:\\Data\\one.txt", "data");
  CopyRecord copy;
  MoveRecord move;
  SecurityBlock block;
  ExpectNoSuccess(ASK(CreateJunction(kFolder, u"D:\\Target")), ASK(ChangeJunctionTarget(kMissing, u"D:\\Target")),
                  ASK(DeleteJunction(kMissing)), ASK(CreateSymbolicLinkEntry(kMissing, u"D:\\Target")),
                  ASK(RestoreLink({.source = kMissing, .target = kMissing})),
                  ASK(CopyFiles(kMissing, target, {}, copy)), ASK(MoveDirectoryTree(kMissing, target, {}, move)),
                  ASK(BackupCopy(kMissing, kItem)), ASK(BackupCopyEx(kMissing, kItem)),
                  ASK(BackupCopyFolderItself(kMissing, target)), ASK(CopyParentDirectoryTimes(kMissing, kItem)),
                  ASK(DeleteEntry({kMissing, 0, 0, 0})), ASK(DeleteDirectoryTree(kMissing)),
                  ASK(DeleteDirectoryTreeAtReboot(kMissing)),
                  ASK(CopyReadableDacl(kFolder, kMissing, {}) == DaclCopy::Written),
                  ASK(GrantEveryoneAndAdministrators(kMissing)), ASK(SaveSecurityInfo(kMissing, block)));
}

// Exit code 0 alone says that a command has done its work.
TEST_F(OutOfMemory, NoCommandThatIsRefusedEndsAsIfItHadWorked) {
  machine->gate.Observe({});  // some take back what they have begun, in destructors
  const CarriedAlong all;
  RemoveRegKeyLocation();
  ExpectNoSuccess(
      ASK(!RedirectFolder(kMissing, u"D:\\Target", all)), ASK(!RemoveFolderRedirection(kFolder, u"D:\\Target", all)),
      ASK(!RedirectFile(kMissing, u"D:\\Target", 1)), ASK(!RemoveFileRedirection(kMissing, u"D:\\Target")),
      ASK(!RedirectUserProfile(kNoName, u"D:\\Target", {})), ASK(!RedirectUserProfileToDefault(kNoName, all)),
      ASK(!RedirectSharedProfiles({true, true}, u"Q:\\Kept", all)),
      ASK(!RedirectSharedProfilesToDefault({true, true}, all)), ASK(!SetAutoRedirection(u"Q:\\Kept", true)),
      ASK(!RemoveAutoRedirection()), ASK(!SetRegKeyLocation(u"Q:\\Kept")), ASK(!RemoveRegKeyLocation()),
      ASK(!AddRedirectedRegKey(u"HKEY_LOCAL_MACHINE\\No such key")),
      ASK(!RemoveRedirectedRegKey(u"HKEY_LOCAL_MACHINE\\No such key")));
}

}  // namespace
