#!/usr/bin/env python3
"""Prints the benchmarks' results as a table. Fails if a benchmark has reported an error.

Usage: table.py [--check] RESULTS.json
  --check  prints no table, and fails if the benchmarks do not match the rows below
"""

import json
import sys

# Each row: the work; the contender that is its floor, and the target, at most how many times the
# floor's time the library takes; other contenders, and at least how many times faster than each the
# library is. A benchmark is named WORK/CONTENDER.
ROWS = [
    ("spectral sample of 12 values", "vector and call", 1.25, {}),
    ("event of a chain of 32", "vector and call", 1.25, {}),
    ("flicker message of 256 B", "lock, Convert, call", 1.3, {}),
    ("samples on two threads", "vector and call", None, {"one thread": 1.8}),
    ("enable and disable", "bare calls", 1.5, {}),
    ("Get", "bare calls", 1.5, {}),
    ("Set that waits", "bare calls", 1.5, {}),
    ("Set", "bare calls", 1.5, {}),
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
    ("16-bits-in-2 LE, 4096 B", "memcpy", 1 / 0.4, {"libiio": 20}),
    ("16-bits-in-2 BE, 4096 B", "memcpy", 1 / 0.3, {"libiio": 20}),
    ("2 bytes LE and BE, 4096 B", "memcpy", None, {"libiio": 20}),
    ("3 bytes LE and BE, 4092 B", "memcpy", None, {"libiio": 20}),
    ("4 bytes LE and BE, 4096 B", "memcpy", None, {"libiio": 20}),
]
HEADING = ("work", "ns", "floor", "ns", "times the floor", "compared with", "ns", "times faster")


def benchmarks_of(row):
    work, floor, _, others = row
    return {(work, name) for name in ("library", floor, *others)}


def read_times(runs):
    """Nanoseconds for one piece of work, by (work, contender); medians where there are any."""
    medians = [run for run in runs if run.get("aggregate_name") == "median"]
    return {tuple(run["run_name"].split("/")[:2]): 1e9 / run["items_per_second"]
            for run in medians or runs}


def digits(ns):
    places = 3 if ns < 10 else 1 if ns < 1000 else 0
    return f"{ns:.{places}f}"


def ratio_text(ratio, target, met):
    return f"{ratio:.2f}" + (f" ({target})" if target else "") + ("" if met else " MISSED")


def cells_of(row, times):
    """The lines of a row: one, or one for each of the other contenders."""
    work, floor, most, others = row
    ours = times[work, "library"]
    cost = ours / times[work, floor]
    cells = [work, digits(ours), floor, digits(times[work, floor]),
             ratio_text(cost, most and f"at most {most:.3g}", most is None or cost <= most)]
    if not others:
        yield cells + [""] * 3
    for name, least in others.items():
        gain = times[work, name] / ours
        yield cells + [name, digits(times[work, name]),
                       ratio_text(gain, f"at least {least}", gain >= least)]
        cells = [""] * len(cells)


def print_table(rows, times):
    lines = [HEADING, *(cells for row in rows for cells in cells_of(row, times))]
    widths = [max(len(cells[column]) for cells in lines) for column in range(len(HEADING))]
    lines.insert(1, ["-" * width for width in widths])
    for cells in lines:
        print("| " + " | ".join(cell.ljust(width) for cell, width in zip(cells, widths)) + " |")


def print_shares(times):
    """What the library takes of a device's core, from the times of one message and one sample."""
    shares = {"a flicker stream of 24 kHz": (24000 / 256, "flicker message of 256 B"),
              "ten spectral samples a second": (10, "spectral sample of 12 values")}
    print()
    for name, (per_second, work) in shares.items():
        if (work, "library") in times:
            print(f"{name}: {1e-7 * per_second * times[work, 'library']:.4f} % of one core")


def main(arguments):
    with open(arguments[-1], encoding="utf-8") as file:
        results = json.load(file)
    failed = [run for run in results["benchmarks"] if run.get("error_occurred")]
    faults = [f"{run['name']}: {run['error_message']}" for run in failed]
    times = read_times([run for run in results["benchmarks"] if run not in failed])
    if "--check" in arguments:
        wanted = set().union(*map(benchmarks_of, ROWS))
        faults += [f"{'/'.join(name)}: benchmark or row missing" for name in wanted ^ times.keys()]
        print(f"bench: {len(times)} benchmarks have run")
    else:
        print(f"load of the machine before the run: {results['context']['load_avg'][0]:.1f}\n")
        print_table([row for row in ROWS if benchmarks_of(row) <= times.keys()], times)
        print_shares(times)
    for fault in faults:
        print("bench:", fault, file=sys.stderr)
    return 1 if faults else 0


sys.exit(main(sys.argv[1:]))
