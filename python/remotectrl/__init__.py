"""Python client for the remotectrl command server (standard library only).

    from remotectrl import Client
    with Client(port=59876) as c:
        c.start(0, 10, 0.1, "run.txt", 10)    # returns when the acquisition has ended
        print(c.gui_is_running(0))

Every exception it raises is a RemoteCtrlError (see remotectrl.errors).
remotectrl.tango holds RemoteCtrlDS, a Tango device server built on the client (needs PyTango).
"""

from ._version import __version__
from .client import DEFAULT_PORT, Client, FileName, Progress
from .errors import (
    AcquisitionFailed,
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
    "__version__",
]
