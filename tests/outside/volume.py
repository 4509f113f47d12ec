"""A folder redirected to a volume without a letter, and back, as independent readers see it."""
import os
import random

from station import Mounted, Station, below_root, compare, hive_record, make_image, own_security, own_times, require, root_and_rest, run
from trees import fill_tree, junction_bytes


class VolumeRoundTrip:
    """C:\\Tree of the workstation to its volume without a letter and back; every reader must see the same tree."""

    def __init__(self, station, scratch, said):
        self.station, self.scratch, self.said = station, scratch, said
        self.guid = station.volume_without_letter()
        self.name = f"\\\\?\\Volume{self.guid}\\"
        self.command = ("/RedirectFolder", "C:\\Tree", "/vol:" + self.name)
        self.before = station.listing("C", "/Tree", f"{scratch}/before")
        self.root_before = self.root_security()

    def root_security(self):
        return own_security(self.station.listing(self.guid, "/", f"{self.scratch}/volume"), "/")

    def require_sound(self):
        self.station.require_sound("C", "D", self.guid)

    def on_volume(self):
        return below_root(self.station.image(self.guid))

    def redirect(self):
        self.station.qbc(*self.command)
        self.require_sound()
        records = hive_record(self.station, self.scratch)
        require(records == [("1", "C:\\Tree", self.name)], f"hivexml shows the records {records}")
        found = run("ntfscat", "-f", "-a", "0xC0", self.station.image("C"), "Tree").stdout
        require(found == junction_bytes(f"Volume{self.guid}\\"), f"the mount point's reparse data are {found.hex()}")
        self.said(f"the mount point's {len(found)} bytes of reparse data name the volume, and so does the record that hivexml reads")

    def require_tree_on_volume(self):
        # The volume's root keeps its own attributes and times; what lies below it is the tree.
        moved = self.station.listing(self.guid, "/", f"{self.scratch}/moved")
        self.said(*compare(root_and_rest(self.before, "/Tree")[1], root_and_rest(moved, "/")[1], "/Tree", "", True))
        left = [name for name in below_root(self.station.image("C")) if name.startswith("Tree/")]
        require(left == [], f"C: still holds {left}")
        mounted_on = self.station.listing("C", "/Tree", f"{self.scratch}/mounted_on")
        for own in (own_security, own_times):
            was, now = own(self.before, "/Tree"), own(mounted_on, "/Tree")
            require(was == now, f"{own.__name__} of the folder that the volume is mounted on:\n{was}\n{now}")

    def use(self):
        """A program that knows the old path only writes a file; what the path shows is on the volume."""
        self.station("put", "-", "C:\\Tree\\Docs\\new.txt", input=b"written through the old path")
        require(self.station("cat", "C:\\Tree\\Docs\\a.txt").stdout == b"alpha", "C:\\Tree\\Docs\\a.txt cannot be read")
        self.station("get", "C:\\Tree\\Docs\\new.txt", f"{self.scratch}/back.txt")
        with open(f"{self.scratch}/back.txt", "rb") as file:
            require(file.read() == b"written through the old path", "what was written through the old path came back changed")
        require(run("ntfscat", "-f", self.station.image(self.guid), "Docs/new.txt").stdout == b"written through the old path",
                "what was written through the old path is not on the volume")
        self.require_sound()

    def remove(self):
        self.station.qbc(*self.command, "/d")
        self.require_sound()
        done = run("ntfscat", "-f", "-a", "0xC0", self.station.image("C"), "Tree", ok=None)
        require(done.returncode != 0 or done.stdout == b"", "C:\\Tree still has reparse data")
        after = self.station.listing("C", "/Tree", f"{self.scratch}/after")
        self.said(*compare(self.before, after, "/Tree", "/Tree", False, ["/Docs/new.txt"]))
        require(hive_record(self.station, self.scratch) == [], "the record is still there")
        require(self.on_volume() == [], f"the volume still holds {self.on_volume()}")
        root_after = self.root_security()
        require(root_after == self.root_before, f"the security of the volume's root was\n{self.root_before}\nand is\n{root_after}")
        left = [name for name in below_root(self.station.image("C")) if ".mount" in name]
        require(left == [], f"C: holds {left}")

    def run(self):
        require(self.on_volume() == [], "the volume is not empty at the start")
        self.redirect()
        self.require_tree_on_volume()
        self.use()
        self.remove()
        self.redirect()  # the volume is free, so it can be used again


def check_volume_from_ntfs3g(build, scratch, said):
    """The tree is written on a workstation's own C:."""
    station = Station(build, f"{scratch}/machine")
    station("create", "--drive", "C:64M", "--drive", "D:16M", "--volume", "32M")
    with Mounted(station.image("C")) as folder:
        fill_tree(folder, random.Random(4), "C")
    VolumeRoundTrip(station, scratch, said).run()


def check_volume_from_wimapply(build, scratch, said):
    """C: with the tree comes from wimapply, and the volume is one that this machine did not format."""
    station = Station(build, f"{scratch}/machine")
    first, system, data, wim = (f"{scratch}/{name}" for name in ("first.ntfs", "system.ntfs", "data.ntfs", "tree.wim"))
    make_image(first, "64M")
    with Mounted(first) as folder:
        fill_tree(folder, random.Random(5), "C")
    make_image(system, "64M")
    run("wimcapture", first, wim, "--compress=none")
    run("wimapply", wim, "1", system)
    make_image(data, "32M")
    station("import", system, "C:")
    station("import", data, "D:")
    station("adopt", data, "volume")
    require(not os.path.exists(data), "the adopted image is still where it was")
    VolumeRoundTrip(station, scratch, said).run()
