#!/usr/bin/env python3
"""Compiles each ```c block of the documents against the public header, with warnings as errors.

A block without a main function stands for statements of one: its #include lines stay in front of it.
The compiler is the one that makes the Windows product, since hosts are Windows programs.
"""

import subprocess
import sys

from documents import ROOT, blocks_of, pages

COMPILER = ("x86_64-w64-mingw32-gcc-posix", "-std=c99", "-Wall", "-Wextra", "-Wpedantic", "-Werror",
            "-fsyntax-only", f"-I{ROOT / 'include'}", "-x", "c", "-")


def program_of(lines):
    if any(line.startswith("int main(") for line in lines):
        return "\n".join(lines) + "\n"
    includes = [line for line in lines if line.startswith("#include")]
    statements = [line for line in lines if not line.startswith("#include")]
    return "\n".join(["#include <stdio.h>", *includes, "int main(void) {", *statements, "return 0;",
                      "}", ""])


def main():
    failures, compiled = [], 0
    for path in pages():
        for language, number, lines in blocks_of(path.read_text(encoding="utf-8"))[1]:
            if language != "c":
                continue
            compiled += 1
            ended = subprocess.run(COMPILER, input=program_of(lines), capture_output=True, text=True,
                                   check=False)
            if ended.returncode != 0:
                failures.append(f"{path.relative_to(ROOT)}:{number}:\n{ended.stderr}")
    print(f"{compiled} blocks of C compiled")
    if not compiled:
        failures.append("there is no block of C")
    if failures:
        sys.exit("\n".join(failures))


if __name__ == "__main__":
    main()
