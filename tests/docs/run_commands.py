#!/usr/bin/env python3
"""Runs the commands of one group of command_table.py, for a moment each:

    run_commands.py GROUP

They run in a stand-in for the checkout, a folder in which everything but the results is a link:
"dev" is the real script, the trees are the real ones, and what is written stays there.
Two things are different. Nothing is built and nothing installed, since other tests use the trees at
the same time: in place of cmake and dpkg-query stand programs that only look whether there is
such a tree and target. And the programs that run for minutes are given less to do, see SHORTENED.
Ends with 77 if there is no Wine prefix, as ./dev test makes one.
"""

import os
import pathlib
import re
import shutil
import stat
import subprocess
import sys
import tempfile

from command_table import COMMANDS, Run
from documents import ROOT

# Own results of the trees that a run would go on with, or overwrite.
NOT_LINKED = re.compile(r"corpus|findings|log|Testing|.*\.profraw|.*\.profdata")

# Program of a tree: (the program that is run in its place, how). $real is that one, "$@" are the
# arguments that were meant for the other, $fixed goes before programs with a sanitizer.
SOAK = "build/release/tests/soak"
SHORTENED = {
    # One failing call of a table, in place of every call of all.
    "build/asan/tests/faults/fault_sweep":
        ("build/asan/tests/faults/fault_sweep", '[ "$*" = --all ] && $fixed "$real" winmm once 3'),
    "build/tsan/tests/soak/corvalint-stress":
        ("build/tsan/tests/soak/corvalint-stress",
         '[ "$*" = "--seconds 60" ] && $fixed "$real" --seconds 2'),
    f"{SOAK}/corvalint-cycles":
        (f"{SOAK}/corvalint-cycles", '[ "$1" = 20000 ] && "$real" 800 "$2"'),
    # Too few cycles of the DLL to be judged take half a minute, so its picture is drawn of native
    # ones; windows_endurance_test lets devices come and go at the DLL.
    f"{SOAK}/corvalint-wine-cycles":
        (f"{SOAK}/corvalint-cycles", '[ "$1" = 1000 ] && "$real" 400 "$2"'),
} | {
    # The suite has no tree with the fuzzer, but one that replays the inputs of the repository. The
    # folder with them is the last argument.
    f"build/fuzz/tests/fuzz/fuzz_{target}":
        (f"build/asan/tests/fuzz/replay_{target}",
         'for inputs; do :; done; $fixed "$real" "$inputs" 2>&1 |'
         " sed -n 's/^\\([0-9]*\\) inputs replayed/stat::number_of_executed_units: \\1/p'")
    for target in ("config", "devices", "host", "packet", "stream", "usb")
}
WRAPPER = """#!/bin/sh
real='{real}'
fixed=
if setarch -R true 2>/dev/null; then fixed='setarch -R'; fi
{how}
"""

CMAKE = """#!/bin/sh
if [ "$1" != --build ]; then exit 0; fi
tree=$2
[ -d "$tree" ] || { echo "there is no tree $tree" >&2; exit 1; }
[ -f "$tree/build.ninja" ] || exit 0
shift 2
for word; do
  case $word in
    --target) ;;
    --) break ;;
    *) ninja -C "$tree" -t query "$word" >/dev/null || exit ;;
  esac
done
"""
DPKG_QUERY = "#!/bin/sh\necho installed\n"
GNUPLOT = "#!/bin/sh\necho 'gnuplot is not installed: no picture'\n"


def write_program(path, text):
    path.write_text(text)
    path.chmod(path.stat().st_mode | stat.S_IXUSR)


def open_up(link):
    """Makes a folder of a link to one, with links to what is in it."""
    real = link.resolve()
    link.unlink()
    link.mkdir()
    for child in real.iterdir():
        if not NOT_LINKED.fullmatch(child.name):
            (link / child.name).symlink_to(child)


def shorten(checkout, program, real, how):
    """Puts a script in the place of a program."""
    place = checkout
    for part in pathlib.Path(program).parts[:-1]:
        place = place / part
        if place.is_symlink():
            open_up(place)
        place.mkdir(exist_ok=True)
    place = place / pathlib.Path(program).name
    place.unlink(missing_ok=True)
    write_program(place, WRAPPER.format(real=ROOT / real, how=how))


def make_checkout(checkout):
    for child in ROOT.iterdir():
        if child.name not in ("build", "dist", "dev", "bench", ".git"):
            (checkout / child.name).symlink_to(child)
    shutil.copy(ROOT / "dev", checkout)
    (checkout / "build").mkdir()
    for tree in (ROOT / "build").iterdir():
        place = checkout / "build" / tree.name
        if tree.is_dir() and tree.name not in ("all", "soak", "bench", "docs"):
            place.symlink_to(tree)
            if (tree / "build.ninja").exists():
                open_up(place)
    for program, (real, how) in SHORTENED.items():
        shorten(checkout, program, real, how)


def make_programs(folder):
    folder.mkdir()
    write_program(folder / "cmake", CMAKE)
    write_program(folder / "dpkg-query", DPKG_QUERY)
    if not shutil.which("gnuplot"):
        write_program(folder / "gnuplot", GNUPLOT)


def environment_of(programs):
    return dict(os.environ, PATH=f"{programs}:{os.environ['PATH']}",
                WINEPREFIX=str(ROOT / "build" / "wine"), WINEDEBUG="-all",
                WINEDLLOVERRIDES="mscoree,mshtml=")


def complaint_about(shown, way, checkout, environment):
    """What was wrong with one command, or nothing."""
    command = way.command or shown
    print(f"== {shown}\n   run as: {command}", flush=True)
    ended = subprocess.run(["bash", "-c", command], cwd=checkout, env=environment, text=True,
                           stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                           stderr=subprocess.STDOUT, errors="replace", timeout=500, check=False)
    print(ended.stdout, flush=True)
    if ended.returncode != way.code:
        return f"{command}: ended with {ended.returncode}, not {way.code}"
    if not re.search(way.prints, ended.stdout):
        return f"{command}: did not print {way.prints}"
    return None


def main():
    group = sys.argv[1]
    ways = {shown: way for shown, way in COMMANDS.items()
            if isinstance(way, Run) and way.group == group}
    if not ways:
        sys.exit(f"no command is in the group {group}")
    if not (ROOT / "build" / "wine" / ".prepared").exists():
        print("there is no Wine prefix build/wine")
        sys.exit(77)
    wrong = []
    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        checkout = folder / "checkout"
        checkout.mkdir()
        make_checkout(checkout)
        make_programs(folder / "programs")
        environment = environment_of(folder / "programs")
        for shown, way in ways.items():
            complaint = complaint_about(shown, way, checkout, environment)
            if complaint:
                wrong.append(complaint)
    if wrong:
        sys.exit("\n".join(wrong))


if __name__ == "__main__":
    main()
