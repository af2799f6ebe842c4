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


def say(text):
    print(text, file=sys.stderr)


def find(sides, name):
    return [(side, e) for side in sides for e in side.ids() if side.name(e) == name]


def switch_on_and_off(sides, name):
    end = time.monotonic() + LONGEST_WAIT
    found = find(sides, name)
    while not found and time.monotonic() < end:
        time.sleep(0.1)
        found = find(sides, name)
    if not found:
        say(f"there is no MIDI device {name}")
        return False
    for side, endpoint in found:
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
    results = [switch_on_and_off((sources, destinations), name) for name in arguments[1:]]
    show("source", sources)
    show("destination", destinations)
    say(f"iOS devices: {library.corvalintServerUSBClients()}")
    return 0 if all(results) else 1


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
