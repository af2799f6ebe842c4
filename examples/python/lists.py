#!/usr/bin/env python3
"""A host in Python: waits for endpoints by name, switches each on and off, and shows the lists.

    python lists.py LIBRARY [NAME...]

LIBRARY is the path of corvalint_wrapper.dll. Exit codes: 0, 1 if a name did not appear or could not
be switched, 2 for a wrong command line. The library prints to standard output, so this program
writes to standard error.
"""

import sys
import time

import corvalint

# Long enough for a device that was plugged in just now: the lists follow every five seconds.
LONGEST_WAIT = 7
# And for the first scan: where there are no MIDI devices both lists stay empty.
LONGEST_FIRST_SCAN = 3


def say(text):
    print(text, file=sys.stderr)


def wait_until(condition, longest):
    end = time.monotonic() + longest
    while not condition():
        if time.monotonic() > end:
            return False
        time.sleep(0.05)
    return True


def find(sides, name):
    """Every endpoint of that name: one device is often a source and a destination."""
    return [(side, e) for side in sides for e in side.ids() if side.name(e) == name]


def switch_on_and_off(sides, name):
    if not wait_until(lambda: find(sides, name), LONGEST_WAIT):
        say(f"there is no MIDI device {name}")
        return False
    # Once more: a scan may have come between the first list and the second.
    for side, endpoint in find(sides, name):
        for on in (True, False):
            if not side.switch(endpoint, on):
                say(f"cannot be switched: {name}")
                return False
            say(f"{'on' if on else 'off'}: {name}")
    return True


def show(title, side):
    for endpoint in side.ids():
        on = "on" if side.is_on(endpoint) else "off"
        available = "available" if side.is_available(endpoint) else "unavailable"
        say(f"{title} {endpoint}: {side.name(endpoint)}, {on}, {available}")


def main(arguments):
    if not arguments:
        say("usage: lists.py LIBRARY [NAME...]")
        return 2
    library = corvalint.load(arguments[0])
    sources, destinations = corvalint.sources(library), corvalint.destinations(library)
    library.corvalintServerStart()
    # A scan changes both lists in one moment, so the first that is not empty is whole.
    wait_until(lambda: sources.ids() or destinations.ids(), LONGEST_FIRST_SCAN)
    results = [switch_on_and_off((sources, destinations), name) for name in arguments[1:]]
    show("source", sources)
    show("destination", destinations)
    say(f"iOS devices: {library.corvalintServerUSBClients()}")
    return 0 if all(results) else 1


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
