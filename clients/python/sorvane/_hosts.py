"""Hosts, as they are named and as they see each other. No input or output happens here."""

import errno
import ipaddress
import os
import socket
from typing import Any, Sequence

from sorvane.entries import Here
from sorvane.errors import InvalidValue


def checked_server(host: str, port: int) -> str:
    """Returns how a name server is named in reasons. Raises InvalidValue when there can be none."""
    if not host or "\0" in host or not 1 <= port <= 65535:
        raise InvalidValue(f"a name server has a host and a port from 1 to 65535, not {host[:100]!r} and {port}")
    return f"{host} port {port}"


def here_of(own: Sequence[Any], peer: Sequence[Any]) -> Here:
    """What to tell the name server at the other end of a connection about this host. A connection that a port of this
    host has made to itself is none: that happens where nothing listens on a port that the system gives out."""
    if own[:2] == peer[:2]:
        raise ConnectionRefusedError(errno.ECONNREFUSED, os.strerror(errno.ECONNREFUSED))
    if own[0] == peer[0]:
        return Here("localhost", "127.0.0.1")
    return Here(socket.gethostname(), own[0])


def is_address(host: str) -> bool:
    """True for an address, which needs no look-up."""
    try:
        ipaddress.ip_address(host)
    except ValueError:
        return False
    return True
