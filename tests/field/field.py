"""What the tests in the field share: programs behind a pipe, fresh addresses, and what a process takes of its machine."""

import contextlib
import os
import pathlib
import random
import resource
import select
import socket
import subprocess
import tempfile
import time
import unittest

PATIENCE = 20
# The allocator gives back what is freed, so that memory shows what is held.
FRUGAL = {"MALLOC_ARENA_MAX": "1", "MALLOC_MMAP_THRESHOLD_": "4096", "MALLOC_TRIM_THRESHOLD_": "4096"}
POLICIES = {"DropPending": 0, "LingerTwoSeconds": 1, "WaitForDelivery": 2}
BUILD = pathlib.Path(os.environ["RK_FIELD_BUILD"])
MESSAGES = pathlib.Path(__file__).parent.parent / "support/messages.proto"


class Refused(Exception):
    """What a program answered with "error"."""


class Program:
    """A program that answers every line with a line, "ok" or "error" in front. Its end has to be a good one."""

    def __init__(self, command, **options):
        self.log = tempfile.TemporaryFile("w+")
        self.process = subprocess.Popen(
            command, stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=self.log, **options
        )
        self.unread = b""

    @property
    def pid(self):
        return self.process.pid

    def tell(self, line):
        self.process.stdin.write(line.encode() + b"\n")
        self.process.stdin.flush()

    def hear(self, patience=PATIENCE):
        deadline = time.monotonic() + patience
        while b"\n" not in self.unread:
            left = max(0, deadline - time.monotonic())
            if not select.select([self.process.stdout], [], [], left)[0]:
                raise TimeoutError("no answer\n" + self.logged())
            block = os.read(self.process.stdout.fileno(), 1 << 20)
            if not block:
                raise EOFError(f"it has ended: {self.process.wait()}\n" + self.logged())
            self.unread += block
        line, _, self.unread = self.unread.partition(b"\n")
        word, _, text = line.decode().partition(" ")
        if word != "ok":
            raise Refused(text)
        return text

    def ask(self, line, patience=PATIENCE):
        self.tell(line)
        return self.hear(patience)

    def logged(self):
        self.log.seek(0)
        return self.log.read()

    def end(self):
        """Ends the program as its user would, if it has not ended, and returns its exit status."""
        self.process.stdin.close()
        try:
            return self.process.wait(PATIENCE)
        finally:
            self.process.kill()
            self.process.wait()
            self.process.stdout.close()

    def __enter__(self):
        return self

    def __exit__(self, kind, *_):
        status = self.end()
        log = self.logged()
        self.log.close()
        if kind is None and status != 0:
            raise AssertionError(f"it ended with {status}\n{log}")


def peer(through=(), **options):
    """The library behind a pipe, started by the command `through`, if any."""
    return Program([*through, os.environ["RK_FIELD_PEER"]], env={**os.environ, **FRUGAL}, **options)


def words_of(block):
    return block.hex() or "-"


def bytes_of(word):
    return b"" if word == "-" else bytes.fromhex(word)


def open_socket(program, name, pattern, endpoint, policy="DropPending", timeout=1000 * PATIENCE, queue=None):
    program.ask(f"open {name} {POLICIES[policy]}")
    program.ask(f"create {name} {pattern}")
    if queue is not None:
        program.ask(f"queue {name} {queue}")
    program.ask(f"connect {name} {endpoint} {timeout}")


_folder = None


def folder():
    """A folder for socket files, which ends with the process that runs the tests."""
    global _folder
    if _folder is None:
        _folder = tempfile.TemporaryDirectory(prefix="rk-field-")
        os.chmod(_folder.name, 0o755)
    return pathlib.Path(_folder.name)


_reservations = []
_ports = iter(random.sample(range(10000, 32000), 22000))


def free_port():
    """A TCP port that nobody holds; no other process of the tests gets it while this one runs."""
    for port in _ports:
        reservation = socket.socket(socket.AF_UNIX)
        try:
            reservation.bind(f"\0rk-socket-test-port-{port}")
            with socket.socket() as probe:
                probe.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
                probe.bind(("", port))
        except OSError:
            reservation.close()
            continue
        _reservations.append(reservation)
        return port
    raise RuntimeError("no free port")


def fresh_endpoint(transport):
    if transport == "tcp":
        return f"tcp://127.0.0.1:{free_port()}"
    return f"ipc://{folder()}/{len(os.listdir(folder()))}-{random.getrandbits(32):08x}"


def resident_megabytes(pid):
    pages = int(pathlib.Path(f"/proc/{pid}/statm").read_text().split()[1])
    return pages * resource.getpagesize() / 2**20


def descriptors(pid):
    return len(os.listdir(f"/proc/{pid}/fd"))


def wait_until(condition, patience=PATIENCE):
    """Asks again until `condition` holds, for what no event tells of: how another process stands with its machine."""
    deadline = time.monotonic() + patience
    while not condition():
        if time.monotonic() > deadline:
            return False
        select.select([], [], [], 0.005)
    return True


def allow_many_descriptors():
    hard = resource.getrlimit(resource.RLIMIT_NOFILE)[1]
    resource.setrlimit(resource.RLIMIT_NOFILE, (hard, hard))


class TestCase(unittest.TestCase):
    def setUp(self):
        self.stack = contextlib.ExitStack()
        self.addCleanup(self.stack.close)

    def enter(self, context):
        return self.stack.enter_context(context)

    def note(self, text):
        """What scripts/field-figures shows."""
        print(f"figure: {self.id()}: {text}", flush=True)

    def assert_refused(self, text, program, line):
        with self.assertRaises(Refused) as caught:
            program.ask(line)
        self.assertEqual(text, str(caught.exception))
