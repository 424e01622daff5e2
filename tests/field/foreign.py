"""Peers that know nothing of the library: plain 0MQ from Python and from Node.js, over tcp and ipc, all patterns, both
ways, byte for byte. One who replies shows that it has understood: a block comes back in reverse, a command with the next
number and its payload in reverse."""

import random
import sys
import unittest

import zmq

import field
from field import bytes_of, words_of

sys.path.insert(0, str(field.BUILD))
from messages_pb2 import Command  # noqa: E402

BLOCKS = [
    b"",
    b"\x00",
    b"\x00rk\x00\xff\x00\r\n\x80\x00",
    bytes(range(255)),  # the longest that 0MQ counts with one byte
    bytes(range(256)),
    random.Random(1).randbytes(1 << 20),
]
COMMANDS = [
    (0, 0.0, b""),
    (-2147483648, -1.5, b"\x00"),
    (1, 1700000000.25, b"\x00\xff\x00"),
    (2147483646, 0.5, random.Random(2).randbytes(1 << 20)),
]
MARK = (7, 7.0, b"mark")


def encoded(values):
    number, time, payload = values
    return Command(id=number, header={"time": time}, payload=payload).SerializeToString()


def decoded(block):
    command = Command.FromString(block)
    return command.id, command.header.time, command.payload


def words_of_command(values):
    number, time, payload = values
    return f"{number} {time} {words_of(payload)}"


def command_of_words(words):
    number, time, payload = words.split(" ")
    return int(number), float(time), bytes_of(payload)


class Library:
    def __init__(self, test):
        self.program = test.enter(field.peer())

    def open(self, pattern, endpoint):
        field.open_socket(self.program, "own", pattern, endpoint, "LingerTwoSeconds")

    def send(self, block):
        self.program.ask(f"send own {words_of(block)}")

    def receive(self):
        length, block = self.program.ask("receive own 2000000").split(" ")
        assert int(length) == len(bytes_of(block))
        return bytes_of(block)

    def has_input(self):
        return self.program.ask("poll own 10").startswith("0")

    def send_command(self, values):
        self.program.ask(f"send-command own {words_of_command(values)}")

    def receive_command(self):
        return command_of_words(self.program.ask("receive-command own 2000000"))


class Python:
    def __init__(self, test):
        self.test = test
        self.context = test.enter(zmq.Context())

    def open(self, pattern, endpoint):
        self.socket = self.context.socket(getattr(zmq, pattern.upper()))
        self.test.addCleanup(self.socket.close, linger=0)
        self.socket.rcvtimeo = self.socket.sndtimeo = 1000 * field.PATIENCE
        if pattern in ("pub", "rep"):
            self.socket.bind(endpoint)
        else:
            self.socket.connect(endpoint)
        if pattern == "sub":
            self.socket.subscribe(b"")

    def send(self, block):
        self.socket.send(block)

    def receive(self):
        [block] = self.socket.recv_multipart()
        return block

    def has_input(self):
        return self.socket.poll(10) != 0

    def send_command(self, values):
        self.send(encoded(values))

    def receive_command(self):
        block = self.receive()
        self.test.assertEqual(encoded(decoded(block)), block)
        return decoded(block)


class Node:
    def __init__(self, test):
        self.test = test
        self.program = test.enter(field.Program(["node", field.BUILD / "node/client.js", field.MESSAGES]))

    def open(self, pattern, endpoint):
        self.program.ask(f"open {pattern} {endpoint}")

    def send(self, block):
        self.program.ask(f"send {words_of(block)}")

    def receive(self):
        return bytes_of(self.program.ask("receive"))

    def has_input(self):
        return self.program.ask("poll 10") == "true"

    def send_command(self, values):
        self.program.ask(f"send-command {words_of_command(values)}")

    def receive_command(self):
        words, _, block = self.program.ask("receive-command").rpartition(" ")
        values = command_of_words(words)
        self.test.assertEqual(encoded(values), bytes_of(block))
        return values


def answer_to(block):
    return block[::-1]


def answer_to_command(values):
    number, time, payload = values
    return number + 1, time, payload[::-1]


class Exchange:
    """What a foreign peer and the library say to each other; the classes below say which, and over what."""

    def setUp(self):
        super().setUp()
        self.library = Library(self)
        self.foreign = self.Peer(self)
        self.endpoint = field.fresh_endpoint(self.transport)

    def ask_blocks(self, client, server):
        server.open("rep", self.endpoint)
        client.open("req", self.endpoint)
        for block in BLOCKS:
            client.send(block)
            question = server.receive()
            self.assertEqual(block, question)
            server.send(answer_to(question))
            self.assertEqual(answer_to(block), client.receive())

    def ask_commands(self, client, server):
        server.open("rep", self.endpoint)
        client.open("req", self.endpoint)
        for values in COMMANDS:
            client.send_command(values)
            question = server.receive_command()
            self.assertEqual(values, question)
            server.send_command(answer_to_command(question))
            self.assertEqual(answer_to_command(values), client.receive_command())

    def subscribe(self, publisher, subscriber):
        """Publishes marks until one arrives."""
        publisher.open("pub", self.endpoint)
        subscriber.open("sub", self.endpoint)
        publisher.send_command(MARK)
        while not subscriber.has_input():
            publisher.send_command(MARK)

    def publish_blocks(self, publisher, subscriber):
        self.subscribe(publisher, subscriber)
        for block in BLOCKS:
            publisher.send(block)
        received = [self.first_behind_marks(subscriber.receive, encoded(MARK))]
        received += [subscriber.receive() for _ in BLOCKS[1:]]
        self.assertEqual(BLOCKS, received)

    def publish_commands(self, publisher, subscriber):
        self.subscribe(publisher, subscriber)
        for values in COMMANDS:
            publisher.send_command(values)
        received = [self.first_behind_marks(subscriber.receive_command, MARK)]
        received += [subscriber.receive_command() for _ in COMMANDS[1:]]
        self.assertEqual(COMMANDS, received)

    @staticmethod
    def first_behind_marks(receive, mark):
        received = receive()
        while received == mark:
            received = receive()
        return received

    def test_blocks_are_served_to_it(self):
        self.ask_blocks(self.foreign, self.library)

    def test_blocks_are_served_by_it(self):
        self.ask_blocks(self.library, self.foreign)

    def test_blocks_are_published_to_it(self):
        self.publish_blocks(self.library, self.foreign)

    def test_blocks_are_published_by_it(self):
        self.publish_blocks(self.foreign, self.library)

    def test_commands_are_served_to_it(self):
        self.ask_commands(self.foreign, self.library)

    def test_commands_are_served_by_it(self):
        self.ask_commands(self.library, self.foreign)

    def test_commands_are_published_to_it(self):
        self.publish_commands(self.library, self.foreign)

    def test_commands_are_published_by_it(self):
        self.publish_commands(self.foreign, self.library)

    def test_commands_are_served_to_it_by_a_listener(self):
        self.library.program.ask(f"listen own rep {self.endpoint}")
        self.foreign.open("req", self.endpoint)
        for values in COMMANDS[:-1]:
            self.foreign.send_command(values)
            self.assertEqual(answer_to_command(values), self.foreign.receive_command())


class PythonOverTcp(Exchange, field.TestCase):
    Peer, transport = Python, "tcp"


class PythonOverIpc(Exchange, field.TestCase):
    Peer, transport = Python, "ipc"


with_packages = unittest.skipUnless((field.BUILD / "node/installed-lock.json").exists(), "no packages from npm")


@with_packages
class NodeOverTcp(Exchange, field.TestCase):
    Peer, transport = Node, "tcp"


@with_packages
class NodeOverIpc(Exchange, field.TestCase):
    Peer, transport = Node, "ipc"
