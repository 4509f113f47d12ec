#include "profiles/keelroom_rule.h"

#include "log/log.h"
#include "probes/keelroom.h"
#include "probes/windows_version.h"

bool IsOnOldKeelroom(std::u16string_view location) {
  if (location.empty() || !IsWindows10() || !IsKeelroomDrive(location.front()) || IsNewKeelroomVersion()) return false;
  Log(u"#ERROR: Cannot redirect User Profile to old version of Rimehold Keelroom on Windows 10. Please, update to the "
      u"latest version of Rimehold before redirecting User Profile.");
  return true;
}
