"""What a name server tells: values, without any connection to it."""

import ipaddress
from dataclasses import dataclass, field
from datetime import datetime
from typing import Final, Literal

DEFAULT_PORT: Final = 20221
"""The port of a name server, unless the settings of its host say otherwise."""


@dataclass(frozen=True)
class Limits:
    """How long to wait for a name server, and how much to keep of what it tells."""

    connect: float = 5.0
    """Seconds for resolving the host and connecting, in all."""
    reply: float = 10.0
    """Seconds from a request to the end of its reply."""
    picture_bytes: int = 512 << 20
    """The memory, in bytes, that what a Watch or ``list`` knows of the databases may take."""

    def __post_init__(self) -> None:
        if not (0 < self.connect and 0 < self.reply and 0 < self.picture_bytes):
            raise ValueError("a limit is above 0")


@dataclass(frozen=True)
class Entry:
    """What is registered under a name. What is not known is empty, 0 or None."""

    name: str
    number: int = 0
    """The port on which the database listens, 1 to 65535; 0 if none was registered."""
    host: str = ""
    """The host of the database as registered; see ``reachable_host``."""
    address: str = ""
    """Its address as registered."""
    type: str = ""
    """Such as "database"."""
    state: str = ""
    """Such as "running"; empty if none was reported."""
    alert: str = ""
    """The last alert. It lapses an hour after ``alert_time``."""
    alert_time: datetime | None = None
    """When the alert was raised."""
    left: bool = False
    """True when the connection that registered the name has ended and the name was left behind."""


@dataclass(frozen=True)
class Change:
    """A change of what is registered."""

    kind: Literal["registered", "changed", "gone"]
    """"registered": the name is new. "changed": its entry is different now. "gone": it is no longer registered."""
    entry: Entry
    """What is known of the name now, or, for "gone", what was known last."""


@dataclass(frozen=True)
class HostInfo:
    """What a name server tells of its host."""

    name: str
    hardware_address: str
    """Such as "02:00:5e:10:00:07"."""
    address: str
    version: str
    """The version of the name server."""
    platform: str
    """Its operating system."""


@dataclass(frozen=True)
class RegistrationStatus:
    """How a registration stands."""

    kind: Literal["away", "refused", "registered", "taken"] = "away"
    """"away": there is no connection to the name server, or none yet. "refused": the name server said no, or listening
    failed. "registered": the name is registered with ``number``. "taken": another connection has the name now."""
    number: int = 0
    """The number of this database, 1 to 65535; 0 as long as there is none."""
    reason: str = ""
    """In words; empty when registered."""


@dataclass(frozen=True)
class WatchStatus:
    """How a watch stands."""

    current: bool = False
    """True when all that is there has been told."""
    reason: str = ""
    """In words why not; empty when current."""


@dataclass(frozen=True)
class Here:
    """This host, as a name server at the other end of a connection should see it."""

    host: str
    address: str


@dataclass(frozen=True)
class Place:
    """Up to where the changes of a name server are known."""

    instance: str
    since: str


@dataclass
class Page:
    """A reply to "portChanges"."""

    place: Place
    more: bool
    restart: bool
    entries: dict[str, Entry | None] = field(default_factory=dict)
    """What was told of each name; None for one that is gone."""
    weight: int = 0
    """About the memory that the entries take, in bytes."""


def is_loopback(host: str) -> bool:
    """True for a name or an address by which every host means itself."""
    name = host.lower().rstrip(".")
    if name in ("localhost", "ip6-localhost", "ip6-loopback"):
        return True
    if name.startswith("localhost.") or name.endswith(".localhost"):
        return True
    try:
        return ipaddress.ip_address(name).is_loopback
    except ValueError:
        return False


def reachable_host(entry: Entry, server: str) -> str:
    """Returns the host at which a database is reached that the name server on the host ``server`` told of: its
    registered host, or ``server`` if it registered none or a loopback name.

    >>> reachable_host(Entry("db1", 20222, "dbhost"), "hub")
    'dbhost'
    >>> reachable_host(Entry("db1", 20222, "localhost"), "hub")
    'hub'
    """
    return server if not entry.host or is_loopback(entry.host) else entry.host
