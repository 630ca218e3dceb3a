"""Watching the databases of a name server."""

import asyncio
from types import TracebackType
from typing import Any, AsyncIterator, Callable

from sorvane._callbacks import call
from sorvane._following import Following
from sorvane.aio._tasks import Worker
from sorvane.entries import DEFAULT_PORT, Change, Limits, WatchStatus
from sorvane.errors import InvalidValue


class Watch:
    """Tells each change of the databases of a name server. It does what ``sorvane.Watch`` does.

    >>> async def first():
    ...     async with Watch() as watch:
    ...         async for change in watch:
    ...             return change.kind, change.entry.name
    >>> asyncio.run(first())
    ('registered', 'db1')
    """

    def __init__(
        self,
        host: str = "localhost",
        port: int = DEFAULT_PORT,
        *,
        on_change: Callable[[Change], object] | None = None,
        on_status: Callable[[WatchStatus], object] | None = None,
        poll_every: float = 1.0,
        limits: Limits = Limits(),
    ) -> None:
        if not poll_every > 0:
            raise InvalidValue("the time between two questions is above 0")
        self._following = Following(limits, poll_every)
        self._worker = Worker(host, port, limits, "sorvane watch")
        self._on_change = on_change
        self._on_status = on_status
        self._condition = asyncio.Condition()
        self._status = WatchStatus()
        self._due: list[Change] = []
        self._taken = 0
        self._closed = False

    async def __aenter__(self) -> "Watch":
        self.start()
        return self

    async def __aexit__(
        self, kind: type[BaseException] | None, error: BaseException | None, trace: TracebackType | None
    ) -> None:
        await self.close()

    async def __aiter__(self) -> AsyncIterator[Change]:
        """Tells changes until the watch is closed."""
        while (change := await self.next_change()) is not None:
            yield change

    def start(self) -> None:
        """Begins, and returns at once. May be called once."""

        async def no_listening(number: int) -> None:
            return None

        self._worker.start(self._following.steps(), self._tell, no_listening)

    async def close(self) -> None:
        """Ends the watching."""
        self._closed = True
        self._status = WatchStatus(False, "the watch is closed")
        await self._worker.close()
        async with self._condition:
            self._condition.notify_all()

    @property
    def status(self) -> WatchStatus:
        """The status now."""
        return self._status

    async def next_change(self, limit: float | None = None) -> Change | None:
        """Waits for the next change, for ``limit`` seconds at most, and returns it; None when there is none and when
        the watch is closed. Not to be used together with ``on_change``."""
        if self._on_change is not None:
            raise RuntimeError("this watch hands its changes to on_change")
        if not self._worker.started:
            raise RuntimeError("this watch was not started")
        try:
            async with asyncio.timeout(limit), self._condition:
                await self._condition.wait_for(lambda: self._taken < len(self._due) or self._closed)
                if self._closed:
                    return None
                change = self._due[self._taken]
                self._taken += 1
                if self._taken == len(self._due):
                    self._condition.notify_all()
                return change
        except TimeoutError:
            return None

    async def _tell(self, event: Any) -> None:
        if isinstance(event, WatchStatus):
            self._status = event
            if self._on_status is not None:
                call(self._on_status, event)
        elif self._on_change is not None:
            for change in event:
                call(self._on_change, change)
                await asyncio.sleep(0)  # lets others run, and ends here when closed
        else:
            async with self._condition:
                await self._condition.wait_for(lambda: self._taken == len(self._due))
                self._due, self._taken = event, 0
                self._condition.notify_all()
