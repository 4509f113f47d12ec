"""import, adopt and create are whole or have not been: killed at any moment, on a full disk, through a link."""
import contextlib
import hashlib
import os
import pathlib
import random
import shutil
import signal
import subprocess
import time

from station import Station, copy_folder, make_image, mount, require, run

KILLS = int(os.environ.get("QBC_KILLS", "3"))  # of each kind
FILES = {f"file {number}": random.Random(number).randbytes(2_200_000) for number in range(10)}
IMAGES = {"create": ("state", "C.ntfs", "D.ntfs"), "C:": ("C.ntfs",), "E:": ("state", "C.ntfs", "D.ntfs", "E.ntfs")}


def content(image):
    """What is not zero in a file, and where; holes are not read."""
    digest, at = hashlib.sha256(b"%d" % os.path.getsize(image)), 0
    with open(image, "rb") as file, contextlib.suppress(OSError):  # no data behind
        while True:
            at = os.lseek(file.fileno(), at, os.SEEK_DATA) // 4096 * 4096
            if (block := os.pread(file.fileno(), 4096, at)).strip(b"\0"):
                digest.update(b"%d" % at + block)
            at += 4096
    return digest.digest()


class Case:
    """A command that is killed, and what must be so then."""

    def __init__(self, build, scratch, template, command, letter):
        self.template, self.command, self.letter = template, command, letter
        self.original, self.own, self.image = f"{scratch}/foreign.ntfs", f"{scratch}/own", f"{scratch}/own/image"
        self.station, self.before = Station(build, f"{self.own}/machine"), content(self.original)
        more = ("--drive", "C:32M", "--drive", "D:16M") if command == "create" else (self.image, letter)
        self.words = f"{build}/workstation", command, self.station.folder, *more
        self.fresh()
        self.seconds = -time.monotonic()
        run(*self.words)
        self.seconds += time.monotonic()

    def fresh(self):
        shutil.rmtree(self.own, ignore_errors=True)
        os.mkdir(self.own)
        if self.letter == "E:":
            copy_folder(self.template, self.station.folder)
        run("cp", "--sparse=always", self.original, self.image)

    def require_done(self):
        there = {*os.listdir(self.station.folder), *os.listdir(self.own)}
        require(there == {*IMAGES[self.letter], "machine", "image"} - {"image" * (self.command == "adopt")}, f"{there}")
        self.station.require_sound()
        for name in () if self.command == "create" else random.sample(sorted(FILES), 2):
            require(self.station("cat", f"{self.letter}\\{name}").stdout == FILES[name], f"{name} is not what it was")

    def killed(self, seconds):
        self.fresh()
        with contextlib.suppress(subprocess.TimeoutExpired):  # which kills
            run(*self.words, timeout=seconds)
        is_there = self.station("info", ok=(0, 1)).returncode == 0  # which clears away, or completes
        is_done = is_there and os.path.exists(f"{self.station.folder}/{IMAGES[self.letter][-1]}")
        if not is_done:
            require(content(self.image) == self.before, f"{self.words} has changed the user's image")
            require({*os.listdir(self.own)} - {"machine" * is_there} == {"image"}, f"left: {os.listdir(self.own)}")
            run(*self.words)
        self.require_done()
        return is_done


def check_imports(build, scratch, said):
    template = Station(build, f"{scratch}/template")
    template("create", "--drive", "C:48M", "--drive", "D:16M")
    make_image(f"{scratch}/foreign.ntfs", "1G")
    with mount(f"{scratch}/foreign.ntfs") as folder:
        for name, data in FILES.items():
            pathlib.Path(folder, name).write_bytes(data)
    for command, letter in (("create", "create"), ("adopt", "E:"), ("adopt", "C:"), ("import", "E:"), ("import", "C:")):
        case = Case(build, scratch, template.folder, command, letter)
        done = sum(case.killed(case.seconds * (number + random.random()) / KILLS) for number in range(KILLS))
        said(f"{command} {letter}: killed {KILLS} times in {case.seconds:.2f} s, {done} were done")
    require(os.stat(case.station.image("C")).st_blocks < 30 << 11, "the holes are filled")
    case.fresh()
    process = subprocess.Popen(case.words, stderr=subprocess.DEVNULL)
    time.sleep(case.seconds / 3)
    process.send_signal(signal.SIGSTOP)
    case.station("info", ok=(0, 1))  # clears nothing away now
    process.send_signal(signal.SIGCONT)
    require(process.wait() == 0, "what somebody is at has been cleared away")
    os.mkdir(f"{scratch}/small")
    for more in (-1 << 23, 1 << 18):  # full while it is copied, full when Windows comes
        size = os.stat(case.original).st_blocks * 512 + more
        script = f'mount -t tmpfs -o size={size} none small && "$@"; find small -mindepth 1'
        done = run("unshare", "-rm", "sh", "-c", script, "", f"{build}/workstation", "import", "small/machine",
                   case.original, "C:", cwd=scratch)
        error = f"{case.original}: small/machine/C.ntfs cannot be written: No space left on device\n"
        require(done.stdout + done.stderr == f"workstation: {error}".encode(), f"{size}: {done.stdout} {done.stderr}")
    other, bare, link = Station(build, f"{scratch}/other"), Station(build, f"{scratch}/bare"), f"{scratch}/link"
    os.symlink(case.original, link)
    for words, expected, code in ((("adopt", link, "C:"), "symbolic link; name the image itself, " + case.original, 1),
                                  (("import", link, "C:", "--bare"), r"config\SYSTEM on the system volume", 1),
                                  (("import", link, "C:"), "the hives SYSTEM SOFTWARE SAM SECURITY DEFAULT", 0)):
        require(not os.path.exists(other.folder), "what was refused leaves a folder")
        error = other(*words, ok=(code,)).stderr.decode()
        require(error.startswith(f"workstation: {link}: ") and expected in error, error)
    require(content(case.original) == case.before, "the user's image is as it was")
    require(not bare("import", template.image("C"), "C:", "--bare").stderr, "something was added")
    require(content(bare.image("C")) == content(template.image("C")), "the copy is the image")
