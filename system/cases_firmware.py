"""The card's firmware over the kernel's driver: saved, updated from S-records and from a raw image, verified."""

import random
import re
import subprocess

from machine import qarn_bmc

START, SIZE = 0x4000, 0x10000  # of the simulated card's flash, which ends with the address space
ENDED = "OK\nreset and wait\nExit Downloader......OK\n"


def test_save_update_verify(checks):
    """Over the kernel's driver every BMC is taken for the card, whatever its ports. The flash is written in portions
    of 4096 bytes: bytes that are missing in the image or at its end are erased."""
    content = random.Random(7).randbytes(5000)
    image = (content[:700] + b"\xFF" * 301 + content[1001:]).ljust(2 * 4096, b"\xFF")
    srecords = checks.file("image.mot", b"")
    subprocess.run(["srec_cat", checks.file("raw", content), "-binary", "-crop", "0", "700", "1001", "5000", "-offset",
                    hex(2**32 - 0x100000 + START), "-o", srecords, "-motorola", "-address-length=4"], check=True)

    def flash(seen):
        old = seen["save"][-SIZE:]
        return old[:START] + image.decode("latin-1") + old[START + len(image):]

    def changed(seen):
        return [at for at, (old, new) in enumerate(zip(seen["save"][-SIZE:], flash(seen))) if old != new]

    with qarn_bmc(checks.bmc, "--kind", "card") as bmc:
        checks.guest(bmc, [
            ("load", "load", ""), ("save", "qarn --open --save old.bin >said && cat old.bin", None),
            ("update", "qarn --open -u image.mot | tail -n +3",
             "Update Firmware with File image.mot\nEnter Downloader......OK\nFlashing now\n.." + ENDED),
            ("verify", "qarn --open --verify old.bin", changed,
             lambda text: [int(address, 16) for address in re.findall("data wrong at (.*)", text)]),
            ("save again", "qarn --open --save new.bin >said && cat new.bin", flash),
            ("raw", "qarn --open -u old.bin >said; qarn --open --save raw >said; cat raw", lambda seen: seen["save"]),
        ], files={"work/image.mot": srecords})
