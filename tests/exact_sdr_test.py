"""Sensor records in their exact form: what it looks like, and that it loses nothing."""

import random

from harness import GENERATED, ROOT, content, expect_told, held, hold, hold_records, run, write

NAME, REST = "the name does not read back", "the bytes after the name are not dumped"
LONG = "a record of more than 255 bytes does not read back"
FIXED = {0x01: 43, 0x02: 27, 0x03: 12, 0x10: 11, 0x11: 11, 0x12: 11}  # bytes before the ID string, by type


def hold_name(type_and_length, name):
    """The record of a management controller whose ID string has this type and length and these bytes."""
    hold_records(bytes(10) + bytes([type_and_length]) + name, kind=0x12)


def test_an_exact_dump_spells_every_byte_of_an_id_string_and_after_it():
    for type_and_length, name, text, after in (
            (0xC6, b"Fan #1", "'Fan '23'1'", ""), (0xC8, b"Bob's //", "'Bob'27's '2F2F", ""),
            (0xC3, b"a/b", "'a/b'", ""), (0x82, b"\xFF\n", "FF0A", ""), (0xC2, b" xyz", "' x'", "   79\n   7A\n"),
            (0xC0, b"y", "", "   79\n"), (0xDF, b"short", "'short'", ""), (0xC0, b"", "", "")):
        hold_name(type_and_length, name)
        line = f"   {text:37}// Sensor ID String\n" if text else ""
        run("--exact --sdrdump d")
        assert content("d").endswith(f"   00\n   {type_and_length:02X}\n{line}{after}\n\n)\n")


def test_a_long_record_has_a_length_of_two_bytes_and_its_last_part_takes_all_that_is_left_along():
    for size, length in ((250, "FF"), (251, "0100"), (255, "0104")):  # the offset of a part is one byte
        hold_records(size * b"\xAB")
        run("--exact --sdrdump d")
        assert f"_REC_LEN     {length}\n" in content("d")
        assert run("--nrst --sdr d").sent.endswith(f"\n28 25 03 00 01 00 F0 01{(size - 235) * ' AB'}\nsleep 1000000\n")


def test_a_plain_dump_tells_which_records_and_names_do_not_read_back():
    for type_and_length, name, kinds in ((0xC6, b"Fan #1", [NAME]), (0xCE, b"\n_SDR_TYPE\n_RE", [NAME]),
                                         (0xC2, b"ab.", [REST]), (0xC1, b"#.", [NAME, REST]),
                                         (0xC2, b"ab\0", []), (0xDF, b"/a\xFF ", [])):
        hold_name(type_and_length, name)
        expect_told("--sdrdump d", "".join(f"SDR 0001: {kind}; use --exact\n" for kind in kinds), to_people=True)
    hold_records(bytes(250))
    expect_told("--sdrdump d", "", to_people=True)
    expect_told("--sdrdump d.DAT", "d.DAT: under this name it is read as binary", to_people=True)
    hold_records(bytes(251))
    expect_told("--sdrdump d", f"SDR 0001: {LONG}; use --exact", to_people=True)
    assert run("--nrst --sdr d").said == "line 4: record length over 0104\nload sdr file d failed\n"


def any_record(number, some):
    """A record of any type, length and content; often a name with what means something in a text."""
    kind = some.choice([*FIXED, 0x14, 0xC0, some.randrange(256)])
    fixed = FIXED.get(kind, 0)
    size = some.choice([some.randrange(256), some.randrange(245, 256), fixed, fixed + some.randrange(32),
                        some.randrange(64)])
    letters = b"Fan 1''##///\\\"\0\n\r\t_)AFz\xFF"
    body = bytearray(some.choices(some.choice([bytes(range(256)), letters, letters]), k=size))
    zeros = some.choice([0, 0, some.randrange(size + 1)])
    body[size - zeros:] = bytes(zeros)
    if 0 < fixed < size and some.choice([True, False]):  # the name ends with the record, else anywhere
        body[fixed - 1] = some.randrange(8) << 5 | min(size - fixed, 31)
    return bytes([*number.to_bytes(2, "little"), some.randrange(256), kind, size]) + body


def losses_of(records, way):
    """Writes the plain dump of these records to a BMC without any: {what is lost: records}."""
    losses = {NAME: [], REST: [], LONG: [record for record in records if len(record) > 255]}
    start, *texts = content("plain").split("\n_SDR_TYPE")
    # Any long one would have the whole file refused.
    short = [(record, text) for record, text in zip(records, texts, strict=True) if len(record) <= 255]
    hold_records()
    run(f"{way}--nrst --sdr " + write("short", "\n_SDR_TYPE".join([start, *[text for _, text in short]])))
    rest = held()["sdr.records"]
    for record, _ in short:
        again, rest = record[:2] + rest[2:len(record)], rest[len(record):]  # the BMC gave it another ID
        fixed = FIXED.get(record[3], 255)
        end = 5 + fixed + (record[4 + fixed] & 31) if fixed <= record[4] else len(record)
        for kind, part in ((NAME, slice(end)), (REST, slice(end, None))):
            if again[part] != record[part]:
                losses[kind].append(record)
    assert rest == b""
    return losses


def test_records_of_any_content_come_back_under_any_name_and_a_plain_dump_tells_which_do_not():
    write("util.dat", content(ROOT / "data/util.dat"))
    for seed in range(GENERATED // 100):
        some = random.Random(seed)
        records = [any_record(number, some) for number in range(1, 451)]
        way, partial_add = (("", 1), ("--open ", 1), ("--open ", 0))[seed % 3]
        hold({"sdr.records": b"".join(records), "sdr.partial_add": bytes([partial_add])})
        assert run(way + "--strict --exact --sdrdump a.dat").told == "0", seed
        run(way + "--sdrdump plain")
        told, text = run(way + "--strict --sdrdump a").err, content("a")
        write("a", content("a.dat"))
        for line in ("--exact --nrst --sdr a.dat", "--nrst --sdr a"):  # an exact file is for every reader
            hold_records()
            assert run(f"{way}--strict {line}").told == "0", seed
            assert held()["sdr.records"] == b"".join(records), seed
        losses, tells = losses_of(records, way), ""
        assert all(losses.values()) and sum(map(len, losses.values())) < 400, "some are not lost"
        for kind, lost in losses.items():
            numbers = ", ".join(record[1::-1].hex().upper() for record in lost[:8])
            tells += f"qarn: SDR {numbers} and {len(lost) - 8} more: {kind}; use --exact\n"
        assert (told, text) == (tells, content("plain")), seed
