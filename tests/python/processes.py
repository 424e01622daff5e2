"""Programs that tests run and talk to."""

import os
import select
import subprocess
import time

PATIENCE = 20  # seconds. Tests wait for events, so only a failing test waits this long


class Process:
    """A program whose standard output is read line by line while it runs."""

    def __init__(self, command, **options):
        pipes = {"stdin": subprocess.PIPE, "stdout": subprocess.PIPE}
        self.process = subprocess.Popen(command, bufsize=0, **{**pipes, **options})
        self.unread = b""

    @property
    def pid(self):
        return self.process.pid

    def write(self, data):
        self.process.stdin.write(data)

    def close_input(self):
        if self.process.stdin:
            self.process.stdin.close()
            self.process.stdin = None

    def read_line(self, patience=PATIENCE):
        """Returns the next line without its end, or None at the end of the output. A patience of None waits forever.

        Raises TimeoutError if no line arrives in time."""
        deadline = None if patience is None else time.monotonic() + patience
        while b"\n" not in self.unread:
            left = None if deadline is None else max(0, deadline - time.monotonic())
            if not select.select([self.process.stdout], [], [], left)[0]:
                raise TimeoutError("no line")
            block = os.read(self.process.stdout.fileno(), 1 << 20)
            if not block:
                line, self.unread = self.unread, b""
                return line or None
            self.unread += block
        line, _, self.unread = self.unread.partition(b"\n")
        return line

    def signal(self, number):
        self.process.send_signal(number)

    def kill(self):
        self.process.kill()
        return self.process.wait()

    def wait(self, patience=PATIENCE):
        """Waits and returns the exit status. Kills a program that does not end in time."""
        try:
            return self.process.wait(patience)
        except subprocess.TimeoutExpired:
            return self.kill()

    def end(self, patience=PATIENCE):
        """Closes the program's input and waits as `wait` does."""
        self.close_input()
        try:
            return self.wait(patience)
        finally:
            self.process.stdout.close()
