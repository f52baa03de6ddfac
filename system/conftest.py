"""Runs the whole-machine cases: pytest-3 system --qarn PATH --bmc PATH [--archive PATH] [-k TEXT]; exit status 77 where
no guest can run."""

import os
import shutil
import subprocess
from pathlib import Path

import machine
import pytest


def pytest_addoption(parser):
    parser.addoption("--qarn", help="the program under test, a build for the real machine")
    parser.addoption("--bmc", help="our simulated BMC as a server")
    parser.addoption("--archive", help="the archive for rescue systems; without it, its case is left out")


def pytest_configure(config):
    """Fetches the kernel, once for all processes that run cases."""
    missing = [f"no {tool}" for tool in machine.TOOLS if not shutil.which(tool)]
    try:
        if not missing and not hasattr(config, "workerinput"):
            machine.base()
    except (subprocess.SubprocessError, OSError) as error:
        missing = [f"no kernel: {error}"]
    if missing:
        pytest.exit("whole-machine test not run: " + ", ".join(missing), 1 if os.environ.get("CI") == "true" else 77)


class Checks:
    """What a case works with."""

    def __init__(self, options, folder):
        self.qarn, self.bmc, self.archive, self.folder = options.qarn, options.bmc, options.archive, folder

    def file(self, name, content):
        """Path of a file that lasts as long as the case."""
        path = Path(self.folder, name)
        path.write_bytes(content)
        return path

    def guest(self, bmc, rows, files=(), **settings):
        """Run rows (step, command, wanted) in one guest, and compare what each prints with what is wanted: a text, a
        function of all that was printed, or None; a fourth column reads the printed text first."""
        steps = {step: command for step, command, *_ in rows}
        seen = machine.boot(steps, bmc, files={"bin/qarn": self.qarn} | dict(files), **settings)
        wanted = {step: want(seen) if callable(want) else want for step, _, want, *_ in rows if want is not None}
        got = {step: read[0](seen[step]) if read else seen[step] for step, _, _, *read in rows}
        assert {step: got[step] for step in wanted} == wanted


@pytest.fixture
def checks(pytestconfig, tmp_path):
    return Checks(pytestconfig.option, tmp_path)
