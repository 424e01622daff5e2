"""Messages of several parts, and output in addition to a message."""

import json
import os
import subprocess
import unittest

from harness import SCHEMAS, ToolTest, generated, zmq

plant = generated("plant")

PARTS = [b"weather", b"a\tb", b"\xff"]
SCHEMA = ["--proto", SCHEMAS + "/plant.proto", "--type", "Order"]


class Receiving(ToolTest):
    def test_counts_a_message_once_and_prints_each_part(self):
        self.assertEqual((0, b"weather\na\tb\n\\xFF\nnext\n", ""), self.run_sub([PARTS, [b"next"]]))

    def test_prints_all_parts_in_a_line(self):
        self.assertEqual((0, b"weather|a\tb|\\xFF\nnext\n", ""),
                         self.run_sub([PARTS, [b"next"]], "--parts", "--separator", "|"))
        self.assertEqual((0, b"77656174686572\t610962\tff\n", ""), self.run_sub([PARTS], "--parts", "--format", "hex"))
        self.assertEqual((0, b"weathera\tb\xff", ""), self.run_sub([PARTS], "--parts", "--format", "raw"))

    def test_a_tab_in_a_part_is_no_separator(self):
        self.assertEqual((0, b"weather\ta\\tb\t\\xFF\n", ""), self.run_sub([PARTS], "--parts"))

    def test_leaves_out_messages_whose_parts_are_too_long_together(self):
        self.assertEqual((1, b"next\n", "rk-socket: message 1, 11 bytes: left out, longer than --max-size 10\n"),
                         self.run_sub([PARTS, [b"next"]], "--max-size", "10"))

    def test_the_last_part_or_the_chosen_one_has_the_type(self):
        order = plant.Order(name="a").SerializeToString()

        self.assertEqual((0, b'{"name":"a"}\n', ""), self.run_sub([[b"\xff", order]], *SCHEMA))
        self.assertEqual((0, b'{"name":"a"}\n', ""), self.run_sub([[order, b"\xff"]], *SCHEMA, "--proto-part", "1"))
        self.assertEqual((0, b'topic {"name":"a"}\n', ""),
                         self.run_sub([[b"topic", order]], *SCHEMA, "--parts", "--separator", " "))

    def test_reports_messages_without_the_chosen_part(self):
        self.assertEqual((1, b"", "rk-socket: message 1, 1 bytes: there is no part 2, but 1\n"),
                         self.run_sub([[b"a"]], *SCHEMA, "--proto-part", "2"))

    def test_writes_an_object_with_what_is_known_of_a_message(self):
        status, output, errors = self.run_sub([[b'a"\\\n', b"\xff"], ["\u00fc".encode()]], "--json")
        first, second = [json.loads(line) for line in output.splitlines()]

        self.assertEqual((0, ""), (status, errors))
        self.assertRegex(first.pop("time"), r"^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{6}Z$")
        self.assertEqual({"endpoint": "ipc://" + self.path("socket-1"), "sequence": 1, "size": 5,
                          "parts": ['a"\\\n', {"hex": "ff"}]}, first)
        self.assertEqual((2, ["\u00fc"]), (second["sequence"], second["parts"]))

    def test_writes_decoded_parts_into_the_object(self):
        output = self.run_sub([[b"topic", plant.Order(name="a").SerializeToString()]], "--json", *SCHEMA)[1]

        self.assertEqual(["topic", {"name": "a"}], json.loads(output)["parts"])

    def test_fills_in_a_template(self):
        self.assertEqual("ipc://%s 1 5 2 abc\td\\xFF 616263 64ff\n" % self.path("socket-1"),
                         self.run_sub([[b"abc", b"d\xff"]], "--template",
                                      "{endpoint} {sequence} {size} {parts} {message} {hex}")[1].decode())

    def test_begins_with_the_time_of_arrival(self):
        self.assertRegex(self.run_sub([[b"abc"]], "--timestamps")[1], rb"^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{6}Z abc\n$")
        self.assertRegex(self.run_sub([[b"abc"]], "--template", "{time}")[1], rb"^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{6}Z\n$")

    def test_writes_hexdumps_as_xxd_does(self):
        self.assertEqual(b"00000000: 6162 63ff 6465 6667 6869 6a6b 6c6d 6e6f  abc.defghijklmno\n"
                         b"00000010: 70                                       p\t\n",
                         self.run_sub([[b"abc\xffdefghijklmnop", b""]], "--format", "hexdump", "--parts")[1])

    def test_takes_only_topics_that_are_asked_for(self):
        publisher, endpoint = self.bound(zmq.XPUB)
        sub = self.start("sub", endpoint, "--topic", "[a,b]", "--topic", "bc", "--count", "2")
        self.assertEqual({b"\1[a,b]", b"\1bc"}, {publisher.recv(), publisher.recv()})
        for text in (b"b", b"bcd", b"c", b"[a,b]"):
            publisher.send(text)

        self.assertEqual((0, b"bcd\n[a,b]\n", ""), sub.end())


class Sending(ToolTest):
    def test_replays_the_parts_that_were_recorded(self):
        self.assertEqual((0, b"", ""), self.run_sub([PARTS, b"next"], "--record", self.path("recording")))

        self.publishes([PARTS, b"next"], "--replay", self.path("recording"))

    def test_splits_texts_at_the_separator(self):
        self.publishes([[b"a", b"b"], [b"", b""], b"c"], "--separator", "::", "a::b", "::", "c")

    def test_reads_hexadecimal_digits_of_each_part(self):
        self.publishes([[b"\x00\xff", b"a"]], "--separator", "/", "--hex", "00ff/61")

    def test_encodes_the_chosen_part(self):
        self.publishes([[b"a", plant.Order(name="b").SerializeToString()]], "--separator", "|", *SCHEMA, 'a|{"name":"b"}')

    def test_asks_and_answers_with_parts(self):
        endpoint = self.fresh_endpoint()
        rep = self.start("rep", endpoint, "--echo", "--parts", "--count", "1")
        status, output, _ = self.run_tool("req", endpoint, "--separator", "|", "--parts", "a|b")

        self.assertEqual((0, b"a|b\n"), (status, output))
        self.assertEqual((0, b"a\tb\n", ""), rep.end())


class PushAndPull(ToolTest):
    def test_hand_over_every_message(self):
        endpoint = self.fresh_endpoint()
        push = self.start("push", endpoint)
        pull = self.start("pull", endpoint, "--count", "1000")
        lines = b"".join(b"%d\n" % number for number in range(1000))
        push.write(lines)
        push.close_input()

        self.assertEqual((0, lines, ""), pull.end())
        self.assertEqual((0, b"", ""), push.end())

    def test_wait_for_a_receiver(self):
        endpoint = self.fresh_endpoint()
        push = self.start("push", endpoint, "a")
        peer = self.peer(zmq.PULL)
        peer.connect(endpoint)

        self.assertEqual(b"a", peer.recv())
        self.assertEqual((0, b"", ""), push.end())


class Directions(ToolTest):
    """--bind and --connect, with peers on the other side."""

    def test_each_command_can_be_on_either_side(self):
        for command, options, kind in (("sub", ["--bind", "--count", "1"], zmq.PUB), ("pull", ["--bind", "--count", "1"], zmq.PUSH)):
            endpoint = self.fresh_endpoint()
            tool = self.start(command, endpoint, *options)
            peer = self.peer(kind, reconnect_ivl=5)
            peer.connect(endpoint)
            while tool.process.poll() is None:
                peer.send(b"a")
            self.assertEqual((0, b"a\n", ""), tool.end())

    def test_pub_and_push_connect(self):
        for command, kind in (("pub", zmq.SUB), ("push", zmq.PULL)):
            peer, endpoint = self.bound(kind)
            if kind == zmq.SUB:
                peer.subscribe(b"")
            tool = self.start(command, endpoint, "--connect", "a", *(["--wait", "1"] if command == "pub" else []))
            self.assertEqual(b"a", peer.recv())
            self.assertEqual((0, b"", ""), tool.end())

    def test_req_binds_and_rep_connects(self):
        endpoint = self.fresh_endpoint()
        rep = self.start("rep", endpoint, "--connect", "--echo", "--count", "1")
        self.assertEqual((0, b"a\n"), self.run_tool("req", endpoint, "--bind", "a")[:2])
        self.assertEqual((0, b"a\n"), rep.end()[:2])


class Types(ToolTest):
    def test_are_listed(self):
        self.assertEqual((0, b"plant.Sample\nplant.Sample.Limits\nplant.Order\nplant.Receipt\n", ""),
                         self.run_tool("types", "--proto", self.schema("plant.proto")))

    def test_are_shown_as_json_to_fill_in(self):
        status, output, errors = self.run_tool("types", "--proto", self.schema("plant.proto"), "--type", "Sample")

        self.assertEqual((0, ""), (status, errors))
        self.assertEqual({"number": "0", "sensor": "", "quantity": {"value": 0, "unit": "CELSIUS"},
                          "limits": {"low": 0, "high": 0}, "time": "1970-01-01T00:00:00Z", "raw": [0]}, json.loads(output))

    def test_fill_in_what_is_accepted_as_a_message(self):
        schema = self.write_file("all.proto", b"""syntax = "proto3"; import "google/protobuf/struct.proto";
            import "google/protobuf/any.proto"; import "google/protobuf/wrappers.proto"; import "google/protobuf/duration.proto";
            message Tree { repeated Tree branches = 1; map<int32, string> names = 2; map<string, Tree> others = 3; bytes b = 4;
            bool c = 5; google.protobuf.Struct s = 6; google.protobuf.Any a = 7; google.protobuf.Int64Value i = 8;
            google.protobuf.Duration d = 9; google.protobuf.Value v = 10; float f = 11; fixed64 g = 12; }""")
        skeleton = self.run_tool("types", "--proto", schema, "--type", "Tree")[1].decode()

        self.assertEqual((0, b"", ""), self.run_tool("pub", self.fresh_endpoint(), "--delay", "0", "--proto", schema, "--type",
                                                     "Tree", skeleton))

    def test_come_from_a_descriptor_set_or_an_import_path(self):
        folder = self.path("types")
        os.mkdir(folder)
        with open(os.path.join(folder, "inner.proto"), "w") as file:
            file.write('syntax = "proto3"; package a; message Inner { int32 i = 1; }')
        outer = self.write_file("outer.proto", b'syntax = "proto3"; import "inner.proto"; message Outer { a.Inner inner = 1; }')
        compiled = self.path("set")
        subprocess.run(["protoc", "-I", folder, "-I", self.folder, "--include_imports", "--descriptor_set_out", compiled, outer],
                       check=True)

        self.assertEqual((0, b"Outer\n", ""), self.run_tool("types", "--proto", outer, "-I", folder))
        self.assertEqual((0, {b"Outer", b"a.Inner"}), (lambda done: (done[0], set(done[1].split())))(
            self.run_tool("types", "--descriptor-set", compiled)))
        self.assertEqual((0, b'{"inner":{"i":0}}\n', ""),
                         self.run_tool("types", "--descriptor-set", compiled, "--type", "Outer"))

    def test_a_descriptor_set_that_is_none_is_refused(self):
        for data in (b"", b"\xff"):
            file = self.write_file("set", data)
            self.assertEqual((1, b"", "rk-socket: %s: not a descriptor set, as protoc --descriptor_set_out writes it\n" % file),
                             self.run_tool("types", "--descriptor-set", file))


if __name__ == "__main__":
    unittest.main()
