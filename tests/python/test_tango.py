"""The Tango device server against a real znhost: two devices of one host in one server without a
database, everything on loopback. Skipped where PyTango is missing."""

import os
import unittest

from znhost_process import REPLY_BOUND, START_BOUND, Znhost, wait_until

try:
    from tango import DevFailed, DevState, EventType
    from tango.test_context import MultiDeviceTestContext

    from remotectrl.tango import RemoteCtrl
except ImportError as missing:
    MultiDeviceTestContext, why = None, "PyTango is missing (%s): tools/install-deps installs python3-tango" % missing


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

    def refusal(self, call):
        with self.assertRaises(DevFailed) as raised:
            call()
        return raised.exception.args[0].desc

    def test_start_runs_to_on_with_change_events_and_writes_the_file(self):
        states = []
        self.good.subscribe_event("State", EventType.CHANGE_EVENT, lambda event: states.append(event.errors or event.attr_value.value))
        self.good.write_attributes([("Count", 2), ("ExposureTime", 0.01), ("FileName", "run.txt")])
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
        self.assertTrue(wait_until(lambda: "sim0.runAcquisition(1, 600" in self.host.read("stderr"), REPLY_BOUND))
        self.good.Stop()
        self.settle(self.good, DevState.ON)
        self.assertEqual(self.good.status(), "acquisition stopped: ERROR: ACQUISITION FAILED")

    def test_gui_commands(self):
        commands = ["GuiStart", "GuiIsRunning", "GuiStop", "GuiIsRunning"]
        self.assertEqual([self.good.command_inout(name) for name in commands], [None, True, None, False])
        self.good.GuiSetFile("gui.txt")
        self.assertIn('devcontrol.setFile(sim0, "gui.txt", 1)', self.host.read("stderr"))

    def test_a_host_that_goes_away_gives_unknown_until_it_is_back(self):
        self.host.stop()
        self.refusal(self.good.GuiIsRunning)
        self.assertEqual(self.good.state(), DevState.UNKNOWN)
        self.assertIn("127.0.0.1:%d" % self.host.port, self.refusal(self.good.GuiIsRunning))
        self.host.start()
        self.assertFalse(self.good.GuiIsRunning())
        self.assertEqual(self.good.state(), DevState.ON)
