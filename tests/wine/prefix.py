"""A throw-away Windows under Wine: its own folder, its own server, nothing left behind."""
import collections
import contextlib
import ctypes
import os
import pathlib
import pty
import select
import shutil
import signal
import subprocess
import tempfile
import time

WINE = "/usr/lib/wine/wine64"
WINESERVER = "/usr/lib/wine/wineserver64"
PATIENCE = 20  # seconds for what Wine's service manager refuses for a moment
ADDR_NO_RANDOMIZE = 0x40000


def load_at_fixed_addresses():
    """For this process and all that it starts. Every Windows program has a page at 0x7FFE0000, which Wine's loader maps
    once it runs. The loader itself is at 0x7D000000, and Linux puts its heap anywhere in the gigabyte behind it: in one
    start of 8000 onto that page, and Wine ends with 1 and without a word before the program, or the service, begins."""
    if ctypes.CDLL(None).personality(ADDR_NO_RANDOMIZE) == -1:
        print("note: addresses stay random here, so one start in thousands will fail", flush=True)


class Result(collections.namedtuple("Result", "output code")):
    @property
    def text(self):
        """Standard output as a console of code page 437 shows it, with plain line ends."""
        return self.output.decode("cp437").replace("\r\n", "\n")


class Prefix:
    def __enter__(self):
        load_at_fixed_addresses()
        self.scratch = pathlib.Path(tempfile.mkdtemp(prefix="qbc-wine-"))
        self.drive_c = self.scratch / "prefix" / "drive_c"
        self.drive_c.parent.mkdir()
        self.environment = {
            "HOME": str(self.scratch), "PATH": "/usr/bin:/bin", "LC_ALL": "C.UTF-8",
            "WINEPREFIX": str(self.drive_c.parent), "WINEDEBUG": "-all",
            "WINEDLLOVERRIDES": "mscoree,mshtml,winedbg.exe,winemenubuilder.exe=",
        }
        try:
            # Windows can be made, although nobody shows them; the desktop that is there by now could not.
            self._host(WINE, "reg", "add", "HKCU\\Software\\Wine\\Drivers", "/v", "Graphics", "/d", "null", "/f")
            self._host(WINESERVER, "-k")
            self._host(WINESERVER, "-w")
            # A server that stays keeps services alive between two runs. It must own none of our pipes.
            self._host(WINESERVER, "-p")
            self._host(WINE, "wineboot")
            # With the first window Wine writes down what displays there are.
            self._host(WINE, "explorer", "/desktop=first", "cmd", "/c", "exit")
            if not self.drive_c.is_dir():
                raise RuntimeError("Wine made no drive C")
        except BaseException:
            self.__exit__()
            raise
        return self

    def __exit__(self, *_):
        self._host(WINESERVER, "-k", check=False)
        shutil.rmtree(self.scratch, ignore_errors=True)

    def _host(self, *command, check=True):
        subprocess.run(command, env=self.environment, cwd=self.scratch, check=check, timeout=120,
                       stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)

    def run(self, program, *arguments, timeout=60):
        """Runs a Windows program to its end. Output goes through a file: what it leaves running holds no pipe."""
        with tempfile.TemporaryFile(dir=self.scratch) as output:
            try:
                code = subprocess.run([WINE, str(program), *arguments], env=self.environment, cwd=self.scratch,
                                      timeout=timeout, stdin=subprocess.DEVNULL, stdout=output,
                                      stderr=subprocess.DEVNULL).returncode
            except subprocess.TimeoutExpired:
                code = f"still running after {timeout} s"
            output.seek(0)
            return Result(output.read(), code)

    def interrupted(self, program, *arguments, when, how=None, timeout=120):
        """Runs a program on a terminal, and presses Ctrl+C (or does `how()`) as soon as `when()`. What the terminal got,
        and the exit code."""
        terminal, its_end = pty.openpty()
        process = subprocess.Popen([WINE, str(program), *arguments], env=self.environment, cwd=self.scratch,
                                   stdin=its_end, stdout=its_end, stderr=subprocess.DEVNULL, start_new_session=True)
        os.close(its_end)
        shown, pressed, deadline = bytearray(), False, time.monotonic() + timeout
        while process.poll() is None:
            if select.select([terminal], [], [], 0.002)[0]:
                with contextlib.suppress(OSError):  # the program has closed its end
                    shown += os.read(terminal, 65536)
            if not pressed and when():
                # As a terminal does; Wine has its Ctrl+C handled in the program.
                how() if how else process.send_signal(signal.SIGINT)
                pressed = True
            if time.monotonic() > deadline:
                process.kill()
        os.close(terminal)
        return Result(bytes(shown), process.returncode)

    @contextlib.contextmanager
    def holding(self, program, *arguments):
        """A small program of ours that says "held" and holds what it is told to until the end of the block."""
        process = subprocess.Popen([WINE, str(program), *arguments], env=self.environment, cwd=self.scratch,
                                   stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
        try:
            if process.stdout.readline().strip() != b"held":
                raise RuntimeError(f"{program} {' '.join(arguments)} holds nothing")
            yield
        finally:
            process.stdin.close()
            process.wait(timeout=30)
            process.stdout.close()

    # Set-up through Wine's own tools; each must succeed, or the scenario would prove nothing.

    def tool(self, *command, patience=0):
        deadline = time.monotonic() + patience
        while (result := self.run(*command)).code != 0:
            if time.monotonic() >= deadline:
                raise RuntimeError(f"{' '.join(command)}: {result.code} {result.output!r}")
            time.sleep(0.1)
        return result

    def set_value(self, key, name, data, kind="REG_SZ"):
        self.tool("reg", "add", key, "/v", name, "/t", kind, "/d", data, "/f")

    def delete_key(self, key):
        if self.has_key(key):
            self.tool("reg", "delete", key, "/f")

    def has_key(self, key):
        return self.run("reg", "query", key).code == 0

    def create_service(self, name, executable, start="demand"):
        self.tool("sc", "create", name, "binPath=", f'"{executable}"', "start=", start, patience=PATIENCE)

    def start_service(self, name):
        """Waits out the moments in which Wine refuses a start: right after a stop the service is STOPPED already while
        its process, which the service manager still knows, is on its way out; a loaded machine takes seconds for it."""
        self.tool("sc", "start", name, patience=PATIENCE)
        self._await_state(name, "RUNNING")

    def delete_service(self, name):
        """Stops it if it runs and removes it, if it is there. Wine keeps the entry of a service that is still ending,
        and one that is just starting takes no stop yet."""
        if self.run("sc", "query", name).code == 0:
            self._await_state(name, "STOPPED", "stop")
            self.tool("sc", "delete", name, patience=PATIENCE)

    def _await_state(self, name, state, control=None):
        """Asks until the service is in the state; sends it the control meanwhile."""
        deadline = time.monotonic() + PATIENCE
        while state not in (found := self.run("sc", "query", name).text):
            if time.monotonic() > deadline:
                raise RuntimeError(f"{name} is not {state}: {found}")
            if control:
                self.run("sc", control, name)
            time.sleep(0.1)

    def host_path(self, windows_path):
        """Where a path of drive C lies."""
        return self.drive_c / windows_path.removeprefix("C:\\").replace("\\", "/")

    def place(self, source, windows_path):
        """Copies a file of ours to a path on drive C."""
        target = self.host_path(windows_path)
        target.parent.mkdir(parents=True, exist_ok=True)
        shutil.copy(source, target)
