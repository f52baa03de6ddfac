"""The event log, byte for byte what ipmitool reads: empty, full, and of more than 255 entries, on both paths."""

from bmcs import entry, ipmi_sim
from machine import both_paths, qemu_bmc

PEER = "ipmitool sel writeraw raw >said 2>&1; cat raw"
DUMP = "qarn --seldump log >said && cat log"
QEMU_ENTRIES = 128  # as many as it holds


def records(text):
    return [text[at:at + 16].encode("latin-1") for at in range(0, len(text), 16)]


def dump_of(held):
    """The dump of the log that the peer read: a heading with the count, low byte first, and the records."""
    lines = "".join(record.hex(" ").upper() + "\n" for record in records(held))
    return f"_SEL\n_LOG_NUM   {(len(held) // 16).to_bytes(2, 'little').hex().upper()}\n\n" + lines


def check_log(checks, bmc, entries, *before, **settings):
    """A BMC that holds these entries, whatever IDs and times it gives them."""
    both = both_paths(("log", DUMP, lambda seen: dump_of(seen["peer"])))
    checks.guest(bmc, [*before, *both, ("peer", PEER, [record[10:] for record in entries],
                                           lambda text: [record[10:] for record in records(text)])], **settings)


def log_of_qemu(checks):
    """From empty to full, filled by a script of ours."""
    entries = [entry(number) for number in range(QEMU_ENTRIES)]
    script = "".join(f"20 28 44 {record.hex()}\n" for record in [*entries, entries[0]]).encode()
    check_log(checks, qemu_bmc(), entries, ("empty", DUMP, dump_of("")),
              ("one more", "qarn --cfg fill | tail -n 2", "recv: 20 2C 44 C4 \n\n"), files={"work/fill": script})


def log_of_independent_simulator(checks):
    entries = [entry(number) for number in range(300)]
    with ipmi_sim(sel=entries) as bmc:
        check_log(checks, bmc, entries)
