"""The archive for rescue systems, unpacked and used where nothing else is."""

import pytest
from cases_front import BANNER, OURS, PEER, identity
from machine import qemu_bmc

SUMMED = "COPYRIGHT", "GPL-3", "LGPL-2.1", "formats.md", "qarn", "qarn.8", "qarn.txt", "util.dat"


def test_rescue_archive(checks):
    """Its checksums are right, and its program needs no library of the system, on both paths."""
    if not checks.archive:
        pytest.skip("no archive is given")

    def answer(seen):
        return identity(seen) + "response is 1C " + seen["peer"].upper()

    sums = "cd /rescue && sha256sum -c SHA256SUMS 2>&1"
    checks.guest(qemu_bmc(**OURS), [
        ("unpacked", "mkdir /rescue && tar xzf /archive && mv qarn-*/* /rescue && rmdir qarn-*", ""),
        ("checksums", sums, "".join(f"{name}: OK\n" for name in SUMMED)),
        ("a spoilt file", f"echo >>/rescue/util.dat; {sums} | grep FAILED", "util.dat: FAILED\n"),
        ("nothing else", "ls /rescue | xargs", " ".join(sorted([*SUMMED, "SHA256SUMS"])) + "\n"),
        ("others need a library", "mv /lib64 /away; ipmitool -V 2>&1", "ipmitool: not found\nstatus 127\n",
         lambda text: text.split(": ", 2)[-1]),
        ("usage", "/rescue/qarn -h | head -n 1", BANNER),
        ("ports", "/rescue/qarn --strict -e 18 01", answer),
        ("libraries again", "mv /away /lib64; load", ""),
        ("kernel", "/rescue/qarn --open --strict -e 18 01", answer), PEER,
        ("peer", "ipmi-raw -D OPENIPMI 0 6 1 | sed 's/rcvd: //'", None),
    ], files={"archive": checks.archive})
