#include "probes/locked_handles.h"

#include <algorithm>
#include <stdexcept>
#include <string_view>
#include <vector>

#include "probes/drive_map.h"
#include "probes/handle_list.h"
#include "probes/handle_names.h"
#include "probes/nt_dll.h"
#include "probes/system_process_information.h"
#include "report/debugger.h"
#include "text/ascii_case.h"
#include "text/format.h"
#include "text/path_text.h"
#include "win32/system.h"

namespace {

constexpr const char16_t* kNoPath = u"***_Invalid_Path_***";  // the name of nothing

std::u16string QueryPath(const char16_t* path) {
  // The walk's own drive-letter paths have no prefix.
  return std::u16string(WithoutExtendedPrefix(path && *path ? path : kNoPath));
}

// Disks, network drives and the product's own volumes.
bool IsOnKnownDevice(const std::u16string& nativeName) {
  for (const std::u16string_view device :
       {u"\\device\\harddisk", u"\\device\\lanmanredirector", u"\\device\\krmdevice"})
    if (StartsWithIgnoringAsciiCase(nativeName, device)) return true;
  return false;
}

// One walk over the handle table.
class Walk {
 public:
  Walk(const char16_t* firstPath, const char16_t* secondPath, LockedPaths& locked)
      : firstPath_(QueryPath(firstPath)), secondPath_(QueryPath(secondPath)), locked_(locked) {}

  void Run() {
    if (!INtDll::Get().Bind() || !processes_.Refresh() || !handles_.Read()) return;
    for (const HandleRecord& record : handles_.handles()) {
      if (!HasRoom()) return;
      if (IsUnsafe(record)) continue;
      files_.push_back({HandleOf(record), record.processId});
      if (files_.size() == kFilesAtOnce) ExamineFiles();
    }
    ExamineFiles();
  }

 private:
  bool HasRoom() const { return locked_.count < LockedPaths::kCapacity; }

  bool IsUnsafe(const HandleRecord& record) const {
    constexpr win32::DWORD kWindowsNT4 = 4;
    return INtDll::Get().majorVersion == kWindowsNT4 &&
           EqualIgnoringAsciiCase(processes_.ImageName(record.processId), u"services.exe");
  }

  void ExamineFiles() {
    const bool goesOn = GetFileObjectNames(files_);
    for (const FileToName& file : files_)
      if (HasRoom()) Examine(file.name);
    files_.clear();
    if (!goesOn) throw std::runtime_error("no thread starts");
  }

  void Examine(const std::u16string& name) {
    std::u16string path;
    if (!IsOnKnownDevice(name) || !drives_.GetFsFileName(name, path)) return;
    if (!IsSameOrBelow(path, firstPath_) && !IsSameOrBelow(path, secondPath_)) return;
    Record(path);
  }

  void Record(const std::u16string& path) {
    char16_t* const slot = locked_.At(locked_.count);
    const std::size_t length = std::min<std::size_t>(path.size(), LockedPaths::kPathCharacters - 1);
    path.copy(slot, length);
    slot[length] = u'\0';
    ++locked_.count;
  }

  const std::u16string firstPath_, secondPath_;
  LockedPaths& locked_;
  const DriveMap drives_;
  SystemProcessInformation processes_;
  HandleList handles_;
  std::vector<FileToName> files_;  // that are asked for their names next
};

void TraceUnknown(win32::DWORD code) try {
  TellDebugger(FormatText(u"\n UNKNOWN_EXCEPTION. Error Code: %d", code).c_str());
} catch (const std::exception&) {
  TellDebugger(u"\n UNKNOWN_EXCEPTION.");
}

win32::LONG ExceptionHandler(win32::DWORD code) {
  TellDebugger(u"\n ===>>> In ExceptionHandler:: Caught exception");
  if (code == win32::EXCEPTION_ACCESS_VIOLATION)
    TellDebugger(u"\n EXCEPTION_ACCESS_VIOLATION");
  else if (code == win32::EXCEPTION_STACK_OVERFLOW)
    TellDebugger(u"\n EXCEPTION_STACK_OVERFLOW");
  else if (code == win32::EXCEPTION_BREAKPOINT)
    TellDebugger(u"\n EXCEPTION_BREAKPOINT");
  else if (code == win32::EXCEPTION_ARRAY_BOUNDS_EXCEEDED)
    TellDebugger(u"\n EXCEPTION_ARRAY_BOUNDS_EXCEEDED");
  else
    TraceUnknown(code);
  return win32::EXCEPTION_EXECUTE_HANDLER;
}

// What a structured exception ends is left without its destructors. The tables belong to `walk` and are freed, and
// what is open is closed; a text or two, and a question for a name, stay until the program ends.
bool Run(Walk& walk) try {
  if (win32::CallWithExceptionFilter([](void* context) { static_cast<Walk*>(context)->Run(); }, &walk,
                                     ExceptionHandler))
    return true;
  CloseWhatWasAsked();
  TellDebugger(u"\n Exception in unmanaged GetLockedFilesList()");
  return false;
} catch (const std::exception&) {
  return false;
}

// False: an exception has ended the walk, and what it had found by then is all there is.
bool GetLockedFilesList(Walk& walk) {
  TellDebugger(u"\n Inside unmanaged GetLockedFilesList()");
  const bool completed = Run(walk);
  TellDebugger(u"\n Outside unmanaged GetLockedFilesList()");
  return completed;
}

bool WalkHandles(const char16_t* firstPath, const char16_t* secondPath, LockedPaths& locked) try {
  Walk walk(firstPath, secondPath, locked);
  return GetLockedFilesList(walk);
} catch (const std::exception&) {
  return false;
}

}  // namespace

int GetLockedFilesAndFoldersList(const char16_t* firstPath, const char16_t* secondPath, LockedPaths& locked) {
  TellDebugger(u"\n Start of unmanaged GetLockedFilesAndFoldersList()");
  locked.count = 0;
  TellDebugger(u"\n Unmanaged GetLockedFilesAndFoldersList():: Before GetLockedFilesList()");
  if (WalkHandles(firstPath, secondPath, locked)) {
    TellDebugger(u"\n Unmanaged GetLockedFilesAndFoldersList():: After GetLockedFilesList()");
    TellDebugger(u"\n Unmanaged GetLockedFilesAndFoldersList():: Added empty record");  // traced although none is added
  } else {
    TellDebugger(u"\n Exception in GetLockedFilesAndFoldersList()");
  }
  TellDebugger(u"\n End of unmanaged GetLockedFilesAndFoldersList()");
  return 0;
}
