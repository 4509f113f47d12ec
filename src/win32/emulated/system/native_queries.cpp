// What ntdll tells of the system's processes and handles, byte for byte as on 64-bit Windows.
#include "win32/emulated/system/native_queries.h"

#include <algorithm>
#include <iterator>
#include <string>

#include "win32/emulated/machine.h"
#include "win32/emulated/system/processes.h"
#include "win32/emulated/system/threads.h"

namespace emulated {

namespace {

using win32::BYTE, win32::DWORD, win32::HANDLE, win32::NTSTATUS, win32::ULONG, win32::WORD;
using win32::STATUS_BUFFER_OVERFLOW, win32::STATUS_INFO_LENGTH_MISMATCH, win32::STATUS_SUCCESS;
using win32::UNICODE_STRING;

constexpr NTSTATUS Status(DWORD value) { return static_cast<NTSTATUS>(value); }
constexpr NTSTATUS kUnsuccessful = Status(0xC0000001), kInvalidInfoClass = Status(0xC0000003),
                   kAccessViolation = Status(0xC0000005), kInvalidHandle = Status(0xC0000008),
                   kInvalidParameter = Status(0xC000000D), kNoMemory = Status(0xC0000017),
                   kAccessDenied = Status(0xC0000022), kBufferTooSmall = Status(0xC0000023),
                   kObjectTypeMismatch = Status(0xC0000024), kInsufficientResources = Status(0xC000009A);

// The status that a refused call ends with, for the error that it becomes in the calls above ntdll.
NTSTATUS StatusOf(DWORD error) {
  switch (error) {
    case win32::ERROR_ACCESS_DENIED:
      return kAccessDenied;
    case win32::ERROR_INVALID_HANDLE:
      return kInvalidHandle;
    case win32::ERROR_NOT_ENOUGH_MEMORY:
      return kNoMemory;
    case win32::ERROR_BAD_LENGTH:
      return STATUS_INFO_LENGTH_MISMATCH;
    case win32::ERROR_INVALID_PARAMETER:
      return kInvalidParameter;
    case win32::ERROR_INSUFFICIENT_BUFFER:
      return kBufferTooSmall;
    case win32::ERROR_MORE_DATA:
      return STATUS_BUFFER_OVERFLOW;
    case 1450:
      return kInsufficientResources;  // ERROR_NO_SYSTEM_RESOURCES
    default:
      return kUnsuccessful;
  }
}

// Only the calls above ntdll set the last error.
class KeptLastError {
 public:
  KeptLastError() = default;
  ~KeptLastError() { SetLastError(error_); }
  KeptLastError(const KeptLastError&) = delete;
  KeptLastError& operator=(const KeptLastError&) = delete;

 private:
  DWORD error_ = LastError();
};

std::size_t RoundedUp(std::size_t size) { return (size + 7) & ~std::size_t{7}; }

// Writes `name` and its end at `to`, and says at `string` where it lies.
void PutName(std::u16string_view name, BYTE* to, UNICODE_STRING& string) {
  const std::size_t bytes = name.size() * sizeof(char16_t);
  string.Length = static_cast<WORD>(bytes);
  string.MaximumLength = static_cast<WORD>(bytes + sizeof(char16_t));
  string.Buffer = reinterpret_cast<char16_t*>(to);
  std::memcpy(to, name.data(), bytes);
  std::memset(to + bytes, 0, sizeof(char16_t));
}

// The object behind a handle of ours; the two handles that every process has for itself as well.
std::shared_ptr<Object> ObjectBehind(HANDLE handle, win32::ACCESS_MASK& granted) {
  Machine& machine = Machine::Current();
  granted = 0x1FFFFF;
  if (handle == reinterpret_cast<HANDLE>(win32::LONG_PTR{-1}))
    return std::make_shared<ProcessObject>(machine.process.id);
  if (handle == reinterpret_cast<HANDLE>(win32::LONG_PTR{-2})) return machine.threads().Calling();
  const HandleEntry* const entry = machine.objects.Entry(handle, machine.process.id);
  if (!entry || ObjectTypeIndex(entry->object->TypeName()) == 0) return nullptr;
  granted = entry->granted;
  return entry->object;
}

// Names of objects are at most this long, as a UNICODE_STRING can tell no more.
constexpr std::size_t kLongestName = 0x7FFE;

std::u16string NameOf(const Object& object) {
  std::u16string name = object.NativeName();
  if (name.size() > kLongestName) name.resize(kLongestName);
  return name;
}

// A file that is busy keeps whoever asks its name.
void WaitUntilFree(Call& call, const Object& object) {
  const auto* const file = dynamic_cast<const OpenedFile*>(&object);
  const std::uint64_t delay = file ? file->NameQueryDelay() : 0;
  if (delay == 0) return;
  const DWORD milliseconds = delay < win32::INFINITE ? static_cast<DWORD>(delay) : win32::INFINITE;
  Machine::Current().threads().Wait(
      call, [] { return false; }, milliseconds);
}

struct ListedProcess {
  DWORD id = 0;
  std::u16string image;
};

// The idle process, which has no name, the system's, ours and the scripted ones.
std::vector<ListedProcess> RunningProcesses(const Machine& machine) {
  constexpr DWORD kSystem = 4;
  std::vector<ListedProcess> processes{{0, u""}};
  if (!FindProcess(machine, kSystem)) processes.push_back({kSystem, u"System"});
  processes.push_back({machine.process.id, machine.process.image});
  for (const Process& other : machine.others) processes.push_back({other.id, other.image});
  return processes;
}

constexpr std::size_t kThreadRecord = 80;  // SYSTEM_THREAD_INFORMATION

// Each record is followed by that of one thread and by the name.
std::size_t RecordSize(const ListedProcess& process) {
  const std::size_t name = process.image.empty() ? 0 : (process.image.size() + 1) * sizeof(char16_t);
  return RoundedUp(sizeof(win32::SYSTEM_PROCESS_INFORMATION) + kThreadRecord + name);
}

NTSTATUS QueryProcesses(BYTE* buffer, ULONG length, ULONG& needed) {
  const Machine& machine = Machine::Current();
  const std::vector<ListedProcess> processes = RunningProcesses(machine);
  std::size_t size = 0;
  for (const ListedProcess& process : processes) size += RecordSize(process);
  needed = static_cast<ULONG>(size);
  if (length < size) return STATUS_INFO_LENGTH_MISMATCH;
  if (!buffer) return kAccessViolation;
  std::memset(buffer, 0, size);
  for (const ListedProcess& process : processes) {
    const std::size_t recordSize = RecordSize(process);
    auto& record = *reinterpret_cast<win32::SYSTEM_PROCESS_INFORMATION*>(buffer);
    record.NextEntryOffset = &process == &processes.back() ? 0 : static_cast<DWORD>(recordSize);
    record.NumberOfThreads = 1;
    if (!process.image.empty()) PutName(process.image, buffer + sizeof record + kThreadRecord, record.ImageName);
    record.BasePriority = 8;
    record.UniqueProcessId = reinterpret_cast<HANDLE>(static_cast<std::uintptr_t>(process.id));
    for (const auto& [value, entry] : machine.objects.all())
      if (entry.processId == process.id && ObjectTypeIndex(entry.object->TypeName()) != 0) ++record.HandleCount;
    buffer += recordSize;
  }
  return STATUS_SUCCESS;
}

NTSTATUS QueryHandles(BYTE* buffer, ULONG length, ULONG& needed) {
  std::vector<win32::SYSTEM_HANDLE_TABLE_ENTRY_INFO> records;
  for (const auto& [value, entry] : Machine::Current().objects.all()) {
    const BYTE type = ObjectTypeIndex(entry.object->TypeName());
    if (type == 0) continue;
    // Objects lie in the system's half of the address space.
    const auto address = reinterpret_cast<std::uintptr_t>(entry.object.get()) | 0xFFFF800000000000;
    records.push_back({.UniqueProcessId = static_cast<WORD>(entry.processId),
                       .CreatorBackTraceIndex = 0,
                       .ObjectTypeIndex = type,
                       .HandleAttributes = 0,
                       .HandleValue = static_cast<WORD>(value),
                       .Object = reinterpret_cast<void*>(address),
                       .GrantedAccess = entry.granted});
  }
  constexpr std::size_t kHeader = offsetof(win32::SYSTEM_HANDLE_INFORMATION, Handles);
  const std::size_t size = kHeader + records.size() * sizeof records.front();
  needed = static_cast<ULONG>(size);
  if (length < std::max(size, sizeof(win32::SYSTEM_HANDLE_INFORMATION))) return STATUS_INFO_LENGTH_MISMATCH;
  if (!buffer) return kAccessViolation;
  const auto count = static_cast<ULONG>(records.size());
  std::memset(buffer, 0, kHeader);
  std::memcpy(buffer, &count, sizeof count);
  if (!records.empty()) std::memcpy(buffer + kHeader, records.data(), size - kHeader);
  return STATUS_SUCCESS;
}

// The size that is reported has no room for an end where there is no name.
NTSTATUS QueryName(const Object& object, BYTE* buffer, ULONG length, ULONG& needed) {
  const std::u16string name = NameOf(object);
  needed = static_cast<ULONG>(sizeof(UNICODE_STRING) + (name.empty() ? 0 : (name.size() + 1) * sizeof(char16_t)));
  if (length < sizeof(UNICODE_STRING)) return STATUS_INFO_LENGTH_MISMATCH;
  if (!buffer) return kAccessViolation;
  if (length < needed)
    return dynamic_cast<const OpenedFile*>(&object) ? STATUS_BUFFER_OVERFLOW : STATUS_INFO_LENGTH_MISMATCH;
  UNICODE_STRING string{};
  if (!name.empty()) PutName(name, buffer + sizeof string, string);
  std::memcpy(buffer, &string, sizeof string);
  return STATUS_SUCCESS;
}

NTSTATUS QueryType(const Object& object, BYTE* buffer, ULONG length, ULONG& needed) {
  constexpr std::size_t kTypeRecord = 104;        // OBJECT_TYPE_INFORMATION
  constexpr std::size_t kTypeIndexOffset = 0x5A;  // TypeIndex in it
  const std::u16string_view name = object.TypeName();
  const std::size_t size = RoundedUp(kTypeRecord + (name.size() + 1) * sizeof(char16_t));
  needed = static_cast<ULONG>(size);
  if (length < size) return STATUS_INFO_LENGTH_MISMATCH;
  if (!buffer) return kAccessViolation;
  std::memset(buffer, 0, size);
  UNICODE_STRING string{};
  PutName(name, buffer + kTypeRecord, string);
  std::memcpy(buffer, &string, sizeof string);
  buffer[kTypeIndexOffset] = ObjectTypeIndex(name);
  return STATUS_SUCCESS;
}

}  // namespace

BYTE ObjectTypeIndex(std::u16string_view typeName) {
  struct {
    std::u16string_view name;
    BYTE index;
  } static constexpr kTypes[] = {
      {u"Directory", 3}, {u"SymbolicLink", 4},   {u"Token", 5},   {u"Job", 6},           {u"Process", 7},
      {u"Thread", 8},    {u"Event", 16},         {u"Mutant", 17}, {u"Semaphore", 19},    {u"Timer", 20},
      {u"Desktop", 25},  {u"WindowStation", 24}, {u"File", 37},   {u"IoCompletion", 35}, {u"Section", 42},
      {u"Key", 44},      {u"ALPC Port", 46},
  };
  for (const auto& type : kTypes)
    if (type.name == typeName) return type.index;
  return 0;
}

NTSTATUS NtQuerySystemInformation(int SystemInformationClass, void* SystemInformation, ULONG SystemInformationLength,
                                  ULONG* ReturnLength) {
  const KeptLastError kept;
  WIN32_CALL(SystemInformationClass, SystemInformationLength);
  if (call.Refused()) return StatusOf(call.error());
  const bool handles = SystemInformationClass == win32::SystemHandleInformationClass;
  if (!handles && SystemInformationClass != win32::SystemProcessInformationClass) return call.Return(kInvalidInfoClass);
  ULONG needed = 0;
  auto* const buffer = static_cast<BYTE*>(SystemInformation);
  const NTSTATUS status = handles ? QueryHandles(buffer, SystemInformationLength, needed)
                                  : QueryProcesses(buffer, SystemInformationLength, needed);
  if (ReturnLength) *ReturnLength = needed;
  if (const auto script = Machine::Current().onHandleTableRead; handles && script) script();
  return call.Return(status);
}

NTSTATUS NtQueryObject(HANDLE Handle, int ObjectInformationClass, void* ObjectInformation,
                       ULONG ObjectInformationLength, ULONG* ReturnLength) {
  const KeptLastError kept;
  WIN32_CALL(Handle, ObjectInformationClass, ObjectInformationLength);
  if (call.Refused()) return StatusOf(call.error());
  const bool name = ObjectInformationClass == win32::ObjectNameInformation;
  if (!name && ObjectInformationClass != win32::ObjectTypeInformation) return call.Return(kInvalidInfoClass);
  win32::ACCESS_MASK granted = 0;
  const auto object = ObjectBehind(Handle, granted);
  if (!object) return call.Return(kInvalidHandle);
  if (name) WaitUntilFree(call, *object);
  ULONG needed = 0;
  auto* const buffer = static_cast<BYTE*>(ObjectInformation);
  const NTSTATUS status = name ? QueryName(*object, buffer, ObjectInformationLength, needed)
                               : QueryType(*object, buffer, ObjectInformationLength, needed);
  if (ReturnLength) *ReturnLength = needed;
  return call.Return(status);
}

NTSTATUS NtQueryInformationFile(HANDLE FileHandle, win32::IO_STATUS_BLOCK* IoStatusBlock, void* FileInformation,
                                ULONG Length, int FileInformationClass) {
  const KeptLastError kept;
  WIN32_CALL(FileHandle, Length, FileInformationClass);
  if (call.Refused()) return StatusOf(call.error());
  if (FileInformationClass != win32::FileNameInformation) return call.Return(kInvalidInfoClass);
  if (Length < sizeof(win32::FILE_NAME_INFORMATION)) return call.Return(STATUS_INFO_LENGTH_MISMATCH);
  win32::ACCESS_MASK granted = 0;
  const auto object = ObjectBehind(FileHandle, granted);
  if (!object) return call.Return(kInvalidHandle);
  const auto* const file = dynamic_cast<const OpenedFile*>(object.get());
  if (!file) return call.Return(kObjectTypeMismatch);
  if (!FileInformation || !IoStatusBlock) return call.Return(kAccessViolation);
  WaitUntilFree(call, *object);
  // As much of the name as there is room for, and the length of all of it.
  const std::u16string name = file->NameOnDevice();
  const auto bytes = static_cast<ULONG>(name.size() * sizeof(char16_t));
  constexpr ULONG kHeader = offsetof(win32::FILE_NAME_INFORMATION, FileName);
  const ULONG copied = std::min(bytes, (Length - kHeader) / 2 * 2);
  std::memcpy(FileInformation, &bytes, sizeof bytes);
  std::memcpy(static_cast<BYTE*>(FileInformation) + kHeader, name.data(), copied);
  IoStatusBlock->Status = copied < bytes ? STATUS_BUFFER_OVERFLOW : STATUS_SUCCESS;
  IoStatusBlock->Information = kHeader + copied;
  return call.Return(IoStatusBlock->Status);
}

NTSTATUS NtQueryInformationProcess(HANDLE ProcessHandle, int ProcessInformationClass, void* ProcessInformation,
                                   ULONG ProcessInformationLength, ULONG* ReturnLength) {
  const KeptLastError kept;
  WIN32_CALL(ProcessHandle, ProcessInformationClass, ProcessInformationLength);
  if (call.Refused()) return StatusOf(call.error());
  if (ProcessInformationClass != win32::ProcessBasicInformation) return call.Return(kInvalidInfoClass);
  win32::PROCESS_BASIC_INFORMATION information{};
  if (ProcessInformationLength != sizeof information) return call.Return(STATUS_INFO_LENGTH_MISMATCH);
  win32::ACCESS_MASK granted = 0;
  const auto object = ObjectBehind(ProcessHandle, granted);
  if (!object) return call.Return(kInvalidHandle);
  const auto* const process = dynamic_cast<const ProcessObject*>(object.get());
  if (!process) return call.Return(kObjectTypeMismatch);
  constexpr win32::ACCESS_MASK kQueryLimited = 0x1000;
  if (!(granted & (win32::PROCESS_QUERY_INFORMATION | kQueryLimited))) return call.Return(kAccessDenied);
  if (!ProcessInformation) return call.Return(kAccessViolation);
  const bool runs = FindProcess(Machine::Current(), process->id()) != nullptr;
  information.ExitStatus = runs ? static_cast<NTSTATUS>(win32::STILL_ACTIVE) : STATUS_SUCCESS;
  information.AffinityMask = 1;
  information.BasePriority = 8;
  information.UniqueProcessId = process->id();
  std::memcpy(ProcessInformation, &information, sizeof information);
  if (ReturnLength) *ReturnLength = sizeof information;
  return call.Return(STATUS_SUCCESS);
}

NTSTATUS NtQueryInformationThread(HANDLE ThreadHandle, int ThreadInformationClass, void* ThreadInformation,
                                  ULONG ThreadInformationLength, ULONG* ReturnLength) {
  const KeptLastError kept;
  WIN32_CALL(ThreadHandle, ThreadInformationClass, ThreadInformationLength);
  if (call.Refused()) return StatusOf(call.error());
  struct {  // THREAD_BASIC_INFORMATION
    NTSTATUS ExitStatus;
    void* TebBaseAddress;
    win32::ULONG_PTR UniqueProcess, UniqueThread;
    win32::ULONG_PTR AffinityMask;
    win32::LONG Priority, BasePriority;
  } information{};
  static_assert(sizeof information == 48);
  constexpr int kThreadBasicInformation = 0;
  if (ThreadInformationClass != kThreadBasicInformation) return call.Return(kInvalidInfoClass);
  if (ThreadInformationLength != sizeof information) return call.Return(STATUS_INFO_LENGTH_MISMATCH);
  win32::ACCESS_MASK granted = 0;
  const auto object = ObjectBehind(ThreadHandle, granted);
  if (!object) return call.Return(kInvalidHandle);
  const auto* const thread = dynamic_cast<const ThreadObject*>(object.get());
  if (!thread) return call.Return(kObjectTypeMismatch);
  if (!ThreadInformation) return call.Return(kAccessViolation);
  information.ExitStatus = static_cast<NTSTATUS>(thread->exitCode);
  information.UniqueProcess = Machine::Current().process.id;
  information.UniqueThread = thread->id;
  information.AffinityMask = 1;
  std::memcpy(ThreadInformation, &information, sizeof information);
  if (ReturnLength) *ReturnLength = sizeof information;
  return call.Return(STATUS_SUCCESS);
}

}  // namespace emulated
