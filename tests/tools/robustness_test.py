"""The tool reports every loss, and no peer, file or command makes it hang."""

import fcntl
import os
import re
import resource
import signal
import socket
import struct
import subprocess
import termios
import threading
import unittest

from harness import TOOL, Terminal, ToolTest, free_port, zmq

import zmtp


class Stuck(ToolTest):
    def stuck_push(self, *options):
        """Returns a push whose peer reads nothing. The message is longer than the system's buffers."""
        endpoint = "tcp://127.0.0.1:%d" % free_port()
        block = self.write_file("block", bytes(1 << 25))
        push = self.start_open("push", endpoint, "--file", block, "--fifo", "1", *options)
        peer = zmtp.joined(endpoint, b"PULL")
        self.addCleanup(peer.close)
        peer.recv(1)
        return push


class Publishing(Stuck):
    def test_a_fast_pipe_loses_nothing(self):
        # Far more than the queues of both sides hold.
        number = 30000
        endpoint = "tcp://127.0.0.1:%d" % free_port()
        subscriber = self.subscriber(endpoint, rcvhwm=10, rcvbuf=4096)
        pub = self.start_shell("seq 1 %d | rk-socket pub tcp://*:%s --wait 1 --fifo 10" % (number, endpoint.rsplit(":", 1)[1]))

        self.assertEqual([b"%d" % index for index in range(1, number + 1)], [subscriber.recv() for _ in range(number)])
        self.assertEqual((0, b"", ""), pub.end())

    def full(self, *options):
        """Returns a pub whose only subscriber reads nothing."""
        return self.start_pub("x" * 10000, "--count", "2000", "--fifo", "1", *options, rcvhwm=1)

    def test_what_is_live_is_dropped_and_reported(self):
        pub, _ = self.full("--live", "--close-policy", "drop")
        status, output, errors = pub.end()

        self.assertEqual((1, b""), (status, output))
        self.assertRegex(errors, r"^rk-socket: dropped at least [1-9]\d* messages for peers whose queue was full\n$")

    def test_what_lingers_in_vain_is_reported(self):
        status, _, errors = self.stuck_push("--close-policy", "linger").end()

        self.assertEqual((1, "rk-socket: gave up after two seconds: the last messages have not been delivered to all\n"),
                         (status, errors))

    def test_a_signal_ends_the_wait_for_room(self):
        pub, subscriber = self.full()
        subscriber.recv()
        pub.signal(signal.SIGINT)

        self.assertIn(pub.end()[0], (130, 1))  # 1 if it also reports the loss of queued messages

    def test_a_signal_ends_the_wait_for_subscribers(self):
        pub = self.start_open("pub", self.fresh_endpoint(), "x", "--wait", "1")
        pub.signal(signal.SIGINT)

        self.assertEqual(130, pub.end()[0])


class Files(ToolTest):
    def test_a_file_that_is_no_socket_is_kept(self):
        path = self.write_file("file", b"data")

        for command in (["pub", "x"], ["rep", "--echo"], ["sub", "--bind"]):
            self.assertEqual((1, b"", "rk-socket: cannot listen on ipc://%s: the file exists and is no socket\n" % path),
                             self.run_tool(command[0], "ipc://" + path, *command[1:]))
        self.assertEqual(b"data", self.read_file("file"))

    def test_the_socket_file_is_removed_at_the_end(self):
        path = self.path("socket")
        self.run_tool("pub", "ipc://" + path, "x", "--delay", "0")

        self.assertFalse(os.path.exists(path))

    def test_the_socket_file_of_another_process_is_kept(self):
        path = self.path("socket")
        pub = self.start_open("pub", "ipc://" + path, "x", "--wait", "1")
        os.unlink(path)
        self.bound(zmq.PUB, "ipc://" + path)
        pub.signal(signal.SIGINT)
        pub.end()

        self.assertTrue(os.path.exists(path))

    def test_an_ignored_host_is_remarked_on(self):
        endpoint = "tcp://localhost:%d" % free_port()

        self.assertEqual((0, b"", "rk-socket: %s: listening on all interfaces, the host 'localhost' is ignored\n" % endpoint),
                         self.run_tool("pub", endpoint, "x", "--delay", "0"))


class Signals(Stuck):
    def test_two_at_once_are_one(self):
        sub, _ = self.start_sub("--stats", "--interval", "1000s")
        sub.signal(signal.SIGTERM)
        for _ in range(100):
            sub.process.send_signal(signal.SIGTERM)
            sub.process.send_signal(signal.SIGINT)
        status, output, errors = sub.end()

        self.assertEqual((0, ""), (status, errors))
        self.assertIn(b"in all, ", output)

    def test_another_one_later_kills(self):
        # After the first signal, it waits for its peer.
        push = self.stuck_push("--count", "0", "--close-policy", "wait")
        push.signal(signal.SIGTERM)
        while push.process.poll() is None:
            push.process.send_signal(signal.SIGINT)
            try:
                push.process.wait(0.01)
            except subprocess.TimeoutExpired:
                pass

        self.assertEqual(-signal.SIGINT, push.end()[0])

    def test_a_failure_counts_more_than_the_time(self):
        sub, publisher = self.start_sub("--max-size", "1", "--timeout", "2s")
        publisher.send(b"ab")

        self.assertEqual(1, sub.end()[0])


LIMITED = unittest.skipIf(os.environ.get("RK_SANITIZERS"), "a sanitizer needs more address space than the limit")


class Memory(ToolTest):
    @LIMITED
    def test_a_message_that_is_far_too_long_is_refused_and_the_next_one_taken(self):
        publisher, endpoint = self.bound(zmq.XPUB, "tcp://127.0.0.1:%d" % free_port())
        publisher.xpub_verboser = True
        sub = self.start("sub", endpoint, "--max-size", "1MiB", "--count", "1",
                         preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_AS, (1 << 29, 1 << 29)))
        self.await_subscriber(publisher)
        publisher.send(bytes(1 << 29))
        # The old connection may end after the new one begins.
        while publisher.recv() != b"\1":
            pass
        publisher.send(b"next")
        status, output, errors = sub.end()

        self.assertEqual((1, b"next\n"), (status, output))
        # A remark may follow if the publisher is too busy to answer.
        self.assertEqual("rk-socket: %s: connecting again, after the other side sent a message longer than --max-size 1048576 "
                         "or broke the protocol" % endpoint, errors.splitlines()[0])

    @LIMITED
    def test_a_recording_with_a_wrong_length_is_refused(self):
        header = b"rk-socket recording 1\n" + struct.pack("<QI", 0, 0x7FFFFFFF)
        path = self.write_file("recording", header)
        os.truncate(path, 3 << 30)  # a sparse file
        limit = {"preexec_fn": lambda: resource.setrlimit(resource.RLIMIT_AS, (1 << 30, 1 << 30))}
        reason = "damaged: message 1, at byte 22, has 2147483647 bytes, more than --max-size 67108864"

        for arguments, name in ((["--replay", path], path), (["--replay", "-"], "standard input")):
            with open(path, "rb") as file:
                pub = self.start("pub", self.fresh_endpoint(), "--delay", "0", *arguments, stdin=file, **limit)
                self.assertEqual((1, b"", "rk-socket: %s: %s\n" % (name, reason)), pub.end())

    def test_a_message_of_parts_without_end_is_refused(self):
        path = self.write_file("recording", b"rk-socket recording 1\n" + struct.pack("<QI", 0, 0x80000000) * 1000)

        self.assertEqual((1, b"", "rk-socket: %s: damaged: message 1, at byte 118, has 96 bytes, more than --max-size 90\n" % path),
                         self.run_tool("pub", self.fresh_endpoint(), "--delay", "0", "--replay", path, "--max-size", "90"))


class Commands(ToolTest):
    def ask(self, command, *options, requests=(b"hang", b"a")):
        return self.run_rep(requests, "--command", command, *options)

    def test_one_that_hangs_is_killed_and_the_next_request_served(self):
        fifo = self.path("fifo")
        os.mkfifo(fifo)  # it has no writer, so its reader waits until the tool kills it
        self.assertEqual(([b"", b"a"], (1, b"hang\na\n", "rk-socket: the command was killed, and the request answered with an "
                                                         "empty reply: it took longer than 100 ms\n")),
                         self.ask('read x; [ "$x" != hang ] || exec cat %s; printf "$x"' % fifo, "--command-timeout", "100ms"))

    def test_one_that_writes_without_end_is_killed(self):
        self.assertEqual(([b"", b"a"], (1, b"hang\na\n", "rk-socket: the command was killed, and the request answered with an "
                                                         "empty reply: it wrote more than 1000 bytes\n")),
                         self.ask('read x; [ "$x" != hang ] || yes; printf "$x"', "--command-output", "1000"))

    def test_processes_in_its_background_do_not_delay_the_reply(self):
        fifo = self.path("fifo")
        os.mkfifo(fifo)  # its reader waits until the test opens it
        replies, (status, output, _) = self.ask("printf before; cat %s 2>/dev/null &" % fifo, requests=(b"a",))
        open(fifo, "wb").close()

        self.assertEqual(([b"before"], 0, b"a\n"), (replies, status, output))


class Connections(ToolTest):
    """The output of probe, and the remarks of the other commands."""

    def remark(self, endpoint, command="sub", *options):
        """Returns the first line of standard error."""
        tool = self.start(command, endpoint, *options)
        line = tool.process.stderr.readline().decode()
        tool.signal(signal.SIGINT)
        tool.end()
        return line

    def both(self, endpoint, reason):
        self.assertEqual((1, b"", "rk-socket: %s: %s\n" % (endpoint, reason)), self.run_tool("probe", endpoint, "-t", "500ms"))
        self.assertEqual("rk-socket: %s: %s\n" % (endpoint, reason), self.remark(endpoint))

    def listener(self, serve):
        """Returns a server that is not a ZeroMQ socket and serves each connection with a function."""
        listening = socket.create_server(("127.0.0.1", 0))
        connections = []

        def loop():
            while True:
                try:
                    connection = listening.accept()[0]
                except OSError:
                    return
                connections.append(connection)
                serve(connection)

        thread = threading.Thread(target=loop)
        thread.start()
        self.addCleanup(thread.join)
        self.addCleanup(lambda: (listening.shutdown(socket.SHUT_RDWR), listening.close(), [c.close() for c in connections]))
        return "tcp://127.0.0.1:%d" % listening.getsockname()[1]

    def test_a_dead_port_is_named(self):
        self.both("tcp://127.0.0.1:%d" % free_port(), "nothing listens there: Connection refused")

    def test_a_missing_socket_file_is_named(self):
        self.both(self.fresh_endpoint(), "nothing listens there: No such file or directory")

    def test_a_wrong_host_name_is_named(self):
        status, _, errors = self.run_tool("probe", "tcp://no-such-host.invalid:1")

        self.assertEqual(1, status)
        self.assertRegex(errors, r"^rk-socket: tcp://no-such-host\.invalid:1: there is no host 'no-such-host\.invalid': .+\n$")

    def test_another_protocol_is_named(self):
        self.both(self.listener(lambda connection: connection.sendall(b"SSH-2.0-x\r\n") or connection.shutdown(socket.SHUT_WR)),
                  'something listens there that is no ZeroMQ socket: it says "SSH-2.0-x\\r\\n"')

    def test_a_silent_listener_is_named(self):
        self.both(self.listener(lambda connection: None),
                  "something listens there that is no ZeroMQ socket, or is stuck: it says nothing")

    def test_a_listener_that_hangs_up_is_named(self):
        self.both(self.listener(lambda connection: connection.recv(64) and connection.close()),
                  "something listens there that is no ZeroMQ socket: it closes the connection")

    def test_security_is_named(self):
        _, endpoint = self.bound(zmq.PUB, curve_server=True, curve_secretkey=zmq.curve_keypair()[1])

        self.both(endpoint, "the other side wants security of the kind CURVE")

    def test_the_type_of_the_socket_is_told(self):
        _, endpoint = self.bound(zmq.ROUTER)

        self.assertEqual((0, b"%s: ZMTP 3.1, mechanism NULL, a ROUTER socket\n" % endpoint.encode(), ""),
                         self.run_tool("probe", endpoint))
        self.assertEqual("rk-socket: %s: a ROUTER socket listens there, which does not talk to a subscriber\n" % endpoint,
                         self.remark(endpoint))
        self.assertEqual("rk-socket: %s: a ROUTER socket listens there, which does not talk to a PULL socket\n" % endpoint,
                         self.remark(endpoint, "pull"))

    @unittest.skipUnless(socket.has_dualstack_ipv6(), "the machine has no IPv6")
    def test_ipv6_is_used_and_its_lack_named(self):
        endpoint = "tcp://[::1]:%d" % free_port()
        self.start_open("pub", endpoint, "a", "--ipv6", "--listen-on", "::1", "--wait", "1")

        self.assertEqual((0, b"%s: ZMTP 3.1, mechanism NULL, a XPUB socket\n" % endpoint.encode(), ""),
                         self.run_tool("probe", endpoint))
        self.assertEqual("rk-socket: %s: IPv6 needs --ipv6\n" % endpoint, self.remark(endpoint))
        self.assertEqual((0, b"a\n", ""), self.run_tool("sub", endpoint, "--ipv6", "--count", "1"))

    def test_a_right_peer_that_follows_a_wrong_one_is_heard(self):
        wrong, endpoint = self.bound(zmq.REP, "tcp://127.0.0.1:%d" % free_port())
        sub = self.start("sub", endpoint, "--count", "1")
        self.assertIn("a REP socket listens there", sub.process.stderr.readline().decode())
        wrong.close(0)
        publisher = self.peer(zmq.XPUB)
        while True:
            try:
                publisher.bind(endpoint)
                break
            except zmq.ZMQError:
                pass
        self.await_subscriber(publisher)
        publisher.send(b"a")

        self.assertEqual((0, b"a\n"), sub.end()[:2])


class OnATerminal(ToolTest):
    def statistics(self, *options, environment=None):
        return self.show_sub("--stats", "--interval", "20ms", "--count", "1", *options, environment=environment)

    def test_an_error_does_not_overdraw_the_statistics(self):
        terminal, publisher = self.statistics("--max-size", "1")
        terminal.read_until(b"\x1b[4A")
        publisher.send(b"ab")
        status, text = terminal.end()

        self.assertEqual(1, status)
        self.assertRegex(text, rb"\x1b\[4A\r\x1b\[J\x1b\[1;31mrk-socket:\x1b\[0m message 1, 2 bytes: [^\x1b]*\r\n\r\x1b\[Know: ")

    def test_a_dumb_terminal_gets_lines(self):
        terminal, publisher = self.statistics(environment={"TERM": "dumb"})
        publisher.send(b"a")
        status, text = terminal.end()

        self.assertEqual(0, status)
        self.assertNotIn(b"\x1b", text)
        self.assertIn(b"in all, ", text)

    def test_a_window_that_shrinks_is_cleared(self):
        terminal, publisher = self.statistics()
        terminal.read_until(b"\x1b[4A")
        fcntl.ioctl(terminal.master, termios.TIOCSWINSZ, struct.pack("HHHH", 40, 50, 0, 0))
        terminal.read_until(b"\x1b[H\x1b[J\r\x1b[Know: ")
        publisher.send(b"a")

        self.assertEqual(0, terminal.end()[0])

    def test_several_endpoints_share_a_table(self):
        publishers, names = zip(self.bound(zmq.XPUB), self.bound(zmq.XPUB))
        terminal = Terminal([TOOL, "sub", *names, "--stats", "--interval", "20ms", "--count", "3"])
        for publisher in publishers:
            self.await_subscriber(publisher)
        terminal.read_until(b"\x1b[3A")
        for number, publisher in enumerate(publishers, 1):
            for _ in range(number):
                publisher.send(b"x" * 10 * number)
        status, text = terminal.end()

        self.assertEqual(0, status)
        last = text.split(b"\x1b[3A")[-1].decode()
        for number, name in enumerate(names, 1):
            self.assertRegex(last, r"%s +%d +\d+\.\d +\d+\.\d{3} +%d/%d\.0/%d" % (re.escape(name), number, *[10 * number] * 3))
        self.assertRegex(text.decode(), "[▁▂▃▄▅▆▇█]+")


class Statistics(ToolTest):
    def test_of_several_endpoints_have_a_line_each(self):
        publishers, names = zip(self.bound(zmq.XPUB), self.bound(zmq.XPUB))
        sub = self.start("sub", *names, "--stats", "--interval", "1000s", "--count", "1")
        for publisher in publishers:
            self.await_subscriber(publisher)
        publishers[1].send(b"a")
        lines = sub.end()[1].decode().splitlines()

        self.assertRegex(lines[0], r"^in all, \d+\.\d s %s: 0 messages, " % re.escape(names[0]))
        self.assertRegex(lines[1], r"^in all, \d+\.\d s %s: 1 messages, " % re.escape(names[1]))


if __name__ == "__main__":
    unittest.main()
