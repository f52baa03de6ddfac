"""Sensor records: dumps equal what ipmitool reads, and a file written back gives the same records."""

from bmcs import data_file, hex_bytes, ipmi_sim, qarn_bmc, record_set, sdr_bytes
from machine import UNLOAD_DRIVER, load_driver, qemu_bmc

PEER = "ipmitool sdr dump raw >said 2>&1; cat raw"
WRITTEN = "writing SDR......\nUpdate successfully\n"


def dump(path=""):
    return f"rm -f dump; qarn {path} --sdrdump dump >said; s=$?; cat dump; exit $s"


def split(raw):
    records = []
    while len(raw) > 4:
        records.append(raw[:5 + raw[4]])
        raw = raw[5 + raw[4]:]
    return records


def without_ids(records):
    """The BMC gives each record that is added an ID of its own."""
    return [record[2:] for record in records]


def read_by_peer(seen):
    return without_ids(split(seen.raw))


def dat_file(records):
    """The binary form: a heading of 16 bytes, then each record with a mark and the length of the whole."""
    return b"SDR records\0\0\0\0\0" + b"".join(b"Z" + bytes([len(record) + 2]) + record for record in records)


def check_reading(checks, bmc, records, more=None):
    """Dumps over both paths, one with the comments that come with the program."""
    seen = checks.boot({"dump": dump(), "load": load_driver(), "peer": PEER, "open dump": dump("--open"),
                        "commented": "mv /util.dat .; " + dump("--open")} | (more or {}),
                       bmc, files={"util.dat": data_file("util.dat")})
    held = split(seen["peer"].raw)
    checks.same(without_ids(held), without_ids(records), "the peer reads what was put in")
    for path in ("dump", "open dump", "commented"):
        checks.same(sdr_bytes(seen[path].out), held, path)
    checks.that(seen["commented"].out.count("//") > seen["dump"].out.count("//"), "comments of util.dat")
    return seen


def reading_of_qemu(checks):
    """It refuses every whole record it should add, the peer's too."""
    records = record_set()
    add = "ipmitool raw 0xa 0x24 " + hex_bytes(records[0])
    seen = check_reading(checks, qemu_bmc(sdrfile=checks.file("sdr", b"".join(records))), records, {
        "peer add": add, "write": "qarn --open --nrst --sdr dump | tail -n +3"})
    checks.holds(seen["peer add"].err, "rsp=0xcc", "the peer's record is refused")
    checks.same(seen["write"].out, "writing SDR......\nWrite Sdr Record 00 00 fail\n", "a refused record is told")


def reading_of_independent_simulator(checks):
    """It dies when it is asked for the state of an erase."""
    records = record_set()
    with ipmi_sim(records=records) as bmc:
        seen = check_reading(checks, bmc, records, {"write": "qarn --open --nrst --sdr dump | tail -n +3"})
    checks.same(seen["write"].out, "writing SDR......\nClear SDR Fail\n", "a BMC that dies during the erase")


def check_writing(checks, bmc, reset):
    """Written from the binary form, dumped, edited and written back over either path; a broken file costs nothing."""
    records = record_set()
    seen = checks.boot({
        "write dat": "qarn --nrst --sdr our.dat | tail -n +3", "dump": dump(), "load": load_driver(), "peer": PEER,
        "edit": "sed \"s/'Fan 03/'Pump03/\" dump >edited; qarn --open --nrst --sdr edited | tail -n +3",
        "edited": PEER, "names": "ipmitool sdr list all", "unload": UNLOAD_DRIVER,
        "write": f"qarn {reset} --sdr dump | tail -n +3",
        "broken": "sed '/_REC_LEN/s/..$/7F/' dump >broken; qarn --nrst --sdr broken | tail -n 1", "again": dump(),
    }, bmc, files={"work/our.dat": dat_file(records)})
    for path in ("write dat", "edit", "write"):
        checks.same(seen[path].out, WRITTEN + ("reset BMC and wait\n" if path == "write" and not reset else ""), path)
    checks.same(read_by_peer(seen["peer"]), without_ids(records), "records of the binary form")
    checks.same(sdr_bytes(seen["dump"].out), split(seen["peer"].raw), "dump")
    renamed = [record.replace(b"Fan 03", b"Pump03") for record in records]
    checks.same(read_by_peer(seen["edited"]), without_ids(renamed), "records after the edit")
    checks.that("Pump03" in seen["names"].out and "Fan 03" not in seen["names"].out, "the edited name")
    checks.same(seen["broken"].out, "load sdr file broken failed\n", "a broken file is refused")
    checks.same(without_ids(sdr_bytes(seen["again"].out)), without_ids(records), "dump, write, dump")


def partial_add(checks):
    with qarn_bmc(checks.bmc) as bmc:
        check_writing(checks, bmc, "")


def whole_records(checks):
    with qarn_bmc(checks.bmc, "--state", checks.file("state", b"sdr.partial_add 00\n")) as bmc:
        check_writing(checks, bmc, "--nrst")
