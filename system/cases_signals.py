"""Signals at random moments over real ports and the kernel's driver, and two runs at once: the next run finds the
interface idle and repairs what is not whole, and no run disturbs another."""

import random

from machine import qarn_bmc

ROUNDS = 80
SIGNALS = {"HUP": 129, "INT": 130, "TERM": 143, "QUIT": 131}
# A signal DELAY microseconds after the run begins, or as soon as it can be had; WORDS are the run's.
SIGNALLED = """(usleep DELAY; until killall -SIGNAL qarn; do usleep 500; done) >killed 2>&1 &
killer=$!; qarn WORDS >said 2>&1; status=$?; kill $killer 2>killed; wait
[ $status = 0 -o $status = STATUS ] || echo ended with $status
[ $status = STATUS ] && echo >>hits; ls -a | grep -c '^.qarn-'
"""


def signalled(words, signal, delay):
    text = SIGNALLED.replace("WORDS", words).replace("DELAY", str(delay))
    return text.replace("SIGNAL", signal).replace("STATUS", str(SIGNALS[signal]))


def test_at_random_moments(checks):
    """A run that a signal ends has ended by it, or had already ended; records are whole afterwards, or, where the erase
    had not begun, as they were. Each run that follows is a plain one and must succeed."""
    picks = random.Random(12)
    # with the microseconds that a run takes on a guest of ours
    commands = {"dump": ("--sdrdump out.sdr", 40000), "write": ("--sdr a.sdr --nrst", 80000),
                "log": ("--seldump out.sel", 20000), "inventory": ("--fru a.fru", 25000),
                "users": ("--users --users -d", 20000)}
    rows = [("save", "qarn --sdrdump a.sdr >said; qarn --wfru a.fru >said; cat a.sdr a.fru", None)]
    for number in range(ROUNDS):
        name, (words, most) = picks.choice(list(commands.items()))
        signal, delay = picks.choice(list(SIGNALS)), picks.randrange(500, most)
        rows.append((f"{number} {name} {signal} after {delay} us", signalled(words, signal, delay) +
                     "rm -f out.*; qarn --sdrdump b.sdr | tail -n +3; qarn --wfru b.fru | grep -c ok; "
                     "cmp a.sdr b.sdr; cmp a.fru b.fru", "0\n1\n"))
    rows.append(("60 signals hit", "wc -l <hits", True, lambda text: int(text) >= 60))
    with qarn_bmc(checks.bmc) as bmc:
        checks.guest(bmc, rows)


def test_during_firmware_actions(checks):
    """The card is back in normal operation after each of them; an update goes to its end, the others leave no file."""
    ended = "reset and wait\nExit Downloader......OK\n"
    rows = [("load", "load", ""), ("save", "qarn --open --save old >said; tail -n 1 said", "Exit Downloader......OK\n")]
    for words, signal, delay, left in (("--save new", "HUP", 2300000, "no new"), ("--verify old", "INT", 2500000, "no new"),
                                       ("-u old", "TERM", 2400000, "no new"), ("-u old", "HUP", 2700000, "no new")):
        rows.append((f"{words} {signal}", signalled("--open " + words, signal, delay) +
                     "sed -n 's/^\\.*reset/reset/p;/^Exit/p' said; [ -e new ] && echo new || echo no new; cat hits | wc -l; rm hits;"
                     "qarn --open --users | grep -c User.ID", f"0\n{ended}{left}\n1\n5\n"))
    rows.append(("same flash", "qarn --open --save new >said; cmp old new", ""))
    with qarn_bmc(checks.bmc, "--kind", "card") as bmc:
        checks.guest(bmc, rows)


def test_one_at_a_time(checks):
    """A run waits for the one before it, on the ports and on the kernel's device; ports that the kernel's driver has
    are said to be its own, and another program's lock is waited for too."""
    two = ("qarn PATH --cfg many >b 2>&1 & qarn PATH --cfg many >c 2>&1; status=$?; wait; echo $status; "
           "grep -c '^recv: 20 1C 01 00 ' b; grep -c '^recv: 20 1C 01 00 ' c; cat b c | "
           "sed -n 's/process [0-9]*/process N/;/^qarn: another/p'")
    said = "0\n800\n800\nqarn: another run, process N, uses the BMC: waiting up to 60 seconds for it\n"
    owned = "qarn: the ports CA3 and CA2 belong to the kernel's driver ipmi_si: use --open\n"
    with qarn_bmc(checks.bmc) as bmc:
        checks.guest(bmc, [
            ("two on the ports", two.replace("PATH", ""), said), ("load", "load", ""),
            ("two on the device", two.replace("PATH", "--open"), said),
            ("the driver's ports", "qarn --nrst 2>&1 >said", owned),
        ], files={"work/many": b"20 18 01\n" * 800})
