"""Lines of definition files, and scripts of raw requests."""

from harness import ROOT, content, held, hold, run, write

COMMENTS = ("//", "//A", "///", "#", "#A", "#" + 400 * " 20 18 02")  # the last is longer than any room


def test_a_script_sends_each_line_and_names_one_that_is_no_request():
    # Line 2 is longer than the buffer: two requests, but one line to the reader.
    long_line = f"{'20 18 46 02':1023}203002\t01 63 00 00\r\n"
    seen = run("--cfg " + write("a", "20 18\n" + long_line + "#\n  01     # one\n 20 18 02 // end\r\n'"))
    assert (seen.status, seen.said + seen.sent) == (
        0, "line 1: 2 of the 3 bytes that a request needs at least: not sent\n"
        f"send: 20 18 46 02 \nrecv: 20 1C 46 00 4F 70 65 72 61 74 6F 72 {8 * '00 '}\n\n"
        "send: 20 30 02 01 63 00 00 \nrecv: 20 34 02 80 \n\n"
        "line 4: 1 of the 3 bytes that a request needs at least: not sent\n"
        "send: 20 18 02 \nrecv: 20 1C 02 00 \n\n18 46 02\n30 02 01 63 00 00\n18 02\n")
    seen = run("--cfg no-such-file")
    assert (seen.said, seen.traffic, seen.status) == ("", "18 01\n", 0)
    sample = write("sample", content(ROOT / "data/sample.cfg"))
    assert run("--cfg " + sample).sent == "18 01\n18 46 02\n30 02 01 03 00 00\n28 40\n"


def requests(text):
    """What a script of this text sends."""
    return run("--cfg " + write("a", text)).sent


def area(text):
    """What these lines of an internal use area, after its first byte, come to in the device."""
    start = "_FRU\n_DEV_ID 00\n_SEE_COMMON\n01 00 00 00 00 00 00 00\n_SEE_INTERNAL\n01\n"
    hold({"fru.00": bytes(512)})
    run("--fru " + write("a", start + text))
    return held()["fru.00"][9:].rstrip(b"\0")


def record(text):
    """What these lines of a sensor record, after its header, come to in the repository."""
    run("--nrst --sdr " + write("a", "_SDR (\n_SDR_TYPE\n_REC_LEN 0104\n01 00 51 C0 FF\n" + text))
    return held()["sdr.records"][5:].rstrip(b"\0")


def test_a_line_loses_leading_blanks_and_its_comment_and_gives_bytes_from_digits_and_quoted_text():
    assert run("--cfg " + write("a", "\n \t# x\n//\n5 // x\n)")).said == ""
    # A digit after quoted text completes the pair that was open before it: the last byte changes.
    assert requests("20 1 2\t3 f\r\n\t20 'AB' 01 '' F\n20 ' \t\r\n  20 1'A'2\n20 'http://host'\n") == (
        "12 3F\n41 42 01 0F\n20 09 0D 0A\n01 12\n68 74 74 70 3A\n")
    # Letters beyond F count on, and run over; other characters are digits without a value.
    assert requests("20 G0 0z zZ 12 -3 4\xFF") == "00 23 33 12 23 40\n"


def test_lines_read_the_same_with_a_comment_in_any_column():
    # A script and a sensor record have room for 1023 characters of a line, an inventory for 255.
    for room, read, line, sent, with_slash in ((1023, requests, "20 18 01", "18 01\n", "18 01 01\n"),
                                               (1023, record, "AA", b"\xAA", b"\xAA\xAA"),
                                               (255, area, "20", b"\x20", b"\x20\x20")):
        starts = {column: f"{line:{column - 1}}" for column in range(room - 7, room + 8)}
        text = "".join(f"{start}{comment}\n{line}\n" for start in starts.values() for comment in COMMENTS)
        assert read(text) == 2 * len(COMMENTS) * 15 * sent
        # The last character of a file begins none. A slash is a digit without a value, but alone in a piece of a long
        # line it is nothing.
        for column, start in starts.items():
            assert read(start + "#") == sent
            assert read(start + "/") == (sent if column > room else with_slash), column
