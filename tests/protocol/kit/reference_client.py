"""A client for the tests of the kit: correct, and wrong on request.

  reference_client.py FAULT HOST PORT TIMEOUT find|register NAME     FAULT may be empty
"""

import json
import signal
import socket
import sys
import time
from pathlib import Path

sys.dont_write_bytecode = True
sys.path.insert(0, str(Path(__file__).resolve().parent.parent))
from kit import frames  # noqa: E402

DONE, NO, UNREACHED = 0, 1, 3
fault = sys.argv[1]


class Lost(Exception):
    """The server is not there, or no longer."""


class Server:
    def __init__(self, host: str, port: int, timeout: float):
        self._limit = None if fault == "waits for ever" else timeout
        self._socket = socket.create_connection((host, port), timeout)
        self._arrived = bytearray()

    def ask(self, *texts: tuple[str, str]) -> dict[str, str] | None:
        entries = [(key.encode(), frames.text(value)) for key, value in texts]
        if fault == "sends texts without a NUL":
            entries = [(key, value[:-1]) for key, value in entries]
        data = frames.frame(entries)
        self._socket.sendall(data.replace(b"SV\1\1", b"SV\1\2") if fault == "sends another kind" else data)
        return self._reply()

    def _reply(self) -> dict[str, str] | None:
        end = time.monotonic() + (self._limit or 60)
        while True:
            lax = (lambda _what: True) if fault == "takes malformed replies" else frames.strict
            whole, entries, _ = frames.take_frame(self._arrived, frames.MOST_REPLY_BYTES, True, lax)
            if whole:
                return self._texts(entries)
            self._socket.settimeout(max(0.001, end - time.monotonic()))
            arrived = self._socket.recv(65536)
            if not arrived:
                raise Lost("the connection was closed")
            self._arrived += arrived
            if fault == "takes each segment for a reply":
                raise Lost("half a reply")

    @staticmethod
    def _texts(entries: frames.Entries | None) -> dict[str, str] | None:
        if entries is None:
            return {} if fault == "takes no dictionary for an empty one" else None
        if fault == "wonders about unknown keys" and any(key in (b"x", b"") for key, _ in entries):
            raise Lost("an unknown key")
        texts = {key.decode(): value for key, value in entries}
        if fault == "takes texts beyond their NUL":
            return {key: value.removesuffix(b"\0").decode(errors="replace") for key, value in texts.items()}
        return {key: value.split(b"\0")[0].decode(errors="replace") for key, value in texts.items()}


def find(server: Server, name: str) -> int:
    reply = server.ask(("findPort", name.upper() if fault == "asks for another name" else name), ("portHost", "h"))
    if reply is None or "portNumber" not in reply:
        return DONE if fault == "takes a refusal for done" else NO
    told = {"name": reply.get("portName", ""), "number": reply["portNumber"], "host": reply.get("portHost", ""),
            "type": reply.get("portType", "")}
    if fault == "tells another number":
        told["number"] += "0"
    print(json.dumps(told))
    return DONE


def register(server: Server, name: str) -> int:
    reply = server.ask(("newPort", ""), ("portName", name), ("portHost", "dbhost"), ("portType", "database"))
    if reply is None or "portNumber" not in reply:
        if fault == "goes on after a refusal":
            server.ask(("acceptPort", ""))
        return NO
    if fault != "registers without acceptPort" and server.ask(("acceptPort", "")) is None:
        return NO
    print(json.dumps({"name": name, "number": reply["portNumber"]}), flush=True)
    if fault == "tells it twice":
        print(json.dumps({"name": name, "number": reply["portNumber"]}), flush=True)
    if fault == "does not wait for its end":
        return DONE
    signal.sigwait([signal.SIGTERM])
    return DONE


def main() -> int:
    host, port, timeout, action, name = sys.argv[2:]
    signal.pthread_sigmask(signal.SIG_BLOCK, [signal.SIGTERM])
    try:
        if fault == "asks on another connection before":
            Server(host, int(port), float(timeout)).ask(("ping", ""))
        server = Server(host, int(port), float(timeout))
        return (find if action == "find" else register)(server, name)
    except (OSError, Lost, frames.BadFrame):
        return NO if fault == "takes a lost server for a refusal" else UNREACHED


if __name__ == "__main__":
    sys.exit(main())
