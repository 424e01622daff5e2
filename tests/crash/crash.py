#!/usr/bin/env python3
"""Kills, freezes and restarts clients and servers at random points, and judges what they have written down.

usage: crash.py PROGRAM ROUNDS [SEED]
"""

import signal
import sys

from run import LINGER_TWO_SECONDS, REPLY_TIMEOUT, WAIT_FOR_DELIVERY, Run, main

LONGEST_FREEZE = 0.6
LONGEST_ABSENCE = 0.3


class CrashRun(Run):
    """One server on TCP and IPC with three clients, one feed with one reader."""

    name = "crash"

    def __init__(self, program, seed):
        super().__init__(program, seed)
        self.path = f"ipc://{self.host.folder}/requests"
        self.address = f"tcp://127.0.0.1:{self.port()}"
        feed = f"tcp://127.0.0.1:{self.port()}"
        self.host.start("server", self.address, self.path)
        self.host.start("client-1", self.address, REPLY_TIMEOUT)
        self.host.start("client-2", self.address, REPLY_TIMEOUT)
        self.host.start("client-3", self.path, REPLY_TIMEOUT)
        self.host.start("publisher", feed)
        self.host.start("subscriber", feed)

    def anybody(self):
        return self.random.choice(["server", "server", *self.names("client"), "publisher", "subscriber"])

    # What may happen in a round

    def kill(self, *names):
        disturbances = [self.host.disturb("kill", name) for name in names]
        for name in names:
            self.host.kill(name)
        self.pause(LONGEST_ABSENCE)
        for name in names:
            self.host.restart(name)
        for disturbance in disturbances:
            self.host.calm(disturbance)

    def kill_one(self):
        self.kill(self.anybody())

    def kill_both(self):
        self.kill("server", self.random.choice(self.names("client")))

    def freeze(self):
        name = self.anybody()
        disturbance = self.host.disturb("freeze", name)
        self.host.signal(name, signal.SIGSTOP)
        self.pause(LONGEST_FREEZE)
        self.host.signal(name, signal.SIGCONT)
        self.host.calm(disturbance)

    def restart(self):
        name = self.anybody()
        disturbance = self.host.disturb("restart", name)
        self.host.stop(name)
        self.host.restart(name)
        self.host.calm(disturbance)

    def close_while_the_server_is_away(self):
        """A request that was sent and given into the care of its close policy before the server came."""
        disturbance = self.host.disturb("kill", "server")
        self.host.kill("server")
        closer = self.send_and_close(*self.somewhere())
        self.host.wait_until(lambda: self.host.is_latest("closer", "closed", closer))
        self.host.restart("server")
        self.host.calm(disturbance)
        self.wait_for_delivery(closer)

    def close_at_once(self):
        self.wait_for_delivery(self.send_and_close(*self.somewhere()))

    def somewhere(self):
        policy = self.random.choice([LINGER_TWO_SECONDS, WAIT_FOR_DELIVERY])
        return self.random.choice([self.address, self.path]), policy

    def act(self):
        what = self.random.choices(
            [
                self.kill_one,
                self.kill_both,
                self.freeze,
                self.restart,
                self.close_while_the_server_is_away,
                self.close_at_once,
            ],
            weights=[8, 3, 6, 1, 2, 2],
        )[0]
        what()


if __name__ == "__main__":
    sys.exit(main(CrashRun, __doc__))
