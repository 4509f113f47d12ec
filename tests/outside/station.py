"""Workstations and images from outside: ntfs-3g, mkntfs, wimlib, The Sleuth Kit, hivex."""
import base64
import os
import re
import runpy
import subprocess
import tempfile
import time
import xml.etree.ElementTree

TOP = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
COMPARE = os.path.join(TOP, "tools", "compare-listings.py")
Descriptor = runpy.run_path(COMPARE)["Descriptor"]
os.environ["PATH"] += ":/usr/sbin:/sbin"


class CheckFailed(Exception):
    pass


def require(condition, text):
    if not condition:
        raise CheckFailed(text)


def run(*words, ok=(0,), **options):
    done = subprocess.run(words, stdout=subprocess.PIPE, stderr=subprocess.PIPE, **options)
    if ok is not None and done.returncode not in ok:
        raise CheckFailed(f"{' '.join(words)}: exit {done.returncode}\n{done.stdout.decode(errors='replace')}{done.stderr.decode(errors='replace')}")
    return done


class Mounted:
    """An image under ntfs-3g (FUSE)."""

    def __init__(self, image):
        self.image = image

    def __enter__(self):
        self.folder = tempfile.mkdtemp(prefix="qbc-mount-")
        run("ntfs-3g", "-o", "streams_interface=xattr,efs_raw", self.image, self.folder)
        return self.folder

    def __exit__(self, *_):
        for _ in range(50):
            if subprocess.run(["umount", self.folder], stderr=subprocess.DEVNULL).returncode == 0:
                break
            time.sleep(0.1)
        # The mount program writes its last blocks after umount has come back.
        for _ in range(100):
            if subprocess.run(["fuser", "-s", self.image], stderr=subprocess.DEVNULL).returncode != 0:
                break
            time.sleep(0.05)
        os.rmdir(self.folder)


def can_mount(scratch):
    image = os.path.join(scratch, "probe.ntfs")
    make_image(image, "8M")
    try:
        with Mounted(image):
            return True
    except (CheckFailed, OSError):
        return False


def make_image(image, size):
    run("truncate", "-s", size, image)
    run("mkntfs", "-F", "-Q", "-q", "-L", "Foreign", "-p", "0", "-H", "0", "-S", "0", "-s", "512", "-c", "4096", image)


class Station:
    def __init__(self, build, folder):
        self.build, self.folder = build, folder

    def __call__(self, command, *words, ok=(0,), **options):
        return run(f"{self.build}/workstation", command, self.folder, *words, ok=ok, **options)

    def qbc(self, *words, ok=(0,), **options):
        return run(f"{self.build}/qbc", *words, ok=ok, env={**os.environ, "QBC_WORKSTATION": self.folder}, **options)

    def image(self, letter):
        """The image of a drive, or of a volume without a letter by its {GUID}."""
        return os.path.join(self.folder, letter + ".ntfs")

    def volume_without_letter(self):
        (name,) = [name for name in os.listdir(self.folder) if name.startswith("{") and name.endswith("}.ntfs")]
        return name.removesuffix(".ntfs")

    def listing(self, letter, path, to):
        """What wimlib reads below a folder of the image; the text goes to a file."""
        wim = to + ".wim"
        run("wimcapture", self.image(letter), wim, "--compress=none")
        with open(to, "wb") as file:
            file.write(run("wimdir", wim, "1", "--detailed", "--path=" + path).stdout)
        os.unlink(wim)
        return to

    def require_sound(self, *letters):
        for letter in letters:
            run("ntfsresize", "-i", "-f", self.image(letter))


def compare(before, after, before_root, after_root, moved, written=()):
    more = (["--moved"] if moved else []) + [word for path in written for word in ("--written", path)]
    done = run(COMPARE, before, after, "--before-root", before_root, "--after-root", after_root, *more, ok=(0, 1))
    require(done.returncode == 0, done.stdout.decode(errors="replace"))
    return done.stdout.decode(errors="replace").splitlines()


def root_and_rest(listing, root):
    """A listing's record of the folder itself, and a listing of what is below it."""
    with open(listing, encoding="utf-8", errors="surrogateescape") as file:
        lines = file.read().split("\n")
    starts = [i for i, line in enumerate(lines) if re.match(r"^Full Path\s*= ", line)] + [len(lines)]
    of_root, rest = [], lines[:starts[0]]
    for start, end in zip(starts, starts[1:]):
        is_root = re.match(rf'^Full Path\s*= "{re.escape(root)}"$', lines[start])
        (of_root if is_root else rest).extend(lines[start:end])
    with open(listing + ".below", "w", encoding="utf-8", errors="surrogateescape") as file:
        file.write("\n".join(rest))
    return of_root, listing + ".below"


def own_security(listing, root):
    """Control bits, owner, group, audit and access entries of the folder itself. (How a descriptor is laid out, and
    whether its lists have room behind their entries, differs between those who write it.)"""
    (line,) = [line for line in root_and_rest(listing, root)[0] if line.startswith("Security Descriptor")]
    parts = Descriptor(line.split("= ")[1])
    return parts.control, parts.owner, parts.group, parts.sacl, parts.dacl


def own_times(listing, root):
    return [line for line in root_and_rest(listing, root)[0] if re.match(r"Creation|Last", line)]


def below_root(image):
    """What a volume holds but for NTFS' own files, as The Sleuth Kit lists it."""
    lines = run("fls", "-r", "-u", "-p", "-f", "ntfs", image).stdout.decode(errors="replace").splitlines()
    # fls also takes what an index has behind its last entry for a name, as long as nothing else was written there.
    unused = {line.split(b"|")[0].decode() for line in run("ils", "-A", "-f", "ntfs", image).stdout.splitlines()}
    names = [line.split("\t", 1)[1] for line in lines
             if "\t" in line and line.split("\t", 1)[0].split()[-1].split("-")[0] not in unused]
    # "/." stands for a folder itself, where a named stream of it is listed.
    return sorted(name for name in names
                  if not name.startswith(("$", "System Volume Information")) and "/.:" not in name)


def hive_record(station, scratch):
    """Source and Target of the records, as hivexml reads them from the hive below Wow6432Node."""
    with open(f"{scratch}/SOFTWARE", "wb") as file:
        file.write(run("ntfscat", "-f", station.image("C"), "Windows/System32/config/SOFTWARE").stdout)
    text = run("hivexml", f"{scratch}/SOFTWARE").stdout.decode(errors="replace")
    node = xml.etree.ElementTree.fromstring(text)
    for name in ("Wow6432Node", "Velmora", "Quillbay", "Junctions"):
        node = next((n for n in node.iter("node") if n.get("name") == name), None)
        require(node is not None, f"hivexml shows no key {name}")
    records = []
    for record in node.findall("node"):
        values = {v.get("key"): v for v in record.findall("value")}
        text = {}
        for key, value in values.items():
            raw = value.get("value", "")
            if value.get("encoding") == "base64":
                raw = base64.b64decode(raw).decode("utf-16-le", "replace")
            text[key] = raw.rstrip("\0")
        records.append((record.get("name"), text.get("Source"), text.get("Target")))
    return records
