"""Holding a name at a name server."""

import socket
import threading
import time
from types import TracebackType
from typing import Any, Callable

from sorvane._callbacks import call, failure_of, listening_failure
from sorvane._holding import Holding, Plan, Wishes
from sorvane._threads import Worker
from sorvane.entries import DEFAULT_PORT, Limits, RegistrationStatus
from sorvane.errors import SorvaneError


class Registration:
    """Holds a name at a name server, on a thread of its own, from ``start`` until ``close``.

    >>> with Registration("db2", listen=lambda number: None) as registration:
    ...     registration.set_state("running")
    ...     registration.number
    20223

    As a context manager it starts, waits until the name is registered, and closes at the end. It raises the reason when
    the name server refuses the name, or cannot be reached within the two limits together.

    A connection that is lost, a name server that hangs and one that was restarted are noticed. The name is then
    registered again by itself, with the same number, and what was set by ``set_state`` and ``set_alert`` is set again.
    Attempts are 0.2 to 2 seconds apart, at random.

    The name belongs to the connection that registered it last. A Registration takes its name over when it starts and
    whenever its own connection was lost, and at no other time: while another connection has the name it waits, and its
    status is "taken". When that one ends, it registers again. It checks this 1 second after it has registered. Each
    pause until the next check is twice as long as the one before, up to ``check_every`` seconds. A name server that
    hangs is noticed after the pause and the limit of a reply.

    ``name`` is the name of the database, ``type`` any text, ``registered_host`` where it listens (the name of this host
    when empty), ``address`` its address, if any.

    ``number`` is the port on which the database listens already, 1 to 65535. With 0 the name server gives one out, and
    ``listen`` is called with it, before clients can find it, to begin to listen there. When it raises an OSError,
    another number is asked for, 100 times at most. It is called until it has returned once.

    ``on_status`` is called whenever the status has changed, ``on_error`` when the name server has not taken a state or
    an alert; it is set again with the next registration. All callbacks run on the thread of the registration, and delay
    it as long as they run. The exceptions of callbacks go to the logger "sorvane".

    Any thread may call the methods. After a fork, only the parent may go on.
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
        self._condition = threading.Condition()
        self._status = RegistrationStatus(number=number)
        self._closed = False

    def __enter__(self) -> "Registration":
        self.start()
        deadline = time.monotonic() + self._limits.connect + self._limits.reply
        try:
            self._wait(deadline, ends_when_refused=True)
        except BaseException:
            self.close()
            raise
        return self

    def __exit__(
        self, kind: type[BaseException] | None, error: BaseException | None, trace: TracebackType | None
    ) -> None:
        self.close()

    def start(self) -> None:
        """Begins, and returns at once. May be called once."""
        self._worker.start(self._holding.steps(), self._tell, self._listen)

    def close(self) -> None:
        """Ends the registration: the connection closes, and the name server forgets the name. Waits for a callback that
        is running, and nothing else."""
        with self._condition:
            self._closed = True
            self._status = RegistrationStatus("away", self._status.number, "the registration is closed")
            self._condition.notify_all()
        self._worker.close()

    @property
    def status(self) -> RegistrationStatus:
        """The status now."""
        with self._condition:
            return self._status

    @property
    def number(self) -> int:
        """The number of this database; 0 as long as there is none."""
        return self.status.number

    def wait_until_registered(self, limit: float) -> int:
        """Waits until the name is registered, for ``limit`` seconds at most, and returns the number. Raises the last
        reason when it is not, and at once after ``close`` and on the thread of the registration."""
        return self._wait(time.monotonic() + limit, ends_when_refused=False)

    def set_state(self, state: str) -> None:
        """Keeps a state for the database, and reports it as soon as the name is registered and whenever it is
        registered again. Of several that come close together the last one is reported. Does not wait; raises
        InvalidValue."""
        self._wishes.set_state(state)
        self._worker.wake()

    def set_alert(self, text: str) -> None:
        """The same for an alert. An hour later it has lapsed, and is not kept any longer."""
        self._wishes.set_alert(text)
        self._worker.wake()

    def _wait(self, deadline: float, ends_when_refused: bool) -> int:
        limit = deadline - time.monotonic()
        with self._condition:
            while self._status.kind != "registered":
                left = deadline - time.monotonic()
                refused = ends_when_refused and self._status.kind == "refused"
                if refused or left <= 0 or self._closed or self._worker.is_here:
                    raise failure_of(self._status, limit)
                self._condition.wait(left)
            return self._status.number

    def _tell(self, event: Any) -> None:
        _, on_status, on_error = self._callbacks
        if isinstance(event, RegistrationStatus):
            with self._condition:
                if self._closed:
                    return
                self._status = event
                self._condition.notify_all()
            if on_status is not None:
                call(on_status, event)
        elif on_error is not None:
            call(on_error, event)

    def _listen(self, number: int) -> str | None:
        listen, _, _ = self._callbacks
        try:
            if listen is not None:
                listen(number)
        except Exception as error:
            return listening_failure(error)
        return None
