#!/usr/bin/env python3
"""Serves the Git repositories under a folder over smart HTTP (git http-backend) behind basic
authentication, for tests. Usage: git_http_server.py ROOT ACCOUNT_FILE

ACCOUNT_FILE holds "user:password" (read on every request, so a test can change it). The port
the server listens on (on 127.0.0.1) is printed on the first line of standard output. Each
request is appended to ROOT/requests.log as "METHOD PATH STATUS"."""

import base64
import http.server
import os
import subprocess
import sys

ROOT = sys.argv[1]
ACCOUNT_FILE = sys.argv[2]


class Handler(http.server.BaseHTTPRequestHandler):
    def log_message(self, format, *args):
        pass

    def do_GET(self):
        self.serve()

    def do_POST(self):
        self.serve()

    def body(self):
        if self.headers.get("Transfer-Encoding", "").lower() == "chunked":
            data = b""
            while True:
                size = int(self.rfile.readline().strip().split(b";")[0], 16)
                if size == 0:
                    self.rfile.readline()
                    return data
                data += self.rfile.read(size)
                self.rfile.readline()
        length = int(self.headers.get("Content-Length") or 0)
        return self.rfile.read(length) if length else b""

    def record(self, status):
        with open(os.path.join(ROOT, "requests.log"), "a") as log:
            log.write("%s %s %d\n" % (self.command, self.path, status))

    def serve(self):
        with open(ACCOUNT_FILE) as f:
            expected = f.read().strip()
        given = self.headers.get("Authorization", "")
        user = ""
        if given.startswith("Basic "):
            decoded = base64.b64decode(given[6:]).decode("utf-8", "replace")
            if decoded == expected:
                user = decoded.split(":", 1)[0]
        body = self.body()
        if not user:
            self.record(401)
            self.send_response(401)
            self.send_header("WWW-Authenticate", 'Basic realm="varnel-test"')
            self.send_header("Content-Length", "0")
            self.end_headers()
            return
        path, _, query = self.path.partition("?")
        env = dict(os.environ)
        env.update({
            "GIT_PROJECT_ROOT": ROOT,
            "GIT_HTTP_EXPORT_ALL": "1",
            "REQUEST_METHOD": self.command,
            "PATH_INFO": path,
            "QUERY_STRING": query,
            "CONTENT_TYPE": self.headers.get("Content-Type", ""),
            "CONTENT_LENGTH": str(len(body)),
            "HTTP_CONTENT_ENCODING": self.headers.get("Content-Encoding", ""),
            "GIT_PROTOCOL": self.headers.get("Git-Protocol", ""),
            "REMOTE_USER": user,
            "REMOTE_ADDR": "127.0.0.1",
        })
        result = subprocess.run(["git", "http-backend"], input=body, env=env,
                                capture_output=True)
        out = result.stdout
        separator = out.find(b"\r\n\r\n")
        skip = 4
        if separator < 0:
            separator = out.find(b"\n\n")
            skip = 2
        head, rest = out[:separator], out[separator + skip:]
        status = 200
        headers = []
        for line in head.decode("latin-1").splitlines():
            key, _, value = line.partition(":")
            if key.lower() == "status":
                status = int(value.strip().split()[0])
            elif key:
                headers.append((key, value.strip()))
        self.record(status)
        self.send_response(status)
        for key, value in headers:
            self.send_header(key, value)
        self.send_header("Content-Length", str(len(rest)))
        self.end_headers()
        self.wfile.write(rest)


server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Handler)
print(server.server_address[1], flush=True)
server.serve_forever()
