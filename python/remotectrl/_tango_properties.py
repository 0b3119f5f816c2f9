"""The properties of a RemoteCtrl device: which value counts, and whether it can be used.

A value set on the device wins over the class property of the same name (one Host for all the
devices of a class, say), which wins over the default in _server.PROPERTIES. A property counts
as not set when it holds no value or only blank ones. Every value is checked before the device
uses any of them; the first one that does not hold is reported by name and text, so that the
device can say exactly what to fix. No name is looked up here: Host is taken as written, and a
name that does not resolve shows when the device connects. The three Tls files are given all or
none; each must be readable and the set usable (a key that is not the certificate's, say), and
they are read again at every connect, so a renewed certificate needs no Init.
"""

import math
import os
from typing import Callable, Mapping, NamedTuple, Optional, Sequence, TypeVar

from ._server import PROPERTIES
from ._tls import TlsFileError, TlsFiles

T = TypeVar("T")

_PORTS = range(1, 65536)
_DEVICE_INDEXES = range(0, 2**31)  # the host reads a device index as a 32-bit signed int
_TLS_NAMES = ("TlsCA", "TlsCertificate", "TlsKey")  # in the order of TlsFiles

#: Property name -> the values a database holds for it (as Tango's Database returns them).
Stored = Mapping[str, Sequence[str]]


class Config(NamedTuple):
    host: str
    port: int
    device_index: int
    timeout: float
    tls: Optional[TlsFiles] = None  # None: plain TCP


class PropertyError(ValueError):
    """A property value that cannot be used; the message names the property and quotes the value."""


def resolve(device: Stored, device_class: Stored) -> Config:
    """The device's configuration from its own and its class's stored properties; PropertyError
    for the first value that does not hold, in the order of _server.PROPERTIES."""
    return Config(
        _value("Host", _host, device, device_class),
        _value("Port", _port, device, device_class),
        _value("DeviceIndex", _device_index, device, device_class),
        _value("Timeout", _timeout, device, device_class),
        _tls(device, device_class),
    )


def conflict(peer: str, own: Optional[TlsFiles], linked: Optional[TlsFiles]) -> PropertyError:
    """The error of a device whose Tls files differ from those of the link to ``peer`` that the
    server's other devices of that host share."""
    unset = ("", "", "")
    name, mine, theirs = next(row for row in zip(_TLS_NAMES, own or unset, linked or unset) if row[1] != row[2])
    return PropertyError("property %s: %r differs from %r, which this server's other devices of %s use "
                         "(one connection serves them all)" % (name, mine, theirs, peer))


def _value(name: str, parse: Callable[[str], T], device: Stored, device_class: Stored) -> T:
    text = _given(name, device)
    if text is None:
        text = _given(name, device_class)
    if text is None:
        text = str(PROPERTIES[name][0])
    try:
        return parse(text)
    except ValueError as why:
        raise PropertyError("property %s: %r %s" % (name, text, why)) from None


def _tls(device: Stored, device_class: Stored) -> Optional[TlsFiles]:
    given = {name: _given(name, device) or _given(name, device_class) or "" for name in _TLS_NAMES}
    if not any(given.values()):
        return None
    for name, text in given.items():
        if not text:
            others = " and ".join(other for other in _TLS_NAMES if given[other])
            raise PropertyError("property %s: '' must be set with %s (all three or none)" % (name, others))
    files = TlsFiles(*given.values())
    try:
        files.context()
    except (OSError, TlsFileError) as error:
        name = next(name for name, text in given.items() if text == error.filename)
        why = error.why if isinstance(error, TlsFileError) else "cannot be read: " + os.strerror(error.errno or 0)
        raise PropertyError("property %s: %r %s" % (name, error.filename, why)) from None
    return files


def _given(name: str, stored: Stored) -> Optional[str]:
    values = [value.strip() for value in stored.get(name, ()) if value.strip()]
    if len(values) > 1:
        raise PropertyError("property %s: %r holds %d values, not one" % (name, list(values), len(values)))
    return values[0] if values else None


def _host(text: str) -> str:
    if any(character.isspace() for character in text):
        raise ValueError("is not a host name or address")
    return text


def _port(text: str) -> int:
    return _whole(text, _PORTS, "is not a port from 1 to 65535")


def _device_index(text: str) -> int:
    return _whole(text, _DEVICE_INDEXES, "is not a device index from 0 to 2147483647")


def _timeout(text: str) -> float:
    why = "is not a number of seconds above 0"
    try:
        seconds = float(text)
    except ValueError:
        raise ValueError(why) from None
    if not math.isfinite(seconds) or seconds <= 0:
        raise ValueError(why)
    return seconds


def _whole(text: str, allowed: range, why: str) -> int:
    try:
        number = int(text)
    except ValueError:
        raise ValueError(why) from None
    if number not in allowed:
        raise ValueError(why)
    return number

