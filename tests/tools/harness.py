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
    """A program on a terminal of 100 columns, which shows its standard output and standard error."""

    def __init__(self, command, environment=None):
        self.master, terminal = pty.openpty()
        fcntl.ioctl(terminal, termios.TIOCSWINSZ, struct.pack("HHHH", 40, 100, 0, 0))
        self.process = subprocess.Popen(command, stdin=terminal, stdout=terminal, stderr=terminal,
                                        env={**os.environ, "TERM": "xterm", **(environment or {})},
                                        start_new_session=True)
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

    def start_open(self, *arguments):
        """Starts the tool, and returns it once its socket is open."""
        process = self.start(*arguments, "--verbose")
        while b"Connected" not in process.process.stderr.readline():
            pass
        return process

    def start_shell(self, script, **environment):
        process = Process(["bash", "-c", "set -o pipefail; PATH=%s:$PATH; " % os.path.dirname(TOOL) + script],
                          cwd=self.folder, env=dict(os.environ, **environment))
        self.addCleanup(process.discard)
        return process

    def run_tool(self, *arguments, input=b""):
        done = subprocess.run([TOOL, *arguments], input=input, capture_output=True, timeout=PATIENCE)
        return done.returncode, done.stdout, done.stderr.decode()

    def peer(self, kind, **options):
        """Returns a socket with these options, without limits otherwise."""
        peer = self.context.socket(kind)
        self.addCleanup(peer.close, 0)
        milliseconds = PATIENCE * 1000
        unlimited = {"linger": 0, "rcvtimeo": milliseconds, "sndtimeo": milliseconds, "sndhwm": 0, "rcvhwm": 0}
        for name, value in {**unlimited, **options}.items():
            setattr(peer, name, value)
        return peer

    def bound(self, kind, endpoint=None, **options):
        """Returns a socket that listens, and its endpoint."""
        endpoint = endpoint or self.fresh_endpoint()
        peer = self.peer(kind, **options)
        peer.bind(endpoint)
        return peer, endpoint

    def await_subscriber(self, publisher):
        self.assertEqual(b"\1", publisher.recv())

    def subscribed(self, start):
        """Returns the process that start(endpoint) makes, and the publisher to which it has subscribed."""
        publisher, endpoint = self.bound(zmq.XPUB)
        process = start(endpoint)
        self.await_subscriber(publisher)
        return process, publisher

    def start_sub(self, *options):
        return self.subscribed(lambda endpoint: self.start("sub", endpoint, *options))

    def show_sub(self, *options, environment=None):
        """Starts sub on a terminal."""
        return self.subscribed(lambda endpoint: Terminal([TOOL, "sub", endpoint, *options], environment))

    def pipe_sub(self, script, **environment):
        """Starts a script that subscribes to $E."""
        return self.subscribed(lambda endpoint: self.start_shell(script, E=endpoint, **environment))

    def subscriber(self, endpoint, **limits):
        peer = self.peer(zmq.SUB, reconnect_ivl=5, **limits)
        peer.subscribe(b"")
        peer.connect(endpoint)
        return peer

    def start_pub(self, *options, **limits):
        """Returns a pub, and its subscriber with these socket options."""
        endpoint = self.fresh_endpoint()
        subscriber = self.subscriber(endpoint, **limits)
        return self.start("pub", endpoint, "--wait", "1", *options), subscriber

    def run_pub(self, *options, input=b""):
        """Returns the end of pub, and its subscriber."""
        endpoint = self.fresh_endpoint()
        subscriber = self.subscriber(endpoint)
        return self.run_tool("pub", endpoint, "--wait", "1", *options, input=input), subscriber

    def serve(self, answer, endpoint=None):
        """Runs a reply socket until the end of the test. It replies to each request with answer(request)."""
        peer, endpoint = self.bound(zmq.REP, endpoint)
        peer.rcvtimeo = 50
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
        return endpoint

    def client(self, endpoint):
        peer = self.peer(zmq.REQ)
        peer.connect(endpoint)
        return peer

    def run_sub(self, messages, *options):
        """Returns the end of sub after the messages of one publisher. A message is a block, or a list of parts."""
        sub, publisher = self.start_sub("--count", str(len(messages)), *options)
        for message in messages:
            publisher.send_multipart(message if isinstance(message, list) else [message])
        return sub.end()

    def publishes(self, messages, *options, input=b""):
        """Expects that pub sends just these messages. A message is a block, or a list of parts."""
        end, subscriber = self.run_pub(*options, input=input)
        self.assertEqual((0, b"", ""), end)
        for message in messages:
            self.assertEqual(message if isinstance(message, list) else [message], subscriber.recv_multipart())
        self.assertEqual(0, subscriber.poll(0))

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
