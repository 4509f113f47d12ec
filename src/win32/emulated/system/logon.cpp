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

void LoadHiveOf(Machine& machine, const std::u16string& sid) {
  Registry& registry = machine.registry();
  const auto profile = registry.Query(std::u16string(kProfileList) + u"\\" + sid, u"ProfileImagePath");
  if (!profile || registry.KeyExists(u"HKU\\" + sid)) return;
  const std::u16string file = ExpandSystemVariables(registry, profile->Text()) + u"\\NTUSER.DAT";
  Location location;  // loading would make a hive that is missing
  if (machine.files().Resolve(file, true, location) == 0 && location.file != 0) registry.LoadHive(u"HKU\\" + sid, file);
}

}  // namespace

DWORD LogOn(Machine& machine, std::u16string_view sid) {
  const Sid user = SidFromText(sid);
  LoadHiveOf(machine, SidToText(user));
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
  const std::u16string hive = u"HKU\\" + SidToText(user);
  if (machine.process.token->user == user || !machine.registry().KeyExists(hive)) return true;
  return machine.registry().UnloadHive(hive) == win32::ERROR_SUCCESS;
}

}  // namespace emulated
