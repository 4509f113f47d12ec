// CreateFileW, and what all functions on file handles begin with.
#include <typeinfo>
#include <utility>

#include "win32/emulated/call.h"
#include "win32/emulated/files/file_service.h"
#include "win32/emulated/files/null_device.h"
#include "win32/emulated/files/paths.h"
#include "win32/emulated/security/descriptor.h"
#include "win32/emulated/system/pipes.h"
#include "win32/file.h"

namespace emulated {

using win32::DWORD;

std::shared_ptr<FileObject> FileOf(win32::HANDLE handle) {
  Machine& machine = Machine::Current();
  std::shared_ptr<Object> object = machine.objects.Find(handle, machine.process.id);
  // No class stands below this one, so there is none to be looked for.
  if (object && typeid(*object) == typeid(FileObject)) return std::static_pointer_cast<FileObject>(std::move(object));
  SetLastError(win32::ERROR_INVALID_HANDLE);
  return nullptr;
}

DWORD CreatorDescriptor(const win32::SECURITY_ATTRIBUTES* attributes, std::optional<Bytes>& descriptor) {
  descriptor.reset();
  if (!attributes || !attributes->lpSecurityDescriptor) return 0;
  if (attributes->nLength < sizeof(win32::SECURITY_ATTRIBUTES)) return win32::ERROR_INVALID_PARAMETER;
  Bytes bytes = SelfRelative(attributes->lpSecurityDescriptor);
  if (bytes.empty()) return win32::ERROR_INVALID_SECURITY_DESCR;
  descriptor = std::move(bytes);
  return 0;
}

win32::FILETIME ToFileTime(FileTime time) {
  const auto bits = static_cast<std::uint64_t>(time);
  return {static_cast<DWORD>(bits & 0xFFFFFFFF), static_cast<DWORD>(bits >> 32)};
}

FileTime FromFileTime(const win32::FILETIME& time) {
  return static_cast<FileTime>((static_cast<std::uint64_t>(time.dwHighDateTime) << 32) | time.dwLowDateTime);
}

}  // namespace emulated

namespace win32 {

HANDLE CreateFileW(const char16_t* lpFileName, DWORD dwDesiredAccess, DWORD dwShareMode,
                   SECURITY_ATTRIBUTES* lpSecurityAttributes, DWORD dwCreationDisposition, DWORD dwFlagsAndAttributes,
                   HANDLE hTemplateFile) {
  WIN32_CALL(lpFileName, dwDesiredAccess, dwShareMode, dwCreationDisposition, dwFlagsAndAttributes);
  if (call.Refused()) return INVALID_HANDLE_VALUE;
  const auto fail = [&](DWORD error) {
    emulated::SetLastError(error);
    return call.Return(INVALID_HANDLE_VALUE);
  };
  if (!lpFileName) return fail(ERROR_PATH_NOT_FOUND);
  if (hTemplateFile)
    return fail(ERROR_NOT_SUPPORTED);  // attributes taken over from another file: nothing here asks for it
  if (dwCreationDisposition < CREATE_NEW || dwCreationDisposition > TRUNCATE_EXISTING)
    return fail(ERROR_INVALID_PARAMETER);
  if (dwCreationDisposition == TRUNCATE_EXISTING && !(dwDesiredAccess & GENERIC_WRITE))
    return fail(ERROR_INVALID_PARAMETER);
  if (dwShareMode & ~emulated::kAnyShare) return fail(ERROR_INVALID_PARAMETER);
  std::optional<emulated::Bytes> creator;
  if (const DWORD error = emulated::CreatorDescriptor(lpSecurityAttributes, creator)) return fail(error);

  const std::u16string_view path = lpFileName;
  if (std::u16string_view pipe; emulated::NamedPipes::IsPipePath(path, pipe)) {
    std::shared_ptr<emulated::Object> client;
    ACCESS_MASK granted = 0;
    const DWORD error = emulated::Machine::Current().pipes().Open(pipe, dwDesiredAccess, dwCreationDisposition,
                                                                  dwFlagsAndAttributes, client, granted);
    if (error) return fail(error);
    emulated::SetLastError(ERROR_SUCCESS);
    return call.Return(emulated::NewHandle(std::move(client), granted));
  }
  emulated::DosDevice device{};
  if (const DWORD error = emulated::Machine::Current().files().FindDevice(path, device)) return fail(error);
  if (device == emulated::DosDevice::Null) {
    emulated::SetLastError(ERROR_SUCCESS);
    return call.Return(emulated::NewHandle(std::make_shared<emulated::NullDevice>(), dwDesiredAccess));
  }

  constexpr DWORD kAttributes = 0xFFFF;
  emulated::OpenRequest request;
  request.path = path;
  request.access = dwDesiredAccess | SYNCHRONIZE | FILE_READ_ATTRIBUTES;
  request.share = dwShareMode;
  request.disposition = dwCreationDisposition;
  request.flags = dwFlagsAndAttributes & ~kAttributes;
  request.attributes = dwFlagsAndAttributes & kAttributes;
  if (creator) request.descriptor = *creator;

  std::shared_ptr<emulated::FileObject> object;
  bool existed = false;
  if (const DWORD error = emulated::Machine::Current().files().Open(request, object, &existed)) return fail(error);
  const bool tells = existed && (dwCreationDisposition == CREATE_ALWAYS || dwCreationDisposition == OPEN_ALWAYS);
  emulated::SetLastError(tells ? ERROR_ALREADY_EXISTS : ERROR_SUCCESS);
  const DWORD granted = object->granted;
  return call.Return(emulated::NewHandle(std::move(object), granted));
}

}  // namespace win32
