"""What the tests of whole commands share: a simulated server, runs of the program on it, terminals, files.

Each test begins with a fresh server and in an empty folder (conftest.py), so files are called by their bare names."""

import os
import pty
import re
import subprocess
import time
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
PROGRAM = Path(os.environ.get("QARN_TEST_PROGRAM", ROOT / "build/release/tests/qarn-test")).resolve()
EVERYTHING = "QARN_TEST_ALL" in os.environ  # all inputs are asked for
GENERATED = 10000 if EVERYTHING else 300
BANNER = "BMC Utility on Linux version 1.1.3\n"
IDENTITY = "IPMI Ver: 1.5\tFirmware Rev: 1.23\tVendor ID: 343\tPdt ID: 3\n"

settings = {}  # by the names of sim/environment.cpp without "QARN_SIM_", and of tests/program.cpp without "QARN_"


def begin(folder):
    """Makes the folder that of the test."""
    (folder / "work").mkdir()
    os.chdir(folder / "work")
    fresh()


def fresh(kind="card", **values):
    """A new server: without what the one before it was set to and held."""
    settings.clear()
    settings.update(values, SIM=kind)
    Path("../state").unlink(missing_ok=True)


def held():
    """What the BMC holds, as far as a state file keeps it: {name: bytes}."""
    if not os.path.exists("../state"):
        run("-h")
    return {name: bytes.fromhex(text) for name, text in re.findall("(.*) (.*)\n", content("../state"))}


def hold(changes):
    """Changes what it holds, to {name: bytes}; to None: it has it no more."""
    state = {name: value for name, value in (held() | changes).items() if value is not None}
    write("../state", "".join(f"{name} {value.hex()}\n" for name, value in state.items()))


def sensor_record(number, body=b"", kind=0xC0):
    """A sensor record with this ID."""
    return number.to_bytes(2, "little") + bytes((0x51, kind, len(body))) + body


def hold_records(*bodies, kind=0xC0):
    """Has the BMC hold sensor records of this type with these bodies, and IDs from 1 on."""
    hold({"sdr.records": b"".join(sensor_record(number, body, kind) for number, body in enumerate(bodies, 1))})


def write(name, text):
    """Writes a file of this text or these bytes; returns its name."""
    Path(name).write_bytes(text if isinstance(text, bytes) else text.encode("latin-1"))
    return name


def content(name):
    """Text of a file, a byte a character; "(no file)" when there is none."""
    return Path(name).read_bytes().decode("latin-1") if os.path.exists(name) else "(no file)"


def each_line(before, text):
    """The lines of the text, each with this before it."""
    return "".join(f"{before}{line}\n" for line in text.splitlines())


class Run:
    """What a run came to. `traffic` are the requests and pauses; `said` and `sent` are the output and the traffic after
    the identity of the BMC; `deeds` are output, status and traffic; `told` is standard error and status."""

    def __init__(self, status, terminal):
        self.status = status if status >= 0 else 128 - status
        self.terminal, self.out, self.err = terminal, content("../out"), content("../err")
        assert not re.search("Sanitizer|QARN_SIM", self.err + terminal), self.err + terminal
        self.traffic = re.sub("(?m)^< .*\n", "", content("../log")) if os.path.exists("../log") else ""
        self.said = re.sub("(?s)^.*?IPMI Ver:.*?\n", "", self.out)
        self.sent = self.traffic.split("18 01\n", 1)[-1]
        self.deeds = f"{self.out}status {self.status}\n{self.traffic}"
        self.told = f"{self.err}{self.status}"


def start(line, faults="", stdin="", terminal=None, terminals="", prepare=None, program=PROGRAM, **values):
    """Begins "qarn LINE", whose words are separated by blanks; gives the process. `faults` are in the words of
    sim/faults.h; `stdin` is a text; `terminals` are the streams that go to the terminal, "2" is standard error;
    `prepare` is what the process does before it is qarn; `values` are settings for this run alone."""
    Path("../log").unlink(missing_ok=True)
    write("../in", stdin)
    streams = [open(name, mode) for name, mode in (("../in", "rb"), ("../out", "wb"), ("../err", "wb"))]
    given = [terminal if str(number) in terminals else stream for number, stream in enumerate(streams)]
    values = settings | dict(FAULTS=faults, LOG="../log", STATE="../state") | values
    variables = {f"QARN_{'' if re.match('SIM|TEST_', name) else 'SIM_'}{name}": str(values[name]) for name in values}
    words = line.split(" ") if line else []
    process = subprocess.Popen(["qarn", *words], executable=program, stdin=given[0], stdout=given[1], stderr=given[2],
                               preexec_fn=prepare, env=os.environ | variables)
    for stream in streams:
        stream.close()
    return process


def _shown_on(ours, typed):
    """What is shown on a terminal until nobody has its other end; each of the lines is typed once it is asked for."""
    text = b""
    while True:
        try:
            text += os.read(ours, 4096)
        except OSError:
            os.close(ours)
            return text.replace(b"\r\n", b"\n").decode("latin-1")
        if typed and text.endswith(b": "):
            os.write(ours, typed[0].encode() + b"\n")
            typed = typed[1:]


def await_sleep(process):
    """Returns when the process has slept for a while."""
    asleep = 0
    while asleep < 5 and process.poll() is None:
        time.sleep(0.02)
        asleep = asleep + 1 if ") S " in content(f"/proc/{process.pid}/stat") else 0


def run(line, typed=(), signal=None, **how):
    """A whole run, as start() describes it; `typed` are lines for the terminal, `signal` comes while it waits."""
    ours, other = pty.openpty() if "terminals" in how else (None, None)
    process = start(line, terminal=other, **how)
    terminal = ""
    if ours:
        os.close(other)
        terminal = _shown_on(ours, typed)
    if signal:
        await_sleep(process)
        process.send_signal(signal)
    try:
        return Run(process.wait(60), terminal)
    finally:
        process.kill()


def run_for_all(line, **how):
    """The run of a script, of a person at a terminal and with --strict, each on the server as it is now. A script must
    be told nothing, and a person sees nothing but more on standard error."""
    before, runs = held(), []
    for words, terminals in ((line, {}), (line, {"terminals": "2"}), ("--strict " + line, {})):
        hold(before)
        runs.append(run(words, **how, **terminals))
    script, person, strict = runs
    assert (script.err, person.deeds) == ("", script.deeds)
    return script, person, strict


def expect_told(line, tells, faults="", to_people=False, status=0, **how):
    """A run says these lines ("qarn: " before each) with --strict; `to_people`: to a terminal, too. `status` is that
    without --strict, which makes 2 of a 0 when there is something to tell."""
    script, person, strict = run_for_all(line, faults=faults, **how)
    lines = each_line("qarn: ", tells)
    assert not lines or (lines in person.terminal) == to_people, person.terminal
    assert script.status == status
    assert strict.told == f"{lines}{2 if status == 0 and lines else status}"
    assert strict.out + strict.traffic == script.out + script.traffic
