"""Common code of the tool's tests: the tool as a process, and peers with Python's ZeroMQ and protobuf."""

import atexit
import fcntl
import importlib
import itertools
import os
import pty
import select
import shutil
import struct
import subprocess
import sys
import tempfile
import termios
import threading
import time
import unittest
import warnings

import zmq

SOURCES = os.environ["RK_SOURCES"]
sys.path.append(os.path.join(SOURCES, "tests/python"))
import processes  # noqa: E402
from ports import free_port  # noqa: E402, F401

PATIENCE = 30  # seconds. Tests wait for events, so only a failing test waits this long
TOOL = os.environ["RK_TOOL"]
SCHEMAS = os.path.join(SOURCES, "tests/tools")


class Process(processes.Process):
    """A program that is killed if a test waits too long for it."""

    def __init__(self, arguments, **options):
        super().__init__(arguments, stderr=subprocess.PIPE, **options)
        self.watchdog = threading.Timer(PATIENCE, self.process.kill)
        self.watchdog.start()

    def read_line(self):
        """Returns the next line of standard output without its end, or b"" at the end of the output."""
        return super().read_line(patience=None) or b""

    def end(self):
        """Waits. Returns the exit status, the rest of standard output, and standard error."""
        output, errors = self.process.communicate()
        self.watchdog.cancel()
        return self.process.returncode, self.unread + output, errors.decode()

    def discard(self):
        if self.process.returncode is None:
            self.process.kill()
            self.end()


class Terminal:
    """The tool on a terminal of 100 columns, which shows its standard output and standard error."""

    def __init__(self, arguments, environment=None):
        self.master, terminal = pty.openpty()
        fcntl.ioctl(terminal, termios.TIOCSWINSZ, struct.pack("HHHH", 40, 100, 0, 0))
        self.process = subprocess.Popen([TOOL, *arguments], stdin=subprocess.DEVNULL, stdout=terminal, stderr=terminal,
                                        env={**os.environ, "TERM": "xterm", **(environment or {})})
        os.close(terminal)
        self.text = b""

    def read_until(self, wanted):
        deadline = time.monotonic() + PATIENCE
        while wanted not in self.text:
            if not select.select([self.master], [], [], max(0, deadline - time.monotonic()))[0]:
                raise AssertionError("%r did not come; only: %r" % (wanted, self.text))
            self._read()

    def end(self):
        try:
            while True:
                self._read()
        except OSError:  # on Linux, once no process has the terminal open
            pass
        os.close(self.master)
        return self.process.wait(), self.text

    def _read(self):
        self.text += os.read(self.master, 65536)


class ToolTest(unittest.TestCase):
    maxDiff = None

    def setUp(self):
        self.folder = tempfile.mkdtemp(prefix="rk-socket-test-")
        self.addCleanup(shutil.rmtree, self.folder)
        self.context = zmq.Context()
        self.addCleanup(self.context.term)
        self.names = itertools.count(1)

    def path(self, name):
        return os.path.join(self.folder, name)

    def write_file(self, name, data):
        with open(self.path(name), "wb") as file:
            file.write(data)
        return self.path(name)

    def read_file(self, name):
        with open(self.path(name), "rb") as file:
            return file.read()

    def fresh_endpoint(self):
        return "ipc://" + self.path("socket-%d" % next(self.names))

    def start(self, *arguments, **options):
        process = Process([TOOL, *arguments], **options)
        self.addCleanup(process.discard)
        return process

    def start_shell(self, script, **environment):
        process = Process(["bash", "-c", "set -o pipefail; PATH=%s:$PATH; " % os.path.dirname(TOOL) + script],
                          cwd=self.folder, env=dict(os.environ, **environment))
        self.addCleanup(process.discard)
        return process

    def run_tool(self, *arguments, input=b""):
        done = subprocess.run([TOOL, *arguments], input=input, capture_output=True, timeout=PATIENCE)
        return done.returncode, done.stdout, done.stderr.decode()

    def peer(self, kind):
        peer = self.context.socket(kind)
        self.addCleanup(peer.close, 0)
        peer.setsockopt(zmq.LINGER, 0)
        peer.setsockopt(zmq.RCVTIMEO, PATIENCE * 1000)
        peer.setsockopt(zmq.SNDTIMEO, PATIENCE * 1000)
        peer.setsockopt(zmq.SNDHWM, 0)
        peer.setsockopt(zmq.RCVHWM, 0)
        return peer

    def publisher(self, endpoint):
        """Returns a publisher that can wait for its subscriber."""
        peer = self.peer(zmq.XPUB)
        peer.bind(endpoint)
        return peer

    def await_subscriber(self, publisher):
        self.assertEqual(b"\1", publisher.recv())

    def subscriber(self, endpoint):
        peer = self.peer(zmq.SUB)
        peer.setsockopt(zmq.RECONNECT_IVL, 5)
        peer.subscribe(b"")
        peer.connect(endpoint)
        return peer

    def serve(self, endpoint, answer):
        """Runs a reply socket until the end of the test. It replies to each request with answer(request)."""
        peer = self.peer(zmq.REP)
        peer.bind(endpoint)
        peer.setsockopt(zmq.RCVTIMEO, 50)
        over = threading.Event()

        def loop():
            while not over.is_set():
                try:
                    peer.send(answer(peer.recv()))
                except zmq.Again:
                    pass
            peer.close(0)

        thread = threading.Thread(target=loop)
        thread.start()
        self.addCleanup(thread.join)
        self.addCleanup(over.set)

    def client(self, endpoint):
        peer = self.peer(zmq.REQ)
        peer.connect(endpoint)
        return peer

    def run_sub(self, messages, *options, endpoint=None):
        """Returns the end of sub after the messages of one publisher. A message is a block, or a list of parts."""
        endpoint = endpoint or self.fresh_endpoint()
        publisher = self.publisher(endpoint)
        sub = self.start("sub", endpoint, "--count", str(len(messages)), *options)
        self.await_subscriber(publisher)
        for message in messages:
            publisher.send_multipart(message if isinstance(message, list) else [message])
        return sub.end()

    def run_rep(self, requests, *options):
        """Returns the replies to the requests, and the end of rep."""
        endpoint = self.fresh_endpoint()
        rep = self.start("rep", endpoint, "--count", str(len(requests)), *options)
        client = self.client(endpoint)
        replies = []
        for request in requests:
            client.send(request)
            replies.append(client.recv())
        return replies, rep.end()

    def schema(self, name):
        return os.path.join(SCHEMAS, name)


def generated(name, folder=SCHEMAS):
    """Returns the Python code for the schema `name` and its imports from the same folder."""
    place = tempfile.mkdtemp(prefix="rk-socket-test-")
    atexit.register(shutil.rmtree, place)
    files = [file for file in os.listdir(folder) if file.endswith(".proto")]
    subprocess.run(["protoc", "-I", folder, "--python_out", place, *files], check=True,
                   stderr=subprocess.DEVNULL)
    sys.path.insert(0, place)
    with warnings.catch_warnings():  # Debian 13's protobuf uses deprecated functions
        warnings.simplefilter("ignore", DeprecationWarning)
        return importlib.import_module(name + "_pb2")
