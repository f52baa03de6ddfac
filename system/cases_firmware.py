"""The card's firmware: saved, updated and verified through the kernel; S-record files as another tool makes them."""

import itertools
import os
import random
import subprocess

from bmcs import qarn_bmc
from machine import load_driver

BASE, START, SIZE = 0xFFF00000, 0xFFF04000, 0x10000  # the simulated card's flash and where an update begins
PORTION = 4096  # an update's unit: begins with a record, is written whole
CHANGED = 0x5000


def save_update_verify(checks):
    """Behind the kernel's driver the BMC is taken for the card, whatever its ports."""
    patch = bytes(range(64))
    with qarn_bmc(checks.bmc, "--kind", "card") as bmc:
        seen = checks.boot({
            "load": load_driver(), "save": "qarn --open --save old.bin; cat old.bin",
            "change": f"cp old.bin new.bin; dd if=patch of=new.bin bs=16 seek={CHANGED // 16} conv=notrunc",
            "update": "qarn --open -u new.bin | tail -n +3", "verify": "qarn --open --verify new.bin | tail -n +3",
            "verify old": "qarn --open --verify old.bin", "compare": "qarn --open --save now.bin; cmp now.bin new.bin",
        }, bmc, files={"work/patch": patch}, seconds=300)
    old = seen["save"].raw[-SIZE:]
    rest = "." * ((SIZE - (START - BASE)) // PORTION) + "OK\nreset and wait\nExit Downloader......OK\n"
    for action, heading, begin in (("update", "Update Firmware with File", "Flashing now"),
                                   ("verify", "Verify firmware with the File", "Verify now")):
        checks.same(seen[action].out, f"{heading} new.bin\nEnter Downloader......OK\n{begin}\n{rest}", action)
    wrong = [CHANGED + at for at, byte in enumerate(patch) if old[CHANGED + at] != byte]
    told = [int(line.split()[-1], 16) for line in seen["verify old"].out.splitlines() if "data wrong at" in line]
    checks.same(told, wrong, "the old image differs where it was changed")
    checks.same((seen["compare"].status, len(old)), (0, SIZE), "the flash holds the new image")


def expected_flash(old, ranges, content):
    """The flash after an update with data in these ranges (offsets from the update's start)."""
    at = [offset for first, last in ranges for offset in range(first, last)]
    end = portion = 0
    for offset in at:
        if offset >= end:
            portion, end = offset, offset + PORTION
    image = bytearray(b"\xFF" * end)
    for offset in at:
        image[offset] = content[offset]
    skipped = START - BASE
    return old[:skipped] + bytes(image[:SIZE - skipped]) + old[skipped + end:]


def srecord_images(checks):
    """Without gaps and with gaps inside and between portions, in three record lengths and both line ends."""
    content = random.Random(7).randbytes(16000)
    raw = checks.file("raw.bin", content)
    whole, gaps = [(0, 9001)], [(0, 700), (1001, 5000), (9216, 11000), (12500, 12800)]
    state = os.path.join(checks.folder.name, "state")

    def run(*arguments):
        environment = os.environ | {"QARN_SIM": "card", "QARN_SIM_STATE": state}
        return subprocess.run([checks.sim, *arguments], env=environment, cwd=checks.folder.name, capture_output=True,
                              text=True, timeout=60)

    run("--save", "old.bin")
    for ranges, length, end in itertools.product((whole, gaps), (16, 32, 250), ("lf", "crlf")):
        name = f"{len(ranges)} ranges, records of {length}, {end}"
        crop = [str(edge) for both in ranges for edge in both]
        subprocess.run(["srec_cat", raw, "-binary", "-crop", *crop, "-offset", hex(START), "-o",
                        os.path.join(checks.folder.name, "image.mot"), "-motorola", "-address-length=4",
                        f"-output-block-size={length}", "-line-termination", end], check=True)
        old = open(os.path.join(checks.folder.name, "old.bin"), "rb").read()
        updated = run("-u", "image.mot")
        run("--save", "old.bin")
        new = open(os.path.join(checks.folder.name, "old.bin"), "rb").read()
        checks.holds(updated.stdout, "OK\nreset and wait\n", name)
        checks.same(new, expected_flash(old, ranges, content), name)
