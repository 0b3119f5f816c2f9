"""Pairing across sessions against a real znhost: a stray final line from an earlier client, an
acquisition that ends while commands are in flight, and long runs of silent commands."""

import os
import unittest

import remotectrl
from znhost_process import REPLY_BOUND, ZnhostTestCase, wait_until


class SessionTest(ZnhostTestCase):
    host_args = ("--trace",)

    def test_stray_final_line_from_an_earlier_client_is_dropped(self):
        with self.host.client() as earlier:
            earlier.start(0, 1, 600, "", 10, wait=False)
            # A STOP that reaches the simulated device before it runs the acquisition is lost.
            running = 'sim0.runAcquisition(1, 600, 1, "")'
            self.assertTrue(wait_until(lambda: running in self.host.trace_lines(), REPLY_BOUND))
        later = self.connect()
        with self.assertLogs("remotectrl", "WARNING") as logs:
            later.stop()  # the earlier client's acquisition now ends; its final line comes here
            wait_until(lambda: later.send_raw("GUI_ISRUNNING(1)") == ["NO"] and logs.records, REPLY_BOUND)
        self.assertIn("ERROR: ACQUISITION FAILED", logs.output[0])
        with self.assertRaises(RuntimeError):
            later.wait_acquisition(timeout=0)
        later.start(0, 1, 0, "", 10)

    def test_acquisition_ending_while_commands_are_in_flight(self):
        client = self.connect()
        client.start(0, 20, 0.01, "", 10, wait=False)
        for _ in range(100000):
            self.assertEqual(client.send_raw("GUI_ISRUNNING(1)"), ["NO"])
            try:
                client.wait_acquisition(timeout=0)
                break
            except TimeoutError:
                pass
        else:
            self.fail("the acquisition's final line never arrived")

    def test_acquisition_ending_before_the_start_sync_reply(self):
        client = self.connect()
        for _ in range(20):
            client.start(0, 0, 0, "", 10)

    def test_thousand_silent_commands(self):
        client = self.connect()
        for i in range(1000):
            if i == 617:
                with self.assertRaises(remotectrl.RemoteError):
                    client.gui_stop(9)
            else:
                client.gui_stop(1)
        self.assertFalse(client.gui_is_running(1))


class VersionTest(unittest.TestCase):
    def test_package_version_is_the_project_version(self):
        version = os.environ.get("REMOTECTRL_VERSION")
        if not version:
            self.skipTest("REMOTECTRL_VERSION is not set (run the tests through ctest)")
        self.assertEqual(remotectrl.__version__, version)


if __name__ == "__main__":
    unittest.main()
