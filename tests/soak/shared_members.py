#!/usr/bin/env python3
"""Counts how the fields of the library's classes are kept from races, and finds those that are not.

    shared_members.py SOURCE_FOLDER OSC_INCLUDE_FOLDER REASONS [CLANG]

A field is constant, a reference, a lock, atomic, or it names its lock, which clang checks. Any
other one stands in the file of reasons, or it is an error. So is a reason without its field.
"""
import collections
import pathlib
import re
import subprocess
import sys

CLASS = re.compile(r"CXXRecordDecl 0x\w+ .*?(?:class|struct) (\w+) definition")
FIELD = re.compile(r"^\W*FieldDecl 0x\w+ <[^>]*>(?: \S+:\d+:\d+| line:\d+:\d+| col:\d+)?"
                   r"(?: (?:referenced|used|mutable))* (\w+) '([^']*)'")
# Sources that have classes of their own besides their headers' ones.
HAS_SHARED = re.compile(r"CORVALINT_GUARDED_BY|std::atomic<")


def syntax_tree(clang, sources, osc, text):
    command = [clang, "-std=c++20", f"-I{sources}", f"-I{sources.parent}/include", "-isystem", osc,
               "-fsyntax-only", "-fno-color-diagnostics", "-Xclang", "-ast-dump", "-Xclang",
               "-ast-dump-filter=corvalint", "-x", "c++", "-"]
    done = subprocess.run(command, input=text, text=True, capture_output=True, errors="replace")
    if done.returncode != 0:
        sys.exit(done.stderr)
    return done.stdout


def kind_of(declared, guarded):
    if guarded:
        return "names its lock"
    if "std::atomic<" in declared:
        return "atomic"
    if re.match(r"(?:corvalint::)?(?:CriticalSection|BorrowGate)$", declared):
        return "is a lock or a gate"
    if declared.endswith("&") or declared.endswith("*const") or (
            declared.startswith("const ") and not declared.endswith("*")):
        return "constant or a reference"
    return None


def fields_of(tree):
    classes, last = [], None  # the classes that a line is inside of, with their indentation
    for line in tree.splitlines():
        indent = len(line) - len(line.lstrip(" |`-"))
        if found := CLASS.search(line):
            classes = [known for known in classes if known[0] < indent] + [(indent, found.group(1))]
        if found := FIELD.match(line):
            classes = [known for known in classes if known[0] < indent]
            last = None
            if found.group(1) == "implicit" or not classes:  # what a lambda carries
                continue
            last = [f"{classes[-1][1]}::{found.group(1)}", found.group(2), False]
            yield last
        elif last and "GuardedByAttr" in line:
            last[2] = True


def read_reasons(path):
    reasons, reason = {}, None
    for line in pathlib.Path(path).read_text().splitlines():
        if line.endswith(":"):
            reason = line[:-1]
        elif line.strip() and not line.startswith("#"):
            for name in line.split():
                reasons[name] = reason
    return reasons


def main():
    sources, osc = pathlib.Path(sys.argv[1]).resolve(), sys.argv[2]
    reasons = read_reasons(sys.argv[3])
    clang = sys.argv[4] if len(sys.argv) > 4 else "clang++"
    headers = sorted(p for p in sources.glob("*/*.h"))
    texts = ["".join(f'#include "{h.relative_to(sources)}"\n' for h in headers)]
    texts += [p.read_text() for p in sorted(sources.glob("*/*.cpp")) + sorted(
        sources.glob("*/posix/*.cpp")) if HAS_SHARED.search(p.read_text())]

    fields = {}
    for text in texts:
        for field in fields_of(syntax_tree(clang, sources, osc, text)):
            fields.setdefault(field[0], field)  # filled by the time that all have been seen
    counts, wrong, used = collections.Counter(), [], set()
    for name, declared, guarded in fields.values():
        kind = kind_of(declared, guarded)
        if kind is None:
            key = name if name in reasons else name.split("::")[0] + "::*"
            used.add(key)
            kind = reasons.get(key)
        if kind is None:
            wrong.append(f"{name} ({declared}): no lock, not atomic, and no reason is given")
        counts[kind] += 1
    wrong += [f"{name}: a reason is given, and there is no such field" for name in reasons
              if name not in used]
    for kind, count in sorted(counts.items(), key=lambda item: -item[1]):
        print(f"{count:5}  {kind}")
    print(f"{sum(counts.values()):5}  fields")
    for line in wrong:
        print("WRONG: " + line)
    return 1 if wrong or not fields else 0


sys.exit(main())
