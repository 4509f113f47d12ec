// Everything that is redirected on this machine, and whether it is whole. Only questions are asked: no call here could
// change a disk, the registry or a service.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "profiles/redirection_notes.h"
#include "survey/findings.h"

class CQBConfig;

enum class RowKind {
  Folder,
  FolderOnVolume,
  File,
  Profile,
  NewProfiles,  // where Windows makes them
  DefaultProfile,
  PublicProfile,
  RegistryLocation,
  RegistryKey
};

// One redirection, or what is left of one.
struct Row {
  RowKind kind = RowKind::Folder;
  std::u16string source;     // where it seems to be, or was; of a registry key its name
  std::u16string target;     // where it is; a volume by its name
  std::u16string user = {};  // of a profile: as a command may name him; else his SID
  bool isNameable = true;    // false: no command can name him
  std::uint64_t number = 0;  // of the record of a folder or file
  std::vector<Finding> findings = {};

  // What is the worst that was found?
  Soundness State() const;
  bool IsWhole() const { return State() == Soundness::Whole; }
  // Something was found; `other` is what the text calls {X}.
  void Find(Finds what, const std::u16string& other = {});
  bool Has(Finds what) const;
};

struct Inventory {
  std::vector<Row> rows;
  // What could not be asked at all, a sentence each: rows may be missing.
  std::vector<std::u16string> untold;

  // What came with automatic redirection, and goes with it; only while that is in force.
  std::optional<NewProfilesNote> newProfiles;
};

Inventory TakeInventory();

// The parts of it (inventory_*.cpp). Each adds its rows.

struct ProfileFolders {
  std::vector<std::u16string> paths;  // of people
  bool areAll = false;
};
// config: null when there is none. isTold: false when it could not be read; then nobody knows where profiles are at
// home.
void AddProfiles(Inventory& inventory, const CQBConfig* config, bool isTold, ProfileFolders& folders);
void AddFoldersAndFiles(Inventory& inventory, const ProfileFolders& profiles);
void AddRegistry(Inventory& inventory, const CQBConfig& config);
