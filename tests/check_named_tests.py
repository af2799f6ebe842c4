#!/usr/bin/env python3
"""Fails when docs/reliability.md names a test that does not exist."""

import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent


def existing_tests():
    macro = re.compile(r"\b(?:TYPED_)?TEST(?:_F|_P)?\(\s*(\w+),\s*(\w+)\)")
    sources = (ROOT / "tests").rglob("*.cpp")
    return {
        f"{suite}.{name}" for source in sources for suite, name in macro.findall(source.read_text())
    }


def main():
    page = (ROOT / "docs" / "reliability.md").read_text()
    named = set(re.findall(r"`([A-Z]\w+\.[A-Z]\w+)`", page))
    missing = sorted(named - existing_tests())
    print(f"docs/reliability.md names {len(named)} tests")
    if not named or missing:
        sys.exit("no such tests: " + ", ".join(missing))


if __name__ == "__main__":
    main()
