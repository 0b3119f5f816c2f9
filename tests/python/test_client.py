"""Every Client method against a real znhost, with its replies and error texts."""

import os
import unittest

import remotectrl
from remotectrl import _syntax
from znhost_process import REPLY_BOUND, ZnhostTestCase, wait_until

# Device 0 works; device 1 refuses every threshold; device 2's acquisitions fail.
CONFIG = """\
[Device0]
[Device1]
SetThresholdResult=1
[Device2]
AcqResult=3
"""


def trace_string(text):
    """Decodes a string argument of a trace line: "..." with \\" \\\\ and \\xNN escapes."""
    assert text[0] == '"' and text[-1] == '"', text
    out, i, body = bytearray(), 0, text[1:-1]
    while i < len(body):
        if body[i] == "\\" and body[i + 1] == "x":
            out.append(int(body[i + 2 : i + 4], 16))
            i += 4
        elif body[i] == "\\":
            out += body[i + 1].encode()
            i += 2
        else:
            out += body[i].encode()
            i += 1
    return out.decode("utf-8")


class ClientTest(ZnhostTestCase):
    host_args = ("--trace",)
    config_text = CONFIG

    def traced(self, prefix):
        """The trace lines that start with ``prefix`` (after waiting briefly for one)."""
        wait_until(lambda: any(line.startswith(prefix) for line in self.host.trace_lines()), REPLY_BOUND)
        return [line for line in self.host.trace_lines() if line.startswith(prefix)]

    def test_start_waits_for_ok_and_writes_the_file(self):
        client = self.connect()
        self.assertIsNone(client.start(0, 2, 0.01, "run.txt", 10))
        with open(os.path.join(self.host.data_dir, "run.txt")) as data:
            self.assertEqual(len(data.read().splitlines()), 2 * 16)

    def test_failed_acquisition_raises_acquisition_failed(self):
        client = self.connect()
        for name, device, file in [("device_fails", 2, "f.txt"), ("path_refused", 0, "../outside.txt")]:
            with self.subTest(name), self.assertRaises(remotectrl.AcquisitionFailed) as raised:
                client.start(device, 1, 0, file, 10)
            self.assertIsInstance(raised.exception, remotectrl.RemoteError)
            self.assertEqual(raised.exception.reply, "ERROR: ACQUISITION FAILED")

    REFUSED_STARTS = [
        ("device_index", (9, 1, 0, "f", 10), "ERROR: INVALID DEVICE INDEX"),
        ("negative_device", (-1, 1, 0, "f", 10), "ERROR: INVALID DEVICE INDEX"),
        ("count", (0, -1, 0, "f", 10), "ERROR: INVALID ACQ COUNT"),
        ("time", (0, 1, -0.5, "f", 10), "ERROR: INVALID ACQ TIME"),
        ("threshold_at_maximum", (0, 1, 0, "f", 100), "ERROR: INVALID THL"),
        ("threshold_negative", (0, 1, 0, "f", -1), "ERROR: INVALID THL"),
        ("threshold_refused_by_device", (1, 1, 0, "f", 10), "ERROR: FAILED SETTING THL"),
    ]

    def test_refused_start_raises_remote_error_with_the_reply(self):
        client = self.connect()
        for name, args, reply in self.REFUSED_STARTS:
            with self.subTest(name), self.assertRaises(remotectrl.RemoteError) as raised:
                client.start(*args)
            self.assertNotIsInstance(raised.exception, remotectrl.AcquisitionFailed)
            self.assertEqual(raised.exception.reply, reply)
        self.assertFalse(client.gui_is_running(0))

    def start_long(self, client):
        """Starts a long acquisition and waits until the device runs it: a STOP that reaches the
        simulated device before that finds nothing to abort, and is lost."""
        count = len(self.host.trace_lines())
        client.start(0, 1, 600, "", 10, wait=False)
        running = 'sim0.runAcquisition(1, 600, 1, "")'
        self.assertTrue(wait_until(lambda: running in self.host.trace_lines()[count:], REPLY_BOUND))

    def test_start_without_waiting_then_stop(self):
        client = self.connect()
        self.start_long(client)
        with self.assertRaises(remotectrl.RemoteError) as raised:
            client.start(0, 1, 0, "", 10)
        self.assertEqual(raised.exception.reply, "ERROR: ACQ ALREADY RUNNING")
        self.assertEqual(client.send_raw("FOO()"), [], "unknown names are not answered while acquiring")
        client.stop()
        with self.assertRaises(remotectrl.AcquisitionFailed):
            client.wait_acquisition(timeout=REPLY_BOUND)
        with self.assertRaises(RuntimeError):
            client.wait_acquisition(timeout=0)
        client.start(0, 1, 0, "", 10)

    def test_sync_line_is_answered_without_a_host_call_in_both_states(self):
        client = self.connect()
        for state in ["idle", "acquiring"]:
            with self.subTest(state):
                if state == "acquiring":
                    self.start_long(client)
                calls = self.host.trace_lines()
                self.assertEqual(client.send_raw(_syntax.SYNC_COMMAND), [_syntax.SYNC_REPLY])
                self.assertEqual(self.host.trace_lines(), calls)
        client.stop()
        with self.assertRaises(remotectrl.AcquisitionFailed):
            client.wait_acquisition(timeout=REPLY_BOUND)

    def test_wait_acquisition_time_out_keeps_it_pending(self):
        client = self.connect()
        self.start_long(client)
        with self.assertRaises(TimeoutError):
            client.wait_acquisition(timeout=0.05)
        client.stop()
        with self.assertRaises(remotectrl.AcquisitionFailed):
            client.wait_acquisition(timeout=REPLY_BOUND)

    def test_gui_commands(self):
        client = self.connect()
        self.assertIsNone(client.gui_start(1))
        self.assertTrue(client.gui_is_running(1))
        self.assertIsNone(client.gui_stop(1))
        self.assertFalse(client.gui_is_running(1))

    GUI_ERRORS = [
        ("start_bad_index", lambda c: c.gui_start(9)),
        ("stop_negative_index", lambda c: c.gui_stop(-1)),
        ("isrunning_bad_index", lambda c: c.gui_is_running(3)),
        ("setfile_bad_index", lambda c: c.gui_set_file(9, "x.txt")),
    ]

    def test_gui_errors_raise_with_the_reply(self):
        client = self.connect()
        for name, call in self.GUI_ERRORS:
            with self.subTest(name), self.assertRaises(remotectrl.RemoteError) as raised:
                call(client)
            self.assertEqual(raised.exception.reply, "ERROR: INVALID DEVICE INDEX")

    def test_set_file_delivers_the_text_unchanged(self):
        client = self.connect()
        for text in ["plain.txt", "a,b.txt", " lead and trail ", 'say "hi"', '"', "m\u00e4rz.txt", ""]:
            with self.subTest(text):
                client.gui_set_file(2, text)
                calls = self.traced("devcontrol.setFile(sim2, ")
                self.assertTrue(calls)
                argument = calls[-1][len("devcontrol.setFile(sim2, ") : -len(", 1)")]
                self.assertEqual(trace_string(argument), text)

    def test_numbers_read_back_the_same(self):
        client = self.connect()
        for time, threshold in [(0.1, 1 / 3), (1e-7, 5e-324), (12345.678, 99.99999999999999), (7, 0)]:
            with self.subTest(time=time, threshold=threshold):
                client.start(0, 0, time, "n.txt", threshold)
                acquisition = self.traced("sim0.runAcquisition(0, ")[-1].split(", ")
                self.assertEqual(float(acquisition[1]), time)
                self.assertEqual(float(self.traced("sim0.setThreshold(0, 2, ")[-1][len("sim0.setThreshold(0, 2, ") : -1]), threshold)

    SEND_RAW = [
        ("answer", "GUI_ISRUNNING(0)", ["NO"]),
        ("mixed_case_name", "gui_isrunning(0)", ["NO"]),
        ("silent", "GUI_STOP(0)", []),
        ("unknown", "FOO()", ["ERROR: UNKNOWN COMMAND"]),
        ("leading_blank_makes_it_unknown", " GUI_ISRUNNING(0)", ["ERROR: UNKNOWN COMMAND"]),
        ("no_paren_is_ignored", "hello", []),
        ("start_argument_count", "START()", ["ERROR: INVALID NUMBER OF PARAMETERS (MUST BE 5)"]),
        ("isrunning_argument_count", "GUI_ISRUNNING(0,1)", ["ERROR: INVALID NUMBER OF PARAMETERS (MUST BE 1)"]),
        ("empty_parens_is_an_empty_index", "GUI_START()", ["ERROR: INVALID DEVICE INDEX"]),
        ("sync_line_answers_itself", "GUI_SETFILE()", [_syntax.SYNC_REPLY]),
        ("setfile_three_arguments", "GUI_SETFILE(0,a,b)", [_syntax.SYNC_REPLY]),
        ("setfile_quoted_comma", 'GUI_SETFILE("0,a")', [_syntax.SYNC_REPLY]),
        ("setfile_two_arguments", "GUI_SETFILE(0,a.txt)", []),
        ("trailing_blanks_and_cr", "GUI_ISRUNNING(0)  \r", ["NO"]),
    ]

    def test_send_raw(self):
        client = self.connect()
        for name, line, replies in self.SEND_RAW:
            with self.subTest(name):
                self.assertEqual(client.send_raw(line), replies)

    def test_send_raw_lone_quote_gets_one_error_line(self):
        client = self.connect()
        replies = client.send_raw('GUI_SETFILE(")')
        self.assertEqual(len(replies), 1)
        self.assertTrue(replies[0].startswith("ERROR: "), replies)
        self.assertEqual(client.send_raw("GUI_ISRUNNING(0)"), ["NO"])

    def test_send_raw_quit_ends_the_session(self):
        client = self.connect()
        self.assertEqual(client.send_raw("QUIT()"), [])
        with self.assertRaises(ConnectionError):
            client.gui_is_running(0)
        with self.assertRaises(ValueError):
            self.connect().send_raw("GUI_START(0)\nGUI_STOP(0)")

    def test_context_manager_ends_the_session(self):
        with self.host.client() as client:
            self.assertFalse(client.gui_is_running(0))
        with self.host.client() as client:
            self.assertFalse(client.gui_is_running(0))


class NoDevControlTest(ZnhostTestCase):
    config_text = "[Device0]\n[DevControl]\nLoaded=false\n"

    def test_gui_command_raises_unexpected_error(self):
        client = self.connect()
        for name, call in [("start", lambda: client.gui_start(0)), ("isrunning", lambda: client.gui_is_running(0))]:
            with self.subTest(name), self.assertRaises(remotectrl.RemoteError) as raised:
                call()
            self.assertEqual(raised.exception.reply, "ERROR: UNEXPECTED ERROR")


if __name__ == "__main__":
    unittest.main()
