// What the registry keeps inside. For its own files only.
#pragma once

#include <memory>
#include <vector>

#include "win32/emulated/files/file_service.h"
#include "win32/emulated/registry/registry.h"

namespace emulated {

// A hive in its place.
struct Registry::Mount {
  std::shared_ptr<Hive> hive;
  HiveKey* point = nullptr;          // the key that it is mounted on
  std::shared_ptr<FileObject> file;  // null for a hive in memory
  bool system = false;               // loaded by Windows itself: never unloaded
  win32::HANDLE handle = nullptr;    // the System process's, which keeps the file to itself
};

struct Registry::State {
  explicit State(Machine& owner) : machine(owner) {}
  Machine& machine;
  std::shared_ptr<const UpCase> upCase;
  std::shared_ptr<Hive> master;  // \REGISTRY with MACHINE and USER; volatile
  std::shared_ptr<HiveKey> machineRoot, usersRoot;
  std::vector<Mount> mounts;
};

}  // namespace emulated
