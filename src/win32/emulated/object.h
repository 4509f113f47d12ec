// Objects and the handles that name them.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "win32/types.h"

namespace emulated {

// Anything that a handle can name: an open file, a key, a token, a mutex, a service.
class Object {
 public:
  virtual ~Object() = default;
  // The object manager's name of the type: u"File", u"Key", u"Token", u"Mutant", ...
  virtual const char16_t* TypeName() const = 0;
  // Its name in the object manager's name space (u"\\Device\\HarddiskVolume1\\x"); empty for one without a name.
  virtual std::u16string NativeName() const { return {}; }
  // The last handle has been closed (an open file gives up its share modes and, when so marked, is deleted).
  virtual void Closed() {}

 private:
  friend class ObjectTable;
  std::size_t handles_ = 0;  // how many name it
};

// Whatever was opened on a device: a file, a directory, a pipe, the console.
class OpenedFile : public Object {
 public:
  const char16_t* TypeName() const override { return u"File"; }
  virtual std::u16string Device() const = 0;        // u"\\Device\\HarddiskVolume1"
  virtual std::u16string NameOnDevice() const = 0;  // u"\\Users\\x"
  // How many milliseconds the file is busy, while whoever asks its name waits for it.
  virtual std::uint64_t NameQueryDelay() const { return 0; }
  std::u16string NativeName() const final { return Device() + NameOnDevice(); }
};

struct HandleEntry {
  std::shared_ptr<Object> object;
  win32::DWORD processId;
  win32::ACCESS_MASK granted;
};

// The handles of all processes of the machine. Values are unique on the machine, and below 65,536 as long as there are
// few: those of closed handles come up again late.
class ObjectTable {
 public:
  win32::HANDLE Insert(std::shared_ptr<Object> object, win32::DWORD processId, win32::ACCESS_MASK granted);
  // The object of a handle of that process; null when there is none.
  std::shared_ptr<Object> Find(win32::HANDLE handle, win32::DWORD processId) const;
  template <typename T>
  std::shared_ptr<T> Find(win32::HANDLE handle, win32::DWORD processId) const {
    return std::dynamic_pointer_cast<T>(Find(handle, processId));
  }
  // Null when there is no such handle.
  const HandleEntry* Entry(win32::HANDLE handle, win32::DWORD processId) const;
  // False when there is no such handle.
  bool Close(win32::HANDLE handle, win32::DWORD processId);
  // The end of a process: all its handles are closed.
  void CloseAll(win32::DWORD processId);
  // All handles in order of their values.
  const std::map<std::uintptr_t, HandleEntry>& all() const { return entries_; }

 private:
  static constexpr std::uintptr_t kFirst = 0x44, kStep = 4;  // as on Windows the two low bits stay free
  static constexpr std::size_t kFew = (0x10000 - kFirst) / kStep / 2;
  std::map<std::uintptr_t, HandleEntry> entries_;
  std::uintptr_t next_ = kFirst;
};

}  // namespace emulated
