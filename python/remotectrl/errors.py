"""The package's exceptions; every one is a RemoteCtrlError.

ReplyTimeout and ConnectionFailed are also the built-in TimeoutError and ConnectionError (both
OSError), so ``except TimeoutError`` and ``except OSError`` catch them as before. Arguments of a
wrong type raise the built-in TypeError, values the command language cannot carry ValueError;
neither is a RemoteCtrlError, since nothing was sent.
"""


class RemoteCtrlError(Exception):
    """Base of every exception that a session with the server raises."""


class RemoteError(RemoteCtrlError):
    """The server refused a command; ``reply`` holds its line, e.g. "ERROR: INVALID DEVICE INDEX"."""

    def __init__(self, reply: str) -> None:
        super().__init__(reply)
        self.reply = reply


class AcquisitionFailed(RemoteError):
    """An accepted START ended with "ERROR: ACQUISITION FAILED" (also after stop())."""


class ProtocolError(RemoteCtrlError):
    """The server answered what the command cannot have (``reply`` holds the lines), or sent more
    than any server would (a line over 4 KiB, more than 1024 lines in one call), which closes the
    connection."""

    def __init__(self, message: str, reply: str = "") -> None:
        super().__init__(message)
        self.reply = reply


class ReplyTimeout(RemoteCtrlError, TimeoutError):
    """No complete answer within the time-out; the connection stays usable and late replies go
    to the command that gave up."""


class ConnectionFailed(RemoteCtrlError, ConnectionError):
    """The server cannot be reached, the connection broke or was closed, or the session ended."""


class CertificateRefused(ConnectionFailed):
    """The TLS server refused this client's certificate (none, another authority's, expired, or
    not among its allowed clients); the connection is closed."""
