"""A tree as users have them, written by ntfs-3g, with everything that NTFS keeps about files."""
import os
import struct


def sid(authority, *subs):
    return struct.pack(f"<BB6s{len(subs)}I", 1, len(subs), authority.to_bytes(6, "big"), *subs)


COMPUTER = (21, 1004336348, 1177238915, 682003330)
ADMINISTRATORS, SYSTEM, USERS = sid(5, 32, 544), sid(5, 18), sid(5, 32, 545)


def descriptor(entries, control=0x8004, owner=ADMINISTRATORS, group=SYSTEM):
    """A self-relative descriptor; entries are (flags, mask, sid), all of them allowing."""
    body = b"".join(struct.pack("<BBHI", 0, flags, 8 + len(who), mask) + who for flags, mask, who in entries)
    acl = struct.pack("<BBHHH", 2, 0, 8 + len(body), len(entries), 0) + body
    after_group = 20 + len(owner) + len(group)
    return struct.pack("<BBHIIII", 1, 0, control, 20, 20 + len(owner), 0, after_group) + owner + group + acl


def set_attribute(path, name, value):
    os.setxattr(path, name, value, follow_symlinks=False)


def junction_bytes(target):
    """The reparse data of a junction: substitute name, no print name."""
    name = ("\\??\\" + target).encode("utf-16-le")
    return struct.pack("<IHHHHHH", 0xA0000003, len(name) + 12, 0, 0, len(name), len(name) + 2, 0) + name + b"\0\0\0\0"


def symbolic_link_bytes(target):
    """The reparse data of a symbolic link as Windows makes it: substitute name, print name, absolute."""
    substitute, shown = ("\\??\\" + target).encode("utf-16-le"), target.encode("utf-16-le")
    body = struct.pack("<HHHHI", len(shown), len(substitute), 0, len(shown), 0) + shown + substitute
    return struct.pack("<IHH", 0xA000000C, len(body), 0) + body


def fill_tree(root, random_source):
    """A tree and a file as users have them, written by ntfs-3g on what will be drive E."""
    tree = f"{root}/Tree"
    os.makedirs(f"{tree}/Docs/Old/Older")
    os.makedirs(f"{tree}/Empty folder")
    files = {"Docs/a.txt": b"alpha", "Docs/empty.txt": b"", "Docs/Old/big.bin": random_source.randbytes(700_000),
             "Docs/Old/Older/\u00fcml\u00e4ut \u4e2d\u6587.txt": b"names beyond ASCII", "read only.txt": b"keep out",
             "hidden.sys": b"h", "streams.txt": b"main", "protected.txt": b"p", "inherited.txt": b"i",
             "../report.doc": random_source.randbytes(300_000)}
    for name, content in files.items():
        with open(f"{tree}/{name}", "wb") as file:
            file.write(content)
    with open(f"{tree}/sparse.bin", "wb") as file:
        file.truncate(3_000_000)
        file.seek(1_000_000)
        file.write(b"in the middle")
    plain = [(0x03, 0x1F01FF, ADMINISTRATORS), (0x03, 0x1F01FF, SYSTEM), (0x03, 0x1200A9, USERS)]
    inherited = [(0x10, mask, who) for _, mask, who in plain]
    for folder, _, names in os.walk(tree):
        set_attribute(folder, "system.ntfs_acl", descriptor(plain, 0x8404))
        for name in names:
            set_attribute(f"{folder}/{name}", "system.ntfs_acl",
                          descriptor([(0, 0x1F01FF, ADMINISTRATORS), (0, 0x120089, USERS)]))
    # Links by their reparse data alone.
    for name in ("to docs", "to nowhere"):
        os.mkdir(f"{tree}/{name}")
    open(f"{tree}/a link", "wb").close()
    zone = b"[ZoneTransfer]\r\nZoneId=3\r\n"
    for name, attribute, value in (
            ("streams.txt", "user.Zone", zone), ("streams.txt", "user.large", random_source.randbytes(50_000)),
            ("Docs", "user.folderstream", b"on a folder"), ("", "user.rootstream", b"on the folder that is redirected"),
            ("protected.txt", "system.ntfs_acl", descriptor([(0, 0x1F01FF, ADMINISTRATORS)], 0x9004, owner=USERS)),
            ("inherited.txt", "system.ntfs_acl", descriptor([(0, 0x120089, USERS), *inherited], 0x8404)),
            ("read only.txt", "system.ntfs_attrib_be", struct.pack(">I", 0x21)),
            ("hidden.sys", "system.ntfs_attrib_be", struct.pack(">I", 0x26)),
            ("to docs", "system.ntfs_reparse_data", junction_bytes("E:\\Tree\\Docs")),
            ("to nowhere", "system.ntfs_reparse_data", junction_bytes("Q:\\Gone")),
            ("a link", "system.ntfs_reparse_data", symbolic_link_bytes("E:\\Tree\\Docs\\a.txt")),
            ("protected.txt", "system.ntfs_object_id", bytes(range(16))),
            ("hidden.sys", "system.ntfs_ea", struct.pack("<IBBH", 20, 0, 4, 5) + b"NOTE\0" + b"hello" + b"\0\0"),
            ("../report.doc", "user.Zone", zone),
            ("../report.doc", "system.ntfs_acl",  # the group of a file that is made anew is its maker's
             descriptor([(0, 0x120089, USERS), *inherited[:2]], 0x8404, owner=USERS, group=sid(5, *COMPUTER, 513))),
            ("../report.doc", "system.ntfs_attrib_be", struct.pack(">I", 0x23))):
        set_attribute(f"{tree}/{name}".rstrip("/"), attribute, value)
    items = sorted(f"{folder}/{name}" for folder, folders, names in os.walk(root) for name in folders + names)
    for number, item in enumerate(sorted(items, key=len, reverse=True)):
        first = 131_000_000_000_000_000 + number * 7_777_777_777_777
        set_attribute(item, "system.ntfs_times_be", struct.pack(">QQQ", first, first + 10_000_000, first + 20_000_000))
