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
        self.prefix, self.build = prefix, build
        folder = prefix.host_path(SERVICE_FOLDER)
        for left in ("QBC.log", "ServiceConfig.xml"):
            (folder / left).unlink(missing_ok=True)
        # As Windows has it; Wine writes C:\users.
        prefix.set_value(PROFILE_LIST, "ProfilesDirectory", "%SystemDrive%\\Users", "REG_EXPAND_SZ")
        self.set_service("demand")

    def _place_service(self, folder, name):
        executable = f"{folder}\\{name}.exe"
        if not self.prefix.host_path(executable).is_file():
            self.prefix.place(self.build / "wine" / "service.exe", executable)
        return executable

    def _create_service(self, folder, name, start):
        self.prefix.create_service(name, self._place_service(folder, name), start)

    def start(self, *arguments):
        result = self.prefix.run(self.build / "QBC.exe", *arguments)
        return result.output, result.code

    def read(self, path):
        file = self.prefix.host_path(path)
        return file.read_bytes() if file.is_file() else None

    def write(self, path, data):
        file = self.prefix.host_path(path)
        file.parent.mkdir(parents=True, exist_ok=True)
        file.write_bytes(data)

    def remove(self, path):
        self.prefix.host_path(path).unlink()

    def make_folder(self, path):
        self.prefix.host_path(path).mkdir(parents=True, exist_ok=True)

    def remove_folder(self, path):
        self.prefix.host_path(path).rmdir()

    def names(self, path):
        folder = self.prefix.host_path(path)
        return sorted(entry.name for entry in folder.iterdir()) if folder.is_dir() else None

    def set_value(self, key, name, text):
        self.prefix.set_value(key, name, text)

    def delete_key(self, key):
        self.prefix.delete_key(key)

    def has_key(self, key):
        return self.prefix.has_key(key)

    def set_service(self, start):
        # Wine's sc cannot change a start type, so the service is made anew.
        self.prefix.delete_service(SERVICE)
        self._create_service(SERVICE_FOLDER, SERVICE, start)
        if start == "auto":
            self.start_service()

    def service(self):
        state = self.prefix.tool("sc", "query", SERVICE).output.decode()
        key = f"HKLM\\System\\CurrentControlSet\\Services\\{SERVICE}"
        settings = self.prefix.tool("reg", "query", key, "/v", "Start")
        start = settings.output.decode().split()[-1]
        return (next(word for word in ("running", "stopped", "pending", "") if word.upper() in state),
                {"0x2": "auto", "0x3": "demand", "0x4": "disabled"}[start])

    def start_service(self):
        self.prefix.start_service(SERVICE)

    def held(self, path):
        return self.prefix.holding(self.build / "wine" / "hold.exe", "open", path, "read", "none")

    def set_rimehold(self, status):
        if status is None:
            self.prefix.delete_service(RIMEHOLD)
            self.prefix.delete_key(RIMEHOLD_STATUS)
            shutil.rmtree(self.prefix.host_path(self.rimehold_folder))
        else:
            if self.prefix.run("sc", "query", RIMEHOLD).code != 0:
                self._create_service(self.rimehold_folder, RIMEHOLD, "demand")
            self.prefix.set_value(RIMEHOLD_STATUS, "RH Status", status)

    def volume(self):
        return "\\\\?\\Volume{00000000-0000-0000-0000-000000000043}\\"
