#!/usr/bin/env python3
"""Writes the plots and the tables of docs/performance.md from the recorded figures.

usage: report.py DIRECTORY     reads DIRECTORY/performance/performance.json, writes beside it and DIRECTORY/performance.md
"""

import json
import pathlib
import re
import statistics
import sys

import matplotlib

matplotlib.use("svg")
import matplotlib.pyplot as plt  # noqa: E402  the backend is chosen first

OURS = "rk::socket"
PLAIN = "plain 0MQ"
COLOURS = {PLAIN: "#444455", OURS: "#d62728", "cppzmq": "#1f77b4", "CZMQ": "#2b8a2b", "nng": "#9467bd",
           "gRPC": "#c76208", "Ignition Transport": "#8c564b"}
TEXT = "#1f2430"
DARK = {TEXT: "#d9dee7", "#444455": "#c3c9d6", "#d62728": "#ff6b6c", "#1f77b4": "#5aaee8", "#2b8a2b": "#5fc75f",
        "#9467bd": "#c39ae8", "#c76208": "#ff9d4a", "#8c564b": "#d0978b"}  # of each colour, on a dark page
PATTERNS = {"request-reply": "Request and reply, round trip", "publish-subscribe": "Publish and subscribe, one way"}
TRANSPORTS = ["inproc", "ipc", "tcp"]
SIZES = [16, 256, 4096, 65536, 1048576]
LOW, MEDIAN, HIGH = range(3)

WIDTH = 5.8  # inches, at which the labels are readable on a phone
plt.rcParams.update({"svg.hashsalt": "rk-socket", "svg.fonttype": "none", "font.size": 10, "axes.grid": True,
                     "grid.alpha": 0.3, "grid.color": TEXT, "axes.spines.top": False, "axes.spines.right": False,
                     "font.sans-serif": ["DejaVu Sans"], "axes.titlesize": 11, "axes.titlelocation": "left",
                     "legend.frameon": False, "savefig.transparent": True, "text.color": TEXT, "axes.edgecolor": TEXT,
                     "axes.labelcolor": TEXT, "xtick.color": TEXT, "ytick.color": TEXT})


def rounded(attribute):
    numbers = re.sub(r"-?\d+\.\d+", lambda number: f"{float(number[0]):.1f}".removesuffix(".0"), attribute[0])
    return re.sub(r"\s+(?=[\"MLCzQ])", "", numbers)


def compact(svg):
    """Removes invisible elements, rounds the coordinates, and writes one line for each part of the picture."""
    svg = re.sub(r"<\?xml.*?\?>|<!DOCTYPE.*?>|<!--.*?-->|<metadata>.*?</metadata>", "", svg, flags=re.DOTALL)
    svg = re.sub(r' id="(?!axes|legend|[mp][0-9a-f]{10})[^"]*"| transform="rotate\(-0 [^"]*"', "", svg)
    svg = re.sub(r' (?:d|x|y|transform)="[^"]*"', rounded, svg)
    svg = re.sub(r"\s+", " ", svg).replace("> <", "><")
    names = {}
    svg = re.sub(r"\b[mp][0-9a-f]{10}\b", lambda name: names.setdefault(name[0], f"i{len(names)}"), svg)
    classes = {}
    svg = re.sub(r' style="([^"]*)"', lambda style: f' class="{classes.setdefault(style[1], f"c{len(classes)}")}"', svg)
    svg = svg.replace("</style>", "".join(f".{name}{{{style}}}" for style, name in classes.items()) + "</style>")
    groups = 1
    while groups:
        svg, groups = re.subn(r"<g>((?:(?!</?g[ >]).)*)</g>", r"\1", svg)
    return re.sub(r'(<g id="(?:axes|legend)|</svg>)', r"\n\1", with_themes(svg)).strip() + "\n"


def with_themes(svg):
    """Replaces each colour by a variable that the page sets for light and dark mode."""
    names = {colour: f"--c{number}" for number, colour in enumerate(DARK)}
    for colour, name in names.items():
        svg = svg.replace(colour, f"var({name})")
    light = ";".join(f"{name}:{colour}" for colour, name in names.items())
    dark = ";".join(f"{name}:{DARK[colour]}" for colour, name in names.items())
    style = f":root{{{light}}}@media(prefers-color-scheme:dark){{:root{{{dark}}}}}text{{fill:var({names[TEXT]})}}"
    return svg.replace("</style>", style + "</style>", 1)


def save(figure, file, columns=0, bottom=0.0):
    """Writes the figure, with a legend of so many columns in the free part at its bottom."""
    for axis in figure.axes:
        axis.minorticks_off()
    if columns:
        figure.legend(*figure.axes[0].get_legend_handles_labels(), loc="lower center", ncol=columns)
    figure.tight_layout(rect=(0, bottom, 1, 1))
    figure.savefig(file, metadata={"Date": None})
    plt.close(figure)
    file.write_text(compact(file.read_text(encoding="utf-8")), encoding="utf-8")


def table(head, rows):
    lines = ["| " + " | ".join(head) + " |", "|" + "---|" + "---:|" * (len(head) - 1)]
    return "\n".join(lines + ["| " + " | ".join(row) + " |" for row in rows])


def time_text(nanoseconds, _=None):
    for unit, factor in (("s", 1e9), ("ms", 1e6), ("µs", 1e3)):
        if abs(nanoseconds) >= factor:
            return f"{nanoseconds / factor:.3g} {unit}"
    return f"{nanoseconds:.3g} ns"


def size_text(size, _=None):
    for unit, factor in (("GiB", 1 << 30), ("MiB", 1 << 20), ("KiB", 1 << 10)):
        if size >= factor:
            return f"{size / factor:.3g} {unit}"
    return f"{size:.3g} B"


def signed(value, form="+.3g"):
    text = f"{value:{form}}"
    return (f"{float(text):+.0f}" if "e" in text else text).replace("-", "−")


# Cost of a call

COSTS = [
    ("`send`", "send", "send by hand", ["64"], 30),
    ("`receive`", "receive", "receive by hand", ["64"], 25),
    ("`sendProtoBuf`, message of {} B", "sendProtoBuf", "sendProtoBuf by hand", ["0", "64", "4096"], 0),
    ("`sendProtoBuf`, bytes of {} B", "sendProtoBuf of a blob", "sendProtoBuf of a blob by hand", ["0", "64", "4096"], 0),
    ("`receiveProtoBuf`, message of {} B", "receiveProtoBuf", "receiveProtoBuf by hand", ["0", "64", "4096"], 45),
    ("statistics, for a block sent", "send with statistics", "send without statistics", ["64"], 25),
    ("statistics, for a block received", "receive with statistics", "receive without statistics", ["64"], 25),
    ("a cap of 0", "send with a cap of 0", "send", ["64"], 0),
]


def cost_table(counts):
    rows = []
    for label, work, baseline, payloads, budget in COSTS:
        for payload in payloads:
            ours, by_hand = counts[f"{work}/{payload}"], counts[f"{baseline}/{payload}"]
            rows.append([label.format(payload), str(by_hand), str(ours), signed(ours - by_hand, "+d"), str(budget)])
    return table(["call", "by hand", "with the library", "difference", "at most"], rows)


# Comparison

def split(cell):
    pattern, transport, content, size = cell.split()
    return pattern, transport, content, int(size)


def against_plain(taken):
    low, median, high = taken["over"]
    return f"{signed(median)} [{signed(low)}, {signed(high)}], {taken['ratio'][MEDIAN]:.4g}×"


def cell_tables(comparison):
    parts = []
    for pattern, title in PATTERNS.items():
        for transport in TRANSPORTS:
            cells = {cell: taken for cell, taken in comparison["cells"].items() if split(cell)[:2] == (pattern, transport)}
            peers = [peer for peer in list(COLOURS)[1:] if all(peer in taken for taken in cells.values())]
            rows = [[f"{split(cell)[2]} {size_text(split(cell)[3])}", time_text(taken[PLAIN]["nanoseconds"][MEDIAN]),
                     *(against_plain(taken[peer]) for peer in peers),
                     time_text(taken["serialise only"]["nanoseconds"][MEDIAN]) if "serialise only" in taken else ""]
                    for cell, taken in cells.items()]
            parts.append(f"### {title}: {transport}\n\n" + table(["", shown(PLAIN)] + peers + ["serialise only"], rows))
    return "\n\n".join(parts)


def ratios_of(comparison, peer):
    return [taken[peer]["ratio"][MEDIAN] for taken in comparison["cells"].values() if peer in taken]


def ahead_of(comparison, peer):
    medians = [(taken[OURS]["nanoseconds"][MEDIAN], taken[peer]["nanoseconds"][MEDIAN])
               for taken in comparison["cells"].values() if peer in taken]
    return f"{sum(ours <= theirs for ours, theirs in medians)} of {len(medians)} cells"


def peer_table(comparison):
    rows = []
    for peer in (peer for peer in list(COLOURS)[1:] if peer in comparison["versions"]):
        ratios = ratios_of(comparison, peer)
        rows.append([peer, comparison["versions"][peer], f"{statistics.geometric_mean(ratios):.3f}", f"{min(ratios):.4g}",
                     f"{max(ratios):.4g}", "" if peer == OURS else ahead_of(comparison, peer)])
    return table(["peer", "version", "geometric mean", "minimum", "maximum", "rk::socket is faster in"], rows)


def plot_peer(axis, comparison, peer, kind):
    points = [(split(cell)[3], *taken[peer]["nanoseconds"]) for cell, taken in comparison["cells"].items()
              if split(cell)[:3] == kind and peer in taken]
    if points:
        sizes, low, median, high = zip(*points)
        axis.plot(sizes, median, label=shown(peer), color=COLOURS[peer], linewidth=2.2 if peer == OURS else 1.2,
                  linestyle="--" if peer == PLAIN else "-", zorder=3 if peer in (OURS, PLAIN) else 2, marker="o",
                  markersize=3)
        axis.fill_between(sizes, low, high, color=COLOURS[peer], alpha=0.15, linewidth=0)


def shown(peer):
    return peer.replace("0MQ", "ZeroMQ")


def plot_comparison(comparison, file):
    figure, axes = plt.subplots(2, 1, figsize=(WIDTH, 8), sharex=True)
    for axis, pattern in zip(axes, PATTERNS):
        for peer in COLOURS:
            plot_peer(axis, comparison, peer, (pattern, "tcp", "raw"))
        axis.set(xscale="log", yscale="log", title=f"{PATTERNS[pattern]}, over tcp")
        axis.set_xticks(SIZES, [size_text(size) for size in SIZES])
        axis.yaxis.set_major_formatter(time_text)
    axes[1].set_xlabel("size of a message")
    save(figure, file, columns=3, bottom=0.12)


def ratio_label(cell):
    pattern, transport, content, size = split(cell)
    return f"{'request' if pattern == 'request-reply' else 'publish'} {transport} {content} {size_text(size)}"


def plot_ratio(comparison, file):
    cells = comparison["cells"]
    figure, axis = plt.subplots(figsize=(WIDTH, 9.5))
    for offset, peer in ((-0.22, OURS), (0.0, "cppzmq"), (0.22, "CZMQ")):
        if peer not in comparison["versions"]:
            continue
        low, median, high = zip(*(taken[peer]["ratio"] for taken in cells.values()))
        places = [place + offset for place in range(len(cells))]
        axis.hlines(places, low, high, color=COLOURS[peer], linewidth=1)
        axis.plot(median, places, "o", markersize=3.5, color=COLOURS[peer],
                  label=f"{peer}, geometric mean {statistics.geometric_mean(median):.3f}")
    axis.axvline(1.0, color=COLOURS[PLAIN], linewidth=1)
    axis.set(xscale="log", title="Time of each cell as a multiple of plain ZeroMQ's")
    axis.set_xticks([0.25, 0.35, 0.5, 0.7, 1, 1.4, 2, 2.8], ["0.25", "0.35", "0.5", "0.7", "1", "1.4", "2", "2.8"])
    axis.set_yticks(range(len(cells)), [ratio_label(cell) for cell in cells], fontsize=8)
    axis.set_ylim(len(cells) - 0.5, -0.5)
    save(figure, file, columns=1, bottom=0.08)


# Encryption

def encryption_tables(encryption):
    parts = []
    for pattern, title in PATTERNS.items():
        cells = {cell: taken for cell, taken in encryption.items() if split(cell)[0] == pattern}
        peers = [peer for peer in dict.fromkeys([OURS, *COLOURS]) if all(peer in taken for taken in cells.values())]
        rows = [[size_text(split(cell)[3])] + [
            f"{time_text(taken[peer]['plain'][MEDIAN])} → {time_text(taken[peer]['encrypted'][MEDIAN])} "
            f"({taken[peer]['ratio'][MEDIAN]:.2f}×)" for peer in peers] for cell, taken in cells.items()]
        parts.append(f"### {title}: encrypted\n\n" + table([""] + peers, rows))
    return "\n\n".join(parts)


# Growth

NAMES = {"endpoints": "endpoints of a socket", "sockets": "sockets of a process", "subscribers": "subscribers, tcp",
         "size": "bytes of a block, tcp", "listeners": "listeners, tcp"}


def is_memory(curve):
    return curve["measure"] == "memory"


def value_text(curve, value):
    return size_text(value * 1024) if is_memory(curve) else time_text(value)


def growth_table(growth):
    rows = []
    for curve in growth:
        name, by_hand, _ = curve["curve"].partition(" by hand")
        number, last = list(curve["points"].items())[-1]
        rows.append([NAMES[name] + (", by hand" if by_hand else ""), curve["measure"], f"{int(number):,}",
                     value_text(curve, last[MEDIAN]), "" if curve["exponent"] is None else f"{curve['exponent']:.2f}"])
    return table(["number of", "measure", "largest number", "value there", "exponent"], rows)


def plot_growth(growth, file):
    """Shows that the number of endpoints and sockets does not slow down a send."""
    figure, axis = plt.subplots(figsize=(WIDTH, 4.2))
    for curve in (curve for curve in growth if curve["measure"] == "send"):
        name, by_hand, _ = curve["curve"].partition(" by hand")
        points = [(int(number), *taken) for number, taken in curve["points"].items() if int(number) > 0]
        x, low, median, high = zip(*points)
        colour = COLOURS[OURS if name == "endpoints" else "cppzmq"]
        axis.plot(x, median, marker="o", markersize=3, linestyle="--" if by_hand else "-", color=colour,
                  label=NAMES[name] + (", plain ZeroMQ" if by_hand else ""))
        axis.fill_between(x, low, high, color=colour, alpha=0.15, linewidth=0)
    axis.set(xscale="log", title="Time of a send, by number of endpoints or sockets", ylim=(0, None))
    axis.xaxis.set_major_formatter("{x:,.0f}")
    axis.yaxis.set_major_formatter(time_text)
    save(figure, file, columns=1, bottom=0.22)


# Repair

REPAIRS = {"request": "request socket that sends twice", "reply": "reply socket that receives twice",
           "cure": "close, sleep 100 ms, bind"}


def repairs(repair):
    return [(f"{title}, {transport}", repair[f"{transport} {what}"])
            for what, title in REPAIRS.items() for transport in ("tcp", "ipc", "inproc")]


def repair_table(repair):
    return table(["", "cycles", "median", "99th percentile", "maximum"],
                 [[title, f"{taken['count']:,}", *(time_text(taken[key]) for key in ("median", "p99", "max"))]
                  for title, taken in repairs(repair)])


def plot_repair(repair, file):
    figure, axis = plt.subplots(figsize=(WIDTH, 4.2))
    for place, (title, taken) in enumerate(repairs(repair)):
        colour = COLOURS[PLAIN] if title.startswith(REPAIRS["cure"]) else COLOURS[OURS]
        axis.plot([taken["p01"], taken["max"]], [place, place], color=colour, linewidth=1, alpha=0.6)
        axis.plot([taken["p25"], taken["p75"]], [place, place], color=colour, linewidth=6, alpha=0.5)
        axis.plot(taken["median"], place, "o", color=colour)
        axis.plot(taken["p99"], place, "|", color=colour, markersize=12)
    axis.set(xscale="log", title="Time until the next exchange is served",
             xlabel="dot: median, bar: quartiles,\ntick: 99th percentile,\nline: 1st percentile to maximum")
    axis.xaxis.set_major_formatter(time_text)
    axis.set_yticks(range(len(repair)), [title for title, _ in repairs(repair)], fontsize=9)
    axis.invert_yaxis()
    save(figure, file)


# Cap

def cap_table(cap):
    sizes = sorted({sample["size"] for sample in cap})
    found = {(sample["rate"], sample["size"]): sample for sample in cap}
    rows = []
    for rate in sorted({sample["rate"] for sample in cap}):
        samples = (found.get((rate, size)) for size in sizes)
        rows.append([f"{rate:g} Mbit/s"] + [
            f"{signed(100 * (sample['measured'] / rate - 1), '+.1f')} %, {sample['burst']:.2f}" if sample else ""
            for sample in samples])
    return table(["cap"] + [size_text(size) for size in sizes], rows)


# The tool

def tool_table(tool):
    rows = []
    for kind in ("raw", "text", "JSON"):
        ours, by_hand = tool[f"{kind} with the tool"], tool[f"{'raw' if kind == 'text' else kind} by hand"]
        rows.append([kind] + [text for measure in ("nanoseconds", "processor") for text in (
            time_text(by_hand[measure][MEDIAN]), time_text(ours[measure][MEDIAN]),
            f"{ours[measure][MEDIAN] / by_hand[measure][MEDIAN]:.2f}")])
    return table(["output", "by hand", "the tool", "ratio", "processor time, by hand", "the tool", "ratio"], rows)


def plot_cap(cap, file):
    figure, axis = plt.subplots(figsize=(WIDTH, 5.6))
    colours = list(COLOURS.values())
    rates = sorted({sample["rate"] for sample in cap})
    for place, rate in enumerate(rates):
        colour = colours[place % len(colours)]
        sizes, measured = zip(*((sample["size"], sample["measured"]) for sample in cap if sample["rate"] == rate))
        axis.plot(sizes, measured, marker="o", markersize=4, color=colour, label=f"{rate:g} Mbit/s")
        axis.axhline(rate, color=colour, linewidth=0.8, linestyle=":")
    axis.set(xscale="log", yscale="log", title="Measured rate in Mbit/s (dotted: the limit)", xlabel="size of a message")
    axis.set_xticks(sizes, [size_text(size) for size in sizes])
    axis.yaxis.set_major_formatter("{x:g}")
    save(figure, file, columns=4, bottom=0.1)


# The page

SUMMARY = """Measured by `scripts/benchmark` in a {mode} run on {date}, in {minutes:.0f} minutes.

| | |
|---|---|
| machine | {processor}, {cores} cores, {memory} |
| system | {system}, {kernel}, glibc {libc} |
| built with | {compiler}, release |
| libzmq, protobuf | {libzmq}, {protobuf} |
| load at the start | {load:.2f} |
| rounds per cell of the comparison | {rounds} |

In short, `send` takes {send} instructions more than `zmq_send`, `receive` {receive} more than `zmq_recv`, and neither
allocates. Over all {cells} cells of the comparison, the time is {mean:.3f} times plain ZeroMQ's (geometric mean)."""


def summary(result):
    counts, comparison = result["cost"], result["comparison"]
    return SUMMARY.format(
        mode=result["mode"], date=result["date"], minutes=result["minutes"], rounds=comparison["rounds"],
        send=counts["send/64"] - counts["send by hand/64"],
        receive=counts["receive/64"] - counts["receive by hand/64"],
        cells=len(comparison["cells"]), mean=statistics.geometric_mean(ratios_of(comparison, OURS)), **result["machine"])


def write_page(result, page):
    """Replaces the parts of docs/performance.md between markers. The rest of the page is written by hand."""
    text = (pathlib.Path(__file__).parent.parent / "docs/performance.md").read_text(encoding="utf-8")
    tables = {"summary": summary(result), "cost": cost_table(result["cost"]), "peers": peer_table(result["comparison"]),
              "cells": cell_tables(result["comparison"]), "growth": growth_table(result["growth"]),
              "repair": repair_table(result["repair"]), "cap": cap_table(result["cap"]),
              "tool": tool_table(result["tool"]) if "tool" in result else "",
              "encryption": encryption_tables(result["encryption"]) if "encryption" in result else ""}
    for name, content in tables.items():
        text, count = re.subn(rf"(?s)(<!-- {name} -->\n).*?(\n<!-- end -->)",
                              lambda found, content=content: f"{found[1]}\n{content}\n{found[2]}", text)
        assert count == 1, name
    page.write_text(text, encoding="utf-8")


def main():
    directory = pathlib.Path(sys.argv[1])
    folder = directory / "performance"
    result = json.loads((folder / "performance.json").read_text(encoding="utf-8"))
    plot_comparison(result["comparison"], folder / "comparison.svg")
    plot_ratio(result["comparison"], folder / "ratio.svg")
    plot_growth(result["growth"], folder / "growth.svg")
    plot_repair(result["repair"], folder / "repair.svg")
    plot_cap(result["cap"], folder / "cap.svg")
    write_page(result, directory / "performance.md")


if __name__ == "__main__":
    main()
