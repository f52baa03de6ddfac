"""LAN settings shown and set, the host's address taken over, and scripts, against what ipmitool says."""

import re

from bmcs import MAC, data_file, ipmi_sim, qarn_bmc
from machine import UNLOAD_DRIVER, load_driver

# That simulator answers late on a busy machine, for it asks a program for each setting: ask again then.
PRINT = "for i in 1 2 3; do ipmitool lan print 1 >said; grep -q Source said && break; sleep 1; done; cat said"
# The independent simulator takes settings only between "set in progress" and commit.
SET = "qarn {open} -e 30 01 01 00 01 >/dev/null; qarn {open} {what} | tail -n +3; s=$?; " \
      "qarn {open} -e 30 01 01 00 02 >/dev/null; qarn {open} -e 30 01 01 00 00 >/dev/null; exit $s"
ALL = "-i 10.9.8.7 -n 255.255.0.0 -g 10.9.0.1 -m 02:aa:BB:0c:dd:0e --arp=1"
OTHERS = "-i 192.168.7.8 -n 255.255.255.128 -g 192.168.7.1 -m 02:00:00:00:00:09 --arp=0"
ARP = "ipmitool raw 0xc 2 1 10 0 0"


def change(what, path=""):
    return SET.format(what=what, open=path)


def settings(text):
    """{name: value} of `ipmitool lan print`."""
    return dict(re.findall(r"^(\w[^:]*?) *: (.*?) *$", text, re.M))


def display(lan_print):
    """What -d prints, from what ipmitool prints."""
    said = settings(lan_print)
    dhcp = "Enable" if said["IP Address Source"].startswith("DHCP") else "Disable"
    return (f"DHCP\t\t\t{dhcp}\nBMC IP Address:\t\t\t{said['IP Address']}\nMAC Address:\t\t\t"
            f"{said['MAC Address'].upper()}\nNet Mask:\t\t\t{said['Subnet Mask']}\n"
            f"Gate Way:\t\t\t{said['Default Gateway IP']}\n")


def check_settings(checks, bmc):
    seen = checks.boot({
        "show": "qarn -d", "load": load_driver(), "peer": PRINT, "open show": "qarn --open -d",
        "open set": change(ALL, "--open"), "peer all": PRINT, "arp": ARP,
        "open dhcp": change("--dhcp", "--open"), "peer dhcp": PRINT, "open show dhcp": "qarn --open -d",
        "unload": UNLOAD_DRIVER, "set": change(OTHERS), "show others": "qarn -d", "dhcp": change("--dhcp"),
        "show dhcp": "qarn -d", "mask": change("-n 255.0.0.0"), "load again": load_driver(), "peer others": PRINT,
        "arp off": ARP,
    }, bmc)
    for path in ("show", "open show"):
        checks.holds(seen[path].out, display(seen["peer"].out), path)
    said = settings(seen["peer all"].out)
    checks.same([said[name] for name in ("IP Address", "Subnet Mask", "Default Gateway IP", "MAC Address",
                                         "IP Address Source")],
                ["10.9.8.7", "255.255.0.0", "10.9.0.1", "02:aa:bb:0c:dd:0e", "Static Address"], "set with --open")
    for path in ("open set", "set", "mask"):
        checks.same(seen[path].out, "", path + " says nothing")
    checks.same(seen["open dhcp"].out, "enable DHCP\n", "DHCP says so")
    checks.same(settings(seen["peer dhcp"].out)["IP Address Source"], "DHCP Address", "DHCP with --open")
    checks.holds(seen["open show dhcp"].out, display(seen["peer dhcp"].out), "display with DHCP")
    checks.holds(seen["show others"].out, "DHCP\t\t\tDisable\nBMC IP Address:\t\t\t192.168.7.8\nMAC Address:\t\t\t"
                 "02:00:00:00:00:09\nNet Mask:\t\t\t255.255.255.128\nGate Way:\t\t\t192.168.7.1\n", "set over KCS")
    checks.holds(seen["show dhcp"].out, "DHCP\t\t\tEnable\n", "DHCP over KCS")
    said = settings(seen["peer others"].out)
    checks.same((said["Subnet Mask"], said["IP Address Source"]), ("255.0.0.0", "Static Address"), "a mask ends DHCP")
    return seen


def settings_of_independent_simulator(checks):
    with ipmi_sim() as bmc:
        check_settings(checks, bmc)


def settings_of_our_simulator(checks):
    with qarn_bmc(checks.bmc) as bmc:
        seen = check_settings(checks, bmc)
    checks.same(seen["arp"].out.split()[-1:], ["01"], "ARP on")
    checks.same(seen["arp off"].out.split()[-1:], ["00"], "ARP off")


def host_address(checks):
    """-a with a card of the BMC's MAC address: without an IPv4 address, with one, and with two such cards."""
    show = "qarn -a -d | tail -n +3"
    card = "ip link set {name} address {mac}; ip link set {name} up"
    steps = {
        "mac": f"qarn -m {MAC} --dhcp", "before": "qarn -d | tail -n +3", "none": show,
        "other card": "insmod /lib/dummy.ko numdummies=3; " + card.format(name="dummy0", mac="02:00:00:00:00:77")
                      + "; ip addr add 10.7.7.7/24 dev dummy0; " + show,
        "no address": card.format(name="dummy1", mac=MAC) + "; " + show,
        "address": "ip addr add 10.4.5.6/24 dev dummy1; " + show,
        "two cards": card.format(name="dummy2", mac=MAC) + "; ip addr add 10.8.8.8/24 dev dummy2; " + show,
        "order": "sed -n 's/^ *\\(dummy[12]\\):.*/\\1/p' /proc/net/dev", "load": load_driver(),
        "open": "qarn --open -i 1.2.3.4 >/dev/null; qarn --open -a -d | tail -n +3", "peer": PRINT,
    }
    with qarn_bmc(checks.bmc) as bmc:
        seen = checks.boot(steps, bmc)
    checks.holds(seen["before"].out, f"MAC Address:\t\t\t{MAC}\n", "the BMC has its MAC address")
    for step in ("none", "other card", "no address"):
        checks.same(seen[step].out, seen["before"].out, step + " changes nothing")
    taken = re.sub("Address:\t\t\t.*", "Address:\t\t\t10.4.5.6", seen["before"].out, count=1)
    checks.same(seen["address"].out, taken, "the host's address")
    checks.holds(seen["two cards"].out, "DHCP\t\t\tDisable\n", "the address was set as a static one")
    first = {"dummy1": "10.4.5.6", "dummy2": "10.8.8.8"}[seen["order"].out.split()[0]]
    for step in ("two cards", "open"):
        checks.holds(seen[step].out, f"BMC IP Address:\t\t\t{first}\n", step + ": the first listed")
    checks.holds(seen["open"].out, display(seen["peer"].out), "the peer sees it")


def scripts(checks):
    """Each request of a script and its answer; on the KCS path a request for another controller is bridged.

    The answer of a bridged request carries the LUN from which it was sent, 2.
    """
    script = b"# a remark\n20 18 01 // Get Device ID\n\n301801\n20 18 '\x7f'\n20 18\n30 18 46 01\n"
    with ipmi_sim() as bmc:
        seen = checks.boot({"kcs": "qarn --cfg script", "none": "qarn --cfg nothing", "load": load_driver(),
                            "open": "qarn --open --cfg script", "sample": "qarn --open --cfg sample.cfg",
                            "bmc": "ipmitool raw 6 1",
                            "target": "ipmitool -t 0x30 raw 6 1", "refused": "ipmitool -t 0x30 raw 6 0x46 1"},
                           bmc, files={"work/script": script, "work/sample.cfg": data_file("sample.cfg")})
    bmc_id, target_id = ("".join(byte.upper() + " " for byte in seen[name].out.split()) for name in ("bmc", "target"))
    direct = f"send: 20 18 01 \nrecv: 20 1C 01 00 {bmc_id}\n\n"
    checks.holds(seen["kcs"].out, direct + f"send: 30 18 01 \nrecv: 30 1E 01 00 {target_id}\n\n", "bridged over KCS")
    checks.holds(seen["open"].out, direct + f"send: 30 18 01 \nrecv: 20 1C 01 00 {bmc_id}\n\n", "no bridge with --open")
    code = re.search(r"rsp=0x(..)", seen["refused"].err)
    checks.that(code and f"send: 30 18 46 01 \nrecv: 30 1E 46 {code[1].upper()} \n\n" in seen["kcs"].out,
                "a bridged refusal", seen["kcs"].out[-200:] + seen["refused"].err)
    for path in ("kcs", "open"):
        checks.holds(seen[path].out, "send: 20 18 7F \nrecv: 20 1C 7F C1 \n\n", path + ": a refused request")
        checks.same((seen[path].out.count("send: "), seen[path].status), (4, 0), path + ": too short a line")
    checks.same((seen["none"].out.count("\n"), seen["none"].status), (2, 0), "no script, no word")
    answers = re.findall(r"^send: .*\nrecv: 20 \S+ \S+ \S\S .*\n\n", seen["sample"].out, re.M)
    checks.that(0 < len(answers) == seen["sample"].out.count("send: "), "the sample script is answered")
