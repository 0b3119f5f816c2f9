"""Every text that crosses the connection: command names, the lines the client sends on its own,
and the lines the server answers. Nothing else in the package spells one.

A reply is one line: "OK", "YES", "NO", or "ERROR: " and an upper-case description.
"""

START = "START"
STOP = "STOP"
GUI_START = "GUI_START"
GUI_SETFILE = "GUI_SETFILE"
GUI_ISRUNNING = "GUI_ISRUNNING"
GUI_STOP = "GUI_STOP"
COMMANDS = (START, STOP, GUI_START, GUI_SETFILE, GUI_ISRUNNING, GUI_STOP)

# Ends the session without a reply (so does an empty line).
QUIT_LINE = "QUIT()"
STOP_LINE = STOP + "()"

REPLY_OK = "OK"
REPLY_YES = "YES"
REPLY_NO = "NO"
ERROR_PREFIX = "ERROR: "
ERROR_ACQUISITION_FAILED = ERROR_PREFIX + "ACQUISITION FAILED"

# Sent after a command, the sync line is answered with SYNC_REPLY, in order, in every state and
# without a call into the host: whatever arrives before that answer belongs to the command.
SYNC_LINE = GUI_SETFILE + "()"
SYNC_REPLY = ERROR_PREFIX + "INVALID NUMBER OF PARAMETERS (MUST BE 2)"


def is_error(line: str) -> bool:
    return line.startswith(ERROR_PREFIX)


def is_final(line: str) -> bool:
    """True for the two lines that end an acquisition, whenever they arrive."""
    return line in (REPLY_OK, ERROR_ACQUISITION_FAILED)
