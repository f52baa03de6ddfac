#!/usr/bin/env python3
"""Runs the whole-machine cases: system/run.py --qarn PATH --bmc PATH [--only TEXT]; exit 77 where no guest can run."""

import argparse
import importlib
import inspect
import os
import sys
import tempfile
import time
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

import machine

SKIPPED = 77
LONGEST = 240  # characters of a text in a failure's line


def excerpt(value, other):
    """The value as it is written, or only what stands around its first difference from the other."""
    text, other = repr(value), repr(other)
    start = max(0, len(os.path.commonprefix([text, other])) - LONGEST // 4)
    return text if len(text) <= LONGEST else f"...{text[start:start + LONGEST]}..."


class Checks:
    """What one case saw: counts, and a line for each failed check."""

    def __init__(self, name, options):
        self.name, self.qarn, self.bmc = name, options.qarn, options.bmc
        self.sim = str(Path(options.bmc).resolve().with_name("qarn-sim"))
        self.passed, self.failures = 0, []
        self.folder = tempfile.TemporaryDirectory(prefix="qarn-system-")

    def boot(self, steps, bmc=(), **settings):
        settings["programs"] = {"bin/qarn": self.qarn} | settings.get("programs", {})
        return machine.boot(steps, bmc, **settings)

    def file(self, name, content):
        """Path of a file for QEMU that lasts as long as the case."""
        path = Path(self.folder.name, name)
        path.write_bytes(content)
        return path

    def that(self, holds, what, detail=""):
        if holds:
            self.passed += 1
        else:
            self.failures.append(f"{self.name}: {what}" + (f": {detail}" if detail else ""))

    def same(self, got, wanted, what):
        self.that(got == wanted, what, f"got {excerpt(got, wanted)}, wanted {excerpt(wanted, got)}")

    def ended(self, seen, out, status, what):
        self.same((seen.out, seen.status), (out, status), what)

    def holds(self, text, part, what):
        self.that(part in text, what, f"{part!r} is not in {text[:LONGEST]!r}")


def run_case(case, options):
    checks = Checks(case.__module__.removeprefix("cases_") + "." + case.__name__, options)
    start = time.monotonic()
    try:
        case(checks)
    except Exception as error:  # a case that breaks is a failed check, and the others go on
        checks.failures.append(f"{checks.name}: {type(error).__name__}: {error}")
    if options.times:
        print(f"{checks.name}: {time.monotonic() - start:.1f} s", flush=True)
    return checks


def all_cases():
    """Every function of the case files whose one argument is `checks`, in order."""
    cases = []
    for path in sorted(Path(__file__).parent.glob("cases_*.py")):
        module = importlib.import_module(path.stem)
        cases += [value for value in vars(module).values()
                  if inspect.isfunction(value) and list(inspect.signature(value).parameters) == ["checks"]]
    return cases


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--qarn", required=True, help="the program under test, a build for the real machine")
    parser.add_argument("--bmc", required=True, help="our simulated BMC as a server")
    parser.add_argument("--only", default="", help="run the cases whose name holds this text")
    parser.add_argument("--jobs", type=int, default=os.cpu_count() or 1)
    parser.add_argument("--times", action="store_true", help="print how long each case takes")
    options = parser.parse_args()
    missing = machine.missing_tools()
    if missing:
        print("whole-machine test not run: no " + ", ".join(missing))
        return 1 if os.environ.get("CI") == "true" else SKIPPED
    try:
        machine.base_archive()
    except (machine.MachineError, OSError) as error:
        print(f"whole-machine test not run: {error}")
        return 1
    cases = [case for case in all_cases() if options.only in f"{case.__module__}.{case.__name__}"]
    passed = failed = 0
    with ThreadPoolExecutor(options.jobs) as pool:
        for checks in pool.map(lambda case: run_case(case, options), cases):
            passed += checks.passed
            failed += len(checks.failures)
            for line in checks.failures:
                print(line, flush=True)
    print(f"{passed} passed, {failed} failed")
    return 1 if failed or not passed else 0


if __name__ == "__main__":
    sys.exit(main())
