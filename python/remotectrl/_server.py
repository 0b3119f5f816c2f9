"""The RemoteCtrlDS command: help and version without PyTango, then Tango's own server start-up."""

import sys
from typing import List, Optional

from . import __version__
from .client import DEFAULT_PORT

#: The device properties: name -> (default, what it is). The device class and the help read them
#: here, where PyTango need not be importable.
PROPERTIES = {
    "Host": ("127.0.0.1", "host that runs the remotectrl plug-in"),
    "Port": (DEFAULT_PORT, "the plug-in's command port"),
    "DeviceIndex": (0, "the device's index on the host"),
    "Timeout": (5.0, "seconds to wait for the host's connection or reply"),
    "TlsCA": ("", "TLS: PEM file of the authority that signed the host's certificate"),
    "TlsCertificate": ("", "TLS: PEM file of the client certificate this server presents"),
    "TlsKey": ("", "TLS: that certificate's unencrypted key; all three or none (plain TCP)"),
}

USAGE = """\
Usage: RemoteCtrlDS INSTANCE [-v[LEVEL]] [-nodb -dlist DEVICE[,...] | -file=FILE] [-ORBendPoint giop:tcp:ADDR:PORT]
  or:  RemoteCtrlDS --help | --version

Tango device server for remotectrl hosts: server RemoteCtrlDS, class RemoteCtrl, one device per
acquisition device of a host, all of one host sharing its single client connection.

Device properties (default); a value set on the device wins over the class property of the
same name, which wins over the default. Init reads and checks them again:
%s
Attributes: Count, ExposureTime (s), FileName, Threshold (read-write, used by Start, memorized)
and LastReply (read-only: the last line the host answered).
Commands: Start, Stop, GuiStart, GuiStop, GuiSetFile(file), GuiIsRunning -> bool.
States: ON, RUNNING, FAULT (a property that cannot be used, a failed or overdue acquisition),
UNKNOWN (the host does not answer, or not yet); changes are pushed as change events.

With a Tango database (TANGO_HOST set), INSTANCE names the server instance registered there.
Without one, -nodb -dlist names the devices, whose properties keep their defaults, or -file=FILE
names a Tango property file that lists them with their properties; -ORBendPoint then gives the
address that clients use (tango://ADDR:PORT/DEVICE#dbase=no).

Exit status: 0 when the server was shut down, 1 when it could not run, 2 on a usage error.
""" % "".join("  %-15s%s (%s)\n" % (name, doc, default if default != "" else "none") for name, (default, doc) in PROPERTIES.items())


def main(argv: Optional[List[str]] = None) -> int:
    """Runs the server with ``argv`` (default: the command line without the program name)."""
    args = sys.argv[1:] if argv is None else argv
    if args[:1] in (["-h"], ["--help"]):
        sys.stdout.write(USAGE)
        return 0
    if args[:1] == ["--version"]:
        print("RemoteCtrlDS", __version__)
        return 0
    if not args or args[0].startswith("-"):
        sys.stderr.write("RemoteCtrlDS: missing INSTANCE (see RemoteCtrlDS --help)\n")
        return 2
    try:
        from tango.server import run

        from .tango import RemoteCtrl
    except ImportError as error:
        sys.stderr.write("RemoteCtrlDS needs PyTango (Debian: apt-get install python3-tango): %s\n" % error)
        return 1
    # Tango names the server after the program: the same whether run as RemoteCtrlDS or "-m".
    try:
        run((RemoteCtrl,), args=["RemoteCtrlDS"] + args, raises=True)
    except Exception as error:  # Tango has already said what went wrong, on stderr or stdout
        sys.stderr.write("RemoteCtrlDS: the server could not run: %s\n" % (error,))
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
