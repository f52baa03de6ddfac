"""Identity, raw requests, scripts, users and passwords, on both paths, against what the peers say."""

import re

from machine import both_paths, ipmi_sim, qarn_bmc, qemu_bmc

BANNER = "BMC Utility on Linux version 1.1.3\n"
NO_DEVICE = BANNER + "Could not open device at /dev/ipmi0 or /dev/ipmi/0 or /dev/ipmidev/0\nstatus 255\n"
NO_RIGHT = "have no right to change I/O privilege level\n"
NO_CARD = "Cannot find ORBE C4410/4415\nqarn only support C4410/4415 firmware update\nstatus 1\n"
SHOW = "qarn --nrst"  # no action: the run ends after the identity
PEER = ("mc", "ipmitool mc info", None)
OURS = dict(fwrev1=5, fwrev2=0x23, mfg_id=0x1291, product_id=0xF02)


def identity(seen):
    """Our output of a run without action, from what `ipmitool mc info` prints."""
    field = dict(re.findall(r"^(\S[^:]*?) *: (\S+)", seen["mc"], re.M))
    return BANNER + (f"IPMI Ver: {field['IPMI Version']}\tFirmware Rev: {field['Firmware Revision']}\t"
                     f"Vendor ID: {field['Manufacturer ID']}\tPdt ID: {field['Product ID']}\n")


def test_qemu_on_second_pair(checks):
    """With statuses; FreeIPMI shows the same bytes."""
    checks.guest(qemu_bmc(**OURS), [
        ("not root", f"su nobody -c '{SHOW}'", BANNER + 3 * NO_RIGHT + "KCS_INIT error\nstatus 255\n"),
        ("no device", "qarn --open --nrst", NO_DEVICE),
        ("no card", "qarn -u image", lambda seen: identity(seen) + NO_CARD),
        *both_paths(
            ("identity", SHOW, identity),
            ("raw", "qarn -e 18 01", lambda seen: identity(seen) + "response is 1C " + seen["peer"].upper()),
            ("refused", "qarn -e 0x18 7f", lambda seen: identity(seen) + "response is 1C 7F C1 \n")),
        ("open not root", "su nobody -c 'qarn --open --nrst'", NO_DEVICE), PEER,
        ("peer", "ipmi-raw -D OPENIPMI 0 6 1 | sed 's/rcvd: //'", None),
    ])


def test_other_machines(checks):
    """A BMC at the last pair of ports that is tried; none at all."""
    checks.guest(qemu_bmc(**OURS), [*both_paths(("identity", "timeout 2 " + SHOW, identity)), PEER], port=0xCA8)
    checks.guest((), [("no interface", SHOW, BANNER + "KCS_INIT error\nstatus 255\n")])


def test_users_and_passwords(checks):
    def users(seen):
        names = {int(line[:4]): line[4:20].strip() for line in seen["list"].splitlines() if line[:1].isdigit()}
        shown = "".join(f"User ID {n}\t:\t\t{names.get(n) or 'NULL'}\n" for n in range(1, 6))
        return identity(seen) + "Display Users Name\n" + shown

    passwords = ("2 16 sixteen-letters!", "5 16 secret", "3 16 third", "5 16 secret!")
    test = "".join(f"ipmitool user test {password} 2>/dev/null; " for password in passwords)
    with qarn_bmc(checks.bmc) as bmc:
        checks.guest(bmc, [
            ("set", "qarn --sp0 --sp1=sixteen-letters! --sp4=secret", identity),
            *both_paths(("users", "qarn --users", users)),
            ("open set", "qarn --open --sp2=third", identity),
            ("three of four are right", test, "Success\n" * 3 + "Failure: password incorrect\nstatus 1\n"),
            ("list", "ipmitool user list 1", None), PEER,
        ])


def test_passwords_are_forgotten(checks):
    """While a run that has set passwords waits for the other end of a FIFO, other users cannot see them among its
    arguments, and its memory has none."""
    look = """mkfifo fifo; rm -f said; qarn ARGUMENTS --cfg fifo <lines >said 2>&1 & qarn=$!; until grep -qs Rev: said; do usleep 9000; done; sleep 1
tr '\\0' '\\n' </proc/$qarn/cmdline | grep -c -e passw0rd; cp /proc/$qarn/maps maps
while read range rights rest; do case $rights in rw*)
  first=$((0x${range%-*} / 4096)); dd if=/proc/$qarn/mem bs=4096 skip=$first count=$((0x${range#*-} / 4096 - first)) 2>dd
esac; done <maps >memory; grep -c Rev: memory; grep -c -e passw -e w0rd memory; echo >fifo; wait $qarn; rm fifo"""
    given = "--sp1=passw0rd1 --sp2=passw0rd2", "--sp1 --sp4 --prompt"
    looks = ((arguments, look.replace("ARGUMENTS", arguments), "0\n1\n0\n") for arguments in given)
    with qarn_bmc(checks.bmc) as bmc:
        checks.guest(bmc, [("lines", "echo passw0rd1 >lines; echo passw0rd4 >>lines", ""), *both_paths(*looks)])


def test_long_waits_are_shown(checks):
    """On the console, after a line that has not ended, and gone when the answer is there. The virtual machine answers
    for a BMC that takes more than 4 seconds."""
    shown = "head -c 80 /dev/vcs1 | sed 's/ *$//'; echo"
    look = ("printf '\\033[2J\\033[Hin a line...' >/dev/tty1; qarn --users >said 2>/dev/tty1 & n=0; until "
            f"grep -q waiting /dev/vcs1 || [ $n = 60 ]; do usleep 100000; n=$((n + 1)); done; {shown}; wait; {shown}")
    with qarn_bmc(checks.bmc, faults="late cmd=46 value=6 times=0") as bmc:
        checks.guest(bmc, both_paths(("shown", look, "in a line...waiting for an answer from the BMC: 3 s\n"
                                                     "in a line...\n")))


def test_scripts(checks):
    """On the KCS path a request for another controller is bridged: its answer carries the LUN it was sent from, 2."""
    def answers(head, peer):
        return lambda seen: identity(seen) + (f"send: 20 18 01 \nrecv: 20 1C 01 00{seen['bmc']}\n\n"
                                              f"send: 30 18 01 \nrecv: {head} 01 00{seen[peer]}\n\n"
                                              f"send: 30 18 7F \nrecv: {head} 7F C1 \n\n")

    raw = "ipmitool {} raw 6 1 2>/dev/null | tr 'a-f\n' 'A-F '"
    with ipmi_sim() as bmc:
        checks.guest(bmc, [
            ("script", "qarn --cfg script", answers("30 1E", "target")), ("load", "load", ""),
            ("open script", "qarn --open --cfg script", answers("20 1C", "bmc")),
            ("bmc", raw.format(""), None), ("target", raw.format("-t 0x30"), None), PEER,
        ], files={"work/script": b"# a remark\n20 18 01 // Get Device ID\n\n301801\n30 18 '\x7f'\n"})
