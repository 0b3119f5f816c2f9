"""Reply pairing: every interleaving of replies, sync replies and final lines, first on the
pairing logic alone, then through Client against a scripted loopback server."""

import socket
import threading
import time
import unittest

import remotectrl
from remotectrl import _pairing, _syntax
from znhost_process import REPLY_BOUND, free_loopback_port

SYNC = _syntax.SYNC_REPLY
START, OTHER, SELF = _syntax.START, _syntax.OTHER, _syntax.SELF_SYNC
FAILED = "ERROR: ACQUISITION FAILED"


class PairingTest(unittest.TestCase):
    # name, steps (("send", kind) or a received line), replies per command, final, pending, warnings
    ROWS = [
        ("silent", [("send", OTHER), SYNC], [[]], None, False, 0),
        ("error_reply", [("send", OTHER), "ERROR: INVALID DEVICE INDEX", SYNC], [["ERROR: INVALID DEVICE INDEX"]], None, False, 0),
        ("self_sync_reply_is_its_own", [("send", SELF), SYNC], [[SYNC]], None, False, 0),
        ("start_pending_after_sync", [("send", START), SYNC], [[]], None, True, 0),
        ("start_final_after_sync", [("send", START), SYNC, "OK"], [[]], "OK", False, 0),
        ("start_final_before_sync", [("send", START), "OK", SYNC], [[]], "OK", False, 0),
        ("start_failed_before_sync", [("send", START), FAILED, SYNC], [[]], FAILED, False, 0),
        ("start_refused", [("send", START), "ERROR: INVALID THL", SYNC], [["ERROR: INVALID THL"]], None, False, 0),
        ("stray_held_then_start_refused", [("send", START), "OK", "ERROR: ACQ ALREADY RUNNING", SYNC], [["ERROR: ACQ ALREADY RUNNING"]], None, False, 1),
        ("stray_after_start_refused", [("send", START), "ERROR: ACQ ALREADY RUNNING", "OK", SYNC], [["ERROR: ACQ ALREADY RUNNING"]], None, False, 1),
        ("final_between_reply_and_sync", [("send", START), SYNC, ("send", OTHER), "YES", "OK", SYNC], [[], ["YES"]], "OK", False, 0),
        ("final_before_reply", [("send", START), SYNC, ("send", OTHER), FAILED, "NO", SYNC], [[], ["NO"]], FAILED, False, 0),
        ("stray_during_silent_command", [("send", OTHER), "OK", SYNC], [[]], None, False, 1),
        ("stray_with_nothing_sent", [FAILED], [], None, False, 1),
        ("unasked_line_with_nothing_sent", ["YES"], [], None, False, 1),
        ("queued_commands_in_order", [("send", OTHER), ("send", OTHER), "ERROR: X", SYNC, SYNC], [["ERROR: X"], []], None, False, 0),
        ("stop_then_final", [("send", START), SYNC, ("send", OTHER), SYNC, FAILED], [[], []], FAILED, False, 0),
        ("superseded_acquisition", [("send", START), SYNC, ("send", START), SYNC, "OK", FAILED], [[], []], FAILED, False, 0),
    ]

    def run_row(self, steps):
        pairing = _pairing.Pairing()
        commands = []
        with self.assertLogs("remotectrl", "INFO") as logs:
            _pairing.log.info("start")
            for step in steps:
                if isinstance(step, tuple):
                    commands.append(pairing.sent(step[1]))
                else:
                    pairing.take(step)
        warnings = [record for record in logs.records if record.levelname == "WARNING"]
        return pairing, commands, warnings

    def test_rows(self):
        for name, steps, replies, final, pending, warning_count in self.ROWS:
            with self.subTest(name):
                pairing, commands, warnings = self.run_row(steps)
                self.assertEqual([command.replies for command in commands], replies)
                self.assertTrue(all(command.done for command in commands))
                self.assertEqual(pairing.final, final)
                self.assertEqual(pairing.acquisition_pending, pending)
                self.assertEqual(len(warnings), warning_count)


class ScriptedServer:
    """Accepts one loopback connection and answers each line from ``script(line)``, which
    returns the lines to send, (delay, lines), or None to close the connection. Records every
    line it receives."""

    def __init__(self, script):
        self.script = script
        self.received = []
        self.listener = socket.socket()
        self.listener.bind(("127.0.0.1", 0))
        self.listener.listen(1)
        self.listener.settimeout(REPLY_BOUND)
        self.port = self.listener.getsockname()[1]
        self.thread = threading.Thread(target=self._serve, daemon=True)
        self.thread.start()

    def _serve(self):
        try:
            connection, _ = self.listener.accept()
        except OSError:
            return
        with connection, connection.makefile("rb") as lines:
            connection.settimeout(REPLY_BOUND)
            try:
                for raw in lines:
                    line = raw.decode().rstrip("\n")
                    self.received.append(line)
                    if line == "QUIT()":
                        return
                    answer = self.script(line)
                    if answer is None:
                        return
                    delay, answer = answer if isinstance(answer, tuple) else (0, answer)
                    time.sleep(delay)
                    connection.sendall("".join(reply + "\n" for reply in answer).encode())
            except OSError:
                pass

    def close(self):
        self.listener.close()
        self.thread.join(REPLY_BOUND)


def answers(table):
    """A script from a dict of line -> replies; the sync line is answered with the sync text."""
    return lambda line: [SYNC] if line == _syntax.SYNC_COMMAND else table.get(line, [])


class ClientPlumbingTest(unittest.TestCase):
    def serve(self, script):
        server = ScriptedServer(script)
        self.addCleanup(server.close)
        client = remotectrl.Client(port=server.port, timeout=REPLY_BOUND)
        self.addCleanup(client.close)
        return server, client

    def test_final_line_between_a_reply_and_its_sync_reply(self):
        server, client = self.serve(answers({"GUI_ISRUNNING(0)": ["YES", "OK"]}))
        client.start(0, 1, 0.5, "f.txt", 10, wait=False)
        self.assertTrue(client.gui_is_running(0))
        client.wait_acquisition(timeout=0)
        self.assertEqual(server.received[:4], ["START(0,1,0.5,f.txt,10.0)", "GUI_SETFILE()", "GUI_ISRUNNING(0)", "GUI_SETFILE()"])

    def test_refused_argument_sends_nothing(self):
        server, client = self.serve(answers({}))
        with self.assertRaises(ValueError):
            client.gui_set_file(0, "a(1).txt")
        with self.assertRaises(ValueError):
            client.start(0, 1.5, 1, "f")
        client.close()
        server.thread.join(REPLY_BOUND)
        self.assertEqual(server.received, ["QUIT()"])

    def test_late_replies_after_a_time_out_go_to_their_own_command(self):
        slow = {"GUI_ISRUNNING(0)": (1.0, ["YES"])}
        script = answers({"GUI_ISRUNNING(1)": ["NO"]})
        server, client = self.serve(lambda line: slow.get(line) or script(line))
        client.timeout = 0.2
        with self.assertRaises(TimeoutError):
            client.gui_is_running(0)
        client.timeout = REPLY_BOUND
        self.assertFalse(client.gui_is_running(1))

    def test_unexpected_answer_raises_with_the_line(self):
        _, client = self.serve(answers({"GUI_START(0)": ["YES"], "GUI_ISRUNNING(0)": ["MAYBE"]}))
        with self.assertRaises(remotectrl.RemoteError) as raised:
            client.gui_start(0)
        self.assertEqual(raised.exception.reply, "YES")
        with self.assertRaises(remotectrl.RemoteError):
            client.gui_is_running(0)

    def test_server_closing_raises_connection_error(self):
        _, client = self.serve(lambda line: None)
        with self.assertRaises(ConnectionError) as raised:
            client.gui_start(0)
        self.assertIn("127.0.0.1:", str(raised.exception))
        with self.assertRaises(ConnectionError):
            client.gui_start(0)

    def test_no_server_names_host_and_port(self):
        port = free_loopback_port()
        with self.assertRaises(ConnectionError) as raised:
            remotectrl.Client(port=port, timeout=REPLY_BOUND)
        self.assertIn("127.0.0.1:%d" % port, str(raised.exception))


if __name__ == "__main__":
    unittest.main()
