"""Signals at every request of every action: what is finished, what is not begun, how the run ends."""

from signal import SIGHUP, SIGINT, SIGQUIT, SIGTERM

from harness import EVERYTHING, content, fresh, run, write

SIGNALS = (SIGHUP, SIGINT, SIGTERM, SIGQUIT)
LEAVES_DOWNLOADER = ("18 02", "18 01", "18 01")


def outcome(line, faults=""):
    """A run on a card with two sensor records, a small inventory, a flash of two blocks, and an older file "dump": its
    requests and its status, then the file and what the BMC holds."""
    fresh(CARD_SIZE=1000, CARD_START="fff00f00", FRU_SIZE=128, INTERFACES="eth0,00:0e:0c:44:10:01,10.0.0.7")
    write("../state", f"sdr.records 010051C00E{14 * '31'}020051C033{51 * '32'}\n")
    write("dump", "older")
    seen = run(line, faults=faults)
    assert faults or seen.status == 0
    if faults and EVERYTHING:
        print(f"{line}: {faults}")
    requests = tuple(request for request in seen.traffic.splitlines() if not request.startswith("sleep"))
    return requests, seen.status, content("dump"), content("../state")


def made_by(line):
    """The file that its last word names."""
    outcome(line)
    return line.split()[-1]


def tried(requests):
    """All when everything is asked for; otherwise every 32nd of many in a row that differ only in their address."""
    kinds = ["", *(request[:5] for request in requests), ""]
    return [k for k in range(len(requests))
            if len(set(kinds[k:k + 3])) > 1 or k % 32 == 5 or len(requests) < 40 or EVERYTHING]


def check(line, goes_on_from="never", leaves_by=(), pair="none"):
    """A signal at each request of a run in turn: one of the four after the other, or each of them. From the request
    `goes_on_from` on, the action comes to its end. Before, the run ends after this request, or after the second one of
    a pair that `pair` begins, then sends `leaves_by` unless it was the first. The next run makes everything good."""
    whole, _, dump, left = outcome(line)
    for k in tried(whole):
        expected = whole[:k + 1 + whole[k].startswith(pair)] + (leaves_by if k > 0 else ()), "older"
        if any(request.startswith(goes_on_from) for request in whole[:k + 1]):
            expected = whole, dump
        for number in SIGNALS if EVERYTHING else [SIGNALS[k % 4]]:
            sent, status, kept, _ = outcome(line, f"signal value={number:02x} skip={k}")
            assert (sent, kept, status) == (*expected, 128 + number), (line, k)
            run(line)
            assert content("../state") == left, (line, k)


def test_reading_passwords_and_setters_end_before_the_next_request():
    script = write("four.cfg", "20 18 01\n20 18 46 02\n20 28 40\n20 28 20\n")
    for line in ("-d --sp1=new --users -e 18 01", "--sp0 --sp4=x -m 0:1:2:3:4:5 --dhcp --arp=1", "--imac",
                 "--cfg " + script, "--sdrdump dump", "--seldump dump", "--wfru dump", "--exact --sdrdump dump",
                 "--exact --wfru dump"):
        check(line)


def test_a_pair_of_lan_settings_is_finished():
    for line in ("-i 10.0.0.2", "-g 10.0.0.1 --arp=1", "--open -n 255.0.0.0 -i 10.0.0.2"):
        check(line, pair="30 01 01 04")
    check("-a", pair="30 01 01 03")


def test_records_go_in_whole_once_the_erase_has_begun():
    records = made_by("--sdrdump records")
    check("--sdr " + records, "28 27")
    check("--open --sdr " + records, "28 27")


def test_an_inventory_goes_in_whole_once_its_first_bytes_are_written():
    inventory = made_by("--wfru inventory")
    check("--fru " + inventory, "28 12")
    check("--open --fru " + inventory, "28 12")
    seen = run("--fru " + inventory, faults="signal cmd=12 value=2; refuse cmd=12 skip=1 value=80")
    assert seen.out.endswith("Update FRU fail\n")
    check("--exact --fru " + made_by("--exact --wfru inventory"), "28 12")


def test_the_card_never_stays_in_its_downloader():
    image = made_by("--save image")
    for line in ("--save dump", "--verify " + image):
        check(line, "18 02", LEAVES_DOWNLOADER)
    for line in ("-u " + image, "--open -u " + image):
        check(line, "20 04", LEAVES_DOWNLOADER)


def test_a_reader_that_goes_away_changes_nothing():
    # At every third request, or at each.
    image = made_by("--save image")
    for line in ("-d --sp1=new --users -e 18 01", "--debug -i 10.0.0.2", "--sdr " + made_by("--sdrdump records"),
                 "--fru " + made_by("--wfru inventory"), "-u " + image, "--verify " + image, "--save dump",
                 "--sdrdump dump", "--seldump dump", "--wfru dump"):
        whole = outcome(line)
        for k in tried(whole[0]):
            if k % 3 == 0 or EVERYTHING:
                assert outcome(line, f"close_output skip={k}") == whole, (line, k)
