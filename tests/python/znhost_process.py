"""A znhost process for tests: its own settings and data folders, a free loopback port, output
captured to files, and a stop that always ends the process (SIGTERM, then SIGKILL)."""

import os
import shutil
import signal
import socket
import subprocess
import tempfile
import time
import unittest

import remotectrl

# Generous bounds: sanitizer builds on a shared two-core machine are slow.
START_BOUND = 30.0
REPLY_BOUND = 15.0
STOP_BOUND = 15.0
_PORT_TRIES = 3


def znhost_path():
    path = os.environ.get("REMOTECTRL_ZNHOST", "")
    if not path:
        raise unittest.SkipTest("REMOTECTRL_ZNHOST is not set (run the tests through ctest)")
    return path


def free_loopback_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


def wait_until(condition, bound, step=0.02):
    deadline = time.monotonic() + bound
    while time.monotonic() < deadline:
        if condition():
            return True
        time.sleep(step)
    return condition()


class Znhost:
    def __init__(self, extra_args=(), config_text=None):
        self.folder = tempfile.mkdtemp(prefix="remotectrl-py-")
        self.data_dir = os.path.join(self.folder, "data")
        self.settings_dir = os.path.join(self.folder, "settings")
        os.mkdir(self.data_dir)
        os.mkdir(self.settings_dir)
        self.args = list(extra_args)
        if config_text is not None:
            config = os.path.join(self.folder, "host.ini")
            with open(config, "w") as out:
                out.write(config_text)
            self.args += ["--config", config]
        self.process = None
        self.port = None

    def start(self):
        """Starts znhost and returns once its command server accepts connections."""
        for _ in range(_PORT_TRIES):
            self.port = free_loopback_port()
            with open(os.path.join(self.settings_dir, "remotectrl.ini"), "w") as out:
                out.write("[Settings]\nPort=%d\n" % self.port)
            self._launch()
            if self._serving():
                return self
            self.stop()
        raise AssertionError("znhost did not start serving:\n" + self.stderr())

    def _launch(self):
        with open(self._path("out"), "w") as out, open(self._path("err"), "w") as err:
            command = [znhost_path(), "--settings-dir", self.settings_dir]
            command += ["--data-dir", self.data_dir] + self.args
            self.process = subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=out, stderr=err)

    def _serving(self):
        if not wait_until(lambda: "ready" in self.stdout() or self.process.poll() is not None, START_BOUND):
            return False
        # Another program may have taken the port meanwhile; the plug-in then logs and gives up.
        return wait_until(self._accepts, START_BOUND, step=0.05)

    def _accepts(self):
        if "Could not start the remote server" in self.stderr() or self.process.poll() is not None:
            return False
        try:
            socket.create_connection(("127.0.0.1", self.port), timeout=1.0).close()
            return True
        except OSError:
            return False

    def stop(self):
        if self.process is None:
            return
        if self.process.poll() is None:
            self.process.send_signal(signal.SIGTERM)
            try:
                self.process.wait(STOP_BOUND)
            except subprocess.TimeoutExpired:
                self.process.kill()
                self.process.wait(STOP_BOUND)
        self.process = None

    def remove(self):
        self.stop()
        shutil.rmtree(self.folder, ignore_errors=True)

    def client(self, timeout=REPLY_BOUND):
        return remotectrl.Client(port=self.port, timeout=timeout)

    def stdout(self):
        return _read(self._path("out"))

    def stderr(self):
        return _read(self._path("err"))

    def trace_lines(self):
        return [line[len("trace: ") :] for line in self.stderr().splitlines() if line.startswith("trace: ")]

    def _path(self, stream):
        return os.path.join(self.folder, "znhost." + stream)


def _read(path):
    try:
        with open(path, errors="replace") as source:
            return source.read()
    except FileNotFoundError:
        return ""


class ZnhostTestCase(unittest.TestCase):
    """One znhost for the whole class; each test gets a fresh client, closed after it."""

    host_args = ()
    config_text = None

    @classmethod
    def setUpClass(cls):
        cls.host = Znhost(cls.host_args, cls.config_text)
        cls.addClassCleanup(cls.host.remove)
        cls.host.start()

    def connect(self, timeout=REPLY_BOUND):
        client = self.host.client(timeout)
        self.addCleanup(client.close)
        return client
