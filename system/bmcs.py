"""The BMCs that a guest can have behind its KCS ports, started on a loopback socket with known contents."""

import os
from pathlib import Path

from machine import SocketBmc, free_port

MAC = "02:11:22:33:44:55"
LAN = {"ip_addr": "10.1.2.3", "ip_addr_src": "static", "mac_addr": MAC, "subnet_mask": "255.255.255.0",
       "default_gw_ip_addr": "10.1.2.1", "default_gw_mac_addr": "02:00:00:00:00:01",
       "backup_gw_ip_addr": "10.1.2.2", "backup_gw_mac_addr": "02:00:00:00:00:02"}
LAN_CONF = """name "bench"
set_working_mc 0x20
startlan 1
  addr 127.0.0.1 {udp}
  priv_limit admin
  allowed_auths_callback none md2 md5 straight
  allowed_auths_user none md2 md5 straight
  allowed_auths_operator none md2 md5 straight
  allowed_auths_admin none md2 md5 straight
  guid a123456789abcdefa123456789abcdef
  lan_config_program "{folder}/lancfg"
endlan
serial kcs 127.0.0.1 {port} codec VM
user 1 true "" "" user 10 none md2 md5 straight
user 2 true "operator" "second" operator 10 none md2 md5 straight
user 3 true "administrator16c" "third" admin 10 none md2 md5 straight
"""
COMMANDS = """mc_setbmc 0x20
mc_add 0x20 0x21 no-device-sdrs 0x03 9 0x12 0x8f 0x1291 0xf02
mc_add 0x30 0x01 no-device-sdrs 0x02 3 0x45 0x00 0x0157 0x003
"""
# The daemon's LAN settings are those of a program: one file a setting.
LANCFG = """#!/bin/sh
cd {folder}/lan || exit 1
action=$1; shift
case $action in
get) for name; do echo "$name:$(cat $name)"; done ;;
set) while [ $# -gt 1 ]; do echo "$2" > $1; shift 2; done ;;
esac
"""


def hex_bytes(data):
    return " ".join(f"0x{byte:02x}" for byte in data)


def ipmi_sim(records=(), fru=None, sel=(), sel_room=1000):
    """The independent simulator with SDR records, an inventory and event log records."""

    def command(folder, port):
        (folder / "lan").mkdir()
        for name, value in LAN.items():
            (folder / "lan" / name).write_text(value + "\n")
        (folder / "lancfg").write_text(LANCFG.format(folder=folder))
        os.chmod(folder / "lancfg", 0o755)
        (folder / "lan.conf").write_text(LAN_CONF.format(folder=folder, port=port, udp=free_port()))
        lines = [COMMANDS, f"sel_enable 0x20 {sel_room} 0x0a\n"]
        lines += [f"main_sdr_add 0x20 {hex_bytes(record)}\n" for record in records]
        if fru is not None:
            (folder / "fru").write_bytes(fru.ljust(1024, b"\0"))
            lines.append(f'mc_add_fru_data 0x20 0 1024 file 0 "{folder}/fru"\n')
        lines += [f"sel_add 0x20 {record[2]} {hex_bytes(record[3:])}\n" for record in sel]
        lines += ["mc_enable 0x20\nmc_enable 0x30\n"]
        (folder / "cmds").write_text("".join(lines))
        return ["ipmi_sim", "-c", folder / "lan.conf", "-f", folder / "cmds", "-s", folder, "-n"]

    return SocketBmc(command)


def qarn_bmc(program, *arguments):
    """Our own simulated BMC."""
    return SocketBmc(lambda folder, port: [program, str(port), *arguments])


def entry(number):
    """A 16-byte event log record; the BMC gives it its ID."""
    event = bytes([0x20, 0, 4, 1, number & 0xFF, 1, 0x57, number >> 8, 0xFF])
    return bytes([0, 0, 2]) + number.to_bytes(4, "little") + event


def sel_bytes(text):
    """The records of a log dump."""
    return bytes.fromhex("".join(line for line in text.splitlines() if not line.startswith("_")))


def data_file(name):
    """A file that comes with the program."""
    return (Path(__file__).parent.parent / "data" / name).read_bytes()


def record_set(count=40):
    """Sensor records of every type with a name, names of 0 to 16 characters, and one of a maker's own type."""
    # type: bytes before the name, the last of which holds the name's length
    fixed = {0x01: 43, 0x02: 27, 0x03: 12, 0x10: 11, 0x11: 11, 0x12: 11}
    records = [bytes([1, 0, 0x51, 0xC0, 9]) + bytes(range(1, 10))]
    for number in range(2, count + 1):
        kind = list(fixed)[number % len(fixed)] if number != 3 else 0x02
        name = (f"Fan {number:02}" + "-more-to-it"[:number % 12])[:0 if number == 5 else 16].encode()
        # owner 0x20, LUN 0, sensor number; then values that tell the bytes of one record from those of another
        body = bytes([0x20, 0, number]) + bytes((number + at) & 0x7F for at in range(fixed[kind] - 4))
        body += bytes([0xC0 | len(name)]) + name
        records.append(number.to_bytes(2, "little") + bytes([0x51, kind, len(body)]) + body)
    return records


def sdr_bytes(text):
    """The records of an SDR dump."""
    records = []
    for line in text.splitlines():
        value = line.partition("//")[0].strip()
        if value.startswith("_SDR_TYPE"):
            records.append(b"")
        elif value.startswith("'"):
            records[-1] += value.strip("'").encode("latin-1")
        elif value and value[0] not in "_)":
            records[-1] += bytes.fromhex(value)
    return records
