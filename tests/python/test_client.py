"""The Client against a real znhost, against a bare loopback socket that answers late, oddly or not
at all, and how it writes method arguments into a command line."""

import os
import pathlib
import socket
import unittest

import remotectrl
from remotectrl import _arguments, _syntax
from znhost_process import REPLY_BOUND, Znhost, free_loopback_port, wait_until

SYNC = _syntax.SYNC_REPLY


class ClientTest(unittest.TestCase):
    """One traced znhost for the class on a free loopback port; its "ready" means serving."""

    # Device 0 works; device 1 refuses every threshold; device 2's acquisitions fail.
    config_text = "[Device0]\n[Device1]\nSetThresholdResult=1\n[Device2]\nAcqResult=3\n"

    @classmethod
    def setUpClass(cls):
        cls.host = Znhost(cls.config_text)
        cls.addClassCleanup(cls.host.close)
        cls.host.start()
        cls.port, cls.data_dir = cls.host.port, cls.host.data_dir

    def setUp(self):
        self.client = remotectrl.Client(port=self.port, timeout=REPLY_BOUND)
        self.addCleanup(self.client.close)

    def traced(self, call):
        prefix = "trace: %s(" % call
        calls = [line for line in self.host.read("stderr").splitlines() if line.startswith(prefix)]
        return calls[-1][len(prefix) : -1].split(", ") if calls else []

    def test_start_waits_for_the_end_and_raises_the_refusal_or_failure(self):
        self.assertIsNone(self.client.start(0, 1, 1e-7, pathlib.PurePath(" a,b m\u00e4rz "), 1 / 3))
        self.assertTrue(os.path.exists(os.path.join(self.data_dir, " a,b m\u00e4rz ")))
        self.assertEqual(float(self.traced("sim0.runAcquisition")[1]), 1e-7)
        self.assertEqual(float(self.traced("sim0.setThreshold")[2]), 1 / 3)
        self.assertRaises(remotectrl.AcquisitionFailed, self.client.start, 2, 1, 0, "f.txt", 10)
        with self.assertRaises(remotectrl.RemoteError) as refused:
            self.client.start(1, 1, 0, "f.txt", 10)
        self.assertNotIsInstance(refused.exception, remotectrl.AcquisitionFailed)

    def test_start_without_waiting_then_stop(self):
        self.client.start(0, 1, 600, "", 10, wait=False)
        # A STOP that reaches the simulated device before it runs the acquisition is lost.
        self.assertTrue(wait_until(lambda: self.traced("sim0.runAcquisition")[1:2] == ["600"], REPLY_BOUND))
        self.assertRaises(TimeoutError, self.client.wait_acquisition, timeout=0.05)
        self.client.stop()
        self.assertRaises(remotectrl.AcquisitionFailed, self.client.wait_acquisition, timeout=REPLY_BOUND)
        self.assertRaises(RuntimeError, self.client.wait_acquisition, timeout=0)

    def test_gui_commands(self):
        methods = ["gui_start", "gui_is_running", "gui_stop", "gui_is_running"]
        self.assertEqual([getattr(self.client, method)(1) for method in methods], [None, True, None, False])
        self.assertIsNone(self.client.gui_set_file(1, "a,b.txt"))

    def test_send_raw(self):
        for line, replies in [("GUI_ISRUNNING(0)", ["NO"]), ("hello", []), ("GUI_SETFILE(0,a,b)", [SYNC])]:
            self.assertEqual(self.client.send_raw(line), replies, line)
        self.assertRaises(ValueError, self.client.send_raw, "GUI_START(0)\nGUI_STOP(0)")
        self.assertEqual(self.client.send_raw("QUIT()"), [])
        self.assertRaises(ConnectionError, self.client.gui_is_running, 0)


class BareServerTest(unittest.TestCase):
    """The test answers by hand: the client's writes wait in the socket buffers, so no thread."""

    def setUp(self):
        with socket.create_server(("127.0.0.1", 0)) as listener:
            self.client = remotectrl.Client(port=listener.getsockname()[1], timeout=REPLY_BOUND)
            self.server = listener.accept()[0]
        self.addCleanup(self.client.close)
        self.addCleanup(self.server.close)
        self.server.settimeout(REPLY_BOUND)

    def answer(self, *lines):
        self.server.sendall("".join(line + "\n" for line in lines).encode())

    def test_late_replies_go_to_the_command_that_timed_out_and_odd_ones_raise(self):
        self.client.timeout = 0.2
        self.assertRaisesRegex(TimeoutError, "^no reply to GUI_ISRUNNING", self.client.gui_is_running, 0)
        self.client.timeout = REPLY_BOUND
        self.answer("NO", SYNC, "YES", SYNC, "MAYBE", SYNC)
        for call, reply in [(self.client.gui_start, "YES"), (self.client.gui_is_running, "MAYBE")]:
            with self.assertRaises(remotectrl.RemoteError) as raised:
                call(0)
            self.assertEqual(raised.exception.reply, reply)

    def test_a_stray_final_line_is_dropped_and_of_two_own_ones_the_latest_counts(self):
        self.answer("OK", SYNC, SYNC, SYNC, "OK", "ERROR: ACQUISITION FAILED")
        with self.assertLogs("remotectrl", "WARNING"):
            self.client.gui_stop(0)
        self.client.start(0, 1, 0, "f", 10, wait=False)
        self.client.start(0, 1, 0, "g", 10, wait=False)
        self.assertRaises(remotectrl.AcquisitionFailed, self.client.wait_acquisition, timeout=0)

    def test_refused_argument_sends_nothing_and_close_ends_the_session(self):
        self.answer(SYNC)
        with self.client, self.assertRaises(ValueError):
            self.client.stop()
            self.client.start(0, 1.5, 1, "f")
        self.assertEqual(self.server.makefile("rb").read(), b"STOP()\nGUI_SETFILE()\nQUIT()\n")

    def test_connection_errors_name_the_server(self):
        self.server.close()
        for _ in range(2):
            self.assertRaisesRegex(ConnectionError, "127.0.0.1:", self.client.gui_start, 0)
        port = free_loopback_port()
        self.assertRaisesRegex(ConnectionError, "127.0.0.1:%d" % port, remotectrl.Client, port=port)
        self.assertRaises(ValueError, remotectrl.Client, port=65536)


class ArgumentTest(unittest.TestCase):
    def test_numbers_outside_what_the_server_reads_are_refused(self):
        whole, real = _arguments.whole_number, _arguments.real_number
        self.assertEqual([whole("n", 2**31 - 1), whole("n", -(2**31))], ["2147483647", "-2147483648"])
        refused = [(True, 1.0, "1", 2**31, -(2**31) - 1), (False, "0.5", float("inf"), 10**400, 2**53 + 1)]
        for convert, values in zip([whole, real], refused):
            for value in values:
                with self.subTest(value=value):
                    self.assertRaises(ValueError, convert, "n", value)

    def test_texts_are_quoted_only_where_needed(self):
        def line(text):
            return _arguments.command_line("F", [("d", "0", False), ("file", text, True), ("n", "1", False)])

        for text, form in [("run.txt", "run.txt"), ("", ""), ("a,b", '"a,b"'), (" a", '" a"'), ("a ", '"a "'),
                           ('a"b', 'a"b'), ('"a', '""a"'), ('"', '"""')]:
            self.assertEqual(line(text), "F(0,%s,1)" % form)
        for text in ["a(1).txt", "a\nb", "a\rb", "a\0b", 'a, "b', 5]:
            with self.subTest(text):
                self.assertRaises(ValueError, line, text)
