#!/usr/bin/env python3
"""Measures kelp beside other relays, and writes tables and the data of a picture.

Usage: run.py MEASURE OUT [--smoke] [--seconds=N] [--only=TEXT,...]

scripts/bench starts it. MEASURE is the program kelp-measure, OUT a directory; --only takes the
subjects whose name and scenario contain one of the texts, such as "kelp-file tcp". Each placement
is measured for N seconds; the last pass is completed.
"""
import argparse
import collections
import datetime
import os
import pathlib
import platform
import statistics
import subprocess
import sys
import time

REFERENCE = "contract"
BYTE_RELAYS = ("direct", "socat", "ser2net")  # no framing, no routing
KELP = ("kelp-filtered", "kelp-file")
SUBJECTS = ("direct", "one-thread", REFERENCE, *KELP, "socat", "ser2net", "python")
SCENARIOS = [
    f"{client} {peer}" for peer in ("kept", "per-request") for client in ("local", "tcp", "pty")
]
LOCAL_SCENARIOS = [scenario for scenario in SCENARIOS if scenario.startswith("local")]
LAST_CORE = str(max(os.sched_getaffinity(0)))
PLACEMENTS = {"one core": (["taskset", "-c", LAST_CORE], 110), "scheduler": ([], 60)}  # seconds
COSTS = {
    "p99_us": ("p99, µs", 1),
    "cpu_us": ("processor time, µs", 1),
    "pipelined": ("commands/s, 16 in one write", 0),
    "four_clients": ("commands/s, four clients", 0),
    "switches": ("context switches", 1),
    "calls": ("system calls", 1),
    "rss_kib": ("resident, KiB", 0),
}
BUDGET = 1.08


def text(values, digits):
    return f"{statistics.median(values):.{digits}f}" if values else "–"


def table(rows):
    rows.insert(1, ["---"] * len(rows[0]))
    return "\n".join("| " + " | ".join(row) + " |" for row in rows)


def exists(subject, scenario):
    if subject in BYTE_RELAYS and not scenario.endswith("kept"):
        return False
    return (subject, scenario) != ("ser2net", "pty kept")  # it accepts on sockets only


class Run:
    def __init__(self, options):
        self.options = options
        self.passes = collections.Counter()
        self.failures = 0
        self.values = collections.defaultdict(list)  # by placement, scenario, subject and figure
        self.ratios = collections.defaultdict(list)

    def wanted(self, subject, scenario):
        texts = self.options.only.split(",")
        return exists(subject, scenario) and any(text in f"{subject} {scenario}" for text in texts)

    def run(self, placement, what, scenario, subjects):
        prefix = PLACEMENTS[placement][0]
        command = [*prefix, self.options.measure, what, *scenario.split(), *subjects]
        result = subprocess.run(command, stdout=subprocess.PIPE, text=True, check=False)
        self.failures += result.returncode != 0
        for line in result.stdout.splitlines():
            subject, figure, value, *ratio = line.split("\t")
            self.values[placement, scenario, subject, figure].append(float(value))
            if ratio:
                self.ratios[placement, scenario, subject, figure].append(float(ratio[0]))

    def measure(self, placement):
        # Each group runs beside the reference and holds at most one kelp.
        groups = []
        for scenario in SCENARIOS:
            most = [s for s in SUBJECTS if s not in (REFERENCE, KELP[1])]
            for group in (most, KELP[1:]):
                group = [s for s in group if self.wanted(s, scenario)]
                if group:
                    groups.append((scenario, [REFERENCE, *group]))
        if not groups:
            sys.exit("nothing to measure")
        seconds = self.options.seconds or PLACEMENTS[placement][1]
        end = time.monotonic() + (0 if self.options.smoke else seconds)
        passes = 0
        while passes == 0 or time.monotonic() < end:
            for scenario, subjects in groups:
                self.run(placement, "1" if self.options.smoke else "10", scenario, subjects)
            passes += 1
            groups.append(groups.pop(0))  # so that the order favours no subject
        self.passes[placement] = passes

    def count_calls(self):
        for scenario in LOCAL_SCENARIOS:
            subjects = [s for s in SUBJECTS if s != "direct" and self.wanted(s, scenario)]
            if subjects:
                self.run("one core", "calls", scenario, subjects)

    def find(self, *key, digits):
        return text(self.values.get(key), digits)

    def budget(self):
        ratios = {}
        for scenario in SCENARIOS:
            found = self.ratios.get(("one core", scenario, KELP[0], "p50_us"))
            if found and not scenario.startswith("pty"):
                ratios[scenario] = statistics.median(found)
        if not ratios:
            return "kelp with the log filtered was not measured on a socket."
        worst = max(ratios.values())
        return (
            "**Round trip p50 of kelp (log filtered) over the bare relay with the contract's "
            f"system calls, sockets, one core: {worst:.2f}** at most "
            f"({', '.join(f'{scenario} {ratio:.2f}' for scenario, ratio in ratios.items())}); "
            f"budget {BUDGET}, {'kept' if worst <= BUDGET else 'EXCEEDED'}."
        )

    def round_trips(self, placement):
        rows = [["", *SCENARIOS]]
        for subject in SUBJECTS:
            rows.append([subject])
            for scenario in SCENARIOS:
                key = (placement, scenario, subject, "p50_us")
                ratio = self.ratios.get(key)
                over = f" ({text(ratio, 2)})" if ratio else ""
                rows[-1].append(self.find(*key, digits=1) + over)
        return table(rows)

    def costs(self):
        rows = [["", *(name for name, _ in COSTS.values())]]
        for scenario in LOCAL_SCENARIOS:
            for subject in SUBJECTS:
                if ("one core", scenario, subject, "p50_us") in self.values:
                    rows.append([f"{subject}, {scenario}"])
                    for figure, (_, digits) in COSTS.items():
                        key = ("one core", scenario, subject, figure)
                        rows[-1].append(self.find(*key, digits=digits))
        return table(rows)

    def report(self):
        smoke = " A smoke run: its figures mean nothing." if self.options.smoke else ""
        return "\n\n".join(
            (
                "![Round trips](round-trips.svg)",
                f"Measured {datetime.date.today()} on {os.cpu_count()} cores "
                f"({platform.machine()}, {platform.system()} {platform.release().split('-', 1)[0]}); "
                f"{self.passes['one core']} passes on one core, {self.passes['scheduler']} where "
                f"the scheduler places the processes; {self.failures} failed.{smoke}",
                self.budget(),
                f"Round trip p50 in microseconds, on one core; in brackets over `{REFERENCE}`:",
                self.round_trips("one core"),
                "The same where the scheduler places the processes:",
                self.round_trips("scheduler"),
                "Costs per command on the local socket, one core:",
                self.costs() + "\n",
            )
        )

    def picture(self):
        # A block for each placement, a row for each scenario, a column for each subject.
        blocks = []
        for placement in PLACEMENTS:
            rows = ["\t".join(("scenario", *SUBJECTS))]
            for scenario in SCENARIOS:
                values = (self.find(placement, scenario, s, "p50_us", digits=2) for s in SUBJECTS)
                rows.append("\t".join((scenario, *values)))
            blocks.append("\n".join(rows))
        return "\n\n\n".join(blocks) + "\n"


def main():
    parser = argparse.ArgumentParser(usage=__doc__)
    parser.add_argument("measure")
    parser.add_argument("out", type=pathlib.Path)
    parser.add_argument("--smoke", action="store_true")
    parser.add_argument("--seconds", type=int)
    parser.add_argument("--only", default="")
    run = Run(parser.parse_args())
    for placement in PLACEMENTS:
        run.measure(placement)
    run.count_calls()
    (run.options.out / "results.md").write_text(run.report())
    (run.options.out / "round-trips.dat").write_text(run.picture())
    print(run.report(), end="")
    sys.exit(1 if run.failures else 0)


main()
