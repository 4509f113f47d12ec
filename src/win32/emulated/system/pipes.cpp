// Pipes and their scripted servers, and WaitNamedPipeW of win32/file.h.
#include "win32/emulated/system/pipes.h"

#include <algorithm>

#include "win32/emulated/registry/services.h"
#include "win32/emulated/security/access.h"
#include "win32/emulated/system/threads.h"
#include "win32/emulated/text.h"
#include "win32/file.h"

namespace emulated {

using win32::DWORD;

namespace {

constexpr FileTime kPerMillisecond = 10'000;
// WaitNamedPipeW's two special times, and the server's default that the first of them stands for.
constexpr DWORD kUseDefaultWait = 0, kWaitForever = 0xFFFFFFFF, kDefaultWait = 50;
constexpr FileTime kLookAgain = 1000;  // milliseconds after which a waiting client looks what a script has changed

}  // namespace

std::shared_ptr<PipeServer> NamedPipes::Serve(std::u16string_view name) {
  Close(name);
  return servers_[LowerAscii(name)] = std::make_shared<PipeServer>();
}

void NamedPipes::Close(std::u16string_view name) {
  const auto found = servers_.find(LowerAscii(name));
  if (found == servers_.end()) return;
  found->second->closed = true;
  servers_.erase(found);
}

std::shared_ptr<PipeServer> NamedPipes::Find(std::u16string_view name) const {
  machine_.services().Settle();  // a service that has come up by now has opened its pipe
  const auto found = servers_.find(LowerAscii(name));
  return found == servers_.end() ? nullptr : found->second;
}

bool NamedPipes::IsPipePath(std::u16string_view path, std::u16string_view& name) {
  for (const std::u16string_view prefix : {u"\\\\.\\pipe\\", u"\\\\?\\pipe\\"}) {
    if (!StartsWithAsciiNoCase(path, prefix)) continue;
    name = path.substr(prefix.size());
    return true;
  }
  return false;
}

DWORD NamedPipes::Open(std::u16string_view name, DWORD access, DWORD disposition, DWORD flags,
                       std::shared_ptr<Object>& client, win32::ACCESS_MASK& granted) {
  const std::shared_ptr<PipeServer> server = Find(name);
  if (!server) return win32::ERROR_FILE_NOT_FOUND;
  if (disposition != win32::OPEN_EXISTING && disposition != win32::OPEN_ALWAYS) return win32::ERROR_INVALID_PARAMETER;
  granted = MapGeneric(access & ~win32::MAXIMUM_ALLOWED, kFileMapping);
  if (granted & win32::FILE_READ_DATA) return win32::ERROR_ACCESS_DENIED;  // the server only listens
  if (!server->HasFreeInstance(machine_.Now())) return win32::ERROR_PIPE_BUSY;
  if (server->onOpen)
    if (const DWORD error = server->onOpen()) return error;
  // What a client does not say is SecurityImpersonation.
  constexpr DWORD kLevels = 0x30000;
  server->mayImpersonate =
      (flags & win32::SECURITY_SQOS_PRESENT) == 0 || (flags & kLevels) > win32::SECURITY_IDENTIFICATION;
  client = std::make_shared<PipeClient>(server, name, granted);
  return 0;
}

DWORD NamedPipes::WaitForInstance(Call& call, std::u16string_view name, DWORD milliseconds) {
  if (const auto server = Find(name); server && server->onWait)
    if (const std::optional<DWORD> answer = server->onWait(milliseconds)) return *answer;
  if (milliseconds == kUseDefaultWait) milliseconds = kDefaultWait;
  FileTime left = milliseconds;
  for (;;) {
    const std::shared_ptr<PipeServer> server = Find(name);
    if (!server) return win32::ERROR_FILE_NOT_FOUND;
    if (server->HasFreeInstance(machine_.Now())) return 0;
    if (left <= 0) return win32::ERROR_SEM_TIMEOUT;
    const FileTime toFree = (server->busyUntil - machine_.Now() + kPerMillisecond - 1) / kPerMillisecond;
    const FileTime step = std::min({left, kLookAgain, toFree > 0 ? toFree : kLookAgain});
    machine_.threads().Wait(
        call, [] { return false; }, static_cast<DWORD>(step));
    if (milliseconds != kWaitForever) left -= step;
  }
}

PipeClient::PipeClient(std::shared_ptr<PipeServer> server, std::u16string_view name, win32::ACCESS_MASK granted)
    : server_(std::move(server)), name_(name), granted_(granted) {
  ++server_->clients;
}

void PipeClient::Closed() {
  --server_->clients;
  if (!server_->closed && server_->onClose) server_->onClose();
}

DWORD PipeClient::Write(ByteView record) {
  if (!(granted_ & win32::FILE_WRITE_DATA)) return win32::ERROR_ACCESS_DENIED;
  if (server_->closed) return win32::ERROR_NO_DATA;
  return server_->onWrite ? server_->onWrite(record) : 0;
}

}  // namespace emulated

namespace win32 {

BOOL WaitNamedPipeW(const char16_t* lpNamedPipeName, DWORD nTimeOut) {
  WIN32_CALL(lpNamedPipeName, nTimeOut);
  if (call.Refused()) return FALSE;
  std::u16string_view name;
  if (!lpNamedPipeName || !emulated::NamedPipes::IsPipePath(lpNamedPipeName, name))
    return call.Done(ERROR_PATH_NOT_FOUND);
  return call.Done(emulated::Machine::Current().pipes().WaitForInstance(call, name, nTimeOut));
}

}  // namespace win32
