"""User profiles moved, moved back, and created elsewhere from the start, as independent readers of NTFS and of hives see
them."""
import os
import re

from hives import PROFILE_LIST, Hive, image_path, software
from station import Descriptor, Mounted, Station, below_root, compare, hive_record, own_security, require, run
from trees import SYSTEM, descriptor, set_attribute, sid

COMPUTER = (21, 1004336348, 1177238915, 682003330)
ANNA = "S-1-5-21-1004336348-1177238915-682003330-1001"
DONE, UNDONE = b"Redirect user profile was successful.", b"Redirect user profile was unsuccessful."
DESKTOP = "Control Panel\\Desktop"


def fill_profile(home):
    """What a user leaves in her profile, two items of it closed to administrators."""
    hers = sid(5, *COMPUTER, 1001)
    private = descriptor([(0x03, 0x1F01FF, hers)], 0x9004, owner=hers, group=hers)
    os.makedirs(f"{home}/Documents/Diary/2026")
    for name, content in (("Documents/letter.txt", b"Dear Jan"), ("Documents/Diary/2026/today.txt", b"nobody's business"),
                          ("Desktop/\u00fcbersicht.txt", b"names beyond ASCII"), ("Downloads/large.bin", os.urandom(300_000))):
        with open(f"{home}/{name}", "wb") as file:
            file.write(content)
    set_attribute(f"{home}/Documents/letter.txt", "user.Zone", b"[ZoneTransfer]\r\nZoneId=3\r\n")
    for name in ("Documents/Diary/2026/today.txt", "Documents/Diary/2026", "Documents/Diary"):
        set_attribute(f"{home}/{name}", "system.ntfs_acl", private)
    set_attribute(f"{home}/Documents/letter.txt", "system.ntfs_acl",
                  descriptor([(0x10, 0x1F01FF, SYSTEM), (0x10, 0x1F01FF, hers)], 0x8404, owner=hers, group=hers))


def junctions(station, letter, folder):
    """Where each junction of a tree leads, and its own access entries (that of Everyone first), as wimlib reads them."""
    listing = station.listing(letter, folder, os.path.join(station.folder, "..", "links"))
    with open(listing, encoding="utf-8", errors="surrogateescape") as file:
        parts = re.split(r"^Full Path\s*= ", file.read(), flags=re.M)[1:]
    paths = [part.split("\n")[0].strip('"') for part in parts if "0xa0000003" in part.lower()]
    found = {}
    for path in paths:
        data = run("ntfscat", "-f", "-a", "0xC0", station.image(letter), path).stdout
        length = int.from_bytes(data[10:12], "little")
        target = data[16:16 + length].decode("utf-16-le").removeprefix("\\??\\")
        security = own_security(listing, path)
        found[path.removeprefix(folder + "/")] = (target, security[4][0] if security[4] else None)
    return found


def require_private(station, letter, folder, scratch, user=1001):
    """Only the user, SYSTEM and Administrators are let in, and nothing comes from above."""
    control, owner, _, _, dacl = own_security(station.listing(letter, folder, f"{scratch}/private"), folder)
    allowed = {entry[2][8:] for entry in dacl}
    expected = {sid(5, *COMPUTER, user).hex(), SYSTEM.hex(), sid(5, 32, 544).hex()}
    require(control & 0x1000 and allowed == expected and all(entry[0] == 0 for entry in dacl),
            f"{folder} is open to {allowed} (control {control:#x})")


def writers(listing, folder, user=None):
    """Who else than administrators, the system and the user may write to what, by wimlib's listing of a folder."""
    trusted = {SYSTEM.hex(), sid(5, 32, 544).hex()} | ({sid(5, *COMPUTER, user).hex()} if user else set())
    with open(listing, encoding="utf-8", errors="surrogateescape") as file:
        items = re.findall(r'^Full Path\s*= "(.*)"$[\s\S]*?^Security Descriptor\s*= (\w+)$', file.read(), flags=re.M)
    items = [(path, Descriptor(text)) for path, text in items if path == folder or path.startswith(folder + "/")]
    require(len(items) > 30, f"{folder} holds only {len(items)} items")
    require(items[0][1].control & 0x1000, f"{folder} depends on the folder above")
    return [f"{path}: {entry}" for path, security in items for entry in security.dacl
            if entry[0] == 0 and not entry[1] & 0x08 and int.from_bytes(bytes.fromhex(entry[2][:8]), "little") & 0x500D0156
            and entry[2][8:] not in trusted]


def check_nobody_else_writes_to_profiles(build, scratch, said):
    """Each natural way to send the Default profile, or a user's, to where everybody may write; with and without /-NTFS."""
    default, both = ("/RedirectUP", "/DefaultProfile"), "/RedirectDefaultAndPublicProfile"
    ways = [("root", "/Default", [], [(*default, "/loc:D:\\")]),
            ("after a profile", "/Profiles/Default", [], [("/RedirectUP", "anna", "/loc:D:\\Profiles"),
                                                          ("/AutoRedirectUP", "/loc:D:\\Profiles", both)]),
            ("made beforehand", "/Made/Default", ["D:\\Made"], [(*default, "/loc:D:\\Made"), ("/RedirectUP", "anna", "/loc:D:\\Made")]),
            ("without security", "/Made/Default", ["D:\\Made\\Default"], [(*default, "/loc:D:\\Made", "/-NTFS")])]
    for number, (name, folder, made, commands) in enumerate(ways):
        station = Station(build, f"{scratch}/{number}")
        station("create", "--drive", "C:64M", "--drive", "D:64M")
        for path in made:
            station("mkdir", path)
        users = own_security(station.listing("C", "/Users", f"{scratch}/users"), "/Users")
        before = station.listing("C", "/Users/Default", f"{scratch}/before")
        for command in commands:
            station.qbc(*command)
        location = os.path.dirname(folder)
        listing = station.listing("D", location, f"{scratch}/there")
        open_to_others = writers(listing, folder)
        if commands[-1][1] == "anna" or commands[0][1] == "anna":
            open_to_others += writers(listing, f"{location}/anna", 1001)
        require(open_to_others == [], f"{name}: others may write to " + "\n".join(open_to_others))
        log = station("cat", "C:\\Program Files\\Velmora\\Quillbay\\QBC.log").stdout.decode("utf-16")
        if made:
            require("#INFO: The folder D:\\Made was there before" in log and "lets others rename or replace it" in log, f"{name}: {log}")
        elif location != "/":
            require(own_security(listing, location) == users, f"{name}: the location is not as private as C:\\Users")
        station.qbc(*(("/AutoRedirectUP", "/d") if "AutoRedirect" in commands[-1][0] else ("/RedirectUPDefault", "/DefaultProfile")))
        if "/-NTFS" not in commands[0]:
            compare(before, station.listing("C", "/Users/Default", f"{scratch}/after"), "/Users/Default", "/Users/Default", False,
                    ["/NTUSER.DAT"])
        station.require_sound("C", "D")
    said(f"{len(ways)} ways: nobody but administrators and the system may write to the copy of the Default profile, and "
         "nobody else but the user to hers; C:\\Users\\Default is as it was afterwards")


def check_profile_moved_and_back(build, scratch, said):
    """anna's profile to D:\\Profiles and home again, named in another letter case; the last time without her files' security."""
    station = Station(build, f"{scratch}/machine")
    station("create", "--drive", "C:64M", "--drive", "D:64M")
    with Mounted(station.image("C")) as mounted:
        fill_profile(f"{mounted}/Users/anna")
    before = station.listing("C", "/Users/anna", f"{scratch}/before")
    links = junctions(station, "C", "/Users/anna")
    require(len(links) >= 10 and all(entry and entry[0] == 1 for _, entry in links.values()),
            f"the profile was made without compatibility junctions that deny: {links}")
    hive_before = Hive(station, "C", "Users/anna/NTUSER.DAT", scratch).everything()
    registry_before = software(station, scratch).everything()

    station("session", "begin", "anna")
    refused = station.qbc("/RedirectUP", "anna", "/loc:D:\\Profiles", ok=(1,)).stdout
    station("session", "end", "anna")
    require(UNDONE in refused and "Profiles" not in " ".join(below_root(station.image("D"))), f"logged on: {refused!r}")
    require(compare(before, station.listing("C", "/Users/anna", f"{scratch}/still"), "/Users/anna", "/Users/anna", False),
            "a refusal has changed the profile")

    for target, *switches in (("/loc:D:\\Profiles\\",), ("/loc:D:\\Profiles",), ("/loc:d:\\profiles", "/-NTFS")):
        done = station.qbc("/RedirectUP", "ANNA", target, *switches).stdout
        require(DONE in done, f"{target}: {done!r}")
        place = "D:\\Profiles\\anna"  # as the disk spells it
        station.require_sound("C", "D")
        found = image_path(station, scratch, ANNA)
        require(found == ("expand", place), f"hivexml reads ProfileImagePath as {found}")
        require(hive_record(station, scratch) == [("1", "C:\\Users\\anna", place)], "the record")
        moved = station.listing("D", "/Profiles/anna", f"{scratch}/moved")
        require_private(station, "D", "/Profiles/anna", scratch)
        there = junctions(station, "D", "/Profiles/anna")
        follow = {name: (leads.replace("C:\\Users\\anna", place), entry) for name, (leads, entry) in links.items()}
        require(there == follow, f"the compatibility junctions are\n{there}\nand not\n{follow}")
        hive = Hive(station, "D", "Profiles/anna/NTUSER.DAT", scratch)
        wallpaper = hive.values(DESKTOP)["WallPaper"]
        require(wallpaper[1].startswith(place + "\\"), f"the wallpaper is {wallpaper}")
        changed = {k for k, v in hive.everything().items() if hive_before.get(k) != v}
        require(len(changed) == 1 and hive.everything().keys() == hive_before.keys(), f"changed in the hive: {changed}")
        left = [name for name in below_root(station.image("C")) if name.startswith("Users/anna/")]
        require(left == [], f"C: still holds {left}")
        listed = station.qbc("/RedirectUP").stdout.decode()
        require(listed.endswith(f"anna   {place}\r\n"), f"the list is {listed!r}")
        if target.endswith("\\"):
            said(*compare(before, moved, "/Users/anna", "/Profiles/anna", True, ["/NTUSER.DAT"]))
        done = station.qbc("/RedirectUPDefault", "Anna").stdout
        require(DONE in done, f"home again: {done!r}")
        station.require_sound("C", "D")
        if not switches:
            after = station.listing("C", "/Users/anna", f"{scratch}/after")

    said(*compare(before, after, "/Users/anna", "/Users/anna", False, ["/NTUSER.DAT"]))
    require(junctions(station, "C", "/Users/anna") == links, "the compatibility junctions did not come home")
    require_private(station, "C", "/Users/anna", scratch)
    require(Hive(station, "C", "Users/anna/NTUSER.DAT", scratch).everything() == hive_before, "the hive is not as it was")
    now = software(station, scratch).everything()
    differ = {k for k in now.keys() | registry_before.keys() if now.get(k) != registry_before.get(k)}
    require(all("Velmora" in k for k in differ), f"the registry is not as it was: {differ}")
    require(hive_record(station, scratch) == [], "the record is still there")
    require(not [n for n in below_root(station.image("D")) if n.startswith("Profiles/anna")], "D: still holds the profile")
    said(f"{len(links)} compatibility junctions deny Everyone before, there and after; hivexml reads the wallpaper and "
         "ProfileImagePath at each place")


def check_profile_on_volume(build, scratch, said):
    """Onto a volume by its GUID: the profile keeps its path; home again through the mounted volume."""
    station = Station(build, f"{scratch}/machine")
    station("create", "--drive", "C:64M", "--drive", "D:16M", "--volume", "48M")
    guid = station.volume_without_letter()
    with Mounted(station.image("C")) as mounted:
        fill_profile(f"{mounted}/Users/anna")
    before = station.listing("C", "/Users/anna", f"{scratch}/before")
    links = junctions(station, "C", "/Users/anna")
    root_before = own_security(station.listing(guid, "/", f"{scratch}/root"), "/")
    done = station.qbc("/RedirectUP", "anna", f"/vol:\\\\?\\Volume{guid}\\").stdout
    require(DONE in done, repr(done))
    station.require_sound("C", guid)
    require(image_path(station, scratch, ANNA) == ("expand", "C:\\Users\\anna"), "ProfileImagePath has changed")
    reparse = run("ntfscat", "-f", "-a", "0xC0", station.image("C"), "Users/anna").stdout
    require(f"Volume{guid}".encode("utf-16-le") in reparse, "C:\\Users\\anna is no mount point of the volume")
    require("Documents/letter.txt" in " ".join(below_root(station.image(guid))), "the volume does not hold the profile")
    require(station("cat", "C:\\Users\\anna\\Documents\\letter.txt").stdout == b"Dear Jan", "the old path does not lead there")
    require(junctions(station, guid, "").keys() == links.keys(), "the compatibility junctions are not on the volume")
    require_private(station, guid, "/", scratch)
    require("anna   C:\\Users\\anna\r\n" in station.qbc("/RedirectUP").stdout.decode(), "the list does not show the profile")
    station("restart")
    done = station.qbc("/RedirectUPDefault", "anna").stdout
    require(DONE in done, repr(done))
    station.require_sound("C", guid)
    after = station.listing("C", "/Users/anna", f"{scratch}/after")
    said(*compare(before, after, "/Users/anna", "/Users/anna", False))
    require(junctions(station, "C", "/Users/anna") == links, "the compatibility junctions did not come home")
    left = [name for name in below_root(station.image("C")) if ".mount" in name or ".temp" in name]
    require(left == [], f"C: holds {left}")
    require(below_root(station.image(guid)) == [], "the volume still holds the profile")
    root_after = own_security(station.listing(guid, "/", f"{scratch}/root"), "/")
    require(root_after == root_before, "the root of the volume did not get its own security back")


def profile_values(station, scratch):
    values = software(station, scratch).values(PROFILE_LIST)
    return {name: values[name] for name in ("ProfilesDirectory", "Default", "Public")}


def check_new_profiles(build, scratch, said):
    """Automatic redirection with Default and Public: set, a new account, removed; every value as before."""
    station = Station(build, f"{scratch}/machine")
    station("create", "--drive", "C:64M", "--drive", "D:64M")
    station("put", "-", "C:\\Users\\Public\\Documents\\shared.txt", input=b"before")
    trees = {name: station.listing("C", f"/Users/{name}", f"{scratch}/{name}") for name in ("Default", "Public")}
    values = profile_values(station, scratch)
    registry = software(station, scratch).everything()
    pictures = {k: v for k, v in registry.items() if "AccountPicture" in k and v}
    require(pictures, "the workstation has no account pictures")
    require(b"not enabled" in station.qbc("/AutoRedirectUP").stdout, "on from the start")

    done = station.qbc("/AutoRedirectUP", "/loc:D:\\Profiles", "/RedirectDefaultAndPublicProfile").stdout.decode()
    require("Newly created user profile location - D:\\Profiles" in done, done)
    station.require_sound("C", "D")
    expected = {"ProfilesDirectory": ("expand", "D:\\Profiles"), "Default": ("expand", "D:\\Profiles\\Default"),
                "Public": ("expand", "D:\\Profiles\\Public")}
    require(profile_values(station, scratch) == expected, f"hivexml reads {profile_values(station, scratch)}")
    for name in ("Default", "Public"):
        there = station.listing("D", f"/Profiles/{name}", f"{scratch}/there")
        said(*compare(trees[name], there, f"/Users/{name}", f"/Profiles/{name}", True))
    now = software(station, scratch).everything()
    moved = {k: v[1] for k, v in now.items() if k in pictures and "\\Public\\" in pictures[k][1]}
    require(moved and all(v.startswith("D:\\Profiles\\Public\\AccountPictures\\") for v in moved.values()), f"{moved}")
    require(station("service", "list").stdout.decode().split("QuillbayService")[1].split()[0] == "running", "the service")
    again = station.qbc("/AutoRedirectUP", "/loc:D:\\Other", "/RedirectDefaultAndPublicProfile", ok=(1,)).stdout
    require(b"already enabled" in again, f"{again!r}")
    require(b"location = D:\\Profiles" in station.qbc("/AutoRedirectUP").stdout, "not shown")

    with Mounted(station.image("D")) as mounted:
        run("hivexsh", "-w", f"{mounted}/Profiles/Default/NTUSER.DAT",
            input=b"cd Software\nadd Contoso\ncd Contoso\nsetval 1\nGreeting\nstring:hello\ncommit\n")
    station("profile", "add", "bob")
    bob = next(line for line in station("profile", "list").stdout.decode().splitlines() if "bob" in line)
    bob_sid = re.search(r"S-1-5-21-[\d-]+", bob).group()
    require(image_path(station, scratch, bob_sid)[1] == "D:\\Profiles\\bob", f"bob's profile: {bob}")
    hive = Hive(station, "D", "Profiles/bob/NTUSER.DAT", scratch)
    require(hive.values("Software\\Contoso")["Greeting"][1] == "hello", "bob did not get what the default profile's hive says")
    desktop = hive.values("Software\\Microsoft\\Windows\\CurrentVersion\\Explorer\\Shell Folders")["Desktop"]
    require(desktop[1] == "D:\\Profiles\\bob\\Desktop", f"bob's desktop is {desktop}")

    def pictures_of_bob():
        found = software(station, scratch).values(f"Microsoft\\Windows\\CurrentVersion\\AccountPicture\\Users\\{bob_sid}")
        require(len(found) == 8, f"bob's pictures are {found}")
        return [text for _, text in found.values()]

    in_public = pictures_of_bob()
    for picture in in_public:
        require(picture.startswith(f"D:\\Profiles\\Public\\AccountPictures\\{bob_sid}\\"), f"a picture of bob's is {picture}")
        require(station("cat", picture).stdout.startswith(b"\xff\xd8"), f"{picture} is no picture")
    require("bob   D:\\Profiles\\bob" in station.qbc("/RedirectUP").stdout.decode(), "bob is not listed")
    station("put", "-", "D:\\Profiles\\Public\\Documents\\later.txt", input=b"written to the new place")
    require(DONE in station.qbc("/RedirectUPDefault", "bob").stdout, "bob does not come to C:")
    require(image_path(station, scratch, bob_sid)[1] == "C:\\Users\\bob", "bob's record")

    done = station.qbc("/AutoRedirectUP", "/d").stdout.decode()
    require("Newly created user profile location at D:\\Profiles has been removed." in done, done)
    station.require_sound("C", "D")
    require(profile_values(station, scratch) == values, f"hivexml reads {profile_values(station, scratch)}")
    require(station("cat", "C:\\Users\\Public\\Documents\\later.txt").stdout == b"written to the new place",
            "what was written to the new place is lost")
    after = station.listing("C", "/Users/Public", f"{scratch}/after")
    home = [picture.replace("D:\\Profiles\\", "C:\\Users\\") for picture in in_public]
    require(pictures_of_bob() == home, f"bob's pictures are {pictures_of_bob()}")
    his = [picture.removeprefix("C:\\Users\\Public").replace("\\", "/") for picture in home]
    # A file that comes back is made anew, which its folder's times show.
    files = [name.removeprefix("Users/Public") for name in below_root(station.image("C")) if name.startswith("Users/Public/")]
    into = {os.path.dirname(name).rstrip("/") + "/(any)" for name in files}
    compare(trees["Public"], after, "/Users/Public", "/Users/Public", False,
            ["/Documents/later.txt", os.path.dirname(his[0]), *his, *into])
    compare(trees["Default"], station.listing("C", "/Users/Default", f"{scratch}/after"), "/Users/Default", "/Users/Default",
            False, ["/NTUSER.DAT"])
    left = [name for name in below_root(station.image("D")) if name.startswith("Profiles")]
    require(left == [], f"D: holds {left}")
    now = software(station, scratch).everything()
    differ = {k for k in now.keys() | registry.keys() if now.get(k) != registry.get(k)}
    require(all("Velmora" in k or bob_sid in k for k in differ), f"the registry is not as it was: {differ}")
    require(b"not enabled" in station.qbc("/AutoRedirectUP").stdout, "still on")
    require(b"ProfileList" not in station.qbc("/RedirectRegKey").stdout, "the key is still monitored")
    said(f"{len(moved)} paths of account pictures followed and came back, and so did those of a new account; its profile was "
         "made on D: of what the default profile held by then, and moved home")
