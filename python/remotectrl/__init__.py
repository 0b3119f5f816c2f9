"""Python client for the remotectrl command server (standard library only).

    from remotectrl import Client
    with Client(port=59876) as c:
        c.start(0, 10, 0.1, "run.txt", 10)    # returns when the acquisition has ended
        print(c.gui_is_running(0))

remotectrl.tango holds RemoteCtrlDS, a Tango device server built on the client (needs PyTango).
"""

from .client import DEFAULT_PORT, Client
from .errors import AcquisitionFailed, RemoteError

__version__ = "0.1.0"

__all__ = ["Client", "RemoteError", "AcquisitionFailed", "DEFAULT_PORT", "__version__"]
