"""The rows of the table: what was to be reached and what was."""

import dataclasses

import figures

GROWTH_AT_MOST = 1.3
SECONDS = {"median", "p99", "floor_median", "floor_p99"}
BYTES = {"bytes", "peak_bytes", "worst_peak_bytes", "resident_bytes"}


@dataclasses.dataclass
class Row:
    work: str
    floor: str = "–"
    median: str = "–"
    p99: str = "–"
    ratio: str = "–"
    allocations: str = "–"
    target: str = "–"
    misses: list = dataclasses.field(default_factory=list)

    def verdict(self):
        if self.misses:
            return "misses: " + ", ".join(self.misses)
        return "–" if self.target == "–" else "reached"


def make(targets, cases):
    """A row for every target. Raises when a case, or a size of a series, was not measured."""
    return [growth_row(target, cases) if "sizes" in target else target_row(target, cases)
            for target in targets]


def target_row(target, cases):
    counters = counters_of(target, cases)
    row = Row(target["work"])
    row.floor, row.median, row.p99 = (
        shown(name, counters[name]) if name in counters else "–"
        for name in ("floor_median", "median", "p99"))
    for name in ("ratio", "allocations"):
        if name in counters:
            setattr(row, name, shown(name, counters[name]))
    row.target = ", ".join(limit_text(limit) for limit in target["limits"]) or "–"
    row.misses = [miss for limit in target["limits"] if (miss := miss_of(limit, counters))]
    if row.median == "–" and target["limits"]:
        name = target["limits"][0]["of"]
        row.median = shown(name, counters[name])
    return row


def counters_of(target, cases):
    name = target["case"]
    if name == "manager_throughput":
        return {"throughput": least_throughput(cases)}
    if name not in cases:
        raise SystemExit(f"bench: {name} was not measured")
    return cases[name]


def least_throughput(cases):
    """The least throughput of several threads, as a part of one thread's."""
    points = figures.series(cases, "manager_throughput", "items_per_second")
    return min(value for threads, value in figures.relative(points) if threads > 1)


def miss_of(limit, counters):
    """What was measured when it is outside the limit, or None."""
    value = counters[limit["of"]]
    inside = value <= limit["at_most"] if "at_most" in limit else value >= limit["at_least"]
    if inside:
        return None
    text = f"{value:.3f}x" if "ratio" in limit["of"] else shown(limit["of"], value)
    return f"{limit['of'].replace('_', ' ')} {text}"


def limit_text(limit):
    sign, value = ("≤", limit["at_most"]) if "at_most" in limit else ("≥", limit["at_least"])
    return f"{limit['of'].replace('_', ' ')} {sign} {shown(limit['of'], value)}"


def growth_row(target, cases):
    points = figures.series(cases, target["case"], "per_item")
    smallest, largest = target["sizes"]
    if not {smallest, largest} <= {size for size, _ in points}:
        raise SystemExit(f"bench: {target['case']} was not measured from {smallest} to {largest}")
    worst = figures.growth(points)
    row = Row(f"{target['work']}, {smallest:,} to {largest:,}",
              median=shown("median", points[0][1]), ratio=shown("ratio", worst),
              target=f"cost per item ≤ {GROWTH_AT_MOST}x of any smaller size")
    if worst > GROWTH_AT_MOST:
        row.misses = [f"{worst:.2f}x"]
    return row


def shown(name, value):
    if name in SECONDS:
        return duration(value)
    if name in BYTES:
        return f"{value / 1e6:.2f} MB" if value >= 1e6 else f"{value / 1e3:.0f} KB"
    return f"{value:.2f}".rstrip("0").rstrip(".") + ("x" if "ratio" in name else "")


def duration(seconds):
    for factor, unit in ((1, "s"), (1e3, "ms"), (1e6, "µs")):
        if seconds * factor >= 1:
            return f"{seconds * factor:.3g} {unit}"
    return f"{seconds * 1e9:.3g} ns"
