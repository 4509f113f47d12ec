// $Secure, where NTFS keeps each security descriptor once: $SDS has them behind one another, each twice; $SII says by
// number where, $SDH by hash. The library looks for each descriptor in both indexes from the root on, and enters each
// alone, which for a small file is most of what there is to do. Here what many have in common is done once.
#pragma once

#include <memory>
#include <optional>
#include <unordered_map>
#include <vector>

#include "win32/emulated/bytes.h"

struct _ntfs_volume;

namespace emulated::ntfs {

class SecureFile {
 public:
  using Descriptor = std::shared_ptr<const Bytes>;
  struct NewDescriptor {
    Descriptor descriptor;
    std::uint32_t id = 0;
  };

  // `volume` is filled in when it is mounted; before that nothing may be asked.
  explicit SecureFile(_ntfs_volume* const& volume) : volume_(volume) {}

  // The descriptor of that number, with what may follow it. Nothing when it is not as it should be: then the library is
  // to be asked.
  std::optional<Bytes> Read(std::uint32_t id);
  // Enters descriptors of which no two are equal, and says what number each has got. 0 stays with those that the
  // library is to be asked for: another with its hash is there, which may be the same, or something has failed. (Of
  // such a failure numbers may remain that nothing refers to; the library leaves the same behind when it fails.)
  void Enter(std::vector<NewDescriptor>& descriptors);
  // The number of a descriptor that is there; 0 when there is none.
  std::uint32_t AnyId();
  // To be called when the library has changed $Secure.
  void ForgetWhatWasRead() { piece_.clear(); }

 private:
  struct Place {
    std::uint64_t offset = 0;
    std::uint32_t length = 0;
  };
  struct Entry;

  bool CanBeUsed() const;
  void NotePlaces(std::uint32_t id);
  bool GivePlaces(std::vector<Entry>& entries, std::uint64_t& end) const;
  bool WriteData(const std::vector<Entry>& entries, std::uint64_t end) const;

  _ntfs_volume* const& volume_;
  std::unordered_map<std::uint32_t, Place> places_;  // in $SDS, where a descriptor stays
  Bytes piece_;                                      // of $SDS, with what is probably asked for next
  std::uint64_t pieceOffset_ = 0;
  std::uint32_t anyId_ = 0;
};

}  // namespace emulated::ntfs
