"""Signals at random moments over real ports: the next run finds the interface idle and repairs what is not whole."""

import random

from machine import qarn_bmc

ROUNDS = 64
SIGNALS = {"HUP": 129, "INT": 130, "TERM": 143, "QUIT": 131}


def at_random_moments(checks):
    """A run that a signal ends has ended by it, or had already ended; records are whole afterwards, or, where the erase
    had not begun, as they were. Each run that follows is a plain one and must succeed."""
    picks = random.Random(12)
    commands = {"dump": "qarn --sdrdump out.sdr", "write": "qarn --sdr a.sdr --nrst", "log": "qarn --seldump out.sel",
                "inventory": "qarn --fru a.fru", "users": "qarn --users --users -d"}
    rows = [("save", "qarn --sdrdump a.sdr >said; qarn --wfru a.fru >said; cat a.sdr a.fru", None)]
    for number in range(ROUNDS):
        name, command = picks.choice(list(commands.items()))
        signal, delay = picks.choice(list(SIGNALS)), picks.randrange(1000, 90000)
        step = f"{number} {name} {signal} after {delay} us"
        rows.append((step, f"rm -f out.*; (usleep {delay}; killall -{signal} qarn) >killed 2>&1 & "
                     f"{command} >said 2>&1; status=$?; wait; [ $status = 0 -o $status = {SIGNALS[signal]} ] || "
                     "echo ended with $status; ls -a | grep -c '^.qarn-'; qarn --sdrdump b.sdr | tail -n +3; qarn --wfru b.fru | grep -c ok; "
                     "cmp a.sdr b.sdr; cmp a.fru b.fru", "0\n1\n"))
    with qarn_bmc(checks.bmc) as bmc:
        checks.guest(bmc, rows)
