#include "win32/emulated/system/logon.h"

#include "win32/emulated/files/file_service.h"
#include "win32/emulated/registry/registry.h"
#include "win32/emulated/registry/system_hives.h"
#include "win32/emulated/system/processes.h"
#include "win32/emulated/text.h"

namespace emulated {

namespace {

using win32::DWORD;

constexpr std::u16string_view kDesktop = u"explorer.exe";
constexpr DWORD kFirstDesktop = 0x1200, kNextProcess = 4;

bool IsDesktopOf(const Process& process, const Sid& user) {
  return EqualAsciiNoCase(process.image, kDesktop) && process.token && process.token->user == user;
}

// Where his hives are mounted, and which files of his profile they are.
struct UserHiveFile {
  std::u16string_view suffix, file;
};
constexpr UserHiveFile kHiveFiles[] = {{u"", u"\\NTUSER.DAT"},
                                       {u"_Classes", u"\\AppData\\Local\\Microsoft\\Windows\\UsrClass.dat"}};

std::u16string MountPath(const std::u16string& sid, const UserHiveFile& hive) {
  return u"HKU\\" + sid + std::u16string(hive.suffix);
}

void LoadHivesOf(Machine& machine, const std::u16string& sid) {
  Registry& registry = machine.registry();
  const auto profile = registry.Query(std::u16string(kProfileList) + u"\\" + sid, u"ProfileImagePath");
  if (!profile) return;
  for (const UserHiveFile& hive : kHiveFiles) {
    const std::u16string file = ExpandSystemVariables(registry, profile->Text()) + std::u16string(hive.file);
    Location location;  // loading would make a hive that is missing
    if (!registry.KeyExists(MountPath(sid, hive)) && machine.files().Resolve(file, true, location) == 0 &&
        location.file != 0)
      registry.LoadHive(MountPath(sid, hive), file);
  }
}

}  // namespace

DWORD LogOn(Machine& machine, std::u16string_view sid) {
  const Sid user = SidFromText(sid);
  LoadHivesOf(machine, SidToText(user));
  for (const Process& process : machine.others)
    if (IsDesktopOf(process, user)) return process.id;
  DWORD id = kFirstDesktop;
  while (FindProcess(machine, id)) id += kNextProcess;
  AddProcess(machine, id, kDesktop).token = MakeUserToken(user);
  return id;
}

bool LogOff(Machine& machine, std::u16string_view sid) {
  const Sid user = SidFromText(sid);
  for (std::size_t i = machine.others.size(); i-- > 0;)
    if (IsDesktopOf(machine.others[i], user)) EndProcess(machine, machine.others[i].id);
  if (machine.process.token->user == user) return true;
  bool unloaded = true;
  for (const UserHiveFile& hive : kHiveFiles) {
    const std::u16string mount = MountPath(SidToText(user), hive);
    if (machine.registry().KeyExists(mount) && machine.registry().UnloadHive(mount) != 0) unloaded = false;
  }
  return unloaded;
}

}  // namespace emulated
