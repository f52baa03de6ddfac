"""Updates, saves and verifications on the simulated card, sound and with faults."""

import os

from firmware import RESET, flash, in_words, noise, padded, serve_card, srecords
from harness import content, run, write

TITLES = {"-u": "Update Firmware with", "--save": "Read firmware and Save to", "--verify": "Verify firmware with the"}
BLOCK = "chunk chunk chunk chunk sleep 2000 end "
FIRST = "information " + BLOCK  # an update up to its first block
PORTION = 256 * "read "
# An image of the card that serve_card() gives, and the flash after an update with it.
IMAGE = b"01234567stuvwxyz"
UPDATED = b"........stuvwxyz"


def expect(line, said, asked, faults=""):
    """What an action says and asks between its way in and its way out; FAIL: as an update ends that is not done."""
    option, path = line.split()
    seen = run(line, faults=faults)
    said = "Flashing now\n" * (option == "-u") + said.replace("FAIL\n", f"can't find file {path}\n")
    assert seen.said == (f"{TITLES[option]} File {path}\nEnter Downloader......OK\n{said}"
                         "reset and wait\nExit Downloader......OK\n"), line
    assert in_words(seen.sent) == "enter sleep 2000000 " + asked + RESET


def test_an_update_sends_blocks_in_chunks():
    # Erased blocks lead to a record that begins later; all their chunks carry the block's address.
    serve_card()
    assert run("-u " + write("fw.mot", srecords(0xFFFFFFFC, b"wxyz"))).sent == (
        "20 02 44 4F 57 4E 4C 4F 41 44\nsleep 2000000\n20 01\n20 04 FF FF FF F8 80 FF\n20 04 FF FF FF F8 00 FF\n"
        "20 04 FF FF FF F8 00 FF\n20 04 FF FF FF F8 40 FF\nsleep 2000\n20 05\n20 04 FF FF FF FC 80 77\n"
        "20 04 FF FF FF FD 00 78\n20 04 FF FF FF FE 00 79\n20 04 FF FF FF FF 40 7A\nsleep 2000\n20 05\n"
        "18 02\nsleep 4000000\nsleep 2000000\n18 01\nsleep 2000000\n18 01\n")


def test_an_update_ends_with_the_image_or_with_the_flash():
    # Data that resumes in a later portion begins with a block, even in a last line without an end. The chunks are
    # longer than the KCS ports carry.
    for name, image, programmed in (
            ("fw", noise(1), padded(noise(1), 4096)), ("fw", noise(4096), padded(noise(4096), 8192)),
            ("fw", noise(0x8000), noise(0x2400)),
            ("fw.mot", srecords(0, b"start") + srecords(0x1400, b"more").rstrip(),
             padded(padded(b"start", 0x1400) + b"more", 0x2400)),
            ("fw.mot", srecords(0, b"a") + srecords(0x80, b"late") + srecords(1, b"early"),
             padded(padded(b"aearly", 0x80) + b"late", 0x1000))):
        serve_card(base=0, size=0x2400, start=0, block=128, chunk=128)
        run("-ou " + write(name, image))
        assert flash() == programmed.ljust(0x2400, b"."), image


def test_an_update_sends_a_block_again_up_to_eight_times():
    # An answer without a status counts as refused.
    raw = "-u " + write("raw.bin", IMAGE)
    for fault, pause in (("refuse value=1", "sleep 3000000 "), ("shorten value=1", "sleep 3000000 "),
                         ("answer bytes=0001", "sleep 1000000 ")):
        asked = FIRST
        for failures in range(1, 8):
            asked += f"{pause}chunk chunk chunk chunk sleep {2000 + 10000 * failures} end "
            serve_card()
            expect(raw, ".OK\n", asked + BLOCK, f"{fault} netfn=8 cmd=5 times={failures}")
            assert flash() == UPDATED
        serve_card()
        expect(raw, ".FAIL\n", asked, fault + " netfn=8 cmd=5 times=8")
        assert flash() != UPDATED


def test_an_update_refuses_what_does_not_fit_before_the_first_chunk():
    sizes = "flash update information: "
    outside = sizes + "the update start is outside of the flash"
    none = "image: it has no data between update start and end of the flash"
    low = {"base": 0, "size": 0x2000, "start": 8}
    for card, reason, image in (
            ({"block": 0}, sizes + "the block size is 0", IMAGE), ({"chunk": 0}, sizes + "the chunk size is 0", IMAGE),
            ({"chunk": 3}, sizes + "a block is not made of whole chunks", IMAGE),
            ({"block": 3}, sizes + "4096 bytes are not whole blocks", IMAGE),
            ({"block": 128, "chunk": 128}, sizes + "a chunk is too long for the KCS ports; try --open", IMAGE),
            ({"start": 0xFFFFFFEF}, outside, IMAGE), ({"size": 8}, outside, IMAGE),
            ({"size": 17}, sizes + "the flash runs past the last address", IMAGE), (low, none, b"01234567"),
            ({"start": 0xFFFFFFF9}, sizes + "the last block runs past the last address", IMAGE),
            (low, none, srecords(0x2000, b"after the flash")), (low, none, "S30500000008F2\n"),
            (low, "image: data at 00000007 is below the update start 00000008", srecords(7, b"x")),
            (low, "image: data at 00001FFA does not begin with a block of 4 bytes",
             srecords(8, b"x") + srecords(0x1FFA, b"x"))):
        serve_card(**card)
        path = write("fw.bin" if isinstance(image, bytes) else "fw.mot", image)
        expect("-u " + path, f"cannot use the {reason}\nFAIL\n", "information ")


def test_a_verification_names_the_address_of_each_byte_that_differs():
    serve_card()
    expect("--verify " + write("cut", b"01234567......"), "Verify now\n.data wrong at E\ndata wrong at F\nOK\n",
           "information " + PORTION)
    expect("--verify " + write("fw.mot", srecords(0xFFFFFFF8, b"x......x")),
           "Verify now\n.data wrong at FFFFFFF8\ndata wrong at FFFFFFFF\nOK\n", "information " + PORTION)


def test_the_actions_name_what_stopped_them():
    serve_card()
    os.mkfifo("fifo.mot")
    unknown = "cannot get flash update information\n"
    expect("--verify missing", "cannot open the data file: missing\n", "")
    expect("--verify fifo.mot",
           "cannot open the data file: fifo.mot\ncannot use the image: it is not a regular file\n", "")
    expect("--save .", "cannot open the data file: .\n", "information ")
    expect("--save /dev/full", "cannot write the whole flash to /dev/full\n", "information " + PORTION)
    expect("--save file", "cannot read the flash at FFFFFFF0\n", "information read ", "shorten netfn=8 cmd=3 value=11")
    expect("--save file", unknown, "information ", "refuse netfn=8 cmd=1 value=9")
    assert content("file") == "(no file)"
    expect("-u " + write("raw.bin", IMAGE), unknown + "FAIL\n", "information ", "shorten netfn=8 cmd=1 value=10")


def test_an_update_ends_with_the_address_of_the_chunk_or_block_that_is_not_taken():
    # Completion code 1 is good on the last chunk of a block.
    serve_card(base=0x12345670, start=0x12345678)
    for fault, said, asked in (
            ("answer cmd=4 skip=3 bytes=01", ".OK\n", FIRST + BLOCK),
            ("answer cmd=4 skip=2 bytes=01", ".write data error at 1234567A\nFAIL\n", "information chunk chunk chunk "),
            ("shorten cmd=4 skip=4 value=0", ".Cannot write data at 1234567C\nFAIL\n", FIRST + "chunk "),
            ("answer cmd=5 bytes=0002", ".Write Error\nFAIL\n", FIRST)):
        expect("-u " + write("raw.bin", IMAGE), said, asked, fault + " netfn=8")


def test_an_update_is_whole_or_over_at_once_and_repaired_by_the_next():
    # Block by block the flash holds new bytes, then at most one block that is half new, then old ones.
    raw = "-u " + write("raw.bin", IMAGE)
    for request, before, when_refused, when_power_is_cut in (
            ("enter", 0, b"........", b"........"), ("first chunk", 2, b"........", b"........"),
            ("second chunk", 3, b"........", b"s\xFF......"),
            ("end of the first block", 6, b"stuvwxyz", b"st......"),
            ("first chunk of the second block", 7, b"stuv....", b"stuv...."),
            ("end of the last block", 11, b"stuvwxyz", b"stuvwx..")):
        for fault, programmed, status in (("refuse value=c0", when_refused, 0), ("power_cut", when_power_is_cut, 137)):
            serve_card()
            seen = run(raw, faults=f"{fault} netfn=8 skip={before}")
            assert (seen.status, flash()) == (status, b"........" + programmed), request
            assert in_words(seen.traffic).endswith(RESET) == (status == 0), request
            assert (" Cannot enter downloader\n" in seen.out) == (before == status == 0)
            expect(raw, ".OK\n", FIRST + BLOCK)
            assert flash() == UPDATED, request


def test_the_way_out_resets_and_waits_until_the_card_runs_normally():
    polls = "cold_reset sleep 4000000 " + 10 * "sleep 2000000 identity "
    never = "Firmware cannot return normal state\n"
    for said, asked, faults in (
            ("OK\n", "cold_reset " + RESET.replace("cold", "warm"), "refuse cmd=2 value=c3"),
            ("Cannot exit downloader\n", "cold_reset warm_reset ", "refuse skip=1 times=0 value=c3"),
            (never, polls, "refuse cmd=1 skip=1 times=0 value=c3"),
            (never, polls, "shorten cmd=1 skip=1 times=0 value=3")):
        serve_card()
        seen = run("--save .", faults=faults + " netfn=6")
        assert seen.out.endswith("reset and wait\nExit Downloader......" + said), faults
        assert in_words(seen.sent) == "enter sleep 2000000 information " + asked


def test_a_save_writes_whole_portions_that_verify_takes_back():
    for size, portions in ((4096, 1), (5000, 2)):
        serve_card(base=2**32 - size, size=size, start=2**32 - size + 128, block=128, chunk=32, flash=noise(size))
        asked = "information " + portions * PORTION
        expect("--save whole", portions * ".", asked)
        assert content("whole").encode("latin-1") == padded(noise(size), portions * 4096)
        expect("--verify whole", f"Verify now\n{portions * '.'}OK\n", asked)
