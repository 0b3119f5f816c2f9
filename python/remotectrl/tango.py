"""Tango device server for remotectrl hosts: one RemoteCtrl device per acquisition device.

Server ``RemoteCtrlDS``, device class ``RemoteCtrl`` (run it with ``RemoteCtrlDS INSTANCE``, see
``RemoteCtrlDS --help``). Needs PyTango (Debian: python3-tango).

State and status:
- UNKNOWN: the host has not answered yet, or no longer answers; the status names host:port and
  says why. The device follows the host on its own (see _hostlink): no command is needed.
- ON: the host answers and no acquisition of this device runs.
- RUNNING: from an accepted Start until the acquisition's final line.
- FAULT: a property that cannot be used (the status names it and its value; Init reads the
  properties again), the last acquisition failed (until the next accepted Start), or no final line
  came by Count x ExposureTime + Timeout.
Every change is pushed as a change event on State, and logged on the device's info stream.

Settled points:
- Init re-reads and checks every property before it touches the host. An Init that keeps Host and
  Port keeps the host's connection, which the other devices of that host share, and a running
  acquisition of the device: it stays RUNNING, and Stop still stops it. With a property file
  (-file=), Init reads the file again, as it would a database.
- The devices of one host in one server share its single client connection (see _hostlink), so
  only one of them acquires at a time; a Start while one of theirs runs is refused.
- TlsCA, TlsCertificate and TlsKey, all three or none, make that connection TLS. Being shared, it
  has one set of files: a device whose files differ from those of the devices already attached to
  its host and port (or that gives none where they give some, or the reverse) goes to FAULT at
  Init, its status naming the property, its value and the value in use; a second connection would
  only wait behind the first. Renewed files are read at the next connect, without an Init.
- Stop sends STOP() only while this device's acquisition runs, since STOP() aborts whatever the
  host runs; an acquisition that ends after this device's Stop ends ON, not FAULT.
- DeviceIndex is the index in the host's filtered list for Start and in its full list for the
  GUI commands, as the host reads them.
- A refused command raises DevFailed with the host's "ERROR: ..." line as its description and
  leaves the state as it was; an argument the command language cannot carry (a file name with a
  parenthesis, say) raises DevFailed before anything is sent.
- Threshold is at least 0, which the host demands of every device; its upper end is the device's
  own and the command language cannot ask for it, so a Start beyond it gets the host's
  "ERROR: INVALID THL". ExposureTime is at least 1 ms, the step its format shows.
- Count, ExposureTime, FileName and Threshold start at 1, 1 s, "" (no file) and 0, keep their
  values across Init, and are memorized where there is a database.

Threads: the server runs without Tango's per-device monitor (serial model NO_SYNC), so a command
that waits for its host never keeps State, Status or attribute reads waiting. The link's thread and
Tango's request threads both change the state: ``_lock`` orders the changes; events are pushed
after it is let go, so that no thread holds ``_lock`` while Tango's event machinery runs.
"""

from __future__ import annotations

import threading
import time
from typing import Any, Callable, Dict, Optional, Sequence, Tuple, TypeVar

from tango import AttrQuality, Database, DevState, Except, LatestDeviceImpl, SerialModel, Util
from tango.server import Device, attribute, command, device_property

from . import _hostlink, _server, _tango_properties, _wire
from .client import Client
from .errors import AcquisitionFailed, ProtocolError, RemoteError

T = TypeVar("T")

DESCRIPTION = "One acquisition device of a remotectrl host (Host, Port, DeviceIndex), driven through its command server"
_SETTING_NAMES = ("Count", "ExposureTime", "FileName", "Threshold")
_DEFAULT_SETTINGS: Dict[str, Any] = {"Count": 1, "ExposureTime": 1.0, "FileName": "", "Threshold": 0.0}

# What a command's failure is called towards Tango: the first class the error is an instance of.
_FAILURES: Sequence[Tuple[type, str]] = (
    (RemoteError, "Refused"),
    (ProtocolError, "Protocol"),
    (OSError, "NoHost"),
    (_hostlink.Busy, "NotSent"),
    (TypeError, "NotSent"),
    (ValueError, "NotSent"),
)


def failure(error: Exception) -> Optional[Tuple[str, str]]:
    """The DevFailed reason and description for a command's ``error``; None for a bug."""
    for kind, reason in _FAILURES:
        if isinstance(error, kind):
            return "RemoteCtrl_" + reason, error.reply if isinstance(error, RemoteError) else str(error)
    return None


def _fail(reason: str, description: str) -> None:
    Except.throw_exception(reason, description, "RemoteCtrl")


def _setting(name: str, dtype: object, **config: Any) -> Any:
    """A read-write memorized attribute kept in the device's ``_settings`` and used by Start."""

    def read(device: RemoteCtrl) -> Any:
        return device._settings[name]

    def write(device: RemoteCtrl, value: Any) -> None:
        device._settings[name] = value

    return attribute(name=name, dtype=dtype, fget=read, memorized=True, hw_memorized=True, **config).setter(write)


def _property(name: str) -> Any:
    # Declared for Jive's wizard; the values are read and checked by _tango_properties.
    default, doc = _server.PROPERTIES[name]
    return device_property(dtype=type(default), default_value=default, doc=doc)


def _quality(reply: str) -> Any:
    return AttrQuality.ATTR_WARNING if _wire.is_error(reply) else AttrQuality.ATTR_VALID


class _Change:
    """What one event does to a device: a new state and status, a new LastReply, or both."""

    def __init__(self, state: Any = None, status: str = "", reply: Optional[str] = None) -> None:
        self.state = state
        self.status = status
        self.reply = reply
        # The state was already this one (a silent host's device told again why): the status
        # changes, but clients get no second event for the same state.
        self.repeats_state = False


class _Attachment:
    """Hands one link's events to the device while the device is attached through it, and drops
    those that its snapshot already held (see _hostlink.Listener)."""

    def __init__(self, device: RemoteCtrl) -> None:
        self.device = device
        self.applied = 0

    def host_changed(self, version: int, answering: bool, status: str) -> None:
        self.device._apply(self, version, lambda: self.device._host_changed(answering, status))

    def acquisition_started(self, version: int) -> None:
        self.device._apply(self, version, self.device._acquisition_started)

    def acquisition_overdue(self, version: int, status: str) -> None:
        self.device._apply(self, version, lambda: self.device._acquisition_overdue(status))

    def acquisition_ended(self, version: int, outcome: Optional[Exception], stopped: bool) -> None:
        self.device._apply(self, version, lambda: self.device._acquisition_ended(outcome, stopped))


class RemoteCtrl(Device):
    """One acquisition device of a remotectrl host, driven through the host's command server."""

    Host = _property("Host")
    Port = _property("Port")
    DeviceIndex = _property("DeviceIndex")
    Timeout = _property("Timeout")
    TlsCA = _property("TlsCA")
    TlsCertificate = _property("TlsCertificate")
    TlsKey = _property("TlsKey")

    Count = _setting(
        "Count", "int32", label="Frames", min_value="1", max_value="2147483647", format="%d",
        doc="frames per acquisition"
    )
    ExposureTime = _setting(
        "ExposureTime", float, label="Exposure time", unit="s", min_value="0.001", format="%.3f",
        doc="seconds per frame, at least 1 ms"
    )
    FileName = _setting(
        "FileName", str, label="File name", doc="file in the host's data folder that Start writes; empty: no file"
    )
    Threshold = _setting(
        "Threshold", float, label="Threshold", min_value="0", format="%.3f",
        doc="threshold (THL) set on the device before the acquisition; the device's range applies"
    )

    def __init__(self, device_class: Any, name: str) -> None:
        # What Device.__init__ does, with this class's description in place of "A Tango device".
        self._tango_properties: Dict[str, Any] = {}
        self._settings = dict(_DEFAULT_SETTINGS)
        self._last_reply = ""
        self._lock = threading.Lock()
        self._status = ""
        self._acquiring = False
        self._attachment: Optional[_Attachment] = None
        self._link: Optional[_hostlink.HostLink] = None
        self._config: Optional[_tango_properties.Config] = None
        LatestDeviceImpl.__init__(self, device_class, name, DESCRIPTION)
        self.init_device()

    def init_device(self) -> None:
        # Not Device.init_device(): PyTango's conversion of the properties raises a traceback at a
        # value that does not parse; _tango_properties says which property holds what.
        # No Tango monitor: a command that waits for its host must not keep State reads waiting,
        # and a monitor released and taken again around that wait (AutoTangoAllowThreads) can
        # deadlock against a State read that holds it and waits for the interpreter lock. _lock
        # orders what the device changes; the link's thread orders what goes to the host.
        Util.instance().set_serial_model(SerialModel.NO_SYNC)
        self.set_change_event("State", True, False)
        self.set_change_event("LastReply", True, False)
        try:
            self._attach(_tango_properties.resolve(*self._stored_properties()))
        except _tango_properties.PropertyError as bad:
            self.error_stream("Init: %s" % bad)
            self._show(_Change(DevState.FAULT, str(bad)))

    def _attach(self, config: _tango_properties.Config) -> None:
        attachment = _Attachment(self)
        with self._lock:
            try:
                self._link, snapshot = _hostlink.attach(
                    config.host, config.port, self.get_name(), attachment, config.timeout, config.tls
                )
            except _hostlink.TlsConflict as conflict:
                raise _tango_properties.conflict("%s:%d" % (config.host, config.port), config.tls, conflict.linked) from None
            self._config, self._attachment = config, attachment
            attachment.applied = snapshot.version
            change = self._from_snapshot(snapshot)
            self._set(change)
        self._publish(change)

    def delete_device(self) -> None:
        with self._lock:
            link, self._link, self._attachment, self._config = self._link, None, None, None
        if link is not None:
            _hostlink.detach(link, self.get_name())

    def dev_state(self) -> Any:
        # Tango's own would turn ON into ALARM while LastReply holds an error line (WARNING quality):
        # a refused command leaves the state as it was.
        return self.get_state()

    def dev_status(self) -> str:
        return self._status

    @attribute(dtype=str, label="Last reply", doc="the last line the host answered to this device; WARNING quality for ERROR: lines")
    def LastReply(self) -> Tuple[str, float, Any]:
        reply = self._last_reply
        return reply, time.time(), _quality(reply)

    @command(
        doc_in="none: Count, ExposureTime, FileName and Threshold give the acquisition",
        doc_out="none: returns once the host has accepted the acquisition, in RUNNING",
    )
    def Start(self) -> None:
        """Starts an acquisition on the host with the attributes' values."""
        config = self._configured()
        settings = [self._settings[name] for name in _SETTING_NAMES]
        self._use(lambda link: link.start(self.get_name(), config.timeout, config.device_index, *settings))

    @command(doc_in="none", doc_out="none: the acquisition's end follows as ON")
    def Stop(self) -> None:
        """Aborts this device's acquisition; nothing is sent when none of its own runs."""
        config = self._configured()
        self._use(lambda link: link.stop(self.get_name(), config.timeout))

    @command(doc_in="none: the device is DeviceIndex in the host's full device list", doc_out="none")
    def GuiStart(self) -> None:
        """Starts the device through the host's devcontrol plug-in."""
        index = self._configured().device_index
        self._on_client(lambda client: client.gui_start(index))

    @command(doc_in="none: the device is DeviceIndex in the host's full device list", doc_out="none")
    def GuiStop(self) -> None:
        """Stops the device through the host's devcontrol plug-in."""
        index = self._configured().device_index
        self._on_client(lambda client: client.gui_stop(index))

    @command(dtype_in=str, doc_in="file that devcontrol's acquisitions on the device write", doc_out="none")
    def GuiSetFile(self, file: str) -> None:
        """Sets the file of devcontrol's acquisitions on the device."""
        index = self._configured().device_index
        self._on_client(lambda client: client.gui_set_file(index, file))

    @command(doc_in="none", dtype_out=bool, doc_out="whether devcontrol reports the device running")
    def GuiIsRunning(self) -> bool:
        """Asks the host's devcontrol plug-in whether the device runs."""
        index = self._configured().device_index
        running: bool = self._on_client(lambda client: client.gui_is_running(index))
        self._show(_Change(reply=_wire.REPLY_YES if running else _wire.REPLY_NO))
        return running

    # -- the link's events, on its thread (see _Attachment) --------------------------------------

    def _apply(self, attachment: _Attachment, version: int, decide: Callable[[], Optional[_Change]]) -> None:
        with self._lock:
            if attachment is not self._attachment or version <= attachment.applied:
                return
            attachment.applied = version
            change = decide()
            if change is None:
                return
            self._set(change)
        self._publish(change)

    def _host_changed(self, answering: bool, status: str) -> Optional[_Change]:
        if not answering:
            return _Change(DevState.UNKNOWN, status)
        if self.get_state() != DevState.UNKNOWN:
            return None
        return self._running() if self._acquiring else _Change(DevState.ON, status)

    def _acquisition_started(self) -> _Change:
        self._acquiring = True
        return self._running()

    def _acquisition_overdue(self, status: str) -> _Change:
        return _Change(DevState.FAULT, status)

    def _acquisition_ended(self, outcome: Optional[Exception], stopped: bool) -> _Change:
        self._acquiring = False
        if outcome is None:
            return _Change(DevState.ON, "acquisition ended: " + _wire.REPLY_OK, _wire.REPLY_OK)
        if isinstance(outcome, AcquisitionFailed):
            if stopped:
                return _Change(DevState.ON, "acquisition stopped: " + outcome.reply, outcome.reply)
            return _Change(DevState.FAULT, "acquisition failed: " + outcome.reply, outcome.reply)
        return _Change(DevState.UNKNOWN, "acquisition lost: %s" % outcome)

    def _from_snapshot(self, snapshot: _hostlink.Snapshot) -> _Change:
        self._acquiring = snapshot.acquiring
        if snapshot.overdue:
            return _Change(DevState.FAULT, snapshot.overdue)
        if snapshot.acquiring:
            return self._running()
        return _Change(DevState.ON if snapshot.answering else DevState.UNKNOWN, snapshot.status)

    def _running(self) -> _Change:
        config = self._config
        assert config is not None  # only an attached device hears of acquisitions
        return _Change(DevState.RUNNING, "acquisition running on device %d of %s:%d" % (config.device_index, config.host, config.port))

    # -- plumbing --------------------------------------------------------------------------------

    def _stored_properties(self) -> Tuple[_tango_properties.Stored, _tango_properties.Stored]:
        """The device's and its class's properties as the database holds them (none without one)."""
        if not Util._UseDb:
            return {}, {}
        database = Util.instance().get_database()
        if Util._FileDb:
            database = Database(database.get_file_name())  # the file as it is now, not as it was at start
        names = list(_server.PROPERTIES)
        device_class = self.get_device_class().get_name()
        # One class property at a time: the file database drops the names after the first it finds.
        class_values = {name: database.get_class_property(device_class, [name])[name] for name in names}
        return database.get_device_property(self.get_name(), names), class_values

    def _configured(self) -> _tango_properties.Config:
        config = self._config
        if config is None:
            _fail("RemoteCtrl_NotConfigured", self._status)
        assert config is not None
        return config

    def _on_client(self, action: Callable[[Client], T]) -> T:
        timeout = self._configured().timeout
        return self._use(lambda link: link.call(timeout, action))

    def _use(self, action: Callable[[_hostlink.HostLink], T]) -> T:
        """Runs action(link); a failure raises DevFailed."""
        link = self._link
        if link is None:
            _fail("RemoteCtrl_NotConfigured", self._status)
        assert link is not None
        try:
            return action(link)
        except Exception as error:
            named = failure(error)
            if named is None:
                raise
            if isinstance(error, RemoteError):
                self._show(_Change(reply=error.reply))
            self.warn_stream("%s: %s" % named)
            _fail(*named)
            raise  # not reached: _fail raises

    def _show(self, change: _Change) -> None:
        with self._lock:
            self._set(change)
        self._publish(change)

    def _set(self, change: _Change) -> None:
        if change.state is not None:
            change.repeats_state = change.state == self.get_state()
            self._status = change.status
            self.set_state(change.state)
        if change.reply is not None:
            self._last_reply = change.reply

    def _publish(self, change: _Change) -> None:
        if change.state is not None:
            if not change.repeats_state:
                self.push_change_event("State", change.state)
            self.info_stream("%s: %s" % (change.state, change.status))
        if change.reply is not None:
            self.push_change_event("LastReply", change.reply, time.time(), _quality(change.reply))


if __name__ == "__main__":
    raise SystemExit(_server.main())
