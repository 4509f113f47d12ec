#!/usr/bin/env python3
"""Random lives of a workstation: folders and files of colliding names on four drives go to and fro, and after every
command each file is read where its user knows it.

    tests/outside/lives.py [--seeds 1-300] [--steps 40] [--shrink] [--story] [--jobs N] BUILD
"""
import argparse
import collections
import copy
import multiprocessing
import os
import random
import shutil
import subprocess
import sys
import tempfile

sys.dont_write_bytecode = True
sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from disk import Disk, fold, is_below  # noqa: E402
from hives import PROFILE_LIST, software  # noqa: E402
from station import CheckFailed, Station, require, run  # noqa: E402

DRIVES = "CDEF"
NAMES = ("A", "Data", "\u00dcbung", "b c", "Docs")
FILES = ("a.txt", "b.txt", "\u00f6l.txt", "Data")
SYMBOLIC = "a000000c"
PRIVATE = "O:SYD:P(A;;FA;;;SY)(A;;FA;;;BA)(A;;FR;;;AU)"
LOG = "C:\\Program Files\\Velmora\\Quillbay\\QBC.log"
Known = collections.namedtuple("Known", "path content security")
ANY = None  # contents that nobody has laid down
NOT_TOLD = ["whether there is a reason is not told"]


class Fault(Exception):
    def __init__(self, kind, text):
        super().__init__(f"{kind}: {text}")
        self.kind = kind


def last(path):
    return path.rstrip("\\").rpartition("\\")[2]


def parent(path):
    return path.rstrip("\\").rpartition("\\")[0]


def is_in_profile(known):
    own = (last(known) == "Downloads" or fold(known).endswith(".TXT")) and not known.startswith(("~Public", "~Default"))
    return fold(known).startswith("C:\\USERS") or (known[:1] == "~" and not own)


def is_hive(path):
    return last(path).upper().startswith(("NTUSER", "USRCLASS"))


def make_template(build, folder):
    station = Station(build, folder)
    station("create", "--drive", "C:48M", "--drive", "D:16M", "--drive", "E:16M", "--drive", "F:16M", "--volume", "16M")


class View:
    """What the disks and the registry hold at one moment."""

    def __init__(self, life):
        self.disk = Disk(life.station.folder, life.letters, life.known_images)
        hive = software(life.station, life.scratch)
        self.records = {kind: self.read_records(hive, kind) for kind in ("Junctions", "FileJunctions")}
        self.profiles = {}
        for node in hive.key(PROFILE_LIST).findall("node"):
            path = hive.values(f"{PROFILE_LIST}\\{node.get('name')}").get("ProfileImagePath", ("", ""))[1]
            if node.get("name").startswith("S-1-5-21-"):
                self.profiles[life.users.setdefault(node.get("name"), last(path))] = path
        values = {name: text.replace("%SystemDrive%", "C:") for name, (_, text) in hive.values(PROFILE_LIST).items()}
        self.profiles.update({name: values[name] for name in ("Default", "Public")})
        self.new_profiles = values["ProfilesDirectory"]
        # Where each redirected folder's contents are, the longest path first.
        self.contents = sorted(((self.real(target), source) for source, target in self.records["Junctions"]
                                if (self.disk.at(source) or self.disk.at("C:")).kind == "link"), key=lambda pair: -len(pair[0]))

        # Of each redirection: is it a file's, where its link is, where its contents are, and the record's words.
        self.places = [(kind == "FileJunctions", self.disk.resolve(source, False), self.real(target), source, target)
                       for kind, rows in self.records.items() for source, target in rows]

    @staticmethod
    def read_records(hive, kind):
        key = f"Wow6432Node\\Velmora\\Quillbay\\{kind}"
        nodes = hive.key(key).findall("node") if hive.key(key) is not None else []
        values = [hive.values(f"{key}\\{node.get('name')}") for node in nodes]
        return [(value.get("Source", ("", ""))[1], value.get("Target", ("", ""))[1]) for value in values]

    def real(self, path):
        return self.disk.resolve(path.removeprefix("\\\\?\\Volume").replace("}\\", "}:\\") if path.startswith("\\\\?\\") else path)

    def link_above(self, path, symbolic_only=False):
        while "\\" in (path := parent(path)):
            entry = self.disk.at(self.disk.resolve(path, False))
            if entry and entry.kind == "link" and (not symbolic_only or entry.data == SYMBOLIC):
                return True
        return False

    def as_known(self, path):
        """The path by which its user knows what really is at this one: the old place of what was redirected, and a
        profile by its user."""
        for _ in range(20):
            for target, source in self.contents:
                if is_below(fold(path), fold(target)):
                    path = source + path[len(target):]
                    break
            else:
                break
        for user, folder in self.profiles.items():
            if is_below(fold(path), fold(folder)):
                return f"~{user}{path[len(folder):]}"
        return path

    def place(self, known):
        """The path that a user would type for what he knows."""
        if not known.startswith("~"):
            return known
        user, slash, rest = known[1:].partition("\\")
        return self.profiles[user] + slash + rest


class Life:
    def __init__(self, build, template, scratch, seed, with_links=False):
        self.scratch, self.random, self.with_links = scratch, random.Random(seed), with_links
        self.station = Station(build, f"{scratch}/machine")
        run("cp", "-r", "--sparse=always", template, self.station.folder)
        self.guid = self.station.volume_without_letter()
        self.volume = f"\\\\?\\Volume{self.guid}\\"
        self.letters = {}
        for line in self.station("info").stdout.decode().splitlines():
            if "Volume{" in line and line[1:2] == ":":
                self.letters[line.partition("Volume")[2].partition("\\")[0].lower()] = line[0]
        self.files, self.folders, self.links, self.users = {}, {}, {}, {}
        self.locations, self.story, self.faults, self.counts = set(), [], [], collections.Counter()
        self.number, self.known_images, self.with_profiles = 0, {}, self.random.random() < 0.4
        self.settle()

    def again(self, scratch):
        """The same life from its beginning, elsewhere."""
        life = copy.copy(self)
        life.scratch, life.station = scratch, Station(self.station.build, f"{scratch}/machine")
        run("cp", "-r", "--sparse=always", self.station.folder, life.station.folder)
        life.known_images = {}
        for name in ("files", "folders", "links", "locations", "story", "faults", "counts"):
            setattr(life, name, copy.copy(getattr(self, name)))
        return life

    # What stands there in the beginning.
    def settle(self):
        names = self.random.sample(NAMES, self.random.choice((2, 2, 3)))
        for drive in DRIVES:
            root = f"{self.scratch}/tree"
            folders = [""]
            for depth in range(3):
                folders += [f"{above}/{name}" for above in folders for name in names
                            if above.count("/") == depth and self.random.random() < (0.6, 0.45, 0.25)[depth]]
            for folder in folders[1:]:
                os.makedirs(root + folder, exist_ok=True)
                for name in self.random.sample(FILES[:3], self.random.choice((0, 1, 1, 2))):
                    with open(f"{root}{folder}/{name}", "w", encoding="utf-8") as file:
                        file.write(f"{drive}:{folder}/{name} at first")
            for top in os.listdir(root) if os.path.isdir(root) else ():
                self.station("put", f"{root}/{top}", f"{drive}:\\{top}")
            shutil.rmtree(root, ignore_errors=True)
        first = Disk(self.station.folder, self.letters)
        ours = [e for e in first.entries.values() if e.kind == "file" and e.data.endswith(b" at first")]
        for entry in self.random.sample(ours, min(2, len(ours))):
            self.station("acl", entry.path, PRIVATE)
        folders = [e.path for e in first.entries.values() if e.kind == "folder" and "\\" in e.path and not e.path.startswith("C:\\Users")]
        if self.with_links and len(folders) > 1:
            at, to = self.random.sample(folders, 2)
            self.station("link", self.random.choice(("junction", "symlink")), f"{at}\\link", to)
        self.look()
        for entry in self.view.disk.entries.values():
            self.learn(entry, self.view.as_known(entry.path))

    def learn(self, entry, known):
        if entry.kind == "file":
            content = ANY if is_hive(entry.path) else entry.data
            self.know(known, content, entry.security if entry.security[1] and entry.data.endswith(b" at first") else None)
        elif "\\" in entry.path and not (entry.kind == "link" and fold(parent(known)) == "C:\\USERS"):
            where, what = (self.links, entry.link) if entry.kind == "link" else (self.folders, None)
            where[fold(known)] = Known(known, what and self.view.as_known(self.view.disk.resolve(what)), None)

    def know(self, path, content, security=None):
        self.files[fold(path)] = Known(path, content, security)

    def look(self):
        self.view = View(self)

    # One step of the story.
    def live(self, step):
        self.story.append(step)
        try:
            getattr(self, "do_" + step[0])(*step[1:])
        except CheckFailed as failure:
            raise Fault("tool", str(failure)) from failure

    def do_qbc(self, *words):
        before, reasons = self.view, self.reasons(words)
        done = self.station.qbc(*words, ok=None, timeout=120)
        self.look()
        went = done.returncode == 0 and b"must be Thawed" not in done.stdout
        self.counts[words[0] + (" /d" if "/d" in words else ""), went] += 1
        if done.returncode not in (0, 1):
            raise Fault("crashed", f"exit {done.returncode} {done.stderr.decode(errors='replace')}")
        try:
            if went:
                self.follow(words, before)
            self.check()
            if not went:
                self.require_same(before)
        except Fault as fault:
            fault.args = (f"{fault.args[0]} ({'done' if went else 'refused'}){self.logged()}",)
            raise
        if not went and not reasons:
            self.faults.append(Fault("refused", f"without a reason{self.logged()}"))

    def logged(self):
        """What the last command wrote to the log."""
        log = self.station("cat", LOG, ok=None).stdout.decode("utf-16-le", "replace").rpartition("-----\r\n")[2]
        return "".join(f"\n      {line.rpartition(']')[2]}" for line in log.splitlines() if line.strip())

    def do_put(self, path, text):
        self.station("put", "-", path, input=text.encode())
        self.look()
        known = self.view.as_known(self.view.disk.resolve(path))
        self.know(self.file_at(path) or known, text.encode(), self.files.get(fold(self.file_at(path) or known), Known("", b"", None)).security)
        self.check()

    def do_rm(self, path):
        known = self.file_at(path)
        self.station("rm", path)
        self.files.pop(fold(known))
        self.look()
        self.check()

    def do_mkdir(self, path):
        self.station("mkdir", path)
        self.look()
        known = self.view.as_known(self.view.disk.resolve(path))
        self.folders[fold(known)] = Known(known, None, None)
        self.check()

    def do_account(self, name):
        """Somebody logs on for the first time: his profile, and his pictures, are what nobody knew before."""
        self.station("profile", "add", name)
        self.look()
        for entry in self.view.disk.entries.values():
            known = self.view.as_known(entry.path)
            if fold(known).startswith((f"~{fold(name)}", "~PUBLIC\\ACCOUNTPICTURES")):
                self.learn(entry, known)
        self.check()

    def do_restart(self):
        self.station("restart")
        self.look()
        self.check()

    def do_frozen(self, drives, path, text):
        """A day on which drives are frozen: what is written there is forgotten."""
        real = self.view.disk.resolve(path)
        for drive in drives:
            self.station("freeze", drive + ":")
        self.station("put", "-", path, input=text.encode())
        refused = self.station.qbc("/RedirectFolder", "D:\\Nothing", "/loc:E:\\T", ok=None).stdout
        self.station("restart")
        for drive in drives:
            self.station("thaw", drive + ":")
        self.look()
        if b"must be Thawed" not in refused:
            raise Fault("frozen", f"a frozen workstation was changed: {refused}")
        if real[0] not in drives:
            self.know(self.file_at(path) or self.view.as_known(real), text.encode())
        self.check()

    def file_at(self, path):
        """The file that somebody knows by this path, or whose contents are there."""
        real = fold(self.view.disk.resolve(path))
        for known in self.files.values():
            if fold(self.view.disk.resolve(self.view.place(known.path))) == real:
                return known.path
        return None

    # What a command that succeeded has changed for the users.
    def follow(self, words, before):
        location = next((word[5:] for word in words if word.startswith("/loc:")), None)
        if location:
            self.locations.add(location)
        if words[0] == "/RedirectUP" and location and not words[1].startswith("/"):
            self.merge(fold(f"{before.real(location)}\\{last(before.profiles[words[1]])}"), f"~{words[1]}", before.profiles[words[1]], before)
        if words[:2] == ("/AutoRedirectUP", "/d"):  # the location goes when nothing is in it
            for place in {fold(location.rstrip("\\")) for location in self.locations} - self.view.disk.entries.keys():
                if before.disk.at(place) and before.disk.at(place).kind == "folder":
                    self.folders.pop(place, None)
        if "/d" in words or words[0].lower() not in ("/redirectfolder", "/redirectfile"):
            return
        source, location = words[1].rstrip("\\"), words[2].partition(":")[2]
        source = before.disk.resolve(source, False)
        real = f"{before.real(location)}\\{last(source)}"
        if "/-NTFS" in words:
            for key, known in self.files.items():
                if is_below(fold(before.disk.resolve(before.place(known.path))), fold(source)):
                    self.files[key] = known._replace(security=None)
        if words[0].lower() == "/redirectfile":
            replaced = [key for key, known in self.files.items() if fold(before.disk.resolve(before.place(known.path))) == fold(real)]
            for key in replaced:
                del self.files[key]
        elif not location.startswith("\\\\?\\"):
            self.merge(fold(real), self.view.as_known(source), source, before)

    def merge(self, real, known_source, source, before):
        """What stood where the contents went to is known by their path from now on; of two files the one that came wins."""
        for items in (self.files, self.folders, self.links):
            for key, known in list(items.items()):
                place = fold(before.place(known.path))
                if is_below(place, real) and place == fold(before.disk.resolve(place, False)):
                    del items[key]
                    rest = before.place(known.path)[len(real):]
                    if items is not self.files or not before.disk.at(source + rest):
                        items.setdefault(fold(known_source + rest), known._replace(path=known_source + rest))

    # Every file under the path that its user knows, and no other file anywhere.
    def check(self):
        disk, found = self.view.disk, set()
        for known in self.files.values():
            place = self.view.place(known.path)
            real = disk.resolve(place)
            entry = disk.at(real)
            if not entry or entry.kind != "file":
                raise Fault("lost", f"{place} (really {real}) is not there")
            if known.content is not ANY and entry.data != known.content:
                raise Fault("changed", f"{place} (really {real}) holds {entry.data} and not {known.content}")
            if known.security and entry.security != known.security:
                raise Fault("security", f"{place} (really {real}) has {entry.security} and not {known.security}")
            found.add(fold(entry.path))
        if len(found) < len(self.files):
            raise Fault("mixed", "two known paths lead to one file")
        # Default and Public are copied; what they were stays where it was.
        left = [f"C:\\USERS\\{name}\\" for name in ("DEFAULT", "PUBLIC") if not fold(self.view.profiles[name.title()]).startswith("C:\\USERS\\")]
        strays = [e.path for key, e in disk.entries.items() if e.kind == "file" and key not in found and not key.startswith(tuple(left))]
        if strays:
            raise Fault("stray", f"{strays}")
        for known in self.folders.values():
            entry = disk.at(disk.resolve(self.view.place(known.path)))
            if not entry or entry.kind != "folder":
                raise Fault("folder", f"{self.view.place(known.path)} is no folder")
        for known in self.links.values():
            if fold(disk.resolve(self.view.place(known.path))) != fold(disk.resolve(self.view.place(known.content))):
                raise Fault("link", f"{self.view.place(known.path)} leads to {disk.resolve(self.view.place(known.path))} and "
                            f"not to {self.view.place(known.content)}")

    def require_same(self, before):
        def items(view):
            return {key: entry for key, entry in view.disk.entries.items() if not is_hive(key)}
        was, now = items(before), items(self.view)
        differ = [f"{was.get(key)} -> {now.get(key)}" for key in was.keys() | now.keys() if was.get(key) != now.get(key)]
        for name in ("records", "profiles"):
            if getattr(before, name) != getattr(self.view, name):
                differ.append(f"{name} {getattr(before, name)} -> {getattr(self.view, name)}")
        if differ:
            raise Fault("refusal", "a refused command has changed " + "; ".join(differ[:4]))

    # Why a command may be refused.
    def reasons(self, words):
        command, back = words[0].lower(), "/d" in words
        if command not in ("/redirectfolder", "/redirectfile"):
            return NOT_TOLD
        location = words[2].partition(":")[2]
        kind = "Junctions" if command == "/redirectfolder" else "FileJunctions"
        if back:
            return self.reasons_to_stay(kind, words[1].rstrip("\\"), location)
        return (self.folder_reasons if kind == "Junctions" else self.file_reasons)(words[1].rstrip("\\"), location)

    def reasons_to_stay(self, kind, source, location):
        view, disk = self.view, self.view.disk
        rows = [row for row in view.records[kind] if fold(row[0]) == fold(source)
                and fold(row[1].rstrip("\\")) in (fold(location.rstrip("\\")), fold(location.rstrip("\\") + "\\" + last(source)))]
        entry = disk.at(disk.resolve(source, False))
        if not rows or not entry or entry.kind != "link":
            return ["no such redirection"]
        if kind == "FileJunctions":
            return [f"leads through {row[0]}" for row in view.records[kind]
                    if fold(row[0]) in (fold(entry.link), fold(rows[0][1])) and fold(row[0]) != fold(source)]
        contents = fold(view.real(rows[0][1]))
        return [f"the file {at} leads into it" for is_file, link, target, at, _ in view.places
                if is_file and (is_below(fold(target), contents) or is_below(fold((disk.at(link) or entry).link or ""), contents))] + \
            [f"holds the profile of {user}" for user, place in view.profiles.items() if is_below(fold(disk.resolve(place)), contents)]

    def common_reasons(self, source, location, kind, wanted):
        view, disk = self.view, self.view.disk
        entry, place = disk.at(disk.resolve(source, False)), disk.at(disk.resolve(location, False))
        reasons = [f"the source is no {wanted}"] if not entry or entry.kind != wanted else []
        if place and place.kind != "folder" and (wanted == "folder" or disk.at(disk.resolve(location)).kind != "folder"):
            reasons.append("the location is no folder")
        if entry and any(fold(entry.path) in (fold(view.real(target)), fold(link)) for link, target in view.records[kind]):
            reasons.append("the source is what another redirection holds or has left")
        return reasons, f"{disk.resolve(location)}\\{last(source)}"

    def folder_reasons(self, source, location):
        view, disk = self.view, self.view.disk
        if location.startswith("\\\\?\\"):
            reasons, _ = self.common_reasons(source, "C:", "Junctions", "folder")
            mounted = [e.path for e in disk.entries.values() if e.kind == "link" and e.link.startswith(self.guid + ":")]
            held = [place for place in (*view.profiles.values(), view.new_profiles)
                    if is_below(fold(disk.resolve(place)), fold(disk.resolve(source)))]
            return reasons + held + (["mounted"] if mounted else []) + (["link above"] if view.link_above(source) else []) \
                + (["taken"] if disk.at(source + ".mount") else [])
        location = location.rstrip("\\")
        reasons, real = self.common_reasons(source, location, "Junctions", "folder")
        above = disk.at(disk.resolve(parent(location))) if "\\" in location else disk.at(location)
        if view.link_above(source) or view.link_above(location):
            reasons.append("link above")
        if not above or above.kind != "folder":
            reasons.append("nothing above the location")
        real_source = disk.resolve(source)
        if is_below(fold(disk.resolve(location)), fold(real_source)) or is_below(fold(real_source), fold(real)):
            reasons.append("one in the other")
        stands = disk.at(real)
        if stands and stands.kind != "folder":
            reasons.append("the place is taken")
        for entry in disk.below(real_source) if stands else ():
            twin = disk.at(real + entry.path[len(real_source):])
            if twin and (twin.kind != entry.kind or twin.kind == "link"):
                reasons.append(f"{twin.path} is in the way")
        for place in (*view.profiles.values(), view.new_profiles):
            if is_below(fold(disk.resolve(place)), fold(real_source)) or is_below(fold(disk.resolve(place)), fold(real)):
                reasons.append(f"{place} has profiles")
        return reasons + self.taken(real)

    def taken(self, real, typed=None):
        """A place that belongs to another redirection; `typed`: of a file, which may go by that one's link."""
        place, reasons = fold(real), []
        for is_file, source, target, at, to in self.view.places:
            if is_below(fold(target), place) or is_below(fold(source), place):
                reasons.append(f"{at} or its contents are there")
            elif is_below(place, fold(target)) and (not is_below(fold(typed), fold(at)) if typed else
                                                    is_file or to.startswith("\\\\") or self.view.disk.at(real)):
                reasons.append(f"among the contents of {at}")
        return reasons

    def file_reasons(self, source, location):
        view, disk = self.view, self.view.disk
        location = location.rstrip("\\")
        reasons, real = self.common_reasons(source, location, "FileJunctions", "file")
        if is_below(fold(location), fold(parent(source))):
            reasons.append("the location is in the file's folder")
        if view.link_above(source, True):
            reasons.append("symbolic link above")
        twin = disk.at(real)
        if twin and (twin.kind != "file" or fold(twin.path) == fold(disk.resolve(source))):
            reasons.append("the place is taken")
        return reasons + self.taken(real, f"{location}\\{last(source)}")

    # Drawing the next step.
    def draw(self):
        kinds = {"folder": 30, "home": 18, "file": 12, "file_home": 6, "volume": 4, "put": 12, "rm": 3, "mkdir": 3, "restart": 3,
                 "frozen": 2, "profile": 20 * self.with_profiles}
        while True:
            step = getattr(self, "draw_" + self.random.choices(list(kinds), kinds.values())[0])()
            if step and (step[0] != "qbc" or self.random.random() < 0.15 or self.reasons(step[1:]) in ([], NOT_TOLD)):
                return step

    def pick(self, *kinds, profiles=False):
        """Something that stands there, by the path where it is or by which its user knows it. Of profiles only what a
        user has made, and what may be redirected by itself."""
        view, found = self.view, []
        for entry in view.disk.entries.values():
            known = view.as_known(entry.path)
            if entry.kind in kinds and entry.path[0] in DRIVES and "\\" in entry.path and (not is_in_profile(known) or (
                    profiles and entry.kind == "folder" and known.startswith("~"))):
                found.append((entry.path, view.place(known)))
        return self.random.choice(sorted(found))[self.random.random() < 0.25] if found else None

    def spelled(self, path, folder=True):
        if self.random.random() < 0.2:
            path = path.swapcase()
        return path + "\\" if folder and self.random.random() < 0.15 and not path.endswith("\\") else path

    def location(self):
        if self.random.random() < 0.35:
            place = self.pick("folder") or "D:\\T"
        else:
            place = self.random.choice(DRIVES) + self.random.choice((":\\", ":\\T", ":\\T", ":\\K", ":\\T\\Data"))
        return self.spelled(place)

    def switches(self, *choices):
        return tuple(word for word in choices if self.random.random() < 0.1)

    def draw_folder(self):
        source = self.pick("folder")
        return source and ("qbc", "/RedirectFolder", self.spelled(source), "/loc:" + self.location(), *self.switches("/-NTFS", "/-Share"))

    def draw_volume(self):
        source = self.pick("folder")
        return source and ("qbc", "/RedirectFolder", self.spelled(source), "/vol:" + self.volume, *self.switches("/-NTFS"))

    def draw_file(self):
        source = self.pick("file")
        return source and ("qbc", "/RedirectFile", self.spelled(source, False), "/loc:" + self.location(), *self.switches("/-NTFS"))

    def draw_home(self, command="/RedirectFolder", kind="Junctions"):
        if not self.view.records[kind]:
            return None
        source, target = self.random.choice(self.view.records[kind])
        return ("qbc", command, self.spelled(source, kind == "Junctions"), ("/vol:" if target.startswith("\\\\") else "/loc:") + target, "/d")

    def draw_file_home(self):
        return self.draw_home("/RedirectFile", "FileJunctions")

    def written(self):
        self.number += 1
        return f"written {self.number}"

    def draw_put(self):
        if self.random.random() < 0.4:
            path = self.pick("file")
        else:
            folder = self.pick("folder", profiles=True)
            path = folder and f"{folder}\\{self.random.choice(FILES)}"
        entry = path and self.view.disk.at(self.view.disk.resolve(path))
        may = not entry or (entry.kind == "file" and not is_hive(path) and not entry.attributes & 6)  # hidden, of the system
        return path and may and ("put", path, self.written())

    def draw_rm(self):
        path = self.pick("file")
        entry = path and self.view.disk.at(self.view.disk.resolve(path, False))
        if path and self.view.as_known(self.view.disk.resolve(path)).startswith(("~Public", "~Default")):
            return None
        record = [t for _, t in self.view.records["FileJunctions"] if path and fold(self.view.real(t)) == fold(self.view.disk.resolve(path))]
        return entry and entry.kind == "file" and not record and ("rm", path)

    def draw_mkdir(self):
        folder = self.pick("folder")
        path = folder and f"{folder}\\{self.random.choice(NAMES)}"
        return path and not self.view.disk.at(self.view.disk.resolve(path, False)) and ("mkdir", path)

    def draw_profile(self):
        users = [*(name for name in self.view.profiles if name not in ("Administrator", "Default", "Public")), "/DefaultProfile", "/PublicProfile"]
        user = self.random.choice(users)
        place = self.random.choice(("D:\\Profiles", "E:\\Profiles", "D:\\", self.location()))
        return self.random.choice((
            ("qbc", "/RedirectUP", user, "/loc:" + place, *self.switches("/-NTFS")),
            ("qbc", "/RedirectUP", user, "/loc:" + place),
            ("qbc", "/RedirectUPDefault", user),
            ("qbc", "/RedirectUP", user, "/vol:" + self.volume) if user[0] != "/" else None,
            ("qbc", "/AutoRedirectUP", "/loc:" + place, *self.random.choice(((), ("/RedirectDefaultAndPublicProfile",)))),
            ("qbc", "/AutoRedirectUP", "/d"),
            ("account", "bob") if "bob" not in self.view.profiles else None,
            ("qbc", "/RedirectRegKeyLocation", "/loc:" + place),
            ("qbc", "/RedirectRegKeyLocation", "/d"),
            ("qbc", "/RedirectRegKey", "HKEY_LOCAL_MACHINE\\SOFTWARE\\Contoso", *self.random.choice(((), ("/d",))))))

    def draw_restart(self):
        return ("restart",)

    def draw_frozen(self):
        step = self.draw_put()
        drives = "".join(sorted(self.random.sample(DRIVES, self.random.choice((1, 1, 2)))))
        return step and ("frozen", drives, *step[1:])

    # In the end all comes home, in any order.
    def profiles_come_home(self):
        """Each at its turn, the owed restart between them."""
        self.live(("qbc", "/AutoRedirectUP", "/d"))
        for _ in range(3):
            for name in [name for name, place in self.view.profiles.items() if self.is_away(name, place)]:
                self.live(("qbc", "/RedirectUPDefault", f"/{name}Profile" if name in ("Default", "Public") else name))
            self.live(("restart",))
        self.live(("qbc", "/RedirectRegKeyLocation", "/d"))
        away = [(name, place) for name, place in self.view.profiles.items() if self.is_away(name, place)]
        if away:
            self.live(("qbc", "/RedirectUPDefault", f"/{away[0][0]}Profile" if away[0][0] in ("Default", "Public") else away[0][0]))
            raise Fault("not home", f"profiles in {away}{self.logged()}")

    def is_away(self, name, place):
        entry = self.view.disk.at(self.view.disk.resolve(place, False))
        return fold(parent(place)) != "C:\\USERS" or not entry or entry.kind == "link"

    def come_home(self):
        """Profiles come when nothing is redirected into them any more; some folders only when no profile is in them."""
        self.redirected_come_home()
        if self.with_profiles:
            self.profiles_come_home()
            self.redirected_come_home()
        if self.at_work():
            raise Fault("not home", f"{self.at_work()} stay")

    def redirected_come_home(self):
        left = None
        while self.at_work() != left:
            left = self.at_work()
            steps = [("qbc", command, source, ("/vol:" if target.startswith("\\\\") else "/loc:") + target, "/d")
                     for command, kind in (("/RedirectFolder", "Junctions"), ("/RedirectFile", "FileJunctions"))
                     for source, target in self.view.records[kind]]
            for step in self.random.sample(steps, len(steps)):
                if not self.reasons(step[1:]):
                    self.live(step)

    def at_work(self):
        """The records, but those that tell where the profile of a new account has been."""
        return [(at, to) for _, source, _, at, to in self.view.places if (self.view.disk.at(source) or self.view.disk.at("C:")).kind == "link"
                or fold(parent(to)) != "C:\\USERS"]

    def end(self):
        self.come_home()
        disk = self.view.disk
        for known in [*self.files.values(), *self.folders.values(), *self.links.values()]:
            place = self.view.place(known.path)
            if fold(parent(disk.resolve(place, False))) != fold(parent(place)):
                raise Fault("not home", f"{place} is still in {disk.resolve(place, False)}")
        expected = {fold(self.view.place(known.path)) for items in (self.folders, self.links) for known in items.values()}
        for location in self.locations:
            while "\\" in location:
                expected.add(fold(location.rstrip("\\")))
                location = parent(location)
        # Windows' own links stand beside the profiles; where a profile was, and where a location was made, an empty folder
        # stays, wherever the folder around it went.
        made = {*self.view.profiles, *(fold(last(location)) for location in self.locations)}
        strays = [e.path for key, e in disk.entries.items() if e.kind != "file" and "\\" in e.path and key not in expected
                  and parent(key) != "C:\\USERS" and (disk.below(e.path) or not {last(e.path), last(key)} & made)]
        if strays:
            raise Fault("stray", f"folders or links {strays}")
        try:
            self.station.require_sound(*DRIVES, self.guid)
        except CheckFailed as failure:
            raise Fault("unsound", str(failure)) from failure


def told(step):
    return step[0] + " " + " ".join(f'"{word}"' if " " in word else word for word in step[1:])


def live(start, steps, story=None):
    """One life from there: its faults, its story and the counts of its commands. A `story` is told again, not drawn."""
    with scratch_folder() as scratch:
        life = start.again(scratch)
        try:
            life.check()
            for number in range(steps if story is None else len(story)):
                life.live(life.draw() if story is None else story[number])
            life.end()
        except Fault as fault:
            life.faults.append(fault)
        except subprocess.TimeoutExpired as late:
            life.faults.append(Fault("hangs", str(late)))
        return life.faults, life.story, life.counts


def scratch_folder():
    return tempfile.TemporaryDirectory(prefix="qbc-life-", dir="/dev/shm" if os.path.isdir("/dev/shm") else None)


def shrink(start, faults, story):
    """Leaves out what the first fault does not need."""
    kind, size = faults[0].kind, max(1, len(story) // 2)
    while size:
        at = 0
        while at < len(story):
            found = live(start, 0, story[:at] + story[at + size:])
            if found[0] and found[0][0].kind == kind:
                faults, story = found[:2]
            else:
                at += size
        size //= 2
    return faults, story


def one(job):
    build, template, seed, options = job
    with scratch_folder() as scratch:
        start = Life(build, template, scratch, seed, options.links)
        faults, story, counts = live(start, options.steps)
        if faults and options.shrink:
            faults, story = shrink(start, faults, story)
    return seed, [(fault.kind, str(fault)) for fault in faults], story, counts


def check_lives(build, scratch, said):
    """A dozen lives, profiles among them."""
    make_template(build, f"{scratch}/template")
    counts = collections.Counter()
    for seed in range(1, 13):
        os.mkdir(f"{scratch}/{seed}")
        faults, story, done = live(Life(build, f"{scratch}/template", f"{scratch}/{seed}", seed), 20)
        shutil.rmtree(f"{scratch}/{seed}")
        require(not faults, f"life {seed}: {faults and faults[0]}\n" + "\n".join(map(told, story)))
        counts += done
    went = sum(number for (_, done), number in counts.items() if done)
    require(went > sum(counts.values()) / 2, f"only {went} of {sum(counts.values())} commands were carried out")
    said(f"12 lives of 20 steps: {went} of {sum(counts.values())} commands were carried out, and each file was where its user knows it")


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("build")
    parser.add_argument("--seeds", default="1-24")
    parser.add_argument("--steps", type=int, default=24)
    parser.add_argument("--jobs", type=int, default=1)
    parser.add_argument("--links", action="store_true", help="a link of a user's own is among the folders")
    parser.add_argument("--shrink", action="store_true", help="tell the shortest story of each fault")
    parser.add_argument("--story", action="store_true", help="tell the story of each fault")
    options = parser.parse_args()
    first, _, final = options.seeds.partition("-")
    whole, kinds, counts = 0, collections.Counter(), collections.Counter()
    with tempfile.TemporaryDirectory(prefix="qbc-lives-") as scratch:
        make_template(os.path.abspath(options.build), f"{scratch}/template")
        jobs = [(os.path.abspath(options.build), f"{scratch}/template", seed, options) for seed in range(int(first), int(final or first) + 1)]
        with multiprocessing.Pool(options.jobs) as pool:
            for seed, faults, story, done in pool.imap_unordered(one, jobs):
                counts += done
                whole += not faults
                kinds.update(kind for kind, _ in faults)
                for _, text in faults:
                    print(f"life {seed}, step {len(story)}: {text}")
                if faults and (options.story or options.shrink):
                    print("".join(f"    {told(step)}\n" for step in story), end="")
                sys.stdout.flush()
    for (command, went), number in sorted(counts.items()):
        print(f"{command:28} {'done' if went else 'refused':8} {number}")
    print(f"{whole} of {len(jobs)} lives are whole; faults: {dict(kinds)}")
    return 0 if whole == len(jobs) else 1


if __name__ == "__main__":
    sys.exit(main())
