"""One connection per remotectrl host, shared by every Tango device of this process that drives it.

The command server serves one client at a time and runs one acquisition at a time, so the
devices of one host cannot each hold a connection: they share a HostLink, looked up by host and
port. A link connects on first use and again on the first use after a failure; any OSError (a
lost connection, no reply within the time-out) closes the connection, so that the next use
starts afresh.

A link starts an acquisition only while none of its own is pending: the host answers the final
line of an acquisition after it has become idle, so a second START sent in that gap would make
the two final lines impossible to tell apart.

Threads: Tango's request threads call in (several devices at once); while an acquisition is
pending one watcher thread polls for its final line. ``_lock`` guards the client and the pending
acquisition, and is never held while an owner's callback runs from the watcher.
"""

import threading
import time
from typing import Callable, Dict, Optional, Tuple, TypeVar

from .client import Client
from .errors import AcquisitionFailed

T = TypeVar("T")

_POLL_INTERVAL = 0.05
_links: Dict[Tuple[str, int], "HostLink"] = {}
_links_lock = threading.Lock()


class Busy(Exception):
    """An acquisition started through this link has not ended yet."""


def attach(host: str, port: int) -> "HostLink":
    """The link to host:port, shared with every other user of it; give it back with detach()."""
    with _links_lock:
        link = _links.setdefault((host, port), HostLink(host, port))
        link.users += 1
        return link


def detach(link: "HostLink", owner: object) -> None:
    """Forgets ``owner``'s acquisition; the last user's detach closes the connection."""
    with _links_lock:
        link.forget(owner)
        link.users -= 1
        if link.users == 0:
            del _links[(link.host, link.port)]
            link.close()


class HostLink:
    def __init__(self, host: str, port: int) -> None:
        self.host = host
        self.port = port
        self.users = 0
        self._lock = threading.Lock()
        self._client: Optional[Client] = None
        self._pending = False
        # The user told of the pending acquisition's end; None once it has been forgotten.
        self._owner: Optional[object] = None

    @property
    def peer(self) -> str:
        return "%s:%d" % (self.host, self.port)

    def call(self, timeout: float, action: Callable[[Client], T]) -> T:
        """Runs action(client) on the connected client; OSError when the host cannot be reached."""
        with self._lock:
            return self._run(timeout, action)

    def start(self, owner, timeout: float, device: int, count: int, exposure: float, file: str, threshold: float) -> None:
        """Starts an acquisition; once the host has accepted it, owner.acquisition_started() is
        called, and owner.acquisition_ended(outcome) when it ends, from the watcher: outcome is
        None for "OK", an AcquisitionFailed, or the ConnectionError that lost it."""
        with self._lock:
            if self._pending:
                raise Busy("an acquisition started through %s has not ended yet" % self.peer)
            self._run(timeout, lambda client: client.start(device, count, exposure, file, threshold, wait=False))
            self._pending, self._owner = True, owner
            owner.acquisition_started()
            threading.Thread(target=self._watch, args=(self._client,), daemon=True).start()

    def stop(self, owner, timeout: float) -> None:
        """Sends STOP() when ``owner``'s acquisition is pending: STOP() aborts whatever the host
        runs, which must not be another user's acquisition."""
        with self._lock:
            if self._pending and self._owner is owner:
                self._run(timeout, Client.stop)

    def forget(self, owner: object) -> None:
        with self._lock:
            if self._owner is owner:
                self._owner = None

    def close(self) -> None:
        with self._lock:
            self._drop()

    def _run(self, timeout, action):
        if self._client is None:
            self._client = Client(self.host, self.port, timeout)
        self._client.timeout = timeout
        try:
            return action(self._client)
        except OSError:
            self._drop()
            raise

    def _drop(self):
        if self._client is not None:
            self._client.close()
            self._client = None

    def _watch(self, client):
        while True:
            time.sleep(_POLL_INTERVAL)
            with self._lock:
                try:
                    if self._client is not client:
                        raise ConnectionError("lost the connection to %s" % self.peer)
                    client.wait_acquisition(timeout=0)
                    outcome = None
                except TimeoutError:
                    continue
                except (AcquisitionFailed, ConnectionError) as ended:
                    outcome = ended
                    if isinstance(ended, ConnectionError) and self._client is client:
                        self._drop()
                owner, self._owner, self._pending = self._owner, None, False
            if owner is not None:
                owner.acquisition_ended(outcome)
            return
