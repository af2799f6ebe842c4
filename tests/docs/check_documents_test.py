#!/usr/bin/env python3
"""Shows that the checks of links and commands notice what they are there for."""

import tempfile
import types
import unittest
from pathlib import Path

import check_commands
import check_links
from command_table import By, NoTest, Run
from documents import ARCHIVE_PAGE, blocks_of, code_spans, pages
from shown_commands import commands_of

PAGE = """# A page & more

See [one](one.md), ![two](pictures/two.svg "title") and <a href="#a-page--more">up</a>;
not `[code](code.md)`, but [web](https://example.org/x).

    [indented](code.md)
    ./dev run

## The `second` heading

```sh
./dev fuzz --coverage
```

- a list
    with [a link](in-list.md) in it
- ## no heading

[three]: three.md

## The `second` heading
"""


class Markdown(unittest.TestCase):
    def test_links_outside_of_code_are_found(self):
        self.assertEqual(
            sorted(check_links.links_of(PAGE)),
            [(3, "#a-page--more"), (3, "one.md"), (3, "pictures/two.svg"),
             (4, "https://example.org/x"), (16, "in-list.md"), (19, "three.md")])

    def test_headings_are_named_as_on_web_pages(self):
        self.assertEqual(check_links.anchors_of(PAGE),
                         {"a-page--more", "the-second-heading", "the-second-heading-1"})

    def test_code_is_found_with_its_language_and_place(self):
        self.assertEqual(blocks_of(PAGE)[1],
                         [("", 6, ["[indented](code.md)", "./dev run"]),
                          ("sh", 12, ["./dev fuzz --coverage"])])
        self.assertEqual(list(code_spans(["a `b", "c` d ``e`f``"])), [(1, "b c"), (2, "e`f")])


class Links(unittest.TestCase):
    def test_what_leads_nowhere_is_told(self):
        with tempfile.TemporaryDirectory() as name:
            root = Path(name).resolve()
            (root / "docs").mkdir()
            (root / "build").mkdir()
            page = root / "docs" / "page.md"
            page.write_text("# Here\n")
            (root / "good.svg").write_text("<svg xmlns='http://www.w3.org/2000/svg'/>")
            (root / "bad.svg").write_text("<svg>")
            (root / "build" / "log").write_text("")
            for target, alive in (
                    ("#here", True), ("page.md#here", True), ("../docs", True), ("../good.svg", True),
                    ("https://example.org/gone", True), ("#there", False), ("gone.md", False),
                    ("Page.md", False), ("page.md#Here", False), ("../good.svg#x", False),
                    ("../bad.svg", False), ("../build/log", False), ("../../x", False),
                    ("/etc/hosts", False)):
                with self.subTest(target):
                    self.assertEqual(check_links.complaint_about(page, target, root) is None, alive)


    def test_the_page_of_the_archive_is_read_from_the_archives_root(self):
        self.assertIn(ARCHIVE_PAGE, pages())
        for target, alive in (("docs/host-guide.md#loops", True), ("#see-it", True),
                              ("docs/host-guide.md#no-such-heading", False),
                              ("#two-commands", False), ("host-guide.md", False)):
            with self.subTest(target):
                self.assertEqual(check_links.complaint_about(ARCHIVE_PAGE, target) is None, alive)


class Commands(unittest.TestCase):
    known = types.SimpleNamespace(
        dev_commands={"run", "test"}, dev_options={"--coverage"}, tests={"Suite.Name"},
        ctest_names=["release.docs_links", "release.frame_test"], host_commands={"list", "on"},
        host_options={"--json"}, is_made=lambda program: program == "made_test")

    def complaints(self, page):
        return list(check_commands.complaints_of_page(page, self.known))

    def test_commands_that_exist_are_not_told(self):
        page = """Use `./dev run --coverage`, `./dev`, `Suite.Name`, `ctest -R frame`,
`build/release/tests/unit/made_test` and `corvalint-host on "Keys" --json`.

    ./dev test -R docs_links   # a remark
    corvalint-host             asks
    ./dev COMMAND

```sh
$ WINEDEBUG=-all sh -c true -o made.exe
./made.exe
./dev run
```
"""
        self.assertEqual(self.complaints(page), [])

    def test_commands_that_do_not_exist_are_told(self):
        for page in ("`./dev walk`", "    ./dev walk", "`./dev run --slow`", "`Suite.Gone`",
                     "`ctest --test-dir build/release -R gone`", "`./dev test -R 'gone|lost'`",
                     "`build/asan/tests/unit/gone_test`", "`corvalint-host dance`",
                     "`corvalint-host.exe --gone`", "    $ X=1 ./dev walk",
                     "```sh\nno_such_program_at_all 1\n```", "```sh\n./no_such_file\n```",
                     "```\n./dev walk\n```"):
            with self.subTest(page):
                self.assertEqual(len(self.complaints(page + "\n")), 1)


class ShownCommands(unittest.TestCase):
    def commands(self, page):
        return [command for _, command in commands_of(page + "\n")]

    def test_commands_are_found_in_prose_and_in_every_kind_of_block(self):
        for page, command in (
                ("Call `./dev walk far` now", "./dev walk far"),
                ("Call `build/asan/tests/x_test`", "build/asan/tests/x_test"),
                ("    ./dev walk   # a remark", "./dev walk"),
                ("    $ WINEDEBUG=-all wine x.exe", "WINEDEBUG=-all wine x.exe"),
                ("    > corvalint-host list\n    wine answers", "corvalint-host list"),
                ("```sh\nno_such_program 1   # a remark\n```", "no_such_program 1"),
                ("```bat\n..\\..\\poll 10 \"Keys\"\n```", '..\\..\\poll 10 "Keys"'),
                ("```\ncorvalint-host doctor [--wait=N] [SUB [WORD]...]\n```",
                 "corvalint-host doctor")):
            with self.subTest(page):
                self.assertEqual(self.commands(page), [command])

    def test_what_is_no_command_is_not_found(self):
        for page in ("The program `corvalint-host` and `./dev`", "`corvalint-host.exe`",
                     "    oscsend > iPad   60", "    holds    log", "```c\ncp = x;\n```",
                     "`build/windows/desk`", "./dev walk, not code"):
            with self.subTest(page):
                self.assertEqual(self.commands(page), [])


class Table(unittest.TestCase):
    known = types.SimpleNamespace(
        tests={"Suite.Name": 'Run("list")'},
        ctest_names=["asan.x_test", "release.docs_run_quick", "release.by_another"])
    good = {"./dev a": Run("quick", "text"), "./dev b": By(("Suite.Name",), '"list"'),
            "./dev c": By(("by_another",)), "./dev d": NoTest((), "a reason")}

    def complaints(self, commands, table):
        shown = [("page:1", command) for command in commands]
        return list(check_commands.complaints_about_table(shown, table, self.known))

    def test_what_is_run_is_not_told(self):
        self.assertEqual(self.complaints(
            [*self.good, "build/asan/tests/unit/x_test", "ctest -R x_t", "./dev test -R other",
             "ctest --test-dir build/asan -R docs"], self.good), [])

    def test_a_command_that_nothing_runs_is_told(self):
        for command in ("./dev e", "build/tsan/tests/x_test", "build/asan/tests/x_test --all",
                        "ctest -R gone"):
            with self.subTest(command):
                self.assertEqual(len(self.complaints([*self.good, command], self.good)), 1)

    def test_a_line_of_the_table_that_does_not_hold_is_told(self):
        for way in (Run("slow", "text"), By(("Suite.Gone",)), By(("Suite.Name",), '"on"'), By(()),
                    NoTest((), ""), NoTest(("Suite.Gone",), "a reason")):
            with self.subTest(way):
                self.assertEqual(len(self.complaints(["./dev a"], {"./dev a": way})), 1)


if __name__ == "__main__":
    unittest.main()
