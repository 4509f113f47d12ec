#include "workstation/command.h"

#include <cstdio>
#include <limits>

#include "win32/emulated/text.h"
#include "win32/win32.h"
#include "workstation/progress.h"

namespace workstation {

const std::vector<Command>& Commands() {
  constexpr std::size_t kAny = std::numeric_limits<std::size_t>::max();
  static const std::vector<Command> commands = {
      {"create",
       "FOLDER [--drive L:SIZE]... [--volume SIZE]... [--profile NAME]... [--windows 6.0|6.1|6.2|6.3|10.0] "
       "[--8dot3name 0|1|2|3]",
       "Makes a workstation: Windows, profiles, the product.", 0, kAny, Create},
      {"info", "FOLDER", "Volumes, their names, what is frozen, who is logged on.", 0, 0, Info},
      {"import", "FOLDER IMAGE L:|volume [--partition N] [--bare] [--discard-log]",
       "Adds a copy of an NTFS volume as a drive or as a volume without a letter.", 2, 6, Import},
      {"adopt", "FOLDER IMAGE L:|volume [--bare] [--discard-log]", "The same, moving the image into the folder.", 2, 4,
       Adopt},
      {"export", "FOLDER L:|{GUID} FILE [--format raw|qcow2|vhdx]\nFOLDER L:|{GUID} --into DISK --partition N",
       "Makes an image of a volume, or writes it back into the partition that it came from.", 2, 5, Export},
      {"ls", "FOLDER PATH [-R]", "Lists a folder of the machine.", 1, 2, List},
      {"cat", "FOLDER PATH", "Prints a file or a stream (FILE:STREAM).", 1, 1, Cat},
      {"put", "FOLDER HOSTPATH|- PATH", "Copies a host file or folder tree, or standard input, onto the machine.", 2, 2,
       Put},
      {"get", "FOLDER PATH HOSTPATH", "Copies a file or folder tree to the host.", 2, 2, Get},
      {"mkdir", "FOLDER PATH", "Makes a folder and those above it.", 1, 1, MakeDirectory},
      {"rm", "FOLDER PATH [-r]", "Removes a file, a link or a folder; never what a link points to.", 1, 2, Remove},
      {"link", "FOLDER junction|symlink|hard PATH TARGET", "Makes a link.", 3, 3, Link},
      {"attrib", "FOLDER PATH +R|-R|+H|-H|+S|-S|+A|-A...", "Sets and clears attributes.", 2, kAny, Attributes},
      {"acl", "FOLDER PATH SDDL", "Sets owner, group and access entries.", 2, 2, SetDescriptor},
      {"touch", "FOLDER PATH CREATION ACCESS WRITE", "Sets the times (FILETIME counts in decimal, - leaves one).", 4, 4,
       SetTimes},
      {"stat", "FOLDER PATH", "Attributes, times, owner and access entries, streams, reparse data.", 1, 1, Stat},
      {"reg",
       "FOLDER query KEY [-s] [--32]\nFOLDER add KEY VALUE sz|expand|dword|multi|binary DATA [--32]\n"
       "FOLDER delete KEY [VALUE] [--32]\nFOLDER export KEY [--32]",
       "Reads and changes the registry.", 2, kAny, Registry},
      {"service", "FOLDER list\nFOLDER add NAME IMAGE auto|demand|disabled\nFOLDER set NAME auto|demand|disabled",
       "Lists, adds and changes services.", 1, kAny, Service},
      {"share", "FOLDER list\nFOLDER add NAME PATH [REMARK]\nFOLDER delete NAME",
       "Lists, adds and removes network shares.", 1, kAny, Share},
      {"freeze", "FOLDER [L:]", "Installs Rimehold where it is missing and freezes the drive (C: unless named).", 0, 1,
       Freeze},
      {"thaw", "FOLDER [L:]", "Restarts with the drive thawed: what was written to it since it froze is gone.", 0, 1,
       Thaw},
      {"rimehold", "FOLDER STATUS|absent", "Sets the text of Rimehold's status, or removes Rimehold.", 1, 1,
       ProtectionStatus},
      {"8dot3name", "FOLDER query [L:]\nFOLDER set 0|1|2|3\nFOLDER set L: 0|1",
       "Shows and sets which volumes make short names.", 1, 3, ShortNames},
      {"restart", "FOLDER", "Restarts: frozen drives forget, delayed renames happen, services start.", 0, 0, Restart},
      {"logon", "FOLDER administrator|filtered|user [SID]", "Says who runs the program from now on.", 1, 2, Logon},
      {"profile", "FOLDER list\nFOLDER add NAME",
       "Lists the profiles; has an account log on for the first time, which makes its profile.", 1, 2, Profile},
      {"session", "FOLDER begin|end USER", "Logs a user (a name or a SID) on at the desktop, or off.", 2, 2, Session},
  };
  return commands;
}

void FailWith(std::string_view what, std::uint32_t error) {
  char16_t text[512];
  const win32::DWORD length = win32::FormatMessageW(
      win32::FORMAT_MESSAGE_FROM_SYSTEM | win32::FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, error, 0, text, 512);
  std::string message = emulated::Utf8({text, length});
  while (!message.empty() && (message.back() == '\n' || message.back() == '\r')) message.pop_back();
  throw Failure(std::string(what) + ": " + (message.empty() ? "error" : message) + " (" + std::to_string(error) + ")");
}

void OnMachine(const std::filesystem::path& folder, bool save, const std::function<void(emulated::Machine&)>& work) {
  OnStation(folder, save, [&](emulated::Workstation& station) { work(station.machine()); });
}

void OnStation(const std::filesystem::path& folder, bool save,
               const std::function<void(emulated::Workstation&)>& work) {
  std::string error;
  const auto station =
      emulated::Workstation::Open(folder, error, save ? emulated::ImageAccess::kWrite : emulated::ImageAccess::kRead);
  if (!station) throw Failure(error);
  if (const std::string& why = station->writeProtection(); !why.empty()) {
    if (save) throw Failure(why);
    std::fprintf(stderr, "workstation: %s (a look is all that is done)\n", why.c_str());
  }
  emulated::Machine& machine = station->machine();
  // The tool acts as the system itself would, whoever is logged on.
  machine.process.token = emulated::MakeSystemToken();
  for (const auto* const privilege :
       {u"SeBackupPrivilege", u"SeRestorePrivilege", u"SeSecurityPrivilege", u"SeTakeOwnershipPrivilege"})
    machine.process.token->EnablePrivilege(privilege, true);
  work(*station);
  if (save && !station->Save(error, DrawProgress())) throw Failure(error);
}

std::uint64_t ParseSize(const std::string& text) {
  std::size_t used = 0;
  std::uint64_t size = 0;
  try {
    size = std::stoull(text, &used);
  } catch (const std::exception&) {
    used = 0;
  }
  const std::string unit = text.substr(used);
  const int shift = unit.empty() ? 0 : unit == "K" ? 10 : unit == "M" ? 20 : unit == "G" ? 30 : -1;
  if (used == 0 || shift < 0 || size > (std::uint64_t{1} << (44 - shift)))
    throw Failure("\"" + text + "\" is not a size such as 64M");
  return size << shift;
}

char ParseLetter(const std::string& text) {
  const char upper = text.empty() ? '\0' : static_cast<char>(text[0] & ~0x20);
  const std::string rest = text.empty() ? "" : text.substr(1);
  if (upper < 'A' || upper > 'Z' || (rest != "" && rest != ":" && rest != ":\\"))
    throw Failure("\"" + text + "\" is not a drive such as D:");
  return upper;
}

}  // namespace workstation
