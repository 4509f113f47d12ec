#include "fsops/copy_roots.h"

#include "links/mounted_folder.h"
#include "links/volume_paths.h"
#include "report/log.h"
#include "text/format.h"
#include "text/path_text.h"
#include "win32/constants.h"

namespace {

std::u16string Base(std::u16string_view root) {
  root = WithoutExtendedPrefix(root);
  while (!root.empty() && root.back() == u'\\') root.remove_suffix(1);
  return std::u16string(root);
}

using Conversion = int (*)(std::u16string& path, std::u16string& out);

bool ConvertBoth(Conversion convert, bool source, std::u16string& sourcePath, bool target, std::u16string& targetPath) {
  const auto converted = [&](std::u16string& path) {
    std::u16string given = path;
    return convert(given, path) != 0;
  };
  if (source && !converted(sourcePath))
    return LogFailure(u"#ERROR: Source Volume Path to Normal Path Conversion Failed.");
  if (target && !converted(targetPath))
    return LogFailure(u"#ERROR: Destination Volume Path to Normal Path Conversion Failed.");
  return true;
}

}  // namespace

bool CopyRoots::Resolve(const std::u16string& source, const std::u16string& target) {
  source_ = source;
  target_ = target;
  sourceWasVolumePath_ = IsVolumePath(source.c_str());
  targetWasVolumePath_ = IsVolumePath(target.c_str());
  if (!ConvertBoth(VolumePathToNormalPath, sourceWasVolumePath_, source_, targetWasVolumePath_, target_)) return false;
  sourceBase_ = Base(source_);
  targetBase_ = Base(target_);
  return true;
}

bool CopyRoots::IsSource(std::u16string_view path) const { return EqualPaths(Base(path), sourceBase_); }

std::u16string CopyRoots::TargetOf(const std::u16string& path) const {
  std::u16string target = targetBase_;
  target += WithoutExtendedPrefix(path).substr(sourceBase_.size());
  // What was reached by "\\?\" only (its name ends with a dot, say) is made in the same way.
  return HasExtendedPrefix(path) ? WithExtendedPrefix(target) : ExtendedPath(target);
}

bool CopyRoots::ShowProgress(const TreeEntry& entry, const std::u16string& target) const {
  std::u16string shownPath = entry.path, shownTarget = target;
  if (!ConvertBoth(NormalPathToVolumePath, sourceWasVolumePath_, shownPath, targetWasVolumePath_, shownTarget))
    return false;
  output_.Print(FormatText<std::u16string, std::u16string>(u"%ls -> %ls\n", shownPath, shownTarget), entry.size);
  return true;
}
