#include "records/redirected_places.h"

#include <utility>
#include <vector>

#include "links/mounted_folder.h"
#include "links/presence.h"
#include "links/real_path.h"
#include "records/profile_keys.h"
#include "report/lines.h"
#include "report/log.h"
#include "text/path_text.h"

namespace {

// A path as it is written, and as it really is.
struct Place {
  std::u16string text, real;

  // Of what is reached there.
  static Place Reached(const std::u16string& path) { return {path, RealVolumePath(path)}; }
  // Of a link itself.
  static Place Link(const std::u16string& path) { return {path, RealPlace(path)}; }

  bool Is(const Place& other) const { return EqualPaths(text, other.text) || EqualPaths(real, other.real); }
  bool IsIn(const Place& other) const {  // or the same
    return IsSameOrBelow(text, other.text) || IsSameOrBelow(real, other.real);
  }
};

// A redirection that is recorded.
struct Redirection {
  explicit Redirection(JunctionRecord recorded, bool ofFile)
      : record(std::move(recorded)),
        isFile(ofFile),
        source(Place::Link(record.source)),
        target(Place::Reached(WithoutTrailingBackslash(record.target))),
        atSource(LookAt(record.source)) {}

  // Does anything depend on it? What may be there counts.
  bool IsInEffect() const {
    return atSource.IsReparsePoint() || atSource.presence == Presence::NotTold || !IsGone(record.target);
  }
  bool IsLinkThere() const { return atSource.IsReparsePoint() || atSource.presence == Presence::NotTold; }
  bool IsOnVolume() const { return IsVolumePath(record.target.c_str()); }

  JunctionRecord record;
  bool isFile;
  Place source, target;
  Look atSource;
};

bool ReadRedirections(std::vector<Redirection>& all) {
  for (const int isFile : {0, 1}) {
    std::vector<JunctionRecord> records;
    if (!ReadJunctionRecords(isFile, records))
      return LogFailure(u"#ERROR: Unable to read the redirected folders and files in registry.");
    for (JunctionRecord& record : records) all.emplace_back(std::move(record), isFile != 0);
  }
  return true;
}

// One thing on its way to one place, held against the records one after the other.
class Coming {
 public:
  Coming(const std::u16string& source, const std::u16string& place, Comes what)
      : source_(Place::Reached(source)), place_(Place::Reached(WithoutTrailingBackslash(place))), what_(what) {}

  bool Disturbs(const Redirection& other) const {
    const bool touches = TakesSource(other) || (other.IsInEffect() && (TakesTarget(other) || LiesInPlace(other)));
    return touches && !IsOwn(other);
  }

 private:
  // An earlier run of this very redirection, or the way on which the profile has come, or a record that did not follow
  // when what comes moved: its link leads to it.
  bool IsOwn(const Redirection& other) const {
    if (what_ == Comes::Profile && other.target.Is(source_)) return true;
    if (other.IsLinkThere() && Place::Reached(other.record.source).Is(source_)) return true;
    return EqualPaths(other.record.source, source_.text) && EqualPaths(other.record.target, place_.text);
  }
  // Where there is a link, the rules on links refuse, and a file may go by it. What is there without one was on its way
  // home, or is what a profile has left.
  bool TakesSource(const Redirection& other) const {
    if (place_.Is(other.source)) return true;
    return place_.IsIn(other.source) && !other.IsLinkThere() && other.atSource.IsThere() && other.IsInEffect();
  }
  // A new folder among contents goes home with them, and its record follows: but not from a volume.
  bool TakesTarget(const Redirection& other) const {
    if (!place_.IsIn(other.target)) return false;
    if (other.isFile || place_.Is(other.target)) return true;
    if (what_ == Comes::File) return other.IsLinkThere() && BehindFolder(place_.text, other.record.target);
    return what_ != Comes::Folder || other.IsOnVolume() || !IsGone(place_.text);
  }
  bool LiesInPlace(const Redirection& other) const {
    if (what_ == Comes::Profiles) return false;
    return other.target.IsIn(place_) || (!other.atSource.IsGone() && other.source.IsIn(place_));
  }

  const Place source_, place_;
  const Comes what_;
};

// What comes would go home with all that is in the profile.
bool HoldsNoProfile(const std::u16string& place) {
  std::vector<std::u16string> folders;
  if (!ReadProfileFolders(folders)) return LogFailure(line::kProfilesNotRead);
  for (const std::u16string& folder : folders)
    if (IsReallySameOrBelow(folder, place))
      return LogFailure(u"#ERROR: The folder %ls is or holds the User Profile %ls. Browse to a different location.",
                        place, folder);
  return true;
}

// A profile that is made behind the link later could be moved by nobody, and would keep the folder from going home.
bool NoProfilesAreMadeIn(const std::u16string& source) {
  RegistryValue value;
  const win32::LSTATUS error = ReadMachineValue(kProfileListPath, u"ProfilesDirectory", value);
  if (error == win32::LSTATUS{win32::ERROR_FILE_NOT_FOUND}) return true;
  if (error != 0) return LogFailure(line::kProfilesNotRead);
  const std::u16string folder = WithoutTrailingBackslash(ExpandedText(value));
  if (folder.empty() || !IsReallySameOrBelow(folder, source)) return true;
  return LogFailure(
      u"#ERROR: New User Profiles are created in %ls. The folder %ls cannot be redirected. Browse to a different "
      u"location.",
      folder, source);
}

bool MayLeaveUnless(const std::u16string& folder, bool (*keeps)(const Redirection& other, const Place& folder)) {
  std::vector<Redirection> all;
  if (!ReadRedirections(all)) return false;
  const Place place = Place::Reached(folder);
  for (const Redirection& other : all)
    if (keeps(other, place))
      return LogFailure(
          u"#ERROR: %ls belongs to another redirection, Source = %ls and Target = %ls. Remove that one "
          u"first.",
          folder, other.record.source, other.record.target);
  return true;
}

// The same pair, however it is spelled.
bool IsSpelledSo(const JunctionRecord& record, const std::u16string& source, const std::u16string& target) {
  return EqualPaths(AsStored(record.source), AsStored(source)) && EqualPaths(AsStored(record.target), AsStored(target));
}

}  // namespace

bool MayComeTo(const std::u16string& source, const std::u16string& place, Comes what) {
  std::vector<Redirection> all;
  if (!ReadRedirections(all)) return false;
  const Coming coming(source, place, what);
  for (const Redirection& other : all)
    if (coming.Disturbs(other))
      return LogFailure(
          u"#ERROR: The place %ls belongs to another redirection, Source = %ls and Target = %ls. "
          u"Remove that one first, or browse to a different location.",
          place, other.record.source, other.record.target);
  return what != Comes::Folder || HoldsNoProfile(place);
}

bool MayLeave(const std::u16string& source) {
  return NoProfilesAreMadeIn(source) && MayLeaveUnless(source, [](const Redirection& other, const Place& folder) {
           if (other.isFile) return false;
           if (folder.Is(other.target)) return !other.atSource.IsGone();
           if (folder.Is(other.source)) return other.IsInEffect();
           // By another path to the volume than the one by which its records name what is on it.
           return other.IsOnVolume() && folder.IsIn(other.target);
         });
}

bool MayProfileLeave(const std::u16string& folder) {
  return MayLeaveUnless(folder, [](const Redirection& other, const Place& profile) {
    return !other.isFile && profile.Is(other.target) && other.IsLinkThere();
  });
}

bool MayFileLeave(const std::u16string& file) {
  return MayLeaveUnless(file, [](const Redirection& other, const Place& source) {
    return other.isFile && source.Is(other.target) && other.IsLinkThere();
  });
}

std::optional<JunctionRecord> FindRecord(const std::u16string& source, const std::u16string& location, int isFile) {
  const std::vector<JunctionRecord> records = SaveJunctionRecords(isFile);
  const auto isWritten = [&](const JunctionRecord& record, const std::u16string& target) {
    return EqualPaths(record.source, source) && EqualPaths(record.target, target);
  };
  const std::u16string inLocation = RealTargetOf(source, location);
  for (const std::u16string& target : {location, inLocation})
    for (const JunctionRecord& record : records)
      if (isWritten(record, target)) return record;
  // The target's volume may make no short names, or others.
  for (const std::u16string& target : {location, RealTargetOf(AsStored(source), location)})
    for (const JunctionRecord& record : records)
      if (IsSpelledSo(record, source, target)) return record;
  return std::nullopt;
}
