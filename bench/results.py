"""Samples become rows, and rows a table."""

import dataclasses
import math
import statistics

COLUMNS = ["quantity", "folder", "ours", "yardstick", "ratio", "spread", "must", "holds"]


def percentile(samples, percent):
    ordered = sorted(samples)
    place = percent / 100 * (len(ordered) - 1)
    low = math.floor(place)
    high = min(low + 1, len(ordered) - 1)
    return ordered[low] + (ordered[high] - ordered[low]) * (place - low)


def number(value):
    """Three digits that count, or a whole number as it is."""
    if value == int(value):
        return str(int(value))
    digits = max(0, 2 - math.floor(math.log10(abs(value))))
    return f"{value:.{digits}f}"


def spread(values):
    return f"{number(min(values))}..{number(max(values))}"


@dataclasses.dataclass
class Row:
    quantity: str
    folder: str
    ours: str
    yardstick: str = "-"
    ratio: str = "-"
    spread: str = "-"
    must: str = "-"
    holds: str = "-"


def limit_text(must, aim, unit="", sign="<="):
    """What a limit is called in the table: "<= 3.00 x, aim 2.00 x"."""
    words = [] if must is None else [f"{sign} {number(must)}{unit}"]
    if aim is not None:
        words.append(f"aim {number(aim)}{unit}")
    return ", ".join(words) or "-"


def verdict(value, must, at_least=False):
    if must is None:
        return "-"
    return "yes" if (value >= must if at_least else value <= must) else "no"


def ratio_row(quantity, folder, ours, yardstick, unit, must=None, aim=None, name="",
              at_least=False):
    """A row of two lists of rounds, each a list of samples; the ratio is that of a middle round."""
    ratios = [statistics.median(a) / statistics.median(b) for a, b in zip(ours, yardstick)]
    ratio = statistics.median(ratios)
    return Row(quantity, folder, f"{number(statistics.median(sum(ours, [])))} {unit}",
               f"{name}{number(statistics.median(sum(yardstick, [])))} {unit}", number(ratio),
               spread(ratios), limit_text(must, aim, " x", ">=" if at_least else "<="),
               verdict(ratio, must, at_least))


def p99_row(quantity, folder, ours, yardstick, unit, must, name):
    """A row of the p99 beside the own p50, with what the same ratio is for the yardstick."""
    p50, p99 = (percentile(sum(ours, []), percent) for percent in (50, 99))
    same = percentile(sum(yardstick, []), 99) / statistics.median(sum(yardstick, []))
    return Row(quantity, folder, f"{number(p99)} {unit}",
               f"own p50 {number(p50)} {unit} ({name}{number(same)} x)", number(p99 / p50),
               spread([max(a) / statistics.median(a) for a in ours]), limit_text(must, None, " x"),
               verdict(p99 / p50, must))


def value_row(quantity, folder, value, values, unit, must=None, aim=None, yardstick="-"):
    """A row of a quantity that has a limit of its own."""
    unit = f" {unit}" if unit else ""
    return Row(quantity, folder, number(value) + unit, yardstick, "-",
               spread(values) if len(values) > 1 else "-", limit_text(must, aim, unit),
               verdict(value, must))


def markdown(rows):
    lines = [COLUMNS, ["---"] * len(COLUMNS)]
    lines += [list(dataclasses.astuple(row)) for row in rows]
    return "\n".join("| " + " | ".join(line) + " |" for line in lines) + "\n"


def plain(rows):
    lines = [COLUMNS] + [list(dataclasses.astuple(row)) for row in rows]
    widths = [max(len(line[column]) for line in lines) for column in range(len(COLUMNS))]
    return "\n".join(" | ".join(text.ljust(width) for text, width in zip(line, widths)).rstrip()
                     for line in lines) + "\n"
