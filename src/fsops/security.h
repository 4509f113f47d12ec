// Security descriptors of files: copying, opening up, testing and saving them. Operations answer 1 or 0.
#pragma once

#include <map>
#include <memory>
#include <string>

#include "win32/constants.h"
#include "win32/handle.h"

// Read & execute as the rules ask for it: READ_CONTROL, FILE_READ_DATA, FILE_READ_EA, FILE_EXECUTE,
// FILE_READ_ATTRIBUTES.
inline constexpr win32::DWORD kReadAndExecute = 0x200A9;
inline constexpr win32::DWORD kFullControl = win32::FILE_ALL_ACCESS;

// The caller as the thread's own impersonation token, for as long as the object lives.
class ImpersonatedCaller {
 public:
  ImpersonatedCaller();
  ~ImpersonatedCaller();
  ImpersonatedCaller(const ImpersonatedCaller&) = delete;
  ImpersonatedCaller& operator=(const ImpersonatedCaller&) = delete;
  // Null when the thread could not take the token; every access test then answers no.
  win32::HANDLE token() const { return token_.get(); }

 private:
  win32::UniqueKernelHandle token_;
  bool impersonating_ = false;
};

struct DaclCopyOptions {
  bool allowInheritance = false;   // of a source with inherited entries, the target inherits from its own folder
  bool keepInheritedAces = false;  // inherited entries are copied, too
};
// Writes the source's DACL, less its inherited entries, to the target. Of consecutive inherited entries every second
// one stays. A source whose DACL cannot be read opens the target to everybody.
int CopyDacl(const std::u16string& source, const std::u16string& target, const DaclCopyOptions& options);
// The same, but nothing is written when the source's DACL cannot be read.
enum class DaclCopy { Written, NotRead, NotWritten };
DaclCopy CopyReadableDacl(const std::u16string& source, const std::u16string& target, const DaclCopyOptions& options);

// Everyone may read, Administrators may do everything; takes the ownership for the Administrators when that is refused.
int GrantEveryoneAndAdministrators(const std::u16string& path);

// Rights to ask for, generic ones as those of a file (MapGenericMask): mapped once, for however many items.
class FileRights {
 public:
  explicit FileRights(win32::DWORD desiredAccess);
  win32::DWORD mask() const { return mask_; }
  const win32::GENERIC_MAPPING& mapping() const { return mapping_; }

 private:
  win32::GENERIC_MAPPING mapping_;
  win32::DWORD mask_;
};
// May the token's user have these rights on the item?
int HasAccess(win32::HANDLE token, const std::u16string& path, const FileRights& rights);
int HasAccess(win32::HANDLE token, const std::u16string& path, win32::DWORD desiredAccess);

// 0 when another process holds the file so that it cannot be opened alone.
int IsFileNotLocked(const std::u16string& path);
int IsFileNotLocked(const std::u16string& path, win32::DWORD attributes);
// 0 when another process holds the file or folder, or a stream of it, so that nobody can delete it now. Whether the
// caller may is not asked.
int IsDeletable(const std::u16string& path);
// Both of a file that is no link: 0 when one of them is. One open asks for all; where it is refused for another reason
// than somebody else's open, each is asked alone.
int IsFileFree(const std::u16string& path, win32::DWORD attributes);

// Does the DACL hold an inherited entry? Each path is examined once and then answered from the cache: for who works
// through a tree and comes back to the same folders.
using InheritanceCache = std::map<std::u16string, int>;
int HaveInheritedPermissions(InheritanceCache& cache, const std::u16string& path);

// A self-relative descriptor (owner and DACL) in a block of the process heap, ready to be written back: it has been
// through KeepInheritanceMark.
struct HeapBlockDeleter {
  void operator()(void* block) const;
};
using SecurityBlock = std::unique_ptr<void, HeapBlockDeleter>;
using SavedSecurityMap = std::map<std::u16string, SecurityBlock>;

// Has Windows keep the marks of automatically inherited lists in the self-relative descriptor that is to be written
// (without being asked, it drops it, and the entries would no longer follow the folder above). The block is that of a
// whole descriptor.
void KeepInheritanceMark(void* descriptor);

int SaveSecurityInfo(const std::u16string& path, SecurityBlock& block);
int WriteSecurityInfo(const std::u16string& path, const SecurityBlock& block);
// Writes every saved descriptor back, once, and after two seconds once more: to its path or, when the tree has moved
// from `source` to `target` since (each with or without "\\?\"), to its path there, or to the old one where it did not
// move. An item that has vanished, from both places, is no failure: somebody deleted it meanwhile, and nothing is open
// any more. 0 when one was left without its descriptor (the log names it), or may have been: Windows does not tell
// whether it is there, or it has vanished and is not below `source`, so that nobody knows its new place.
int RestoreRemovedSecurityInfo(const SavedSecurityMap& saved, const char16_t* source = nullptr,
                               const char16_t* target = nullptr);
