"""A name server in Python, for the tests of the kit and behind the cases for clients.

It runs on a thread of its own, on a port of its own on the loopback interface. It is correct unless faults are turned
on, or a script says otherwise for single requests.
"""

import collections
import selectors
import socket
import struct
import threading
import time
from collections.abc import Callable, Collection
from dataclasses import dataclass, field

from . import frames
from .frames import Entries
from .registry import Ends, Faults, Record, Registry

PARTIAL_SECONDS = 30.0
CLOSE, RESET, HANG = "close", "reset", "hang"

# Bytes to send, seconds to wait, or what happens to the connection.
Step = bytes | float | str
# Gets the command's name, the request and the frame that is due (None: held). Returns what happens instead, or None.
Script = Callable[[str, Entries, bytes | None], list[Step] | None]


@dataclass(eq=False)
class Connection:
    socket: socket.socket
    number: int
    record: Record
    input: bytearray = field(default_factory=bytearray)
    steps: collections.deque = field(default_factory=collections.deque)
    due: float = 0.0  # when the next step is
    began: float | None = None  # when the unfinished request began
    held_until: float | None = None
    half_closed: bool = False
    ending: bool = False
    hung: bool = False
    replies: int = 0


class ReferenceServer:
    """Example: with ReferenceServer(faults=("a ping is sent back",)) as server: connect(server.port)"""

    def __init__(self, faults: tuple[str, ...] = (), variant: str = "", script: Script | None = None,
                 spoil: Callable[[int, int, bytes], bytes] | None = None, port: int = 0, lacks: Collection[str] = ()):
        self.fault = Faults(*faults)
        self.partial_seconds = 1.0 if variant == "impatient" else PARTIAL_SECONDS
        self._variant = variant
        self._script = script
        self._spoil = spoil
        self._lacks = lacks  # the commands that this version does not have
        self._listening = socket.create_server(("127.0.0.1", port), backlog=128)
        self._listening.setblocking(False)
        self.port = self._listening.getsockname()[1]
        self._selector = selectors.DefaultSelector()
        self._selector.register(self._listening, selectors.EVENT_READ)
        self._wake, self._waker = socket.socketpair()
        self._selector.register(self._wake, selectors.EVENT_READ)
        self._connections: dict[socket.socket, Connection] = {}
        self._count = 0
        self._work: collections.deque = collections.deque()
        self._ended = False
        self.requests: list[tuple[int, Entries]] = []  # the connection's number, and what it asked
        self.faults_of_clients: list[str] = []
        self.new_registry()
        self._thread = threading.Thread(target=self._serve, daemon=True)

    def new_registry(self) -> None:
        """Forgets everything, as a restart does."""
        self.registry = Registry(self.port, self.fault, self._variant == "local-only")

    def __enter__(self) -> "ReferenceServer":
        self._thread.start()
        return self

    def __exit__(self, *_unused) -> None:
        self.does(self._end)
        self._thread.join()
        for each in (self._wake, self._waker):
            each.close()

    def wait(self) -> None:
        """Waits until a client has ended it."""
        self._thread.join()

    def does(self, work: Callable[[], None]) -> None:
        """Lets the server's thread do something, such as a change of the registry."""
        self._work.append(work)
        self._waker.send(b"x")

    def drop_all(self) -> None:
        """Closes every connection. For work given to `does`."""
        for connection in list(self._connections.values()):
            self._close(connection)

    def _end(self) -> None:
        if self._ended:
            return
        self._ended = True
        self._selector.unregister(self._listening)
        self._listening.close()
        for connection in list(self._connections.values()):
            if connection.held_until is not None and self.fault("a server that ends replies to who waits"):
                connection.socket.send(frames.frame([(b"result", b"NO\0")]))
            self._drop(connection)

    # ---- The loop

    def _serve(self) -> None:
        while not self._ended:
            for key, _ in self._selector.select(self._until_next()):
                if key.fileobj is self._listening:
                    self._accept()
                elif key.fileobj is self._wake:
                    self._wake.recv(1000)
                elif key.fileobj in self._connections:
                    self._read(self._connections[key.fileobj])
            while self._work and not self._ended:
                self._work.popleft()()
            try:
                self._go_on()
            except Ends:
                self._end()
        self._selector.close()

    def _until_next(self) -> float | None:
        times = []
        for connection in self._connections.values():
            if connection.steps:
                times.append(connection.due)
            if connection.held_until is not None:
                times.append(connection.held_until)
            if connection.began is not None:
                times.append(connection.began + self.partial_seconds)
        return max(0.0, min(times) - time.monotonic()) if times else None

    def _accept(self) -> None:
        accepted, _ = self._listening.accept()
        accepted.setblocking(False)
        accepted.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
        self._connections[accepted] = Connection(accepted, self._count, self.registry.opened())
        self._count += 1
        self._selector.register(accepted, selectors.EVENT_READ)
        if self.fault("the server speaks first"):
            accepted.send(frames.frame([]))

    def _read(self, connection: Connection) -> None:
        try:
            arrived = connection.socket.recv(1 << 20)
        except BlockingIOError:
            return
        except OSError:
            self._close(connection)
            return
        if not arrived:
            connection.half_closed = True
            self._selector.unregister(connection.socket)
            if connection.hung or self.fault("a client that has shut down its side gets nothing"):
                self._close(connection)
            return
        if not connection.ending:
            connection.input += arrived

    def _go_on(self) -> None:
        """Does whatever can be done now, for each connection."""
        busy = True
        while busy:
            busy = False
            for connection in list(self._connections.values()):
                while connection.socket in self._connections and self._one_step(connection):
                    busy = True

    def _one_step(self, connection: Connection) -> bool:
        if connection.hung:
            return False
        if connection.steps:
            return self._next_output(connection)
        if connection.held_until is not None and not self._release(connection):
            if not self.fault("requests behind a waiting one are carried out"):
                return False
        if connection.ending:
            if self.fault("a connection is never closed"):
                connection.hung = True
            else:
                self._close(connection)
            return False
        return self._next_request(connection)

    def _next_output(self, connection: Connection) -> bool:
        if time.monotonic() < connection.due:
            return False
        step = connection.steps.popleft()
        if isinstance(step, float):
            connection.due = time.monotonic() + step
            connection.steps.appendleft(b"")  # what stands behind it waits
        elif step == HANG:
            connection.hung = True
        elif step in (CLOSE, RESET):
            self._close(connection, step == RESET)
        elif step:
            self._send(connection, step)
        return True

    def _send(self, connection: Connection, data: bytes) -> None:
        try:
            sent = connection.socket.send(data)
        except BlockingIOError:
            sent = 0
        except OSError:
            self._close(connection)
            return
        if sent < len(data):
            connection.steps.appendleft(data[sent:])
            connection.due = time.monotonic() + 0.002

    def _close(self, connection: Connection, reset: bool = False) -> None:
        if connection.socket in self._connections:
            if reset:
                connection.socket.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
            self._drop(connection)
            self.registry.closed(connection.record)

    def _drop(self, connection: Connection) -> None:
        del self._connections[connection.socket]
        if connection.socket in self._selector.get_map():
            self._selector.unregister(connection.socket)
        connection.socket.close()

    # ---- Requests

    def _next_request(self, connection: Connection) -> bool:
        had_input = bool(connection.input)
        try:
            whole, request, _ = frames.take_frame(connection.input, frames.MOST_REQUEST_BYTES, False, self.fault)
        except frames.BadFrame as bad:
            self.faults_of_clients.append(str(bad))
            return self._bad_frame(connection)
        if not whole:
            return self._unfinished(connection, had_input)
        connection.began = None
        self._carry_out(connection, request or [])
        return True

    def _bad_frame(self, connection: Connection) -> bool:
        connection.input.clear()
        if self.fault("a bad frame is passed over"):
            return True
        if self.fault("a bad frame has a reply"):
            connection.steps.append(frames.frame(None))
        connection.ending = True
        return True

    def _unfinished(self, connection: Connection, had_input: bool) -> bool:
        if connection.half_closed:
            connection.ending = True
            return True
        if had_input:
            if connection.began is None and self.fault("half a request has a reply"):
                connection.steps.append(frames.frame([]))
            now = time.monotonic()
            if connection.began is None:
                connection.began = now
            elif now >= connection.began + self.partial_seconds and not self.fault("a request may take for ever"):
                connection.ending = True
                return True
        return False

    def _carry_out(self, connection: Connection, request: Entries) -> None:
        registry = self.registry
        command = registry.command_of(request)
        self.requests.append((connection.number, request))
        held = False
        try:
            reply = [] if command in self._lacks else registry.reply(connection.record, request)
        except Ends:
            steps = self._script(command, request, None) if self._script else None
            if steps is not None:
                connection.steps.extend(steps)
                return
            if not self.fault("the end of the server is that of a connection alone"):
                raise
            self._close(connection)
            return
        if command == "awaitPortChanges" and reply == [(b"result", b"NO\0")]:
            seconds = registry.seconds_to_wait(request)
            held = seconds > 0 and not self.fault("awaitPortChanges replies at once")
            if held:
                connection.held_until = time.monotonic() + seconds
        steps = self._script(command, request, None if held else frames.frame(reply)) if self._script else None
        if steps is not None:
            connection.held_until = None
            connection.steps.extend(steps)
        elif not held:
            self._reply(connection, reply)

    def _reply(self, connection: Connection, reply: Entries | None) -> None:
        data = frames.frame(reply)
        if self._spoil:
            data = self._spoil(connection.number, connection.replies, data)
        connection.replies += 1
        if self.fault("a reply goes out twice"):
            connection.steps.extend([data, data])
        elif self.fault("the reply to the second request overtakes the first") and connection.replies == 1 and (
                connection.input):
            self._next_request(connection)
            connection.steps.append(data)
        else:
            connection.steps.append(data)

    def _release(self, connection: Connection) -> bool:
        """Replies to a request that is held, if it is time. Returns whether none is held any longer."""
        changed = connection.record.dirty and not self.fault("who waits is not told of a change")
        over = time.monotonic() >= connection.held_until and not self.fault("the time of a waiting request never ends")
        gone = connection.half_closed and not self.fault("who waits and shuts down its side is held on")
        if not (changed or over or gone):
            return False
        connection.held_until = None
        if changed and not self.fault("a change that is told by waiting stays marked"):
            connection.record.dirty = False
        yes = changed or self.fault("the end of the time is told as a change")
        self._reply(connection, [(b"result", b"YES\0" if yes else b"NO\0")])
        return True
