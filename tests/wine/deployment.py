"""The command scripts of deploy/ in Wine's cmd.exe: with QBC.exe as far as Wine goes, then with stand-ins, which show what
reaches a program, and outcomes that Wine does not have."""
import pathlib

from scenarios import INSTANCE_MUTEX, RECORDS_32
from standins import StandIns, find
from world import LOG

SCRIPTS = pathlib.Path(__file__).resolve().parent.parent.parent / "deploy"
FOLDER = "C:\\Put (by) tools & co"
SYSTEM = "C:\\windows\\system32"
SYSNATIVE = "C:\\windows\\Sysnative"
CODES = {code & 255: code for code in (0, 2, 5, 87, 183, 350, 1603, 1618, 1622, 1633, 3010)}  # by what Linux sees of them
VOLUME = "\\\\?\\Volume{00000000-0000-0000-0000-000000000043}\\"
WRONG = ("redirect", 'redirect folder "C:\\Data"', 'redirect folder Data "D:\\"', 'redirect folder "C:\\" "D:\\"',
         'redirect folder "C:\\Data" Kept', 'redirect folder "C:\\Data" "D:\\" /x', 'redirect share "C:\\D" "D:\\"',
         f'redirect auto "{VOLUME}"', 'bring-back file "C:\\a ^^"', "bring-back auto D:\\", "wait-for-thaw 1+1",
         "wait-for-thaw 00001")
# What QBC.exe gets for a line.
CALLS = (('redirect folder "C:\\D & (1) ^ !, ;=\\" "D:\\K & (2) ^\\" /-ntfs',
          ("/RedirectFolder", "C:\\D & (1) ^ !, ;=", "/loc:D:\\K & (2) ^", "/-NTFS")),
         ('redirect file "C:\\Größe é.txt" "D:"', ("/RedirectFile", "C:\\Größe é.txt", "/loc:D:\\")),
         (f'redirect folder "C:\\D" "{VOLUME}"', ("/RedirectFolder", "C:\\D", "/vol:" + VOLUME)),
         ('redirect profile "Anna Berg" "D:\\P\\\\"', ("/RedirectUP", "Anna Berg", "/loc:D:\\P")))
DO = 'redirect folder "C:\\Data" "D:\\Kept"'
ALREADY = "Junction already exists for Source = "
USERS = b"User   Profile folder\r\n\r\nuser   D:\\P\\user.PC\r\nanna   C:\\Users\\anna\r\n"
# How it ends: a line, its result and exit code; what QBC.exe answers to /GetRHStatus, adds to the log, ends with.
ENDINGS = ((DO, "0: done", 0, ["Rimehold not installed - "], "", 0),
           (DO, "5:", 5, ["You need administrative privileges to"], "", 0),
           (DO, "1603:", 1603, ["?"], "", 0),
           (DO, "1618:", 1618, [3], "QBC: another instance is already running", 1),
           (DO, "1622:", 1622, [3, 2], "", 0),  # Frozen meanwhile, which QBC.exe ends with 0
           (DO, "1603:", 1603, [3], "", -1073741819),
           (DO, "1603:", 1603, [3], ALREADY, 1),  # without a link there
           ('redirect folder "C:\\Link" "D:\\Kept"', "0: nothing to do", 0, [3], ALREADY, 1),  # listed by another name
           ('bring-back folder "C:\\Link"', "1603:", 1603, [3], "", 0),
           ('bring-back folder "C:\\Link" "D:\\Kept"', "0: done", 0, [3], "", 0),
           ('redirect folder "C:\\50 PERCENT" "D:\\Kept"', "87:", 87, [3], "", 0),
           ('redirect auto "D:\\Q"', "183:", 183, [3], "", 0),
           ('redirect auto "D:\\P\\"', "0: nothing to do", 0, [2], "", 0),
           ("bring-back auto", "3010:", 3010, [3], "in use. It will be deleted at the next restart.", 0),
           ("bring-back auto", "350:", 350, [3], "Restart your computer first.", 1),
           ('redirect profile User "D:\\P"', "0: nothing to do", 0, [3], "", 0),
           (f'redirect profile anna "{VOLUME}"', "0: nothing to do", 0, [3], "", 0))


def deployment(world):
    prefix, checks, links = world.prefix, world.checks, {"c:\\a & (b) ^ !", "c:\\link"}
    lists = {"/RedirectUP": USERS, "/AutoRedirectUP": b"\r\nNewly created user profile location = D:\\P\r\n"}
    state = {}

    def ends(line, said, code, before=""):
        """A line as in a tool's field, from a batch file: the beginning of its last "Result", and the exit code."""
        script, _, words = line.partition(" ")
        prefix.host_path("C:\\call.cmd").write_bytes(f'{before}@"{FOLDER}\\{script}.cmd" {words}\r\n'.encode("cp437"))
        run = prefix.run("C:\\call.cmd")
        result = [part for part in run.text.splitlines() if part.startswith("Result ")][-1:]
        checks.true(f"{said} {line}", CODES.get(run.code) == code and result and result[0].startswith("Result " + said),
                    f"{run.code} {run.text}")
        return run.text

    def qbc(words, _):
        if words == ["/GetRHStatus"]:
            status = state["status"].pop(0) if len(state["status"]) > 1 else state["status"][0]
            return (status.encode(), 1) if isinstance(status, str) else (b"", status)
        if len(words) > 1:
            with world.file(LOG).open("ab") as log:  # as TYPE gives it
                log.write(f"\r\n[1] ------\r\n[1] #INFO: {state['adds']}".encode())
        return lists.get(words[0], b""), state["ended"] if len(words) > 1 else 0

    for script in SCRIPTS.glob("*.cmd"):
        prefix.place(script, f"{FOLDER}\\{script.name}")
    prefix.delete_service("QuillbayService")
    ends(DO, "2:", 2)
    for line in WRONG:
        ends(line, "87:", 87)
    prefix.place(world.build / "QBC.exe", FOLDER + "\\QBC.exe")
    # A percent sign is lost on its way through Wine's cmd.exe.
    with StandIns({"find": lambda words, given: find(words, given.replace(b"PERCENT", b"%")), "qbc": qbc,
                   "fsutil": lambda words, _: (b"", int(words[-1].lower() not in links)),
                   "mountvol": lambda words, _: (b"    " + VOLUME.encode(), 0),
                   "ping": lambda *_: (b"", world.set_rimehold("Thawed") or 0)}) as stand_ins:
        stand_ins.install(prefix, world.build, SYSTEM)
        real_program(world, ends)
        prefix.place(world.build / "wine" / "standin.exe", FOLDER + "\\QBC.exe")
        world.write(LOG, b"\r\n[1] ------\r\n[1] A run before: It will be deleted at the next restart.")
        for line, words in CALLS:
            state.update(status=[3], adds="of this run", ended=0)
            stand_ins.calls.clear()
            text = ends(line, "0: done", 0)
            checks.equal("is called", [call[1:] for call in stand_ins.calls if call[0].endswith("QBC.exe") and call[2:]],
                         [words])
        checks.true("what the log says of this run", "of this run" in text and "run before" not in text, text)
        for line, said, code, status, adds, ended in ENDINGS:
            state.update(status=list(status), adds=adds, ended=ended)
            ends(line, said, code)
        # A 32-bit cmd.exe has its programs from elsewhere.
        stand_ins.install(prefix, world.build, SYSNATIVE)
        prefix.place(prefix.host_path(SYSTEM + "\\reg.exe"), SYSNATIVE + "\\reg.exe")
        stand_ins.calls.clear()
        ends(DO, "0: done", 0, before="@set PROCESSOR_ARCHITEW6432=AMD64\r\n")
        checks.equal("their folder", {call[0].rpartition("\\")[0].lower() for call in stand_ins.calls},
                     {FOLDER.lower(), SYSNATIVE.lower()})
    prefix.delete_service("QuillbayService")


def real_program(world, ends):
    work = 'redirect folder "C:\\Work\\" "C:\\Elsewhere"'
    world.set_service("demand")
    world.make_folder("C:\\Work")
    text = ends(work, "1603:", 1603)
    world.checks.true("with what the program says", world.strings[148] in text and f'"{LOG}" says' in text, text)
    with world.held(INSTANCE_MUTEX):
        ends(work, "1618:", 1618)
    world.set_rimehold("Frozen")
    for key, source, target in ((1, "C:\\A & (b) ^ !", "D:\\Kept\\A & (b) ^ !"), (2, "C:\\Two", "D:\\Two")):
        world.set_value(f"{RECORDS_32}\\Junctions\\{key}", "Source", source)
        world.set_value(f"{RECORDS_32}\\Junctions\\{key}", "Target", target)
    ends('redirect folder "c:\\a & (b) ^ !\\" "d:\\kept\\\\"', "0: nothing to do", 0)
    ends('bring-back folder "C:\\Three"', "0: nothing to do", 0)
    ends('redirect folder "C:\\A & (b) ^ !" "D:\\Other"', "183:", 183)
    for line in (work, 'bring-back folder "C:\\Two"', "wait-for-thaw 0"):
        ends(line, "1622:", 1622)
    ends("wait-for-thaw 0009", "0: thawed", 0)
    text = ends('redirect folder "C:\\Two" "D:\\"', "1603:", 1603)
    world.checks.true("which has no link", "no link stands in its place" in text, text)
    world.set_rimehold(None)
    world.prefix.delete_key(RECORDS_32 + "\\Junctions")
