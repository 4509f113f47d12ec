// create, info, freeze, thaw, restart, logon.

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <random>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include "win32/emulated/registry/registry.h"
#include "win32/emulated/text.h"
#include "workstation/command.h"
#include "workstation/installation.h"
#include "workstation/product.h"
#include "workstation/staging.h"

namespace workstation {

namespace fs = std::filesystem;
using emulated::Utf16;
using emulated::Utf8;

namespace {

void RunTool(std::vector<std::string> words) {
  std::vector<char*> argv;
  for (std::string& word : words) argv.push_back(word.data());
  argv.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
  pid_t child = 0;
  int status = 0;
  const bool ran = posix_spawnp(&child, argv[0], &actions, nullptr, argv.data(), environ) == 0 &&
                   waitpid(child, &status, 0) == child;
  posix_spawn_file_actions_destroy(&actions);
  if (!ran || status != 0)
    throw Failure(
        words[0] +
        " failed; is there room on the disk, and is the package ntfs-3g installed, and /usr/sbin on the PATH?");
}

// Every image gets a serial number of its own: MountedDevices tells volumes apart by it, and so does who asks whether
// two files are one. That of mkntfs is the same for all that are made in one second.
void FormatImage(const fs::path& image, std::uint64_t size, const std::string& label) {
  { std::ofstream make(image, std::ios::binary | std::ios::trunc); }
  std::error_code failed;
  fs::resize_file(image, size / 4096 * 4096, failed);
  if (failed) throw Failure(image.string() + ": " + failed.message());
  RunTool({"mkntfs", "-F", "-Q", "-q", "-L", label, "-p", "0", "-H", "0", "-S", "0", "-s", "512", "-c", "4096",
           image.string()});
  std::random_device random;
  char serial[32];
  std::snprintf(serial, sizeof serial, "--new-serial=%08x%08x", random(), random());
  RunTool({"ntfslabel", "-f", serial, image.string()});
}

struct Plan {
  std::vector<std::pair<char, std::uint64_t>> drives;
  std::vector<std::uint64_t> volumes;
  emulated::InstallationFacts facts;
  emulated::WorkstationState state;
};

// A profile of this machine's account, or of a domain's. The first one has a wallpaper of its own.
void PlanProfile(const std::string& user, Plan& plan) {
  const emulated::UpCase upCase;
  const AccountName account = ParseAccountName(user);
  RefuseNameOfWindows(account.name);
  auto& profiles = plan.facts.profiles;
  emulated::ProfileFacts profile{
      Utf16(account.name), std::u16string(emulated::kMachineSid) + u"-" + Utf16(std::to_string(1000 + profiles.size())),
      profiles.size() == 1};
  const std::u16string computer = upCase(plan.facts.computerName);
  const bool isLocal = account.domain.empty() || upCase(Utf16(account.domain)) == computer;
  if (isLocal && upCase(profile.name) == computer) throw Failure("\"" + user + "\" is the machine's own name");
  if (!isLocal) profile.sid = emulated::SidToText(DomainAccountFor(plan.state, account, upCase).sid);
  const auto taken = [&] {
    return std::any_of(profiles.begin(), profiles.end(), [&](const emulated::ProfileFacts& other) {
      return upCase(other.name) == upCase(profile.name) || other.sid == profile.sid;
    });
  };
  if (taken() && !isLocal) profile.name += u"." + Utf16(account.domain);
  if (taken()) throw Failure("\"" + user + "\": there is such a profile already");
  profiles.push_back(std::move(profile));
}

void ParseWindows(const std::string& text, emulated::InstallationFacts& facts) {
  struct Release {
    const char* text;
    win32::DWORD major, minor, build;
  };
  static constexpr Release releases[] = {
      {"6.0", 6, 0, 6002}, {"6.1", 6, 1, 7601}, {"6.2", 6, 2, 9200}, {"6.3", 6, 3, 9600}, {"10.0", 10, 0, 19045}};
  for (const Release& release : releases) {
    if (text != release.text) continue;
    facts.majorVersion = release.major;
    facts.minorVersion = release.minor;
    facts.buildNumber = release.build;
    return;
  }
  throw Failure("\"" + text + "\" is not a Windows version: 6.0, 6.1, 6.2, 6.3 or 10.0");
}

Plan ParsePlan(const Arguments& arguments) {
  Plan plan;
  plan.facts.profiles = emulated::DefaultProfiles();
  bool ownProfiles = false;
  for (std::size_t i = 0; i < arguments.size(); i += 2) {
    const std::string& option = arguments[i];
    if (i + 1 == arguments.size()) throw Failure(option + " needs a value");
    const std::string& value = arguments[i + 1];
    if (option == "--drive") {
      if (value.size() < 3 || value[1] != ':') throw Failure("\"" + value + "\" is not a drive such as D:64M");
      plan.drives.emplace_back(ParseLetter(value.substr(0, 2)), ParseSize(value.substr(2)));
    } else if (option == "--volume") {
      plan.volumes.push_back(ParseSize(value));
    } else if (option == "--profile") {
      if (!std::exchange(ownProfiles, true)) plan.facts.profiles.resize(1);  // the administrator's stays
      PlanProfile(value, plan);
    } else if (option == "--windows") {
      ParseWindows(value, plan.facts);
    } else if (option == "--8dot3name") {
      plan.facts.disable8dot3NameCreation = ParseShortNames(value);
    } else {
      throw Failure("\"" + option + "\" is not an option of create");
    }
  }
  const auto drive = [&](char letter) {
    return std::find_if(plan.drives.begin(), plan.drives.end(), [&](auto& d) { return d.first == letter; });
  };
  if (drive('C') == plan.drives.end()) plan.drives.insert(plan.drives.begin(), {'C', std::uint64_t{128} << 20});
  if (plan.drives.size() == 1 && plan.volumes.empty()) plan.drives.emplace_back('D', std::uint64_t{128} << 20);
  return plan;
}

void MakeImages(const fs::path& folder, const Plan& plan) {
  std::set<std::string> images;
  for (const auto& [letter, size] : plan.drives) {
    const std::string name = std::string(1, letter) + ".ntfs";
    if (!images.insert(name).second) throw Failure(name + ": the drive is named twice");
    FormatImage(folder / name, size, letter == 'C' ? "System" : "Data");
  }
  for (const std::uint64_t size : plan.volumes) {
    const std::string name = NewGuidImage();
    images.insert(name);
    FormatImage(folder / name, size, "Volume");
  }
  std::string error;
  if (!emulated::Workstation::WriteState(folder, plan.state, error)) throw Failure(error);
  Install(folder, plan.facts, images);
}

}  // namespace

void Create(const fs::path& folder, const Arguments& arguments) {
  const Plan plan = ParsePlan(arguments);
  std::error_code failed;
  if (fs::exists(folder, failed) && !fs::is_empty(folder, failed)) throw Failure(folder.string() + ": is not empty");
  Staging staging(folder);
  try {
    MakeImages(staging.images(), plan);
  } catch (const std::exception& failure) {
    throw Failure(folder.string() + ": " + staging.Reason(failure));
  }
  staging.Finish();
}

void Info(const fs::path& folder, const Arguments&) {
  OnStation(folder, false, [](emulated::Workstation& station) {
    emulated::Machine& machine = station.machine();
    std::printf("Windows %u.%u.%u, OEM code page %u\n", machine.majorVersion, machine.minorVersion, machine.buildNumber,
                machine.oemCodePage);
    for (const auto& mounted : machine.volumes)
      std::printf("%s  %-48s %-24s %-12s %12llu bytes, %12llu free%s\n",
                  mounted->letter ? Utf8({&mounted->letter, 1}).append(":").c_str() : "  ",
                  Utf8(mounted->guidName).c_str(), Utf8(mounted->device).c_str(),
                  Utf8(mounted->volume->Label()).c_str(),
                  static_cast<unsigned long long>(mounted->volume->TotalBytes()),
                  static_cast<unsigned long long>(mounted->volume->FreeBytes()), mounted->frozen ? ", frozen" : "");
    const emulated::WorkstationState& state = station.state();
    std::printf("Programs run for %s, account %s\n",
                state.user.empty() ? "the built-in administrator" : state.user.c_str(), state.account.c_str());
    for (const std::string& session : state.sessions) std::printf("Logged on as well: %s\n", session.c_str());
  });
}

void Freeze(const fs::path& folder, const Arguments& arguments) {
  const std::string image = std::string(1, arguments.empty() ? 'C' : ParseLetter(arguments[0])) + ".ntfs";
  std::string error;
  std::error_code failed;
  if (!fs::exists(folder / image, failed)) throw Failure((folder / image).string() + ": no such drive");
  // The status is written before the drive freezes: it must outlive the restarts.
  OnMachine(folder, true, [](emulated::Machine& machine) { InstallRimehold(machine, u"Frozen"); });
  if (!emulated::Workstation::Freeze(folder, image, error)) throw Failure(error);
}

void Thaw(const fs::path& folder, const Arguments& arguments) {
  const std::string image = std::string(1, arguments.empty() ? 'C' : ParseLetter(arguments[0])) + ".ntfs";
  std::string error;
  if (!emulated::Workstation::Thaw(folder, image, error)) throw Failure(error);
  emulated::WorkstationState state;
  if (!emulated::Workstation::ReadState(folder, state, error)) throw Failure(error);
  if (state.frozen.empty())
    OnMachine(folder, true, [](emulated::Machine& machine) { InstallRimehold(machine, u"Thawed"); });
}

void ProtectionStatus(const fs::path& folder, const Arguments& arguments) {
  OnMachine(folder, true, [&](emulated::Machine& machine) {
    if (arguments[0] == "absent") {
      RemoveRimehold(machine);
    } else {
      InstallRimehold(machine, Utf16(arguments[0]));
    }
  });
}

void Restart(const fs::path& folder, const Arguments&) {
  std::string error;
  if (!emulated::Workstation::Restart(folder, error)) throw Failure(error);
}

void Logon(const fs::path& folder, const Arguments& arguments) {
  if (arguments[0] != "administrator" && arguments[0] != "filtered" && arguments[0] != "user")
    throw Failure("\"" + arguments[0] + "\" is not a kind of account: administrator, filtered or user");
  const std::string user = arguments.size() > 1 ? arguments[1] : "";
  if (!user.empty() && emulated::SidFromText(Utf16(user)).empty()) throw Failure("\"" + user + "\" is not a SID");
  std::string error;
  const auto change = [&](emulated::WorkstationState& state) {
    state.account = arguments[0];
    state.user = user;
  };
  if (!emulated::Workstation::ChangeState(folder, change, error)) throw Failure(error);
}

}  // namespace workstation
