"""Commands that only read: by a user who may not write there, beside others who read, without a trace."""
import fcntl
import os

from station import Station, require
from windows_state import digest

ORDINARY = {"user": 65534, "group": 65534, "extra_groups": []} if os.getuid() == 0 else {}
LOOKS = ("info", r"ls C:\ -R", r"cat D:\text", r"stat D:\text", r"reg query HKLM\SOFTWARE", "service list",
         r"reg export HKLM\SYSTEM\Select", "share list", "profile list", "8dot3name query")


def check_reading(build, scratch, said):
    station = Station(build, f"{scratch}/machine")
    station("create", "--drive", "C:48M", "--drive", "D:16M")
    station("freeze", "D:")
    station("put", "-", r"D:\text", input=b"text")
    paths = [f"{station.folder}/{name}" for name in ("", *os.listdir(station.folder))]
    contents = [digest(path) for path in paths[1:]]
    for path in paths:
        os.chown(path, ORDINARY.get("user", -1), -1)
        os.chmod(path, 0o555 if path.endswith("/") else 0o444)
        fcntl.flock(os.open(path, os.O_RDONLY), fcntl.LOCK_SH)
        os.utime(path, (1e9, 1e9))
    traces = [os.stat(path) for path in paths]
    for look in LOOKS:
        require(station(*look.split(), **ORDINARY).stdout, f"{look}: nothing was told")
    for word in ("/ver", "/?", "/RedirectFolder", "/RedirectRegKey"):
        station.qbc(word, ok=(0, 1), **ORDINARY)
    require((traces, contents) == ([*map(os.stat, paths)], [*map(digest, paths[1:])]), "a trace was left")
    said(station.qbc("/RedirectFolder", "C:\\Users", r"/loc:D:\Users", ok=(3,), **ORDINARY).stderr.decode().strip())
