#ifndef _WIN32

#include <stdexcept>

#include "contract/fixture.h"
#include "support/installed_machine.h"
#include "win32/emulated/files/runtime_bound.h"
#include "win32/emulated/registry/registry.h"

namespace contract {

namespace {

// Every test that asks for a scratch folder gets a fresh machine.
emulated::Machine& FreshMachine() {
  // Made with a machine, so that it is gone at the end before what machines are registered in.
  static std::unique_ptr<emulated::Machine> machine = test::BareMachine();
  machine.reset();
  machine = test::BareMachine();
  machine->MakeShortNames(0);
  machine->registry().MountEmpty(u"HKLM\\SOFTWARE");
  machine->registry().MountEmpty(u"HKU\\" + emulated::SidToText(machine->process.token->user));
  return *machine;
}

}  // namespace

std::u16string Scratch() {
  FreshMachine();
  if (!win32::CreateDirectoryW(u"C:\\Scratch", nullptr) || !win32::CreateDirectoryW(u"D:\\Scratch", nullptr))
    throw std::runtime_error("the scratch folders cannot be made: error " + std::to_string(win32::GetLastError()));
  return u"C:\\Scratch";
}

std::u16string OtherVolume() { return u"D:\\Scratch"; }
bool OnWine() { return false; }
win32::CreateSymbolicLinkWFunction CreateSymbolicLink() { return emulated::CreateSymbolicLinkW; }
win32::GetFinalPathNameByHandleWFunction GetFinalPathNameByHandle() { return emulated::GetFinalPathNameByHandleW; }

}  // namespace contract

#endif
