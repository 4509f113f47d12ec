// What is left open when a process, or a test of the program's engines, ends: the program closes its handles, and gives
// back the contexts of its backups.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <set>

#include "win32/emulated/files/backup_context.h"
#include "win32/emulated/machine.h"
#include "win32/emulated/system/console.h"
#include "win32/emulated/text.h"

namespace test {

// Fails the test for each handle, of those that came while it lived, that is still open at its end, and closes it.
// Those of the console are the process's; a refused close leaves its handle open.
class OpenHandles {
 public:
  explicit OpenHandles(emulated::Machine& machine) : machine_(machine), older_(All()) {}
  ~OpenHandles() {
    const bool closingFailed = std::ranges::any_of(machine_.gate.failed(), [](const std::string& call) {
      return call.find("Close") != std::string::npos || call.starts_with("Backup");
    });
    for (const auto& [handle, process] : All()) {
      if (older_.contains({handle, process})) continue;
      const auto object = machine_.objects.Find(reinterpret_cast<win32::HANDLE>(handle), process);
      const bool isConsole = dynamic_cast<const emulated::ConsoleObject*>(object.get()) != nullptr;
      EXPECT_TRUE(isConsole || closingFailed)
          << "left open: " << emulated::Utf8(object->TypeName()) << ' ' << emulated::Utf8(object->NativeName());
      machine_.objects.Close(reinterpret_cast<win32::HANDLE>(handle), process);
    }
  }
  OpenHandles(const OpenHandles&) = delete;
  OpenHandles& operator=(const OpenHandles&) = delete;

 private:
  using Handles = std::set<std::pair<std::uintptr_t, win32::DWORD>>;
  Handles All() const {
    Handles handles;
    for (const auto& [handle, entry] : machine_.objects.all())
      if (entry.processId == machine_.process.id || dynamic_cast<emulated::BackupContext*>(entry.object.get()))
        handles.emplace(handle, entry.processId);
    return handles;
  }

  emulated::Machine& machine_;
  const Handles older_;
};

}  // namespace test
