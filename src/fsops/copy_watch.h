// Who looks on while an item is copied: shows how far it is, and may stop it.
#pragma once

#include <cstdint>
#include <string>

class Progress;

struct CopyWatch {
  Progress* progress = nullptr;  // may be null
  // Between two pieces the copy ends when that was asked for (IsStopRequested). Not of what overwrites a file, whose
  // old contents nobody could give back, and never of what takes something back.
  bool mayStop = false;

  // So many bytes more are copied. False, with ERROR_REQUEST_ABORTED: no further.
  bool GoesOn(std::uint64_t bytes) const;
};

// As Windows' CopyFileEx. False with the last error; a copy that was stopped leaves nothing.
bool CopyFileWatched(const std::u16string& from, const std::u16string& to, bool failIfExists, const CopyWatch& watch);
