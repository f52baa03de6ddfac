"""A virtual machine with a real kernel, real KCS ports and a BMC: boot it, run steps, read their output."""

import contextlib
import functools
import lzma
import os
import re
import socket
import subprocess
import tempfile
import time
from pathlib import Path

HERE = Path(__file__).resolve().parent
CACHE = Path(os.environ.get("QARN_CACHE", HERE.parent / ".cache"))
PEERS = ["/usr/bin/ipmitool", "/usr/sbin/ipmi-raw", "/usr/sbin/ipmi-fru"]
TOOLS = ["qemu-system-x86_64", "busybox", "cpio", "ipmi_sim", "srec_cat", *PEERS]
FETCH = r"""set -e
package=$(apt-cache depends linux-image-amd64 | sed -n 's/.*Depends: \(linux-image-\)/\1/p')
apt-get -q -o APT::Sandbox::User=root download $package >&2
dpkg-deb --fsys-tarfile *.deb | tar -x --transform 's:.*/:kernel/:' --wildcards '*/vmlinuz-*' '*/ipmi_*.ko' '*/dummy.ko'
"""
MAC = "02:11:22:33:44:55"
LAN_CONF = """name "bench"
set_working_mc 0x20
startlan 1
  addr 127.0.0.1 {udp}
  lan_config_program "sh {folder}/lancfg"
endlan
serial kcs 127.0.0.1 {port} codec VM
"""
COMMANDS = """mc_setbmc 0x20
mc_add 0x20 0x21 no-device-sdrs 0x03 9 0x12 0x8f 0x1291 0xf02
mc_add 0x30 0x01 no-device-sdrs 0x02 3 0x45 0x00 0x0157 0x003
sel_enable 0x20 1000 0x0a
mc_add_fru_data 0x20 0 4096 file 0 "fru"
{contents}
mc_enable 0x20
mc_enable 0x30
"""
# The simulator's LAN settings are those of a program, which keeps them in a file.
LANCFG = """case $1 in
get) shift; for name; do grep "^$name:" lan; done ;;
set) while [ $# -gt 2 ]; do sed -i "s/^$2:.*/$2:$3/" lan; shift 2; done ;;
esac
"""
LAN = """ip_addr:10.1.2.3 ip_addr_src:static mac_addr:02:11:22:33:44:55 subnet_mask:255.255.255.0
default_gw_ip_addr:10.1.2.1 default_gw_mac_addr:02:00:00:00:00:01
backup_gw_ip_addr:10.1.2.2 backup_gw_mac_addr:02:00:00:00:00:02
"""


def kernel():
    """Folder with vmlinux and the modules, fetched once as a Debian package and never installed."""
    folder = CACHE / "kernel"
    if not folder.exists():
        CACHE.mkdir(parents=True, exist_ok=True)
        with tempfile.TemporaryDirectory(dir=CACHE) as temp:
            subprocess.run(["sh", "-c", FETCH], cwd=temp, check=True, timeout=600)
            packed = next(Path(temp).glob("kernel/vmlinuz-*")).read_bytes()
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
    return archive({"init": HERE / "init", "bin/load": HERE / "load", "bin/busybox": "/usr/bin/busybox",
                    "etc/passwd": b"root:x:0:0::/:/bin/sh\nnobody:x:65534:65534::/:/bin/sh\n",
                    "var/lib/freeipmi/ipckey": b""} | linked(PEERS) |
                   {f"lib/{module.name}": module for module in kernel().glob("*.ko")})


def free_port():
    with socket.create_server(("127.0.0.1", 0)) as probe:
        return probe.getsockname()[1]


def qemu_bmc(**properties):
    """QEMU arguments for its own BMC."""
    return ["-device", ",".join(["ipmi-bmc-sim,id=bmc0"] + [f"{name}={value}" for name, value in properties.items()])]


@contextlib.contextmanager
def socket_bmc(command):
    """A BMC of its own process, which command(folder, port) starts on a loopback port; gives its QEMU arguments."""
    port, quiet = free_port(), subprocess.DEVNULL
    with tempfile.TemporaryDirectory(prefix="qarn-system-") as folder, subprocess.Popen(
            command(Path(folder), port), cwd=folder, stdin=quiet, stdout=quiet, stderr=quiet) as process:
        try:
            # Never connect to see whether it listens: it would take the probe for the virtual machine.
            end = time.monotonic() + 10
            while f"0100007F:{port:04X} 00000000:0000 0A" not in Path("/proc/net/tcp").read_text():
                if time.monotonic() > end or process.poll() is not None:
                    raise RuntimeError(f"{process.args[0]} does not listen on port {port}")
                time.sleep(0.02)
            yield ["-chardev", f"socket,id=ipmi0,host=127.0.0.1,port={port},nodelay=on,reconnect=1",
                   "-device", "ipmi-bmc-extern,id=bmc0,chardev=ipmi0"]
        finally:
            process.kill()  # and waited for


def ipmi_sim(records=(), fru=b"", sel=()):
    """The independent simulator with SDR records, an inventory and event log records."""
    def command(folder, port):
        (folder / "lan").write_text(LAN.replace(" ", "\n"))
        (folder / "lancfg").write_text(LANCFG)
        (folder / "lan.conf").write_text(LAN_CONF.format(folder=folder, port=port, udp=free_port()))
        (folder / "fru").write_bytes(fru.ljust(4096, b"\0"))
        lines = ["main_sdr_add 0x20 0x" + record.hex(" ").replace(" ", " 0x") for record in records]
        lines += [f"sel_add 0x20 {record[2]} 0x" + record[3:].hex(" ").replace(" ", " 0x") for record in sel]
        (folder / "cmds").write_text(COMMANDS.format(contents="\n".join(lines)))
        return ["ipmi_sim", "-c", "lan.conf", "-f", "cmds", "-s", folder, "-n"]

    return socket_bmc(command)


def qarn_bmc(program, *arguments, faults=""):
    """Our own simulated BMC."""
    return socket_bmc(lambda folder, port: ["env", "QARN_SIM_FAULTS=" + faults, program, str(port), *arguments])


def both_paths(*rows):
    """The rows over our own KCS driver, then with --open over the kernel's."""
    opened = [("open " + step, command.replace("qarn ", "qarn --open "), *wanted) for step, command, *wanted in rows]
    return [*rows, ("load", "load", ""), *opened]


def boot(steps, bmc=(), port=0xCA2, files=(), seconds=300):
    """Boot a guest and run {step: shell text}; returns {step: what it printed}, then "status N" if it is not 0.
    bmc: QEMU arguments, of a BMC whose KCS data register is to be at `port`; files: as for archive()."""
    scripts = {f"steps/{number:03}": step.encode() for number, step in enumerate(steps.values())}
    kcs = ["-device", f"isa-ipmi-kcs,bmc=bmc0,ioport={port:#x},irq=0"] if bmc else []
    with tempfile.TemporaryDirectory(prefix="qarn-system-") as folder:
        initrd, results = Path(folder, "initrd"), Path(folder, "results")
        initrd.write_bytes(base() + archive(dict(files) | scripts | {"port": hex(port).encode()}))
        results.touch()
        command = ["timeout", str(seconds), "qemu-system-x86_64", "-machine", "pc,accel=tcg", "-cpu", "qemu64",
                   "-m", "256", "-nodefaults", "-no-user-config", "-display", "none", "-no-reboot",
                   "-kernel", kernel() / "vmlinux", "-initrd", initrd,
                   "-append", "console=ttyS0 quiet panic=-1 tsc=reliable no_timer_check",
                   "-serial", "stdio", "-serial", f"file:{results}", *bmc, *kcs]
        ended = subprocess.run(command, stdin=subprocess.DEVNULL, capture_output=True)
        # of each step that ended, the length of its text on a line, and the text
        text, seen = results.read_bytes().decode("latin-1"), {}
        for step in steps:
            length, _, text = text.partition("\n")
            if not length.isdigit() or len(text) < int(length):
                raise RuntimeError(f"guest ended at {step}: {ended.returncode} {ended.stderr} {ended.stdout[-600:]}")
            seen[step], text = text[:int(length)], text[int(length):]
        return seen
