#!/usr/bin/env python3
"""Draws doc/demo.svg: an inventory dumped, edited and written back on the simulated server, as it really ran.

Usage: picture.py QARN-SIM
"""
import html
import os
import pathlib
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parent.parent
SESSION = [
    "qarn --strict --exact --wfru fru.txt",
    "grep -n \"'..*'\" fru.txt",
    "sed -i.old 's/B0001/B0042/' fru.txt    # or in an editor",
    "qarn --strict --exact --fru fru.txt | tail -n 1",
    "qarn --strict --exact --wfru after.txt | tail -n 1",
    "diff fru.txt.old after.txt              # the number, and its area's checksum",
]
DIFFERENT = 1  # the status of diff
COLUMNS, SIZE, LEADING, MARGIN = 78, 14, 19, 18
STYLE = f"""text {{ font: {SIZE}px monospace; fill: #d8dee9; white-space: pre; }}
.typed {{ fill: #a3d977; font-weight: bold; }}
.old {{ fill: #e8878f; }}
.new {{ fill: #8fc7ff; }}"""


def kind_of(command, line):
    if not command.startswith("diff"):
        return ""
    return {"<": "old", ">": "new"}.get(line[:1], "")


def session(qarn):
    """The lines of the session: (kind, text) pairs."""
    with tempfile.TemporaryDirectory() as folder:
        (pathlib.Path(folder) / "qarn").symlink_to(qarn)
        environment = {"PATH": f"{folder}:{os.defpath}", "QARN_SIM_STATE": folder + "/state"}
        for command in SESSION:
            done = subprocess.run(["bash", "-c", command], cwd=folder, env=environment, text=True,
                                  stdout=subprocess.PIPE, stderr=subprocess.STDOUT, check=False)
            if done.returncode != (DIFFERENT if command.startswith("diff") else 0):
                sys.exit(f"{command}: status {done.returncode}\n{done.stdout}")
            yield "typed", "# " + command
            for line in done.stdout.splitlines():
                for start in range(0, max(len(line), 1), COLUMNS):
                    yield kind_of(command, line), line.expandtabs()[start:start + COLUMNS]


def draw(lines):
    width, height = int(COLUMNS * SIZE * 0.602) + 2 * MARGIN, len(lines) * LEADING + 2 * MARGIN
    yield f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {width} {height}">'
    yield "<title>An inventory dumped as text, edited and written back</title>"
    yield f"<style>{STYLE}</style>"
    yield f'<rect width="{width}" height="{height}" rx="8" fill="#20252e"/>'
    for number, (kind, text) in enumerate(lines):
        style = f' class="{kind}"' if kind else ""
        y = MARGIN + SIZE + number * LEADING
        yield f'<text x="{MARGIN}" y="{y}" xml:space="preserve"{style}>{html.escape(text, quote=False)}</text>'
    yield "</svg>"


lines = list(session(pathlib.Path(sys.argv[1]).resolve()))
(ROOT / "doc/demo.svg").write_text("\n".join(draw(lines)) + "\n")
