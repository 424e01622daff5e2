"""Peers with plain ZeroMQ in Python and Node.js, over tcp and ipc, with all patterns in both directions, byte for byte. The
Python peers are also encrypted.

A server returns a block in reverse, and a command with the next number and its payload in reverse. This shows that it has
parsed them."""

import pathlib
import random
import re
import select
import sys
import unittest

import zmq
from zmq.auth.thread import ThreadAuthenticator

import field
from field import Process, bytes_of, words_of

sys.path.insert(0, str(field.BUILD))
from messages_pb2 import Command  # noqa: E402

BLOCKS = [
    b"",
    b"\x00",
    b"\x00rk\x00\xff\x00\r\n\x80\x00",
    bytes(range(255)),  # the longest with a length field of one byte
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


def answer_to(block):
    return block[::-1]


def answer_to_command(values):
    number, time, payload = values
    return number + 1, time, payload[::-1]


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
        binds = pattern in ("pub", "rep")
        self.prepare(self.socket, binds)
        if binds:
            self.socket.bind(endpoint)
        else:
            self.socket.connect(endpoint)
        if pattern == "sub":
            self.socket.subscribe(b"")

    def prepare(self, socket, binds):
        """Sets the options of a socket before it binds or connects."""

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


class Admission:
    """The callback of a Python server for each client."""

    def __init__(self, *keys):
        self.keys = keys

    def callback(self, _, key):
        return key in self.keys


class EncryptedPython(Python):
    """The peer and the library trust only each other's keys."""

    def __init__(self, test):
        super().__init__(test)
        self.own, library = zmq.curve_keypair(), zmq.curve_keypair()
        self.library_key = library[0]
        field.secure(test.library.program, library, [self.own[0] + b" python", self.own[0] + b" tcp://127.0.0.1:*"])

    def prepare(self, socket, binds):
        socket.curve_publickey, socket.curve_secretkey = self.own
        if not binds:
            socket.curve_serverkey = self.library_key
            return
        socket.curve_server = True
        authenticator = ThreadAuthenticator(self.context)
        authenticator.start()
        self.test.addCleanup(authenticator.stop)
        authenticator.configure_curve_callback(credentials_provider=Admission(self.library_key))


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


class Exchange:
    """Exchanges between a foreign peer and the library. The derived classes choose peer and transport."""

    def setUp(self):
        super().setUp()
        self.library = Library(self)
        self.foreign = self.Peer(self)
        self.endpoint = field.fresh_endpoint(self.transport)

    def ask(self, client, server, messages, kind, answer):
        """`kind` is the suffix of the peers' operations."""
        server.open("rep", self.endpoint)
        client.open("req", self.endpoint)
        for message in messages:
            getattr(client, "send" + kind)(message)
            question = getattr(server, "receive" + kind)()
            self.assertEqual(message, question)
            getattr(server, "send" + kind)(answer(question))
            self.assertEqual(answer(message), getattr(client, "receive" + kind)())

    def publish(self, publisher, subscriber, messages, kind, mark):
        """Publishes marks until one arrives, then the messages."""
        publisher.open("pub", self.endpoint)
        subscriber.open("sub", self.endpoint)
        publisher.send_command(MARK)
        while not subscriber.has_input():
            publisher.send_command(MARK)
        for message in messages:
            getattr(publisher, "send" + kind)(message)
        receive = getattr(subscriber, "receive" + kind)
        first = receive()
        while first == mark:
            first = receive()
        self.assertEqual(messages, [first] + [receive() for _ in messages[1:]])

    def test_blocks_are_served_to_it(self):
        self.ask(self.foreign, self.library, BLOCKS, "", answer_to)

    def test_blocks_are_served_by_it(self):
        self.ask(self.library, self.foreign, BLOCKS, "", answer_to)

    def test_blocks_are_published_to_it(self):
        self.publish(self.library, self.foreign, BLOCKS, "", encoded(MARK))

    def test_blocks_are_published_by_it(self):
        self.publish(self.foreign, self.library, BLOCKS, "", encoded(MARK))

    def test_commands_are_served_to_it(self):
        self.ask(self.foreign, self.library, COMMANDS, "_command", answer_to_command)

    def test_commands_are_served_by_it(self):
        self.ask(self.library, self.foreign, COMMANDS, "_command", answer_to_command)

    def test_commands_are_published_to_it(self):
        self.publish(self.library, self.foreign, COMMANDS, "_command", MARK)

    def test_commands_are_published_by_it(self):
        self.publish(self.foreign, self.library, COMMANDS, "_command", MARK)

    def test_commands_are_served_to_it_by_a_listener(self):
        self.library.program.ask(f"listen own {self.endpoint}")
        self.foreign.open("req", self.endpoint)
        for values in COMMANDS[:-1]:
            self.foreign.send_command(values)
            self.assertEqual(answer_to_command(values), self.foreign.receive_command())


class PythonOverTcp(Exchange, field.TestCase):
    Peer, transport = Python, "tcp"


class PythonOverIpc(Exchange, field.TestCase):
    Peer, transport = Python, "ipc"


class PythonEncrypted(Exchange, field.TestCase):
    Peer, transport = EncryptedPython, "tcp"


class GuideToEncryption(field.TestCase):
    """Runs the guide's programs in Python, with other keys and ports."""

    GUIDE = pathlib.Path(__file__).resolve().parents[3] / "docs/guide/python-and-node.md"
    SERVER_KEY, CLIENT_KEY = b"Yne@$w-vo<fVvi]a<NY6T1ed:M$fCG*[IaLV{hID", b"rq:rM>}U?@Lns47E1%kR.o@n%FcmmsL/@{H8]yf7"

    def setUp(self):
        super().setUp()
        self.library, self.endpoint = Library(self), field.fresh_endpoint("tcp")
        self.library_keys, self.keys = zmq.curve_keypair(), zmq.curve_keypair()
        field.secure(self.library.program, self.library_keys,
                     [self.keys[0] + b" python", self.keys[0] + b" " + self.endpoint.encode()])

    def start(self, block, key_file, key):
        """Returns the guide's block of this number, with the library's key instead of `key`."""
        field.write_file(key_file, self.keys)
        program = re.findall(r"```python\n(.*?)```", self.GUIDE.read_text(), re.DOTALL)[block]
        port = self.endpoint.rpartition(":")[2]
        for old, new in ((key.decode(), self.library_keys[0].decode()), ("5555", port)):
            self.assertIn(old, program)
            program = program.replace(old, new)
        program = program.replace("station:", "127.0.0.1:")
        process = Process([sys.executable, "-c", program], cwd=field.folder())
        self.addCleanup(process.end)
        return process

    def test_a_client_hears(self):
        self.library.open("pub", self.endpoint)
        client = self.start(1, "office.key", self.SERVER_KEY)
        while not select.select([client.process.stdout], [], [], 0.01)[0]:
            self.library.send(b"news")
        self.assertEqual(b"news", client.read_line())

    def test_a_server_answers(self):
        self.start(2, "station.key", self.CLIENT_KEY)
        self.library.open("req", self.endpoint)
        self.library.send(b"question")
        self.assertEqual(b"answer to question", self.library.receive())


@unittest.skipUnless((field.BUILD / "node/installed-lock.json").exists(), "no packages from npm")
class NodeOverTcp(Exchange, field.TestCase):
    Peer, transport = Node, "tcp"


class NodeOverIpc(NodeOverTcp):
    transport = "ipc"
