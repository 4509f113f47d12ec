"""Random lives of a workstation: folders and files of colliding names on four drives and a volume go to and fro,
profiles among them. After each command the disks are read, and all that stands there is named by the path by which its
user knows it: the old place of what was redirected, wherever its contents are. By these names nothing may have changed.

    QBC_LIVES=1-300 tests/outside/run BUILD lives        the lives of these seeds
"""
import collections
import itertools
import os
import random
import shlex
import shutil
import signal
import subprocess

from disk import Disk, fold, is_below
from hives import PROFILE_LIST, software
from station import CheckFailed, Station, copy_folder, require, run

DRIVES = "CDEF"
NAMES = ("A", "Data", "\u00dcbung", "b c", "Docs")
FILES = ("a.txt", "b.txt", "\u00f6l.txt", "Data")
PRIVATE = "O:SYD:P(A;;FA;;;SY)(A;;FA;;;BA)(A;;FR;;;AU)"
LOG = "C:\\Program Files\\Velmora\\Quillbay\\QBC.log"
USERS = "C:\\USERS"
STOPPED = (-signal.SIGINT, -signal.SIGHUP, -signal.SIGTERM)  # where the program did not listen yet
# what: a file's contents (None of a hive), where a link leads; security: of a private file its owner and entries.
Known = collections.namedtuple("Known", "kind what security", defaults=(None, None))


def last(path):
    return path.rstrip("\\").rpartition("\\")[2]


def is_hive(path):
    return last(path).upper().startswith(("NTUSER", "USRCLASS"))


class View:
    """What the disks and the registry hold at one moment."""

    def __init__(self, life):
        self.disk, self.users = Disk(life.station.folder, life.letters, life.known_images), life.users
        hive = software(life.station)
        self.records = {kind: hive.records(kind) for kind in ("Junctions", "FileJunctions")}
        self.profiles = {}
        for name, values in hive.below(PROFILE_LIST):
            if name.startswith("S-1-5-21-"):
                path = values["ProfileImagePath"][1]
                self.profiles[self.users.setdefault(name, last(path))] = path
        values = {name: text.replace("%SystemDrive%", "C:") for name, (_, text) in hive.keys[PROFILE_LIST].items()}
        self.profiles.update({name: values[name] for name in ("Default", "Public")})
        # Where the link of each redirection is, and where its contents are, the longest path first.
        links = [(self.disk.resolve(source, False), self.real(target)) for rows in self.records.values()
                 for source, target in rows] + [(place, self.real(place)) for place in self.profiles.values()]
        is_link = {at for at, _ in links if (self.disk.at(at) or self.disk.at("C:")).kind == "link"}
        self.contents = sorted(((real, at) for at, real in links if at in is_link), key=lambda pair: -len(pair[0]))
        self.known = dict(self.name_all({fold(at) for _, at in self.contents}))

    def real(self, path):
        return self.disk.resolve(path.removeprefix("\\\\?\\Volume").replace("}\\", "}:\\") if path[0] == "\\" else path)

    def as_known(self, path):
        """The path by which its user knows what really is at this one; a profile by its user."""
        for _ in range(20):
            for real, link in self.contents:
                if is_below(fold(path), fold(real)):
                    path = link + path[len(real):]
                    break
            else:
                break
        for user, folder in self.profiles.items():
            if is_below(fold(path), fold(folder)):
                return f"~{user}{path[len(folder):]}"
        return path

    def place(self, known):
        """The path that a user would type for what he knows."""
        user, slash, rest = known[1:].partition("\\")
        return self.profiles[user] + slash + rest if known.startswith("~") else known

    def name_all(self, redirections):
        """All that stands there, by the folded path by which it is known. What profiles left behind is nobody's."""
        names = set()
        for key, entry in self.disk.entries.items():
            path = self.as_known(entry.path)
            if key in redirections or "\\" not in path and path[0] != "~" or is_below(fold(path), USERS):
                continue
            if fold(self.disk.resolve(self.place(path), entry.kind != "link")) != key:
                raise CheckFailed(f"{path} leads to {self.disk.resolve(self.place(path))} and not to {entry.path}")
            if fold(path) in names:
                raise CheckFailed(f"{path} is the name of {entry.path} and of another")
            names.add(fold(path))
            if entry.kind == "file":
                private = entry.security if entry.security[1] and entry.data.endswith(b"private") else None
                yield fold(path), Known("file", None if is_hive(path) else entry.data, private)
            else:
                leads = fold(self.as_known(self.disk.resolve(entry.link))) if entry.kind == "link" else None
                yield fold(path), Known(entry.kind, leads)


class Life:
    def __init__(self, build, template, scratch, seed):
        self.scratch, self.random = scratch, random.Random(seed)
        self.station = Station(build, f"{scratch}/machine")
        copy_folder(template, self.station.folder)
        self.volume = f"/vol:\\\\?\\Volume{self.station.volume_without_letter()}\\"
        self.letters, self.known_images, self.users = {}, {}, {}
        for line in self.station("info").stdout.decode().splitlines():
            if "Volume{" in line and line[1:2] == ":":
                self.letters[line.partition("Volume")[2].partition("\\")[0].lower()] = line[0]
        self.made, self.story, self.counts = set(), [], collections.Counter()  # of commands, done or not
        self.number, self.with_profiles = 0, self.random.random() < 0.4
        self.settle()

    def settle(self):
        names = self.random.sample(NAMES, self.random.choice((2, 2, 3)))
        for drive in DRIVES:
            root, folders = f"{self.scratch}/tree", [""]
            for depth in range(3):
                folders += [f"{above}/{name}" for above in folders for name in names
                            if above.count("/") == depth and self.random.random() < (0.6, 0.45, 0.25)[depth]]
            for folder in folders[1:]:
                os.makedirs(root + folder, exist_ok=True)
                for name in self.random.sample(FILES[:3], self.random.choice((0, 1, 1, 2))):
                    with open(f"{root}{folder}/{name}", "w", encoding="utf-8") as file:
                        file.write(f"{drive}:{folder}/{name} at first" + self.random.choice((
                            *[""] * 18, ", private", ", private", ", large" * 100_000)))
            for top in os.listdir(root) if os.path.isdir(root) else ():
                self.station("put", f"{root}/{top}", f"{drive}:\\{top}")
            shutil.rmtree(root, ignore_errors=True)
        for entry in Disk(self.station.folder, self.letters, {}).entries.values():
            if entry.kind == "file" and entry.data.endswith(b"private"):
                self.station("acl", entry.path, PRIVATE)
        self.view = View(self)

    # One step of the story, and what everybody must know after it.
    def live(self, step):
        self.story.append(step)
        getattr(self, "do_" + step[0])(*step[1:])

    def look(self, expected, new=()):
        """Reads the disks. What begins with one of `new` nobody knew before; the folders that a command made for itself
        may come and go."""
        self.view = View(self)
        now, real = self.view.known, self.view.disk.resolve
        made = {fold(above) for path in self.made for above in
                list(itertools.accumulate(self.view.as_known(real(path)).split("\\"), "{}\\{}".format))[1:]}
        differ = [f"{key} {str(expected.get(key))[:300]} -> {str(now.get(key))[:300]}"
                  for key in expected.keys() | now.keys() if expected.get(key) != now.get(key)
                  and not (key in made and {now.get(key), expected.get(key)} == {None, Known("folder")})
                  and not (key not in expected and key.startswith(new or "?"))]
        require(not differ, "\n    ".join(["lost, changed or come out of nowhere:", *differ[:5]]))

    def do_stop(self, control, *words):
        """A command is asked to end at some call: it is done, or all is as it was before, as for any command."""
        self.do_qbc(*words, more={"QBC_CONTROL": control})

    def do_qbc(self, *words, more={}):
        before, expected = self.view, self.expected(words)
        done = self.station.qbc(*words, ok=None, timeout=120, more=more)
        went = done.returncode == 0 and b"must be Thawed" not in done.stdout
        self.counts[went] += 1
        try:
            if done.returncode not in (0, 1) and not (more and done.returncode in STOPPED):
                raise CheckFailed(f"crashed: exit {done.returncode} {done.stderr.decode(errors='replace')}")
            self.look(expected if went else before.known)
            if not went:
                self.require_same(before)
        except CheckFailed as fault:
            raise CheckFailed(f"{fault} ({'done' if went else 'refused'}){self.logged()}") from None

    def do_kill(self, seconds, how, *words):
        """A command is killed, or asked to end: all is as it was before, or as it is to be after it."""
        before, expected = self.view, self.expected(words)
        run("timeout", "--signal", how, str(seconds), "env", "QBC_WORKSTATION=" + self.station.folder,
            f"{self.station.build}/qbc", *words, ok=None)
        self.station("restart")  # the next opening completes or drops what was under way
        self.station.require_sound()
        try:
            self.look(before.known)
        except CheckFailed:
            self.look(expected)

    def expected(self, words):
        """What is known after the command. Where contents go to, what stands there is known by their path from then on;
        of two files the one that comes stays."""
        view, known = self.view, dict(self.view.known)
        self.made |= {word[5:] for word in words if word.startswith("/loc:")} | set(view.profiles.values())
        if words[0] not in ("/RedirectFolder", "/RedirectFile", "/RedirectUP") or "/d" in words or words[1][0] == "/":
            return known
        is_profile, location = words[0] == "/RedirectUP", words[2].removeprefix("/loc:")
        source = view.profiles[words[1]] if is_profile else view.disk.resolve(words[1], False)
        came = fold(f"~{words[1]}" if is_profile else view.as_known(source))
        for entry in [view.disk.at(source), *view.disk.below(source)] if "/-NTFS" in words else ():
            if entry and entry.kind == "file" and (key := fold(view.as_known(entry.path))) in known:
                known[key] = known[key]._replace(security=None)
        if location[0] == "/":
            return known
        real = f"{view.real(location)}\\{last(source)}"

        def known_now(key):
            return came + key[len(real):] if is_below(key, fold(real)) else key
        for entry in [view.disk.at(real), *view.disk.below(real)]:
            key = entry and fold(view.as_known(entry.path))
            if key in known and is_below(key, fold(real)):
                known.setdefault(known_now(key), known.pop(key))
        return {key: item._replace(what=known_now(item.what)) if item.kind == "link" else item
                for key, item in known.items()}

    def require_same(self, before):
        was, now = ({"records": view.records, "profiles": view.profiles,
                     **{key: entry for key, entry in view.disk.entries.items() if not is_hive(key)}}
                    for view in (before, self.view))
        differ = [key for key in was.keys() | now.keys() if was.get(key) != now.get(key)]
        require(not differ, f"a refused command has changed {[(was.get(key), now.get(key)) for key in differ[:4]]}")

    def logged(self):
        """What the last command wrote to the log."""
        log = self.station("cat", LOG, ok=None).stdout.decode("utf-16-le", "replace").rpartition("-----\r\n")[2]
        return "".join(f"\n      {line.rpartition(']')[2]}" for line in log.splitlines() if line.strip())

    def do_put(self, path):
        view, self.number = self.view, self.number + 1
        key = fold(view.as_known(view.disk.resolve(path)))
        there = view.known.get(key, Known("file"))
        text = f"written {self.number}{', private' if there.security else ''}".encode()
        self.station("put", "-", path, input=text)
        self.look({**view.known, key: there._replace(what=text)})

    def do_rm(self, path):
        key = fold(self.view.as_known(self.view.disk.resolve(path)))
        self.station("rm", path)
        self.look({known: item for known, item in self.view.known.items() if known != key})

    def do_mkdir(self, path):
        self.station("mkdir", path)
        self.look({**self.view.known, fold(self.view.as_known(self.view.disk.resolve(path))): Known("folder")})

    def do_account(self, name):
        """Somebody logs on for the first time: his profile, and his pictures, are what nobody knew before."""
        self.station("profile", "add", name)
        self.look(self.view.known, (f"~{fold(name)}", "~PUBLIC\\ACCOUNTPICTURES"))

    def do_restart(self):
        self.station("restart")
        self.look(self.view.known)

    def draw(self):
        kinds = {"folder": 34, "home": 18, "file": 12, "put": 12, "rm": 3, "mkdir": 3, "restart": 3, "kill": 7, "stop": 7,
                 "profile": 20 * self.with_profiles}
        while not (step := getattr(self, "draw_" + self.random.choices(list(kinds), kinds.values())[0])()):
            pass
        return step

    def pick(self, kind, profiles=False):
        """Something that stands there, by the path where it is or by which its user knows it. Of profiles only what a
        user has made, and what may be redirected by itself."""
        view, found = self.view, []
        for entry in view.disk.entries.values():
            known = view.as_known(entry.path)
            own = last(known) == "Downloads" or fold(known).endswith(".TXT") or profiles and kind == "folder"
            free = known[0] != "~" or own and (profiles or not known.startswith(("~Public", "~Default")))
            if entry.kind == kind and fold(known) in view.known and entry.path[0] in DRIVES and free:
                found.append((entry.path, view.place(known)))
        return self.random.choice(sorted(found))[self.random.random() < 0.25] if found else None

    def spelled(self, path, folder=True):
        if self.random.random() < 0.2:
            path = path.swapcase()
        return path + "\\" if folder and self.random.random() < 0.15 and not path.endswith("\\") else path

    def location(self):
        if self.random.random() < 0.4:
            return self.spelled(self.pick("folder") or "D:\\T")
        folder = self.random.choice(("", "T", "T", "K", "T\\Data"))
        return self.spelled(f"{self.random.choice(DRIVES)}:\\{folder}")

    def switches(self, *choices):
        return tuple(word for word in choices if self.random.random() < 0.1)

    def draw_folder(self):
        source = self.pick("folder")
        place = self.random.choice((self.volume, *["/loc:" + self.location()] * 7))
        return source and ("qbc", "/RedirectFolder", self.spelled(source), place, *self.switches("/-NTFS", "/-Share"))

    def draw_file(self):
        source = self.pick("file")
        return source and ("qbc", "/RedirectFile", self.spelled(source, False), "/loc:" + self.location(),
                           *self.switches("/-NTFS"))

    def homeward(self):
        """The commands that bring home what is redirected."""
        return [(command, source, ("/vol:" if target[0] == "\\" else "/loc:") + target, "/d")
                for command, kind in (("/RedirectFolder", "Junctions"), ("/RedirectFile", "FileJunctions"))
                for source, target in self.view.records[kind]]

    def draw_home(self):
        if not (steps := self.homeward()):
            return None
        command, source, *words = self.random.choice(steps)
        return "qbc", command, self.spelled(source, command == "/RedirectFolder"), *words

    def draw_put(self):
        if self.random.random() < 0.4:
            path = self.pick("file")
        else:
            folder = self.pick("folder", profiles=True)
            path = folder and f"{folder}\\{self.random.choice(FILES)}"
        entry = path and self.view.disk.at(self.view.disk.resolve(path))
        # Of files none that is hidden or the system's.
        return path and (not entry or entry.kind == "file" and not entry.attributes & 6) and ("put", path)

    def draw_rm(self):
        """Not of a redirected file's contents: its link would lead nowhere."""
        path = self.pick("file")
        real = path and fold(self.view.disk.resolve(path))
        return path and real not in [fold(place) for place, _ in self.view.contents] and ("rm", path)

    def draw_mkdir(self):
        folder = self.pick("folder")
        path = folder and f"{folder}\\{self.random.choice(NAMES)}"
        return path and not self.view.disk.at(self.view.disk.resolve(path, False)) and ("mkdir", path)

    def draw_profile(self):
        users = [name for name in self.view.profiles if name not in ("Administrator", "Default", "Public")]
        user = self.random.choice([*users, "/DefaultProfile", "/PublicProfile"])
        place = self.random.choice(("D:\\Profiles", "E:\\Profiles", "D:\\", self.location()))
        return self.random.choice((
            ("qbc", "/RedirectUP", user, "/loc:" + place, *self.switches("/-NTFS")),
            ("qbc", "/RedirectUP", user, "/loc:" + place),
            ("qbc", "/RedirectUPDefault", user),
            ("qbc", "/RedirectUP", user, self.volume) if user[0] != "/" else None,
            ("qbc", "/AutoRedirectUP", "/loc:" + place),
            ("qbc", "/AutoRedirectUP", "/loc:" + place, "/RedirectDefaultAndPublicProfile"),
            ("qbc", "/AutoRedirectUP", "/d"),
            ("account", "bob") if "bob" not in self.view.profiles else None,
            ("qbc", "/RedirectRegKeyLocation", "/loc:" + place),
            ("qbc", "/RedirectRegKeyLocation", "/d"),
            ("qbc", "/RedirectRegKey", "HKEY_LOCAL_MACHINE\\SOFTWARE\\Contoso", *self.random.choice(((), ("/d",))))))

    def draw_kill(self):
        step = self.random.choice((self.draw_folder, self.draw_home, self.draw_file))()
        return step and ("kill", round(self.random.random() * 0.06, 3), self.random.choice(("KILL", "INT")),
                         *step[1:])  # most are done by then

    def draw_stop(self):
        step = self.random.choice((self.draw_folder, self.draw_home, self.draw_file,
                                   *[self.draw_profile] * self.with_profiles))()
        event = self.random.choice(("ctrl-c", "ctrl-break", "close", "log-off", "shutdown"))
        return step and step[0] == "qbc" and ("stop", f"{event}|{self.random.randrange(1, 3000)}", *step[1:])

    def draw_restart(self):
        return ("restart",)

    def come_home(self):
        """Profiles come when nothing is redirected into them any more; some folders only when no profile is in them."""
        self.redirected_come_home()
        if self.with_profiles:
            self.live(("qbc", "/AutoRedirectUP", "/d"))
            for _ in range(3):  # each at its turn, the owed restart between them
                for name in self.profiles_away():
                    user = f"/{name}Profile" if name in ("Default", "Public") else name
                    self.live(("qbc", "/RedirectUPDefault", user))
                self.live(("restart",))
            self.live(("qbc", "/RedirectRegKeyLocation", "/d"))
            self.redirected_come_home()
        away = [*self.view.contents, *self.profiles_away()]
        require(not away, f"not home: {away}{self.logged()}")
        self.station.require_sound()

    def profiles_away(self):
        return [name for name, place in self.view.profiles.items()
                if fold(place.rpartition("\\")[0]) != USERS or self.view.disk.at(place).kind == "link"]

    def redirected_come_home(self):
        left = None
        while self.view.contents != left:
            left, steps = self.view.contents, self.homeward()
            for step in self.random.sample(steps, len(steps)):
                self.live(("qbc", *step))


def check_lives(build, scratch, said):
    """A dozen lives, profiles among them."""
    template, counts, faults = Station(build, f"{scratch}/template"), collections.Counter(), []
    drives = [word for size in ("C:48M", "D:16M", "E:16M", "F:16M") for word in ("--drive", size)]
    template("create", *drives, "--volume", "16M", "--8dot3name", "0")
    first, final = os.environ.get("QBC_LIVES", "1-12").split("-")
    for seed in range(int(first), int(final) + 1):
        os.mkdir(f"{scratch}/{seed}")
        life = Life(build, template.folder, f"{scratch}/{seed}", seed)
        try:
            for _ in range(24):
                life.live(life.draw())
            life.come_home()
        except (CheckFailed, subprocess.TimeoutExpired) as fault:
            story = [shlex.join(map(str, step)) for step in life.story]
            faults.append("\n    ".join([f"life {seed}, step {len(story)}: {fault}", *story]))
        counts += life.counts
        shutil.rmtree(f"{scratch}/{seed}")
    require(not faults, "\n".join(faults))
    require(counts[True] > counts[False], f"only {counts[True]} of {counts.total()} commands were carried out")
    said(f"lives {first} to {final}: {counts[True]} of {counts.total()} commands were carried out, nothing was lost")
