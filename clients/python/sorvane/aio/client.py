"""Asking a name server."""

import asyncio
from types import TracebackType
from typing import Callable, Mapping

from sorvane import _questions
from sorvane._frames import text_of
from sorvane._steps import Steps, T, ask
from sorvane.aio._tasks import Wire, answered
from sorvane.entries import DEFAULT_PORT, Entry, Here, HostInfo, Limits, reachable_host


class Client:
    """A connection to a name server that is asked. It does what ``sorvane.Client`` does.

    >>> async def number_of(name):
    ...     async with Client() as client:
    ...         database = await client.find(name)
    ...         return database.number
    >>> asyncio.run(number_of("db1"))
    20222

    It connects in ``async with``, or with the first question. Several tasks may ask; one question waits for the
    other. A question that is cancelled closes the connection, and the next one connects again.
    """

    def __init__(self, host: str = "localhost", port: int = DEFAULT_PORT, *, limits: Limits = Limits()) -> None:
        self._lock = asyncio.Lock()
        self._limits = limits
        self._wire = Wire(host, port, limits)

    async def __aenter__(self) -> "Client":
        await self._wire.connect()
        return self

    async def __aexit__(
        self, kind: type[BaseException] | None, error: BaseException | None, trace: TracebackType | None
    ) -> None:
        await self.close()

    async def close(self) -> None:
        """Closes the connection. A later call connects again."""
        async with self._lock:
            self._wire.drop()

    async def ping(self) -> None:
        """Asks whether the name server answers."""
        await self._answer(lambda here: _questions.ping())

    async def find(self, name: str) -> Entry | None:
        """Finds a database; see ``sorvane.Client.find``."""
        return await self._answer(lambda here: _questions.find(here, name))

    def reachable_host(self, entry: Entry) -> str:
        """The host at which a database is reached; see ``sorvane.Client.reachable_host``."""
        return reachable_host(entry, self._wire.host)

    async def list(self) -> list[Entry]:
        """Lists the databases, ordered by name; see ``sorvane.Client.list``."""
        return await self._answer(lambda here: _questions.list_databases(here, self._limits))

    async def states(self) -> dict[str, str]:
        """The state of each database; see ``sorvane.Client.states``."""
        return await self._answer(lambda here: _questions.states())

    async def alerts(self) -> dict[str, str]:
        """The alert of each database that had one within the last hour; see ``sorvane.Client.alerts``."""
        return await self._answer(lambda here: _questions.alerts())

    async def set_state(self, name: str, state: str) -> None:
        """Reports the state of a database. That there is such a database is not checked."""
        await self._answer(lambda here: _questions.set_state(name, state))

    async def set_alert(self, name: str, text: str) -> None:
        """Raises an alert for a database. It lapses after an hour."""
        await self._answer(lambda here: _questions.set_alert(name, text))

    async def host_info(self) -> HostInfo:
        """Asks about the host of the name server. Raises Refused when it serves its own machine only."""
        return await self._answer(_questions.host_info)

    async def forget(self, name: str) -> None:
        """Takes out a name that was left behind; see ``sorvane.Client.forget``."""
        await self._answer(lambda here: _questions.forget(name))

    async def ask(self, request: Mapping[str, str]) -> dict[str, str] | None:
        """Sends any request of docs/protocol.md, with texts as values, and returns the texts of the reply; None for "no
        dictionary"."""
        reply = await self._answer(lambda here: ask(request))
        return None if reply is None else {key: text_of(reply, key) or "" for key in reply}

    async def _answer(self, question: Callable[[Here], Steps[T]]) -> T:
        async with self._lock:
            if not self._wire.connected:
                await self._wire.connect()
            return await answered(question(self._wire.here), self._wire)
