#!/usr/bin/env python3
"""Compares two listings of a tree made by `wimdir --detailed` (wimlib, which reads the images without our help).

    compare-listings.py BEFORE AFTER [--before-root /Data] [--after-root /Kept/Data] [--moved]

Names, sizes, attributes, times, owners, access entries, named streams, contents (by hash) and reparse data are
compared. A difference that a move makes by design (docs/what-is-kept.md lists them) is counted and named; any other
is printed, and the exit code is 1. With --moved the two listings are of the tree at its two places: a link's target
may have followed the tree.
"""
import argparse
import re
import struct
import sys

# What differs between any two images and says nothing about the files.
PLACE = ("Link Group ID", "Offset in WIM", "Part Number", "Reference Count", "Compressed size", "Flags", "Inode", "Hard Link Group")


def read_listing(name, root):
    entries, entry = {}, None
    with open(name, encoding="utf-8", errors="surrogateescape") as file:
        for line in file:
            line = line.rstrip("\n")
            match = re.match(r"^Full Path\s*= \"(.*)\"$", line)
            if match:
                path = match.group(1)
                if not (path == root or path.startswith(root + "/")):
                    entry = None
                    continue
                entry = entries.setdefault(path[len(root):] or "/", [])
                continue
            if entry is None or not line.strip() or line.startswith("---"):
                continue
            key = line.split("=")[0].strip()
            if key not in PLACE:
                entry.append(re.sub(r"\s+", " ", line.strip()))
    return entries


class Descriptor:
    """The parts of a self-relative security descriptor; wimdir shows it with padding behind it."""

    def __init__(self, hexadecimal):
        data = bytes.fromhex(hexadecimal)
        _, _, self.control, owner, group, sacl, dacl = struct.unpack_from("<BBHIIII", data)
        self.owner, self.group = self.sid(data, owner), self.sid(data, group)
        self.sacl, self.dacl = self.acl(data, sacl), self.acl(data, dacl)

    @staticmethod
    def sid(data, at):
        return data[at:at + 8 + 4 * data[at + 1]].hex() if at else None

    @staticmethod
    def acl(data, at):
        if not at:
            return None
        _, _, _, count, _ = struct.unpack_from("<BBHHH", data, at)
        entries, at = [], at + 8
        for _ in range(count):
            size = struct.unpack_from("<H", data, at + 2)[0]
            entries.append((data[at], data[at + 1], data[at + 4:at + size].hex()))
            at += size
        return entries

    def without_inheritance(self):
        """What the DACL copy keeps whole: owner, group, audit entries, and the entries that are the item's own."""
        own = [e for e in self.dacl or [] if not e[1] & 0x10]
        return self.owner, self.group, self.sacl, own

    def as_own(self):
        """All that it says, wherever the entries come from."""
        return self.owner, self.group, self.sacl, [(kind, flags & ~0x10, who) for kind, flags, who in self.dacl or []]


def split(entry):
    fields = {"times": [], "security": None, "short name": None, "other": []}
    for line in entry:
        if line.startswith("Security Descriptor ="):
            fields["security"] = line.split("= ")[1]
        elif line.startswith("Short Name ="):
            fields["short name"] = line
        elif re.match(r"(Creation|Last Write|Last Access) Time", line):
            fields["times"].append(line)
        else:
            fields["other"].append(line)
    return fields


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("before")
    parser.add_argument("after")
    parser.add_argument("--before-root", default="/Data")
    parser.add_argument("--after-root", default="/Data")
    parser.add_argument("--moved", action="store_true")
    parser.add_argument("--written", action="append", default=[], metavar="PATH",
                        help="a file written in between: it may be new or changed, and the times of its folder may differ")
    options = parser.parse_args()
    before = read_listing(options.before, options.before_root)
    after = read_listing(options.after, options.after_root)

    wrong, designed, equal = [], {}, 0
    for path in sorted(before.keys() | after.keys()):
        if path in options.written and path in after:
            designed.setdefault("written in between", []).append(path)
            continue
        if path not in before or path not in after:
            wrong.append(f"{path}: only {'after' if path in after else 'before'}")
            continue
        b, a = split(before[path]), split(after[path])
        differences = []
        is_link = any("REPARSE_POINT is set" in line for line in b["other"])
        symbolic = is_link and any("0xa000000c" in line.lower() for line in b["other"])
        holds_written = any(name.rsplit("/", 1)[0] == path.rstrip("/") for name in options.written)
        if b["security"] != a["security"]:
            b_sd, a_sd = Descriptor(b["security"]), Descriptor(a["security"])
            if symbolic:
                differences.append("security of a symbolic link that was made anew")
            elif options.moved and path == "/" and a_sd.control & 0x1000 and b_sd.as_own() == a_sd.as_own():
                differences.append("what the root inherited is its own where it went")
            elif b_sd.without_inheritance() != a_sd.without_inheritance():
                wrong.append(f"{path}: security\n  - {b['security'][:160]}\n  + {a['security'][:160]}")
            elif (b_sd.dacl, b_sd.control & 0x1000) != (a_sd.dacl, a_sd.control & 0x1000):
                differences.append("inherited access entries and the protected flag")
        if b["short name"] != a["short name"]:
            differences.append("short names, which a volume makes anew")
        if b["times"] != a["times"]:
            if holds_written:
                differences.append("times of the folder that was written to in between")
            else:
                wrong.append(f"{path}: times\n  - " + "\n  - ".join(b["times"]) + "\n  + " + "\n  + ".join(a["times"]))
        if b["other"] != a["other"]:
            if is_link:
                differences.append("reparse data of a link that was made anew")
            else:
                gone = [l for l in b["other"] if l not in a["other"]]
                new = [l for l in a["other"] if l not in b["other"]]
                wrong.append(f"{path}:\n  - " + "\n  - ".join(gone) + "\n  + " + "\n  + ".join(new))
        for difference in differences:
            designed.setdefault(difference, []).append(path)
        equal += not differences
    print(f"{len(before)} items before, {len(after)} after; {equal} equal in names, sizes, attributes, times, owners, "
          "access entries, streams, contents and reparse data")
    for difference, paths in sorted(designed.items()):
        print(f"  by design: {difference}: {len(paths)} ({', '.join(paths[:4])}{', ...' if len(paths) > 4 else ''})")
    for line in wrong:
        print("DIFFERENT " + line)
    if not before:
        print("nothing was compared: the listing before is empty")
        return 1
    return 1 if wrong else 0


if __name__ == "__main__":
    sys.exit(main())
