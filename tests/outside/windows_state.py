"""Volumes as Windows leaves them: hibernated, with changes in the journal, marked for a check; and what is no NTFS at all."""
import hashlib
import os
import struct

from station import Station, copy_folder, make_image, mount, require


class Records:
    """NTFS' own records of an image, found by the boot sector alone."""

    def __init__(self, file):
        self.file = file
        boot = self.at(0, 512)
        self.cluster = struct.unpack_from("<H", boot, 11)[0] * boot[13]
        size = struct.unpack_from("<b", boot, 64)[0]
        self.size = 1 << -size if size < 0 else size * self.cluster
        self.start, self.mirror = (number * self.cluster for number in struct.unpack_from("<QQ", boot, 48))

    def at(self, offset, size):
        self.file.seek(offset)
        return self.file.read(size)

    def attribute(self, record, kind):
        """Where an attribute of a record stands in the image, and its bytes."""
        place = self.start + record * self.size
        data = self.at(place, self.size)
        at = struct.unpack_from("<H", data, 20)[0]
        while struct.unpack_from("<I", data, at)[0] != kind:
            at += struct.unpack_from("<I", data, at + 4)[0]
        return place + at, data[at:at + struct.unpack_from("<I", data, at + 4)[0]]

    def mark_for_check(self):
        place, data = self.attribute(3, 0x70)
        for start in (self.start, self.mirror):
            self.file.seek(place - self.start + start + struct.unpack_from("<H", data, 20)[0] + 10)
            self.file.write(b"\1\0")

    def journal(self, flags, client):
        """A journal that Windows has opened: its two restart pages. Clean with the flag 2, or when no client has it."""
        _, data = self.attribute(2, 0x80)
        run_at, size = struct.unpack_from("<H", data, 32)[0], struct.unpack_from("<Q", data, 48)[0]
        lengths = data[run_at]
        cluster = int.from_bytes(data[run_at + 1 + lengths % 16:][:lengths // 16], "little")
        area = struct.pack("<QHHHHIHHQIHHII", 0, 1, 0xFFFF, client, flags, 67 - size.bit_length(), 208, 48, size, 0, 48, 64,
                           1, 0)
        area += struct.pack("<QQHHH6xI", 0, 0, 0xFFFF, 0xFFFF, 0, 8) + "NTFS".encode("utf-16-le").ljust(128, b"\0")
        page = bytearray(b"RSTR" + struct.pack("<HHQIIHhh", 30, 9, 0, 4096, 4096, 48, 1, 1) + struct.pack("<H", 1))
        page = bytearray(bytes(page).ljust(48, b"\0") + area).ljust(4096, b"\0")
        for sector in range(8):
            page[sector * 512 + 510:][:2] = page[32 + sector * 2:][:2]
            page[sector * 512 + 510:sector * 512 + 512] = b"\1\0"
        self.file.seek(cluster * self.cluster)
        self.file.write(bytes(page) * 2)


def hibernate(image):
    with mount(image) as mounted, open(f"{mounted}/hiberfil.sys", "wb") as file:
        file.write(b"HIBR" + bytes(4092))


def with_records(change):
    def spoil(image):
        with open(image, "r+b") as file:
            change(Records(file))
    return spoil


def digest(path):
    with open(path, "rb") as file:
        return hashlib.file_digest(file, "sha256").hexdigest()


def check_left_by_windows(build, scratch, said):
    """Nobody writes where Windows is not done; a look is given; what is no NTFS is named."""
    station = Station(build, f"{scratch}/machine")
    station("create", "--drive", "C:48M", "--drive", "D:16M")
    station("mkdir", r"C:\Data")
    move = ("/RedirectFolder", r"C:\Data", r"/loc:D:\T")
    for what, spoil, word in (("hibernated", hibernate, "powercfg /h off"),
                              ("journal", with_records(lambda records: records.journal(0, 0)), "$LogFile"),
                              ("marked", with_records(Records.mark_for_check), "chkdsk"),
                              ("put away", with_records(lambda records: records.journal(2, 0)), None)):
        for letter in "CD" if word else "D":
            spoiled = Station(build, f"{scratch}/{what}.{letter}")
            copy_folder(station.folder, spoiled.folder)
            spoil(spoiled.image(letter))
            if not word:
                require(spoiled.qbc(*move).returncode == 0, "a clean journal hinders nobody")
                continue
            before = {name: digest(f"{spoiled.folder}/{name}") for name in os.listdir(spoiled.folder)}
            error = spoiled.qbc(*move, ok=(3,)).stderr.decode()
            require(error.startswith(f"qbc: {spoiled.image(letter)}: ") and error.count("\n") == 1 and word in error, error)
            require(b"is all that is done" in spoiled.qbc("/ver").stderr, "a look says so")
            require(word.encode() in spoiled("ls", "C:\\Users").stderr, "a look says so")
            require(word.encode() in spoiled("mkdir", "C:\\New", ok=(1,)).stderr, "the tool does as the program does")
            other = Station(build, f"{scratch}/{what}.{letter}.other")
            copy_folder(station.folder, other.folder)
            error = other("import", spoiled.image(letter), "E:", ok=(1,)).stderr.decode()
            require(error.startswith(f"workstation: {spoiled.image(letter)}: ") and word in error, error)
            require(before == {name: digest(f"{spoiled.folder}/{name}") for name in os.listdir(spoiled.folder)},
                    f"{what}: something was written")
            if what == "journal":
                done = other("import", spoiled.image(letter), "E:", "--discard-log")
                require(b"has been given up in the copy" in done.stderr, done.stderr)
                require(other.qbc("/RedirectFolder", r"C:\Data", r"/loc:E:\T").returncode == 0, "it is in order then")
            said(f"{what}: {error.split(': ', 2)[2].strip()}")
    make_image(f"{scratch}/other.img", "8M")
    for kind, offset, start in (("BitLocker", 3, b"-FVE-FS-"), ("exFAT", 3, b"EXFAT   "), ("ReFS", 3, b"ReFS\0\0\0\0"),
                                ("FAT", 54, b"FAT16   ")):
        with open(f"{scratch}/other.img", "r+b") as file:
            file.write(bytes(512))
            file.seek(offset)
            file.write(start)
        error = station("import", f"{scratch}/other.img", "E:", ok=(1,)).stderr.decode()
        require(f"{kind} volume, not an NTFS volume" in error and not os.path.exists(station.image("E")), error)
