"""The event log, byte for byte what ipmitool reads: empty, short and full, on both paths."""

from bmcs import entry, ipmi_sim, qarn_bmc, sel_bytes
from machine import load_driver, qemu_bmc

PEER = "ipmitool sel writeraw raw >said 2>&1; cat raw"
QEMU_ENTRIES = 128  # as many as it holds


def dump(path=""):
    return f"qarn {path} --seldump log >said; s=$?; cat log; exit $s"


def check_dump(checks, seen, wanted, what):
    """A dump is the heading with its count, low byte first, and the records."""
    count = len(wanted) // 16
    checks.holds(seen.out, f"_SEL\n_LOG_NUM   {count & 0xFF:02X}{count >> 8:02X}\n\n", what + " heading")
    checks.same((sel_bytes(seen.out), seen.status), (wanted, 0), what)


def check_log(checks, bmc, entries):
    """A BMC that holds these entries, whatever IDs and times it gives them."""
    seen = checks.boot({"log": dump(), "load": load_driver(), "open log": dump("--open"), "peer": PEER}, bmc)
    held = seen["peer"].raw
    checks.same([held[at + 10:at + 16] for at in range(0, len(held), 16)], [record[10:] for record in entries],
                "the peer reads what was put in")
    for name in ("log", "open log"):
        check_dump(checks, seen[name], held, name)


def log_of_qemu(checks):
    """From empty to full, filled by scripts of ours."""
    def script(numbers):
        return "".join(f"20 28 44 0000 {entry(number).hex()}\n" for number in numbers).encode()

    seen = checks.boot({
        "empty": dump(), "add": "qarn --cfg three", "three": dump(), "fill": "qarn --cfg rest | tail -n 3",
        "full": dump(), "load": load_driver(), "open full": dump("--open"), "peer": PEER,
    }, qemu_bmc(), files={"work/three": script(range(3)), "work/rest": script(range(3, QEMU_ENTRIES + 1))})
    held = seen["peer"].raw
    checks.same(len(held), QEMU_ENTRIES * 16, "the peer reads every entry")
    checks.holds(seen["fill"].out, "recv: 20 2C 44 C4 \n", "one more is refused")
    for name, wanted in (("empty", b""), ("three", held[:48]), ("full", held), ("open full", held)):
        check_dump(checks, seen[name], wanted, name)


def log_of_independent_simulator(checks):
    entries = [entry(number) for number in range(200)]
    with ipmi_sim(sel=entries, sel_room=len(entries)) as bmc:
        check_log(checks, bmc, entries)


def log_of_our_simulator(checks):
    entries = [(number + 1).to_bytes(2, "little") + entry(number)[2:] for number in range(300)]
    state = checks.file("state", b"sel.records " + b"".join(entries).hex().encode() + b"\n")
    with qarn_bmc(checks.bmc, "--state", state) as bmc:
        check_log(checks, bmc, entries)
