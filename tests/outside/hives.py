"""Registry hives as hivexml reads them from an image."""
import base64
import os
import xml.etree.ElementTree

from station import require, run

PROFILE_LIST = "Microsoft\\Windows NT\\CurrentVersion\\ProfileList"
RECORDS = "Wow6432Node\\Velmora\\Quillbay"


class Hive:
    """Keys of one hive file by path; a value is (type, text)."""

    def __init__(self, station, letter, path, scratch):
        copy = os.path.join(scratch, "hive")
        with open(copy, "wb") as file:
            file.write(run("ntfscat", "-f", station.image(letter), path).stdout)
        text = run("hivexml", copy).stdout.decode(errors="replace")
        os.unlink(copy)
        self.root = xml.etree.ElementTree.fromstring(text).find("node")

    def key(self, path):
        """The key's element; None where there is none."""
        node = self.root
        for name in path.split("\\"):
            node = next((n for n in node.findall("node") if n.get("name").lower() == name.lower()), None)
            if node is None:
                return None
        return node

    def values(self, path):
        node = self.key(path)
        require(node is not None, f"hivexml shows no key {path}")
        return {v.get("key", ""): (v.get("type"), self._text(v)) for v in node.findall("value")}

    def records(self, kind="Junctions"):
        """Source and target of each redirection."""
        nodes = self.key(f"{RECORDS}\\{kind}")
        values = [self.values(f"{RECORDS}\\{kind}\\{node.get('name')}") for node in nodes or () if node.tag == "node"]
        return [tuple(value.get(name, ("", ""))[1] for name in ("Source", "Target")) for value in values]

    def everything(self, node=None, path=""):
        """All values of the hive by path."""
        node = self.root if node is None else node
        found = {f"{path}|{v.get('key', '')}": (v.get("type"), self._text(v)) for v in node.findall("value")}
        for child in node.findall("node"):
            below = f"{path}\\{child.get('name')}"
            found[below] = None
            found.update(self.everything(child, below))
        return found

    @staticmethod
    def _text(value):
        if value.get("type") == "string-list":
            return [item.text for item in value.iter("string")]
        raw = value.get("value", "")
        if value.get("encoding") == "base64" and value.get("type") != "binary":
            raw = base64.b64decode(raw).decode("utf-16-le", "replace")
        return raw.rstrip("\0")


def software(station, scratch):
    return Hive(station, "C", "Windows/System32/config/SOFTWARE", scratch)
