"""What the parts without input and output ask for: they are generators of steps, which threads or asyncio carry out.

A step's outcome is sent into the generator. When a step fails, the SorvaneError is raised in the generator instead, and
the connection is closed.
"""

import random
from dataclasses import dataclass
from typing import Any, Generator, Mapping, Sequence, TypeVar, Union

from sorvane._frames import Reply, encode_request

T = TypeVar("T")


@dataclass(frozen=True)
class Connect:
    """Connect anew. The outcome is a Here."""


@dataclass(frozen=True)
class Ask:
    """Send requests, and wait for the reply to each. The outcome is a list of the replies."""

    requests: Sequence[bytes]
    patience: float = 0.0
    """Seconds that the name server may hold a reply, beyond the limit of every reply."""


@dataclass(frozen=True)
class Idle:
    """Wait with nothing to ask, until woken or for some seconds. Fails when the connection ends."""

    seconds: float


@dataclass(frozen=True)
class Pause:
    """Wait for some seconds without a connection."""

    seconds: float


@dataclass(frozen=True)
class Tell:
    """Hand something over to the program."""

    event: Any


@dataclass(frozen=True)
class Listen:
    """Let the database begin to listen. The outcome is the reason in words why it cannot, or None."""

    number: int


Step = Union[Connect, Ask, Idle, Pause, Tell, Listen]
Steps = Generator[Step, Any, T]


def ask(texts: Mapping[str, str], patience: float = 0.0) -> Steps[Reply]:
    """Asks one question."""
    replies: list[Reply] = yield Ask([encode_request(texts)], patience)
    return replies[0]


def next_attempt() -> Pause:
    """The pause before the next attempt to connect. It is random, so that all who have lost a name server do not come
    back to it at the same time."""
    return Pause(random.uniform(0.2, 2.0))
