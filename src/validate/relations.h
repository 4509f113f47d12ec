// The rules for a source and a target together, and for free space.
#pragma once

#include "validate/file_list.h"

// A tree that is listed when it is first asked for, and once: the free-space rule and the scan read the same listing.
class LazyListing {
 public:
  explicit LazyListing(const char16_t* root);
  // Null when the tree cannot be listed.
  const TreeListing* Get();

 private:
  std::u16string root_;
  TreeListing listing_;
  enum class State { NotRead, Read, Failed } state_ = State::NotRead;
};

// 1 when source and target may stand in a redirection to each other. skipTarget leaves out the rules that look at the
// target itself. The last form takes the source's listing from the caller.
int CheckPathRelations(const char16_t* source, const char16_t* target, int skipTarget, int sourceIsRedirectedProfile,
                       int excludeMountedVolume, int quietSystemFolder);
int CheckPathRelations(const char16_t* source, const char16_t* target, int skipTarget, int sourceIsRedirectedProfile,
                       int excludeMountedVolume, int quietSystemFolder, LazyListing& sourceTree);

// 1 when the target's volume has more free bytes than the source needs.
int HasEnoughFreeSpace(const char16_t* source, const char16_t* target);
int HasEnoughFreeSpace(const char16_t* source, const char16_t* target, LazyListing& sourceTree);

// The bytes that the source takes: of the files below it, or of its volume when it is one. False when they cannot be
// told.
bool MeasureSource(const char16_t* source, LazyListing& sourceTree, std::uint64_t& bytes);
