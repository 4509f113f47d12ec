// The two roots of a tree copy: which item goes where, and how both are shown.
#pragma once

#include <string>
#include <string_view>

#include "fsops/file_list.h"
#include "report/console.h"

class CopyRoots {
 public:
  // Both may be volume paths, and become the ordinary ones. False: one has none; the log tells.
  bool Resolve(const std::u16string& source, const std::u16string& target);
  const std::u16string& source() const { return source_; }
  const std::u16string& target() const { return target_; }

  // The roots in the form in which paths below them begin: no prefix, no backslash at the end.
  const std::u16string& sourceBase() const { return sourceBase_; }
  const std::u16string& targetBase() const { return targetBase_; }
  bool IsSource(std::u16string_view path) const;

  // Where the item of the source goes.
  std::u16string TargetOf(const std::u16string& path) const;

  // Tells the console that the item was copied, with volume paths where the roots were given so. False: it cannot be
  // told; the log tells.
  bool ShowProgress(const TreeEntry& entry, const std::u16string& target) const;

 private:
  bool sourceWasVolumePath_ = false, targetWasVolumePath_ = false;
  std::u16string source_, target_, sourceBase_, targetBase_;
  const ConsoleLines output_;
};
