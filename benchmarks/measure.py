#!/usr/bin/env python3
"""Runs the measuring programs and writes what they measured as one JSON file.

usage: measure.py full|quick BUILD_DIRECTORY OUTPUT
"""

import collections
import json
import math
import os
import platform
import statistics
import subprocess
import sys
import tempfile
import time

MODES = {
    # episodes, rounds and milliseconds of the comparison; cycles and cures of the repair; seconds of the cap, and
    # of its longest block; how often each point of a curve is measured; the greatest number of each curve
    "full": dict(comparison=("3", "11", "25"), repair=("2000", "40"), cap=("1", "70"), repeats=5,
                 endpoints=10000, sockets=1000, subscribers=100, size=1 << 28, listeners=50),
    "quick": dict(comparison=("1", "16", "2"), repair=("100", "5"), cap=("0.1", "0.2"), repeats=1,
                  endpoints=1000, sockets=300, subscribers=30, size=1 << 24, listeners=10),
}

NUMBERS = {
    "endpoints": [1, 3, 10, 30, 100, 300, 1000, 3000, 10000],
    "sockets": [1, 3, 10, 30, 100, 300, 1000],
    "subscribers": [1, 3, 10, 30, 100],
    "size": [0] + [4 ** i for i in range(0, 15)],
    "listeners": [1, 3, 10, 20, 50],
}


class Progress:
    """A line on a terminal, with the share that is done and the time that is left; else a line for each step."""

    def __init__(self, total):
        self.total = total
        self.done = 0
        self.begin = time.monotonic()

    def step(self, what):
        self.done += 1
        share = self.done / self.total
        left = (time.monotonic() - self.begin) * (1 / share - 1)
        if sys.stderr.isatty():
            bar = "#" * round(30 * share)
            sys.stderr.write(f"\r\033[K[{bar:<30}] {100 * share:3.0f} %, {left:4.0f} s left: {what}")
            if self.done == self.total:
                sys.stderr.write("\n")
        elif self.done == self.total or self.done % max(1, self.total // 40) == 0:
            sys.stderr.write(f"{100 * share:3.0f} %: {what}\n")
        sys.stderr.flush()


def environment():
    """For all programs alike. On some processors glibc's copying of blocks from 2 KiB on takes twenty times as long for
    unlucky addresses; that lottery is kept out of the comparison."""
    return dict(os.environ, GLIBC_TUNABLES="glibc.cpu.x86_rep_movsb_threshold=0x40000000")


def samples(command):
    """The JSON lines that a program writes, one after another."""
    with subprocess.Popen(command, stdout=subprocess.PIPE, text=True, env=environment()) as process:
        for line in process.stdout:
            # A library that is compared may have something to say as well.
            if line.startswith("{"):
                yield json.loads(line)
            else:
                sys.stderr.write(line)
    if process.returncode != 0:
        sys.exit(f"{' '.join(command)} failed: {process.returncode}")


def spread(values):
    """Median and quartiles."""
    ordered = sorted(values)
    low, _, high = statistics.quantiles(ordered, n=4) if len(ordered) > 1 else ordered * 3
    return dict(median=statistics.median(ordered), low=low, high=high, count=len(ordered))


def percentile(values, share):
    ordered = sorted(values)
    return ordered[min(len(ordered) - 1, math.ceil(share * len(ordered)) - 1)]


def measure_cost(programs, progress):
    """The instructions that the tests count, by work and payload."""
    with tempfile.NamedTemporaryFile(suffix=".json") as report:
        command = [f"{programs}/tests/cost/cost_tests", f"--gtest_output=json:{report.name}"]
        result = subprocess.run(command, capture_output=True, text=True, check=False)
        suites = json.load(open(report.name, encoding="utf-8"))["testsuites"]
    cost = {}
    for test in (test for suite in suites for test in suite["testsuite"]):
        payload = test["name"].partition("/")[2] or "64"
        for key, value in test.items():
            if key.split("_")[0] in ("send", "receive", "sendProtoBuf", "receiveProtoBuf"):
                cost[f"{key.replace('_', ' ')}/{payload}"] = float(value)
    progress.step("cost of a call")
    return dict(instructions=cost, passed=result.returncode == 0)


def measure_comparison(programs, settings, progress):
    """Per cell and peer: nanoseconds, nanoseconds over plain 0MQ and ratio to it, paired by round."""
    times = collections.defaultdict(lambda: collections.defaultdict(dict))
    versions = {}
    for sample in samples([f"{programs}/benchmarks/comparison", *settings["comparison"]]):
        if "version" in sample:
            versions[sample["peer"]] = sample["version"]
            continue
        if sample["peer"] == "plain 0MQ" and sample["round"] == 0:
            progress.step(f"comparison, {sample['cell']}")
        if sample["round"] > 0:
            key = sample["episode"], sample["round"]
            times[sample["cell"]][sample["peer"]][key] = sample["nanoseconds"]
    cells = {}
    for cell, peers in times.items():
        plain = peers["plain 0MQ"]
        cells[cell] = {}
        for peer, rounds in peers.items():
            cells[cell][peer] = dict(
                nanoseconds=spread(rounds.values()),
                over=spread([value - plain[key] for key, value in rounds.items()]),
                ratio=spread([value / plain[key] for key, value in rounds.items()]))
    return dict(versions=versions, cells=cells)


def exponent(points):
    """Of the power of the number that a cost grows with, fitted to the upper half of the curve."""
    points = [(number, value) for number, value in points if number > 0 and value > 0]
    points = points[len(points) // 2 - 1:] if len(points) > 3 else points
    if len(points) < 2:
        return None
    x = [math.log(number) for number, _ in points]
    y = [math.log(value) for _, value in points]
    mean_x, mean_y = statistics.mean(x), statistics.mean(y)
    return sum((a - mean_x) * (b - mean_y) for a, b in zip(x, y)) / sum((a - mean_x) ** 2 for a in x)


def growth_points(settings):
    for curve, numbers in NUMBERS.items():
        for number in (number for number in numbers if number <= settings[curve]):
            for variant in [curve] + ([f"{curve} by hand"] if curve in ("endpoints", "sockets", "size") else []):
                yield variant, number


def measure_growth(programs, settings, progress):
    values = collections.defaultdict(lambda: collections.defaultdict(list))
    points = list(growth_points(settings))
    for _ in range(settings["repeats"]):
        for curve, number in points:
            for sample in samples([f"{programs}/benchmarks/growth", curve, str(number)]):
                values[curve, sample["measure"]][number].append(sample["value"])
            progress.step(f"growth, {number} {curve}")
    curves = []
    for (curve, measure), points in values.items():
        medians = {number: spread(taken) for number, taken in points.items()}
        curves.append(dict(curve=curve, measure=measure, points=medians,
                           exponent=exponent([(number, taken["median"]) for number, taken in medians.items()])))
    return curves


def measure_repair(programs, settings, progress):
    times = collections.defaultdict(list)
    for sample in samples([f"{programs}/benchmarks/repair", *settings["repair"]]):
        key = f"{sample['transport']} {sample['repair']}"
        if key not in times:
            progress.step(f"repair, {key}")
        times[key].append(sample["nanoseconds"])
    return {key: dict(count=len(taken), median=statistics.median(taken), p99=percentile(taken, 0.99), max=max(taken),
                      low=percentile(taken, 0.25), high=percentile(taken, 0.75), p01=percentile(taken, 0.01))
            for key, taken in times.items()}


def measure_cap(programs, settings, progress):
    taken = []
    for sample in samples([f"{programs}/benchmarks/cap", *settings["cap"]]):
        if sample["rate"] not in (earlier["rate"] for earlier in taken):
            progress.step(f"cap of {sample['rate']} Mbit/s")
        taken.append(sample)
    return sorted(taken, key=lambda sample: (sample["rate"], sample["size"]))


def machine():
    def first(command):
        try:
            return subprocess.run(command, capture_output=True, text=True, check=True).stdout.splitlines()[0]
        except (OSError, IndexError, subprocess.CalledProcessError):
            return "unknown"

    def field(path, name):
        for line in open(path, encoding="utf-8"):
            if line.startswith(name):
                return line.partition(":")[2].strip()
        return "unknown"

    def installed(package):
        return first(["dpkg-query", "--show", "--showformat=${Version}", package])

    return dict(
        processor=field("/proc/cpuinfo", "model name"), cores=os.cpu_count(),
        memory=f"{int(field('/proc/meminfo', 'MemTotal').split()[0]) / 1048576:.0f} GiB",
        kernel=f"{platform.system()} {platform.release()}", compiler=first(["c++", "--version"]),
        system=next(
            (line.partition("=")[2].strip().strip('"') for line in open("/etc/os-release", encoding="utf-8")
             if line.startswith("PRETTY_NAME")), "unknown"),
        libc=platform.libc_ver()[1], libzmq=installed("libzmq5"), protobuf=installed("libprotobuf-dev"),
        load=os.getloadavg()[0])


def main():
    mode, programs, output = sys.argv[1:]
    settings = MODES[mode]
    comparisons = int(settings["comparison"][0]) * 42
    progress = Progress(1 + comparisons + settings["repeats"] * len(list(growth_points(settings))) + 9 + 7)
    begin = time.time()
    result = dict(mode=mode, settings={key: settings[key] for key in ("comparison", "repair", "cap", "repeats")},
                  date=time.strftime("%Y-%m-%d", time.gmtime(begin)), machine=machine())
    result["cost"] = measure_cost(programs, progress)
    result["comparison"] = measure_comparison(programs, settings, progress)
    result["growth"] = measure_growth(programs, settings, progress)
    result["repair"] = measure_repair(programs, settings, progress)
    result["cap"] = measure_cap(programs, settings, progress)
    result["minutes"] = (time.time() - begin) / 60
    with open(output, "w", encoding="utf-8") as file:
        json.dump(result, file, indent=1, sort_keys=True)
        file.write("\n")


if __name__ == "__main__":
    main()
