"""Writing method arguments into a command line that the plug-in reads back unchanged.

Every refusal is a ValueError raised before anything is sent:
- whole numbers (device index, count) must be ``int`` (not ``bool``) within the server's 32-bit
  signed range, and are written in decimal;
- real numbers (time, threshold) must be ``int`` or ``float`` (not ``bool``), finite, and exactly
  representable as a double; they are written with ``repr``, the shortest text that reads back
  as the same double;
- texts must not hold "(" (the server splits the line there before it looks at quotes), a line
  end, or NUL (the server hands file names on as zero-terminated strings). A text that holds a
  comma or has blanks at its ends is quoted; either way the finished line is parsed with the
  server's rules and refused unless every argument comes back exactly as given.
"""

import math
import numbers

from . import _syntax

INT_MIN = -(2**31)
INT_MAX = 2**31 - 1


def whole_number(name, value):
    if isinstance(value, bool) or not isinstance(value, numbers.Integral):
        raise ValueError("%s must be a whole number, not %r" % (name, value))
    value = int(value)
    if not INT_MIN <= value <= INT_MAX:
        raise ValueError("%s %d is outside the server's range %d..%d" % (name, value, INT_MIN, INT_MAX))
    return str(value)


def real_number(name, value):
    if isinstance(value, bool) or not isinstance(value, (numbers.Integral, float)):
        raise ValueError("%s must be a number, not %r" % (name, value))
    try:
        as_float = float(value)
    except OverflowError:
        raise ValueError("%s %r is too large for a double" % (name, value)) from None
    if not math.isfinite(as_float):
        raise ValueError("%s must be finite, not %r" % (name, value))
    if isinstance(value, numbers.Integral) and int(as_float) != value:
        raise ValueError("%s %d is not exactly representable as a double" % (name, value))
    return repr(as_float)


def _check_text(name, text):
    if not isinstance(text, str):
        raise ValueError("%s must be a str, not %r" % (name, text))
    for forbidden, what in (("(", '"("'), ("\n", "a line end"), ("\r", "a line end"), ("\0", "NUL")):
        if forbidden in text:
            raise ValueError("%s %r holds %s, which the command language cannot carry" % (name, text, what))


def _needs_quotes(text):
    return "," in text or text != text.strip(" ")


def _candidates(text):
    quoted = '"' + text + '"'
    return [quoted] if _needs_quotes(text) else [text, quoted]


def command_line(name, values):
    """``NAME(a,b,...)`` from ``values``, a list of (label, text, is_text) tuples.

    Text values get whichever written form (plain, else quoted) survives the server's parsing.
    """
    for label, text, is_text in values:
        if is_text:
            _check_text(label, text)
    written = [[text] if not is_text else _candidates(text) for _, text, is_text in values]
    wanted = [text for _, text, _ in values]
    chosen = [options[0] for options in written]
    for index, options in enumerate(written):
        for option in options:
            chosen[index] = option
            if _survives(name, chosen, wanted, index):
                break
        else:
            label, text, _ = values[index]
            raise ValueError("%s %r cannot be carried unchanged by the command language" % (label, text))
    line = "%s(%s)" % (name, ",".join(chosen))
    if not _survives(name, chosen, wanted, len(chosen) - 1):
        raise ValueError("%s cannot be carried unchanged by the command language" % line)
    return line


def _survives(name, chosen, wanted, index):
    # The arguments after `index` are not settled yet; only a prefix is checked, which is enough
    # because a closed quoted argument never affects the pieces after it.
    line = "%s(%s)" % (name, ",".join(chosen[: index + 1]))
    parsed = _syntax.parse_command(line)
    return parsed.kind == "command" and parsed.args == wanted[: index + 1]
