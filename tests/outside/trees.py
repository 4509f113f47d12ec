"""A tree as users have them, written by ntfs-3g, with everything that NTFS keeps about files."""
import os
import struct


def sid(authority, *subs):
    return struct.pack("<BB", 1, len(subs)) + authority.to_bytes(6, "big") + b"".join(struct.pack("<I", s) for s in subs)


ADMINISTRATORS, SYSTEM, USERS = sid(5, 32, 544), sid(5, 18), sid(5, 32, 545)


def descriptor(entries, control=0x8004, owner=ADMINISTRATORS, group=SYSTEM):
    """A self-relative descriptor; entries are (flags, mask, sid), all of them allowing."""
    body = b"".join(struct.pack("<BBHI", 0, flags, 8 + len(who), mask) + who for flags, mask, who in entries)
    acl = struct.pack("<BBHHH", 2, 0, 8 + len(body), len(entries), 0) + body
    return struct.pack("<BBHIIII", 1, 0, control, 20, 20 + len(owner), 0, 20 + len(owner) + len(group)) + owner + group + acl


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


def fill_tree(root, random_source, drive="E"):
    """A tree as users have them, written by ntfs-3g on what will be the drive of that letter."""
    os.makedirs(f"{root}/Tree/Docs/Old/Older")
    os.makedirs(f"{root}/Tree/Empty folder")
    files = {"Docs/a.txt": b"alpha", "Docs/empty.txt": b"", "Docs/Old/big.bin": random_source.randbytes(700_000),
             "Docs/Old/Older/\u00fcml\u00e4ut \u4e2d\u6587.txt": b"names beyond ASCII", "read only.txt": b"keep out",
             "hidden.sys": b"h", "streams.txt": b"main", "protected.txt": b"p", "inherited.txt": b"i"}
    for name, content in files.items():
        with open(f"{root}/Tree/{name}", "wb") as file:
            file.write(content)
    with open(f"{root}/Tree/sparse.bin", "wb") as file:
        file.truncate(3_000_000)
        file.seek(1_000_000)
        file.write(b"in the middle")
    set_attribute(f"{root}/Tree/streams.txt", "user.Zone", b"[ZoneTransfer]\r\nZoneId=3\r\n")
    set_attribute(f"{root}/Tree/streams.txt", "user.large", random_source.randbytes(50_000))
    set_attribute(f"{root}/Tree/Docs", "user.folderstream", b"on a folder")
    set_attribute(f"{root}/Tree", "user.rootstream", b"on the folder that is redirected")
    plain = [(0x03, 0x1F01FF, ADMINISTRATORS), (0x03, 0x1F01FF, SYSTEM), (0x03, 0x1200A9, USERS)]
    inherited = [(0, 0x120089, USERS)] + [(0x10, 0x1F01FF, ADMINISTRATORS), (0x10, 0x1F01FF, SYSTEM), (0x10, 0x1200A9, USERS)]
    for folder, _, names in os.walk(f"{root}/Tree"):
        set_attribute(folder, "system.ntfs_acl", descriptor(plain, 0x8404))
        for name in names:
            set_attribute(f"{folder}/{name}", "system.ntfs_acl", descriptor([(0, 0x1F01FF, ADMINISTRATORS), (0, 0x120089, USERS)]))
    set_attribute(f"{root}/Tree/protected.txt", "system.ntfs_acl", descriptor([(0, 0x1F01FF, ADMINISTRATORS)], 0x9004, owner=USERS))
    set_attribute(f"{root}/Tree/inherited.txt", "system.ntfs_acl", descriptor(inherited, 0x8404))
    set_attribute(f"{root}/Tree/read only.txt", "system.ntfs_attrib_be", struct.pack(">I", 0x21))
    set_attribute(f"{root}/Tree/hidden.sys", "system.ntfs_attrib_be", struct.pack(">I", 0x26))
    # Links by their reparse data alone, an object id, an extended attribute.
    os.mkdir(f"{root}/Tree/to docs")
    set_attribute(f"{root}/Tree/to docs", "system.ntfs_reparse_data", junction_bytes(f"{drive}:\\Tree\\Docs"))
    os.mkdir(f"{root}/Tree/to nowhere")
    set_attribute(f"{root}/Tree/to nowhere", "system.ntfs_reparse_data", junction_bytes("Q:\\Gone"))
    open(f"{root}/Tree/a link", "wb").close()
    set_attribute(f"{root}/Tree/a link", "system.ntfs_reparse_data", symbolic_link_bytes(f"{drive}:\\Tree\\Docs\\a.txt"))
    set_attribute(f"{root}/Tree/protected.txt", "system.ntfs_object_id", bytes(range(16)))
    set_attribute(f"{root}/Tree/hidden.sys", "system.ntfs_ea", struct.pack("<IBBH", 20, 0, 4, 5) + b"NOTE\0" + b"hello" + b"\0\0")
    for number, (folder, names, more) in enumerate(sorted(os.walk(f"{root}/Tree", topdown=False))):
        for name in sorted(more) + [""]:
            second = 131_000_000_000_000_000 + number * 7_777_777_777_777 + len(name) * 10_000_000
            set_attribute(f"{folder}/{name}".rstrip("/"), "system.ntfs_times_be", struct.pack(">QQQ", second, second + 10_000_000, second + 20_000_000))
