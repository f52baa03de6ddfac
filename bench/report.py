#!/usr/bin/env python3
"""The documents' figures, from doc/performance.json that bench/compare.py leaves.

Usage: bench/report.py [--check]
Writes what stands between the marks "figures: NAME" and "end of figures" in doc/performance.md and README.md, and
doc/performance.svg; prints the summary. With --check it writes nothing, and ends with 1 when something would change.
"""

import json
import re
import statistics
import sys
import textwrap
from pathlib import Path

import chart

ROOT = Path(__file__).resolve().parent.parent
RAW = ROOT / "doc/performance.json"
DOCUMENTS = ["doc/performance.md", "README.md"]
BLOCK = re.compile(r"(<!-- figures: ([\w ]+) -->\n).*?(<!-- end of figures -->)", re.S)
PORTS, KERNEL = "own KCS driver", "/dev/ipmi0"
QUIET = 0.2  # cores that others use
CURVES = {"40 to 65,535 sensor records": "sensor records, read", "40 to 65,535 log entries": "event log, read",
          "1 to 16 MiB of firmware": "firmware, save"}
ALIGNED = {"work", "path", "program", "tool", "unit"}  # to the left; figures to the right


def keep(found):
    """One row a line, so that a difference can be read."""
    parts = []
    for name, value in found.items():
        rows = isinstance(value, list)
        text = "[\n" + ",\n".join("  " + json.dumps(row) for row in value) + "\n ]" if rows else json.dumps(value)
        parts.append(f' "{name}": {text}')
    RAW.write_text("{\n" + ",\n".join(parts) + "\n}\n")
    write()


def kept():
    return json.loads(RAW.read_text())


def middle(row):
    """The run whose processor time is the median: all figures of a row but the wall times are this one's."""
    return sorted(row["runs"], key=lambda run: run["cpu_us"])[len(row["runs"]) // 2]


def table(heading, rows):
    lines = [heading, ["---" if name in ALIGNED else "--:" for name in heading], *rows]
    return "".join("| " + " | ".join(str(cell) for cell in line) + " |\n" for line in lines)


def paragraph(text):
    return textwrap.fill(text, 110, break_on_hyphens=False) + "\n"


def item(text):
    return textwrap.fill("- " + text, 110, subsequent_indent="  ", break_on_hyphens=False) + "\n"


def in_order(values):
    return list(dict.fromkeys(values))


def by_tool(found, cell):
    """A row for each work and path, a column for each tool; the path stands where it is not the row's before."""
    tools = in_order(row["tool"] for row in found["jobs"])
    rows = {}
    for row in found["jobs"]:
        rows.setdefault((row["work"], row["path"]), {})[row["tool"]] = cell(row)
    lines = [[work, path, *(cells.get(tool) or "" for tool in tools)] for (work, path), cells in rows.items()]
    return table(["work", "path", *tools], [line for line in lines if any(line[2:])])


def millions(row):
    return f"{middle(row)['cpu_us'] / 1000:.2f}"


def kib(row):
    return f"{middle(row)['memory_kib']:,}"


def wall(row):
    times = [run["wall_us"] for run in row["runs"]]
    if None in times:
        return ""
    return " / ".join(f"{value / 1000:.1f}" for value in (min(times), statistics.median(times), max(times)))


def wire(row):
    accesses = middle(row)["accesses"]
    return f"{middle(row)['requests']}" + ("" if accesses is None else f" / {accesses:,}")


def size_table(found):
    def kb(size):
        return f"{size / 1000:,.0f}" if size else "none"

    rows = [[row["program"], kb(row["bytes"]), kb(row["libraries"])] for row in found["sizes"]]
    return table(["program", "kB", "kB of libraries"], rows)


def memory_table(found):
    most = max(found["jobs"], key=spread)
    return by_tool(found, kib) + "\n" + paragraph(
        "The kernel chooses addresses at random, and with them the memory of a program changes from run to run: "
        f"by up to {spread(most):,} KiB here ({most['tool']}).")


def spread(row):
    memory = [run["memory_kib"] for run in row["runs"]]
    return max(memory) - min(memory)


def scaling_table(found):
    rows, last = [], ""
    works = in_order(row["work"] for row in found["scaling"])
    for row in sorted(found["scaling"], key=lambda row: works.index(row["work"])):
        run = middle(row)
        work = row["work"] if row["work"] != last else ""
        rows.append([work, f"{row['size']:,} {row['unit']}", f"{run['requests']:,}", f"{run['cpu_us'] / 1e6:.3f}",
                     f"{run['cpu_us'] / run['requests']:.1f}", kib(row)])
        last = row["work"]
    return table(["work", "size", "requests", "processor s", "µs a request", "peak memory KiB"], rows)


def growth(found, work):
    """Bytes of memory that each more of it takes, fitted to all runs; and the memory for least and most, in KiB."""
    rows = [row for row in found["scaling"] if row["work"] == work]
    points = [(row["size"], run["memory_kib"]) for row in rows for run in row["runs"]]
    return statistics.linear_regression(*zip(*points)).slope * 1024, [middle(row)["memory_kib"] for row in rows]


def times_of_qarn(found, tool):
    """The least and the largest ratio of its instructions to those of qarn on the same work and path."""
    ours = {(row["work"], row["path"]): middle(row)["cpu_us"] for row in found["jobs"] if row["tool"] == "qarn"}
    ratios = [middle(row)["cpu_us"] / ours[row["work"], row["path"]] for row in found["jobs"] if row["tool"] == tool]
    return f"{min(ratios):.1f} to {max(ratios):.1f}"


def growth_line(found):
    per_record, records = growth(found, "sensor records, read")
    per_entry, entries = growth(found, "event log, read")
    images = [row for row in found["scaling"] if row["unit"] == "MiB"]
    memory = [middle(row)["memory_kib"] for row in images]
    return item(
        f"Memory grows with the records that are read, {per_record:.0f} bytes each, and the log's entries, "
        f"{per_entry:.0f} bytes each: from {records[0]:,} to {records[-1]:,} KiB for 65,535 records, from {entries[0]:,} to "
        f"{entries[-1]:,} KiB for as many entries (the bytes are fitted to all runs). A firmware image of 1 to {max(row['size'] for row in images)} MiB takes {min(memory):,} to "
        f"{max(memory):,} KiB, whatever its size.")


def summary(found):
    """Four items."""
    first = {(row["tool"], row["path"]): row for row in found["jobs"] if row["work"].startswith("identity")}

    def both(tool, path=KERNEL):
        return f"{millions(first[tool, path])} million instructions and {kib(first[tool, path])} KiB"

    size = {row["program"]: f"{row['bytes'] / 1000:,.0f} kB" for row in found["sizes"]}
    works = len(in_order(row["work"] for row in found["jobs"]))
    ratios = [times_of_qarn(found, tool) for tool in ("FreeIPMI", "ipmitool", "ipmitool without its vendor list")]
    return item(
        f"One raw request over `/dev/ipmi0` takes {both('qarn')} of memory; a bare static C program that sends the "
        f"same requests {both('bare C')}, FreeIPMI {both('FreeIPMI')}, ipmitool {both('ipmitool')}.") + item(
        f"On {works} pieces of work FreeIPMI takes {ratios[0]} times the instructions of qarn, ipmitool {ratios[1]} "
        f"times, and without its list of vendors {ratios[2]} times.") + item(
        f"Stripped, the program is {size['qarn']} and loads nothing but the C library; wholly static, "
        f"{size['qarn, static']}.") + growth_line(found)


def short_table(found):
    """For README: two pieces of work, and for each tool million instructions, then memory in MiB."""
    columns = {"bare C": (KERNEL, "bare C"), "qarn, own driver": (PORTS, "qarn"),
               "qarn, `/dev/ipmi0`": (KERNEL, "qarn"), "FreeIPMI": (KERNEL, "FreeIPMI"),
               "ipmitool": (KERNEL, "ipmitool")}
    cells = {(row["work"], row["path"], row["tool"]): f"{millions(row)}, {middle(row)['memory_kib'] / 1024:.2f}"
             for row in found["jobs"]}
    rows = [[work, *(cells[work, *column] for column in columns.values())]
            for work in in_order(row["work"] for row in found["jobs"]) if work.startswith(("identity", "40"))]
    return table(["work", *columns], rows)


def circumstances(found):
    package = found["versions"]
    text = paragraph(
        f"Measured on {found['date']} at commit {found['commit']}: Debian's Linux {package['kernel']} in QEMU "
        f"{package['qemu-system-x86']}, on a host with {found['cpus']} cores of {found['model']}; ipmitool "
        f"{package['ipmitool']}, FreeIPMI {package['freeipmi-tools']}. Each tool ran {found['runs']} times on each "
        f"piece of work. All of it took {found['minutes']} minutes.")
    if found["others"] < QUIET:
        return text
    return text + "\n" + paragraph(
        f"**Provisional**: other processes used {found['others']:.1f} of the host's cores meanwhile. That does not "
        "touch the figures from the guest, but the processor times of the last table.")


BLOCKS = {
    "summary": summary,
    "short": short_table,
    "circumstances": circumstances,
    "instructions": lambda found: by_tool(found, millions),
    "memory": memory_table,
    "wire": lambda found: by_tool(found, wire),
    "wall": lambda found: by_tool(found, wall),
    "sizes": size_table,
    "scaling": scaling_table,
}


def tables(found):
    """Those of the jobs, without the documents."""
    return "\n".join(f"{name}\n\n{BLOCKS[name](found)}" for name in ("instructions", "memory", "wire", "wall", "sizes"))


def chart_of(found):
    """On the path that every tool takes; of a firmware image, its save, which sends the most requests."""
    dots = {}
    for row in found["jobs"]:
        if row["path"] == KERNEL:
            dots.setdefault(row["work"], {})[row["tool"]] = middle(row)
    growth = {}
    for name, work in CURVES.items():
        runs = [middle(row) for row in found["scaling"] if row["work"] == work]
        growth[name] = [(run["requests"], run["memory_kib"] / 1024) for run in runs]

    def each(figure, unit):
        return {work: {tool: run[figure] / unit for tool, run in row.items()} for work, row in dots.items()}

    return chart.draw(each("cpu_us", 1000), each("memory_kib", 1024), growth)


def documents(found):
    """{path: what it is to hold}"""
    texts = {name: BLOCK.sub(lambda block: block[1] + BLOCKS[block[2]](found) + block[3], (ROOT / name).read_text())
             for name in DOCUMENTS}
    return texts | {"doc/performance.svg": chart_of(found)}


def write():
    for name, text in documents(kept()).items():
        (ROOT / name).write_text(text)


def main():
    if sys.argv[1:] == ["--check"]:
        stale = [name for name, text in documents(kept()).items() if (ROOT / name).read_text() != text]
        sys.exit(f"not as doc/performance.json has it, see bench/report.py: {' '.join(stale)}" if stale else 0)
    write()
    print(summary(kept()), end="")


if __name__ == "__main__":
    main()
