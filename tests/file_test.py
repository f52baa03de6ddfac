"""The files of a run: what becomes of an older dump, where a dump may go, files without an end, and standard streams
that are closed or full."""

import functools
import os
import shutil
import signal
import struct

import pytest

from harness import PROGRAM, content, hold, run, settings, start, write

OTHER = 1234  # another user
REFUSED = "a link or a file of another user stands there, or too many links"
NEW = "_SEL\n_LOG_NUM   0000\n\n"
FAULT_WHILE_READ = "netfn=8 cmd=3 skip=300 "
root_only = pytest.mark.skipif(os.geteuid() != 0, reason="only root can play other users")


@pytest.fixture(autouse=True)
def empty_log_and_small_flash():
    os.chmod(".", 0o755)
    hold({"sel.records": b""})
    settings.update(CARD_SIZE="2000")


def put(name="dump", text="old", owner=-1):
    write(name, text)
    os.chown(name, owner, -1)


def dumps(path, **how):
    """What hinders a dump to this path: a text of the system, or ""."""
    seen = run("--strict --seldump " + path, **how)
    assert (seen.status == 0) == (seen.err == "")
    return seen.err.removeprefix(f"qarn: {path}: ").strip()


def remove_all():
    for name in os.listdir():
        os.remove(name)


def test_an_older_dump_survives_whatever_stops_the_new_one():
    for option, fault, files, status in (
            ("--save", f"shorten {FAULT_WHILE_READ}value=11", 1, 0),
            ("--save", f"write_error {FAULT_WHILE_READ}times=0 value=1", 1, 255),
            ("--save", f"power_cut {FAULT_WHILE_READ}", 2, 137),  # leaves the unfinished file, too
            ("--seldump", "write_error netfn=a cmd=40 times=0 value=1", 1, 255),
            ("--seldump", "refuse cmd=40 value=c0", 1, 0), ("--sdrdump", "refuse cmd=23 skip=1 value=c0", 1, 0),
            ("--wfru", "refuse cmd=11 skip=1 value=c0", 1, 1)):
        put()
        assert run(option + " dump", faults=fault).status == status, fault
        assert (content("dump"), len(os.listdir())) == ("old", files), fault
        remove_all()


def test_a_new_dump_is_for_its_owner_and_one_that_replaces_another_keeps_its_rights():
    group = OTHER if os.geteuid() == 0 else os.getegid()
    permissive = functools.partial(os.umask, 0)
    assert dumps("dump", prepare=permissive) == "" and os.stat("dump").st_mode == 0o100600
    put(text=5000 * "x")
    os.chmod("dump", 0o644)
    os.chown("dump", -1, group)
    assert dumps("dump", prepare=permissive) == ""
    assert (content("dump"), os.listdir()) == (NEW, ["dump"])
    assert (os.stat("dump").st_mode, os.stat("dump").st_gid) == (0o100644, group)


def test_the_access_list_of_a_dump_that_is_replaced_stays():
    """The group's bits of such a file's mode are the most that its list may give."""
    put()
    entries = ((1, 6, 2**32 - 1), (2, 6, 65534), (4, 4, 2**32 - 1), (16, 6, 2**32 - 1), (32, 0, 2**32 - 1))
    # Tag, rights, number: the owner, a user, the group, the most, others.
    access = struct.pack("<I", 2) + b"".join(struct.pack("<HHI", *entry) for entry in entries)
    try:
        os.setxattr("dump", "system.posix_acl_access", access)
    except OSError:
        pytest.skip("no access lists here")
    assert dumps("dump") == "" and content("dump") == NEW
    assert os.getxattr("dump", "system.posix_acl_access") == access


def test_links_are_followed_to_a_file_or_to_where_one_will_be():
    put()
    os.mkdir("deep")
    os.symlink("../dump", "deep/one")
    os.symlink("deep/one", "two")
    assert dumps("two") == "" and os.path.islink("two") and os.path.islink("deep/one") and content("dump") == NEW
    os.symlink(os.path.abspath("made"), "dangling")
    run("--seldump dangling", faults="refuse cmd=40 value=c0")
    assert not os.path.exists("made")
    assert dumps("dangling") == "" and content("made") == NEW
    os.symlink("loop", "loop")
    for path, reason in (("loop", REFUSED), (255 * "n", ""), (256 * "n", "File name too long"),
                         ("", "No such file or directory"), ("deep", "Is a directory"), ("deep/", "Is a directory"),
                         ("none/dump", "No such file or directory")):
        assert dumps(path) == reason, path


def test_nothing_that_the_run_did_not_create_is_removed_or_overwritten():
    """Something takes the target's place while the dump is written."""
    stop = f"signal {FAULT_WHILE_READ}value=13"
    for older, fault, status in ((False, "", 2), (True, "", 2), (False, "signal netfn=8 cmd=3 skip=301 value=2", -2),
                                 (False, "write_error netfn=8 cmd=3 skip=301 times=0 value=1", 255)):
        remove_all()
        if older:
            put()
        process = start("--strict --save dump", f"{stop};{fault}".rstrip(";"))
        assert os.WIFSTOPPED(os.waitpid(process.pid, os.WUNTRACED)[1])
        put("other")
        os.rename("other", "dump")
        process.send_signal(signal.SIGCONT)
        assert process.wait(60) == status, fault
        assert (content("dump"), os.listdir()) == ("old", ["dump"])
        assert status != 2 or content("../err") == "qarn: dump: something else has come there\n"


def test_devices_and_fifos_and_open_files_are_written_as_they_are():
    assert (dumps("/dev/null"), dumps("/dev/full")) == ("", "No space left on device")
    ours, theirs = os.pipe2(os.O_NONBLOCK)
    os.mkfifo("dump")
    fifo = os.open("dump", os.O_RDWR | os.O_NONBLOCK)
    removed = os.open("removed", os.O_RDWR | os.O_CREAT)
    os.remove("removed")
    mine = f"/proc/{os.getpid()}/fd/"
    for path, handle in ((f"{mine}{theirs}", ours), ("dump", fifo), (f"{mine}{removed}", removed)):
        assert dumps(path) == "" and os.read(handle, 99).decode() == NEW
        os.close(handle)
    os.close(theirs)
    assert os.listdir() == ["dump"]


def test_what_is_standard_output_takes_a_dump_in_its_place_among_the_rest():
    for name in ("/dev/stdout", "/dev/fd/1", os.path.abspath("../out")):
        seen = run(f"--seldump {name} -e 18 02")
        assert seen.out.startswith("BMC Utility on Linux version")
        assert seen.said == f"Dumping SEL to file {name}\n{NEW}response is 1C 02 00 \n"


def test_a_file_with_several_names_is_refused_until_it_has_one():
    put()
    os.link("dump", "name")
    assert (dumps("dump"), content("dump")) == ("the file has several names (hard links)", "old")
    os.remove("name")
    assert (dumps("dump"), content("dump")) == ("", NEW)


@root_only
def test_what_another_user_put_into_a_folder_that_others_may_write_is_refused():
    # Rights of the folder; owners of the folder, the link and the file; whether it is refused.
    cases = [(0o755, 0, OTHER, OTHER, False),  # only root can have put them there
             (0o755, OTHER, OTHER, 0, True), (0o755, OTHER, 0, 0, False)]
    for shared in (0o777, 0o1777, 0o775, 0o757):
        cases += [(shared, 0, 0, 0, False), (shared, 0, OTHER, 0, True), (shared, 0, 0, OTHER, True)]
    for mode, of_folder, of_link, of_file, refused in cases:
        put(owner=of_file)
        os.symlink("dump", "link")
        os.lchown("link", of_link, -1)
        os.chown(".", of_folder, -1)
        os.chmod(".", mode)
        assert (dumps("link"), content("dump")) == ((REFUSED, "old") if refused else ("", NEW)), oct(mode)
        remove_all()


@root_only
def test_a_file_that_its_owner_may_not_write_is_not_replaced():
    program = shutil.copy(PROGRAM, "..")
    os.chmod("..", 0o755)
    os.chown(".", OTHER, -1)
    for mode, reason in ((0o644, ""), (0o444, "Permission denied")):
        put(owner=OTHER)
        os.chmod("dump", mode)
        assert dumps("dump", program=program, prepare=functools.partial(os.setuid, OTHER), LOG="", STATE="") == reason


@root_only
def test_a_fifo_and_a_link_to_a_folder_of_another_user_are_not_followed_in_a_shared_one():
    os.mkdir("ours")
    os.symlink("ours", "link")
    os.mkfifo("fifo")
    reader = os.open("fifo", os.O_RDONLY | os.O_NONBLOCK)
    for path in ("link//dump", "./ours/../link/dump", "fifo"):
        assert dumps(path) == ""
    assert dumps("link/none/dump") == "No such file or directory"
    os.chmod(".", 0o1777)
    os.lchown("link", OTHER, -1)
    os.chown("fifo", OTHER, -1)
    assert [dumps(path) for path in ("link/dump", "fifo", "ours/dump")] == [REFUSED, REFUSED, ""]
    os.close(reader)


def test_a_definition_file_beyond_the_limit_is_refused():
    """The limit is the file's size, then one byte less."""
    records = "_SDR (\n_SDR_TYPE 01\n_REC_LEN 06\n01 00 51 01 01 AA\n)\n# end"
    for line, text, says in (
            ("--sdr text", records, "line 6: the file is too long\nload sdr file "),
            ("--sdr a.dat", 16 * "h" + "Z\x08\x01\0Q\x01\x01\xAAend.",
             "offset 26: the file is too long\nload sdr file "),
            ("--fru text", "_FRU\n_DEV_ID 01\n// end", "line 3: the file is too long\nCannot read file "),
            ("--cfg text", "20 18 01\n20 18 46 02\n", "line 2: the file is too long\n")):
        write(line.split(" ")[1], text)
        assert "too long" not in run(line, TEST_FILE_LIMIT=len(text)).out, line
        seen = run(line, TEST_FILE_LIMIT=len(text) - 1)
        assert says in seen.out and seen.out.count("too long") == 1
        assert "28 27" not in seen.traffic and "18 46 02" not in seen.traffic, "no erase, the script ends"
    write("comment", "# " + 200000 * "x")  # counts, although it is not kept
    for line in ("--sdr /dev/zero", "--fru /dev/zero", "--cfg comment"):
        assert "line 1: the file is too long\n" in run(line, TEST_FILE_LIMIT=100000).out, line


def test_util_dat_is_no_pipe():
    os.mkfifo("util.dat")
    pipe = os.open("util.dat", os.O_RDWR)
    os.write(pipe, b"<SDR_COMMENT_TYPE1>\nfirst field\n")
    run("--sdrdump dump")
    assert "_SDR_TYPE" in content("dump") and "first field" not in content("dump")
    os.close(pipe)


def test_no_file_takes_the_place_of_a_closed_standard_stream():
    def close_streams():
        for stream in streams:
            os.close(stream)
    settings.update(LOG="", STATE="")  # whose files would take the place
    run("--save usual")
    for streams in ((0,), (1,), (2,), (0, 1), (0, 1, 2)):
        assert run("--save dump", prepare=close_streams).status == 0, streams  # 99: one is closed at the end
        assert content("dump") == content("usual") and len(content("dump")) == 0x2000, streams


def test_lost_output_is_a_hint_on_a_terminal():
    def fill():
        os.dup2(os.open("/dev/full", os.O_WRONLY), 1)
    hint = "qarn: standard output could not be written: No space left on device\n"
    seen = run("-e 18 02", terminals="2", prepare=fill)
    assert (seen.terminal, seen.status) == (hint, 0)
    assert run("-e 18 02", prepare=fill).told == "0"
    assert run("-d --stric", prepare=fill).told == hint + "2"
