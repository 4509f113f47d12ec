"""The update check of QBC.exe, as it leaves the machine: a real server stands in as the proxy that is set up."""
import http.server
import socket
import threading

from scenarios import shows

SETTINGS = "HKCU\\Software\\Microsoft\\Windows\\CurrentVersion\\Internet Settings"
LATEST, UPDATE = b"<RESULT>LATEST</RESULT>", b"<RESULT>UPDATE</RESULT>"
CHUNKED = b"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n"


class Handler(http.server.BaseHTTPRequestHandler):
    def do_POST(self):
        body = self.rfile.read(int(self.headers.get("Content-Length", 0)))
        self.server.requests.append((self.path, self.headers, body))
        self.server.answer(self.wfile)

    def log_message(self, *_):
        pass


def asked(world, answer):
    """One update check while a server answers so: its result, and the requests that came."""
    with http.server.ThreadingHTTPServer(("127.0.0.1", 0), Handler) as server:
        server.daemon_threads, server.block_on_close = True, False
        server.requests, server.answer = [], answer
        threading.Thread(target=server.serve_forever, args=(0.05,), daemon=True).start()
        set_proxy(world, server.server_address[1])
        run = world.start("/CheckForUpdate")
        server.shutdown()
    return run, server.requests


def set_proxy(world, port):
    world.prefix.set_value(SETTINGS, "ProxyEnable", str(int(bool(port))), "REG_DWORD")
    world.prefix.set_value(SETTINGS, "ProxyServer", f"127.0.0.1:{port}")


def reply(body, status="200 OK"):
    head = f"HTTP/1.1 {status}\r\nContent-Length: {len(body)}\r\n\r\n".encode()
    return lambda stream: stream.write(head + body)


def check_request(checks, request):
    path, headers, body = request
    document = body.decode("utf-16-le")
    checks.true("the path on the server", path.startswith("http://") and path.endswith("/CheckFileXml.aspx"), path)
    checks.true("the document", document.startswith("<?xml version") and document.endswith("</velmoraupdate>") and
                "<versionnumber>2.34.1110.486<" in document, document)
    checks.equal("what is said of it, and what is not", [headers[name] for name in (
        "Content-Type", "Content-Length", "User-Agent", "Accept", "Referer", "Authorization")],
        ["text/html; charset=utf-16", str(len(body)), "Update Agent", None, None, None])


def update_check(world):
    messages = {0: world.strings[165], 1: world.strings[164], 2: world.strings[166]}
    for name, answer, code in (
            ("latest", reply(LATEST), 0), ("a failure", reply(LATEST, "500 Internal Server Error"), 2),
            ("in chunks", lambda stream: stream.write(CHUNKED + b"17\r\n" + UPDATE + b"\r\n0\r\n\r\n"), 1),
            ("cut off", lambda stream: stream.write(b"HTTP/1.1 200 OK\r\nContent-Length: 5000\r\n\r\n" + LATEST), 2)):
        run, requests = asked(world, answer)
        shows(world, f"update check: {name}", run, messages[code], code)
        if name == "latest":
            check_request(world.checks, requests[0])
    with socket.socket() as unused:
        unused.bind(("127.0.0.1", 0))
        set_proxy(world, unused.getsockname()[1])
        shows(world, "update check: nobody there", world.start("/CheckForUpdate"), messages[2], 2)
    set_proxy(world, 0)
