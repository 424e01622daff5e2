"""Common code of the field tests: programs driven through a pipe, unused addresses, and the resources of a process."""

import contextlib
import os
import pathlib
import random
import re
import resource
import sys
import tempfile
import time
import unittest

sys.path.append(str(pathlib.Path(__file__).resolve().parents[2] / "python"))
from ports import free_port  # noqa: E402
from processes import PATIENCE, Process  # noqa: E402

# Makes the allocator return freed memory, so that the resident memory shows the memory in use.
FRUGAL = {"MALLOC_ARENA_MAX": "1", "MALLOC_MMAP_THRESHOLD_": "4096", "MALLOC_TRIM_THRESHOLD_": "4096"}
POLICIES = {"DropPending": 0, "LingerTwoSeconds": 1, "WaitForDelivery": 2}
BUILD = pathlib.Path(os.environ["RK_FIELD_BUILD"])
MESSAGES = pathlib.Path(__file__).parent.parent.parent / "support/messages.proto"


class Refused(Exception):
    """Raised if a program answers "error"."""


class Program(Process):
    """A program that answers every line with one that begins with "ok" or "error". It must exit with status 0."""

    def __init__(self, command, **options):
        self.log = tempfile.TemporaryFile("w+")
        super().__init__(command, stderr=self.log, **options)

    def ask(self, line, patience=PATIENCE):
        self.write(line.encode() + b"\n")
        try:
            answer = self.read_line(patience)
        except TimeoutError:
            raise TimeoutError(f"no answer to {line[:80]}\n{self.logged()}") from None
        if answer is None:
            raise EOFError(f"ended with {self.wait()} on {line[:80]}\n{self.logged()}")
        word, _, text = answer.decode().partition(" ")
        if word != "ok":
            raise Refused(text)
        return text

    def logged(self):
        """Returns the log so far. Does not move the program's write position."""
        return os.pread(self.log.fileno(), os.fstat(self.log.fileno()).st_size, 0).decode()

    def close(self):
        """Ends the program. Returns its exit status and its log."""
        with self.log:
            return self.end(), self.logged()

    def __enter__(self):
        return self

    def __exit__(self, kind, *_):
        status, log = self.close()
        if kind is None and status != 0:
            raise AssertionError(f"it ended with {status}\n{log}")


def peer(through=(), **options):
    """The library, driven through a pipe. The command `through` starts it, if given."""
    return Program([*through, os.environ["RK_FIELD_PEER"]], env={**os.environ, **FRUGAL}, **options)


def words_of(block):
    return block.hex() or "-"


def bytes_of(word):
    return b"" if word == "-" else bytes.fromhex(word)


def open_socket(program, name, pattern, endpoint, policy="DropPending", timeout=1000 * PATIENCE, queue=None):
    program.ask(f"open {name} {POLICIES[policy]}")
    program.ask(f"create {name} {pattern}")
    if queue is not None:
        program.ask(f"queue {name} {queue}")
    program.ask(f"connect {name} {endpoint} {timeout}")


_folder = None


def folder():
    """Returns a folder for socket files, which is removed at exit."""
    global _folder
    if _folder is None:
        _folder = tempfile.TemporaryDirectory(prefix="rk-field-")
        os.chmod(_folder.name, 0o755)
    return pathlib.Path(_folder.name)


def write_file(name, lines):
    """Writes a file that only its owner can access, and returns its path."""
    path = folder() / name
    path.touch(mode=0o600)
    path.write_bytes(b"".join(line + b"\n" for line in lines))
    return path


def secure(program, keys, trusted):
    """Encrypts the connections of a program of the library. `trusted` has the lines about its peers."""
    name = f"{program.pid}"
    program.ask(f"secure {write_file(name + '.key', keys)} {write_file(name + '.trusted', trusted)}")


def fresh_endpoint(transport):
    if transport == "tcp":
        return f"tcp://127.0.0.1:{free_port()}"
    return f"ipc://{folder()}/{len(os.listdir(folder()))}-{random.getrandbits(32):08x}"


def resident_megabytes(pid):
    pages = int(pathlib.Path(f"/proc/{pid}/statm").read_text().split()[1])
    return pages * resource.getpagesize() / 2**20


def forget_peak(pid):
    """Restarts `peak_megabytes`."""
    pathlib.Path(f"/proc/{pid}/clear_refs").write_text("5")


def peak_megabytes(pid):
    status = pathlib.Path(f"/proc/{pid}/status").read_text()
    return int(re.search(r"VmHWM:\s+(\d+) kB", status).group(1)) / 2**10


def descriptors(pid):
    return len(os.listdir(f"/proc/{pid}/fd"))


def wait_until(condition, patience=PATIENCE):
    """Polls until `condition` holds, for example the resources of another process, which cause no event."""
    deadline = time.monotonic() + patience
    while not condition():
        if time.monotonic() > deadline:
            return False
        time.sleep(0.005)
    return True


def allow_many_descriptors():
    hard = resource.getrlimit(resource.RLIMIT_NOFILE)[1]
    resource.setrlimit(resource.RLIMIT_NOFILE, (hard, hard))


class TestCase(unittest.TestCase):
    def setUp(self):
        self.stack = contextlib.ExitStack()
        self.addCleanup(self.stack.close)

    def enter(self, context):
        return self.stack.enter_context(context)

    def note(self, text):
        """Prints a figure for scripts/prove figures."""
        print(f"figure: {self.id()}: {text}", flush=True)

    def assert_refused(self, text, program, line):
        with self.assertRaises(Refused) as caught:
            program.ask(line)
        self.assertEqual(text, str(caught.exception))
