"""A traced znhost per test class, configured with its ``config_text``: its own folders, a free
loopback port, its trace captured to a file, and a stop that always ends it (SIGTERM, then SIGKILL)."""

import os
import shutil
import socket
import subprocess
import tempfile
import time
import unittest

# Generous bounds: sanitizer builds on a shared two-core machine are slow.
START_BOUND = 30.0
REPLY_BOUND = 15.0


def free_loopback_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


def wait_until(condition, bound):
    deadline = time.monotonic() + bound
    while not condition() and time.monotonic() < deadline:
        time.sleep(0.02)
    return condition()


class ZnhostTestCase(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.mkdtemp(prefix="remotectrl-py-")
        cls.addClassCleanup(shutil.rmtree, cls.folder, ignore_errors=True)
        cls.data_dir, settings = os.path.join(cls.folder, "data"), os.path.join(cls.folder, "settings")
        os.mkdir(cls.data_dir)
        os.mkdir(settings)
        cls.port = free_loopback_port()
        with open(os.path.join(settings, "remotectrl.ini"), "w") as out:
            out.write("[Settings]\nPort=%d\n" % cls.port)
        with open(os.path.join(cls.folder, "host.ini"), "w") as out:
            out.write(cls.config_text)
        command = [os.environ["REMOTECTRL_ZNHOST"], "--settings-dir", settings, "--data-dir", cls.data_dir]
        command += ["--config", out.name, "--trace"]
        with open(os.path.join(cls.folder, "stderr"), "w") as stderr:
            cls.process = subprocess.Popen(command, stdout=subprocess.DEVNULL, stderr=stderr)
        cls.addClassCleanup(_stop, cls.process)
        if not wait_until(lambda: _accepts(cls.port), START_BOUND):
            raise AssertionError("znhost does not serve:\n" + cls.stderr())

    @classmethod
    def stderr(cls):
        with open(os.path.join(cls.folder, "stderr"), errors="replace") as stderr:
            return stderr.read()

def _accepts(port):
    with socket.socket() as probe:
        return probe.connect_ex(("127.0.0.1", port)) == 0


def _stop(process):
    process.terminate()
    try:
        process.wait(REPLY_BOUND)
    except subprocess.TimeoutExpired:
        process.kill()
        process.wait(REPLY_BOUND)
