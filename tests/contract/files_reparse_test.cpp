// Junctions, symbolic links and other reparse points.
#include "contract/fixture.h"

using namespace win32;
using namespace contract;

namespace {

class FilesReparse : public FileTest {
 protected:
  void SetUp() override { SKIP_ON_WINE("Wine has no reparse points"); }
};

using Bytes = std::vector<std::uint8_t>;

UniqueFile OpenItself(const std::u16string& path, DWORD access, DWORD share = kShareAll) {
  return Open(path, access, share, OPEN_EXISTING, kOpenLink);
}

DWORD Get(HANDLE handle, std::size_t room, Bytes& data, DWORD& returned) {
  data.assign(room, 0xEE);
  return ErrorOf(DeviceIoControl(handle, FSCTL_GET_REPARSE_POINT, nullptr, 0, room ? data.data() : nullptr,
                                 static_cast<DWORD>(room), &returned, nullptr));
}

// The input of FSCTL_DELETE_REPARSE_POINT: a header of `size` bytes.
DWORD DeleteReparse(HANDLE handle, std::size_t size, DWORD tag, std::uint16_t length) {
  Bytes input(28);
  std::memcpy(input.data(), &tag, 4);
  std::memcpy(input.data() + 4, &length, 2);
  DWORD returned = 0;
  return ErrorOf(DeviceIoControl(handle, FSCTL_DELETE_REPARSE_POINT, size ? input.data() : nullptr,
                                 static_cast<DWORD>(size), nullptr, 0, &returned, nullptr));
}

DWORD LinkError(const std::u16string& path, const std::u16string& target, DWORD flags = 0) {
  return CreateSymbolicLink()(path.c_str(), target.c_str(), flags) ? 0 : GetLastError();
}

TEST_F(FilesReparse, SettingIsRefusedWhereItMustNotBe) {
  const Bytes data = JunctionData(ObjectName(Path(u"target")));
  MakeDirectory(Path(u"full"));
  Put(Path(u"full\\file"));
  Put(Path(u"file"), "");
  MakeDirectory(Path(u"empty"));
  for (const auto& [name, access, error] : {std::tuple(u"full", GENERIC_WRITE, ERROR_DIR_NOT_EMPTY),
                                            {u"file", GENERIC_WRITE, ERROR_DIRECTORY},
                                            {u"empty", GENERIC_READ, ERROR_ACCESS_DENIED}})
    EXPECT_EQ(SetReparse(OpenItself(Path(name), access).get(), data), error);
  const auto empty = OpenItself(Path(u"empty"), GENERIC_WRITE);
  Bytes wrongLength = data, outside = data, noTarget = JunctionData(u"");
  wrongLength[4] = static_cast<std::uint8_t>(wrongLength[4] + 2);
  outside[10] = 0xFE;  // the length of the substitute name
  outside[11] = 0x7F;
  for (const Bytes& bad : {wrongLength, Bytes(data.begin(), data.begin() + 6), outside, noTarget})
    EXPECT_EQ(SetReparse(empty.get(), bad), ERROR_INVALID_REPARSE_DATA);
  EXPECT_EQ(GetFileAttributesW(Path(u"empty").c_str()), FILE_ATTRIBUTE_DIRECTORY);
}

TEST_F(FilesReparse, SettingReadingReplacing) {
  MakeDirectory(Path(u"junction"));
  MakeDirectory(Path(u"target"));
  const auto handle = OpenItself(Path(u"junction"), GENERIC_READ | GENERIC_WRITE);
  Bytes got;
  DWORD returned = 0;
  EXPECT_EQ(Get(handle.get(), 1, got, returned), ERROR_NOT_A_REPARSE_POINT);
  const Bytes second = JunctionData(ObjectName(Path(u"target")), Path(u"target"));
  EXPECT_EQ(SetReparse(handle.get(), JunctionData(ObjectName(Path(u"other")))), 0u);
  EXPECT_EQ(SetReparse(handle.get(), second), 0u);
  EXPECT_EQ(Get(handle.get(), 0, got, returned), ERROR_INVALID_USER_BUFFER);
  EXPECT_EQ(Get(handle.get(), 28, got, returned), ERROR_MORE_DATA);
  EXPECT_EQ(returned, 28u);
  EXPECT_TRUE(std::equal(got.begin(), got.end(), second.begin()));
  EXPECT_EQ(Get(handle.get(), MAXIMUM_REPARSE_DATA_BUFFER_SIZE, got, returned), 0u);
  EXPECT_EQ(returned, second.size());
  got.resize(returned);
  EXPECT_EQ(got, second);
}

TEST_F(FilesReparse, Deleting) {
  MakeDirectory(Path(u"target"));
  MakeJunction(Path(u"junction"), ObjectName(Path(u"target")));
  const auto handle = OpenItself(Path(u"junction"), GENERIC_WRITE, 0);
  for (const auto& [size, tag, length, error] :
       {std::tuple(0u, IO_REPARSE_TAG_MOUNT_POINT, 0u, ERROR_INVALID_USER_BUFFER),
        {28u, IO_REPARSE_TAG_MOUNT_POINT, 0u, ERROR_INVALID_REPARSE_DATA},
        {8u, IO_REPARSE_TAG_MOUNT_POINT, 4u, ERROR_INVALID_REPARSE_DATA},
        {8u, IO_REPARSE_TAG_SYMLINK, 0u, ERROR_REPARSE_TAG_MISMATCH},
        {8u, IO_REPARSE_TAG_MOUNT_POINT, 0u, 0u},
        {8u, IO_REPARSE_TAG_MOUNT_POINT, 0u, ERROR_NOT_A_REPARSE_POINT}})
    EXPECT_EQ(DeleteReparse(handle.get(), size, tag, static_cast<std::uint16_t>(length)), error);
  EXPECT_EQ(GetFileAttributesW(Path(u"junction").c_str()), FILE_ATTRIBUTE_DIRECTORY);
}

TEST_F(FilesReparse, WhereJunctionsLeadAndWhatTakesThemAway) {
  for (const auto* const name : {u"target", u"other"}) MakeDirectory(Path(name));
  Put(Path(u"target\\file"), "through");
  MakeJunction(Path(u"junction"), ObjectName(Path(u"target")));
  MakeJunction(Path(u"second"), ObjectName(Path(u"junction")) + u"\\");
  EXPECT_EQ(contract::Get(Path(u"second\\FILE")), "through");
  for (const auto& [name, target, error] : {std::tuple(u"dangling", ObjectName(Path(u"missing")), ERROR_FILE_NOT_FOUND),
                                            {u"toFile", ObjectName(Path(u"target\\file")), ERROR_DIRECTORY},
                                            {u"toItself", ObjectName(Path(u"toItself")), ERROR_CANT_RESOLVE_FILENAME},
                                            {u"noName", u"foobar", ERROR_INVALID_NAME}}) {
    MakeJunction(Path(name), target);
    EXPECT_EQ(OpenError(Path(name), GENERIC_READ, kShareAll, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS), error);
    EXPECT_EQ(ErrorOf(CreateDirectoryW(Path(name).c_str(), nullptr)), ERROR_ALREADY_EXISTS);
    EXPECT_EQ(OpenError(Path(name), GENERIC_READ, 0, OPEN_EXISTING, kOpenLink), 0u);
  }
  EXPECT_EQ(AttributesError(Path(u"dangling\\child")), ERROR_PATH_NOT_FOUND);
  Put(Path(u"dangling"), "made at the target");  // the open of a missing target makes it
  EXPECT_EQ(contract::Get(Path(u"missing")), "made at the target");
  // What goes or moves is the link, not what it leads to.
  EXPECT_EQ(DeleteError(Path(u"second")), ERROR_ACCESS_DENIED);
  EXPECT_EQ(RemoveError(Path(u"second")), 0u);
  ASSERT_TRUE(MoveFileW(Path(u"junction").c_str(), Path(u"moved").c_str()));
  EXPECT_EQ(contract::Get(Path(u"moved\\file")), "through");
  EXPECT_EQ(AttributesError(Path(u"junction\\file")), ERROR_PATH_NOT_FOUND);
  // A path that led through it leads elsewhere when the junction does.
  EXPECT_EQ(SetReparse(OpenItself(Path(u"moved"), GENERIC_WRITE).get(), JunctionData(ObjectName(Path(u"other")))), 0u);
  EXPECT_EQ(AttributesError(Path(u"moved\\file")), ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(RemoveError(Path(u"moved")), 0u);
  EXPECT_TRUE(Exists(Path(u"target\\file")) && Exists(Path(u"other")));
}

TEST_F(FilesReparse, SymbolicLinks) {
  MakeDirectory(Path(u"directory"));
  Put(Path(u"file"), "target");
  EXPECT_EQ(LinkError(Path(u"toFile"), Path(u"file")), 0u);
  EXPECT_EQ(LinkError(Path(u"toFile"), Path(u"file")), ERROR_ALREADY_EXISTS);
  EXPECT_EQ(LinkError(Path(u"directory\\relative"), u"..\\file"), 0u);
  Bytes data;
  DWORD returned = 0;
  for (const auto& [name, substitute, isRelative] :
       {std::tuple(Path(u"toFile"), ObjectName(Path(u"file")), 0u), {Path(u"directory\\relative"), u"..\\file", 1u}}) {
    EXPECT_EQ(Get(OpenItself(name, GENERIC_READ).get(), 4096, data, returned), 0u);
    std::uint16_t header[6] = {};
    std::memcpy(header, data.data() + 8, sizeof header);
    EXPECT_TRUE(header[1] == substitute.size() * 2 && header[4] == isRelative);
    EXPECT_EQ(std::memcmp(data.data() + 20 + header[0], substitute.data(), header[1]), 0);
  }
  EXPECT_EQ(LinkError(Path(u"toDirectory"), u"directory", SYMBOLIC_LINK_FLAG_DIRECTORY), 0u);
  EXPECT_EQ(contract::Get(Path(u"toDirectory\\relative")), "target");
  EXPECT_EQ(GetFileAttributesW(Path(u"toDirectory").c_str()), FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT);

  EXPECT_TRUE(SetFileAttributesW(Path(u"toFile").c_str(), FILE_ATTRIBUTE_HIDDEN));
  EXPECT_TRUE(GetFileAttributesW(Path(u"toFile").c_str()) & FILE_ATTRIBUTE_HIDDEN);
  WIN32_FILE_ATTRIBUTE_DATA named{};
  EXPECT_TRUE(GetFileAttributesExW(Path(u"toFile").c_str(), GetFileExInfoStandard, &named));
  EXPECT_EQ(named.dwFileAttributes, FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_REPARSE_POINT);
  EXPECT_FALSE(GetFileAttributesW(Path(u"file").c_str()) & FILE_ATTRIBUTE_HIDDEN);
  EXPECT_EQ(RemoveError(Path(u"toFile")), ERROR_DIRECTORY);
  EXPECT_EQ(DeleteError(Path(u"toFile")), 0u);
  // Overwriting the link itself leaves an ordinary file in its place.
  for (const DWORD disposition : {CREATE_ALWAYS, TRUNCATE_EXISTING}) {
    EXPECT_EQ(LinkError(Path(u"toFile"), Path(u"file")), 0u);
    EXPECT_EQ(OpenError(Path(u"toFile"), GENERIC_WRITE, 0, disposition, kOpenLink), 0u);
    EXPECT_EQ(GetFileAttributesW(Path(u"toFile").c_str()), FILE_ATTRIBUTE_ARCHIVE);
    EXPECT_EQ(DeleteError(Path(u"toFile")), 0u);
  }
  EXPECT_EQ(contract::Get(Path(u"file")), "target");
  EXPECT_EQ(RemoveError(Path(u"toDirectory")), 0u);
  EXPECT_TRUE(Exists(Path(u"file")) && Exists(Path(u"directory")));
}

TEST_F(FilesReparse, UnknownTagsAreNobodysToFollow) {
  Put(Path(u"file"), "");
  Bytes data(24 + 4);  // a tag that is not Microsoft's, its GUID, four bytes
  const DWORD tag = 0x00001234;
  const std::uint16_t length = 4;
  std::memcpy(data.data(), &tag, 4);
  std::memcpy(data.data() + 4, &length, 2);
  data[8] = 1;
  const auto handle = OpenItself(Path(u"file"), GENERIC_WRITE | GENERIC_READ);
  EXPECT_EQ(SetReparse(handle.get(), data), 0u);
  data[8] = 2;
  EXPECT_EQ(SetReparse(handle.get(), data), ERROR_REPARSE_ATTRIBUTE_CONFLICT);
  EXPECT_EQ(OpenError(Path(u"file"), GENERIC_READ), ERROR_CANT_ACCESS_FILE);
  EXPECT_EQ(OpenError(Path(u"file"), GENERIC_READ, kShareAll, OPEN_EXISTING, kOpenLink), 0u);
  EXPECT_EQ(DeleteError(Path(u"file")), 0u);
}

TEST_F(FilesReparse, AFolderWhoseTagLetsItHaveEntriesIsOpenedAsItIs) {
  MakeDirectory(Path(u"folder"));
  MakeDirectory(Path(u"other"));
  Put(Path(u"folder\\file"), "below");
  for (const auto& [name, tag, error] : {std::tuple(u"folder", 0x90, 0u), {u"other", 0x80, ERROR_CANT_ACCESS_FILE}}) {
    const Bytes data{0xFE, 0xCA, 0, static_cast<std::uint8_t>(tag), 1, 0, 0, 0, 7};
    EXPECT_EQ(SetReparse(OpenItself(Path(name), GENERIC_WRITE).get(), data), 0u);
    EXPECT_EQ(GetFileAttributesW(Path(name).c_str()), FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT);
    EXPECT_EQ(OpenError(Path(name), GENERIC_READ, kShareAll, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS), error);
  }
  EXPECT_EQ(contract::Get(Path(u"folder\\file")), "below");
}

TEST_F(FilesReparse, FinalPaths) {
  MakeDirectory(Path(u"Target"));
  MakeJunction(Path(u"Target\\Inner"), ObjectName(Path(u"Target")));
  MakeJunction(Path(u"junction"), ObjectName(Path(u"Target")));
  const auto final = [&](const char16_t* name, DWORD flags = FILE_FLAG_BACKUP_SEMANTICS) {
    const auto handle = Open(Path(name), FILE_READ_ATTRIBUTES, kShareAll, OPEN_EXISTING, flags);
    std::u16string text(512, u'\0');
    const DWORD length = GetFinalPathNameByHandle()(handle.get(), text.data(), 512, 0);
    for (const DWORD little : {DWORD{0}, length})
      EXPECT_EQ(GetFinalPathNameByHandle()(handle.get(), text.data(), little, 0), length + 1);
    return text.substr(0, length);
  };
  EXPECT_EQ(final(u"JUNCTION"), u"\\\\?\\" + Path(u"Target"));
  EXPECT_EQ(final(u"junction\\INNER", kOpenLink), u"\\\\?\\" + Path(u"Target\\Inner"));
}

}  // namespace
