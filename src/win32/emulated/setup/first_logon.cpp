#include "win32/emulated/setup/first_logon.h"

#include "win32/emulated/files/file_service.h"
#include "win32/emulated/files/reparse.h"
#include "win32/emulated/registry/registry.h"
#include "win32/emulated/registry/system_hives.h"
#include "win32/emulated/setup/user_profile.h"
#include "win32/emulated/text.h"

namespace emulated {

namespace {

using win32::DWORD;

constexpr std::u16string_view kObjectPrefix = u"\\??\\";

// A folder that the profile list names.
DWORD FindProfileFolder(Machine& machine, std::u16string_view value, std::u16string& path, Location& location) {
  const auto text = machine.registry().Query(kProfileList, value);
  if (!text) return win32::ERROR_FILE_NOT_FOUND;
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
    Bytes content(static_cast<std::size_t>(info.size));
    std::size_t done = 0;
    if (const DWORD error = source_.Read(file, {}, 0, content, done)) return error;
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

}  // namespace

DWORD CreateUserProfile(Machine& machine, const Account& account, std::u16string& folder) {
  const std::u16string sid = SidToText(account.sid);
  if (machine.registry().KeyExists(std::u16string(kProfileList) + u"\\" + sid)) return win32::ERROR_ALREADY_EXISTS;
  std::u16string directory, source;
  Location parent, original;
  if (const DWORD error = FindProfileFolder(machine, u"ProfilesDirectory", directory, parent)) return error;
  if (const DWORD error = FindProfileFolder(machine, u"Default", source, original)) return error;

  std::u16string inVolume = machine.files().PathInVolume(*parent.volume, parent.file);
  if (inVolume == u"\\") inVolume.clear();
  Volume& volume = *parent.volume->volume;
  const std::u16string name = FreeName(volume, inVolume, account);
  const ProfilePlace place{inVolume + u"\\" + name, directory + u"\\" + name};
  VolumeBuilder build(volume, machine.Now());
  build.Directory(place.inVolume, ProfileDescriptor(sid));
  ProfileCopy copy(*original.volume->volume, source, place.path, build);
  const DWORD copied = build.error() != 0 ? build.error() : copy.Folder(original.file, place.inVolume);
  if (copied == 0)
    MakeUserProfile(build, place, {machine.majorVersion, machine.minorVersion}, machine.Now(), sid, false);
  machine.files().ForgetPaths();
  if (copied != 0 || build.error() != 0) return copied != 0 ? copied : build.error();
  RecordProfile(machine.registry(), sid, place.path, 0);
  folder = place.path;
  return win32::ERROR_SUCCESS;
}

}  // namespace emulated
