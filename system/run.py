#!/usr/bin/env python3
"""Runs the whole-machine cases: system/run.py --qarn PATH --bmc PATH [--archive PATH] [--only TEXT]; exit 77 where no
guest can run."""

import argparse
import importlib
import inspect
import os
import shutil
import subprocess
import sys
import tempfile
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

import machine


def excerpt(value, other):
    """Of the value as it is written, what stands around its first difference from the other."""
    text = repr(value)
    start = max(0, len(os.path.commonprefix([text, repr(other)])) - 60)
    return text[start:start + 240]


class Checks:
    """What one case saw: a count, and a line for each failed check."""

    def __init__(self, name, options):
        self.name, self.qarn, self.bmc, self.archive = name, options.qarn, options.bmc, options.archive
        self.count, self.failures = 0, []
        self.folder = tempfile.TemporaryDirectory(prefix="qarn-system-")

    def file(self, name, content):
        """Path of a file that lasts as long as the case."""
        path = Path(self.folder.name, name)
        path.write_bytes(content)
        return path

    def guest(self, bmc, rows, files=(), **settings):
        """Run rows (step, command, wanted) in one guest, and compare what each prints with what is wanted: a text, a
        function of all that was printed, or None; a fourth column reads the printed text first."""
        steps = {step: command for step, command, *_ in rows}
        seen = machine.boot(steps, bmc, files={"bin/qarn": self.qarn} | dict(files), **settings)
        for step, _, wanted, *read in rows:
            got = read[0](seen[step]) if read else seen[step]
            wanted = wanted(seen) if callable(wanted) else wanted
            self.count += wanted is not None
            if wanted not in (None, got):
                self.failures.append(f"{self.name}: {step}: {excerpt(got, wanted)} was to be {excerpt(wanted, got)}")


def run_case(case, options):
    checks = Checks(case.__module__.removeprefix("cases_") + "." + case.__name__, options)
    try:
        case(checks)
    except Exception as error:  # a case that breaks is a failed check, and the others go on
        checks.count += 1
        checks.failures.append(f"{checks.name}: {type(error).__name__}: {error}")
    return checks


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--qarn", required=True, help="the program under test, a build for the real machine")
    parser.add_argument("--bmc", required=True, help="our simulated BMC as a server")
    parser.add_argument("--archive", help="the archive for rescue systems; without it, its case is left out")
    parser.add_argument("--only", default="", help="run the cases whose name holds this text")
    options = parser.parse_args()
    if missing := [tool for tool in machine.TOOLS if not shutil.which(tool)]:
        print("whole-machine test not run: no " + ", ".join(missing))
        return 1 if os.environ.get("CI") == "true" else 77
    try:
        machine.base()
    except (subprocess.SubprocessError, OSError) as error:
        print(f"whole-machine test not run: no kernel: {error}")
        return 1 if os.environ.get("CI") == "true" else 77
    # a case is a function of the case files whose one argument is `checks`
    cases = [case for path in sorted(Path(__file__).parent.glob("cases_*.py"))
             for case in vars(importlib.import_module(path.stem)).values()
             if inspect.isfunction(case) and list(inspect.signature(case).parameters) == ["checks"]
             and options.only in f"{case.__module__}.{case.__name__}" and (options.archive or path.stem != "cases_archive")]
    with ThreadPoolExecutor(os.cpu_count()) as pool:
        done = list(pool.map(lambda case: run_case(case, options), cases))
    failures = [line for checks in done for line in checks.failures]
    print(*failures, f"{sum(checks.count for checks in done) - len(failures)} passed, {len(failures)} failed", sep="\n")
    return 1 if failures or not done else 0


if __name__ == "__main__":
    sys.exit(main())
