"""Input and output for asyncio: a connection whose every wait has an end, and what carries out steps over it."""

import asyncio
import os
from typing import Any, Awaitable, Callable, Sequence

from sorvane._frames import FrameReader, Reply
from sorvane._hosts import checked_server, here_of
from sorvane._steps import Ask, Connect, Idle, Listen, Pause, Steps, T, Tell
from sorvane.entries import Here, Limits
from sorvane.errors import ConnectionLost, NoReply, ProtocolError, SorvaneError, Unreachable


def _reason(error: OSError) -> str:
    """The reason in words. What asyncio says itself has a system's number and no text of it."""
    return os.strerror(error.errno) if error.errno is not None and error.errno > 0 else error.strerror or str(error)


class Wire:
    """A connection to a name server, for one task at a time. It connects when told, and closes after each error."""

    def __init__(self, host: str, port: int, limits: Limits) -> None:
        self.server = checked_server(host, port)
        self.host = host
        self._port = port
        self._limits = limits
        self._reader: asyncio.StreamReader | None = None
        self._writer: asyncio.StreamWriter | None = None
        self._frames = FrameReader()
        self.woken = asyncio.Event()
        self.here = Here("localhost", "127.0.0.1")

    @property
    def connected(self) -> bool:
        """True when there is a connection, as far as one can tell without asking."""
        if self._reader is None or self._reader.at_eof() or self._reader.exception() is not None:
            self.drop()
        return self._reader is not None

    def drop(self) -> None:
        """Closes the connection. Nothing happens when there is none."""
        if self._writer is not None:
            self._writer.transport.abort()
        self._reader = self._writer = None

    async def connect(self) -> Here:
        """Connects anew. Raises Unreachable."""
        self.drop()
        try:
            async with asyncio.timeout(self._limits.connect):
                self._reader, self._writer = await asyncio.open_connection(self.host, self._port)
            own = self._writer.get_extra_info("sockname")
            peer = self._writer.get_extra_info("peername")
            if own is None or peer is None:
                raise ConnectionResetError("it has closed the connection")
            self.here = here_of(own, peer)
        except TimeoutError:
            self.drop()
            raise Unreachable(
                f"{self.server}: it has not accepted the connection within {self._limits.connect:g} s"
            ) from None
        except OSError as error:
            self.drop()
            raise Unreachable(f"{self.server}: {_reason(error)}") from None
        except UnicodeError:
            raise Unreachable(f"{self.server}: no name of a host") from None
        self._frames = FrameReader()
        return self.here

    async def exchange(self, requests: Sequence[bytes], patience: float = 0.0) -> list[Reply]:
        """Sends requests and returns the reply to each. Raises ConnectionLost, NoReply or ProtocolError; then, and when
        it is cancelled, it is closed."""
        try:
            return await self._exchange(requests, self._limits.reply + patience)
        except TimeoutError as error:
            self.drop()
            if isinstance(error, SorvaneError):
                raise
            limit = self._limits.reply + patience
            raise NoReply(f"{self.server} has not replied within {limit:g} s") from None
        except BaseException:
            self.drop()
            raise

    async def idle(self, seconds: float) -> None:
        """Waits until woken. Raises ConnectionLost when the connection ends."""
        receiving = asyncio.ensure_future(self._receive())
        waking = asyncio.ensure_future(self.woken.wait())
        try:
            await asyncio.wait((receiving, waking), timeout=seconds, return_when=asyncio.FIRST_COMPLETED)
        finally:
            waking.cancel()
            receiving.cancel()
            # A stream has one reader at a time: the next exchange must find it free.
            await asyncio.wait((receiving, waking))
        self.woken.clear()
        if not receiving.cancelled():
            self.drop()
            receiving.result()
            raise ProtocolError(f"{self.server} has sent what nobody asked for")

    async def pause(self, seconds: float) -> None:
        """Waits without a connection. Being woken does not end it."""
        self.drop()
        await asyncio.sleep(seconds)

    async def _exchange(self, requests: Sequence[bytes], limit: float) -> list[Reply]:
        if self._writer is None:
            raise ConnectionLost(f"there is no connection to {self.server}")
        async with asyncio.timeout(limit):
            try:
                self._writer.write(b"".join(requests))
                await self._writer.drain()
            except TimeoutError:
                raise
            except OSError as error:
                raise ConnectionLost(f"{self.server}: {_reason(error)}") from None
        replies: list[Reply] = []
        while len(replies) < len(requests):
            async with asyncio.timeout(limit):
                while not (news := self._frames.feed(await self._receive())):
                    pass
            replies += news
        if len(replies) > len(requests) or not self._frames.between_frames:
            raise ProtocolError(f"{self.server} has sent what nobody asked for")
        return replies

    async def _receive(self) -> bytes:
        assert self._reader is not None
        try:
            data = await self._reader.read(1 << 16)
        except TimeoutError:
            raise
        except OSError as error:
            raise ConnectionLost(f"{self.server}: {_reason(error)}") from None
        if not data:
            raise ConnectionLost(f"{self.server} has closed the connection")
        return data


async def carry_out(
    steps: Steps[T],
    wire: Wire,
    tell: Callable[[Any], Awaitable[None]],
    listen: Callable[[int], Awaitable[str | None]],
) -> T:
    """Carries out steps to their end. Raises what the steps raise."""
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
                    outcome = await wire.exchange(step.requests, step.patience)
                elif isinstance(step, Idle):
                    await wire.idle(step.seconds)
                elif isinstance(step, Tell):
                    await tell(step.event)
                elif isinstance(step, Connect):
                    outcome = await wire.connect()
                elif isinstance(step, Pause):
                    await wire.pause(step.seconds)
                elif isinstance(step, Listen):
                    outcome = await listen(step.number)
            except SorvaneError as error:
                failure = error
    finally:
        steps.close()


async def answered(steps: Steps[T], wire: Wire) -> T:
    """Carries out steps that only ask. Raises SorvaneError."""

    async def none(event: Any) -> None:
        raise AssertionError(event)

    return await carry_out(steps, wire, none, none)


class Worker:
    """A task that carries out steps until it is closed."""

    def __init__(self, host: str, port: int, limits: Limits, name: str) -> None:
        self._wire = Wire(host, port, limits)
        self._name = name
        self._task: asyncio.Task[None] | None = None

    @property
    def is_here(self) -> bool:
        """True in the task of the worker."""
        return self._task is not None and self._task is asyncio.current_task()

    @property
    def started(self) -> bool:
        return self._task is not None

    def start(
        self,
        steps: Steps[None],
        tell: Callable[[Any], Awaitable[None]],
        listen: Callable[[int], Awaitable[str | None]],
    ) -> None:
        if self._task is not None:
            raise RuntimeError("it was started before")

        async def run() -> None:
            try:
                await carry_out(steps, self._wire, tell, listen)
            finally:
                self._wire.drop()

        self._task = asyncio.create_task(run(), name=self._name)

    def wake(self) -> None:
        self._wire.woken.set()

    async def close(self) -> None:
        """Ends the task, and waits for that unless it is called in it."""
        if self._task is None:
            return
        self._task.cancel()
        if not self.is_here:
            await asyncio.wait((self._task,))
