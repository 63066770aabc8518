#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Prints the benchmarks' results as a table. Fails if a benchmark has reported an error.

Usage: table.py [--check | --document FILE] RESULTS.json
  --check          prints no table, and fails if the benchmarks do not match the rows below
  --document FILE  also replaces the table in FILE: what is between "<!-- table -->" and
                   "<!-- end of table -->"
"""

import argparse
import json
import sys

# Each row: the work; what its time is measured against, mostly a floor, and the target, at most how
# many times as long the library takes; how many times faster than the straightforward converter
# and than another library it must be. A benchmark is named WORK/CONTENDER.
ROWS = [
    ("spectral sample of 12 values", "vector and call", 1.25, {}),
    ("event of a chain of 32", "vector and call", 1.25, {}),
    ("flicker message of 256 B", "lock, Convert, call", 1.3, {}),
    ("enable and disable", "bare calls", 1.5, {}),
    ("Get", "bare calls", 1.5, {}),
    ("Set that waits", "bare calls", 1.5, {}),
    ("Set", "bare calls", 1.5, {}),
    ("sample, 2 threads", "1 thread", 0.56, {}),
    ("sample, 8 sessions", "1 session", 1.1, {}),
    ("sample, list of 300 sensors", "3 sensors", 1.1, {}),
    ("event, chains of 1024", "chains of 32", 1.1, {}),
    ("mains ripple, 256 B", "memcpy", None, {"straightforward": 6, "streamvbyte": 2.5}),
    ("mains ripple, 4096 B", "memcpy", None, {"straightforward": 7, "streamvbyte": 2.5}),
    ("steep ripple, 256 B", "memcpy", None, {"straightforward": 3.5}),
    ("steep ripple, 4096 B", "memcpy", None, {"straightforward": 4}),
    ("1 or 2 groups, 256 B", "memcpy", None, {"straightforward": 4}),
    ("1 or 2 groups, 4096 B", "memcpy", None, {"straightforward": 4}),
    ("1 to 4 groups, 256 B", "memcpy", None, {"straightforward": 1}),
    ("1 to 4 groups, 4096 B", "memcpy", None, {"straightforward": 1}),
    ("16-bits-in-2 LE, 4096 B", "memcpy", 2.5, {"straightforward": None, "libiio": 20}),
    ("16-bits-in-2 BE, 4096 B", "memcpy", 3.3, {"straightforward": None, "libiio": 20}),
    ("2 bytes LE and BE, 4096 B", "memcpy", None, {"straightforward": 8, "libiio": 20}),
    ("3 bytes LE and BE, 4092 B", "memcpy", None, {"straightforward": 5, "libiio": 20}),
    ("4 bytes LE and BE, 4096 B", "memcpy", None, {"straightforward": 10, "libiio": 20}),
]
HEADING = ("work", "ns", "against", "ns", "times as long", "straightforward",
           "streamvbyte or libiio")


def benchmarks_of(row):
    work, against, _, others = row
    return {(work, name) for name in ("library", against, *others)}


def read_times(runs):
    """Nanoseconds for one piece of work, by (work, contender); medians where there are any."""
    medians = [run for run in runs if run.get("aggregate_name") == "median"]
    return {tuple(run["run_name"].split("/")[:2]): 1e9 / run["items_per_second"]
            for run in medians or runs}


def digits(ns):
    places = 3 if ns < 10 else 1 if ns < 1000 else 0
    return f"{ns:.{places}f}"


def ratio_text(ratio, sign, target):
    if target is None:
        return f"{ratio:.2f}"
    met = ratio <= target if sign == "≤" else ratio >= target
    return f"{ratio:.2f} ({sign} {target})" + ("" if met else " **missed**")


def cells_of(row, times):
    work, against, most, others = row
    ours = times[work, "library"]
    gains = ["", ""]  # over the straightforward converter, over another library
    for name, least in others.items():
        gains[name != "straightforward"] = ratio_text(times[work, name] / ours, "≥", least)
    theirs = times[work, against]
    return [work, digits(ours), against, digits(theirs), ratio_text(ours / theirs, "≤", most),
            *gains]


def table_of(rows, times):
    lines = [HEADING, *(cells_of(row, times) for row in rows)]
    widths = [max(len(cells[column]) for cells in lines) for column in range(len(HEADING))]
    lines.insert(1, ["-" * width for width in widths])
    for cells in lines:
        yield "| " + " | ".join(cell.ljust(width) for cell, width in zip(cells, widths)) + " |"


def shares_of(times):
    """What the library takes of a core in ordinary use, from one message and one sample."""
    uses = {"a flicker stream of 24 kHz": (24000 / 256, "flicker message of 256 B"),
            "ten samples a second": (10, "spectral sample of 12 values")}
    shares = [f"{1e-7 * per_second * times[work, 'library']:.4f} % for {name}"
              for name, (per_second, work) in uses.items() if (work, "library") in times]
    return f"Share of a core: {', '.join(shares)}." if shares else ""


def update(document, text):
    begin, end = "<!-- table -->\n", "<!-- end of table -->\n"
    with open(document, encoding="utf-8") as file:
        before, _, rest = file.read().partition(begin)
    _, found, after = rest.partition(end)
    if not found:
        sys.exit(f"bench: {document} has no place for the table")
    with open(document, "w", encoding="utf-8") as file:
        file.write(before + begin + text + end + after)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--check", action="store_true")
    parser.add_argument("--document")
    parser.add_argument("results")
    arguments = parser.parse_args()
    with open(arguments.results, encoding="utf-8") as file:
        results = json.load(file)
    failed = [run for run in results["benchmarks"] if run.get("error_occurred")]
    faults = [f"{run['name']}: {run['error_message']}" for run in failed]
    times = read_times([run for run in results["benchmarks"] if run not in failed])
    if arguments.check:
        wanted = set().union(*map(benchmarks_of, ROWS))
        faults += [f"{'/'.join(name)}: benchmark or row missing" for name in wanted ^ times.keys()]
        print(f"bench: {len(times)} benchmarks have run")
    else:
        rows = [row for row in ROWS if benchmarks_of(row) <= times.keys()]
        text = "\n".join([*table_of(rows, times), "", shares_of(times), ""])
        print(f"load of the machine before the run: {results['context']['load_avg'][0]:.1f}\n")
        print(text, end="")
        if arguments.document:
            update(arguments.document, text)
    for fault in faults:
        print("bench:", fault, file=sys.stderr)
    return 1 if faults else 0


sys.exit(main())
