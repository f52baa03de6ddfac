"""Whole commands: what is refused, which way leads to the BMC, identity, users, raw requests, what a terminal and a log
show."""

import os
from pathlib import Path

from harness import BANNER, IDENTITY, hold, run, start

START = BANNER + IDENTITY
ZEROS = 15 * " 00" + "\n"
LONG = 5000 * "0"


def test_help_and_what_cannot_be_right_end_the_run_before_the_bmc_is_touched():
    usage = run("-h").out.removeprefix(BANNER)
    assert usage.startswith("Usage: qarn [-?] [-h] [-u filename] [--spx[=xxx]] [-d] ")
    assert usage.endswith("\n-e Net/LUN CMD DATA\tExecute IPMI command\n")
    assert len(usage) == 1556  # 28 lines
    for line in ("", "-?", "-h", "--nonsense", "-e", "-d -h --sp0=12345678901234567"):
        assert run(line).deeds == f"{BANNER}{usage}status 0\n", line
    no_mac = [(f"-m {mac}", f"-m: {mac} does not give the six bytes of a MAC address\n")
              for mac in ("0:1:2:3:4", "0:1:2:3:4:100", "100000001:2:3:4:5:6")]
    for line, says in (("--sp1=12345678901234567", "the password mustn't more than 16 bytes\n"),
                       ("-i 255.255.255.255", "255.255.255.255 is not correct ip address\n"),
                       *no_mac, ("--arp", usage),
                       ("-e 18 01 zz", "-e: zz is not a hexadecimal byte\n" + usage),
                       ("-e 18", "-e: a request needs at least a Net/LUN and a CMD byte\n" + usage),
                       ("-e18 01", "-e: 18: the first byte must be a separate word\n" + usage),
                       ("-e" + 256 * " 0", "-e: more than 255 bytes\n" + usage)):
        assert run(line).deeds == f"{BANNER}{says}status 1\n"


def test_a_letter_means_what_its_long_name_means_and_a_value_has_any_length():
    null = " /dev/null"
    options = (("-s", "--sdr", " f"), ("-t", "--nrst", " -s f"), ("-q", "--sdrdump", null), ("-c", "--cfg", " f"),
               ("-r ", "--arp=", "1"), ("-p", "--dhcp", ""), ("-b", "--debug", ""), ("-l", "--imac", ""),
               ("-v", "--save", null), ("-y", "--verify", " f"), ("-5", "--users", ""), ("-f", "--fru", " f"),
               ("-w", "--wfru", null), ("-j", "--seldump", null), ("-o", "--open", " -b"),
               ("-y", "--verify", " " + LONG), ("-r ", "--arp=", LONG))
    different = {run("-0").deeds}
    for letter, name, rest in options:
        does = run(letter + rest).deeds
        assert does == run(name + rest).deeds
        assert does not in different, name
        different.add(does)
    assert run("-0a -1b -2c -3d -4e").deeds == run("--sp0=a --sp1=b --sp2=c --sp3=d --sp4=e").deeds
    assert run("--s").err == ("qarn: option '--s' is ambiguous; possibilities: '--sdr' '--sp0' '--sp1' '--sp2' '--sp3' "
                              "'--sp4' '--save' '--seldump' '--sdrdump'\n")
    assert run("--l").err == "qarn: unrecognized option '--l'\n"


def test_the_identity_line_is_read_from_the_device_id():
    hold({"device_id": bytes.fromhex("2001FFA9EF00FD028004FF")})
    shown = "IPMI Ver: F.E\tFirmware Rev: 127.A9\tVendor ID: 8389373\tPdt ID: 65284\n"
    assert run("--nrst").deeds == f"{BANNER}{shown}status 0\n18 01\n"
    hold({"device_id": bytes.fromhex("2001FFA9EF00FD028004")})
    assert run("-e 18 02").deeds == f"{BANNER}get Device ID failed\nresponse is 1C 02 00 \nstatus 0\n18 01\n18 02\n"


def test_passwords_are_set_in_ascending_order_before_users_are_listed():
    hold({"user2.name": b"sixteen letters!"})
    faults = "shorten cmd=46 skip=2 value=4; refuse cmd=46 skip=4 value=cc"
    assert run("--sp4=0123456789abcdef --users --sp0 -1x --sp3=old --sp3=n", faults=faults).deeds == (
        START + "Display Users Name\nUser ID 1\t:\t\tNULL\nUser ID 2\t:\t\tsixteen letters!\nUser ID 3\t:\t\tAdm\n"
        f"User ID 4\t:\t\tCallback\nstatus 0\n18 01\n18 47 01 02 00{ZEROS}18 47 02 02 78{ZEROS}18 47 04 02 6E{ZEROS}"
        "18 47 05 02 30 31 32 33 34 35 36 37 38 39 61 62 63 64 65 66\n"
        "18 46 01\n18 46 02\n18 46 03\n18 46 04\n18 46 05\n")


def test_every_word_after_e_is_a_byte():
    assert run("-e 0x1a 102").deeds == START + "response is 1E 02 00 \nstatus 0\n18 01\n1A 02\n"
    assert run("-e 18 02 -d").deeds == START + "response is 1C 02 00 \nstatus 0\n18 01\n18 02 F3\n"
    assert run("no -e fc fe").deeds == START + "response is FC FE C1 \nstatus 0\n18 01\nFC FE\n"


def test_the_bmc_is_found_on_each_port_pair_and_device_and_traced():
    end = IDENTITY + "status 0\n18 01\n"
    for pair in ("cac,ca8", "ca3,ca2", "ca9,ca8"):
        answer = "recv:20 1c 01 00 20 01 01 23 51 bf 57 01 00 03 00 00 00 00 00 \n"
        assert run("--debug", PORTS=pair).deeds == f"{BANNER}20 18 01 \n{answer}{end}"
    for path in ("/dev/ipmi0", "/dev/ipmi/0", "/dev/ipmidev/0"):
        assert run("-b -o", DEVICES=path).deeds == f"{BANNER}send with openipmi:20 18 01 \n{end}"


def test_the_kernel_device_is_closed_at_the_end():
    assert run("--open").status == 0  # tests/program.cpp makes 99 of a device that is left open


def test_without_a_way_to_the_bmc_the_status_is_255():
    assert run("--users", faults="write_error times=0 value=0").deeds.startswith(BANNER + "cmd error\nstatus 255\n")
    # A time-out looks for the card, and there is none.
    timeout = BANNER + "KCS Waiting for OBF set: Timeout!\nstatus 255\n"
    assert run("--users", faults="no_dummy", SIM="plain").deeds.startswith(timeout)
    assert run("-d", SIM="none").deeds == BANNER + "KCS_INIT error\nstatus 255\n"
    no_device = "Could not open device at /dev/ipmi0 or /dev/ipmi/0 or /dev/ipmidev/0\n"
    assert run("--open -d", SIM="none").deeds == f"{BANNER}{no_device}status 255\n"


def test_firmware_is_for_the_card_only_and_passwords_come_first():
    for others in ("ca3,ca2", "ca9,ca8"):
        for line, action in (("-u f.mot --sdr f", "update"), ("--save f", "save"), ("--verify f", "save")):
            assert run(line + " -d --sp1", PORTS=others).deeds == (
                f"{START}Cannot find ORBE C4410/4415\nqarn only support C4410/4415 firmware {action}\n"
                f"status 1\n18 01\n18 47 02 02 00{ZEROS}")


def test_a_processor_without_ports_has_only_the_way_of_the_kernel():
    assert run("-d", PROCESSOR="arm").deeds == BANNER + "this machine has no I/O ports: use --open\nstatus 255\n"
    assert run("-d --open", PROCESSOR="arm").status == 0


def test_the_later_fru_option_wins_and_a_save_leaves_the_lan_alone():
    seen = run("--fru f --wfru /dev/null -d --seldump /dev/null --save /dev/null")
    assert seen.said.startswith("Dump FRU to file /dev/null\n")
    assert "ok\nDumping SEL to file /dev/null\nRead firmware and Save" in seen.said
    assert "28 12 " not in seen.sent, "no inventory is written"
    assert "\n30 0" not in seen.traffic


def test_passwords_that_were_not_given_are_asked_for_before_the_bmc_is_touched():
    line = "--sp3=abc --sp2 --sp1 --prompt"
    rest = 13 * " 00" + "\n"
    assert run(line, stdin="0123456789abcdef\nxyz").deeds == (
        START + "status 0\n18 01\n18 47 02 02 30 31 32 33 34 35 36 37 38 39 61 62 63 64 65 66\n"
        f"18 47 03 02 78 79 7A{rest}18 47 04 02 61 62 63{rest}")
    assert run(line, stdin="one\n").deeds == BANNER + "--sp2: no password was given\nstatus 1\n"
    assert run(line, stdin="one\n0123456789abcdefg\n").deeds == (
        BANNER + "the password mustn't more than 16 bytes\nstatus 1\n")


def test_a_password_does_not_stay_in_the_arguments_even_if_it_is_not_attached():
    stopped = start("--sp1=secret --sp2 secret", faults="signal cmd=1 value=13")
    os.waitpid(stopped.pid, os.WUNTRACED)
    arguments = Path(f"/proc/{stopped.pid}/cmdline").read_bytes()
    stopped.kill()
    assert arguments == b"qarn\0--sp1=" + 7 * b"\0" + b"--sp2\0" + 7 * b"\0"


def test_a_terminal_shows_the_progress_line_and_erases_it_before_a_message_of_the_transport():
    dump = "--seldump log"
    assert run(dump, terminals="2").terminal == "\033[KSEL 1/3\r\033[KSEL 2/3\r\033[KSEL 3/3\r\033[K"
    assert run(dump).err == "", "this is no terminal"
    assert run("--debug " + dump, terminals="2").terminal == "", "requests are traced there"
    assert run(dump, faults="write_error netfn=0a cmd=43 skip=1 times=0 value=1", terminals="12").terminal.endswith(
        "\033[KSEL 1/3\r\033[Kcmd error\nqarn: the BMC does not take the request at its ports\n")


def test_a_terminal_is_told_what_an_interface_that_fails_in_an_update_leaves_undone():
    run("--save image")
    dies = "write_error netfn=8 cmd=4 skip=9 times=0 value=1"
    assert run("-u image", faults=dies).told == "255"
    assert "the firmware is only half updated" in run("-u image", faults=dies, terminals="2").terminal


def test_a_terminal_is_shown_no_control_character_of_a_user_name():
    name = "answer cmd=46 bytes=001b5b326a41009b"
    assert "User ID 1\t:\t\t?[2jA\n" in run("--users", faults=name, terminals="1").terminal
    assert "User ID 1\t:\t\t\x1B[2jA\n" in run("--users", faults=name).out


def test_a_terminal_does_not_show_a_password_which_is_asked_for_twice():
    refused = "the two passwords differ\n--sp1: no password was given\n"
    for second, outcome in (("secrex", refused), ("secret", IDENTITY)):
        seen = run("--sp1 --prompt", terminals="012", typed=("secret", second))
        assert seen.terminal.endswith(outcome)
        assert "secre" not in seen.terminal
        assert ("18 47 02 02 73" in seen.traffic) == (outcome == IDENTITY)


def test_a_log_shows_how_far_a_run_came_that_was_killed():
    seen = run("--seldump log", faults="signal netfn=0a cmd=40 value=9")
    assert (seen.status, seen.said) == (128 + 9, "Dumping SEL to file log\n")
