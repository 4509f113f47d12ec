// From a path to a file: the walk along its names, reparse points followed.
#include <algorithm>
#include <deque>

#include "win32/emulated/files/file_service.h"
#include "win32/emulated/files/paths.h"
#include "win32/emulated/files/reparse.h"
#include "win32/emulated/text.h"

namespace emulated {

namespace {

using win32::DWORD;

constexpr int kMostLinks = 63;
constexpr std::size_t kMostKnownDirectories = 4096;

// Splits the stream off the last name of a path: "f:s", "f:s:$DATA", "f::$DATA". 123 for anything else with a colon.
DWORD SplitStream(std::u16string_view& name, Location& location) {
  const std::size_t colon = name.find(u':');
  if (colon == std::u16string_view::npos) return 0;
  std::u16string_view stream = name.substr(colon + 1);
  name = name.substr(0, colon);
  const std::size_t second = stream.find(u':');
  if (second != std::u16string_view::npos) {
    if (!EqualAsciiNoCase(stream.substr(second + 1), u"$DATA")) return win32::ERROR_INVALID_NAME;
    stream = stream.substr(0, second);
  } else if (stream.empty()) {
    return win32::ERROR_INVALID_NAME;
  }
  if (!stream.empty() && !IsLegalComponent(stream) && stream != u"." && stream != u"..")
    return win32::ERROR_INVALID_NAME;
  location.stream = stream;
  location.hasStream = true;
  return 0;
}

// A directory whose tag lets it have entries is walked into, whoever the tag belongs to.
bool IsFollowed(const FileInfo& info) {
  return (info.attributes & win32::FILE_ATTRIBUTE_REPARSE_POINT) &&
         !((info.attributes & win32::FILE_ATTRIBUTE_DIRECTORY) && (info.reparseTag & kDirectoryTagBit));
}

// The walk along one path; links put their targets' names before those that are left.
class Walk {
 public:
  Walk(Machine& machine, const ParsedPath& path) : machine_(machine) { StartAt(path); }

  // Goes on to the last name, or past it when `followLast` and it is a link that is followed.
  DWORD Go(bool followLast, Location& location);
  // Is this the directory that held the last name of the path itself, before a link in it was followed? (File ids are
  // a volume's own: all roots have the same.)
  bool EndedIn(const MountedVolume* volume, FileId directory) const {
    return directory != 0 && volume == firstVolume_ && directory == firstDirectory_;
  }

 private:
  struct Step {
    std::u16string_view name;
    FileId directory;  // that `name` was found in
  };

  void StartAt(const ParsedPath& path) {
    volume_ = path.volume;
    current_ = volume_->volume->Root();
    done_.clear();
    left_.insert(left_.end(), path.names.rbegin(), path.names.rend());
  }
  DWORD Follow(FileId link);
  DWORD FollowRelative(std::u16string_view target);

  Machine& machine_;
  MountedVolume* volume_ = nullptr;
  FileId current_ = 0;
  std::vector<std::u16string_view> left_;  // the next one last
  std::vector<Step> done_;
  std::deque<ParsedPath> targets_;  // what names of link targets point into
  std::deque<std::u16string> texts_;
  int links_ = 0;
  bool throughMountPoint_ = false;  // the last name is a junction's target
  const MountedVolume* firstVolume_ = nullptr;
  FileId firstDirectory_ = 0;
};

DWORD Walk::Go(bool followLast, Location& location) {
  while (!left_.empty()) {
    const std::u16string_view name = left_.back();
    left_.pop_back();
    const bool last = left_.empty();
    if (!IsLegalComponent(name)) return win32::ERROR_INVALID_NAME;
    if (last && firstDirectory_ == 0) {
      firstVolume_ = volume_;
      firstDirectory_ = current_;
    }
    FileId child = 0;
    const DWORD error = volume_->volume->Lookup(current_, name, child, nullptr);
    if (error == win32::ERROR_FILE_NOT_FOUND && last) {
      location.volume = volume_;
      location.directory = current_;
      location.name = name;
      return 0;
    }
    if (error == win32::ERROR_FILE_NOT_FOUND) return win32::ERROR_PATH_NOT_FOUND;
    if (error != 0) return error;
    FileInfo info;
    if (const DWORD unread = volume_->volume->Stat(child, info)) return unread;
    if (IsFollowed(info) && (!last || followLast)) {
      throughMountPoint_ = last && info.reparseTag == win32::IO_REPARSE_TAG_MOUNT_POINT;
      if (const DWORD lost = Follow(child)) return lost;
      continue;
    }
    if (last) {
      if (throughMountPoint_ && !(info.attributes & win32::FILE_ATTRIBUTE_DIRECTORY)) return win32::ERROR_DIRECTORY;
      location.volume = volume_;
      location.directory = current_;
      location.name = name;
      location.file = child;
      location.info = info;
      return 0;
    }
    if (!(info.attributes & win32::FILE_ATTRIBUTE_DIRECTORY)) return win32::ERROR_PATH_NOT_FOUND;
    done_.push_back({name, current_});
    current_ = child;
  }
  location.volume = volume_;
  location.file = current_;
  if (!done_.empty()) {  // a link to a directory above it
    location.directory = done_.back().directory;
    location.name = done_.back().name;
  }
  return volume_->volume->Stat(current_, location.info);
}

DWORD Walk::Follow(FileId link) {
  if (++links_ > kMostLinks) return win32::ERROR_CANT_RESOLVE_FILENAME;
  Bytes data;
  if (const DWORD error = volume_->volume->GetReparse(link, data)) return error;
  LinkTarget target;
  if (const DWORD error = ParseLink(data, target)) return error;
  if (target.relative) return FollowRelative(texts_.emplace_back(std::move(target.substituteName)));
  constexpr std::u16string_view kObjects = u"\\??\\";
  if (!target.substituteName.starts_with(kObjects)) return win32::ERROR_INVALID_NAME;
  ParsedPath& path = targets_.emplace_back();
  if (const DWORD error =
          ParseObjectName(machine_, std::u16string_view(target.substituteName).substr(kObjects.size()), path))
    return error;
  StartAt(path);
  return 0;
}

// Names are counted from the directory that holds the link; ".." goes back the way that the walk came.
DWORD Walk::FollowRelative(std::u16string_view target) {
  if (target.empty() || target.back() == u'\\') return win32::ERROR_INVALID_NAME;
  if (target.front() == u'\\') {  // counted from the volume's root
    target.remove_prefix(1);
    current_ = volume_->volume->Root();
    done_.clear();
  }
  std::vector<std::u16string_view> names;
  while (!target.empty()) {
    const std::size_t end = std::min(target.find(u'\\'), target.size());
    const std::u16string_view name = target.substr(0, end);
    target.remove_prefix(std::min(end + 1, target.size()));
    if (name.empty()) return win32::ERROR_INVALID_NAME;
    if (name == u".") continue;
    if (name != u"..") {
      names.push_back(name);
    } else if (!names.empty()) {
      names.pop_back();
    } else if (!done_.empty()) {
      current_ = done_.back().directory;
      done_.pop_back();
    } else {
      return win32::ERROR_INVALID_REPARSE_DATA;
    }
  }
  left_.insert(left_.end(), names.rbegin(), names.rend());
  return 0;
}

// The last name of a path when it is taken as it stands, whatever comes before it: then the text before it tells the
// directory. Empty when it is not as simple as that.
std::u16string_view PlainLastName(std::u16string_view path) {
  const std::size_t separator = path.rfind(u'\\');
  if (separator == std::u16string_view::npos || (path.size() >= win32::MAX_PATH && !IsLiteral(path))) return {};
  const std::u16string_view name = path.substr(separator + 1);
  if (!IsLegalComponent(name) || name.back() == u'.' || name.back() == u' ') return {};
  return IsLiteral(path) || DosDeviceOfName(name) == DosDevice::None ? name : std::u16string_view();
}

}  // namespace

// Fills in the last name of a path whose directory is known from an earlier walk.
bool FileService::FindKnownDirectory(std::u16string_view path, Location& location) {
  const std::u16string_view name = PlainLastName(path);
  if (name.empty()) return false;
  const auto known = directories_.find(path.substr(0, path.size() - name.size()));
  if (known == directories_.end()) return false;
  Volume& volume = *known->second.volume->volume;
  const DWORD error = volume.Lookup(known->second.directory, name, location.file, nullptr);
  if (error != 0) {
    // Either there is no such name, or no such directory any more.
    location.file = 0;
    FileInfo directory;
    if (error != win32::ERROR_FILE_NOT_FOUND || volume.Stat(known->second.directory, directory) != 0) return false;
  } else if (volume.Stat(location.file, location.info) != 0) {
    return false;
  }
  location.volume = known->second.volume;
  location.directory = known->second.directory;
  location.name = name;
  return true;
}

DWORD FileService::Resolve(std::u16string_view path, bool followLast, Location& location) {
  location = {};
  if (FindKnownDirectory(path, location)) {
    if (location.file == 0 || !followLast || !(location.info.attributes & win32::FILE_ATTRIBUTE_REPARSE_POINT))
      return 0;
    location = {};
  }
  ParsedPath parsed;
  if (const DWORD error = ParsePath(machine_, path, parsed)) return error;
  location.trailingBackslash = parsed.trailingBackslash;
  if (!parsed.names.empty()) {
    if (const DWORD error = SplitStream(parsed.names.back(), location)) return error;
    if (parsed.names.back().empty()) return win32::ERROR_INVALID_NAME;
  }
  Walk walk(machine_, parsed);
  if (const DWORD error = walk.Go(followLast, location)) return error;
  if (location.file != 0 && parsed.trailingBackslash && !(location.info.attributes & win32::FILE_ATTRIBUTE_DIRECTORY))
    return win32::ERROR_INVALID_NAME;
  const std::u16string_view name = PlainLastName(path);
  if (!name.empty() && !location.hasStream && walk.EndedIn(location.volume, location.directory)) {
    if (directories_.size() >= kMostKnownDirectories) directories_.clear();
    directories_.insert_or_assign(std::u16string(path.substr(0, path.size() - name.size())),
                                  DirectoryPlace{location.volume, location.directory});
  }
  return 0;
}

DWORD FileService::FindDevice(std::u16string_view path, DosDevice& device) {
  device = DosDeviceOf(path);
  if (device == DosDevice::None) return 0;
  const std::size_t separator = path.find_last_of(u"\\/");
  if (separator == std::u16string_view::npos) return 0;
  Location folder;
  if (Resolve(path.substr(0, separator + 1), true, folder) != 0 || folder.file == 0) return win32::ERROR_PATH_NOT_FOUND;
  return 0;
}

std::u16string FileService::PathInVolume(const MountedVolume& volume, FileId file) {
  std::vector<std::u16string> reversed;
  // A directory has one name; a chain that does not end at the root is a damaged volume's.
  for (constexpr std::size_t kDeepest = 16'384; file != volume.volume->Root() && reversed.size() < kDeepest;) {
    std::vector<std::pair<FileId, std::u16string>> names;
    if (volume.volume->Names(file, names) != 0 || names.empty()) return {};
    file = names.front().first;
    reversed.push_back(std::move(names.front().second));
  }
  std::u16string path;
  for (auto name = reversed.rbegin(); name != reversed.rend(); ++name) (path += u'\\') += *name;
  return path.empty() ? u"\\" : path;
}

std::u16string FileService::PathInVolume(const FileObject& object) {
  if (object.directory == 0) return u"\\";
  std::u16string path = PathInVolume(*object.volume, object.directory);
  if (path.empty()) return path;  // it was removed
  if (path.back() != u'\\') path += u'\\';
  path += object.name;
  return object.stream.empty() ? path : path + u':' + object.stream;
}

}  // namespace emulated
