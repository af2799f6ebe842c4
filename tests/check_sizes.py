#!/usr/bin/env python3
"""Fails when a source file or a function in one has grown beyond what is read at one go.

A C or C++ function is found by the project's format: it begins with the last line of its closing
brace's indentation before that brace. So this knows functions and members, not lambdas.
"""

import argparse
import ast
import pathlib
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
FOLDERS = ("include", "src", "tools", "tests", "examples", "packaging", "cmake")
CODE = (".h", ".hpp", ".c", ".cpp")
FILES = CODE + (".inc", ".py", ".sh", ".cmake", ".cs", ".txt")
GENERATED = {"clock_scenes.inc"}

FILE_LIMIT = 400
FUNCTION_LIMIT = 60


def code_functions(lines):
    """Yields the line number and the length of each function of a C or C++ file."""
    begins = {}
    for number, line in enumerate(lines, 1):
        text = line.lstrip(" ")
        indent = len(line) - len(text)
        if not text or text.startswith(("//", "#")):
            continue
        if text == "}" and indent in begins:
            yield begins[indent], number - begins[indent] + 1
        begins[indent] = number


def python_functions(source):
    for node in ast.walk(ast.parse(source)):
        if isinstance(node, (ast.FunctionDef, ast.AsyncFunctionDef)):
            yield node.lineno, node.end_lineno - node.lineno + 1


def complaints(name, source):
    lines = source.splitlines()
    if len(lines) >= FILE_LIMIT:
        yield f"{name}: {len(lines)} lines"
    functions = ()
    if name.endswith(CODE):
        functions = code_functions(lines)
    elif name.endswith(".py"):
        functions = python_functions(source)
    for first, length in functions:
        if length >= FUNCTION_LIMIT:
            yield f"{name}:{first}: a function of {length} lines"


def sources():
    yield ROOT / "dev"
    for folder in FOLDERS:
        for path in sorted((ROOT / folder).rglob("*")):
            if path.suffix in FILES and path.name not in GENERATED:
                yield path


def main():
    found = []
    count = 0
    for path in sources():
        count += 1
        found += complaints(str(path.relative_to(ROOT)), path.read_text(encoding="utf-8"))
    print(f"{count} files looked at")
    if found:
        sys.exit("too long:\n" + "\n".join(found))


if __name__ == "__main__":
    main()
