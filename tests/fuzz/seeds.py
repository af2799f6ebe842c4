#!/usr/bin/env python3
"""Writes the seed corpora, tests/fuzz/corpus/<target>/<meaning>. Run it after changing a seed.

A seed that came from elsewhere, such as an input that once found a mistake, has a name that no
function here gives, and stays.
"""

import pathlib
import struct
import sys

sys.dont_write_bytecode = True
from osc_bytes import bundle, message, midi, text

CORPUS = pathlib.Path(__file__).parent / "corpus"


def packet_seeds():
    nested = midi()
    for _ in range(40):
        nested = bundle(nested)
    return {
        "midi-to-unknown-id": midi(number=999),
        "midi-with-empty-blob": midi(data=b""),
        "midi-id-as-text": message("/midi", "sshb", "Piano", "42", 1, b"\xf8"),
        "init-timing": message("/init_timing", "h", 123456789),
        "add-remote-source": message("/add_remote_source", "si", "Piano", 7),
        "osc-create-port": message("/osc/create_port", "iis", 9000, 9001, "127.0.0.1"),
        "osc-data": message("/osc", "sb", "127.0.0.19000", b"/x\0\0,\0\0\0"),
        "every-type": message(
            "/all", "ifsbhtdScrmTFNI[i[f]]", 1, 1.5, "s", b"blob", -2, 3, 2.5, "S", 65, 5, 6, 7, 8.0
        ),
        "array-never-closed": message("/a", "[i", 1),
        "array-closed-first": message("/a", "]i[", 1),
        "no-type-tags": text("/add_remote_source"),
        "empty-type-tags": text("/x") + b",\0\0\0",
        "empty-type-tags-then-rubbish": text("/x") + b",\0\1\1" + b"rest",
        "number-instead-of-address": b"\0\0\0\7" + text(",i") + b"\0\0\0\1",
        "unknown-type-tag": text("/x") + text(",q"),
        "address-without-end": b"/abc/def",
        "text-without-end": text("/x") + text(",s") + b"abcd",
        "argument-missing": text("/midi") + text(",sihb") + text("Piano"),
        "blob-lies": text("/midi") + text(",b") + struct.pack(">I", 0x1000) + b"abcd",
        "blob-of-two-gigabytes": text("/x") + text(",b") + struct.pack(">I", 0x7FFFFFFC),
        "blob-size-wraps": text("/x") + text(",b") + struct.pack(">I", 0xFFFFFFFF) + b"abcd",
        "size-no-multiple-of-four": midi()[:-1],
        "one-byte": b"/",
        "bundle": bundle(midi(), message("/init_timing", "h", 5)),
        "bundle-in-bundle": bundle(bundle(midi(number=1)), midi(number=2)),
        "bundles-forty-deep": nested,
        "bundle-empty": bundle(),
        "bundle-with-empty-element": bundle(b""),
        "bundle-element-lies": bundle(midi())[:-8],
        "bundle-sizes-wrap": bundle() + struct.pack(">I", 0xFFFFFFFC) + struct.pack(">I", 4),
        "bundle-with-other-name": b"#bundel\0" + bytes(8),
    }


def config_seeds():
    plain = b"\0"
    return {
        "plain": plain + b"a=1\nb = 2\n",
        "no-line-feed-at-end": plain + b"a=1\nb=2",
        "key-twice": plain + b"a=1\na=2\n",
        "blanks-before-key": plain + b"  a=1\n",
        "comments": plain + b"; a=1\n# b=2\n ;c=3\n #d=4\n",
        "carriage-returns": plain + b"a=1\r\n\r\nb=2\r\n",
        "empty-value": plain + b"a=1\nb=\nc=3\n",
        "value-of-blanks": plain + b"a= \r \nb=2\n",
        "begins-with-equals": plain + b"=1\n==2\na==3\n",
        "no-equals": plain + b"abc\n\n \n",
        "key-of-blanks": plain + b"   =x\n",
        "zero-bytes": plain + b"a\0b=c\0d\n",
        "tabs-are-no-blanks": plain + b"a\t=\t1\t\n",
        "empty-file": plain,
        "missing-file": b"\x3f" + b"a=1\n",
        "read-error-in-line": b"\x40" + b"a=1\nb=2",
        "one-byte-at-once": b"\x80" + b"a=1\nlong key = long value\n",
        "long-line": plain + b"k" * 700 + b"=" + b"v" * 700 + b"\n",
        "bytes-beyond-ascii": plain + bytes(range(128, 256)) + b"=" + bytes(range(255, 127, -1)),
    }


TARGETS = {
    "packet": packet_seeds,
    "config": config_seeds,
}


def main():
    for target, seeds in TARGETS.items():
        folder = CORPUS / target
        folder.mkdir(parents=True, exist_ok=True)
        for name, data in seeds().items():
            (folder / name).write_bytes(data)


if __name__ == "__main__":
    main()
