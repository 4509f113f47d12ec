// Times the examination of C:\Tree of a workstation folder (see make_tree), in seconds on one line:
//
//   prescan share WORKSTATION    the command that moves C:\Tree to D:\Kept, and what of it comes before its first
//   change prescan locks WORKSTATION    the listing, the scan with no path known to be locked, and with 1,000
//   prescan scan WORKSTATION     the scan as the command makes it, listing and locked files included
//   prescan handles WORKSTATION  the walk over 200,000 handles that another process has, a tenth of them of files
//
// `share` changes the workstation. To be run on a fresh copy each time, so that nothing is in a cache.

#include <chrono>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>

#include "cli/main.h"
#include "probes/locked_handles.h"
#include "probes/privileges.h"
#include "report/log.h"
#include "resources/program_resources.h"
#include "validate/prescan.h"
#include "win32/emulated/system/processes.h"
#include "win32/emulated/text.h"
#include "win32/emulated/workstation.h"

namespace {

using Clock = std::chrono::steady_clock;

double Seconds(Clock::time_point from, Clock::time_point to) {
  return std::chrono::duration<double>(to - from).count();
}

int Fail(const std::string& error) {
  std::fprintf(stderr, "prescan: %s\n", error.c_str());
  return 1;
}

// The target folder is made when all rules have passed.
int Share(emulated::Workstation& station) {
  emulated::Machine& machine = station.machine();
  for (const ProgramResource& resource : ProgramResources())
    machine.module.resources.push_back(
        {resource.type, resource.name, resource.language, {resource.data, resource.size}});
  Clock::time_point firstChange{};
  machine.gate.Observe([&](const char* name, std::uint64_t) {
    if (firstChange == Clock::time_point{} && std::strcmp(name, "SHCreateDirectoryExW") == 0)
      firstChange = Clock::now();
  });
  const char16_t* const command[] = {u"QBC", u"/RedirectFolder", u"C:\\Tree", u"/loc:D:\\Kept"};
  const auto start = Clock::now();
  const int result = QuillbayMain(4, command);
  std::string error;
  if (!station.Save(error)) return Fail(error);
  const auto end = Clock::now();
  machine.gate.Observe({});
  if (result != 0) return Fail("the command has failed");
  std::printf("%.3f %.3f\n", Seconds(start, end), Seconds(start, firstChange));
  return 0;
}

// Paths beside the tree's own: each is compared, none is found.
LockedPaths FullList() {
  LockedPaths locked;
  for (; locked.count < LockedPaths::kCapacity; ++locked.count) {
    const std::u16string path = emulated::Utf16("C:\\Tree\\folder1\\other" + std::to_string(locked.count) + ".dat");
    path.copy(locked.paths.get() + std::ptrdiff_t{locked.count} * LockedPaths::kPathCharacters, path.size());
  }
  return locked;
}

int Locks() {
  const LogFile log;
  EnablePrivileges();
  const LockedPaths none, full = FullList();
  TreeListing listing;
  const auto start = Clock::now();
  if (!GetFileList(u"C:\\Tree", listing)) return Fail("C:\\Tree cannot be listed");
  const auto listed = Clock::now();
  bool passed = PreScanListing(listing, &none, false) != 0;  // fills the caches
  const auto warm = Clock::now();
  passed = PreScanListing(listing, &none, false) && passed;
  const auto alone = Clock::now();
  passed = PreScanListing(listing, &full, false) && passed;
  const auto against = Clock::now();
  if (!passed) return Fail("the scan has failed");
  std::printf("%.3f %.3f %.3f\n", Seconds(start, listed), Seconds(warm, alone), Seconds(alone, against));
  return 0;
}

int Whole() {
  const LogFile log;
  EnablePrivileges();
  const auto start = Clock::now();
  const bool passed = PreScanSource(u"C:\\Tree", u"D:\\Kept", {.checkLocks = true}) != 0;
  const auto end = Clock::now();
  if (!passed) return Fail("the scan has failed");
  std::printf("%.3f\n", Seconds(start, end));
  return 0;
}

// The virtual seconds, too.
int Handles(emulated::Machine& machine) {
  constexpr int kHandles = 200'000, kFiles = 10, kOther = 4242;
  for (int handle = 0; handle < kHandles; ++handle)
    emulated::OpenInProcess(machine, kOther,
                            handle % kFiles == 0
                                ? std::shared_ptr<emulated::Object>(std::make_shared<emulated::DeviceFile>(
                                      emulated::Utf16("\\Device\\HarddiskVolume1\\Other\\" + std::to_string(handle))))
                                : std::make_shared<emulated::NamedObject>(u"Event", u""),
                            win32::FILE_GENERIC_READ);
  LockedPaths locked;
  const auto virtualStart = machine.Now();
  const auto start = Clock::now();
  GetLockedFilesAndFoldersList(u"C:\\Tree", nullptr, locked);
  std::printf("%.3f %.3f\n", Seconds(start, Clock::now()), static_cast<double>(machine.Now() - virtualStart) / 1e7);
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  const std::string mode = argc == 3 ? argv[1] : "";
  if (mode != "share" && mode != "locks" && mode != "scan" && mode != "handles")
    return Fail("usage: prescan share|locks|scan|handles WORKSTATION");
  std::string error;
  const auto station = emulated::Workstation::Open(argv[2], error);
  if (!station) return Fail(error);
  if (mode == "scan") return Whole();
  if (mode == "handles") return Handles(station->machine());
  return mode == "share" ? Share(*station) : Locks();
}
