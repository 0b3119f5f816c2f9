"""Python client for the remotectrl command server (standard library only).

    from remotectrl import Client
    with Client(port=59876) as c:
        c.start(0, 10, 0.1, "run.txt", 10)    # returns when the acquisition has ended
        print(c.gui_is_running(0))

Over TLS: ``Client(..., ssl_context=tls_context("ca.pem", "client.pem", "client.key"))``.
Every exception a session raises is a RemoteCtrlError (see remotectrl.errors); tls_context()
raises OSError or TlsFileError (a ValueError) naming the file.
remotectrl.tango holds RemoteCtrlDS, a Tango device server built on the client (needs PyTango).
"""

from ._tls import TlsFileError, tls_context
from ._version import __version__
from .client import DEFAULT_PORT, Client, FileName, Progress
from .errors import (
    AcquisitionFailed,
    CertificateRefused,
    ConnectionFailed,
    ProtocolError,
    RemoteCtrlError,
    RemoteError,
    ReplyTimeout,
)

__all__ = [
    "Client",
    "DEFAULT_PORT",
    "FileName",
    "Progress",
    "RemoteCtrlError",
    "RemoteError",
    "AcquisitionFailed",
    "ProtocolError",
    "ReplyTimeout",
    "ConnectionFailed",
    "CertificateRefused",
    "tls_context",
    "TlsFileError",
    "__version__",
]
