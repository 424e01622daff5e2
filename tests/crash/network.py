"""Two hosts of a network of their own: namespaces joined by a pair of virtual Ethernet devices. Needs root."""

import subprocess


class NotPossible(Exception):
    """This machine does not let itself be used like that; the text says why."""


def run(*command):
    result = subprocess.run(command, capture_output=True, text=True, check=False)
    if result.returncode != 0:
        raise NotPossible(f"{' '.join(command)}: {result.stderr.strip()}")


def hold_namespace():
    """A process that keeps a network namespace, and ends with this one."""
    holder = subprocess.Popen(
        ("unshare", "--net", "cat"), stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True
    )
    try:
        print("there?", file=holder.stdin, flush=True)
    except BrokenPipeError:
        pass
    if not holder.stdout.readline():
        raise NotPossible(holder.communicate()[1].strip())
    return holder


class Network:
    """Hosts "near" and "far", and a link that can be made bad."""

    ADDRESS = {"near": "10.77.0.1", "far": "10.77.0.2"}

    def __init__(self):
        self.holders = {}
        self.queued = False  # whether a discipline other than the usual one holds packets back
        try:
            self._make()
        except (NotPossible, FileNotFoundError) as failure:
            self.close()
            raise NotPossible(str(failure)) from failure

    def _make(self):
        for host in self.ADDRESS:
            self.holders[host] = hold_namespace()
        far = str(self.holders["far"].pid)
        self._run("near", "ip", "link", "add", "name", "wire", "type", "veth", "peer", "name", "wire", "netns", far)
        for host, address in self.ADDRESS.items():
            self._run(host, "ip", "address", "add", f"{address}/24", "dev", "wire")
            self._run(host, "ip", "link", "set", "wire", "up")
            self._run(host, "ip", "link", "set", "lo", "up")
        self._run("far", "nft", "add table inet bad")
        for hook in ("input", "output"):
            self._run("far", "nft", f"add chain inet bad {hook} {{ type filter hook {hook} priority 0; }}")

    def prefix(self, host):
        """What a command is begun with, to run on the host."""
        return ("nsenter", f"--net=/proc/{self.holders[host].pid}/ns/net")

    def _run(self, host, *command):
        run(*self.prefix(host), *command)

    def _drop(self, hook, which=""):
        self._run("far", "nft", f"add rule inet bad {hook} {which} drop")

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
        for host in self.ADDRESS:
            self._run(host, "tc", "qdisc", "replace", "dev", "wire", "root", *discipline)
        self.queued = True

    def heal(self):
        for hook in ("input", "output"):
            self._run("far", "nft", f"flush chain inet bad {hook}")
        if self.queued:
            for host in self.ADDRESS:
                self._run(host, "tc", "qdisc", "del", "dev", "wire", "root")
            self.queued = False

    def close(self):
        for holder in self.holders.values():
            holder.communicate()
