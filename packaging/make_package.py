#!/usr/bin/env python3
"""Packs the product into OUT_FOLDER/corvalint-VERSION-win64.zip.

    make_package.py BUILD_TREE OUT_FOLDER

BUILD_TREE is the built Windows tree. The same sources give the same bytes: names are sorted, every
file has the time of the last commit (or SOURCE_DATE_EPOCH), and nothing of the machine is in it.
"""

import hashlib
import os
import pathlib
import re
import subprocess
import sys
import time
import zipfile

ROOT = pathlib.Path(__file__).resolve().parent.parent
BUILT = {
    "corvalint_wrapper.dll": "corvalint_wrapper.dll",
    "corvalint_wrapper.lib": "corvalint_wrapper.lib",
    "libcorvalint_wrapper.dll.a": "implib/libcorvalint_wrapper.dll.a",
    "corvalint-host.exe": "corvalint-host.exe",
}
SOURCES = {
    "README.md": "packaging/README.md",
    "CHANGELOG.md": "CHANGELOG.md",
    "LICENSE": "LICENSE",
    "THIRD_PARTY_NOTICES.md": "THIRD_PARTY_NOTICES.md",
    "corvalint_wrapper.h": "include/corvalint_wrapper.h",
    "licenses/oscpack.txt": "build/deps/oscpack/LICENSE",
}
FOLDERS = ["examples/c", "examples/cpp", "examples/csharp", "examples/python"]
FILES = ["examples/README.md"] + [
    f"docs/{page}.md"
    for page in ("host-guide", "host-tool", "troubleshooting", "security", "wire-format")
]
EARLIEST_OF_ZIP = 315532800  # 1980


def last_change():
    given = os.environ.get("SOURCE_DATE_EPOCH")
    if given:
        return int(given)
    log = subprocess.run(
        ["git", "-c", "safe.directory=*", "-C", ROOT, "log", "-1", "--format=%ct"],
        capture_output=True,
        text=True,
    )
    if log.returncode != 0:
        sys.exit("make_package: no git history here; set SOURCE_DATE_EPOCH")
    return int(log.stdout)


def collect(build_tree):
    """Name in the archive to contents."""
    paths = {name: build_tree / path for name, path in BUILT.items()}
    paths |= {name: ROOT / path for name, path in SOURCES.items()}
    paths |= {name: ROOT / name for name in FILES}
    for folder in FOLDERS:
        for path in (ROOT / folder).iterdir():
            if path.is_file():
                paths[f"{folder}/{path.name}"] = path
    missing = sorted(str(path) for path in paths.values() if not path.is_file())
    if missing:
        sys.exit("make_package: not there: " + ", ".join(missing))
    return {name: path.read_bytes() for name, path in paths.items()}


def unlink_strangers(page, text, names):
    """A link to a file that is not in the archive becomes its own text."""

    def keep_or_drop(match):
        target = match[2].split("#")[0]
        if not target or "://" in target:
            return match[0]
        path = os.path.normpath(os.path.join(os.path.dirname(page), target))
        if path in names:
            return match[0]
        if page == "README.md":  # written for the archive
            sys.exit(f"make_package: {page} leads to {target}, which is not in the archive")
        return match[1]

    return re.sub(r"!?\[([^\]]*)\]\(([^)\s]+)\)", keep_or_drop, text)


def with_sums(contents):
    sums = "".join(
        f"{hashlib.sha256(data).hexdigest()}  {name}\n" for name, data in sorted(contents.items())
    )
    return contents | {"SHA256SUMS": sums.encode()}


def write_zip(path, folder, contents, when):
    moment = time.gmtime(max(when, EARLIEST_OF_ZIP))[:6]
    with zipfile.ZipFile(path, "w", zipfile.ZIP_DEFLATED, compresslevel=9) as archive:
        for name, data in sorted(contents.items()):
            entry = zipfile.ZipInfo(f"{folder}/{name}", moment)
            entry.create_system = 3  # a system whose files have modes
            entry.external_attr = (0o755 if name.endswith((".exe", ".dll")) else 0o644) << 16
            entry.compress_type = zipfile.ZIP_DEFLATED
            archive.writestr(entry, data)


def main(arguments):
    if len(arguments) != 2:
        sys.exit(__doc__)
    build_tree, out = map(pathlib.Path, arguments)
    version = (ROOT / "VERSION").read_text().strip()
    contents = collect(build_tree)
    for name in [name for name in contents if name.endswith(".md")]:
        text = contents[name].decode().replace("@VERSION@", version)
        contents[name] = unlink_strangers(name, text, contents.keys()).encode()
    out.mkdir(parents=True, exist_ok=True)
    folder = f"corvalint-{version}-win64"
    path = out / f"{folder}.zip"
    write_zip(path, folder, with_sums(contents), last_change())
    print(path)


if __name__ == "__main__":
    main(sys.argv[1:])
