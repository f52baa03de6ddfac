#!/usr/bin/env python3
"""Prints what qarn and its peers cost on the same work, side by side in a guest, as a markdown table.

Usage: bench/compare.py --qarn PATH --static PATH --bmc PATH [--only TEXT]
One guest a job; one instruction takes one nanosecond of the guest's time, so processor time counts instructions.
"""

import argparse
import re
import subprocess
import sys
import tempfile
from collections.abc import Callable
from contextlib import nullcontext
from dataclasses import dataclass
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent.parent / "system"))
import cases_storage
import machine

KCS, KERNEL = "own KCS driver", "/dev/ipmi0"
# One instruction takes one nanosecond; a debug port takes the marks around what is measured.
QEMU = ["-icount", "shift=0,sleep=off", "-chardev", "null,id=marks",
        "-device", "isa-debugcon,iobase=0xe9,chardev=marks",
        "-trace", "memory_region_ops_read", "-trace", "memory_region_ops_write", "-D"]
FREEIPMI = ["/usr/sbin/" + name for name in ("ipmi-raw", "ipmi-sel", "ipmi-fru", "ipmi-sensors", "ipmi-config")]
VENDORS = "/usr/share/misc/enterprise-numbers.txt"


@dataclass
class Cost:
    """Of one run."""
    cpu_us: int
    rss_kb: int
    wall_us: int
    accesses: int
    requests: int


@dataclass
class Job:
    """One piece of work: gives the BMC that holds it, and each tool's command; qarn's is only its options."""
    name: str
    bmc: Callable
    qarn: str
    ipmitool: str
    freeipmi: str
    repeats: int = 3

    def runs(self):
        """(steps before, path, tool, command) in the order of the guest's life and of the table."""
        driver, vendors = ["load"], [f"mkdir -p {Path(VENDORS).parent}; cp /vendors {VENDORS}"]
        return [
            ([], KCS, "qarn", f"qarn {self.qarn}"),
            ([], KCS, "qarn, static", f"qarn-static {self.qarn}"),
            (driver, KERNEL, "qarn", f"qarn --open {self.qarn}"),
            ([], KERNEL, "qarn, static", f"qarn-static --open {self.qarn}"),
            ([], KERNEL, "FreeIPMI", self.freeipmi.replace(" ", " -D OPENIPMI ", 1)),
            ([], KERNEL, "ipmitool without its vendor list", self.ipmitool),
            (vendors, KERNEL, "ipmitool", self.ipmitool),
        ]


def jobs(folder):
    (folder / "records").write_bytes(b"".join(cases_storage.record_set()))
    (folder / "inventory").write_bytes(cases_storage.inventory())
    own = machine.qemu_bmc(sdrfile=folder / "records", fruareasize=1024, frudatafile=folder / "inventory")
    log = [cases_storage.entry(number) for number in range(500)]
    return [
        Job("identity and one raw request", lambda: nullcontext(own),
            "-e 18 01", "ipmitool raw 6 1", "ipmi-raw 0 6 1", 5),
        Job("event log of 500 entries", lambda: machine.ipmi_sim(sel=log),
            "--seldump log", "ipmitool sel writeraw log", "ipmi-sel --hex-dump --ignore-sdr-cache"),
        Job("40 sensor records", lambda: nullcontext(own),
            "--sdrdump records", "ipmitool sdr dump records", "ipmi-sensors --quiet-cache"),
        Job("inventory with every area", lambda: nullcontext(own),
            "--wfru inventory", "ipmitool fru print 0", "ipmi-fru --ignore-sdr-cache"),
        Job("LAN settings", machine.ipmi_sim,
            "-d", "ipmitool lan print 1", "ipmi-config --category=core --checkout --section=Lan_Conf"),
    ]


def between_marks(trace):
    """[(port accesses, requests)] of what ran between the first mark and the second, the third and the fourth..."""
    counts = [[0, 0]]
    for line in trace.read_text().splitlines():
        if "isa-debugcon" in line:
            counts.append([0, 0])
        elif "'ipmi-kcs'" in line:
            counts[-1][0] += 1
            # WRITE_START in the command register begins a request
            at_command = int(re.search(r"addr (0x\w+)", line)[1], 16) % 2 == 1
            counts[-1][1] += "_write" in line and "value 0x61 " in line and at_command
    return counts[1::2]


def measure(job, options, folder):
    """[(tool, path, the least of each measure)] of one guest."""
    runs, steps = job.runs(), {}
    for number, (before, _, _, command) in enumerate(runs):
        steps |= {(number, step): step for step in before}
        for repeat in range(job.repeats):
            steps[number, repeat] = f"rm -rf /.freeipmi; measure {command}"
    files = {"bin/qarn": options.qarn, "bin/qarn-static": options.static, "bin/measure": folder / "measure",
             "vendors": VENDORS} | machine.linked(FREEIPMI)
    with job.bmc() as bmc:
        seen = machine.boot(steps, [*bmc, *QEMU, folder / "trace"], files=files, seconds=900)
    counts, rows = iter(between_marks(folder / "trace")), []
    for number, (_, path, tool, command) in enumerate(runs):
        printed = [seen[number, repeat] for repeat in range(job.repeats)]
        if "\nstatus " in "".join(printed):
            raise RuntimeError(f"{command}: {printed[0]}")
        # the least of each: a run of a millisecond may meet a timer tick, or the path's first use
        costs = [(*map(int, text.split()[-3:]), *next(counts)) for text in printed]
        rows.append((tool, path, Cost(*map(min, zip(*costs)))))
    return rows


HEADING = ("| work | tool | path | million instructions | wall ms | peak memory MB | requests | port accesses |\n"
           "|---|---|---|--:|--:|--:|--:|--:|")


def print_rows(job, rows):
    """In brackets: how many times what qarn takes on the same path."""
    ours = {path: cost for tool, path, cost in rows if tool == "qarn"}
    for number, (tool, path, cost) in enumerate(rows):
        base = ours[path]
        cells = (f"{value / unit:.2f} ({value / least:.1f})" for value, least, unit in (
            (cost.cpu_us, base.cpu_us, 1e3), (cost.wall_us, base.wall_us, 1e3), (cost.rss_kb, base.rss_kb, 1e3)))
        print("|", job.name if number == 0 else "", "|", tool, "|", path, "|", " | ".join(cells), "|",
              cost.requests, "|", cost.accesses, "|", flush=True)


def main():
    parser = argparse.ArgumentParser()
    for name in ("--qarn", "--static", "--bmc"):
        parser.add_argument(name, required=True, type=Path)
    parser.add_argument("--only", default="", help="the jobs whose name holds this text")
    options = parser.parse_args()
    print(HEADING)
    with tempfile.TemporaryDirectory(prefix="qarn-compare-") as folder:
        subprocess.run(["c++", "-std=c++20", "-Os", "-static", "-o", folder + "/measure",
                        Path(__file__).parent / "guest/measure.cpp"], check=True)
        for job in jobs(Path(folder)):
            if options.only in job.name:
                print_rows(job, measure(job, options, Path(folder)))


if __name__ == "__main__":
    main()
