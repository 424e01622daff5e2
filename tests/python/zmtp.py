"""ZeroMQ's protocol on a bare TCP connection, for peers that violate it: version 3.1, mechanism NULL."""

import contextlib
import socket
import struct

import zmq

from processes import PATIENCE

SIGNATURE = b"\xff" + bytes(7) + b"\x01\x7f"
MORE, LONG, COMMAND = 1, 2, 4
HELLO_SIZE = 202


def greeting(version=(3, 0), mechanism=b"NULL", server=0):
    return SIGNATURE + bytes(version) + mechanism.ljust(20, b"\0") + bytes([server]) + bytes(31)


def frame(body, flags=0):
    if len(body) < 256:
        return bytes([flags, len(body)]) + body
    return claim(len(body), flags) + body


def claim(length, flags=0):
    """Returns the header of a frame with a body of `size` bytes."""
    return struct.pack(">BQ", flags | LONG, length)


def ready(pattern):
    name = b"\x0bSocket-Type"
    return frame(b"\x05READY" + name + struct.pack(">I", len(pattern)) + pattern, COMMAND)


def request(body):
    return frame(b"", MORE) + frame(body)


def subscription(topic):
    return frame(b"\x01" + topic)


def address_of(endpoint):
    host, _, port = endpoint.removeprefix("tcp://").rpartition(":")
    return host, int(port)


def connection(endpoint):
    bare = socket.create_connection(address_of(endpoint), timeout=PATIENCE)
    bare.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
    return bare


def receive_exactly(bare, size):
    block = b""
    while len(block) < size:
        more = bare.recv(size - len(block))
        if not more:
            raise EOFError("the other side has closed the connection")
        block += more
    return block


def joined(endpoint, pattern=b"DEALER"):
    """A connection that looks like a ZeroMQ socket to the other side."""
    bare = connection(endpoint)
    bare.sendall(greeting() + ready(pattern))
    await_joined(bare)
    return bare


def await_joined(bare):
    receive_exactly(bare, len(greeting()))
    head = receive_exactly(bare, 2)
    assert head[0] == COMMAND
    receive_exactly(bare, head[1])


def recorded_hello(server_key):
    """Returns the first bytes of an encrypted client. A server with this key replies to them on any number of connections."""
    with contextlib.ExitStack() as stack:
        listener = stack.enter_context(socket.create_server(("127.0.0.1", 0)))
        context = stack.enter_context(zmq.Context())
        client = stack.enter_context(contextlib.closing(context.socket(zmq.REQ)))
        client.linger = 0
        client.curve_publickey, client.curve_secretkey = zmq.curve_keypair()
        client.curve_serverkey = server_key
        client.connect("tcp://127.0.0.1:%d" % listener.getsockname()[1])
        bare = stack.enter_context(listener.accept()[0])
        bare.sendall(greeting(mechanism=b"CURVE", server=1))
        return receive_exactly(bare, len(greeting()) + HELLO_SIZE)
