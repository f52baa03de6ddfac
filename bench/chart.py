"""The chart of doc/performance.md: two panels of dots, one dot a tool, and one of lines."""

import html
import math

WIDTH, HEIGHT, MARGIN = 900, 620, 24
INK, FAINT, GRID = "#24292f", "#57606a", "#d8dee4"
# of a tool: its colour, its shape, and whether that is filled
MARKS = {
    "bare C": ("#57606a", "circle", False),
    "qarn, static": ("#0969da", "circle", False),
    "qarn": ("#0969da", "circle", True),
    "FreeIPMI": ("#bc4c00", "square", True),
    "ipmitool without its vendor list": ("#8250df", "diamond", False),
    "ipmitool": ("#8250df", "diamond", True),
}
LINES = ["#0969da", "#bc4c00", "#8250df"]
RADIUS = 5


def text(x, y, content, anchor="start", size=12, colour=INK, weight="normal"):
    return (f'<text x="{x:.1f}" y="{y:.1f}" text-anchor="{anchor}" font-size="{size}" fill="{colour}" '
            f'font-weight="{weight}">{html.escape(str(content), quote=False)}</text>')


def line(x1, y1, x2, y2, colour=GRID):
    return f'<line x1="{x1:.1f}" y1="{y1:.1f}" x2="{x2:.1f}" y2="{y2:.1f}" stroke="{colour}"/>'


def mark(x, y, colour, shape, filled):
    style = f'fill="{colour if filled else "#ffffff"}" stroke="{colour}" stroke-width="1.8"'
    if shape == "circle":
        return f'<circle cx="{x:.1f}" cy="{y:.1f}" r="{RADIUS}" {style}/>'
    turned = f' transform="rotate(45 {x:.1f} {y:.1f})"' if shape == "diamond" else ""
    side = 2 * RADIUS - 1
    return f'<rect x="{x - side / 2:.1f}" y="{y - side / 2:.1f}" width="{side}" height="{side}" {style}{turned}/>'


class Scale:
    """From values to places along an axis; logarithmic when it does not begin with 0."""

    def __init__(self, low, high, start, end):
        self.low, self.high, self.start, self.end = low, high, start, end

    def place(self, value):
        if self.low == 0:
            part = value / self.high
        else:
            part = math.log(value / self.low) / math.log(self.high / self.low)
        return self.start + part * (self.end - self.start)

    def ticks(self, step):
        """Powers of ten, or the multiples of a step."""
        if self.low == 0:
            return [step * number for number in range(int(self.high / step) + 1)]
        powers = range(math.ceil(math.log10(self.low)), math.floor(math.log10(self.high)) + 1)
        return [10 ** power for power in powers]


def short(value):
    return f"{value:,.0f}" if value >= 1 or value == 0 else f"{value:g}"


def legend(y, styles, x=MARGIN):
    """Of {name: (colour, shape, filled)}."""
    for name, style in styles.items():
        yield mark(x + RADIUS, y - 4, *style)
        yield text(x + 16, y, name)
        x += 40 + 6.5 * len(name)


def x_axis(scale, step, top, bottom, label):
    for value in scale.ticks(step):
        yield line(scale.place(value), top, scale.place(value), bottom)
        yield text(scale.place(value), bottom + 16, short(value), "middle", 11, FAINT)
    yield text((scale.start + scale.end) / 2, bottom + 34, label, "middle", 12, FAINT)


def dots(rows, scale, step, top, label, names_end=None):
    """A line for each row {work: {tool: value}}; the names of the work end at names_end."""
    pitch = 30
    bottom = top + pitch * len(rows)
    yield from x_axis(scale, step, top, bottom, label)
    for number, (work, values) in enumerate(rows.items()):
        y = top + pitch * (number + 0.5)
        yield line(scale.start, y, scale.end, y)
        if names_end is not None:
            yield text(names_end, y + 4, work, "end")
        for tool, value in reversed(values.items()):
            yield mark(scale.place(value), y, *MARKS[tool])


def lines(series, x, y, steps, label):
    """Of [[(x, y)]]; steps of both axes."""
    for value in y.ticks(steps[1]):
        yield line(x.start, y.place(value), x.end, y.place(value))
        yield text(x.start - 8, y.place(value) + 4, short(value), "end", 11, FAINT)
    yield from x_axis(x, steps[0], y.end, y.start, label)
    for colour, points in zip(LINES, series):
        places = [(x.place(across), y.place(up)) for across, up in points]
        path = " ".join(f"{across:.1f},{up:.1f}" for across, up in places)
        yield f'<polyline points="{path}" fill="none" stroke="{colour}" stroke-width="2"/>'
        for across, up in places:
            yield mark(across, up, colour, "circle", True)


def body(instructions, memory, growth):
    yield text(MARGIN, 38, "One piece of work over /dev/ipmi0, from the start of the process to its end",
               size=15, weight="600")
    yield from legend(66, MARKS)
    most = max(value for row in memory.values() for value in row.values())
    instruction_scale = Scale(0.3, 400, 200, 540)
    yield from dots(instructions, instruction_scale, None, 84, "million instructions (logarithmic)", 188)
    yield from dots(memory, Scale(0, most * 1.05, 580, WIDTH - MARGIN - 6), 2, 84, "peak memory, MiB")
    yield text(MARGIN, 318, "qarn alone, on ever more work: memory grows with the records, and with nothing else",
               size=15, weight="600")
    points = [point for series in growth.values() for point in series]
    x = Scale(0, max(across for across, _ in points), 60, WIDTH - MARGIN - 10)
    y = Scale(0, max(up for _, up in points) * 1.1, HEIGHT - 66, 376)
    yield from legend(346, {name: (colour, "circle", True) for name, colour in zip(growth, LINES)})
    yield text(MARGIN, 370, "peak memory, MiB", colour=FAINT)
    yield from lines(growth.values(), x, y, (200_000, 2), "requests to the BMC")


def draw(instructions, memory, growth):
    """Of {work: {tool: millions}}, {work: {tool: MiB}} and {name: [(requests, MiB)]}."""
    return "\n".join([
        f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {WIDTH} {HEIGHT}" '
        'font-family="system-ui, -apple-system, Segoe UI, DejaVu Sans, sans-serif">',
        "<title>What qarn and other tools cost, and how qarn's memory grows</title>",
        f'<rect width="{WIDTH}" height="{HEIGHT}" rx="8" fill="#ffffff"/>',
        *body(instructions, memory, growth), "</svg>"]) + "\n"
