#!/usr/bin/env python3
"""Prints the rows of the benchmarks as one table, or writes it into a document with a chart beside it.

usage: table.py FILE... [--document FILE.md]

FILE: a line of JSON for each row (measuring.print_row). The document has the table between the lines BEGIN and END. The
chart gets the document's name with .svg.
"""

import argparse
import datetime
import json
import os
import pathlib
import platform

from chart import write_chart

BEGIN, END = "<!-- table: begin -->", "<!-- table: end -->"


def read_rows(paths):
    return [json.loads(line) for path in paths for line in path.read_text().splitlines()]


def figure(value):
    if value is None:
        return "-"
    for limit, divisor, letter in ((1e6, 1e6, " M"), (1e4, 1e3, " k")):
        if abs(value) >= limit:
            return f"{value / divisor:.3g}{letter}"
    return f"{value:.0f}" if abs(value) >= 100 else f"{value:.3g}"


def verdict(row):
    """How flowlane compares with the best peer."""
    peers = [value for value in row["peers"].values() if value is not None]
    if row["ours"] is None or not peers:
        return ""
    best = (min if row["better"] == "lower" else max)(peers)
    good, bad = (best, row["ours"]) if row["better"] == "lower" else (row["ours"], best)
    if good == bad:
        return "equal"
    if not good or not bad:
        return "worse" if good < bad else "better"
    return f"{good / bad:.3g} x better" if good > bad else f"{bad / good:.3g} x worse"


def goal(row):
    if row["goal"] is None or row["ours"] is None:
        return ""
    met = row["ours"] <= row["goal"] if row["better"] == "lower" else row["ours"] >= row["goal"]
    return f"{figure(row['goal'])}: {'met' if met else 'missed'}"


def lines_of(rows):
    """(is it a heading, cells) of each line of the table. A heading names the tools of the lines below it."""
    columns = max(len(row["peers"]) for row in rows)
    above = None
    for row in rows:
        peers = list(row["peers"])
        blanks = [""] * (columns - len(peers))
        if above != (row["group"], peers):
            above = row["group"], peers
            yield True, [row["group"], "unit", "flowlane", *peers, *blanks, "against the best", "goal"]
        yield False, [row["name"], row["unit"], figure(row["ours"]), *map(figure, row["peers"].values()), *blanks,
                      verdict(row), goal(row)]


def plain(rows):
    lines = list(lines_of(rows))
    widths = [max(map(len, column)) for column in zip(*(cells for _, cells in lines))]
    for is_heading, cells in lines:
        text = "  ".join([cells[0].ljust(widths[0]), cells[1].ljust(widths[1]),
                          *(cell.rjust(width) for cell, width in zip(cells[2:], widths[2:]))])
        yield "\n" + text.rstrip() if is_heading else text.rstrip()


def markdown(rows):
    lines = list(lines_of(rows))
    columns = len(lines[0][1])
    yield "|" + " |" * columns
    yield "|---|---|" + "---:|" * (columns - 2)
    for is_heading, cells in lines:
        yield "| " + " | ".join(f"**{cell}**" if is_heading and cell else cell for cell in cells) + " |"


def machine():
    return f"Linux {platform.release().split('-')[0]}, {os.cpu_count()} cores, {platform.machine()}"


def write_document(path, rows):
    before, begin, rest = path.read_text().partition(BEGIN + "\n")
    _, end, after = rest.partition(END)
    if not begin or not end:
        raise SystemExit(f"table.py: {path} has no place for the table between {BEGIN} and {END}")
    text = "\n".join([f"{datetime.date.today()}, {machine()}.", "", *markdown(rows)])
    path.write_text(f"{before}{begin}{text}\n{end}{after}")
    write_chart(path.with_suffix(".svg"), rows)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawTextHelpFormatter)
    parser.add_argument("files", nargs="+", type=pathlib.Path, metavar="FILE")
    parser.add_argument("--document", type=pathlib.Path)
    args = parser.parse_args()
    rows = read_rows(args.files)
    if not rows:
        raise SystemExit("table.py: no rows")
    if args.document:
        write_document(args.document, rows)
    else:
        print(machine(), *plain(rows), sep="\n")


if __name__ == "__main__":
    main()
