// This computer's network shares, as far as they follow the folders that are moved.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "win32/net.h"

// The shares as they were when they were read (level 502). Copies share the same records.
class ShareList {
 public:
  static ShareList Read();
  // Nothing was kept back. Without a server there are no shares.
  bool IsWhole() const { return whole_; }
  // Every share of the folder; null-free.
  std::vector<const win32::SHARE_INFO_502*> FindByPath(std::u16string_view folder) const;

 private:
  struct Buffer;
  std::vector<std::shared_ptr<Buffer>> buffers_;
  bool whole_ = false;
};

// A share that was deleted, kept so that it can be put back.
struct DeletedShare {
  ShareList list;  // keeps the record alive
  const win32::SHARE_INFO_502* share = nullptr;
};

// Deletes the share. The result is for those who want to know.
bool DeleteShare(const win32::SHARE_INFO_502& share);
bool DeleteShare(std::u16string name);
// Adds the share again, with `folder` as its path.
bool AddShare(const win32::SHARE_INFO_502& share, const std::u16string& folder);
// Adds a share that was deleted where it was; the log tells when that is refused.
void AddShareAgain(const win32::SHARE_INFO_502& share);

// Gives every share of `folder` the path `newFolder`; all else that it has stays. False when one is still at `folder`,
// or may be, or is gone; the log names it.
bool MoveShares(const std::u16string& folder, const std::u16string& newFolder);
