#!/usr/bin/env python3
"""Runs the measuring program and writes its figures to one JSON file.

usage: measure.py full|quick BUILD_DIRECTORY OUTPUT [SECTION]     measures one section again, and keeps the others
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
    # Arguments of the subcommands, how often each point of a curve is measured, the greatest number of each curve.
    "full": dict(compare=["3", "11", "25"], encryption=["3", "11", "25"], repair=["2000", "40"], cap=["1", "70"], tool=["61", "500000"], repeats=5,
                 endpoints=10000, sockets=1000, subscribers=100, size=1 << 28, listeners=50),
    "quick": dict(compare=["1", "16", "2"], encryption=["1", "4", "2"], repair=["100", "5"], cap=["0.1", "0.2"], tool=["2", "50000"], repeats=1,
                  endpoints=1000, sockets=300, subscribers=30, size=1 << 24, listeners=10),
}

NUMBERS = {
    "endpoints": [1, 3, 10, 30, 100, 300, 1000, 3000, 10000],
    "sockets": [1, 3, 10, 30, 100, 300, 1000],
    "subscribers": [1, 3, 10, 30, 100],
    "size": [0] + [4 ** i for i in range(0, 15)],
    "listeners": [1, 3, 10, 20, 50],
}
BY_HAND = ("endpoints", "sockets", "size")


def samples(directory, *arguments, folder=None):
    """Run a subcommand, in a folder if one is given, and yield the JSON lines that it writes."""
    # On some processors, glibc copies blocks of 2 KiB and more twenty times slower at unlucky addresses.
    environment = dict(os.environ, GLIBC_TUNABLES="glibc.cpu.x86_rep_movsb_threshold=0x40000000")
    command = [os.path.abspath(f"{directory}/benchmarks/benchmark"), *arguments]
    with subprocess.Popen(command, stdout=subprocess.PIPE, text=True, env=environment, cwd=folder) as process:
        for line in process.stdout:
            # A peer's library may write other lines.
            if line.startswith("{"):
                yield json.loads(line)
            else:
                sys.stderr.write(line)
    if process.returncode != 0:
        sys.exit(f"{' '.join(command)} failed: {process.returncode}")


def rounded(value, digits=3):
    value = float(f"{value:.{digits}g}")
    return int(value) if value.is_integer() else value


def spread(values, digits=3):
    """Lower quartile, median, upper quartile."""
    quartiles = statistics.quantiles(values, n=4) if len(values) > 1 else list(values) * 3
    return [rounded(value, digits) for value in quartiles]


def percentile(ordered, share):
    return rounded(ordered[max(0, math.ceil(share * len(ordered)) - 1)])


def measure_cost(directory, _):
    """Returns the instruction counts of the tests, by work and payload."""
    with tempfile.NamedTemporaryFile(suffix=".json") as report:
        subprocess.run([f"{directory}/tests/cost_tests", f"--gtest_output=json:{report.name}"], capture_output=True,
                       check=False)
        suites = json.load(open(report.name, encoding="utf-8"))["testsuites"]
    return {f"{key.replace('_', ' ')}/{test['name'].partition('/')[2] or '64'}": round(float(value))
            for suite in suites for test in suite["testsuite"] for key, value in test.items()
            if key.split("_")[0] in ("send", "receive", "sendProtoBuf", "receiveProtoBuf")}


def against(plain, rounds):
    taken = dict(nanoseconds=spread(rounds.values()))
    if rounds is not plain:
        taken["over"] = spread([value - plain[key] for key, value in rounds.items()])
        taken["ratio"] = spread([value / plain[key] for key, value in rounds.items()], 4)
    return taken


def measure_comparison(directory, settings):
    """Returns per cell and peer: nanoseconds, and difference and ratio to plain ZeroMQ, paired by round."""
    times = collections.defaultdict(lambda: collections.defaultdict(dict))
    versions = {}
    for sample in samples(directory, "compare", *settings["compare"]):
        if "version" in sample:
            versions[sample["peer"]] = sample["version"]
        elif sample["round"] > 0:
            times[sample["cell"]][sample["peer"]][sample["episode"], sample["round"]] = sample["nanoseconds"]
    cells = {cell: {peer: against(peers["plain 0MQ"], rounds) for peer, rounds in peers.items()}
             for cell, peers in times.items()}
    return dict(versions=versions, rounds=int(settings["compare"][0]) * (int(settings["compare"][1]) - 1), cells=cells)


def measure_encryption(directory, settings):
    """Per cell and peer: nanoseconds in plain and encrypted, and their ratio, paired by round."""
    times = collections.defaultdict(lambda: collections.defaultdict(lambda: collections.defaultdict(dict)))
    with tempfile.TemporaryDirectory() as folder:
        subprocess.run(["openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-noenc",
                        "-subj", "/CN=localhost", "-addext", "subjectAltName=DNS:localhost", "-days", "2",
                        "-keyout", "certificate.key", "-out", "certificate.pem"],
                       cwd=folder, capture_output=True, check=True)
        for sample in samples(directory, "encryption", *settings["encryption"], folder=folder):
            if sample["round"] > 0:
                taken = times[sample["cell"]][sample["peer"]][sample["security"]]
                taken[sample["episode"], sample["round"]] = sample["nanoseconds"]
    return {cell: {peer: dict(plain=spread(taken["plain"].values()), encrypted=spread(taken["encrypted"].values()),
                              ratio=spread([value / taken["plain"][key] for key, value in taken["encrypted"].items()]))
                   for peer, taken in peers.items()} for cell, peers in times.items()}


def exponent(points):
    """Fits a power of the number to the upper half of the curve."""
    points = [(math.log(number), math.log(value)) for number, value in points if number > 0 and value > 0]
    points = points[len(points) // 2 - 1:] if len(points) > 3 else points
    if len(points) < 2:
        return None
    return rounded(statistics.linear_regression(*zip(*points)).slope)


def measure_growth(directory, settings):
    """Returns per curve and measure: the points, each measured in a separate process, and the exponent."""
    values = collections.defaultdict(lambda: collections.defaultdict(list))
    for _ in range(settings["repeats"]):
        for curve, numbers in NUMBERS.items():
            for number in (number for number in numbers if number <= settings[curve]):
                for variant in [[], ["--by-hand"]] if curve in BY_HAND else [[]]:
                    name = curve + (" by hand" if variant else "")
                    for sample in samples(directory, "growth", curve, str(number), *variant):
                        values[name, sample["measure"]][number].append(sample["value"])
    return [dict(curve=curve, measure=measure, points={number: spread(taken) for number, taken in points.items()},
                 exponent=exponent([(number, statistics.median(taken)) for number, taken in points.items()]))
            for (curve, measure), points in values.items()]


def measure_repair(directory, settings):
    times = collections.defaultdict(list)
    for sample in samples(directory, "repair", *settings["repair"]):
        times[f"{sample['transport']} {sample['repair']}"].append(sample["nanoseconds"])
    return {key: dict(count=len(taken), p01=percentile(sorted(taken), 0.01), p25=percentile(sorted(taken), 0.25),
                      median=rounded(statistics.median(taken)), p75=percentile(sorted(taken), 0.75),
                      p99=percentile(sorted(taken), 0.99), max=rounded(max(taken)))
            for key, taken in times.items()}


def measure_cap(directory, settings):
    taken = sorted(samples(directory, "cap", *settings["cap"]), key=lambda sample: (sample["rate"], sample["size"]))
    return [{key: rounded(value, 7 if key == "size" else 4) for key, value in sample.items()} for sample in taken]


def measure_tool(directory, settings):
    """Returns per reader: nanoseconds and processor nanoseconds per message."""
    times = collections.defaultdict(lambda: collections.defaultdict(list))
    for sample in samples(directory, "tool", f"{directory}/tools/rk-socket", *settings["tool"]):
        for measure in ("nanoseconds", "processor"):
            times[sample["reader"]][measure].append(sample[measure])
    return {reader: {measure: spread(taken) for measure, taken in measures.items()} for reader, measures in times.items()}


def first_line(*command):
    result = subprocess.run(command, capture_output=True, text=True, check=False)
    return next(iter(result.stdout.splitlines()), "unknown")


def field(path, name, separator):
    with open(path, encoding="utf-8") as file:
        found = (line.partition(separator)[2].strip().strip('"') for line in file if line.startswith(name))
        return next(found, "unknown")


def machine():
    return dict(
        processor=field("/proc/cpuinfo", "model name", ":"), cores=os.cpu_count(),
        memory=f"{int(field('/proc/meminfo', 'MemTotal', ':').split()[0]) / 1048576:.0f} GiB",
        kernel=f"{platform.system()} {platform.release()}", compiler=first_line("c++", "--version"),
        system=field("/etc/os-release", "PRETTY_NAME", "="), libc=platform.libc_ver()[1],
        libzmq=first_line("dpkg-query", "--show", "--showformat=${Version}", "libzmq5"),
        protobuf=first_line("dpkg-query", "--show", "--showformat=${Version}", "libprotobuf-dev"),
        load=rounded(os.getloadavg()[0]))


def layout(value, indent=""):
    """Returns JSON that puts each value on one line if it fits."""
    line = json.dumps(value, ensure_ascii=False)
    if len(line) < 1200 or not isinstance(value, (dict, list)):
        return line
    inner = indent + " "
    if isinstance(value, list):
        return "[\n" + ",\n".join(inner + layout(item, inner) for item in value) + f"\n{indent}]"
    return "{\n" + ",\n".join(f"{inner}{json.dumps(key)}: {layout(item, inner)}" for key, item in value.items()) + f"\n{indent}}}"


def main():
    mode, directory, output, *sections = sys.argv[1:]
    begin = time.time()
    if sections:
        result = json.load(open(output, encoding="utf-8"))
    else:
        result = dict(mode=mode, date=time.strftime("%Y-%m-%d", time.gmtime(begin)), machine=machine())
    for name, measure in dict(cost=measure_cost, comparison=measure_comparison, growth=measure_growth,
                              repair=measure_repair, cap=measure_cap, tool=measure_tool, encryption=measure_encryption).items():
        if not sections or name in sections:
            print(f"{time.time() - begin:4.0f} s: {name}", file=sys.stderr, flush=True)
            result[name] = measure(directory, MODES[mode])
    result.setdefault("minutes", rounded((time.time() - begin) / 60))
    with open(output, "w", encoding="utf-8") as file:
        file.write(layout(result) + "\n")


if __name__ == "__main__":
    main()
