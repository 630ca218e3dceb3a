"""Holding a name at a name server."""

import asyncio
import inspect
import socket
from types import TracebackType
from typing import Any, Callable

from sorvane._callbacks import call, failure_of, listening_failure
from sorvane._holding import Holding, Plan, Wishes
from sorvane.aio._tasks import Worker
from sorvane.entries import DEFAULT_PORT, Limits, RegistrationStatus
from sorvane.errors import SorvaneError


class Registration:
    """Holds a name at a name server, in a task of its own. It does what ``sorvane.Registration`` does.

    >>> async def hold(name):
    ...     async with Registration(name) as registration:
    ...         registration.set_state("running")
    ...         return registration.number
    >>> asyncio.run(hold("db3"))
    20224

    ``listen`` may return an awaitable, such as that of ``asyncio.start_server``, which is awaited. The other callbacks
    are plain functions.
    """

    def __init__(
        self,
        name: str,
        host: str = "localhost",
        port: int = DEFAULT_PORT,
        *,
        type: str = "database",
        registered_host: str = "",
        address: str = "",
        number: int = 0,
        listen: Callable[[int], object] | None = None,
        on_status: Callable[[RegistrationStatus], object] | None = None,
        on_error: Callable[[SorvaneError], object] | None = None,
        check_every: float = 10.0,
        limits: Limits = Limits(),
    ) -> None:
        plan = Plan(name, type, registered_host or socket.gethostname(), address, number, check_every)
        self._wishes = Wishes(name)
        self._holding = Holding(plan, self._wishes)
        self._worker = Worker(host, port, limits, f"sorvane registration of {name}")
        self._limits = limits
        self._callbacks = (listen, on_status, on_error)
        self._condition = asyncio.Condition()
        self._status = RegistrationStatus(number=number)
        self._closed = False

    async def __aenter__(self) -> "Registration":
        self.start()
        try:
            await self._wait(self._limits.connect + self._limits.reply, ends_when_refused=True)
        except BaseException:
            await self.close()
            raise
        return self

    async def __aexit__(
        self, kind: type[BaseException] | None, error: BaseException | None, trace: TracebackType | None
    ) -> None:
        await self.close()

    def start(self) -> None:
        """Begins, and returns at once. May be called once."""
        self._worker.start(self._holding.steps(), self._tell, self._listen)

    async def close(self) -> None:
        """Ends the registration: the connection closes, and the name server forgets the name."""
        self._closed = True
        self._status = RegistrationStatus("away", self._status.number, "the registration is closed")
        await self._worker.close()
        async with self._condition:
            self._condition.notify_all()

    @property
    def status(self) -> RegistrationStatus:
        """The status now."""
        return self._status

    @property
    def number(self) -> int:
        """The number of this database; 0 as long as there is none."""
        return self._status.number

    async def wait_until_registered(self, limit: float) -> int:
        """Waits until the name is registered, for ``limit`` seconds at most, and returns the number. Raises the last
        reason when it is not, and at once after ``close`` and in the task of the registration."""
        return await self._wait(limit, ends_when_refused=False)

    def set_state(self, state: str) -> None:
        """Keeps a state for the database; see ``sorvane.Registration.set_state``."""
        self._wishes.set_state(state)
        self._worker.wake()

    def set_alert(self, text: str) -> None:
        """Keeps an alert for the database; see ``sorvane.Registration.set_alert``."""
        self._wishes.set_alert(text)
        self._worker.wake()

    async def _wait(self, limit: float, ends_when_refused: bool) -> int:
        def is_over() -> bool:
            refused = ends_when_refused and self._status.kind == "refused"
            return self._status.kind == "registered" or refused or self._closed or self._worker.is_here

        try:
            async with asyncio.timeout(limit), self._condition:
                await self._condition.wait_for(is_over)
        except TimeoutError:
            pass
        if self._status.kind != "registered":
            raise failure_of(self._status, limit)
        return self._status.number

    async def _tell(self, event: Any) -> None:
        _, on_status, on_error = self._callbacks
        if isinstance(event, RegistrationStatus):
            async with self._condition:
                self._status = event
                self._condition.notify_all()
            if on_status is not None:
                call(on_status, event)
        elif on_error is not None:
            call(on_error, event)

    async def _listen(self, number: int) -> str | None:
        listen, _, _ = self._callbacks
        try:
            if listen is not None:
                result = listen(number)
                if inspect.isawaitable(result):
                    await result
        except Exception as error:
            return listening_failure(error)
        return None
