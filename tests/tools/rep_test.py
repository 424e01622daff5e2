"""rk-socket rep with foreign clients."""

import signal
import unittest

from harness import SCHEMAS, ToolTest, free_port, generated

plant = generated("plant")


class Replies(ToolTest):
    def test_echoes_and_prints_requests(self):
        requests = [b"one", b"", b"\x00\xff"]

        self.assertEqual((requests, (0, b"one\n\n\\x00\\xFF\n", "")), self.run_rep(requests, "--echo"))

    def test_a_count_of_0_has_no_end(self):
        endpoint = self.fresh_endpoint()
        rep = self.start("rep", endpoint, "--count", "0", "--echo")
        client = self.client(endpoint)
        for request in (b"one", b"two"):
            client.send(request)
            self.assertEqual(request, client.recv())
        rep.signal(signal.SIGINT)

        self.assertEqual((0, b"one\ntwo\n", ""), rep.end())

    def test_answers_with_a_fixed_text(self):
        self.assertEqual(([b"[yes, sir]"] * 2, (0, b"a\nb\n", "")), self.run_rep([b"a", b"b"], "--reply", "[yes, sir]"))

    def test_answers_with_hexadecimal_digits(self):
        self.assertEqual(([b"\x00\xff"], (0, b"61\n", "")),
                         self.run_rep([b"a"], "--reply", "00ff", "--hex", "--format", "hex"))

    def test_answers_with_a_file(self):
        block = bytes(range(256)) * 100

        self.assertEqual([block], self.run_rep([b"a"], "--reply-file", self.write_file("reply", block))[0])

    def test_answers_with_the_output_of_a_command(self):
        self.assertEqual(([b"ONE", b"TWO"], (0, b"one\ntwo\n", "")),
                         self.run_rep([b"one", b"two"], "--command", "tr a-z A-Z"))

    def test_a_command_may_be_given_and_may_write_more_than_a_pipe_holds(self):
        request = b"0123456789" * 100000

        self.assertEqual([request], self.run_rep([request], "--command", "cat", "--format", "hex")[0])

    def test_a_command_need_not_read_its_request(self):
        self.assertEqual([b"done\n"], self.run_rep([b"0123456789" * 100000], "--command", "echo done")[0])

    def test_a_command_that_fails_is_answered_with_what_it_wrote(self):
        self.assertEqual(([b"part"], (1, b"a\n", "rk-socket: the command ended with status 3\n")),
                         self.run_rep([b"a"], "--command", "printf part; exit 3"))

    def test_a_command_that_is_killed_counts_as_failed(self):
        self.assertEqual(([b""], (1, b"a\n", "rk-socket: the command ended with status 137\n")),
                         self.run_rep([b"a"], "--command", "kill -9 $$"))

    def test_listens_where_it_is_told(self):
        port = free_port()
        rep = self.start("rep", "tcp://*:%d" % port, "--echo", "--count", "1", "--listen-on", "127.0.0.2",
                         "--max-message-size", "1KiB", "--peer-timeout", "10s")
        client = self.client("tcp://127.0.0.2:%d" % port)
        client.send(b"a")
        self.assertEqual(b"a", client.recv())
        self.assertEqual((0, b"a\n", ""), rep.end())

    def test_does_not_listen_where_it_cannot(self):
        status, output, errors = self.run_tool("rep", "tcp://*:%d" % free_port(), "--echo", "--listen-on", "192.0.2.77")
        self.assertEqual((1, b""), (status, output))
        self.assertRegex(errors, "Cannot assign requested address")

    def test_a_signal_ends_the_command(self):
        endpoint = self.fresh_endpoint()
        # The command never ends, so that only the signal can end it.
        rep = self.start("rep", endpoint, "--command", "echo runs >&2; exec sleep 1000")
        client = self.client(endpoint)
        client.send(b"a")
        self.assertEqual(b"runs\n", rep.process.stderr.readline())
        rep.signal(15)

        self.assertEqual(0, rep.end()[0])

    def test_a_request_that_is_too_long_is_answered_with_nothing(self):
        self.assertEqual(([b"", b"abc"], (1, b"abc\n", "rk-socket: message 1, 4 bytes: left out, longer than "
                                                       "--max-size 3\n")),
                         self.run_rep([b"abcd", b"abc"], "--echo", "--max-size", "3"))

    def test_answers_the_last_part_of_a_request_and_goes_on(self):
        endpoint = self.fresh_endpoint()
        rep = self.start("rep", endpoint, "--count", "2", "--echo")
        client = self.client(endpoint)
        replies = []
        for parts in ([b"head", b"body"], [b"", b"a", b"b"]):
            client.send_multipart(parts)
            replies.append(client.recv_multipart())

        self.assertEqual([[b"body"], [b"b"]], replies)
        self.assertEqual((0, b"head\nbody\n\na\nb\n", ""), rep.end())

    def test_ends_with_status_3_when_nobody_asks(self):
        endpoint = self.fresh_endpoint()

        self.assertEqual((3, b"", "rk-socket: no request within 20 ms on [Socket %s]\n" % endpoint),
                         self.run_tool("rep", endpoint, "--echo", "--timeout", "20ms"))

    def test_ends_quietly_with_the_reader_of_the_requests(self):
        pipe = self.start_shell("rk-socket rep $E --echo --count 2 | true; echo ${PIPESTATUS[*]}", E=self.fresh_endpoint())

        self.assertEqual((0, b"0 0\n", ""), pipe.end())


class Protobuf(ToolTest):
    OPTIONS = ["--proto", SCHEMAS + "/plant.proto", "--type", "Order", "--reply-type", "Receipt"]

    def ask(self, request, *options):
        replies, end = self.run_rep([request], *self.OPTIONS, *options)
        return plant.Receipt.FromString(replies[0]), end

    def test_answers_with_fixed_json(self):
        self.assertEqual((plant.Receipt(name="b", taken=True), (0, b'{"name":"a"}\n', "")),
                         self.ask(plant.Order(name="a").SerializeToString(), "--reply", '{"name":"b","taken":true}'))

    def test_answers_through_jq(self):
        self.assertEqual((plant.Receipt(name="a", taken=True), (0, b'{"name":"a"}\n', "")),
                         self.ask(plant.Order(name="a").SerializeToString(), "--command", "jq '.taken = true'"))

    def test_what_a_command_writes_and_is_no_json_is_complained_about(self):
        receipt, (status, output, errors) = self.ask(plant.Order(name="a").SerializeToString(), "--command", "echo x")

        self.assertEqual((plant.Receipt(), 1, b'{"name":"a"}\n'), (receipt, status, output))
        self.assertRegex(errors, "^rk-socket: answered with an empty reply: not a plant.Receipt in JSON: .*\n$")

    def test_a_fixed_reply_that_is_no_json_is_refused_at_once(self):
        status, output, errors = self.run_tool("rep", self.fresh_endpoint(), *self.OPTIONS, "--reply", "{")

        self.assertEqual((1, b""), (status, output))
        self.assertRegex(errors, "^rk-socket: --reply: not a plant.Receipt in JSON: .*\n$")

    def test_a_request_that_is_none_is_answered_and_shown_as_far_as_it_goes(self):
        receipt, (status, output, errors) = self.ask(b"\x0a\x01a\xff", "--reply", "{}")

        self.assertEqual((plant.Receipt(), 1, b""), (receipt, status, output))
        self.assertEqual('rk-socket: message 1, 4 bytes: not a plant.Order from byte 3 on; decoded so far: {"name":"a"}\n', errors)


if __name__ == "__main__":
    unittest.main()
