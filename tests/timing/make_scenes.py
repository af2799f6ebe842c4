#!/usr/bin/env python3
"""Computes what devices must be answered to "/init_timing" and "/update_timing".

It knows the arithmetic and nothing of the library's code: integers are Python's, cut to 64 bits by
hand, and its floats are IEEE doubles that are never fused. Without an argument it writes
clock_scenes.inc beside itself; with --check it only tells whether that file is what it would write.
"""

import pathlib
import random
import struct
import sys

MOST = 2**63 - 1
LEAST = -(2**63)
SECOND = 10**7  # ticks of the host's counter
HOUR = 3600 * SECOND
# The first tick whose product with a billion does not fit, and one whole turn.
WRAP = 9223372037
TURN = 18446744074


def wrapped(value):
    return (value - LEAST) % 2**64 + LEAST


def host_time(ticks):
    product = wrapped(ticks * 10**9)
    quotient = abs(product) // 10**7
    return quotient if product >= 0 else -quotient


def divided(numerator, denominator):
    """As a processor divides: by zero, too."""
    if denominator != 0:
        return numerator / denominator
    if numerator == 0 or numerator != numerator:
        return float("nan")
    return float("inf") if numerator > 0 else float("-inf")


def truncated(value):
    if -(2.0**63) <= value < 2.0**63:
        return int(value)
    return LEAST


def smoothed(measured, old):
    return truncated(float(measured) * 0.7 + float(old) * 0.30000000000000004)


def bits(value):
    if value != value:
        return 0xFFF8000000000000  # the one that x86 makes of 0/0
    return struct.unpack(">Q", struct.pack(">d", value))[0]


class Clocks:
    def __init__(self):
        self.clock_offset = self.midi_offset = 0
        self.init_host = self.init_offset = 0

    def init(self, ticks, device):
        host = host_time(ticks)
        self.clock_offset = self.midi_offset = self.init_offset = wrapped(host - device)
        self.init_host = host
        return self.clock_offset, 0, wrapped(self.midi_offset + device)

    def update(self, ticks, device):
        now = host_time(ticks)
        ratio = divided(
            float(wrapped(self.init_offset - self.clock_offset)),
            float(wrapped(now - self.init_host)),
        )
        self.clock_offset = smoothed(wrapped(now - device), self.clock_offset)
        self.midi_offset = smoothed(self.clock_offset, self.midi_offset)
        drift = divided(1.0, ratio + 1.0) - 1.0
        return self.clock_offset, bits(drift), wrapped(self.midi_offset + device)


def steady():
    start = 40 * SECOND
    yield "init", start, 10**9
    for step in range(1, 25):
        yield "update", start + step * 5 * SECOND, 10**9 + step * 5 * 10**9 + step * 40


def across_the_wrap():
    """The counter's product wraps between two messages, to the tick, twice; and a whole turn on."""
    yield "init", WRAP - 3 * SECOND, 7
    yield "update", WRAP - 1, 3 * 10**9
    yield "update", WRAP, 3 * 10**9 + 100
    yield "update", WRAP + SECOND, 4 * 10**9
    yield "init", WRAP + 2 * SECOND, 5 * 10**9
    yield "update", TURN - 1, 10**12
    yield "update", TURN, 10**12 + 100
    yield "update", TURN + WRAP - 1, 2 * 10**12
    yield "update", TURN + WRAP, 2 * 10**12 + 100


def init_at_the_wrap():
    yield "init", WRAP - 1, 0
    yield "update", WRAP, 100
    yield "init", WRAP, 100
    yield "update", WRAP - 1, 0


def asleep_for_eight_hours():
    """The counter and the device's clock both went on, some 15 turns of host time."""
    yield "init", 100 * SECOND, 5 * 10**9
    yield "update", 105 * SECOND, 10 * 10**9
    yield "update", 110 * SECOND + 8 * HOUR, 15 * 10**9 + 8 * 3600 * 10**9
    yield "update", 115 * SECOND + 8 * HOUR, 20 * 10**9 + 8 * 3600 * 10**9


def asleep_with_its_counter():
    """The host's counter stood still meanwhile, the device's clock did not."""
    yield "init", 100 * SECOND, 5 * 10**9
    yield "update", 105 * SECOND, 10 * 10**9
    for step in range(2, 8):
        time = 5 * 10**9 * (step + 1) + 8 * 3600 * 10**9
        yield "update", (100 + 5 * step) * SECOND, time


def device_asleep_for_eight_hours():
    """The device's clock stood still meanwhile, the host's counter did not."""
    yield "init", 100 * SECOND, 5 * 10**9
    for step in range(1, 7):
        yield "update", (100 + 5 * step) * SECOND + 8 * HOUR, 5 * 10**9 * (step + 1)


def host_clock_stands_still():
    """No time has passed since the beginning: the drift is no number, then infinite."""
    yield "init", 12345, 99
    yield "update", 12345, 99
    yield "update", 12345, 5000
    yield "update", 12345, 99
    yield "update", 12345, -10**15
    yield "update", 12346, 99


def device_clock_stands_still():
    yield "init", 50 * SECOND, 777
    for step in range(1, 9):
        yield "update", (50 + 5 * step) * SECOND, 777


def both_clocks_stand_still():
    yield "init", 0, 0
    yield "update", 0, 0
    yield "update", 0, 0
    yield "update", 1, 0


def device_clock_jumps():
    """Forward and back by hours and by years, with a beginning in between."""
    hour = 3600 * 10**9
    yield "init", 60 * SECOND, 10**10
    yield "update", 65 * SECOND, 15 * 10**9 + hour
    yield "update", 70 * SECOND, 20 * 10**9
    yield "update", 75 * SECOND, 25 * 10**9 - hour
    yield "update", 80 * SECOND, 30 * 10**9 + 30 * 365 * 24 * hour
    yield "update", 85 * SECOND, -30 * 365 * 24 * hour
    yield "init", 90 * SECOND, -hour
    yield "update", 95 * SECOND, hour
    yield "update", 100 * SECOND, 0


def device_times_at_the_ends():
    yield "init", 60 * SECOND, LEAST
    for device in (LEAST, MOST, 0, -1, LEAST + 1, MOST - 1, LEAST, LEAST, MOST, MOST):
        yield "update", 61 * SECOND, device
    yield "init", 62 * SECOND, MOST
    for device in (MOST, LEAST, MOST, 1):
        yield "update", 63 * SECOND, device
    yield "init", 0, LEAST
    yield "update", 0, LEAST


def sum_beyond_64_bits():
    """70 and 30 per cent of the largest number are 2^63 as doubles, which no int64 holds."""
    yield "init", 10, 1000 - MOST
    yield "update", 10, 1000 - MOST
    yield "update", 20, 2000 - MOST
    yield "init", 10, wrapped(1000 - LEAST)
    yield "update", 20, wrapped(2000 - LEAST)


def update_without_a_beginning():
    yield "update", 0, 0
    yield "update", 0, 5
    yield "update", 11000, 1000
    yield "update", 12000, -1000


def ratio_of_minus_one():
    """The offset moved by just as much as the host's clock: one divided by nothing."""
    yield "init", 0, 0
    yield "update", 10**6, -(10**9)
    clocks = Clocks()
    clocks.init(0, 0)
    moved = clocks.update(10**6, -(10**9))[0]
    assert moved % 100 == 0
    yield "update", moved // 100, 0
    yield "update", moved // 100 + 1, 0
    yield "update", moved // 100 - 1, 0


def products_are_rounded_one_by_one():
    """A multiplication and an addition fused into one would answer one nanosecond less."""
    yield "init", 100, 10000 - 1020075044177776
    yield "update", 200, 20000 - 218096705294903
    clocks = Clocks()
    clocks.init(100, 10000 - 1020075044177776)
    assert clocks.update(200, 20000 - 218096705294903)[0] == 458690206959765


def counter_at_its_ends():
    yield "init", MOST, 0
    yield "update", LEAST, 0
    yield "update", -1, 100
    yield "update", 0, 100
    yield "update", MOST - 1, -100


def anything():
    """Times of every size and sign."""
    source = random.Random(20260516)
    for step in range(300):
        ticks = source.getrandbits(source.randint(1, 62))
        device = source.getrandbits(source.randint(1, 63)) * source.choice((1, -1))
        yield "init" if step % 20 == 0 else "update", ticks, device


SCENES = (
    steady, across_the_wrap, init_at_the_wrap, asleep_for_eight_hours, asleep_with_its_counter,
    device_asleep_for_eight_hours, host_clock_stands_still, device_clock_stands_still,
    both_clocks_stand_still, device_clock_jumps, device_times_at_the_ends, sum_beyond_64_bits,
    update_without_a_beginning, ratio_of_minus_one, products_are_rounded_one_by_one,
    counter_at_its_ends, anything,
)


def literal(value):
    return "INT64_MIN" if value == LEAST else str(value)


def text():
    lines = ["// Written by make_scenes.py: message, counter, device time, offset, drift, relayed time."]
    names = []
    for scene in SCENES:
        name = "".join(word.capitalize() for word in scene.__name__.split("_"))
        names.append(name)
        lines.append(f"constexpr ClockStep k{name}[] = {{")
        clocks = Clocks()
        for what, ticks, device in scene():
            offset, drift, relayed = getattr(clocks, what)(ticks, device)
            kind = "kInit" if what == "init" else "kUpdate"
            lines.append(
                f"    {{ClockStep::{kind}, {literal(ticks)}, {literal(device)}, {literal(offset)}, "
                f"0x{drift:016X}, {literal(relayed)}}},"
            )
        lines.append("};")
    lines.append("constexpr ClockScene kScenes[] = {")
    lines += [f'    {{"{name}", k{name}}},' for name in names]
    lines.append("};")
    return "\n".join(lines) + "\n"


def main():
    path = pathlib.Path(__file__).with_name("clock_scenes.inc")
    if sys.argv[1:] == ["--check"]:
        if path.read_text() != text():
            sys.exit(f"{path} is not what {__file__} makes")
    else:
        path.write_text(text())


if __name__ == "__main__":
    main()
