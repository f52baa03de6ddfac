"""The inventory: images of other origin survive dump and update, edits show in ipmitool, broken devices are refused."""

import itertools
import re

from bmcs import data_file, ipmi_sim
from machine import UNLOAD_DRIVER, load_driver, qemu_bmc

READ = "ipmitool fru read 0 raw >said 2>&1; cat raw"
ROOM = 4096
DEVICE = dict(fruareasize=ROOM)
UPDATED = "writing FRU......\nUpdate successfully\n"
TEXT = 3  # the type code that is written; the others are kept as bytes


def summed(data):
    return data + bytes([-sum(data) & 0xFF])


def fields(texts, codes):
    return b"".join(bytes([next(codes) << 6 | len(text)]) + text for text in texts)


def area(fixed, texts, codes):
    body = bytes([1, 0]) + fixed + fields(texts, codes) + b"\xC1"
    units = len(body) // 8 + 1
    return summed((body[:1] + bytes([units]) + body[2:]).ljust(units * 8 - 1, b"\0"))


def image(model, codes=(TEXT,), internal=b""):
    """A device's bytes: {"chassis" | "board" | "product": (fixed bytes, texts), "records": [(type, format, data)]}."""
    codes = itertools.cycle(codes)
    names = ("chassis", "board", "product")
    parts = [internal] + [area(*model[name], codes) if name in model else b"" for name in names]
    records = model.get("records", [])
    tail = b""
    for number, (kind, form, data) in enumerate(records, 1):
        head = bytes([kind, form | (0x80 if number == len(records) else 0), len(data), -sum(data) & 0xFF])
        tail += summed(head) + data
    offsets, at = [], 8
    for part in parts + [tail]:
        offsets.append(at // 8 if part else 0)
        at += len(part)
    return summed(bytes([1, *offsets, 0])) + b"".join(parts) + tail


BOARD = (b"\x19\x80\x1A\x9B", [b"Maker", b"Board", b"B0001", b"P-100", b""])
PRODUCT = (b"\x19", [b"Maker", b"Server", b"S-1", b"1.0", b"X0001", b"", b""])
LONG = [b"%02d" % number + b"x" * 61 for number in range(14)]
# Models whose images are written by another tool, dumped and written back.
MODELS = {
    "worked example": dict(chassis=(b"\x17", [b"CP-1", b"CS123"]), board=(b"\0\x80\x1A\x9B", BOARD[1]),
                           product=(b"\0", PRODUCT[1]), records=[(0xC0, 2, bytes([0x10, 0x20, 0x30]))]),
    "every area": dict(chassis=(b"\x11", [b"CP", b"CS", b"custom one", b"two"]),
                       board=(BOARD[0], BOARD[1] + [b"board custom"]),
                       product=(PRODUCT[0], PRODUCT[1] + [b"product custom", b"another"]),
                       records=[(0xC1, 2, bytes(range(11))), (0x00, 2, bytes(24)), (0xC2, 2, b"\xFF" * 255)]),
    "maximal fields": dict(chassis=(b"\x11", LONG[:6]), board=(BOARD[0], LONG), product=(b"\0", LONG[:10])),
    "product only": dict(product=PRODUCT),
    "records only": dict(records=[(0xC0, 2, bytes(255)), (0xC3, 2, b"end")]),
    "no area": {},
}


def images_of_other_origin(checks):
    """Odd type codes and an internal use area are what other tools write; we write type 3 and no internal area."""
    steps, files, images = {"load": load_driver()}, {}, {}
    for name, model in MODELS.items():
        key = name.replace(" ", "-")
        odd = dict(codes=(3, 0, 1, 2), internal=b"\1" + bytes(range(7))) if name == "every area" else {}
        images[name] = image(model, **odd)
        files[f"work/{key}"] = images[name]
        steps |= {(name, "put"): f"ipmitool fru write 0 {key} >said 2>&1 && " + READ,
                  (name, "dump"): f"qarn --open --wfru {key}.txt; s=$?; cat {key}.txt; exit $s",
                  (name, "update"): f"qarn --open --fru {key}.txt", (name, "back"): READ}
    seen = checks.boot(steps, qemu_bmc(**DEVICE), files=files)
    for name, model in MODELS.items():
        checks.same(seen[name, "put"].raw[:len(images[name])], images[name], name + ": the peer's write")
        checks.same(seen[name, "dump"].status, 0, name + ": dump: " + seen[name, "dump"].out[:200])
        checks.holds(seen[name, "update"].out, UPDATED, name + ": update")
        wanted = image(model)
        checks.same(seen[name, "back"].raw[:len(wanted)], wanted, name + ": written back")


def edits(checks):
    """A file that comes with the program, edited, is what the peer then shows and reads, over both paths."""
    text = data_file("sample.fru")
    serial = text.replace(b"C8 'SRV00007'", b"CB 'NEW-SERIAL-'")
    custom = serial.replace(b"C9 'ASSET-123'", b"C0").replace(b"C8 'BRD00042'", b"C2 'B7'")
    files = {"work/serial.fru": serial, "work/custom.fru": custom}
    broken = "; qarn --wfru broken >said; s=$?; cat said; ls broken; exit $s"
    seen = checks.boot({
        "write": "qarn --fru serial.fru", "load": load_driver(), "print": "ipmitool fru print 0",
        "open write": "qarn --open --fru custom.fru", "open print": "ipmitool fru print 0", "read": READ,
        "unload": UNLOAD_DRIVER, "rewrite": "qarn --wfru dump; qarn --fru dump", "missing": "qarn --fru nothing",
        "broken": "qarn -e 28 12 00 0a 00 77" + broken,
        "load again": load_driver(), "reread": READ,
    }, qemu_bmc(**DEVICE), files=files)
    for step in ("write", "open write", "rewrite"):
        checks.holds(seen[step].out, UPDATED, step)
    names = ("Product Serial", "Product Asset Tag", "Board Serial", "Chassis Serial", "Chassis Extra")
    for step, wanted in (("print", ["NEW-SERIAL-", "ASSET-123", "BRD00042", "CHS0012345", "Rack 7"]),
                         ("open print", ["NEW-SERIAL-", None, "B7", "CHS0012345", "Rack 7"])):
        shown = dict(re.findall(r"^ (\w[^:]*?) *: (.*)$", seen[step].out, re.M))
        checks.same([shown.get(name) for name in names], wanted, step)
    checks.holds(seen["missing"].out, "Cannot read file nothing\n", "no file")
    checks.holds(seen["broken"].out, "checksum error\n", "a device with a wrong byte")
    checks.same((seen["broken"].status, "No such file" in seen["broken"].err), (1, True), "no dump of a broken device")
    held = bytearray(seen["read"].raw)
    held[10] = 0x77
    checks.same(seen["reread"].raw, bytes(held), "dump and update change nothing")


def inventory_of_independent_simulator(checks):
    model = MODELS["every area"]
    with ipmi_sim(fru=image(model)) as bmc:
        seen = checks.boot({"dump": "qarn --wfru text", "wipe": "sed 's/ two/ TWO/' text >new; qarn --fru new",
                            "load": load_driver(), "peer": READ, "open": "qarn --open --wfru again; cmp text again",
                            "open update": "qarn --open --fru text", "open peer": READ}, bmc)
    wanted = image(model)
    for step in ("dump", "open", "open update"):
        checks.same(seen[step].status, 0, step + ": " + seen[step].out[-200:])
    for step in ("peer", "open peer"):
        checks.same(seen[step].raw[:len(wanted)], wanted, step)
