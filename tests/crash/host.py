"""Starts, kills and freezes processes, and gathers what they write down."""

import os
import selectors
import shutil
import signal
import subprocess
import tempfile
import threading
import time

from history import Event, parse, role

PATIENCE = 20  # seconds; what has not come by then does not come


class Host:
    """The processes of one run and the history that they write together."""

    def __init__(self, program):
        self.program = program
        self.folder = tempfile.mkdtemp(prefix="rk-socket-crash-")
        self.events = []
        self.changed = threading.Condition()
        self.running = {}  # by role
        self.latest = {}  # the last event of each kind, by role
        self.answered = {}  # when the last request of a role was sent that has been answered
        self.incarnations = {}
        self.disturbances = 0
        self.arguments = {}
        self.selector = selectors.DefaultSelector()
        self.wake, self.waken = os.pipe()
        self.selector.register(self.wake, selectors.EVENT_READ)
        self.reader = threading.Thread(target=self._read, daemon=True)
        self.reader.start()

    # What happens

    def note(self, kind, *args):
        """Adds an event of the host's own, and returns its time."""
        event = Event(time.monotonic_ns(), "host", kind, tuple(map(str, args)))
        self._add([event])
        return event.time

    def _add(self, events):
        with self.changed:
            for event in events:
                self.events.append(event)
                name = role(event.process)
                self.latest[name, event.kind] = event
                if event.kind == "reply":
                    self.answered[name] = self.latest_time(name, "ask")
            self.changed.notify_all()

    def wait_until(self, holds, patience=PATIENCE):
        """Whether it holds in time; looked at whenever something happens."""
        with self.changed:
            return self.changed.wait_for(holds, patience)

    def latest_time(self, name, kind):
        event = self.latest.get((name, kind))
        return event.time if event else 0

    def is_latest(self, name, kind, process):
        """Whether the last event of the kind in the role is that of the process."""
        event = self.latest.get((name, kind))
        return event is not None and event.process == process

    def _read(self):
        rest = {}
        while True:
            for key, _ in self.selector.select():
                block = os.read(key.fd, 1 << 16)
                if key.fd == self.wake:
                    if not block:
                        return
                    continue
                if not block:
                    self.selector.unregister(key.fileobj)
                    key.fileobj.close()
                    key.data.set()
                    continue
                *lines, rest[key.fd] = (rest.get(key.fd, b"") + block).split(b"\n")
                self._add([parse(line.decode()) for line in lines])

    # Processes

    def start(self, name, *arguments, prefix=()):
        """Starts a process in a role, "client-2" for instance, and waits until it is ready, unless it is a closer."""
        self.arguments[name] = (arguments, prefix)
        number = self.incarnations[name] = self.incarnations.get(name, 0) + 1
        command = [*prefix, self.program, name.partition("-")[0], f"{name}#{number}", *map(str, arguments)]
        process = subprocess.Popen(command, stdout=subprocess.PIPE, stdin=subprocess.DEVNULL)
        process.label = f"{name}#{number}"
        process.read = threading.Event()
        self.running[name] = process
        self.selector.register(process.stdout, selectors.EVENT_READ, process.read)
        os.write(self.waken, b".")
        if not name.startswith("closer"):
            began = self.wait_until(
                lambda: self.is_latest(name, "ready", process.label) or process.read.is_set()
            )
            if not began or process.read.is_set():
                raise RuntimeError(f"{process.label} does not start")
        return process

    def restart(self, name):
        arguments, prefix = self.arguments[name]
        return self.start(name, *arguments, prefix=prefix)

    def signal(self, name, number):
        os.kill(self.running[name].pid, number)

    def kill(self, name):
        self.signal(name, signal.SIGKILL)
        self.end(name, expected=-signal.SIGKILL)

    def stop(self, name):
        self.signal(name, signal.SIGTERM)
        self.end(name)

    def end(self, name, expected=0):
        """Waits until the process has ended and all that it has written is read; it is killed if it does not end."""
        process = self.running.pop(name)
        try:
            status = process.wait(PATIENCE)
        except subprocess.TimeoutExpired:
            process.kill()
            status = process.wait()
        process.read.wait(PATIENCE)
        self.note("exit", process.label, status, "expected" if status == expected else "unexpected")

    # What is done to them

    def disturb(self, kind, target):
        """Notes a disturbance, before it is made; the result is to be given to `calm` once it is over."""
        self.disturbances += 1
        self.note("begin", self.disturbances, kind, target)
        return self.disturbances

    def calm(self, disturbance):
        self.note("end", disturbance)

    def close(self):
        """Ends everybody, in any order."""
        self.disturb("restart", "network")
        for name in list(self.running):
            self.signal(name, signal.SIGCONT)
            self.stop(name)
        os.close(self.waken)
        self.reader.join()
        os.close(self.wake)
        shutil.rmtree(self.folder, ignore_errors=True)
