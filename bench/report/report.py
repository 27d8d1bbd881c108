"""Prints the table of the benchmarks and writes it, with the pictures, to the documentation.

    report.py RESULTS TARGETS DOCUMENT MACHINE

RESULTS is a folder of Google Benchmark's JSON files, TARGETS the JSON file of what must be reached,
DOCUMENT the Markdown file whose text between the two marks is replaced, MACHINE a line about where
it was measured. The pictures go to a folder beside DOCUMENT.
"""

import json
import pathlib
import sys

import figures
import plots
import rows

HEADINGS = ("work", "floor", "median", "p99", "ratio", "allocations", "must reach", "verdict")
BEGIN, END = "<!-- figures: begin -->\n", "<!-- figures: end -->\n"


def cells(row):
    return (row.work, row.floor, row.median, row.p99, row.ratio, row.allocations, row.target, row.verdict())


def plain_table(table):
    lines = [HEADINGS] + [cells(row) for row in table]
    widths = [max(len(line[column]) for line in lines) for column in range(len(HEADINGS))]
    return "\n".join("  ".join(cell.ljust(width) for cell, width in zip(line, widths)).rstrip()
                     for line in lines)


def markdown_table(table):
    lines = [HEADINGS, ["---"] * len(HEADINGS)] + [cells(row) for row in table]
    return "".join("| " + " | ".join(line) + " |\n" for line in lines)


def write_document(path, table, machine):
    text = path.read_text()
    before, rest = text.split(BEGIN)
    _, after = rest.split(END)
    path.write_text(f"{before}{BEGIN}\n{machine}\n\n{markdown_table(table)}\n{END}{after}")


def main():
    results, targets_file, document, machine = sys.argv[1:]
    targets = json.loads(pathlib.Path(targets_file).read_text())
    cases = figures.load(results)
    table = rows.make(targets, cases)
    print(plain_table(table))
    document = pathlib.Path(document)
    plots.draw(cases, targets, document.with_suffix(""))
    write_document(document, table, machine)
    short = sum(bool(row.misses) for row in table)
    print(f"\nbench: {len(table)} rows, {short} fall short" if short else
          f"\nbench: {len(table)} rows, all reached")


main()
