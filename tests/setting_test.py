"""The simulated server as environment variables describe it."""

from harness import content, run, start, write


def test_each_setting_reaches_the_run():
    for line, shows, setting in (
            ("-d", "KCS_INIT error", {"SIM": "none"}), ("--wfru dump", "checksum error", {"FRU_REFUSAL": 81}),
            ("-d", "get Device ID failed", {"FAULTS": "refuse cmd=01 value=c3"}),
            ("-e 28 25 0", "25 C1", {"SDR_PARTIAL_ADD": "no"}), ("-e 28 24 1 0 51 C0 0", "24 C4", {"SDR_ROOM": 12}),
            ("--wfru d", "checksum error", {"FRU_READ_LIMIT": 4}), ("-e 28 44" + 16 * " 0", "44 C4", {"SEL_ROOM": 3}),
            ("--debug --wfru dump", "20 2c 10 00 10 00", {"FRU_SIZE": 16}),
            ("--sdrdump dump", "Get SDR Record 00 00 Fail", {"SDR_LONGEST_READ": 15}),
            ("--save dump", "Cannot enter downloader", {"CARD_CODE": "OTHERONE"}),
            ("--save dump", "cannot return normal state", {"CARD_READY": 99}),
            ("--save dump", "Exit Downloader......cmd error", {"CARD_AWAY": 99})):
        assert shows in run(line, STATE="", **setting).out


def test_a_setting_that_is_not_understood_ends_the_run_and_its_part_is_named():
    for name, value in (("SIM", "blade"), ("FAULTS", "refuse cmd=01;explode"), ("PORTS", "ca3,ca2;ca8"),
                        ("INTERFACES", "lo0,00:00:00:00:00:00;eth0"), ("LAN", "3=0a000001;300=01"),
                        ("KERNEL", "send=5;wait=4"), ("TARGETS", "2c;100"), ("FRU_SIZE", "70000"), ("CARD_AWAY", "-1"),
                        ("STATE", "."), ("STATE", write("text", "# no state\n"))):
        process = start("-d", **{name: value})
        whole, part = f"QARN_SIM_{name}".removesuffix("_SIM"), value.split(";")[-1]
        assert (process.wait(60), content("../err")) == (2, f'{whole}: "{part}" is not understood\n')
        assert content("../out") == ""
