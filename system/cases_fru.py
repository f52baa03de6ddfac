"""The inventory: images of other origin survive dump and update, edits show in ipmitool, broken devices are refused."""

import itertools
import re
from pathlib import Path

from bmcs import ipmi_sim
from machine import qemu_bmc

READ = "ipmitool fru read 0 raw >said 2>&1; cat raw"
UPDATED = "writing FRU......\nUpdate successfully\n"


def summed(data):
    return data + bytes([-sum(data) & 0xFF])


def area(fixed, texts, codes):
    fields = b"".join(bytes([next(codes) << 6 | len(text)]) + text for text in texts)
    body = fixed + fields + b"\xC1"
    units = (len(body) + 2) // 8 + 1
    return summed((bytes([1, units]) + body).ljust(units * 8 - 1, b"\0"))


def image(chassis, board, product, records=(), codes=(3,), internal=b""):
    """A device's bytes: areas are (fixed bytes, texts), records (type, format, data)."""
    codes = itertools.cycle(codes)
    parts = [internal] + [area(*part, codes) for part in (chassis, board, product)] + [b""]
    for number, (kind, form, data) in enumerate(records, 1):
        last = 0x80 if number == len(records) else 0
        parts[-1] += summed(bytes([kind, form | last, len(data), -sum(data) & 0xFF])) + data
    starts = itertools.accumulate(map(len, parts), initial=8)
    offsets = [start // 8 if part else 0 for start, part in zip(starts, parts)]
    return summed(bytes([1, *offsets, 0])) + b"".join(parts)


def every_area(maker=b"Maker", *custom):
    return dict(chassis=(b"\x11", [b"CP", b"CS", b"custom one", b"two"]),
                board=(b"\x19\x80\x1A\x9B", [maker, b"Board", b"B0001", b"P-100", b"", b"board custom", *custom]),
                product=(b"\x19", [maker, b"Server", b"S-1", b"1.0", b"X0001", b"", b"", b"custom", b"another"]),
                records=[(0xC1, 2, bytes(range(11))), (0x00, 2, bytes(24)), (0xC2, 2, b"\xFF" * 255)])


LONGEST = [b"%02d" % number + b"x" * 61 for number in range(14)]
OURS, EDITED = (image(**every_area(maker, *LONGEST)) for maker in (b"Maker", b"MAKER"))
# Odd type codes and an internal use area are what other tools write; we write type 3 and no internal area.
OTHER = image(**every_area(b"Maker", *LONGEST), codes=(3, 0, 1, 2), internal=b"\1" + bytes(range(7)))


def check_inventory(checks, bmc, *more, **settings):
    """A device with an image of other origin: dumped and written back over KCS, edited and written back with --open."""
    def begin(text):
        return text[:len(OURS)].encode("latin-1")

    write_back = "qarn --wfru text >said && {}qarn --fru text | tail -n 2"
    edit = write_back.format("sed -i s/Maker/MAKER/ text && ").replace("qarn", "qarn --open")
    checks.guest(bmc, [("update", write_back.format(""), UPDATED), ("load", "load", ""), ("read", READ, OURS, begin),
                       ("edit", edit, UPDATED), ("read edited", READ, EDITED, begin), *more], **settings)


def inventory_of_qemu(checks):
    """With an edited file that comes with the program, and a device with a wrong byte, of which there is no dump."""
    def fields(text):
        shown = dict(re.findall(r"^ (\w[^:]*?) *: (.*)$", text, re.M))
        return [shown.get(name) for name in ("Product Serial", "Product Asset Tag", "Board Serial", "Chassis Extra")]

    sample = Path(__file__).parent.parent.joinpath("data/sample.fru").read_bytes()
    sample = sample.replace(b"C8 'SRV00007'", b"CB 'NEW-SERIAL-'").replace(b"C9 'ASSET-123'", b"C0")
    check_inventory(
        checks, qemu_bmc(fruareasize=4096, frudatafile=checks.file("inventory", OTHER)),
        ("sample", "qarn --open --fru sample | tail -n 2", UPDATED),
        ("print", "ipmitool fru print 0", ["NEW-SERIAL-", None, "BRD00042", "Rack 7"], fields),
        ("spoil", "qarn --open -e 28 12 00 0a 00 77 | tail -n 1", "response is 2C 12 00 01 \n"),
        ("broken", "qarn --open --wfru none | tail -n 1; ls none",
         "checksum error\nls: none: No such file or directory\nstatus 1\n"), files={"work/sample": sample})


def inventory_of_independent_simulator(checks):
    with ipmi_sim(fru=OTHER) as bmc:
        check_inventory(checks, bmc)
