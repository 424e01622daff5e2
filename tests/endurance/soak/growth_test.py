#!/usr/bin/env python3
"""The judge detects each quantity that grows, and ignores quantities that only vary."""

import math
import unittest

from growth import LIMITS, Record, fit

WARM_UP, END = 100, 1000


def run_that_grows_by(**growth):
    """Returns a run whose quantities grow by this much, in addition to a periodic variation."""
    record = Record(WARM_UP, END)
    for time in range(END + 1):
        done, swing = (time - WARM_UP) / (END - WARM_UP), math.sin(time)
        base = {"resident KiB": (20000, 500), "allocated KiB": (2000, 100), "descriptors": (100, 5), "threads": (20, 3)}
        record.add(time, {name: level + done * growth.get(name.split()[0], 0) + height * swing
                          for name, (level, height) in base.items()})
    return record.growth()


def recorded(record, times, resident):
    for time in times:
        record.add(time, {**dict.fromkeys(LIMITS, 10), "resident KiB": resident(time)})
    return record.growth()


class RecordTest(unittest.TestCase):
    def test_finds_a_swing_flat(self):
        self.assertEqual([True] * 4, [one.is_flat for one in run_that_grows_by()])

    def test_tells_the_quantity_that_grows(self):
        for name, growth in (("resident", 1500), ("allocated", 400), ("descriptors", 3), ("threads", 3)):
            growing = [one.name.split()[0] for one in run_that_grows_by(**{name: growth}) if not one.is_flat]
            self.assertEqual([name], growing)

    def test_leaves_the_warm_up_out(self):
        growth = recorded(Record(WARM_UP, END), range(END), lambda time: 100 * min(time, WARM_UP))[0]
        self.assertEqual((10000, END - WARM_UP), (growth.first, growth.span))

    def test_of_a_short_run_tells_nothing(self):
        self.assertEqual([], recorded(Record(0, END), [1], lambda _: 1))

    def test_takes_the_least_of_each_stretch(self):
        quarters = [number / 4 for number in range(160)]
        self.assertEqual(0, recorded(Record(0, 40), quarters, lambda time: 15000 if time == 7.5 else 10000)[0].error)

    def test_of_a_run_that_ends_early_tells_what_it_has_seen(self):
        growth = recorded(Record(0, 1000), range(500), lambda time: 10000 + 10 * time)[0]
        self.assertAlmostEqual(5000, growth.grown, delta=1)
        self.assertFalse(growth.is_flat)


class Fit(unittest.TestCase):
    def test_of_points_on_a_line_is_the_line(self):
        self.assertEqual((2, 0, 3), fit([(1, 5), (2, 7), (3, 9), (4, 11)]))

    def test_has_the_error_of_the_textbook(self):
        # The squares of the residuals 0.5, -1 and 0.5 from y = x + 0.5 add up to 1.5, with one degree of freedom.
        for expected, value in zip((1, 0.8660254037844386, 0.5), fit([(0, 1), (1, 0.5), (2, 3)])):
            self.assertAlmostEqual(expected, value, 12)


if __name__ == "__main__":
    unittest.main()
