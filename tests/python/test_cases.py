"""The package's command language and reply pairing against the case files that the C++ suite
reads too (the README beside them gives their syntax); a failing row names its file and line."""

import os
import re
import unittest

from remotectrl import _pairing, _syntax, _wire

CASES_DIR = os.path.join(os.path.dirname(os.path.abspath(__file__)), os.pardir, "protocol", "cases")
ITEM = re.compile(r"((?:\[(?:\\.|[^\\\]])*\])+)|(\S+)")  # adjacent bracketed texts, or a bare word
TEXT = re.compile(r"\[((?:\\.|[^\\\]])*)\]")
ESCAPED = {"t": "\t", "r": "\r", "n": "\n"}


def rows(file_name):
    with open(os.path.join(CASES_DIR, file_name)) as cases:
        for number, row in enumerate(cases, 1):
            if row.strip() and not row.lstrip().startswith("#"):
                yield "tests/protocol/cases/%s:%d" % (file_name, number), row.rstrip("\n")


def items(row):
    unescaped = lambda text: re.sub(r"\\(.)", lambda escape: ESCAPED.get(escape[1], escape[1]), text)
    found = ITEM.findall(row)
    return [[unescaped(text) for text in TEXT.findall(texts)] if texts else word for texts, word in found]


def with_sync(text):
    return text.strip(" ").replace("SYNC", _wire.SYNC_REPLY, 1)


class CaseFileTest(unittest.TestCase):
    def test_tokenizer(self):
        for where, row in rows("tokenizer.cases"):
            with self.subTest(where):
                [text], tokens = items(row)
                expected = None if tokens == "failure" else [] if tokens == "none" else tokens
                self.assertEqual(_syntax.tokenize(text), expected)

    def test_lines(self):
        for where, row in rows("lines.cases"):
            with self.subTest(where):
                [line], kind, *command = items(row)
                parsed = _syntax.parse_command(line)
                ends = _syntax.classify(line) == _syntax.PairingKind.SESSION_END
                self.assertEqual("session-end" if ends else parsed.kind.value, kind)
                if command:
                    [name], matched, args = command
                    known = _syntax.match_command(parsed.name) or "unknown"
                    self.assertEqual([parsed.name, known, parsed.args], [name, matched, args])

    def test_pairing(self):
        for where, row in rows("pairing.cases"):
            with self.subTest(where):
                _, events, routed, state = row.split("|")
                pairing, commands, seen = _pairing.Pairing(), [], []
                for event in map(with_sync, events.split(";")):
                    if event.startswith(">"):
                        commands.append(pairing.sent(_syntax.classify(event[1:])))
                    else:
                        seen += ["%s:%s" % (kind.value, line) for kind, line in pairing.take(event[1:])]
                self.assertEqual(seen, [with_sync(entry) for entry in routed.split(";") if entry.strip()])
                self.assertEqual(pairing.acquisition_pending, state.strip() == "pending")
                self.assertTrue(all(command.done for command in commands))
