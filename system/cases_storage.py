"""Sensor records, event log and inventory: ours against what ipmitool reads, and written back."""

import itertools
import re
import sys
from pathlib import Path

from machine import both_paths, ipmi_sim, qarn_bmc, qemu_bmc

sys.path.insert(0, str(Path(__file__).resolve().parent.parent / "tests"))
from fru_images import area, image_of, record

READ = "ipmitool {} raw >said 2>&1; cat raw"
DUMP = "rm -f {0}; qarn --{0}dump {0} >said && cat {0}"
WRITE = "qarn --open --nrst --sdr sdr | tail -n +3"
SDR_UPDATED, FRU_UPDATED = (f"writing {what}......\nUpdate successfully\n" for what in ("SDR", "FRU"))


def record_set():
    """Sensor records of every type with a name, names of 0 to 16 characters, and one of a maker's own type."""
    # types, and the bytes before the name, the last of which holds the name's length
    kinds = [(0x01, 43), (0x02, 27), (0x03, 12), (0x10, 11), (0x11, 11), (0x12, 11)]
    yield bytes([1, 0, 0x51, 0xC0, 9]) + bytes(range(1, 10))
    for number in range(2, 41):
        kind, fixed = kinds[number % len(kinds)]
        name = b"" if number == 5 else (b"Fan %02d" % number + b"-more-to-it"[:number % 12])[:16]
        # owner 0x20, LUN 0, sensor number; then values that tell the bytes of one record from those of another
        values = ((number + at) & 0x7F for at in range(fixed - 4))
        yield bytes([number, 0, 0x51, kind, fixed + len(name), 0x20, 0, number, *values, 0xC0 | len(name)]) + name


RECORDS = list(record_set())


def sdr_bytes(text):
    """The records of an SDR dump, a byte or a text in quotes on a line."""
    values = (re.findall(r"\n   (?:'([^']*)'|([0-9A-F]{2}))", record) for record in text.split("_SDR_TYPE")[1:])
    return [b"".join(name.encode("latin-1") or bytes.fromhex(byte) for name, byte in record) for record in values]


def records_in(text):
    raw = text.encode("latin-1")
    return [raw[:5 + raw[4]], *records_in(text[5 + raw[4]:])] if len(raw) > 4 else []


def entry(number):
    """A 16-byte event log record; the BMC gives it its ID."""
    low, high = number & 0xFF, number >> 8
    return bytes([0, 0, 2, low, high, 0, 0, 0x20, 0, 4, 1, low, 1, 0x57, high, 0xFF])


def entries_in(text):
    return [text[at:at + 16].encode("latin-1") for at in range(0, len(text), 16)]


def log_of(held):
    """The dump of the log that the peer read: a heading with the count, low byte first, and the records."""
    lines = "".join(record.hex(" ").upper() + "\n" for record in entries_in(held))
    return f"_SEL\n_LOG_NUM   {(len(held) // 16).to_bytes(2, 'little').hex().upper()}\n\n" + lines


def peer_reads(step, command, wanted, split, start):
    """Compared from this byte on: the BMC gives what is added an ID of its own, and entries a time."""
    return (step, READ.format(command), [item[start:] for item in wanted],
            lambda text: [item[start:] for item in split(text)])


SDR = ("dump", DUMP.format("sdr"), lambda seen: records_in(seen["records"]), sdr_bytes)


LONGEST = [b"%02d" % number + b"x" * 61 for number in range(14)]


def inventory(maker, codes=(3,), internal=b""):
    """A device's bytes: an internal use area, every other area, and records of several types and lengths."""
    codes = itertools.cycle(codes)
    return image_of(
        internal,
        area(b"\x11", [b"CP", b"CS", b"custom one", b"two"], codes),
        area(b"\x19\x80\x1A\x9B", [maker, b"Board", b"B0001", b"P-100", b"", b"board custom", *LONGEST], codes),
        area(b"\x19", [maker, b"Server", b"S-1", b"1.0", b"X0001", b"", b"", b"custom", b"another"], codes),
        record(0xC1, 2, bytes(range(11))) + record(0, 2, bytes(24)) + record(0xC2, 0x82, 255 * b"\xFF"))


def exact_text(image):
    """The text from which --fru --exact makes a device of these bytes, all of them as digits."""
    starts = sorted({8 * offset for offset in image[1:6] if offset} | {len(image)})
    text = "_FRU\n_DEV_ID 00\n_SEE_COMMON\n" + image[:8].hex(" ")
    for offset, section in zip(image[1:6], ("INTERNAL", "CHASSIS", "BOARD", "PRODUCT", "MULTIREC")):
        if offset:
            part = image[8 * offset:starts[starts.index(8 * offset) + 1]]
            text += f"\n_SEE_{section}\n" + "\n".join(part[at:at + 16].hex(" ") for at in range(0, len(part), 16))
    return text.encode()


OURS, EDITED = (inventory(maker).decode("latin-1") for maker in (b"Maker", b"MAKER"))
READ_FRU = READ.format("fru read 0") + f" | head -c {len(OURS)}"
# Odd type codes and an internal use area are what other tools write; we write type 3 and no internal area.
OTHER = inventory(b"Maker", (3, 0, 1, 2), b"\1" + bytes(range(7)))


def check_all(checks, bmc, entries, failure, before=(), after=(), files=()):
    """A BMC with the record set, which cannot be written, these entries, and an inventory of other origin: dumped and
    written back over KCS, edited and written back with --open."""
    write_back = "qarn --wfru text >said && {}qarn --fru text | tail -n 2"
    edit = write_back.format("sed -i s/Maker/MAKER/ text && ").replace("qarn", "qarn --open")
    checks.guest(bmc, [
        *before, ("update", write_back.format(""), FRU_UPDATED),
        *both_paths(SDR, ("log", DUMP.format("sel"), lambda seen: log_of(seen["entries"]))),
        peer_reads("records", "sdr dump", RECORDS, records_in, 2),
        peer_reads("entries", "sel writeraw", entries, entries_in, 10),
        ("read", READ_FRU, OURS), ("edit", edit, FRU_UPDATED), ("read edited", READ_FRU, EDITED), *after,
        ("write", WRITE, "writing SDR......\n" + failure)], files=files)


def test_all_of_qemu(checks):
    """The log from empty to full, filled by a script; an edited file that comes with the program; a device with a wrong
    byte, of which there is no dump. QEMU refuses every whole record it should add."""
    entries = [entry(number) for number in range(128)]  # as many as it holds
    script = "".join(f"20 28 44 {record.hex()}\n" for record in [*entries, entries[0]]).encode()
    sample = Path(__file__).parent.parent.joinpath("data/sample.fru").read_bytes()
    sample = sample.replace(b"C8 'SRV00007'", b"CB 'NEW-SERIAL-'").replace(b"C9 'ASSET-123'", b"C0")
    records, image = checks.file("sdr", b"".join(RECORDS)), checks.file("inventory", OTHER)
    bmc = qemu_bmc(sdrfile=records, fruareasize=4096, frudatafile=image)
    before = [("empty", DUMP.format("sel"), log_of("")),
              ("one more", "qarn --cfg fill | tail -n 2", "recv: 20 2C 44 C4 \n\n")]
    check_all(checks, bmc, entries, "Write Sdr Record 00 00 fail\n", before, [
        ("sample", "qarn --open --fru sample | tail -n 2", FRU_UPDATED),
        ("print", "ipmitool fru print 0 2>/dev/null | grep -E 'Extra|Asset|Board S|Product S' | tr -s ' '",
         " Chassis Extra : Rack 7\n Board Serial : BRD00042\n Product Serial : NEW-SERIAL-\n"),
        ("spoil", "qarn --open -e 28 12 00 0a 00 77 | tail -n 1", "response is 2C 12 00 01 \n"),
        ("broken", "qarn --open --wfru none | tail -n 1; [ -e none ]", "checksum error\nstatus 1\n"),
    ], {"work/sample": sample, "work/fill": script})


def test_all_of_independent_simulator(checks):
    """It dies when it is asked for the state of an erase."""
    entries = [entry(number) for number in range(300)]
    with ipmi_sim(RECORDS, OTHER, entries) as bmc:
        check_all(checks, bmc, entries, "Clear SDR Fail\n")


def test_writing(checks):
    """Written over KCS from the binary form; dumped, edited and written back with --open, each record by its own ID."""
    # a heading of 16 bytes, then each record with a mark and the length of the whole
    binary = bytes(16) + b"".join(b"Z" + bytes([len(record) + 2]) + record for record in RECORDS)
    renamed = [record.replace(b"Fan 03", b"Pump03") for record in RECORDS]
    for how, partial_add in (("in parts", b"01"), ("whole", b"00")):
        with qarn_bmc(checks.bmc, "--state", checks.file("state", b"sdr.partial_add %s\n" % partial_add)) as bmc:
            checks.guest(bmc, [
                ("write " + how, "qarn --nrst --sdr our.dat | tail -n +3", SDR_UPDATED), SDR, ("load", "load", ""),
                peer_reads("records", "sdr dump", RECORDS, records_in, 2),
                ("write back " + how, "sed -i \"s/'Fan 03/'Pump03/\" sdr; " + WRITE, SDR_UPDATED),
                peer_reads("renamed", "sdr dump", renamed, records_in, 2)], files={"work/our.dat": binary})


def test_exact_inventories(checks):
    """Two dozen devices of other origin, dumped and written back exactly: ipmitool and ipmi-fru say the same before and
    after of each."""
    peers = "(ipmitool fru print 0; ipmi-fru -D OPENIPMI --device-id=0 --ignore-sdr-cache)"
    back = ("qarn --open --exact --fru {0} >said && " + peers + " >before 2>&1; qarn --open --strict --exact --wfru text >said && "
            "qarn --open --strict --exact --fru text | tail -n 1; " + peers + " >after 2>&1; cmp before after; grep -c : before")
    makers = [b"Maker", b"PN#4", b"a//b 'c'", bytes([0, 10, 13, 39, 200, 255]), b"", b"// \t#"]
    rows, files = [("load", "load", "")], {}
    for number, (maker, codes) in enumerate(itertools.product(makers, ((3,), (0, 1, 2, 3), (2,), (1, 3)))):
        image = inventory(maker, codes, b"\1" + bytes(range(7)) if number % 2 else b"")
        files[f"work/device{number}"] = exact_text(image)
        rows.append((f"device {number}", back.format(f"device{number}"), True,
                     lambda text: text.startswith("Update successfully\n") and int(text.split("\n")[1]) > 9))
    with qarn_bmc(checks.bmc, "--state", checks.file("state", b"fru.00 " + b"00" * 4096 + b"\n")) as bmc:
        checks.guest(bmc, rows, files=files)
