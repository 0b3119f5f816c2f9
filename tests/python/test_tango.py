"""The Tango device server against a real znhost: two devices of one host in one server without a
database, everything on loopback. Skipped where PyTango is missing."""

import os
import subprocess
import sys
import unittest

from znhost_process import REPLY_BOUND, START_BOUND, Znhost, wait_until

try:
    from tango import DevFailed, DevState, EventType
    from tango.test_context import MultiDeviceTestContext

    from remotectrl.tango import RemoteCtrl
except ImportError as missing:
    MultiDeviceTestContext, why = None, "PyTango is missing (%s): tools/install-deps installs python3-tango" % missing


def server(*args):
    """Runs RemoteCtrlDS with ``args``; returns its exit status and its output."""
    done = subprocess.run([sys.executable, "-m", "remotectrl._server", *args], capture_output=True, text=True,
                          timeout=START_BOUND)
    return done.returncode, done.stdout + done.stderr


class CommandTest(unittest.TestCase):
    def test_help_and_usage_errors_need_no_tango(self):
        for args, expected in [([], 2), (["-nodb"], 2), (["--help"], 0)]:
            status, output = server(*args)
            self.assertEqual(status, expected, args)
            self.assertIn("RemoteCtrlDS INSTANCE" if expected == 0 else "missing INSTANCE", output)


def device_info(index, port):
    properties = {"Port": port, "DeviceIndex": index, "Timeout": REPLY_BOUND}
    return {"name": "test/remotectrl/%d" % index, "properties": properties}


@unittest.skipIf(MultiDeviceTestContext is None, "" if MultiDeviceTestContext else why)
class RemoteCtrlTest(unittest.TestCase):
    """Device 0 acquires; device 1's acquisitions fail."""

    @classmethod
    def setUpClass(cls):
        cls.host = Znhost("[Device0]\n[Device1]\nAcqResult=3\n")
        cls.addClassCleanup(cls.host.close)
        cls.host.start()
        devices = [{"class": RemoteCtrl, "devices": [device_info(i, cls.host.port) for i in (0, 1)]}]
        context = MultiDeviceTestContext(devices, host="127.0.0.1", process=True, timeout=START_BOUND)
        context.__enter__()
        cls.addClassCleanup(context.__exit__, None, None, None)
        cls.good, cls.failing = (context.get_device("test/remotectrl/%d" % i) for i in (0, 1))

    def settle(self, device, state):
        self.assertTrue(wait_until(lambda: device.state() == state, REPLY_BOUND), device.status())

    def traced(self, text):
        """Whether znhost traces ``text``; its trace lines reach the file a moment after the replies."""
        return wait_until(lambda: text in self.host.read("stderr"), REPLY_BOUND)

    def refusal(self, call):
        with self.assertRaises(DevFailed) as raised:
            call()
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

    def test_a_failed_acquisition_ends_in_fault_and_a_refused_start_raises_the_hosts_line(self):
        self.failing.Start()
        self.settle(self.failing, DevState.FAULT)
        self.assertEqual(self.failing.status(), "acquisition failed: ERROR: ACQUISITION FAILED")
        self.failing.Count = -1
        self.assertEqual(self.refusal(self.failing.Start), "ERROR: INVALID ACQ COUNT")
        self.assertEqual((self.failing.LastReply, self.failing.state()), ("ERROR: INVALID ACQ COUNT", DevState.FAULT))

    def test_stop_ends_this_devices_acquisition_and_the_other_device_waits(self):
        self.good.write_attributes([("Count", 1), ("ExposureTime", 600)])
        self.good.Start()
        self.assertEqual(self.good.state(), DevState.RUNNING)
        self.assertIn("has not ended yet", self.refusal(self.failing.Start))
        # A STOP that reaches the simulated device before it runs the acquisition is lost.
        self.assertTrue(self.traced("sim0.runAcquisition(1, 600"))
        self.failing.Stop()  # not its acquisition: the host must not see a STOP, traced before the next line
        self.assertTrue(self.failing.GuiIsRunning() is False and self.traced("isRunning(sim1)"))
        self.assertNotIn("abortAcquisition", self.host.read("stderr"))
        self.good.Stop()
        self.settle(self.good, DevState.ON)
        self.assertEqual(self.good.status(), "acquisition stopped: ERROR: ACQUISITION FAILED")

    def test_a_server_that_tango_cannot_start_exits_1(self):
        endpoint = "giop:tcp:127.0.0.1:%d" % self.host.port  # taken by znhost
        status, output = server("x", "-nodb", "-dlist", "x/y/z", "-ORBendPoint", endpoint)
        self.assertEqual(status, 1, output)

    def test_gui_commands(self):
        commands = ["GuiStart", "GuiIsRunning", "GuiStop", "GuiIsRunning"]
        self.assertEqual([self.good.command_inout(name) for name in commands], [None, True, None, False])
        self.good.GuiSetFile("gui.txt")
        self.assertTrue(self.traced('devcontrol.setFile(sim0, "gui.txt", 1)'))

    def test_a_host_that_goes_away_gives_unknown_until_it_is_back(self):
        self.host.stop()
        self.refusal(self.good.GuiIsRunning)
        self.assertEqual(self.good.state(), DevState.UNKNOWN)
        self.assertIn("127.0.0.1:%d" % self.host.port, self.refusal(self.good.GuiIsRunning))
        self.host.start()
        self.assertFalse(self.good.GuiIsRunning())
        self.assertEqual(self.good.state(), DevState.ON)
