"""The limits of the machine. Each causes the documented error, and the library recovers once the cause is removed."""

import contextlib
import os
import pathlib
import re
import resource
import signal
import subprocess
import tempfile
import unittest

import field
import zmtp
from field import fresh_endpoint, open_socket

NOBODY = 65534
needs_root = unittest.skipUnless(os.geteuid() == 0, "only root can set this up")


def refused(reason):
    return f"Socket: Failed connecting/binding socket: {reason} on [Socket own]"


def too_many(number, name="own"):
    """Returns the message of a failed creation. 3 is a reply socket and 4 a request socket."""
    return f"Socket: Failed creating socket [Socket {name}] of type {number}: Too many open files on [Socket {name}]"


class Limits(field.TestCase):
    def setUp(self):
        super().setUp()
        self.peer = self.enter(field.peer())

    def ask(self, line):
        return self.peer.ask(line)

    def assert_refuses(self, text, line):
        self.assert_refused(text, self.peer, line)

    def can(self, line):
        try:
            self.ask(line)
        except field.Refused:
            return False
        return True

    def allow(self, count):
        """Occupies `count` file descriptors."""
        hard = resource.prlimit(self.peer.pid, resource.RLIMIT_NOFILE)[1]
        resource.prlimit(self.peer.pid, resource.RLIMIT_NOFILE, (count, hard))

    def open(self, name, pattern, endpoint, **options):
        open_socket(self.peer, name, pattern, endpoint, **options)

    def create(self, name, pattern):
        self.ask(f"open {name} 0")
        self.ask(f"create {name} {pattern}")

    def assert_logs_a_failed_reset(self):
        self.assertIn(f"[error] [Socket own]: Error resetting socket: {too_many(4)}", self.peer.logged())

    def assert_exchanges(self, client, server):
        self.ask(f"send {client} 01")
        self.assertEqual("1 01", self.ask(f"receive {server} 10"))
        self.ask(f"send {server} 02")
        self.assertEqual("1 02", self.ask(f"receive {client} 10"))


class Descriptors(Limits):
    """Exhausts the file descriptors and releases some."""

    def leave_none(self):
        """Sets the limit to 3. Open descriptors stay open, and no new one is available even if ZeroMQ closes some."""
        self.allow(3)

    def leave_enough(self):
        self.allow(1024)

    def test_creating_fails_until_there_are_some(self):
        self.create("other", "req")
        self.ask("open own 0")
        self.leave_none()
        self.assert_refuses(too_many(3), "create own rep")
        self.leave_enough()
        self.ask("create own rep")

    def test_binding_fails_until_there_are_some(self):
        for transport in ("tcp", "ipc"):
            endpoint = fresh_endpoint(transport)
            with self.subTest(transport), field.peer() as self.peer:
                self.create("own", "rep")
                self.leave_none()
                self.assert_refuses(refused("Too many open files"), f"connect own {endpoint} 0")
                self.leave_enough()
                self.open("own", "rep", endpoint)
                self.open("client", "req", endpoint)
                self.assert_exchanges("client", "own")

    def test_connecting_waits_until_there_are_some(self):
        for transport in ("tcp", "ipc"):
            endpoint = fresh_endpoint(transport)
            with self.subTest(transport), field.peer() as self.peer:
                self.open("server", "rep", endpoint)
                self.create("own", "req")
                self.leave_none()
                self.ask(f"connect own {endpoint} 20000")
                self.ask("send own 01")
                self.assertEqual("1 ", self.ask("poll server 300"))
                self.leave_enough()
                self.assertEqual("1 01", self.ask("receive server 10"))

    def test_a_server_serves_whom_it_has_and_takes_others_when_there_are_some(self):
        endpoint = fresh_endpoint("tcp")
        self.open("server", "rep", endpoint)
        self.ask("serve server 100")
        old = self.enter(zmtp.joined(endpoint, b"REQ"))
        self.leave_none()
        new = self.enter(zmtp.connection(endpoint))
        for _ in range(100):
            old.sendall(zmtp.request(b"ab"))
            self.assertEqual(zmtp.request(b"ba"), zmtp.receive_exactly(old, 6))
        new.sendall(zmtp.greeting() + zmtp.ready(b"REQ"))
        new.settimeout(0.2)
        with self.assertRaises(TimeoutError):
            new.recv(1)
        new.settimeout(field.PATIENCE)
        self.leave_enough()
        zmtp.await_joined(new)
        new.sendall(zmtp.request(b"cd"))
        self.assertEqual(zmtp.request(b"dc"), zmtp.receive_exactly(new, 6))

    def test_a_socket_that_cannot_be_rebuilt_is_closed_and_can_be_created_later(self):
        endpoint = fresh_endpoint("tcp")
        self.open("own", "req", endpoint, policy="WaitForDelivery")
        self.ask("send own 01")
        self.leave_none()
        self.assert_refuses("Send error: Socket operation on non-socket on [Socket own]", "send own 02")
        self.assert_logs_a_failed_reset()
        self.assert_refuses("Socket: Cannot send on a NULL socket", "send own 02")
        self.leave_enough()
        self.open("server", "rep", endpoint)
        self.assertEqual("1 01", self.ask("receive server 10"))
        self.open("own", "req", endpoint)
        self.ask("send server 03")
        self.assert_exchanges("own", "server")


class Sockets(Limits):
    """ZeroMQ's 1,023 sockets."""

    def use_up(self):
        """Opens all sockets that are left and returns their number."""
        for count in range(2000):
            self.ask(f"open {count} 0")
            try:
                self.ask(f"create {count} rep")
            except field.Refused as refusal:
                self.assertEqual(too_many(3, count), str(refusal))
                return count
        raise AssertionError("there is no end of them")

    def test_are_refused_when_they_are_used_up_and_had_again_when_one_is_closed(self):
        self.allow(4096)
        self.assertEqual(1023, self.use_up())
        self.ask("close 5")
        self.assertTrue(field.wait_until(lambda: self.can("create 1023 rep")))
        self.assertFalse(self.can("create 5 rep"))


class Paths(Limits):
    """IPC paths that cannot be bound."""

    def bind(self, path):
        self.create("own", "rep")
        self.ask(f"connect own ipc://{path} 1000")

    def assert_serves(self, path):
        self.bind(path)
        self.open("client", "req", f"ipc://{path}")
        self.assert_exchanges("client", "own")

    def assert_serves_after(self, repair, path, reason):
        """Expects the bind to fail for this reason until the cause is removed."""
        with self.assertRaises(field.Refused) as caught:
            self.bind(path)
        self.assertEqual(refused(reason), str(caught.exception))
        repair()
        self.assert_serves(path)

    def test_of_107_bytes_are_the_longest(self):
        path = str(field.folder() / "x").ljust(107, "x")
        with self.assertRaisesRegex(field.Refused, re.escape(refused("File name too long"))):
            self.bind(path + "x")
        self.assert_serves(path)

    def test_in_a_missing_folder_can_be_bound_when_it_is_there(self):
        folder = field.folder() / "missing"
        self.assert_serves_after(folder.mkdir, folder / "s", "No such file or directory")

    def test_that_are_folders_can_be_bound_when_they_are_gone(self):
        folder = field.folder() / "taken"
        folder.mkdir()
        self.assert_serves_after(folder.rmdir, folder, "Address already in use")

    def test_with_a_stale_socket_file_are_taken_over(self):
        path = field.folder() / "stale"
        dead = field.peer()
        self.addCleanup(dead.close)
        open_socket(dead, "own", "rep", f"ipc://{path}")
        dead.kill()
        self.assertTrue(path.is_socket())
        self.assert_serves(path)

    def test_replace_a_file_of_any_kind(self):
        path = field.folder() / "file"
        path.write_text("mine")
        self.assert_serves(path)
        self.assertTrue(path.is_socket())

    @contextlib.contextmanager
    def mounted(self, options):
        """A separate file system. Other running tests see it too, which does not affect them."""
        folder = pathlib.Path(tempfile.mkdtemp(dir=field.folder()))
        subprocess.run(["mount", "-t", "tmpfs", "-o", options, "tmpfs", folder], check=True)
        try:
            yield folder
        finally:
            subprocess.run(["umount", "--lazy", folder], check=True)

    @needs_root
    def test_in_a_read_only_folder_can_be_bound_when_it_is_writable(self):
        with self.mounted("ro") as folder:
            def repair():
                subprocess.run(["mount", "-o", "remount,rw", folder], check=True)

            self.assert_serves_after(repair, folder / "s", "Read-only file system")

    @needs_root
    def test_in_a_full_folder_can_be_bound_when_there_is_room(self):
        with self.mounted("nr_inodes=2") as folder:
            filler = folder / "filler"
            filler.touch()
            self.assert_serves_after(filler.unlink, folder / "s", "No space left on device")

    @needs_root
    def test_in_a_folder_of_another_user_can_be_bound_when_it_is_opened(self):
        folder = field.folder() / "private"
        folder.mkdir(mode=0o755)
        self.peer = self.enter(field.peer(user=NOBODY))
        self.assert_serves_after(lambda: folder.chmod(0o777), folder / "s", "Permission denied")


class Ports(Limits):
    @needs_root
    def test_below_1024_can_be_bound_when_the_machine_permits_it(self):
        self.peer = self.enter(field.peer(through=["unshare", "--net", "--setuid", str(NOBODY)]))
        self.create("own", "rep")
        self.assert_refuses(refused("Permission denied"), "connect own tcp://127.0.0.1:80 0")
        namespace = f"--net=/proc/{self.peer.pid}/ns/net"
        setting = "net.ipv4.ip_unprivileged_port_start=80"
        subprocess.run(["nsenter", namespace, "sysctl", "-qw", setting], check=True)
        self.open("own", "rep", "tcp://127.0.0.1:80")

    def test_of_another_process_can_be_bound_when_they_are_free(self):
        endpoint = fresh_endpoint("tcp")
        with field.peer() as other:
            open_socket(other, "own", "rep", endpoint)
            self.create("own", "rep")
            self.assert_refuses(refused("Address already in use"), f"connect own {endpoint} 0")
        self.open("own", "rep", endpoint)


class Repetitions(Limits):
    """Repeated requests to a server that does not exist. Each rebuilds the socket."""

    def setUp(self):
        super().setUp()
        self.allow(4096)

    def repeat(self, times):
        self.ask(f"repeat {times} send own 01")

    def footprint(self):
        return field.descriptors(self.peer.pid), field.resident_megabytes(self.peer.pid)

    def note_growth(self, times, before):
        descriptors, megabytes = self.footprint()
        self.note(f"{times} rebuilds took {descriptors - before[0]} descriptors and "
                  f"{1024 * (megabytes - before[1]) / times:.1f} KB each")

    def use_up(self, endpoint, policy):
        """Retries until no socket is left. Returns the number of retries."""
        self.open("own", "req", endpoint, policy=policy)
        self.repeat(20)
        before = self.footprint()
        with self.assertRaises(field.Refused) as caught:
            self.repeat(2000)
        count, _, text = str(caught.exception).removeprefix("after ").partition(": ")
        self.assertEqual("Send error: Socket operation on non-socket on [Socket own]", text)
        self.note_growth(int(count), before)
        self.assert_logs_a_failed_reset()
        self.assert_refuses(too_many(4), "create own req")
        return 20 + int(count) - 1

    def repeat_and_settle(self, times, descriptors):
        """Retries in groups of a hundred, because ZeroMQ releases sockets in the background."""
        for _ in range(times // 100):
            self.repeat(100)
            self.assertTrue(field.wait_until(lambda: field.descriptors(self.peer.pid) <= descriptors))

    def assert_flat(self, endpoint):
        self.open("own", "req", endpoint, policy="DropPending")
        self.ask("send own 01")
        descriptors = field.descriptors(self.peer.pid) + 2  # a new connection and its timer
        self.repeat_and_settle(1000, descriptors)
        before = self.footprint()
        self.repeat_and_settle(3000, descriptors)
        self.note_growth(3000, before)
        self.assertLess(self.footprint()[1] - before[1], 5)  # sockets that were never released would take 45

    def test_with_drop_pending_take_nothing(self):
        for transport in ("tcp", "ipc"):
            with self.subTest(transport), field.peer() as self.peer:
                self.allow(4096)
                self.assert_flat(fresh_endpoint(transport))

    def test_with_linger_two_seconds_use_up_the_sockets_for_two_seconds(self):
        endpoint = fresh_endpoint("tcp")
        self.assertEqual(1022, self.use_up(endpoint, "LingerTwoSeconds"))
        self.assertTrue(field.wait_until(lambda: self.can("create own req"), patience=4))

    def test_with_linger_two_seconds_and_a_pause_take_as_many_sockets_as_there_are_pauses_in_two_seconds(self):
        self.open("own", "req", fresh_endpoint("tcp"), policy="LingerTwoSeconds")
        self.ask("send own 01")
        before = field.descriptors(self.peer.pid)
        most = 0
        for _ in range(60):
            self.assertEqual("1 ", self.ask("poll own 50"))
            self.ask("send own 01")
            most = max(most, field.descriptors(self.peer.pid) - before)
        self.note(f"{most} descriptors at most, with 50 ms between repetitions")
        self.assertLessEqual(most, 2000 / 50 + 5)

    def test_with_wait_for_delivery_use_up_the_sockets_until_the_server_comes(self):
        endpoint = fresh_endpoint("tcp")
        count = self.use_up(endpoint, "WaitForDelivery")
        self.assertEqual(1022, count)
        with field.peer() as server:
            open_socket(server, "own", "rep", endpoint)
            for _ in range(1 + count):  # the first request and its retries
                self.assertEqual("1 01", server.ask("receive own 10"))
                server.ask("send own 02")
            self.assertTrue(field.wait_until(lambda: self.can("create own req")))
            self.ask(f"connect own {endpoint} 20000")
            self.ask("send own 03")
            self.assertEqual("1 03", server.ask("receive own 10"))

    def test_are_not_needed_with_wait_for_delivery_where_receiving_again_takes_nothing(self):
        endpoint = fresh_endpoint("tcp")
        self.open("own", "req", endpoint, policy="WaitForDelivery", timeout=1)
        self.ask("send own 01")
        text = "Receive error: Resource temporarily unavailable on [Socket own]"
        for _ in range(100):
            self.assert_refuses(text, "receive own 10")
        before = field.descriptors(self.peer.pid)
        for _ in range(1000):
            self.assert_refuses(text, "receive own 10")
        self.assertEqual(before, field.descriptors(self.peer.pid))
        with field.peer() as server:
            open_socket(server, "own", "rep", endpoint)
            self.assertEqual("1 01", server.ask("receive own 10"))
            server.ask("send own 02")
            self.assertEqual("0 ", self.ask("poll own 20000"))
            self.assertEqual("1 02", self.ask("receive own 10"))
            self.assertEqual("1 ", server.ask("poll own 100"))

    def test_over_inproc_to_a_name_that_nobody_binds_use_up_the_sockets_for_good_and_abort_the_exit(self):
        self.peer = field.peer()
        self.addCleanup(self.peer.close)
        self.allow(4096)
        self.assertEqual(1022, self.use_up("inproc://nobody", "DropPending"))
        self.ask("close own")
        self.assertFalse(field.wait_until(lambda: self.can("create own req"), patience=0.5))
        self.assertEqual(-signal.SIGABRT, self.peer.end())
