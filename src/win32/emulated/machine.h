// The emulated workstation: its disks, its registry, its services and the one process that runs on it.
//
// Windows' functions (win32::...) act on Machine::Current(). What Windows keeps on disk is on the machine's NTFS images
// and in the hives on them; what exists only while a machine runs is in the members here, and tests script it.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "win32/emulated/bytes.h"
#include "win32/emulated/call.h"
#include "win32/emulated/object.h"
#include "win32/emulated/security/token.h"
#include "win32/emulated/storage/block_device.h"
#include "win32/emulated/storage/volume.h"
#include "win32/emulated/system/control_events.h"
#include "win32/types.h"

namespace emulated {

class FileService;     // files/file_service.h
class NamedPipes;      // system/pipes.h
class Registry;        // registry/registry.h
class ServiceManager;  // registry/services.h
class Threads;         // system/threads.h

// One volume of the machine, as the mount manager and the I/O manager name it.
struct MountedVolume {
  std::u16string guidName;    // u"\\\\?\\Volume{...}\\" with its trailing backslash
  std::u16string device;      // u"\\Device\\HarddiskVolume1"
  char16_t letter = 0;        // u'C'; 0 without one
  win32::UINT driveType = 3;  // DRIVE_FIXED
  std::u16string fileSystem = u"NTFS";
  std::unique_ptr<Volume> volume;     // null for a volume that is only known by name (remote, optical, FAT, ...)
  BlockDevice* deviceData = nullptr;  // what `volume` lies on
  std::string image;                  // the image's file name in a workstation folder; empty in memory
  Bytes identity;                     // what MountedDevices knows it by
  bool frozen = false;
};

// A process of the machine: ours (the program) or a scripted one that holds files open (system/processes.h).
struct Process {
  win32::DWORD id = 0;
  std::u16string image;  // u"QBC.exe"
  std::shared_ptr<Token> token;
  bool isProtected = false;  // nobody may open it
};

// A user account of the domain that the machine is in (or of one that it trusts), as a domain controller tells it. The
// machine's own accounts are in its SAM hive (security/accounts.h).
struct DomainAccount {
  std::u16string domain, dnsDomain;  // u"CORP", u"corp.example"
  std::u16string name;
  Sid sid;
};

// The program's own module: where it lies and what its resources are.
struct ModuleImage {
  std::u16string path = u"C:\\Program Files\\Program\\program.exe";
  struct Resource {
    std::u16string type, name;  // a number n is written u"#n"
    win32::WORD language = 0;
    ByteView data;  // outlives the machine
  };
  std::vector<Resource> resources;
};

class Machine {
 public:
  // A machine without disks; Attach and Boot make it run. The newest machine is the current one.
  Machine();
  ~Machine();
  Machine(const Machine&) = delete;
  Machine& operator=(const Machine&) = delete;
  static Machine& Current();

  // Adds a volume on `device` (taken over). 0 or the error of Volume::Mount.
  win32::DWORD Attach(std::unique_ptr<BlockDevice> device, const std::string& image, MountedVolume** added = nullptr);
  win32::DWORD Attach(BlockDevice& device, const std::string& image, MountedVolume** added = nullptr);
  // Starts Windows: the system volume is the one whose image is C.ntfs; drive letters come from its
  // SYSTEM\MountedDevices (a volume new to it gets the letter of its image name, or none); hives are loaded, services
  // of automatic start run, delayed renames are carried out. False and one clear line in `error` when it cannot.
  bool Boot(std::string& error);
  // Which volumes make short names from now on, by NtfsDisable8dot3NameCreation: 0 all, 1 none, 2 those that allow it
  // themselves, 3 the system volume. Part of Boot; where the registry does not say it, none does.
  void MakeShortNames(win32::DWORD disable8dot3NameCreation);
  // Writes hives and held-back file-system data down to the devices; the machine goes on running. False: `error`.
  bool Flush(std::string& error);
  // The disks as they stand now (flushed), by image name; only for machines on MemoryDevices.
  std::map<std::string, std::unique_ptr<MemoryDevice>> Snapshot();

  Gate gate;
  ObjectTable objects;
  std::recursive_mutex lock;  // held by every call while it runs

  std::vector<std::unique_ptr<MountedVolume>> volumes;
  MountedVolume* FindByLetter(char16_t letter);             // any case
  MountedVolume* FindByGuidName(std::u16string_view name);  // with or without the trailing backslash, any case
  MountedVolume* SystemVolume();

  FileService& files() { return *files_; }
  NamedPipes& pipes() { return *pipes_; }
  Registry& registry() { return *registry_; }
  ServiceManager& services() { return *services_; }
  Threads& threads() { return *threads_; }

  // The process that the calls come from, and the others.
  Process process;
  std::vector<Process> others;
  // Called after each query for the table of all handles: scripted processes open, close and end behind it.
  std::function<void()> onHandleTableRead;
  std::shared_ptr<Token> threadToken;  // of the running thread, while it impersonates
  // The token that decides: the thread's when impersonating, else the process's.
  Token& EffectiveToken() { return threadToken ? *threadToken : *process.token; }
  ModuleImage module;
  std::vector<DomainAccount> domainAccounts;  // empty also while no domain controller answers

  // The wall clock, FILETIME count UTC; Sleep moves it on. Starts at the host's time unless a test sets it.
  FileTime Now() const { return now_; }
  void SetNow(FileTime now) { now_ = now; }
  void Advance(std::uint64_t milliseconds);
  // Called when the clock moves on, with the time slept: scripted machines change things while the program waits.
  std::function<void(std::uint64_t milliseconds)> onSleep;
  std::uint64_t sleptMilliseconds = 0;
  // What GetTickCount answers; without it the clock does.
  std::function<win32::DWORD()> tickCount;
  int localTimeOffsetMinutes = 0;  // local time = UTC + this

  // What the program printed (bytes of the OEM code page) and sent to the debugger. A sink, when set, sees it as it
  // comes.
  std::string console;
  std::function<void(std::string_view)> consoleSink;
  // Is the output a console's window, or was it redirected? The window has a title all the same.
  bool outputIsWindow = false;
  std::u16string consoleTitle = u"Administrator: Command Prompt";
  std::function<void(std::u16string_view)> titleSink;
  ControlEvents controls;
  std::u16string debugOutput;
  std::function<void(std::u16string_view)> debugSink;

  // Windows' version as GetVersionExW tells it, and other facts of the running system.
  win32::DWORD majorVersion = 10, minorVersion = 0, buildNumber = 19045, platformId = 2;  // VER_PLATFORM_WIN32_NT
  bool versionQueryFails = false;
  std::set<std::string> missingProcedures;  // what GetProcAddress does not find, as on an older Windows
  win32::UINT oemCodePage = 437;            // from SYSTEM\...\Nls\CodePage when booted
  win32::UINT ansiCodePage = 1252;          // the same
  // Named objects (mutexes) by name: null object for one that another process holds.
  std::map<std::u16string, std::weak_ptr<Object>> namedObjects;
  std::vector<std::shared_ptr<Object>> foreignObjects;  // keeps scripted named objects alive
  // BackupRead stops at stream borders (see the architecture document) instead of filling the buffer across them.
  bool backupReadStopsAtStreams = false;
  // While set, BackupRead brings these bytes instead of the streams of the file, and BackupWrite takes all that it is
  // given: what a damaged file system, or another version of Windows, might do.
  struct ScriptedBackup {
    Bytes read, written;
  };
  std::optional<ScriptedBackup> scriptedBackup;
  // What VirtualAlloc gave and VirtualFree has not taken back, by address.
  std::map<const void*, std::unique_ptr<void, decltype(&std::free)>> virtualMemory;

 private:
  friend class Call;
  FileTime now_;
  std::vector<std::unique_ptr<BlockDevice>> owned_;
  std::unique_ptr<FileService> files_;
  std::unique_ptr<NamedPipes> pipes_;
  std::unique_ptr<Registry> registry_;
  std::unique_ptr<ServiceManager> services_;
  std::unique_ptr<Threads> threads_;
};

// A handle value of the current process, or an object by handle.
inline win32::HANDLE NewHandle(std::shared_ptr<Object> object, win32::ACCESS_MASK granted) {
  Machine& machine = Machine::Current();
  return machine.objects.Insert(std::move(object), machine.process.id, granted);
}
template <typename T>
std::shared_ptr<T> ObjectOf(win32::HANDLE handle) {
  Machine& machine = Machine::Current();
  return machine.objects.Find<T>(handle, machine.process.id);
}

}  // namespace emulated
