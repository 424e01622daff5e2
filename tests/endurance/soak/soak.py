#!/usr/bin/env python3
"""Runs the soak program for some minutes and shows live figures. Fails if a guarantee is broken or a resource grows.

usage: soak.py PROGRAM MINUTES SEED"""

import contextlib
import json
import os
import pathlib
import resource
import shutil
import signal
import sys
import time

sys.path.append(str(pathlib.Path(__file__).resolve().parents[2] / "python"))
from growth import LIMITS, Record  # noqa: E402
from processes import PATIENCE, Process  # noqa: E402

BETWEEN_PLAIN_LINES = 60  # seconds
UNTIL_ENDED = 240  # seconds: the lanes get 180
COUNTS = ("exchanges", "published", "deliveries", "repeats", "jams", "restarts", "failures", "repairs")


def use_of(pid):
    """Returns the resources of the process, and the seconds of processor time that it has used."""
    process = pathlib.Path(f"/proc/{pid}")
    resident = int((process / "statm").read_text().split()[1]) * resource.getpagesize() / 1024
    ticks = (process / "stat").read_text().rpartition(")")[2].split()[11:13]
    return {
        "resident KiB": resident,
        "descriptors": len(os.listdir(process / "fd")),
        "threads": len(os.listdir(process / "task")),
        "cpu": sum(map(int, ticks)) / os.sysconf("SC_CLK_TCK"),
    }


def warm_up(seconds):
    """A tenth of the run, but one to ten minutes. A third of a run that is too short for that."""
    return min(max(seconds / 10, 60), 600, seconds / 3)


class Soak:
    def __init__(self, program, seconds, seed):
        self.seconds = seconds
        self.seed = seed
        self.record = Record(warm_up(seconds), seconds)
        self.breaches = []
        self.use = dict.fromkeys((*LIMITS, *COUNTS, "cpu"), 0)
        self.start = time.monotonic()
        self.ran = 0
        self.next_line = 0
        self.ended = False
        # Ctrl-C reaches only this program, which asks the other one to end.
        self.process = Process([program, str(seed)], start_new_session=True)
        for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
            signal.signal(number, self.ask_to_end)

    def ask_to_end(self, *_):
        self.ended = True

    def run(self):
        while not self.ended and self.ran < self.seconds and (line := self.read_line(PATIENCE)) is not None:
            if line.startswith("{"):
                self.add(json.loads(line))
                self.show(self.live_line())
        if sys.stdout.isatty():
            print()
        self.process.close_input()
        while self.read_line(UNTIL_ENDED) is not None:
            pass
        if status := self.process.end():
            self.breaches.append(f"the program has ended with {status}")

    def read_line(self, patience):
        """Returns the program's next line, or None at the end. Records breaches."""
        try:
            line = self.process.read_line(patience)
        except TimeoutError:
            self.breaches.append("the program hangs")
            self.process.kill()
            return None
        if line is None:
            return None
        if line.startswith(b"breach "):
            self.breaches.append(line.decode().removeprefix("breach "))
        return line.decode()

    def add(self, figures):
        with contextlib.suppress(OSError):  # the process has ended
            self.use = {**figures, **use_of(self.process.pid)}
            self.ran = time.monotonic() - self.start
            self.record.add(self.ran, self.use)

    def show(self, line):
        """Redraws the line on a terminal. Otherwise it writes one every minute."""
        if sys.stdout.isatty():
            print("\r" + line[: shutil.get_terminal_size().columns - 1], end="\033[K", flush=True)
        elif self.ran >= self.next_line:
            print(line, flush=True)
            self.next_line = self.ran + BETWEEN_PLAIN_LINES

    def is_good(self):
        growth = self.record.growth()
        return not self.breaches and bool(growth) and all(one.is_flat for one in growth)

    def processor_share(self):
        return 100 * self.use["cpu"] / max(self.ran, 1)

    def live_line(self):
        use = self.use
        counts = ", ".join(f"{use[name]} {name}" for name in COUNTS)
        return (f"{self.ran:.0f} s, {len(self.breaches)} breaches, {use['resident KiB']:.0f} KiB "
                f"({use['allocated KiB']:.0f} allocated), {use['descriptors']} descriptors, {use['threads']} threads, "
                f"{self.processor_share():.1f} % cpu, {counts}")

    def summary(self):
        yield f"seed {self.seed}, {self.ran:.2f} s, {self.processor_share():.2f} % of a core"
        yield from (f"  {name:12} {self.use[name]}" for name in COUNTS)
        for one in self.record.growth():
            yield (f"  {one.name:13} {one.first:.2f} -> {one.last:.2f}, slope {3600 * one.slope:.2f} +- "
                   f"{3600 * one.error:.2f} per hour, grown by {one.grown:.2f} +- {one.error * one.span:.2f}, "
                   f"limit {one.limit}: {'flat' if one.is_flat else 'GROWS'}")
        if not self.record.growth():
            yield "  too short to tell a trend"
        yield from (f"  BROKEN {breach}" for breach in self.breaches)
        yield "good" if self.is_good() else "FAILED"


def main(program, minutes, seed):
    soak = Soak(program, 60 * float(minutes), int(seed))
    soak.run()
    print("\n".join(soak.summary()), flush=True)
    return 0 if soak.is_good() else 1


if __name__ == "__main__":
    if len(sys.argv) != 4:
        sys.exit(__doc__)
    sys.exit(main(*sys.argv[1:]))
