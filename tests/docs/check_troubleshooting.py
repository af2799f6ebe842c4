#!/usr/bin/env python3
"""Fails unless docs/troubleshooting.md has exactly the lines that the sources can write.

The sources are read for every line that goes to the log, to standard output and to standard error,
and for every exception text that can be a part of one. The page's tables name the same lines and
where they appear. A line that only one of the two has is told, and so is a row without a cause or a
cure. What the sources print in a way that is not looked into fails as well.
"""

import argparse
import pathlib
import re
import sys

from cpp_literals import Unreadable, without_outer_blanks
from printed_lines import lines_of_library

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
HEADER = ["line", "where", "cause", "cure"]


def cells_of(row):
    """The cells of a table's row; `\\|` is no border."""
    cells = re.split(r"(?<!\\)\|", row.strip())[1:-1]
    return [cell.strip().replace(r"\|", "|") for cell in cells]


def lines_of_page(page):
    """The set of (where, line) and the list of what is wrong with the page's rows."""
    lines, complaints = set(), []
    in_table = False
    for number, row in enumerate(page.splitlines(), 1):
        if not row.startswith("|"):
            in_table = False
            continue
        cells = cells_of(row)
        if cells == HEADER:
            in_table = True
            continue
        if not in_table or set(row) <= set("|- "):
            continue
        named = re.fullmatch(r"`([^`]+)`", cells[0])
        if named is None or len(cells) != len(HEADER) or not all(cells):
            complaints.append(f"row {number} has not a line, where it appears, its cause and cure")
            continue
        for where in cells[1].split(", "):
            line = (where, without_outer_blanks(named.group(1)))
            if line in lines:
                complaints.append(f"row {number} names for the second time: {told(line)}")
            lines.add(line)
    return lines, complaints


def told(line):
    return f"{line[1]!r} ({line[0]})"


def complaints_about(page, written):
    """What is wrong with the text of a page, given the set of lines that can be written."""
    named, complaints = lines_of_page(page)
    complaints += [f"not on the page: {told(line)}" for line in sorted(written - named)]
    complaints += [f"in no source: {told(line)}" for line in sorted(named - written)]
    return complaints


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--source", default=ROOT / "src", help="the library's sources")
    parser.add_argument("--osc", default=ROOT / "build/deps/oscpack/osc",
                        help="the OSC library's sources")
    parser.add_argument("--page", default=ROOT / "docs" / "troubleshooting.md")
    options = parser.parse_args()
    try:
        written = lines_of_library(options.source, options.osc)
    except Unreadable as failure:
        sys.exit(str(failure))
    complaints = complaints_about(pathlib.Path(options.page).read_text(encoding="utf-8"), written)
    print(f"the sources can write {len(written)} lines and texts")
    if complaints:
        sys.exit("\n".join(complaints))


if __name__ == "__main__":
    main()
