"""`cmake --install` into a temporary prefix, where znhost finds the plug-in by itself and serves
rcclient and a program built against the CMake package; and the Debian packages, unpacked into a
temporary root, where znhost serves rcclient, Python imports the package and the Tango
server's command runs, checked by lintian.
Settings come from the environment that CTest sets (CMakeLists.txt); every process is bounded and
stopped by the test."""

import glob
import os
import shutil
import socket
import subprocess
import sys
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


def stop(process):
    process.terminate()
    try:
        process.wait(WAIT_BOUND)
    except subprocess.TimeoutExpired:
        process.kill()
        process.wait(WAIT_BOUND)


def serve(test, bin_dir, folder):
    """Starts the znhost in bin_dir on a free loopback port and checks that it serves its rcclient;
    returns the settings file that names the port."""
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        port = str(probe.getsockname()[1])
    settings = os.path.join(folder, "remotectrl.ini")
    with open(settings, "w") as out:
        out.write("[Settings]\nPort=%s\n" % port)
    host_out = os.path.join(folder, "znhost.out")
    with open(host_out, "w") as out:
        # No --plugin: the installed znhost must find the installed module by itself.
        host = subprocess.Popen([os.path.join(bin_dir, "znhost"), "--settings-dir", folder,
                                 "--data-dir", folder], stdin=subprocess.DEVNULL, stdout=out)
    test.addCleanup(stop, host)
    client = [os.path.join(bin_dir, "rcclient"), "--port", port, "GUI_ISRUNNING(0)", "START(0,2,0,run.txt,10)"]
    deadline = time.monotonic() + WAIT_BOUND
    # The server may listen a moment after "ready": retry while rcclient finds nobody (status 2).
    while (result := subprocess.run(client, capture_output=True, text=True, timeout=STEP_BOUND)).returncode == 2:
        test.assertLess(time.monotonic(), deadline, result.stderr)
        time.sleep(0.1)
    test.assertEqual((result.returncode, result.stdout), (0, "NO\nOK\n"), result.stderr)
    test.assertTrue(os.path.isfile(os.path.join(folder, "run.txt")))
    with open(host_out) as source:
        test.assertTrue(source.read().startswith("loaded remotectrl: "))
    return settings


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

        settings = serve(self, bin_dir, self.folder)
        self.assertEqual(run([os.path.join(consumer, "consumer"), settings]), "NO\n")
        self.assertTrue(os.path.isfile(os.path.join(self.prefix, "share", "man", "man1", "znhost.1.gz")))


class DebianPackageTest(unittest.TestCase):
    def test_unpacked_packages_serve_and_import_and_pass_lintian(self):
        if shutil.which("dpkg-deb") is None or shutil.which("lintian") is None:
            self.skipTest("dpkg-deb or lintian is missing: tools/install-deps installs them")
        folder = tempfile.mkdtemp(prefix="remotectrl-deb-")
        self.addCleanup(shutil.rmtree, folder, True)
        run([env("REMOTECTRL_CPACK"), "--config", os.path.join(env("REMOTECTRL_BUILD_DIR"), "CPackConfig.cmake"),
             "-B", folder])
        packages = sorted(glob.glob(os.path.join(folder, "*.deb")))
        names = ["python3-remotectrl", "remotectrl-dev", "remotectrl"]
        self.assertEqual([os.path.basename(name).split("_")[:2] for name in packages],
                         [[name, env("REMOTECTRL_VERSION")] for name in names])
        root = os.path.join(folder, "root")
        for package in packages:
            run(["dpkg-deb", "-x", package, root])
        serve(self, os.path.join(root, "usr", "bin"), folder)
        python_dir = os.path.join(root, "usr", "lib", "python3", "dist-packages")
        imported = run([sys.executable, "-c", "import sys; sys.path.insert(0, %r); import remotectrl; "
                        "print(remotectrl.__file__, remotectrl.__version__)" % python_dir])
        self.assertEqual(imported, "%s %s\n" % (os.path.join(python_dir, "remotectrl", "__init__.py"),
                                                env("REMOTECTRL_VERSION")))
        server = run(["env", "PYTHONPATH=" + python_dir, os.path.join(root, "usr", "bin", "RemoteCtrlDS"), "--version"])
        self.assertEqual(server, "RemoteCtrlDS %s\n" % env("REMOTECTRL_VERSION"))
        run(["lintian", "--fail-on", "error,warning"] + packages)


if __name__ == "__main__":
    unittest.main()
