#include "survey/findings.h"

#include <algorithm>

namespace {

using enum Finds;
constexpr Soundness kBroken = Soundness::Broken, kUntold = Soundness::Untold;

constexpr std::u16string_view kJunctionAgain = u"mklink /J \"{S}\" \"{T}\"";
constexpr std::u16string_view kRemoveJunction =
    u"rmdir \"{S}\" (which takes the link and nothing behind it), then mklink /J \"{S}\" \"{T}\"";
constexpr std::u16string_view kConnect =
    u"Connect the drive that holds it, or give it this name and place again. QBC can bring nothing home without it.";

}  // namespace

const std::vector<Saying>& Sayings() {
  static const std::vector<Saying> kSayings{
      // Folders.
      {SourceMissing, "source-missing", kBroken, u"Nothing stands at {S}, where the junction to {T} belongs.",
       kJunctionAgain},
      {SourceIsFolder, "source-is-folder", kBroken,
       u"{S} is a folder, not the junction to {T}: a removal was cut off, or somebody put a folder there. Files may be "
       u"in "
       u"both.",
       u"Copy to {T} what only {S} has: robocopy \"{S}\" \"{T}\" /E /COPYALL /XC /XN /XO /XJ, then ren \"{S}\" "
       u"\"{L}.old\" and mklink /J \"{S}\" \"{T}\". Compare {S}.old with {S} before it goes."},
      {SourceIsEmptyFolder, "source-is-empty-folder", kBroken, u"{S} is an empty folder, not the junction to {T}.",
       u"rmdir \"{S}\", then mklink /J \"{S}\" \"{T}\""},
      {SourceIsFile, "source-is-file", kBroken, u"{S} is a file, where the junction to {T} belongs.",
       u"ren \"{S}\" \"{L}.old\", then mklink /J \"{S}\" \"{T}\""},
      {SourceIsSymbolicLink, "source-is-symbolic-link", kBroken,
       u"{S} is a symbolic link to {X}, not the junction to {T}.", kRemoveJunction},
      {SourceIsOtherLink, "source-is-other-link", kBroken,
       u"{S} carries a reparse point of another kind ({X}), not the junction to {T}.",
       u"Find out what put it there, take it away, then mklink /J \"{S}\" \"{T}\""},
      {SourceHasVolume, "source-has-volume", kBroken,
       u"The volume {X} is mounted on {S}, where the junction to {T} belongs.",
       u"mountvol \"{S}\" /D, then rmdir \"{S}\" and mklink /J \"{S}\" \"{T}\""},
      {LeadsElsewhere, "leads-elsewhere", kBroken, u"{S} leads to {X}, not to {T}.", kRemoveJunction},
      {LeadsNowhere, "leads-nowhere", kBroken, u"{S} leads to {X}, where nothing is, and not to {T}.", kRemoveJunction},
      {TargetMissing, "target-missing", kBroken, u"{T}, which holds the contents of {S}, is not there.", kConnect},
      {TargetIsNoFolder, "target-is-no-folder", kBroken, u"{T}, where the contents of {S} belong, is a file.",
       u"Find the folder with the contents, rename the file, and give the folder this name."},
      {TargetIsLink, "target-is-link", kBroken,
       u"{T}, where the contents of {S} belong, is itself a link or a mounted volume, to {X}. QBC does not bring it "
       u"home "
       u"so.",
       u"Take the link away (rmdir, or mountvol with /D) and put the folder with the contents there."},
      {BothMissing, "both-missing", kBroken, u"Neither {S} nor {T} is there.",
       u"Connect the drive that holds {T}, and make the junction again: mklink /J \"{S}\" \"{T}\". If both have gone "
       u"for "
       u"good: reg delete HKLM\\SOFTWARE\\Velmora\\Quillbay\\Junctions\\{N} /reg:32 /f"},
      // Folders on volumes.
      {NotMounted, "volume-not-mounted", kBroken, u"{S} is an empty folder; its volume {T} is not mounted on it.",
       u"mountvol \"{S}\" {T}"},
      {MountPlaceMissing, "mount-folder-missing", kBroken, u"Nothing stands at {S}, where the volume {T} is mounted.",
       u"mkdir \"{S}\", then mountvol \"{S}\" {T}"},
      {MountPlaceIsFull, "mount-folder-is-full", kBroken,
       u"{S} is a folder with contents of its own; the volume {T} is not mounted on it.",
       u"ren \"{S}\" \"{L}.old\", mkdir \"{S}\", then mountvol \"{S}\" {T} (and compare "
       u"{S}.old with {S} before it goes)"},
      {MountPlaceIsLink, "mount-folder-is-link", kBroken,
       u"{S} is a link to {X}, where the volume {T} is mounted on an empty folder.",
       u"rmdir \"{S}\" (which takes the link and nothing behind it), mkdir \"{S}\", then mountvol \"{S}\" {T}"},
      {MountPlaceIsFile, "mount-folder-is-file", kBroken,
       u"{S} is a file, where the volume {T} is mounted on an empty folder.",
       u"ren \"{S}\" \"{L}.old\", mkdir \"{S}\", then mountvol \"{S}\" {T}"},
      {MountPlaceHasOther, "mount-folder-has-other", kBroken,
       u"The volume {X} is mounted on {S}, where the volume {T} belongs.",
       u"mountvol \"{S}\" /D, then mountvol \"{S}\" {T}"},
      {MountedElsewhere, "volume-mounted-elsewhere", kBroken,
       u"The volume {T} is not mounted on {S}, where it belongs, but on {X}.",
       u"{S} must be an empty folder. Then mountvol \"{X}\" /D, and mountvol \"{S}\" {T}"},
      {MountedBeside, "volume-mounted-beside", kBroken,
       u"The volume {T} is mounted on {X}, beside its place {S}: a command was cut off.",
       u"\"After a power failure, volume form\" in what-is-refused.md."},
      {VolumeMissing, "volume-missing", kBroken, u"The volume {T}, which holds the contents of {S}, is not there.",
       u"Connect the disk that has it."},
      {RemovalCutOff, "removal-cut-off", kBroken,
       u"The removal of {S} from its volume {T} was cut off. A part of the contents may be in {X} already.",
       u"Run the removal again, which goes on: QBC /RedirectFolder \"{S}\" /vol:{T} /d"},
      {RemovalAllButDone, "removal-all-but-done", kBroken,
       u"The removal of {S} from its volume {T} was cut off at its end. The contents are in {X}.",
       u"mountvol \"{S}\" /D if the volume is still mounted there, rmdir \"{S}\" if it is there and empty, then ren "
       u"\"{X}\" \"{L}\""},
      // Files.
      {FileLinkMissing, "link-missing", kBroken, u"Nothing stands at {S}, where the link to {T} belongs.",
       u"mklink \"{S}\" \"{T}\""},
      {FileIsBack, "file-without-link", kBroken,
       u"{S} is a file, not the link to {T}: a removal was cut off, or a program has put a file of its own in the "
       u"link's "
       u"place.",
       u"Compare the two and copy what is newer to {T}. Then del \"{S}\" and mklink \"{S}\" \"{T}\""},
      {FileIsNoLink, "link-is-other", kBroken, u"{S} is {X}, where the link to {T} belongs.",
       u"ren \"{S}\" \"{L}.old\", then mklink \"{S}\" \"{T}\""},
      {FileLeadsElsewhere, "link-leads-elsewhere", kBroken, u"The link {S} leads to {X}, not to {T}.",
       u"del \"{S}\" (which takes the link and nothing behind it), then mklink \"{S}\" \"{T}\""},
      {FileTargetMissing, "file-missing", kBroken, u"{T}, which holds the contents of {S}, is not there.", kConnect},
      {FileBothMissing, "file-both-missing", kBroken, u"Neither {S} nor {T} is there.",
       u"Connect the drive that holds {T}, and make the link again: mklink \"{S}\" \"{T}\". If both have gone for "
       u"good: reg "
       u"delete HKLM\\SOFTWARE\\Velmora\\Quillbay\\FileJunctions\\{N} /reg:32 /f"},
      {FileTargetIsNoFile, "file-is-folder", kBroken, u"{T}, where the contents of {S} belong, is a folder.",
       u"Find the file with the contents, rename the folder, and give the file this name."},
      // Records.
      {SameSource, "same-source", kBroken, u"Record {X} names {S} as its source, too.",
       u"See to which of the two {S} leads. Look what is in the target of the other one; then delete that record by "
       u"hand."},
      {SameTarget, "same-target", kBroken,
       u"Record {X} names {T} as its target, too: the first to come home takes it all.",
       u"Find out whose the contents are, and delete the other record by hand, and its link."},
      {HalfRecord, "half-record", kBroken,
       u"Record {N} lacks its source or its target: QBC passes over it, and would not bring anything home by it.",
       u"If {S} is a link made by a command that was cut off: \"After a power failure\" in what-is-refused.md. Then "
       u"reg "
       u"delete HKLM\\SOFTWARE\\Velmora\\Quillbay\\{X}\\{N} /reg:32 /f"},
      {InsideBroken, "inside-broken", kBroken, u"It lies in {X}, which is not whole.",
       u"Mend that one first, then look again."},
      // Profiles of users.
      {ProfileMissing, "profile-missing", kBroken, u"The profile of {U} is recorded in {X}, which is not there.",
       kConnect},
      {ProfileIsFile, "profile-is-file", kBroken, u"The profile of {U} is recorded in {X}, which is no folder.",
       u"Find the folder with the profile, rename what stands in its place, and give it this name."},
      {HiveMissing, "hive-missing", kBroken,
       u"The profile of {U} is recorded in {X}, where there is no NTUSER.DAT: the user cannot be logged on with it.",
       u"If a RedirectUP was cut off, what is missing is at the other place: copy it to {X}, overwriting nothing "
       u"(robocopy "
       u"OTHER \"{X}\" /E /COPYALL /XC /XN /XO /XJ). Otherwise bring NTUSER.DAT back from a backup."},
      {HiveDamaged, "hive-damaged", kBroken, u"NTUSER.DAT in {X} is not the registry of a user.",
       u"Bring it back from a backup."},
      {HiveElsewhere, "hive-elsewhere", kBroken,
       u"{U} is logged on with the profile in {X}, which is not the folder that the profile list names.",
       u"Have the user log off, and look again. What was written meanwhile is in {X}."},
      {ProfileBeside, "profile-beside", kBroken,
       u"The profile of {U} is recorded in {S}, but it is in {X}: a command was cut off while the two changed places.",
       u"rmdir \"{S}\" if it is there and empty, then ren \"{X}\" \"{L}\""},
      {ProfilePartBeside, "profile-part-beside", kBroken,
       u"A command on the profile of {U} was cut off. A part of it may be in {X}.",
       u"\"What stays open\" in profiles.md. Have the user log off, and copy what is missing from {X}, overwriting "
       u"nothing "
       u"(robocopy with /E /COPYALL /XC /XN /XO /XJ)."},
      {ProfileInSideFolder, "profile-in-side-folder", kBroken,
       u"The profile of {U} is in {X}, beside its place: a command could not take its last step. It can be used.",
       u"Have the user log off. Rename the folder to what stands before the suffix (rmdir the empty folder of that "
       u"name), "
       u"and put that path into the user's ProfileImagePath."},
      {ProfileSplit, "profile-split", kBroken,
       u"The profile of {U} is recorded in {T}, but there is something in {S}, which it has left: a move was cut off, "
       u"or a "
       u"program writes to the old place.",
       u"Have the user log off, copy what {T} lacks: robocopy \"{S}\" \"{T}\" /E /COPYALL /XC /XN /XO /XJ, and move "
       u"away "
       u"what is in {S}."},
      {SecondHive, "second-hive", kBroken,
       u"The profile of {U} is in {T}, but there is an NTUSER.DAT in {S}, where it came from, too.",
       u"Compare the two. The profile list names {T}; move away what is in {S}."},
      {SameProfile, "same-profile", kBroken, u"The profile list names {X} for {U} and for somebody else.",
       u"Put the right folder into ProfileImagePath of one of them."},
      // Profiles that are to be made, Default and Public.
      {NewProfilesOff, "automatic-not-recorded", kBroken,
       u"New profiles are created in {T}, which the configuration does not say: a command was cut off, or the "
       u"configuration was lost.",
       u"QBC /AutoRedirectUP /loc:\"{T}\" (once more); to take it back, then QBC /AutoRedirectUP /d"},
      {NewProfilesElsewhere, "automatic-elsewhere", kBroken,
       u"The configuration says that new profiles are created in {T}, but Windows creates them in {X}.",
       u"QBC /AutoRedirectUP /d, then QBC /AutoRedirectUP /loc:\"{T}\""},
      {NewProfilesMissing, "automatic-missing", kBroken,
       u"{T}, where new profiles are created, is not there: nobody new can log on.", kConnect},
      {NewProfilesHomeMissing, "automatic-home-missing", kBroken,
       u"{S}, where new profiles are created when automatic redirection is removed, is no folder.",
       u"Make the folder again, with the access rights of a profiles folder."},
      {ProfileListNotKept, "profile-list-not-kept", kBroken,
       u"New profiles are created in {T}, but the registry key with the profile list is not kept: at a restart Windows "
       u"forgets whose they are.",
       u"If no location is set: QBC /RedirectRegKeyLocation /loc:FOLDER. If the key is not on the list, then QBC "
       u"/RedirectRegKey \"HKEY_LOCAL_MACHINE\\SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion\\ProfileList\""},
      {SharedMissing, "shared-missing", kBroken, u"{T}, which Windows uses for all users, is not there, or no folder.",
       kConnect},
      {SharedVolumeMissing, "shared-volume-missing", kBroken,
       u"The volume {X}, which {T} was copied to, is not the one that is there now.",
       u"Connect the disk that has it, under the same drive letter or on the same folder."},
      // Registry data.
      {ConfigurationDamaged, "configuration-damaged", kBroken,
       u"{X} is damaged. The next command of QBC puts a default one in its place, which knows neither location nor "
       u"keys.",
       u"Copy it, bring it back from a backup, or set location and keys again."},
      {LocationMissing, "location-missing", kBroken, u"{T}, where the data of redirected keys are kept, is not there.",
       u"Connect the drive that holds it. If it has gone for good: QBC /RedirectRegKeyLocation /d, and set another "
       u"one."},
      {LocationNotMounted, "location-not-mounted", kBroken,
       u"The volume {X}, where the data of redirected keys are kept, is not mounted on {T}.", u"mountvol \"{T}\" {X}"},
      {NoLocation, "no-location", kBroken,
       u"The key {S} is on the list, but no location is set: its data are not kept.",
       u"QBC /RedirectRegKeyLocation /loc:FOLDER. To take the key off the list, then QBC /RedirectRegKey \"{S}\" /d"},
      {KeyMissing, "key-missing", kBroken, u"There is no key {S}.",
       u"QBC /RedirectRegKey \"{S}\" /d, unless the program that it belongs to will make it again."},
      {NotTold, "cannot-be-told", kUntold, u"{X}", u"Look again, as an administrator."},
  };
  return kSayings;
}

const Saying& SayingOf(Finds what) { return *std::ranges::find(Sayings(), what, &Saying::what); }
