// Named pipes of the machine, which scripted processes serve; the program is their client, and only writes.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "win32/emulated/machine.h"

namespace emulated {

// The serving end of a pipe, as a script drives it. Each member may be changed while the machine runs.
struct PipeServer {
  // An open that finds an instance free asks this first: 0 goes on, anything else is what the open fails with
  // (ERROR_PIPE_BUSY: somebody else was faster).
  std::function<win32::DWORD()> onOpen;
  // WaitNamedPipeW asks this first: 0 or an error is its answer at once; nothing lets it wait for a free instance.
  std::function<std::optional<win32::DWORD>(win32::DWORD milliseconds)> onWait;
  // A record from the client, as one WriteFile gave it: 0, or the error of that WriteFile.
  std::function<win32::DWORD(ByteView record)> onWrite;
  // The client has closed its end.
  std::function<void()> onClose;
  unsigned instances = 1;  // that wait for clients, those with one included
  FileTime busyUntil = 0;  // until then another client has every instance
  bool closed = false;     // the serving process has closed its end, or has ended

  unsigned clients = 0;         // of ours
  bool mayImpersonate = false;  // the last one to open it let the server act in its name
  bool HasFreeInstance(FileTime now) const { return clients < instances && now >= busyUntil; }
};

class NamedPipes {
 public:
  explicit NamedPipes(Machine& machine) : machine_(machine) {}

  // A process serves "\\.\pipe\NAME" from now on, instead of whoever did so far.
  std::shared_ptr<PipeServer> Serve(std::u16string_view name);
  // The server closes the pipe: nobody finds it any more, and a client that is connected cannot write any more.
  void Close(std::u16string_view name);
  std::shared_ptr<PipeServer> Find(std::u16string_view name) const;  // null when there is no such pipe

  // Is this the path of a pipe ("\\.\pipe\NAME", "\\?\pipe\NAME", in any case)? Then `name` is what follows.
  static bool IsPipePath(std::u16string_view path, std::u16string_view& name);
  // A client opens the pipe. 0 and its end; 2 without such a pipe, 5 for any access but writing, 87, 231 when no
  // instance is free, or what the script says. flags: SECURITY_SQOS_PRESENT and what comes with it.
  win32::DWORD Open(std::u16string_view name, win32::DWORD access, win32::DWORD disposition, win32::DWORD flags,
                    std::shared_ptr<Object>& client, win32::ACCESS_MASK& granted);
  // WaitNamedPipeW: 0, 2, 121, or what the script says. The clock moves on while it waits.
  win32::DWORD WaitForInstance(Call& call, std::u16string_view name, win32::DWORD milliseconds);

 private:
  Machine& machine_;
  std::map<std::u16string, std::shared_ptr<PipeServer>> servers_;  // by lower-case name
};

// The client's end.
class PipeClient : public OpenedFile {
 public:
  PipeClient(std::shared_ptr<PipeServer> server, std::u16string_view name, win32::ACCESS_MASK granted);
  std::u16string Device() const override { return u"\\Device\\NamedPipe"; }
  std::u16string NameOnDevice() const override { return u"\\" + name_; }
  void Closed() override;
  // 0; 5 without the right; 232 when the server has closed its end; or what the script says.
  win32::DWORD Write(ByteView record);

 private:
  std::shared_ptr<PipeServer> server_;
  std::u16string name_;
  win32::ACCESS_MASK granted_;
};

}  // namespace emulated
