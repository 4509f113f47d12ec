// The context of a backup or a restore between two calls of BackupRead or BackupWrite.
#pragma once

#include <memory>

#include "win32/emulated/files/file_service.h"

namespace emulated {

// A context is an object of the system's own (process 4); the caller's opaque pointer is its handle, so a pointer that
// is none is found out, and a context that a program forgets goes with the machine.
class BackupContext : public Object {
 public:
  static constexpr win32::DWORD kSystemProcess = 4;

  explicit BackupContext(const std::shared_ptr<FileObject>& file) : file_(file) {}
  const char16_t* TypeName() const override { return u"BackupContext"; }
  bool IsOf(const std::shared_ptr<FileObject>& file) const { return file_.lock() == file; }

 private:
  std::weak_ptr<FileObject> file_;
};

// The context that a call works on. `*slot` null: a new one, put into the slot. 87 for a pointer that is no context of
// this kind or belongs to another open.
template <typename Context>
win32::DWORD EnterBackup(const std::shared_ptr<FileObject>& file, bool processSecurity, void** slot,
                         std::shared_ptr<Context>& context) {
  ObjectTable& objects = Machine::Current().objects;
  if (!*slot) {
    context = std::make_shared<Context>(file, processSecurity);
    *slot = objects.Insert(context, BackupContext::kSystemProcess, 0);
    return 0;
  }
  context = objects.Find<Context>(*slot, BackupContext::kSystemProcess);
  return context && context->IsOf(file) ? 0 : win32::DWORD{win32::ERROR_INVALID_PARAMETER};
}

// Ends a backup or a restore (bAbort). A null `*slot` is nothing to end.
template <typename Context>
win32::DWORD LeaveBackup(void** slot) {
  ObjectTable& objects = Machine::Current().objects;
  if (!*slot) return 0;
  if (!objects.Find<Context>(*slot, BackupContext::kSystemProcess)) return win32::ERROR_INVALID_PARAMETER;
  objects.Close(*slot, BackupContext::kSystemProcess);
  *slot = nullptr;
  return 0;
}

}  // namespace emulated
