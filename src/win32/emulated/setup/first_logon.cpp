#include "win32/emulated/setup/first_logon.h"

#include "win32/emulated/files/file_service.h"
#include "win32/emulated/files/reparse.h"
#include "win32/emulated/registry/registry.h"
#include "win32/emulated/registry/system_hives.h"
#include "win32/emulated/setup/account_pictures.h"
#include "win32/emulated/registry/hive_file.h"
#include "win32/emulated/setup/user_hive.h"
#include "win32/emulated/setup/user_profile.h"
#include "win32/emulated/text.h"

namespace emulated {

namespace {

using win32::DWORD;

constexpr std::u16string_view kObjectPrefix = u"\\??\\";

// A folder that the profile list names.
DWORD FindProfileFolder(Machine& machine, std::u16string_view value, std::u16string& path, Location& location) {
  const auto text = machine.registry().Query(kProfileList, value);
  if (!text) return win32::ERROR_PATH_NOT_FOUND;
  path = ExpandSystemVariables(machine.registry(), text->Text());
  while (!path.empty() && path.back() == u'\\') path.pop_back();
  if (const DWORD error = machine.files().Resolve(path, true, location)) return error;
  return location.file == 0 ? DWORD{win32::ERROR_PATH_NOT_FOUND} : DWORD{win32::ERROR_SUCCESS};
}

// Copies what is in one folder into another: data, attributes and links; owners and access come from the new place.
class ProfileCopy {
 public:
  ProfileCopy(Volume& source, std::u16string from, std::u16string to, VolumeBuilder& build)
      : source_(source), from_(std::move(from)), to_(std::move(to)), build_(build) {}

  DWORD Folder(FileId folder, const std::u16string& target) {
    std::vector<DirectoryEntry> entries;
    if (const DWORD error = source_.List(folder, entries)) return error;
    for (const DirectoryEntry& entry : entries)
      if (const DWORD error = Item(entry.id, target + u"\\" + entry.name, entry.name)) return error;
    return build_.error();
  }

 private:
  DWORD Item(FileId file, const std::u16string& target, std::u16string_view name) {
    FileInfo info;
    if (const DWORD error = source_.Stat(file, info)) return error;
    if (info.attributes & win32::FILE_ATTRIBUTE_REPARSE_POINT) return Link(file, target);
    if (info.attributes & win32::FILE_ATTRIBUTE_DIRECTORY) {
      build_.Directory(target, {}, info.attributes);
      return Folder(file, target);
    }
    if (StartsWithAsciiNoCase(name, u"ntuser.")) return win32::ERROR_SUCCESS;  // each user's own
    Bytes content;
    if (const DWORD error = ReadWholeFile(source_, file, content)) return error;
    build_.File(target, content, {}, info.attributes);
    return build_.error();
  }

  // Links into the profile lead into the copy; of others only junctions are taken along.
  DWORD Link(FileId file, const std::u16string& target) {
    Bytes reparse;
    LinkTarget link;
    if (const DWORD error = source_.GetReparse(file, reparse)) return error;
    if (ParseLink(reparse, link) != 0 || link.tag != win32::IO_REPARSE_TAG_MOUNT_POINT) return win32::ERROR_SUCCESS;
    std::u16string_view leads = link.substituteName;
    if (!leads.starts_with(kObjectPrefix)) return win32::ERROR_SUCCESS;
    leads.remove_prefix(kObjectPrefix.size());
    if (StartsWithAsciiNoCase(leads, from_) && (leads.size() == from_.size() || leads[from_.size()] == u'\\')) {
      MakeProfileLink(build_, target, to_ + std::u16string(leads.substr(from_.size())));
    } else {
      build_.Junction(target, leads);
    }
    return build_.error();
  }

  Volume& source_;
  std::u16string from_, to_;  // paths of the two profiles
  VolumeBuilder& build_;
};

std::u16string FreeName(Volume& volume, const std::u16string& directory, const Account& account) {
  constexpr unsigned kMostNumbers = 1000;
  FileId taken = 0;
  std::u16string name = account.name;
  if (volume.LookupPath(directory + u"\\" + name, taken) != 0) return name;
  name += u"." + account.domain;
  for (unsigned number = 0; volume.LookupPath(directory + u"\\" + name, taken) == 0 && number < kMostNumbers;
       ++number) {
    const std::u16string digits = Utf16(std::to_string(kMostNumbers + number)).substr(1);
    name = account.name + u"." + account.domain + u"." + digits;
  }
  return name;
}

// The hive that the new user's settings begin as.
DWORD ReadDefaultHive(Machine& machine, const std::u16string& defaultProfile, std::u16string_view home,
                      std::u16string_view sid, Bytes& hive) {
  Location location;
  if (const DWORD error = machine.files().Resolve(defaultProfile + u"\\NTUSER.DAT", true, location)) return error;
  if (location.file == 0) return win32::ERROR_FILE_NOT_FOUND;
  Bytes content;
  std::string why;
  if (const DWORD error =
          ReadHiveFile(*location.volume->volume, {location.directory, location.name, location.file}, content, why))
    return error;
  auto made = UserHiveFromDefault(content, machine.registry().upCase(), home, sid, machine.Now());
  if (!made) return kBadDatabase;
  hive = std::move(*made);
  return win32::ERROR_SUCCESS;
}

std::u16string PathInVolume(Machine& machine, const Location& location) {
  std::u16string path = machine.files().PathInVolume(*location.volume, location.file);
  if (path == u"\\") path.clear();
  return path;
}

// In the profile that all users share, wherever it is; where there is none, there are no pictures.
DWORD MakePictures(Machine& machine, std::u16string_view sid) {
  std::u16string path;
  Location location;
  if (FindProfileFolder(machine, u"Public", path, location) != 0) return win32::ERROR_SUCCESS;
  VolumeBuilder build(*location.volume->volume, machine.Now());
  MakeAccountPictures(build, {PathInVolume(machine, location), path}, machine.registry(), sid);
  return build.error();
}

}  // namespace

DWORD CreateUserProfile(Machine& machine, const Account& account, std::u16string& folder) {
  const std::u16string sid = SidToText(account.sid);
  const WindowsVersion windows{machine.majorVersion, machine.minorVersion};
  if (machine.registry().KeyExists(std::u16string(kProfileList) + u"\\" + sid)) return win32::ERROR_ALREADY_EXISTS;
  std::u16string directory, source;
  Location parent, original;
  if (const DWORD error = FindProfileFolder(machine, u"ProfilesDirectory", directory, parent)) return error;
  if (const DWORD error = FindProfileFolder(machine, u"Default", source, original)) return error;

  const std::u16string inVolume = PathInVolume(machine, parent);
  Volume& volume = *parent.volume->volume;
  const std::u16string name = FreeName(volume, inVolume, account);
  const ProfilePlace place{inVolume + u"\\" + name, directory + u"\\" + name};
  Bytes hive;
  if (const DWORD error = ReadDefaultHive(machine, source, place.path, sid, hive)) return error;
  VolumeBuilder build(volume, machine.Now());
  build.Directory(place.inVolume, ProfileDescriptor(sid));
  ProfileCopy copy(*original.volume->volume, source, place.path, build);
  DWORD error = build.error() != 0 ? build.error() : copy.Folder(original.file, place.inVolume);
  if (error == 0) {
    MakeUserProfile(build, place, windows, machine.Now(), sid, hive, false);
    error = build.error();
  }
  if (error == 0 && windows.AtLeast(6, 2)) error = MakePictures(machine, sid);
  machine.files().ForgetPaths();
  if (error != 0) return error;
  RecordProfile(machine.registry(), sid, place.path, 0);
  folder = place.path;
  return win32::ERROR_SUCCESS;
}

}  // namespace emulated
