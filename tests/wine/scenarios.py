"""What only Windows itself can show of QBC.exe: console, exit code, log, registry. Each scenario takes its world."""
import contextlib
import os
import random
import re
import time

from world import LOG, SERVICE_FOLDER

RECORDS_32 = "HKLM\\Software\\Wow6432Node\\Velmora\\Quillbay"
INSTANCE_MUTEX = "Global\\2092F29F_EEFF_48f5_B562_9E33D2E6471A"
READ, WRITE, ATTRIBUTES, WITH_ALL = "0x80000000", "0xC0000000", "0x80", "7"


def shows(world, name, run, text, code):
    """All that the console shows, byte for byte, and the exit code."""
    console = (world.strings[101] + text).replace("\n", "\r\n").encode("cp437")
    world.checks.equal(name, run, (console, code))


def command_line(world):
    shows(world, "no command", world.start(), "##ERROR: No command is specified.", 1)
    shows(world, "unknown command", world.start("/\u00e9t\u00e9"), '##ERROR: Command "/\u00e9t\u00e9" is invalid.', 1)
    shows(world, "version", world.start("/VER"), "Quillbay 2.34.1110.486\n", 0)


def log_file(world):
    """Where it lies is said by the service. What it holds is read after each run of the stories."""
    world.prefix.delete_service("QuillbayService")
    world.file(LOG).unlink(missing_ok=True)
    world.start("/nothing")
    world.checks.equal("no service, no log anywhere", list(world.prefix.drive_c.rglob("QBC.log")), [])
    world.set_service("demand")
    world.run("/GetRHStatus")
    first = world.read(LOG)
    world.checks.equal("it begins with FF FE and its first entry", first[:8], b"\xff\xfe\r\0\n\0[\0")
    world.run("/GetRHStatus")
    world.checks.equal("a second run appends", world.read(LOG)[:len(first)], first)


def deny_only_administrator(world):
    world.prefix.place(world.build / "QBC.exe", "C:\\QBC.exe")
    run = world.prefix.run(world.build / "wine" / "restricted.exe", "C:\\QBC.exe", "/RedirectFolder",
                           "C:\\windows\\temp", "/loc:C:\\target")
    shows(world, "deny-only administrator is refused", run, world.strings[179], 1)
    world.checks.equal("and nothing was made", world.names("C:\\target"), None)


def second_instance(world):
    with world.held(INSTANCE_MUTEX):
        world.checks.equal("a second instance", world.start("/ver"), (b"QBC: another instance is already running", 1))


def refused_redirection(world):
    """Other programs hold files and folders open: each of them is named. Then nobody does, and Wine, which tells no
    folder's whole descriptor, lets no move begin. Nothing moves."""
    checks, work, files = world.checks, "C:\\Work\\", {}
    for name in ("held", "shared", "looked_at", "free", "open\\inner", "open\\\u00fc.txt"):
        world.write(work + name, files.setdefault(name, bytes(range(256)) * 300 + name.encode()))
    world.make_folder("C:\\Elsewhere")
    world.set_service("demand")
    with contextlib.ExitStack() as held:
        for name, *how in (("held", READ, "0"), ("shared", WRITE, WITH_ALL), ("looked_at", ATTRIBUTES, WITH_ALL),
                           ("open", ATTRIBUTES, WITH_ALL)):
            held.enter_context(world.held(work + name, *how))
        run = world.run("/RedirectFolder", "C:\\Work", "/loc:C:\\Elsewhere")
    used = ("#ERROR: C:\\Work\\{} - File or folder is used by another process.  Close any application that might be "
            "using the file or folder and try again.")
    locked = "#INFO: C:\\Work\\{} - File or Folder is locked."
    no_access = "#INFO: C:\\Work\\{} - File is not accessible."
    expected = [line.format(name) for name in ("held", "shared", "looked_at", "open") for line in (locked, used)]
    expected += [no_access.format(name) for name in ("held", "shared")]
    # Wine names the entries of a folder in an order of its own.
    items = sorted(entry for entry in run.entries if re.match(r"#\w+: C:\\Work\\\S+ - ", entry))
    reason = "#ERROR: PreScanning failed for Source = C:\\Work and Target = C:\\Elsewhere\\Work."
    checks.equal("all that is in use", (run.code, items, reason in run.entries), (1, sorted(expected), True))
    run = world.run("/RedirectFolder", "C:\\Work", "/loc:C:\\Elsewhere")
    failed = world.strings[148]
    said = run.code == 1 and run.text.endswith(f"{world.text(137, LOG)}\n{failed}")
    checks.true("the console says so", said, run.text)
    reason = "#ERROR: Unable to read the security, attributes and times of C:\\Work."
    checks.true("the log says why", any(entry.startswith(reason) for entry in run.entries) and failed in run.entries,
                run.entries)
    top = world.file("C:\\Work")
    found = {str(file.relative_to(top)).replace("/", "\\"): file.read_bytes() for file in top.rglob("*")
             if file.is_file()}
    checks.equal("everything is in place", (found, world.names("C:\\Elsewhere")), (files, []))
    checks.true("no record was made", not world.prefix.has_key(f"{RECORDS_32}\\Junctions\\1"))


def stopped_by_ctrl_c(world):
    """At random moments of a move (QBC_STOPS=50: at so many), and by a log-off: all is in its place again. It is QBC.exe but
    for the descriptors that Wine does not tell, or nothing would move; a move that is not stopped in time fails at its
    junction."""
    old, new = world.file("C:\\Moved"), world.file("C:\\There\\Moved")
    files = {f"{number}.txt": os.urandom(3000) for number in range(300)}
    for name, data in files.items():
        world.write("C:\\Moved\\" + name, data)
    world.make_folder("C:\\There")
    world.set_service("demand")
    runs, stopped, wrong = int(os.environ.get("QBC_STOPS", "5")), 0, []
    for number in range(runs + 1):
        log_off = contextlib.ExitStack()
        if number == runs:
            log_off.enter_context(world.prefix.holding(world.build / "wine" / "end_session.exe"))
        # So many are copied, or are and are deleted at the old place.
        moment = random.randrange((2 if number < runs else 1) * len(files))
        before = len(world.read(LOG) or b"")
        run = world.prefix.interrupted(
            world.build / "wine" / "moving.exe", "/RedirectFolder", "C:\\Moved", "/loc:C:\\There", "/-NTFS",
            when=lambda: new.is_dir() and len(os.listdir(new)) + len(files) - len(os.listdir(old)) >= moment,
            how=log_off.close if number == runs else None)
        log = world.read(LOG)[before:].decode("utf-16-le")
        found = {file.name: file.read_bytes() for file in old.iterdir()}
        titles = re.findall(rb"\x1b\]0;(.*?)\x07", run.output)
        if (run.code, found, world.names("C:\\There"), titles[-1:]) not in [(1, files, [], []), (1, files, [], [b""])]:
            wrong.append((moment, run.code, len(found), world.names("C:\\There"), titles, log))
        stopped += "#ERROR: Ctrl+C was pressed. What was moved is taken back." in log
    world.checks.equal(f"all is in its place after Ctrl+C at {runs} moments, and the old title", wrong, [])
    world.checks.true("most moves were stopped before their end", stopped > runs / 2, f"{stopped} of {runs}")
    world.checks.true("and one by a log-off", "#ERROR: The user logs off. What was moved is taken back." in log, log)
    world.checks.true("no record was made", not world.prefix.has_key(f"{RECORDS_32}\\Junctions\\1"))


def account_pictures(world):
    """The request that they follow the Public profile, through a real pipe to the service."""
    public, target = "C:\\users\\Public", "C:\\There\\Public"
    world.make_folder(public + "\\AccountPictures")
    world.set_service("demand")
    started = time.monotonic()
    run = world.prefix.run(world.build / "wine" / "account_pictures.exe", public, target)
    taken = time.monotonic() - started
    done = "\nGoing to update all user's profile image settings\nDone with updating all user's profile image settings\n"
    world.checks.equal("it was done", (run.text, run.code), (done, 0))
    world.checks.true("it gives the service its time", 16 <= taken < 31, f"{taken} seconds")
    world.checks.equal("what the service got, byte by byte", world.read(SERVICE_FOLDER + "\\record.bin"),
                       f"UpdateImgPath|{public}|{target}".encode().ljust(2048, b"\0"))
    world.checks.equal("the service rests again", world.service()[0], "stopped")


ALL = [command_line, log_file, deny_only_administrator, second_instance, refused_redirection, stopped_by_ctrl_c,
       account_pictures]
