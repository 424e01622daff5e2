"""TCP ports for tests that run at the same time."""

import atexit
import itertools
import os
import socket

# Below the range of ephemeral ports.
FIRST, COUNT = 10000, 22000

_numbers = itertools.count(os.getpid() * 37)


def free_port():
    """Returns a free TCP port. No other test process gets it while this one runs.
    
    The C++ tests reserve ports under the same names."""
    for number in itertools.islice(_numbers, COUNT):
        port = FIRST + number % COUNT
        reservation = socket.socket(socket.AF_UNIX)
        try:
            reservation.bind(f"\0rk-socket-test-port-{port}")
            with socket.socket() as probe:
                probe.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
                probe.bind(("", port))
        except OSError:
            reservation.close()
            continue
        atexit.register(reservation.close)
        return port
    raise RuntimeError("no free port")
