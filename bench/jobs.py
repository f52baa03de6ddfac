"""The same work by qarn, its peers and a bare C program in a guest, where one instruction takes one nanosecond."""

import functools
import subprocess
import sys
from collections.abc import Callable
from contextlib import nullcontext
from dataclasses import dataclass
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent.parent / "system"))
import cases_storage
import machine
import wire

KCS, KERNEL = "own KCS driver", "/dev/ipmi0"
FLOOR, STATIC, QARN = "bare C", "qarn, static", "qarn"
FREEIPMI, PLAIN, VENDORS = "FreeIPMI", "ipmitool without its vendor list", "ipmitool"
TOOLS = [FLOOR, STATIC, QARN, FREEIPMI, PLAIN, VENDORS]
RUNS = 7
# A debug port takes the marks around what is measured.
QEMU = ["-icount", "shift=0,sleep=off",
        "-chardev", "null,id=marks", "-device", "isa-debugcon,iobase=0xe9,chardev=marks",
        "-trace", "memory_region_ops_read", "-trace", "memory_region_ops_write", "-D"]
FREEIPMI_PROGRAMS = ["/usr/sbin/ipmi-" + name for name in ("raw", "sel", "fru", "sensors", "config")]
VENDOR_LIST = "/usr/share/misc/enterprise-numbers.txt"
LOG_ENTRIES = 128  # as many as QEMU's BMC holds
FILL = "".join(f"20 28 44 {cases_storage.entry(number).hex()}\n" for number in range(LOG_ENTRIES)).encode()


@dataclass
class Job:
    """One piece of work: the BMC that holds it, what prepares it, and each tool's command; qarn's is only its options.
    With a BMC outside of the guest there is no wall time, and nothing that contains waiting."""
    name: str
    bmc: Callable
    qarn: str
    ipmitool: str
    freeipmi: str
    prepare: str = "true"
    outside: bool = False

    def rows(self):
        """(path, tool, steps before, command) in the order of the guest's life."""
        vendors = f"mkdir -p {Path(VENDOR_LIST).parent}; cp /vendors {VENDOR_LIST}"
        own = [(KCS, FLOOR, "true", "floor ports /requests"),
               (KCS, STATIC, "true", f"qarn-static {self.qarn}"),
               (KCS, QARN, "true", f"qarn {self.qarn}")]
        kernel = [(KERNEL, FLOOR, "load", "floor device /requests"),
                  (KERNEL, STATIC, "true", f"qarn-static --open {self.qarn}"),
                  (KERNEL, QARN, "true", f"qarn --open {self.qarn}"),
                  (KERNEL, FREEIPMI, "true", self.freeipmi.replace(" ", " -D OPENIPMI ", 1)),
                  (KERNEL, PLAIN, "true", self.ipmitool), (KERNEL, VENDORS, vendors, self.ipmitool)]
        return kernel if self.outside else own + kernel


def jobs(folder):
    (folder / "records").write_bytes(b"".join(cases_storage.record_set()))
    (folder / "inventory").write_bytes(cases_storage.inventory(b"Maker"))
    own = machine.qemu_bmc(sdrfile=folder / "records", fruareasize=4096, frudatafile=folder / "inventory")

    def inside():
        return nullcontext(own)

    return [
        Job("identity and one raw request", inside, "-e 18 01", "ipmitool raw 6 1", "ipmi-raw 0 6 1"),
        Job(f"event log of {LOG_ENTRIES} entries", inside, "--seldump log", "ipmitool sel writeraw log",
            "ipmi-sel --hex-dump --ignore-sdr-cache", "qarn --cfg /fill >/dev/null"),
        Job("40 sensor records", inside, "--sdrdump records", "ipmitool sdr dump records",
            "ipmi-sensors --quiet-cache"),
        Job("inventory with every area", inside, "--wfru inventory", "ipmitool fru print 0",
            "ipmi-fru --ignore-sdr-cache"),
        Job("LAN settings", machine.ipmi_sim, "-d", "ipmitool lan print 1",
            "ipmi-config --category=core --checkout --section=Lan_Conf", outside=True),
    ]


class Bench:
    """Measures jobs with these programs, {name in the guest: path}."""

    def __init__(self, programs, folder):
        self.files = {f"bin/{name}": path for name, path in programs.items()} | machine.linked(FREEIPMI_PROGRAMS)
        self.files |= {"vendors": VENDOR_LIST, "fill": FILL}
        self.folder = folder

    def guest(self, job, steps, files):
        """What {step: command} printed, and the trace's windows."""
        trace = self.folder / job.name.replace(" ", "-")
        with job.bmc() as bmc:
            seen = machine.boot(steps, [*bmc, *QEMU, trace], files=self.files | files, seconds=900)
        for step, text in seen.items():
            if "\nstatus " in "\n" + text:
                raise RuntimeError(f"{job.name}: {step}: {steps[step]}: {text}")
        return seen, wire.windows(trace)

    def requests_of(self, job):
        """What qarn asks, for the bare program to ask again."""
        steps = {"prepare": job.prepare, "run": f"measure --marks qarn {job.qarn}"}
        return self.guest(job, steps, {})[1][0].requests

    def measure(self, job):
        """[{work, path, tool, runs: [figures]}] of one guest."""
        wanted, rows, steps = self.requests_of(job), job.rows(), {"prepare": job.prepare}
        for number, (_, _, before, command) in enumerate(rows):
            steps[number] = before
            steps |= {(number, run): f"rm -rf /.freeipmi; measure --marks {command}" for run in range(RUNS)}
        seen, windows = self.guest(job, steps, {"requests": wire.request_list(wanted)})
        windows, result = iter(windows), []
        for number, (path, tool, _, _) in enumerate(rows):
            runs = [figures(seen[number, run], next(windows), tool == FLOOR and wanted) for run in range(RUNS)]
            if job.outside:  # both contain waiting
                runs = [run | {"wall_us": None, "accesses": None} for run in runs]
            result.append({"work": job.name, "path": path, "tool": tool, "runs": runs})
        return result


def figures(text, window, wanted):
    """Of one run. The requests `wanted`, if any, must have been sent, and answered alike."""
    if wanted and wire.shape(window.requests) != wire.shape(wanted):
        raise RuntimeError(f"not the same requests and answers: {window.requests} instead of {wanted}")
    cpu_us, rss_kib, wall_us = map(int, text.split()[-3:])
    return {"cpu_us": cpu_us, "memory_kib": rss_kib, "wall_us": wall_us,
            "requests": len(window.requests), "accesses": window.accesses}


@functools.cache
def versions():
    """Of what takes part, as Debian names it."""
    packages = ["qemu-system-x86", "ipmitool", "freeipmi-tools", "openipmi", "libc6"]
    command = ["dpkg-query", "-W", "-f", "${Package} ${Version}\n", *packages]
    text = subprocess.run(command, capture_output=True, text=True, check=True).stdout
    found = dict(line.split() for line in text.splitlines())
    return found | {"kernel": next(path.name for path in machine.kernel().glob("vmlinuz-*"))[len("vmlinuz-"):]}
