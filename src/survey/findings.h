// What can be found of a redirection: what it says and what to do about it, one row of one table each.
#pragma once

#include <string>
#include <string_view>
#include <vector>

enum class Soundness { Whole, Untold, Broken };

enum class Finds {
  SourceMissing,
  SourceIsFolder,
  SourceIsEmptyFolder,
  SourceIsFile,
  SourceIsSymbolicLink,
  SourceIsOtherLink,
  SourceHasVolume,
  LeadsElsewhere,
  LeadsNowhere,
  TargetMissing,
  TargetIsNoFolder,
  TargetIsLink,
  BothMissing,
  NotMounted,
  MountPlaceMissing,
  MountPlaceIsFull,
  MountPlaceIsLink,
  MountPlaceIsFile,
  MountPlaceHasOther,
  MountedElsewhere,
  MountedBeside,
  VolumeMissing,
  RemovalCutOff,
  RemovalAllButDone,
  FileLinkMissing,
  FileIsBack,
  FileIsNoLink,
  FileLeadsElsewhere,
  FileTargetMissing,
  FileBothMissing,
  FileTargetIsNoFile,
  SameSource,
  SameTarget,
  HalfRecord,
  InsideBroken,
  ProfileMissing,
  ProfileIsFile,
  HiveMissing,
  HiveDamaged,
  HiveElsewhere,
  ProfileBeside,
  ProfilePartBeside,
  ProfileInSideFolder,
  ProfileSplit,
  SecondHive,
  SameProfile,
  NewProfilesOff,
  NewProfilesElsewhere,
  NewProfilesMissing,
  NewProfilesHomeMissing,
  ProfileListNotKept,
  SharedMissing,
  SharedVolumeMissing,
  ConfigurationDamaged,
  LocationMissing,
  LocationNotMounted,
  NoLocation,
  KeyMissing,
  NotTold
};

struct Saying {
  Finds what;
  std::string_view name;  // as documents and scripts have it
  Soundness weight;
  // {S} and {T}: the row's source and target; {X}: what else was seen; {N}: the record's number; {L}: the source's last
  // component; {U}: the user.
  std::u16string_view says, todo;
};
const std::vector<Saying>& Sayings();
const Saying& SayingOf(Finds what);

// Something that was found.
struct Finding {
  Finds what;
  std::u16string says;  // a sentence
  std::u16string todo;  // what to do about it
};
