"""Hostile peers on a port that the library has bound. The library must not crash, leak, or stop serving other clients.
Its memory must stay within the limits that the application has set."""

import collections
import contextlib
import multiprocessing
import random
import socket
import statistics
import struct
import sys
import time
import timeit

import zmq

import field
import zmtp
from field import fresh_endpoint, open_socket, words_of

KILOBYTE = 1 << 10
MEGABYTE = 1 << 20
OUT_OF_TURN = "Send error: Operation cannot be accomplished in current state on [Socket own]"
QUESTION = b"\x00question"


class Hostile(field.TestCase):
    def setUp(self):
        super().setUp()
        field.allow_many_descriptors()
        self.endpoint = fresh_endpoint("tcp")
        self.victim = self.enter(field.peer())
        self.context = self.enter(zmq.Context())

    def serve(self):
        """Lets the victim reply to blocks on a separate thread."""
        self.open("rep")
        self.victim.ask(f"serve own {2 * MEGABYTE}")
        self.settle()

    def open(self, pattern, queue=None):
        open_socket(self.victim, "own", pattern, self.endpoint, queue=queue)
        self.descriptors = field.descriptors(self.victim.pid)

    def settle(self):
        """Makes a first exchange, whose memory is not a leak."""
        for _ in range(20):
            self.assert_serves()
        self.assertTrue(field.wait_until(self.all_have_left))

    def plain(self, pattern, timeout=1000 * field.PATIENCE):
        """Returns a normal ZeroMQ socket that is connected to the victim."""
        peer = self.bare(pattern)
        peer.rcvtimeo = peer.sndtimeo = timeout
        self.prepare(peer)
        peer.connect(self.endpoint)
        return peer

    def prepare(self, peer):
        """Sets the options of a normal socket before it connects."""

    def bare(self, pattern):
        peer = self.enter(contextlib.closing(self.context.socket(pattern)))
        peer.linger = 0
        return peer

    def assert_serves(self):
        """Expects a new client to get a reply to its first request."""
        with self.plain(zmq.REQ) as client:
            client.send(QUESTION)
            self.assertEqual(QUESTION[::-1], client.recv())

    def assert_serves_who_insists(self):
        """Retries, because each stray connection may have cost a reply, and some may still be queued."""
        self.assertTrue(any(self.serves(QUESTION) for _ in range(10)))

    def serves(self, question):
        """Returns whether a new client gets a reply in time."""
        with self.plain(zmq.REQ, timeout=2000) as client:
            client.send(question)
            with contextlib.suppress(zmq.Again):
                self.assertEqual(question[: 2 * MEGABYTE][::-1], client.recv())
                return True
        return False

    def resident(self):
        return field.resident_megabytes(self.victim.pid)

    def connections(self):
        """Returns the number of other connections to the victim."""
        return field.descriptors(self.victim.pid) - self.descriptors

    def all_have_left(self):
        return self.connections() <= 0

    def assert_bounded(self, megabytes, before):
        grown = self.resident() - before
        self.note(f"memory has grown by {grown:.1f} MB, at most {megabytes} allowed")
        self.assertLess(grown, megabytes)

    def assert_all_left(self):
        self.assertTrue(field.wait_until(self.all_have_left), f"{self.connections()} connections stay")

    def assert_does_not_add_up(self, attack, times=8, megabytes=2):
        """Expects that a typical attack uses no more memory than the one before.

        A leak adds to the memory each time. Fragments do so only when more connections are open at once than before,
        which depends on the load of the machine."""
        levels = []
        for _ in range(1 + times):
            attack()
            self.assert_all_left()
            levels.append(self.resident())
        added = statistics.median(after - before for before, after in zip(levels, levels[1:]))
        self.note(f"the median of {times} attacks has added {added:.3f} MB, less than {megabytes / times} allowed")
        self.assertLess(added, megabytes / times)


class Served(Hostile):
    """A victim that replies from the start."""

    def setUp(self):
        super().setUp()
        self.serve()

    def throw(self, blocks):
        for block in blocks:
            with zmtp.connection(self.endpoint) as bare:
                bare.sendall(block)

    def crowd(self, count, connect):
        """Waits sometimes until the victim has accepted all, because its backlog is a hundred."""
        crowd = []
        for number in range(1, count + 1):
            crowd.append(self.enter(connect(self.endpoint)))
            if number % 50 == 0:
                self.assertTrue(field.wait_until(lambda: self.connections() >= number))
        return crowd


class Greetings(Served):
    """Attacks before the first message."""

    def test_of_garbage_leave_nothing_behind_and_whoever_insists_served(self):
        dice = random.Random(5)
        self.assert_does_not_add_up(lambda: self.throw(dice.randbytes(dice.randrange(1, 1000)) for _ in range(300)))
        self.assert_serves_who_insists()

    def test_of_other_protocols_leave_whoever_insists_served(self):
        self.throw([b"GET / HTTP/1.1\r\nHost: rk\r\n\r\n", b"\x16\x03\x01\x02\x00\x01\x00\x01\xfc\x03\x03", b"EHLO rk\r\n"])
        self.assert_serves_who_insists()

    def test_of_every_version_are_taken_or_refused(self):
        for major in range(256):
            self.throw([zmtp.greeting((major, 0)) + zmtp.ready(b"REQ"), zmtp.greeting((major, 255))])
        self.assert_all_left()
        self.assert_serves_who_insists()

    def test_of_other_mechanisms_and_patterns_are_refused(self):
        wrong = [zmtp.greeting(mechanism=name) for name in (b"PLAIN", b"CURVE", b"GSSAPI", b"", b"\xff" * 20)]
        wrong += [zmtp.greeting(server=1) + zmtp.ready(b"REQ")]
        wrong += [zmtp.greeting() + zmtp.ready(name) for name in (b"PUSH", b"REP", b"SUB", b"", b"\xff" * 255)]
        wrong += [zmtp.greeting() + zmtp.frame(b"\x05READY" + bytes(300), zmtp.COMMAND)]
        self.throw(wrong)
        self.assert_all_left()
        self.assert_serves()

    def test_that_end_anywhere_leave_nothing_behind(self):
        whole = zmtp.greeting() + zmtp.ready(b"REQ") + zmtp.request(b"question")
        self.assert_does_not_add_up(lambda: self.throw(whole[:length] for length in range(len(whole))), times=20)
        self.assert_serves_who_insists()


class Connections(Served):
    """Attacks with connections that are made and misused."""

    @staticmethod
    def disperse(crowd):
        for bare in crowd:
            bare.close()

    def assert_leave_room(self, connect, rounds, megabytes):
        before = self.resident()
        for _ in range(rounds):
            crowd = self.crowd(2000, connect)
            self.assert_serves()
            self.assert_bounded(megabytes, before)
            self.disperse(crowd)
            self.assert_all_left()

    def test_of_two_thousand_that_say_nothing_leave_room_for_others(self):
        self.assert_leave_room(zmtp.connection, 1, 20)

    def test_of_two_thousand_that_are_joined_and_say_nothing_leave_room_for_others(self):
        self.assert_leave_room(zmtp.joined, 2, 100)

    def test_of_a_thousand_that_speak_byte_by_byte_leave_room_for_others(self):
        crowd = self.crowd(1000, zmtp.connection)
        for byte in zmtp.greeting()[:40]:
            for bare in crowd:
                bare.sendall(bytes([byte]))
            self.assert_serves()
        self.disperse(crowd)
        self.assert_all_left()

    def test_that_are_reset_leave_nothing_behind(self):
        def reset():
            for _ in range(500):
                bare = zmtp.connection(self.endpoint)
                bare.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
                bare.close()

        self.assert_does_not_add_up(reset, times=4)
        self.assert_serves()


class Encrypted(Served):
    """A victim that admits one key."""

    def serve(self):
        self.keys, own = zmq.curve_keypair(), zmq.curve_keypair()
        self.server_key = own[0]
        field.secure(self.victim, own, [self.keys[0] + b" trusted"])
        self.hello = zmtp.recorded_hello(self.server_key)
        self.dice = random.Random(10)
        super().serve()

    def prepare(self, peer):
        peer.curve_publickey, peer.curve_secretkey = self.keys
        peer.curve_serverkey = self.server_key

    def open_half(self, count, opening):
        """Returns connections that send only `opening`, once the victim has replied to each."""
        crowd = []
        for _ in range(count):
            crowd.append(self.enter(zmtp.connection(self.endpoint)))
            crowd[-1].sendall(opening)
            zmtp.receive_exactly(crowd[-1], len(zmtp.SIGNATURE))
        return crowd

    def flood(self, count):
        """Opens so many connections, 1,000 per second if the machine can: one half is untrusted, the other not encrypted.

        Returns how long trusted clients have waited meanwhile, in seconds: for a reply, and for one on a new connection."""
        process = multiprocessing.get_context("spawn").Process(target=flood, args=(self.endpoint, self.server_key, count))
        process.start()
        replies, connections = [], []
        with self.plain(zmq.REQ) as client:
            while process.is_alive():
                replies.append(timeit.timeit(lambda: client.send(QUESTION) or client.recv(), number=1))
                connections.append(timeit.timeit(self.assert_serves, number=1))
        process.join()
        self.assertEqual(0, process.exitcode)
        return replies, connections

    def throw_garbage(self):
        greeting = zmtp.greeting(mechanism=b"CURVE")
        openings = [b"", zmtp.greeting(), greeting, greeting + zmtp.frame(b"\x05HELLO" + bytes(194), zmtp.COMMAND), self.hello]
        garbage = self.dice.randbytes
        self.throw(self.dice.choice(openings) + garbage(self.dice.randrange(1, 1000)) for _ in range(300))

    def assert_few_lines(self, minutes):
        """Two lines a minute tell of refused clients: that of the address, and the total. Returns their number."""
        lines = self.victim.logged().count("Security: Refused")
        self.assertGreater(lines, 0)
        self.assertLessEqual(lines, 2 * (minutes + 1))
        return lines


def flood(endpoint, server_key, count):
    """Exits with 1 if a message passes."""
    context = zmq.Context()
    context.max_sockets = count + 1  # ZeroMQ closes in the background
    keys = zmq.curve_keypair()
    clients = collections.deque()
    begin = time.monotonic()
    for number in range(count):
        client = context.socket(zmq.REQ)
        client.linger = 0
        if number % 2:
            client.curve_publickey, client.curve_secretkey = keys
            client.curve_serverkey = server_key
        client.connect(endpoint)
        client.send(QUESTION)
        clients.append(client)
        if len(clients) > 500:
            leave(clients.popleft())
        time.sleep(max(0.0, begin + number / 1000 - time.monotonic()))
    for client in clients:
        leave(client)


def leave(client):
    if client.poll(0):
        sys.exit(1)
    client.close()


class Handshakes(Encrypted):
    """Handshakes of untrusted clients, and unfinished handshakes."""

    def test_that_never_finish_leave_room_for_others_and_end(self):
        before = self.resident()
        for opening in (b"", zmtp.greeting(mechanism=b"CURVE"), self.hello):
            self.open_half(1000, opening)
            self.assert_serves()
            self.assert_bounded(50, before)
            self.assert_all_left()

    def test_of_garbage_leave_nothing_behind(self):
        self.assert_does_not_add_up(self.throw_garbage)
        self.assert_serves()

    def test_of_the_untrusted_by_the_thousand_cost_little(self):
        before = self.resident()
        replies, connections = self.flood(3000)
        self.assert_bounded(30, before)
        self.assertLess(statistics.median(replies), 0.1)
        self.assertLess(max(connections), 5)
        lines = self.assert_few_lines(minutes=1)
        self.note(f"3,000 clients that are not trusted in {lines} lines, meanwhile a reply took "
                  f"{in_milliseconds(replies)}, and {in_milliseconds(connections)} on a new connection")


def in_milliseconds(seconds):
    return f"{1000 * statistics.median(seconds):.1f} ms, at most {1000 * max(seconds):.1f} ms"


class Frames(Hostile):
    """Messages that violate the protocol, or belong to other patterns."""

    def test_that_claim_to_be_huge_take_no_memory(self):
        self.serve()
        before = self.resident()
        for length in (1 << 32, 1 << 34, 1 << 40, (1 << 63) - 1, (1 << 64) - 1):
            with zmtp.joined(self.endpoint) as bare:
                bare.sendall(zmtp.frame(b"", zmtp.MORE) + zmtp.claim(length) + bytes(100))
                self.assert_serves()
        self.assert_bounded(3, before)
        self.assert_all_left()

    def test_of_200_megabytes_beyond_the_limit_cost_neither_memory_nor_service(self):
        self.victim.ask(f"limit {MEGABYTE}")
        self.serve()
        before = self.resident()
        field.forget_peak(self.victim.pid)
        for _ in range(8):
            with zmtp.joined(self.endpoint) as bare, self.assertRaises(ConnectionError):
                bare.sendall(zmtp.frame(b"", zmtp.MORE) + zmtp.claim(200 * MEGABYTE))
                for _ in range(200):
                    self.assert_serves()
                    bare.sendall(bytes(MEGABYTE))
        self.assert_all_left()
        grown = field.peak_megabytes(self.victim.pid) - before
        self.note(f"memory has grown by {grown:.1f} MB at most")
        self.assertLess(grown, 2)

    def test_with_every_flag_and_garbage_behind_leave_nothing_behind(self):
        self.serve()
        dice = random.Random(6)

        def throw():
            for flags in range(256):
                with zmtp.joined(self.endpoint) as bare:
                    bare.sendall(zmtp.frame(b"", flags) + dice.randbytes(100))

        self.assert_does_not_add_up(throw)
        self.assert_serves_who_insists()

    def test_without_an_envelope_are_passed_over(self):
        self.serve()
        stranger = self.plain(zmq.DEALER)
        for parts in ([b"no envelope"], [b"none", b"either"], [b"a" * 300, b"b", b"c"]):
            stranger.send_multipart(parts)
            self.assert_serves()

    def test_of_256_megabytes_are_cut_and_their_memory_is_given_back(self):
        self.serve()
        before = self.resident()
        stranger = self.plain(zmq.REQ)
        stranger.send(bytes(256 * MEGABYTE), copy=False)
        self.assertEqual(2 * MEGABYTE, len(stranger.recv()))
        self.assert_serves()
        self.assert_bounded(4, before)

    def test_of_several_parts_reach_a_reply_socket_one_by_one_and_the_last_is_replied_to(self):
        self.open("rep")
        stranger = self.plain(zmq.REQ)
        stranger.send_multipart([b"\x01", b"", b"\x02\x03"])
        self.assertEqual("1 01", self.victim.ask("receive own 10"))
        self.assert_refused(OUT_OF_TURN, self.victim, "send own 04")
        self.assertEqual("0 -", self.victim.ask("receive own 10"))
        self.assertEqual("2 0203", self.victim.ask("receive own 10"))
        self.victim.ask("send own 04")
        self.assertEqual([b"\x04"], stranger.recv_multipart())

    def test_of_several_parts_reach_a_subscriber_one_by_one(self):
        publisher = self.bare(zmq.XPUB)
        publisher.bind(self.endpoint)
        self.open("sub")
        publisher.recv()
        publisher.send_multipart([b"\x01", b"", b"\x02"])
        self.assertEqual(["1 01", "0 -", "1 02"], [self.victim.ask("receive own 10") for _ in range(3)])

    def test_of_several_parts_reach_a_request_socket_one_by_one_and_the_next_request_discards_the_rest(self):
        server = self.bare(zmq.ROUTER)
        server.bind(self.endpoint)
        self.open("req")
        self.victim.ask("send own 01")
        client = server.recv_multipart()[0]
        server.send_multipart([client, b"", b"\x02", b"\x03", b"\x04"])
        self.assertEqual(["1 02", "1 03"], [self.victim.ask("receive own 10") for _ in range(2)])
        self.victim.ask("send own 05")
        client, _, request = server.recv_multipart()
        self.assertEqual(b"\x05", request)
        server.send_multipart([client, b"", b"\x06"])
        self.assertEqual("1 06", self.victim.ask("receive own 10"))


class Commands(Hostile):
    """Messages that a listener cannot parse."""

    COMMAND = bytes.fromhex("0807120909000000000000f83f1a0161")  # number 7, time 1.5, payload "a"
    REPLY = bytes.fromhex("0808120909000000000000f83f1a0161")
    CONNECTED = "Connected [Socket own]"

    def setUp(self):
        super().setUp()
        self.victim.ask(f"listen own {self.endpoint}")
        self.descriptors = field.descriptors(self.victim.pid)

    def assert_serves(self):
        with self.plain(zmq.REQ) as client:
            client.send(self.COMMAND)
            self.assertEqual(self.REPLY, client.recv())

    def throw(self, block):
        """Waits until the listener's socket is rebuilt and bound, because the old one still accepts connections."""
        before = self.victim.logged().count(self.CONNECTED)
        with self.plain(zmq.REQ) as stranger:
            stranger.send(block)
            rebuilt = field.wait_until(lambda: self.victim.logged().count(self.CONNECTED) > before)
            self.assertTrue(rebuilt, f"{block[:200].hex()} did not cause a rebuild:\n{self.victim.logged()[-1000:]}")

    def test_of_nothing_of_another_type_and_of_garbage_cost_nobody_else_the_service(self):
        dice = random.Random(7)

        def throw():
            for block in [b"", b"\x0a\x05hello", b"\x08\x07", *(dice.randbytes(dice.randrange(1, 200)) for _ in range(20))]:
                self.throw(block)
                self.assert_serves()

        self.assert_does_not_add_up(throw, times=4)
        self.assertIn("Failed handling received message: [Socket own]: Failed deserializing message", self.victim.logged())

    def test_of_128_kilobytes_and_more_cost_nobody_else_the_service(self):
        for size in (128 * KILOBYTE + 1, 256 * MEGABYTE):
            self.throw(bytes(size))
            self.assert_serves()
            text = f"Receive buffer size too small: Required: {size}, Actual: 131072"
            self.assertIn(text, self.victim.logged())

    def test_without_an_envelope_do_not_delay_its_end(self):
        stranger = self.plain(zmq.DEALER)
        for parts in ([b""], [b"no envelope"], [b"none", b"either"], [b"none", b""], [bytes(300000)]):
            stranger.send_multipart(parts)
        self.assert_serves()
        stranger.send(b"no envelope")
        self.assertEqual(0, self.victim.end())


class Floods(Hostile):
    """Attacks with more messages than the victim reads."""

    def flood(self, message, count, patience=0.5):
        """Sends at most `count` messages until the victim accepts no more. Returns the connection and their number."""
        bare = self.enter(zmtp.joined(self.endpoint))
        bare.settimeout(patience)
        for sent in range(count):
            try:
                bare.sendall(message)
            except TimeoutError:
                return bare, sent
        return bare, count

    def assert_takes_no_more_than(self, megabytes, queue):
        self.open("rep", queue)
        before = self.resident()
        _, sent = self.flood(zmtp.request(bytes(64 * KILOBYTE)), 5000)
        self.assertLess(sent, 5000)
        self.assert_bounded(megabytes, before)

    def test_of_requests_that_are_not_read_stop_at_a_thousand(self):
        self.assert_takes_no_more_than(64 + 8, queue=None)

    def test_of_requests_that_are_not_read_stop_at_the_queue_size(self):
        self.assert_takes_no_more_than(3, queue=10)

    def test_of_requests_whose_replies_are_not_read_keep_a_thousand_replies_and_no_more(self):
        self.serve()
        before = self.resident()
        # A full queue accepts no more before half of it has been served.
        _, sent = self.flood(zmtp.request(bytes(64 * KILOBYTE)), 5000, field.PATIENCE)
        self.assertEqual(5000, sent)
        self.assert_serves()
        self.assert_bounded(2 * 64 + 8, before)

    def test_of_requests_leave_others_their_turn(self):
        self.serve()
        for _ in range(5):
            self.flood(zmtp.request(b"flood") * 1000, 10)
        for _ in range(100):
            self.assert_serves()

    def publish(self, queue, idle):
        """Publishes 3,000 blocks of 64 KiB to `idle` subscribers that never read. Returns the memory before."""
        self.open("pub", queue)
        for _ in range(idle):
            self.enter(zmtp.joined(self.endpoint, b"SUB")).sendall(zmtp.subscription(b""))
        honest = self.plain(zmq.SUB)
        honest.rcvhwm = 0
        honest.subscribe(b"")
        while not honest.poll(5):
            self.victim.ask("send own 01")
        before = self.resident()
        self.victim.ask(f"repeat 3000 send own {words_of(bytes(64 * KILOBYTE))}", patience=60)
        return before

    def test_for_subscribers_that_never_read_keep_a_thousand_messages_for_all_together(self):
        self.assert_bounded(64 + 16, self.publish(queue=None, idle=20))

    def test_for_subscribers_that_never_read_keep_as_many_messages_as_the_queue_size(self):
        self.assert_bounded(6, self.publish(queue=10, idle=20))

    def test_of_subscriptions_take_memory_that_is_used_again(self):
        self.open("pub")
        dice = random.Random(8)

        def subscribe():
            with zmtp.joined(self.endpoint, b"SUB") as bare:
                bare.sendall(b"".join(zmtp.subscription(dice.randbytes(20)) for _ in range(20000)) + zmtp.subscription(b"!"))
                self.victim.ask("send own 01")
                self.assertTrue(field.wait_until(lambda: self.victim.ask("send own 21") == "" and self.hears(bare)))

        before = self.resident()
        subscribe()
        self.assert_bounded(30, before)
        self.assert_does_not_add_up(subscribe, megabytes=40)

    @staticmethod
    def hears(bare):
        """Returns whether a message is queued. The subscriptions, which arrive first, have then been handled."""
        bare.settimeout(0.005)
        try:
            return bare.recv(1) != b""
        except TimeoutError:
            return False


class Offenders(Hostile):
    """Servers that greet like ZeroMQ and then violate its protocol."""

    BROKEN_READY = bytes([zmtp.COMMAND, 4]) + b"\x05REA"

    def setUp(self):
        super().setUp()
        self.server = self.enter(socket.create_server(("127.0.0.1", zmtp.address_of(self.endpoint)[1])))

    def offends(self, seconds):
        """Violates the protocol and waits until the victim disconnects. Returns whether it reconnects in time."""
        self.server.settimeout(seconds)
        try:
            bare, _ = self.server.accept()
        except TimeoutError:
            return False
        with bare, contextlib.suppress(ConnectionResetError):
            bare.settimeout(field.PATIENCE)
            bare.sendall(zmtp.greeting() + self.BROKEN_READY)
            while bare.recv(256):
                pass
        return True

    def assert_given_up_until(self, command):
        self.assertTrue(self.offends(field.PATIENCE))
        self.assertFalse(self.offends(0.5))  # if ZeroMQ reconnects, it does so after a tenth of a second
        self.victim.ask(command)
        self.assertTrue(self.offends(field.PATIENCE))

    def test_are_given_up_by_a_subscriber_until_it_is_rebuilt(self):
        self.open("sub")
        self.assert_given_up_until("reset own")

    def test_are_tried_again_by_a_client_that_repeats_its_request(self):
        self.open("req")
        self.victim.ask("send own 01")
        self.assert_given_up_until("send own 01")
