"""Two simulated hosts: network namespaces joined by a pair of virtual Ethernet devices. The far host's device is attached
to a bridge, which remains when the near host loses power. Needs root."""

import subprocess

from processes import Process


class NotPossible(Exception):
    """Raised if this machine does not permit it, with the reason."""


def run(*command):
    result = subprocess.run(command, capture_output=True, text=True, check=False)
    if result.returncode != 0:
        raise NotPossible(f"{' '.join(command)}: {result.stderr.strip()}")


def hold_namespace():
    """Returns a process that keeps a network namespace until its input ends."""
    holder = Process(("unshare", "--net", "sh", "-c", "echo there; cat"), stderr=subprocess.PIPE)
    if not holder.read_line():
        raise NotPossible(holder.process.communicate()[1].decode().strip())
    return holder


class Network:
    """Hosts "near" and "far", and a link that can be disturbed."""

    ADDRESS = {"near": "10.77.0.1", "far": "10.77.0.2"}
    NEAR_MAC = "02:00:00:00:77:01"

    def __init__(self):
        self.holders = {}
        self.queued = False  # whether a queueing discipline is installed
        try:
            self._make()
        except (NotPossible, FileNotFoundError) as failure:
            self.close()
            raise NotPossible(str(failure)) from failure

    def _make(self):
        self.holders["far"] = hold_namespace()
        self._run("far", "ip", "link", "add", "name", "wire", "type", "bridge")
        self._bring_up("far")
        self._power_on()
        self._run("far", "nft", "add table inet bad")
        for hook in ("input", "output"):
            self._run("far", "nft", f"add chain inet bad {hook} {{ type filter hook {hook} priority 0; }}")

    def _power_on(self):
        self.holders["near"] = hold_namespace()
        far = str(self.holders["far"].pid)
        self._run("near", "ip", "link", "add", "name", "wire", "address", self.NEAR_MAC, "type", "veth",
                  "peer", "name", "plug", "netns", far)
        self._run("far", "ip", "link", "set", "plug", "master", "wire", "up")
        self._bring_up("near")

    def _bring_up(self, host):
        self._run(host, "ip", "address", "add", f"{self.ADDRESS[host]}/24", "dev", "wire")
        self._run(host, "ip", "link", "set", "wire", "up")
        self._run(host, "ip", "link", "set", "lo", "up")

    def prefix(self, host):
        """Returns the prefix of a command that runs on the host."""
        return ("nsenter", f"--net=/proc/{self.holders[host].pid}/ns/net")

    def _run(self, host, *command):
        run(*self.prefix(host), *command)

    def _drop(self, *hooks, which=""):
        for hook in hooks:
            self._run("far", "nft", f"add rule inet bad {hook} {which} drop")

    def _queue(self, *discipline):
        for host in self.ADDRESS:
            self._run(host, "tc", "qdisc", "replace", "dev", "wire", "root", *discipline)
        self.queued = True

    def cut(self):
        self._drop("input", "output")

    def cut_towards_far(self):
        self._drop("input")

    def cut_towards_near(self):
        self._drop("output")

    def forget(self):
        """Drops the packets of all existing connections, like a router that has forgotten them."""
        listed = subprocess.run((*self.prefix("far"), "ss", "-tnH"), capture_output=True, text=True, check=True)
        ports = {line.split()[3].rpartition(":")[2] for line in listed.stdout.splitlines()}
        if ports:
            known = "{ " + ", ".join(sorted(ports)) + " }"
            self._drop("input", which=f"tcp dport {known}")
            self._drop("output", which=f"tcp sport {known}")

    def renew_near(self):
        """Replaces the near host by a new one without connections. Its processes must have been killed."""
        self.holders.pop("near").end()
        # Connections of killed processes keep the old namespace alive, so it must be detached from the bridge.
        self._run("far", "ip", "link", "del", "plug")
        self._power_on()

    def lose(self):
        self._drop("input", "output", which="numgen random mod 100 < 20")

    def limit(self):
        self._queue("tbf", "rate", "64kbit", "burst", "2kb", "latency", "200ms")

    def delay(self):
        self._queue("netem", "delay", "20ms", "10ms")

    def heal(self):
        for hook in ("input", "output"):
            self._run("far", "nft", f"flush chain inet bad {hook}")
        if self.queued:
            for host in self.ADDRESS:
                self._run(host, "tc", "qdisc", "del", "dev", "wire", "root")
            self.queued = False

    def close(self):
        for holder in self.holders.values():
            holder.end()
