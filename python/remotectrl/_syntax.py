"""The command language as the plug-in reads it, so that a client can predict what a line means.

A line is ``NAME(argument,argument,...)``. The server trims trailing blanks, carriage returns
and line feeds, splits the line at every "(", takes the first piece as the name (matched
upper-cased, never trimmed) and the second piece minus its last character as the argument text,
and cuts that text at commas with the quote rules below. Everything here works on ``str``; the
only characters that matter (space, comma, double quote, parenthesis) are ASCII, so the result
is the same as on the UTF-8 bytes that go on the wire.

Quote rules, per comma-separated piece: blanks (spaces only) around a piece are dropped; a piece
whose text starts with a double quote opens a quoted argument, which ends at the first later
piece whose trimmed text ends with one (the comma between pieces is kept, blanks at the start of
the closing piece are lost); a piece that both starts and ends with a quote is a whole quoted
argument; an argument left open at the end is dropped; a piece that is a lone quote cannot be
taken apart at all (``parse_command`` then reports a syntax error).
"""

import enum
from typing import List, Optional, Sequence

from . import _wire


class PairingKind(enum.Enum):
    """How the replies of a line are paired (see classify)."""

    SESSION_END = "session-end"  # the server ends the session: no reply, no sync line
    SELF_SYNC = "self-sync"  # answered by the sync text itself: sent without the sync line
    START = "start"  # may send a final line after its sync reply
    OTHER = "other"  # everything else: sent followed by the sync line


class LineKind(enum.Enum):
    """What the server makes of a trimmed line."""

    IGNORED = "ignored"  # no "(": nothing happens
    SYNTAX_ERROR = "syntax-error"  # a lone double quote among the arguments
    COMMAND = "command"


_QUOTE = '"'


def _trim_blanks(text: str, leading: bool = True, trailing: bool = True) -> str:
    if leading:
        text = text.lstrip(" ")
    if trailing:
        text = text.rstrip(" ")
    return text


def tokenize(text: str) -> Optional[List[str]]:
    """Cuts argument text into arguments; None when a piece is a lone double quote."""
    tokens: List[str] = []
    open_token: Optional[str] = None
    for piece in text.split(","):
        lead_trimmed = _trim_blanks(piece, trailing=False)
        trimmed = _trim_blanks(lead_trimmed, leading=False)
        if open_token is None:
            if not lead_trimmed.startswith(_QUOTE):
                tokens.append(trimmed)
            elif trimmed == _QUOTE:
                return None
            elif trimmed.endswith(_QUOTE):
                tokens.append(trimmed[1:-1])
            else:
                open_token = lead_trimmed[1:]
        elif trimmed.endswith(_QUOTE):
            tokens.append(open_token + "," + trimmed[:-1])
            open_token = None
        else:
            open_token += "," + piece
    return tokens


def trim_line(line: str) -> str:
    """The line as the server's session sees it: trailing blanks and line ends removed."""
    return line.rstrip(" \r\n")


class ParsedLine:
    """What the server makes of one trimmed line: for a COMMAND, ``name`` is as sent and ``args``
    are the arguments the handler receives."""

    __slots__ = ("kind", "name", "args")

    def __init__(self, kind: LineKind, name: str = "", args: Sequence[str] = ()) -> None:
        self.kind = kind
        self.name = name
        self.args = list(args)


def parse_command(line: str) -> ParsedLine:
    pieces = trim_line(line).split("(")
    if len(pieces) < 2:
        return ParsedLine(LineKind.IGNORED)
    args = tokenize(pieces[1][:-1])
    if args is None:
        return ParsedLine(LineKind.SYNTAX_ERROR)
    return ParsedLine(LineKind.COMMAND, pieces[0], args)


# The server upper-cases names byte by byte in the C locale; str.upper() would also match
# non-ASCII letters such as the long s.
_ASCII_UPPER = str.maketrans("abcdefghijklmnopqrstuvwxyz", "ABCDEFGHIJKLMNOPQRSTUVWXYZ")


def match_command(name: str) -> Optional[str]:
    """The command ``name`` stands for, one of _wire.COMMANDS, or None for a name the server does
    not know."""
    upper = name.translate(_ASCII_UPPER)
    return upper if upper in _wire.COMMANDS else None


def classify(line: str) -> PairingKind:
    """How a client pairs the replies of ``line``: a GUI_SETFILE without two arguments is
    SELF_SYNC, an empty line or "QUIT()" SESSION_END."""
    trimmed = trim_line(line)
    if trimmed in ("", _wire.QUIT_LINE):
        return PairingKind.SESSION_END
    parsed = parse_command(trimmed)
    if parsed.kind != LineKind.COMMAND:
        return PairingKind.OTHER
    command = match_command(parsed.name)
    if command == _wire.GUI_SETFILE and len(parsed.args) != 2:
        return PairingKind.SELF_SYNC
    if command == _wire.START:
        return PairingKind.START
    return PairingKind.OTHER
