#include "validate/relations.h"

#include <exception>
#include <functional>

#include "fsops/security.h"
#include "links/junction.h"
#include "links/presence.h"
#include "links/real_path.h"
#include "links/volume_paths.h"
#include "report/lines.h"
#include "report/log.h"
#include "text/path_text.h"
#include "validate/free_space.h"
#include "validate/path_rules.h"
#include "win32/win32.h"

namespace {

using PathLine = FormatFor<const char16_t*>;

// Asks about each folder above the path, the nearest first, to the drive's root; true as soon as one answers yes. A
// path that ends with a backslash is asked about itself first.
bool AnyAncestor(const char16_t* path, const std::function<bool(const std::u16string&)>& ask) {
  std::u16string rest = TrimAndUnquote(path);
  while (rest.find(u'\\') != std::u16string::npos) {
    rest = ParentPath(rest);
    if (!rest.empty() && ask(FolderForm(rest))) return true;
    if (rest.ends_with(u':')) break;  // what is before the drive is a prefix and no folder
  }
  return false;
}

std::u16string Cleaned(const char16_t* path) { return WithoutTrailingBackslash(TrimAndUnquote(path)); }

class Relations {
 public:
  Relations(const FolderTree& source, const char16_t* target, const RelationOptions& options)
      : sourceTree_(source), source_(source.path()), target_(target), options_(options) {}

  // The rules in their order. A target that is a symbolic link leaves only the last three.
  int Check() {
    if (hasSource_) SourceIsNoLink();
    if (!options_.skipTarget) TargetIsNoLink();
    const bool examineTarget = !options_.skipTarget && !targetIsJunction_ && !targetIsSymbolicLink_;
    if (examineTarget && !options_.standIn) TargetCanBeMade();
    if (hasSource_ && !sourceIsLink_ && !targetIsSymbolicLink_) HasNoLinkAbove(source_);
    if (examineTarget) HasNoLinkAbove(target_);
    SourceIsNotTarget();
    if (hasSource_ && !areSame_) TargetIsNotInsideSource();
    if (!options_.skipTarget && !targetIsJunction_ && hasSource_ &&
        !HasEnoughFreeSpace(sourceTree_, target_, options_.standIn))
      result_ = 0;
    return result_;
  }

 private:
  void Refuse(PathLine line, const char16_t* path) {
    Log(line, path);
    result_ = 0;
  }

  // In a profile operation a folder with a volume mounted on it is a folder, and symbolic links are let through.
  bool IsRedirected(const char16_t* path) const {
    const LinesAside aside;  // a path that leads nowhere is no junction
    return IsJunction(path, {.excludeMountedVolume = profile_}) != 0;
  }

  void SourceIsNoLink() {
    sourceIsJunction_ = IsRedirected(source_);
    sourceIsLink_ = sourceIsJunction_ || (!profile_ && IsSymbolicLink(source_));
    if (sourceIsJunction_)
      Refuse(line::kRedirectedAlready, source_);
    else if (sourceIsLink_)
      Refuse(line::kSymbolicLink, source_);
  }

  void TargetIsNoLink() {
    const bool comesBack = options_.sourceIsRedirectedProfile;
    {
      const LinesAside aside;
      targetIsJunction_ =
          IsJunction(target_, {.excludeMountedVolume = !comesBack && options_.excludeMountedVolume}) != 0;
    }
    targetIsSymbolicLink_ = !targetIsJunction_ && !comesBack && IsSymbolicLink(target_);
    if (targetIsJunction_) Refuse(line::kRedirectedAlready, target_);
    if (targetIsSymbolicLink_) Refuse(line::kSymbolicLink, target_);
  }

  void RequireFullControl(const std::u16string& folder) {
    if (!GrantsFullControl(folder, target_)) result_ = 0;
  }

  // First what it takes to make the target, then what it takes to fill it. For a target that does not exist both fall
  // to its parent.
  void TargetCanBeMade() {
    if (PathExists(target_)) return RequireFullControl(target_);
    std::u16string parent;
    if (!GetParentDirPath(target_, parent)) {
      Refuse(u"#ERROR: Unable to get Parent Directory for path = %ls.", target_);
      Refuse(u"#ERROR: Failed to get parent directory for path = %ls.", target_);
      return;
    }
    RequireFullControl(parent);
    RequireFullControl(parent);
  }

  void HasNoLinkAbove(const char16_t* path) {
    if (AnyAncestor(path, [&](const std::u16string& folder) { return IsRedirected(folder.c_str()); }))
      Refuse(u"#ERROR: The parent folder of %ls is already redirected. Browse to a different location.", path);
    if (profile_) return;
    if (AnyAncestor(path, [](const std::u16string& folder) { return IsSymbolicLink(folder.c_str()) != 0; }))
      Refuse(line::kParentIsSymbolicLink, path);
  }

  // A backslash at the end of the source makes it no other folder. A junction may stand where its contents go back to.
  void SourceIsNotTarget() {
    areSame_ = EqualPaths(source_, target_) || (hasSource_ && EqualPaths(Cleaned(source_), target_));
    if (!areSame_ || sourceIsJunction_) return;
    Log(line::kSamePlace, source_, target_);
    result_ = 0;
  }

  void TargetIsNotInsideSource() {
    if (*target_ == u'\0' || (!IsInsideByName() && !IsInsideInTruth())) return;
    Log(line::kInsideSource, source_, target_);
    result_ = 0;
  }

  bool IsInsideByName() const {
    const std::u16string source = FolderForm(Cleaned(source_));
    return AnyAncestor(target_, [&](const std::u16string& folder) { return EqualPaths(folder, source); });
  }

  // The same folders may go by other names (short names, "C:\Data\..\Data"): Windows says where the nearest folder that
  // exists really is. Not asked for a mounted volume: what is in it is nowhere else. What is on a volume without a
  // letter has no other name.
  bool IsInsideInTruth() const {
    const std::u16string source = Cleaned(source_);
    if (sourceIsJunction_ || LookAt(source).IsReparsePoint() || !PathExists(source)) return false;
    std::u16string nearest = Cleaned(target_), realSource, realTarget;
    const auto isThere = [&](const std::u16string& folder) { return PathExists(nearest = folder); };
    if (!PathExists(nearest) && !AnyAncestor(target_, isThere)) return false;
    return FindFinalTargetPath(source.c_str(), realSource) && FindFinalTargetPath(nearest.c_str(), realTarget) &&
           IsSameOrBelow(realTarget, realSource);
  }

  const FolderTree& sourceTree_;
  const char16_t* const source_;
  const char16_t* const target_;
  const RelationOptions options_;
  const bool profile_ = options_.sourceIsRedirectedProfile || options_.quietSystemFolder;
  const bool hasSource_ = *source_ != u'\0';
  // What the rules have found out.
  bool sourceIsJunction_ = false, sourceIsLink_ = false;
  bool targetIsJunction_ = false, targetIsSymbolicLink_ = false;
  bool areSame_ = false;
  int result_ = 1;
};

}  // namespace

int CheckPathRelations(const FolderTree& source, const char16_t* target, const RelationOptions& options) try {
  if (!source.path() || !target)
    return LogFailure(
        u"#ERROR: There was an error during path validation. Error message: Source Or Target path missing.");
  return Relations(source, target, options).Check();
} catch (const std::exception&) {
  return 0;
}

bool GrantsFullControl(const std::u16string& folder, const char16_t* target) {
  if (HasAccess(ImpersonatedCaller().token(), FolderForm(folder), kFullControl)) return true;
  return LogFailure(line::kTargetNotPermitted, target);
}

void TellIfOnOneVolume(const std::u16string& source, const std::u16string& target) {
  const std::u16string volume = VolumeThatHolds(source);
  if (volume.empty() || !EqualPaths(volume, VolumeThatHolds(target))) return;
  Log(u"#INFO: %ls is on the same volume as %ls: what is discarded there at a restart is discarded at both places.",
      target, source);
}
