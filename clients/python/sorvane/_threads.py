"""Input and output for threads: a connection whose every wait has an end, and what carries out steps over it."""

import errno
import os
import select
import socket
import threading
import time
from typing import Any, Callable, Sequence

from sorvane._frames import FrameReader, Reply
from sorvane._hosts import checked_server, here_of, is_address
from sorvane._steps import Ask, Connect, Idle, Listen, Pause, Steps, T, Tell
from sorvane.entries import Here, Limits
from sorvane.errors import ConnectionLost, NoReply, ProtocolError, SorvaneError, Unreachable

_Address = tuple[int, Any]


class Closing(Exception):
    """The program has closed what it waited with."""


class Wake:
    """Wakes one thread from its wait: to look whether there is something to do, or to end."""

    def __init__(self) -> None:
        self._sender, self._receiver = socket.socketpair()
        self._sender.setblocking(False)
        self._receiver.setblocking(False)
        self.closing = False
        self.woken = False

    def fileno(self) -> int:
        return self._receiver.fileno()

    def wake(self) -> None:
        try:
            self._sender.send(b"w")
        except OSError:
            pass  # enough of them wait to be taken, or the thread has ended

    def close(self) -> None:
        """Lets every wait raise Closing from now on."""
        self.closing = True
        self.wake()

    def take(self) -> None:
        """Takes all that woke it, and remembers that something did. Raises Closing."""
        self.woken = True
        try:
            while self._receiver.recv(4096):
                pass
        except BlockingIOError:
            pass
        if self.closing:
            self.wake()  # the next wait, too
            raise Closing

    def release(self) -> None:
        self._sender.close()
        self._receiver.close()


class _Lookup:
    """A look-up of a host in the system, which cannot be interrupted and so has a thread of its own."""

    def __init__(self, host: str, port: int) -> None:
        self.outcome: list[_Address] | OSError | None = None
        self._thread = threading.Thread(target=self._run, args=(host, port), name="sorvane-lookup", daemon=True)
        self._thread.start()

    def _run(self, host: str, port: int) -> None:
        try:
            found = socket.getaddrinfo(host, port, type=socket.SOCK_STREAM)
            self.outcome = [(family, address) for family, _, _, _, address in found]
        except OSError as error:
            self.outcome = error
        except UnicodeError:
            self.outcome = OSError("no name of a host")

    def join(self, seconds: float) -> None:
        self._thread.join(seconds)


class Wire:
    """A connection to a name server, for one thread at a time. It connects when told, and closes after each error."""

    def __init__(self, host: str, port: int, limits: Limits, wake: Wake | None = None) -> None:
        self.server = checked_server(host, port)
        self.host = host
        self._port = port
        self._limits = limits
        self._wake = wake
        self._socket: socket.socket | None = None
        self._reader = FrameReader()
        self._lookup: _Lookup | None = None
        self.here = Here("localhost", "127.0.0.1")

    @property
    def connected(self) -> bool:
        """True when there is a connection, as far as one can tell without asking."""
        if self._socket is None:
            return False
        poller = select.poll()
        poller.register(self._socket, select.POLLIN)
        if poller.poll(0) or not self._reader.between_frames:
            self.drop()  # it has ended, or something came that nobody asked for
        return self._socket is not None

    def drop(self) -> None:
        """Closes the connection. Nothing happens when there is none."""
        if self._socket is not None:
            self._socket.close()
            self._socket = None

    def connect(self) -> Here:
        """Connects anew. Raises Unreachable or NoReply."""
        self.drop()
        deadline = time.monotonic() + self._limits.connect
        reason = "no address"
        addresses = self._addresses(deadline)
        for index, (family, address) in enumerate(addresses):
            share = max(deadline - time.monotonic(), 0) / (len(addresses) - index)
            try:
                self.here = self._connect_to(family, address, time.monotonic() + share)
                self._reader = FrameReader()
                return self.here
            except NoReply:
                self.drop()
                reason = f"it has not accepted the connection within {self._limits.connect:g} s"
            except OSError as error:
                self.drop()
                reason = error.strerror or str(error)
        raise Unreachable(f"{self.server}: {reason}")

    def exchange(self, requests: Sequence[bytes], patience: float = 0.0) -> list[Reply]:
        """Sends requests and returns the reply to each. The requests are so few that they are taken before the replies
        are read. Raises ConnectionLost, NoReply or ProtocolError; then it is closed."""
        try:
            return self._exchange(requests, patience)
        except BaseException:
            self.drop()
            raise

    def idle(self, seconds: float) -> None:
        """Waits until woken; what woke the thread since the last time counts. Raises ConnectionLost when the connection
        ends."""
        if self._wake is not None and self._wake.woken:
            seconds = 0
        ended = self._wait(select.POLLIN, time.monotonic() + seconds, "", until_woken=True)
        if self._wake is not None:
            self._wake.woken = False
        if ended:
            self._receive()
            self.drop()
            raise ProtocolError(f"{self.server} has sent what nobody asked for")

    def pause(self, seconds: float) -> None:
        """Waits without a connection. Being woken does not end it."""
        self.drop()
        deadline = time.monotonic() + seconds
        while (left := deadline - time.monotonic()) > 0:
            if self._wake is None:
                time.sleep(left)
                continue
            poller = select.poll()
            poller.register(self._wake, select.POLLIN)
            if poller.poll(left * 1000):
                self._wake.take()

    def _addresses(self, deadline: float) -> list[_Address]:
        if is_address(self.host):
            found = socket.getaddrinfo(self.host, self._port, type=socket.SOCK_STREAM, flags=socket.AI_NUMERICHOST)
            return [(family, address) for family, _, _, _, address in found]
        if self._lookup is None:
            self._lookup = _Lookup(self.host, self._port)
        # One that takes longer is asked for its outcome by the next attempt, and no second one is begun beside it.
        while (outcome := self._lookup.outcome) is None:
            if time.monotonic() >= deadline:
                raise NoReply(f"{self.server}: the host was not looked up within {self._limits.connect:g} s")
            if self._wake is not None and self._wake.closing:
                raise Closing
            self._lookup.join(min(0.05, max(deadline - time.monotonic(), 0)))
        self._lookup = None
        if isinstance(outcome, OSError):
            raise Unreachable(f"{self.server}: {outcome.strerror or outcome}")
        return outcome

    def _connect_to(self, family: int, address: Any, deadline: float) -> Here:
        self._socket = socket.socket(family, socket.SOCK_STREAM)
        self._socket.setblocking(False)
        status = self._socket.connect_ex(address)
        if status == errno.EINPROGRESS:
            self._wait(select.POLLOUT, deadline, "the connection was not accepted")
            status = self._socket.getsockopt(socket.SOL_SOCKET, socket.SO_ERROR)
        if status != 0:
            raise OSError(status, os.strerror(status))
        self._socket.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
        return here_of(self._socket.getsockname(), self._socket.getpeername())

    def _exchange(self, requests: Sequence[bytes], patience: float) -> list[Reply]:
        if self._socket is None:
            raise ConnectionLost(f"there is no connection to {self.server}")
        limit = self._limits.reply + patience
        reason = f"{self.server} has not replied within {limit:g} s"
        deadline = time.monotonic() + limit
        unsent = memoryview(b"".join(requests))
        while unsent:
            try:
                unsent = unsent[self._socket.send(unsent) :]
            except BlockingIOError:
                self._wait(select.POLLOUT, deadline, reason)
            except OSError as error:
                raise ConnectionLost(f"{self.server}: {error.strerror}") from None
        replies: list[Reply] = []
        while len(replies) < len(requests):
            self._wait(select.POLLIN, deadline, reason)
            news = self._reader.feed(self._receive())
            if news:
                replies += news
                deadline = time.monotonic() + limit
        if len(replies) > len(requests) or not self._reader.between_frames:
            raise ProtocolError(f"{self.server} has sent what nobody asked for")
        return replies

    def _receive(self) -> bytes:
        assert self._socket is not None
        try:
            data = self._socket.recv(1 << 16)
        except BlockingIOError:
            return b""
        except OSError as error:
            self.drop()
            raise ConnectionLost(f"{self.server}: {error.strerror}") from None
        if not data:
            self.drop()
            raise ConnectionLost(f"{self.server} has closed the connection")
        return data

    def _wait(self, event: int, deadline: float, reason: str, until_woken: bool = False) -> bool:
        """Waits for the socket; true when it is ready. Otherwise it was woken, or the time is over: then it raises
        NoReply with the reason, unless it may be woken."""
        assert self._socket is not None
        poller = select.poll()
        poller.register(self._socket, event)
        if self._wake is not None:
            poller.register(self._wake, select.POLLIN)
        while True:
            left = deadline - time.monotonic()
            ready = dict(poller.poll(max(left, 0) * 1000))
            if self._wake is not None and self._wake.fileno() in ready:
                self._wake.take()
                if until_woken and self._socket.fileno() not in ready:
                    return False
            if self._socket.fileno() in ready:
                return True
            if left <= 0:
                if until_woken:
                    return False
                raise NoReply(reason)


def carry_out(steps: Steps[T], wire: Wire, tell: Callable[[Any], None], listen: Callable[[int], str | None]) -> T:
    """Carries out steps to their end. Raises Closing, and what the steps raise."""
    outcome: Any = None
    failure: SorvaneError | None = None
    try:
        while True:
            try:
                step = steps.send(outcome) if failure is None else steps.throw(failure)
            except StopIteration as end:
                result: T = end.value
                return result
            outcome = failure = None
            try:
                if isinstance(step, Ask):
                    outcome = wire.exchange(step.requests, step.patience)
                elif isinstance(step, Idle):
                    wire.idle(step.seconds)
                elif isinstance(step, Tell):
                    tell(step.event)
                elif isinstance(step, Connect):
                    outcome = wire.connect()
                elif isinstance(step, Pause):
                    wire.pause(step.seconds)
                elif isinstance(step, Listen):
                    outcome = listen(step.number)
            except SorvaneError as error:
                failure = error
    finally:
        steps.close()


def answered(steps: Steps[T], wire: Wire) -> T:
    """Carries out steps that only ask. Raises SorvaneError."""

    def none(event: Any) -> None:
        raise AssertionError(event)

    return carry_out(steps, wire, none, none)


class Worker:
    """A thread that carries out steps until it is closed."""

    def __init__(self, host: str, port: int, limits: Limits, name: str) -> None:
        checked_server(host, port)
        self._host, self._port, self._limits = host, port, limits
        self._name = name
        self._wake: Wake | None = None
        self._thread: threading.Thread | None = None

    @property
    def is_here(self) -> bool:
        """True on the thread of the worker."""
        return self._thread is threading.current_thread()

    @property
    def started(self) -> bool:
        return self._thread is not None

    @property
    def closing(self) -> bool:
        return self._wake is not None and self._wake.closing

    def start(self, steps: Steps[None], tell: Callable[[Any], None], listen: Callable[[int], str | None]) -> None:
        if self._thread is not None:
            raise RuntimeError("it was started before")
        wake = Wake()
        wire = Wire(self._host, self._port, self._limits, wake)

        def run() -> None:
            try:
                carry_out(steps, wire, tell, listen)
            except Closing:
                pass
            finally:
                wire.drop()
                wake.release()

        self._wake = wake
        self._thread = threading.Thread(target=run, name=self._name, daemon=True)
        self._thread.start()

    def wake(self) -> None:
        if self._wake is not None:
            self._wake.wake()

    def close(self) -> None:
        """Ends the thread, and waits for that unless it is called on it."""
        if self._wake is None or self._thread is None:
            return
        self._wake.close()
        if not self.is_here:
            self._thread.join()
