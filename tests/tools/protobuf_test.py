"""Values that protobuf's JSON cannot represent, and unknown fields, compared with Python's protobuf."""

import json
import unittest

from harness import SCHEMAS, ToolTest, generated, zmq

legacy = generated("legacy")

OPTIONS = ["--proto", SCHEMAS + "/legacy.proto", "--type", "Order"]


def full_order():
    order = legacy.Order(text="a", state=legacy.Order.DONE, checksum=7, notes=["x"])
    order.line.add(number=1).price.value = 0.5
    order.line.add(number=2)
    order.Extensions[legacy.clerk] = "Ann"
    order.Extensions[legacy.marks].extend([1, -2])
    order.Extensions[legacy.shift].order.line.add().price.value = 2
    order.Extensions[legacy.seal].wax = b"\xff"
    return order


FULL_JSON = {"text": "a", "line": [{"number": 1, "price": {"value": 0.5}}, {"number": 2}], "state": "DONE", "checksum": 7,
             "notes": ["x"], "[legacy.clerk]": "Ann", "[legacy.marks]": [1, -2],
             "[legacy.shift]": {"order": {"line": [{"price": {"value": 2}}]}}, "[legacy.seal]": {"wax": "/w=="}}


class Receiving(ToolTest):
    def sub(self, *blocks):
        return self.run_sub(blocks, *OPTIONS)

    def test_shows_groups_and_extensions(self):
        status, output, errors = self.sub(full_order().SerializeToString())

        self.assertEqual((0, FULL_JSON, ""), (status, json.loads(output), errors))

    def test_drops_unknown_groups_and_says_so(self):
        status, output, errors = self.sub(b"\x53\x08\x01\x5b\x5c\x54" + legacy.Order(text="a").SerializeToString())

        self.assertEqual((0, {"text": "a"}, "rk-socket: there are fields that legacy.Order does not have, number 10: "
                                            "is it the right type?\n"), (status, json.loads(output), errors))

    def test_names_strings_that_are_not_utf8(self):
        status, output, errors = self.sub(b"\x0a\x02a\xff", b"\x2a\x01b\x2a\x01\xfe", b"\x0a\x01c")

        self.assertEqual((1, b'{"text":"c"}\n'), (status, output))
        self.assertEqual('rk-socket: message 1, 4 bytes: not UTF-8, which JSON has to be: legacy.Order.text; decoded, with '
                         'these bytes escaped: {"text":"a\\\\xFF"}\n'
                         'rk-socket: message 2, 6 bytes: not UTF-8, which JSON has to be: legacy.Order.notes; decoded, with '
                         'these bytes escaped: {"notes":["b","\\\\xFE"]}\n', errors)

    def test_remarks_on_each_thing_that_the_type_lacks(self):
        enumeration, encoding, field = b"\x18\x05", b"\x20\x01", b"\x50\x01"
        status, output, errors = self.sub(enumeration, enumeration + encoding, enumeration + field, enumeration)

        self.assertEqual((0, [{"state": 5}] * 4), (status, [json.loads(line) for line in output.splitlines()]))
        self.assertEqual("rk-socket: 5 is no value of legacy.Order.state: is the schema up to date?\n"
                         "rk-socket: legacy.Order.checksum is not encoded as fixed32: is it the right type?\n"
                         "rk-socket: there are fields that legacy.Order does not have, number 10: is it the right type?\n",
                         errors)

    def test_drops_groups_in_place_of_text_and_the_reverse(self):
        text, group = b"\x0b\x08\x01\x0c", b"\x12\x02\x08\x01"
        status, output, errors = self.sub(text + group + legacy.Order(state=legacy.Order.DONE).SerializeToString())

        self.assertEqual((0, {"state": "DONE"}), (status, json.loads(output)))
        self.assertEqual("rk-socket: legacy.Order.line is not encoded as group: is it the right type?\n"
                         "rk-socket: legacy.Order.text is not encoded as string: is it the right type?\n", errors)


class Sending(ToolTest):
    def served(self, request):
        """Returns the request that a server receives for JSON input."""
        server, endpoint = self.bound(zmq.REP)
        req = self.start("req", endpoint, *OPTIONS, json.dumps(request))
        block = server.recv()
        server.send(block)
        return block, req.end()

    def test_carries_groups_and_extensions_in_both_directions(self):
        block, (status, output, _) = self.served(FULL_JSON)

        self.assertEqual(full_order(), legacy.Order.FromString(block))
        self.assertEqual((0, FULL_JSON), (status, json.loads(output)))

    def test_refuses_json_that_is_not_utf8(self):
        self.assertEqual((1, b"", "rk-socket: standard input, line 1: not UTF-8, which JSON has to be\n"),
                         self.run_tool("pub", self.fresh_endpoint(), "--delay", "0", *OPTIONS, input=b'{"text": "a\xff"}\n'))


if __name__ == "__main__":
    unittest.main()
