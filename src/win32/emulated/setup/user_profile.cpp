#include "win32/emulated/setup/user_profile.h"

#include "win32/emulated/setup/account_pictures.h"
#include "win32/emulated/setup/user_hive.h"
#include "win32/emulated/text.h"

namespace emulated {

namespace {

using win32::FILE_ATTRIBUTE_HIDDEN;
using win32::FILE_ATTRIBUTE_NOT_CONTENT_INDEXED;
using win32::FILE_ATTRIBUTE_READONLY;
using win32::FILE_ATTRIBUTE_SYSTEM;

constexpr win32::DWORD kHiddenSystem = FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM;

// Nobody lists a compatibility link: a search that entered it would go round in circles. The names behind it are
// reached all the same.
constexpr std::u16string_view kSystemLink = u"O:SYG:SYD:PAI(D;;CC;;;WD)(A;;0x1200a9;;;WD)(A;;FA;;;SY)(A;;FA;;;BA)";
constexpr std::u16string_view kProfileLink = u"O:SYG:SYD:(D;;CC;;;WD)";

// The folders behind AppData, those above before those below.
constexpr std::u16string_view kDataFolders[] = {
    u"AppData\\Local",
    u"AppData\\Local\\Temp",
    u"AppData\\Local\\Microsoft",
    u"AppData\\Local\\Microsoft\\Windows",
    u"AppData\\Local\\Microsoft\\Windows\\History",
    u"AppData\\Roaming",
    u"AppData\\Roaming\\Microsoft",
    u"AppData\\Roaming\\Microsoft\\Windows",
    u"AppData\\Roaming\\Microsoft\\Windows\\Network Shortcuts",
    u"AppData\\Roaming\\Microsoft\\Windows\\Printer Shortcuts",
    u"AppData\\Roaming\\Microsoft\\Windows\\Recent",
    u"AppData\\Roaming\\Microsoft\\Windows\\SendTo",
    u"AppData\\Roaming\\Microsoft\\Windows\\Start Menu",
    u"AppData\\Roaming\\Microsoft\\Windows\\Start Menu\\Programs",
    u"AppData\\Roaming\\Microsoft\\Windows\\Templates",
};
constexpr std::u16string_view kVisibleFolders[] = {u"Desktop", u"Documents", u"Downloads", u"Favorites",
                                                   u"Music",   u"Pictures",  u"Videos"};
constexpr std::u16string_view kFoldersOfUsers[] = {u"Contacts", u"Links", u"Saved Games", u"Searches"};

struct Link {
  std::u16string_view name, target;  // below the profile
};
constexpr Link kLinks[] = {
    {u"Application Data", u"AppData\\Roaming"},
    {u"Local Settings", u"AppData\\Local"},
    {u"My Documents", u"Documents"},
    {u"NetHood", u"AppData\\Roaming\\Microsoft\\Windows\\Network Shortcuts"},
    {u"PrintHood", u"AppData\\Roaming\\Microsoft\\Windows\\Printer Shortcuts"},
    {u"Recent", u"AppData\\Roaming\\Microsoft\\Windows\\Recent"},
    {u"SendTo", u"AppData\\Roaming\\Microsoft\\Windows\\SendTo"},
    {u"Start Menu", u"AppData\\Roaming\\Microsoft\\Windows\\Start Menu"},
    {u"Templates", u"AppData\\Roaming\\Microsoft\\Windows\\Templates"},
    {u"AppData\\Local\\Application Data", u"AppData\\Local"},
    {u"AppData\\Local\\History", u"AppData\\Local\\Microsoft\\Windows\\History"},
};
constexpr Link kDocumentLinks[] = {
    {u"Documents\\My Music", u"Music"}, {u"Documents\\My Pictures", u"Pictures"}, {u"Documents\\My Videos", u"Videos"}};

// Internet Explorer 11 moved what it keeps.
struct BrowserFolders {
  Link cookies, cache;
};
BrowserFolders FoldersOfBrowser(WindowsVersion windows) {
  constexpr std::u16string_view kCookies = u"Cookies", kCache = u"AppData\\Local\\Temporary Internet Files";
  if (windows.AtLeast(6, 3))
    return {{kCookies, u"AppData\\Local\\Microsoft\\Windows\\INetCookies"},
            {kCache, u"AppData\\Local\\Microsoft\\Windows\\INetCache"}};
  return {{kCookies, u"AppData\\Roaming\\Microsoft\\Windows\\Cookies"},
          {kCache, u"AppData\\Local\\Microsoft\\Windows\\Temporary Internet Files"}};
}

std::u16string Join(std::u16string_view folder, std::u16string_view name) {
  return std::u16string(folder) + u"\\" + std::u16string(name);
}

using MakeLink = void (*)(VolumeBuilder&, std::u16string_view, std::u16string_view);

void MakeFolders(VolumeBuilder& build, const ProfilePlace& place, WindowsVersion windows) {
  build.Directory(Join(place.inVolume, u"AppData"), {}, FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_NOT_CONTENT_INDEXED);
  for (const std::u16string_view folder : kDataFolders) build.Directory(Join(place.inVolume, folder));
  const BrowserFolders browser = FoldersOfBrowser(windows);
  for (const Link& link : {browser.cookies, browser.cache})
    build.Directory(Join(place.inVolume, link.target), {}, kHiddenSystem);
  for (const std::u16string_view folder : kVisibleFolders)
    build.Directory(Join(place.inVolume, folder), {}, FILE_ATTRIBUTE_READONLY);
}

void MakeLinks(VolumeBuilder& build, const ProfilePlace& place, WindowsVersion windows, MakeLink make) {
  const auto one = [&](const Link& link) {
    make(build, Join(place.inVolume, link.name), Join(place.path, link.target));
  };
  for (const Link& link : kLinks) one(link);
  for (const Link& link : kDocumentLinks) one(link);
  const BrowserFolders browser = FoldersOfBrowser(windows);
  one(browser.cookies);
  one(browser.cache);
}

void MakeDesktopIni(VolumeBuilder& build, std::u16string_view folder, int name) {
  build.File(Join(folder, u"desktop.ini"),
             IniText(u"\r\n[.ShellClassInfo]\r\nLocalizedResourceName=@%SystemRoot%\\system32\\shell32.dll,-" +
                     Utf16(std::to_string(name)) + u"\r\n"),
             {}, kHiddenSystem);
}

// The texts of shell32.dll that name these folders.
constexpr int kFirstFolderName = 21769, kPicturesFolderName = 21777;

constexpr std::u16string_view kClasses = u"AppData\\Local\\Microsoft\\Windows\\UsrClass.dat";

}  // namespace

Bytes IniText(std::u16string_view text) {
  Bytes bytes;
  AppendLittleEndian(bytes, u'\uFEFF');
  for (const char16_t unit : text) AppendLittleEndian(bytes, unit);
  return bytes;
}

std::u16string ProfileDescriptor(std::u16string_view sid) {
  return u"O:SYG:SYD:P(A;OICI;FA;;;SY)(A;OICI;FA;;;BA)(A;OICI;FA;;;" + std::u16string(sid) + u")";
}

void MakeSystemLink(VolumeBuilder& build, std::u16string_view link, std::u16string_view target) {
  build.Junction(link, target, kSystemLink, kHiddenSystem | FILE_ATTRIBUTE_NOT_CONTENT_INDEXED);
}

void MakeProfileLink(VolumeBuilder& build, std::u16string_view link, std::u16string_view target) {
  build.Junction(link, target, kProfileLink, kHiddenSystem | FILE_ATTRIBUTE_NOT_CONTENT_INDEXED);
}

void MakeDefaultProfile(VolumeBuilder& build, const ProfilePlace& place, WindowsVersion windows, FileTime now) {
  MakeFolders(build, place, windows);
  MakeLinks(build, place, windows, MakeSystemLink);
  build.File(Join(place.inVolume, u"NTUSER.DAT"), UserHive(place.path, now), {}, FILE_ATTRIBUTE_HIDDEN);
}

void MakeUserProfile(VolumeBuilder& build, const ProfilePlace& place, WindowsVersion windows, FileTime now,
                     std::u16string_view sid, ByteView hive, bool ownWallpaper) {
  MakeFolders(build, place, windows);
  build.Directory(Join(place.inVolume, u"AppData\\LocalLow"), {}, FILE_ATTRIBUTE_NOT_CONTENT_INDEXED);
  build.Directory(Join(place.inVolume, u"AppData\\Roaming\\Microsoft\\Windows\\Themes"));
  for (const std::u16string_view folder : kFoldersOfUsers)
    build.Directory(Join(place.inVolume, folder), {}, FILE_ATTRIBUTE_READONLY);
  MakeLinks(build, place, windows, MakeProfileLink);

  int name = kFirstFolderName;
  for (const std::u16string_view folder : kVisibleFolders) MakeDesktopIni(build, Join(place.inVolume, folder), name++);
  for (const std::u16string_view folder : kFoldersOfUsers) MakeDesktopIni(build, Join(place.inVolume, folder), name++);
  constexpr unsigned kWidthOfScreen = 1024;
  if (ownWallpaper) build.File(place.inVolume + std::u16string(kOwnWallpaper), PictureFile(kWidthOfScreen));

  build.File(Join(place.inVolume, u"NTUSER.DAT"), hive, {}, FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_NOT_CONTENT_INDEXED);
  build.File(Join(place.inVolume, kClasses), ClassesHive(sid, now), {}, kHiddenSystem);
  for (const auto* const log : {u"ntuser.dat.LOG1", u"ntuser.dat.LOG2"})
    build.File(Join(place.inVolume, log), {}, {}, kHiddenSystem);
  build.File(Join(place.inVolume, u"ntuser.ini"), IniText(u"[General]"), {}, kHiddenSystem);
}

void MakeServiceProfile(VolumeBuilder& build, const ProfilePlace& place, FileTime now, std::u16string_view sid) {
  build.Directory(Join(place.inVolume, u"AppData"), {}, FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_NOT_CONTENT_INDEXED);
  for (const auto* const folder : {u"AppData\\Local", u"AppData\\Local\\Temp", u"AppData\\Roaming"})
    build.Directory(Join(place.inVolume, folder));
  build.File(Join(place.inVolume, u"NTUSER.DAT"), UserHive(place.path, now, sid), {}, FILE_ATTRIBUTE_HIDDEN);
}

void MakePublicProfile(VolumeBuilder& build, const ProfilePlace& place, WindowsVersion windows) {
  int name = kFirstFolderName;
  for (const auto* const folder : {u"Desktop", u"Documents", u"Downloads", u"Music", u"Pictures", u"Videos"}) {
    build.Directory(Join(place.inVolume, folder), {},
                    FILE_ATTRIBUTE_READONLY | (folder == std::u16string_view(u"Desktop") ? FILE_ATTRIBUTE_HIDDEN : 0));
    MakeDesktopIni(build, Join(place.inVolume, folder), name++);
  }
  build.Directory(Join(place.inVolume, u"Libraries"), {}, FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_READONLY);
  MakeDesktopIni(build, place.inVolume, name++);
  for (const Link& link : kDocumentLinks)
    MakeSystemLink(build, Join(place.inVolume, link.name), Join(place.path, link.target));
  if (windows.AtLeast(6, 2)) MakePicturesFolder(build, place);
}

void MakePicturesFolder(VolumeBuilder& build, const ProfilePlace& publicProfile) {
  const std::u16string pictures = Join(publicProfile.inVolume, u"AccountPictures");
  build.Directory(pictures, {}, FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_READONLY);
  MakeDesktopIni(build, pictures, kPicturesFolderName);
}

}  // namespace emulated
