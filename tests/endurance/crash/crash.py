#!/usr/bin/env python3
"""Disturbs clients, a server and a feed at random, and checks their histories. scripts/proofs/crash explains the kinds.

usage: crash.py processes|connections|hosts|servers|peers|cables PROGRAM ROUNDS [SEED]
       77 if this machine does not permit it
"""

import collections
import contextlib
import pathlib
import random
import signal
import statistics
import sys
import time

from checker import REQUEST_ATTEMPTS, REQUEST_TIMEOUT, check
from history import SECOND
from host import Host
from network import Network, NotPossible
from ports import free_port
from processes import Process
from proxy import Proxy

SKIPPED = 77
IMPOSTOR = str(pathlib.Path(__file__).with_name("impostor.py"))
REPLY_TIMEOUT = 300  # milliseconds
LINGER_TWO_SECONDS, WAIT_FOR_DELIVERY = 1, 2  # close policies
ROUNDS_OF_A_RUN = 250  # after which all processes restart
FIGURES = {"reply": "replies", "timeout": "timeouts", "repair": "repairs", "garbled": "garbled",
           "got": "messages of the feed", "closed": "close policies", "answer": "answers",
           "unanswered": "requests given up"}


class Run:
    """A server with its clients, and a feed with its reader. A derived class starts them and disturbs them in `act`."""

    def __init__(self, program, seed):
        self.random = random.Random(seed)
        self.host = Host(program)
        self.recoveries = []

    def start(self, server, clients, publisher, subscriber, near=(), far=()):
        self.host.start("server", *server, prefix=near)
        for number, address in enumerate(clients, 1):
            self.host.start(f"client-{number}", address, REPLY_TIMEOUT, prefix=far)
        self.host.start("publisher", publisher, prefix=near)
        self.host.start("subscriber", subscriber, prefix=far)

    def round(self):
        """Disturbs the processes at a random time. Returns whether all of them recover."""
        self.pause(0.05)
        self.act()
        return self.wait_for_recovery()

    def pause(self, longest):
        time.sleep(self.random.uniform(0, longest))

    def clients(self):
        return [name for name in self.host.running if name.startswith("client")]

    def wait_for_recovery(self):
        """Waits until each client has a reply to a request sent from now on, and the subscriber has a new message."""
        since = self.host.note("calm")
        feed = self.host.latest.get(("publisher", "publish"))
        recovered = self.host.wait_until(
            lambda: all(self.host.answered.get(name, 0) > since for name in self.clients()) and self._is_fed(feed)
        )
        if recovered:
            self.recoveries.append(self.host.note("recovered") - since)
        return recovered

    def _is_fed(self, feed):
        got = self.host.latest.get(("subscriber", "got"))
        if not got or got.args[0] != self.host.running["publisher"].label:
            return False
        return not feed or feed.process != got.args[0] or int(got.args[1]) > int(feed.args[0])

    def send_and_close(self, endpoint, policy, prefix=()):
        """Starts a process that sends one request and ends. Returns its label."""
        return self.host.start("closer", endpoint, policy, prefix=prefix).label

    def wait_for_delivery(self, closer):
        """Waits until the closer has ended, and its request is served or lost because the server was disturbed."""
        self.host.end("closer")
        closed = self.host.latest_time("closer", "closed")
        self.host.wait_until(
            lambda: self.host.latest_time("server", "repair") > closed
            or any(event.kind == "serve" and event.args[0] == closer for event in reversed(self.host.events[-2000:])),
            patience=3,
        )

    def close(self):
        self.host.close()

    def write(self, path):
        with open(path, "w", encoding="utf-8") as file:
            for event in sorted(self.host.events):
                print(event.time, event.process, event.kind, *event.args, file=file)

    def figures(self):
        count = collections.Counter(event.kind for event in self.host.events)
        parts = [f"{count[kind]} {text}" for kind, text in FIGURES.items() if count[kind]]
        if self.recoveries:
            seconds = sorted(duration / SECOND for duration in self.recoveries)
            parts.append(f"recovered {len(seconds)} times: median {statistics.median(seconds):.3f} s, "
                         f"slowest {seconds[-1]:.3f} s")
        return ", ".join(parts)


class Processes(Run):
    """One server on TCP and IPC with three clients, one feed with one reader."""

    def __init__(self, program, seed):
        super().__init__(program, seed)
        self.path = f"ipc://{self.host.folder}/requests"
        self.address, feed = (f"tcp://127.0.0.1:{free_port()}" for _ in range(2))
        self.start([self.address, self.path], [self.address, self.address, self.path], feed, feed)

    def any_name(self):
        return self.random.choice(["server", "server", *self.clients(), "publisher", "subscriber"])

    def kill(self, *names):
        with contextlib.ExitStack() as disturbances:
            for name in names:
                disturbances.enter_context(self.host.disturbance("kill", name))
            for name in names:
                self.host.kill(name)
            self.pause(0.3)
            for name in names:
                self.host.restart(name)

    def kill_one(self):
        self.kill(self.any_name())

    def kill_both(self):
        self.kill("server", self.random.choice(self.clients()))

    def freeze(self):
        name = self.any_name()
        with self.host.disturbance("freeze", name):
            self.host.signal(name, signal.SIGSTOP)
            self.pause(0.6)
            self.host.signal(name, signal.SIGCONT)

    def restart(self):
        name = self.any_name()
        with self.host.disturbance("restart", name):
            self.host.end(name)
            self.host.restart(name)

    def close_while_the_server_is_away(self):
        """Sends a request and closes its socket before the server starts."""
        with self.host.disturbance("kill", "server"):
            self.host.kill("server")
            closer = self.send_and_close(*self.somewhere())
            self.host.wait_until(lambda: self.host.is_latest("closer", "closed", closer))
            self.host.restart("server")
        self.wait_for_delivery(closer)

    def close_at_once(self):
        self.wait_for_delivery(self.send_and_close(*self.somewhere()))

    def somewhere(self):
        policy = self.random.choice([LINGER_TWO_SECONDS, WAIT_FOR_DELIVERY])
        return self.random.choice([self.address, self.path]), policy

    def act(self):
        ways = {self.kill_one: 8, self.kill_both: 3, self.freeze: 6, self.restart: 1,
                self.close_while_the_server_is_away: 2, self.close_at_once: 2}
        self.random.choices(list(ways), weights=ways.values())[0]()


class Servers(Processes):
    """A server that misbehaves, on TCP and IPC, with three requesters."""

    def __init__(self, program, seed):
        Run.__init__(self, program, seed)
        addresses = [f"tcp://127.0.0.1:{free_port()}", f"ipc://{self.host.folder}/requests"]
        self.host.start("misbehaving", REQUEST_TIMEOUT * 3 // 2, *addresses)
        for number, address in enumerate([addresses[0], *addresses], 1):
            self.host.start(f"requester-{number}", address, REQUEST_TIMEOUT, REQUEST_ATTEMPTS)

    def clients(self):
        return [name for name in self.host.running if name.startswith("requester")]

    def any_name(self):
        return self.random.choice([*["misbehaving"] * 4, *self.clients()])

    def act(self):
        self.random.choices([self.kill_one, self.freeze, self.restart], weights=[3, 3, 1])[0]()

    def _is_fed(self, feed):
        return True


class Connections(Run):
    """Two clients and a reader behind a proxy each for requests and feed, one client beside it."""

    def __init__(self, program, seed):
        super().__init__(program, seed)
        requests, feed = free_port(), free_port()
        self.to_server = Proxy(requests, self.random.random())
        self.to_publisher = Proxy(feed, self.random.random())
        behind, beside, reader = (
            f"tcp://127.0.0.1:{port}" for port in (self.to_server.port, requests, self.to_publisher.port)
        )
        self.start([f"tcp://*:{requests}"], [behind, behind, beside], f"tcp://*:{feed}", reader)

    def act(self):
        mode = self.random.choice([mode for mode in Proxy.MODES if mode != Proxy.PASS])
        with self.host.disturbance(mode, "network"):
            self.to_server.set(mode)
            # ZeroMQ does not reconnect a subscriber after a protocol error of its peer. A retried request reconnects.
            if mode != Proxy.CORRUPT:
                self.to_publisher.set(mode)
            self.pause(0.5)
            self.to_server.set(Proxy.PASS)
            self.to_publisher.set(Proxy.PASS)

    def close(self):
        super().close()
        self.to_server.close()
        self.to_publisher.close()


class Hosts(Run):
    """The server and the publisher run on the near host, all others on the far one."""

    def __init__(self, program, seed):
        self.network = network = Network()
        super().__init__(program, seed)
        near, self.far = network.prefix("near"), network.prefix("far")
        self.requests, feed = (f"tcp://{Network.ADDRESS['near']}:{port}" for port in (5555, 5556))
        self.start([self.requests], [self.requests, self.requests], feed, feed, near, self.far)
        self.ways = [network.cut, network.cut_towards_far, network.cut_towards_near, network.lose, network.limit]
        try:
            network.delay()
            network.heal()
            self.ways.append(network.delay)
        except NotPossible as failure:
            print(f"hosts: without netem: {failure}")

    def act(self):
        """Makes the link bad for a while. It loses packets, not connections. No message of the feed may be lost, and
        requests that are sent during this time and closed must arrive later."""
        way = self.random.choice(self.ways)
        closer = None
        with self.host.disturbance(way.__name__, "network"):
            way()
            if self.random.random() < 0.25:
                closer = self.send_and_close(self.requests, WAIT_FOR_DELIVERY, self.far)
            self.pause(1.5)
            self.network.heal()
        if closer:
            self.wait_for_delivery(closer)

    def close(self):
        super().close()
        self.network.close()


class Peers(Run):
    """The server and the publisher run on the near host, all others on the far one. The processes detect within two
    seconds that a machine has vanished. The subscriber is a plain socket, or a listener with a silence limit of 1 s."""

    PORTS = (5555, 5556)
    PEER_TIMEOUT = 2  # seconds

    def __init__(self, program, seed):
        self.network = network = Network()
        super().__init__(program, seed)
        self.impostor = None
        requests, feed = (f"tcp://{Network.ADDRESS['near']}:{port}" for port in self.PORTS)
        self.listens = self.random.random() < 0.5
        settings = ("env", f"PEER_TIMEOUT={self.PEER_TIMEOUT}", "SILENCE_LIMIT=1")
        far = (*network.prefix("far"), *settings, *(() if self.listens else ("AS_SOCKET=1",)))
        self.start([requests], [requests, requests], feed, feed, (*network.prefix("near"), *settings), far)

    @contextlib.contextmanager
    def absence(self, *names):
        """Kills processes, and restarts them later on the near host, which may have been replaced by then."""
        for name in names:
            self.host.kill(name)
        yield
        for name in names:
            arguments, prefix = self.host.arguments[name]
            own = self.network.prefix("near")
            self.host.start(name, *arguments, prefix=(*own, *prefix[len(own):]))

    def power_loss(self):
        self.network.cut()
        with self.absence("server", "publisher"):
            self.network.renew_near()
            self.pause(2 * self.PEER_TIMEOUT)
            self.network.heal()

    def pulled_cable(self):
        self.network.cut()
        self.pause(2 * self.PEER_TIMEOUT)
        self.network.heal()

    def one_way_loss(self):
        self.random.choice([self.network.cut_towards_far, self.network.cut_towards_near])()
        self.pause(2 * self.PEER_TIMEOUT)
        self.network.heal()

    def forgotten_connections(self):
        """Packets of the present connections are never delivered. The rules stay until all connections are new ones."""
        self.network.forget()
        recovered = self.wait_for_recovery()
        self.network.heal()
        if not recovered:
            raise RuntimeError("no process notices that a router has forgotten it")

    def wrong_server(self):
        with self.absence("server", "publisher"):
            self.impostor = Process((*self.network.prefix("near"), sys.executable, "-B", IMPOSTOR, *map(str, self.PORTS)))
            while (line := self.impostor.read_line()) and int(line) != self.PORTS[1]:
                pass
            self.impostor.end()
            self.impostor = None

    def frozen_publisher(self):
        self.host.signal("publisher", signal.SIGSTOP)
        self.pause(3)
        self.host.signal("publisher", signal.SIGCONT)

    def act(self):
        ways = [self.power_loss, self.pulled_cable, self.one_way_loss, self.forgotten_connections, self.frozen_publisher]
        # A plain socket needs the measures of the guide to survive this.
        way = self.random.choice([*ways, self.wrong_server] if self.listens else ways)
        with self.host.disturbance(way.__name__, "network"):
            way()

    def close(self):
        super().close()
        if self.impostor:
            self.impostor.end()
        self.network.close()


class Cables(Peers):
    MINUTE = 60

    def act(self):
        with self.host.disturbance("pulled_cable", "network"):
            self.network.cut()
            time.sleep(self.MINUTE)
            self.network.heal()


KINDS = {"processes": Processes, "connections": Connections, "hosts": Hosts, "servers": Servers, "peers": Peers,
         "cables": Cables}


def play(kind, program, rounds, seed):
    """Performs one run. Returns whether all guarantees held. If not, writes the history to a file."""
    run = KINDS[kind](program, seed)
    done = 0
    try:
        while done < rounds and run.round():
            done += 1
    finally:
        run.close()
    breaches = check(run.host.events)
    if done < rounds:
        breaches.append("a process has not recovered")
    print(f"{kind}: seed {seed}, {done} rounds, {run.figures()}", flush=True)
    for breach in breaches[:20]:
        print(f"  BROKEN {breach}")
    if breaches:
        record = f"{kind}-{seed}.history"
        run.write(record)
        print(f"  {len(breaches)} promises broken; the history is in {record}", flush=True)
    return not breaches


def main(kind, program, rounds, seed=None):
    seed = random.SystemRandom().randrange(1 << 30) if seed is None else int(seed)
    kept = True
    for done in range(0, int(rounds), ROUNDS_OF_A_RUN):
        kept = play(kind, program, min(int(rounds) - done, ROUNDS_OF_A_RUN), seed) and kept
        seed += 1
    return 0 if kept else 1


if __name__ == "__main__":
    if len(sys.argv) not in (4, 5) or sys.argv[1] not in KINDS:
        sys.exit(__doc__)
    try:
        sys.exit(main(*sys.argv[1:]))
    except NotPossible as reason:
        print(f"{sys.argv[1]}: skipped: {reason}")
        sys.exit(SKIPPED)
