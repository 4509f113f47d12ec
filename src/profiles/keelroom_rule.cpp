#include "profiles/keelroom_rule.h"

#include "links/real_path.h"
#include "probes/keelroom.h"
#include "probes/windows_version.h"
#include "report/log.h"

bool IsOnOldKeelroom(std::u16string_view location) {
  if (location.empty() || !IsWindows10()) return false;
  const std::u16string real = RealPath(std::u16string(location));
  if ((!IsKeelroomDrive(location.front()) && !IsKeelroomDrive(real.front())) || IsNewKeelroomVersion()) return false;
  Log(u"#ERROR: Cannot redirect User Profile to old version of Rimehold Keelroom on Windows 10. Please, update to the "
      u"latest version of Rimehold before redirecting User Profile.");
  return true;
}
