"""Two hosts of a network of their own: namespaces joined by a pair of virtual Ethernet devices. Needs root."""

import os
import subprocess


class NotPossible(Exception):
    """This machine does not let itself be used like that; the text says why."""


def run(*command):
    result = subprocess.run(command, capture_output=True, text=True, check=False)
    if result.returncode != 0:
        raise NotPossible(f"{' '.join(command)}: {result.stderr.strip()}")


class Network:
    """Hosts "near" and "far", and a link that can be made bad."""

    ADDRESS = {"near": "10.77.0.1", "far": "10.77.0.2"}

    def __init__(self):
        self.space = {host: f"rk-{os.getpid()}-{host}" for host in self.ADDRESS}
        self.made = []
        try:
            self._make()
        except (NotPossible, FileNotFoundError) as failure:
            self.close()
            raise NotPossible(str(failure)) from failure

    def _make(self):
        for space in self.space.values():
            run("ip", "netns", "add", space)
            self.made.append(space)
        near, far = self.space.values()
        run("ip", "link", "add", "name", "wire", "netns", near, "type", "veth", "peer", "name", "wire", "netns", far)
        for host, space in self.space.items():
            run("ip", "-n", space, "address", "add", f"{self.ADDRESS[host]}/24", "dev", "wire")
            run("ip", "-n", space, "link", "set", "wire", "up")
            run("ip", "-n", space, "link", "set", "lo", "up")
            self._nft(host, "add table inet bad")
            for hook in ("input", "output"):
                self._nft(host, f"add chain inet bad {hook} {{ type filter hook {hook} priority 0; }}")

    def prefix(self, host):
        """What a command is begun with, to run on the host."""
        return ("ip", "netns", "exec", self.space[host])

    def _nft(self, host, command):
        run(*self.prefix(host), "nft", command)

    def _drop(self, hook, which=""):
        self._nft("far", f"add rule inet bad {hook} {which} drop")

    # What the link may be like

    def cut(self):
        self._drop("input")
        self._drop("output")

    def cut_towards_far(self):
        self._drop("input")

    def cut_towards_near(self):
        self._drop("output")

    def lose(self, percent=20):
        for hook in ("input", "output"):
            self._drop(hook, f"numgen random mod 100 < {percent}")

    def limit(self):
        self._queue("tbf", "rate", "64kbit", "burst", "2kb", "latency", "200ms")

    def delay(self):
        self._queue("netem", "delay", "20ms", "10ms")

    def _queue(self, *discipline):
        for space in self.space.values():
            run("tc", "-n", space, "qdisc", "replace", "dev", "wire", "root", *discipline)

    def heal(self):
        self._nft("far", "flush chain inet bad input")
        self._nft("far", "flush chain inet bad output")
        for space in self.space.values():
            subprocess.run(("tc", "-n", space, "qdisc", "del", "dev", "wire", "root"), capture_output=True, check=False)

    def close(self):
        for space in self.made:
            subprocess.run(("ip", "netns", "del", space), capture_output=True, check=False)
