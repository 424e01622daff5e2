"""What all runs with processes have in common: the cast, whether it has recovered, and the verdict."""

import os
import random
import socket
import statistics
import sys
import threading

from checker import check
from history import SECOND
from host import Host

REPLY_TIMEOUT = 300  # milliseconds
# Close policies.
LINGER_TWO_SECONDS = 1
WAIT_FOR_DELIVERY = 2
LONGEST_PAUSE = 0.05
ROUNDS_OF_A_RUN = 250  # then all start anew


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
    """A server with its clients, a feed with its reader, and how long they take to recover. Derived classes start the
    cast, have a name, and know what may happen: `act`."""

    name = ""

    def __init__(self, program, seed):
        self.seed = seed
        self.random = random.Random(seed)
        self.ports = random.Random(seed ^ os.getpid())
        self.host = Host(program)
        self.recoveries = []
        self.reservations = []

    def act(self):
        raise NotImplementedError

    def round(self):
        """Lets something happen at some moment; whether all recover from it."""
        self.pause(LONGEST_PAUSE)
        self.act()
        return self.wait_for_recovery()

    def pause(self, longest):
        threading.Event().wait(self.random.uniform(0, longest))

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

    def send_and_close(self, endpoint, policy, prefix=()):
        """Starts a process that sends one request and ends; its name."""
        return self.host.start("closer", endpoint, policy, prefix=prefix).label

    def wait_for_delivery(self, closer):
        """Until the closer has ended, and its request is served or an accident of the server excuses its loss."""
        self.host.end("closer")
        closed = self.host.latest_time("closer", "closed")
        self.host.wait_until(
            lambda: self.host.latest_time("server", "repair") > closed
            or any(event.kind == "serve" and event.args[0] == closer for event in reversed(self.host.events[-2000:])),
            patience=3,
        )

    def close(self):
        self.host.close()
        for reservation in self.reservations:
            reservation.close()

    def write(self, path):
        with open(path, "w", encoding="utf-8") as file:
            for event in sorted(self.host.events):
                print(event.time, event.process, event.kind, *event.args, file=file)

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


def play(kind, program, rounds, seed):
    """One run; whether all promises were kept. Else its history is left in a file."""
    run = kind(program, seed)
    done = 0
    try:
        while done < rounds and run.round():
            done += 1
    finally:
        run.close()
    breaches = check(run.host.events)
    if done < rounds:
        breaches.append("somebody has not recovered")
    print(f"{kind.name}: seed {seed}, {done} rounds, {run.figures()}", flush=True)
    for breach in breaches[:20]:
        print(f"  BROKEN {breach}")
    if breaches:
        record = f"{kind.name}-{seed}.history"
        run.write(record)
        print(f"  {len(breaches)} promises broken; the history is in {record}", flush=True)
    return not breaches


def main(kind, usage):
    """The exit status of a program PROGRAM ROUNDS [SEED]."""
    if len(sys.argv) not in (3, 4):
        print(usage, file=sys.stderr)
        return 2
    rounds = int(sys.argv[2])
    seed = int(sys.argv[3]) if len(sys.argv) == 4 else random.SystemRandom().randrange(1 << 30)
    kept = True
    while rounds > 0:
        kept = play(kind, sys.argv[1], min(rounds, ROUNDS_OF_A_RUN), seed) and kept
        rounds -= ROUNDS_OF_A_RUN
        seed += 1
    return 0 if kept else 1
