"""The properties of a RemoteCtrl device: which value counts, and whether it can be used.

A value set on the device wins over the class property of the same name (one Host for all the
devices of a class, say), which wins over the default in _server.PROPERTIES. A property counts
as not set when it holds no value or only blank ones. Every value is checked before the device
uses any of them; the first one that does not hold is reported by name and text, so that the
device can say exactly what to fix. No name is looked up here: Host is taken as written, and a
name that does not resolve shows when the device connects.
"""

import math
from typing import Callable, Mapping, NamedTuple, Optional, Sequence, TypeVar

from ._server import PROPERTIES

T = TypeVar("T")

_PORTS = range(1, 65536)
_DEVICE_INDEXES = range(0, 2**31)  # the host reads a device index as a 32-bit signed int

#: Property name -> the values a database holds for it (as Tango's Database returns them).
Stored = Mapping[str, Sequence[str]]


class Config(NamedTuple):
    host: str
    port: int
    device_index: int
    timeout: float


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
    )


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

