"""The image reader: names, portions, S-records in every shape, images that become unusable in an update."""

import os
import subprocess
from signal import SIGCONT

from firmware import RESET, flash, in_words, noise, padded, serve_card, srecords
from harness import Run, run, start, write


def expect_read(image, *portions):
    """A verification of these S-records reads these portions, an address and bytes each, and nothing more: it names
    the bytes of the flash that are changed, one of each portion, but no others."""
    portions = [*portions, (0, b"")]
    content = b"".join(padded(data, 4096) for _, data in portions)
    changed = [byte ^ 0xFF if i % 4096 == 2048 else byte for i, byte in enumerate(content)]
    serve_card(base=0, size=len(content), start=0, flash=bytes(changed))
    named = "".join(f".data wrong at {address + 2048:X}\n" for address, _ in portions)
    assert f"\nVerify now\n{named}OK\n" in run("--open --verify " + write("fw.mot", image)).said


def expect_refused(reason, image):
    """A verification finds that the image cannot be used."""
    assert f"OK\ncannot use the image: line {reason}\nreset" in run("--verify " + write("fw.mot", image)).said, image


def test_the_name_of_an_image_decides_how_it_is_read():
    read = b""  # of each image: the record's data, or the record itself
    for name in (".mot", "fw.bin.mot", "fw.mot.bin", ".mot.mot", "fw.MOT", "fw"):
        serve_card(base=0, start=0)
        run("-u " + write(name, srecords(0, b"d")))
        read += flash()[:1]
    assert read == b"ddSSSS"


def test_a_record_is_placed_or_refused_with_its_line():
    others = "S00600004844521B\r\nS1051000AABB00\r\n\r\nnote\r\n"
    expect_read(others)
    expect_read(others + "S3070001F000abCD00 \t\rS3060001F002EF00\nS3060001F003FE00\r\n" + others,
                (0x1F000, b"\xAB\xCD\xEF\xFE"))
    # A portion ends within a record.
    expect_read("S306FFF03FFF2100\n" + srecords(0xFFF04000, noise(5000)),
                (0xFFF03FFF, b"!" + noise(4095)), (0xFFF04FFF, noise(5000)[4095:]))
    # A gap is read as FF, after a long one a new portion begins. The last line has no line end.
    expect_read(srecords(0x10000, b"start") + srecords(0x10FA0, b"near") + "S306000113884600",
                (0x10000, padded(b"start", 4000) + b"near"), (0x11388, b"F"))
    expect_refused("2: a character is not a hexadecimal digit", "S30600001000AA00\nS306000010G1BB00")
    expect_refused("1: a character is not a hexadecimal digit", "S3 600001000AA00\n")
    expect_refused("4: the byte count is below 5", "\n\r\n\rS3040000100000\n")
    expect_refused("1: the line is longer than its byte count", "S30600001000AABB00\n")
    expect_refused("1: the data runs past the last address", "S307FFFFFFFFAABB00\n")
    for short in ("S306000010\x000AA00\n", *("S30600001000AA00"[:length] for length in range(2, 16))):
        expect_refused("1: the line is shorter than its byte count", short)


def test_a_record_is_placed_inside_its_portion_whatever_the_order():
    abc, empty = srecords(0x1000, b"abc"), "S30500001000EA\n"
    expect_read(abc + srecords(0x1004, b"e") + srecords(0x1003, b"d"), (0x1000, b"abcde"))
    expect_read(abc + abc, (0x1000, b"abc"))
    expect_read(abc + srecords(0x1001, b"XYZ"), (0x1000, b"aXYZ"))
    # A record without data sets the base, and closes a portion.
    expect_read(empty + srecords(0x1002, b"c"), (0x1000, b"\xFF\xFFc"))
    expect_read(srecords(0xFFF, b"a") + empty + srecords(0x1000, b"b"), (0xFFF, b"ab"))
    expect_read(srecords(0, b"a") + empty + srecords(0x1001, b"b"), (0, b"a"), (0x1000, b"\xFFb"))
    expect_read(srecords(0, b"a") + empty, (0, b"a"), (0x1000, b""))
    # A portion that is full is closed.
    full, end = srecords(0x1000, noise(4096)), srecords(0x1000, b"a") + srecords(0x1FFF, b"xy")
    expect_read(full + srecords(0x2000, b"x"), (0x1000, noise(4096)), (0x2000, b"x"))
    expect_read(end + srecords(0x2000, b"z"), (0x1000, padded(b"a", 4095) + b"x"), (0x2000, b"z"))
    for line, image in ((2, abc + srecords(0xFFF, b"x")), (2, srecords(0x1001, b"a") + empty),
                        (257, full + srecords(0x1FFF, b"x")), (3, end + srecords(0x1001, b"b")),
                        (258, full + srecords(0x2010, b"x") + srecords(0x2000, b"y"))):
        expect_refused(f"{line}: the record lies below the portion that is being filled", image)


def test_an_update_stops_when_the_image_is_not_the_one_that_was_checked_any_more():
    for name, image in (("fw.bin", noise(12288)), ("fw.mot", srecords(0, noise(12288)))):
        # Emptied, written again as it was, other bytes but neither longer nor newer, removed, replaced; unreadable.
        for harm in ("truncate -s 0", "cp same", "cp -p other", "rm", "mv same", None):
            for each, data in ((name, image), ("same", image), ("other", len(image) * "x")):
                os.utime(write(each, data), (0, 0))
            serve_card(base=0, size=12288, start=0, block=64, chunk=64)
            process = start("-u " + name, faults=f"signal cmd=5 value={13 if harm else 17}")  # STOP or URG
            if harm:
                os.waitid(os.P_PID, process.pid, os.WSTOPPED | os.WEXITED | os.WNOWAIT)
                subprocess.run([*harm.split(), name], check=True)
                process.send_signal(SIGCONT)
            seen = Run(process.wait(60), "")
            reason = "it is not the file that was checked" if harm else "it cannot be read"
            assert f"\n..cannot use the image: {reason} any more\ncan't find file {name}\n" in seen.said, harm
            assert in_words(seen.sent) == (
                "enter sleep 2000000 information " + 64 * "chunk sleep 2000 end " + RESET)
            assert flash() == noise(4096) + 8192 * b".", harm
