"""Whole disks and virtual machines' containers: made by sfdisk and qemu-img, given back, read by The Sleuth Kit."""
import os
import random
import subprocess
import time
import uuid

from station import Station, copy_folder, make_image, mount, require, run

MIB = 1 << 20
# The layout of each disk for sfdisk; the number, start and size (MiB) of the volume; whether it has to be named.
NTFS = "EBD0A0A2-B9E5-4433-87C0-68B6B72699C7"
OWN = uuid.UUID("01234567-89AB-CDEF-0123-456789ABCDEF")
GPT = (f"label: gpt\nsize=8M, type={NTFS}\nsize=24M, type={NTFS}, uuid={OWN}\nsize=16M, type={NTFS}", 2, 9, 24, True)
MBR = ("label: dos\nstart=1M, size=8M, type=c\nstart=9M, size=46M, type=5\nstart=10M, size=9M, type=83\n"
       "start=24M, size=24M, type=7", 6, 24, 24, False)


def make_disk(path, layout, volume):
    """Partitions of noise, and the volume in its place; a second one where it is to be named."""
    script, _, start, size, is_named = layout
    with open(path, "wb") as disk:
        for at in range(1, 56):
            disk.seek(at * MIB)
            disk.write(random.Random(at).randbytes(MIB))
        disk.truncate(60 * MIB)
    run("sfdisk", "-q", "--no-tell-kernel", "-w", "never", "-W", "never", path, input=script.encode())
    put(volume, path, start, size)
    if is_named:
        put(volume, path, 33, 16)


def put(volume, disk, start, size):
    with open(volume, "rb") as source, open(disk, "r+b") as target:
        target.seek(start * MIB)
        target.write(source.read(size * MIB))


def around(disk, layout):
    """What a disk holds but for the volume."""
    with open(disk, "rb") as file:
        data = file.read()
    return data[:layout[2] * MIB] + data[(layout[2] + layout[3]) * MIB:]


def names_on(disk, layout):
    sectors = layout[2] * 2048
    require(f"{sectors:010}" in run("mmls", disk).stdout.decode(), "mmls does not see the partition")
    return run("fls", "-r", "-p", "-o", str(sectors), "-f", "ntfs", disk).stdout.decode()


def check_disks(build, scratch, said):
    """A volume is taken from a disk's partition and written back into it; what lies around it stays as it was."""
    machine, volume = Station(build, f"{scratch}/machine"), f"{scratch}/volume.ntfs"
    machine("create", "--drive", "C:48M", "--drive", "E:16M")
    machine("mkdir", r"C:\Data")
    machine("put", __file__, r"C:\Data\kept.txt")
    machine("reg", "add", r"HKLM\SYSTEM\MountedDevices", "\\DosDevices\\W:", "binary", (b"DMIO:ID:" + OWN.bytes_le).hex())
    make_image(volume, "24M")
    with mount(volume) as mounted:
        os.makedirs(f"{mounted}/Windows/System32/config")
        machine("get", r"C:\Windows\System32\config\SYSTEM", f"{mounted}/Windows/System32/config/SYSTEM")
        os.makedirs(f"{mounted}/Users/maria/Documents")
        with open(f"{mounted}/Users/maria/Documents/letter.txt", "wb") as file:
            file.write(b"Dear Anna" * 9999)
    for name, layout, kind in (("gpt", GPT, "raw"), ("mbr", MBR, "raw"), ("qcow2", GPT, "qcow2"), ("vhdx", GPT, "vhdx"),
                               ("vmdk", MBR, "vmdk")):
        station, raw, number = Station(build, f"{scratch}/{name}.station"), f"{scratch}/{name}.img", str(layout[1])
        disk = raw if kind == "raw" else f"{scratch}/disk.{kind}"
        copy_folder(machine.folder, station.folder)
        make_disk(raw, layout, volume)
        before = around(raw, layout)
        if kind != "raw":
            run("qemu-img", "convert", "-O", kind, raw, disk)
            error = station("import", disk, "D:", ok=(1,), env={"PATH": "/nowhere"}).stderr.decode()
            require("qemu-img" in error and "qemu-utils" in error, error)
        if layout[4]:
            error = station("import", disk, "D:", ok=(1,)).stderr.decode()
            require("--partition N" in error and f"\n    {number}  at" in error, error)
            require((f'25165824 bytes  NTFS, labelled "Foreign", was W:\n' in error) == (kind == "raw"), error)
            error = station("import", disk, "D:", "--partition", "1", ok=(1,)).stderr.decode()
            require("partition 1 holds nothing that is known" in error and not os.path.exists(station.image("D")), error)
        station("import", disk, "D:", *(("--partition", number) if layout[4] else ()))
        require(station.qbc("/RedirectFolder", r"C:\Data", r"/loc:D:\T").returncode == 0, "redirected")
        into, started = ("--into", disk, "--partition", number), time.monotonic()
        for turn in range(4) if kind == "raw" else ():
            written = os.stat(disk).st_mtime_ns
            export = subprocess.Popen((f"{build}/workstation", "export", station.folder, "D:", *into))
            while export.poll() is None and os.stat(disk).st_mtime_ns == written:
                pass
            export.kill()
            export.wait()
            station("touch", r"D:\T", "-", "-", str(132_000_000_000_000_000 + turn))
        station("export", "D:", *into)
        said(f"{name}: {time.monotonic() - started:.2f} s to write it back")
        if kind != "raw":
            run("qemu-img", "convert", "-O", "raw", disk, raw)
        require(around(raw, layout) == before, f"{name}: another partition has changed")
        names = names_on(raw, layout)
        require("T/Data/kept.txt" in names and "Users/maria/Documents/letter.txt" in names, names)
        station("mkdir", r"D:\Later")
        if kind == "raw":
            with open(raw, "r+b") as file:
                file.seek((layout[2] + 20) * MIB)
                file.write(b"somebody else")
            held = names_on(raw, layout)
            error = station("export", "D:", *into, ok=(1,)).stderr.decode()
            require("has changed since it was imported (at byte 20971520" in error, error)
            require(names_on(raw, layout) == held, "it has been written to")
        else:
            station("export", "D:", *into)
        require(b"it is partition" in station("export", "D:", *into[:-1], "3", ok=(1,)).stderr or not layout[4], "another")
        require(b"has not come from a partition" in station("export", "E:", *into, ok=(1,)).stderr, "not from there")
    for kind in "raw", "qcow2", "vhdx":
        station("export", "D:", f"{scratch}/out.{kind}", "--format", kind)
        run("qemu-img", "compare", "-f", "raw", "-F", kind, station.image("D"), f"{scratch}/out.{kind}")
    require(b"there is such a file" in station("export", "D:", f"{scratch}/out.raw", ok=(1,)).stderr, "not overwritten")
    run("qemu-img", "create", "-f", "qcow2", "-b", "/etc/passwd", "-F", "raw", f"{scratch}/leads.qcow2", "60M")
    require(b'"/etc/passwd"' in station("import", f"{scratch}/leads.qcow2", "F:", ok=(1,)).stderr, "leads elsewhere")
