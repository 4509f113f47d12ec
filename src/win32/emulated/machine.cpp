#include "win32/emulated/machine.h"

#include <chrono>

#include "win32/emulated/files/file_service.h"
#include "win32/emulated/mount_manager.h"
#include "win32/emulated/registry/registry.h"
#include "win32/emulated/registry/services.h"
#include "win32/emulated/registry/system_hives.h"
#include "win32/emulated/system/pipes.h"
#include "win32/emulated/system/threads.h"
#include "win32/emulated/text.h"

namespace emulated {

namespace {

// Never destroyed: a machine that is itself a static object may outlive every other one.
std::vector<Machine*>& Machines() {
  static auto& machines = *new std::vector<Machine*>;
  return machines;
}

FileTime HostTime() {
  using Ticks = std::chrono::duration<FileTime, std::ratio<1, 10'000'000>>;
  constexpr FileTime kUnixEpoch = 116'444'736'000'000'000;  // 1970-01-01 counted from 1601-01-01
  return kUnixEpoch + std::chrono::duration_cast<Ticks>(std::chrono::system_clock::now().time_since_epoch()).count();
}

// The account that a new machine's program runs under: the built-in administrator of a made-up computer.
constexpr std::u16string_view kDefaultUser = u"S-1-5-21-1004336348-1177238915-682003330-500";

}  // namespace

Machine::Machine()
    : now_(HostTime()),
      files_(std::make_unique<FileService>(*this)),
      pipes_(std::make_unique<NamedPipes>(*this)),
      registry_(std::make_unique<Registry>(*this)),
      services_(std::make_unique<ServiceManager>(*this)),
      threads_(std::make_unique<Threads>(*this)) {
  Machines().push_back(this);
  process = {0x1A4, u"program.exe", MakeAdministratorToken(SidFromText(kDefaultUser))};
}

Machine::~Machine() {
  threads_->EndAll();
  objects.CloseAll(process.id);
  for (const Process& other : others) objects.CloseAll(other.id);
  foreignObjects.clear();
  services_.reset();
  registry_.reset();
  files_.reset();
  volumes.clear();
  std::erase(Machines(), this);
}

Machine& Machine::Current() { return *Machines().back(); }

win32::DWORD Machine::Attach(std::unique_ptr<BlockDevice> device, const std::string& image, MountedVolume** added) {
  const win32::DWORD error = Attach(*device, image, added);
  if (error == 0) owned_.push_back(std::move(device));
  return error;
}

win32::DWORD Machine::Attach(BlockDevice& device, const std::string& image, MountedVolume** added) {
  auto mounted = std::make_unique<MountedVolume>();
  if (const win32::DWORD error = Volume::Mount(device, mounted->volume)) return error;
  mounted->deviceData = &device;
  mounted->image = image;
  mounted->device = u"\\Device\\HarddiskVolume" + Utf16(std::to_string(volumes.size() + 1));
  NameFromImage(*mounted);
  volumes.push_back(std::move(mounted));
  if (added) *added = volumes.back().get();
  return 0;
}

bool Machine::Boot(std::string& error) {
  if (!SystemVolume()) {
    error = "the workstation has no system volume (C.ntfs)";
    return false;
  }
  if (!registry_->LoadSystemHives(error)) return false;
  AssignNames(*this);
  const auto read = [&](std::u16string_view key, std::u16string_view name, win32::DWORD& number) {
    const auto value = registry_->Query(key, name);
    if (value && value->type == win32::REG_DWORD && value->data.size() == 4)
      number = LoadLittleEndian<std::uint32_t>(value->data, 0);
  };
  constexpr std::u16string_view kVersion = u"HKLM\\SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion";
  read(kVersion, u"CurrentMajorVersionNumber", majorVersion);
  read(kVersion, u"CurrentMinorVersionNumber", minorVersion);
  const auto decimal = [](const std::optional<RegistryValue>& value, unsigned long otherwise) {
    unsigned long number = 0;
    if (!value) return otherwise;
    for (const char16_t unit : value->Text()) {
      if (unit < u'0' || unit > u'9' || number > 100'000'000) return otherwise;
      number = number * 10 + static_cast<unsigned long>(unit - u'0');
    }
    return number == 0 ? otherwise : number;
  };
  buildNumber = static_cast<win32::DWORD>(decimal(registry_->Query(kVersion, u"CurrentBuild"), buildNumber));
  const auto codePage = [&](std::u16string_view name, win32::UINT& number) {
    number = static_cast<win32::UINT>(
        decimal(registry_->Query(u"HKLM\\SYSTEM\\CurrentControlSet\\Control\\Nls\\CodePage", name), number));
  };
  codePage(u"OEMCP", oemCodePage);
  codePage(u"ACP", ansiCodePage);
  win32::DWORD disable8dot3NameCreation = 1;
  read(kFileSystemKey, kDisable8dot3NameCreation, disable8dot3NameCreation);
  MakeShortNames(disable8dot3NameCreation);
  files_->CarryOutDelayedRenames();
  services_->StartAutomaticServices();
  return true;
}

bool Machine::Flush(std::string& error) {
  if (!registry_->Flush(error)) return false;
  for (const auto& mounted : volumes) {
    if (!mounted->volume) continue;
    if (const win32::DWORD code = mounted->volume->Flush()) {
      error = "the volume of " + mounted->image + " could not be written (error " + std::to_string(code) + ")";
      return false;
    }
  }
  return true;
}

std::map<std::string, std::unique_ptr<MemoryDevice>> Machine::Snapshot() {
  std::map<std::string, std::unique_ptr<MemoryDevice>> images;
  std::string error;
  if (!Flush(error)) return images;
  for (const auto& mounted : volumes)
    if (const auto* const memory = dynamic_cast<const MemoryDevice*>(mounted->deviceData))
      images[mounted->image] = memory->Clone();
  return images;
}

MountedVolume* Machine::FindByLetter(char16_t letter) {
  const auto upper = [](char16_t unit) {
    return unit >= u'a' && unit <= u'z' ? static_cast<char16_t>(unit - 32) : unit;
  };
  for (const auto& mounted : volumes)
    if (mounted->letter != 0 && upper(mounted->letter) == upper(letter)) return mounted.get();
  return nullptr;
}

MountedVolume* Machine::FindByGuidName(std::u16string_view name) {
  while (!name.empty() && name.back() == u'\\') name.remove_suffix(1);
  for (const auto& mounted : volumes) {
    std::u16string_view own = mounted->guidName;
    if (!own.empty()) own.remove_suffix(1);
    if (!own.empty() && EqualAsciiNoCase(own, name)) return mounted.get();
  }
  return nullptr;
}

void Machine::MakeShortNames(win32::DWORD disable8dot3NameCreation) {
  for (const auto& mounted : volumes) {
    if (!mounted->volume) continue;
    mounted->volume->makesShortNames = disable8dot3NameCreation == 0 ||
                                       (disable8dot3NameCreation == 2 && mounted->volume->AllowsShortNames()) ||
                                       (disable8dot3NameCreation == 3 && mounted.get() == SystemVolume());
  }
}

MountedVolume* Machine::SystemVolume() {
  for (const auto& mounted : volumes)
    if (mounted->image == "C.ntfs" && mounted->volume) return mounted.get();
  return nullptr;
}

void Machine::Advance(std::uint64_t milliseconds) {
  now_ += static_cast<FileTime>(milliseconds) * 10'000;
  sleptMilliseconds += milliseconds;
  if (onSleep) onSleep(milliseconds);
}

}  // namespace emulated
