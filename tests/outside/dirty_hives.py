"""Hives as Windows leaves them when it stops in the middle: what is missing is in logs, made here to the published format."""
import hashlib
import os
import struct

from hives import Hive
from station import Station, copy_folder, mount, require

SEED = 0xC5554E7A884DEF82
HIVE = "Windows/System32/config/SYSTEM"


def marvin32(data):
    low, high = SEED & 0xFFFFFFFF, SEED >> 32

    def turned(word, bits):
        return (word << bits | word >> (32 - bits)) & 0xFFFFFFFF
    whole = len(data) // 4 * 4
    last = int.from_bytes(data[whole:] + b"\x80", "little")
    for (word,) in (*struct.iter_unpack("<I", data[:whole]), (last,), (0,)):
        low = low + word & 0xFFFFFFFF
        high ^= low
        low = turned(low, 20) + high & 0xFFFFFFFF
        high = turned(high, 9) ^ low
        low = turned(low, 27) + high & 0xFFFFFFFF
        high = turned(high, 19)
    return struct.pack("<II", low, high)


def header(hive, primary, secondary, kind):
    block = bytearray(hive[:512])
    struct.pack_into("<II", block, 4, primary, secondary)
    struct.pack_into("<I", block, 28, kind)
    total = 0
    for (word,) in struct.iter_unpack("<I", block[:508]):
        total ^= word
    struct.pack_into("<I", block, 508, total)
    return bytes(block)


def padded(data):
    return data + bytes(-len(data) % 512)


def new_log(before, after, sequence):
    """LOG1 of Windows 8.1 and later, with one entry."""
    pages = [at for at in range(4096, len(after), 4096) if before[at:at + 4096] != after[at:at + 4096]]
    body = b"".join(struct.pack("<II", at - 4096, 4096) for at in pages) + b"".join(after[at:at + 4096] for at in pages)
    size = len(padded(bytes(40) + body))
    body += bytes(size - 40 - len(body))
    start = b"HvLE" + struct.pack("<IIIII", size, 0, sequence, len(after) - 4096, len(pages)) + marvin32(body)
    return header(after, sequence, sequence, 6) + start + marvin32(start) + body


def old_log(before, after, sequence):
    """The log of Windows Vista to 8: a vector of dirty pages, and the pages."""
    dirty = [before[at:at + 512] != after[at:at + 512] for at in range(4096, len(after), 512)]
    bits = bytes(sum(dirty[at + bit] << bit for bit in range(8)) for at in range(0, len(dirty), 8))
    pages = b"".join(after[4096 + at * 512:][:512] for at, is_dirty in enumerate(dirty) if is_dirty)
    start = after[:12] + before[12:20] + after[20:]  # the hive's own time
    return header(start, sequence, sequence, 1) + padded(b"DIRT" + bits) + pages


def check_dirty_hives(build, scratch, said):
    """What a log holds counts, as Windows itself recovers it; a look writes nothing; without logs it is refused."""
    station = Station(build, f"{scratch}/machine")
    station("create", "--drive", "C:48M", "--drive", "D:16M")
    station("get", r"C:\Windows\System32\config\SYSTEM", f"{scratch}/before")
    for name in ("one", "two"):
        station("reg", "add", rf"HKLM\SYSTEM\Late\{name}", "value", "binary", "5a" * 3000)
    station("get", r"C:\Windows\System32\config\SYSTEM", f"{scratch}/after")
    before, after = (open(f"{scratch}/{name}", "rb").read() for name in ("before", "after"))
    for number, log in ((7, new_log(before, after, 7)), (9, old_log(before, after, 9)), (11, None)):
        spoiled = Station(build, f"{scratch}/machine.{number}")
        copy_folder(station.folder, spoiled.folder)
        with mount(spoiled.image("C")) as mounted:
            with open(f"{mounted}/{HIVE}", "wb") as file:
                file.write(header(before, number + 1, number, 0) + before[512:])
            if log:
                with open(f"{mounted}/{HIVE}.LOG1", "wb") as file:
                    file.write(log)

        def image():
            with open(spoiled.image("C"), "rb") as file:
                return hashlib.file_digest(file, "sha256").hexdigest()
        untouched = image()
        seen = spoiled("reg", "query", r"HKLM\SYSTEM\Late", "-s", ok=(0, 1))
        require(image() == untouched, "a look has changed the image")
        if not log:
            require(b"SYSTEM on the system volume is dirty" in seen.stderr, seen.stderr)
            copy = Station(build, f"{scratch}/imported")
            error = copy("import", spoiled.image("C"), "C:", ok=(1,)).stderr.decode()
            require(error.startswith(f"workstation: {spoiled.image('C')}: ") and "is dirty" in error, error)
            continue
        require(seen.stdout.lower().count(b"5a" * 3000) == 2, seen.stdout[:300])
        spoiled("reg", "add", r"HKLM\SYSTEM\Late", "more", "sz", "text")
        now, wanted = Hive(spoiled, "C", HIVE), Hive(station, "C", HIVE)
        require(now.keys.pop("Late")["more"] == ("string", "text"), "what was added is not there")
        wanted.keys.pop("Late")
        require(now.keys == wanted.keys, "the hive is not what its log makes of it")
        with open(f"{spoiled.folder}.hive", "rb") as file:
            start = file.read(12)
        require(start[4:8] == start[8:12], "what a run writes is a clean hive")
        said(f"{'entries' if number == 7 else 'a vector'}: {len(now.keys)} keys as hivexml reads them")
