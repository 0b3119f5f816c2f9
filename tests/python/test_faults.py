"""Faults across the real components: znhost with the plug-in, the Python client and the Tango device
server, each killed, stopped or restarted in the middle of an acquisition, and a peer that sends
without line feeds. Everything on loopback in a network namespace of its own (see isolated)."""

import os
import signal
import socket
import subprocess
import sys
import unittest

from znhost_process import REPLY_BOUND, START_BOUND, Znhost, free_loopback_port, wait_until

import remotectrl

try:
    from tango import Database, DeviceProxy, DevFailed, DevState
except ImportError as missing:
    DeviceProxy, why = None, "PyTango is missing (%s): tools/install-deps installs python3-tango" % missing

LEFT = "[remotectrl] Acquisition on device 0 ended with %s after its client left"
STARTED = 'trace: sim0.runAcquisition(1, %s, 1, "")'
LONG_RUN = 600  # seconds: the fault always comes before its end
OLD_RUN = 6  # seconds: outlasts a Tango server's restart


class Process:
    """A child process that the test stops; its output goes to files beside znhost's."""

    def __init__(self, test, host, name, command):
        self.host, self.name, self.command, self.child = host, name, command, None
        test.addCleanup(self.kill)

    def start(self):
        with open(self.host.file(self.name), "w") as output:
            self.child = subprocess.Popen(self.command, stdout=output, stderr=subprocess.STDOUT)

    def kill(self):
        if self.child is not None:
            self.child.kill()
            self.child.wait(REPLY_BOUND)
            self.child = None


def kill_host(host):
    os.kill(host.process.pid, signal.SIGKILL)
    host.stop()


def peak_memory_kib(pid):
    with open("/proc/%d/status" % pid) as status:
        return next(int(line.split()[1]) for line in status if line.startswith("VmHWM:"))


class HostFaultTest(unittest.TestCase):
    def setUp(self):
        self.host = Znhost("[Device0]\n")
        self.addCleanup(self.host.close)
        self.host.start()

    def logged(self, text):
        return wait_until(lambda: text in self.host.read("stderr"), REPLY_BOUND)

    def test_a_host_killed_mid_acquisition_is_a_connection_error_and_serves_once_restarted(self):
        with remotectrl.Client(port=self.host.port, timeout=REPLY_BOUND) as client:
            client.start(0, 1, LONG_RUN, wait=False)
            self.assertTrue(self.logged(STARTED % LONG_RUN))
            kill_host(self.host)
            self.assertRaises(ConnectionError, client.wait_acquisition, timeout=REPLY_BOUND)
        self.host.start()
        with remotectrl.Client(port=self.host.port, timeout=REPLY_BOUND) as client:
            self.assertIsNone(client.start(0, 1, 0.01))

    def test_the_acquisition_of_a_killed_client_process_ends_in_the_log_not_at_the_next_client(self):
        starter = "import remotectrl, sys, time; remotectrl.Client(port=%d).start(0, 1, 1, wait=False); time.sleep(%d)"
        client = Process(self, self.host, "client", [sys.executable, "-c", starter % (self.host.port, LONG_RUN)])
        client.start()
        self.assertTrue(self.logged(STARTED % 1))
        client.kill()
        with remotectrl.Client(port=self.host.port, timeout=REPLY_BOUND) as following:
            self.assertFalse(following.gui_is_running(0))
            self.assertTrue(self.logged(LEFT % "OK"))
            with self.assertNoLogs("remotectrl", "WARNING"):  # a stray line would be dropped with one
                self.assertFalse(following.gui_is_running(0))

    def test_a_peer_that_never_ends_its_line_is_answered_once_with_bounded_memory(self):
        before = peak_memory_kib(self.host.process.pid)
        with socket.create_connection(("127.0.0.1", self.host.port), timeout=REPLY_BOUND) as peer:
            for _ in range(512):
                peer.sendall(b"x" * 65536)
            peer.sendall(b"\nGUI_ISRUNNING(0)\n")
            replies = peer.makefile("rb")
            self.assertEqual([replies.readline(), replies.readline()], [b"ERROR: COMMAND TOO LONG\n", b"NO\n"])
        self.assertLess(peak_memory_kib(self.host.process.pid) - before, 8192)


@unittest.skipIf(DeviceProxy is None, "" if DeviceProxy else why)
class DeviceServerFaultTest(unittest.TestCase):
    """One device, test/faults/a, on device 0 of a znhost, in a RemoteCtrlDS process of the test's
    own, which it may kill and start again; Timeout is 1 s so that a hung host shows soon."""

    def setUp(self):
        self.host = Znhost("[Device0]\n")
        self.addCleanup(self.host.close)
        self.host.start()
        properties, port = self.host.file("devices.db"), free_loopback_port()
        with open(properties, "w") as out:
            out.write("RemoteCtrlDS/faults/DEVICE/RemoteCtrl: test/faults/a\n")
        Database(properties).put_device_property("test/faults/a", {"Port": self.host.port, "Timeout": 1})
        command = [sys.executable, "-m", "remotectrl._server", "faults", "-file=" + properties,
                   "-ORBendPoint", "giop:tcp:127.0.0.1:%d" % port]
        self.server = Process(self, self.host, "server", command)
        self.access = "tango://127.0.0.1:%d/test/faults/a#dbase=no" % port
        self.device = self.serve()

    def serve(self):
        """Starts the server; returns a proxy to the device once it answers."""
        self.server.start()
        device = DeviceProxy(self.access)
        device.set_timeout_millis(int(REPLY_BOUND * 1000))
        self.assertTrue(wait_until(lambda: self.answers(device), START_BOUND), self.host.read("server"))
        return device

    @staticmethod
    def answers(device):
        try:
            return device.state() is not None
        except DevFailed:
            return False

    def settle(self, state, status):
        seen = lambda: (self.device.state(), self.device.status())
        self.assertTrue(wait_until(lambda: seen() == (state, status), REPLY_BOUND), seen())

    def acquire(self, seconds):
        self.device.ExposureTime = seconds
        self.device.Start()
        self.assertEqual(self.device.state(), DevState.RUNNING)

    def test_a_host_killed_mid_acquisition_makes_the_device_unknown_then_on_by_itself(self):
        self.acquire(LONG_RUN)
        kill_host(self.host)
        self.assertTrue(wait_until(lambda: self.device.state() == DevState.UNKNOWN, REPLY_BOUND))
        self.host.start()
        self.settle(DevState.ON, "connected to 127.0.0.1:%d" % self.host.port)
        self.acquire(0.01)
        self.settle(DevState.ON, "acquisition ended: OK")

    def test_a_restarted_server_is_not_told_of_its_killed_predecessor_s_acquisition(self):
        self.acquire(OLD_RUN)
        self.server.kill()
        self.device = self.serve()
        self.settle(DevState.ON, "connected to 127.0.0.1:%d" % self.host.port)
        self.assertNotIn(LEFT % "OK", self.host.read("stderr"), "the old run ended before the server was back")
        self.assertTrue(wait_until(lambda: LEFT % "OK" in self.host.read("stderr"), OLD_RUN + REPLY_BOUND))
        self.assertEqual(self.device.status(), "connected to 127.0.0.1:%d" % self.host.port)
        self.acquire(0.01)
        self.settle(DevState.ON, "acquisition ended: OK")

    def test_a_stopped_host_faults_the_running_device_until_it_continues(self):
        self.acquire(1)
        os.kill(self.host.process.pid, signal.SIGSTOP)
        self.addCleanup(os.kill, self.host.process.pid, signal.SIGCONT)
        overdue = "no end of the acquisition from 127.0.0.1:%d by Count x ExposureTime + Timeout" % self.host.port
        self.settle(DevState.FAULT, overdue)
        os.kill(self.host.process.pid, signal.SIGCONT)
        self.settle(DevState.ON, "acquisition ended: OK")
