"""A tree and a file that are moved and come back, as other makers' readers see them at each place."""
import os
import pathlib
import random

from hives import software
from station import Station, below_root, compare, make_image, mount, own_security_and_times, require, run
from trees import fill_tree, junction_bytes, symbolic_link_bytes


class Journey:
    """E:\\Tree and E:\\report.doc of an image that another program wrote."""

    def __init__(self, build, scratch, said, image):
        self.said, self.station = said, Station(build, f"{scratch}/machine")
        self.station("create", "--drive", "C:64M", "--drive", "D:64M")
        self.station("import", image, "E:")
        # A volume that this machine did not format.
        make_image(f"{scratch}/data.ntfs", "32M")
        self.station("adopt", f"{scratch}/data.ntfs", "volume")
        self.guid = self.station.volume_without_letter()
        self.before = self.station.listing("E", "/", "before")

    def qbc(self, *words):
        self.station.qbc(*words)
        self.station.require_sound()

    def require_place(self, name, letter, place, written=()):
        """What was E:/name is now at the place, and as it was."""
        after = self.station.listing(letter, place)
        self.said(*compare(self.before, after, f"/{name}", place.rstrip("/"), place != f"/{name}", written))

    def require_link(self, name, expected, kind, target):
        """The link that was left, and the record, or neither."""
        found = self.station.reparse_data("E", name)
        require(found == expected, f"the reparse data of {name} are {found.hex()}")
        records = software(self.station).records(kind)
        require(records == ([(f"E:\\{name}", target)] if target else []), f"hivexml shows the records {records}")

    def to_drive(self, command, kind, name, link_bytes):
        self.qbc(command, f"E:\\{name}", "/loc:D:\\Kept")
        self.require_place(name, "D", f"/Kept/{name}")
        self.require_link(name, link_bytes(f"D:\\Kept\\{name}"), kind, f"D:\\Kept\\{name}")
        self.qbc(command, f"E:\\{name}", "/loc:D:\\Kept", "/d")
        self.require_place(name, "E", f"/{name}")
        self.require_link(name, b"", kind, None)
        require(below_root(self.station.image("D")) == ["Kept"], f"D: holds {below_root(self.station.image('D'))}")

    def to_volume(self):
        volume = f"\\\\?\\Volume{self.guid}\\"
        was = own_security_and_times(self.station.listing("E", "/Tree"), "/Tree")
        self.qbc("/RedirectFolder", "E:\\Tree", "/vol:" + volume)
        self.require_place("Tree", self.guid, "/", ["/"])  # the root is the volume's own
        self.require_link("Tree", junction_bytes(f"Volume{self.guid}\\"), "Junctions", volume)
        now = own_security_and_times(self.station.listing("E", "/Tree"), "/Tree")
        require(was == now, f"the folder that the volume is mounted on:\n{was}\n{now}")
        self.qbc("/RedirectFolder", "E:\\Tree", "/vol:" + volume, "/d")
        self.require_place("Tree", "E", "/Tree")
        self.require_link("Tree", b"", "Junctions", None)
        left = below_root(self.station.image(self.guid))
        require(left == [], f"the volume still holds {left}")

    def run(self):
        self.to_drive("/RedirectFolder", "Junctions", "Tree", junction_bytes)
        self.to_drive("/RedirectFile", "FileJunctions", "report.doc", symbolic_link_bytes)
        self.to_volume()


def check_ntfs3g_image(build, scratch, said):
    foreign = f"{scratch}/foreign.ntfs"
    make_image(foreign, "64M")
    with mount(foreign) as folder:
        fill_tree(folder, random.Random(1))
    Journey(build, scratch, said, foreign).run()


def check_wimapply_image(build, scratch, said):
    first, foreign, wim = f"{scratch}/first.ntfs", f"{scratch}/foreign.ntfs", f"{scratch}/tree.wim"
    make_image(first, "64M")
    with mount(first) as folder:
        fill_tree(folder, random.Random(2))
        os.link(f"{folder}/Tree/Docs/a.txt", f"{folder}/Tree/Docs/a short name.txt")
        os.unlink(f"{folder}/Tree/Docs/a.txt")
    make_image(foreign, "64M")
    run("wimcapture", first, wim, "--compress=none")
    run("wimapply", wim, "1", foreign)
    Journey(build, scratch, said, foreign).run()


def check_names_that_differ_in_case_only(build, scratch, said):
    """Two files that are one name to Windows: neither may be overwritten by the other and then deleted."""
    foreign, station = f"{scratch}/foreign.ntfs", Station(build, f"{scratch}/machine")
    make_image(foreign, "16M")
    with mount(foreign) as folder:
        os.mkdir(f"{folder}/Tree")
        for name in ("case.txt", "CASE.TXT"):
            pathlib.Path(folder, "Tree", name).write_text(name)
    station("create", "--drive", "C:64M", "--drive", "D:16M")
    station("import", foreign, "E:")
    done = station.qbc("/RedirectFolder", "E:\\Tree", "/loc:D:\\", ok=(1,))
    require(b"unsuccessful" in done.stdout, done.stdout.decode(errors="replace"))
    station.require_sound()
    with mount(station.image("E")) as folder:
        found = {file.name: file.read_text() for file in pathlib.Path(folder, "Tree").iterdir()}
    require(found == {"case.txt": "case.txt", "CASE.TXT": "CASE.TXT"}, f"E: holds {found}")
    said("refused; both files are where they were")
