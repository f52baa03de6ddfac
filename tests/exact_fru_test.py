"""Inventories that are dumped and written back with --exact: no byte of a device changes."""

from random import Random

from fru_images import area, closed, header, image_of, record, serve
from harness import GENERATED, content, expect_told, fresh, held, run, write

ALPHABET = b"ab #/'\"\\ .\n\r\t//''##"  # with much that a text file cannot hold as it is


def any_field(random):
    """Of every type code, with text of every sort."""
    length = random.randrange(64 if random.randrange(4) == 0 else 13)
    text = random.choices(range(256) if random.randrange(4) == 0 else ALPHABET, k=length)
    return bytes([random.randrange(4) << 6 | length, *text])


def any_area(random, fixed, texts):
    """Of so many fixed bytes; one that ends early has fewer texts than these."""
    fields = random.randint(0, texts) if random.randrange(6) == 0 else texts + random.randrange(5)
    rest = random.randbytes(random.randrange(21)) if random.randrange(4) == 0 else bytes(random.randrange(10))
    mark = random.choice((b"", *9 * (b"\xC1",)))  # an area without its end mark is dumped as it is
    body = random.randbytes(fixed) + b"".join(any_field(random) for _ in range(fields)) + mark + rest
    return closed(body, form=random.randrange(256))


def any_records(random):
    """One to six of any type, format and length."""
    last = random.randrange(6)
    return b"".join(record(random.choice((0, random.randrange(256), random.randrange(256))),
                           random.randrange(128) | (number == last) << 7,
                           random.randbytes(random.choice((random.randrange(256), random.randrange(21)))))
                    for number in range(last + 1))


def any_device(random):
    """A device with any areas in any order and gaps of any bytes; and the same device with erased gaps."""
    least, more = random.choice((*13 * ((8, 300), (64, 1000), (2048, 2000)), (0xFFFF, 0)))
    size = least + random.randint(0, more)
    device, erased, offsets, at = bytearray(random.randbytes(size)), bytearray(size * b"\xFF"), [0] * 5, 8
    areas = [random.randbytes(2 + random.randrange(41)), any_area(random, 1, 2), any_area(random, 4, 5),
             any_area(random, 1, 7), any_records(random)]
    for part in random.sample(range(5), 5):
        at = (at + 7) // 8 * 8 + random.choice((0, 0, 8 * random.randrange(4)))
        end = at + len(areas[part])
        if random.randrange(4) > 0 and at // 8 <= 255 and end <= size:
            device[at:end] = erased[at:end] = areas[part]
            offsets[part], at = at // 8, end
    device[:8] = erased[:8] = header(*offsets, random.choice((0, 0, random.randrange(256))), random.randrange(256))
    if offsets[0]:  # an internal use area goes on up to the next one
        end = min([offset * 8 for offset in offsets if offset > offsets[0]] + [size])
        erased[offsets[0] * 8:end] = device[offsets[0] * 8:end]
    return bytes(device), bytes(erased)


def test_an_exact_dump_that_is_written_back_changes_no_byte_of_any_device():
    for first in range(0, GENERATED, 127):
        text, state, after = "_FRU\n", "", {}
        devices = [any_device(Random(seed)) for seed in range(first, min(first + 127, GENERATED))]
        devices.append((bytes(9), bytes(8) + b"\xFF"))  # a header of zeros
        for number, (device, erased) in enumerate(devices):
            serve(device, FRU_PAST_END="no")
            assert run("--open --strict --exact --wfru dump").told == "0", first + number
            for unit, old, new in ((2 * number, device, device), (2 * number + 1, len(device) * b"\xFF", erased)):
                state += f"fru.{unit:02X} {old.hex()}\n"
                after[f"fru.{unit:02X}"] = new
                text += content("dump").removeprefix("_FRU\n").replace("_DEV_ID 00", f"_DEV_ID {unit:02X}", 1)
        fresh("plain", FRU_PAST_END="no")
        write("../state", state)
        assert run("--open --strict --exact --fru " + write("all", text)).told == "0"
        left = held()
        assert [(first, name) for name in after if left[name] != after[name]] == []


def updated(device, text, options="--strict --exact"):
    """A run that writes this text to this device, and the device afterwards."""
    serve(device, FRU_PAST_END="no")
    return run(f"{options} --fru " + write("given", text)), held()["fru.00"]


def edited(device, old, new, options="--strict --exact"):
    """The same with the text that is dumped exactly, after one change."""
    serve(device, FRU_PAST_END="no")
    run("--exact --wfru dump")
    text = content("dump").replace(old, new, 1)
    assert new in text
    return updated(device, text, options)


BOARD = area(b"\0\1\2\3", (b"Maker", b"Fan '1'", b"S", b"", b""), units=4)
PRODUCT = area(b"\0", (b"#", b"a//b", b"", b"", b"", b"", b""))


def chassis(serial=b"PN#4"):
    return area(b"\x17", (b"CP", serial))


def three_areas(serial=b"PN#4", product=8):
    """A chassis at 8, a board at 24 with one unit of room after it, a product area at the end."""
    return header(chassis=1, board=3, product=product) + chassis(serial) + BOARD + 8 * b"\xEE" + PRODUCT


def without_file_id(serial):
    """A board without a file ID; a byte of its date makes the checksum of the one with "S1" C1."""
    date = area(b"\0\0\0\0", (b"Maker", b"B1", b"S1", b""), units=5)[-1] - 0xC1
    return image_of(board=area(bytes([0, date & 0xFF, 0, 0]), (b"Maker", b"B1", serial, b""), units=5))


def with_rest(field):
    """A chassis with this field, another, and bytes after its end mark."""
    return image_of(chassis=closed(b"\x17" + field + b"\xC0\xC1OEM"))


def test_an_edit_changes_what_is_edited_and_no_other_byte():
    serial = "C4\n   'PN'23'4'"
    for what, before, old, new, after in (
            ("a serial number", three_areas(), serial, "C4\n   'PN'23'5'", three_areas(b"PN#5")),
            ("a shorter one", three_areas(), serial, "C2\n   'PN'", three_areas(b"PN")),
            ("bytes after the end mark", with_rest(b"\xC1A") + bytes(8), "C1\n   'A'", "C8\n   'ABCDEFGH'",
             with_rest(b"\xC8ABCDEFGH")),
            ("a checksum that looks like an end mark", without_file_id(b"S1"), "'S1'", "'S2'", without_file_id(b"S2")),
            ("the same, longer", without_file_id(b"S1"), "C2\n   'S1'", "C3\n   'S12'", without_file_id(b"S12")),
            ("a length of zero", three_areas(), "_SEE_PRODUCT\n   01\n   03", "_SEE_PRODUCT\n   01\n   00",
             three_areas(product=0))):
        seen, device = edited(before, old, new)
        assert (seen.told, device) == ("0", after), what
    packed = image_of(chassis=chassis(), board=BOARD, product=PRODUCT)
    # The exact text is read in the plain form, too.
    assert edited(packed, "'23'4'", "'23'5'", "")[1] == image_of(b"", chassis(b"PN#5"), BOARD, PRODUCT)


def test_an_area_that_outgrows_its_place_moves_those_after_it_and_says_so():
    longer = "C4\n   'PN'23'4'", "DA\n   'PN'23'4 and twenty more bytes'"
    seen, device = edited(three_areas(), *longer)
    assert seen.err.endswith("the product area ends at 104, the device at 88\n")
    assert device == three_areas(), "nothing is written"
    seen, device = edited(three_areas().ljust(200, b"\xEE"), *longer)
    assert seen.told == ("qarn: inventory device 0: the board area moves from 24 to 48\n"
                         "qarn: inventory device 0: the product area moves from 64 to 80\n0")
    moved = header(chassis=1, board=6, product=10) + chassis(b"PN#4 and twenty more bytes") + BOARD + PRODUCT
    assert device == moved.ljust(200, b"\xEE")


def test_a_field_whose_length_does_not_fit_its_text_is_refused_with_the_line():
    # The last one swallows the next line, though no text follows.
    for before, old, new, line in (
            (three_areas(), "'PN'23'4'", "'PN'23'4567'", "line 22: "),
            (three_areas(), "'Maker'", "'Make'", "line 37: "),
            (image_of(chassis=area(b"\x17", (b"A", b"X0001", b"", b""))), "'X0001'", "'X00'",
             "line 22: a field's length does not fit its text")):
        seen, device = edited(before, old, new, "--exact")
        assert (seen.status, device) == (1, before)
        assert line in seen.out


def test_a_text_that_cannot_be_a_device_is_refused_before_anything_is_written():
    many = 80 * "D0 '0123456789ABCDEF' 00 00 00 00 00 00 00 00 00 00 00\n"
    last_place = f"_SEE_COMMON\n01 00 01 03 00 00 00 FB\n_SEE_PRODUCT\n01 02 00{7 * ' C0'} C1\n"
    internal = f"_SEE_COMMON\n01 00 01 00 00 08 00 F6\n_SEE_INTERNAL\n{9 * '01 '}\n_SEE_CHASSIS\n01 02 17\nC0\nC0\nC1\n"
    erased = 4096 * b"\xFF"
    for sections, before, says in (
            ("_SEE_CHASSIS\n01 02\n", erased, "line 4: the section ends before its fields do"),
            ("_SEE_CHASSIS\n01 02 17 C0 C0\n", erased, "line 4: the section has no end mark C1"),
            (f"_SEE_CHASSIS\n01 02 17 C0 C0\n{many}C1\n", erased, "line 4: the area is too long"),
            ("_SEE_MULTIREC\n02 82 04 00 00 01\n", erased, "line 4: a record is not whole"),
            ("_SEE_MULTIREC\n00 82 01 00 00 01\n", erased, "line 4: a first record of type 00 needs a right"),
            (internal, 40 * b"\xFF", "the internal use area ends at 81, the device at 40\n"),
            # It must not touch areas whose sections are left out.
            (last_place, image_of(chassis=chassis(b"A"), board=area(b"\0\1\2\3", (b"B", b"", b"", b"", b""))),
             "the product area ends at 56, the device at 40\n")):
        seen, device = updated(before, "_FRU\n_DEV_ID 00\n" + sections)
        assert says in seen.out + seen.err
        assert device == before


def test_a_text_without_a_checksum_or_a_header_gets_them():
    for sections, told, made in (
            ("_SEE_COMMON\n01 00 01 00 00 00 00 FE\n_SEE_CHASSIS\n01 02 17\nC4 'CP-1'\nC6 'CS1234'\nC1\n", "0",
             image_of(b"", area(b"\x17", (b"CP-1", b"CS1234")))),
            ("_SEE_CHASSIS\n01 01 17\nC1 'A'\nC0\nC1\n00\n",
             "qarn: inventory device 0: the chassis area is put at 8\n0", image_of(b"", area(b"\x17", (b"A", b""))))):
        seen, device = updated(len(made) * b"\xFF", "_FRU\n_DEV_ID 00\n" + sections)
        assert (seen.told, device) == (told, made)


def test_a_broken_device_is_not_dumped_and_its_place_is_named():
    two = image_of(records=record(2, 2, b"\1\2\3") + record(3, 0x82, b"\4"))
    sums = "its bytes sum up to 01, not 00"
    for sound, at, plain, exact in (
            (three_areas(), 7, "common header at 0: " + sums, ""),
            (three_areas(), 30, "board area at 24: " + sums, ""), (three_areas(), 65, "product area at 64: ", ""),
            (two, 8, "multi-record area at 8: " + sums, ""), (two, 16, "multi-record area at 16: " + sums, ""),
            (two, 21, "multi-record area at 16: the checksum of its bytes is ", "multi-record area at 21: " + sums)):
        serve(sound[:at] + bytes([sound[at] + 1 & 0xFF]) + sound[at + 1:], FRU_PAST_END="no")
        for option, place in (("", plain), ("--exact ", exact or plain)):
            seen = run(f"--strict {option}--wfru wrong")
            assert seen.out.endswith("reading FRU......\nchecksum error\n") and seen.status == 1
            assert seen.err.startswith("qarn: inventory device 0, " + place)
    serve(three_areas(product=1))
    assert run("--strict --exact --wfru shared").err == (
        "qarn: inventory device 0, product area at 8: another area has its bytes\n")


def test_a_plain_dump_that_would_not_restore_names_what_is_lost():
    typed = area(b"\x17", (b"A", b"bc", b"d"), (2, 3, 0))
    serve(header(internal=10, chassis=1, board=3, product=7, records=12) + typed + BOARD + PRODUCT + 16 * b"\1" +
          record(0, 0x92, b"\1\2"), FRU_PAST_END="no")
    expect_told("--wfru plain", """\
FRU 0: board product name, product manufacturer, product name: the text does not read back; use --exact
FRU 0: chassis part number, chassis custom field: the type of the field is not kept; use --exact
FRU 0: chassis custom field: a field of one byte ends the fields; use --exact
FRU 0: internal use area: it is not dumped; use --exact
FRU 0: the format byte of an area or a record is not kept; use --exact
FRU 0: multi-record area: its first record is of type 00; use --exact""", to_people=True)
    assert content("plain").startswith("_FRU\n"), "the file is written"
    assert run("--strict --exact --wfru exact").told == "0"
    serve(image_of(records=7 * record(2, 2, 255 * b"\1") + record(2, 0x82, 224 * b"\1")))  # one byte too long
    expect_told("--wfru long", "FRU 0: multi-record area: it is too long to be read back; use --exact", to_people=True)


def test_fields_that_end_early_and_areas_at_the_very_end_can_be_read():
    board = area(b"\0\1\2\3", (b"Maker", b"Board", b"S1", b"P1"))  # no file ID
    for device in (image_of(chassis=chassis(b"")), image_of(records=record(2, 0x82, b"\1\2")), image_of(board=board)):
        serve(device, FRU_PAST_END="no")
        assert run("--strict --wfru odd").told == "0"
    assert "'P1'\n   C0\n   C1\n" in content("odd")
