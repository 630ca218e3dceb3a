"""What can go wrong. Each error has a reason in words: ``str(error)``."""


class SorvaneError(Exception):
    """Base of all errors of this package."""


class InvalidValue(SorvaneError, ValueError):
    """What was given cannot be sent: a NUL, a lone surrogate, no name, a number out of range, too long a request."""


class Unreachable(SorvaneError, ConnectionError):
    """The host is unknown, or there is no connection to its name server."""


class ConnectionLost(SorvaneError, ConnectionError):
    """The connection ended before the reply. Whether the request was carried out is not known."""


class NoReply(SorvaneError, TimeoutError):
    """The limit for connecting or for a reply is over. Whether the request was carried out is not known."""


class ProtocolError(SorvaneError):
    """What came is no reply of a name server."""


class Refused(SorvaneError):
    """The name server said no, and nothing has changed."""


class Unsupported(SorvaneError):
    """The name server is of an earlier version, which lacks the request."""
