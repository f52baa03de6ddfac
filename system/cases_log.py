"""The event log, byte for byte what ipmitool reads: empty, short and full, on both paths."""

import re

from bmcs import entry, ipmi_sim, qarn_bmc, sel_bytes
from machine import load_driver, qemu_bmc

DUMP = "qarn {open} --seldump log >said; s=$?; cat log; exit $s"
PEER = "ipmitool sel writeraw raw >said 2>&1; cat raw"
SIMULATED_ENTRIES = 200


def dump(path=""):
    return DUMP.format(open=path)


def check_dump(checks, seen, wanted, what):
    """A dump is the heading with its count, low byte first, and the records."""
    count = len(wanted) // 16
    checks.holds(seen.out, f"_SEL\n_LOG_NUM   {count & 0xFF:02X}{count >> 8:02X}\n\n", what + " heading")
    checks.same((sel_bytes(seen.out), seen.status), (wanted, 0), what)


def add_script(entries):
    """A script that adds log entries over the first path that works."""
    return "".join("20 28 44 0000 " + entry(number).hex() + "\n" for number in entries).encode()


def check_growing_log(checks, bmc, capacity):
    """From empty to full: QEMU's BMC holds 128 entries, ours what it says."""
    steps = {"empty": dump(), "add": "qarn --cfg three.cfg", "three": dump(), "fill": "qarn --cfg full.cfg | tail -n 3",
             "full": dump(), "load": load_driver(), "open full": dump("--open"), "peer": PEER,
             "count": "ipmitool sel info | grep Entries"}
    seen = checks.boot(steps, bmc, files={"work/three.cfg": add_script(range(3)),
                                          "work/full.cfg": add_script(range(3, capacity + 2))})
    held = seen["peer"].out.encode("latin-1")
    checks.holds(seen["count"].out, f": {capacity}\n", "the log is full")
    checks.same(len(held), capacity * 16, "the peer reads every entry")
    check_dump(checks, seen["empty"], b"", "empty log")
    check_dump(checks, seen["three"], held[:48], "three entries")
    check_dump(checks, seen["full"], held, "full log")
    check_dump(checks, seen["open full"], held, "full log with --open")


def log_of_qemu(checks):
    check_growing_log(checks, qemu_bmc(), 128)


def log_of_independent_simulator(checks):
    with ipmi_sim(sel=[entry(number) for number in range(SIMULATED_ENTRIES)], sel_room=SIMULATED_ENTRIES) as bmc:
        seen = checks.boot({"full": dump(), "load": load_driver(), "open full": dump("--open"), "peer": PEER}, bmc)
    held = seen["peer"].out.encode("latin-1")
    checks.same([held[at + 10:at + 16] for at in range(0, len(held), 16)],
                [entry(number)[10:] for number in range(SIMULATED_ENTRIES)], "the peer reads what was put in")
    for name in ("full", "open full"):
        check_dump(checks, seen[name], held, name)
