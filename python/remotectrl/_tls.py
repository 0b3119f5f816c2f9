"""TLS for the client: the context built from the three PEM files the plug-in's TLS asks of a
client, and what a failed TLS connection means.

Settled points:
- TLS 1.2 or later, the server verified against the given authority and its name or address
  checked against the host the client connects to; the client presents its certificate.
- A file that cannot be read raises OSError (FileNotFoundError, PermissionError, ...) whose
  ``filename`` is the path; one that can be read but not used raises TlsFileError (a ValueError),
  whose ``filename`` is the file to fix (the key when it is not the certificate's, or encrypted:
  nobody would be there to type its password).
- With TLS 1.3 the server checks the client's certificate after the client has finished its
  handshake, so a refusal shows at the first read, as an alert or, when the alert is lost to the
  connection's reset, as the bare close. A TLS connection closed before any line has come is
  taken as that refusal: a server that serves TLS closes a client it accepted only so.
"""

from __future__ import annotations

import os
import ssl
from typing import NamedTuple, NoReturn, Union

from .errors import CertificateRefused

#: A file's path: text, or a path object.
FilePath = Union[str, "os.PathLike[str]"]

# Alerts by which a server refuses the client's certificate (OpenSSL's reason codes).
_REFUSAL_ALERTS = ("CERTIFICATE", "UNKNOWN_CA", "ACCESS_DENIED")


class TlsFileError(ValueError):
    """A TLS file that can be read but not used; ``filename`` names it, ``why`` says what is wrong."""

    def __init__(self, role: str, filename: str, why: str) -> None:
        super().__init__("TLS %s %s %s" % (role, filename, why))
        self.filename = filename
        self.why = why


class TlsFiles(NamedTuple):
    """The three files of a client's TLS, as given."""

    ca: str
    certificate: str
    key: str

    def context(self) -> ssl.SSLContext:
        """A new context from the files as they are now (see tls_context())."""
        return tls_context(self.ca, self.certificate, self.key)


def tls_context(ca: FilePath, certificate: FilePath, key: FilePath) -> ssl.SSLContext:
    """A client context that trusts the authority in ``ca`` for the server and presents
    ``certificate`` (PEM, then its chain) with its unencrypted ``key``; for Client(ssl_context=).

    Raises OSError naming a file that cannot be read, TlsFileError naming one that cannot be used.
    """
    paths = {"CA file": os.fspath(ca), "certificate": os.fspath(certificate), "key": os.fspath(key)}
    for role, path in paths.items():
        _check_readable(role, path)
    context = ssl.SSLContext(ssl.PROTOCOL_TLS_CLIENT)
    context.minimum_version = ssl.TLSVersion.TLSv1_2
    try:
        context.load_verify_locations(cafile=paths["CA file"])
    except ssl.SSLError as error:
        raise TlsFileError("CA file", paths["CA file"], "holds no usable certificate: " + describe(error)) from None

    def refuse_password() -> NoReturn:
        raise TlsFileError("key", paths["key"], "is encrypted; give it unencrypted")

    try:
        context.load_cert_chain(paths["certificate"], paths["key"], password=refuse_password)
    except ssl.SSLError as error:
        why = "cannot be used with certificate %s: %s" % (paths["certificate"], describe(error))
        raise TlsFileError("key", paths["key"], why) from None
    return context


def refused(peer: str, detail: str) -> CertificateRefused:
    """The refusal that a TLS connection closed before any line (``detail`` says how) stands for."""
    return CertificateRefused("%s refused this client's TLS certificate (it closed the connection before any "
                              "reply: %s)" % (peer, detail))


def is_refusal_alert(error: ssl.SSLError) -> bool:
    """True for an alert by which a server refuses the client's certificate (in a TLS 1.2
    handshake, where the refusal comes before the handshake ends)."""
    reason = error.reason or ""
    return "ALERT" in reason and any(word in reason for word in _REFUSAL_ALERTS)


def _check_readable(role: str, path: str) -> None:
    try:
        with open(path, "rb"):
            pass
    except OSError as error:
        raise OSError(error.errno, "TLS %s: %s" % (role, error.strerror), path) from None


def describe(error: ssl.SSLError) -> str:
    # "[SSL: TLSV13_ALERT_CERTIFICATE_REQUIRED] tlsv13 alert certificate required (_ssl.c:2546)"
    # without the brackets' code and the place in Python's source.
    text = error.args[1] if len(error.args) > 1 and isinstance(error.args[1], str) else str(error)
    text = text.split("] ", 1)[-1]
    return text.rsplit(" (_ssl.c:", 1)[0]
