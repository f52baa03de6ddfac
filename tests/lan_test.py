"""The BMC's LAN configuration, and the host interface that carries its MAC address."""

from harness import run, settings

# What -d reads: address, MAC address, mask, gateway, source of the address.
READS = "30 02 01 03 00 00\n30 02 01 05 00 00\n30 02 01 06 00 00\n30 02 01 0C 00 00\n30 02 01 04 00 00\n"
STATIC = "30 01 01 04 01\n"
IP = "30 01 01 03 0A 01 02 03\n"
SHOWN = "\nMAC Address:\t\t\t00:0E:0C:44:10:01\nNet Mask:\t\t\t255.255.255.0\nGate Way:\t\t\t192.168.1.1\n"
CARD = ",00:0e:0c:44:10:01,"  # the BMC's MAC address, as that of an interface


def qarn(line, faults="", **values):
    """A run as one text, while these faults act: what it says and sends, its exit status."""
    seen = run(line, faults=faults, **values)
    return f"{seen.said}{seen.sent}status {seen.status}"


def test_the_configuration_is_shown_then_set_each_address_after_its_static_source():
    line = "--arp=1 -n 255.255.0.0 -g 10.1.0.1 -m 2:0:0:aB:cd:EF -i 10.1.2.3 -d --dhcp -e 18 02"
    assert qarn(line, LAN="3=0a00c8ff") == (
        "enable DHCP\nDHCP\t\t\tEnable\nBMC IP Address:\t\t\t10.0.200.255" + SHOWN + "response is 1C 02 00 \n"
        "30 01 01 04 02\n" + READS + STATIC + IP + "30 01 01 05 02 00 00 AB CD EF\n" + STATIC +
        "30 01 01 0C 0A 01 00 01\n" + STATIC + "30 01 01 06 FF FF 00 00\n30 01 01 0A 01\n18 02\nstatus 0")
    refused = qarn("-i 10.1.2.3 --arp=2", "refuse netfn=c cmd=1 times=0 value=d5")
    assert refused == f"{STATIC}{IP}30 01 01 0A 00\nstatus 0"


def test_every_request_goes_to_the_channel_that_is_given():
    settings.update(LAN_CHANNEL=8, INTERFACES="eth0" + CARD + "10.1.2.3")
    line = " --imac --dhcp -a -d -i 10.1.2.3 -m 2:0:0:1:2:3 -g 10.1.0.1 --arp=1"
    assert run("--lan=1" + line).sent + run("-d --lan=1").sent == (
        "F8 84 00 00 FF\n30 01 01 05 00 0E 0C 44 10 02\n30 01 01 04 02\n" + 2 * READS[:18])
    assert run("--lan=8" + line).status == 0
    assert "Address:\t\t\t10.1.2.3\n" in run("-d --lan=8").said
    assert run("--strict --lan=8 --dhcp -g 10.1.0.1 -m 2:0:0:1:2:3 --arp=1").status == 0


def test_a_refused_channel_brings_a_hint_for_people_and_strict_scripts_unless_one_was_given():
    hint = "qarn: the LAN may be another channel: try --lan=2 or --lan=8\n"
    for line in ("-d", "--dhcp", "-i 10.1.2.3 -g 10.1.0.1"):
        assert run(line, terminals="2", LAN_CHANNEL=2).terminal == hint
        assert hint in run("--strict " + line, LAN_CHANNEL=2).err
        assert run(line, LAN_CHANNEL=2).err == ""
        assert run("--lan=8 " + line, terminals="2", LAN_CHANNEL=2).terminal == ""
    assert run("-d", faults="refuse netfn=c cmd=2 value=d4", terminals="2").terminal == ""


def test_a_channel_that_is_no_number_from_1_to_15_is_refused():
    for wrong in ("", " 8", "=", "=0", "=16", "=08", "=+8", "=8x", "=0x8", "=-1", "=999"):
        seen = run("-d --lan" + wrong)
        assert (seen.status, seen.traffic) == (1, "") and seen.out.endswith("from 1 to 15, as in --lan=8\n")
    for right in ("1", "9", "10", "15"):
        assert run("-d --lan=" + right, LAN_CHANNEL=right).status == 0


def test_the_mac_address_that_the_card_reports_is_taken():
    assert qarn("--imac") == "F8 84 00 00 FF\n30 01 01 05 00 0E 0C 44 10 02\nstatus 0"
    assert qarn("--imac", "shorten netfn=3e cmd=84 value=6") == "F8 84 00 00 FF\nstatus 0"


def test_a_parameter_that_cannot_be_read_ends_the_run_with_the_reason():
    # The answer to each read loses its last byte; a completion code and a revision are first.
    cases = ((" Get IP Address Fail\n", 5), (" Get MAC Address Fail\n", 7), ("Get Net Mask Fail\n", 5),
             (" Get Gateway IP Address Fail\n", 5), ("Get IP Source Fail\n", 2))
    for read, (reason, too_short) in enumerate(cases):
        which = f" netfn=c cmd=2 skip={read} value="
        text = reason + READS[:18 * (read + 1)] + "status 255"
        assert qarn("-d -i 1.2.3.4", "refuse" + which + "d5") == text
        assert qarn("-d -i 1.2.3.4 --open", f"shorten{which}{too_short}") == text


def test_the_first_interface_with_its_mac_gives_the_bmc_its_address():
    others = ["lo0" + CARD + "127.0.0.1", 600 * "n" + CARD + "10.1.2.2"]
    others += [f"{name},2:2:2:2:2:2" + ",127.0.0.2" * (name != "a") for name in "abcdefghijklmnop"]
    found = ["eth1:1" + CARD + "10.1.2.3", "eth2" + CARD + "10.1.2.4"]
    settings.update(LAN="4=03", INTERFACES=";".join(others + found))
    assert qarn("-d -a -i 10.7.7.7 -m 2:2:2:2:2:2") == (
        "DHCP\t\t\tDisable\nBMC IP Address:\t\t\t10.1.2.3" + SHOWN + READS + IP + STATIC +
        "30 01 01 05 00 0E 0C 44 10 01\n30 01 01 06 FF FF FF 00\n30 01 01 0C C0 A8 01 01\n" + STATIC + IP +
        "30 01 01 05 00 0E 0C 44 10 01\nstatus 0")
    assert qarn("-a", "refuse netfn=c cmd=1 skip=1 value=d5") == READS + IP + STATIC + "status 0"
    seventeenth = ";".join(["z,2:2:2:2:2:2,127.0.0.2", *others, *found])
    assert qarn("-a", INTERFACES=seventeenth) == READS + "status 0", "only the first 16 are looked at"
    assert qarn("-a", INTERFACES="none") == READS + "status 0"
