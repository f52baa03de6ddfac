"""Each test begins with a fresh server, in an empty folder."""

import tempfile
from pathlib import Path

import pytest

import harness


@pytest.fixture(autouse=True)
def begin():
    with tempfile.TemporaryDirectory(prefix="qarn-test-") as folder:
        harness.begin(Path(folder))
        yield
