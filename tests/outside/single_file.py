"""A single file redirected and brought back, as independent readers see it."""
import random
import struct

from station import Mounted, Station, make_image, require, run
from trees import ADMINISTRATORS, SYSTEM, USERS, descriptor, set_attribute, symbolic_link_bytes

# What wimdir says of the file's place, and not of the file.
PLACE = ("Full Path", "Short Name", "Link Group ID", "Offset in WIM", "Part Number", "Reference Count", "Compressed size", "Flags")


def fill(root, random_source):
    """A file with all that a file can carry over, written by ntfs-3g."""
    path = f"{root}/report.doc"
    with open(path, "wb") as file:
        file.write(random_source.randbytes(300_000))
    set_attribute(path, "user.Zone", b"[ZoneTransfer]\r\nZoneId=3\r\n")
    set_attribute(path, "user.large", random_source.randbytes(40_000))
    # Own and inherited entries, another owner.
    set_attribute(path, "system.ntfs_acl", descriptor([(0, 0x120089, USERS), (0x10, 0x1F01FF, ADMINISTRATORS), (0x10, 0x1F01FF, SYSTEM)],
                                                      0x8404, owner=USERS))
    set_attribute(path, "system.ntfs_attrib_be", struct.pack(">I", 0x23))  # read-only, hidden, to be archived
    set_attribute(path, "system.ntfs_times_be", struct.pack(">QQQ", 131_000_000_000_000_000, 131_000_777_000_000_000, 131_000_999_000_000_000))


def owner_and_entries(hexadecimal):
    """The owner, the marks of the access entries and the entries; the group of a new file is its maker's."""
    data = bytes.fromhex(hexadecimal)
    _, _, control, owner, _, _, entries = struct.unpack_from("<BBHIIII", data)
    size = struct.unpack_from("<H", data, entries + 2)[0]
    return data[owner:owner + 8 + 4 * data[owner + 1]].hex(), control & 0x1404, data[entries:entries + size].hex()


def description(listing):
    """What wimlib tells of the one file in a listing."""
    told = []
    with open(listing, encoding="utf-8", errors="surrogateescape") as file:
        for line in file:
            key, _, value = (part.strip() for part in line.partition("="))
            if key == "Security Descriptor":
                told.append((key, owner_and_entries(value)))
            elif key and not key.startswith("---") and key not in PLACE:
                told.append((key, value))
    require(len(told) > 8, f"wimdir tells only {told}")
    return told


def check_single_file(build, scratch, said):
    """E:\\report.doc of an image that ntfs-3g wrote goes to D: and comes back."""
    foreign = f"{scratch}/foreign.ntfs"
    make_image(foreign, "32M")
    with Mounted(foreign) as folder:
        fill(folder, random.Random(9))
    station = Station(build, f"{scratch}/machine")
    station("create", "--drive", "C:64M", "--drive", "D:32M")
    station("import", foreign, "E:")
    before = description(station.listing("E", "/report.doc", f"{scratch}/before"))

    def same(letter, path, when):
        station.require_sound("C", "D", "E")
        now = description(station.listing(letter, path, f"{scratch}/now"))
        require(now == before, f"{when}:\n  - {[x for x in before if x not in now]}\n  + {[x for x in now if x not in before]}")
        said(f"{when}, wimlib tells the same {len(now)} things of the file")

    station.qbc("/RedirectFile", "E:\\report.doc", "/loc:D:\\Kept")
    same("D", "/Kept/report.doc", "at its new place")
    found = run("ntfscat", "-f", "-a", "0xC0", station.image("E"), "report.doc").stdout
    require(found == symbolic_link_bytes("D:\\Kept\\report.doc"), f"the link's reparse data are {found.hex()}")
    said(f"the link's {len(found)} bytes of reparse data are Windows' own")
    listed = station.qbc("/RedirectFile").stdout.decode()
    require("E:\\report.doc   D:\\Kept\\report.doc" in listed, f"the list of redirected files is {listed!r}")

    station.qbc("/RedirectFile", "E:\\report.doc", "/loc:D:\\Kept", "/d")
    same("E", "/report.doc", "back at its old place")
    left = run("fls", "-r", "-u", "-p", "-f", "ntfs", station.image("D")).stdout.decode(errors="replace")
    require("report.doc" not in left, "D: still holds the file")
