"""A virtual machine with a real kernel and real KCS ports: build its files, boot it, run steps, read the results."""

import hashlib
import lzma
import os
import re
import shutil
import socket
import subprocess
import tempfile
import time
from dataclasses import dataclass
from pathlib import Path

HERE = Path(__file__).resolve().parent
CACHE = Path(os.environ.get("QARN_CACHE", HERE.parent / ".cache"))
QEMU = "qemu-system-x86_64"
IPMITOOL = "/usr/bin/ipmitool"
FREEIPMI = ["/usr/sbin/" + name for name in ("ipmi-raw", "ipmi-sel", "ipmi-fru", "ipmi-sensors", "ipmi-config")]
MODULES = ("char/ipmi/ipmi_msghandler.ko", "char/ipmi/ipmi_devintf.ko", "char/ipmi/ipmi_si.ko", "net/dummy.ko")
XZ_MAGIC = b"\xfd7zXZ\0"
VENDORS = "/usr/share/misc/enterprise-numbers.txt"

# Steps that give the ports to the kernel's driver and take them back.
LOAD_DRIVER = ("for m in msghandler devintf; do grep -q ipmi_$m /proc/modules || insmod /lib/ipmi_$m.ko || exit; done; "
               "insmod /lib/ipmi_si.ko type=kcs ports=0x{port:x} regspacings=1 irqs=0; "
               "for i in $(seq 100); do [ -c /dev/ipmi0 ] && exit 0; usleep 50000; done; exit 1")
UNLOAD_DRIVER = "rmmod ipmi_si"


class MachineError(Exception):
    """The guest could not be built, booted or heard to its end."""


@dataclass
class Result:
    """One step: exit status (-1 = killed after its time), cost, texts."""
    status: int
    cpu_us: int
    rss_kb: int
    wall_us: int
    out: str
    err: str

    @property
    def raw(self):
        """The output as bytes, for files that are brought back."""
        return self.out.encode("latin-1")


def load_driver(port=0xCA2):
    return LOAD_DRIVER.format(port=port)


def missing_tools():
    """Names of the programs without which no guest runs."""
    tools = [QEMU, "ipmi_sim", IPMITOOL, FREEIPMI[0], "busybox", "srec_cat", "c++", "dpkg-deb"]
    return [tool for tool in tools if not shutil.which(tool)]


def kernel():
    """Folder with vmlinux and the modules, fetched once as a Debian package and never installed."""
    folder = CACHE / "kernel"
    if (folder / "vmlinux").exists():
        return folder
    with tempfile.TemporaryDirectory(dir=CACHE) as temp:
        depends = subprocess.run(["apt-cache", "depends", "linux-image-amd64"], capture_output=True, text=True)
        package = re.search(r"Depends: (linux-image-\S+)", depends.stdout)
        if not package:
            raise MachineError("apt-cache knows no linux-image-amd64")
        fetched = subprocess.run(["apt-get", "-q", "-o", "APT::Sandbox::User=root", "download", package[1]],
                                 cwd=temp, capture_output=True, text=True, timeout=600)
        debs = list(Path(temp).glob("*.deb"))
        if not debs:
            raise MachineError("apt-get download: " + fetched.stderr.strip())
        wanted = ["./boot/vmlinuz-*"] + ["*/kernel/drivers/" + name for name in MODULES]
        subprocess.run(f"dpkg-deb --fsys-tarfile {debs[0]} | tar -x --wildcards " + " ".join(f"'{w}'" for w in wanted),
                       shell=True, cwd=temp, check=True)
        ready = Path(temp) / "ready"
        ready.mkdir()
        for name in MODULES:
            next(Path(temp).glob("**/" + name)).rename(ready / Path(name).name)
        packed = next(Path(temp).glob("boot/vmlinuz-*")).read_bytes()
        image = packed.find(XZ_MAGIC)  # unpacked here in one second, not in every guest in two
        (ready / "vmlinux").write_bytes(lzma.LZMADecompressor().decompress(packed[image:]) if image > 0 else packed)
        shutil.rmtree(folder, ignore_errors=True)
        ready.rename(folder)
    return folder


def cpio(entries):
    """A cpio archive (newc) of {path: bytes | str for a link | None for a folder}; folders are added as needed."""
    entries = {path.lstrip("/"): content for path, content in entries.items()}
    for path in list(entries):
        for parent in list(Path(path).parents)[:-1]:
            entries.setdefault(str(parent), None)
    out = bytearray()

    def add(name, mode, data, number):
        header = [number, mode, 0, 0, 1, 0, len(data), 0, 0, 0, 0, len(name) + 1, 0]
        out.extend(b"070701" + b"".join(b"%08X" % field for field in header) + name.encode() + b"\0")
        out.extend(bytes(-len(out) % 4) + data)
        out.extend(bytes(-len(out) % 4))

    for number, (path, content) in enumerate(sorted(entries.items()), 1):
        if content is None:
            add(path, 0o040755, b"", number)
        elif isinstance(content, str):
            add(path, 0o120777, content.encode(), number)
        else:
            add(path, 0o100755, content, number)
    add("TRAILER!!!", 0, b"", 0)
    return bytes(out) + bytes(-len(out) % 512)


def program(path, entries):
    """Add a program and the shared libraries it is linked to."""
    entries[str(path)] = Path(path).read_bytes()
    linked = subprocess.run(["ldd", path], capture_output=True, text=True).stdout
    for library in re.findall(r"(/\S+) \(0x", linked):
        entries[library] = Path(library).read_bytes()


def base_archive():
    """Path of the cached archive with everything that does not change from run to run."""
    CACHE.mkdir(parents=True, exist_ok=True)
    folder = kernel()
    tools = [IPMITOOL, *FREEIPMI]
    stamp = [(HERE / "init.cpp").read_bytes(), Path(__file__).read_bytes()]
    stamp += [f"{tool} {os.stat(tool).st_mtime_ns}".encode() for tool in ["/usr/bin/busybox", *tools]]
    archive = CACHE / f"base-{hashlib.sha256(b'|'.join(stamp)).hexdigest()[:16]}.cpio"
    if archive.exists():
        return archive
    with tempfile.TemporaryDirectory(dir=CACHE) as temp:
        subprocess.run(["c++", "-std=c++20", "-Os", "-Wall", "-Wextra", "-static", "-s", "-o", temp + "/init",
                        HERE / "init.cpp"], check=True)
        entries = {"init": Path(temp, "init").read_bytes(), "bin/busybox": Path("/usr/bin/busybox").read_bytes()}
        for name in ("proc", "sys", "dev", "tmp", "work"):
            entries[name] = None
        for applet in subprocess.run(["busybox", "--list"], capture_output=True, text=True).stdout.split():
            entries.setdefault("bin/" + applet, "busybox")
        for module in MODULES:
            entries["lib/" + Path(module).name] = (folder / Path(module).name).read_bytes()
        for tool in tools:
            program(tool, entries)
        entries["etc/passwd"] = b"root:x:0:0::/:/bin/sh\nnobody:x:65534:65534::/:/bin/sh\n"
        entries["var/lib/freeipmi/ipckey"] = b""
        for old in CACHE.glob("base-*.cpio"):
            old.unlink(missing_ok=True)
        Path(temp, "base").write_bytes(cpio(entries))
        Path(temp, "base").rename(archive)
    return archive


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


def wait_for_listener(port, process, seconds=10):
    """Wait until the port listens. Never connect: a BMC would take the probe for the virtual machine."""
    end = time.monotonic() + seconds
    while time.monotonic() < end and process.poll() is None:
        if f"0100007F:{port:04X} 00000000:0000 0A" in Path("/proc/net/tcp").read_text():
            return
        time.sleep(0.02)
    raise MachineError(f"{process.args[0]} does not listen on port {port}")


def qemu_bmc(**properties):
    """QEMU arguments for its own BMC."""
    return ["-device", ",".join(["ipmi-bmc-sim,id=bmc0"] + [f"{name}={value}" for name, value in properties.items()])]


class SocketBmc:
    """A BMC of its own process on a loopback socket; `with` starts and ends it and gives its QEMU arguments."""

    def __init__(self, command):
        self.folder = Path(tempfile.mkdtemp(prefix="qarn-system-"))
        self.port = free_port()
        self.command = command

    def __enter__(self):
        with open(self.folder / "output", "wb") as output:
            self.process = subprocess.Popen(self.command(self.folder, self.port), cwd=self.folder,
                                            stdin=subprocess.DEVNULL, stdout=output, stderr=output)
        try:
            wait_for_listener(self.port, self.process)
        except MachineError:
            self.__exit__()
            raise
        return ["-chardev", f"socket,id=ipmi0,host=127.0.0.1,port={self.port},nodelay=on,reconnect=1",
                "-device", "ipmi-bmc-extern,id=bmc0,chardev=ipmi0"]

    def __exit__(self, *_):
        self.process.kill()
        self.process.wait()
        shutil.rmtree(self.folder, ignore_errors=True)


def parse_results(text, names):
    results = {}
    for name in names:
        line, _, text = text.partition(b"\n")
        fields = line.split()
        if len(fields) != 6:
            break
        status, cpu, rss, wall, out, err = map(int, fields)
        results[name] = Result(status, cpu, rss, wall, text[:out].decode("latin-1"),
                               text[out:out + err].decode("latin-1"))
        text = text[out + err:]
    return results, text.startswith(b"end")


def boot(steps, bmc=(), port=0xCA2, files=None, programs=(), options=(), seconds=120):
    """Boot a guest and run {name: shell text or argument list}; returns {name: Result}.

    bmc: QEMU arguments of the BMC whose KCS data register is at `port`; none = a machine without interface.
    files: {path in the guest: bytes}; programs: {path in the guest: path here}; options: more arguments for QEMU.
    """
    entries = dict(files or {})
    for inside, here in dict(programs).items():
        entries[inside] = Path(here).read_bytes()
    commands = [step if isinstance(step, list) else ["sh", "-c", step] for step in steps.values()]
    entries["steps"] = b"".join("\0".join(command).encode() + b"\0\0" for command in commands)
    with tempfile.TemporaryDirectory(prefix="qarn-system-") as temp:
        folder = Path(temp)
        (folder / "initrd").write_bytes(base_archive().read_bytes() + cpio(entries))
        command = [QEMU, "-machine", "pc,accel=tcg", "-cpu", "qemu64", "-m", "256", "-nodefaults", "-no-user-config",
                   "-display", "none", "-no-reboot", "-kernel", kernel() / "vmlinux", "-initrd", folder / "initrd",
                   "-append", "console=ttyS0 quiet panic=-1 tsc=reliable no_timer_check",
                   "-serial", f"file:{folder}/console", "-serial", f"file:{folder}/results", *options]
        if bmc:
            command += [*bmc, "-device", f"isa-ipmi-kcs,bmc=bmc0,ioport={port:#x},irq=0"]
        try:
            ended = subprocess.run(command, timeout=seconds, stdin=subprocess.DEVNULL, capture_output=True, text=True)
            trouble = ended.stderr.strip()
        except subprocess.TimeoutExpired:
            trouble = f"killed after {seconds} s"
        path = folder / "results"
        results, whole = parse_results(path.read_bytes() if path.exists() else b"", steps)
        if not whole:
            console = (folder / "console").read_text("latin-1")[-600:] if (folder / "console").exists() else ""
            raise MachineError(f"guest ended after {len(results)} of {len(steps)} steps: {trouble}\n{console}")
        return results
