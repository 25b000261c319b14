"""Draws what a call costs against the reports that are owed, as an SVG for light and dark pages."""

import math

WIDTH, HEIGHT = 900, 440
LEFT, TOP, PANEL_WIDTH, PANEL_HEIGHT, GAP = 70, 104, 370, 270, 50

STYLE = """
  <style>
    text { font: 13px system-ui, sans-serif; fill: #24292f; }
    .title { font-size: 16px; font-weight: 600; }
    .quiet { fill: #57606a; }
    .grid { stroke: #d0d7de; stroke-width: 1; }
    .line { fill: none; stroke-width: 2.5; }
    .ours { stroke: #0969da; } .ours-mark { fill: #0969da; }
    .whole { stroke: #bc4c00; } .whole-mark { fill: #bc4c00; }
    .tail { stroke: #1a7f37; } .tail-mark { fill: #1a7f37; }
    .page { fill: #ffffff; }
    @media (prefers-color-scheme: dark) {
      text { fill: #e6edf3; }
      .quiet { fill: #9198a1; }
      .grid { stroke: #3d444d; }
      .ours { stroke: #58a6ff; } .ours-mark { fill: #58a6ff; }
      .whole { stroke: #f0883e; } .whole-mark { fill: #f0883e; }
      .tail { stroke: #3fb950; } .tail-mark { fill: #3fb950; }
      .page { fill: #0d1117; }
    }
  </style>
"""

SERIES = [("ours", "the library", ""),
          ("whole", "E: whole file into the twin, exchange", "7 4"),
          ("tail", "F: changed tail into the twin, exchange", "2 4")]


def draw(costs):
    """`costs` is {folder: {"ours" | "whole" | "tail": {depth: microseconds}}}."""
    values = [cost for lines in costs.values() for line in lines.values() for cost in line.values()]
    low, high = math.floor(math.log10(min(values))), math.ceil(math.log10(max(values)))
    parts = [f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {WIDTH} {HEIGHT}" '
             f'role="img" aria-label="What an ad-attempt call costs">', STYLE,
             f'  <rect class="page" width="{WIDTH}" height="{HEIGHT}"/>',
             text(LEFT, 28, "What an ad-attempt call costs, with its report in the file", "title")]
    parts += legend()
    for index, (folder, lines) in enumerate(costs.items()):
        parts += panel(LEFT + index * (PANEL_WIDTH + GAP), folder, lines, low, high, index == 0)
    return "\n".join(parts + ["</svg>", ""])


def text(x, y, words, kind="", anchor="start"):
    return f'  <text x="{x:.1f}" y="{y:.1f}" class="{kind}" text-anchor="{anchor}">{words}</text>'


def legend():
    parts = []
    x = LEFT
    for name, words, dashes in SERIES:
        parts.append(f'  <path class="line {name}" stroke-dasharray="{dashes}" d="M{x} 48h30"/>')
        parts.append(text(x + 38, 53, words))
        x += 70 + 7 * len(words)
    return parts


def panel(left, folder, lines, low, high, is_first):
    depths = sorted(lines["ours"])
    bottom = TOP + PANEL_HEIGHT

    def x(depth):  # Nothing owed has no logarithm and stands one step before a single report.
        step = math.log10(depth) + 1 if depth else 0
        return left + 20 + (PANEL_WIDTH - 40) * step / (math.log10(max(depths)) + 1)

    def y(cost):
        return bottom - PANEL_HEIGHT * (math.log10(cost) - low) / (high - low)

    parts = [text(left + PANEL_WIDTH / 2, TOP - 14, folder, "quiet", "middle"),
             text(left + PANEL_WIDTH / 2, bottom + 44, "reports owed before the call", "quiet",
                  "middle")]
    for power in range(low, high + 1):
        parts.append(f'  <path class="grid" d="M{left} {y(10**power):.1f}h{PANEL_WIDTH}"/>')
        if is_first:
            parts.append(text(left - 8, y(10**power) + 4, time_text(power), "quiet", "end"))
    for depth in depths:
        parts.append(f'  <path class="grid" d="M{x(depth):.1f} {bottom}v5"/>')
        parts.append(text(x(depth), bottom + 20, str(depth), "quiet", "middle"))
    for name, _, dashes in SERIES:
        points = [(x(depth), y(lines[name][depth])) for depth in depths]
        path = "L".join(f"{a:.1f} {b:.1f}" for a, b in points)
        parts.append(f'  <path class="line {name}" stroke-dasharray="{dashes}" d="M{path}"/>')
        parts += [f'  <circle class="{name}-mark" cx="{a:.1f}" cy="{b:.1f}" r="3.5"/>'
                  for a, b in points]
    return parts


def time_text(power):
    return f"{10**power:g} µs" if power < 3 else f"{10**(power - 3):g} ms"
