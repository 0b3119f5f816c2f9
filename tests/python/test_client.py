"""The Client against a real znhost, plain and over TLS, against a loopback peer that answers late,
oddly, not at all or without end, and how it writes method arguments into a command line."""

import os
import pathlib
import socket
import ssl
import threading
import time
import unittest

import remotectrl
from remotectrl import _arguments, _wire
from tls_setup import client_files, pki, tls_znhost
from znhost_process import REPLY_BOUND, Znhost, free_loopback_port, wait_until

SYNC = _wire.SYNC_REPLY
HELD = object()  # in a peer's script: the rest of the answer waits for Peer.release


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

    def test_a_client_behind_another_hears_that_the_server_may_be_busy(self):
        with remotectrl.Client(port=self.port, timeout=0.2) as second:
            self.assertRaisesRegex(remotectrl.ReplyTimeout, "busy with another", second.gui_is_running, 0)


class Peer:
    """A loopback server for one client: a thread runs serve(peer, connection) until the test ends."""

    def __init__(self, test, serve):
        listener = socket.create_server(("127.0.0.1", 0))
        listener.settimeout(REPLY_BOUND)
        self.port, self.received = listener.getsockname()[1], b""
        self.release, self.stopped = threading.Event(), threading.Event()
        self.thread = threading.Thread(target=self._run, args=(listener, serve))
        self.thread.start()
        test.addCleanup(self.thread.join, REPLY_BOUND)
        test.addCleanup(self.stopped.set)

    def _run(self, listener, serve):
        try:
            with listener, listener.accept()[0] as connection:
                connection.settimeout(REPLY_BOUND)
                serve(self, connection)
        except OSError:
            pass  # no client came, or it has gone

    def lines(self, connection):
        for line in connection.makefile("rb"):
            self.received += line
            yield line.decode().rstrip("\n")


def scripted(*script):
    """Answers each command line with the next answer of ``script`` in one write, up to a HELD,
    after which the rest waits for peer.release; the sync line gets no answer of its own."""
    answers = iter(script)

    def serve(peer, connection):
        write = lambda lines: connection.sendall("".join(line + "\n" for line in lines).encode())
        for line in peer.lines(connection):
            if line not in (_wire.SYNC_LINE, _wire.QUIT_LINE):
                answer = next(answers, [])
                held = answer.index(HELD) if HELD in answer else len(answer)
                write(answer[:held])
                if held < len(answer) and peer.release.wait(REPLY_BOUND):
                    write(answer[held + 1 :])

    return serve


def streaming(chunk, pause):
    """Sends ``chunk`` every ``pause`` seconds from the first line on, until the test ends."""

    def serve(peer, connection):
        next(peer.lines(connection))
        end = time.monotonic() + REPLY_BOUND
        while not peer.stopped.wait(pause) and time.monotonic() < end:
            connection.sendall(chunk)

    return serve


class PeerTest(unittest.TestCase):
    def connect(self, serve, timeout=REPLY_BOUND):
        self.peer = Peer(self, serve)
        client = remotectrl.Client(port=self.peer.port, timeout=timeout)
        self.addCleanup(client.close)
        return client

    def test_late_replies_go_to_the_command_that_timed_out_and_odd_ones_raise(self):
        client = self.connect(scripted([HELD, "NO", SYNC], ["YES", SYNC], ["MAYBE", SYNC], ["YES", SYNC]), timeout=0.2)
        self.assertRaisesRegex(TimeoutError, "^no reply to GUI_ISRUNNING", client.gui_is_running, 0)
        client.timeout = REPLY_BOUND
        self.peer.release.set()
        for call, reply in [(client.gui_start, "YES"), (client.gui_is_running, "MAYBE"),
                            (lambda device: client.start(device, 1, 0, wait=False), "YES")]:
            with self.assertRaises(remotectrl.ProtocolError) as raised:
                call(0)
            self.assertEqual(raised.exception.reply, reply)

    def test_a_line_nothing_asked_for_is_dropped_before_the_next_command(self):
        client = self.connect(scripted([SYNC, HELD, "YES"], [SYNC]))
        client.gui_start(0)
        self.peer.release.set()
        client._socket.recv(1, socket.MSG_PEEK)  # returns once "YES" has arrived
        with self.assertLogs("remotectrl", "WARNING"):
            self.assertIsNone(client.gui_start(0))

    def test_of_two_own_acquisitions_the_later_end_counts(self):
        client = self.connect(scripted([SYNC], [SYNC, "OK", "ERROR: ACQUISITION FAILED"]))
        client.start(0, 1, 0, "f", 10, wait=False)
        client.start(0, 1, 0, "g", 10, wait=False)
        self.assertRaises(remotectrl.AcquisitionFailed, client.wait_acquisition, timeout=0)

    def test_progress_is_reported_while_the_acquisition_runs(self):
        client, expected = self.connect(scripted([SYNC, HELD, "OK"])), []
        client.start(0, 3, 0.5, wait=False)
        client.wait_acquisition(progress=lambda elapsed, seconds: [expected.append(seconds), self.peer.release.set()])
        self.assertEqual(expected[0], 1.5)

    def test_refused_argument_sends_nothing_and_close_ends_the_session(self):
        client = self.connect(scripted([SYNC]))
        with client, self.assertRaises(TypeError):
            client.stop()
            client.start(0, 1.5, 1, "f")
        self.peer.thread.join(REPLY_BOUND)
        self.assertEqual(self.peer.received, b"STOP()\nGUI_SETFILE()\nQUIT()\n")

    def test_connection_errors_name_the_server(self):
        client = self.connect(lambda peer, connection: None)
        for _ in range(2):
            self.assertRaisesRegex(remotectrl.RemoteCtrlError, "127.0.0.1:", client.gui_start, 0)
        port = free_loopback_port()
        self.assertRaisesRegex(ConnectionError, "127.0.0.1:%d" % port, remotectrl.Client, port=port)
        for port, error in [(65536, ValueError), ("1", TypeError)]:
            self.assertRaises(error, remotectrl.Client, port=port)

    def test_a_peer_that_sends_without_end_is_cut_off(self):
        for case, chunk, pause, error in [
            ("bytes without a line feed, fast", b"x" * 4096, 0, remotectrl.ProtocolError),
            ("lines but never the sync answer, fast", b"YES\n" * 64, 0, remotectrl.ProtocolError),
            ("bytes without a line feed, slowly", b"x", 0.01, remotectrl.ReplyTimeout),
        ]:
            with self.subTest(case):
                self.assertRaises(error, self.connect(streaming(chunk, pause), timeout=0.5).gui_start, 0)


class TlsTest(unittest.TestCase):
    """The Client over TLS against a znhost with the test certificates; a plain peer for the rest."""

    @classmethod
    def setUpClass(cls):
        cls.host = tls_znhost("[Device0]\n")
        cls.addClassCleanup(cls.host.close)
        cls.host.start()

    def connect(self, context, port=None, timeout=REPLY_BOUND):
        client = remotectrl.Client(port=port or self.host.port, timeout=timeout, ssl_context=context)
        self.addCleanup(client.close)
        return client

    def test_a_query_and_an_acquisition(self):
        client = self.connect(remotectrl.tls_context(*client_files()))
        self.assertFalse(client.gui_is_running(0))
        client.start(0, 1, 0.5, "tls.txt", 10, wait=False)
        self.assertRaises(remotectrl.ReplyTimeout, client.wait_acquisition, timeout=0)  # a look that finds nothing
        client.wait_acquisition(timeout=REPLY_BOUND)
        self.assertTrue(os.path.exists(os.path.join(self.host.data_dir, "tls.txt")))

    def test_refusals_and_a_plain_server_say_what_went_wrong(self):
        refused, failed = remotectrl.CertificateRefused, remotectrl.ConnectionFailed
        plain = Peer(self, lambda peer, connection: peer.stopped.wait(REPLY_BOUND)).port  # waits for a line
        for case, context, port, timeout, error, message in [
            ("no client certificate", ssl.create_default_context(cafile=pki("ca.pem")), None, REPLY_BOUND, refused,
             "refused this client's TLS certificate .*certificate required"),
            ("another authority's client", remotectrl.tls_context(*client_files("other-client")), None, REPLY_BOUND,
             refused, "refused this client's TLS certificate"),
            ("a server the CA did not sign", remotectrl.tls_context(pki("other-ca.pem"), *client_files()[1:]), None,
             REPLY_BOUND, failed, "its certificate does not hold"),
            ("a plain server", remotectrl.tls_context(*client_files()), plain, 0.5, failed, "speaks plain TCP"),
        ]:
            with self.subTest(case):
                self.assertRaisesRegex(error, message, lambda: self.connect(context, port, timeout).gui_is_running(0))

    def test_a_file_that_cannot_be_used_is_named(self):
        ca, certificate, key = client_files()
        for files, error, named in [((ca, certificate, "/nonexistent.key"), FileNotFoundError, "/nonexistent.key"),
                                    ((ca, certificate, pki("server.key")), remotectrl.TlsFileError, pki("server.key"))]:
            with self.subTest(error=error), self.assertRaises(error) as raised:
                remotectrl.tls_context(*files)
            self.assertEqual(raised.exception.filename, named)


class ArgumentTest(unittest.TestCase):
    def test_numbers_outside_what_the_server_reads_are_refused(self):
        whole, real = _arguments.whole, _arguments.real
        self.assertEqual([whole("n", 2**31 - 1).text, whole("n", -(2**31)).text], ["2147483647", "-2147483648"])
        for convert, values, error in [(whole, (True, 1.0, "1"), TypeError), (whole, (2**31, -(2**31) - 1), ValueError),
                                       (real, (False, "0.5"), TypeError),
                                       (real, (float("inf"), 10**400, 2**53 + 1), ValueError)]:
            for value in values:
                with self.subTest(value=value):
                    self.assertRaises(error, convert, "n", value)

    def test_texts_are_quoted_only_where_needed(self):
        def line(text):
            arguments = [_arguments.whole("d", 0), _arguments.text("f", text), _arguments.whole("n", 1)]
            return _arguments.command_line("F", arguments)

        for text, form in [("run.txt", "run.txt"), ("", ""), ("a,b", '"a,b"'), (" a", '" a"'), ("a ", '"a "'),
                           ('a"b', 'a"b'), ('"a', '""a"'), ('"', '"""')]:
            self.assertEqual(line(text), "F(0,%s,1)" % form)
        for text, error in [("a(1).txt", ValueError), ("a\nb", ValueError), ("a\rb", ValueError), ("a\0b", ValueError),
                            ('a, "b', ValueError), (5, TypeError)]:
            with self.subTest(text):
                self.assertRaises(error, line, text)
