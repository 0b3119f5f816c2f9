"""Writing method arguments into a command line that the plug-in reads back unchanged.

Every refusal is raised before anything is sent: TypeError for a value of the wrong type,
ValueError for one the server would read back differently.
- whole numbers (device index, count) must be ``int`` (not ``bool``) within the server's 32-bit
  signed range, and are written in decimal;
- real numbers (time, threshold) must be ``int`` or ``float`` (not ``bool``), finite, and exactly
  representable as a double; they are written with ``repr``, the shortest text that reads back
  as the same double;
- texts must be ``str`` and must not hold "(" (the server splits the line there before it looks
  at quotes), a line end, or NUL (the server hands file names on as zero-terminated strings). A
  text that holds a comma or has blanks at its ends is quoted; either way the finished line is
  parsed with the server's rules and refused unless every argument comes back exactly as given.
"""

import math
import numbers
from typing import List, NamedTuple, Sequence

from . import _syntax

INT_MIN = -(2**31)
INT_MAX = 2**31 - 1


class Argument(NamedTuple):
    """One checked argument, made by whole(), real() or text()."""

    label: str  # the parameter's name, for messages
    text: str  # as the server must receive it
    is_text: bool  # free text, written plain or quoted; numbers are written as they are


def whole(name: str, value: object) -> Argument:
    if isinstance(value, bool) or not isinstance(value, numbers.Integral):
        raise TypeError("%s must be an int, not %r" % (name, value))
    number = int(value)
    if not INT_MIN <= number <= INT_MAX:
        raise ValueError("%s %d is outside the server's range %d..%d" % (name, number, INT_MIN, INT_MAX))
    return Argument(name, str(number), False)


def real(name: str, value: object) -> Argument:
    if isinstance(value, bool) or not isinstance(value, (numbers.Integral, float)):
        raise TypeError("%s must be an int or a float, not %r" % (name, value))
    try:
        as_float = float(value)
    except OverflowError:
        raise ValueError("%s %r is too large for a double" % (name, value)) from None
    if not math.isfinite(as_float):
        raise ValueError("%s must be finite, not %r" % (name, value))
    if isinstance(value, numbers.Integral) and int(as_float) != value:
        raise ValueError("%s %d is not exactly representable as a double" % (name, value))
    return Argument(name, repr(as_float), False)


def text(name: str, value: object) -> Argument:
    if not isinstance(value, str):
        raise TypeError("%s must be a str, not %r" % (name, value))
    for forbidden, what in (("(", '"("'), ("\n", "a line end"), ("\r", "a line end"), ("\0", "NUL")):
        if forbidden in value:
            raise ValueError("%s %r holds %s, which the command language cannot carry" % (name, value, what))
    return Argument(name, value, True)


def _needs_quotes(value: str) -> bool:
    return "," in value or value != value.strip(" ")


def _candidates(value: str) -> List[str]:
    quoted = '"' + value + '"'
    return [quoted] if _needs_quotes(value) else [value, quoted]


def command_line(name: str, values: Sequence[Argument]) -> str:
    """``NAME(a,b,...)`` from ``values``; a text gets whichever written form (plain, else quoted)
    survives the server's parsing."""
    written = [_candidates(value.text) if value.is_text else [value.text] for value in values]
    wanted = [value.text for value in values]
    chosen = [options[0] for options in written]
    for index, options in enumerate(written):
        for option in options:
            chosen[index] = option
            if _survives(name, chosen, wanted, index):
                break
        else:
            raise ValueError(
                "%s %r cannot be carried unchanged by the command language" % (values[index].label, wanted[index])
            )
    return "%s(%s)" % (name, ",".join(chosen))


def _survives(name: str, chosen: List[str], wanted: List[str], index: int) -> bool:
    # The arguments after `index` are not settled yet; only a prefix is checked, which is enough
    # because a closed quoted argument never affects the pieces after it.
    line = "%s(%s)" % (name, ",".join(chosen[: index + 1]))
    parsed = _syntax.parse_command(line)
    return parsed.kind == _syntax.LineKind.COMMAND and parsed.args == wanted[: index + 1]

