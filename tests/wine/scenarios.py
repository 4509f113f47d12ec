"""What only Windows itself can show of QBC.exe: console, exit code, log, registry. Each scenario takes its world."""
import re

STATUS_KEY = "HKLM\\Software\\Velmora\\Rimehold 6"
RECORDS_32 = "HKLM\\Software\\Wow6432Node\\Velmora\\Quillbay"
SERVICE_FOLDER = "C:\\Program Files\\Velmora\\Quillbay"
SERVICE = SERVICE_FOLDER + "\\QuillbayService.exe"
INSTANCE_MUTEX = "Global\\2092F29F_EEFF_48f5_B562_9E33D2E6471A"
# The commands in the help's order: name (with aliases) and usage text, by string number.
HELP_ORDER = [(121, 122), (119, 120), (117, 118), (115, 116), (113, 114), (111, 112), (109, 110), (107, 108),
              (105, 106), (103, 104), (191, 192)]
LOG_ENTRY = re.compile(r"\[[ \d]\d:[ \d]\d:[ \d]\d:[ \d]{2}\d\]\[P *\d+,T *\d+\] ")


class World:
    def __init__(self, prefix, build, strings, checks):
        self.prefix, self.build, self.strings, self.checks = prefix, build, strings, checks
        self.banner = strings[101]

    def qbc(self, *arguments):
        return self.prefix.run(self.build / "QBC.exe", *arguments)

    @property
    def log(self):
        return self.prefix.drive_c / "Program Files" / "Velmora" / "Quillbay" / "QBC.log"

    def install_service(self):
        """The service, which says where the log lies, unless an earlier scenario has put it there."""
        if not self.prefix.has_file(SERVICE):
            self.prefix.place(self.build / "wine" / "service.exe", SERVICE)
            self.prefix.create_service("QuillbayService", SERVICE)

    def qbc_logged(self, *arguments):
        """One run: its result and the text that it added to the log."""
        before = self.log.stat().st_size if self.log.is_file() else 0
        result = self.qbc(*arguments)
        added = self.log.read_bytes()[before:].decode("utf-16-le") if self.log.is_file() else ""
        return result, added.removeprefix("\ufeff")

    def helper(self, name, *arguments):
        return self.prefix.holding(self.build / "wine" / name, *arguments)

    def expect(self, name, result, text, code):
        """One run: all that the console shows, and the exit code."""
        return self.checks.equal(name, (result.text, result.code), (text, code))


def command_line(world):
    s = world.strings
    world.expect("no command", world.qbc(), world.banner + "##ERROR: No command is specified.", 1)
    output = world.qbc().output
    world.checks.equal("line breaks leave as CR LF", output.count(b"\r\n"), output.count(b"\n"))
    world.expect("unknown command", world.qbc("/nothing"), world.banner + '##ERROR: Command "/nothing" is invalid.', 1)
    world.expect("a letter of the OEM code page", world.qbc("/\u00e9t\u00e9"),
                 world.banner + '##ERROR: Command "/\u00e9t\u00e9" is invalid.', 1)
    world.expect("version", world.qbc("/VER"), world.banner + "Quillbay 2.34.1110.486\n", 0)
    help_text = "".join(f"\n\n{n}. Command: {s[name].split(',')[0]}\n   {s[usage]}"
                        for n, (name, usage) in enumerate(HELP_ORDER, 1))
    world.expect("help", world.qbc("-?"), world.banner + help_text, 0)


def rimehold_status(world):
    s = world.strings
    world.expect("status without Rimehold", world.qbc("/GetRHStatus"), world.banner + s[131], 1)
    world.prefix.set_value(STATUS_KEY, "RH Status", "Applying Windows Update")
    world.expect("status", world.qbc("/GetRHStatus"), world.banner + s[177], 8)
    world.prefix.delete_key(STATUS_KEY)
    other_view = STATUS_KEY.replace("Software", "Software\\Wow6432Node")
    world.prefix.set_value(other_view, "RH Status", "Frozen")
    world.expect("status in the 32-bit view does not count", world.qbc("/GetRHStatus"), world.banner + s[131], 1)
    world.prefix.delete_key(other_view)


def log_file(world):
    checks, drive, log = world.checks, world.prefix.drive_c, world.log
    world.qbc("/nothing")
    checks.equal("no service, no log anywhere", [str(p) for p in drive.rglob("QBC.log")], [])

    world.install_service()
    world.qbc("/GetRHStatus")
    if not checks.true("log beside the service's executable", log.is_file()):
        return
    first = log.read_bytes()
    checks.equal("log begins with FF FE and its first entry", first[:8], b"\xff\xfe\r\0\n\0[\0")
    entries = first[2:].decode("utf-16-le").split("\r\n")
    checks.true("first entry is the separator", entries[0] == "" and LOG_ENTRY.sub("", entries[1]) == "-" * 34, entries)
    checks.equal("every line has time, process and thread", [e for e in entries[1:] if not LOG_ENTRY.match(e)], [])

    world.prefix.start_service("QuillbayService")
    checks.true("the service runs", b"RUNNING" in world.prefix.tool("sc", "query", "QuillbayService").output)
    world.qbc("/GetRHStatus")
    second = log.read_bytes()
    checks.true("a second run appends", second.startswith(first) and len(second) > len(first), second)
    checks.true("the byte-order mark stands once", "\ufeff" not in second[2:].decode("utf-16-le"))
    world.prefix.tool("sc", "stop", "QuillbayService")


def deny_only_administrator(world):
    world.prefix.place(world.build / "QBC.exe", "C:\\QBC.exe")
    for name, switches in (("redirection", ()), ("removal", ("/d",))):
        result = world.prefix.run(world.build / "wine" / "restricted.exe", "C:\\QBC.exe", "/RedirectFolder",
                                  "C:\\windows\\temp", "/loc:C:\\target", *switches)
        world.expect(f"deny-only administrator is refused a {name}", result, world.banner + world.strings[179], 1)
    world.checks.true("and nothing was made", not (world.prefix.drive_c / "target").exists())


def second_instance(world):
    with world.helper("hold.exe", "mutex", INSTANCE_MUTEX):
        world.expect("a second instance", world.qbc("/ver"), "QBC: another instance is already running", 1)
    world.checks.equal("the instance after it runs", world.qbc("/ver").code, 0)


def refused_redirection(world):
    """Wine tells no folder's whole descriptor, so no move begins; with or without permissions, everything must be in
    place."""
    checks, s, drive = world.checks, world.strings, world.prefix.drive_c
    files = {"one.txt": b"first", "inner/two.bin": bytes(range(256)) * 300, "inner/\u00fc.txt": b""}
    for name, content in files.items():
        file = drive / "Data" / name
        file.parent.mkdir(parents=True, exist_ok=True)
        file.write_bytes(content)
    (drive / "Redirected").mkdir()
    world.install_service()
    reason = "#ERROR: Unable to read the security, attributes and times of C:\\Data."
    for case, switches in (("with permissions", ()), ("without", ("/-NTFS",))):
        result, logged = world.qbc_logged("/RedirectFolder", "C:\\Data", "/loc:C:\\Redirected", *switches)
        checks.equal(f"{case}: exit code", result.code, 1)
        last_lines = s[137].replace("%ls", SERVICE_FOLDER + "\\QBC.log") + "\n" + s[148]
        checks.true(f"{case}: the console says so", result.text.rstrip().endswith(last_lines), result.text)
        checks.true(f"{case}: the log says why", reason in logged and s[148] in logged, logged)
        checks.equal(f"{case}: every file is in place", files_below(drive / "Data"), files)
        checks.equal(f"{case}: nothing stays at the target", list((drive / "Redirected").rglob("*")), [])
        checks.true(f"{case}: no record was made", not world.prefix.has_key(f"{RECORDS_32}\\Junctions\\1"))


USED = ("#ERROR: %s - File or folder is used by another process.  Close any application that might be using the file or "
        "folder and try again.")
LOCKED = "#INFO: %s - File or Folder is locked."
NOT_ACCESSIBLE = "#INFO: %s - File is not accessible."


def redirect_work(world):
    """One redirection of C:\\Work: exit code, what the log says of its items, whether it gives the reason, and whether
    everything is where it was."""
    work = world.prefix.drive_c / "Work"
    before = files_below(work)
    result, logged = world.qbc_logged("/RedirectFolder", "C:\\Work", "/loc:C:\\Elsewhere")
    lines = [LOG_ENTRY.sub("", line) for line in logged.split("\r\n")]
    # Wine names the entries of a folder in an order of its own.
    items = sorted(line for line in lines if re.match(r"#\w+: C:\\Work\\\S+ - ", line))
    reason = "#ERROR: PreScanning failed for Source = C:\\Work and Target = C:\\Elsewhere\\Work." in lines
    unchanged = files_below(work) == before and not (world.prefix.drive_c / "Elsewhere" / "Work").exists()
    return result.code, items, reason, unchanged


def files_in_use(world):
    """Other programs hold files and folders open: each of them is named, and nothing moves."""
    world.install_service()
    for name in ("held.txt", "shared.txt", "looked_at.txt", "free.txt", "open/inner.txt"):
        file = world.prefix.drive_c / "Work" / name
        file.parent.mkdir(parents=True, exist_ok=True)
        file.write_text(name)
    (world.prefix.drive_c / "Elsewhere").mkdir()
    held, shared, looked_at, folder = (f"C:\\Work\\{name}" for name in ("held.txt", "shared.txt", "looked_at.txt", "open"))

    def refused_for(*lines):
        return 1, sorted(lines), True, True
    one = [text % held for text in (LOCKED, NOT_ACCESSIBLE, USED)]
    with world.helper("hold.exe", "open", held, "read", "none"):
        world.checks.equal("a file held without sharing", redirect_work(world), refused_for(*one))
        # On Windows the name query of this pipe never comes back; whatever happens, the answer stays the same.
        with world.helper("hold.exe", "pipe"):
            wrong = [answer for answer in (redirect_work(world) for _ in range(20)) if answer != refused_for(*one)]
        world.checks.equal("20 times beside a pipe on which a read waits", wrong, [])
        with world.helper("hold.exe", "open", shared, "write", "rwd"), \
             world.helper("hold.exe", "open", looked_at, "attributes", "rwd"), \
             world.helper("hold.exe", "open", folder, "attributes", "rwd"):
            world.checks.equal("all that is in use", redirect_work(world), refused_for(
                *one, *(text % shared for text in (LOCKED, NOT_ACCESSIBLE, USED)),
                *(text % path for path in (looked_at, folder) for text in (LOCKED, USED))))


def files_below(folder):
    return {str(f.relative_to(folder)): f.read_bytes() for f in folder.rglob("*") if f.is_file()}


ALL = [command_line, rimehold_status, log_file, deny_only_administrator, second_instance, refused_redirection, files_in_use]
