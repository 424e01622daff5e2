#!/usr/bin/env python3
"""Answers every connection to some ports with data that is not ZeroMQ's protocol. Prints the port of each connection.
Ends when its input ends.

usage: impostor.py PORT..."""

import select
import socket
import sys

WORDS = b"HTTP/1.1 400 Bad Request\r\nConnection: close\r\n\r\n" + 64 * b" "


def answer(listener):
    client, _ = listener.accept()
    with client:
        client.settimeout(1)
        try:
            client.sendall(WORDS)
            while client.recv(4096):  # until the client disconnects
                pass
        except OSError:
            pass
    print(listener.getsockname()[1], flush=True)


def main(ports):
    listeners = [socket.create_server(("", int(port)), backlog=64) for port in ports]
    while True:
        ready, _, _ = select.select([sys.stdin, *listeners], [], [])
        if sys.stdin in ready:
            return
        for listener in ready:
            answer(listener)


if __name__ == "__main__":
    main(sys.argv[1:])
