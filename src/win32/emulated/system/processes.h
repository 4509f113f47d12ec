// The other processes of the machine, which tests and tools script: what they hold open, and when they end.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "win32/emulated/machine.h"

namespace emulated {

// A process by its id, ours included; null when there is none.
const Process* FindProcess(const Machine& machine, win32::DWORD id);
// A process that runs from now on. One of that id that runs already keeps its name.
Process& AddProcess(Machine& machine, win32::DWORD id, std::u16string_view image = u"other.exe");
// The process ends and its handles are closed.
void EndProcess(Machine& machine, win32::DWORD id);

// The process opens something (added when it does not run yet); the value of its handle.
win32::HANDLE OpenInProcess(Machine& machine, win32::DWORD id, std::shared_ptr<Object> object,
                            win32::ACCESS_MASK granted);

// What a process holds that is no file: an event, a section, ... The type name is the object manager's.
class NamedObject : public Object {
 public:
  NamedObject(std::u16string typeName, std::u16string name) : typeName_(std::move(typeName)), name_(std::move(name)) {}
  const char16_t* TypeName() const override { return typeName_.c_str(); }
  std::u16string NativeName() const override { return name_; }

 private:
  std::u16string typeName_, name_;
};

// A file on a device that is no volume of this machine, by its full name:
// u"\\Device\\LanmanRedirector\\server\\share\\x", u"\\Device\\NamedPipe\\y". For a drive letter that leads to the
// device, add a MountedVolume without a volume. Its delays are those of the questions for its name, in their order; the
// last one is that of all further questions, too.
inline constexpr std::uint64_t kForEver = UINT64_MAX;
class DeviceFile : public OpenedFile {
 public:
  explicit DeviceFile(std::u16string_view name, std::vector<std::uint64_t> nameQueryDelays = {});
  std::u16string Device() const override { return device_; }
  std::u16string NameOnDevice() const override { return name_; }
  std::uint64_t NameQueryDelay() const override;

 private:
  std::u16string device_, name_;
  std::vector<std::uint64_t> delays_;
  mutable std::size_t asked_ = 0;
};

// What a handle of a process (OpenProcess) names.
class ProcessObject : public Object {
 public:
  explicit ProcessObject(win32::DWORD id) : id_(id) {}
  const char16_t* TypeName() const override { return u"Process"; }
  win32::DWORD id() const { return id_; }

 private:
  win32::DWORD id_;
};

}  // namespace emulated
