"""The throw-away certificates of tools/make-test-pki for the TLS tests, and a znhost that speaks TLS.

The build's own set comes through REMOTECTRL_TEST_PKI; without it (a test run by hand) a set is
made once per run in a temporary folder, removed at exit.
"""

import atexit
import os
import shutil
import subprocess
import tempfile

from znhost_process import START_BOUND, Znhost

SOURCE_ROOT = os.path.join(os.path.dirname(os.path.abspath(__file__)), os.pardir, os.pardir)


def _pki_dir():
    given = os.environ.get("REMOTECTRL_TEST_PKI")
    if given:
        return given
    made = tempfile.mkdtemp(prefix="remotectrl-pki-")
    atexit.register(shutil.rmtree, made, ignore_errors=True)
    subprocess.run([os.path.join(SOURCE_ROOT, "tools", "make-test-pki"), made], check=True, capture_output=True,
                   timeout=START_BOUND)
    return made


PKI_DIR = _pki_dir()


def pki(name):
    """The path of ``name`` in the test PKI, e.g. "ca.pem" or "client.key"."""
    return os.path.join(PKI_DIR, name)


def client_files(client="client"):
    """CA, certificate and key of ``client`` (also "other-client", another authority's)."""
    return pki("ca.pem"), pki(client + ".pem"), pki(client + ".key")


def tls_znhost(config_text):
    """A Znhost (not yet started) whose plug-in serves TLS with the test server's certificate and
    accepts the clients that the test authority signed."""
    host = Znhost(config_text)
    with open(host.file("remotectrl.ini"), "w") as settings:
        settings.write("[Settings]\nTlsCertificate=%s\nTlsKey=%s\nTlsClientCA=%s\n"
                       % (pki("server.pem"), pki("server.key"), pki("ca.pem")))
    return host
