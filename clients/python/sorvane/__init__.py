"""A client of the name server of the Sorvane database product.

A name server runs on each host. Database servers register with it under a name, and programs ask it where the database
of that name listens. Three classes do that:

- ``Client`` asks: is it there, where is a database, what is registered, what are the states;
- ``Registration`` holds a name at the name server until it is closed;
- ``Watch`` tells each change of what is registered.

``sorvane.aio`` has the same three for asyncio. All errors are a ``SorvaneError``, with a reason in words.
"""

from sorvane.client import Client
from sorvane.entries import (
    DEFAULT_PORT,
    Change,
    Entry,
    HostInfo,
    Limits,
    RegistrationStatus,
    WatchStatus,
    reachable_host,
)
from sorvane.errors import (
    ConnectionLost,
    InvalidValue,
    NoReply,
    ProtocolError,
    Refused,
    SorvaneError,
    Unreachable,
    Unsupported,
)
from sorvane.registration import Registration
from sorvane.watch import Watch

__version__ = "1.0.0"

__all__ = [
    "DEFAULT_PORT",
    "Change",
    "Client",
    "ConnectionLost",
    "Entry",
    "HostInfo",
    "InvalidValue",
    "Limits",
    "NoReply",
    "ProtocolError",
    "Refused",
    "Registration",
    "RegistrationStatus",
    "SorvaneError",
    "Unreachable",
    "Unsupported",
    "Watch",
    "WatchStatus",
    "reachable_host",
]
