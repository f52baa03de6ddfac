"""Signs of a mistake and failed steps: told on a terminal or with --strict, and to nobody else; what --strict makes of
them."""

import os

from harness import BANNER, each_line, expect_told, fresh, held, hold, run, run_for_all, write

DENIED = ": completion code D4 (insufficient privilege)"


def serve():
    """A card with a flash of one portion and one sensor record; what it holds."""
    fresh(CARD_BASE="fffff000", CARD_SIZE="1000", CARD_START="ffffff00", CARD_BLOCK=64, CARD_CHUNK=16)
    records = held()["sdr.records"]
    hold({"card.flash": 0x1000 * b".", "sdr.records": records[:5 + records[4]]})
    return held()


def check_signs(*cases):
    """For each line, with files of this content, these warnings: a person's run differs only by what the terminal
    shows; with --strict the BMC is not touched."""
    serve()
    for line, warnings, *text in cases:
        for name in ("f", "f.mot", "f.dat"):
            write(name, "".join(text))
        told = each_line("qarn: warning: ", warnings)
        _, person, strict = run_for_all(line)
        assert person.terminal[:len(told)] == told
        assert (strict.told, strict.deeds) == (told + "1", BANNER + "status 1\n")


def check_steps(*cases, **how):
    """For each line what expect_told says, while these faults act, if any."""
    server = serve()
    for line, tells, *faults in cases:
        hold(server)
        expect_told(line, tells, *faults, **how)


def test_a_sign_of_a_mistake_on_the_command_line_is_told():
    place = " is not used: a later option has its place"
    ends = " is left out: an action before it ends the run"
    numbers = " is not four decimal numbers from 0 to 255"
    colons = " is more than six numbers joined by colons"
    attach = " is not its password: attach it with ="
    letters = " is read as letters: a long name has two dashes"
    short = " is too short for an option that writes: give its whole name"
    check_signs(
        ("--users left over", "no option takes the word left\nno option takes the word over"),
        ("--sp1=a secret", "no option takes the word that is left over"),
        ("--sp1 secret", "the word after --sp1" + attach),
        ("-sp1 secret", "-sp is read as letters: a password option has two dashes\nthe word after -sp1" + attach),
        ("-1=secret --sp1=b", "the password of --sp1 begins with =\nthe first password of --sp1 is not used"),
        ("--wfru f --seldump f", "f is given for two files of the run"),
        ("--wfru --users", "--users is taken for the value before it"),
        ("-a -i 1.2.3.4 -m 0:1:2:3:4:5",
         "1.2.3.4 does not count when -a finds an address\n0:1:2:3:4:5 does not count beside -a"),
        ("--sdrdump a --sdr f", f"a{place}\n--sdr{ends}", "_SDR (\n)\n"),
        ("-u f --seldump a --open -d", f"--seldump{ends}\n-d{ends}"),
        ("--save a --verify b", f"a{place}\n--verify{ends}"),
        ("--fru f --wfru b", "f" + place), ("--wfru f --fru f", "f" + place),
        ("-i 10.0.0.1 -i 10.0.0.2", "10.0.0.1" + place), ("-save=f", "-save=f" + letters),
        ("-nrst", f"-nrst{letters}\nthe address rst{numbers}"),
        ("--f f --i 1.2.3.4", f"--f{short}\n--i{short}\nno option takes the word 1.2.3.4"),
        ("-i 24 -g 10.0.0.010 -n 255.0.255.0 -m 0:1:2:3:4:5:6",
         f"the address 24{numbers}\nthe address 10.0.0.010{numbers}\nthe net mask 255.0.255.0 has holes\n"
         "the MAC address 0:1:2:3:4:5:6" + colons),
        ("-n 10.0.0.1. -g 10.0.0.256 -m 0:1:2:3:4:5x --arp=2 -e 18 101 1G",
         f"the address 10.0.0.1.{numbers}\nthe address 10.0.0.256{numbers}\nthe MAC address 0:1:2:3:4:5x{colons}\n"
         "the ARP control 2 is neither 0 nor 1\n"
         "the word 101 after -e is no byte from 0 to FF\nthe word 1G after -e is no byte from 0 to FF"))


def test_a_sign_of_a_mistake_in_a_file_is_told_before_the_bmc_is_touched():
    record = "_SDR_TYPE 01\n_REC_LEN 06\n"
    fields = "_SEE_CHASSIS\n01 02 17\nC0\nC0\nC1\n"
    cases = (
        ("--sdr", "f", "it has no opening line\nit has no closing line\nit has no record or request", "A\n don't\n"),
        ("--sdr", "f", "line 1: it has no opening line\nit has no record or request", "_SDR_TYPE 01\n)\n"),
        ("--sdr", "f", "it has no closing line\nline 4 and 1 more: a character is no hexadecimal digit",
         "_SDR (\n_SDR_TYPE 01\n_REC_LEN 07\n01 00 51 01 02 AG\n0H\n"),
        ("--sdr", "f", "line 18: a record is closed before it is complete\nline 8: a comment begins inside quotes\n"
         "line 14: a quote is not closed\nline 11: a line has more bytes than are left of its record\n"
         "line 4 and 1 more: a line belongs to no record and no section",
         f"_SDR (\n_SDR_TYPE 01\n# _REC_LEN 06\n01 00 51 01 01 AA\n{record}01 00 51 01 01 // it's no quote\n'A#'\n"
         f"{record}01 00 51 01 01 'AB'\n_SDR_TYPE 01\n_REC_LEN 07\n01 00 51 01 02 'A\n{record}01 00 51 01 01\n)\n"),
        ("--fru", "f", "line 2: a character is no hexadecimal digit\nline 9: a comment begins inside quotes\n"
         "line 8: a field ends in the middle of a quoted piece: its length does not fit its text\n"
         "line 12: there is text after the end mark C1\n"
         "line 16: records that begin with type 00 are not written; use --exact\n"
         "the internal use area of the common section is not given; use --exact\n"
         "line 3: a line belongs to no record and no section",
         "_FRU\n_DEV_ID x0\n_SEE_BORD\n_SEE_COMMON\n01 02 00 00 00 00 00 FD\n_SEE_CHASSIS\n01 02 17\n"
         "C1 '1@'\nC3 'Fan #1'\nC1\n00\n'x'\nC1\n00\n_SEE_MULTIREC\n00 82 00 00 7E\n"),
        ("--fru", "f", "it has no opening line", "_DEV_ID 00\n" + fields),
        ("--exact --fru", "f", "line 11: a character is no hexadecimal digit\n"
         "line 4: a line is too long and is read as several", f"_FRU\n_DEV_ID 00\n_SEE_INTERNAL\n{300 * '1'}\n{fields}"
         "_SEE_PRODUCT\n01 02 0g C0 C0 C0 C0 C0 C0 C0 C1 00 00 00 00\n"),
        ("--cfg", "f", "line 3: a character is no hexadecimal digit\nline 1: a byte of one digit takes the next one's "
         "first digit\nline 2: a request has fewer than 3 bytes", "20 30 2 01 03 00\n20 18\n20 18 1o\n"),
        ("--cfg", "f", "it has no record or request", "# 20 18 01\n"),
        ("--sdr", "f.dat", "it has no record or request", ""),
        ("--verify", "f.mot", "line 2: the checksum of a record is wrong\nit has no end record (S7)",
         "S309FFFFFF004F4B00005F\nS309FFFFFF044F4B00005C\n"),
        ("-u", "f", "line 1: it looks like S-records, but is taken as it is, because its name does not end in .mot",
         "S309FFFFFF004F4B00005F\n"),
        ("-u", "f.mot", "line 1 and 1 more: a line is no S-record\nline 3: a data record of type S1 or S2 is left out\n"
         "line 5: the count of data records (S5) is wrong",
         "# S0\n S309FFFFFF004F4B00005F\nS10500000000FA\nS309FFFFFF044F4B00005B\nS5030002FA\nS70500000000FA\n"))
    check_signs(*[(f"{option} {name}", each_line(name + ": ", signs), text) for option, name, signs, text in cases])


def test_a_sign_of_a_mistake_in_a_file_that_is_read_once_is_told_before_anything_is_written():
    for option, text, told, sent in (
            ("--sdr", b"_SDR (\n)\n", "it has no record or request\n1", ""),
            ("--cfg", b"20 18 01\n20 18 0l\n20 18 01\n", "line 2: a character is no hexadecimal digit\n1", "18 01\n")):
        pipe, other = os.pipe()
        os.write(other, text)
        os.close(other)
        seen = run(f"--strict {option} /dev/stdin", prepare=lambda: os.dup2(pipe, 0))
        os.close(pipe)
        assert (seen.told, seen.sent) == ("qarn: warning: /dev/stdin: " + told, sent)


def test_a_sign_that_an_image_is_larger_than_the_flash_is_told_before_the_first_chunk():
    server = serve()
    write("f", 0x1001 * b".")
    warning = "qarn: warning: f: the image goes on after the end of the flash\n"
    for line in ("-u f", "--verify f"):
        hold(server)
        _, person, strict = run_for_all(line)
        assert warning in person.terminal
        assert strict.told == warning + "1"
        assert strict.sent == ("20 02 44 4F 57 4E 4C 4F 41 44\nsleep 2000000\n20 01\n"
                               "18 02\nsleep 4000000\nsleep 2000000\n18 01\nsleep 2000000\n18 01\n")


def test_no_sign_of_a_mistake_is_seen_in_what_is_right():
    serve()
    assert run("-oe 18 01 -1 22").traffic == run("-o -e 18 01 -1 22").traffic, "these are bytes"
    for line in ("--sdrdump s", "--wfru f", "--save b.bin"):
        run(line)
    write("m.mot", "S0030000FC\nS309FFFFFF004F4B00005F\nS70500000000FA\n")
    write("c", "20 18 01 // it's fine\n\n# no request\n20 18 '\x01'\n")
    for line in ("--users -d", "--sdrdump s", "--sdr s", "--fru f", "--wfru f", "--seldump l", "--cfg c", "-u b.bin",
                 "-u m.mot", "--save b.bin", "--verify b.bin", "-i 10.0.0.2 -n 255.255.254.0",
                 "-g 0.0.0.0 -m 0:1:2:3:4:5 --arp=0", "--dhcp --imac", "--sp1=a --sp2", "-e 18 0x01",
                 "--open --user --verif b.bin", "-h"):
        script, _, strict = run_for_all(line)
        assert (strict.told, strict.deeds) == ("0", script.deeds), line


def test_a_flash_that_is_no_whole_portion_is_no_sign_of_a_mistake():
    fresh(CARD_BASE="ffff0000", CARD_SIZE="1800", CARD_START="ffff0000", CARD_BLOCK=64, CARD_CHUNK=16)
    run("--save odd.bin")
    assert [run(f"--strict {option} odd.bin").told for option in ("--verify", "-u")] == ["0", "0"]


def test_a_step_that_fails_at_the_bmc_is_told_with_the_completion_code():
    write("s", "_SDR (\n_SDR_TYPE 01\n_REC_LEN 06\n01 00 51 01 01 AA\n)\n")
    write("c", "20 18 01\n20 18 46 01\n")
    check_steps(
        ("--users", "the BMC's identity: a response with 4 of 11 data bytes", "shorten netfn=6 cmd=1 value=5"),
        ("--sp1=a --sp3=b", "the password of user ID 4" + DENIED, "refuse netfn=6 cmd=47 skip=1 value=d4"),
        ("--users", "the name of user ID 3" + DENIED, "refuse netfn=6 cmd=46 skip=2 value=d4"),
        ("--cfg c", "line 2" + DENIED, "refuse netfn=6 cmd=46 value=d4"),
        ("-e 18 46 01", "the raw request" + DENIED, "refuse netfn=6 cmd=46 value=d4"),
        ("-e 18 46 01", "the raw request: no response", "answer netfn=6 cmd=46"),
        ("-i 1.2.3.4", f"setting the IP address source{DENIED}\nsetting the IP address{DENIED}",
         "refuse netfn=0c cmd=1 times=2 value=d4"),
        ("-m 0:1:2:3:4:5", "setting the MAC address" + DENIED, "refuse netfn=0c cmd=1 value=d4"),
        ("--arp=1", "setting the ARP control" + DENIED, "refuse netfn=0c cmd=1 value=d4"),
        ("-n 255.0.0.0", "setting the net mask" + DENIED, "refuse netfn=0c cmd=1 skip=1 value=d4"),
        ("-g 1.2.3.4", "setting the gateway address" + DENIED, "refuse netfn=0c cmd=1 skip=1 value=d4"),
        ("--dhcp", "setting the IP address source" + DENIED, "refuse netfn=0c cmd=1 value=d4"),
        ("--imac", "the card's own MAC address" + DENIED, "refuse netfn=3e cmd=84 value=d4"),
        ("-a", "no network interface with an address has the BMC's MAC address 00:0E:0C:44:10:01"),
        ("--sdrdump d", "the size of the sensor records" + DENIED, "refuse netfn=0a cmd=20 value=d4"),
        ("--sdrdump d", "reading the sensor record 0000" + DENIED, "refuse netfn=0a cmd=23 value=d4"),
        ("--sdr s", "erasing the sensor records" + DENIED, "refuse netfn=0a cmd=27 value=d4"),
        ("--sdr s", "writing the sensor record 0001: completion code C4 (out of space)",
         "refuse netfn=0a cmd=25 skip=1 value=c4"),
        ("--sdr s", "the reset of the BMC" + DENIED, "refuse netfn=6 cmd=2 value=d4"),
        ("--seldump d", "the event log's size" + DENIED, "refuse netfn=0a cmd=40 value=d4"),
        ("--seldump d", "the event log's record 0000" + DENIED, "refuse netfn=0a cmd=43 value=d4"))
    check_steps(("-d", "reading the IP address" + DENIED, "refuse netfn=0c cmd=2 value=d4"), status=255)


def test_a_step_that_fails_for_an_inventory_is_told():
    run("--wfru w")
    write("long", "_FRU\n_DEV_ID 00\n_SEE_CHASSIS\n01 02 17\nC9\n'ACME'\nC1\n")
    check_steps(
        ("--fru w", "the size of inventory device 0: completion code CB (not present)",
         "refuse netfn=0a cmd=10 value=cb"),
        ("--fru w", "writing inventory device 0 at 16: completion code 80 (the command's own code)",
         "refuse netfn=0a cmd=12 skip=1 value=80"), status=1)
    check_steps(
        ("--wfru d", "inventory device 0, common header at 0" + DENIED, "refuse netfn=0a cmd=11 value=d4"),
        ("--fru long", "long: line 5: a field of 9 bytes is longer than the 5 that are left: 'ACME?'"),
        to_people=True, status=1)


def test_a_step_that_fails_for_the_firmware_is_told():
    write("image", 0x1000 * b"x")
    write("other", 0xFFF * b"." + b"x")
    check_steps(
        ("--save d", f"entering the downloader{DENIED}\nd: the flash update information: completion code C1 (invalid "
         "command)", "refuse netfn=8 cmd=2 value=d4"),
        ("--save d", "leaving the downloader: completion code D5 (not possible in the present state)",
         "refuse netfn=6 cmd=2 value=d4; refuse netfn=6 cmd=3 value=d5"),
        ("--save d", "leaving the downloader: the BMC does not come back",
         "refuse netfn=6 cmd=1 skip=1 times=0 value=d2"))
    check_steps(
        ("-u image", "image: the flash update information" + DENIED, "refuse netfn=8 cmd=1 value=d4"),
        ("-u image", "image: writing the flash at FFFFFF10: completion code C0 (node busy)",
         "refuse netfn=8 cmd=4 skip=1 value=c0"),
        ("-u image", "image: the card cannot program the block at FFFFFF00", "answer netfn=8 cmd=5 bytes=0002"),
        ("-u image", "image: the card does not take the block at FFFFFF00", "refuse netfn=8 cmd=5 times=8 value=c0"),
        ("--save d", "d: reading the flash at FFFFF000: an unexpected response", "shorten netfn=8 cmd=3 value=4"),
        ("--verify other", "other: 1 bytes of the flash are not those of the image"), to_people=True)
    assert run("--strict -u image", SIM="plain").told == "qarn: the ports have no daughter card\n1"


def test_the_reason_why_a_file_cannot_be_used_is_told_to_people_too():
    write("bad", "_SDR (\n_SDR_TYPE 01\n_REC_LEN 04\n)\n")
    write("none", "_FRU\n")
    write("few", "_FRU\n_DEV_ID 00\n_SEE_COMMON\n01\n")
    reasons = (("--seldump --sdr --cfg --verify -u", "absent/d", "No such file or directory"),
               ("--sdrdump --sdr --cfg --save", ".", "Is a directory"), ("-u", ".", "it is not a regular file"),
               ("--seldump --save", "/dev/full", "No space left on device"))
    check_steps(*[(f"{option} {name}", f"{name}: {reason}") for options, name, reason in reasons
                  for option in options.split()], to_people=True)
    check_steps(
        ("--wfru absent/d", "absent/d: No such file or directory"), ("--fru none", "none: it has no _DEV_ID line"),
        ("--fru absent/d", "absent/d: No such file or directory"),
        ("--fru few", "few: line 4: the common section has fewer than 8 bytes"), to_people=True, status=1)
    assert run("--nrst --sdr bad", terminals="2").terminal == "qarn: bad: line 3: record length under 05\n"


def test_the_reason_why_the_bmc_cannot_be_reached_is_told():
    for line, tells, setting in (
            ("-e 18" + 130 * " 01", "the request is too long for the ports: use --open", {}),
            ("--open -d", "/dev/ipmi0: Permission denied", {"USER": "nobody"}),
            ("--open -d", "none of them is there: load the kernel's module ipmi_devintf", {"DEVICES": "none"})):
        expect_told(line, tells, to_people=True, status=255, **setting)
    expect_told("-d", "no BMC answers at the ports: is this root? else try --open", status=255, PORTS="none")


def test_strict_is_given_in_one_way_only_and_tells_of_a_line_that_is_not_understood():
    assert [run(line).status for line in ("--strict=yes -d", "-strict -d")] == [1, 1]
    assert run("--nothing --strict").told.endswith(
        "\nqarn: warning: the command line is not understood: nothing was done\n1")
