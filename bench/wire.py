"""What a trace of the guest's port accesses shows: of each run between two marks, its accesses and its requests."""

import re
from dataclasses import dataclass, field

READ, WRITE_START, WRITE_END = 0x68, 0x61, 0x62
ACCESS = re.compile(r"memory_region_ops_(read|write).* addr (0x\w+) value (0x\w+) .*name '(ipmi-kcs|isa-debugcon)'")


@dataclass
class Window:
    """Port accesses of the KCS interface, and [(request, answer)], both from NetFn/LUN on."""
    accesses: int = 0
    requests: list = field(default_factory=list)

    def take(self, write, at_command, value):
        self.accesses += 1
        if write and at_command and value == WRITE_START:
            self.requests.append((bytearray(), bytearray()))
            self.phase = "request"
        elif not self.requests or (at_command and not write):
            return
        elif at_command:
            self.phase = {WRITE_END: "last byte"}.get(value, "lost")
        elif write:
            self.written(value)
        elif self.phase == "answer":
            self.requests[-1][1].append(value)

    def written(self, value):
        if self.phase in ("request", "last byte"):
            self.requests[-1][0].append(value)
            self.phase = "request" if self.phase == "request" else "answer"
        elif value != READ:
            self.phase = "lost"


def windows(trace):
    """A Window for what ran between the first mark and the second, the third and the fourth..."""
    seen = [Window()]
    with trace.open() as lines:
        for line in lines:
            if found := ACCESS.search(line):
                way, address, value, name = found.groups()
                if name == "isa-debugcon":
                    seen.append(Window())
                else:
                    seen[-1].take(way == "write", int(address, 16) % 2 == 1, int(value, 16))
    for window in seen:
        # the last byte that is read is a dummy
        window.requests = [(bytes(request), bytes(answer[:-1])) for request, answer in window.requests]
    return seen[1::2]


def request_list(requests):
    """As bench/guest/floor.c takes it."""
    return b"".join(bytes([len(request)]) + request for request, _ in requests)


def shape(requests):
    """What must be the same when requests are sent again: all but reservations, and contents that may have changed."""
    return [(request[:2] + request[4:] if request[:2] in (b"\x28\x22", b"\x28\x23") else request,
             len(answer), answer[2:3]) for request, answer in requests]
