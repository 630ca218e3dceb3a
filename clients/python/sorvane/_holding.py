"""The logic of a registration: what it sends, what it looks after, what it tells. No input or output happens here."""

import threading
import time
from dataclasses import dataclass
from typing import Callable

from sorvane import _questions
from sorvane._frames import encode_request
from sorvane._steps import Connect, Idle, Listen, Steps, Tell, next_attempt
from sorvane.entries import Here, RegistrationStatus
from sorvane.errors import InvalidValue, Refused, SorvaneError

LISTEN_ATTEMPTS = 100
ALERT_SECONDS = 3600.0
FIRST_CHECK_SECONDS = 1.0


@dataclass(frozen=True)
class Plan:
    """What is to be registered. Raises InvalidValue when that is not possible."""

    name: str
    type: str
    host: str
    address: str
    number: int
    check_every: float

    def __post_init__(self) -> None:
        _questions.checked_name(self.name)
        if not 0 <= self.number <= 65535:
            raise InvalidValue("the number of a port is 1 to 65535, or 0 for one that the name server gives out")
        if not self.check_every > 0:
            raise InvalidValue("the time between two checks is above 0")
        encode_request({"": self.name + self.type + self.host + self.address})


class Wishes:
    """The state and the alert that the name server should have. Any thread may set them."""

    def __init__(self, name: str, clock: Callable[[], float] = time.monotonic) -> None:
        self._name = name
        self._clock = clock
        self._lock = threading.Lock()
        self._state: str | None = None
        self._alert: str | None = None
        self._alert_since = 0.0
        self._due: set[str] = set()

    def set_state(self, state: str) -> None:
        encode_request({"": self._name + state})
        with self._lock:
            self._state = state
            self._due.add("state")

    def set_alert(self, text: str) -> None:
        encode_request({"": self._name + text})
        with self._lock:
            self._alert = text
            self._alert_since = self._clock()
            self._due.add("alert")

    def take(self, again: bool) -> tuple[str | None, str | None]:
        """Returns the state and the alert to send, None for what need not be sent: what was set since the last time, or
        all when `again` is true. An alert is over after an hour."""
        with self._lock:
            if self._alert is not None and self._clock() - self._alert_since >= ALERT_SECONDS:
                self._alert = None
            state = self._state if again or "state" in self._due else None
            alert = self._alert if again or "alert" in self._due else None
            self._due.clear()
            return state, alert


class Holding:
    """Holds a name at a name server: connects, registers, checks, and so on, for ever."""

    def __init__(self, plan: Plan, wishes: Wishes, clock: Callable[[], float] = time.monotonic) -> None:
        self._plan = plan
        self._wishes = wishes
        self._clock = clock
        self._pause = 0.0  # seconds until the next check; set by each registering
        self._number = plan.number
        self._listening = plan.number != 0
        self._status = RegistrationStatus(number=plan.number)

    def steps(self) -> Steps[None]:
        """Tells each RegistrationStatus that differs from the one before, and each SorvaneError of a state or an alert
        that was not taken."""
        while True:
            try:
                here: Here = yield Connect()
                yield from self._register()
                while True:
                    yield from self._follow_wishes(self._clock() + self._pause)
                    self._pause = min(2 * self._pause, self._plan.check_every)
                    yield from self._check(here)
            except Refused as error:
                yield from self._tell(RegistrationStatus("refused", self._number, str(error)))
            except SorvaneError as error:
                yield from self._tell(RegistrationStatus("away", self._number, str(error)))
            yield next_attempt()

    def _tell(self, status: RegistrationStatus) -> Steps[None]:
        if status != self._status:
            self._status = status
            yield Tell(status)

    def _register(self) -> Steps[None]:
        plan = self._plan
        # Connections that were given up before may end soon, and take the name with them.
        self._pause = min(FIRST_CHECK_SECONDS, plan.check_every)
        if self._listening:
            yield from _questions.reconnect(plan.name, self._number, plan.host, plan.type, plan.address)
        else:
            yield from self._begin_to_listen()
            yield from _questions.accept()
        yield from self._tell(RegistrationStatus("registered", self._number))
        yield from self._send_wishes(again=True)

    def _begin_to_listen(self) -> Steps[None]:
        plan = self._plan
        reason: str | None = None
        for _ in range(LISTEN_ATTEMPTS):
            number = yield from _questions.new_number(plan.name, plan.host, plan.type, plan.address)
            reason = yield Listen(number)
            if reason is None:
                self._number = number
                self._listening = True
                return
        raise Refused(f"listening failed on {LISTEN_ATTEMPTS} numbers: {reason}")

    def _follow_wishes(self, end: float) -> Steps[None]:
        """Sends what is set, until a time of the clock."""
        while True:
            yield Idle(max(end - self._clock(), 0.0))
            yield from self._send_wishes(again=False)
            if self._clock() >= end:
                return

    def _send_wishes(self, again: bool) -> Steps[None]:
        state, alert = self._wishes.take(again)
        try:
            if state is not None:
                yield from _questions.set_state(self._plan.name, state)
        except Refused as error:
            yield Tell(error)
        try:
            if alert is not None:
                yield from _questions.set_alert(self._plan.name, alert)
        except Refused as error:
            yield Tell(error)

    def _check(self, here: Here) -> Steps[None]:
        """Registers again when the name server has forgotten the name: it forgets one with any connection that had it,
        also with one that this host has long given up."""
        try:
            entry = yield from _questions.find(here, self._plan.name)
        except Refused:
            return  # it does not tell us where databases are, and serves
        if entry is None:
            yield from self._register()
        elif (entry.number, entry.host) != (self._number, self._plan.host):
            reason = f"another connection has registered the name, with number {entry.number} on {entry.host[:100]!r}"
            yield from self._tell(RegistrationStatus("taken", self._number, reason))
        else:
            yield from self._tell(RegistrationStatus("registered", self._number))
