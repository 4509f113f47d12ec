#include "redirect/file_rules.h"

#include "fsops/file_list.h"
#include "fsops/security.h"
#include "links/junction.h"
#include "links/presence.h"
#include "links/real_path.h"
#include "probes/locked_handles.h"
#include "records/redirected_places.h"
#include "redirect/file_copy.h"
#include "report/lines.h"
#include "report/log.h"
#include "report/only_looks.h"
#include "text/path_text.h"
#include "validate/free_space.h"
#include "validate/path_rules.h"
#include "validate/relations.h"
#include "win32/win32.h"

namespace {

// A path that means the same wherever it is written, in a link above all, and that names a file and no stream of one.
bool IsFullFilePath(const std::u16string& path) {
  if (!IsUsablePath(path)) return false;
  if (IsRelativePath(path.c_str())) return LogFailure(line::kRelativePath, path);
  const std::size_t drive = HasExtendedPrefix(path) ? 4 : 0;
  // "D:" is the current folder of D:, whichever that is.
  const bool driveRelative =
      path.size() >= drive + 2 && path[drive + 1] == u':' && (path.size() == drive + 2 || path[drive + 2] != u'\\');
  if (!driveRelative && path.find(u':', drive + 2) == std::u16string::npos) return true;
  return LogFailure(line::kInvalidPath, path);
}

bool IsShortEnough(const std::u16string& path) {
  if (path.size() < kPathLengthLimit) return true;
  return LogFailure(
      u"#ERROR: The specified path '%ls' exceeds the system-defined maximum length of 248 characters. Browse to a "
      u"different location.",
      path);
}

bool SourceIsNoLink(const FilePlaces& places) {
  if (!IsSymbolicLink(places.source.c_str())) return true;
  std::u16string leadsTo;
  GetFinalTargetPath(places.source.c_str(), leadsTo);
  return LogFailure(u"#ERROR: Symbolic Link already exists for Source = %ls and Target = %ls.", places.source, leadsTo);
}

bool SourceIsFilePath(const std::u16string& source) {
  if (!win32::PathIsDirectoryW(source.c_str())) return true;
  return LogFailure(u"#ERROR: Source path '%ls' should be a file path.", source);
}

bool SourceIsNotTarget(const FilePlaces& places) {
  if (!EqualPaths(places.source, places.realTarget)) return true;
  return LogFailure(line::kSamePlace, places.source, places.realTarget);
}

bool TargetIsNoOther(const FilePlaces& places) {
  if (!IsShortNameOfAnother(places.realTarget)) return true;
  return LogFailure(line::kNameTaken, places.source, places.realTarget);
}

bool TargetIsNoLink(const FilePlaces& places) {
  if (!IsSymbolicLink(places.realTarget.c_str())) return true;
  return LogFailure(u"#ERROR: The target file '%ls' is already a Symbolic Link. Browse to a different location.",
                    places.realTarget);
}

bool SourceExists(const std::u16string& source) {
  if (PathExists(source)) return true;
  return LogFailure(u"#ERROR: Source file '%ls' doesn't exists. Error: %d", source, win32::GetLastError());
}

bool AreOnNtfs(const FilePlaces& places) {
  if (!IsOnNtfs(places.source.c_str()))
    return LogFailure(u"#ERROR: Source '%ls' must be a NTFS formatted volume. Browse to a different location.",
                      places.source);
  if (IsOnNtfs(places.folder.c_str())) return true;
  return LogFailure(u"#ERROR: Target '%ls' must be a NTFS formatted volume. Browse to a different location.",
                    places.folder);
}

// The folder; where a run that only looks has not made it, the one that it would be made in.
std::u16string WhatIsThereOf(const std::u16string& folder) {
  OnlyLooks* const look = OnlyLooks::Current();
  if (!look || DirectoryExists(folder)) return folder;
  look->Leave(u"Whether the target folder can be made, and what it would inherit.");
  return NearestFolder(folder);
}

// The relations of source and target. All rules are tried, so that the log tells everything that is wrong.
bool TargetGrantsFullControl(const FilePlaces& places) {
  const std::u16string asked = PathExists(places.realTarget) ? places.realTarget : WhatIsThereOf(places.folder);
  return GrantsFullControl(asked, places.realTarget.c_str());
}

bool SourceHasNoLinkAbove(const std::u16string& source) {
  for (std::u16string folder = ParentPath(source); folder.find(u'\\') != std::u16string::npos;
       folder = ParentPath(folder))
    if (IsSymbolicLink(folder.c_str())) return LogFailure(line::kParentIsSymbolicLink, source);
  return true;
}

bool TargetIsNotInsideSourceFolder(const FilePlaces& places) {
  if (!IsSameOrBelow(places.folder, ParentPath(places.source))) return true;
  return LogFailure(line::kInsideSource, places.source, places.realTarget);
}

bool TargetHasRoom(const FilePlaces& places) {
  const std::optional<FileFacts> facts = FactsOf(places.source);
  if (!facts) return LogFailure(line::kSizeUnknown, places.source);
  if (!PathExists(places.realTarget)) Log(line::kSpaceOfParent, places.realTarget, places.folder);
  const std::optional<std::uint64_t> available = AvailableBytes(WhatIsThereOf(places.folder));
  if (available && *available > facts->size) return true;
  return LogFailure(line::kNotEnoughSpace, places.realTarget);
}

bool AreFitForEachOther(const FilePlaces& places) {
  bool fit = TargetGrantsFullControl(places);
  if (!SourceHasNoLinkAbove(places.source)) fit = false;
  if (!TargetIsNotInsideSourceFolder(places)) fit = false;
  if (!TargetHasRoom(places)) fit = false;
  return fit;
}

bool MayBeRead(const FilePlaces& places) {
  const ImpersonatedCaller caller;
  if (!HasAccess(caller.token(), places.source, kReadAndExecute))
    return LogFailure(
        u"#ERROR: (Source) %ls - Insufficient permissions. The minimum permissions requirement is read & execute.",
        places.source);
  if (HasAccess(caller.token(), WhatIsThereOf(places.folder), kReadAndExecute)) return true;
  return LogFailure(
      u"#ERROR: (Target) %ls - Insufficient permissions. The minimum permissions requirement is read & execute.",
      places.folder);
}

bool IsListedAsOpen(const std::u16string& source) {
  LockedPaths locked;
  GetLockedFilesAndFoldersList(source.c_str(), nullptr, locked);
  for (int index = 0; index < locked.count; ++index)
    if (EqualPaths(locked.At(index), WithoutExtendedPrefix(source))) return true;
  return false;
}

}  // namespace

void LogCopyFailed(const std::u16string& source, const std::u16string& target) {
  Log(u"#ERROR: Unable to copy file from Source = %ls and Target = %ls. Error: %d", source, target,
      win32::GetLastError());
}

FilePlaces::FilePlaces(const std::u16string& file, const std::u16string& targetFolder)
    : source(AsStored(file)), folder(AsStored(targetFolder)), realTarget(JoinPath(folder, LastComponent(source))) {}

bool MayBeRedirected(const FilePlaces& places) {
  return IsFullFilePath(places.source) && IsFullFilePath(places.folder) &&
         AllHold({[&] { return SourceIsNoLink(places); }, [&] { return IsShortEnough(places.source); },
                  [&] { return SourceIsFilePath(places.source); }, [&] { return SourceIsNotTarget(places); },
                  [&] { return TargetIsNoOther(places); }, [&] { return TargetIsNoLink(places); },
                  [&] { return SourceExists(places.source); }, [&] { return HasItsContents(places.source); },
                  [&] { return IsShortEnough(places.realTarget); }, [&] { return AreOnNtfs(places); },
                  [&] { return MayFileLeave(places.source); },
                  [&] { return MayComeTo(places.source, places.realTarget, Comes::File); },
                  [&] { return IsOutsideSystemFolders(places.folder); }});
}

bool MayGoThere(const FilePlaces& places) {
  if (!AllHold({[&] { return AreFitForEachOther(places); }, [&] { return MayBeRead(places); }})) return false;
  TellIfOnOneVolume(places.source, places.folder);
  return true;
}

// The list of open handles is not complete; the opens find what it lacks.
bool IsInUse(const std::u16string& source) {
  if (!IsListedAsOpen(source) && IsFileNotLocked(source) && IsDeletable(source)) return false;
  Log(u"#ERROR: (Source) %ls - File is locked.", source);
  return true;
}

bool AreOneFile(const FilePlaces& places) {
  const std::optional<FileFacts> target = FactsOf(places.realTarget);
  if (!target) {
    if (win32::GetLastError() == win32::ERROR_FILE_NOT_FOUND) return false;
    LogCopyFailed(places.source, places.realTarget);
    return true;
  }
  const std::optional<FileFacts> source = FactsOf(places.source);
  if (source && !source->IsSameFileAs(*target)) return false;
  Log(line::kSamePlace, places.source, places.realTarget);
  return true;
}
