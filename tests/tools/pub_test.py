"""rk-socket pub with foreign subscribers."""

import itertools
import json
import time
import unittest

from harness import SCHEMAS, ToolTest, free_port, generated, zmq

plant = generated("plant")


class Publishing(ToolTest):
    def feed(self, *options, endpoint=None):
        """Returns a pub that reads standard input, and a subscriber that has received a message."""
        endpoint = endpoint or self.fresh_endpoint()
        subscriber = self.subscriber(endpoint)
        pub = self.start("pub", endpoint, "--delay", "0", *options)
        self.repeat_until_heard(subscriber, lambda: pub.write(b"probe\n"))
        return pub, subscriber

    def repeat_until_heard(self, subscriber, action):
        action()
        while not subscriber.poll(20):
            action()

    def rest(self, subscriber, last, probe=b"probe"):
        blocks = []
        while not blocks or blocks[-1] != last:
            block = subscriber.recv()
            if block != probe:
                blocks.append(block)
        return blocks

    def round_of(self, *options):
        """Returns a part of pub's endless output that is long enough to contain each message twice."""
        endpoint = self.fresh_endpoint()
        subscriber = self.subscriber(endpoint)
        pub = self.start("pub", endpoint, "--count", "0", "--interval", "1ms", *options)
        heard = [subscriber.recv() for _ in range(20)]
        pub.signal(2)
        status, output, errors = pub.end()
        self.assertEqual((0, b""), (status, output))
        return heard, errors

    def assertRound(self, expected, heard):
        start = expected.index(heard[0])
        expected = (expected[start:] + expected[:start]) * len(heard)
        self.assertEqual(expected[:len(heard)], heard)

    def test_sends_each_line_of_standard_input(self):
        pub, subscriber = self.feed()
        pub.write(b"one\n\n two \nunended")
        pub.close_input()

        self.assertEqual([b"one", b"", b" two ", b"unended"], self.rest(subscriber, b"unended"))
        self.assertEqual((0, b"", ""), pub.end())

    def test_sends_a_line_before_the_next_one_is_there(self):
        pub, subscriber = self.feed()
        for text in (b"one", b"two"):
            pub.write(text + b"\n")
            self.assertEqual([text], self.rest(subscriber, text))

    def test_sends_over_tcp(self):
        from harness import free_port
        pub, subscriber = self.feed(endpoint="tcp://127.0.0.1:%d" % free_port())
        pub.write(b"one\n")

        self.assertEqual([b"one"], self.rest(subscriber, b"one"))

    def test_repeats_arguments_whatever_they_look_like(self):
        texts = ["one", "[1,2]", "{}", "[]", "with blanks", "", "%%", "-1"]
        heard, _ = self.round_of("--", *texts)

        self.assertRound([text.encode() for text in texts], heard)

    def test_reads_hexadecimal_digits(self):
        heard, _ = self.round_of("--hex", "00 FF 0a", "", "6162")

        self.assertRound([b"\x00\xff\n", b"", b"ab"], heard)

    def test_sends_whole_files_and_their_lines(self):
        one = self.write_file("one", b"a\nb\n")
        two = self.write_file("two", b"\x00\xff")

        self.assertRound([b"a\nb\n", b"\x00\xff"], self.round_of("--file", one, "--file", two)[0])
        self.assertRound([b"a", b"b", b"\x00\xff"], self.round_of("--lines", "--file", one, "--file", two)[0])

    def test_sends_the_whole_of_standard_input(self):
        endpoint = self.fresh_endpoint()
        subscriber = self.subscriber(endpoint)
        heard = False
        while not heard:  # one message per run, which may end before the subscriber has connected
            status, output, errors = self.run_tool("pub", endpoint, "--whole", "--delay", "50ms", input=b"a\nb\n")
            self.assertEqual((0, b"", ""), (status, output, errors))
            heard = subscriber.poll(0)

        self.assertEqual(b"a\nb\n", subscriber.recv())

    def test_names_the_place_of_what_is_no_hexadecimal_number(self):
        self.assertEqual((1, b"", "rk-socket: message 2: not pairs of hexadecimal digits\n"),
                         self.run_tool("pub", self.fresh_endpoint(), "--delay", "0", "--hex", "00", "0g"))

    def test_names_the_file_that_is_missing(self):
        self.assertEqual((1, b"", "rk-socket: cannot read nowhere: No such file or directory\n"),
                         self.run_tool("pub", self.fresh_endpoint(), "--delay", "0", "--file", "nowhere"))

    def test_keeps_the_interval(self):
        start = time.monotonic()
        self.run_tool("pub", self.fresh_endpoint(), "x", "--delay", "0", "--count", "6", "--interval", "20ms")

        self.assertGreaterEqual(time.monotonic() - start, 0.1)

    def test_keeps_the_rate(self):
        block = self.write_file("block", bytes(131072))  # a megabit
        start = time.monotonic()
        self.run_tool("pub", self.fresh_endpoint(), "--file", block, "--delay", "0", "--count", "4", "--rate", "20")

        self.assertGreaterEqual(time.monotonic() - start, 0.15)

    def test_says_that_the_address_is_taken(self):
        port = free_port()
        self.peer(zmq.PUB).bind("tcp://*:%d" % port)

        self.assertEqual((1, b"", "rk-socket: cannot listen on tcp://*:%d: Address already in use\n" % port), self.run_tool("pub", "tcp://*:%d" % port, "x"))

    def test_a_signal_before_the_end_shows_in_the_status(self):
        pub, _ = self.feed()
        pub.signal(2)

        self.assertEqual((130, b"", ""), pub.end())

    def test_a_signal_ends_the_delay(self):
        pub = self.start("pub", self.fresh_endpoint(), "x", "--delay", "1000", "--verbose")
        while "Connected" not in pub.process.stderr.readline().decode():
            pass
        pub.signal(15)

        self.assertEqual(143, pub.end()[0])


class Protobuf(ToolTest):
    OPTIONS = ["--proto", SCHEMAS + "/plant.proto", "--type", "Sample"]

    def setUp(self):
        super().setUp()
        self.endpoint = self.fresh_endpoint()
        self.socket = self.subscriber(self.endpoint)
        self.pub = self.start("pub", self.endpoint, "--delay", "0", *self.OPTIONS)
        self.probes = 0
        self.probe()
        while not self.socket.poll(20):
            self.probe()

    def probe(self):
        self.pub.write(b'{"sensor":"probe"}\n')
        self.probes += 1

    def next(self):
        message = plant.Sample.FromString(self.socket.recv())
        return message if message.sensor != "probe" else self.next()

    def test_sends_an_object_a_line(self):
        self.pub.write(b'{"number": "7", "quantity": {"value": 0.5, "unit": "BAR"}, "raw": [1, -1]}\n')

        self.assertEqual(plant.Sample(number=7, quantity={"value": 0.5, "unit": "BAR"}, raw=[1, -1]), self.next())

    def test_takes_what_jq_makes_of_what_sub_writes(self):
        sample = plant.Sample(number=3, sensor="boiler", limits={"low": 1, "high": 2})
        endpoint = self.fresh_endpoint()
        publisher = self.publisher(endpoint)
        pipe = self.start_shell("rk-socket sub $E --count 1 --proto $S --type Sample | jq -c '.number = 4'",
                                E=endpoint, S=self.schema("plant.proto"))
        self.await_subscriber(publisher)
        publisher.send(sample.SerializeToString())
        self.pub.write(pipe.end()[1])

        sample.number = 4
        self.assertEqual(sample, self.next())

    def test_names_the_line_that_is_no_json_and_sends_the_others(self):
        self.pub.write(b'{"sensor": "before"}\n{"sensor" 4}\n{"sensro": "x"}\n{"number": "x"}\n{"sensor": "after"}\n')
        self.pub.close_input()

        self.assertEqual(["before", "after"], [self.next().sensor, self.next().sensor])
        status, output, errors = self.pub.end()
        self.assertEqual((1, b""), (status, output))
        errors = errors.splitlines()
        self.assertEqual(3, len(errors), errors)
        before_protobuf_22 = r"""Expected : between key:value pair\. Near: \{"sensor" 4\}$"""
        since_protobuf_22 = r"""invalid +JSON .*near +1:11 .*'4'; +expected +':'$"""
        for number, error, text in zip(itertools.count(self.probes + 2), errors,
                                       (before_protobuf_22 + "|" + since_protobuf_22, ".*sensro", ".*number")):
            self.assertRegex(error, "^rk-socket: standard input, line %d: not a plant.Sample in JSON: (%s)" %
                             (number, text))

    def test_sends_nothing_that_lacks_required_fields(self):
        self.assertEqual((1, b"", "rk-socket: message 1: not a plant.Strict in JSON: missing field id\n"),
                         self.run_tool("pub", self.fresh_endpoint(), "--delay", "0", "--proto",
                                       self.schema("strict.proto"), "--type", "Strict", '{"text": "x"}'))


if __name__ == "__main__":
    unittest.main()
