"""Starts a server by a command, for cases that need one of their own."""

import random
import shlex
import shutil
import signal
import socket
import subprocess
import tempfile
import time
from pathlib import Path

from . import frames

FIRST_PORT, LAST_PORT = 21001, 31999  # below the ports that systems hand out
START_SECONDS = 30.0


class NotStarted(Exception):
    """The server does not serve, with its output."""


class FreePort:
    """A port that nothing listens on, nor on the one below. No other test of the project gets it meanwhile."""

    def __init__(self) -> None:
        for _ in range(1000):
            port = random.randrange(FIRST_PORT, LAST_PORT, 2)
            self._claim = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
            try:
                self._claim.bind(f"\0sorvane-test-port-{port}")
                for probed in (port, port - 1):
                    socket.create_server(("127.0.0.1", probed)).close()
                self.port = port
                return
            except OSError:
                self._claim.close()
        raise NotStarted("no free port")

    def close(self) -> None:
        self._claim.close()


class StartedServer:
    """A server in a folder of its own. `command` has {port}, {folder} and perhaps {variant}."""

    def __init__(self, command: str, variant: str = ""):
        self._free = FreePort()
        self.port = self._free.port
        self._folder = tempfile.mkdtemp(prefix="sorvane-kit-")
        words = [word.format(port=self.port, folder=self._folder, variant=variant) for word in shlex.split(command)]
        self._console = open(Path(self._folder) / "console", "w+", encoding="utf-8", errors="replace")
        self._process = subprocess.Popen(words, stdin=subprocess.DEVNULL, stdout=self._console, stderr=self._console)
        try:
            self._wait_until_it_serves()
        except BaseException:
            self.end()
            raise

    def _wait_until_it_serves(self) -> None:
        end = time.monotonic() + START_SECONDS
        while time.monotonic() < end and self._process.poll() is None:
            try:
                with socket.create_connection(("127.0.0.1", self.port), 1) as probe:
                    probe.sendall(frames.frame([(b"ping", b"\0")]))
                    probe.shutdown(socket.SHUT_WR)
                    # The end of a connection is a change, so the server must have seen it before a case begins.
                    if probe.recv(8) == frames.frame([]) and not probe.recv(1):
                        return
            except OSError:
                pass
            time.sleep(0.003)
        raise NotStarted(f"the server does not answer: {self._said()}")

    def _said(self) -> str:
        self._console.seek(0)
        return self._console.read(2000)

    def end(self) -> str:
        """Ends the server. Returns what a sanitizer has said of it, if any."""
        if self._process.poll() is None:
            self._process.send_signal(signal.SIGTERM)
            try:
                self._process.wait(10)
            except subprocess.TimeoutExpired:
                self._process.kill()
                self._process.wait()
        said = self._said()
        self._console.close()
        shutil.rmtree(self._folder, ignore_errors=True)
        self._free.close()
        return said if "Sanitizer" in said else ""
