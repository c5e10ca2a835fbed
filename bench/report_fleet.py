#!/usr/bin/env python3
"""Measures dmd-report beside zcat of a fleet's archives: report_fleet.py DMD_REPORT FLEET

Prints rows for the table of docs/performance.md.
"""

import collections
import operator
import os
import statistics
import subprocess
import sys
import tempfile
import time

ROUNDS = 5
RATIO_GOAL = 1.5
MEMORY_GOAL = 300  # MiB


def measure(command, processors):
    """Returns the seconds that it took, and the MiB of memory that its largest process had."""
    start = time.monotonic()
    process = subprocess.Popen(command, stdout=subprocess.DEVNULL,
                               preexec_fn=lambda: os.sched_setaffinity(0, processors))
    _, status, usage = os.wait4(process.pid, 0)
    if status != 0:
        sys.exit(f"bench: {command[0]} failed")
    return time.monotonic() - start, usage.ru_maxrss / 1024


def goal(text, holds):
    return text + (": holds" if holds else ": **missed**")


def main():
    dmd_report, pulled = sys.argv[1:]
    everywhere = os.sched_getaffinity(0)
    seconds, memory = collections.defaultdict(list), {}
    for _ in range(1 + ROUNDS):
        with tempfile.TemporaryDirectory(dir=os.path.dirname(pulled)) as folder:
            floor, _ = measure(["find", pulled, "-name", "*.gz", "-exec", "zcat", "{}", "+"], {min(everywhere)})
            seconds["zcat"].append(floor)
            for options in ("--json-lines",), ("--sqlite", f"{folder}/fleet.db"):
                taken, most = measure([dmd_report, *options, pulled], everywhere)
                seconds[options[0]].append(taken)
                memory[options[0]] = max(memory.get(options[0], 0), most)
    floors = seconds["zcat"][1:]  # without the round that does not count
    for option in memory:
        ours = seconds[option][1:]
        low, ratio, high = statistics.quantiles(map(operator.truediv, ours, floors), method="inclusive")
        print(f"| `dmd-report {option}`, 1,000 phones, 100,000 reports | {statistics.median(ours):.1f} s "
              f"| `zcat` on one processor | {statistics.median(floors):.1f} s | {ratio:.2f} ({low:.2f} to {high:.2f}) "
              f"| {goal(f'at most {RATIO_GOAL:.2f}', ratio <= RATIO_GOAL)} |")
        print(f"| `dmd-report {option}`: memory at most | {memory[option]:.0f} MiB |  |  |  "
              f"| {goal(f'under {MEMORY_GOAL} MiB', memory[option] < MEMORY_GOAL)} |")


main()
