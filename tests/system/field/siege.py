"""What takes longer than a change may wait for: see scripts/prove siege."""

import os
import random
import statistics
import time

import field
import zmtp
from hostile import KILOBYTE, MEGABYTE, Served


class Siege(Served):
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
        end = time.monotonic() + 60 * float(os.environ["RK_FIELD_MINUTES"])
        levels = []
        while time.monotonic() < end:
            self.attack()
            levels.append(self.resident())
        settled = levels[len(levels) // 3 :]
        slope = statistics.linear_regression(range(len(settled)), settled).slope
        self.assertLess(slope, 0.01)
        self.note(f"{len(levels)} attacks of 251 connections, memory {levels[0]:.1f} MB after the first, "
                  f"{levels[-1]:.1f} MB after the last, {1000 * slope:.1f} KB more with each of the last two thirds")

    def test_by_connections_that_say_nothing_ends_after_half_a_minute(self):
        start = time.monotonic()
        for _ in range(100):
            self.enter(zmtp.connection(self.endpoint))
        self.assertTrue(field.wait_until(lambda: self.connections() == 100))
        self.assertTrue(field.wait_until(self.all_have_left, patience=60))
        self.note(f"closed after {time.monotonic() - start:.1f} s")
