// What stands at a place, with all that a look from outside tells. Nothing behind a link to the network is asked: a
// link that somebody put there would have this program log on where he likes.
#pragma once

#include <optional>
#include <string>

#include "links/presence.h"
#include "links/reparse_data.h"

struct Stands {
  Look look;
  win32::DWORD error = 0;  // why it is not told
  ReparseData data;        // of a reparse point; empty when they cannot be read

  bool IsReadable() const { return !look.IsReparsePoint() || !data.empty(); }
  bool IsVolume() const { return IsVolumeMount(data); }
  bool IsJunction() const { return TagOf(data) == win32::IO_REPARSE_TAG_MOUNT_POINT && !IsVolume(); }
  bool IsSymbolicLink() const { return TagOf(data) == win32::IO_REPARSE_TAG_SYMLINK; }
  // Where a link leads by its data, a volume by its name ("\\?\Volume{...}\").
  std::u16string LeadsTo() const;
};
Stands WhatStandsAt(const std::u16string& path);

// Do both paths lead to one item, all links followed? Nothing when one of them cannot be followed; `error` says why.
std::optional<bool> LeadToOne(const std::u16string& a, const std::u16string& b, win32::DWORD& error);

// Is a folder empty? Nothing when it cannot be listed.
std::optional<bool> IsFolderEmpty(const std::u16string& folder);

// A sentence for a question about `path` that failed.
std::u16string NotToldOf(const std::u16string& path, win32::DWORD error);
