"""The command scripts of deploy/ in Wine's cmd.exe: with QBC.exe as far as Wine goes, then with stand-ins, which show what
reaches a program, and outcomes that Wine does not have."""
import pathlib

from scenarios import INSTANCE_MUTEX, RECORDS_32
from standins import StandIns
from world import LOG, SERVICE_FOLDER

SCRIPTS = pathlib.Path(__file__).resolve().parent.parent.parent / "deploy"
FOLDER = "C:\\Put (by) tools & co"
SYSTEM = "C:\\windows\\system32"
# Linux sees one byte of an exit code.
CODES = {code & 255: code for code in (0, 2, 5, 87, 183, 350, 1603, 1618, 1622, 1633, 3010)}
DONE = ("Result 0: done.", 0)
NOTHING = ("Result 0: nothing to do.", 0)


def call(prefix, line, folder=FOLDER):
    """A line as it stands in a tool's field, from a batch file: output and exit code."""
    script, _, words = line.partition(" ")
    prefix.host_path("C:\\call.cmd").write_text(f'@"{folder}\\{script}.cmd" {words}\r\n', encoding="cp437", newline="")
    run = prefix.run("C:\\call.cmd")
    return run.text, CODES.get(run.code, run.code)


def deployment(world):
    prefix, lists = world.prefix, {}

    def ends(name, line, said, code):
        """The last line with "Result", to which this must be the beginning, and the exit code."""
        text, ended = call(prefix, line)
        result = [part for part in text.splitlines() if part.startswith("Result")][-1:]
        world.checks.true(f"{name}: {line}", ended == code and len(result) == 1 and result[0].startswith(said),
                          f"{ended} {text}")
        return text

    for script in SCRIPTS.glob("*.cmd"):
        prefix.place(script, f"{FOLDER}\\{script.name}")
    prefix.delete_service("QuillbayService")
    ends("no program", 'redirect folder "C:\\Data" "D:\\Kept"', "Result 2:", 2)
    for line in ("redirect", 'redirect folder "C:\\Data"', 'redirect folder Data "D:\\Kept"', 'redirect folder "C:\\" "D:\\"',
                 'redirect folder "C:\\Data" Kept', 'redirect folder "C:\\Data" "D:\\Kept" /x', 'redirect share "C:\\D" "D:\\K"',
                 'redirect auto "\\\\?\\Volume{1}\\"', "bring-back auto D:\\", "wait-for-thaw x", "wait-for-thaw 1+1",
                 "wait-for-thaw 00001"):
        ends("wrong arguments", line, "Result 87:", 87)

    prefix.place(world.build / "QBC.exe", FOLDER + "\\QBC.exe")
    links = set()
    with StandIns({"fsutil": lambda words, _: (b"", int(words[-1].lower() not in links)),
                   "mountvol": lambda words, _: (lists.get(words[0], b""), 0),
                   "ping": lambda words, _: (b"", world.set_rimehold("Thawed") or 0)}) as stand_ins:
        stand_ins.install(prefix, world.build, SYSTEM)
        real_program(world, ends, links)
        for folder in (FOLDER, SERVICE_FOLDER):
            prefix.host_path(folder + "\\QBC.exe").unlink(missing_ok=True)
            prefix.place(world.build / "wine" / "standin.exe", folder + "\\QBC.exe")
        played_program(world, ends, links, lists, stand_ins)
        # A 32-bit cmd.exe has its programs from elsewhere, and here no others.
        prefix.environment["PROCESSOR_ARCHITEW6432"] = "AMD64"
        stand_ins.install(prefix, world.build, "C:\\windows\\Sysnative")
        prefix.place(prefix.host_path(SYSTEM + "\\reg.exe"), "C:\\windows\\Sysnative\\reg.exe")
        stand_ins.calls.clear()
        ends("32-bit tool", 'redirect folder "C:\\Data" "D:\\Kept"', *DONE)
        used = {path for path, *_ in stand_ins.calls if not path.endswith("QBC.exe")}
        world.checks.equal("its programs", {path.rsplit("\\", 1)[0] for path in used}, {"C:\\windows\\Sysnative"})
    del prefix.environment["PROCESSOR_ARCHITEW6432"], prefix.environment["STANDIN"]
    prefix.delete_service("QuillbayService")


def real_program(world, ends, links):
    world.set_service("demand")
    world.make_folder("C:\\Work")
    text = ends("refused", 'redirect folder "C:\\Work\\" "C:\\Elsewhere"', "Result 1603:", 1603)
    world.checks.true("with what the program says", world.strings[148] in text and f'"{LOG}" says' in text, text)
    with world.held(INSTANCE_MUTEX):
        ends("another runs", 'redirect folder "C:\\Work" "C:\\Elsewhere"', "Result 1618:", 1618)
    world.set_rimehold("Frozen")
    for key, source, target in ((1, "C:\\A & (b) ^ !", "D:\\Kept\\A & (b) ^ !"), (2, "C:\\Two", "D:\\Two")):
        for name, path in (("Source", source), ("Target", target)):
            world.set_value(f"{RECORDS_32}\\Junctions\\{key}", name, path)
    links.update(("c:\\a & (b) ^ !", "c:\\two"))
    for line in ('redirect folder "c:\\a & (b) ^ !\\" "d:\\kept\\\\"', 'redirect folder "C:\\Two" "D:\\"',
                 'redirect folder "C:\\Two" "D:"', 'bring-back folder "C:\\Three"', 'bring-back auto',
                 'bring-back profile "Nobody at all"'):
        ends("as it is to be", line, *NOTHING)
    for line in ('redirect folder "C:\\A & (b) ^ !" "D:\\Other"', 'bring-back folder "C:\\Two" "D:\\Other"'):
        ends("elsewhere", line, "Result 183:", 183)
    for line in ('redirect folder "C:\\Work" "C:\\Elsewhere"', 'bring-back folder "C:\\Two"', "wait-for-thaw 0"):
        ends("Frozen", line, "Result 1622:", 1622)
    ends("thawed meanwhile", "wait-for-thaw 0009", "Result 0: thawed.", 0)
    links.clear()
    text = ends("no link there", 'redirect folder "C:\\Two" "D:\\"', "Result 1603:", 1603)
    world.checks.true("which is told", "no link stands in its place" in text, text)
    world.set_rimehold(None)
    world.prefix.delete_key(RECORDS_32 + "\\Junctions")


def played_program(world, ends, links, lists, stand_ins):
    """QBC.exe is ours here: what it is called with, and each way that it ends."""
    state = {"status": [3], "ended": 0, "adds": ""}

    def program(words, _):
        if words == ["/GetRHStatus"]:
            status = state["status"][0] if len(state["status"]) == 1 else state["status"].pop(0)
            return (status.encode(), 1) if isinstance(status, str) else (b"", status)
        if len(words) == 1:
            return lists.get(words[0], b""), 0
        with world.file(LOG).open("ab") as log:  # in what TYPE would make of it
            log.write(f"\r\n[1] ------\r\n[1] #INFO: {state['adds']}".encode())
        return b"Said.", state["ended"]

    stand_ins.programs["qbc"] = program
    world.write(LOG, b"\r\n[1] ------\r\n[1] The log of a run before: It will be deleted at the next restart.")
    volume = "\\\\?\\Volume{00000000-0000-0000-0000-000000000043}\\"
    for line, *words in (
            ('redirect folder "C:\\D & (1) ^ !, ;=" "D:\\K & (2) ^\\" /-ntfs', "/RedirectFolder", "C:\\D & (1) ^ !, ;=",
             "/loc:D:\\K & (2) ^", "/-NTFS"),
            ('redirect file "C:\\l.txt" "D:"', "/RedirectFile", "C:\\l.txt", "/loc:D:\\"),
            (f'redirect folder "C:\\Data" "{volume}"', "/RedirectFolder", "C:\\Data", "/vol:" + volume),
            ('redirect profile "Anna Berg" "D:\\P\\\\" /Share', "/RedirectUP", "Anna Berg", "/loc:D:\\P", "/Share"),
            ('redirect auto "D:\\P" /redirectdefaultandpublicprofile', "/AutoRedirectUP", "/loc:D:\\P",
             "/RedirectDefaultAndPublicProfile")):
        stand_ins.calls.clear()
        text = ends("called", line, *DONE)
        sent = [list(arguments) for path, *arguments in stand_ins.calls if path.endswith("QBC.exe")]
        world.checks.equal("with", [arguments for arguments in sent if len(arguments) > 1], [words])
    world.checks.true("the part of the log is this run's", "[1] #INFO: " in text and "run before" not in text, text)

    def ending(name, line, said, code, **changes):
        before = {**state}
        state.update(changes)
        ends(name, line, said, code)
        state.update(before)

    do = 'redirect folder "C:\\Data" "D:\\Kept"'
    no_rimehold = "Rimehold not installed - "
    ending("no Rimehold", do, *DONE, status=[no_rimehold])
    ending("no administrator", do, "Result 5:", 5, status=["You need administrative privileges to"])
    ending("no answer", do, "Result 1603:", 1603, status=["?"])
    ending("begins while another runs", do, "Result 1618:", 1618, ended=1, adds="QBC: another instance is already running")
    ending("freezes meanwhile", do, "Result 1622:", 1622, status=[3, 2])
    ending("crashes", do, "Result 1603:", 1603, ended=-1073741819)
    already = "Junction already exists for Source = C:\\\u0416 and Target = "
    ending("recorded, and no link", do, "Result 1603:", 1603, ended=1, adds=already)
    links.add("c:\\data")
    ending("recorded under a name that is not shown", do, *NOTHING, ended=1, adds=already)
    ending("a link that is not listed", 'bring-back folder "C:\\Data"', "Result 1603:", 1603)
    ending("may be tried", 'bring-back folder "C:\\Data" "D:\\Kept"', *DONE)
    ending("restart first", 'redirect auto "D:\\P"', "Result 350:", 350, ended=1, adds="Restart your computer first.")
    lists["/AutoRedirectUP"] = b"\r\nNewly created user profile location = D:\\P\r\n"
    ending("rest at the restart", "bring-back auto", "Result 3010:", 3010, adds="in use. It will be deleted at the next restart.")
    ending("on already", 'redirect auto "D:\\P\\"', *NOTHING)
    ending("on elsewhere", 'redirect auto "D:\\"', "Result 183:", 183)
    lists["/RedirectUP"] = b"User   Profile folder\r\n\r\nuser   D:\\P\\user.PC\r\nanna   C:\\Users\\anna\r\n"
    ending("a user by the name of User", 'redirect profile User "D:\\P"', *NOTHING)
    lists["C:\\Users\\anna"] = b"    " + volume.encode() + b"\r\n"
    ending("a profile on its volume", f'redirect profile anna "{volume}"', *NOTHING)
    ending("another volume", f'redirect profile anna "{volume.replace("43", "44")}"', "Result 183:", 183)
