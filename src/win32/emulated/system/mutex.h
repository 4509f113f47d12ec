// Named and unnamed mutexes. Nobody waits for one here: programs use them as marks that say "I am running".
#pragma once

#include <string>

#include "win32/emulated/bytes.h"
#include "win32/emulated/object.h"

namespace emulated {

class Machine;

class MutexObject : public Object {
 public:
  MutexObject(Machine& machine, std::u16string name, Bytes descriptor)
      : machine_(machine), name_(std::move(name)), descriptor_(std::move(descriptor)) {}
  const char16_t* TypeName() const override { return u"Mutant"; }
  std::u16string NativeName() const override;
  void Closed() override;  // the name goes with the last handle
  // Who may open it; empty: everybody.
  const Bytes& descriptor() const { return descriptor_; }

 private:
  Machine& machine_;
  std::u16string name_;
  Bytes descriptor_;
};

}  // namespace emulated
