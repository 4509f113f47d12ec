#include "validate/relations.h"

#include <exception>
#include <functional>

#include "fsops/mounted_folder.h"
#include "fsops/security.h"
#include "log/log.h"
#include "redirect/junction.h"
#include "redirect/path_text.h"
#include "validate/path_rules.h"
#include "validate/validate.h"
#include "win32/win32.h"

LazyListing::LazyListing(const char16_t* root) : root_(root ? root : u"") {}

const TreeListing* LazyListing::Get() {
  if (state_ == State::NotRead) state_ = GetFileList(root_, listing_) ? State::Read : State::Failed;
  return state_ == State::Read ? &listing_ : nullptr;
}

namespace {

// The bare "D:" that cutting leaves means the current folder of the drive, not its root.
std::u16string FolderForm(std::u16string path) {
  if (path.ends_with(u':')) path += u'\\';
  return path;
}

// Asks about each folder above the path, the nearest first, to the drive's root; true as soon as one answers yes. A
// path that ends with a backslash is asked about itself first.
bool AnyAncestor(const char16_t* path, const std::function<bool(const std::u16string&)>& ask) {
  std::u16string rest = TrimAndUnquote(path);
  while (rest.find(u'\\') != std::u16string::npos) {
    rest = ParentPath(rest);
    if (!rest.empty() && ask(FolderForm(rest))) return true;
  }
  return false;
}

std::u16string Cleaned(const char16_t* path) { return WithoutTrailingBackslash(TrimAndUnquote(path)); }

class Relations {
 public:
  Relations(const char16_t* source, const char16_t* target, bool skipTarget, bool redirectedProfile,
            bool excludeMountedVolume, bool quietSystemFolder, LazyListing& sourceTree)
      : source_(source),
        target_(target),
        skipTarget_(skipTarget),
        redirectedProfile_(redirectedProfile),
        excludeMountedVolume_(excludeMountedVolume),
        profile_(redirectedProfile || quietSystemFolder),
        hasSource_(*source != u'\0'),
        sourceTree_(sourceTree) {}

  int Check() {
    const bool sourceIsLink = hasSource_ && SourceIsLink();
    const bool targetIsLink = !skipTarget_ && TargetIsLink();
    if (!skipTarget_ && !targetIsLink) CheckPermissionToCreate();
    // A target that is a symbolic link leaves only the comparison of the two places.
    const bool targetIsSymbolicLink = targetIsLink && !targetIsJunction_;
    if (hasSource_ && !sourceIsLink && !targetIsSymbolicLink) CheckAncestors(source_);
    if (!skipTarget_ && !targetIsLink) CheckAncestors(target_);
    CheckSamePlace();
    if (!skipTarget_ && !targetIsJunction_ && hasSource_ && !HasEnoughFreeSpace(source_, target_, sourceTree_))
      result_ = 0;
    return result_;
  }

 private:
  // In a profile operation a folder with a volume mounted on it is a folder, and symbolic links are let through.
  bool IsRedirected(const char16_t* path) const { return IsJunction(path, profile_ ? 1 : 0) != 0; }

  bool SourceIsLink() {
    sourceIsJunction_ = IsRedirected(source_);
    if (sourceIsJunction_)
      Log(u"#ERROR: The folder %ls is already redirected. Browse to a different location.", source_);
    else if (!profile_ && IsSymbolicLink(source_))
      Log(u"#ERROR: The folder %ls is Symbolic Link. Browse to a different location.", source_);
    else
      return false;
    result_ = 0;
    return true;
  }

  bool TargetIsLink() {
    targetIsJunction_ = IsJunction(target_, !redirectedProfile_ && excludeMountedVolume_ ? 1 : 0) != 0;
    if (targetIsJunction_)
      Log(u"#ERROR: The folder %ls is already redirected. Browse to a different location.", target_);
    else if (!redirectedProfile_ && IsSymbolicLink(target_))
      Log(u"#ERROR: The folder %ls is Symbolic Link. Browse to a different location.", target_);
    else
      return false;
    result_ = 0;
    return true;
  }

  void RequireFullControl(const std::u16string& folder) {
    if (HasAccess(ImpersonatedCaller().token(), FolderForm(folder), kFullControl)) return;
    Log(u"#ERROR: The target folder %ls can not be created. Insufficient permissions. The minimum permissions "
        u"requirement to "
        u"create the target folder is full control.",
        target_);
    result_ = 0;
  }

  // First what it takes to make the target, then what it takes to fill it. For a target that does not exist both fall
  // to its parent.
  void CheckPermissionToCreate() {
    const bool exists = win32::PathFileExistsW(target_) != win32::FALSE;
    std::u16string parent;
    const bool hasParent = GetParentDirPath(target_, parent) != 0;
    if (!exists && !hasParent) {
      Log(u"#ERROR: Unable to get Parent Directory for path = %ls.", target_);
      Log(u"#ERROR: Failed to get parent directory for path = %ls.", target_);
      result_ = 0;
      return;
    }
    if (!exists) RequireFullControl(parent);
    RequireFullControl(exists ? std::u16string(target_) : parent);
  }

  void CheckAncestors(const char16_t* path) {
    const bool refused = AnyAncestor(path, [&](const std::u16string& ancestor) {
      if (IsRedirected(ancestor.c_str()))
        Log(u"#ERROR: The parent folder of %ls is already redirected. Browse to a different location.", path);
      else if (!profile_ && IsSymbolicLink(ancestor.c_str()))
        Log(u"#ERROR: The parent folder of %ls is Symbolic Link. Browse to a different location.", path);
      else
        return false;
      return true;
    });
    if (refused) result_ = 0;
  }

  void CheckSamePlace() {
    const std::u16string source = Cleaned(source_), target = Cleaned(target_);
    if (EqualPaths(source, target)) {
      if (sourceIsJunction_) return;
      Log(u"Checking source folder equals to target.\nSource: %ls Target: %ls #ERROR: Cannot redirect when Source and "
          u"Target "
          u"folder are the same. Browse to a different location.",
          source_, target_);
      result_ = 0;
    } else if (hasSource_ && !target.empty() && TargetIsInside(source)) {
      Log(u"Checking source folder contained in target.\nSource: %ls Target: %ls #ERROR: Cannot redirect within the "
          u"same Source "
          u"folder. Browse to a different location.",
          source_, target_);
      result_ = 0;
    }
  }

  bool TargetIsInside(const std::u16string& source) const {
    if (AnyAncestor(target_, [&](const std::u16string& ancestor) { return EqualPaths(ancestor, FolderForm(source)); }))
      return true;
    // The same folders may go by other names (short names, "C:\Data\..\Data"): Windows says where the nearest folder
    // that exists really is. Not asked for a mounted volume: what is in it is nowhere else.
    if (sourceIsJunction_ || IsReparse(source)) return false;
    std::u16string realSource, realTarget;
    if (!win32::PathFileExistsW(source.c_str()) || !GetFinalTargetPath(source.c_str(), realSource)) return false;
    const auto exists = [&](const std::u16string& path) {
      return win32::PathFileExistsW(path.c_str()) && GetFinalTargetPath(path.c_str(), realTarget);
    };
    if (!exists(Cleaned(target_)) && !AnyAncestor(target_, exists)) return false;
    return IsSameOrBelow(realTarget, realSource);
  }

  static bool IsReparse(const std::u16string& path) {
    const win32::DWORD attributes = win32::GetFileAttributesW(path.c_str());
    return attributes != win32::INVALID_FILE_ATTRIBUTES && (attributes & win32::FILE_ATTRIBUTE_REPARSE_POINT) != 0;
  }

  const char16_t* const source_;
  const char16_t* const target_;
  const bool skipTarget_, redirectedProfile_, excludeMountedVolume_;
  const bool profile_;
  const bool hasSource_;
  LazyListing& sourceTree_;
  bool sourceIsJunction_ = false;
  bool targetIsJunction_ = false;
  int result_ = 1;
};

struct Space {
  std::uint64_t available = 0;  // to the caller
  std::uint64_t total = 0;
  std::uint64_t free = 0;
};

bool DiskSpace(const std::u16string& path, Space& space) {
  win32::ULARGE_INTEGER available{}, total{}, free{};
  if (!win32::GetDiskFreeSpaceExW(path.c_str(), &available, &total, &free)) return false;
  space = {available.QuadPart, total.QuadPart, free.QuadPart};
  return true;
}

bool IsVolume(const char16_t* path, std::u16string* volumeName = nullptr) {
  return IsVolumeMountPoint(path, volumeName) || IsVolumePath(path);
}

}  // namespace

int CheckPathRelations(const char16_t* source, const char16_t* target, int skipTarget, int sourceIsRedirectedProfile,
                       int excludeMountedVolume, int quietSystemFolder, LazyListing& sourceTree) try {
  if (!source || !target) {
    Log(u"#ERROR: There was an error during path validation. Error message: Source Or Target path missing.");
    return 0;
  }
  return Relations(source, target, skipTarget != 0, sourceIsRedirectedProfile != 0, excludeMountedVolume != 0,
                   quietSystemFolder != 0, sourceTree)
      .Check();
} catch (const std::exception&) {
  return 0;
}

int CheckPathRelations(const char16_t* source, const char16_t* target, int skipTarget, int sourceIsRedirectedProfile,
                       int excludeMountedVolume, int quietSystemFolder) {
  LazyListing sourceTree(source);
  return CheckPathRelations(source, target, skipTarget, sourceIsRedirectedProfile, excludeMountedVolume,
                            quietSystemFolder, sourceTree);
}

bool MeasureSource(const char16_t* source, LazyListing& sourceTree, std::uint64_t& bytes) {
  Space space;
  const TreeListing* listing = nullptr;
  if (IsVolume(source) && DiskSpace(source, space)) {
    bytes = space.total - space.free;
  } else if (!IsVolume(source) && (listing = sourceTree.Get()) != nullptr) {
    bytes = listing->TotalSize();
  } else {
    Log(u"#ERROR: Failed to obtain size of %ls", source);
    return false;
  }
  return true;
}

int HasEnoughFreeSpace(const char16_t* source, const char16_t* target, LazyListing& sourceTree) try {
  if (!source || !target) {
    Log(u"#ERROR: Source Or Target path is missing.");
    return 0;
  }
  std::uint64_t needed = 0;
  if (!MeasureSource(source, sourceTree, needed)) return 0;

  std::u16string place = target;
  if (!win32::PathFileExistsW(target) && GetParentDirPath(target, place)) {
    place = FolderForm(place);
    Log(u"#INFO: Target %ls doesn't exists so checking free space using parent directory %ls", target, place);
  }
  // For an ordinary folder that Windows cannot answer for, nothing counts as free.
  Space space;
  std::u16string volumeName;
  if (!DiskSpace(place, space) && IsVolume(place.c_str())) {
    Log(u"#ERROR: Failed to obtain available free space on : %ls", place);
    return 0;
  }
  if (space.available > needed) return 1;
  const bool mounted = IsVolumeMountPoint(place.c_str(), &volumeName) != 0;
  Log(u"#ERROR: There is not enough free disk space on target %ls. Browse to a different location or delete one or "
      u"more files "
      u"to free disk space, and try again.",
      mounted ? volumeName : std::u16string(target));
  return 0;
} catch (const std::exception&) {
  return 0;
}

int HasEnoughFreeSpace(const char16_t* source, const char16_t* target) {
  LazyListing sourceTree(source);
  return HasEnoughFreeSpace(source, target, sourceTree);
}
