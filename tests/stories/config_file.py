"""ServiceConfig.xml as it must be, byte for byte."""
import os
import re
from xml.sax.saxutils import escape

from world import CONFIG

HIVE = "HKEY_LOCAL_MACHINE"
UNTOUCHED = "\r\n\t\t"  # what the default has where a folder is to be written
BACKUP_FILE = re.compile(r"<BackUpFile>(.*?)</BackUpFile>")
# A random GUID tells so in its third and fourth group.
BACKUP_NAME = re.compile(r"[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}\.bak")


class ConfigFile:
    """What a story believes of the file. The names of backup files are learnt from the file when their keys are new,
    and must stay from then on."""

    def __init__(self, world, base_dir=UNTOUCHED, status="0", profile_status="0"):
        self.world, self.base_dir, self.status, self.profile_status = world, base_dir, status, profile_status
        self.keys = None  # [path, backup file's name]; None before the first key was added
        self.used_names = set()

    def add(self, path):
        self.keys = (self.keys or []) + [[path, None]]

    def drop(self, *paths):
        self.keys = [key for key in self.keys if key[0] not in paths]

    def data(self, encoding=""):
        def element(name, text):
            return f"<{name}>{escape(text)}</{name}>" if text else f"<{name}/>"
        lines = [f'<?xml version="1.0"{encoding}?>', "<VelmoraQuillbayConfig>",
                 "\t<Meta>",
                 "\t\t<ProductVersion>2.34.1110.486</ProductVersion>",
                 "\t\t<ConfigVersion>1</ConfigVersion>",
                 "\t</Meta>",
                 "\t<UserProfileRedirection>",
                 f"\t\t<ProfileStatus>{self.profile_status}</ProfileStatus>",
                 f"\t\t<DefaultNewUserProfileDirectory>{UNTOUCHED}</DefaultNewUserProfileDirectory>",
                 "\t\t<DefaultProfilePath>C:\\Users</DefaultProfilePath>",
                 "\t</UserProfileRedirection>",
                 "\t<OutDir>",
                 f"\t\t<Status>{self.status}</Status>",
                 "\t\t<Type>AbsoluteDir</Type>",
                 "\t\t" + element("BaseDir", self.base_dir),
                 "\t\t<SubDir>Quillbay\\RegistryData</SubDir>",
                 "\t</OutDir>"]
        # What is added to the default is put in without white space.
        entries = "".join("<RegKey>" + element("BaseKey", HIVE) + element("RegKeyPath", path) +
                          element("BackUpFile", name or "?") + "</RegKey>" for path, name in self.keys or [])
        keys = ("" if self.keys is None else f"<RegistryKeysToMonitor>{entries}</RegistryKeysToMonitor>" if entries else
                "<RegistryKeysToMonitor/>")
        text = "\r\n".join(lines) + "\r\n" + keys + "</VelmoraQuillbayConfig>\r\n"
        return b"\xff\xfe" + text.encode("utf-16-le")

    def put(self):
        """Gives the file this content, as a save leaves it."""
        self.world.write(CONFIG, self.data(self.world.saved_encoding))

    def matches(self, name):
        """Is this what the file holds?"""
        found = self.world.read(CONFIG) or b""
        names = BACKUP_FILE.findall(found[2:].decode("utf-16-le", "replace"))
        if len(names) == len(self.keys or []):
            for key, backup_file in zip(self.keys or [], names):
                if key[1] is None and BACKUP_NAME.fullmatch(backup_file) and backup_file not in self.used_names:
                    key[1] = backup_file
                    self.used_names.add(backup_file)
        expected = self.data(self.world.saved_encoding)
        return self.world.checks.true(f"{name}: the file, byte by byte", found == expected, difference(found, expected))


def difference(found, expected):
    start = max(0, len(os.path.commonprefix([found, expected])) - 60) // 2 * 2
    got, wanted = (data[start:start + 240].decode("utf-16-le", "replace") for data in (found, expected))
    return f"got      {len(found)} bytes, at {start}: {got!r}\nexpected {len(expected)} bytes: {wanted!r}"
