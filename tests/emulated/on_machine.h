// What the workstation's own tests share: a machine, who acts on it, and a look past the calls under test.
#pragma once

#include <gtest/gtest.h>

#include "contract/fixture.h"
#include "support/installed_machine.h"
#include "win32/emulated/files/file_service.h"
#include "win32/emulated/files/runtime_bound.h"
#include "win32/emulated/registry/registry.h"
#include "win32/emulated/security/access.h"
#include "win32/emulated/text.h"

namespace test {

// A machine with Windows and the product's service on it, or what else is given.
class OnMachine : public testing::Test {
 protected:
  explicit OnMachine(const MachineFacts& facts = {}) : machine(InstalledMachine(facts)) {}

  emulated::Registry& registry() { return machine->registry(); }
  emulated::Volume& volume(char16_t letter = u'C') { return *machine->FindByLetter(letter)->volume; }
  emulated::FileId Find(std::u16string_view path, char16_t letter = u'C') {
    emulated::FileId file = 0;
    EXPECT_EQ(volume(letter).LookupPath(path, file), 0u) << emulated::Utf8(path);
    return file;
  }
  // Descriptors of C:, put there and looked at without any call.
  void Protect(std::u16string_view path, std::u16string_view sddl) {
    EXPECT_EQ(volume().SetSecurity(Find(path), emulated::DescriptorFromText(sddl).value()), 0u);
  }
  std::string SecurityOf(std::u16string_view path) {
    emulated::Bytes descriptor;
    EXPECT_EQ(volume().GetSecurity(Find(path), descriptor), 0u);
    return emulated::Utf8(
        emulated::DescriptorToText(descriptor, win32::OWNER_SECURITY_INFORMATION | win32::DACL_SECURITY_INFORMATION));
  }

  void Enable(std::u16string_view privilege) { EXPECT_TRUE(machine->process.token->EnablePrivilege(privilege, true)); }
  void Become(std::u16string_view sid) { machine->process.token = emulated::MakeUserToken(emulated::SidFromText(sid)); }
  void Restart() {
    machine->objects.CloseAll(machine->process.id);
    Disks disks = machine->Snapshot();
    machine.reset();
    machine = BootFrom(std::move(disks));
  }

  std::unique_ptr<emulated::Machine> machine;
};

}  // namespace test
