"""`cmake --install` into a temporary prefix, where znhost finds the plug-in by itself and serves
rcclient and a program built against the CMake package; and the Debian packages, unpacked into a
temporary root, where znhost serves rcclient, Python imports the package and the Tango
server's command runs, checked by lintian, with their man pages read by man; installed by dpkg
into an empty root and purged, they leave nothing behind.
Settings come from the environment that CTest sets (CMakeLists.txt); every process is bounded and
stopped by the test."""

import ast
import glob
import os
import re
import shutil
import socket
import subprocess
import sys
import tempfile
import time
import unittest

STEP_BOUND = 240  # configure or build of the consumer, install, cpack: generous for slow builds
WAIT_BOUND = 30.0
PYTHON_DIR = os.path.join("usr", "lib", "python3", "dist-packages")
# Every package, in file name order, with the man pages it holds below usr/share/man.
MAN_PAGES = {
    "python3-remotectrl": ["man1/RemoteCtrlDS.1.gz"],
    "remotectrl-dev": [],
    "remotectrl": ["man1/rcclient.1.gz", "man1/znhost.1.gz", "man5/remotectrl.ini.5.gz", "man7/remotectrl.7.gz"],
}


def env(name):
    if name not in os.environ:
        raise unittest.SkipTest("%s is not set (run the test through ctest)" % name)
    return os.environ[name]


def run(command):
    result = subprocess.run(command, capture_output=True, text=True, timeout=STEP_BOUND)
    if result.returncode != 0:
        raise AssertionError("%s failed (%d):\n%s%s" % (command, result.returncode, result.stdout, result.stderr))
    return result.stdout


def source_texts(path):
    """The string constants of a header of ours."""
    with open(os.path.join(env("REMOTECTRL_SOURCE_DIR"), path)) as source:
        return re.findall(r'^constexpr .*= "(.*)";$', source.read(), re.MULTILINE)


def tango_surface():
    """The Tango device class's properties, attributes, commands and states, as tango.py declares them."""
    with open(os.path.join(env("REMOTECTRL_SOURCE_DIR"), "python", "remotectrl", "tango.py")) as source:
        tree = ast.parse(source.read())
    device = next(node for node in tree.body if isinstance(node, ast.ClassDef) and node.name == "RemoteCtrl")

    def declares(call):
        return getattr(getattr(call, "func", call), "id", "") in (
            "device_property", "attribute", "command", "_property", "_setting")

    members = [node.targets[0].id for node in device.body if isinstance(node, ast.Assign) and declares(node.value)]
    members += [node.name for node in device.body
                if isinstance(node, ast.FunctionDef) and any(map(declares, node.decorator_list))]
    states = {node.attr for node in ast.walk(tree) if isinstance(node, ast.Attribute)
              and getattr(node.value, "id", "") == "DevState"}
    return members + sorted(states)


def must_mention():
    """What each man page is read for: its texts that a reader looks up."""
    see_also = ["remotectrl(7)", "remotectrl.ini(5)"]
    return {
        "man1/znhost.1.gz": see_also,
        "man1/rcclient.1.gz": see_also,
        "man1/RemoteCtrlDS.1.gz": tango_surface(),
        "man5/remotectrl.ini.5.gz": source_texts("protocol/settings_file.h") + [
            "ERROR: ACCESS DENIED", "no encryption and no authentication"],
        "man7/remotectrl.7.gz": source_texts("protocol/replies.h") + ["65,536 bytes"],
    }


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


class DebianPackageTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        if shutil.which("dpkg-deb") is None or shutil.which("lintian") is None:
            raise unittest.SkipTest("dpkg-deb or lintian is missing: tools/install-deps installs them")
        cls.folder = tempfile.mkdtemp(prefix="remotectrl-deb-")
        cls.addClassCleanup(shutil.rmtree, cls.folder, True)
        run([env("REMOTECTRL_CPACK"), "--config", os.path.join(env("REMOTECTRL_BUILD_DIR"), "CPackConfig.cmake"),
             "-B", cls.folder])
        cls.packages = sorted(glob.glob(os.path.join(cls.folder, "*.deb")))
        cls.root = os.path.join(cls.folder, "root")
        for package in cls.packages:
            run(["dpkg-deb", "-x", package, cls.root])

    def test_unpacked_packages_serve_and_import_and_pass_lintian(self):
        self.assertEqual({os.path.basename(name).split("_")[1] for name in self.packages}, {env("REMOTECTRL_VERSION")})
        serve(self, os.path.join(self.root, "usr", "bin"), self.folder)
        python_dir = os.path.join(self.root, PYTHON_DIR)
        imported = run([sys.executable, "-c", "import sys; sys.path.insert(0, %r); import remotectrl; "
                        "print(remotectrl.__file__, remotectrl.__version__)" % python_dir])
        self.assertEqual(imported, "%s %s\n" % (os.path.join(python_dir, "remotectrl", "__init__.py"),
                                                env("REMOTECTRL_VERSION")))
        server = run(["env", "PYTHONPATH=" + python_dir, os.path.join(self.root, "usr", "bin", "RemoteCtrlDS"),
                      "--version"])
        self.assertEqual(server, "RemoteCtrlDS %s\n" % env("REMOTECTRL_VERSION"))
        run(["lintian", "--fail-on", "error,warning"] + self.packages)

    def test_each_package_holds_its_man_pages_which_read_cleanly_and_say_what_they_must(self):
        held = {os.path.basename(package).split("_")[0]:
                sorted(re.findall(r"\./usr/share/man/(\S+\.gz)$", run(["dpkg-deb", "-c", package]), re.MULTILINE))
                for package in self.packages}
        self.assertEqual(held, MAN_PAGES)
        for page, texts in must_mention().items():
            with self.subTest(page=page):
                path = os.path.join(self.root, "usr", "share", "man", page)
                # One line per paragraph, so that no phrase is broken; a locale that always exists.
                result = subprocess.run(["man", "--warnings", "-E", "ascii", "-l", path], capture_output=True,
                                        text=True, timeout=STEP_BOUND,
                                        env=dict(os.environ, MANWIDTH="1000", LC_ALL="C.UTF-8"))
                self.assertEqual((result.returncode, result.stderr), (0, ""))
                run(["lexgrog", path])  # a NAME section that whatis can read
                shown = " ".join(result.stdout.split())
                self.assertEqual([text for text in texts if " ".join(text.split()) not in shown], [])

    def test_purging_the_installed_packages_leaves_nothing(self):
        if os.geteuid() != 0:
            self.skipTest("dpkg gives the files their owners only as root")
        root = os.path.join(self.folder, "dpkg-root")
        os.makedirs(os.path.join(root, "var", "lib", "dpkg"))
        open(os.path.join(root, "var", "lib", "dpkg", "status"), "w").close()  # nothing installed
        # Maintainer scripts run outside the root, told where it is by DPKG_ROOT; dpkg looks for
        # ldconfig in PATH.
        dpkg = ["env", "PATH=/usr/sbin:/usr/bin:/sbin:/bin", "dpkg", "--root=" + root, "--force-script-chrootless",
                "--log=/dev/null"]
        run(dpkg + ["--force-depends", "--install"] + self.packages)
        package_dir = os.path.join(root, PYTHON_DIR, "remotectrl")
        run([sys.executable, "-m", "compileall", "-q", package_dir])  # what importing the package writes
        self.assertTrue(os.path.isdir(os.path.join(package_dir, "__pycache__")))
        run(dpkg + ["--purge"] + list(MAN_PAGES))
        left = [os.path.relpath(os.path.join(top, name), root) for top, folders, files in os.walk(root)
                for name in folders + files]
        dpkg_own = ("var", "var/lib", "var/lib/dpkg")
        self.assertEqual([path for path in left if path not in dpkg_own and not path.startswith("var/lib/dpkg/")], [])


if __name__ == "__main__":
    unittest.main()
