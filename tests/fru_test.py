"""Inventories as plain text: requests on the wire, the text, devices there and back; broken devices and files."""

from pathlib import Path

from fru_images import area, header, image_of, record, serve
from harness import ROOT, content, each_line, fresh, held, hold, run, write

UPDATED = "reading file......\nwriting FRU......\nUpdate successfully\n"
NOT_UPDATED = "reading file......\nwriting FRU......\nUpdate FRU fail\n"
BLOCK = "_FRU\n_FRU_TITLE 'x'\n_DEV_ID 00\n"  # the sections of a device follow
# A device without a product area, with an internal use area of unknown length, as it is dumped.
DUMP = (
    "_FRU\n\n_FRU_TITLE '(null)'\n_DATA_LEN 0000\n_DEV_ACCESS_ADDR 00\n_DEV_SLAVE_ADDR 00\n_DEV_ID 00\n"
    "_DEV_ACCESS_LUN 00\n_BUS_ID 00\n\n_SEE_COMMON\n   01\n   01\n   01\n   04\n   00\n   09\n   00\n   00\n"
    "\n_SEE_INTERNAL\n   00\n\n_SEE_CHASSIS\n   01\n   03\n   17\n   C4\n   'CP-1'\n   C5\n   'CS123'\n   C0\n   ''\n"
    "   C1\n   BE\n\n_SEE_BOARD\n   01\n   05\n   19\n   80 1A 9B\n   C5\n   'Maker'\n   C5\n   'Board'\n   C5\n"
    "   'B0001'\n   C5\n   'P-100'\n   C0\n   C1\n   2E\n\n_SEE_PRODUCT\n   01\n   00\n   00\n   C0\n   C0\n   C0\n"
    "   C0\n   C0\n   C0\n   C0\n   C1\n   00\n\n_SEE_MULTIREC\n\n   01\n   02\n   00\n   00\n   8D     // header "
    "checksum\n\n   C0\n   82\n   0B\n   22\n   21     // header checksum\n\n   5A 5A 5A 5A 5A 5A 5A 5A\n   5A 5A 5A")


def qarn(line, **how):
    """A run as one text: what it says from the reading on, what it sends, its exit status."""
    seen = run("--open " + line, **how)
    return f"{seen.out[seen.out.index('reading '):]}{seen.sent}status {seen.status}"


def updated(text):
    return qarn("--fru " + write("new", text))


def dumped(faults=""):
    """Device 0 as text, or "(no file)" when it cannot be read whole."""
    Path("dump").unlink(missing_ok=True)
    run("--open --wfru dump", faults=faults)
    return content("dump")


def test_a_device_is_read_area_by_area_dumped_as_text_and_written_back_by_sixteen_bytes():
    areas = area(b"\x17", (b"CP-1", b"CS123", b""))
    areas += area(b"\x19\x80\x1A\x9B", (b"Maker", b"Board", b"B0001", b"P-100", b""))
    serve(header(form=0xF1, internal=1, chassis=1, board=4, records=9) + areas + record(1, 0x72, b"") +
          record(0xC0, 0xF2, 11 * b"\x5A"))
    reads = ("00 00 08", "08 00 10", "08 00 10", "18 00 08", "20 00 10", "20 00 10", "30 00 10", "40 00 08", "48 00 10",
             "48 00 05", "4D 00 10", "4D 00 10", "5D 00 00")
    # Device 0 is read even if it does not answer the probe.
    assert qarn("--wfru dump", faults="refuse cmd=10 value=c1") == (
        "reading FRU......\nwriting file......ok\n28 10 00\n" + "".join(f"28 11 00 {read}\n" for read in reads) +
        "status 0")
    assert content("dump") == DUMP
    serve(size=93)
    image = header(chassis=1, board=4, records=9) + areas + record(1, 2, b"") + record(0xC0, 0x82, 11 * b"\x5A")
    writes = (f"28 12 00 {at:02X} 00 {image[at:at + 16].hex(' ').upper()}\n" for at in range(0, 93, 16))
    assert updated(DUMP) == UPDATED + "28 10 00\n" + "".join(writes) + "status 0"


def full_image(*codes):
    """A device with every kind of field and record."""
    longest = 63 * b"z"
    return image_of(
        chassis=area(b"\x17", (b"", b"CS", b"custom 1", b"", longest), codes),
        board=area(b"\x19\1\2\3", (b"\x81\xFE\x7F", longest, b"", b"P\t1", b"id"), codes),
        product=area(b"\x19", (b"Maker", b"Server", b"", b"1.0", longest, b"", b"id", b"xy"), codes),
        records=record(2, 2, 11 * b"\x5A") + record(0xC0, 0x82, 255 * b"\7"))


def test_every_area_field_and_record_survives_dump_and_update():
    greatest = image_of(product=area(b"\0", [*7 * [b""], *31 * [63 * b"x"], 43 * b"y"]))
    assert len(greatest) == 8 + 255 * 8, "no byte is left for padding"
    for image, rebuilt in ((full_image(0, 1, 2, 3), full_image(3)), (greatest, greatest)):
        serve(image)
        text = dumped()
        serve(size=len(image))
        updated(text)
        assert held()["fru.00"] == rebuilt
    serve(size=1024)
    assert updated(content(ROOT / "data/sample.fru")).startswith(UPDATED)


def test_each_block_is_written_to_its_own_device():
    serve(size=64)
    hold({"fru.07": bytes(64)})
    assert updated(
        "_fru_title 'replaced'\n_FRU_TITLE 'one'\n_data_len 01 02 00 03\n_dev_id 07\n_BUS_ID 0A\n_ACCESS_LUN 3\n"
        "nothing\n_see_common // the pad is kept\n 01 FF FF FF FF FF 5A FF\n_SEE_BOARD\n01 00\n"
        "_SEE_COMMON\n09\n"  # too late: bytes of the board area
        "_FRU_TITLE 'two'\n_DEV_ID 00\n_SEE_COMMON\n 02 00 00 00 00 00 00 00") == (
        UPDATED + "28 10 07\n28 12 07 00 00 01 00 00 00 00 00 5A A5\n28 10 00\n28 12 00 00 00 02 00 00 00 00 00 00 FE\n"
        "status 0")


def test_lengths_padding_offsets_and_end_bits_come_out_right():
    nothing, internal, no_texts = header(), header(internal=1), 5 * (b"",)
    for section, image in (
            ("_SEE_INTERNAL\n05\n", nothing),
            ("_SEE_INTERNAL\n05 AA", internal + b"\5\xAA\0\0\0\0\0\0"),
            ("_SEE_INTERNAL\n05 '7777777'", internal + b"\0057777777"),
            ("_SEE_INTERNAL\n05 '88888888'", internal + b"\00588888888" + bytes(7)),
            ("_SEE_CHASSIS\n0F 7F 17 02 'AB' C1 'X' C1", image_of(chassis=area(b"\x17", (b"AB", b"X")))),
            ("_SEE_CHASSIS\n01 7F 17 C0 C0 C1 'X' C1", image_of(chassis=area(b"\x17", (b"", b"")))),
            ("_SEE_CHASSIS\n01 00 17 anything", nothing),
            ("_SEE_BOARD\n01 01 19 000000 C0C0C0C0C0 C1", image_of(board=area(b"\x19\0\0\0", no_texts))),
            ("_SEE_BOARD\n01 05 19 000000 C0C0C0C0C0 C1", image_of(board=area(b"\x19\0\0\0", no_texts, units=5))),
            ("_SEE_PRODUCT\n01 7F 00 C2 'AB' C0C0C0C0C0C0 C0 C1", image_of(product=area(b"\0", (b"AB", *7 * (b"",))))),
            ("_SEE_MULTIREC\n00 82 00 00 00", nothing),
            ("_SEE_MULTIREC\nC0 72 01 00 00 11  C1 F3 00 00 00  C2 80",
             image_of(records=record(0xC0, 2, b"\x11") + record(0xC1, 0x83, b"")))):
        serve(len(image) * b"\xEE")
        updated(BLOCK + section)
        assert held()["fru.00"] == image, section


def board_ending(tail):
    """A board area of 16 bytes that ends like this after its texts; a byte of the date makes its checksum hold."""
    board = b"\1\2\0\0\0\0" + 5 * b"\xC0" + tail
    return image_of(board=board[:3] + bytes([-sum(board) & 0xFF]) + board[4:])


def test_a_broken_device_leaves_no_dump():
    fresh("plain")
    good = held()["fru.00"][:112]
    zeros = image_of(chassis=bytes([1, 5, *bytes(30), 0xC1, *bytes(6), 0x39]))  # its second chunk holds zeros only
    for what, image, faults in (
            ("erased", 256 * b"\xFF", ""),
            ("header cut", good, "shorten cmd=11 value=9"),
            ("header counted as 7 bytes", good, "answer cmd=11 bytes=0007" + good[:8].hex()),
            ("refused where zeros are", zeros, "refuse cmd=11 skip=3 value=81"),
            ("8 bytes of 16", good, "shorten cmd=11 skip=2 value=a"),
            ("length that changes", good, "answer cmd=11 skip=1 bytes=00100104"),
            ("area of length 0", image_of(chassis=bytes(40)), ""),
            ("area after the end", header(chassis=0xFF), ""),
            ("no end mark", board_ending(bytes(5)), ""),
            ("end mark is the checksum", board_ending(b"\0\0\0\0\xC1"), ""),
            ("field past the end", board_ending(b"\xC5\0\0\0\0"), ""),
            ("no end bit", image_of(records=2 * record(0xC0, 2, b"\1\2")), "")):
        serve(image)
        assert dumped(faults) == "(no file)", what
    serve(zeros)
    assert dumped() != "(no file)"
    for path, claimed, said in (("/dev/full", 112, "writing file......fail"), ("/no/f", 112, "writing file......fail"),
                                ("dump", 110, "checksum error")):
        serve(good, FRU_CLAIMED=claimed)
        seen = qarn("--wfru " + path)
        assert seen.startswith(f"reading FRU......\n{said}\n28") and seen.endswith("\nstatus 1")


def test_zeros_are_no_endless_list_of_records():
    serve(image_of(records=bytes(8)), 0x10000, FRU_CLAIMED=0)  # it does not say its size
    assert qarn("--wfru /dev/null").endswith("28 11 00 F8 FF 05\nstatus 1")


def test_every_corrupt_byte_and_every_truncation_is_read_right_or_is_a_fault():
    good = image_of(chassis=area(b"\x17", (b"A", b"BC", b"custom")), records=record(0xC0, 0x82, b"\x11"))
    image = good + b"\x33"
    serve(image)
    sound = dumped()
    for at, byte in enumerate(image):
        for wrong in (image[:at] + bytes([byte ^ 1]) + image[at + 1:], image[:at]):
            serve(wrong)
            assert dumped() == ("(no file)" if at < len(good) else sound), wrong


def test_a_refused_file_names_the_line_and_writes_nothing():
    common, chassis, records = (f"{BLOCK}_SEE_{part}" for part in ("COMMON\n", "CHASSIS\n01 02 17\n", "MULTIREC\nC0 "))
    eight = "01 00 00 00 00 00 00 00\n"
    few, many = "the common section has fewer than 8 bytes", "the section has too many bytes"
    for text, reason in (
            ("_FRU\n_FRU_TITLE 'x'\n", ""),  # no line, the file has nothing to read
            (common + "01 00 00\n00 00 00 00\n", "line 6: " + few),
            (common + 300 * " " + "01\n\n02\n", "line 7: " + few),
            (chassis + "C2 'AB'\n\n# end\n", "line 6: the section ends before its fields do"),
            (chassis + "C2 'AB'\nC3\n'CD'\n", "line 7: a field is longer than what is left of the section"),
            (chassis + "C0 C0\nC2 'CD'\n_SEE_BOARD\n01 00\n", "line 7: the section has no end mark C1"),
            (records + "02 01 00 00\n11\nC0 82 03 00 00\n11 22\n",
             "line 7: a record is longer than what is left of the section"),
            (records + "02 01 00 00\n11\n", "line 6: no record has the end-of-list bit 80"),
            (common + eight + "_FRU_TITLE 'y'\n_SEE_BOARD\n", "line 6: more device blocks than _DEV_ID lines"),
            (common + eight + "_DEV_ID 01\n", "line 6: fewer device blocks than _DEV_ID lines"),
            (256 * "_DEV_ID 01\n", "line 256: fewer device blocks than _DEV_ID lines"),
            (257 * "_DEV_ID 01\n", "line 257: more than 256 devices"),
            (BLOCK + "_SEE_PRODUCT\n01 01 00\n" + 52 * f"'{40 * 'x'}'\n", "line 57: " + many),
            (common + 33 * eight, "line 37: " + many)):
        assert updated(text) == f"reading file......\n{each_line('', reason)}Cannot read file new\nstatus 1"
    assert qarn("--fru /no/f") == "reading file......\nCannot read file /no/f\nstatus 1"


def product(length):
    """A section whose last field has so many characters: 35 make the area 254 units long."""
    longest = 31 * f"FF '{63 * 'x'}'\n"
    return f"_SEE_PRODUCT\n01 01 00 C0 C0 C0 C0 C0 C0 C0\n{longest}{0xC0 | length:02X} '{length * 'y'}' C1\n"


def test_what_does_not_fit_is_not_written_and_a_refused_write_is_the_last():
    last = "_SEE_MULTIREC\n01 80 00 00 00\n"  # begins in unit 255 at most
    serve(size=4096)
    assert updated(BLOCK + product(35) + last).startswith(UPDATED)
    for text in (product(36) + last, product(44), "_SEE_COMMON\n_FRU_TITLE 'two'\n_DEV_ID 01\n" + product(44)):
        assert updated(BLOCK + text) == NOT_UPDATED + "status 1"
    serve(size=92)
    assert updated(DUMP) == NOT_UPDATED + "28 10 00\nstatus 1"
    hold({"fru.00": None, "fru.01": bytes(93)})
    assert updated(DUMP) == NOT_UPDATED + "28 10 00\nstatus 1"
    serve(size=93, FRU_PROTECTED=0x28)
    assert updated(DUMP).partition("28 12 00 20 00 ")[2].count("\n") == 1
