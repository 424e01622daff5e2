"""rk-socket pub with foreign subscribers."""

import time
import unittest

from harness import SCHEMAS, ToolTest, free_port, generated, zmq

plant = generated("plant")


class Publishing(ToolTest):
    def test_sends_each_line_of_standard_input(self):
        self.publishes([b"one", b"", b" two ", b"unended"], input=b"one\n\n two \nunended")

    def test_sends_a_line_before_the_next_one_is_there(self):
        pub, subscriber = self.start_pub()
        for text in (b"one", b"two"):
            pub.write(text + b"\n")
            self.assertEqual(text, subscriber.recv())

    def test_repeats_arguments_whatever_they_look_like(self):
        before = ["one", "[1,2]", "{}", "[]", "with blanks", "", "%%", "++", "+", "\1\1",
                  *(chr(character) + "a" for character in range(2, 32))]
        after = ["-1", "--count", "--", "\1"]
        messages = [text.encode() for text in before + after]

        self.publishes(messages * 2, "--count", str(2 * len(messages)), *before, "--", *after)

    def test_a_count_of_0_has_no_end(self):
        pub, subscriber = self.start_pub("a", "b", "--count", "0", "--interval", "1ms")
        self.assertEqual([b"a", b"b"] * 3, [subscriber.recv() for _ in range(6)])
        pub.signal(2)

        self.assertEqual((0, b"", ""), pub.end())

    def test_reads_hexadecimal_digits(self):
        self.publishes([b"\x00\xff\n", b"", b"ab"], "--hex", "00 FF 0a", "", "6162")

    def test_sends_whole_files_and_their_lines(self):
        one = self.write_file("one", b"a\nb\n")
        two = self.write_file("two", b"\x00\xff")

        self.publishes([b"a\nb\n", b"\x00\xff"], "--file", one, "--file", two)
        self.publishes([b"a", b"b", b"\x00\xff"], "--lines", "--file", one, "--file", two)

    def test_sends_the_whole_of_standard_input(self):
        self.publishes([b"a\nb\n"], "--whole", input=b"a\nb\n")

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

        self.assertEqual((1, b"", "rk-socket: cannot listen on tcp://*:%d: Address already in use\n" % port),
                         self.run_tool("pub", "tcp://*:%d" % port, "x"))

    def test_a_signal_before_the_end_shows_in_the_status(self):
        pub, subscriber = self.start_pub()
        pub.write(b"one\n")
        self.assertEqual(b"one", subscriber.recv())
        pub.signal(2)

        self.assertEqual((130, b"", ""), pub.end())

    def test_a_signal_ends_the_delay(self):
        pub = self.start_open("pub", self.fresh_endpoint(), "x", "--delay", "1000")
        pub.signal(15)

        self.assertEqual(143, pub.end()[0])


class Protobuf(ToolTest):
    OPTIONS = ["--proto", SCHEMAS + "/plant.proto", "--type", "Sample"]

    def publish(self, lines, number=1):
        """Returns the end of pub, and the first messages that it has sent."""
        end, subscriber = self.run_pub(*self.OPTIONS, input=lines)
        return end, [plant.Sample.FromString(subscriber.recv()) for _ in range(number)]

    def test_sends_an_object_a_line(self):
        sample = plant.Sample(number=7, quantity={"value": 0.5, "unit": "BAR"}, raw=[1, -1])

        self.assertEqual(((0, b"", ""), [sample]), self.publish(
            b'{"number": "7", "quantity": {"value": 0.5, "unit": "BAR"}, "raw": [1, -1]}\n'))

    def test_takes_what_jq_makes_of_what_sub_writes(self):
        sample = plant.Sample(number=3, sensor="boiler", limits={"low": 1, "high": 2})
        pipe, publisher = self.pipe_sub("rk-socket sub $E --count 1 --proto $S --type Sample | jq -c '.number = 4'",
                                        S=self.schema("plant.proto"))
        publisher.send(sample.SerializeToString())

        sample.number = 4
        self.assertEqual(((0, b"", ""), [sample]), self.publish(pipe.end()[1]))

    def test_names_the_line_that_is_no_json_and_sends_the_others(self):
        (status, output, errors), samples = self.publish(
            b'{"sensor": "before"}\n{"sensor" 4}\n{"sensro": "x"}\n{"number": "x"}\n{"sensor": "after"}\n', number=2)

        self.assertEqual(["before", "after"], [sample.sensor for sample in samples])
        self.assertEqual((1, b""), (status, output))
        errors = errors.splitlines()
        self.assertEqual(3, len(errors), errors)
        before_protobuf_22 = r"""Expected : between key:value pair\. Near: \{"sensor" 4\}$"""
        since_protobuf_22 = r"""invalid +JSON .*near +1:11 .*'4'; +expected +':'$"""
        reasons = (before_protobuf_22 + "|" + since_protobuf_22, ".*sensro", ".*number")
        for number, (error, text) in enumerate(zip(errors, reasons), 2):
            self.assertRegex(error, "^rk-socket: standard input, line %d: not a plant.Sample in JSON: (%s)" %
                             (number, text))

    def test_sends_nothing_that_lacks_required_fields(self):
        self.assertEqual((1, b"", "rk-socket: message 1: not a plant.Strict in JSON: missing field id\n"),
                         self.run_tool("pub", self.fresh_endpoint(), "--delay", "0", "--proto",
                                       self.schema("strict.proto"), "--type", "Strict", '{"text": "x"}'))


if __name__ == "__main__":
    unittest.main()
