"""A root with nothing but what a Debian package depends on, as the packages installed here have it: there it is installed,
run and removed. bubblewrap gives it; no root is needed, and the machine's own files are only read."""
import hashlib
import os
import pathlib
import re
import shutil
import subprocess

DPKG = pathlib.Path("/var/lib/dpkg")


def installed_packages():
    """By name: the fields and the text of each package; by what they provide: their names."""
    packages, providers = {}, {}
    for text in (DPKG / "status").read_text().split("\n\n"):
        fields = dict(re.findall(r"^([A-Z][A-Za-z-]*): (.*)$", text, re.MULTILINE))
        if fields.get("Status", "").endswith("ok installed"):
            packages.setdefault(fields["Package"], (fields, text))
            for name in re.findall(r"(?:^|, )([^ ,]+)", fields.get("Provides", "")):
                providers.setdefault(name, fields["Package"])
    return packages, providers


def needed_by(depends):
    """The names of the packages that a Depends field asks for, with all that these ask for."""
    packages, providers = installed_packages()
    needed, fields = {}, [depends]
    while fields:
        for choice in filter(None, fields.pop().split(", ")):
            names = [re.match(r"[a-z0-9+.-]+", one)[0] for one in choice.strip().split(" | ")]
            found = [name for name in (*names, *map(providers.get, names)) if name in packages]
            if found and found[0] not in needed:
                own, needed[found[0]] = packages[found[0]]
                fields += [own.get("Depends", ""), own.get("Pre-Depends", "")]
    return needed


class CleanRoot:
    def __init__(self, folder, deb):
        self.root, self.deb = pathlib.Path(folder), deb
        for name in ("bin", "sbin", "lib", "lib64"):
            (self.root / "usr" / name).mkdir(parents=True)
            (self.root / name).symlink_to(f"usr/{name}")
        for name in ("dev", "proc", "tmp", "var/lib/dpkg/info", "var/lib/dpkg/updates"):
            (self.root / name).mkdir(parents=True)
        needed = needed_by(subprocess.check_output(["dpkg-deb", "-f", deb, "Depends"], text=True).strip())
        (self.root / "var/lib/dpkg/status").write_text("".join(f"{text}\n\n" for text in needed.values()))
        for path in (path for name in needed for listing in DPKG.glob(f"info/{name}*.list")
                     if re.fullmatch(rf"{re.escape(name)}(:[a-z0-9]+)?", listing.stem)
                     for path in listing.read_text().splitlines()):
            if os.path.isfile(path) and not path.startswith("/usr/share/"):
                target = self.root / path[1:]
                target.parent.mkdir(parents=True, exist_ok=True)
                shutil.copy2(path, target, follow_symlinks=False)

    def dpkg(self, *words):
        subprocess.run(["bwrap", "--unshare-user", "--uid", "0", "--gid", "0", "--ro-bind", "/", "/", "--dev", "/dev",
                        "--bind", self.root, self.root, "dpkg", f"--root={self.root}", "--force-not-root", *words],
                       check=True, capture_output=True)

    def run(self, *words, env=(), work=None):
        """A program in the root, as an ordinary user, without a network; `work` is its /tmp."""
        settings = [word for name, value in dict(env).items() for word in ("--setenv", name, value)]
        done = subprocess.run(["bwrap", "--unshare-all", "--uid", "1000", "--gid", "1000", "--ro-bind", self.root, "/",
                               "--dev", "/dev", "--proc", "/proc", "--bind", work, "/tmp", "--clearenv", *settings,
                               "--setenv", "PATH", "/usr/bin", "--", *words],
                              capture_output=True, check=False)
        if done.returncode:
            raise RuntimeError(f"on the clean root, {' '.join(words)}: {done.stderr.decode().strip()}")
        return done.stdout

    def listing(self):
        """Every name with what it is, but for what dpkg keeps for itself."""
        def kind(path):
            facts = path.lstat()
            data = os.readlink(path).encode() if path.is_symlink() else path.read_bytes() if path.is_file() else b""
            return facts.st_mode, 0 if path.is_dir() else facts.st_mtime_ns, hashlib.sha256(data).hexdigest()
        return {path.relative_to(self.root).as_posix(): kind(path) for path in self.root.rglob("*")
                if not path.relative_to(self.root).as_posix().startswith(("var/lib/dpkg/", "var/log"))}
