"""`cmake --install` into a temporary prefix, then: the installed znhost finds the installed
plug-in by default and serves the installed rcclient; a program built against the installed
CMake package talks to it; and `cpack -G DEB` packages the same files.

Everything comes from the environment that CTest sets (see CMakeLists.txt); every process is
bounded and stopped by the test."""

import os
import shutil
import signal
import socket
import subprocess
import tempfile
import time
import unittest

STEP_BOUND = 240  # configure or build of the consumer, install, cpack: generous for slow builds
WAIT_BOUND = 30.0


def env(name):
    value = os.environ.get(name)
    if value is None:
        raise unittest.SkipTest("%s is not set (run the test through ctest)" % name)
    return value


def run(command, **kwargs):
    result = subprocess.run(command, capture_output=True, text=True, timeout=STEP_BOUND, **kwargs)
    if result.returncode != 0:
        raise AssertionError("%s failed (%d):\n%s%s" % (command, result.returncode, result.stdout, result.stderr))
    return result.stdout


def free_loopback_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


def wait_for_text(path, text):
    deadline = time.monotonic() + WAIT_BOUND
    while time.monotonic() < deadline:
        with open(path) as source:
            if text in source.read():
                return True
        time.sleep(0.05)
    return False


class InstallTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.mkdtemp(prefix="remotectrl-install-")
        cls.addClassCleanup(shutil.rmtree, cls.folder, True)
        cls.prefix = os.path.join(cls.folder, "prefix")
        run([env("REMOTECTRL_CMAKE"), "--install", env("REMOTECTRL_BUILD_DIR"), "--prefix", cls.prefix])

    def installed(self, *parts):
        return os.path.join(self.prefix, *parts)

    def test_installs_the_programs_module_headers_libraries_and_package(self):
        for parts in [
            ("bin", "znhost"),
            ("bin", "rcclient"),
            ("lib", "remotectrl.so"),
            ("include", "remotectrl", "net", "sockets.h"),
            ("include", "remotectrl", "settings", "inifile.h"),
            ("include", "remotectrl", "settings", "str.h"),
            ("include", "remotectrl", "fileops", "fileops.h"),
            ("include", "remotectrl", "host", "interfaces.h"),
        ]:
            with self.subTest(os.path.join(*parts)):
                self.assertTrue(os.path.isfile(self.installed(*parts)))

    def test_programs_print_the_project_version(self):
        for program in ["znhost", "rcclient"]:
            with self.subTest(program):
                output = run([self.installed("bin", program), "--version"])
                self.assertEqual(output, "%s %s\n" % (program, env("REMOTECTRL_VERSION")))

    def test_installed_host_serves_rcclient_and_a_program_built_against_the_package(self):
        consumer = self.build_consumer()
        settings = os.path.join(self.folder, "settings")
        data = os.path.join(self.folder, "data")
        os.makedirs(settings, exist_ok=True)
        os.makedirs(data, exist_ok=True)
        settings_file = os.path.join(settings, "remotectrl.ini")
        with open(settings_file, "w") as out:
            out.write("[Settings]\nPort=%d\n" % free_loopback_port())
        host_out = os.path.join(self.folder, "znhost.out")
        with open(host_out, "w") as out, open(os.path.join(self.folder, "znhost.err"), "w") as err:
            # No --plugin: the installed znhost must find the installed module by itself.
            host = subprocess.Popen(
                [self.installed("bin", "znhost"), "--settings-dir", settings, "--data-dir", data],
                stdin=subprocess.DEVNULL, stdout=out, stderr=err)
        self.addCleanup(self.stop, host)
        self.assertTrue(wait_for_text(host_out, "ready"))
        with open(host_out) as source:
            self.assertIn("loaded remotectrl: ", source.read())
        port = self.port_of(settings_file)
        client = [self.installed("bin", "rcclient"), "--port", port]
        self.assertEqual(self.retry_until_served(client + ["GUI_ISRUNNING(0)", "START(0,2,0,run.txt,10)"]), "NO\nOK\n")
        self.assertEqual(run([consumer, settings_file]), "NO\n")
        self.assertTrue(os.path.isfile(os.path.join(data, "run.txt")))

    def build_consumer(self):
        source = env("REMOTECTRL_CONSUMER_DIR")
        build = os.path.join(self.folder, "consumer-build")
        configure = [
            env("REMOTECTRL_CMAKE"), "-S", source, "-B", build, "-G", env("REMOTECTRL_GENERATOR"),
            "-DCMAKE_PREFIX_PATH=" + self.prefix,
            "-DCMAKE_FIND_PACKAGE_NO_PACKAGE_REGISTRY=ON",
            "-DCMAKE_CXX_COMPILER=" + env("REMOTECTRL_CXX"),
            "-DCMAKE_BUILD_TYPE=" + env("REMOTECTRL_BUILD_TYPE"),
            # The same instrumentation as the installed libraries, which sanitizer builds need.
            "-DCMAKE_CXX_FLAGS=" + env("REMOTECTRL_CXX_FLAGS"),
            "-DCMAKE_EXE_LINKER_FLAGS=" + env("REMOTECTRL_EXE_LINKER_FLAGS"),
        ]
        run(configure)
        run([env("REMOTECTRL_CMAKE"), "--build", build])
        return os.path.join(build, "consumer")

    def retry_until_served(self, command):
        """rcclient's output once the server listens (it may bind a moment after "ready")."""
        deadline = time.monotonic() + WAIT_BOUND
        while True:
            result = subprocess.run(command, capture_output=True, text=True, timeout=STEP_BOUND)
            if result.returncode != 2 or time.monotonic() > deadline:
                self.assertEqual(result.returncode, 0, result.stderr)
                return result.stdout
            time.sleep(0.1)

    @staticmethod
    def port_of(settings_file):
        with open(settings_file) as source:
            return source.read().split("Port=")[1].strip()

    @staticmethod
    def stop(process):
        if process.poll() is None:
            process.send_signal(signal.SIGTERM)
            try:
                process.wait(WAIT_BOUND)
            except subprocess.TimeoutExpired:
                process.kill()
                process.wait(WAIT_BOUND)


class DebianPackageTest(unittest.TestCase):
    def test_package_holds_the_installed_files(self):
        if shutil.which("dpkg-deb") is None:
            self.skipTest("dpkg-deb is not available")
        folder = tempfile.mkdtemp(prefix="remotectrl-deb-")
        self.addCleanup(shutil.rmtree, folder, True)
        config = os.path.join(env("REMOTECTRL_BUILD_DIR"), "CPackConfig.cmake")
        run([env("REMOTECTRL_CPACK"), "-G", "DEB", "--config", config, "-B", folder])
        packages = [name for name in os.listdir(folder) if name.endswith(".deb")]
        self.assertEqual(len(packages), 1, os.listdir(folder))
        package = os.path.join(folder, packages[0])
        self.assertEqual(run(["dpkg-deb", "-f", package, "Package"]).strip(), "remotectrl")
        self.assertEqual(run(["dpkg-deb", "-f", package, "Version"]).strip(), env("REMOTECTRL_VERSION"))
        contents = run(["dpkg-deb", "-c", package])
        for path in ["./usr/bin/znhost", "./usr/bin/rcclient", "./usr/lib/remotectrl.so",
                     "./usr/include/remotectrl/net/sockets.h", "/cmake/remotectrl/remotectrlConfig.cmake"]:
            with self.subTest(path):
                self.assertIn(path, contents)


if __name__ == "__main__":
    unittest.main()
