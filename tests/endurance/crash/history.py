"""The events that client and server processes have recorded, and the disturbances."""

import bisect
import collections
import math

# Nanoseconds of the monotonic clock, "role#incarnation", the kind of event, and its arguments.
Event = collections.namedtuple("Event", "time process kind args")

SECOND = 1_000_000_000
# A server is rebuilt within this time or not at all. The bind may wait up to two seconds for the address.
REBUILD = 3 * SECOND


def parse(line):
    """Parses a line "time process kind arguments...". Raises ValueError for any other line."""
    time, process, kind, *args = line.split()
    return Event(int(time), process, kind, tuple(args))


def role(process):
    return process.partition("#")[0]


class Intervals:
    """Disjoint intervals in order. Intervals that touch or overlap are merged."""

    def __init__(self, pairs):
        self.begins = []
        self.ends = []
        for begin, end in sorted(pairs):
            if self.ends and begin <= self.ends[-1]:
                self.ends[-1] = max(self.ends[-1], end)
            else:
                self.begins.append(begin)
                self.ends.append(end)

    def touch(self, begin, end):
        """Returns whether any moment from begin to end lies within."""
        index = bisect.bisect_right(self.begins, end) - 1
        return index >= 0 and self.ends[index] >= begin

    def last_end_before(self, time):
        index = bisect.bisect_left(self.ends, time) - 1
        return self.ends[index] if index >= 0 else -math.inf

    def next_begin_after(self, time):
        index = bisect.bisect_right(self.begins, time)
        return self.begins[index] if index < len(self.begins) else math.inf

    def free_from(self, time):
        """Returns the first moment from `time` on that lies outside."""
        index = bisect.bisect_right(self.begins, time) - 1
        return self.ends[index] if index >= 0 and self.ends[index] >= time else time


class History:
    """Events in order of time, and the times at which each role was disturbed.

    The process "host" writes "begin ID KIND ROLE" and "end ID" about what it does to a role, and "exit PROCESS STATUS
    WHY". The role "network" connects all others.
    """

    # These lose messages on their way. Delays, packet loss and frozen processes only take time.
    LOSSY = frozenset({"kill", "restart", "repair", "cut", "one-way", "half-open", "corrupt", "power_loss", "pulled_cable",
                       "one_way_loss", "forgotten_connections", "wrong_server", "frozen_publisher"})

    def __init__(self, events):
        self.events = sorted(events, key=lambda event: event.time)
        self.end = self.events[-1].time if self.events else 0
        self.of_process = collections.defaultdict(list)
        for event in self.events:
            self.of_process[event.process].append(event)
        self.disturbances = list(self._by_host()) + list(self._by_repairs())

    def processes(self, *roles):
        return [process for process in self.of_process if role(process) in roles]

    def roles(self, prefix):
        return sorted({role(process) for process in self.of_process if role(process).startswith(prefix)})

    def disturbed(self, *roles, lossy=False, repairs=True):
        """Returns the times at which one of the roles or the network was disturbed, with or without repairs."""
        roles += ("network",)
        return Intervals(
            (begin, end)
            for begin, end, kind, target in self.disturbances
            if target in roles and (not lossy or kind in self.LOSSY) and (repairs or kind != "repair")
        )

    def _by_host(self):
        open_ones = {}
        for event in self.of_process["host"]:
            if event.kind == "begin":
                open_ones[event.args[0]] = event
            elif event.kind == "end":
                begin = open_ones.pop(event.args[0])
                yield begin.time, event.time, *begin.args[1:]
        for begin in open_ones.values():
            yield begin.time, math.inf, *begin.args[1:]

    def _by_repairs(self):
        """Returns the times of rebuilds. A rebuilt server drops its queued requests, until the last client reconnects."""
        for process in self.processes("server"):
            begin = None
            end = None
            for event in self.of_process[process]:
                if event.kind in ("fail", "garbled", "repair") and begin is None:
                    begin = event.time
                elif event.kind == "connected" and begin is not None:
                    end = event.time
                elif event.kind == "serve" and end is not None:
                    yield begin, end, "repair", "server"
                    begin = end = None
            if begin is not None:
                yield begin, end or begin + REBUILD, "repair", "server"
