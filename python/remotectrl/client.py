"""A client for the remotectrl command server.

Every method sends one command line followed by the sync line and returns once the sync reply
has arrived, so each command's replies are known exactly, silent ones included (see _pairing).

Settled points:
- ``timeout`` (seconds, None for no limit) bounds every wait for a reply except the wait for an
  acquisition's final line; when it passes, TimeoutError is raised and the connection stays
  usable: the late replies are matched to the command that gave up, not to the next one.
- A broken or closed connection raises ConnectionError, naming host:port.
- A method whose command is answered by something it cannot have (e.g. "YES" to GUI_START)
  raises RemoteError with that line.
- wait_acquisition() with no acquisition pending raises RuntimeError.
- send_raw() of a line that ends the session (empty after trimming, or "QUIT()") closes the
  client; so does close(). Later calls raise ConnectionError.
- Text travels as UTF-8; replies are decoded as UTF-8 with undecodable bytes replaced.
- Not thread-safe: use one Client per thread.
"""

from __future__ import annotations

import os
import socket
import time as _time
from types import TracebackType
from typing import List, Optional, Type, Union

from . import _arguments, _pairing, _syntax
from .errors import AcquisitionFailed, RemoteError

DEFAULT_PORT = 59876
_RECV_SIZE = 4096
_PORT_RANGE = range(1, 65536)

#: A file name as the server receives it: text, or a path object (sent as its text).
FileName = Union[str, "os.PathLike[str]"]


class Client:
    """A session with the remotectrl command server; each method sends one command.

    ``Client(host, port, timeout)`` connects at once and raises ConnectionError naming host:port
    when it cannot, ValueError for a port outside 1..65535. ``timeout`` (seconds, None: no limit)
    bounds every wait for a reply except an acquisition's final line; when it passes, TimeoutError
    is raised and the connection stays usable. Use it as a context manager, or call close().

    Methods that the server answers with an "ERROR: " line raise RemoteError (its ``reply``
    holds the line); an accepted START that fails raises AcquisitionFailed. Arguments the command
    language could not carry unchanged raise ValueError before anything is sent. One Client per
    thread.
    """

    def __init__(self, host: str = "127.0.0.1", port: int = DEFAULT_PORT, timeout: Optional[float] = 5.0) -> None:
        if isinstance(port, bool) or not isinstance(port, int) or port not in _PORT_RANGE:
            raise ValueError("port must be a whole number from 1 to 65535, not %r" % (port,))
        self.host = host
        self.port = port
        self.timeout = timeout
        self._pairing = _pairing.Pairing()
        self._received = b""
        try:
            self._socket = socket.create_connection((host, port), timeout=timeout)
        except OSError as error:
            raise ConnectionError("cannot connect to %s: %s" % (self._peer(), error)) from error

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
            self._socket.sendall(b"QUIT()\n")
        except OSError:
            pass
        self._disconnect()

    # -- acquisition -----------------------------------------------------------------------------

    def start(
        self, device: int, count: int, time: float, file: FileName = "", threshold: float = 0.0, wait: bool = True
    ) -> None:
        """Runs ``count`` frames of ``time`` seconds on ``device`` (filtered list) into ``file``.

        ``file`` is relative to the server's data folder ("" writes no file).
        Raises RemoteError when the server refuses. With ``wait`` the call returns when the
        acquisition has ended with "OK" and raises AcquisitionFailed when it failed; without, it
        returns once the START is accepted, and wait_acquisition() collects the end.
        """
        line = _arguments.command_line(
            "START",
            [
                ("device", _arguments.whole_number("device", device), False),
                ("count", _arguments.whole_number("count", count), False),
                ("time", _arguments.real_number("time", time), False),
                ("file", _file_text(file), True),
                ("threshold", _arguments.real_number("threshold", threshold), False),
            ],
        )
        _raise_for_errors(self._exchange(line))
        if wait:
            self.wait_acquisition()

    def wait_acquisition(self, timeout: Optional[float] = None) -> None:
        """Waits (at most ``timeout`` seconds; None: no limit) for the pending acquisition's end.

        Returns on "OK", raises AcquisitionFailed on "ERROR: ACQUISITION FAILED", TimeoutError
        when the time passes (the acquisition stays pending), RuntimeError when none is pending.
        """
        if self._pairing.final is None and not self._pairing.acquisition_pending:
            raise RuntimeError("no acquisition of this client is pending")
        deadline = _deadline(timeout)
        # With two acquisitions pending (a START accepted just before the previous acquisition's
        # final line went out) the end of the latest is the one that counts.
        while self._pairing.final is None or self._pairing.acquisition_pending:
            self._pairing.take(self._read_line(deadline, "final line of the acquisition"))
        final, self._pairing.final = self._pairing.final, None
        if final != _syntax.REPLY_OK:
            raise AcquisitionFailed(final)

    def stop(self) -> None:
        """Aborts the running acquisition; its end is still collected by wait_acquisition().

        The server hands STOP to the device at once: one that arrives before the device has
        begun the acquisition (right after start() returns) may find nothing to abort.
        """
        self._expect_silence(self._exchange("STOP()"))

    # -- devcontrol ------------------------------------------------------------------------------

    def gui_start(self, device: int) -> None:
        """Starts ``device`` (full device list) through devcontrol; RemoteError when refused."""
        self._expect_silence(self._exchange(_device_command("GUI_START", device)))

    def gui_stop(self, device: int) -> None:
        """Stops ``device`` (full device list) through devcontrol; RemoteError when refused."""
        self._expect_silence(self._exchange(_device_command("GUI_STOP", device)))

    def gui_set_file(self, device: int, file: FileName) -> None:
        """Sets the file that devcontrol's acquisitions on ``device`` write; RemoteError when refused."""
        line = _arguments.command_line(
            "GUI_SETFILE",
            [("device", _arguments.whole_number("device", device), False), ("file", _file_text(file), True)],
        )
        self._expect_silence(self._exchange(line))

    def gui_is_running(self, device: int) -> bool:
        """True when devcontrol reports ``device`` (full device list) running; RemoteError when refused."""
        replies = self._exchange(_device_command("GUI_ISRUNNING", device))
        _raise_for_errors(replies)
        if replies == [_syntax.REPLY_YES]:
            return True
        if replies == [_syntax.REPLY_NO]:
            return False
        raise RemoteError("\n".join(replies))

    # -- any line --------------------------------------------------------------------------------

    def send_raw(self, line: str) -> List[str]:
        """Sends one line as a user typed it; returns the lines that answered it, in order.

        The final line of an acquisition is never among them (see wait_acquisition()).
        """
        if not isinstance(line, str):
            raise ValueError("line must be a str, not %r" % (line,))
        if "\n" in line:
            raise ValueError("line %r holds a line feed; send one line at a time" % (line,))
        return self._exchange(line)

    # -- plumbing --------------------------------------------------------------------------------

    def _peer(self):
        return "%s:%s" % (self.host, self.port)

    def _exchange(self, line):
        self._require_open()
        kind = _syntax.classify(line)
        if kind == _syntax.SESSION_END:
            self._send(line + "\n")
            self._disconnect()
            return []
        command = self._pairing.sent(kind)
        self._send(line + "\n" if kind == _syntax.SELF_SYNC else line + "\n" + _syntax.SYNC_COMMAND + "\n")
        deadline = _deadline(self.timeout)
        while not command.done:
            self._pairing.take(self._read_line(deadline, "reply to %s" % line))
        return command.replies

    def _expect_silence(self, replies):
        if replies:
            _raise_for_errors(replies)
            raise RemoteError("\n".join(replies))

    def _require_open(self):
        if self._socket is None:
            raise ConnectionError("the session with %s has ended" % self._peer())

    def _send(self, text):
        try:
            self._socket.settimeout(self.timeout)
            self._socket.sendall(text.encode("utf-8"))
        except OSError as error:
            self._disconnect()
            raise ConnectionError("cannot send to %s: %s" % (self._peer(), error)) from error

    def _read_line(self, deadline, what):
        self._require_open()
        while b"\n" not in self._received:
            self._receive_more(deadline, what)
        line, self._received = self._received.split(b"\n", 1)
        return line.decode("utf-8", errors="replace")

    def _receive_more(self, deadline, what):
        # A deadline that has passed still gets one look at what the socket already holds.
        remaining = None if deadline is None else max(deadline - _time.monotonic(), 0.0)
        try:
            self._socket.settimeout(remaining)
            data = self._socket.recv(_RECV_SIZE)
        except (socket.timeout, BlockingIOError):
            raise TimeoutError("no %s from %s within the time-out" % (what, self._peer())) from None
        except OSError as error:
            self._disconnect()
            raise ConnectionError("connection to %s failed: %s" % (self._peer(), error)) from error
        if not data:
            self._disconnect()
            raise ConnectionError("%s closed the connection" % self._peer())
        self._received += data

    def _disconnect(self):
        if self._socket is not None:
            self._socket.close()
            self._socket = None


def _file_text(file):
    # Anything else goes on as it is, for _arguments to refuse with a ValueError.
    return os.fspath(file) if isinstance(file, (str, os.PathLike)) else file


def _device_command(name, device):
    return "%s(%s)" % (name, _arguments.whole_number("device", device))


def _deadline(timeout):
    return None if timeout is None else _time.monotonic() + timeout


def _raise_for_errors(replies):
    for reply in replies:
        if reply.startswith("ERROR: "):
            raise RemoteError(reply)
