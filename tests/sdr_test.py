"""Sensor data records: what goes over the wire, and what the files hold."""

from harness import ROOT, content, held, hold, hold_records, run, sensor_record, write

WRITTEN = "writing SDR......\nUpdate successfully\n"
ERASED = "28 22\n28 27 01 00 43 4C 52 AA\n28 22\n28 27 02 00 43 4C 52 00\n"
HEAD = 16 * "Z"  # the first bytes of a binary file
BLOCK = "Z\x09\x01\x02\x51\xC0\x02\xAA\xBB"
FIFTH = ": the record's fifth byte is not the number of bytes after it\n"


def body(size):
    """The body of a record."""
    return bytes(0x41 + i % 20 for i in range(size))


def act(line, faults="", **values):
    """What a run says and sends."""
    seen = run(line, faults=faults, **values)
    return seen.said + seen.sent


def written(count, size, faults="", **values):
    """Dumps so many records and writes them: how many the BMC holds then, and what is said."""
    hold_records(*count * [bytes(size)])
    run("--sdrdump a")
    said = run("--nrst --sdr a", faults=faults, **values).said.splitlines()
    return f"{len(held()['sdr.records']) // (5 + size)} held, {said[1]}"


def expect_sent(text, requests, name="a"):
    """A file of this text is written with these requests."""
    assert act("--open --sdr " + write(name, text)) == (
        f"{WRITTEN}reset BMC and wait\n{ERASED}28 25\n{requests}sleep 1000000\n18 02\nsleep 8000000\n")


def test_records_are_read_sixteen_bytes_at_a_time_and_no_more_than_the_bmc_claims():
    # Requests: reservation (2), record ID (2), offset, count.
    for size, last in ((0, "01 00 00 00 00 10"), (28, "03 00 00 00 20 01"), (245, "10 00 00 00 F0 0A"),
                       (255, "11 00 00 00 F4 10")):
        hold_records(bytes(size))
        assert act("--sdrdump a").endswith(f"28 22\n28 23 {last}\n")
    # Reading ends at the last record or at the claimed count, whichever comes first.
    hold_records(b"1", b"2", b"3")
    third = "28 23 03 00 03 00 00 10\n"
    for claimed, last in ((0, "28 20\n"), (2, "28 23 02 00 02 00 00 10\n"), (3, third), (0xFFFF, third)):
        assert act("--sdrdump a", SDR_CLAIMED=claimed).endswith(last)
    assert act("--sdrdump a", "shorten cmd=20 value=4").endswith(third), "the count alone"
    # An ID with one byte FF is not yet the end of the chain.
    hold({"sdr.records": sensor_record(0x00FF) + sensor_record(0xFFFE)})
    assert act("--sdrdump a").endswith("28 23 02 00 FE FF 00 10\n")


def test_a_dump_that_cannot_be_read_or_written_whole_is_no_file():
    info, second = "Get Sdr Repository Fail\n28 20\n", "Get SDR Record 02 00 Fail\n28 20\n"
    # The second part of a record needs a reservation.
    unreserved = "28 22\n28 23 00 00 00 00 00 10\n28 22\n28 23 00 00 00 00 10 0"
    hold_records(*3 * [bytes(15)])
    for faults, said in (("refuse cmd=20 value=C0", info), ("shorten cmd=20 value=3", info),
                         ("shorten cmd=23 skip=2 value=7", second), ("shorten cmd=23 skip=2 value=12", second),
                         ("refuse cmd=23 skip=3 value=FF", second), ("shorten cmd=23 skip=3 value=6", second),
                         ("refuse cmd=22 times=0 value=C1", "Get SDR Record 00 00 Fail\n28 20\n" + unreserved)):
        assert act("--sdrdump a", faults).startswith(said)
        assert content("a") == "(no file)"
    for file in ("/dev/full", "../work/"):
        assert act("--sdrdump " + file).startswith(f"Writting File {file} fail\n28 20\n")


def test_records_are_not_added_unless_the_erase_completes():
    assert written(1, 1, "refuse cmd=27 value=C5") == "1 held, Clear SDR Fail"
    for faults in ("refuse cmd=27 skip=1 value=C5", "shorten cmd=27 skip=1 value=1", "answer cmd=27 skip=1 bytes=0002"):
        assert written(1, 1, faults) == "0 held, Clear SDR Fail"
    assert written(1, 1, SDR_ERASE_POLLS=4) == "1 held, Update successfully"
    polls = "".join(f"sleep 100000\n28 22\n28 27 0{number} 00 43 4C 52 00\n" for number in range(3, 7))
    assert act("--nrst --sdr a", SDR_ERASE_POLLS=5) == (
        f"writing SDR......\nClear SDR Fail\n{ERASED}{polls}sleep 1000000\n")


def test_a_failure_ends_the_writing_of_whole_records_but_not_of_parts():
    # The empty Partial Add counts, too.
    assert written(3, 20, "refuse cmd=25 skip=3 value=C4") == "2 held, Write Sdr Record 00 00 fail"
    # The BMC gives a new record its ID, which is not that in the file.
    assert written(3, 20, "answer cmd=25 skip=3 bytes=000401") == "2 held, Write Sdr Record 04 01 fail"
    assert "\n28 25 04 00 04 01 10 01 00" in act("--nrst --sdr a", "answer cmd=25 skip=3 bytes=000401")
    # A BMC that takes the empty Partial Add has the command, too.
    assert written(1, 250, "answer cmd=25 bytes=00") == "1 held, Update successfully"
    # The answer to a record's last part need not repeat its ID.
    assert written(1, 20, "answer cmd=25 skip=2 bytes=00") == "1 held, Update successfully"
    # Everything that is sent for two records.
    hold_records(11 * b"\xAA", 27 * b"\xCC")
    run("--sdrdump a")
    expect_sent(content("a"), f"28 22\n28 25 03 00 00 00 00 01 01 00 51 C0 0B{11 * ' AA'}\n"
                f"28 22\n28 25 04 00 00 00 00 00 02 00 51 C0 1B{11 * ' CC'}\n28 25 04 00 02 00 10 01{16 * ' CC'}\n")
    hold({"sdr.partial_add": b"\0"})
    assert written(3, 20, "refuse cmd=24 skip=1 value=C4") == "1 held, Write Sdr Record 02 00 fail"
    # The KCS driver ends the process when a request is too long for it.
    assert written(1, 123) == "1 held, Update successfully"
    # A BMC that changes its mind after the erase.
    assert written(1, 124, "answer cmd=25 bytes=00") == "0 held, Write Sdr Record 01 00 fail"


def test_records_that_are_too_long_for_the_ports_do_not_cost_those_that_are_there():
    hold_records(bytes(123), bytes(124), bytes(250))
    records = held()["sdr.records"]
    run("--sdrdump a")
    asked = "28 25\n"  # the empty Partial Add, which is sent after the erase, too
    assert act("--nrst --sdr a").startswith(WRITTEN + asked + ERASED + asked)
    hold({"sdr.partial_add": b"\0"})
    assert act("--nrst --sdr a") == "writing SDR......\nSDR Record 02 00 needs --open\n28 25\nsleep 1000000\n"
    assert held()["sdr.records"] == records
    assert act("--open --nrst --sdr a").startswith(WRITTEN + ERASED + asked + "28 24 ")
    assert held()["sdr.records"] == records
    assert run("--strict --nrst --sdr a").err == (
        "qarn: the sensor record 0002 is too long for the ports: use --open; nothing is erased\n")


def test_a_file_that_is_wrong_is_refused_with_its_place_and_costs_no_repository():
    start = "_SDR (\n_SDR_TYPE 01\n_REC_LEN"
    many = "_SDR (\n" + 65536 * "_SDR_TYPE\n_REC_LEN 05\n01 00 51 C0 00\n"
    for name, text, reason in (
            ("a", start + " 06\n01 00 51 C0\n\n02 AA\n)\n", "line 6" + FIFTH),
            ("a", start + " 06\n01 00\n_SDR_TYPE 01\n", "line 4" + FIFTH),
            ("a", start + " 06", "line 3" + FIFTH),
            ("a", start + "// 06\n", "line 3: record length under 05\n"),
            ("a", start + " 0105\n", "line 3: record length over 0104\n"),
            ("a", start + " 1 00 00 00 00 06\n", "line 3: record length over 0104\n"),
            ("a", many, "line 196609: more than 65535 records\n"),
            ("a.dat", HEAD + BLOCK + "Z\x09.", "offset 25: the block runs past the end of the file\n"),
            ("a.dat", HEAD + "Z\x09\x01\x02\x51\xC0\x03\xAA\xBB", "offset 16" + FIFTH)):
        assert act("--open --sdr " + write(name, text)) == (
            f"{reason}load sdr file {name} failed\nreset BMC and wait\n18 02\nsleep 8000000\n")
    assert act("--nrst --sdr absent/a") == "load sdr file absent/a failed\n"


def test_records_are_written_as_people_spell_them_and_from_binary_blocks_two_bytes_apart():
    other = "_REC_LEN 06\n02 00 51 C0 01 CC\n"
    begun = "_SDR (\n_SDR_TYPE 01\n_REC_LEN 00 07\n01 02 51 C0 02"
    one = "28 24 01 02 51 C0 02 AA BB\n"
    hold({"sdr.partial_add": b"\0"})
    expect_sent("_sdr (\r\n_sdr_type c0 \r\n_rec_len 07\r\n0102 51 C002\r\n'\xAA\xBB'\r\n", one)
    expect_sent("_SDR_TYPE\n" + other + begun + " AA BB", one)
    expect_sent(begun + " AA\n_SDR_TYPE\n" + other, "28 24 01 02 51 C0 02 AA 00\n28 24 02 00 51 C0 01 CC\n")
    expect_sent(begun + " AA\nBB CC DD\nEE\n" + other, one)
    expect_sent("noise\n" + begun, "28 24 01 02 51 C0 02 00 00\n")
    expect_sent(begun + " AA // " + 3000 * "B" + "\nBB", one)
    expect_sent(HEAD + "Z\x07xx" + BLOCK + BLOCK + "Z", one + one, "a.DAT")
    expect_sent(HEAD + "Z\x08\x01\x02\x51\xC0\x01\xAA", "28 24 01 02 51 C0 01 AA\n", "a.dat")
    expect_sent(HEAD + "x" + BLOCK, "", "a.dat")
    expect_sent(HEAD + BLOCK, "", "a.data")


def dumped_with(comments):
    """A dump with this util.dat; a tab stands for the 35 blanks from a byte to its comment."""
    write("util.dat", comments)
    run("--sdrdump a")
    return content("a").replace(35 * " ", "\t")


def test_text_has_a_byte_a_line_and_its_comments_from_util_dat_in_one_column():
    run("--sdr " + write("sample", content(ROOT / "data/sample.sdr")))
    assert "// ID string type (bits 7..6) and length" in dumped_with(content(ROOT / "data/util.dat"))
    assert content("a").count("_SDR_TYPE") == 6
    # A section goes on where it stopped, and takes 43 lines in all.
    comments = ("<SDR_COMMENT_TYPE1>\r\n<SDR_COMMENT_TYPE2>\nno\n</SDR_COMMENT_TYPE2>\n<sdr_comment_TYPE1>\n"
                "top\n\n</SDR_COMMENT_TYPE2>\n</SDR_COMMENT_TYPE1>\nno\n<SDR_COMMENT_TYPE1>\n")
    # The ID string of the second has 3 characters; bit 5 says nothing.
    hold({"sdr.records": sensor_record(1, body(42) + b"\xC0", 0x01) +
          sensor_record(2, body(10) + b"\xE3" + body(15)[11:], 0x12)})
    text = dumped_with(comments + "".join(f"line {number}\n" for number in range(50)))
    assert text.startswith("_SDR (\n\n_SDR_TYPE    01\n")
    assert "\n\n   41\t// top\n   42\n   43\t// </SDR_COMMENT_TYPE2>\n   44\t// line 0\n" in text
    assert text[text.index("   C0\t"):] == (
        "   C0\t// line 39\n\n_SDR_TYPE    12\n_REC_LEN     14\n\n   02\t// Record ID LSB\n"
        "   00\t// Record ID MSB\n   51\t// SDR Version\n   12\t// Record Type\n   0F\t// Record Length\n\n"
        "   41\t// Device Slave Address\n   42\t// Channel Number\n   43\n   44\n   45\n   46\n   47\n   48\n"
        f"   49\n   4A\n   E3\n   'LMN'{32 * ' '}// Sensor ID String'\n\n\n)\n")


def test_comments_of_a_section_that_is_full_are_passed_over_when_it_occurs_again():
    hold_records(body(26) + b"\xC0", kind=0x02)
    assert "   41\t// one\n   42\t// two\n   43\n" in dumped_with(
        "<SDR_COMMENT_TYPE1>\n" + 43 * "x\n" +
        "<SDR_COMMENT_TYPE2>\none\n</SDR_COMMENT_TYPE2>\n<SDR_COMMENT_TYPE1>\nmore\n"
        "<SDR_COMMENT_TYPE2>\nwrong\n</SDR_COMMENT_TYPE1>\n<SDR_COMMENT_TYPE2>\ntwo\n")
