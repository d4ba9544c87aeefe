"""The gates of this folder close: over a limit, and where nothing was counted."""

import unittest

import gate  # finds the modules of bench
from bars import COUNTED, Bar, judge
from counts import MEASURES, Trouble, callsBetweenMarks, instructionsIn, namedAllocations, unnamedAllocations


class Verdicts(unittest.TestCase):
    def test_a_figure_at_the_limit_passes_and_one_above_does_not(self):
        bar = Bar(60, limit=60)
        self.assertTrue(gate.verdict("parse-instructions", 60.0, bar, 60)[1])
        self.assertFalse(gate.verdict("parse-instructions", 60.1, bar, 60)[1])

    def test_a_bar_that_is_not_met_is_told_even_where_the_limit_is_kept(self):
        line, isKept = gate.verdict("library-size", 120000, Bar(98304, limit=125000), 125000)
        self.assertTrue(isKept)
        self.assertIn("bar 98,304 not met", line)

    def test_what_could_not_be_measured_keeps_no_limit(self):
        self.assertFalse(judge(None, 10**9))

    def test_a_bar_from_below_is_reached_from_above(self):
        self.assertTrue(judge(8, 7.5, atLeast=True))
        self.assertFalse(judge(7, 7.5, atLeast=True))

    def test_every_measure_has_a_bar_on_every_machine(self):
        self.assertEqual(set(MEASURES), set(COUNTED))
        for name, bars in COUNTED.items():
            self.assertEqual({"x86_64", "i386"}, set(bars), name)


class Readings(unittest.TestCase):
    def test_a_report_without_a_count_is_no_count_of_zero(self):
        self.assertEqual(1234567, instructionsIn("==7== I   refs:      1,234,567\n"))
        with self.assertRaises(Trouble):
            instructionsIn("valgrind: fatal error\n")

    def test_a_call_counts_where_it_stands_between_marks(self):
        lines = [
            "poll([{fd=3, events=POLLIN}], 1, -1) = 1",
            'write(-1, "query begins", 12) = -1 EBADF (Bad file descriptor)',
            "send(3, ..., 38, MSG_NOSIGNAL) = 38",
            "--- SIGCHLD {si_signo=SIGCHLD} ---",
            "recv(3, ..., 34, 0) = 34",
            'write(-1, "query ends", 10) = -1 EBADF (Bad file descriptor)',
            'write(-1, "walk begins", 11) = -1 EBADF (Bad file descriptor)',
            "getpid() = 7",
            'write(-1, "walk ends", 9) = -1 EBADF (Bad file descriptor)',
            "close(3) = 0",
        ]
        self.assertEqual({"query": [["send", "recv"]], "walk": [["getpid"]]}, callsBetweenMarks(lines))

    def test_an_allocation_more_less_or_of_another_size_is_told(self):
        named = namedAllocations("GET_STATS", 34 + 9 + 100)
        self.assertEqual([38, 34, 12, 162, 34, 109, 100], named)
        self.assertEqual(0, unnamedAllocations("7 7: 38 34 12 162 34 109 100", named))
        for line in (
            "8 8: 38 34 12 162 34 109 100 16",
            "6 6: 38 34 12 162 34 109",
            "7 7: 38 34 12 162 34 109 101",
            "7 6: 38 34 12 162 34 109 100",
        ):
            self.assertGreater(unnamedAllocations(line, named), 0, line)


if __name__ == "__main__":
    unittest.main()
