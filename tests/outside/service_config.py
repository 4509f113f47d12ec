"""The service's configuration file as another XML reader sees it."""
import re
import xml.etree.ElementTree

from station import Station, require

CONFIG = "C:\\Program Files\\Velmora\\Quillbay\\ServiceConfig.xml"
HIVE = "HKEY_LOCAL_MACHINE"


def check_service_config(build, scratch, said):
    """Twenty edits by the commands; after each the file must be sound and say what was asked for."""
    station = Station(build, f"{scratch}/machine")
    station("create")
    station("mkdir", "D:\\Keys & Data")

    def read():
        data = station("cat", CONFIG).stdout
        require(data[:2] == b"\xff\xfe", f"the file begins with {data[:2].hex()}")
        text = data[2:].decode("utf-16-le")
        require("\n" not in text.replace("\r\n", ""), "the file has a line break that is not CR LF")
        root = xml.etree.ElementTree.fromstring(data)
        return root, [(key.findtext("BaseKey"), key.findtext("RegKeyPath"), key.findtext("BackUpFile"))
                      for key in root.iterfind("RegistryKeysToMonitor/RegKey")]

    station.qbc("/RedirectRegKeyLocation", "/loc:D:\\Keys & Data")
    expected = []
    for edit in range(19):
        if edit % 4 == 3:
            path = expected.pop(0)
            station.qbc("/RedirectRegKey", HIVE.lower() + "\\" + path.replace("Key", "kEY"), "/d")
        else:
            path = f"SOFTWARE\\Key \u00e9 & <{edit}>"
            station("reg", "add", f"HKLM\\{path}", "value", "sz", "x")
            station.qbc("/RedirectRegKey", f"{HIVE}\\{path}")
            expected.append(path)
        root, keys = read()
        require(root.tag == "VelmoraQuillbayConfig", f"the document element is {root.tag}")
        require(root.findtext("OutDir/Status") == "1", "the location is not set")
        require(root.findtext("OutDir/BaseDir") == "D:\\Keys & Data", f"the location is {root.findtext('OutDir/BaseDir')}")
        require(root.findtext("UserProfileRedirection/DefaultProfilePath") == "C:\\Users", "the profiles' folder is wrong")
        require([key[:2] for key in keys] == [(HIVE, path) for path in expected], f"edit {edit}: the keys are {keys}")
        guid = re.compile(r"[0-9A-F]{8}(-[0-9A-F]{4}){3}-[0-9A-F]{12}\.bak")
        require(all(guid.fullmatch(key[2]) for key in keys), f"a backup file's name is wrong: {keys}")
        require(len({key[2] for key in keys}) == len(keys), "two keys share a backup file")
    said(f"20 edits, each read by Python's parser; {len(expected)} keys are left")
