#!/usr/bin/env python3
"""Writes the seed corpora, tests/fuzz/corpus/<target>/<meaning>. Run it after changing a seed.

A seed that came from elsewhere, such as an input that once found a mistake, has a name that no
function here gives, and stays.
"""

import pathlib
import struct
import sys

sys.dont_write_bytecode = True
from device_seeds import device_seeds
from osc_bytes import bundle, frame, message, midi, text

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
        "blob-after-blob": message("/x", "bb", b"\xff\xff\xff\xf0", b"z"),
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
        "bundle-in-bundle-sizes-wrap": bundle(bundle() + struct.pack(">II", 0xFFFFFFFC, 4)),
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


def host_seeds():
    def call(choice, destinations=False, rest=b""):
        return bytes([choice * 2 + destinations]) + rest

    def toggle(which, plan=0, destinations=False):
        return call(9, destinations, bytes([which, plan]))

    def status(which, destinations=False):
        return call(6, destinations, bytes([which]))

    calls = b"\0"
    return {
        "constants": calls + call(0, rest=bytes(16)) + call(1) + call(1, True),
        "positions-in-and-out-of-range": calls + b"".join(call(3, rest=bytes([p])) for p in range(8)),
        "position-most-negative": calls + call(2, rest=b"\x80\0\0\0") + call(2, True, b"\x7f\xff\xff\xff"),
        "name-byte-by-byte": calls + b"".join(call(4, rest=bytes([0, p])) for p in range(12)),
        "name-of-unknown-id": calls + call(4, rest=b"\x09\0\0\0\x63\x05"),
        "name-byte-far-out": calls + bytes([4 * 2 | 64, 2]) + b"\x7f\xff\xff\xff",
        "on-and-off": calls + toggle(0) + status(0) + toggle(0) + status(0),
        "twin-id-switches-the-first": calls + toggle(3) + status(0) + status(3),
        "destination-on": calls + toggle(1, 0, True) + status(1, True),
        "open-fails": calls + toggle(0, 1) + status(0) + toggle(0, 0),
        "third-buffer-fails": calls + toggle(0, 2 | 2 << 6) + toggle(0),
        "start-fails": calls + toggle(2, 3) + toggle(2),
        "device-moved": calls + toggle(0, 4) + toggle(0) + toggle(2, 4 | 16) + toggle(1, 4 | 8, True),
        "short-messages": calls + toggle(0) + call(7, rest=b"\0\x80\0\x7f\x3c\x90") + call(7, rest=b"\0\x80\0\0\0\xf8"),
        "long-message": calls + toggle(0) + call(7, rest=b"\0\x03\xf0\x01\xf7") * 5,
        "send-to-open-and-closed": calls + toggle(0, 0, True) + call(8, rest=b"\0\x02\xc0\x01") + call(8, rest=b"\1\x02\xc0\x01"),
        "options-all": b"\1--json\0--no-start\0--verbose",
        "options-unknown": b"\1--json\0--nonsense\0list",
        "options-then-command": b"\1-h\0list\0--json",
        "options-no-start-alone": b"\1--no-start",
        "number-small": b"\2-42",
        "number-just-too-large": b"\x022147483648",
        "number-most-negative": b"\2-9223372036854775808",
        "number-with-plus": b"\2+1",
        "target-quoted": b'\3 source "USB Keyboard" ',
        "target-only-a-side": b"\3source",
        "target-one-quote": b'\3destination "',
        "command-with-blanks": b"\3 \ttoggle\r\n 12  13 ",
    }


def stream_seeds():
    def stream(*frames, flags=0, pattern=b"", connections=()):
        sizes = b"".join(struct.pack(">H", len(c)) for c in connections)
        head = bytes([flags | len(connections) << 4, len(pattern)]) + pattern + sizes
        return head + b"".join(connections) + b"".join(frames)

    add_source = frame(message("/add_remote_source", "si", "Piano", 7))
    add_destination = frame(message("/add_remote_destination", "si", "Piano", 8))
    remove_source = frame(message("/remove_remote_source", "si", "Piano", 7))
    timing = frame(message("/init_timing", "h", 1000)) + frame(message("/update_timing", "h", 2000))
    create_port = frame(message("/osc/create_port", "iis", 9000, 9001, "127.0.0.1"))
    osc = frame(message("/osc", "sb", "127.0.0.19000", b"/x\0\0,\0\0\0"))
    note = frame(midi())
    return {
        "midi-to-unknown-id": stream(note),
        "midi-to-published-source": stream(add_source, note, remove_source, note),
        "header-byte-by-byte": stream(add_source, note, pattern=b"\0"),
        "small-cuts": stream(add_source, timing, note, pattern=b"\x08\x10\x18\x00"),
        "disturbed-waits": stream(note, timing, note, pattern=b"\x2c\x2d\x2e\x28"),
        "replies-in-pieces": stream(timing * 6, flags=2, pattern=b"\x10\x0f\x20"),
        "replies-that-would-block": stream(timing * 6, flags=2, pattern=b"\x0f\x28\x38\x20\x0f"),
        "kind-one-is-dropped": stream(frame(midi(), kind=1), note),
        "other-tag-is-ignored": stream(frame(midi(), tag=77), note),
        "length-zero": stream(frame(b""), note, connections=(note,)),
        "length-too-large": stream(note, connections=(note + struct.pack(">I", 131073), timing)),
        "length-negative": stream(struct.pack(">I", 0xFFFFFFFF) + note),
        "length-no-multiple-of-four": stream(frame(midi() + b"x"), frame(b"#"), frame(b"/"), note),
        "ends-in-header": stream(note, b"\0\0\0"),
        "ends-in-payload-with-error": stream(note, note[:-5], flags=1),
        "stopped-in-payload": stream(note, frame(midi(data=bytes(40))), flags=0xC0, pattern=b"\x10" * 4),
        "bundle-of-everything": stream(
            frame(bundle(add_source[12:], bundle(note[12:], timing[12:36]), create_port[12:], osc[12:]))
        ),
        "wrong-argument-in-bundle": stream(frame(bundle(message("/midi", "i", 1), midi()))),
        "malformed-in-bundle": stream(frame(bundle(b"/abc", midi())), note),
        "osc-port-life": stream(create_port, osc, note, osc, frame(message("/osc/remove_port", "iis", 9000, 0, "127.0.0.1"))),
        "osc-port-twice": stream(create_port, create_port, timing),
        "osc-port-without-thread": stream(create_port, osc, flags=4),
        "osc-port-bind-fails": stream(frame(message("/osc/create_port", "iis", 1, 2, "127.0.0.1")), timing * 3),
        "osc-port-left-at-disconnect": stream(timing, connections=(create_port + note,)),
        "driver-refuses": stream(add_source, add_destination, note, flags=8),
        "name-too-long-to-announce": stream(frame(message("/add_remote_source", "si", "n" * 4080, 7)), note),
        "name-just-fits": stream(frame(message("/add_remote_source", "si", "n" * 4063, 7)), note),
    }


def usb_seeds():
    def step(kind, device=0, rest=b""):
        return bytes([kind | device << 4]) + rest

    def arrive(device=0):
        return step(0, device)

    def depart(device=0):
        return step(2, device)

    def run(place=0):
        return step(5, place)

    def answer(number, device=0):
        return step(7, device, bytes([number]))

    def connection_id(number, device=0):
        return step(8, device, bytes([number]))

    def other(choice, device=0):
        return step(4, device, bytes([choice]))

    def port(number):
        return step(9, number)

    usable, recovery, refused, missing = 1, 2, 3, 4
    stream, refusal, no_socket, negative_socket = range(4)
    ends, bad_length, other_kind = step(12, 0), step(12, 1), step(12, 2)
    refuse_threads, stay_blocking = step(10, 0), step(10, 2)
    play = step(11, 0, b"\x03\x90\x3c\x7f")
    return {
        "comes-plays-and-goes": arrive() + run() + play + other_kind + play + depart() + play,
        "goes-before-its-thread-runs": arrive() + depart() + run(),
        "goes-while-it-waits-to-connect": answer(refused) + arrive() + run() + depart(),
        "goes-while-it-is-in-recovery": answer(recovery) + arrive() + run() + depart() + ends,
        "goes-while-its-stream-is-closed": arrive() + run() + ends + depart() + ends,
        "comes-twice-and-goes-once": arrive() + arrive() + run() + run() + depart() + play + ends,
        "goes-twice": arrive() + run() + depart() + depart() + depart(2),
        "returns": (arrive() + run() + depart() + ends) * 3,
        "two-transports-of-one-device": arrive(0) + arrive(1) + run() + run() + depart(0) + play,
        "all-four-hear-of-each-other": b"".join(arrive(d) + run() for d in range(4)) + play + depart(2) + play,
        "nobody-has-an-identifier": arrive(3) + arrive(3) + run() + run() + depart(3) + depart(3),
        "no-thread": refuse_threads + arrive() + arrive(1) + play + depart() + refuse_threads + arrive(),
        "connects-at-last": answer(refused) + arrive() + run() + ends + answer(missing) + ends + answer(recovery) + ends + ends + answer(usable) + ends + play,
        "number-of-the-connection-is-zero": connection_id(0) + arrive() + run() + ends + connection_id(9) + ends + play,
        "usable-anyway-with-number-zero": answer(usable) + connection_id(0) + arrive() + run() + ends + depart(),
        "no-stream-at-first": port(refusal) + arrive() + run() + port(no_socket) + ends + port(negative_socket) + ends + port(stream) + ends + play,
        "stream-would-block": stay_blocking + arrive() + run() + play + ends + stay_blocking + ends + play,
        "stream-breaks-and-comes-back": arrive() + run() + ends + play + ends + play + bad_length + ends + play,
        "stream-is-lost-for-good": arrive() + run() + ends + port(refusal) + ends + ends + depart(),
        "others-go-while-one-waits": arrive() + arrive(2) + run() + run() + depart(0) + ends + play + depart(2) + play,
        "other-notifications": arrive() + b"".join(other(c, d) for c in (0, 1, 2, 3, 65, 66, 129, 130) for d in (0, 2)) + run(),
    }


TARGETS = {
    "usb": usb_seeds,
    "devices": device_seeds,
    "stream": stream_seeds,
    "host": host_seeds,
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
