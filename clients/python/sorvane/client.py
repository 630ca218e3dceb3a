"""Asking a name server."""

import threading
from types import TracebackType
from typing import Callable, Mapping

from sorvane import _questions
from sorvane._frames import text_of
from sorvane._steps import Steps, T, ask
from sorvane._threads import Wire, answered
from sorvane.entries import DEFAULT_PORT, Entry, Here, HostInfo, Limits, reachable_host


class Client:
    """A connection to a name server that is asked. A call waits for its reply.

    >>> with Client() as client:
    ...     client.find("db1")
    Entry(name='db1', number=20222, host='dbhost', address='', type='database', state='', alert='', alert_time=None,
          left=False)

    It connects when it is made. After an error of the connection, and after the name server was restarted, the next
    call connects again. No request is ever sent twice by itself.

    Every call raises a SorvaneError when there is no answer. Any thread may call; one call waits for the other.

    ``host`` is a name or an address, without a port.
    """

    def __init__(self, host: str = "localhost", port: int = DEFAULT_PORT, *, limits: Limits = Limits()) -> None:
        self._lock = threading.Lock()
        self._limits = limits
        self._wire = Wire(host, port, limits)
        self._wire.connect()

    def __enter__(self) -> "Client":
        return self

    def __exit__(
        self, kind: type[BaseException] | None, error: BaseException | None, trace: TracebackType | None
    ) -> None:
        self.close()

    def close(self) -> None:
        """Closes the connection. A later call connects again."""
        with self._lock:
            self._wire.drop()

    def ping(self) -> None:
        """Asks whether the name server answers."""
        self._answer(lambda here: _questions.ping())

    def find(self, name: str) -> Entry | None:
        """Finds a database. The entry has number, host and type. None means that no such name is registered."""
        return self._answer(lambda here: _questions.find(here, name))

    def reachable_host(self, entry: Entry) -> str:
        """Returns the host at which a database that this name server told of is reached: its registered host, or the
        host of the name server if it registered none or a loopback name."""
        return reachable_host(entry, self._wire.host)

    def list(self) -> list[Entry]:
        """Lists the databases, ordered by name: all names except the name server's own and that of the launcher.

        A name server of an earlier version is asked for each name. It tells neither addresses nor the times of alerts,
        and of names with ":" or "|" nothing."""
        return self._answer(lambda here: _questions.list_databases(here, self._limits))

    def states(self) -> dict[str, str]:
        """The state of each database; "running" if none was reported. Names with ":" or "|" are told wrongly."""
        return self._answer(lambda here: _questions.states())

    def alerts(self) -> dict[str, str]:
        """The alert of each database that had one within the last hour. Names as for ``states``."""
        return self._answer(lambda here: _questions.alerts())

    def set_state(self, name: str, state: str) -> None:
        """Reports the state of a database. That there is such a database is not checked."""
        self._answer(lambda here: _questions.set_state(name, state))

    def set_alert(self, name: str, text: str) -> None:
        """Raises an alert for a database. It lapses after an hour."""
        self._answer(lambda here: _questions.set_alert(name, text))

    def host_info(self) -> HostInfo:
        """Asks about the host of the name server. Raises Refused when it serves its own machine only."""
        return self._answer(_questions.host_info)

    def forget(self, name: str) -> None:
        """Takes out a name that was left behind (``Entry.left``). Raises Refused when there is no such name, when its
        connection lives, and when it is the name server's own; Unsupported when the name server lacks the request."""
        self._answer(lambda here: _questions.forget(name))

    def ask(self, request: Mapping[str, str]) -> dict[str, str] | None:
        """Sends any request of docs/protocol.md, with texts as values, and returns the texts of the reply; None for "no
        dictionary"."""
        reply = self._answer(lambda here: ask(request))
        return None if reply is None else {key: text_of(reply, key) or "" for key in reply}

    def _answer(self, question: Callable[[Here], Steps[T]]) -> T:
        with self._lock:
            if not self._wire.connected:
                self._wire.connect()
            return answered(question(self._wire.here), self._wire)
