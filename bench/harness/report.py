"""Medians, ratios and tables."""

import statistics


def median(figures, key, scale=1.0):
    return statistics.median(figure[key] for figure in figures) * scale


def quartiles(values):
    values = sorted(values)
    if len(values) < 2:
        return values[0], values[0]
    first, _, third = statistics.quantiles(values, n=4, method="inclusive")
    return first, third


class Ratio:
    """How many times the yardstick's figure one has: the median over the rounds, and between which
    values the middle half of the rounds lies. Both sides of a quotient come from the same round.
    """

    def __init__(self, figures, yardstick, key):
        values = [one[key] / other[key] for one, other in zip(figures, yardstick)]
        self.value = statistics.median(values)
        self.low, self.high = quartiles(values)

    def __str__(self):
        return f"{self.value:.2f} ({self.low:.2f}-{self.high:.2f})"


def table(title, headings, rows, notes=()):
    """Text: the first column to the left, the others to the right."""
    cells = [list(headings)] + [[str(cell) for cell in row] for row in rows]
    widths = [max(len(row[column]) for row in cells) for column in range(len(headings))]
    lines = [title, "-" * len(title)]
    for row in cells:
        first = row[0].ljust(widths[0])
        others = [cell.rjust(width) for cell, width in zip(row[1:], widths[1:])]
        lines.append("  ".join([first, *others]).rstrip())
    lines += [f"  {note}" for note in notes]
    return "\n".join(lines) + "\n"


def times_table(title, results, yardstick, notes=()):
    """For measurements of single requests: times in microseconds, and ratios to the yardstick."""
    rows = []
    for name, figures in results.items():
        rows.append([
            name,
            f"{median(figures, 'p50', 1e-3):.1f}",
            f"{median(figures, 'p99', 1e-3):.1f}",
            f"{median(figures, 'cpu', 1e-3):.2f}",
            Ratio(figures, results[yardstick], "p50"),
            Ratio(figures, results[yardstick], "p99"),
            Ratio(figures, results[yardstick], "cpu"),
        ])
    return table(title, ["", "p50 us", "p99 us", "server CPU us", "p50 ratio", "p99 ratio",
                         "CPU ratio"], rows, notes)
