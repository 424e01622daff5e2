"""Attacks that run for minutes: see scripts/prove siege."""

import os
import random
import statistics
import time

import field
import zmtp
from hostile import KILOBYTE, MEGABYTE, Encrypted, Served, in_milliseconds


class Lasting:
    """Attacks for the given minutes, after which memory must no longer grow."""

    def assert_settles(self, attack, slope_megabytes):
        """Describes the growth of memory. Fails if it grows by more with each attack."""
        end = time.monotonic() + 60 * float(os.environ["RK_FIELD_MINUTES"])
        levels = []
        while time.monotonic() < end:
            attack()
            levels.append(self.resident())
        settled = levels[len(levels) // 3 :]
        slope = statistics.linear_regression(range(len(settled)), settled).slope
        self.assertLess(slope, slope_megabytes)
        return (f"{len(levels)} attacks, memory {levels[0]:.1f} MB after the first, {levels[-1]:.1f} MB after the last, "
                f"{1000 * slope:.1f} KB more with each of the last two thirds")


class Siege(Lasting, Served):
    def setUp(self):
        super().setUp()
        self.dice = random.Random(9)

    def connect(self, count, connect, block):
        crowd = []
        for _ in range(count):
            crowd.append(connect(self.endpoint))
            crowd[-1].sendall(block())
        for bare in crowd:
            bare.close()

    def attack(self):
        garbage = self.dice.randbytes
        self.assertTrue(any(self.serves(bytes(64 * MEGABYTE)) for _ in range(5)))
        self.connect(50, zmtp.connection, lambda: garbage(1000))
        self.connect(50, zmtp.connection, lambda: zmtp.greeting()[: self.dice.randrange(64)])
        self.connect(50, zmtp.joined, lambda: bytes([self.dice.randrange(256)]) + garbage(1000))
        self.connect(50, zmtp.joined, lambda: zmtp.claim(1 << self.dice.randrange(20, 64)) + garbage(1000))
        self.connect(50, zmtp.joined, lambda: zmtp.request(garbage(64 * KILOBYTE)))
        self.assert_all_left()
        self.assert_serves_who_insists()

    def test_of_every_kind_takes_little_memory(self):
        self.note("of 251 connections each: " + self.assert_settles(self.attack, 0.01))

    def test_by_connections_that_say_nothing_ends_after_half_a_minute(self):
        start = time.monotonic()
        for _ in range(100):
            self.enter(zmtp.connection(self.endpoint))
        self.assertTrue(field.wait_until(lambda: self.connections() == 100))
        self.assertTrue(field.wait_until(self.all_have_left, patience=60))
        self.note(f"closed after {time.monotonic() - start:.1f} s")


class EncryptedSiege(Lasting, Encrypted):
    def setUp(self):
        super().setUp()
        self.replies, self.connections_made = [], []

    def attack(self):
        self.throw_garbage()
        for bare in self.open_half(300, self.hello):
            bare.close()
        replies, connections = self.flood(3000)
        self.replies += replies
        self.connections_made += connections
        self.assert_all_left()

    def test_of_handshakes_takes_little_memory_and_few_lines(self):
        begin = time.monotonic()
        development = self.assert_settles(self.attack, 0.05)
        self.assertLess(max(self.connections_made), 5)
        minutes = (time.monotonic() - begin) / 60
        lines = self.assert_few_lines(minutes)
        self.note(f"of 3,600 connections each: {development}; {lines} lines tell of clients with an untrusted key; "
                  f"a reply took {in_milliseconds(self.replies)}, and {in_milliseconds(self.connections_made)} on a new "
                  "connection")
