"""What the tests of the Python client share: a real name server of the test's own, and one that follows a script.

The variable SORVANE_BUILD names the build whose programs are used, unless SORVANE_TESTED_BUILD names another.
SORVANE_VARIANT tells which classes are tested.
"""

import asyncio
import functools
import inspect
import os
import random
import shutil
import signal
import socket
import struct
import subprocess
import tempfile
import threading
import time
from pathlib import Path
from typing import Any, Callable
from unittest import mock

import sorvane
import sorvane.aio
from sorvane import Client, Limits, SorvaneError
from sorvane._frames import Reply, decode_entries, text_of

PROGRAMS = Path(os.environ.get("SORVANE_TESTED_BUILD") or os.environ["SORVANE_BUILD"]) / "bin"
LIMIT = 20.0
"""Seconds after which what should happen counts as not happening."""

NO_DICTIONARY = b"SV\x01\x00\0\0\0\0"


def wait_until(condition: Callable[[], object], what: str) -> None:
    """Waits until a condition holds. Fails when it does not come to hold."""
    deadline = time.monotonic() + LIMIT
    while not condition():
        if time.monotonic() > deadline:
            raise AssertionError(f"this never came: {what}")
        time.sleep(0.002)


class FreePorts:
    """A base port for a name server, which no other test of this host gets meanwhile."""

    def __init__(self) -> None:
        bases = list(range(21001, 32000, 2))
        random.shuffle(bases)
        for self.base in bases:
            self._claim = socket.socket(socket.AF_UNIX)
            try:
                self._claim.bind(f"\0sorvane-test-port-{self.base}")
                for port in (self.base, self.base - 1):
                    with socket.socket() as probe:
                        probe.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
                        probe.bind(("", port))
                return
            except OSError:
                self._claim.close()
        raise RuntimeError("no free ports")

    def release(self) -> None:
        self._claim.close()


class NameServer:
    """A real name server in a folder of its own. It serves when it is made."""

    def __init__(self, base: int | None = None, **settings: str) -> None:
        self._ports = FreePorts() if base is None else None
        self.port: int = self._ports.base if self._ports is not None else base or 0
        self._tree = Path(tempfile.mkdtemp(prefix="sorvane-python-"))
        for folder in ("bin", "etc", "Config", "Logs", "Users", "lock"):
            (self._tree / folder).mkdir()
        shutil.copy(PROGRAMS / "sorvinfo", self._tree / "bin")
        all_settings = {
            "BasePort": str(self.port),
            "LockDirectory": f'"{self._tree / "lock"}"',
            "BonjourDisabled": "YES",
            "HostName": "dbhost",
            "Address": "192.0.2.7",
            "DynamicAddress": "NO",
            "EthernetAddress": '"02:00:5e:10:00:07"',
        } | settings
        text = "".join(f"{key} = {value};\n" for key, value in all_settings.items())
        (self._tree / "etc" / "sorvane.conf").write_text(text)
        self.start()

    def __enter__(self) -> "NameServer":
        return self

    def __exit__(self, *error: object) -> None:
        self.stop()
        shutil.rmtree(self._tree)
        if self._ports is not None:
            self._ports.release()

    def start(self) -> None:
        self._process = subprocess.Popen(
            [self._tree / "bin" / "sorvinfo", "noexit"], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL
        )
        wait_until(self._answers, "a reply of the name server")

    def stop(self) -> None:
        self._process.kill()
        self._process.wait()

    def hang(self) -> None:
        self._process.send_signal(signal.SIGSTOP)

    def go_on(self) -> None:
        self._process.send_signal(signal.SIGCONT)

    def _answers(self) -> bool:
        try:
            with Client("127.0.0.1", self.port) as client:
                client.ping()
            return True
        except SorvaneError:
            return False


def frame(*entries: tuple[str, str | bytes]) -> bytes:
    """A reply. Texts get their NUL."""
    made = body(*entries)
    return b"SV\x01\x01" + struct.pack(">I", len(made)) + made


def body(*entries: tuple[str, str | bytes]) -> bytes:
    """The body of a reply, or a row of one."""
    made = bytearray()
    for key, value in entries:
        key_bytes = key.encode()
        value_bytes = value.encode() + b"\0" if isinstance(value, str) else value
        made += struct.pack(">HI", len(key_bytes), len(value_bytes)) + key_bytes + value_bytes
    return bytes(made)


Texts = dict[str, str]
Script = Callable[[Texts], bytes | None]


class ScriptedServer:
    """Answers each request with what a function returns for it: bytes, or None to never answer. b"" closes."""

    def __init__(self, script: Script) -> None:
        self._script = script
        self._listener = socket.create_server(("127.0.0.1", 0))
        self.port = self._listener.getsockname()[1]
        self.requests: list[Texts] = []
        self.connections: list[socket.socket] = []
        self._thread = threading.Thread(target=self._accept, daemon=True)
        self._thread.start()

    def __enter__(self) -> "ScriptedServer":
        return self

    def __exit__(self, *error: object) -> None:
        self._listener.shutdown(socket.SHUT_RDWR)
        self._thread.join()
        self._listener.close()
        self.hang_up()

    def hang_up(self) -> None:
        """Ends all connections."""
        for connection in self.connections:
            try:
                connection.shutdown(socket.SHUT_RDWR)
            except OSError:
                pass

    def asked(self, key: str, text: str) -> int:
        """How many requests have had this text under this key."""
        return sum(request.get(key) == text for request in self.requests)

    def _accept(self) -> None:
        while True:
            try:
                connection, _ = self._listener.accept()
            except OSError:
                return
            self.connections.append(connection)
            threading.Thread(target=self._serve, args=(connection,), daemon=True).start()

    def _serve(self, connection: socket.socket) -> None:
        with connection, connection.makefile("rb") as stream:
            try:
                while len(header := stream.read(8)) == 8:
                    entries: Reply = decode_entries(stream.read(struct.unpack(">I", header[4:])[0]))
                    assert entries is not None
                    texts = {key: text_of(entries, key) or "" for key in entries}
                    self.requests.append(texts)
                    answer = self._script(texts)
                    if answer == b"":
                        return
                    if answer is not None:
                        connection.sendall(answer)
            except OSError:
                pass


def quick_attempts(test: Callable[[Any], None]) -> Callable[[Any], None]:
    """Lets attempts to connect follow each other quickly, in a test of what comes after them."""

    @functools.wraps(test)
    def quick(case: Any) -> None:
        with mock.patch("random.uniform", lambda low, high: 0.01):
            test(case)

    return quick


SHORT = Limits(connect=LIMIT, reply=0.3)
"""Limits for a name server that hangs."""


class _Proxy:
    """An object of sorvane.aio, used by a thread: all of it happens in an event loop of another thread."""

    def __init__(self, kind: type, *arguments: Any, **options: Any) -> None:
        self._object = in_loop(lambda: kind(*arguments, **options))

    def __enter__(self) -> "_Proxy":
        in_loop(self._object.__aenter__)
        return self

    def __exit__(self, *error: Any) -> None:
        in_loop(lambda: self._object.__aexit__(*error))

    def __getattr__(self, name: str) -> Any:
        value = in_loop(lambda: getattr(self._object, name))
        if not callable(value):
            return value
        return lambda *arguments, **options: in_loop(lambda: value(*arguments, **options))


def in_loop(action: Callable[[], Any]) -> Any:
    """Calls a function in the event loop, and waits for what it returns."""

    async def act() -> Any:
        result = action()
        return await result if inspect.isawaitable(result) else result

    return asyncio.run_coroutine_threadsafe(act(), _loop()).result(LIMIT * 2)


@functools.cache
def _loop() -> asyncio.AbstractEventLoop:
    loop = asyncio.new_event_loop()
    threading.Thread(target=loop.run_forever, daemon=True).start()
    return loop


class Threads:
    """The classes for threads."""

    Client: Any = sorvane.Client
    Registration: Any = sorvane.Registration
    Watch: Any = sorvane.Watch


class Asyncio:
    """The classes for asyncio, used by a thread."""

    Client: Any = functools.partial(_Proxy, sorvane.aio.Client)
    Registration: Any = functools.partial(_Proxy, sorvane.aio.Registration)
    Watch: Any = functools.partial(_Proxy, sorvane.aio.Watch)


VARIANTS = {"threads": Threads, "asyncio": Asyncio}
VARIANT: Any = VARIANTS[os.environ.get("SORVANE_VARIANT", "threads")]
"""The classes that the tests of this run use, by the variable SORVANE_VARIANT."""
