"""Registry hives as hivexml reads them from an image."""
import base64
import xml.etree.ElementTree

from station import run

PROFILE_LIST = "Microsoft\\Windows NT\\CurrentVersion\\ProfileList"
RECORDS = "Wow6432Node\\Velmora\\Quillbay"


class Hive:
    """All keys of one hive file by path, each with its values by name: (type, text)."""

    def __init__(self, station, letter, path):
        copy = f"{station.folder}.hive"
        with open(copy, "wb") as file:
            file.write(run("ntfscat", "-f", station.image(letter), path).stdout)
        text = run("hivexml", copy).stdout.decode(errors="replace")
        self.keys = {}
        self._read(xml.etree.ElementTree.fromstring(text).find("node"), "")

    def _read(self, node, path):
        self.keys[path] = {v.get("key", ""): (v.get("type"), self._text(v)) for v in node.findall("value")}
        for child in node.findall("node"):
            self._read(child, f"{path}\\{child.get('name')}".lstrip("\\"))

    def below(self, path):
        """The keys right below this one: their names and their values."""
        return [(key[len(path) + 1:], values) for key, values in self.keys.items() if key.rpartition("\\")[0] == path]

    def records(self, kind="Junctions"):
        """Source and target of each redirection."""
        return [tuple(values.get(name, ("", ""))[1] for name in ("Source", "Target"))
                for _, values in self.below(f"{RECORDS}\\{kind}")]

    @staticmethod
    def _text(value):
        if value.get("type") == "string-list":
            return [item.text for item in value.iter("string")]
        raw = value.get("value", "")
        if value.get("encoding") == "base64" and value.get("type") != "binary":
            raw = base64.b64decode(raw).decode("utf-16-le", "replace")
        return raw.rstrip("\0")


def software(station):
    return Hive(station, "C", "Windows/System32/config/SOFTWARE")
