#!/usr/bin/env python3
"""Measures qarn, its peers and a bare C program on the same work, then qarn alone on ever more of it; writes
doc/performance.json, and from that the figures of the documents and the chart (bench/report.py).

Usage: bench/compare.py --qarn PATH --static PATH --bmc PATH [--only TEXT]
With --only, the work whose name holds this text is measured and printed, and nothing is written.
"""

import argparse
import json
import os
import re
import resource
import subprocess
import sys
import tempfile
import time
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

import jobs
import report
import scaling

HERE = Path(__file__).resolve().parent
GUESTS_AT_ONCE = 2  # what they count does not depend on what else the machine does


def build(folder, options):
    """{name in the guest: program}, all of them stripped; and the library that turns /dev/ipmi0 into a socket."""
    made = {name: folder / name for name in ("measure", "floor", "qarn", "qarn-static")}
    device = folder / "socket_device.so"
    strict = ["-Wall", "-Wextra", "-Werror", "-Os"]
    for command in (["c++", "-std=c++20", *strict, "-static", "-o", made["measure"], HERE / "guest/measure.cpp"],
                    ["cc", "-std=c11", *strict, "-static", "-o", made["floor"], HERE / "guest/floor.c"],
                    ["cc", "-std=c11", *strict, "-fPIC", "-shared", "-o", device, HERE / "socket_device.c"],
                    ["strip", "-o", made["qarn"], options.qarn], ["strip", "-o", made["qarn-static"], options.static],
                    ["strip", made["floor"]]):
        subprocess.run(command, check=True)
    return made, device


def size_row(name, path):
    """Bytes of a program, and of the libraries that are loaded with it."""
    found = subprocess.run(["ldd", path], capture_output=True, text=True).stdout
    libraries = sum(Path(library).stat().st_size for library in re.findall(r"(/\S+) \(0x", found))
    return {"program": name, "bytes": Path(path).stat().st_size, "libraries": libraries}


def sizes(programs):
    return [size_row(name, path) for name, path in (
        ("bare C, static", programs["floor"]), ("qarn", programs["qarn"]), ("qarn, static", programs["qarn-static"]),
        ("FreeIPMI's ipmi-raw", "/usr/sbin/ipmi-raw"), ("ipmitool", "/usr/bin/ipmitool"),
        ("the vendor list that ipmitool reads", jobs.VENDOR_LIST))]


def about():
    """When, where and what."""
    model = re.search(r"model name\s*: (.*)", Path("/proc/cpuinfo").read_text())
    commit = subprocess.run(["git", "-C", HERE, "describe", "--always", "--dirty"], capture_output=True, text=True)
    return {"date": time.strftime("%Y-%m-%d"), "commit": commit.stdout.strip(), "cpus": os.cpu_count(),
            "model": model[1] if model else "unknown", "versions": jobs.versions()}


def others_s():
    """Processor time of everything but this program and what it has run."""
    ticks = [int(field) for field in Path("/proc/stat").read_text().split("\n")[0].split()[1:9]]
    own = [resource.getrusage(who) for who in (resource.RUSAGE_SELF, resource.RUSAGE_CHILDREN)]
    idle = ticks[3] + ticks[4]
    return (sum(ticks) - idle) / os.sysconf("SC_CLK_TCK") - sum(use.ru_utime + use.ru_stime for use in own)


def measure_jobs(programs, folder, only):
    bench = jobs.Bench(programs, folder)
    wanted = [job for job in jobs.jobs(folder) if only in job.name]
    with ThreadPoolExecutor(GUESTS_AT_ONCE) as pool:
        for job, rows in zip(wanted, pool.map(bench.measure, wanted)):
            print(f"{job.name}: {len(rows)} rows, {jobs.RUNS} runs of each", file=sys.stderr, flush=True)
            yield from rows


def measure(options, folder):
    programs, device = build(folder, options)
    found = about() | {"sizes": sizes(programs), "jobs": list(measure_jobs(programs, folder, options.only))}
    scaled = scaling.Scaling(programs["qarn"], options.bmc, programs["measure"], device)
    began, before = time.monotonic(), others_s()
    found["scaling"] = list(scaled.all(options.only))
    return found | {"others": round((others_s() - before) / (time.monotonic() - began), 2)}


def main():
    parser = argparse.ArgumentParser()
    for name in ("--qarn", "--static", "--bmc"):
        parser.add_argument(name, required=True, type=lambda text: Path(text).resolve())
    parser.add_argument("--only", default="", help="the work whose name holds this text; writes no file")
    options = parser.parse_args()
    began = time.monotonic()
    with tempfile.TemporaryDirectory(prefix="qarn-compare-") as folder:
        found = measure(options, Path(folder)) | {"runs": jobs.RUNS}
    if options.only:
        print(json.dumps(found, indent=1) if not found["jobs"] else report.tables(found))
        return
    report.keep(found | {"minutes": round((time.monotonic() - began) / 60, 1)})
    print(report.summary(report.kept()))


if __name__ == "__main__":
    main()
