"""A user who may write to the location of registry data makes a link of the data's folder while an administrator removes
the location: what lies behind the link stays as it is, to another maker's reader as well."""
import os
import re
import shutil

from station import Station, compare, require, run

LOCATION, DATA, PRECIOUS = "D:\\Registry", "D:\\Registry\\Quillbay\\RegistryData", "C:\\Precious"
NAMES = ("1.bak", "2.bak")


def check_registry_location_left_while_another_writes(build, scratch, said):
    station = Station(build, f"{scratch}/machine")
    station("create", "--drive", "C:48M", "--drive", "D:16M")
    for folder in (DATA, DATA + "\\KeyToDelete", PRECIOUS, PRECIOUS + "\\KeyToDelete"):
        station("mkdir", folder)
    for folder in (DATA, PRECIOUS):
        for name in NAMES:
            station("put", "-", f"{folder}\\{name}", input=b"data")
    for path in (DATA, DATA + "\\KeyToDelete", *(f"{DATA}\\{name}" for name in NAMES)):
        station("acl", path, "D:P(A;;FA;;;WD)")
    station("acl", PRECIOUS, "O:BAD:P(A;OICI;FA;;;BA)")
    station.qbc("/RedirectRegKeyLocation", "/loc:" + LOCATION)
    before = station.listing("C", "/Precious", f"{scratch}/before")
    pristine = f"{scratch}/pristine"
    shutil.copytree(station.folder, pristine)

    def remove(**variables):
        shutil.rmtree(station.folder)
        shutil.copytree(pristine, station.folder)
        return run(f"{build}/qbc", "/RedirectRegKeyLocation", "/d",
                   env={**os.environ, "QBC_WORKSTATION": station.folder, **variables}).stderr.decode()

    calls = [line for line in remove(QBC_TRACE="1").splitlines() if re.match(r"\w+\(", line)]
    require(station("ls", DATA, ok=None).returncode != 0, "alone, the removal leaves the data")
    (listing,) = [i for i, line in enumerate(calls) if line.startswith("FindFirstFileW") and "RegistryData" in line]
    # What goes by a path is what the link can lead astray.
    moments = [i for i in range(listing, len(calls)) if "RegistryData" in calls[i] or "ByHandle" in calls[i]]
    links = 0
    for moment in moments:
        remove(QBC_INTRUDER=f"|{moment + 1}|{DATA}|{PRECIOUS}")
        links += b"JUNCTION" in station("ls", "D:\\Registry\\Quillbay", ok=None).stdout
        compare(before, station.listing("C", "/Precious", f"{scratch}/after"), "/Precious", "/Precious", False)
    require(links >= 5, f"the folder became a link {links} times only")
    station.require_sound("C", "D")
    said(f"a link at {links} of {len(moments)} moments: wimlib sees {PRECIOUS} as before after each, access lists and all")
