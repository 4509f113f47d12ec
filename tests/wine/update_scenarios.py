"""The update check of QBC.exe, as it leaves the machine: a real server stands in as the proxy that is set up."""
import http.server
import socket
import threading
import time

SETTINGS = "HKCU\\Software\\Microsoft\\Windows\\CurrentVersion\\Internet Settings"
LATEST, UPDATE = b"<RESULT>LATEST</RESULT>", b"<RESULT>UPDATE</RESULT>"
CHUNKED = b"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n"


class Handler(http.server.BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"

    def do_POST(self):
        body = self.rfile.read(int(self.headers.get("Content-Length", 0)))
        self.server.requests.append((self.path, self.headers, body))
        self.close_connection = True
        try:
            self.server.answer(self.wfile)
        except OSError:
            pass  # the client has had enough

    do_GET = do_POST

    def log_message(self, *_):
        pass


class Server:
    """Answers every request with `answer`, a function of the stream to the client, while the context lasts."""

    def __init__(self, answer):
        self.server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Handler)
        self.server.daemon_threads = True
        self.server.block_on_close = False
        self.server.requests, self.server.answer = [], answer
        self.port, self.requests = self.server.server_address[1], self.server.requests

    def __enter__(self):
        threading.Thread(target=self.server.serve_forever, args=(0.05,), daemon=True).start()
        return self

    def __exit__(self, *_):
        self.server.shutdown()
        self.server.server_close()


def reply(body, status="200 OK", headers=""):
    head = f"HTTP/1.1 {status}\r\nContent-Length: {len(body)}\r\n{headers}\r\n".encode()
    return lambda stream: stream.write(head + body)


def endless(stream):
    stream.write(b"HTTP/1.1 200 OK\r\n\r\n" + LATEST)
    while True:
        stream.write(b"x" * 65536)


def slowly(stream):
    stream.write(b"HTTP/1.1 200 OK\r\nContent-Length: 23\r\n\r\n" + UPDATE[:11])
    stream.flush()
    time.sleep(0.3)
    stream.write(UPDATE[11:])


def set_proxy(world, port):
    world.prefix.tool("reg", "add", SETTINGS, "/v", "ProxyEnable", "/t", "REG_DWORD", "/d", "1", "/f")
    world.prefix.set_value(SETTINGS, "ProxyServer", f"127.0.0.1:{port}")


def check_request(checks, request):
    path, headers, body = request
    checks.true("the path on the server", path.startswith("http://") and path.endswith("/CheckFileXml.aspx"), path)
    document = body.decode("utf-16-le")
    checks.true("the document, whose bytes are tested elsewhere", document.startswith("<?xml version") and
                document.endswith("</velmoraupdate>") and "<versionnumber>2.34.1110.486<" in document, document)
    checks.equal("its type", headers["Content-Type"], "text/html; charset=utf-16")
    checks.equal("its length", headers["Content-Length"], str(len(body)))
    checks.equal("the agent", headers["User-Agent"], "Update Agent")
    checks.equal("what is not said", [headers[n] for n in ("Accept", "Referer", "Authorization")], [None] * 3)


def update_check(world):
    messages = {0: world.strings[165], 1: world.strings[164], 2: world.strings[166]}
    padded = LATEST + b"x" * (1024 * 1024 - len(LATEST))
    elsewhere = "Location: http://elsewhere.example/answer\r\n"
    cases = [("latest", reply(LATEST), 0), ("newer", reply(b"<r>" + UPDATE + b"</r>"), 1),
             ("500", reply(LATEST, "500 Internal Server Error"), 2), ("302", reply(LATEST, "302 Found", elsewhere), 2),
             ("a reply in two parts", slowly, 1), ("1 MiB", reply(padded), 0), ("more than 1 MiB", reply(padded + b"x"), 2),
             ("a reply without end", endless, 2),
             ("cut off in the headers", lambda stream: stream.write(b"HTTP/1.1 200 OK\r\nContent-"), 2),
             ("cut off at once", lambda stream: None, 2),
             ("a length with zeros in front", lambda stream: stream.write(
                 b"HTTP/1.1 200 OK\r\nContent-Length: 00023\r\n\r\n" + UPDATE), 1),
             ("in chunks", lambda stream: stream.write(CHUNKED + b"17\r\n" + UPDATE + b"\r\n0\r\n\r\n"), 1),
             ("chunks that stop", lambda stream: stream.write(CHUNKED + b"1388\r\n<r>" + UPDATE), 2),
             ("cut off in the reply", lambda stream: stream.write(
                 b"HTTP/1.1 200 OK\r\nContent-Length: 5000\r\n\r\n" + LATEST), 2)]
    for name, answer, code in cases:
        with Server(answer) as server:
            set_proxy(world, server.port)
            world.expect(f"update check: {name}", world.qbc("/CheckForUpdate"), world.banner + messages[code], code)
            if name == "latest":
                check_request(world.checks, server.requests[0])
            if name == "302":
                world.checks.equal("a redirection is not followed", len(server.requests), 1)
    with socket.socket() as unused:
        unused.bind(("127.0.0.1", 0))
        set_proxy(world, unused.getsockname()[1])
        world.expect("update check: nobody there", world.qbc("/CheckForUpdate"), world.banner + messages[2], 2)
    world.prefix.tool("reg", "add", SETTINGS, "/v", "ProxyEnable", "/t", "REG_DWORD", "/d", "0", "/f")


ALL = [update_check]
