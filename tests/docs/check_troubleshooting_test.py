#!/usr/bin/env python3
"""Shows that check_troubleshooting.py notices what it is there for."""

import argparse
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

import check_troubleshooting
from cpp_literals import Unreadable, tokens_of
from printed_lines import lines_of_library, lines_printed, texts_passed_for, texts_thrown

HERE = Path(__file__).resolve().parent
OPTIONS = argparse.Namespace(osc=check_troubleshooting.ROOT / "build/deps/oscpack/osc")
PAGE = (check_troubleshooting.ROOT / "docs" / "troubleshooting.md").read_text(encoding="utf-8")


def table(*rows):
    return "\n".join(["| line | where | cause | cure |", "| --- | --- | --- | --- |", *rows, ""])


class Sources(unittest.TestCase):
    def printed(self, source):
        return lines_printed(source, "room/file.cpp")

    def test_each_way_to_write_a_line_is_found(self):
        self.assertEqual(
            self.printed(r'''LogError("a %d\n", 1); LogInfo("b"); LogDebug("c"); ConsolePrint("d\n");
                             std::fputs("e\n", stderr); std::fprintf(stderr, "f %s", "g");
                             void Say(ConsoleLines& kept) { kept.Add("h: %s\n", name.c_str()); }
                             ConsoleLines mine; mine.Add("i");'''),
            {("log ERROR", "a %d"), ("log INFO", "b"), ("log DEBUG", "c"), ("console", "d"),
             ("stderr", "e"), ("stderr", "f %s"), ("console", "h: %s"), ("console", "i")})

    def test_literals_are_read_as_the_compiler_reads_them(self):
        self.assertEqual(self.printed('LogInfo("one "\n        "two  \\"three\\"");'),
                         {("log INFO", 'one two  "three"')})
        self.assertEqual(self.printed('ConsolePrint(on ? "yes" : "no");'),
                         {("console", "yes"), ("console", "no")})
        self.assertEqual(self.printed('// LogInfo("x");\n/* LogInfo("y"); */ names.Add("z");'), set())
        self.assertEqual(self.printed("void LogInfo(const char* format, ...);"), set())

    def test_what_cannot_be_followed_fails(self):
        for source in ("LogInfo(text.c_str());", 'LogWrite(3, "x");', 'std::cerr << "x";',
                       'std::puts("x");', 'printf("x");', 'std::vprintf(format, arguments);',
                       'write(fileno(stderr), text, 3);', 'ConsolePrint(R"(x)");',
                       'std::fputs("x", file);'):
            with self.subTest(source), self.assertRaises(Unreadable):
                self.printed(source)

    def test_exception_texts_are_found(self):
        source = '''struct Rest {
            void SkipText(const char* complaint) { throw osc::Malformed(complaint); }
          };
          void F() { rest.SkipText("no end"); throw std::out_of_range("too far"); }
          void G() { throw osc::Missing(); }
          void H() { try { F(); } catch (...) { throw; } }'''
        self.assertEqual(texts_thrown(source, "f", {"Missing": "missing"}),
                         {("text", "no end"), ("text", "too far"), ("text", "missing")})
        self.assertEqual(texts_passed_for(tokens_of(source), "complaint"), ["no end"])
        with self.assertRaises(Unreadable):
            texts_thrown("void G() { throw osc::Missing(); }", "f", {})
        with self.assertRaises(Unreadable):
            texts_thrown("void G(Text x) { throw Bad(x); }", "f", {})

    def test_a_function_that_formats_and_is_not_known_fails(self):
        with tempfile.TemporaryDirectory() as folder:
            Path(folder, "new.h").write_text(
                "void Tell(const char* format, ...) __attribute__((format(printf, 1, 2)));")
            with self.assertRaisesRegex(Unreadable, "Tell"):
                lines_of_library(folder, OPTIONS.osc)


class Page(unittest.TestCase):
    def test_a_line_that_is_missing_is_told(self):
        written = {("console", "a || %d"), ("log INFO", "b")}
        page = table(r"| `a \|\| %d` | console | c | d |")
        self.assertEqual(check_troubleshooting.complaints_about(page, written),
                         ["not on the page: 'b' (log INFO)"])

    def test_blanks_inside_a_line_count_and_those_at_its_ends_do_not(self):
        written = {("console", "failed  because %d")}
        row = "| `%s` | console | c | d |"
        self.assertEqual(
            check_troubleshooting.complaints_about(table(row % "failed  because %d "), written), [])
        self.assertEqual(
            len(check_troubleshooting.complaints_about(table(row % "failed because %d"), written)), 2)

    def test_a_line_that_is_invented_or_in_the_wrong_place_is_told(self):
        page = table("| `a` | console, log INFO | c | d |", "| `b` | stderr | c | d |")
        self.assertEqual(
            check_troubleshooting.complaints_about(page, {("console", "a"), ("stderr", "b")}),
            ["in no source: 'a' (log INFO)"])

    def test_a_row_without_cause_or_cure_or_twice_is_told(self):
        page = table("| `a` | console | | d |", "| `b` | console | c |", "| `e` | stderr | f | g |",
                     "| `e` | stderr | f | g |")
        complaints = check_troubleshooting.complaints_about(page, {("stderr", "e")})
        self.assertEqual(len(complaints), 3, complaints)

    def test_each_line_of_the_page_is_missed_when_it_goes(self):
        written = lines_of_library(check_troubleshooting.ROOT / "src", OPTIONS.osc)
        self.assertGreater(len(written), 100)
        rows = [row for row in PAGE.splitlines() if row.startswith("| `")]
        for row in rows:
            named, _ = check_troubleshooting.lines_of_page(table(row))
            if not named:
                continue  # a row of another table
            found = check_troubleshooting.complaints_about(PAGE.replace(row + "\n", "", 1), written)
            for line in named & written:
                self.assertIn(f"not on the page: {check_troubleshooting.told(line)}", found)


class Program(unittest.TestCase):
    def test_a_page_without_one_of_the_lines_ends_with_a_failure(self):
        others = [f"| `{text}` | {where} | c | d |" for where, text in texts_of_others()]
        for line, code in ((["| `hello %s` | log INFO | c | d |"], 0), ([], 1)):
            with tempfile.TemporaryDirectory() as folder:
                page = Path(folder, "page.md")
                page.write_text(table(*others, *line), encoding="utf-8")
                Path(folder, "some.cpp").write_text('void F() { LogInfo("hello %s", name); }')
                ended = subprocess.run(
                    [sys.executable, "-B", HERE / "check_troubleshooting.py", "--osc", OPTIONS.osc,
                     "--source", folder, "--page", page],
                    capture_output=True, text=True, check=False)
            self.assertEqual(ended.returncode, code, ended.stderr)
            self.assertEqual(ended.stderr, "not on the page: 'hello %s' (log INFO)\n" * code)


def texts_of_others():
    with tempfile.TemporaryDirectory() as folder:
        Path(folder, "empty.cpp").write_text("")
        return sorted(lines_of_library(folder, OPTIONS.osc))


if __name__ == "__main__":
    parser = argparse.ArgumentParser()
    parser.add_argument("--osc")
    OPTIONS, rest = parser.parse_known_args(namespace=OPTIONS)
    unittest.main(argv=sys.argv[:1] + rest)
