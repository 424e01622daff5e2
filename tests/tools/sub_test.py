"""rk-socket sub with foreign publishers."""

import json
import select
import signal
import unittest

from harness import SCHEMAS, ToolTest, generated, zmq

plant = generated("plant")


def sample(number):
    return plant.Sample(number=number, sensor="boiler", quantity={"value": 21.5, "unit": "BAR"}, raw=[1, 2])


class Printing(ToolTest):
    def test_writes_each_block_as_a_line(self):
        self.assertEqual((0, b"one\ntwo\n\n", ""), self.run_sub([b"one", b"two", b""]))

    def test_writes_hexadecimal_digits(self):
        self.assertEqual((0, b"00ff0a\n\n", ""), self.run_sub([b"\x00\xff\n", b""], "--format", "hex"))

    def test_writes_the_bytes_and_nothing_else(self):
        self.assertEqual((0, b"\x00\xff\nend", ""), self.run_sub([b"\x00\xff\n", b"end"], "--format", "raw"))

    def test_leaves_out_what_is_too_long_and_says_so(self):
        status, output, errors = self.run_sub([b"12345", b"123456", b"1"], "--max-size", "5")

        self.assertEqual((1, b"12345\n1\n"), (status, output))
        self.assertEqual("rk-socket: message 2, 6 bytes: left out, longer than --max-size 5\n", errors)

    def test_counts_what_it_leaves_out_among_the_messages(self):
        errors = self.run_sub([b"123456", b"\xff"], "--max-size", "5", "--proto", SCHEMAS + "/plant.proto", "--type", "Order")[2]

        self.assertRegex(errors, "^rk-socket: message 1, 6 bytes: .*\nrk-socket: message 2, 1 bytes: .*\n$")

    def test_passes_large_blocks(self):
        block = bytes(range(256)) * 4 * 1024 * 20

        self.assertEqual(block, self.run_sub([block], "--format", "raw")[1])

    def test_writes_to_a_pipe_before_the_next_message_comes(self):
        sub, publisher = self.start_sub()
        for text in (b"first", b"second"):
            publisher.send(text)
            self.assertEqual(text, sub.read_line())

    def test_takes_from_several_endpoints(self):
        publishers, endpoints = zip(self.bound(zmq.XPUB), self.bound(zmq.XPUB))
        sub = self.start("sub", *endpoints, "--count", "2")
        for publisher, text in zip(publishers, (b"one", b"two")):
            self.await_subscriber(publisher)
            publisher.send(text)

        status, output, _ = sub.end()
        self.assertEqual((0, [b"one", b"two"]), (status, sorted(output.split())))

    def test_misses_nothing_of_a_flood_that_its_queue_has_room_for(self):
        # The output is not read while the messages arrive, so the queue must hold all but a pipe full of them.
        number = 100000
        sub, publisher = self.start_sub("--fifo", str(number), "--count", str(number))
        for index in range(number):
            publisher.send(b"%d" % index)

        status, output, errors = sub.end()
        self.assertEqual((0, ""), (status, errors))
        self.assertTrue(output == b"".join(b"%d\n" % index for index in range(number)))


class Protobuf(ToolTest):
    OPTIONS = ["--proto", SCHEMAS + "/plant.proto", "--type", "plant.Sample"]

    def test_writes_an_object_a_line(self):
        message = sample(7)
        message.time.FromJsonString("2020-01-02T03:04:05Z")
        status, output, errors = self.run_sub([message.SerializeToString(), b""], *self.OPTIONS)

        self.assertEqual((0, ""), (status, errors))
        self.assertEqual([{"number": "7", "sensor": "boiler", "quantity": {"value": 21.5, "unit": "BAR"},
                           "time": "2020-01-02T03:04:05Z", "raw": [1, 2]}, {}],
                         [json.loads(line) for line in output.splitlines()])

    def test_names_fields_as_the_schema_does(self):
        status, output, _ = self.run_sub([plant.Receipt(name="a").SerializeToString()],
                                     "--proto", self.schema("plant.proto"), "--type", "Receipt", "--all-fields")

        self.assertEqual((0, {"name": "a", "taken": False}), (status, json.loads(output)))

    def test_tells_what_could_be_decoded_and_goes_on(self):
        good = sample(1).SerializeToString()
        status, output, errors = self.run_sub([good, sample(2).SerializeToString()[:-3], good], *self.OPTIONS)

        self.assertEqual((1, 2), (status, len(output.splitlines())))
        self.assertRegex(errors, r"^rk-socket: message 2, \d+ bytes: not a plant.Sample from byte \d+ on; decoded so far: "
                                 r'\{"number":"2","sensor":"boiler".*\}\n$')

    def test_tells_which_required_fields_are_missing(self):
        status, output, errors = self.run_sub([b"\x12\x01x"], "--proto", self.schema("strict.proto"), "--type", "Strict")

        self.assertEqual((1, b"", 'rk-socket: message 1, 3 bytes: not a whole plant.Strict: missing id; '
                                  'decoded: {"text":"x"}\n'), (status, output, errors))

    def test_remarks_once_on_fields_that_the_schema_does_not_have(self):
        blocks = [sample(number).SerializeToString() for number in (1, 2)]
        status, output, errors = self.run_sub(blocks, "--proto", self.schema("plant.proto"), "--type", "Order")

        self.assertEqual((0, 2), (status, len(output.splitlines())))
        self.assertRegex(errors, "^rk-socket: there are fields that plant.Order does not have, number [0-9, ]+: "
                                 "is it the right type\\?\n$")

    def test_finds_imports_in_other_folders(self):
        self.write_file("main.proto", b'syntax = "proto3"; import "units.proto"; message M { plant.Quantity q = 1; }')
        status, output, _ = self.run_sub([b"\x0a\x02\x10\x01"], "--proto", self.path("main.proto"), "--type", "M",
                                     "--proto-path", SCHEMAS, "--proto-path", self.folder)

        self.assertEqual((0, {"q": {"unit": "BAR"}}), (status, json.loads(output)))

    def fails(self, *options):
        status, output, errors = self.run_tool("sub", self.fresh_endpoint(), *options)
        self.assertEqual((1, b""), (status, output))
        return errors

    def test_names_the_schema_that_is_missing(self):
        self.assertEqual("rk-socket: cannot read nowhere.proto: No such file or directory\n",
                         self.fails("--proto", "nowhere.proto", "--type", "T"))

    def test_names_the_schema_that_is_a_folder(self):
        self.assertEqual("rk-socket: cannot read %s: Is a directory\n" % self.folder,
                         self.fails("--proto", self.folder, "--type", "T"))

    def test_names_the_import_that_is_missing(self):
        file = self.write_file("main.proto", b'syntax = "proto3";\nimport "gone.proto";\n')

        self.assertEqual('rk-socket: %s:2:1: Import "gone.proto" was not found or had errors.\n' % file,
                         self.fails("--proto", file, "--type", "T"))

    def test_names_the_place_where_a_schema_is_wrong(self):
        file = self.write_file("main.proto", b'syntax = "proto3";\nmessage M {\n  int32 = 1;\n}\n')

        self.assertEqual("rk-socket: %s:3:9: Expected field name.\n" % file, self.fails("--proto", file, "--type", "M"))

    def test_lists_the_types_when_there_is_none_of_that_name(self):
        self.assertEqual("rk-socket: %s: no message type 'Nothing'; there are: plant.Sample, "
                         "plant.Sample.Limits, plant.Order, plant.Receipt\n" % self.schema("plant.proto"),
                         self.fails("--proto", self.schema("plant.proto"), "--type", "Nothing"))

    def test_pipes_into_jq(self):
        pipe, publisher = self.pipe_sub('rk-socket sub $E --count 3 --proto $S --type Sample | '
                                        'jq -r "[.number, .quantity.unit]|@csv"', S=self.schema("plant.proto"))
        for number in (1, 2, 3):
            publisher.send(sample(number).SerializeToString())

        self.assertEqual((0, b'"1","BAR"\n"2","BAR"\n"3","BAR"\n', ""), pipe.end())


class Ending(ToolTest):
    def started(self, *options):
        sub, publisher = self.start_sub(*options)
        publisher.send(b"first")
        self.assertEqual(b"first", sub.read_line())
        return sub, publisher

    def test_a_signal_ends_what_has_no_end_of_its_own_with_status_0(self):
        for number in (signal.SIGINT, signal.SIGTERM):
            sub, _ = self.started()
            sub.signal(number)
            self.assertEqual((0, b"", ""), sub.end())

    def test_a_signal_before_the_count_shows_in_the_status(self):
        for number in (signal.SIGINT, signal.SIGTERM):
            sub, _ = self.started("--count", "2")
            sub.signal(number)
            self.assertEqual((128 + number, b"", ""), sub.end())

    def test_a_count_of_0_has_no_end(self):
        sub, publisher = self.started("--count", "0")
        publisher.send(b"second")
        self.assertEqual(b"second", sub.read_line())
        sub.signal(signal.SIGINT)

        self.assertEqual((0, b"", ""), sub.end())

    def test_a_dead_endpoint_ends_with_status_3_when_the_time_is_over(self):
        status, output, errors = self.run_tool("sub", "tcp://127.0.0.1:1", "--timeout", "20ms")

        self.assertEqual((3, b"", "rk-socket: no message within 20 ms on [Socket tcp://127.0.0.1:1]\n"),
                         (status, output, errors))

    def test_the_time_begins_anew_with_each_message(self):
        sub, _ = self.started("--timeout", "2s")

        self.assertEqual(3, sub.end()[0])

    def test_ends_quietly_with_the_reader_of_its_output_in_silence_and_in_a_flood(self):
        for number in (1, 100000):
            pipe, publisher = self.pipe_sub("rk-socket sub $E | head -1; echo ${PIPESTATUS[*]}")
            for _ in range(number):
                publisher.send(b"one")

            self.assertEqual((0, b"one\n0 0\n", ""), pipe.end())

    def flooded(self, *options):
        """Returns a sub whose output is not read, and that has far more to write than a pipe holds."""
        sub, publisher = self.started("--fifo", "0", *options)
        for number in range(100000):
            publisher.send(b"%08d" % number)
        select.select([sub.process.stdout], [], [])
        return sub

    def test_a_signal_lets_a_slow_reader_have_what_was_received_in_whole_lines(self):
        sub = self.flooded()
        sub.signal(signal.SIGTERM)

        status, output, errors = sub.end()
        lines = output.split(b"\n")
        self.assertEqual((0, "", b""), (status, errors, lines.pop()))
        self.assertEqual([b"%08d" % number for number in range(len(lines))], lines)

    def test_a_signal_ends_it_although_the_reader_of_its_output_is_stuck(self):
        sub = self.flooded("--count", "200000")
        sub.signal(signal.SIGTERM)
        sub.process.wait()

        self.assertEqual(128 + signal.SIGTERM, sub.end()[0])

    def test_a_full_disk_is_a_failure(self):
        pipe, publisher = self.pipe_sub("rk-socket sub $E >/dev/full")
        publisher.send(b"one")

        self.assertEqual((1, b"", "rk-socket: cannot write standard output: No space left on device\n"), pipe.end())

    def test_goes_on_after_it_was_suspended(self):
        sub, publisher = self.started()
        sub.signal(signal.SIGSTOP)
        sub.signal(signal.SIGCONT)
        publisher.send(b"second")

        self.assertEqual(b"second", sub.read_line())


class Logging(ToolTest):
    def test_the_library_logs_only_when_asked_to(self):
        self.assertEqual("", self.run_sub([b"one"])[2])
        self.assertRegex(self.run_sub([b"one"], "--verbose")[2],
                         r"^rk-socket: debug: Connecting \[Socket (ipc://.*)\], subscribing to \1\n")


class Statistics(ToolTest):
    def test_writes_lines_and_a_sum(self):
        sub, publisher = self.start_sub("--stats", "--interval", "30ms", "--count", "5")
        for size in (10, 20, 30, 40):
            publisher.send(b"x" * size)
        line = sub.read_line()
        while b": 4 messages, " not in line:  # depends on when the subscription arrives
            line = sub.read_line()
        self.assertRegex(line, rb"^\d+\.\d s: 4 messages, \d+\.\d messages/s, \d+\.\d{3} Mbit/s, "
                               rb"size 10/25\.0/40 bytes, gap \d+\.\d{3}/\d+\.\d{3}/\d+\.\d{3} ms, spread \d+\.\d{3} ms$")
        self.assertRegex(sub.read_line(), rb": 0 messages, 0\.0 messages/s, 0\.000 Mbit/s, size -, gap -$")
        publisher.send(b"x" * 400)

        status, output, errors = sub.end()
        self.assertEqual((0, ""), (status, errors))
        self.assertRegex(output.splitlines()[-1], rb"^in all, \d+\.\d s: 5 messages, .* size 10/100\.0/400 bytes, gap ")

    def test_are_redrawn_in_place_on_a_terminal(self):
        terminal, publisher = self.show_sub("--stats", "--interval", "20ms", "--count", "3")
        terminal.read_until(b"\x1b[4A\r\x1b[Know:        0.0 messages/s")
        for _ in range(3):
            publisher.send(b"1234")
        status, text = terminal.end()

        self.assertEqual(0, status)
        last = text.split(b"\x1b[4A")[-1].replace(b"\r\n", b"\n")
        self.assertRegex(last, rb"in \d+\.\d s: +3 messages, ")
        self.assertRegex(last, rb"size 4/4\.0/4 bytes, gap ")
        self.assertEqual(4, last.count(b"\n"))


if __name__ == "__main__":
    unittest.main()
