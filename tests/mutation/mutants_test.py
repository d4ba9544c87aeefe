"""The changes that are tried, and the list of those that make no difference."""

import tempfile
import unittest
from pathlib import Path

from equivalents import readEquivalents
from mutants import mutantsOf


def changesOf(source):
    return [(mutant.function, mutant.change) for mutant in mutantsOf("a.cpp", source)]


class Mutants(unittest.TestCase):
    def test_a_comparison_is_moved_by_one_and_turned_round(self):
        changes = changesOf("int f(int a)\n{\n    return a < 7;\n}\n")
        for change in ("< -> <=", "< -> >=", "7 -> 8", "7 -> 6", "return a < 7 -> return {}"):
            self.assertIn(("f", change), changes)

    def test_templates_and_references_are_no_operators(self):
        source = "int f(const S& s)\n{\n    return g(static_cast<int>(s.n), &s);\n}\n"
        self.assertEqual([("f", "return g(static_cast<int>(s.n), &s) -> return {}")], changesOf(source))

    def test_a_trace_line_changes_its_kind_number_and_words(self):
        source = 'void f()\n{\n    traceExc(1234, "API.f(x=%d)\\n", x);\n}\n'
        self.assertEqual(
            [("f", "traceExc -> traceEvent"), ("f", "1234 -> 1235"), ("f", '"API.f(x=%d)\\n" -> "APi.f(x=%d)\\n"')],
            changesOf(source),
        )

    def test_return_codes_become_success_and_another_failure(self):
        changes = changesOf("int f()\n{\n    return KRVSTAT_NULL_BUFFER;\n}\n")
        self.assertEqual(
            [("f", "KRVSTAT_NULL_BUFFER -> KRVSTAT_OK"), ("f", "KRVSTAT_NULL_BUFFER -> KRVSTAT_OUT_OF_MEMORY")], changes
        )

    def test_statements_are_left_out_and_declarations_stay(self):
        changes = changesOf("void f()\n{\n    int a = g();\n    a = h();\n    run(a);\n    if (a) return;\n}\n")
        self.assertEqual(
            [("f", "a = h() -> nothing"), ("f", "run(a) -> nothing"), ("f", "a -> !(a)"), ("f", "return -> nothing")],
            changes,
        )

    def test_names_of_functions_come_from_behind_their_attributes(self):
        source = "__attribute__((format(printf, 3, 4)))\nvoid writeLine(int a, ...)\n{\n    run(a);\n}\n"
        self.assertEqual([("writeLine", "run(a) -> nothing")], changesOf(source))

    def test_objects_and_arrays_go_by_their_names(self):
        source = "int a = 0;\nconstexpr T b[SIZE] = {\n    {0},\n};\nchar c[SIZE] = {};\n"
        self.assertEqual(["a", "b", "b", "c"], [function for function, _ in changesOf(source)])

    def test_the_same_change_of_the_same_line_is_counted(self):
        changes = changesOf("int f(int a)\n{\n    return a + 5 + 5;\n}\n")
        for change in ("5 -> 6", "5 -> 6 #2", "+ -> -", "+ -> - #2"):
            self.assertIn(("f", change), changes)

    def test_a_mutant_changes_its_place_alone(self):
        source = "int f(int a)\n{\n    return a == 0;\n}\n"
        mutant = next(one for one in mutantsOf("a.cpp", source) if one.change == "== -> !=")
        self.assertEqual(source.replace("==", "!="), mutant.apply(source))


class Equivalents(unittest.TestCase):
    def read(self, text):
        with tempfile.NamedTemporaryFile("w", suffix=".txt") as file:
            file.write(text)
            file.flush()
            return readEquivalents(Path(file.name))

    def test_an_entry_names_place_line_changes_and_reason(self):
        listed = self.read(
            "# Comment.\n\nin: a.cpp f\nline: x = a + 1;\nchange: + -> -\nchange: 1 -> 2\nreason: Nobody\n  looks at x.\n"
        )
        self.assertEqual(
            {("a.cpp", "f", "x = a + 1;", "+ -> -"): "Nobody looks at x.",
             ("a.cpp", "f", "x = a + 1;", "1 -> 2"): "Nobody looks at x."},
            listed,
        )

    def test_an_entry_without_a_reason_is_refused(self):
        with self.assertRaises(ValueError):
            self.read("in: a.cpp f\nline: x = a + 1;\nchange: + -> -\n")

    def test_an_entry_that_stands_there_twice_is_refused(self):
        entry = "in: a.cpp f\nline: x = a + 1;\nchange: + -> -\nreason: Nobody looks.\n"
        with self.assertRaises(ValueError):
            self.read(entry + "\n" + entry)


if __name__ == "__main__":
    unittest.main()
