"""What the benchmarks measured: every case by its name, with its counters."""

import json
import pathlib
import re


def load(folder):
    """The cases in the JSON files of a folder: {name: {counter: value}}. Failed cases raise."""
    cases = {}
    for path in sorted(pathlib.Path(folder).glob("*.json")):
        for case in json.loads(path.read_text())["benchmarks"]:
            if case.get("error_occurred"):
                raise SystemExit(f"bench: {case['name']} failed: {case['error_message']}")
            cases[plain_name(case["name"])] = with_ratios(case)
    return cases


def plain_name(name):
    """A case's name without what Google Benchmark adds to it (`/iterations:200/manual_time`)."""
    return re.sub(r"/(iterations:\d+|manual_time|real_time|process_time)", "", name)


def with_ratios(case):
    counters = {name: value for name, value in case.items() if isinstance(value, (int, float))}
    if counters.get("floor_p99"):
        counters["p99_ratio"] = counters["p99"] / counters["floor_p99"]
    return counters


def series(cases, name, counter):
    """The values of one counter over the sizes of a series `name/<size>`, as (size, value) by size."""
    pattern = re.compile(re.escape(name) + r"/(?:[a-z_]+:)?(\d+)$")
    points = [(int(match[1]), counters[counter])
              for case, counters in cases.items() if (match := pattern.match(case))]
    return sorted(points)


def growths(cases):
    """The names of all growth series, in order."""
    return sorted({case.split("/")[0] for case in cases if case.startswith("growth_")})


def growth(points):
    """How much dearer an item becomes at most: each size against the cheapest of all smaller ones, so
    that a fixed cost, which weighs on small sizes, hides nothing."""
    values = [value for _, value in points]
    return max(value / min(values[:index]) for index, value in enumerate(values) if index)


def relative(points):
    """The points divided by that of the smallest size."""
    return [(size, value / points[0][1]) for size, value in points]
