"""Sensor records: dumps equal what ipmitool reads, and a file written back gives the same records."""

import re

from bmcs import ipmi_sim, qarn_bmc, record_set
from machine import both_paths, qemu_bmc

PEER = "ipmitool sdr dump raw >said 2>&1; cat raw"
DUMP = "rm -f dump; qarn --sdrdump dump >said && cat dump"
WRITE = "qarn --open --nrst --sdr dump | tail -n +3"
WRITTEN = "writing SDR......\nUpdate successfully\n"


def sdr_bytes(text):
    """The records of an SDR dump, a byte or a text in quotes on a line."""
    values = (re.findall(r"\n   (?:'([^']*)'|([0-9A-F]{2}))", record) for record in text.split("_SDR_TYPE")[1:])
    return [b"".join(name.encode("latin-1") or bytes.fromhex(byte) for name, byte in record) for record in values]


def split(text):
    raw, records = text.encode("latin-1"), []
    while len(raw) > 4:
        records.append(raw[:5 + raw[4]])
        raw = raw[5 + raw[4]:]
    return records


def without_ids(text):
    """The BMC gives each record that is added an ID of its own."""
    return [record[2:] for record in split(text)]


def peer_reads(step, records):
    return step, PEER, [record[2:] for record in records], without_ids


def held(seen):
    return split(seen["peer"])


def check_reading(checks, bmc, failure):
    """Dumps over both paths; then it cannot be written, which is told."""
    both = both_paths(("dump", DUMP, held, sdr_bytes))
    checks.guest(bmc, [*both, peer_reads("peer", record_set()), ("write", WRITE, "writing SDR......\n" + failure)])


def reading_of_qemu(checks):
    """It refuses every whole record it should add."""
    bmc = qemu_bmc(sdrfile=checks.file("sdr", b"".join(record_set())))
    check_reading(checks, bmc, "Write Sdr Record 00 00 fail\n")


def reading_of_independent_simulator(checks):
    """It dies when it is asked for the state of an erase."""
    with ipmi_sim(records=record_set()) as bmc:
        check_reading(checks, bmc, "Clear SDR Fail\n")


def check_writing(checks, *arguments):
    """Written over KCS from the binary form; dumped, edited and written back with --open, each record by its own ID."""
    records = record_set()
    # a heading of 16 bytes, then each record with a mark and the length of the whole
    binary = bytes(16) + b"".join(b"Z" + bytes([len(record) + 2]) + record for record in records)
    renamed = [record.replace(b"Fan 03", b"Pump03") for record in records]
    with qarn_bmc(checks.bmc, *arguments) as bmc:
        checks.guest(bmc, [
            ("write", "qarn --nrst --sdr our.dat | tail -n +3", WRITTEN),
            ("dump", DUMP, held, sdr_bytes), ("load", "load", ""), peer_reads("peer", records),
            ("write back", "sed -i \"s/'Fan 03/'Pump03/\" dump; " + WRITE, WRITTEN), peer_reads("renamed", renamed),
        ], files={"work/our.dat": binary})


def partial_add(checks):
    check_writing(checks)


def whole_records(checks):
    check_writing(checks, "--state", checks.file("state", b"sdr.partial_add 00\n"))
