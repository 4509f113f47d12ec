"""Workstations and images from outside: ntfs-3g, mkntfs, wimlib, The Sleuth Kit."""
import contextlib
import glob
import os
import runpy
import subprocess
import tempfile
import time

TOP = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
COMPARE = f"{TOP}/tools/compare-listings.py"
LISTINGS = runpy.run_path(COMPARE)
os.environ["PATH"] += ":/usr/sbin:/sbin"


class CheckFailed(Exception):
    pass


def require(condition, text):
    if not condition:
        raise CheckFailed(text)


def run(*words, ok=(0,), **options):
    done = subprocess.run(words, stdout=subprocess.PIPE, stderr=subprocess.PIPE, **options)
    if ok is not None and done.returncode not in ok:
        output = (done.stdout + done.stderr).decode(errors="replace")
        raise CheckFailed(f"{' '.join(words)}: exit {done.returncode}\n{output}")
    return done


@contextlib.contextmanager
def mount(image):
    """An image under ntfs-3g (FUSE)."""
    folder = tempfile.mkdtemp(prefix="qbc-mount-")
    run("ntfs-3g", "-o", "streams_interface=xattr,efs_raw", image, folder)
    try:
        yield folder
    finally:
        # The mount program writes its last blocks after umount has come back.
        for command, done in ((("umount", folder), 0), (("fuser", "-s", image), 1)):
            for _ in range(100):
                if subprocess.run(command, stderr=subprocess.DEVNULL).returncode == done:
                    break
                time.sleep(0.05)
        os.rmdir(folder)


def can_mount(scratch):
    make_image(f"{scratch}/probe.ntfs", "8M")
    try:
        with mount(f"{scratch}/probe.ntfs"):
            return True
    except (CheckFailed, OSError):
        return False


def make_image(image, size):
    run("truncate", "-s", size, image)
    run("mkntfs", "-F", "-Q", "-q", "-L", "Foreign", "-p", "0", "-H", "0", "-S", "0", "-s", "512", "-c", "4096", image)


def copy_folder(source, target):
    run("cp", "-r", "--sparse=always", source, target)


class Station:
    def __init__(self, build, folder):
        self.build, self.folder = build, folder

    def __call__(self, command, *words, ok=(0,), **options):
        return run(f"{self.build}/workstation", command, self.folder, *words, ok=ok, **options)

    def qbc(self, *words, ok=(0,), more={}, **options):
        environment = {**os.environ, "QBC_WORKSTATION": self.folder, **more}
        return run(f"{self.build}/qbc", *words, ok=ok, env=environment, **options)

    def image(self, letter):
        """The image of a drive, or of a volume without a letter by its {GUID}."""
        return os.path.join(self.folder, letter + ".ntfs")

    def volume_without_letter(self):
        (name,) = [name for name in os.listdir(self.folder) if name.startswith("{") and name.endswith("}.ntfs")]
        return name.removesuffix(".ntfs")

    def listing(self, letter, path, name="now"):
        """What wimlib reads below a folder of the image, as a file of this name beside the workstation."""
        to = f"{self.folder}.{name}"
        run("wimcapture", self.image(letter), to + ".wim", "--compress=none")
        with open(to, "wb") as file:
            file.write(run("wimdir", to + ".wim", "1", "--detailed", "--path=" + path).stdout)
        os.unlink(to + ".wim")
        return to

    def reparse_data(self, letter, path):
        return run("ntfscat", "-f", "-a", "0xC0", self.image(letter), path, ok=None).stdout

    def require_sound(self):
        for image in glob.glob(f"{glob.escape(self.folder)}/*.ntfs"):
            run("ntfsresize", "-i", "-f", image)


def compare(before, after, before_root, after_root, moved, written=()):
    more = ["--moved"] * moved + [word for path in written for word in ("--written", path)]
    done = run(COMPARE, before, after, "--before-root", before_root, "--after-root", after_root, *more)
    return done.stdout.decode(errors="replace").splitlines()


def own_security_and_times(listing, root):
    """Of a listing's folder itself: control bits, owner, group, audit and access entries (how a descriptor is laid out
    differs between those who write it); the times."""
    fields = LISTINGS["split"](LISTINGS["read_listing"](listing, root.rstrip("/"))["/"])
    parts = LISTINGS["Descriptor"](fields["security"])
    return (parts.control, parts.owner, parts.group, parts.sacl, parts.dacl), fields["times"]


def below_root(image):
    """What a volume holds but for NTFS' own files, as The Sleuth Kit lists it."""
    listed = run("fls", "-r", "-u", "-p", "-f", "ntfs", image).stdout.decode(errors="replace").splitlines()
    # fls also takes what an index has behind its last entry for a name, as long as nothing else was written there.
    unused = {line.split(b"|")[0].decode() for line in run("ils", "-A", "-f", "ntfs", image).stdout.splitlines()}
    lines = [line.split("\t", 1) for line in listed if "\t" in line]
    names = [name for item, name in lines if item.split()[-1].split("-")[0] not in unused]
    # "/." stands for a folder itself, where a named stream of it is listed.
    return sorted(name for name in names
                  if not name.startswith(("$", "System Volume Information")) and "/.:" not in name)
