"""A throw-away Windows under Wine: its own folder, its own server, nothing left behind."""
import contextlib
import os
import pathlib
import shutil
import subprocess
import tempfile
import time

WINE = "/usr/lib/wine/wine64"
WINESERVER = next((p for p in ("/usr/lib/wine/wineserver64", "/usr/lib/wine/wineserver", "/usr/bin/wineserver")
                   if os.path.exists(p)), "wineserver")
PATIENCE = 20  # seconds for what Wine's service manager refuses for a moment
TRIES = 4  # to start a program, and of a set-up step


class Result:
    def __init__(self, code, output, errors):
        self.code, self.output, self.errors = code, output, errors

    @property
    def text(self):
        """Standard output as a console of code page 437 shows it, with plain line ends."""
        return self.output.decode("cp437").replace("\r\n", "\n")


class Prefix:
    def __enter__(self):
        self.scratch = pathlib.Path(tempfile.mkdtemp(prefix="qbc-wine-"))
        (self.scratch / "prefix").mkdir()
        self.environment = {
            "HOME": str(self.scratch), "PATH": "/usr/bin:/bin", "LC_ALL": "C.UTF-8",
            "WINEPREFIX": str(self.scratch / "prefix"), "WINEDEBUG": "-all",
            "WINEDLLOVERRIDES": "mscoree,mshtml,winedbg.exe,winemenubuilder.exe=",
        }
        try:
            # A server that stays keeps services alive between two runs. It must own none of our pipes.
            self._host(WINESERVER, "-p")
            self._host(WINE, "wineboot")
            if not self.drive_c.is_dir():
                raise RuntimeError("Wine made no drive C")
        except BaseException:
            self.__exit__()
            raise
        return self

    def __exit__(self, *_):
        self._host(WINESERVER, "-k", check=False)
        shutil.rmtree(self.scratch, ignore_errors=True)

    @property
    def drive_c(self):
        return self.scratch / "prefix" / "drive_c"

    def _host(self, *command, check=True):
        subprocess.run(command, env=self.environment, cwd=self.scratch, check=check, timeout=120,
                       stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)

    def run(self, program, *arguments, timeout=60):
        """Runs a Windows program to its end. On a busy machine Wine's own start of a program now and then ends with 1
        before the program is loaded: nothing on its output, and on the error output nothing, or a line of Wine's. One
        of ours, each of which says something, is then started again, and a line of the checks tells."""
        ours = pathlib.Path(program).is_absolute()
        for _ in range(TRIES):
            result = self._run_once(program, *arguments, timeout=timeout)
            said_nothing = not result.output and (not result.errors or result.errors.startswith(b"wine"))
            if not (ours and result.code == 1 and said_nothing):
                break
            print(f"note: Wine did not start {program}: {result.errors!r}")
        return result

    def _run_once(self, program, *arguments, timeout):
        """Output goes through files: what a program leaves running holds no pipe."""
        with tempfile.TemporaryFile(dir=self.scratch) as output, tempfile.TemporaryFile(dir=self.scratch) as errors:
            try:
                code = subprocess.run([WINE, str(program), *arguments], env=self.environment, cwd=self.scratch,
                                      timeout=timeout, stdin=subprocess.DEVNULL, stdout=output,
                                      stderr=errors).returncode
            except subprocess.TimeoutExpired:
                code = f"still running after {timeout} s"
            output.seek(0)
            errors.seek(0)
            return Result(code, output.read(), errors.read())

    def start(self, program, *arguments):
        """Starts a Windows program that talks through its standard input and output."""
        return subprocess.Popen([WINE, str(program), *arguments], env=self.environment, cwd=self.scratch,
                                stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)

    @contextlib.contextmanager
    def holding(self, program, *arguments):
        """A small program of ours that says "held" and holds what it is told to until the end of the block."""
        process = self.start(program, *arguments)
        try:
            if process.stdout.readline().strip() != b"held":
                raise RuntimeError(f"{program} {' '.join(arguments)} holds nothing")
            yield
        finally:
            process.stdin.close()
            process.wait(timeout=30)
            process.stdout.close()

    # Set-up through Wine's own tools; each must succeed, or the scenario would prove nothing.

    def tool(self, *command):
        """What these steps ask for may be asked for again."""
        for _ in range(TRIES):
            result = self.run(*command)
            if result.code == 0:
                return result
            time.sleep(0.5)
        raise RuntimeError(f"{' '.join(command)}: {result.code} {result.output!r} {result.errors!r}")

    def set_value(self, key, name, text):
        self.tool("reg", "add", key, "/v", name, "/t", "REG_SZ", "/d", text, "/f")

    def create_service(self, name, executable, start="demand"):
        self._until_it_works("sc", "create", name, "binPath=", f'"{executable}"', "start=", start)

    def start_service(self, name):
        """Waits out the moments in which Wine refuses a start: right after a stop the service is STOPPED already while
        its process, which the service manager still knows, is on its way out; a loaded machine takes seconds for it."""
        self._until_it_works("sc", "start", name)
        self._await_state(name, "RUNNING")

    def stop_service(self, name):
        self._await_state(name, "STOPPED", "stop")  # one that is just starting takes no stop yet

    def delete_service(self, name):
        """Stops it if it runs and removes it, if it is there. Wine keeps the entry of a service that is still ending."""
        if self.run("sc", "query", name).code == 0:
            self.stop_service(name)
            self._until_it_works("sc", "delete", name)

    def _await_state(self, name, state, control=None):
        """Asks until the service is in the state; sends it the control meanwhile."""
        deadline = time.monotonic() + PATIENCE
        while state not in (found := self.run("sc", "query", name).text):
            if time.monotonic() > deadline:
                raise RuntimeError(f"{name} is not {state}: {found}")
            if control:
                self.run("sc", control, name)
            time.sleep(0.1)

    def _until_it_works(self, *command):
        deadline = time.monotonic() + PATIENCE
        while (result := self.run(*command)).code != 0:
            if time.monotonic() > deadline:
                raise RuntimeError(f"{' '.join(command)}: {result.code} {result.output!r} {result.errors!r}")
            time.sleep(0.2)

    def delete_key(self, key):
        if self.has_key(key):
            self.tool("reg", "delete", key, "/f")

    def has_key(self, key):
        return self.run("reg", "query", key).code == 0

    def host_path(self, windows_path):
        """Where a path of drive C lies."""
        return self.drive_c / windows_path.removeprefix("C:\\").replace("\\", "/")

    def has_file(self, windows_path):
        return self.host_path(windows_path).is_file()

    def place(self, source, windows_path):
        """Copies a file of ours to a path on drive C."""
        target = self.host_path(windows_path)
        target.parent.mkdir(parents=True, exist_ok=True)
        shutil.copy(source, target)
        return target
