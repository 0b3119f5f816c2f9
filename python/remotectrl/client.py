"""A client for the remotectrl command server.

Every method sends one command line followed by the sync line and returns once the sync reply
has arrived, so each command's replies are known exactly, silent ones included (see _pairing).

Settled points:
- ``timeout`` (seconds, None for no limit) is one deadline per call, for sending the command and
  for all of its replies, whatever the server sends meanwhile; once it has passed, the socket
  gets one more look and no more. The wait for an acquisition's final line has its own
  (wait_acquisition). A time-out raises ReplyTimeout and the connection stays usable: late replies
  are matched to the command that gave up, not to the next one. A time-out before any line at all
  has arrived on the connection says that the server may be busy with another client: it serves
  one at a time, and a second connection waits unanswered until the first one's session ends.
- Lines that arrived while no command waited for them are dropped, with a warning on the
  "remotectrl" logger, before the next command goes out; the final line of this client's
  acquisition is kept for wait_acquisition().
- A reply that the command cannot have raises ProtocolError, the connection staying open. A peer
  that sends more than any server would, a line longer than 4 KiB or more than 1024 lines in one
  call, gets a ProtocolError and the connection is closed: that bounds what it can make the client
  hold.
- A broken or closed connection raises ConnectionFailed, naming host:port.
- Over TLS (``ssl_context``) everything above holds as over plain TCP. The handshake is part of
  connecting and has the same time-out; a server that serves another client or speaks plain TCP
  does not answer it. A server that closes the connection before its first line has refused this
  client's certificate (see _tls): CertificateRefused, a ConnectionFailed.
- wait_acquisition() with no acquisition pending raises RuntimeError.
- send_raw() of a line that ends the session (empty after trimming, or "QUIT()") closes the
  client; so does close(). Later calls raise ConnectionFailed.
- Text travels as UTF-8; replies are decoded as UTF-8 with undecodable bytes replaced.
- Not thread-safe: use one Client per thread.
"""

from __future__ import annotations

import os
import select
import socket
import ssl
import time as _time
from types import TracebackType
from typing import Callable, List, NamedTuple, Optional, Type, Union

from . import _arguments, _pairing, _syntax, _tls, _wire
from .errors import AcquisitionFailed, ConnectionFailed, ProtocolError, RemoteCtrlError, RemoteError, ReplyTimeout

DEFAULT_PORT = 59876
_PORT_RANGE = range(1, 65536)
_RECV_SIZE = 65536
# Far beyond the server's longest reply, and the most lines one call may take (a command has at
# most one reply and the sync answer; late replies of commands that timed out add a few).
_MAX_LINE = 4096
_MAX_LINES_PER_CALL = 1024
_PROGRESS_SECONDS = 0.2

#: A file name as the server receives it: text, or a path object (sent as its text).
FileName = Union[str, "os.PathLike[str]"]
#: Called as progress(elapsed, expected) while wait_acquisition() waits: seconds since START went
#: out, and count x time of start() (None for a START sent with send_raw()).
Progress = Callable[[float, Optional[float]], None]


class Client:
    """A session with the remotectrl command server; each method sends one command.

    ``Client(host, port, timeout)`` connects at once and raises ConnectionFailed naming host:port
    when it cannot, TypeError for a port that is not an int, ValueError for one outside 1..65535.
    With ``ssl_context`` (see tls_context()) it speaks TLS, checking the server's certificate
    against ``host``; a server that refuses this client's certificate raises CertificateRefused
    (a ConnectionFailed) at the first call.
    ``timeout`` (seconds, None: no limit) bounds each call, except the wait for an acquisition's
    final line; when it passes, ReplyTimeout (a TimeoutError) is raised and the connection stays
    usable. Use it as a context manager, or call close().

    Methods that the server answers with an "ERROR: " line raise RemoteError (its ``reply`` holds
    the line); an accepted START that fails raises AcquisitionFailed; a reply the command cannot
    have raises ProtocolError. Arguments of the wrong type raise TypeError, values the command
    language could not carry unchanged ValueError, before anything is sent. One Client per thread.
    """

    def __init__(
        self,
        host: str = "127.0.0.1",
        port: int = DEFAULT_PORT,
        timeout: Optional[float] = 5.0,
        *,
        ssl_context: Optional[ssl.SSLContext] = None,
    ) -> None:
        if isinstance(port, bool) or not isinstance(port, int):
            raise TypeError("port must be an int, not %r" % (port,))
        if port not in _PORT_RANGE:
            raise ValueError("port must be from 1 to 65535, not %d" % port)
        self.host = host
        self.port = port
        self.timeout = timeout
        self._pairing = _pairing.Pairing()
        self._received = bytearray()
        self._scanned = 0  # bytes of _received known to hold no line feed
        self._heard = False  # whether any line has arrived on this connection
        self._acquisition = _Watch(0.0, None)
        try:
            connection = socket.create_connection((host, port), timeout=timeout)
        except OSError as error:
            raise ConnectionFailed("connect to %s: %s" % (self._peer(), _reason(error))) from error
        # Every write is a whole request: Nagle's algorithm would hold one back while an earlier
        # one is unacknowledged, and the server delays its acknowledgements by up to ~40 ms.
        connection.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
        if ssl_context is not None:
            connection = self._handshake(connection, ssl_context)
        self._socket: Optional[socket.socket] = connection
        # Asks whether anything has arrived: half the cost of a receive that finds nothing, and
        # unlike select() not limited to descriptors below 1024.
        self._readable = select.poll()
        self._readable.register(connection, select.POLLIN)

    def __enter__(self) -> Client:
        """Returns the client itself; leaving the block calls close()."""
        return self

    def __exit__(
        self,
        exc_type: Optional[Type[BaseException]],
        exc: Optional[BaseException],
        traceback: Optional[TracebackType],
    ) -> None:
        """Closes the session (see close())."""
        self.close()

    def close(self) -> None:
        """Ends the session with QUIT() and closes the connection; harmless when closed."""
        if self._socket is None:
            return
        try:
            self._socket.settimeout(self.timeout)
            self._socket.sendall((_wire.QUIT_LINE + "\n").encode())
        except OSError:
            pass
        self._disconnect()

    # -- acquisition -----------------------------------------------------------------------------

    def start(
        self,
        device: int,
        count: int,
        time: float,
        file: FileName = "",
        threshold: float = 0.0,
        wait: bool = True,
        progress: Optional[Progress] = None,
    ) -> None:
        """Runs ``count`` frames of ``time`` seconds on ``device`` (filtered list) into ``file``.

        ``file`` is relative to the server's data folder ("" writes no file).
        Raises RemoteError when the server refuses. With ``wait`` the call returns when the
        acquisition has ended with "OK" and raises AcquisitionFailed when it failed (see
        wait_acquisition(), which gets ``progress``); without, it returns once the START is
        accepted, and wait_acquisition() collects the end.
        """
        arguments = [
            _arguments.whole("device", device),
            _arguments.whole("count", count),
            _arguments.real("time", time),
            _arguments.text("file", _file_text(file)),
            _arguments.real("threshold", threshold),
        ]
        replies = self._exchange(_arguments.command_line(_wire.START, arguments), count * time)
        if replies:
            raise _unexpected(_wire.START, replies)
        if wait:
            self.wait_acquisition(progress=progress)

    def wait_acquisition(self, timeout: Optional[float] = None, progress: Optional[Progress] = None) -> None:
        """Waits (at most ``timeout`` seconds; None: no limit) for the pending acquisition's end.

        Returns on "OK", raises AcquisitionFailed on "ERROR: ACQUISITION FAILED", ReplyTimeout
        when the time passes (the acquisition stays pending), RuntimeError when none is pending.
        ``progress`` is called about every 0.2 s while nothing arrives.
        """
        if self._pairing.final is None and not self._pairing.acquisition_pending:
            raise RuntimeError("no acquisition of this client is pending")
        deadline = _Deadline(timeout)
        tick = None if progress is None else self._acquisition.reporter(progress)
        # With two acquisitions pending (a START accepted just before the previous acquisition's
        # final line went out) the end of the latest is the one that counts.
        while self._pairing.final is None or self._pairing.acquisition_pending:
            self._pairing.take(self._line_by(deadline, "final line of the acquisition", tick))
        final, self._pairing.final = self._pairing.final, None
        if final != _wire.REPLY_OK:
            raise AcquisitionFailed(final)

    def stop(self) -> None:
        """Aborts the running acquisition; its end is still collected by wait_acquisition().

        The server hands STOP to the device at once: one that arrives before the device has
        begun the acquisition (right after start() returns) may find nothing to abort.
        """
        _expect_silence(_wire.STOP, self._exchange(_wire.STOP_LINE))

    # -- devcontrol ------------------------------------------------------------------------------

    def gui_start(self, device: int) -> None:
        """Starts ``device`` (full device list) through devcontrol; RemoteError when refused."""
        _expect_silence(_wire.GUI_START, self._exchange(_device_command(_wire.GUI_START, device)))

    def gui_stop(self, device: int) -> None:
        """Stops ``device`` (full device list) through devcontrol; RemoteError when refused."""
        _expect_silence(_wire.GUI_STOP, self._exchange(_device_command(_wire.GUI_STOP, device)))

    def gui_set_file(self, device: int, file: FileName) -> None:
        """Sets the file that devcontrol's acquisitions on ``device`` write; RemoteError when refused."""
        arguments = [_arguments.whole("device", device), _arguments.text("file", _file_text(file))]
        _expect_silence(_wire.GUI_SETFILE, self._exchange(_arguments.command_line(_wire.GUI_SETFILE, arguments)))

    def gui_is_running(self, device: int) -> bool:
        """True when devcontrol reports ``device`` (full device list) running; RemoteError when refused."""
        replies = self._exchange(_device_command(_wire.GUI_ISRUNNING, device))
        if replies == [_wire.REPLY_YES]:
            return True
        if replies == [_wire.REPLY_NO]:
            return False
        raise _unexpected(_wire.GUI_ISRUNNING, replies)

    # -- any line --------------------------------------------------------------------------------

    def send_raw(self, line: str) -> List[str]:
        """Sends one line as a user typed it; returns the lines that answered it, in order.

        The final line of an acquisition is never among them (see wait_acquisition()).
        """
        if not isinstance(line, str):
            raise TypeError("line must be a str, not %r" % (line,))
        if "\n" in line:
            raise ValueError("line %r holds a line feed; send one line at a time" % (line,))
        return self._exchange(line)

    # -- plumbing --------------------------------------------------------------------------------

    def _peer(self) -> str:
        return "%s:%s" % (self.host, self.port)

    def _handshake(self, connection: socket.socket, context: ssl.SSLContext) -> ssl.SSLSocket:
        # On failure wrap_socket() closes the connection, which it has taken over.
        try:
            return context.wrap_socket(connection, server_hostname=self.host)
        except socket.timeout as error:
            raise ConnectionFailed(
                "no TLS handshake from %s within the time-out: it speaks plain TCP, or serves another "
                "client (one at a time)" % self._peer()
            ) from error
        except ssl.SSLCertVerificationError as error:
            raise ConnectionFailed("TLS handshake with %s: its certificate does not hold against the CA: %s"
                                   % (self._peer(), error.verify_message)) from error
        except ssl.SSLError as error:
            if _tls.is_refusal_alert(error):
                raise _tls.refused(self._peer(), _reason(error)) from error
            raise self._no_handshake(_reason(error)) from error
        except OSError as error:
            raise self._no_handshake(_reason(error)) from error

    def _no_handshake(self, reason: str) -> ConnectionFailed:
        return ConnectionFailed(
            "TLS handshake with %s: %s (so ends one with a server that speaks plain TCP, or that "
            "refuses this client's address)" % (self._peer(), reason)
        )

    def _exchange(self, line: str, expected_seconds: Optional[float] = None) -> List[str]:
        deadline = _Deadline(self.timeout)
        self._drop_unasked()
        kind = _syntax.classify(line)
        if kind == _syntax.PairingKind.SESSION_END:
            self._send(line + "\n", deadline)
            self._disconnect()
            return []
        command = self._pairing.sent(kind)
        sync = "" if kind == _syntax.PairingKind.SELF_SYNC else _wire.SYNC_LINE + "\n"
        self._send(line + "\n" + sync, deadline)
        if kind == _syntax.PairingKind.START:
            self._acquisition = _Watch(_time.monotonic(), expected_seconds)
        while not command.done:
            self._pairing.take(self._line_by(deadline, "reply to %s" % line))
        return command.replies

    def _drop_unasked(self) -> None:
        # What has arrived since the last call cannot answer the command about to go out; the
        # pairing gives it to a command that timed out, or drops it with a warning.
        if self._socket is not None and (self._readable.poll(0) or _decrypted(self._socket)):
            self._receive(0.0)
        line = self._buffered_line()
        while line is not None:
            self._pairing.take(line)
            line = self._buffered_line()

    def _connected(self) -> socket.socket:
        if self._socket is None:
            raise ConnectionFailed("the session with %s has ended" % self._peer())
        return self._socket

    def _send(self, text: str, deadline: _Deadline) -> None:
        connection = self._connected()
        try:
            connection.settimeout(deadline.wait_time(None))
            connection.sendall(text.encode("utf-8"))
        except OSError as error:
            raise self._lost("send to %s: %s" % (self._peer(), _reason(error))) from error

    def _line_by(self, deadline: _Deadline, what: str, tick: Optional[Callable[[], None]] = None) -> str:
        while True:
            line = self._buffered_line()
            if line is not None:
                if not deadline.take_line():
                    raise self._broken("more than %d lines in one call" % _MAX_LINES_PER_CALL)
                return line
            if deadline.passed():
                raise self._timed_out(what)
            if tick is not None:
                tick()
            self._receive(deadline.wait_time(None if tick is None else _PROGRESS_SECONDS))

    def _buffered_line(self) -> Optional[str]:
        end = self._received.find(b"\n", self._scanned)
        if (end if end >= 0 else len(self._received)) > _MAX_LINE:
            raise self._broken("a line longer than %d bytes" % _MAX_LINE)
        if end < 0:
            self._scanned = len(self._received)
            return None
        line = bytes(self._received[:end])
        del self._received[: end + 1]
        self._scanned = 0
        self._heard = True
        return line.decode("utf-8", errors="replace")

    def _receive(self, wait: Optional[float]) -> None:
        """Appends what arrives within ``wait`` seconds (None: no limit) to what is buffered."""
        connection = self._connected()
        try:
            connection.settimeout(wait)
            data = connection.recv(_RECV_SIZE)
        except (socket.timeout, BlockingIOError, ssl.SSLWantReadError):
            return  # nothing within the time (a TLS record may have come only in part)
        except OSError as error:
            raise self._lost("receive from %s: %s" % (self._peer(), _reason(error))) from error
        if not data:
            raise self._lost("%s closed the connection" % self._peer())
        self._received += data

    def _lost(self, what: str) -> ConnectionFailed:
        tls = isinstance(self._socket, ssl.SSLSocket)
        self._disconnect()
        return _tls.refused(self._peer(), what) if tls and not self._heard else ConnectionFailed(what)

    def _timed_out(self, what: str) -> ReplyTimeout:
        if self._heard:
            return ReplyTimeout("no %s from %s within the time-out" % (what, self._peer()))
        return ReplyTimeout(
            "no %s from %s within the time-out, and no line yet on this connection: the server "
            "serves one client at a time and may be busy with another" % (what, self._peer())
        )

    def _broken(self, what: str) -> ProtocolError:
        self._disconnect()
        return ProtocolError("%s sent %s; the connection is closed" % (self._peer(), what))

    def _disconnect(self) -> None:
        if self._socket is not None:
            self._socket.close()
            self._socket = None


class _Deadline:
    """One call's time limit and line budget. Once the time has passed, the socket still gets one
    look (a time-out of 0 polls it) but no more, so a peer that keeps sending cannot stretch the
    call."""

    def __init__(self, seconds: Optional[float]) -> None:
        self._at = None if seconds is None else _time.monotonic() + seconds
        self._late_looks = 0
        self._lines_left = _MAX_LINES_PER_CALL

    def passed(self) -> bool:
        if self._at is None or _time.monotonic() < self._at:
            return False
        self._late_looks += 1
        return self._late_looks > 1

    def wait_time(self, most: Optional[float]) -> Optional[float]:
        """Seconds the next wait may take: what is left, and at most ``most`` (None: no limit)."""
        left = None if self._at is None else max(self._at - _time.monotonic(), 0.0)
        if most is None or (left is not None and left < most):
            return left
        return most

    def take_line(self) -> bool:
        self._lines_left -= 1
        return self._lines_left >= 0


class _Watch(NamedTuple):
    """The latest START's time of sending and its expected duration."""

    started: float
    expected: Optional[float]

    def reporter(self, progress: Progress) -> Callable[[], None]:
        return lambda: progress(_time.monotonic() - self.started, self.expected)


def _file_text(file: object) -> object:
    # Anything else goes on as it is, for _arguments to refuse with a TypeError.
    return os.fspath(file) if isinstance(file, (str, os.PathLike)) else file


def _device_command(name: str, device: int) -> str:
    return _arguments.command_line(name, [_arguments.whole("device", device)])


def _expect_silence(command: str, replies: List[str]) -> None:
    if replies:
        raise _unexpected(command, replies)


def _unexpected(command: str, replies: List[str]) -> RemoteCtrlError:
    if len(replies) == 1 and _wire.is_error(replies[0]):
        return RemoteError(replies[0])
    reply = "\n".join(replies)
    return ProtocolError("%s was answered %r, which it cannot have" % (command, reply), reply)


def _decrypted(connection: socket.socket) -> bool:
    """Whether a TLS connection holds decrypted bytes not yet received, which poll() cannot see."""
    return isinstance(connection, ssl.SSLSocket) and connection.pending() > 0


def _reason(error: OSError) -> str:
    if isinstance(error, ssl.SSLError):
        return _tls.describe(error)
    return error.strerror or str(error)
