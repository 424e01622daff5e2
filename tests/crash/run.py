"""What all runs with processes have in common: the cast, whether it has recovered, and the verdict."""

import os
import random
import socket
import statistics

from checker import check
from history import SECOND
from host import Host

REPLY_TIMEOUT = 300  # milliseconds


def reserve_port(generator):
    """A port that nobody holds, below those that the system gives to clients; no other test gets it meanwhile."""
    while True:
        port = generator.randrange(10000, 32000)
        reservation = socket.socket(socket.AF_UNIX)
        probe = socket.socket()
        try:
            reservation.bind(f"\0rk-socket-test-port-{port}")
            probe.bind(("", port))
            return port, reservation
        except OSError:
            reservation.close()
        finally:
            probe.close()


class Run:
    """A server with its clients, a feed with its reader, and how long they take to recover."""

    def __init__(self, program, seed):
        self.seed = seed
        self.random = random.Random(seed)
        self.ports = random.Random(seed ^ os.getpid())
        self.host = Host(program)
        self.recoveries = []
        self.reservations = []

    def port(self):
        port, reservation = reserve_port(self.ports)
        self.reservations.append(reservation)
        return port

    def names(self, prefix):
        return [name for name in self.host.running if name.startswith(prefix)]

    def wait_for_recovery(self):
        """Until every client has been answered what it has asked since now, and every subscriber has got news."""
        since = self.host.note("calm")
        feed = self.host.latest.get(("publisher", "publish"))
        recovered = self.host.wait_until(
            lambda: all(self.host.answered.get(name, 0) > since for name in self.names("client"))
            and all(self._is_fed(name, feed) for name in self.names("subscriber"))
        )
        if recovered:
            self.recoveries.append(self.host.note("recovered") - since)
        return recovered

    def _is_fed(self, subscriber, feed):
        got = self.host.latest.get((subscriber, "got"))
        if not got:
            return False
        publisher, number = got.args[0], int(got.args[1])
        if publisher != self.host.running["publisher"].label:
            return False
        return not feed or feed.process != publisher or number > int(feed.args[0])

    def finish(self, record):
        """Ends everybody; the breaches of all promises. The history goes to the file `record` when there are any."""
        self.host.close()
        for reservation in self.reservations:
            reservation.close()
        breaches = check(self.host.events)
        if breaches:
            with open(record, "w", encoding="utf-8") as file:
                for event in sorted(self.host.events):
                    print(event.time, event.process, event.kind, *event.args, file=file)
        return breaches

    def figures(self):
        """What was seen, in one line."""
        count = {}
        for event in self.host.events:
            count[event.kind] = count.get(event.kind, 0) + 1
        parts = [
            f"{count.get(kind, 0)} {text}"
            for kind, text in (
                ("reply", "replies"),
                ("timeout", "timeouts"),
                ("repair", "repairs"),
                ("garbled", "garbled"),
                ("got", "messages of the feed"),
                ("closed", "close policies"),
            )
        ]
        if self.recoveries:
            seconds = sorted(duration / SECOND for duration in self.recoveries)
            parts.append(
                f"recovered {len(seconds)} times: median {statistics.median(seconds):.3f} s, "
                f"slowest {seconds[-1]:.3f} s"
            )
        return ", ".join(parts)


def verdict(name, run, record, rounds):
    """Finishes the run and says what came of it; 0 when all promises were kept."""
    breaches = run.finish(record)
    print(f"{name}: seed {run.seed}, {rounds} rounds, {run.figures()}")
    for breach in breaches[:20]:
        print(f"  BROKEN {breach}")
    if breaches:
        print(f"  {len(breaches)} promises broken; the history is in {record}")
    return 1 if breaches else 0
