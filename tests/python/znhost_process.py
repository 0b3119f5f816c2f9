"""The build's znhost as a test's server: a traced process on a loopback port, stopped by the test."""

import os
import shutil
import socket
import subprocess
import tempfile
import time

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


class Znhost:
    """znhost with the simulated devices of ``config_text`` in a folder of its own, which close()
    removes; it writes into ``data_dir``, its output into the files "stdout" and "stderr"."""

    def __init__(self, config_text):
        self.folder, self.port, self.process = tempfile.mkdtemp(prefix="remotectrl-py-"), free_loopback_port(), None
        self.data_dir = os.path.join(self.folder, "data")
        os.mkdir(self.data_dir)
        with open(self.file("host.ini"), "w") as out:
            out.write(config_text)

    def file(self, name):
        return os.path.join(self.folder, name)

    def read(self, name):
        with open(self.file(name), errors="replace") as source:
            return source.read()

    def start(self):
        """Starts znhost and returns once it serves ("ready")."""
        command = [os.environ["REMOTECTRL_ZNHOST"], "--port", str(self.port), "--settings-dir", self.folder,
                   "--data-dir", self.data_dir, "--config", self.file("host.ini"), "--trace"]
        with open(self.file("stdout"), "w") as stdout, open(self.file("stderr"), "w") as stderr:
            self.process = subprocess.Popen(command, stdout=stdout, stderr=stderr)
        if not wait_until(lambda: "ready\n" in self.read("stdout"), START_BOUND):
            self.stop()
            raise AssertionError("znhost does not serve:\n" + self.read("stderr"))

    def stop(self):
        if self.process is not None:
            self.process.terminate()
            try:
                self.process.wait(REPLY_BOUND)
            except subprocess.TimeoutExpired:
                self.process.kill()
                self.process.wait(REPLY_BOUND)
            self.process = None

    def close(self):
        self.stop()
        shutil.rmtree(self.folder, ignore_errors=True)
