"""Tango device server for remotectrl hosts: one RemoteCtrl device per acquisition device.

Server ``RemoteCtrlDS``, device class ``RemoteCtrl`` (run it with ``RemoteCtrlDS INSTANCE``, see
``RemoteCtrlDS --help``). Needs PyTango (Debian: python3-tango).

State and status:
- ON: the host answered and no acquisition of this device runs;
- RUNNING: from an accepted Start until the acquisition's final line;
- FAULT: the last acquisition failed (its line is in the status), until the next accepted Start;
- UNKNOWN: the host could not be reached or stopped answering; the status names host:port and
  says why, and the next command connects again.
Every change is pushed as a change event on State.

Settled points:
- The devices of one host in one server share its single client connection (see _hostlink), so
  only one of them acquires at a time; a Start while one of theirs runs is refused.
- Stop sends STOP() only while this device's acquisition runs, since STOP() aborts whatever the
  host runs; an acquisition that ends after this device's Stop ends ON, not FAULT.
- DeviceIndex is the index in the host's filtered list for Start and in its full list for the
  GUI commands, as the host reads them.
- A refused command raises DevFailed with the host's "ERROR: ..." line as its description and
  leaves the state as it was; an argument the command language cannot carry (a file name with a
  parenthesis, say) raises DevFailed before anything is sent.
- The attributes start at Count 1, ExposureTime 1 s, FileName "" (no file) and Threshold 0, and
  are not memorized.

Threads: Tango's request threads and the link's watcher both change the state; ``_state_lock``
orders the changes and their events, and the watcher never holds the link's lock meanwhile.
"""

import threading

from tango import DevFailed, DevState, Except
from tango.server import Device, attribute, command, device_property

from . import _hostlink, _server, _syntax
from .errors import RemoteError


def _setting(name, dtype, unit="", doc=""):
    """A read-write attribute kept in the device's ``_settings`` and used by Start."""

    def read(device):
        return device._settings[name]

    def write(device, value):
        device._settings[name] = value

    return attribute(name=name, dtype=dtype, unit=unit, doc=doc, fget=read).setter(write)


def _property(name):
    default, doc = _server.PROPERTIES[name]
    return device_property(dtype=type(default), default_value=default, doc=doc)


def _fail(reason, description):
    Except.throw_exception("RemoteCtrl_" + reason, description, "RemoteCtrl")


class RemoteCtrl(Device):
    """One acquisition device of a remotectrl host, driven through the host's command server."""

    Host = _property("Host")
    Port = _property("Port")
    DeviceIndex = _property("DeviceIndex")
    Timeout = _property("Timeout")

    Count = _setting("Count", int, doc="frames per acquisition")
    ExposureTime = _setting("ExposureTime", float, "s", "seconds per frame")
    FileName = _setting("FileName", str, doc="file in the host's data folder; empty: no file")
    Threshold = _setting("Threshold", float, doc="threshold set before the acquisition")

    def init_device(self):
        super().init_device()
        self._settings = {"Count": 1, "ExposureTime": 1.0, "FileName": "", "Threshold": 0.0}
        self._last_reply = ""
        self._stopping = False
        self._alive = True
        self._state_lock = threading.Lock()
        self._status = "not connected yet"
        self.set_state(DevState.UNKNOWN)
        self.set_change_event("State", True, False)
        self._link = _hostlink.attach(self.Host, self.Port)
        try:
            self._on_client(lambda client: None)
        except DevFailed as failed:  # a host that is down must not fail the device: the state says why
            self._change(DevState.UNKNOWN, failed.args[0].desc)

    def delete_device(self):
        with self._state_lock:
            self._alive = False
        _hostlink.detach(self._link, self)

    def dev_status(self):
        return self._status

    @attribute(dtype=str, doc="the last line the host answered to this device")
    def LastReply(self):
        return self._last_reply

    @command(doc_in="starts an acquisition with the attributes' values; returns once the host accepted it")
    def Start(self):
        settings = [self._settings[name] for name in ("Count", "ExposureTime", "FileName", "Threshold")]
        self._use(lambda link: link.start(self, self.Timeout, self.DeviceIndex, *settings))

    @command(doc_in="aborts this device's acquisition")
    def Stop(self):
        self._stopping = True
        self._use(lambda link: link.stop(self, self.Timeout))

    @command(doc_in="starts the device through the host's devcontrol plug-in")
    def GuiStart(self):
        self._on_client(lambda client: client.gui_start(self.DeviceIndex))

    @command(doc_in="stops the device through the host's devcontrol plug-in")
    def GuiStop(self):
        self._on_client(lambda client: client.gui_stop(self.DeviceIndex))

    @command(dtype_in=str, doc_in="file that devcontrol's acquisitions on the device write")
    def GuiSetFile(self, file):
        self._on_client(lambda client: client.gui_set_file(self.DeviceIndex, file))

    @command(dtype_out=bool, doc_out="whether devcontrol reports the device running")
    def GuiIsRunning(self):
        running = self._on_client(lambda client: client.gui_is_running(self.DeviceIndex))
        self._last_reply = _syntax.REPLY_YES if running else _syntax.REPLY_NO
        return running

    # -- called by the link ----------------------------------------------------------------------

    def acquisition_started(self):
        self._stopping = False
        self._change(DevState.RUNNING, "acquisition running on device %d of %s" % (self.DeviceIndex, self._link.peer))

    def acquisition_ended(self, outcome):
        if outcome is None:
            self._last_reply = _syntax.REPLY_OK
            self._change(DevState.ON, "acquisition ended: " + _syntax.REPLY_OK)
        elif isinstance(outcome, RemoteError):
            self._last_reply = outcome.reply
            if self._stopping:
                self._change(DevState.ON, "acquisition stopped: " + outcome.reply)
            else:
                self._change(DevState.FAULT, "acquisition failed: " + outcome.reply)
        else:
            self._change(DevState.UNKNOWN, str(outcome))

    # -- plumbing --------------------------------------------------------------------------------

    def _on_client(self, action):
        return self._use(lambda link: link.call(self.Timeout, action))

    def _use(self, action):
        """Runs action(link) and turns what went wrong into the state and a DevFailed."""
        try:
            result = action(self._link)
        except OSError as error:
            self._change(DevState.UNKNOWN, str(error))
            _fail("NoHost", str(error))
        except RemoteError as error:
            self._host_answered()
            self._last_reply = error.reply
            _fail("Refused", error.reply)
        except (ValueError, _hostlink.Busy) as error:
            _fail("NotSent", str(error))
        self._host_answered()
        return result

    def _host_answered(self):
        if self.get_state() == DevState.UNKNOWN:
            self._change(DevState.ON, "connected to %s" % self._link.peer)

    def _change(self, state, status):
        with self._state_lock:
            if not self._alive:
                return
            self._status = status
            self.set_state(state)
            self.push_change_event("State", state)


if __name__ == "__main__":
    raise SystemExit(_server.main())
