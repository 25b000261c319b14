"""The two servers that the benchmarks need on this machine, each for the length of a with-block."""

import contextlib
import selectors
import socket
import subprocess
import threading
import time

HOST = "127.0.0.1"
PORT = 18443  # Where the library of the preset bench sends everything.
STATUS_PORT = 18444

NGINX_SETTINGS = """
daemon off;
worker_processes 2;
pid {folder}/nginx.pid;
error_log {folder}/error.log;
events {{ worker_connections 1024; }}
http {{
  access_log off;
  tcp_nodelay on;
  default_type application/json;
  client_body_temp_path {folder}/body;
  proxy_temp_path {folder}/proxy;
  fastcgi_temp_path {folder}/fastcgi;
  uwsgi_temp_path {folder}/uwsgi;
  scgi_temp_path {folder}/scgi;
  ssl_protocols TLSv1.3;
  server {{
    listen {host}:{port} ssl backlog=1024;
    ssl_certificate {folder}/server.crt;
    ssl_certificate_key {folder}/server.key;
    location / {{ return 200 '{{"success":true}}'; }}
  }}
  server {{
    listen {host}:{status_port};
    location / {{ stub_status; }}
  }}
}}
"""


class Certificates:
    """A throw-away authority on P-256 and a certificate of it for the server."""

    def __init__(self, folder):
        self.folder = folder
        self.authority = folder / "ca.crt"
        self._make()

    def _make(self):
        key = ["-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes"]
        run_openssl("req", "-x509", "-days", "30", *key, "-subj", "/CN=Throw-away authority",
                    "-keyout", self.folder / "ca.key", "-out", self.authority)
        run_openssl("req", *key, "-subj", "/CN=localhost", "-keyout", self.folder / "server.key",
                    "-out", self.folder / "server.csr")
        names = self.folder / "names"
        names.write_text(f"subjectAltName=IP:{HOST}\n")
        run_openssl("x509", "-req", "-days", "30", "-in", self.folder / "server.csr", "-CA",
                    self.authority, "-CAkey", self.folder / "ca.key", "-CAcreateserial",
                    "-extfile", names, "-out", self.folder / "server.crt")


def run_openssl(*words):
    subprocess.run(["openssl", *map(str, words)], check=True, capture_output=True)


def wait_for_port(port):
    for _ in range(200):
        with contextlib.suppress(OSError), socket.create_connection((HOST, port), timeout=1):
            return
        time.sleep(0.025)
    raise RuntimeError(f"nothing answers at {HOST}:{port}")


def refuse_taken_port(port):
    with socket.socket() as probe:
        probe.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
        probe.bind((HOST, port))  # Fails with a clear word when somebody else has the port.


class SilentServer:
    """Takes connections and never says a word, so that every report stays owed."""

    def __enter__(self):
        self._listener = socket.create_server((HOST, PORT), backlog=1024)
        self._ending = threading.Event()
        self._thread = threading.Thread(target=self._listen)
        self._thread.start()
        return self

    def __exit__(self, *_):
        self._ending.set()
        self._thread.join()
        self._listener.close()

    def _listen(self):
        with selectors.DefaultSelector() as waiting:
            waiting.register(self._listener, selectors.EVENT_READ)
            while not self._ending.is_set():
                for key, _ in waiting.select(timeout=0.2):
                    if key.fileobj is self._listener:
                        waiting.register(self._listener.accept()[0], selectors.EVENT_READ)
                    else:
                        self._read(waiting, key.fileobj)
            for key in list(waiting.get_map().values()):
                if key.fileobj is not self._listener:
                    key.fileobj.close()

    @staticmethod
    def _read(waiting, connection):
        with contextlib.suppress(OSError):
            if connection.recv(65536):
                return
        waiting.unregister(connection)
        connection.close()


class TakingServer:
    """An nginx that takes every report at once."""

    def __init__(self, certificates):
        self._folder = certificates.folder

    def __enter__(self):
        refuse_taken_port(PORT)
        settings = self._folder / "nginx.conf"
        settings.write_text(NGINX_SETTINGS.format(folder=self._folder, host=HOST, port=PORT,
                                                  status_port=STATUS_PORT))
        # It ends with this process, however this one ends.
        self._process = subprocess.Popen(["setpriv", "--pdeathsig", "TERM", "nginx", "-e",
                                          self._folder / "error.log", "-c", settings])
        try:
            wait_for_port(PORT)
        except BaseException:
            self.__exit__()
            raise
        return self

    def __exit__(self, *_):
        self._process.terminate()
        try:
            self._process.wait(timeout=10)
        except subprocess.TimeoutExpired:
            self._process.kill()
            self._process.wait()

    @staticmethod
    def requests():
        """How many requests have come so far, those that ask for this included."""
        with socket.create_connection((HOST, STATUS_PORT), timeout=5) as connection:
            connection.sendall(b"GET / HTTP/1.0\r\n\r\n")
            answer = b""
            while part := connection.recv(4096):
                answer += part
        return int(answer.split(b"requests\n")[1].split()[2])
