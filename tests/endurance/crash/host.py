"""Starts, kills and freezes processes, and collects their events."""

import contextlib
import pathlib
import shutil
import signal
import subprocess
import sys
import tempfile
import threading
import time

sys.path.append(str(pathlib.Path(__file__).resolve().parents[2] / "python"))
from history import Event, parse, role  # noqa: E402
from processes import PATIENCE, Process  # noqa: E402


ASKED_BY = {"reply": "ask", "answer": "request"}


class Member(Process):
    """A process in a role, with a label such as "client-2#1". A thread passes on each line of its output, and None at
    the end."""

    def __init__(self, label, command, take):
        pipe = subprocess.DEVNULL if label.startswith("closer") else subprocess.PIPE
        super().__init__(command, stdin=pipe)
        self.label = label
        self.has_ended = False
        self.reader = threading.Thread(target=self._read, args=(take,), daemon=True)
        self.reader.start()

    def _read(self, take):
        while (line := self.read_line(patience=None)) is not None:
            take(parse(line.decode()))
        self.has_ended = True
        take(None)


class Host:
    """The processes of one run and their common history."""

    def __init__(self, program):
        self.program = program
        self.folder = tempfile.mkdtemp(prefix="rk-socket-crash-")
        self.events = []
        self.changed = threading.Condition()
        self.running = {}  # by role
        self.latest = {}  # the last event of each kind, by role
        self.answered = {}  # time of the last answered request, by role
        self.incarnations = {}
        self.disturbances = 0
        self.arguments = {}

    def note(self, kind, *args):
        """Adds an event of the host and returns its time."""
        event = Event(time.monotonic_ns(), "host", kind, tuple(map(str, args)))
        self._take(event)
        return event.time

    def _take(self, event):
        with self.changed:
            if event:
                self.events.append(event)
                name = role(event.process)
                self.latest[name, event.kind] = event
                if event.kind in ASKED_BY:
                    self.answered[name] = self.latest_time(name, ASKED_BY[event.kind])
            self.changed.notify_all()

    def wait_until(self, holds, patience=PATIENCE):
        """Waits until `holds()` is true. Checks it after every event. Returns False if the time runs out."""
        with self.changed:
            return self.changed.wait_for(holds, patience)

    def latest_time(self, name, kind):
        event = self.latest.get((name, kind))
        return event.time if event else 0

    def is_latest(self, name, kind, process):
        """Returns whether the last event of the kind in the role is that of the process."""
        event = self.latest.get((name, kind))
        return event is not None and event.process == process

    def start(self, name, *arguments, prefix=()):
        """Starts a process in a role, and waits until it is ready, unless it is a closer."""
        self.arguments[name] = (arguments, prefix)
        number = self.incarnations[name] = self.incarnations.get(name, 0) + 1
        label = f"{name}#{number}"
        command = [*prefix, self.program, name.partition("-")[0], label, *map(str, arguments)]
        process = self.running[name] = Member(label, command, self._take)
        if name != "closer":
            began = self.wait_until(lambda: process.has_ended or self.is_latest(name, "ready", label))
            if not began or process.has_ended:
                raise RuntimeError(f"{label} does not start")
        return process

    def restart(self, name):
        arguments, prefix = self.arguments[name]
        return self.start(name, *arguments, prefix=prefix)

    def signal(self, name, number):
        self.running[name].signal(number)

    def kill(self, name):
        self.signal(name, signal.SIGKILL)
        self.end(name, expected=-signal.SIGKILL)

    def end(self, name, expected=0):
        """Asks a process to end, and waits until it has ended and its output has been read."""
        process = self.running.pop(name)
        process.close_input()
        status = process.wait()
        process.reader.join(PATIENCE)
        process.process.stdout.close()
        self.note("exit", process.label, status, "expected" if status == expected else "unexpected")

    @contextlib.contextmanager
    def disturbance(self, kind, target):
        """Records the begin and the end of a disturbance of a role."""
        self.disturbances += 1
        number = self.disturbances
        self.note("begin", number, kind, target)
        yield
        self.note("end", number)

    def close(self):
        """Ends all processes."""
        with self.disturbance("restart", "network"):
            for name in list(self.running):
                self.signal(name, signal.SIGCONT)
                self.end(name)
        shutil.rmtree(self.folder, ignore_errors=True)
