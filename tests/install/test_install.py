"""`cmake --install` into a temporary prefix, where znhost finds the plug-in by itself and serves
rcclient and a program built against the CMake package; and `cpack -G DEB`. Settings come from the
environment that CTest sets (CMakeLists.txt); every process is bounded and stopped by the test."""

import os
import shutil
import socket
import subprocess
import tempfile
import time
import unittest

STEP_BOUND = 240  # configure or build of the consumer, install, cpack: generous for slow builds
WAIT_BOUND = 30.0


def env(name):
    if name not in os.environ:
        raise unittest.SkipTest("%s is not set (run the test through ctest)" % name)
    return os.environ[name]


def run(command):
    result = subprocess.run(command, capture_output=True, text=True, timeout=STEP_BOUND)
    if result.returncode != 0:
        raise AssertionError("%s failed (%d):\n%s%s" % (command, result.returncode, result.stdout, result.stderr))
    return result.stdout


class InstallTest(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.mkdtemp(prefix="remotectrl-install-")
        self.addCleanup(shutil.rmtree, self.folder, True)
        self.prefix = os.path.join(self.folder, "prefix")

    def test_installed_programs_serve_each_other_and_a_program_built_against_the_package(self):
        run([env("REMOTECTRL_CMAKE"), "--install", env("REMOTECTRL_BUILD_DIR"), "--prefix", self.prefix])
        bin_dir = os.path.join(self.prefix, "bin")
        for program in ["znhost", "rcclient"]:
            version = run([os.path.join(bin_dir, program), "--version"])
            self.assertEqual(version, "%s %s\n" % (program, env("REMOTECTRL_VERSION")))
        consumer = os.path.join(self.folder, "consumer-build")
        run([env("REMOTECTRL_CMAKE"), "-S", env("REMOTECTRL_CONSUMER_DIR"), "-B", consumer,
             "-G", env("REMOTECTRL_GENERATOR"), "-DCMAKE_PREFIX_PATH=" + self.prefix,
             "-DCMAKE_FIND_PACKAGE_NO_PACKAGE_REGISTRY=ON", "-DCMAKE_CXX_COMPILER=" + env("REMOTECTRL_CXX"),
             "-DCMAKE_BUILD_TYPE=" + env("REMOTECTRL_BUILD_TYPE"),
             # The same instrumentation as the installed libraries, which sanitizer builds need.
             "-DCMAKE_CXX_FLAGS=" + env("REMOTECTRL_CXX_FLAGS"),
             "-DCMAKE_EXE_LINKER_FLAGS=" + env("REMOTECTRL_EXE_LINKER_FLAGS")])
        run([env("REMOTECTRL_CMAKE"), "--build", consumer])

        with socket.socket() as probe:
            probe.bind(("127.0.0.1", 0))
            port = str(probe.getsockname()[1])
        settings = os.path.join(self.folder, "remotectrl.ini")
        with open(settings, "w") as out:
            out.write("[Settings]\nPort=%s\n" % port)
        host_out = os.path.join(self.folder, "znhost.out")
        with open(host_out, "w") as out:
            # No --plugin: the installed znhost must find the installed module by itself.
            host = subprocess.Popen([os.path.join(bin_dir, "znhost"), "--settings-dir", self.folder,
                                     "--data-dir", self.folder], stdin=subprocess.DEVNULL, stdout=out)
        self.addCleanup(self.stop, host)
        client = [os.path.join(bin_dir, "rcclient"), "--port", port, "GUI_ISRUNNING(0)", "START(0,2,0,run.txt,10)"]
        deadline = time.monotonic() + WAIT_BOUND
        # The server may listen a moment after "ready": retry while rcclient finds nobody (status 2).
        while (result := subprocess.run(client, capture_output=True, text=True, timeout=STEP_BOUND)).returncode == 2:
            self.assertLess(time.monotonic(), deadline, result.stderr)
            time.sleep(0.1)
        self.assertEqual((result.returncode, result.stdout), (0, "NO\nOK\n"), result.stderr)
        self.assertTrue(os.path.isfile(os.path.join(self.folder, "run.txt")))
        self.assertEqual(run([os.path.join(consumer, "consumer"), settings]), "NO\n")
        with open(host_out) as source:
            self.assertTrue(source.read().startswith("loaded remotectrl: "))

    @staticmethod
    def stop(process):
        process.terminate()
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
        run([env("REMOTECTRL_CPACK"), "-G", "DEB", "--config",
             os.path.join(env("REMOTECTRL_BUILD_DIR"), "CPackConfig.cmake"), "-B", folder])
        packages = [name for name in os.listdir(folder) if name.endswith(".deb")]
        self.assertEqual(len(packages), 1, os.listdir(folder))
        package = os.path.join(folder, packages[0])
        self.assertEqual(run(["dpkg-deb", "-f", package, "Package", "Version"]),
                         "Package: remotectrl\nVersion: %s\n" % env("REMOTECTRL_VERSION"))
        contents = run(["dpkg-deb", "-c", package])
        for path in ["./usr/bin/znhost", "./usr/bin/rcclient", "./usr/lib/remotectrl.so",
                     "./usr/include/remotectrl/net/sockets.h", "/cmake/remotectrl/remotectrlConfig.cmake"]:
            self.assertIn(path, contents)


if __name__ == "__main__":
    unittest.main()
