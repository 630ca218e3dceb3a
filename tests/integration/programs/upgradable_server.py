"""Plays the part of a name server that is upgraded in place: lock, port, signal, and the replies of `continuity`.

  upgradable_server.py LOCK PORT DOES

At SIGUSR2 it executes itself anew, as the same process with the same lock and connections, and tells another version. What
it does otherwise:

  upgrades    that
  repeats     that, and it tells the same version
  drops       that, and every connection ends
  refuses     it tells a reason, some questions later
  delays      so it does at first, and then it upgrades
  hangs       it begins, and does not finish
  ignores     nothing: it does not begin, and tells the reason of an earlier attempt
  dies        the signal ends it
  begins      another registry, as of a name server that was started anew
  earlier     it knows no `continuity`, and the signal ends it
"""

import fcntl
import os
import selectors
import signal
import socket
import struct
import sys
import time

FRAME, ENTRY = struct.Struct(">2sBBI"), struct.Struct(">HI")
QUESTIONS_BEFORE_A_REFUSAL = 2
REFUSALS_OF_A_DELAY = 2
SECONDS_TO_2001 = 978307200


def take_request(buffer: bytearray) -> dict[str, str] | None:
    """Takes the texts of a whole request off the front of the buffer, or nothing while it is not whole."""
    if len(buffer) < FRAME.size:
        return None
    end = FRAME.size + FRAME.unpack_from(buffer)[3]
    if len(buffer) < end:
        return None
    texts, at = {}, FRAME.size
    while at < end:
        key, value = ENTRY.unpack_from(buffer, at)
        at += ENTRY.size + key + value
        texts[buffer[at - key - value : at - value].decode()] = buffer[at - value : at].split(b"\0")[0].decode()
    del buffer[:end]
    return texts


def frame(texts: dict[str, str]) -> bytes:
    entries = [(key.encode(), text.encode() + b"\0") for key, text in texts.items()]
    body = b"".join(ENTRY.pack(len(key), len(value)) + key + value for key, value in entries)
    return FRAME.pack(b"SV", 1, 1, len(body)) + body


class Server:
    def __init__(self, lock: str, port: str, does: str, *kept: str):
        self.does = does
        self.upgrades = self.attempts = 0
        self.refused = "an earlier reason" if does == "ignores" else ""
        self.instance = "0123456789abcdef" * 2
        self.questions = None  # since the signal
        self.begun = f"{time.time() - SECONDS_TO_2001:.6f}"
        self.selector = selectors.DefaultSelector()
        connections: list[str] = []
        if kept:
            self.lock, listener = int(kept[0]), int(kept[1])
            self.upgrades, self.attempts = int(kept[2]) + 1, int(kept[3])
            connections = list(kept[4:])
            if does == "drops":
                for each in connections:
                    os.close(int(each))
                connections = []
            if does == "begins":
                self.upgrades = self.attempts = 0
                self.instance = "f" * 32
            self.listener = socket.socket(fileno=listener)
        else:
            self.lock = os.open(lock, os.O_RDWR | os.O_CREAT, 0o644)
            fcntl.flock(self.lock, fcntl.LOCK_EX | fcntl.LOCK_NB)
            os.write(self.lock, f"{os.getpid()}\n".encode())
            self.listener = socket.create_server(("127.0.0.1", int(port)))
        self.selector.register(self.listener, selectors.EVENT_READ)
        for each in connections:
            self.take(socket.socket(fileno=int(each)))

    def take(self, connection: socket.socket) -> None:
        self.selector.register(connection, selectors.EVENT_READ, bytearray())

    def connections(self) -> list[socket.socket]:
        return [key.fileobj for key in self.selector.get_map().values() if key.data is not None]

    def upgrade(self) -> None:
        self.attempts += 1
        self.refused = ""
        self.questions = 0
        delay_is_over = self.does == "delays" and self.attempts > REFUSALS_OF_A_DELAY
        if self.does in ("upgrades", "repeats", "drops", "begins") or delay_is_over:
            descriptors = [each.fileno() for each in self.connections()]
            for descriptor in [self.lock, self.listener.fileno(), *descriptors]:
                os.set_inheritable(descriptor, True)
            kept = [self.lock, self.listener.fileno(), self.upgrades, self.attempts, *descriptors]
            os.execv(sys.executable, [sys.executable, *sys.argv[:4], *map(str, kept)])

    def reply(self, request: dict[str, str]) -> dict[str, str]:
        action = request.get("action", "")
        if action == "hostInfo":
            version = "1.0" if self.does == "repeats" else f"1.{self.upgrades}"
            return {"result": f"host|02:00:5e:10:00:07|192.0.2.7|{version}|system"}
        elif action == "continuity" and self.does != "earlier":
            if self.questions is not None:
                self.questions += 1
                if self.does in ("refuses", "delays") and self.questions > QUESTIONS_BEFORE_A_REFUSAL:
                    self.refused = "the new program does not know\nversion 7"
            return {"result": "succeed", "instance": self.instance, "upgrades": str(self.upgrades), "crashes": "0",
                    "attempts": str(self.attempts), "refused": self.refused, "begun": self.begun,
                    "process": str(os.getpid())}
        return {}

    def read(self, connection: socket.socket, buffer: bytearray) -> None:
        data = connection.recv(1 << 16)
        if not data:
            self.selector.unregister(connection)
            connection.close()
        buffer += data
        while (request := take_request(buffer)) is not None:
            connection.sendall(frame(self.reply(request)))

    def serve(self) -> None:
        if self.does not in ("dies", "earlier"):
            reading, writing = os.pipe()
            os.set_blocking(writing, False)
            signal.set_wakeup_fd(writing)
            signal.signal(signal.SIGUSR2, lambda *_: None)
            self.selector.register(reading, selectors.EVENT_READ)
        print("serves", flush=True)
        while True:
            for key, _ in self.selector.select():
                if key.fileobj is self.listener:
                    self.take(self.listener.accept()[0])
                elif key.data is not None:
                    self.read(key.fileobj, key.data)
                elif os.read(key.fd, 16) and self.does != "ignores":
                    self.upgrade()


with open("/proc/self/comm", "w", encoding="ascii") as name:
    name.write("sorvinfo")
Server(*sys.argv[1:]).serve()
