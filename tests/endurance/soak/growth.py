"""Decides from the samples of a run whether the resources of the process grow."""

import dataclasses
import math
import statistics

# The allowed growth of each quantity during the run.
LIMITS = {
    "resident KiB": 512,  # pages, of which a few hundred vary at random
    "allocated KiB": 256,  # four bytes for each socket that is rebuilt in two hours
    "descriptors": 1,
    "threads": 1,
}
STRETCHES = 40
ENOUGH = 10


def fit(points):
    """Fits a straight line by least squares. Returns its slope, the standard error of the slope, and its intercept."""
    xs, ys = zip(*points)
    slope, intercept = statistics.linear_regression(xs, ys)
    rests = sum((y - intercept - slope * x) ** 2 for x, y in points)
    mean = statistics.fmean(xs)
    return slope, math.sqrt(rests / (len(xs) - 2) / sum((x - mean) ** 2 for x in xs)), intercept


@dataclasses.dataclass
class Growth:
    """The growth of one quantity per second, from the end of the warm-up to the end of the run."""

    name: str
    first: float
    last: float
    slope: float
    error: float
    span: float
    limit: float

    @property
    def grown(self):
        return self.slope * self.span

    @property
    def is_flat(self):
        """Returns False only for a statistically significant growth."""
        return self.grown - 2 * self.error * self.span <= self.limit


class Record:
    """Returns the minimum in each of forty sections of a run. Temporary growth, such as during a restart, does not show. A
    leak shows in every section."""

    def __init__(self, warm_up, end):
        self.warm_up = warm_up
        self.end = end
        self.length = (end - warm_up) / STRETCHES
        self.least = {}

    def add(self, time, use):
        if self.warm_up <= time < self.end:
            stretch = self.least.setdefault(int((time - self.warm_up) / self.length), dict(use))
            for name in LIMITS:
                stretch[name] = min(stretch[name], use[name])

    def growth(self):
        """Returns a Growth for each quantity, or nothing if the run was too short to tell."""
        if len(self.least) < ENOUGH:
            return []
        return [self._growth_of(name, limit) for name, limit in LIMITS.items()]

    def _growth_of(self, name, limit):
        points = [(self.warm_up + (index + 0.5) * self.length, use[name]) for index, use in sorted(self.least.items())]
        slope, error, intercept = fit(points)
        first, last = points[0][0], points[-1][0]
        return Growth(name, intercept + slope * first, intercept + slope * last, slope, error,
                      last - first + self.length, limit)
