"""Repositories, a site that publishes skills and a directory of skills, on loopback over http and https."""

import http.server
import os
import ssl
import subprocess
import threading


class Handler(http.server.SimpleHTTPRequestHandler):
    """/git/… is answered by git itself from the folder git, all else from the folder site."""

    root = ""

    def __init__(self, *arguments):
        super().__init__(*arguments, directory=f"{self.root}/site")

    def log_message(self, *_):
        pass

    def do_GET(self):
        if self.path.startswith("/git/"):
            self.answer_by_git()
        else:
            super().do_GET()

    def do_POST(self):
        self.answer_by_git()

    def answer_by_git(self):
        path, _, query = self.path.partition("?")
        body = self.rfile.read(int(self.headers.get("Content-Length", 0)))
        # Another computer's repository does not suffer from what happens to this one's disk: it flushes all.
        env = {"PATH": os.environ["PATH"], "GIT_HTTP_EXPORT_ALL": "1", "GIT_PROJECT_ROOT": self.root, "PATH_INFO": path,
               "QUERY_STRING": query, "REQUEST_METHOD": self.command, "CONTENT_LENGTH": str(len(body)),
               "CONTENT_TYPE": self.headers.get("Content-Type", ""), "REMOTE_USER": "user", "REMOTE_ADDR": "127.0.0.1",
               "GIT_PROTOCOL": self.headers.get("Git-Protocol", ""), "GIT_CONFIG_COUNT": "2",
               "GIT_CONFIG_KEY_0": "safe.directory", "GIT_CONFIG_VALUE_0": "*",
               "GIT_CONFIG_KEY_1": "core.fsync", "GIT_CONFIG_VALUE_1": "all",
               "HTTP_CONTENT_ENCODING": self.headers.get("Content-Encoding", "")}
        answer = subprocess.run(["git", "http-backend"], input=body, env=env, capture_output=True).stdout
        head, _, content = answer.partition(b"\r\n\r\n")
        headers = dict(line.split(": ", 1) for line in head.decode().split("\r\n") if line)
        self.send_response(int(headers.pop("Status", "200").split()[0]))
        for name, value in headers.items():
            self.send_header(name, value)
        self.send_header("Content-Length", str(len(content)))
        self.end_headers()
        self.wfile.write(content)


class Server:
    """Serves the folder `root` until the script ends; it may be emptied and filled meanwhile."""

    def __init__(self, root: str, certificate: str):
        self.certificate = certificate
        handler = type("RootedHandler", (Handler,), {"root": root})
        plain, secure = (http.server.ThreadingHTTPServer(("127.0.0.1", 0), handler) for _ in range(2))
        context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
        context.load_cert_chain(certificate)
        secure.socket = context.wrap_socket(secure.socket, server_side=True)
        self.http = f"http://127.0.0.1:{plain.server_port}"
        self.https = f"https://127.0.0.1:{secure.server_port}"
        for server in (plain, secure):
            threading.Thread(target=server.serve_forever, daemon=True).start()


def make_certificate(folder: str) -> str:
    """One file with the certificate and its key."""
    path = f"{folder}/certificate.pem"
    subprocess.run(["openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes",
                    "-days", "2", "-subj", "/CN=localhost", "-addext", "subjectAltName=IP:127.0.0.1", "-keyout", path,
                    "-out", f"{path}.public"], check=True, capture_output=True)
    with open(path, "a") as both, open(f"{path}.public") as public:
        both.write(public.read())
    os.chmod(path, 0o644)  # for the user who is not root
    return path
