"""The commands that the documents show, as a reader would type them.

A command is each line of a block for a shell, each line of another block that begins with a program
that this project speaks of, and what stands between backticks and begins like that and goes on.
"""

import re

from documents import ROOT, blocks_of, code_spans, pages

SHELLS = {"sh", "bash", "bat", "cmd", "powershell", "ps1"}
PROGRAM = re.compile(r"""
    \./[\w./-]+ | \.?\\?corvalint-host(?:\.exe)? | (?:\.\.\\)+[\w\\.-]+ | \.\\[\w\\.-]+
  | build/[\w-]+/(?:tests|tools)/[\w/.-]+ | tests/[\w/-]+\.(?:py|sh) | packaging/[\w/-]+\.py
  | (?:[\w.]+-)*(?:gcc|g\+\+|clang|clang\+\+)(?:-posix)? | cl | csc | mcs | mono | python3?
  | cmake | ctest | ninja | wine | wineserver | bash | sh | git | sudo | apt | apt-get | cd | export
  | oscdump | oscsend | sha256sum | netstat | reg | curl | unzip | tar | cp | rm | mkdir
""", re.X)
# A variable in front, as in WINEDEBUG=-all wine x.exe
VARIABLE = re.compile(r"[A-Z_]+=\S*")


def without_remark(line):
    """The line without a prompt in front, and without what is said about it behind."""
    line = re.sub(r"^[$>] ", "", line.strip())
    return re.sub(r"(?:^|\s+)#.*$|\s{2,}.*$", "", line)


def begins_with_program(command):
    words = command.split()
    while words and VARIABLE.fullmatch(words[0]):
        words.pop(0)
    return (bool(words) and PROGRAM.fullmatch(words[0]) is not None
            and words[1:2] != [">"])  # as in a table of ways, from one program to another


def without_choices(command):
    """The command without what a synopsis leaves to the reader."""
    while (shorter := re.sub(r"\s*\[[^\[\]]*\](?:\.\.\.)?", "", command)) != command:
        command = shorter
    return command


def is_typed_inline(span):
    """A word alone between backticks names a program; only a path to one is meant to be run."""
    word = span.split()[0] if span.split() else ""
    return begins_with_program(span) and (span != word or word.startswith("build/"))


def commands_of(page):
    """(line number, command) of a page's text."""
    prose, blocks = blocks_of(page)
    for number, span in code_spans(prose):
        if is_typed_inline(span):
            yield number, without_choices(span)
    for language, first, lines in blocks:
        typed = any(re.match(r"[$>] ", line) for line in lines)  # then the others are answers
        for offset, line in enumerate(lines):
            if typed and not re.match(r"[$>] ", line) and language not in SHELLS:
                continue
            command = without_choices(without_remark(line))
            if command and (language in SHELLS or language in ("", "console") and
                            begins_with_program(command)):
                yield first + offset, command


def shown_commands():
    """(page, line number, command) of all pages."""
    for path in pages():
        for number, command in commands_of(path.read_text(encoding="utf-8")):
            yield path.relative_to(ROOT), number, command
