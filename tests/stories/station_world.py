"""The stories' world on an emulated workstation, seen through the workstation tool."""
from station import Station
from world import World


class StationWorld(World):
    rimehold_folder = "C:\\Program Files (x86)\\Velmora\\Rimehold"

    def __init__(self, build, folder, strings, checks):
        super().__init__(strings, checks)
        self.station = Station(build, folder)
        self.station("create", "--drive", "C:64M", "--volume", "16M", "--8dot3name", "0")

    def start(self, *arguments):
        done = self.station.qbc(*arguments, ok=None)
        if done.stderr:
            raise RuntimeError(f"{arguments}: {done.stderr!r}")
        return done.stdout, done.returncode

    def read(self, path):
        done = self.station("cat", path, ok=None)
        return done.stdout if done.returncode == 0 else None

    def write(self, path, data):
        if self.read(path) is not None:
            self.remove(path)
        self.make_folder(path.rsplit("\\", 1)[0])
        self.station("put", "-", path, input=data)

    def remove(self, path):
        self.station("rm", path)

    def make_folder(self, path):
        self.station("mkdir", path)

    def names(self, path):
        done = self.station("ls", path, ok=None)
        return sorted(line[27:] for line in done.stdout.decode().splitlines()) if done.returncode == 0 else None

    def set_value(self, key, name, text):
        self.station("reg", "add", key, name, "sz", text)

    def set_service(self, start):
        self.station("service", "set", "QuillbayService", start)

    def service(self):
        services = [line.split() for line in self.station("service", "list").stdout.decode().splitlines()]
        _, state, _, start, *_ = next(words for words in services if words[0] == "QuillbayService")
        return state, {"0x2": "auto", "0x3": "demand"}[start]

    def set_rimehold(self, status):
        self.station("rimehold", status or "absent")

    def volume(self):
        return f"\\\\?\\Volume{self.station.volume_without_letter()}\\"
