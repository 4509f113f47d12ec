// The location for registry data, and the keys whose data are kept there.
#include "configuration/service_config.h"
#include "regredirect/location_volume.h"
#include "survey/inventory.h"
#include "survey/place.h"
#include "text/ascii_case.h"
#include "text/format.h"
#include "text/path_text.h"
#include "win32/win32.h"

namespace {

void ExamineLocation(Row& row) {
  const Stands stands = WhatStandsAt(row.target);
  std::u16string volume;
  if (!ReadLocationVolume(row.target, volume))
    row.Find(Finds::NotTold, u"The registry does not tell whether a volume belongs on " + row.target + u".");
  if (stands.look.presence == Presence::NotTold || !stands.IsReadable())
    row.Find(Finds::NotTold, NotToldOf(row.target, stands.error));
  else if (!volume.empty() && !(stands.IsVolume() && EqualPaths(stands.LeadsTo(), volume)))
    row.Find(Finds::LocationNotMounted, volume);
  else if (!stands.look.IsDirectory())
    row.Find(Finds::LocationMissing);
  else if (stands.IsVolume() && !LookAt(stands.LeadsTo()).IsThere())
    row.Find(Finds::LocationNotMounted, stands.LeadsTo());
}

// A key that is closed to the one who asks is there.
void ExamineKey(Row& row) {
  std::u16string path;
  win32::UniqueKey key;
  if (!SplitKeyName(row.source, path)) return row.Find(Finds::KeyMissing);
  const win32::LSTATUS error =
      win32::RegOpenKeyExW(win32::HKEY_LOCAL_MACHINE, path.c_str(), 0, win32::KEY_QUERY_VALUE, key.put());
  if (error == win32::LSTATUS{win32::ERROR_FILE_NOT_FOUND}) return row.Find(Finds::KeyMissing);
  if (error != 0 && error != win32::LSTATUS{win32::ERROR_ACCESS_DENIED})
    row.Find(Finds::NotTold,
             FormatText(u"The registry does not tell whether there is the key %ls (error %u).", row.source, error));
}

}  // namespace

void AddRegistry(Inventory& inventory, const CQBConfig& config) {
  int status = 0;
  std::u16string location;
  const bool told = config.GetOutDir(status, location) != 0;
  if (!told) inventory.untold.push_back(u"The configuration does not tell the location for registry data.");
  if (status == 0) location.clear();
  if (told && status != 0) {
    Row row{.kind = RowKind::RegistryLocation, .source = {}, .target = WithoutTrailingBackslash(location)};
    ExamineLocation(row);
    inventory.rows.push_back(std::move(row));
  }
  std::vector<std::u16string> seen;
  for (const std::u16string& key : config.MonitoredKeys()) {
    if (ContainsIgnoringAsciiCase(seen, key)) continue;
    seen.push_back(key);
    Row row{.kind = RowKind::RegistryKey, .source = key, .target = location};
    if (!told)
      row.Find(Finds::NotTold, u"The configuration does not tell the location for registry data.");
    else if (status == 0)
      row.Find(Finds::NoLocation);
    ExamineKey(row);
    inventory.rows.push_back(std::move(row));
  }
}
