"""What the process is to those around it: signals of every kind, a stop, limits, waits, another run, a driver."""

import fcntl
import os
import resource
import signal
import termios
import time

from harness import await_sleep, content, fresh, run, start, write

ENDED_BEFORE = "qarn: Terminated: ended before the BMC was touched\n143"
# The ports are waited for up to 15 virtual seconds, with few polls and no log of them.
LONG_WAITS = dict(TEST_POLLS=1, TEST_PASSES=300000, LOG="")


def test_every_signal_that_would_end_it_waits_for_the_end_of_an_update():
    run("--save image")
    for number in (signal.SIGALRM, signal.SIGUSR1, signal.SIGXCPU, signal.SIGPWR, signal.SIGIO, signal.SIGRTMIN + 3):
        seen = run("-u image", faults=f"signal netfn=8 cmd=4 skip=9 value={number:x}")
        assert seen.status == 128 + number and seen.out.endswith("Exit Downloader......OK\n"), number


def test_a_signal_that_was_ignored_at_the_start_stays_ignored_even_while_a_file_is_waited_for():
    def ignore():
        signal.signal(signal.SIGHUP, signal.SIG_IGN)
    assert run("-d", faults="signal value=1", prepare=ignore).told == "0"
    os.mkfifo("fifo")
    process = start("--cfg fifo", prepare=ignore)
    await_sleep(process)
    process.send_signal(signal.SIGHUP)
    write("fifo", "20 18 01\n")
    assert process.wait(60) == 0


def test_a_signal_after_the_last_request_is_said_too():
    assert run("-e 18 02", faults="signal cmd=2 value=f").err == "qarn: Terminated: the run had come to its end\n"


def stopped_run(line, faults):
    """A run that is stopped: its output and what a terminal showed at that moment, and its status after it went on."""
    ours, other = os.openpty()
    # The kernel stops nobody in a group that no shell could continue.
    process = start(line, faults, terminal=other, terminals="2", prepare=os.setpgrp)
    assert os.WIFSTOPPED(os.waitpid(process.pid, os.WUNTRACED)[1])
    os.write(other, b"stop")
    out, shown = content("../out"), ""
    while not shown.endswith("stop"):
        shown += os.read(ours, 4096).decode()
    process.send_signal(signal.SIGCONT)
    os.close(other)
    os.close(ours)
    return out, shown, process.wait(60)


def test_a_stop_from_the_terminal_comes_between_two_requests():
    out, _, status = stopped_run("--users", "signal skip=1 value=14")
    assert "User ID 1" in out and "User ID 2" not in out and status == 0


def test_a_limit_of_file_size_ends_a_dump_but_not_the_run():
    write("flash", "older")
    seen = run("--save flash", prepare=lambda: resource.setrlimit(resource.RLIMIT_FSIZE, (6000, 6000)))
    assert seen.status == 0 and seen.out.endswith("Exit Downloader......OK\n")
    assert content("flash") == "older"


def test_a_bmc_that_does_not_answer_is_waited_for_ten_seconds_after_a_signal():
    for line in ("--users", "--users --open"):
        assert run(line, faults="signal cmd=46 value=2; silent cmd=46", **LONG_WAITS).told == (
            "qarn: Interrupt: the request under way is finished first, so that the BMC's interface stays usable\n"
            "qarn: no answer from the BMC for 10 seconds: the last request may not have been carried out\n130"), line


def waiting(what, *seconds):
    return "".join(f"\0337\033[?7l\033[Kwaiting for {what}: {second} s\033[?7h\0338" for second in seconds) + "\033[K"


def test_a_wait_of_more_than_three_seconds_is_shown_on_a_terminal_and_gone_afterwards():
    write("s", "_SDR (\n_SDR_TYPE 01\n_REC_LEN 05\n01 00 51 01 00\n)\n")
    answer = "an answer from the BMC"
    for line, seconds, shown in (
            ("--users", 3, ""), ("--users", 12, waiting(answer, *range(3, 13))),
            ("--users --open", 6, waiting(answer, 4, 5, 6)), ("--debug --users", 12, ""),  # requests are traced there
            ("--sdr s", 0, "\033[KSDR 1/1\r\033[K" + waiting("the BMC to restart", *range(4, 9))),
            ("--save saved", 0, waiting("the card to start", *range(4, 9)))):
        late = f"late cmd=46 value={seconds:x}"
        assert run(line, faults=late, terminals="2", **LONG_WAITS).terminal == shown, line
    assert run("--users", faults="late cmd=46 value=c", **LONG_WAITS).err == "", "this is no terminal"


def in_the_background():
    """The terminal's owner is the parent of the process, which has a group of its own."""
    os.setsid()
    fcntl.ioctl(2, termios.TIOCSCTTY, 0)
    child = os.fork()
    if child != 0:
        os.closerange(3, 256)
        status = os.waitpid(child, 0)[1]
        time.sleep(0.1)  # for who reads what was shown: it is gone with the owner
        os._exit(os.waitstatus_to_exitcode(status))
    os.setpgrp()


def test_a_wait_is_not_shown_by_a_run_in_the_background():
    seen = run("--users --open", faults="late cmd=46 value=6", terminals="2", prepare=in_the_background)
    assert (seen.terminal, seen.status) == ("", 0)


def test_a_wait_has_left_the_terminal_when_a_stop_comes():
    # It comes at the first look for the card, and counts before the second.
    _, shown, status = stopped_run("--save saved", "signal cmd=1 skip=2 value=14")
    assert shown.endswith("start: 8 s\033[?7h\0338\033[Kstop") and status == 0


def test_a_wait_for_the_other_end_of_a_fifo_ends_with_a_signal():
    os.mkfifo("fifo")
    for option in ("--sdr", "--fru", "--cfg", "--sdrdump", "--wfru", "--seldump", "--save"):
        assert run(option + " fifo", signal=signal.SIGTERM).status == 143, option


def test_a_wait_for_a_password_ends_with_a_signal_before_the_bmc_is_touched():
    os.mkfifo("silent")
    say_nothing = os.open("silent", os.O_RDWR)
    seen = run("--sp1 --prompt", signal=signal.SIGTERM, prepare=lambda: os.dup2(say_nothing, 0))
    assert seen.told == ENDED_BEFORE


def test_another_run_that_uses_the_bmc_is_waited_for_and_given_up_after_a_minute():
    waits = "qarn: another run, process 4711, uses the BMC: waiting up to 60 seconds for it\n"
    waited = run("-e 18 01", LOCK=4711, LOCK_UNTIL=3)
    assert (waited.told, waited.traffic) == (waits + "0", 3 * "sleep 1000000\n" + "18 01\n18 01\n")
    for line in ("-d", "-d --open"):
        assert run(line, LOCK=4711).told == waits + "qarn: the other run still uses the BMC: nothing was done\n255"

    def be_told_to_end():
        signal.pthread_sigmask(signal.SIG_BLOCK, signal.valid_signals())
        os.kill(os.getpid(), signal.SIGTERM)
    assert run("-d", LOCK=4711, prepare=be_told_to_end).told == waits + ENDED_BEFORE


def test_ports_that_belong_to_a_driver_are_named_before_they_are_touched():
    owners = "0000-0cf7 : PCI Bus\n  0ca2-0ca3 : IPI0001:00\n    0ca2-0ca2 : ipmi_si"
    fresh("plain", PORT_OWNERS=owners)
    assert run("--users").err == (
        "qarn: the ports CA3 and CA2 belong to the kernel's driver ipmi_si: use --open\n")
    assert run("--users --open").err == ""
    fresh(USER="nobody", LOCKDOWN="none [integrity] confidentiality")
    assert run("--users").err == ""
    assert run("--users", terminals="2").terminal == (
        "qarn: the kernel is locked down and keeps programs from the ports: use --open\n")
