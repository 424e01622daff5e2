"""Recordings that sub writes and pub replays with the same timing."""

import struct
import time
import unittest

from harness import TOOL, Terminal, ToolTest

HEADER = b"rk-socket recording 1\n"


def recorded(seconds, block):
    return struct.pack("<QI", int(seconds * 1e9), len(block)) + block


class Recording(ToolTest):
    def test_keeps_blocks_as_they_are_with_times_that_begin_at_zero(self):
        blocks = [b"one", b"", b"\x00\n\xff" * 50000]
        self.assertEqual((0, b"", ""), self.run_sub(blocks, "--record", self.path("recording")))
        data = self.read_file("recording")
        self.assertEqual(HEADER, data[:len(HEADER)])
        data = data[len(HEADER):]
        times = []
        for block in blocks:
            times.append(struct.unpack("<Q", data[:8])[0])
            self.assertEqual(struct.pack("<I", len(block)) + block, data[8:12 + len(block)])
            data = data[12 + len(block):]
        self.assertEqual((b"", 0, sorted(times)), (data, times[0], times))

    def test_is_there_before_the_next_message_comes(self):
        sub, publisher = self.start_sub("--record", "-")
        self.assertEqual(HEADER[:-1], sub.read_line())
        publisher.send(b"one\n")

        self.assertEqual(recorded(0, b"one\n"), sub.read_line() + b"\n")

    def test_a_file_that_cannot_be_written_is_named(self):
        self.assertEqual((1, b"", "rk-socket: cannot write /nowhere/file: No such file or directory\n"),
                         self.run_tool("sub", self.fresh_endpoint(), "--record", "/nowhere/file"))

    def test_shows_progress_on_a_terminal(self):
        terminal, publisher = self.show_sub("--record", self.path("recording"), "--count", "2")
        publisher.send(b"1234")
        terminal.read_until(b"[###############...............]  50 %  1 messages, 4 bytes")
        publisher.send(b"1234")

        status, text = terminal.end()
        self.assertEqual(0, status)
        self.assertTrue(text.endswith(b"[##############################] 100 %  2 messages, 8 bytes\r\n"), text)


class Replaying(ToolTest):
    def test_sends_what_was_recorded(self):
        blocks = [b"one", b"", b"\x00\n\xff" * 50000, b"last"]

        self.publishes(blocks, "--replay", "-", input=HEADER + b"".join(recorded(0, block) for block in blocks))

    def timed(self, *options, stretch=1):
        recording = self.write_file("recording", HEADER + recorded(0, b"a") + recorded(0.2 * stretch, b"b") +
                                    recorded(0.4 * stretch, b"c"))
        start = time.monotonic()
        self.assertEqual((0, b"", ""),
                         self.run_tool("pub", self.fresh_endpoint(), "--replay", recording, "--delay", "0", *options))
        return time.monotonic() - start

    def test_keeps_the_timing(self):
        self.assertGreaterEqual(self.timed(), 0.4)

    def test_is_as_fast_as_it_is_told(self):
        self.assertGreaterEqual(self.timed("--speed", "0.5"), 0.8)
        self.assertGreaterEqual(self.timed("--speed", "1000", stretch=1000), 0.4)

    def test_is_played_again_until_the_count(self):
        recording = self.write_file("recording", HEADER + recorded(0, b"a") + recorded(0.01, b"b"))
        self.publishes([b"a", b"b", b"a", b"b", b"a"], "--replay", recording, "--count", "5")

        pub, subscriber = self.start_pub("--replay", recording, "--count", "0")
        self.assertEqual([b"a", b"b"] * 3, [subscriber.recv() for _ in range(6)])
        pub.signal(2)
        self.assertEqual((0, b"", ""), pub.end())

    def test_a_recording_of_nothing_is_not_played_for_ever(self):
        recording = self.write_file("recording", HEADER)

        self.assertEqual((0, b"", ""), self.run_tool("pub", self.fresh_endpoint(), "--replay", recording, "--count", "0"))

    def test_ends_after_the_count(self):
        recording = self.write_file("recording", HEADER + recorded(0, b"a") + recorded(1000, b"b"))

        self.assertEqual(0, self.run_tool("pub", self.fresh_endpoint(), "--replay", recording, "--delay", "0",
                                          "--count", "1")[0])

    def test_speed_0_makes_no_pauses(self):
        recording = self.write_file("recording", HEADER + recorded(0, b"a") + recorded(1000, b"b"))

        self.assertEqual(0, self.run_tool("pub", self.fresh_endpoint(), "--replay", recording, "--delay", "0",
                                          "--speed", "0")[0])

    def test_a_truncated_recording_names_the_place_and_what_was_before_is_sent(self):
        end, subscriber = self.run_pub("--replay", "-", input=HEADER + recorded(0, b"whole") + recorded(0, b"0123456789")[:-4])

        self.assertEqual(b"whole", subscriber.recv())
        self.assertEqual((1, b"", "rk-socket: standard input: truncated: message 2, at byte 39, has 18 of at least "
                                  "22 bytes\n"), end)

    def test_every_truncation_names_its_place(self):
        whole = HEADER + recorded(0, b"12345") + recorded(0, b"67890")
        second = len(HEADER) + 17
        for size in range(second + 1, len(whole)):
            recording = self.write_file("recording", whole[:size])
            wanted = 12 if size < second + 12 else 17
            self.assertEqual((1, b"", "rk-socket: %s: truncated: message 2, at byte %d, has %d of at least %d bytes\n" %
                              (recording, second, size - second, wanted)),
                             self.run_tool("pub", self.fresh_endpoint(), "--replay", recording, "--delay", "0"))

    def test_what_is_no_recording_is_refused(self):
        for data, reason in ((b"", "not a recording"), (b"something else entirely", "not a recording"),
                             (b"rk-socket recording 2\n", "a recording of another version; this program reads version 1")):
            recording = self.write_file("recording", data)
            self.assertEqual((1, b"", "rk-socket: %s: %s\n" % (recording, reason)),
                             self.run_tool("pub", self.fresh_endpoint(), "--replay", recording))

    def test_shows_progress_on_a_terminal(self):
        recording = self.write_file("recording", HEADER + recorded(0, b"a") + recorded(0.01, b"b"))
        status, text = Terminal([TOOL, "pub", self.fresh_endpoint(), "--replay", recording, "--delay", "0"]).end()

        self.assertEqual(0, status)
        self.assertTrue(text.endswith(b"[##############################] 100 %  2 messages\r\n"), text)


if __name__ == "__main__":
    unittest.main()
