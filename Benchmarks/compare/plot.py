"""Draws how cost grows with size, as a picture that needs no program to look
at: one SVG file."""
import math

WIDTH, HEIGHT = 760, 440
LEFT, RIGHT, TOP, BOTTOM = 70, 190, 30, 60
COLOURS = ["#1f6fb4", "#8fb8dc", "#c4501b", "#e8b08f", "#2f8f4e", "#a0cfae"]


def ticks(low, high):
    """1, 2 and 5 of each decade that the range touches."""
    return [step * 10.0**power
            for power in range(math.floor(math.log10(low)), math.ceil(math.log10(high)) + 1)
            for step in (1, 2, 5) if low <= step * 10.0**power <= high]


def short(number):
    for unit, name in ((1e6, " M"), (1e3, " k")):
        if number >= unit:
            return f"{number / unit:g}{name}"
    return f"{number:g}"


def draw(lines):
    """lines: {label: [(entries, microseconds per entry), ...]}."""
    points = [point for line in lines.values() for point in line]
    x_low, x_high = min(x for x, _ in points), max(x for x, _ in points)
    y_low = min(y for _, y in points) / 1.3
    y_high = max(y for _, y in points) * 1.3

    def across(x):
        part = (math.log(x) - math.log(x_low)) / (math.log(x_high) - math.log(x_low))
        return LEFT + part * (WIDTH - LEFT - RIGHT)

    def down(y):
        part = (math.log(y) - math.log(y_low)) / (math.log(y_high) - math.log(y_low))
        return HEIGHT - BOTTOM - part * (HEIGHT - TOP - BOTTOM)

    out = [f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {WIDTH} {HEIGHT}" '
           'font-family="sans-serif" font-size="12">',
           '<title>Cost of one entry against the number of entries</title>',
           f'<rect width="{WIDTH}" height="{HEIGHT}" fill="white"/>']
    for y in ticks(y_low, y_high):
        out.append(f'<line x1="{LEFT}" x2="{WIDTH - RIGHT}" y1="{down(y):.1f}" y2="{down(y):.1f}" '
                   'stroke="#ddd"/>')
        out.append(f'<text x="{LEFT - 8}" y="{down(y) + 4:.1f}" text-anchor="end">{y:g}</text>')
    for x in sorted({x for x, _ in points}):
        out.append(f'<line x1="{across(x):.1f}" x2="{across(x):.1f}" y1="{TOP}" '
                   f'y2="{HEIGHT - BOTTOM}" stroke="#eee"/>')
        out.append(f'<text x="{across(x):.1f}" y="{HEIGHT - BOTTOM + 18}" '
                   f'text-anchor="middle">{short(x)}</text>')
    out.append(f'<text x="{(LEFT + WIDTH - RIGHT) / 2}" y="{HEIGHT - 14}" '
               'text-anchor="middle">entries in the tree</text>')
    out.append(f'<text transform="translate(16 {HEIGHT / 2}) rotate(-90)" '
               'text-anchor="middle">microseconds per entry</text>')
    for number, (label, line) in enumerate(lines.items()):
        colour = COLOURS[number % len(COLOURS)]
        path = " ".join(f"{across(x):.1f},{down(y):.1f}" for x, y in line)
        out.append(f'<polyline points="{path}" fill="none" stroke="{colour}" stroke-width="2"/>')
        out += [f'<circle cx="{across(x):.1f}" cy="{down(y):.1f}" r="3" fill="{colour}"/>'
                for x, y in line]
        height = TOP + 18 * number
        out.append(f'<line x1="{WIDTH - RIGHT + 16}" x2="{WIDTH - RIGHT + 40}" y1="{height}" '
                   f'y2="{height}" stroke="{colour}" stroke-width="2"/>')
        out.append(f'<text x="{WIDTH - RIGHT + 46}" y="{height + 4}">{label}</text>')
    return "\n".join([*out, "</svg>", ""])
