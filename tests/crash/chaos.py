#!/usr/bin/env python3
"""Clients, a server and a feed on connections that are delayed, stalled, cut, half open and corrupted at random.

usage: chaos.py PROGRAM ROUNDS [SEED]
"""

import sys

from proxy import Proxy
from run import REPLY_TIMEOUT, Run, main

LONGEST_TROUBLE = 0.5  # seconds


class ChaosRun(Run):
    """Two clients and a reader behind a proxy each for requests and feed, one client beside it."""

    name = "chaos"

    def __init__(self, program, seed):
        super().__init__(program, seed)
        requests, feed = self.port(), self.port()
        self.to_server = Proxy(requests, self.random.random())
        self.to_publisher = Proxy(feed, self.random.random())
        towards_server = f"tcp://127.0.0.1:{self.to_server.port}"
        self.host.start("server", f"tcp://*:{requests}")
        self.host.start("client-1", towards_server, REPLY_TIMEOUT)
        self.host.start("client-2", towards_server, REPLY_TIMEOUT)
        self.host.start("client-3", f"tcp://127.0.0.1:{requests}", REPLY_TIMEOUT)
        self.host.start("publisher", f"tcp://*:{feed}")
        self.host.start("subscriber", f"tcp://127.0.0.1:{self.to_publisher.port}")

    def act(self):
        mode = self.random.choice([mode for mode in Proxy.MODES if mode != Proxy.PASS])
        disturbance = self.host.disturb(mode, "network")
        self.to_server.set(mode)
        # 0MQ does not connect a subscriber again whose peer has broken its protocol; a repeated request repairs that.
        if mode != Proxy.CORRUPT:
            self.to_publisher.set(mode)
        self.pause(LONGEST_TROUBLE)
        self.to_server.set(Proxy.PASS)
        self.to_publisher.set(Proxy.PASS)
        self.host.calm(disturbance)

    def close(self):
        super().close()
        self.to_server.close()
        self.to_publisher.close()


if __name__ == "__main__":
    sys.exit(main(ChaosRun, __doc__))
