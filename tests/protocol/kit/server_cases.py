"""Runs cases against a server: one case is a script of steps over several connections."""

import itertools
import secrets
import select
import socket
import struct
import time
from typing import Any

from . import frames, wording
from .wording import Mismatch

PATIENCE = 10.0  # seconds for a reply, and for what must come true
_numbers = itertools.count()


class Peer:
    """One connection to the server, and what has arrived on it."""

    def __init__(self, address: tuple[str, int], patience: float, number: int):
        self.number = number  # of this connection in its case
        self.replies = 0
        self.patience = patience
        self.socket = socket.create_connection(address, patience)
        self.socket.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
        self._arrived = bytearray()
        self._ended = False
        self.asked_at = time.monotonic()

    def send(self, data: bytes, split: int = 0, pause: float = 0.0) -> None:
        """Sends all of it, in parts of `split` bytes if that is not 0. A connection that the server has closed is no
        fault here: the case says what must come."""
        self.asked_at = time.monotonic()
        parts = [data[at : at + split] for at in range(0, len(data), split)] if split else [data]
        try:
            for part in parts:
                self._send_part(part)
                if split and pause:
                    time.sleep(pause)
        except (ConnectionError, BrokenPipeError):
            pass

    def _send_part(self, part: bytes) -> None:
        view = memoryview(part)
        end = time.monotonic() + self.patience
        self.socket.setblocking(False)
        while view:
            if time.monotonic() > end:
                raise Mismatch("the server does not read")
            readable, writable, _ = select.select([self.socket], [self.socket], [], 0.5)
            if readable:
                self._take()
                if self._ended:
                    return
            if writable:
                view = view[self.socket.send(view) :]

    def _take(self) -> None:
        try:
            arrived = self.socket.recv(1 << 20)
        except BlockingIOError:
            return
        except ConnectionError:
            arrived = b""
        self._arrived += arrived
        self._ended = self._ended or not arrived

    def _wait(self, until: float) -> bool:
        """Waits for bytes or the end. Returns whether something came."""
        if self._ended:
            return False
        self.socket.setblocking(False)
        readable, _, _ = select.select([self.socket], [], [], max(0.0, until - time.monotonic()))
        if readable:
            self._take()
        return bool(readable)

    def reply(self, limit: float | None = None) -> tuple[frames.Entries | None, bytes]:
        """The next reply. Raises Mismatch if none comes, or bytes that are none."""
        until = time.monotonic() + (self.patience if limit is None else limit)
        while True:
            try:
                whole, entries, raw = frames.take_frame(self._arrived, frames.MOST_REPLY_BYTES, True)
            except frames.BadFrame as bad:
                raise Mismatch(f"expected a reply, got a bad frame: {bad}") from None
            if whole:
                self.replies += 1
                return entries, raw
            if self._ended:
                raise Mismatch("expected a reply, got the end of the connection")
            if time.monotonic() >= until or not self._wait(until):
                if not self._ended and time.monotonic() >= until:
                    raise Mismatch("expected a reply, got none in time")

    def expect_silence(self, seconds: float) -> None:
        until = time.monotonic() + seconds
        while time.monotonic() < until and not self._arrived and not self._ended:
            self._wait(until)
        if self._arrived:
            raise Mismatch(f"expected no reply, got {bytes(self._arrived[:60]).hex(' ')}")
        if self._ended:
            raise Mismatch("expected an open connection, got its end")

    def expect_end(self, limit: float | None = None) -> None:
        until = time.monotonic() + (self.patience if limit is None else limit)
        while not self._ended and not self._arrived and time.monotonic() < until:
            self._wait(until)
        if self._arrived:
            raise Mismatch(f"expected the end of the connection, got {bytes(self._arrived[:60]).hex(' ')}")
        if not self._ended:
            raise Mismatch("expected the end of the connection, got nothing in time")

    def close(self, reset: bool = False) -> None:
        if reset:
            self.socket.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
        self.socket.close()


class Run:
    """One run of one case. Raises Mismatch, with the step in its words."""

    def __init__(self, address: tuple[str, int], patience: float = PATIENCE):
        self._address = address
        self._patience = patience
        self._peers: dict[str, Peer] = {}
        self._opened = 0
        # Each reply by its connection and its place there. All replies of a poll, whose number differs from run to run,
        # have the connection -1 and the place of the poll.
        self.replies: list[tuple[int, int]] = []
        self.poll = 0  # the poll under way; 0: none
        self._polls = 0
        self.path: tuple[int, ...] = ()  # the step under way: its number, and those of the steps that contain it
        unique = f"kit{secrets.token_hex(3)}n{next(_numbers)}"
        self._variables = {"port": str(address[1]), "unique": unique}

    def case(self, case: dict) -> None:
        try:
            self._steps(case["steps"], "step ", ())
        finally:
            for peer in self._peers.values():
                peer.close()

    def _steps(self, steps: list, place: str, path: tuple[int, ...]) -> None:
        for number, step in enumerate(steps, 1):
            self.path = (*path, number)
            try:
                self._step(step, f"{place}{number}", self.path)
            except Mismatch as mismatch:
                if str(mismatch).startswith("step "):
                    raise
                raise Mismatch(f"{place}{number}: {mismatch}") from None
            except OSError as error:
                raise Mismatch(f"{place}{number}: {error}") from None

    def _step(self, words: dict, place: str, path: tuple[int, ...]) -> None:
        if "each" in words:
            for name, values in words["each"].items():
                for value in values:
                    self._variables[name] = value
                    self._steps(words["steps"], f"{place} with {name} {value!r}, step ", path)
            return
        step = wording.filled(words, self._variables)
        if "wait" in step:
            time.sleep(step["wait"])
        elif "refuses" in step:
            self._expect_refusal()
        elif "until" in step:
            self._until(step)
        else:
            self._on_peer(step)

    def _expect_refusal(self) -> None:
        until = time.monotonic() + self._patience
        while time.monotonic() < until:
            try:
                socket.create_connection(self._address, 1).close()
            except OSError:
                return
            time.sleep(0.01)
        raise Mismatch("expected that no server listens any longer, got a connection")

    def _peer(self, name: str) -> Peer:
        if name not in self._peers:
            self._peers[name] = Peer(self._address, self._patience, self._opened)
            self._opened += 1
        return self._peers[name]

    def _until(self, step: dict) -> None:
        """Asks until the reply is what it must be."""
        peer = self._peer(step["on"])
        end = time.monotonic() + self._patience
        self._polls += 1
        self.replies.append((-1, self._polls))
        self.poll = self._polls
        while True:
            peer.send(frames.frame(wording.entries(step["ask"])))
            entries, raw = peer.reply()
            peer.replies -= 1
            try:
                wording.check_reply(entries, raw, step["until"], self._variables)
                self.poll = 0
                return
            except Mismatch:
                if time.monotonic() > end:
                    raise
            time.sleep(0.005)

    def _on_peer(self, step: dict) -> None:
        peer = self._peer(step["on"])
        if "ask" in step:
            peer.send(frames.frame(wording.entries(step["ask"])), step.get("split", 0), step.get("pause", 0.0))
        if "send" in step:
            data = wording.pieces(step["send"])
            peer.send(data[: step.get("take", len(data))], step.get("split", 0), step.get("pause", 0.0))
        if "cut everywhere" in step:
            data = frames.frame(wording.entries(step["cut everywhere"]))
            for at in range(1, len(data)):
                peer.send(data, at, 0.0005)
                self._expect(peer, step)
            return
        if "finish" in step:
            peer.socket.shutdown(socket.SHUT_WR)
        if "expect" in step:
            for _ in range(step.get("times", 1)):
                self._expect(peer, step)
        if "close" in step or "reset" in step:
            self._peers.pop(step["on"]).close("reset" in step)

    def _expect(self, peer: Peer, step: dict) -> None:
        words: Any = step["expect"]
        # Whoever has more patience has a slower host, too.
        within = step["within"] * max(1.0, self._patience / PATIENCE) if "within" in step else None
        if words == "end":
            peer.expect_end(within)
        elif isinstance(words, dict) and "silence" in words:
            peer.expect_silence(words["silence"])
        else:
            self.replies.append((peer.number, peer.replies))
            entries, raw = peer.reply(within)
            wording.check_reply(entries, raw, words, self._variables)
        self._check_time(peer, step)

    @staticmethod
    def _check_time(peer: Peer, step: dict) -> None:
        passed = time.monotonic() - peer.asked_at
        if passed < step.get("not before", 0):
            raise Mismatch(f"expected no reply before {step['not before']} s, got it after {passed:.3f} s")
