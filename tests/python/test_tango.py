"""The Tango device server against real znhosts, everything on loopback in a network namespace of
its own (see isolated): the properties' rules, the host link on its own, then devices of one
server with a property file. The device tests are skipped where PyTango is missing."""

import os
import re
import signal
import socket
import subprocess
import sys
import tempfile
import threading
import unittest
from unittest import mock

from tls_setup import client_files, tls_znhost
from znhost_process import REPLY_BOUND, START_BOUND, Znhost, free_loopback_port, wait_until

from remotectrl import _hostlink, _wire
from remotectrl._tango_properties import Config, PropertyError, conflict, resolve
from remotectrl._tls import TlsFiles
from remotectrl.errors import AcquisitionFailed, ConnectionFailed, ProtocolError, RemoteError, ReplyTimeout

try:
    from tango import AttrQuality, Database, DeviceProxy, DevFailed, DevState, EventType
    from tango.test_context import MultiDeviceTestContext

    from remotectrl.tango import DESCRIPTION, RemoteCtrl, failure
except ImportError as missing:
    MultiDeviceTestContext, why = None, "PyTango is missing (%s): tools/install-deps installs python3-tango" % missing

LINK_TIMEOUT = 1.0  # short, so that a hung host shows soon; every wait on it is bounded generously
GOOD, FAILING, SILENT, HUNG, SECURE = ("test/remotectrl/%s" % name
                                       for name in ("good", "failing", "silent", "hung", "secure"))
TLS_PROPERTIES = dict(zip(("TlsCA", "TlsCertificate", "TlsKey"), client_files()))


def server(*args):
    """Runs RemoteCtrlDS with ``args``; returns its exit status and its output."""
    done = subprocess.run([sys.executable, "-m", "remotectrl._server", *args], capture_output=True, text=True,
                          timeout=START_BOUND)
    return done.returncode, done.stdout + done.stderr


class SilentHost:
    """A loopback port whose queue of connections is full: connects to it go unanswered."""

    def __init__(self):
        self.listener = socket.socket()
        self.listener.bind(("127.0.0.1", 0))
        self.listener.listen(0)
        self.port = self.listener.getsockname()[1]
        self.filler = socket.create_connection(("127.0.0.1", self.port))

    def close(self):
        self.filler.close()
        self.listener.close()


class Recorder:
    """A link's listener that keeps what it is told, without the version numbers."""

    def __init__(self):
        self.heard = []

    def __getattr__(self, event):
        return lambda version, *details: self.heard.append((event,) + details)


class CommandTest(unittest.TestCase):
    def test_help_and_usage_errors_need_no_tango(self):
        for args, expected in [([], 2), (["-nodb"], 2), (["--help"], 0)]:
            status, output = server(*args)
            self.assertEqual(status, expected, args)
            self.assertIn("RemoteCtrlDS INSTANCE" if expected == 0 else "missing INSTANCE", output)


class PropertiesTest(unittest.TestCase):
    def test_device_then_class_then_default_and_every_value_checked(self):
        default = Config("127.0.0.1", 59876, 0, 5.0)
        tls = TlsFiles(*client_files())
        ca, certificate, key = tls
        rows = [  # device's, class's, the configuration or the error
            ({}, {}, default),
            ({"Port": ["1234"], "Host": [" "]}, {"Port": ["99"], "Host": ["lab"]}, default._replace(host="lab", port=1234)),
            ({"DeviceIndex": ["2"]}, {"Timeout": ["0.5"]}, default._replace(device_index=2, timeout=0.5)),
            ({"Timeout": ["abc"]}, {}, "property Timeout: 'abc' is not a number of seconds above 0"),
            ({"Timeout": ["inf"]}, {}, "property Timeout: 'inf' is not a number of seconds above 0"),
            ({}, {"Port": ["0"]}, "property Port: '0' is not a port from 1 to 65535"),
            ({"DeviceIndex": ["-1"]}, {}, "property DeviceIndex: '-1' is not a device index from 0 to 2147483647"),
            ({"Host": ["a b"]}, {}, "property Host: 'a b' is not a host name or address"),
            ({"Host": ["a", "b"]}, {}, "property Host: ['a', 'b'] holds 2 values, not one"),
            ({"TlsCA": [ca], "TlsKey": [key]}, {"TlsCertificate": [certificate]}, default._replace(tls=tls)),
            ({"TlsCA": [ca], "TlsKey": [key]}, {}, "property TlsCertificate: '' must be set with TlsCA and TlsKey "
                                                   "(all three or none)"),
            ({"TlsCA": [ca], "TlsCertificate": [certificate], "TlsKey": ["/none.key"]}, {},
             "property TlsKey: '/none.key' cannot be read: No such file or directory"),
        ]
        for device, device_class, expected in rows:
            with self.subTest(device=device, device_class=device_class):
                if isinstance(expected, Config):
                    self.assertEqual(resolve(device, device_class), expected)
                else:
                    self.assertRaisesRegex(PropertyError, "^%s$" % re.escape(expected),
                                           resolve, device, device_class)
        self.assertEqual(str(conflict("h:1", None, tls)), "property TlsCA: '' differs from %r, which this server's "
                         "other devices of h:1 use (one connection serves them all)" % ca)


class GarbledClient:
    """Connects to nothing, answers every check and accepts every START, then garbles its end."""

    def __init__(self, host, port, timeout, ssl_context):
        self.timeout = timeout

    def send_raw(self, line):
        return [_wire.SYNC_REPLY]

    def start(self, *settings, wait):
        pass

    def wait_acquisition(self, timeout):
        raise ProtocolError("garbled")

    def close(self):
        pass


class HostLinkTest(unittest.TestCase):
    """One link's listener hears of the host and of its acquisition without asking."""

    @classmethod
    def setUpClass(cls):
        cls.host = Znhost("[Device0]\n")
        cls.addClassCleanup(cls.host.close)
        cls.host.start()

    def attach(self, port):
        recorder = Recorder()
        link, _ = _hostlink.attach("127.0.0.1", port, "a", recorder, LINK_TIMEOUT)
        self.addCleanup(_hostlink.detach, link, "a")
        return link, recorder

    def hears(self, recorder, *event):
        self.assertTrue(wait_until(lambda: recorder.heard[-1:] == [event], REPLY_BOUND), recorder.heard)

    def test_a_host_that_dies_and_returns_is_seen_without_a_request(self):
        link, recorder = self.attach(self.host.port)
        answering = ("host_changed", True, "connected to 127.0.0.1:%d" % self.host.port)
        self.hears(recorder, *answering)
        self.host.stop()
        self.assertTrue(wait_until(lambda: recorder.heard[-1][:2] == ("host_changed", False), REPLY_BOUND))
        self.host.start()
        self.hears(recorder, *answering)
        self.assertFalse(link.call(LINK_TIMEOUT, lambda client: client.gui_is_running(0)))

    def test_a_hung_host_makes_the_acquisition_overdue_and_no_thread_watches_it(self):
        link, recorder = self.attach(self.host.port)
        threads = threading.active_count()
        link.start("a", LINK_TIMEOUT, 0, 1, 0.5, "", 0)
        self.assertLessEqual(threading.active_count(), threads)
        os.kill(self.host.process.pid, signal.SIGSTOP)
        self.addCleanup(os.kill, self.host.process.pid, signal.SIGCONT)
        self.hears(recorder, "acquisition_overdue",
                   "no end of the acquisition from 127.0.0.1:%d by Count x ExposureTime + Timeout" % self.host.port)
        os.kill(self.host.process.pid, signal.SIGCONT)
        self.hears(recorder, "acquisition_ended", None, False)

    def test_a_device_with_other_tls_files_than_the_link_is_refused_it(self):
        self.attach(self.host.port)
        with self.assertRaises(_hostlink.TlsConflict) as refused:
            _hostlink.attach("127.0.0.1", self.host.port, "b", Recorder(), LINK_TIMEOUT, TlsFiles(*client_files()))
        self.assertIsNone(refused.exception.linked)

    def test_a_reply_that_cannot_be_ends_the_acquisition_and_the_link_goes_on(self):
        with mock.patch.object(_hostlink, "Client", GarbledClient):
            link, recorder = self.attach(free_loopback_port())
            link.start("a", LINK_TIMEOUT, 0, 1, 0.0, "", 0)
            self.assertTrue(wait_until(lambda: len(recorder.heard) >= 5, REPLY_BOUND), recorder.heard)
        events = [event[:1] + tuple(map(str, event[1:2])) for event in recorder.heard[:5]]
        self.assertEqual(events, [("host_changed", "True"), ("acquisition_started",), ("acquisition_ended", "garbled"),
                                  ("host_changed", "False"), ("host_changed", "True")])


@unittest.skipIf(MultiDeviceTestContext is None, "" if MultiDeviceTestContext else why)
class FailureTest(unittest.TestCase):
    def test_each_error_has_its_reason(self):
        rows = [(RemoteError("ERROR: X"), "Refused", "ERROR: X"), (AcquisitionFailed("ERROR: Y"), "Refused", "ERROR: Y"),
                (ProtocolError("odd"), "Protocol", "odd"), (ConnectionFailed("gone"), "NoHost", "gone"),
                (ReplyTimeout("late"), "NoHost", "late"), (_hostlink.Busy("busy"), "NotSent", "busy"),
                (TypeError("type"), "NotSent", "type"), (ValueError("value"), "NotSent", "value")]
        for error, reason, description in rows:
            self.assertEqual(failure(error), ("RemoteCtrl_" + reason, description), error)
        self.assertIsNone(failure(KeyError("a bug")))


@unittest.skipIf(MultiDeviceTestContext is None, "" if MultiDeviceTestContext else why)
class RemoteCtrlTest(unittest.TestCase):
    """GOOD acquires; FAILING's acquisitions fail; both take Port, and FAILING DeviceIndex, from the
    class. The hosts of SILENT and HUNG take no connection; SILENT's time-out is longer than the
    server may take to start, and it gets no command, which would hold the server's shutdown.
    SECURE's host speaks TLS."""

    @classmethod
    def setUpClass(cls):
        cls.host = Znhost("[Device0]\n[Device1]\nAcqResult=3\n")
        cls.addClassCleanup(cls.host.close)
        cls.host.start()
        cls.tls_host = tls_znhost("[Device0]\n")
        cls.addClassCleanup(cls.tls_host.close)
        cls.tls_host.start()
        cls.silent_host, hung_host = SilentHost(), SilentHost()
        for host in (cls.silent_host, hung_host):
            cls.addClassCleanup(host.close)
        handle, cls.properties = tempfile.mkstemp(suffix=".db")
        os.close(handle)
        cls.addClassCleanup(os.unlink, cls.properties)
        devices = [{"name": GOOD, "properties": {"DeviceIndex": 0, "Timeout": REPLY_BOUND}},
                   {"name": FAILING, "properties": {"Timeout": REPLY_BOUND}},
                   {"name": SILENT, "properties": {"Port": cls.silent_host.port, "Timeout": 2 * START_BOUND},
                    "memorized": {"Count": "3"}},
                   {"name": HUNG, "properties": {"Port": hung_host.port, "Timeout": LINK_TIMEOUT}},
                   {"name": SECURE, "properties": dict(TLS_PROPERTIES, Port=cls.tls_host.port, DeviceIndex=0,
                                                                    Timeout=REPLY_BOUND)}]
        context = MultiDeviceTestContext([{"class": RemoteCtrl, "devices": devices}], db=cls.properties,
                                         host="127.0.0.1", process=True, timeout=START_BOUND)
        Database(cls.properties).put_class_property("RemoteCtrl", {"Port": cls.host.port, "DeviceIndex": 1})
        context.__enter__()
        cls.addClassCleanup(context.__exit__, None, None, None)
        cls.good, cls.failing, cls.silent, cls.hung, cls.secure = map(context.get_device,
                                                                      (GOOD, FAILING, SILENT, HUNG, SECURE))
        cls.device_access = context.get_device_access

    def settle(self, device, state):
        self.assertTrue(wait_until(lambda: device.state() == state, REPLY_BOUND), (device.state(), device.status()))

    def traced(self, text):
        """Whether znhost traces ``text``; its trace lines reach the file a moment after the replies."""
        return wait_until(lambda: text in self.host.read("stderr"), REPLY_BOUND)

    def refusal(self, call, *args):
        with self.assertRaises(DevFailed) as raised:
            call(*args)
        return raised.exception.args[0].desc

    def test_start_runs_to_on_with_change_events_and_writes_the_file(self):
        states = []
        subscription = self.good.subscribe_event(
            "State", EventType.CHANGE_EVENT, lambda event: states.append(event.errors or event.attr_value.value))
        self.addCleanup(self.good.unsubscribe_event, subscription)
        self.good.write_attributes([("Count", 2), ("ExposureTime", 0.01), ("FileName", "run.txt")])
        # A new subscription connects in the background and may miss the first moments' events.
        self.good.Start()
        self.settle(self.good, DevState.ON)
        del states[:]
        self.good.Start()
        self.assertTrue(wait_until(lambda: states[-2:] == [DevState.RUNNING, DevState.ON], REPLY_BOUND), states)
        self.assertTrue(os.path.isfile(os.path.join(self.host.data_dir, "run.txt")))
        self.assertEqual((self.good.LastReply, self.good.status()), ("OK", "acquisition ended: OK"))

    def test_a_device_with_tls_properties_reaches_on_and_acquires(self):
        self.settle(self.secure, DevState.ON)
        self.secure.write_attributes([("Count", 1), ("ExposureTime", 0.01), ("FileName", "tls.txt")])
        self.secure.Start()
        self.assertTrue(wait_until(lambda: self.secure.LastReply == "OK", REPLY_BOUND), self.secure.status())
        self.assertTrue(os.path.isfile(os.path.join(self.tls_host.data_dir, "tls.txt")))

    def test_a_failed_acquisition_faults_and_is_logged_and_a_refusal_warns_in_last_reply(self):
        log = os.path.join(self.host.folder, "failing.log")
        self.failing.add_logging_target("file::" + log)
        self.failing.set_logging_level(4)  # INFO
        replies = []
        subscription = self.failing.subscribe_event(
            "LastReply", EventType.CHANGE_EVENT, lambda event: replies.append(None if event.err else event.attr_value))
        self.addCleanup(self.failing.unsubscribe_event, subscription)
        self.failing.Start()
        self.settle(self.failing, DevState.FAULT)
        self.assertEqual(self.failing.status(), "acquisition failed: ERROR: ACQUISITION FAILED")
        self.assertTrue(wait_until(lambda: os.path.isfile(log) and "acquisition failed" in open(log).read(), REPLY_BOUND))
        self.failing.Threshold = 100  # the simulated device's maximum, which it refuses
        self.assertEqual(self.refusal(self.failing.Start), "ERROR: INVALID THL")
        reply = self.failing.read_attribute("LastReply")
        self.assertEqual((reply.value, reply.quality, self.failing.state()),
                         ("ERROR: INVALID THL", AttrQuality.ATTR_WARNING, DevState.FAULT))
        self.assertTrue(wait_until(lambda: [(r.value, r.quality) for r in replies if r][-1:] == [
            ("ERROR: INVALID THL", AttrQuality.ATTR_WARNING)], REPLY_BOUND))

    def test_init_keeps_the_acquisition_which_stop_ends_and_the_other_device_waits(self):
        self.good.write_attributes([("Count", 1), ("ExposureTime", 600)])
        self.good.Start()
        self.good.Init()
        self.assertEqual(self.good.state(), DevState.RUNNING)
        self.assertIn("has not ended yet", self.refusal(self.failing.Start))
        self.failing.Stop()  # not its acquisition: the host must not see a STOP, traced before the next line
        self.assertTrue(self.failing.GuiIsRunning() is False and self.traced("isRunning(sim1)"))
        self.assertNotIn("abortAcquisition", self.host.read("stderr"))
        self.good.Stop()
        self.settle(self.good, DevState.ON)
        self.assertEqual(self.good.status(), "acquisition stopped: ERROR: ACQUISITION FAILED")

    def test_a_property_that_cannot_be_used_faults_its_device_only_until_a_good_init(self):
        properties = Database(self.properties)
        self.addCleanup(self.good.Init)
        self.addCleanup(properties.put_device_property, GOOD, {"Timeout": str(REPLY_BOUND)})
        properties.put_device_property(GOOD, {"Timeout": "abc"})
        self.good.Init()
        self.assertEqual((self.good.state(), self.good.status()),
                         (DevState.FAULT, "property Timeout: 'abc' is not a number of seconds above 0"))
        self.assertIn("property Timeout", self.refusal(self.good.GuiIsRunning))
        self.assertFalse(self.failing.GuiIsRunning())
        properties.put_device_property(GOOD, {"Timeout": str(REPLY_BOUND)})
        self.good.Init()
        self.settle(self.good, DevState.ON)
        self.assertFalse(self.failing.GuiIsRunning())

    def test_a_silent_host_keeps_its_device_unknown_and_state_never_waits_for_it(self):
        self.assertEqual((self.silent.state(), self.silent.status()),
                         (DevState.UNKNOWN, "connecting to 127.0.0.1:%d" % self.silent_host.port))
        asking = threading.Thread(target=self.refusal, args=(DeviceProxy(self.device_access(HUNG)).GuiIsRunning,))
        asking.start()
        reads = 0
        while asking.is_alive():  # the command waits a time-out, State never
            self.assertEqual(self.hung.state(), DevState.UNKNOWN)
            reads += 1
        self.assertGreater(reads, 50)

    def test_attributes_commands_and_the_device_describe_themselves(self):
        rows = [("Count", "label", "Frames"), ("Count", "min_value", "1"), ("Count", "max_value", "2147483647"),
                ("ExposureTime", "unit", "s"), ("ExposureTime", "format", "%.3f"), ("ExposureTime", "min_value", "0.001"),
                ("FileName", "label", "File name"), ("Threshold", "min_value", "0"), ("LastReply", "label", "Last reply")]
        for name, field, expected in rows:
            self.assertEqual(getattr(self.good.get_attribute_config(name), field), expected, (name, field))
        self.assertIn("seconds per frame", self.good.get_attribute_config("ExposureTime").description)
        commands = {info.cmd_name: (info.in_type_desc, info.out_type_desc) for info in self.good.command_list_query()}
        self.assertEqual(commands["GuiSetFile"][0], "file that devcontrol's acquisitions on the device write")
        self.assertEqual(commands["GuiIsRunning"], ("none", "whether devcontrol reports the device running"))
        self.assertEqual(self.good.description(), DESCRIPTION)
        self.assertIn("minimum", self.refusal(setattr, self.good, "Count", 0))
        self.assertEqual(self.silent.Count, 3)  # memorized

    def test_gui_commands(self):
        commands = ["GuiStart", "GuiIsRunning", "GuiStop", "GuiIsRunning"]
        self.assertEqual([self.good.command_inout(name) for name in commands], [None, True, None, False])
        self.good.GuiSetFile("gui.txt")
        self.assertTrue(self.traced('devcontrol.setFile(sim0, "gui.txt", 1)'))

    def test_a_server_that_tango_cannot_start_exits_1(self):
        endpoint = "giop:tcp:127.0.0.1:%d" % self.host.port  # taken by znhost
        status, output = server("x", "-nodb", "-dlist", "x/y/z", "-ORBendPoint", endpoint)
        self.assertEqual(status, 1, output)
