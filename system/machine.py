"""A virtual machine with a real kernel and real KCS ports: boot it, run steps, read what they print."""

import contextlib
import functools
import lzma
import os
import re
import shutil
import socket
import subprocess
import sys
import tempfile
import time
from pathlib import Path

HERE = Path(__file__).resolve().parent
CACHE = Path(os.environ.get("QARN_CACHE", HERE.parent / ".cache"))
PEERS = ["/usr/bin/ipmitool", "/usr/sbin/ipmi-raw"]
FETCH = r"""set -e
package=$(apt-cache depends linux-image-amd64 | sed -n 's/.*Depends: \(linux-image-\)/\1/p')
apt-get -q -o APT::Sandbox::User=root download $package >&2
dpkg-deb --fsys-tarfile *.deb | tar -x --wildcards './boot/vmlinuz-*' '*/ipmi/ipmi_*.ko' '*/net/dummy.ko'
mkdir kernel
find . -name '*.ko' -exec mv {} kernel ';'
"""


def missing_tools():
    """Names of the programs without which no guest runs."""
    tools = ["qemu-system-x86_64", "busybox", "cpio", "ipmi_sim", "srec_cat", *PEERS]
    return [tool for tool in tools if not shutil.which(tool)]


def kernel():
    """Folder with vmlinux and the modules, fetched once as a Debian package and never installed."""
    folder = CACHE / "kernel"
    if not folder.exists():
        CACHE.mkdir(parents=True, exist_ok=True)
        with tempfile.TemporaryDirectory(dir=CACHE) as temp:
            fetched = subprocess.run(["sh", "-c", FETCH], cwd=temp, capture_output=True, text=True, timeout=600)
            if fetched.returncode != 0:
                sys.exit("whole-machine test not run: no kernel: " + fetched.stderr)
            packed = next(Path(temp).glob("boot/vmlinuz-*")).read_bytes()
            # unpacked here in one second, not in every guest in two
            image = lzma.LZMADecompressor().decompress(packed[packed.index(b"\xfd7zXZ\0"):])
            Path(temp, "kernel/vmlinux").write_bytes(image)
            Path(temp, "kernel").rename(folder)
    return folder


def archive(entries):
    """A cpio archive of {path in the guest: bytes, or the path of a file here}."""
    with tempfile.TemporaryDirectory() as folder:
        for inside, content in entries.items():
            path = Path(folder, inside.lstrip("/"))
            path.parent.mkdir(parents=True, exist_ok=True)
            path.write_bytes(content if isinstance(content, bytes) else Path(content).read_bytes())
        pack = "chmod -R a+rx * && find * | cpio -o -H newc -R 0:0 --quiet"
        return subprocess.run(pack, shell=True, cwd=folder, check=True, capture_output=True).stdout


def linked(programs):
    """Entries of an archive: the programs, and the shared libraries they are linked to."""
    libraries = re.findall(r"(/\S+) \(0x", subprocess.run(["ldd", *programs], capture_output=True, text=True).stdout)
    return {path: path for path in [*programs, *libraries]}


@functools.cache
def base():
    """The archive of what does not change from guest to guest."""
    modules = {f"lib/{module.name}": module for module in kernel().glob("*.ko")}
    return archive({"init": HERE / "init", "bin/load": HERE / "load", "bin/busybox": "/usr/bin/busybox",
                    "etc/passwd": b"root:x:0:0::/:/bin/sh\nnobody:x:65534:65534::/:/bin/sh\n",
                    "var/lib/freeipmi/ipckey": b""} | modules | linked(PEERS))


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


def qemu_bmc(**properties):
    """QEMU arguments for its own BMC."""
    return ["-device", ",".join(["ipmi-bmc-sim,id=bmc0"] + [f"{name}={value}" for name, value in properties.items()])]


@contextlib.contextmanager
def socket_bmc(command):
    """A BMC of its own process, which command(folder, port) starts on a loopback port; gives its QEMU arguments."""
    port, quiet = free_port(), subprocess.DEVNULL
    with tempfile.TemporaryDirectory(prefix="qarn-system-") as folder:
        words = command(Path(folder), port)
        process = subprocess.Popen(words, cwd=folder, stdin=quiet, stdout=quiet, stderr=quiet)
        try:
            # Never connect to see whether it listens: it would take the probe for the virtual machine.
            end = time.monotonic() + 10
            while f"0100007F:{port:04X} 00000000:0000 0A" not in Path("/proc/net/tcp").read_text():
                if time.monotonic() > end or process.poll() is not None:
                    raise RuntimeError(f"{words[0]} does not listen on port {port}")
                time.sleep(0.02)
            yield ["-chardev", f"socket,id=ipmi0,host=127.0.0.1,port={port},nodelay=on,reconnect=1",
                   "-device", "ipmi-bmc-extern,id=bmc0,chardev=ipmi0"]
        finally:
            process.kill()
            process.wait()


def both_paths(*rows):
    """The rows over our own KCS driver, then with --open over the kernel's."""
    opened = [("open " + step, command.replace("qarn ", "qarn --open "), *wanted) for step, command, *wanted in rows]
    return [*rows, ("load", "load", ""), *opened]


def boot(steps, bmc=(), port=0xCA2, files=(), options=(), seconds=300):
    """Boot a guest and run {step: shell text}; returns {step: what it printed}, with "status N" behind it if not 0.

    bmc, options: QEMU arguments, of the BMC whose KCS data register is at `port` and others; files: as for archive().
    """
    scripts = {f"steps/{number:03}": step.encode() for number, step in enumerate(steps.values())}
    if bmc:
        options = [*options, *bmc, "-device", f"isa-ipmi-kcs,bmc=bmc0,ioport={port:#x},irq=0"]
    with tempfile.TemporaryDirectory(prefix="qarn-system-") as folder:
        initrd, results = Path(folder, "initrd"), Path(folder, "results")
        initrd.write_bytes(base() + archive(dict(files) | scripts | {"port": hex(port).encode()}))
        results.touch()
        command = ["timeout", str(seconds), "qemu-system-x86_64", "-machine", "pc,accel=tcg", "-cpu", "qemu64",
                   "-m", "256", "-nodefaults", "-no-user-config", "-display", "none", "-no-reboot",
                   "-kernel", kernel() / "vmlinux", "-initrd", initrd,
                   "-append", "console=ttyS0 quiet panic=-1 tsc=reliable no_timer_check",
                   "-serial", "stdio", "-serial", f"file:{results}", *options]
        ended = subprocess.run(command, stdin=subprocess.DEVNULL, capture_output=True)
        # of each step that ended, the length of its text on a line, and the text
        text, seen = results.read_bytes().decode("latin-1"), {}
        for step in steps:
            length, _, text = text.partition("\n")
            if not length.isdigit() or len(text) < int(length):
                raise RuntimeError(f"guest ended at {step}: {ended.returncode} {ended.stderr} {ended.stdout[-600:]}")
            seen[step], text = text[:int(length)], text[int(length):]
        return seen
