"""Identity, raw requests, users and passwords, on both paths, against what ipmitool says."""

import re

from bmcs import ipmi_sim, qarn_bmc
from machine import load_driver, qemu_bmc

BANNER = "BMC Utility on Linux version 1.1.3\n"
NO_DEVICE = BANNER + "Could not open device at /dev/ipmi0 or /dev/ipmi/0 or /dev/ipmidev/0\n"
NO_RIGHT = "have no right to change I/O privilege level\n"
SHOW = "qarn --nrst"  # no action: the run ends after the identity
OPEN = "qarn --open --nrst"
OURS = dict(fwrev1=5, fwrev2=0x23, mfg_id=0x1291, product_id=0xF02)


def identity(mc_info):
    """Our output of a run without action, from what `ipmitool mc info` prints."""
    field = dict(re.findall(r"^(\S[^:]*?) *: (\S+)", mc_info, re.M))
    return BANNER + (f"IPMI Ver: {field['IPMI Version']}\tFirmware Rev: {field['Firmware Revision']}\t"
                     f"Vendor ID: {field['Manufacturer ID']}\tPdt ID: {field['Product ID']}\n")


def raw(line, netfn, command):
    """The line our -e prints, from ipmitool raw's list of data bytes."""
    data = line.split()
    return f"response is {netfn:02X} {command:02X} 00 " + "".join(f"{byte.upper()} " for byte in data) + "\n"


def qemu_on_second_pair(checks):
    seen = checks.boot({
        "kcs": SHOW, "raw": "qarn -e 18 01", "refused": "qarn -e 0x18 7f", "debug": "qarn --debug",
        "nobody": f"su nobody -c '{SHOW}'", "no device": OPEN,
        "update": "qarn -u image", "save": "qarn --save image", "verify": "qarn --verify image",
        "load": load_driver(), "open": OPEN, "open raw": "qarn --open -e 18 01",
        "open refused": "qarn --open -e 18 7f", "open debug": "qarn --open --debug",
        "open nobody": f"su nobody -c '{OPEN}'", "mc": "ipmitool mc info", "mc raw": "ipmitool raw 6 1",
    }, qemu_bmc(**OURS))
    line = identity(seen["mc"].out)
    for path in ("kcs", "open"):
        checks.ended(seen[path], line, 0, path + " identity")
    data = raw(seen["mc raw"].out, 0x1C, 0x01)
    for path in ("raw", "open raw"):
        checks.ended(seen[path], line + data, 0, path)
    for path in ("refused", "open refused"):
        checks.ended(seen[path], line + "response is 1C 7F C1 \n", 0, path)
    received = data.removeprefix("response is ").lower()
    checks.holds(seen["debug"].out, "\n20 18 01 \nrecv:20 " + received, "trace over KCS")
    checks.same(seen["open debug"].out, line.replace("\n", "\nsend with openipmi:20 18 01 \n", 1), "trace with --open")
    checks.ended(seen["nobody"], BANNER + 3 * NO_RIGHT + "KCS_INIT error\n", 255, "not root")
    for path in ("no device", "open nobody"):
        checks.ended(seen[path], NO_DEVICE, 255, path)
    for action in ("update", "save", "verify"):
        refusal = ("Cannot find ORBE C4410/4415\nqarn only support C4410/4415 firmware "
                   + ("update" if action == "update" else "save") + "\n")
        checks.ended(seen[action], line + refusal, 1, action + " without the card")


def qemu_on_third_pair(checks):
    seen = checks.boot({"kcs": SHOW, "load": load_driver(0xCA8), "open": OPEN, "mc": "ipmitool mc info"},
                       qemu_bmc(**OURS), port=0xCA8)
    for path in ("kcs", "open"):
        checks.same(seen[path].out, identity(seen["mc"].out), path + " identity")
    checks.that(seen["kcs"].wall_us < 2e6, "KCS on the third pair within 2 s", f"{seen['kcs'].wall_us} us")


def no_interface(checks):
    seen = checks.boot({"kcs": SHOW, "none": "qarn", "help": "qarn -h", "ip": "qarn -i 1.2.3.256"})
    checks.ended(seen["kcs"], BANNER + "KCS_INIT error\n", 255, "no interface")
    checks.ended(seen["help"], seen["none"].out, 0, "usage without a BMC")
    checks.ended(seen["ip"], BANNER + "1.2.3.256 is not correct ip address\n", 1, "bad address")


def independent_simulator(checks):
    with ipmi_sim() as bmc:
        seen = checks.boot({"kcs": SHOW, "users": "qarn --users", "load": load_driver(), "open": OPEN,
                            "mc": "ipmitool mc info"}, bmc)
    line = identity(seen["mc"].out)
    for path in ("kcs", "open"):
        checks.same(seen[path].out, line, path + " identity")
    checks.same(seen["users"].out, line + "Display Users Name\n", "user list of a BMC that refuses user 1")


def users_and_passwords(checks):
    with qarn_bmc(checks.bmc) as bmc:
        seen = checks.boot({
            "users": "qarn --users", "set": "qarn --sp0 --sp1=sixteen-letters! --sp4=secret",
            "load": load_driver(), "open users": "qarn --open --users", "open set": "qarn --open --sp2=third",
            "list": "ipmitool user list 1",
            "right": "ipmitool user test 2 16 sixteen-letters! && ipmitool user test 5 16 secret && "
                     "ipmitool user test 3 16 third", "wrong": "ipmitool user test 5 16 secret!",
        }, bmc)
    names = {int(line[:4]): line[4:20].strip() for line in seen["list"].out.splitlines() if line[:1].isdigit()}
    wanted = "Display Users Name\n" + "".join(f"User ID {n}\t:\t\t{names.get(n) or 'NULL'}\n" for n in range(1, 6))
    for path in ("users", "open users"):
        checks.holds(seen[path].out, wanted, path)
    for path in ("set", "open set", "right"):
        checks.same(seen[path].status, 0, path + " passwords")
    checks.that(seen["wrong"].status != 0, "a wrong password is refused")
