"""The event log: read whole from the BMC, written as text."""

from harness import content, held, hold, run

INFO = "28 40\n"
ENTRY = "28 43 00 00 00 00 00 FF\n"  # for the first record, whole and without a reservation


def dumped(faults=""):
    """What a dump says and sends, and the file that it leaves."""
    seen = run("--open --seldump a", faults=faults)
    assert seen.status == 0
    return seen.said.removeprefix("Dumping SEL to file a\n") + seen.sent + content("a")


def test_the_log_is_written_up_to_its_end_and_an_answer_refused_or_cut_leaves_no_file():
    records = bytearray(held()["sel.records"])
    records[16] = 0xFF  # an ID with one byte FF is not yet the end
    hold({"sel.records": records, "sel.claimed": b"\xFF\xFF"})
    second = "28 43 00 00 FF 00 00 FF\n"
    for faults, text in (("refuse cmd=40 value=c1", " Get SEL Repository Info Fail\n" + INFO),
                         ("shorten cmd=40 value=3", " Get SEL Repository Info Fail\n" + INFO),
                         ("refuse cmd=43 skip=1 value=cb", "Get SEL Record FF00 Fail\n" + INFO + ENTRY + second),
                         ("shorten cmd=43 value=12", "Get SEL Record 0000 Fail\n" + INFO + ENTRY)):
        assert dumped(faults) == f"Get SEL Fail:\t{text}(no file)"
    # The count of entries is all that is needed.
    assert dumped("shorten cmd=40 value=4") == (
        INFO + ENTRY + second + "28 43 00 00 03 00 00 FF\n_SEL\n_LOG_NUM   0300\n\n"
        "01 00 02 00 F1 53 65 20 00 04 10 09 6F 42 FF FF\n"
        "FF 00 02 2C F1 53 65 20 00 04 01 30 01 57 5F 5A\n"
        "03 00 02 90 F1 53 65 20 00 04 08 51 6F 01 FF FF\n")


def test_a_log_without_end_is_read_up_to_the_claimed_count():
    for claimed, count in ((0, "0000"), (299, "2B01"), (65535, "FFFF")):  # each record names itself as the next one
        hold({"sel.records": bytes(32), "sel.claimed": claimed.to_bytes(2, "little")})
        assert dumped() == f"{INFO}{claimed * ENTRY}_SEL\n_LOG_NUM   {count}\n\n" + claimed * f"{15 * '00 '}00\n"


def test_a_log_that_cannot_be_written_whole_gives_a_message():
    for target in ("/no-such-folder/log", "/dev/full"):
        assert run("--seldump " + target).said == f"Dumping SEL to file {target}\nWritting File {target} fail\n"


def test_progress_is_renewed_at_each_thousandth_and_on_a_terminal_only():
    hold({"sel.records": bytes(32), "sel.claimed": b"\xD0\x07"})
    assert run("--seldump a").err == ""
    steps = "".join(f"\033[KSEL {done}/2000\r" for done in [1, *range(2, 2001, 2)])
    assert run("--seldump a", terminals="2").terminal == steps + "\033[K"
