"""Account pictures follow the Public profile: the request through a real pipe, to a service that plays every part.

Each request takes as long as it takes on Windows, half a minute in all, most of it asleep. So they are made in a prefix
of their own, beside the other scenarios."""
import io
import pathlib
import re
import threading

from checks import Checks
from scenarios import SERVICE, SERVICE_FOLDER

PUBLIC, TARGET = "C:\\users\\Public", "C:\\B\u00e9n\u00e9\\Public"
RECORD = "UpdateImgPath|" + PUBLIC + "|" + TARGET
RECORD_SIZE = 2048
GOING_TO = "\nGoing to update all user's profile image settings"
DONE = "\nDone with updating all user's profile image settings\n"
DEFAULT_CONFIG = pathlib.Path(__file__).resolve().parents[2] / "src" / "resources" / "ServiceConfig.xml"


class Pictures:
    def __init__(self, prefix, build, checks):
        self.prefix, self.build, self.checks = prefix, build, checks
        (prefix.host_path(PUBLIC) / "AccountPictures").mkdir(parents=True, exist_ok=True)
        prefix.place(build / "wine" / "service.exe", SERVICE)
        prefix.create_service("QuillbayService", SERVICE)

    def folder(self, name):
        return self.prefix.host_path(SERVICE_FOLDER) / name

    def serve(self, script):
        """The service's part from its next start on; None: it has no pipe."""
        self.folder("pipe.txt").unlink(missing_ok=True)
        if script is not None:
            self.folder("pipe.txt").write_text(script)

    def set_location(self, folder):
        """The registry redirection location in the service's configuration."""
        text = DEFAULT_CONFIG.read_text().replace("<Status>0<", "<Status>1<")
        text = re.sub("<BaseDir>.*?</BaseDir>", lambda _: f"<BaseDir>{folder}</BaseDir>", text, flags=re.S)
        self.folder("ServiceConfig.xml").write_bytes(("\ufeff" + text.replace("\n", "\r\n")).encode("utf-16-le"))

    def running(self):
        return "RUNNING" in self.prefix.tool("sc", "query", "QuillbayService").output.decode()

    def update(self, name, answer, seconds, says, running, records):
        """One request: what it answers and says, how long it takes, what the service got, whether that runs now."""
        for record in self.folder("").glob("record-*.bin"):
            record.unlink()
        result = self.prefix.run(self.build / "wine" / "account_pictures.exe", PUBLIC, TARGET, timeout=120)
        *lines, last = result.text.rstrip("\n").split("\n")
        answered, taken, code_page = (last.split() + ["", "", ""])[:3]
        encoding = "utf-8" if code_page == "65001" else f"cp{code_page or 437}"
        record = RECORD.encode(encoding).ljust(RECORD_SIZE, b"\0")
        self.checks.equal(f"{name}: the answer", (answered, result.code), (answer, 0))
        self.checks.equal(f"{name}: the console", "\n".join(lines) + "\n", says + "\n")
        self.checks.true(f"{name}: takes its time", taken.isdigit() and seconds <= int(taken) < seconds + 15,
                         f"{taken} seconds instead of {seconds}")
        found = [file.read_bytes() for file in sorted(self.folder("").glob("record-*.bin"))]
        self.checks.equal(f"{name}: what the service got, byte by byte", found, [record] * records)
        self.checks.equal(f"{name}: the service runs", self.running(), running)


def account_pictures(pictures):
    pictures.serve("")
    pictures.update("a service at rest", "true", 16, GOING_TO + DONE, False, 1)
    pictures.serve("13 3")
    pictures.update("a busy service", "true", 20, GOING_TO + DONE, False, 1)
    pictures.serve("vanish")
    pictures.update("a service that closes its pipe", "false", 11, GOING_TO, True, 0)
    pictures.prefix.stop_service("QuillbayService")
    pictures.serve(None)
    pictures.update("a service without a pipe", "false", 10, GOING_TO, True, 0)
    pictures.serve("")  # it runs still, and is restarted
    pictures.set_location("D:\\Data")
    pictures.update("a service at work", "true", 27, GOING_TO + DONE, True, 1)


class Aside:
    """The scenarios of this file in a thread; the lines come out at the end."""

    def __init__(self, prefix, build):
        self.lines = io.StringIO()
        self.checks = Checks(self.lines)
        self.thread = threading.Thread(target=self._run, args=(prefix, build), daemon=True)
        self.thread.start()

    def _run(self, prefix, build):
        try:
            account_pictures(Pictures(prefix, build, self.checks))
        except Exception as error:  # one failed check, not the end of the others
            self.checks.true("account_pictures ran to its end", False, f"{type(error).__name__}: {error}")

    def finish(self, checks):
        """Waits for the end, shows the lines and adds the sums."""
        self.thread.join()
        print("-- account_pictures")
        print(self.lines.getvalue(), end="", flush=True)
        checks.add(self.checks)
