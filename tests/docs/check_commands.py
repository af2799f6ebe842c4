#!/usr/bin/env python3
"""Fails when a document shows a command that no test runs, or names what does not exist.

In code blocks and between backticks of every Markdown page of the repository it checks:
  ./dev X           X is a command that "./dev help" names, and so is each option behind it
  -R NAME           behind ctest or ./dev test: at least one test has a name like that
  build/T/tests/X   and build/T/tools/X: CMake makes a program X
  corvalint-host    its first word is a sub-command of the help text in tools/host, and its options
                    stand there as well
  `Suite.Name`      a test of that name stands in tests/
  ```sh             each line of such a block begins with a program that is installed here, that is
                    a file of the repository, or that an earlier line of the block has made
And each command is compared with command_table.py, which says what runs it. It does not run any.
"""

import argparse
import pathlib
import re
import shutil
import subprocess
import sys

from command_table import COMMANDS, By, NoTest, Run
from documents import ROOT, blocks_of, code_spans, pages
from shown_commands import shown_commands

OPTION = re.compile(r"--[a-z][\w-]*")


class Known:
    """What there is: asked once, then compared."""

    def __init__(self, build_folders):
        help_text = subprocess.run([ROOT / "dev", "help"], capture_output=True, text=True,
                                   check=True).stdout
        self.dev_commands = set(re.findall(r"^  ([a-z]+)  ", help_text, re.M))
        self.dev_options = set(OPTION.findall(help_text))
        self.ctest_names = sorted({name for folder in build_folders
                                   if pathlib.Path(folder, "CTestTestfile.cmake").exists()
                                   for name in ctest_names(folder)})
        makers = [*ROOT.rglob("CMakeLists.txt"), *(ROOT / "cmake").glob("*.cmake")]
        self.makers = "\n".join(
            path.read_text() for path in makers if ROOT / "build" not in path.parents)
        host = "\n".join(path.read_text() for path in (ROOT / "tools" / "host").glob("*.cpp"))
        # As in the manual: "  on TARGET         switches on"
        self.host_commands = set(
            re.findall(r"(?:^|[\"(])  ([a-z]+)(?: \[?[A-Z|]+\]?)?  +\S", host, re.M))
        self.host_options = set(OPTION.findall(host))
        macro = re.compile(r"\b(?:TYPED_)?TEST(?:_F|_P)?\(\s*(\w+),\s*(\w+)\)")
        self.tests = {  # and the text of the file that each stands in
            f"{suite}.{name}": text for path in (ROOT / "tests").rglob("*.cpp")
            for text in [path.read_text()] for suite, name in macro.findall(text)
        }

    def is_made(self, program):
        """True for a program that CMake makes: each of a test is a test of that name to ctest."""
        return (re.search(rf"\(\s*{re.escape(program)}\b", self.makers) is not None
                or any(name.endswith(f".{program}") or name == program for name in self.ctest_names))


def ctest_names(folder):
    listed = subprocess.run(["ctest", "--test-dir", str(folder), "-N"], capture_output=True,
                            text=True, check=True).stdout
    return re.findall(r"^\s*Test\s+#\d+: (\S+)", listed, re.M)


def complaints_about(command, known):
    """Why a line of code cannot be a command that works; nothing if it is none that is known."""
    command = re.sub(r"^\$ ", "", command)
    command = re.sub(r"\s+#.*$|\s{2,}.*$", "", command)  # a remark behind it
    words = command.split()
    while words and re.fullmatch(r"[A-Z_]+=\S*", words[0]):
        words.pop(0)
    if not words:
        return
    if words[0] == "./dev":
        yield from dev_complaints(words[1:], known)
    if words[0] == "ctest" or words[:2] == ["./dev", "test"]:
        yield from filter_complaints(words, known)
    made = re.fullmatch(r"build/[\w-]+/(?:tests|tools)/(?:[\w-]+/)*([\w-]+)(?:\.exe)?", words[0])
    if made and not known.is_made(made.group(1)):
        yield f"nothing makes a program {made.group(1)}"
    if re.fullmatch(r"(?:\./|\.\\)?corvalint-host(?:\.exe)?", words[0]):
        yield from host_complaints(words[1:], known)


def dev_complaints(words, known):
    named = words and re.fullmatch(r"[\w-]+", words[0]) and not words[0].isupper()
    if named and words[0] not in known.dev_commands:
        yield f"./dev has no command {words[0]}"
    if words[:1] == ["test"]:
        return  # what follows is ctest's
    for option in OPTION.findall(" ".join(words[1:])):
        if option not in known.dev_options:
            yield f"./dev help does not know {option}"


def filter_complaints(words, known):
    for flag, pattern in zip(words, words[1:]):
        if flag == "-R" and re.fullmatch(r"['\"]?[\w.|^$*-]+['\"]?", pattern):
            wanted = pattern.strip("'\"")
            if wanted.isupper():
                continue  # a placeholder
            if not any(re.search(wanted, name) for name in known.ctest_names):
                yield f"no test has a name like {wanted}"


def host_complaints(words, known):
    plain = [word for word in words if not word.startswith(("-", "["))]
    if plain and re.fullmatch(r"[a-z][a-z-]*", plain[0]) and plain[0] not in known.host_commands:
        yield f"corvalint-host has no sub-command {plain[0]}"
    for option in OPTION.findall(" ".join(words)):
        if option not in known.host_options:
            yield f"corvalint-host has no option {option}"


def shell_complaints(lines):
    """For a block of shell commands: programs that there are not."""
    made = set()
    for line in lines:
        words = line.removeprefix("$ ").split()
        while words and re.fullmatch(r"[A-Z_]+=\S*", words[0]):
            words.pop(0)
        if not words or words[0].startswith("#"):
            continue
        program = words[0]
        if not (program in made or shutil.which(program) or program in ("cd", "export")
                or (program.startswith("./") and (ROOT / program).is_file())):
            yield f"there is no program {program}"
        made |= {after for word, after in zip(words, words[1:]) if word == "-o"}
        made |= {f"./{name}" for name in set(made)}


def complaints_of_page(page, known):
    prose, blocks = blocks_of(page)
    for number, span in code_spans(prose):
        for complaint in complaints_about(span, known):
            yield number, complaint
        if re.fullmatch(r"[A-Z]\w+\.[A-Z]\w+", span) and span not in known.tests:
            yield number, f"there is no test {span}"
    for language, number, lines in blocks:
        for offset, line in enumerate(lines):
            for complaint in complaints_about(line, known):
                yield number + offset, complaint
        if language == "sh":
            for complaint in shell_complaints(lines):
                yield number, complaint


def names_its_test(command, known):
    """True for a program that is a test itself, and for a choice among the tests, see above."""
    program = re.fullmatch(r"build/([\w-]+)/tests/(?:[\w-]+/)*([\w-]+)", command)
    if program:
        return f"{program[1]}.{program[2]}" in known.ctest_names
    chosen = re.fullmatch(r"(?:ctest(?: --test-dir build/[\w-]+)?|\./dev test) -R (\S+)", command)
    return chosen is not None and any(re.search(chosen[1], name) for name in known.ctest_names)


def is_test(name, known):
    return name in known.tests or any(
        known_name.partition(".")[2] == name for known_name in known.ctest_names)


def complaints_about_way(way, known):
    """What is wrong with a line of the table."""
    if isinstance(way, Run):
        tests, reason = (f"docs_run_{way.group}",), "it runs it"
    elif isinstance(way, By):
        tests, reason = way.tests, way.tests
    else:
        tests, reason = way.parts, way.reason
    if not reason:
        yield "says neither what runs it nor why nothing does"
    for name in tests:
        if not is_test(name, known):
            yield f"there is no test {name}"
        elif isinstance(way, By) and way.witness not in known.tests.get(name, way.witness):
            yield f"{name} has no {way.witness}"


def complaints_about_table(shown, table, known):
    """What is shown, as (place, command), and not run, and lines of the table that do not hold. A
    line for a command that no document shows any more does no harm."""
    for place, command in shown:
        if command not in table and not names_its_test(command, known):
            yield (f"{place}: no test runs this: {command}\n"
                   "  say in tests/docs/command_table.py what does")
    for command, way in table.items():
        for complaint in complaints_about_way(way, known):
            yield f"command_table.py: {command}: {complaint}"


def main():
    parser = argparse.ArgumentParser(description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("builds", nargs="+", help="build trees whose tests there are, if they have been made")
    known = Known(parser.parse_args().builds)
    wrong = [
        f"{path.relative_to(ROOT)}:{number}: {complaint}"
        for path in pages()
        for number, complaint in complaints_of_page(path.read_text(encoding="utf-8"), known)
    ]
    shown = [(f"{path}:{number}", command) for path, number, command in shown_commands()]
    wrong += complaints_about_table(shown, COMMANDS, known)
    for command in sorted(set(COMMANDS) - {command for _, command in shown}):
        print(f"no document shows {command} any more")
    in_parts = sum(isinstance(way, NoTest) for way in COMMANDS.values())
    print(f"{len(shown)} commands shown; the table has {len(COMMANDS)}, {in_parts} of them are run "
          "in parts only")
    print(f"known: {len(known.dev_commands)} commands of ./dev, {len(known.ctest_names)} tests of "
          f"ctest, {len(known.tests)} tests by name, {len(known.host_commands)} sub-commands")
    if wrong:
        sys.exit("\n".join(wrong))


if __name__ == "__main__":
    main()
