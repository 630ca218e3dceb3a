"""Watching the databases of a name server."""

import threading
import time
from types import TracebackType
from typing import Any, Callable, Iterator

from sorvane._callbacks import call
from sorvane._following import Following
from sorvane._threads import Closing, Worker
from sorvane.entries import DEFAULT_PORT, Change, Limits, WatchStatus
from sorvane.errors import InvalidValue


class Watch:
    """Tells each change of the databases of a name server: those that ``Client.list`` lists.

    >>> with Watch() as watch:
    ...     for change in watch:
    ...         print(change.kind, change.entry.name, change.entry.number)
    ...         break
    registered db1 20222

    It first tells what is there, as "registered". When the connection was lost, it connects again, 0.2 to 2 seconds
    apart at random, and then tells only what is different. Nothing counts as gone because the name server is away.
    Changes that come close together are told as one. An alert that lapses is no change.

    A change is told as soon as the name server knows it. One of an earlier version is asked every ``poll_every``
    seconds. A name server that hangs is noticed after 10 seconds and the limit of a reply.

    The changes are taken by iterating, by ``next_change``, or by ``on_change``, which is called for each of them. Who
    takes them slowly gets several as one. ``on_status`` is called whenever the status has changed. Callbacks run on the
    thread of the watch. Their exceptions go to the logger "sorvane".

    Any thread may call the methods. After a fork, only the parent may go on.
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
        self._condition = threading.Condition()
        self._status = WatchStatus()
        self._due: list[Change] = []
        self._taken = 0
        self._closed = False

    def __enter__(self) -> "Watch":
        self.start()
        return self

    def __exit__(
        self, kind: type[BaseException] | None, error: BaseException | None, trace: TracebackType | None
    ) -> None:
        self.close()

    def __iter__(self) -> Iterator[Change]:
        """Tells changes until the watch is closed."""
        while (change := self.next_change()) is not None:
            yield change

    def start(self) -> None:
        """Begins, and returns at once. May be called once."""
        self._worker.start(self._following.steps(), self._tell, lambda number: None)

    def close(self) -> None:
        """Ends the watching. Waits for a callback that is running, and nothing else."""
        with self._condition:
            self._closed = True
            self._status = WatchStatus(False, "the watch is closed")
            self._condition.notify_all()
        self._worker.close()

    @property
    def status(self) -> WatchStatus:
        """The status now."""
        with self._condition:
            return self._status

    def next_change(self, limit: float | None = None) -> Change | None:
        """Waits for the next change, for ``limit`` seconds at most, and returns it; None when there is none and when
        the watch is closed. Not to be used together with ``on_change``."""
        if self._on_change is not None:
            raise RuntimeError("this watch hands its changes to on_change")
        if not self._worker.started:
            raise RuntimeError("this watch was not started")
        deadline = None if limit is None else time.monotonic() + limit
        with self._condition:
            while self._taken == len(self._due) and not self._closed:
                left = None if deadline is None else deadline - time.monotonic()
                if left is not None and left <= 0:
                    return None
                self._condition.wait(left)
            if self._closed:
                return None
            change = self._due[self._taken]
            self._taken += 1
            if self._taken == len(self._due):
                self._condition.notify_all()
            return change

    def _tell(self, event: Any) -> None:
        if isinstance(event, WatchStatus):
            with self._condition:
                if self._closed:
                    return
                self._status = event
            if self._on_status is not None:
                call(self._on_status, event)
        elif self._on_change is not None:
            for change in event:
                if self._worker.closing:
                    raise Closing
                call(self._on_change, change)
        else:
            self._hand_over(event)

    def _hand_over(self, changes: list[Change]) -> None:
        """Waits until all changes before these are taken, so that no more than one list of them is kept."""
        with self._condition:
            while self._taken < len(self._due) and not self._closed:
                self._condition.wait()
            if self._closed:
                raise Closing
            self._due, self._taken = changes, 0
            self._condition.notify_all()
