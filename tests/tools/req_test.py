"""rk-socket req with foreign servers."""

import json
import select
import unittest

from harness import SCHEMAS, ToolTest, generated, zmq

plant = generated("plant")


class Requests(ToolTest):
    def test_prints_the_reply_and_how_long_it_took(self):
        endpoint = self.serve(lambda request: request.upper())
        status, output, errors = self.run_tool("req", endpoint, "hello", "you")

        self.assertEqual((0, b"HELLO\nYOU\n"), (status, output))
        self.assertRegex(errors, r"^(round trip \d+\.\d{3} ms\n){2}$")

    def test_sends_each_line_of_standard_input_and_waits_for_its_reply(self):
        endpoint = self.serve(lambda request: request.upper())
        req = self.start("req", endpoint)
        for text in (b"one", b"two"):
            req.write(text + b"\n")
            self.assertEqual(text.upper(), req.read_line())
        req.close_input()

        self.assertEqual(0, req.end()[0])

    def test_carries_bytes_from_a_file_into_another(self):
        endpoint = self.serve(lambda request: request[::-1])
        block = bytes(range(256)) * 1000

        self.assertEqual((0, block[::-1]), self.run_tool("req", endpoint, "--file", self.write_file("in", block),
                                                         "--format", "raw")[:2])

    def test_prints_every_part_of_a_reply_and_goes_on(self):
        server, endpoint = self.bound(zmq.REP)
        req = self.start("req", endpoint, "one", "two", "--verbose")
        for request in (b"one", b"two"):
            self.assertEqual(request, server.recv())
            server.send_multipart([b"re", request])

        status, output, errors = req.end()
        self.assertEqual((0, b"re\none\nre\ntwo\n"), (status, output))
        self.assertNotIn("Attempting reset", errors)

    def test_shows_how_round_trips_are_distributed(self):
        endpoint = self.serve(lambda request: request)
        status, output, errors = self.run_tool("req", endpoint, "ping", "--count", "200")

        self.assertEqual((0, b"ping\n" * 200), (status, output))
        lines = errors.splitlines()
        self.assertEqual("200 requests, 200 replies", lines[0])
        number = r"\d+\.\d{3}"
        self.assertRegex(lines[1], "^round trip in ms: least N, median N, 90 % N, 99 % N, greatest N, mean N, spread N$"
                         .replace("N", number))
        classes = [line.split() for line in lines[2:]]
        self.assertEqual(200, sum(int(line[3]) for line in classes))

    def test_a_dead_endpoint_ends_with_status_3_after_each_timeout(self):
        status, output, errors = self.run_tool("req", "tcp://127.0.0.1:1", "x", "--count", "3", "--timeout", "10ms")

        self.assertEqual((3, b""), (status, output))
        self.assertEqual(3, errors.count("rk-socket: no reply within 10 ms on [Socket tcp://127.0.0.1:1]\n"))
        self.assertIn("3 requests, 0 replies\n", errors)

    def test_goes_on_after_a_request_that_was_not_answered(self):
        server, endpoint = self.bound(zmq.ROUTER)
        req = self.start("req", endpoint, "hello", "--timeout", "50ms", "--count", "0")
        server.recv_multipart()
        self.assertIn("no reply within 50 ms", req.process.stderr.readline().decode())
        answered = 0
        while not select.select([req.process.stdout], [], [], 0)[0]:
            if server.poll(10):
                server.send_multipart(server.recv_multipart())
                answered += 1
        self.assertEqual(b"hello", req.read_line())
        self.assertGreaterEqual(answered, 1)
        req.signal(2)

        self.assertEqual(3, req.end()[0])

    def test_a_signal_ends_the_wait(self):
        server, endpoint = self.bound(zmq.ROUTER)
        req = self.start("req", endpoint, "hello")
        server.recv_multipart()
        req.signal(2)

        self.assertEqual((130, b"", ""), req.end())


class Protobuf(ToolTest):
    OPTIONS = ["--proto", SCHEMAS + "/plant.proto", "--type", "Order", "--reply-type", "Receipt"]

    def test_the_reply_may_be_of_another_type(self):
        endpoint = self.serve(lambda request: plant.Receipt(name=plant.Order.FromString(request).name,
                                                            taken=True).SerializeToString())

        status, output, _ = self.run_tool("req", endpoint, *self.OPTIONS, '{"name": "a"}')
        self.assertEqual((0, {"name": "a", "taken": True}), (status, json.loads(output)))

    def test_a_reply_that_is_none_is_shown_as_far_as_it_goes(self):
        endpoint = self.serve(lambda request: b"\x0a\x01a\xff")

        status, output, errors = self.run_tool("req", endpoint, *self.OPTIONS, '{"name": "a"}')
        self.assertEqual((1, b""), (status, output))
        self.assertIn('rk-socket: message 1, 4 bytes: not a plant.Receipt from byte 3 on; decoded so far: {"name":"a"}\n', errors)

    def test_a_request_that_is_no_json_is_left_out(self):
        endpoint = self.serve(lambda request: request)

        status, output, errors = self.run_tool("req", endpoint, *self.OPTIONS, input=b'{"name"\n{"name": "b"}\n')
        self.assertEqual((1, {"name": "b"}), (status, json.loads(output)))
        self.assertIn("rk-socket: standard input, line 1: not a plant.Order in JSON: ", errors)


if __name__ == "__main__":
    unittest.main()
