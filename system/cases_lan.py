"""LAN settings shown and set, and the host's address taken over, against what ipmitool says."""

import re

from machine import MAC, ipmi_sim, qarn_bmc

# That simulator answers late on a busy machine, for it asks a program for each setting: ask again then.
PEER = "for i in 1 2 3; do ipmitool lan print 1 >said; grep -q Source said && break; sleep 1; done; cat said"
ONE = dict(ip="192.168.7.8", mac="02:00:00:00:00:09", mask="255.255.255.128", gateway="192.168.7.1")
OTHER = dict(ip="10.9.8.7", mac="02:AA:BB:0C:DD:0E", mask="255.255.0.0", gateway="10.9.0.1")


def text(ip, mac, mask, gateway, dhcp="Disable"):
    """What -d prints."""
    return (f"DHCP\t\t\t{dhcp}\nBMC IP Address:\t\t\t{ip}\nMAC Address:\t\t\t{mac}\nNet Mask:\t\t\t{mask}\n"
            f"Gate Way:\t\t\t{gateway}\n")


def as_shown(lan_print):
    said = dict(re.findall(r"^(\w[^:]*?) *: (.*?) *$", lan_print, re.M))
    return text(said["IP Address"], said["MAC Address"].upper(), said["Subnet Mask"], said["Default Gateway IP"],
                "Enable" if said["IP Address Source"].startswith("DHCP") else "Disable")


def test_settings(checks):
    """Set over either path, shown over the same and by the peer."""
    rows = []
    for qarn, values in (("qarn", ONE), ("qarn --open", OTHER)):
        # that simulator takes settings only between "set in progress" and commit
        begin, commit, end = (f"{qarn} -e 30 01 01 00 0{state} >said; " for state in (1, 2, 0))
        change = f"{begin} {qarn} {{}} | tail -n +3; {commit} {end}"
        show, dhcp = f"{qarn} -d | tail -n +3", text(**values, dhcp="Enable")
        addresses = f"-i {values['ip']} -n {values['mask']} -g {values['gateway']} -m {values['mac'].lower()}"
        rows += [(f"{qarn} {name}", *row) for name, *row in (
            ("dhcp first", change.format("--dhcp"), "enable DHCP\n"), ("set", change.format(addresses), ""),
            ("shown", show, text(**values)), ("dhcp", change.format("--dhcp"), "enable DHCP\n"),
            ("dhcp shown", show, dhcp), ("load", "load", None), ("peer", PEER, dhcp, as_shown))]
    with ipmi_sim() as bmc:
        checks.guest(bmc, rows)


def test_host_address(checks):
    """-a takes over the address of the card with the BMC's MAC address, when there is one, and when it has one."""
    show = "qarn -a -d | tail -n +3"
    first, taken = (ONE | dict(mac=MAC, ip=ip) for ip in (ONE["ip"], "10.4.5.6"))
    with qarn_bmc(checks.bmc) as bmc:
        checks.guest(bmc, [
            ("set", "qarn -i {ip} -n {mask} -g {gateway} -m {mac} >said; qarn --dhcp".format(**first), None),
            ("no card", "insmod /lib/dummy.ko numdummies=2; ip link set dummy0 up; ip addr add 10.7.7.7/24 dev dummy0; "
             + show, text(**first, dhcp="Enable")),
            ("no address", f"ip link set dummy1 address {MAC} up; " + show, text(**first, dhcp="Enable")),
            ("address", "ip addr add 10.4.5.6/24 dev dummy1; " + show, text(**taken, dhcp="Enable")),
            ("static", "qarn -d | tail -n +3", text(**taken)), ("load", "load", ""),
            ("open", "qarn --open -i 1.2.3.4 >said; " + show.replace("qarn", "qarn --open"), text(**taken)),
            ("peer", PEER, text(**taken), as_shown),
        ])
