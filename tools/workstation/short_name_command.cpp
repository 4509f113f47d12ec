// 8dot3name: which volumes make short names, as fsutil shows and sets it.

#include <cstdio>

#include "win32/emulated/registry/registry.h"
#include "win32/emulated/registry/system_hives.h"
#include "win32/emulated/text.h"
#include "workstation/command.h"

namespace workstation {

namespace {

emulated::MountedVolume& Drive(emulated::Machine& machine, const std::string& text) {
  emulated::MountedVolume* const mounted = machine.FindByLetter(static_cast<char16_t>(ParseLetter(text)));
  if (!mounted || !mounted->volume) throw Failure(text + ": no such drive");
  return *mounted;
}

std::uint32_t Setting(emulated::Machine& machine) {
  const auto value = machine.registry().Query(emulated::kFileSystemKey, emulated::kDisable8dot3NameCreation);
  return value && value->data.size() == 4 ? emulated::LoadLittleEndian<std::uint32_t>(value->data, 0) : 1;
}

void PrintSetting(emulated::Machine& machine) {
  static constexpr const char* kMeanings[] = {"all volumes make short names", "no volume makes short names",
                                              "each volume for itself", "the system volume makes short names"};
  const std::uint32_t setting = Setting(machine);
  std::printf("Registry: %u (%s)\n", setting, setting < 4 ? kMeanings[setting] : "unknown: none");
}

void PrintVolume(const emulated::MountedVolume& mounted) {
  std::printf("Volume:   %d (%s)\nNew names get short ones on it: %s\n", !mounted.volume->AllowsShortNames(),
              mounted.volume->AllowsShortNames() ? "allowed" : "not allowed",
              mounted.volume->makesShortNames ? "yes" : "no");
}

}  // namespace

std::uint32_t ParseShortNames(const std::string& text) {
  if (text.size() != 1 || text[0] < '0' || text[0] > '3')
    throw Failure("\"" + text + "\" is not a setting of short names: 0, 1, 2 or 3");
  return static_cast<std::uint32_t>(text[0] - '0');
}

void ShortNames(const std::filesystem::path& folder, const Arguments& arguments) {
  const bool sets = arguments[0] == "set";
  if ((!sets && (arguments[0] != "query" || arguments.size() > 2)) || (sets && arguments.size() < 2))
    throw Failure("8dot3name takes query [L:], set 0|1|2|3 or set L: 0|1");
  OnMachine(folder, sets, [&](emulated::Machine& machine) {
    if (!sets) {
      PrintSetting(machine);
      if (arguments.size() > 1) PrintVolume(Drive(machine, arguments[1]));
    } else if (arguments.size() == 2) {
      machine.registry().SetDword(emulated::kFileSystemKey, emulated::kDisable8dot3NameCreation,
                                  ParseShortNames(arguments[1]));
    } else {
      if (Setting(machine) != 2) throw Failure("the volumes are not asked: 8dot3name FOLDER set 2 comes first");
      if (arguments[2] != "0" && arguments[2] != "1") throw Failure("\"" + arguments[2] + "\" is neither 0 nor 1");
      emulated::MountedVolume& mounted = Drive(machine, arguments[1]);
      if (const auto error = mounted.volume->AllowShortNames(arguments[2] == "0")) FailWith(arguments[1], error);
    }
  });
}

}  // namespace workstation
