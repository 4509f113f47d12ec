"""What stands on the images of a workstation, read by libntfs-3g itself, and where a path leads there."""
import ctypes
import ctypes.util
import os
import re
import struct
from collections import namedtuple

# kind: "folder", "file" or "link"; data: of a link its tag; link: where it leads; security: see security_of.
Entry = namedtuple("Entry", "path kind data link security attributes")

NOT_READ = "WINDOWS|PROGRAM FILES|PROGRAM FILES (X86)|PROGRAMDATA|SYSTEM VOLUME INFORMATION|$RECYCLE.BIN".split("|")
NTFS = ctypes.CDLL(ctypes.util.find_library("ntfs-3g") or "libntfs-3g.so.89", use_errno=True)
INT, LONG, POINTER = ctypes.c_int, ctypes.c_int64, ctypes.c_void_p
FILL = ctypes.CFUNCTYPE(INT, POINTER, POINTER, INT, INT, LONG, ctypes.c_uint64, ctypes.c_uint)
for name, result, *arguments in (
        ("ntfs_mount", POINTER, ctypes.c_char_p, ctypes.c_ulong), ("ntfs_umount", INT, POINTER, INT),
        ("ntfs_open_secure", INT, POINTER), ("ntfs_inode_open", POINTER, POINTER, ctypes.c_uint64),
        ("ntfs_inode_close", INT, POINTER), ("ntfs_readdir", INT, POINTER, ctypes.POINTER(LONG), POINTER, FILL),
        ("ntfs_attr_readall", POINTER, POINTER, ctypes.c_uint32, POINTER, ctypes.c_uint32, ctypes.POINTER(LONG)),
        ("ntfs_get_ntfs_acl", INT, POINTER, POINTER, ctypes.c_char_p, ctypes.c_size_t),
        ("ntfs_get_ntfs_attrib", INT, POINTER, ctypes.c_char_p, ctypes.c_size_t),
        ("ntfs_log_set_handler", None, POINTER)):
    getattr(NTFS, name).restype, getattr(NTFS, name).argtypes = result, arguments
FREE = ctypes.CDLL(None).free
FREE.argtypes = (POINTER,)
UNNAMED = ctypes.addressof(ctypes.c_uint16.in_dll(NTFS, "AT_UNNAMED"))
NTFS.ntfs_log_set_handler(ctypes.cast(NTFS.ntfs_log_handler_null, POINTER))


def fold(path):
    """Names are one name to NTFS when their capitals are (which hold for all letters that we use)."""
    return path.upper()


def is_below(path, folder):
    """At or below; both folded."""
    return path == folder or path.startswith(folder.rstrip("\\") + "\\")


def security_of(descriptor):
    """Owner, whether it is protected, and the access entries that are the item's own."""
    control, owner, dacl = struct.unpack_from("<xxHI8xI", descriptor)
    entries, at = [], dacl + 8
    for _ in range(struct.unpack_from("<H", descriptor, dacl + 4)[0] if dacl else 0):
        kind, flags, size = struct.unpack_from("<BBH", descriptor, at)
        if not flags & 0x10:
            entries.append((kind, flags, descriptor[at + 4:at + size].hex()))
        at += size
    return descriptor[owner:owner + 8 + 4 * descriptor[owner + 1]].hex(), bool(control & 0x1000), tuple(entries)


class Volume:
    """One image while it is read. Each path begins with `root`: "C:" for a drive, "{GUID}:" for another volume."""

    def __init__(self, image, root, letters):
        self.entries, self.root, self.letters = {}, root, letters
        self.volume = NTFS.ntfs_mount(os.fsencode(image), 1)
        if not self.volume:
            raise OSError(f"{image}: libntfs-3g does not read it")
        NTFS.ntfs_open_secure(self.volume)
        self.context = (POINTER * 32)(self.volume)
        self.walk(5, root)
        NTFS.ntfs_umount(self.volume, 1)

    def walk(self, record, path):
        inode, names = NTFS.ntfs_inode_open(self.volume, record), []

        def fill(_, name, length, name_type, __, reference, ___):
            if name_type != 2 and (reference & 0xFFFFFFFFFFFF) >= 24:  # no short name, none of NTFS' own files
                names.append((ctypes.string_at(name, 2 * length).decode("utf-16-le", "surrogatepass"), reference))
            return 0
        if self.note(inode, path) == "folder":
            NTFS.ntfs_readdir(inode, ctypes.byref(LONG(0)), None, FILL(fill))
        NTFS.ntfs_inode_close(inode)
        for name, reference in names:
            if name not in (".", "..") and (path != self.root or name.upper() not in NOT_READ):
                self.walk(reference, f"{path}\\{name}")

    def note(self, inode, path):
        """Enters the item itself; what kind it is of."""
        bits, descriptor = ctypes.create_string_buffer(4), ctypes.create_string_buffer(4096)
        NTFS.ntfs_get_ntfs_attrib(inode, bits, 4)
        NTFS.ntfs_get_ntfs_acl(ctypes.byref(self.context), inode, descriptor, 4096)
        attributes, reparse = struct.unpack("<I", bits.raw)[0], self.read(inode, 0xC0)
        kind = "link" if attributes & 0x400 else "folder" if attributes & 0x10 else "file"
        data = self.read(inode, 0x80) if kind == "file" else reparse[:4][::-1].hex()
        link = self.leads_to(reparse) if kind == "link" else None
        self.entries[fold(path)] = Entry(path, kind, data, link, security_of(descriptor.raw), attributes & 0x27)
        return kind

    @staticmethod
    def read(inode, kind):
        size = LONG(0)
        block = NTFS.ntfs_attr_readall(inode, kind, UNNAMED, 0, ctypes.byref(size))
        data = ctypes.string_at(block, size.value) if block else b""
        FREE(block)
        return data

    def leads_to(self, reparse):
        """The path that a junction, a mount point or a symbolic link leads to; the tag's number for anything else."""
        tag, _, _, offset, length = struct.unpack_from("<IHHHH", reparse)
        if tag not in (0xA0000003, 0xA000000C):
            return f"?{tag:#x}"
        start = (16 if tag == 0xA0000003 else 20) + offset
        text = reparse[start:start + length].decode("utf-16-le", "surrogatepass").removeprefix("\\??\\")
        volume = re.match(r"Volume(\{[0-9a-f-]+\})", text, re.I)
        return self.letters.get(volume[1].lower(), volume[1]) + ":" + text[volume.end():] if volume else text


class Disk:
    """All images of a workstation at one moment. `read` has what was read of those that have not changed since."""

    def __init__(self, folder, letters, read):
        self.entries = {}
        for name in sorted(name for name in os.listdir(folder) if name.endswith(".ntfs")):
            at = os.stat(f"{folder}/{name}").st_mtime_ns
            if read.get(name, (0,))[0] != at:
                read[name] = at, Volume(f"{folder}/{name}", name.removesuffix(".ntfs") + ":", letters).entries
            self.entries.update(read[name][1])

    def at(self, path):
        return self.entries.get(fold(path).rstrip("\\"))

    def resolve(self, path, follow_last=True):
        """Where the path really is, its parts as they are on the disk; those that are not there as they are given."""
        for _ in range(40):
            parts, real = path.rstrip("\\").split("\\"), ""
            for number, part in enumerate(parts):
                step = f"{real}\\{part}" if real else part
                entry = self.at(step)
                if entry and entry.kind == "link" and (follow_last or number + 1 < len(parts)):
                    path = "\\".join([entry.link.rstrip("\\")] + parts[number + 1:])
                    break
                real = entry.path if entry else step
            else:
                return real
        return path

    def below(self, path):
        """What stands below a real path, links not entered."""
        return [entry for key, entry in self.entries.items() if key.startswith(fold(path).rstrip("\\") + "\\")]
