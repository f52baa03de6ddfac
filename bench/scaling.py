"""qarn itself on work from small to the largest there can be: requests, processor time, memory.

The guest would take too long. So the program runs here, over a socket to qarn-bmc, which is a process of its own: the
memory is that of qarn and of nothing else. Its pauses are left out (bench/socket_device.c)."""

import os
import re
import statistics
import subprocess
import sys
import tempfile
import time
from contextlib import contextmanager
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent.parent / "system"))
import machine

# Record IDs are 0000 to FFFE, FFFF marks the end; what is added gets an ID from 0001 on.
COUNTS, MOST_READ, MOST_ADDED = [40, 640, 10240], 0xFFFF, 0xFFFE
MIB = [1, 4, 16]
RUNS, PATIENCE_S = 5, 10
MOST_FLASH = 16 << 20
FLASH_BASE = 2**32 - MOST_FLASH
S3_DATA = 32  # bytes of a line of an image


def record(number):
    """A full sensor record of 59 bytes with a name of eleven characters."""
    name = b"Sensor%5d" % (number % 100000)
    return number.to_bytes(2, "little") + bytes([0x51, 0x01, 54]) + bytes(42) + bytes([0xC0 | len(name)]) + name


def entry(number):
    stamp = bytes([number & 0xFF]) * 4
    return number.to_bytes(2, "little") + b"\2" + stamp + bytes([0x20, 0, 4, 1, 2, 1, 0x57, 2, 3])


def state(kind, make, count):
    return f"{kind}.records {b''.join(map(make, range(count))).hex()}\n"


def distinct(size):
    """Bytes that are not the same in any two blocks, nor all FF."""
    return b"".join(number.to_bytes(4, "big") for number in range(size // 4))


def srecords(content, address):
    """The content as lines of S3 records, with an end."""
    for at in range(0, len(content), S3_DATA):
        line = bytes([S3_DATA + 5]) + (address + at).to_bytes(4, "big") + content[at:at + S3_DATA]
        yield f"S3{line.hex().upper()}{~sum(line) & 0xFF:02X}\r\n"
    yield "S70500000000FA\r\n"


class Scaling:
    """Measures with these programs: qarn, qarn-bmc and bench/guest/measure.cpp."""

    def __init__(self, qarn, bmc, measure, device):
        self.qarn, self.bmc, self.measure, self.device = qarn, bmc, measure, device
        self.folder = None

    @contextmanager
    def server(self, contents="", **settings):
        """qarn-bmc with these contents, and a folder for the files of the run."""
        port = machine.free_port()
        with tempfile.TemporaryDirectory(prefix="qarn-scaling-") as folder:
            self.folder = Path(folder)
            (self.folder / "state").write_text(contents)
            command = [self.bmc, str(port), "--kind", "card", "--state", "state"]
            environment = os.environ | {f"QARN_SIM_{name}": value for name, value in settings.items()}
            process = subprocess.Popen(command, cwd=folder, env=environment)
            try:
                self.wait_for(port, process)
                yield str(port)
            finally:
                process.kill()
                process.wait()

    @staticmethod
    def wait_for(port, process):
        end = time.monotonic() + 60
        while f"0100007F:{port:04X} 00000000:0000 0A" not in Path("/proc/net/tcp").read_text():
            if time.monotonic() > end or process.poll() is not None:
                raise RuntimeError(f"qarn-bmc does not listen on port {port}")
            time.sleep(0.02)

    def once(self, port, options):
        environment = {"QARN_BMC_PORT": port, "LD_PRELOAD": str(self.device), "PATH": os.defpath}
        done = subprocess.run([self.measure, self.qarn, "--open", "--strict", *options.split()], cwd=self.folder,
                              env=environment, capture_output=True, text=True, stdin=subprocess.DEVNULL)
        sent = re.search(r"^requests (\d+)\n\Z", done.stderr, re.M)
        if done.returncode != 0 or not sent:
            raise RuntimeError(f"qarn {options}: {done.returncode} {done.stdout[-300:]} {done.stderr[-300:]}")
        cpu_us, memory_kib, _ = map(int, done.stdout.split()[-3:])
        return {"cpu_us": cpu_us, "memory_kib": memory_kib, "requests": int(sent[1])}

    def runs(self, work, size, unit, port, options):
        """Five runs, or as many as fit into ten seconds, but one at least."""
        began, runs = time.monotonic(), []
        while len(runs) < RUNS and (not runs or time.monotonic() - began < PATIENCE_S):
            runs.append(self.once(port, options))
        middle = statistics.median_low(run["cpu_us"] for run in runs)
        print(f"{work}, {size} {unit}: {runs[-1]['requests']} requests, {len(runs)} runs, {middle / 1e6:.3f} s",
              file=sys.stderr, flush=True)
        return {"work": work, "size": size, "unit": unit, "runs": runs}

    def expect(self, condition, what):
        if not condition:
            raise RuntimeError(f"not as it was: {what}")

    def records_read(self, count):
        with self.server(state("sdr", record, count)) as port:
            yield self.runs("sensor records, read", count, "records", port, "--sdrdump dump")
            self.expect((self.folder / "dump").read_text().count("_SDR_TYPE") == count, f"{count} records")

    def records_written(self, count):
        with self.server(state("sdr", record, count)) as port:
            self.once(port, "--sdrdump dump")
            text = (self.folder / "dump").read_text()
            yield self.runs("sensor records, written", count, "records", port, "--nrst --sdr dump")
            self.once(port, "--sdrdump again")
            self.expect(names(text) == names((self.folder / "again").read_text()), f"{count} records written")

    def log(self, count):
        with self.server(state("sel", entry, count)) as port:
            yield self.runs("event log, read", count, "entries", port, "--seldump dump")
            self.expect(len((self.folder / "dump").read_text().splitlines()) == count + 3, f"{count} entries")

    def firmware(self, mib):
        content, start = distinct(mib << 20), f"{FLASH_BASE:x}"
        extent = {"CARD_BASE": start, "CARD_START": start, "CARD_SIZE": f"{mib << 20:x}"}
        with self.server(**extent, CARD_AWAY="0", CARD_READY="0") as port:
            with (self.folder / "image.mot").open("w", newline="") as file:
                file.writelines(srecords(content, FLASH_BASE))
            yield self.runs("firmware, update", mib, "MiB", port, "-u image.mot")
            yield self.runs("firmware, verify", mib, "MiB", port, "--verify image.mot")
            yield self.runs("firmware, save", mib, "MiB", port, "--save saved.bin")
            self.expect((self.folder / "saved.bin").read_bytes() == content, f"{mib} MiB")

    def all(self, only):
        for work, sizes in ((self.records_read, [*COUNTS, MOST_READ]), (self.records_written, [*COUNTS, MOST_ADDED]),
                            (self.log, [*COUNTS, MOST_READ]), (self.firmware, MIB)):
            for size in sizes:
                if only in f"scaling {work.__name__} {size}":
                    yield from work(size)


def names(text):
    return re.findall(r"'(Sensor.*)'", text)
