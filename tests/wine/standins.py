"""What stands behind standin.exe: a server that answers for each program by its file name."""
import socketserver
import threading


class StandIns:
    """`programs`: by name, what takes the arguments and standard input, and answers with output and exit code."""

    def __init__(self, programs):
        self.programs = {"find": find, **programs}
        self.calls = []  # the path and the arguments of each

    def __enter__(self):
        outer = self

        class Handler(socketserver.StreamRequestHandler):
            def handle(self):
                request = self.rfile.read()
                words = request.decode("utf-16-le", "replace").partition("\0")[0]
                path, *arguments = words.split("\n")
                outer.calls.append((path, *arguments))
                name = path.rpartition("\\")[2].lower().removesuffix(".exe")
                output, code = outer.programs[name](arguments, request[2 * len(words) + 2:])
                self.wfile.write(b"%d\n%s" % (code, output))
        self.server = socketserver.ThreadingTCPServer(("127.0.0.1", 0), Handler)
        threading.Thread(target=self.server.serve_forever, args=(0.05,), daemon=True).start()
        return self

    def __exit__(self, *_):
        self.server.shutdown()
        self.server.server_close()

    def install(self, prefix, build, folder):
        """In a prefix: instead of Windows' programs that Wine lacks or has in part."""
        for name in ("find", "fsutil", "mountvol", "ping"):
            prefix.host_path(f"{folder}\\{name}.exe").unlink(missing_ok=True)
            prefix.place(build / "wine" / "standin.exe", f"{folder}\\{name}.exe")
        prefix.environment["STANDIN"] = str(self.server.server_address[1])
        prefix.environment["WINEDLLOVERRIDES"] += ";find.exe,fsutil.exe,mountvol.exe,ping.exe=n"


def find(arguments, given):
    """find.exe with /c /v "", /n TEXT or TEXT, of what comes through a pipe."""
    lines = given.replace(b"\r\n", b"\n").removesuffix(b"\n").split(b"\n") if given else []
    if arguments[0] == "/c":
        return b"%d\r\n" % len(lines), 0
    found = [b"[%d]%s" % line for line in enumerate(lines, 1) if arguments[-1].encode() in line[1]]
    return b"\r\n".join(found), 0 if found else 1
