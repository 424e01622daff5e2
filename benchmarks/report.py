#!/usr/bin/env python3
"""Writes the page and the plots from the figures.

usage: report.py DIRECTORY     reads DIRECTORY/performance/performance.json
"""

import json
import math
import pathlib
import statistics
import sys

import matplotlib

matplotlib.use("svg")
import matplotlib.pyplot as plt  # noqa: E402  the backend is chosen first

OURS = "rk::socket"
PLAIN = "plain 0MQ"
PEERS = [PLAIN, OURS, "cppzmq", "CZMQ", "nng", "gRPC", "Ignition Transport"]
COLOURS = dict(zip(PEERS, ["#444444", "#d62728", "#1f77b4", "#2ca02c", "#9467bd", "#ff7f0e", "#8c564b"]))
PATTERNS = {"request-reply": "Request and reply, round trip", "publish-subscribe": "Publish and subscribe, one way"}
TRANSPORTS = ["inproc", "ipc", "tcp"]

plt.rcParams.update({"svg.hashsalt": "rk-socket", "svg.fonttype": "path", "font.size": 9, "axes.grid": True,
                     "grid.alpha": 0.3, "axes.spines.top": False, "axes.spines.right": False})


def save(figure, folder, name):
    figure.tight_layout()
    figure.savefig(folder / f"{name}.svg", metadata={"Date": None})
    plt.close(figure)


def table(head, rows):
    lines = ["| " + " | ".join(head) + " |", "|" + "---|" + "---:|" * (len(head) - 1)]
    return "\n".join(lines + ["| " + " | ".join(row) + " |" for row in rows])


def time_text(nanoseconds):
    for unit, factor in (("s", 1e9), ("ms", 1e6), ("µs", 1e3)):
        if abs(nanoseconds) >= factor:
            return f"{nanoseconds / factor:.3g} {unit}"
    return f"{nanoseconds:.0f} ns"


def size_text(size):
    for unit, factor in (("GiB", 1 << 30), ("MiB", 1 << 20), ("KiB", 1 << 10)):
        if size >= factor:
            return f"{size / factor:g} {unit}"
    return f"{size} B"


def geometric_mean(values):
    return math.exp(statistics.mean(math.log(value) for value in values))


def signed(value):
    return f"{value:+.0f}".replace("-", "−")


# Cost of a call

COSTS = [
    ("`send`", "send", "send by hand", ["64"], "30"),
    ("`receive`", "receive", "receive by hand", ["64"], "25"),
    ("`sendProtoBuf`, message of {}", "sendProtoBuf", "sendProtoBuf by hand", ["0", "64", "4096"], "0"),
    ("`sendProtoBuf`, bytes of {}", "sendProtoBuf of a blob", "sendProtoBuf of a blob by hand", ["0", "64", "4096"], "0"),
    ("`receiveProtoBuf`, message of {}", "receiveProtoBuf", "receiveProtoBuf by hand", ["0", "64", "4096"], "45"),
    ("statistics, for a block sent", "send with statistics", "send without statistics", ["64"], "25"),
    ("statistics, for a block received", "receive with statistics", "receive without statistics", ["64"], "25"),
    ("a cap of 0", "send with a cap of 0", "send", ["64"], "0"),
]


def cost_section(cost):
    counts = cost["instructions"]
    rows = []
    for label, work, baseline, payloads, budget in COSTS:
        for payload in payloads:
            ours, by_hand = counts[f"{work}/{payload}"], counts[f"{baseline}/{payload}"]
            rows.append([label.format(f"{payload} B"), f"{by_hand:.0f}", f"{ours:.0f}", signed(round(ours - by_hand)), budget])
    return table(["call", "by hand", "with the library", "difference", "at most"], rows)


# Comparison

def split(cell):
    pattern, transport, content, size = cell.split()
    return pattern, transport, content, int(size)


def comparison_section(comparison):
    parts = []
    for pattern, title in PATTERNS.items():
        for transport in TRANSPORTS:
            cells = [cell for cell in comparison["cells"] if split(cell)[:2] == (pattern, transport)]
            peers = [peer for peer in PEERS if peer in comparison["cells"][cells[0]]]
            rows = []
            for cell in cells:
                _, _, content, size = split(cell)
                taken = comparison["cells"][cell]
                row = [f"{content} {size_text(size)}", time_text(taken[PLAIN]["nanoseconds"]["median"])]
                for peer in peers[1:]:
                    over, ratio = taken[peer]["over"], taken[peer]["ratio"]["median"]
                    row.append(f"{signed(over['median'])} [{signed(over['low'])}, {signed(over['high'])}]; {ratio:.3f}×")
                alone = taken.get("serialise only")
                row.append(time_text(alone["nanoseconds"]["median"]) if alone else "")
                rows.append(row)
            parts.append(f"### {title}: {transport}\n\n" + table(["", PLAIN] + peers[1:] + ["serialise only"], rows))
    return "\n\n".join(parts)


def ratios_of(comparison, peer):
    return [taken[peer]["ratio"]["median"] for taken in comparison["cells"].values() if peer in taken]


def ahead_of(comparison, peer):
    common = [taken for taken in comparison["cells"].values() if peer in taken]
    ahead = sum(taken[OURS]["nanoseconds"]["median"] <= taken[peer]["nanoseconds"]["median"] for taken in common)
    return f"{ahead} of {len(common)}"


def summary_section(comparison):
    rows = []
    for peer in PEERS[1:]:
        ratios = ratios_of(comparison, peer)
        rows.append([peer, comparison["versions"][peer], f"{geometric_mean(ratios):.3f}", f"{min(ratios):.3f}",
                     f"{max(ratios):.3f}", "" if peer == OURS else ahead_of(comparison, peer)])
    return table(["peer", "version", "geometric mean", "least", "greatest", "cells in which rk::socket is ahead"], rows)


def plot_comparison(comparison, folder):
    figure, axes = plt.subplots(2, 3, figsize=(13, 7.5), sharex=True, sharey="row")
    for row, pattern in enumerate(PATTERNS):
        for column, transport in enumerate(TRANSPORTS):
            axis = axes[row][column]
            for peer in PEERS:
                points = sorted((split(cell)[3], taken[peer]["nanoseconds"]) for cell, taken in comparison["cells"].items()
                                if split(cell)[:3] == (pattern, transport, "raw") and peer in taken)
                if not points:
                    continue
                sizes = [size for size, _ in points]
                axis.plot(sizes, [point["median"] for _, point in points], label=peer, color=COLOURS[peer],
                          linewidth=2.2 if peer == OURS else 1.2, linestyle="--" if peer == PLAIN else "-",
                          zorder=3 if peer in (OURS, PLAIN) else 2, marker="o", markersize=3)
                axis.fill_between(sizes, [point["low"] for _, point in points], [point["high"] for _, point in points],
                                  color=COLOURS[peer], alpha=0.15, linewidth=0)
            axis.set(xscale="log", yscale="log", title=f"{PATTERNS[pattern]}: {transport}")
            axis.set_xticks([16, 256, 4096, 65536, 1048576], ["16 B", "256 B", "4 KiB", "64 KiB", "1 MiB"])
            axis.minorticks_off()
        axes[row][0].set_ylabel("nanoseconds for a block")
    handles, labels = axes[0][2].get_legend_handles_labels()
    figure.legend(handles, labels, loc="lower center", ncol=len(labels), frameon=False)
    figure.tight_layout(rect=(0, 0.05, 1, 1))
    figure.savefig(folder / "comparison.svg", metadata={"Date": None})
    plt.close(figure)


def plot_ratio(comparison, folder):
    cells = list(comparison["cells"])
    figure, axis = plt.subplots(figsize=(8, 10))
    for offset, peer in ((-0.22, OURS), (0.0, "cppzmq"), (0.22, "CZMQ")):
        ratios = [comparison["cells"][cell][peer]["ratio"] for cell in cells]
        medians = [ratio["median"] for ratio in ratios]
        errors = [[max(0, ratio["median"] - ratio["low"]) for ratio in ratios],
                  [max(0, ratio["high"] - ratio["median"]) for ratio in ratios]]
        axis.errorbar(medians, [place + offset for place in range(len(cells))], xerr=errors, fmt="o", markersize=4,
                      color=COLOURS[peer], label=f"{peer}, geometric mean {geometric_mean(medians):.3f}", elinewidth=1)
    axis.axvline(1.0, color=COLOURS[PLAIN], linewidth=1)
    axis.set(xscale="log", xlabel="time as a multiple of plain 0MQ's; the bars are quartiles", xlim=(0.6, 2.5))
    axis.set_xticks([0.6, 0.8, 1, 1.25, 1.6, 2, 2.5], ["0.6", "0.8", "1", "1.25", "1.6", "2", "2.5"])
    axis.minorticks_off()
    axis.set_yticks(range(len(cells)), [f"{cell.rsplit(' ', 1)[0]} {size_text(split(cell)[3])}" for cell in cells])
    axis.set_ylim(len(cells) - 0.5, -4)
    axis.legend(loc="upper right", frameon=False)
    save(figure, folder, "ratio")


# Growth

NAMES = {"endpoints": "endpoints of a socket", "sockets": "sockets of a process", "subscribers": "subscribers, tcp",
         "size": "bytes of a block, tcp", "listeners": "listeners, tcp"}


def growth_section(growth):
    rows = []
    for curve in growth:
        numbers = sorted(curve["points"], key=int)
        last = curve["points"][numbers[-1]]["median"]
        value = f"{last / 1024:.3g} MiB" if curve["measure"] == "memory" else time_text(last)
        fitted = "" if curve["exponent"] is None else f"{curve['exponent']:.2f}"
        name = curve["curve"].removesuffix(" by hand")
        rows.append([NAMES[name] + (", by hand" if name != curve["curve"] else ""), curve["measure"],
                     f"{int(numbers[-1]):,}", value, fitted])
    return table(["number of", "measured", "greatest", "there", "exponent"], rows)


def plot_growth(growth, folder):
    figure, axes = plt.subplots(2, 5, figsize=(20, 8))
    for column, (name, title) in enumerate(NAMES.items()):
        for curve in growth:
            if curve["curve"].removesuffix(" by hand") != name:
                continue
            memory = curve["measure"] == "memory"
            axis = axes[1 if memory else 0][column]
            points = sorted((int(number), taken) for number, taken in curve["points"].items())
            points = [(number, taken) for number, taken in points if number > 0 and taken["median"] > 0]
            by_hand = curve["curve"] != name
            fitted = "" if curve["exponent"] is None else f" (exponent {curve['exponent']:.2f})"
            factor = 1 / 1024 if memory else 1e-3
            x = [number for number, _ in points]
            line, = axis.plot(x, [taken["median"] * factor for _, taken in points], marker="o", markersize=3,
                              linestyle="--" if by_hand else "-",
                              label=curve["measure"] + (", plain 0MQ" if by_hand else "") + fitted)
            axis.fill_between(x, [taken["low"] * factor for _, taken in points],
                              [taken["high"] * factor for _, taken in points], color=line.get_color(), alpha=0.15)
        for row, unit in enumerate(("microseconds", "MiB")):
            axes[row][column].set(xscale="log", yscale="log", title=title, ylabel=unit)
            low, high = axes[row][column].get_ylim()
            axes[row][column].set_ylim(low, high * (high / low) ** 0.35)  # room for the names
            axes[row][column].legend(fontsize=7, loc="upper left")
    save(figure, folder, "growth")


# Repair

REPAIRS = {"request": "request socket that sends twice", "reply": "reply socket that receives twice",
           "cure": "close, sleep 100 ms, bind"}


def repair_section(repair):
    rows = []
    for what, title in REPAIRS.items():
        for transport in ("tcp", "ipc", "inproc"):
            taken = repair[f"{transport} {what}"]
            rows.append([f"{title}, {transport}", f"{taken['count']:,}"] +
                        [time_text(taken[key]) for key in ("median", "p99", "max")])
    return table(["", "cycles", "median", "99th percentile", "maximum"], rows)


def plot_repair(repair, folder):
    figure, axis = plt.subplots(figsize=(8, 4))
    labels = []
    for what, title in REPAIRS.items():
        for transport in ("tcp", "ipc", "inproc"):
            taken = repair[f"{transport} {what}"]
            place = len(labels)
            colour = "#444444" if what == "cure" else COLOURS[OURS]
            axis.plot([taken["p01"] / 1e6, taken["max"] / 1e6], [place, place], color=colour, linewidth=1, alpha=0.6)
            axis.plot([taken["low"] / 1e6, taken["high"] / 1e6], [place, place], color=colour, linewidth=6, alpha=0.5)
            axis.plot(taken["median"] / 1e6, place, "o", color=colour)
            axis.plot(taken["p99"] / 1e6, place, "|", color=colour, markersize=12)
            labels.append(f"{title}, {transport}")
    axis.set(xscale="log", title="From the jam to the next exchange that is served",
             xlabel="milliseconds: median (dot), quartiles (bar),\n99th percentile (tick), 1st percentile to maximum (line)")
    axis.set_yticks(range(len(labels)), labels)
    axis.invert_yaxis()
    save(figure, folder, "repair")


# Cap

def cap_section(cap):
    sizes = sorted({sample["size"] for sample in cap})
    rates = sorted({sample["rate"] for sample in cap})
    found = {(sample["rate"], sample["size"]): sample for sample in cap}
    rows = []
    for rate in rates:
        row = [f"{rate:g} Mbit/s"]
        for size in sizes:
            sample = found.get((rate, size))
            row.append(f"{signed_percent(sample)}; {sample['burst']:.2f}" if sample else "")
        rows.append(row)
    return table(["cap"] + [size_text(int(size)) for size in sizes], rows)


def signed_percent(sample):
    return f"{100 * (sample['measured'] / sample['rate'] - 1):+.1f} %".replace("-", "−")


def plot_cap(cap, folder):
    figure, axis = plt.subplots(figsize=(8, 4.5))
    rates = sorted({sample["rate"] for sample in cap})
    for rate, colour in zip(rates, plt.get_cmap("viridis")([place / len(rates) for place in range(len(rates))])):
        points = sorted((sample["size"], sample["measured"]) for sample in cap if sample["rate"] == rate)
        axis.plot([size for size, _ in points], [measured for _, measured in points], marker="o", markersize=4,
                  color=colour, label=f"cap {rate:g} Mbit/s")
        axis.axhline(rate, color=colour, linewidth=0.8, linestyle=":")
    axis.set(xscale="log", yscale="log", xlabel="bytes of a block", ylabel="measured Mbit/s (dotted: commanded)",
             title="What a cap lets through")
    axis.legend(fontsize=7, loc="lower right")
    save(figure, folder, "cap")


PAGE = """# What it costs

Everything on this page was measured by `scripts/benchmark` and written by `benchmarks/report.py`: {mode} run of
{date}, {minutes:.0f} minutes.

| | |
|---|---|
| machine | {processor}, {cores} cores, {memory} |
| system | {system}, {kernel}, glibc {libc} |
| built with | {compiler}, release |
| libzmq, protobuf | {libzmq}, {protobuf} |
| load when it began | {load:.2f} |

In short: `send` takes {send} instructions more than `zmq_send`, `receive` {receive} more than `zmq_recv`, and neither
allocates. Over all {cells} cells of the comparison, the time is {mean:.3f} times plain 0MQ's (geometric mean).

## Cost of a call

Instructions of the release build for one call, counted by callgrind: the difference of two run lengths, with 0MQ stubbed
out. "By hand" is the same work on 0MQ's C interface. The counts are exact, and the tests hold them: `send`, `receive` and
`receiveProtoBuf` allocate nothing, nor do the statistics but for the line of every fiftieth block; `sendProtoBuf`
allocates once.

{cost}

## Against others

One program lets every peer do the same work. Over ipc and tcp the other side is a process of its own, over inproc a
thread. For round trips both sides share a core, so that no time goes into waking another one; for publishing each side
has its own. Within a cell the peers take turns, in another order each round; the first round of each connection is dropped,
which leaves {rounds} rounds. gRPC and Ignition Transport carry raw blocks in a message, as their users do; Ignition
Transport's services and gRPC's calls do more than a request socket does.

![Time for a block, by peer and size](performance/comparison.svg)

As a multiple of plain 0MQ's time:

{summary}

![Ratio to plain 0MQ in every cell](performance/ratio.svg)

What may put another peer ahead of plain 0MQ, and with it of the library:

- CZMQ hands out the block that 0MQ has received, while `receive` copies it into the caller's buffer, as `zmq_recv`
  does. Of large blocks over inproc, that copy is most of the work.
- A subscriber to large blocks over ipc and tcp has them sooner from gRPC and nng, whose sender waits for its receiver. A
  0MQ publisher waits for nobody: it runs ahead, each block in memory of its own, which is cold when it is written out.
- With cppzmq and CZMQ a message is serialised into 0MQ's own memory, and parsed from there. `sendProtoBuf` has a buffer of
  its own, so that a repaired send can repeat it, and `receiveProtoBuf` a buffer that it keeps: a copy each way.

Each cell below: nanoseconds over plain 0MQ, median of the differences round by round, with quartiles; then the median
ratio. "Serialise only" is what writing and parsing the messages takes without any socket.

{comparison}

## Growth

The time and the memory that a number of things takes, at the greatest number, and the exponent of the power that is
fitted to the upper half of the curve: 1 is proportional, 0 is constant. What grows as fast by hand is 0MQ's own growth.

{growth}

![Growth](performance/growth.svg)

## Repair

From the jam to the next exchange that is served. A request socket goes on with its own server. A reply socket's next
client is a new one, which connects as soon as the socket listens again.

{repair}

![Time to repair](performance/repair.svg)

## The cap

How far the measured bit rate lies from the commanded one; then the most that left within any 100 ms, as a multiple of
what the cap grants that time, or of one block if that is more. A pause cannot be shorter than the system's shortest sleep,
and time lost is not made up for: small blocks at a high rate stay far below the cap.

{cap}

![What a cap lets through](performance/cap.svg)
"""


def main():
    directory = pathlib.Path(sys.argv[1])
    folder = directory / "performance"
    result = json.loads((folder / "performance.json").read_text(encoding="utf-8"))
    comparison, counts = result["comparison"], result["cost"]["instructions"]
    plot_comparison(comparison, folder)
    plot_ratio(comparison, folder)
    plot_growth(result["growth"], folder)
    plot_repair(result["repair"], folder)
    plot_cap(result["cap"], folder)
    page = PAGE.format(
        mode=result["mode"], date=result["date"], minutes=result["minutes"], **result["machine"],
        send=round(counts["send/64"] - counts["send by hand/64"]),
        receive=round(counts["receive/64"] - counts["receive by hand/64"]),
        cells=len(comparison["cells"]), mean=geometric_mean(ratios_of(comparison, OURS)),
        rounds=next(iter(comparison["cells"].values()))[PLAIN]["ratio"]["count"],
        cost=cost_section(result["cost"]), summary=summary_section(comparison),
        comparison=comparison_section(comparison), growth=growth_section(result["growth"]),
        repair=repair_section(result["repair"]), cap=cap_section(result["cap"]))
    (directory / "performance.md").write_text(page, encoding="utf-8")


if __name__ == "__main__":
    main()
