#!/usr/bin/env python3
"""Does what docs/host-guide.md tells the author of a first host, word by word.

Takes the page's first block of C and its first block of shell commands, saves the one, runs the
other beside the files of a Windows build tree, and looks whether the program lists the sources of
the desktop. Uses the Wine prefix of the environment, or the one that ./dev prepares.
"""

import argparse
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile

from documents import ROOT, blocks_of

PRODUCT = ("corvalint_wrapper.dll", "corvalint_wrapper.lib", "corvalint_wrapper.h")


def first_block(blocks, language):
    return next("\n".join(lines) + "\n" for kind, _, lines in blocks if kind == language)


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("windows", type=pathlib.Path, help="the build tree with the product")
    windows = parser.parse_args().windows
    prefix = pathlib.Path(os.environ.get("WINEPREFIX", ROOT / "build" / "wine"))
    if not prefix.is_dir():
        print(f"there is no Wine prefix {prefix}")
        sys.exit(77)
    _, blocks = blocks_of((ROOT / "docs" / "host-guide.md").read_text(encoding="utf-8"))
    with tempfile.TemporaryDirectory() as folder:
        for name in PRODUCT:
            shutil.copy(windows / name, folder)
        pathlib.Path(folder, "first_host.c").write_text(first_block(blocks, "c"))
        environment = dict(os.environ, WINEPREFIX=str(prefix), WINEDEBUG="-all",
                           WINEDLLOVERRIDES="mscoree,mshtml=")
        ended = subprocess.run(["sh", "-e"], input=first_block(blocks, "sh"), cwd=folder, text=True,
                               capture_output=True, env=environment, timeout=240, check=False)
        log = pathlib.Path(folder, "pellora.log")
        started = log.exists() and "INFO LoadUsbLibraries" in log.read_text(encoding="utf-8")
    print(ended.stdout + ended.stderr)
    counted = re.search(r"^(\d+) sources\r?$", ended.stderr, re.M)
    if ended.returncode != 0 or counted is None:
        sys.exit(f"the host failed with {ended.returncode}")
    # Wine's sound library complains about machines without sound wherever it likes.
    named = [line for line in ended.stderr[counted.end():].splitlines()
             if line.strip() and not line.startswith("ALSA lib")]
    if len(named) != int(counted.group(1)):
        sys.exit(f"{counted.group(1)} sources, of which it names {len(named)}")
    if not started:
        sys.exit("the service did not start")


if __name__ == "__main__":
    main()
