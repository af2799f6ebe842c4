"""OSC packets and device frames, put together byte by byte for the seeds."""

import struct


def text(value):
    if isinstance(value, str):
        value = value.encode()
    value += b"\0"
    return value + bytes(-len(value) % 4)


def blob(data):
    return struct.pack(">I", len(data)) + data + bytes(-len(data) % 4)


def message(address, tags="", *values):
    """A message; values are numbers, texts or bytes as their tags want them."""
    packet = text(address) + text("," + tags)
    packers = {
        "i": lambda v: struct.pack(">I", v & 0xFFFFFFFF),
        "h": lambda v: struct.pack(">Q", v & 0xFFFFFFFFFFFFFFFF),
        "f": lambda v: struct.pack(">f", v),
        "d": lambda v: struct.pack(">d", v),
        "t": lambda v: struct.pack(">Q", v),
        "s": text,
        "S": text,
        "b": blob,
    }
    packers.update({tag: packers["i"] for tag in "crm"})
    carrying = [tag for tag in tags if tag in packers]
    return packet + b"".join(packers[tag](v) for tag, v in zip(carrying, values, strict=True))


def bundle(*elements, time=1):
    packet = text("#bundle") + struct.pack(">Q", time)
    return packet + b"".join(struct.pack(">I", len(e)) + e for e in elements)


def midi(name="Piano", number=7, time=1000, data=b"\x90\x3c\x7f"):
    return message("/midi", "sihb", name, number, time, data)


def frame(payload, kind=2, tag=2, length=None):
    return struct.pack(">III", len(payload) if length is None else length, kind, tag) + payload
