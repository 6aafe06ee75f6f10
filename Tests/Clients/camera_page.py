"""Serves the page that opens the camera. What the page reports goes to standard output, one JSON object a
line; its pictures become files in the folder that is the first argument."""

import base64
import http.server
import itertools
import json
import pathlib
import sys
import threading

FOLDER = pathlib.Path(sys.argv[1])
PAGE = pathlib.Path(__file__).with_name("camera_page.html").read_bytes()


def say(report):
    print(json.dumps(report), flush=True)


class Handler(http.server.BaseHTTPRequestHandler):
    numbers = itertools.count()
    lock = threading.Lock()

    def answer(self, status, body=b"", kind="text/html"):
        self.send_response(status)
        self.send_header("Content-Type", kind)
        self.send_header("Content-Length", str(len(body)))
        self.end_headers()
        self.wfile.write(body)

    def do_GET(self):
        if self.path == "/":
            self.answer(200, PAGE)
        else:
            self.answer(404)

    def do_POST(self):
        report = json.loads(self.rfile.read(int(self.headers["Content-Length"])))
        with self.lock:
            if "picture" in report:
                path = FOLDER / f"{next(self.numbers)}.png"
                path.write_bytes(base64.b64decode(report["picture"]))
                report["picture"] = str(path)
            say(report)
        self.answer(204)

    def log_message(self, *arguments):
        pass


# A thread for each connection: browsers open some in advance.
server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Handler)
say({"event": "serving", "port": server.server_port})
server.serve_forever()
