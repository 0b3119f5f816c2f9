"""One connection per remotectrl host, shared by every Tango device of this process that drives
it, and the one thread that does all of its talking.

The command server serves one client at a time and runs one acquisition at a time, so the
devices of one host cannot each hold a connection: they attach to one HostLink, looked up by host
and port, under their device names. The link speaks TLS when its first device gives Tls files;
a device that gives other files (or none against some) for the same host and port is refused
with TlsConflict, rather than given a second connection, which would wait behind the first
for as long as that one lives. The files are read at every connect.

Threads: each link has one thread, the only one that touches its Client. It connects, runs the
devices' requests one after another, looks for the final line of the acquisition it started, and
checks that an idle host still answers. Callers (Tango's request threads) hand it a request and
wait for it at most their own time-out. So a host that hangs delays only the requests to its own
devices, each by at most that time-out, nothing waits for a host when a device attaches, and the
threads grow with hosts, not with acquisitions. ``_lock`` guards what callers and the thread share
(the listeners, the host's reach, the acquisition); it is never held while a listener runs, and
every listener call comes from the link's thread, in order.

Settled points:
- While no acquisition is pending the thread sends the sync line every CHECK_INTERVAL, or tries
  to connect again when the connection is gone: a host that dies, or stops answering within the
  time-out, is seen by every listener within about that interval, and a host that returns is
  answering again as soon, without any command. The checks use the smallest time-out among the
  link's devices.
- A request that fails says something about the host: a lost connection, a refused connect, a
  reply that cannot be, or no reply within the time-out make it "not answering"; an answer, an
  error line included, makes it "answering".
- An acquisition belongs to a device name, not to a listener, so that it outlives the device's
  re-initialisation: the listener attached next under that name is told of it. An acquisition whose
  final line has not come Count x ExposureTime + time-out after it was accepted is reported
  overdue, once, and stays pending: a host that answers again may still end it.
- A link starts an acquisition only while none of its own is pending: the host answers the final
  line of an acquisition after it has become idle, so a second START sent in that gap would make
  the two final lines impossible to tell apart.
- A link ends its session (QUIT) when its last device has let go of it and no acquisition it
  started is pending, else once that acquisition has ended.
"""

from __future__ import annotations

import concurrent.futures
import logging
import queue
import ssl
import threading
import time
from typing import Callable, Dict, List, NamedTuple, Optional, Protocol, Tuple, TypeVar

from . import _wire
from ._tls import TlsFiles
from .client import Client
from .errors import AcquisitionFailed, ConnectionFailed, ProtocolError, RemoteError, ReplyTimeout

T = TypeVar("T")

CHECK_INTERVAL = 0.5
_POLL_INTERVAL = 0.05  # how soon an acquisition's final line is seen
# How long a caller waits past its own time-out for a request that the thread has already begun:
# the request's own time-out, which began a moment later, ends it.
_GRACE = 1.0

log = logging.getLogger("remotectrl")


class Busy(Exception):
    """An acquisition started through this link has not ended yet; nothing was sent."""


class TlsConflict(Exception):
    """The host's link uses other Tls files (``linked``; None: plain TCP) than the device gives."""

    def __init__(self, linked: Optional[TlsFiles]) -> None:
        super().__init__("the link uses other TLS files")
        self.linked = linked


class Listener(Protocol):
    """What a link tells each device attached to it, from the link's thread. ``version`` numbers
    the link's changes; the Snapshot that attach() returns holds every change up to its own."""

    def host_changed(self, version: int, answering: bool, status: str) -> None:
        """The host has begun or stopped answering; ``status`` says so, or why not."""

    def acquisition_started(self, version: int) -> None:
        """The host has accepted this device's START."""

    def acquisition_overdue(self, version: int, status: str) -> None:
        """This device's acquisition should have ended by now; it is still pending."""

    def acquisition_ended(self, version: int, outcome: Optional[Exception], stopped: bool) -> None:
        """This device's acquisition has ended: ``outcome`` is None for "OK", an
        AcquisitionFailed, or the error that lost the connection; ``stopped`` when a Stop of this
        device's went out first."""


class Snapshot(NamedTuple):
    version: int
    answering: Optional[bool]  # None until the first check or request has ended
    status: str
    acquiring: bool  # an acquisition of the attaching device is pending
    overdue: str  # why it is overdue; empty when it is not


class _Acquisition:
    def __init__(self, owner: str, deadline: float) -> None:
        self.owner = owner
        self.deadline = deadline
        self.stopping = False
        self.overdue = ""


_links: Dict[Tuple[str, int], HostLink] = {}
_links_lock = threading.Lock()


def attach(
    host: str, port: int, name: str, listener: Listener, timeout: float, tls: Optional[TlsFiles] = None
) -> Tuple[HostLink, Snapshot]:
    """Attaches device ``name`` (in place of any listener attached under that name) to the link to
    host:port, made and started on first use with ``tls`` (None: plain TCP); returns the link and
    what it knows now. TlsConflict when the link exists with other files."""
    with _links_lock:
        link = _links.get((host, port))
        if link is not None:
            if link.tls != tls:
                raise TlsConflict(link.tls)
            return link, link._add(name, listener, timeout)
        link = _links[(host, port)] = HostLink(host, port, tls)
        snapshot = link._add(name, listener, timeout)
        threading.Thread(target=link._serve, name="remotectrl %s" % link.peer, daemon=True).start()
        return link, snapshot


def detach(link: HostLink, name: str) -> None:
    """Lets go of ``link`` for device ``name``; the device's pending acquisition stays the name's."""
    with _links_lock:
        if link._remove(name) and _links.get((link.host, link.port)) is link:
            del _links[(link.host, link.port)]
            link._post(None)


class HostLink:
    def __init__(self, host: str, port: int, tls: Optional[TlsFiles] = None) -> None:
        self.host = host
        self.port = port
        self.tls = tls
        self._lock = threading.Lock()
        self._listeners: Dict[str, Tuple[Listener, float]] = {}
        self._version = 0
        self._answering: Optional[bool] = None
        self._status = "connecting to %s" % self.peer
        self._acquisition: Optional[_Acquisition] = None
        self._check_timeout = 0.0  # set by the first _add, before the thread starts
        # Jobs for the thread; None ends it.
        self._jobs: queue.Queue[Optional[Callable[[], None]]] = queue.Queue()
        self._client: Optional[Client] = None
        self._next_check = 0.0

    @property
    def peer(self) -> str:
        return "%s:%d" % (self.host, self.port)

    # -- requests, from any thread ---------------------------------------------------------------

    def call(self, timeout: float, action: Callable[[Client], T]) -> T:
        """Runs action(client) on the link's thread and returns its result or raises what it
        raised: OSError when the host cannot be reached or gives no reply within ``timeout``
        seconds, which also bound the wait for the thread's turn."""
        deadline = time.monotonic() + timeout
        future: concurrent.futures.Future[T] = concurrent.futures.Future()
        self._post(lambda: self._run(future, deadline, action))
        concurrent.futures.wait([future], timeout)
        if future.cancel():
            raise ReplyTimeout("no turn with %s within %g s: it has not answered an earlier request" % (self.peer, timeout))
        concurrent.futures.wait([future], _GRACE)
        if not future.done():
            raise ReplyTimeout("no reply from %s within %g s" % (self.peer, timeout))
        return future.result()

    def start(self, name: str, timeout: float, device: int, count: int, exposure: float, file: str, threshold: float) -> None:
        """Starts an acquisition for device ``name``; returns once the host has accepted it, after
        the name's listener has been told. Busy while an acquisition of this link is pending."""

        def begin(client: Client) -> None:
            if self._acquisition is not None:
                raise Busy("an acquisition started through %s has not ended yet" % self.peer)
            client.start(device, count, exposure, file, threshold, wait=False)
            self._begin(_Acquisition(name, time.monotonic() + count * exposure + timeout))

        self.call(timeout, begin)

    def stop(self, name: str, timeout: float) -> None:
        """Sends STOP() when device ``name``'s acquisition is pending: STOP() aborts whatever the
        host runs, which must not be another device's acquisition."""

        def end(client: Client) -> None:
            acquisition = self._acquisition
            if acquisition is not None and acquisition.owner == name:
                client.stop()
                with self._lock:
                    acquisition.stopping = True

        self.call(timeout, end)

    # -- attaching, under _links_lock ------------------------------------------------------------

    def _add(self, name: str, listener: Listener, timeout: float) -> Snapshot:
        with self._lock:
            self._listeners[name] = (listener, timeout)
            self._check_timeout = min(timeout for _, timeout in self._listeners.values())
            acquisition = self._acquisition
            mine = acquisition is not None and acquisition.owner == name
            overdue = acquisition.overdue if acquisition is not None and mine else ""
            return Snapshot(self._version, self._answering, self._status, mine, overdue)

    def _remove(self, name: str) -> bool:
        """Forgets ``name``'s listener; True when nothing keeps the link any longer."""
        with self._lock:
            self._listeners.pop(name, None)
            return not self._listeners and self._acquisition is None

    def _post(self, job: Optional[Callable[[], None]]) -> None:
        self._jobs.put(job)

    # -- the link's thread -----------------------------------------------------------------------

    def _serve(self) -> None:
        while True:
            try:
                job = self._jobs.get(timeout=self._pause())
            except queue.Empty:
                job = self._look_after
            if job is None:
                break
            try:
                job()
            except Exception:  # the thread must outlive anything a listener or a bug does
                log.exception("remotectrl link to %s", self.peer)
        if self._client is not None:
            self._client.close()

    def _pause(self) -> float:
        if self._acquisition is not None:
            return _POLL_INTERVAL
        return max(self._next_check - time.monotonic(), 0.0)

    def _run(self, future: concurrent.futures.Future[T], deadline: float, action: Callable[[Client], T]) -> None:
        if not future.set_running_or_notify_cancel():
            return
        if time.monotonic() >= deadline:
            future.set_exception(ReplyTimeout("no turn with %s within the time-out" % self.peer))
            return
        try:
            client = self._connected(deadline - time.monotonic())
            client.timeout = max(deadline - time.monotonic(), 0.0)
            result = action(client)
        except Exception as error:
            self._learn(error)
            future.set_exception(error)
        else:
            self._reached()
            future.set_result(result)
        self._look_after()

    def _look_after(self) -> None:
        if self._acquisition is not None:
            self._watch(self._acquisition)
        elif time.monotonic() >= self._next_check:
            self._next_check = time.monotonic() + CHECK_INTERVAL
            self._check()

    def _check(self) -> None:
        try:
            client = self._connected(self._check_timeout)
            client.timeout = self._check_timeout
            replies = client.send_raw(_wire.SYNC_LINE)
            if replies != [_wire.SYNC_REPLY]:
                raise ProtocolError("%s answered the sync line with %r" % (self.peer, replies), "\n".join(replies))
        except Exception as error:
            self._learn(error)
        else:
            self._reached()

    def _watch(self, acquisition: _Acquisition) -> None:
        client = self._client
        assert client is not None  # losing the connection ends the acquisition
        try:
            client.wait_acquisition(timeout=0)
        except ReplyTimeout:
            if time.monotonic() > acquisition.deadline and not acquisition.overdue:
                self._overdue(acquisition)
            return
        except AcquisitionFailed as failed:
            self._end(failed)
        except Exception as error:
            self._learn(error)
        else:
            self._end(None)

    def _connected(self, timeout: float) -> Client:
        if self._client is None:
            self._client = Client(self.host, self.port, timeout, ssl_context=self._tls_context())
        return self._client

    def _tls_context(self) -> Optional[ssl.SSLContext]:
        if self.tls is None:
            return None
        try:
            return self.tls.context()
        except (OSError, ValueError) as error:  # the files have changed since the devices' Init
            raise ConnectionFailed("connect to %s: %s" % (self.peer, error)) from error

    def _learn(self, error: Exception) -> None:
        """Takes in what a failed request or check says about the host."""
        if isinstance(error, RemoteError):
            self._reached()
        elif isinstance(error, ReplyTimeout):
            self._unreached(str(error))  # the connection stays usable: late replies are paired
        elif isinstance(error, (OSError, ProtocolError)):
            self._lose(error)
        elif not isinstance(error, (Busy, TypeError, ValueError)):  # those sent nothing
            self._lose(error)

    def _lose(self, error: Exception) -> None:
        if self._client is not None:
            self._client.close()
            self._client = None
            self._next_check = 0.0  # connect again at once; after a failed connect, at the next check
        if self._acquisition is not None:
            self._end(error)
        self._unreached(str(error))

    # -- telling the listeners, from the link's thread -------------------------------------------

    def _reached(self) -> None:
        self._reach(True, "connected to %s" % self.peer)

    def _unreached(self, status: str) -> None:
        self._reach(False, status)

    def _reach(self, answering: bool, status: str) -> None:
        with self._lock:
            if (self._answering, self._status) == (answering, status):
                return
            self._answering, self._status = answering, status
            version, listeners = self._change()
        for listener in listeners:
            _tell(listener.host_changed, version, answering, status)

    def _begin(self, acquisition: _Acquisition) -> None:
        with self._lock:
            self._acquisition = acquisition
            version, listener = self._change_for(acquisition.owner)
        if listener is not None:
            _tell(listener.acquisition_started, version)

    def _overdue(self, acquisition: _Acquisition) -> None:
        status = "no end of the acquisition from %s by Count x ExposureTime + Timeout" % self.peer
        with self._lock:
            acquisition.overdue = status
            version, listener = self._change_for(acquisition.owner)
        if listener is not None:
            _tell(listener.acquisition_overdue, version, status)

    def _end(self, outcome: Optional[Exception]) -> None:
        with _links_lock, self._lock:
            acquisition, self._acquisition = self._acquisition, None
            assert acquisition is not None
            version, listener = self._change_for(acquisition.owner)
            unused = not self._listeners
            if unused and _links.get((self.host, self.port)) is self:
                del _links[(self.host, self.port)]
        if listener is not None:
            _tell(listener.acquisition_ended, version, outcome, acquisition.stopping)
        if unused:
            self._post(None)

    def _change(self) -> Tuple[int, List[Listener]]:
        self._version += 1
        return self._version, [listener for listener, _ in self._listeners.values()]

    def _change_for(self, name: str) -> Tuple[int, Optional[Listener]]:
        self._version += 1
        return self._version, self._listeners.get(name, (None, 0.0))[0]


def _tell(call: Callable[..., None], *args: object) -> None:
    try:
        call(*args)
    except Exception:  # one device's failure must not keep the others uninformed
        log.exception("remotectrl: a device could not take a change of its host")
