"""What only Windows itself can show of QBC.exe: console, exit code, log, registry. Each scenario takes its world."""
import re
import time

RECORDS_32 = "HKLM\\Software\\Wow6432Node\\Velmora\\Quillbay"
SERVICE_FOLDER = "C:\\Program Files\\Velmora\\Quillbay"
SERVICE = SERVICE_FOLDER + "\\QuillbayService.exe"
INSTANCE_MUTEX = "Global\\2092F29F_EEFF_48f5_B562_9E33D2E6471A"
LOG_ENTRY = re.compile(r"\[[ \d]\d:[ \d]\d:[ \d]\d:[ \d]{2}\d\]\[P *\d+,T *\d+\] ")


class World:
    def __init__(self, prefix, build, strings, checks):
        self.prefix, self.build, self.strings, self.checks = prefix, build, strings, checks
        self.banner = strings[101]
        self.log = prefix.host_path(SERVICE_FOLDER) / "QBC.log"

    def qbc(self, *arguments):
        return self.prefix.run(self.build / "QBC.exe", *arguments)

    def install_service(self):
        """The service, which says where the log lies, unless an earlier scenario has put it there."""
        if not self.prefix.host_path(SERVICE).is_file():
            self.prefix.place(self.build / "wine" / "service.exe", SERVICE)
            self.prefix.create_service("QuillbayService", SERVICE)

    def qbc_logged(self, *arguments):
        """One run: its result and the entries that it added to the log, without their times."""
        before = self.log.stat().st_size if self.log.is_file() else 0
        result = self.qbc(*arguments)
        added = self.log.read_bytes()[before:].decode("utf-16-le").removeprefix("\ufeff")
        return result, [LOG_ENTRY.sub("", line) for line in added.split("\r\n")]

    def hold(self, *arguments):
        return self.prefix.holding(self.build / "wine" / "hold.exe", *arguments)

    def put(self, folder, files):
        for name, content in files.items():
            file = self.prefix.drive_c / folder / name
            file.parent.mkdir(parents=True, exist_ok=True)
            file.write_bytes(content)

    def files_below(self, folder):
        top = self.prefix.drive_c / folder
        return {str(file.relative_to(top)): file.read_bytes() for file in top.rglob("*") if file.is_file()}

    def expect(self, name, result, text, code):
        """One run: all that the console shows, and the exit code."""
        return self.checks.equal(name, (result.text, result.code), (text, code))


def command_line(world):
    world.expect("no command", world.qbc(), world.banner + "##ERROR: No command is specified.", 1)
    result = world.qbc("/\u00e9t\u00e9")
    world.expect("unknown command", result, world.banner + '##ERROR: Command "/\u00e9t\u00e9" is invalid.', 1)
    world.checks.equal("line breaks leave as CR LF", result.output.count(b"\r\n"), result.output.count(b"\n"))
    world.expect("version", world.qbc("/VER"), world.banner + "Quillbay 2.34.1110.486\n", 0)


def log_file(world):
    checks, drive, log = world.checks, world.prefix.drive_c, world.log
    world.qbc("/nothing")
    checks.equal("no service, no log anywhere", [str(p) for p in drive.rglob("QBC.log")], [])
    world.install_service()
    world.qbc("/GetRHStatus")
    first = log.read_bytes()
    entries = first.decode("utf-16").split("\r\n")
    checks.equal("it begins with FF FE and its first entry", first[:8], b"\xff\xfe\r\0\n\0[\0")
    checks.equal("the first entry is the separator", (entries[0], LOG_ENTRY.sub("", entries[1])), ("", "-" * 34))
    checks.equal("every line has time, process and thread", [e for e in entries[1:] if not LOG_ENTRY.match(e)], [])
    world.qbc("/GetRHStatus")
    second = log.read_bytes()
    checks.true("a second run appends", second.startswith(first) and len(second) > len(first), second)


def deny_only_administrator(world):
    world.prefix.place(world.build / "QBC.exe", "C:\\QBC.exe")
    result = world.prefix.run(world.build / "wine" / "restricted.exe", "C:\\QBC.exe", "/RedirectFolder",
                              "C:\\windows\\temp", "/loc:C:\\target")
    world.expect("deny-only administrator is refused", result, world.banner + world.strings[179], 1)
    world.checks.true("and nothing was made", not (world.prefix.drive_c / "target").exists())


def second_instance(world):
    with world.hold("mutex", INSTANCE_MUTEX):
        world.expect("a second instance", world.qbc("/ver"), "QBC: another instance is already running", 1)


def refused_redirection(world):
    """Wine tells no folder's whole descriptor, so no move begins: everything must be in place."""
    checks, s = world.checks, world.strings
    files = {"one.txt": b"first", "inner/two.bin": bytes(range(256)) * 300, "inner/\u00fc.txt": b""}
    world.put("Data", files)
    (world.prefix.drive_c / "Redirected").mkdir()
    world.install_service()
    result, logged = world.qbc_logged("/RedirectFolder", "C:\\Data", "/loc:C:\\Redirected")
    last_lines = s[137].replace("%ls", SERVICE_FOLDER + "\\QBC.log") + "\n" + s[148]
    checks.true("the console says so", result.code == 1 and result.text.rstrip().endswith(last_lines), result.text)
    reason = "#ERROR: Unable to read the security, attributes and times of C:\\Data."
    checks.true("the log says why", any(line.startswith(reason) for line in logged) and s[148] in logged, logged)
    checks.equal("every file is in place", world.files_below("Data"), files)
    checks.equal("nothing stays at the target", list((world.prefix.drive_c / "Redirected").rglob("*")), [])
    checks.true("no record was made", not world.prefix.has_key(f"{RECORDS_32}\\Junctions\\1"))


def files_in_use(world):
    """Other programs hold files and folders open: each of them is named, and nothing moves."""
    world.install_service()
    files = {name: name.encode() for name in ("held", "shared", "looked_at", "free", "open/inner")}
    world.put("Work", files)
    (world.prefix.drive_c / "Elsewhere").mkdir()
    with world.hold("open", "C:\\Work\\held", "read", "none"), world.hold("open", "C:\\Work\\shared", "write", "rwd"), \
            world.hold("open", "C:\\Work\\looked_at", "attributes", "rwd"), \
            world.hold("open", "C:\\Work\\open", "attributes", "rwd"):
        result, logged = world.qbc_logged("/RedirectFolder", "C:\\Work", "/loc:C:\\Elsewhere")
    used = ("#ERROR: C:\\Work\\{} - File or folder is used by another process.  Close any application that might be "
            "using the file or folder and try again.")
    locked = "#INFO: C:\\Work\\{} - File or Folder is locked."
    no_access = "#INFO: C:\\Work\\{} - File is not accessible."
    expected = [line.format(name) for name in ("held", "shared", "looked_at", "open") for line in (locked, used)]
    expected += [no_access.format(name) for name in ("held", "shared")]
    # Wine names the entries of a folder in an order of its own.
    items = sorted(line for line in logged if re.match(r"#\w+: C:\\Work\\\S+ - ", line))
    reason = "#ERROR: PreScanning failed for Source = C:\\Work and Target = C:\\Elsewhere\\Work."
    world.checks.equal("all that is in use", (result.code, items, reason in logged), (1, sorted(expected), True))
    world.checks.equal("nothing has moved", (world.files_below("Work"), world.files_below("Elsewhere")), (files, {}))


def account_pictures(world):
    """The request that they follow the Public profile, through a real pipe to the service."""
    public, target = "C:\\users\\Public", "C:\\There\\Public"
    (world.prefix.host_path(public) / "AccountPictures").mkdir(parents=True, exist_ok=True)
    world.install_service()
    started = time.monotonic()
    result = world.prefix.run(world.build / "wine" / "account_pictures.exe", public, target)
    taken = time.monotonic() - started
    world.expect("it was done", result, "\nGoing to update all user's profile image settings"
                 "\nDone with updating all user's profile image settings\n", 0)
    world.checks.true("it gives the service its time", 16 <= taken < 31, f"{taken} seconds")
    world.checks.equal("what the service got, byte by byte", (world.log.parent / "record.bin").read_bytes(),
                       f"UpdateImgPath|{public}|{target}".encode().ljust(2048, b"\0"))
    state = world.prefix.tool("sc", "query", "QuillbayService").text
    world.checks.true("the service rests again", "RUNNING" not in state, state)


ALL = [command_line, log_file, deny_only_administrator, second_instance, refused_redirection, files_in_use,
       account_pictures]
