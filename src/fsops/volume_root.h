// The security of a volume's root. While a folder is redirected onto the volume, the root has the folder's owner and
// DACL: it is what users then see as the folder, and what everything in the folder inherits from. The root's own
// descriptor is remembered in the registry meanwhile (32-bit view, SOFTWARE\Velmora\Quillbay\VolumeRoots, as text).
//
// A volume is named as Windows does: "\\?\Volume{...}\".
#pragma once

#include <string>

#include "fsops/folder_itself.h"

// Gives the root the folder's owner, group and DACL, its inherited entries as its own. What is on the volume already
// keeps its own. False: the root is as it was.
bool LendSecurityToRoot(const std::u16string& folder, const std::u16string& volume);

// Gives the root back what LendSecurityToRoot remembered; true when there is nothing to give back. False: it still has
// the folder's, and what is remembered stays.
bool GiveRootItsOwnSecurity(const std::u16string& volume);

// The root's descriptor, if it is no longer the one that it was lent from `folder` (somebody has changed it). Empty
// when it is, and when none was lent.
FolderDescriptor ChangedRootSecurity(const std::u16string& folder, const std::u16string& volume);
