#!/usr/bin/env python3
"""Runs the small examples against each other.

usage: examples_test.py EXAMPLES PROGRAMS     the folder of their sources, and that of the programs built from them
"""

import os
import pathlib
import subprocess
import sys
import tempfile
import unittest

sys.path.append(str(pathlib.Path(__file__).resolve().parents[1] / "python"))
from ports import free_port  # noqa: E402
from processes import Process  # noqa: E402

SOURCES, PROGRAMS = map(pathlib.Path, sys.argv[1:3])
LONGEST = 60  # lines: an example is read as a whole


class Examples(unittest.TestCase):
    def setUp(self):
        self.endpoint = f"tcp://127.0.0.1:{free_port()}"

    def start(self, program, *arguments):
        return self.start_command([PROGRAMS / program, *arguments])

    def start_command(self, command, **options):
        process = Process(command, stderr=subprocess.DEVNULL, **options)
        self.addCleanup(process.process.stdout.close)
        self.addCleanup(process.wait, 0)
        self.addCleanup(process.close_input)
        return process

    def peer(self, pattern):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        schemas = [SOURCES / "weather.proto", SOURCES / "orders.proto"]
        subprocess.run(["protoc", f"--python_out={folder.name}", f"-I{SOURCES}", *schemas], check=True)
        return self.start_command([sys.executable, "-B", SOURCES / "peer.py", pattern, self.endpoint],
                                  env={**os.environ, "PYTHONPATH": folder.name})

    def await_line(self, process, text):
        while (line := process.read_line()) is not None:
            if text in line.decode():
                return line.decode()
        self.fail(f"no line with {text!r}")

    def order(self, *arguments):
        client = self.start("client", self.endpoint, *arguments)
        return client.read_line(), client.wait()

    def test_subscriber_prints_what_the_publisher_sends(self):
        self.start("publisher", self.endpoint)
        subscriber = self.start("subscriber", self.endpoint)
        self.await_line(subscriber, "harbour")
        self.assertEqual(0, subscriber.end())

    def test_publisher_says_why_it_cannot_bind(self):
        self.start("publisher", self.endpoint)
        self.await_line(self.start("subscriber", self.endpoint), "harbour")
        self.assertEqual(1, self.start("publisher", self.endpoint).wait())

    def test_server_accepts_an_order_once(self):
        server = self.start("server", self.endpoint)
        self.assertEqual((b"first: 97 left", 0), self.order("first", "3"))
        self.assertEqual((b"first: 97 left", 0), self.order("first", "3"))
        self.assertEqual((b"second: only 97 left", 0), self.order("second", "98"))
        self.assertEqual((b"third: 0 left", 0), self.order("third", "97"))
        self.assertEqual(0, server.end())

    def test_client_gives_up_without_a_server(self):
        self.assertEqual((None, 1), self.order())

    def test_blocks_arrive_as_they_were_sent(self):
        blocks = self.start("blocks")
        self.assertEqual([b"channel 1: 0.5 V", b"channel 2: 3.25 V"], [blocks.read_line(), blocks.read_line()])
        self.assertEqual(0, blocks.wait())

    def test_logger_writes_the_lines_of_the_library(self):
        logger = self.start("logger")
        self.assertEqual(b"repaired: [Socket client] Attempting reset of the connections to preserve 0MQ state machine "
                         b"integrity", logger.read_line())
        self.assertEqual(0, logger.wait())

    def test_several_inputs_are_served_in_one_thread(self):
        other = f"tcp://127.0.0.1:{free_port()}"
        self.start("publisher", self.endpoint)
        self.start("publisher", other)
        several = self.start("several", self.endpoint, other)
        several.write(b"hello\n")
        for text in ("feed 1", "feed 2", "feed 1"):
            self.await_line(several, text)
        self.assertEqual(0, several.end())

    def test_several_read_what_is_typed(self):
        several = self.start("several", self.endpoint, self.endpoint)
        several.write(b"hello\n")
        self.await_line(several, "typed: 6 bytes")
        several.close_input()
        self.await_line(several, "typed: 0 bytes")
        self.assertEqual(0, several.wait())

    def test_late_joiner_misses_nothing(self):
        snapshots = f"tcp://127.0.0.1:{free_port()}"
        self.start("source", self.endpoint, snapshots)
        joiner = self.start("late_joiner", self.endpoint, snapshots)
        first = int(self.await_line(joiner, "snapshot").split()[1])
        for number in range(first + 1, first + 21):
            self.assertEqual(f"report {number}".encode(), joiner.read_line())
        self.assertEqual(0, joiner.wait())

    def test_watchdog_tells_when_a_feed_falls_silent(self):
        watchdog = self.start("watchdog", self.endpoint)
        for _ in range(2):
            publisher = self.start("publisher", self.endpoint)
            self.await_line(watchdog, "alive")
            publisher.kill()
            self.await_line(watchdog, "silent")
        self.assertEqual(0, watchdog.end())

    def test_python_subscribes_and_publishes(self):
        self.start("publisher", self.endpoint)
        self.await_line(self.peer("sub"), "harbour")
        self.endpoint = f"tcp://127.0.0.1:{free_port()}"
        self.peer("pub")
        self.await_line(self.start("subscriber", self.endpoint), "python")

    def test_python_asks_and_serves(self):
        self.start("server", self.endpoint)
        self.await_line(self.peer("req"), "python's 98")
        self.endpoint = f"tcp://127.0.0.1:{free_port()}"
        self.peer("rep")
        self.assertEqual((b"mine: 7 left", 0), self.order("mine"))

    def test_each_is_one_short_file(self):
        for file in [*SOURCES.glob("*.cpp"), *SOURCES.glob("*.py")]:
            self.assertGreaterEqual(LONGEST, len(file.read_text().splitlines()), file)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
