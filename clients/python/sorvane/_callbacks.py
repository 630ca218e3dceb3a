"""What a program hands in, and what it gets to hear. No input or output happens here."""

import logging
from typing import Any, Callable

from sorvane.entries import RegistrationStatus
from sorvane.errors import NoReply, Refused, SorvaneError, Unreachable

_log = logging.getLogger("sorvane")


def call(callback: Callable[..., Any], *arguments: Any) -> None:
    """Calls a callback of the program. Its exception goes to the log, and ends nothing."""
    try:
        callback(*arguments)
    except Exception:
        _log.exception("a callback has raised")


def listening_failure(error: Exception) -> str:
    """The reason in words why ``listen`` has raised. What is no OSError is a mistake, and goes to the log."""
    if not isinstance(error, OSError):
        _log.error("listen has raised", exc_info=error)
    return f"{type(error).__name__}: {error}"


def failure_of(status: RegistrationStatus, limit: float) -> SorvaneError:
    """The error that tells why a name is not registered."""
    if status.kind in ("refused", "taken"):
        return Refused(status.reason)
    if status.reason:
        return Unreachable(status.reason)
    return NoReply(f"the name was not registered within {limit:g} s")
