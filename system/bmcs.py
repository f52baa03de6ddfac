"""The BMCs that a guest can have behind its KCS ports, started on a loopback socket with known contents."""

from machine import free_port, socket_bmc

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
LAN = """ip_addr:10.1.2.3
ip_addr_src:static
mac_addr:02:11:22:33:44:55
subnet_mask:255.255.255.0
default_gw_ip_addr:10.1.2.1
default_gw_mac_addr:02:00:00:00:00:01
backup_gw_ip_addr:10.1.2.2
backup_gw_mac_addr:02:00:00:00:00:02
"""


def ipmi_sim(records=(), fru=b"", sel=()):
    """The independent simulator with SDR records, an inventory and event log records."""
    def command(folder, port):
        (folder / "lan").write_text(LAN)
        (folder / "lancfg").write_text(LANCFG)
        (folder / "lan.conf").write_text(LAN_CONF.format(folder=folder, port=port, udp=free_port()))
        (folder / "fru").write_bytes(fru.ljust(4096, b"\0"))
        lines = ["main_sdr_add 0x20 0x" + record.hex(" ").replace(" ", " 0x") for record in records]
        lines += [f"sel_add 0x20 {record[2]} 0x" + record[3:].hex(" ").replace(" ", " 0x") for record in sel]
        (folder / "cmds").write_text(COMMANDS.format(contents="\n".join(lines)))
        return ["ipmi_sim", "-c", "lan.conf", "-f", "cmds", "-s", folder, "-n"]

    return socket_bmc(command)


def qarn_bmc(program, *arguments):
    """Our own simulated BMC."""
    return socket_bmc(lambda folder, port: [program, str(port), *arguments])
