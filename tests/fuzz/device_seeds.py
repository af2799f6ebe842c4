"""Seeds of the target "devices": steps of several devices, their endpoints and their OSC ports."""

import struct


def step(kind, device=0, rest=b"", clock=0):
    return bytes([kind | device << 4, clock]) + rest


def add(name, number, source=True, device=0):
    return step(int(source), device, bytes([name, number]))


def remove(name, number, source=True, device=0):
    return step(2 + int(source), device, bytes([name, number]))


def note(number, device=0, data=b"\x90\x3c\x7f"):
    return step(4, device, bytes([0, number]) + bytes(7) + b"\x05" + bytes([len(data)]) + data)


def timing(update=False, device=0, time=0, clock=0):
    return step(5, device + (8 if update else 0), struct.pack(">Q", time), clock)


def write(port, data=b"\x90\x40\x40"):
    return step(6, 0, bytes([port, len(data)]) + data)


def create(destination, bind, host=0, device=0):
    return step(9, device, bytes([destination, bind, host]))


def remove_osc(destination, host=0, device=0):
    return step(10, device, bytes([destination, host]))


def osc(host, destination, data=b"/x\0\0,\0\0\0", device=0):
    return step(11, device + 8, bytes([host, destination, len(data)]) + data)


def start(place=0, failures=0):
    return step(12, 0, bytes([place | failures << 6]))


def deliver(*datagrams):
    return step(13, 0, bytes([len(datagrams)]) + b"".join(bytes([len(d)]) + d for d in datagrams))


def endpoint_seeds():
    switch_output = step(7, 0, b"\0")
    refuse_ports = step(15, 4)
    return {
        "endpoint-added-twice": add(0, 0) + add(1, 0) + add(0, 1) + note(0),
        "source-and-destination-share-port": add(0, 0) + add(0, 1, False) + remove(0, 0) + remove(0, 1, False),
        "same-name-two-ids": add(0, 0) + add(0, 1) + note(1) + remove(0, 0) + note(0),
        "second-transport-hears-nothing": add(0, 0, device=0) + add(0, 1, device=3) + remove(0, 1, device=0),
        "two-devices-one-name": add(0, 0, device=0) + add(0, 0, device=1) + note(0, 1) + remove(0, 0, device=0) + note(0, 1),
        "device-without-key": add(0, 0, device=0) + add(0, 0, device=2) + add(1, 1, device=2) + remove(1, 1, device=2),
        "names-cut-to-the-same": add(7, 0) + add(8, 1) + add(6, 2, device=1) + note(0) + note(1),
        "names-too-long-to-announce": add(14, 0) + add(15, 1) + add(12, 2, False) + add(13, 4, False) + remove(11, 0) + remove(15, 1),
        "driver-refuses": refuse_ports + add(0, 0) + note(0) + refuse_ports + add(0, 1) + remove(0, 0),
        "midi-to-output-and-port": switch_output + add(2, 3) + note(3) + switch_output + note(3),
        "midi-relayed-with-offset": timing(time=5) + note(0) + timing(True, time=9, clock=1) + note(0),
        "timing-extremes": timing(time=1 << 63) + timing(True, time=(1 << 63) - 1, clock=255) + timing(True) * 3,
        "desktop-writes": add(0, 0, False) + write(0) + add(0, 1) + write(0) + remove(0, 0, False) + write(0),
        "output-named-as-endpoint": add(2, 0) + switch_output + switch_output,
        "devices-leave-and-return": step(8, 1) + add(0, 0) + step(8, 1) + add(1, 1) + step(8, 0) + note(9, 1),
        "wrong-arguments": b"".join(step(14, 0, bytes([i])) + step(14, 0, bytes([132 + i])) for i in range(11)),
        "longer-address-is-ignored": step(15, 12),
    }


def osc_port_seeds():
    refuse_threads = step(15, 0)
    return {
        "osc-port-streams": create(0, 2) + start() + osc(0, 0) + deliver(b"/a", b"") + osc(0, 0) + deliver(),
        "osc-same-destination": create(0, 2) + create(0, 4) + start() + remove_osc(0),
        "osc-keys-collide": create(0, 2) + create(1, 2, 1) + osc(1, 1) + remove_osc(1, 1),
        "osc-keys-of-two-ports": create(0, 2) + create(2, 4) + create(0, 4),
        "osc-removed-while-waiting": create(0, 2) + start() + remove_osc(0) + create(0, 2) + start() + deliver(b"x"),
        "osc-removed-before-it-runs": create(0, 2) + remove_osc(0) + start(0, 2),
        "osc-bind-taken": create(0, 6) + start() + osc(0, 0) + deliver(b"y"),
        "osc-no-socket": create(0, 2) + start(0, 3),
        "osc-host-is-none": create(0, 2, 4) + start() + osc(4, 0),
        "osc-host-too-long-to-report": create(2, 4, 6) + create(5, 5, 7) + start() + start() + deliver(b"z"),
        "osc-no-thread": refuse_threads + create(0, 2) + osc(0, 0) + remove_osc(0),
        "osc-two-devices-one-number": create(0, 2) + create(0, 2, device=1) + start() + start() + deliver(b"1") + deliver(),
        "osc-departure-stops-ports": create(0, 2) + create(2, 4) + start() + step(15, 8) + create(0, 2) + start(),
        "osc-status-reported": create(0, 2) + step(11, 0, b"\0\0\2"),
    }


def device_seeds():
    return endpoint_seeds() | osc_port_seeds()
