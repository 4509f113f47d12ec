"""The stories' world in a Wine prefix, with a real service program."""
import shutil

from world import SERVICE_FOLDER, World

SERVICE, RIMEHOLD = "QuillbayService", "RHServ"
RIMEHOLD_STATUS = "HKLM\\Software\\Velmora\\Rimehold 6"
PROFILE_LIST = "HKLM\\Software\\Microsoft\\Windows NT\\CurrentVersion\\ProfileList"


class WineWorld(World):
    rimehold_folder = "C:\\Program Files\\Velmora\\Rimehold"
    has_other_programs = True
    makes_links = mounts_volumes = keeps_descriptors = False
    saved_encoding = ' encoding="utf-16"'  # MSXML takes it out of the declaration, Wine's reader leaves it in
    xml_knows_limits = False

    def __init__(self, prefix, build, strings, checks):
        super().__init__(strings, checks)
        self.prefix, self.build, self.file, self.set_value = prefix, build, prefix.host_path, prefix.set_value
        # As Windows has it; Wine writes C:\users.
        self.set_value(PROFILE_LIST, "ProfilesDirectory", "%SystemDrive%\\Users", "REG_EXPAND_SZ")

    def _create_service(self, folder, name, start):
        executable = f"{folder}\\{name}.exe"
        if not self.file(executable).is_file():
            self.prefix.place(self.build / "wine" / "service.exe", executable)
        self.prefix.create_service(name, executable, start)

    def start(self, *arguments):
        return self.prefix.run(self.build / "QBC.exe", *arguments)

    def read(self, path):
        return self.file(path).read_bytes() if self.file(path).is_file() else None

    def write(self, path, data):
        self.file(path).parent.mkdir(parents=True, exist_ok=True)
        self.file(path).write_bytes(data)

    def remove(self, path):
        self.file(path).unlink()

    def make_folder(self, path):
        self.file(path).mkdir(parents=True, exist_ok=True)

    def names(self, path):
        folder = self.file(path)
        return sorted(entry.name for entry in folder.iterdir()) if folder.is_dir() else None

    def set_service(self, start):
        # Wine's sc cannot change a start type, so the service is made anew.
        self.prefix.delete_service(SERVICE)
        self._create_service(SERVICE_FOLDER, SERVICE, start)
        if start == "auto":
            self.start_service()

    def service(self):
        state = self.prefix.tool("sc", "query", SERVICE).text
        key = f"HKLM\\System\\CurrentControlSet\\Services\\{SERVICE}"
        start = self.prefix.tool("reg", "query", key, "/v", "Start").text.split()[-1]
        return (next(word for word in ("running", "stopped", "pending", "") if word.upper() in state),
                {"0x2": "auto", "0x3": "demand"}[start])

    def start_service(self):
        self.prefix.start_service(SERVICE)

    def held(self, *what):
        return self.prefix.holding(self.build / "wine" / "hold.exe", *what)

    def set_rimehold(self, status):
        if status is None:
            self.prefix.delete_service(RIMEHOLD)
            self.prefix.delete_key(RIMEHOLD_STATUS)
            shutil.rmtree(self.file(self.rimehold_folder))
        else:
            if self.prefix.run("sc", "query", RIMEHOLD).code != 0:
                self._create_service(self.rimehold_folder, RIMEHOLD, "demand")
            self.set_value(RIMEHOLD_STATUS, "RH Status", status)

    def volume(self):
        return "\\\\?\\Volume{00000000-0000-0000-0000-000000000043}\\"
