#!/usr/bin/env python3
"""Clients and a server, a publisher and its subscriber on two hosts, whose link is cut, one-way, lossy or slow at random.

usage: hosts.py PROGRAM ROUNDS [SEED]     the exit status is 77 where the machine does not permit such hosts
"""

import sys

from network import Network, NotPossible
from run import REPLY_TIMEOUT, WAIT_FOR_DELIVERY, Run, main

SKIPPED = 77
LONGEST_CUT = 1.5


class HostsRun(Run):
    """The server and the publisher are near, all others far."""

    name = "hosts"

    def __init__(self, program, seed):
        self.network = Network()
        super().__init__(program, seed)
        near, far = self.network.prefix("near"), self.network.prefix("far")
        self.requests, feed = (f"tcp://{Network.ADDRESS['near']}:{port}" for port in (5555, 5556))
        self.host.start("server", self.requests, prefix=near)
        self.host.start("client-1", self.requests, REPLY_TIMEOUT, prefix=far)
        self.host.start("client-2", self.requests, REPLY_TIMEOUT, prefix=far)
        self.host.start("publisher", feed, prefix=near)
        self.host.start("subscriber", feed, prefix=far)
        network = self.network
        self.ways = [network.cut, network.cut_towards_far, network.cut_towards_near, network.lose, network.limit]
        self._add_delay()

    def _add_delay(self):
        try:
            self.network.delay()
            self.network.heal()
            self.ways.append(self.network.delay)
        except NotPossible as failure:
            print(f"hosts: without netem: {failure}")

    def act(self):
        """The link is bad for a while. It loses packets, not connections: nothing of the feed may be missed, and what
        is sent and closed meanwhile arrives afterwards."""
        way = self.random.choice(self.ways)
        disturbance = self.host.disturb(way.__name__, "network")
        way()
        closer = None
        if self.random.random() < 0.25:
            closer = self.send_and_close(self.requests, WAIT_FOR_DELIVERY, self.network.prefix("far"))
        self.pause(LONGEST_CUT)
        self.network.heal()
        self.host.calm(disturbance)
        if closer:
            self.wait_for_delivery(closer)

    def close(self):
        super().close()
        self.network.close()


if __name__ == "__main__":
    try:
        sys.exit(main(HostsRun, __doc__))
    except NotPossible as reason:
        print(f"hosts: skipped: {reason}")
        sys.exit(SKIPPED)
