"""User profiles moved and moved back, as wimlib and hivexml see them."""
import os

from hives import PROFILE_LIST, Hive, software
from station import LISTINGS, Station, below_root, compare, mount, own_security_and_times, require
from trees import COMPUTER, SYSTEM, descriptor, set_attribute, sid

ANNA, HOME = "S-1-5-21-1004336348-1177238915-682003330-1001", "C:\\Users\\anna"
HERS = sid(5, *COMPUTER, 1001)


def fill_profile(home):
    """What a user leaves in her profile, two items of it closed to administrators."""
    os.makedirs(f"{home}/Documents/Diary/2026")
    for name, content in (("Documents/letter.txt", b"Dear Jan"), ("Desktop/\u00fcbersicht.txt", b"names beyond ASCII"),
                          ("Documents/Diary/2026/today.txt", b"nobody's business"),
                          ("Downloads/large.bin", os.urandom(300_000))):
        with open(f"{home}/{name}", "wb") as file:
            file.write(content)
    private = descriptor([(0x03, 0x1F01FF, HERS)], 0x9004, owner=HERS, group=HERS)
    for name in ("Documents/Diary/2026/today.txt", "Documents/Diary/2026", "Documents/Diary"):
        set_attribute(f"{home}/{name}", "system.ntfs_acl", private)
    set_attribute(f"{home}/Documents/letter.txt", "user.Zone", b"[ZoneTransfer]\r\nZoneId=3\r\n")
    set_attribute(f"{home}/Documents/letter.txt", "system.ntfs_acl",
                  descriptor([(0x10, 0x1F01FF, SYSTEM), (0x10, 0x1F01FF, HERS)], 0x8404, owner=HERS, group=HERS))


def redirect(station, *words):
    done = station.qbc(*words).stdout
    require(b"Redirect user profile was successful." in done, f"{words}: {done!r}")
    station.require_sound()


def registry(station):
    """All of it but the product's own."""
    return {path: values for path, values in software(station).keys.items() if "Velmora" not in path}


def junctions(station, letter, folder):
    """Where each junction leads, and its first access entry: the one that denies Everyone."""
    listing, found = station.listing(letter, folder or "/"), {}
    for path, entry in LISTINGS["read_listing"](listing, folder).items():
        if any("0xa0000003" in line.lower() for line in entry):
            data = station.reparse_data(letter, folder + path)
            length = int.from_bytes(data[10:12], "little")
            dacl = own_security_and_times(listing, folder + path)[0][4]
            found[path] = data[16:16 + length].decode("utf-16-le").removeprefix("\\??\\"), dacl[0] if dacl else None
    return found


def check_profile_moved_and_back(build, scratch, said):
    """anna's profile to a folder, and to a volume by its GUID, and home again."""
    station = Station(build, f"{scratch}/machine")
    station("create", "--drive", "C:64M", "--drive", "D:64M", "--volume", "48M", "--8dot3name", "2")
    guid = station.volume_without_letter()
    with mount(station.image("C")) as mounted:
        fill_profile(f"{mounted}/Users/anna")
    before, links = station.listing("C", "/Users/anna", "before"), junctions(station, "C", "/Users/anna")
    denies = [bool(entry and entry[0] == 1) for _, entry in links.values()]
    require(len(links) >= 10 and all(denies), f"the junctions are {links}")
    keys_before, registry_before = Hive(station, "C", "Users/anna/NTUSER.DAT").keys, registry(station)
    for words, letter, folder, place, changes, written in (
            ("/loc:D:\\Profiles", "D", "/Profiles/anna", "D:\\Profiles\\anna", ["Control Panel\\Desktop"], []),
            (f"/vol:\\\\?\\Volume{guid}\\", guid, "", HOME, [], ["/"])):
        redirect(station, "/RedirectUP", "ANNA", words)
        found = software(station).keys[f"{PROFILE_LIST}\\{ANNA}"]["ProfileImagePath"]
        require(found == ("expand", place), f"hivexml reads ProfileImagePath as {found}")
        there = junctions(station, letter, folder)
        follow = {name: (leads.replace(HOME, place), entry) for name, (leads, entry) in links.items()}
        require(there == follow, f"the compatibility junctions are\n{there}\nand not\n{follow}")
        hive = Hive(station, letter, f"{folder}/NTUSER.DAT")
        changed = [path for path in hive.keys | keys_before if hive.keys.get(path) != keys_before.get(path)]
        require(changed == changes, f"changed: {changed}")
        wallpaper = hive.keys["Control Panel\\Desktop"]["WallPaper"][1]
        require(wallpaper.startswith(place + "\\"), f"the wallpaper is {wallpaper}")
        left = [name for name in below_root(station.image("C")) if name.startswith("Users/anna/")]
        require(left == [], f"C: still holds {left}")
        said(*compare(before, station.listing(letter, folder or "/"), "/Users/anna", folder, True,
                      ["/NTUSER.DAT", *written]))

        station("restart")
        redirect(station, "/RedirectUPDefault", "anna")
        home = station.listing("C", "/Users/anna")
        said(*compare(before, home, "/Users/anna", "/Users/anna", False, ["/NTUSER.DAT"]))
        require(junctions(station, "C", "/Users/anna") == links, "the compatibility junctions did not come home")
        now = Hive(station, "C", "Users/anna/NTUSER.DAT").keys, registry(station)
        require(now == (keys_before, registry_before), "the hive or the registry is not as it was")
        left = [name for drive in ("D", guid) for name in below_root(station.image(drive)) if "anna/" in name]
        require(left == [], f"the profile has left {left}")
