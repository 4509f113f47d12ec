"""qbcreport: what its verbs answer with --json is as docs/report.schema.json says, and nothing is written."""
import csv
import json
import os
import re

import jsonschema

from station import TOP, Station, require, run
from windows_state import digest

with open(f"{TOP}/docs/report.schema.json", encoding="utf-8") as file:
    SCHEMA = json.load(file)
# What is planned, and the exit code.
PLANS = ((0, "folder", r"C:\Data", r"D:\Kept"), (1, "folder", r"C:\Data", r"C:\Data\in"), (1, "folder", r"C:\Nix", "Q:"),
         (0, "folder", r"C:\Data", "VOLUME"), (1, "folder", r"C:\Windows", "VOLUME"),
         (0, "file", "C:\\Data\\\u00e4\U0001f600.txt", r"D:\New\folder"), (1, "file", r"C:\Data", r"D:\Kept"),
         (0, "profile", "anna", r"D:\Profiles"), (0, "profile", "anna", "VOLUME"), (1, "profile", "nobody", r"D:\Profiles"),
         (0, "auto", r"D:\Profiles"), (1, "auto", "VOLUME"), (1, "auto", r"C:\Users\anna"))


def check_report(build, scratch, said):
    station = Station(build, f"{scratch}/machine")
    station("create", "--drive", "C:64M", "--drive", "D:32M", "--volume", "32M", "--profile", "anna")
    station("mkdir", r"C:\Data\inner")
    station("put", "-", "C:\\Data\\\u00e4\U0001f600.txt", input=b"a text")
    station("link", "junction", r"C:\Data\link", r"C:\Windows")
    station("share", "add", "Inner", r"C:\Data\inner")
    guid, = (name[:-5] for name in os.listdir(station.folder) if name.startswith("{"))
    before = {name: digest(f"{station.folder}/{name}") for name in os.listdir(station.folder)}

    def report(code, *words):
        done = run(f"{build}/qbcreport", *words, "--json", ok=(code,), env={**os.environ, "QBC_WORKSTATION": station.folder})
        require(not done.stderr, done.stderr.decode())
        jsonschema.validate(json.loads(done.stdout), {**SCHEMA, "$ref": f"#/$defs/{words[0]}"})
        return json.loads(done.stdout)

    for code, *words, place in PLANS:
        volume = place == "VOLUME"
        to = ["--to", rf"\\?\Volume{guid}" + "\\" if volume else place] + ["--volume"] * volume
        plan = report(code, "plan", *words, *to)
        require(plan["source"] == (words[1] if len(words) > 1 else None), f"another source: {plan}")
    move = report(0, "plan", "folder", r"C:\Data", "--to", r"D:\Kept")["move"]
    require((move["items"], move["folders"], move["bytes"], [link["leadsTo"] for link in move["links"]],
             [share["name"] for share in move["shares"]], move["sameDrive"]) == (3, 1, 6, [r"C:\Windows"], ["Inner"], False),
            f"what would move: {move}")
    require(before == {name: digest(f"{station.folder}/{name}") for name in os.listdir(station.folder)}, "a trace was left")
    list_and_undo(station, report)
    said(f"{len(PLANS)} plans")


def list_and_undo(station, report):
    """Redirected, then broken; the names of what can be found are those of the document."""
    station("mkdir", r"C:\One, two")
    station.qbc("/RedirectFolder", r"C:\One, two", r"/loc:D:\Kept")
    rows, steps = report(0, "list", "--check")["rows"], report(0, "undo")["steps"]
    require([row["state"] for row in rows] == ["whole"], f"{rows}")
    require(steps[0]["words"][1] == rows[0]["source"] == r"C:\One, two", f"{steps}")
    station("rm", r"C:\One, two")
    row, = report(1, "list", "--check")["rows"]
    require(not report(1, "undo")["steps"][0]["command"], "a command for what is broken")
    environment, (finding,) = {**os.environ, "QBC_WORKSTATION": station.folder}, row["findings"]
    table = run(f"{station.build}/qbcreport", "list", "--csv", env=environment).stdout.decode()
    expected = {**row, "user": "", "findings": finding["name"], "says": finding["says"], "todo": finding["todo"]}
    require([*csv.DictReader(table.split("\r\n"))] == [expected], f"as CSV: {table}")
    found = []
    for file, pattern in (("src/survey/findings.cpp", r', "([a-z]+-[a-z-]+)", k'), ("docs/report.md", r"^\| `([a-z]+-[a-z-]+)` \|")):
        with open(f"{TOP}/{file}", encoding="utf-8") as text:
            found.append(set(re.findall(pattern, text.read(), re.M)))
    require(found[0] == found[1], f"findings of the text and of the document: {found[0] ^ found[1]}")
