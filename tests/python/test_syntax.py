"""The client's reading of the command language, and how method arguments are written."""

import unittest

from remotectrl import _arguments, _syntax

Q = '"'


class TokenizeTest(unittest.TestCase):
    ROWS = [
        ("plain", "a,b,c", ["a", "b", "c"]),
        ("blanks_around", " a , b ", ["a", "b"]),
        ("empty_text", "", [""]),
        ("empty_middle", "a,,b", ["a", "", "b"]),
        ("trailing_comma", "a,", ["a", ""]),
        ("blank_pieces", " , ", ["", ""]),
        ("quoted_comma", Q + "x,y" + Q + ",z", ["x,y", "z"]),
        ("closing_piece_loses_leading_blank", Q + "a, b, c" + Q, ["a, b,c"]),
        ("closing_piece_keeps_blanks_before_quote", Q + "a,  b  " + Q, ["a,b  "]),
        ("empty_middle_piece_stays_open", Q + "a,,b" + Q, ["a,,b"]),
        ("quote_then_comma", Q + "a," + Q, ["a,"]),
        ("quoted_inner_blanks", Q + " a " + Q + ",b", [" a ", "b"]),
        ("empty_quoted", Q + Q + ",b", ["", "b"]),
        ("inner_quote", Q + "a" + Q + "b" + Q + ",c", ["a" + Q + "b", "c"]),
        ("quote_not_at_start", "x" + Q + "y" + Q + ",z", ["x" + Q + "y" + Q, "z"]),
        ("unterminated_dropped", Q + "abc", []),
        ("unterminated_after_plain", "a," + Q + "b,c", ["a"]),
        ("tab_not_trimmed", "\ta", ["\ta"]),
        ("lone_quote", Q, None),
        ("lone_quote_after_blank", "a, " + Q, None),
    ]

    def test_rows(self):
        for name, text, tokens in self.ROWS:
            with self.subTest(name):
                self.assertEqual(_syntax.tokenize(text), tokens)


class ClassifyTest(unittest.TestCase):
    ROWS = [
        ("empty_ends_session", "", _syntax.SESSION_END),
        ("blanks_end_session", "  \r", _syntax.SESSION_END),
        ("quit", "QUIT()", _syntax.SESSION_END),
        ("quit_trailing_blanks", "QUIT() \r", _syntax.SESSION_END),
        ("quit_lower_case_is_a_command", "quit()", _syntax.OTHER),
        ("quit_leading_blank_is_a_command", " QUIT()", _syntax.OTHER),
        ("sync_line_itself", "GUI_SETFILE()", _syntax.SELF_SYNC),
        ("setfile_one_argument", "gui_setfile(0)", _syntax.SELF_SYNC),
        ("setfile_three_arguments", "GUI_SETFILE(0,a,b)", _syntax.SELF_SYNC),
        ("setfile_quoted_comma_is_one_argument", "GUI_SETFILE(" + Q + "0,a" + Q + ")", _syntax.SELF_SYNC),
        ("setfile_unterminated_quote_dropped", "GUI_SETFILE(0," + Q + "a)", _syntax.SELF_SYNC),
        ("setfile_second_paren_cuts_to_two", "GUI_SETFILE(0,a(1).txt)", _syntax.OTHER),
        ("setfile_second_paren_cuts_to_one", "GUI_SETFILE(0(1).txt)", _syntax.SELF_SYNC),
        ("setfile_two_arguments", "GUI_SETFILE(0,a.txt)", _syntax.OTHER),
        ("setfile_blank_name_is_unknown", " GUI_SETFILE()", _syntax.OTHER),
        ("setfile_without_paren_is_ignored", "GUI_SETFILE", _syntax.OTHER),
        ("setfile_lone_quote_is_syntax_error", "GUI_SETFILE(" + Q + ")", _syntax.OTHER),
        ("start", "START(0,1,1,f,1)", _syntax.START),
        ("start_mixed_case", "Start()", _syntax.START),
        ("start_leading_blank_is_unknown", " START(0,1,1,f,1)", _syntax.OTHER),
        ("stop", "STOP()", _syntax.OTHER),
        ("no_paren", "hello", _syntax.OTHER),
    ]

    def test_rows(self):
        for name, line, kind in self.ROWS:
            with self.subTest(name):
                self.assertEqual(_syntax.classify(line), kind)


class NumberTest(unittest.TestCase):
    def test_whole_numbers_are_decimal(self):
        for value, text in [(0, "0"), (-1, "-1"), (2**31 - 1, "2147483647"), (-(2**31), "-2147483648")]:
            with self.subTest(value):
                self.assertEqual(_arguments.whole_number("count", value), text)

    def test_real_numbers_read_back_the_same(self):
        for value in [0.1, 1 / 3, 10, 1e-7, 5e-324, 1.7976931348623157e308, -0.0, 123456789.125]:
            with self.subTest(value):
                self.assertEqual(float(_arguments.real_number("time", value)), value)

    REFUSED = [
        ("whole_bool", _arguments.whole_number, True),
        ("whole_float", _arguments.whole_number, 1.0),
        ("whole_text", _arguments.whole_number, "1"),
        ("whole_above_int_range", _arguments.whole_number, 2**31),
        ("whole_below_int_range", _arguments.whole_number, -(2**31) - 1),
        ("real_bool", _arguments.real_number, False),
        ("real_text", _arguments.real_number, "0.5"),
        ("real_infinite", _arguments.real_number, float("inf")),
        ("real_nan", _arguments.real_number, float("nan")),
        ("real_int_too_large", _arguments.real_number, 10**400),
        ("real_int_not_exact", _arguments.real_number, 2**53 + 1),
    ]

    def test_refused(self):
        for name, convert, value in self.REFUSED:
            with self.subTest(name), self.assertRaises(ValueError):
                convert("value", value)


class TextArgumentTest(unittest.TestCase):
    def line(self, text):
        return _arguments.command_line("GUI_SETFILE", [("device", "0", False), ("file", text, True)])

    WRITTEN = [
        ("plain", "run.txt", "GUI_SETFILE(0,run.txt)"),
        ("empty", "", "GUI_SETFILE(0,)"),
        ("comma_is_quoted", "a,b", 'GUI_SETFILE(0,"a,b")'),
        ("leading_blank_is_quoted", " a", 'GUI_SETFILE(0," a")'),
        ("trailing_blank_is_quoted", "a ", 'GUI_SETFILE(0,"a ")'),
        ("inner_blank_plain", "a b", "GUI_SETFILE(0,a b)"),
        ("inner_quote_plain", 'a"b', 'GUI_SETFILE(0,a"b)'),
        ("leading_quote_gets_quoted", '"a', 'GUI_SETFILE(0,""a")'),
        ("quoted_text_gets_quoted", '"a"', 'GUI_SETFILE(0,""a"")'),
        ("lone_quote_gets_quoted", '"', 'GUI_SETFILE(0,""")'),
        ("tab_at_end_plain", "a\t", "GUI_SETFILE(0,a\t)"),
        ("non_ascii_plain", "m\u00e4rz.txt", "GUI_SETFILE(0,m\u00e4rz.txt)"),
    ]

    def test_written_form_round_trips(self):
        for name, text, line in self.WRITTEN:
            with self.subTest(name):
                self.assertEqual(self.line(text), line)
                self.assertEqual(_syntax.parse_command(line).args, ["0", text])

    REFUSED = [
        ("open_paren", "a(1).txt"),
        ("line_feed", "a\nb"),
        ("carriage_return", "a\rb"),
        ("nul", "a\0b"),
        ("blank_lost_after_comma", 'a, "b'),
        ("not_text", 5),
    ]

    def test_refused(self):
        for name, text in self.REFUSED:
            with self.subTest(name), self.assertRaises(ValueError):
                self.line(text)

    def test_later_arguments_survive_a_quoted_one(self):
        line = _arguments.command_line(
            "START",
            [("d", "0", False), ("c", "1", False), ("t", "0.5", False), ("f", "x,y", True), ("h", "10.0", False)],
        )
        self.assertEqual(_syntax.parse_command(line).args, ["0", "1", "0.5", "x,y", "10.0"])


if __name__ == "__main__":
    unittest.main()
