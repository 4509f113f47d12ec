// The rules for a source and a target together.
#pragma once

#include "fsops/file_list.h"

struct RelationOptions {
  bool skipTarget = false;  // leaves out the rules that look at the target itself
  // With either of these, symbolic links are let through, and a folder with a volume mounted on it is no link; only the
  // first lets a symbolic link be the target itself.
  bool sourceIsRedirectedProfile = false;
  bool quietSystemFolder = false;
  bool excludeMountedVolume = false;  // a volume may be mounted on the target, unless the first of those is set
  // For who only looks: the target is made, and made fit, before these rules are asked; what is there has its room.
  const char16_t* standIn = nullptr;
};
// 1 when source and target may stand in a redirection to each other.
int CheckPathRelations(const FolderTree& source, const char16_t* target, const RelationOptions& options);

// May the user do everything in the folder, so that the target can be made there or filled? A refusal has its line in
// the log.
bool GrantsFullControl(const std::u16string& folder, const char16_t* target);

// Tells the log when both places are on one volume: whatever takes the changes away from the one takes them away from
// the other. No refusal.
void TellIfOnOneVolume(const std::u16string& source, const std::u16string& target);
