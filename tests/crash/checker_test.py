#!/usr/bin/env python3
"""The checker lets a sound history pass, and refuses each kind of broken promise when it is planted."""

import unittest

from checker import check
from history import SECOND, Event, Intervals, parse

# A client that is served, a server that is killed and comes back, a handler that fails, a feed, and a closed socket.
SOUND = """
0.00 server#1 ready
0.10 client-1#1 ask 1 1
0.11 server#1 serve client-1#1 1 1
0.12 client-1#1 reply 1 1 client-1#1 1 1
0.20 client-1#1 ask 2 1
0.21 server#1 serve client-1#1 2 1
0.22 client-1#1 reply 2 1 client-1#1 2 1
1.00 host begin 1 kill server
1.01 client-1#1 ask 3 1
1.02 host exit server#1 -9 expected
1.05 server#2 ready
1.06 host end 1
1.31 client-1#1 timeout 3 1
1.32 client-1#1 ask 3 2
1.33 client-1#1 repair
1.34 server#2 serve client-1#1 3 2
1.35 client-1#1 reply 3 2 client-1#1 3 2
2.00 client-1#1 provoke 4 1
2.01 server#2 fail client-1#1 4 1
2.02 server#2 repair
2.03 server#2 connected
2.30 client-1#1 timeout 4 1
2.31 client-1#1 ask 4 2
2.32 client-1#1 repair
2.33 server#2 serve client-1#1 4 2
2.34 client-1#1 reply 4 2 client-1#1 4 2
3.00 publisher#1 publish 1
3.01 subscriber#1 got publisher#1 1 1
3.10 publisher#1 publish 2
3.11 subscriber#1 got publisher#1 2 1
4.00 closer#1 ask 1 1
4.01 closer#1 closed 2
4.02 server#2 serve closer#1 1 1
4.03 host exit closer#1 0 expected
6.00 client-1#1 ask 5 1
6.01 server#2 serve client-1#1 5 1
6.02 client-1#1 reply 5 1 client-1#1 5 1
20.0 host end-of-run
"""


def events(text):
    lines = [line.split(maxsplit=1) for line in text.strip().splitlines()]
    return [parse(f"{round(float(time) * SECOND)} {rest}") for time, rest in lines]


def with_lines(text):
    return events(SOUND + text.strip())


def without(line):
    assert line in SOUND
    return events(SOUND.replace(line, "0 host nothing"))


def changed(line, other):
    assert line in SOUND
    return events(SOUND.replace(line, other))


class Checker(unittest.TestCase):
    def assert_breaches(self, history, *checks):
        """Exactly these checks find something."""
        self.assertEqual(sorted({text.split(":")[0] for text in check(history)}), sorted(checks))

    def test_a_sound_history_passes(self):
        self.assertEqual(check(events(SOUND)), [])

    def test_an_empty_history_passes(self):
        self.assertEqual(check([]), [])

    def test_an_error_is_refused(self):
        self.assert_breaches(with_lines("5 server#2 error Failed connecting"), "nothing_unexpected")

    def test_a_process_that_crashes_is_refused(self):
        self.assert_breaches(with_lines("5 host exit server#2 -11 unexpected"), "nothing_unexpected")

    def test_the_reply_to_an_earlier_request_is_refused(self):
        self.assert_breaches(
            changed("reply 2 1 client-1#1 2 1", "reply 2 1 client-1#1 1 1"), "replies_are_to_the_request"
        )

    def test_the_reply_to_an_earlier_attempt_is_refused(self):
        self.assert_breaches(
            changed("reply 3 2 client-1#1 3 2", "reply 3 2 client-1#1 3 1"), "replies_are_to_the_request"
        )

    def test_the_reply_to_another_client_is_refused(self):
        self.assert_breaches(
            changed("reply 2 1 client-1#1 2 1", "reply 2 1 client-2#1 2 1"), "replies_are_to_the_request"
        )

    def test_a_second_reply_is_refused(self):
        self.assert_breaches(with_lines("0.23 client-1#1 reply 2 1 client-1#1 2 1"), "replies_are_to_the_request")

    def test_a_reply_that_nobody_has_sent_is_refused(self):
        self.assert_breaches(without("0.21 server#1 serve client-1#1 2 1"), "replies_are_to_the_request")

    def test_a_request_that_is_served_twice_is_refused(self):
        self.assert_breaches(with_lines("1.40 server#2 serve client-1#1 3 2"), "requests_are_served_once")

    def test_a_request_that_two_servers_serve_is_refused(self):
        self.assert_breaches(with_lines("1.055 server#2 serve client-1#1 2 1"), "requests_are_served_once")

    def test_a_repetition_without_a_repair_is_refused(self):
        history = SOUND.replace("1.33 client-1#1 repair", "1.33 server#2 serve client-1#1 3 1")
        self.assert_breaches(events(history), "repetitions_are_repairs")

    def test_a_repetition_after_a_repair_passes(self):
        self.assert_breaches(with_lines("1.335 server#2 serve client-1#1 3 1"))

    def test_requests_out_of_order_on_one_connection_are_refused(self):
        history = changed("0.11 server#1 serve client-1#1 1 1", "0.215 server#1 serve client-1#1 1 1")
        self.assertIn(
            "requests_keep_their_order: server#1 has taken client-1#1 (1, 1) after (2, 1)", check(history)
        )

    def test_requests_out_of_order_on_two_connections_pass(self):
        # The first attempt, on the connection that was given up, comes after the second.
        self.assert_breaches(with_lines("1.36 server#2 serve client-1#1 3 1"))

    def test_a_request_that_is_lost_in_calm_is_refused(self):
        self.assert_breaches(
            with_lines("6.1 client-1#1 ask 6 1\n6.4 client-1#1 timeout 6 1"), "steady_requests_are_served"
        )

    def test_a_request_that_is_served_late_in_calm_passes(self):
        self.assert_breaches(
            with_lines(
                "6.1 client-1#1 ask 6 1\n6.4 client-1#1 timeout 6 1\n6.5 server#2 serve client-1#1 6 1"
            )
        )

    def test_a_request_that_is_lost_while_the_server_is_rebuilt_passes(self):
        self.assert_breaches(with_lines("2.005 client-2#1 ask 1 1\n2.1 client-2#1 timeout 1 1\n2.5 client-2#1 ask 1 2\n"
                                        "2.51 server#2 serve client-2#1 1 2\n2.52 client-2#1 reply 1 2 client-2#1 1 2"))

    def test_a_feed_that_repeats_itself_is_refused(self):
        self.assert_breaches(with_lines("3.2 subscriber#1 got publisher#1 2 1"), "feeds_keep_their_order")

    def test_a_feed_that_goes_back_is_refused(self):
        self.assert_breaches(with_lines("3.2 subscriber#1 got publisher#1 1 1"), "feeds_keep_their_order")

    def test_a_gap_in_a_feed_in_calm_is_refused(self):
        self.assert_breaches(with_lines("3.2 subscriber#1 got publisher#1 4 1"), "steady_feeds_are_complete")

    def test_a_gap_in_a_feed_while_somebody_is_frozen_is_refused(self):
        freeze = "3.12 host begin 2 freeze subscriber\n3.15 host end 2\n3.16 publisher#1 publish 5\n"
        self.assert_breaches(
            with_lines(freeze + "3.2 subscriber#1 got publisher#1 5 1"), "steady_feeds_are_complete"
        )

    def test_a_gap_in_a_feed_while_the_link_is_cut_passes(self):
        cut = "3.12 host begin 2 cut network\n3.15 host end 2\n3.16 publisher#1 publish 5\n"
        self.assert_breaches(with_lines(cut + "3.2 subscriber#1 got publisher#1 5 1"))

    def test_a_gap_in_a_feed_that_begins_while_the_link_is_cut_passes(self):
        cut = "3.12 host begin 2 cut network\n3.13 publisher#1 publish 3\n3.15 host end 2\n3.16 publisher#1 publish 5\n"
        late = without("3.11 subscriber#1 got publisher#1 2 1") + events(
            cut + "3.17 subscriber#1 got publisher#1 2 1\n3.2 subscriber#1 got publisher#1 5 1"
        )
        self.assert_breaches(late)

    def test_a_request_lost_against_its_close_policy_is_refused(self):
        self.assert_breaches(without("4.02 server#2 serve closer#1 1 1"), "close_policies_are_kept")

    def test_a_request_lost_against_two_seconds_of_linger_is_refused(self):
        history = SOUND.replace("4.02 server#2 serve closer#1 1 1", "0 host nothing").replace("closed 2", "closed 1")
        self.assert_breaches(events(history), "close_policies_are_kept")

    def test_a_request_that_may_be_dropped_passes(self):
        history = SOUND.replace("4.02 server#2 serve closer#1 1 1", "0 host nothing").replace("closed 2", "closed 0")
        self.assert_breaches(events(history))

    def test_a_request_lost_with_the_server_that_had_it_passes(self):
        history = SOUND.replace("4.02 server#2 serve closer#1 1 1", "4.02 host begin 2 kill server")
        self.assert_breaches(events(history + "4.6 host end 2"))

    def test_a_client_that_is_not_served_again_is_refused(self):
        self.assert_breaches(without("6.02 client-1#1 reply 5 1 client-1#1 5 1")[:-1] + events(
            "6.5 host begin 2 cut network\n7 host end 2\n20 host end-of-run"), "clients_are_served_again",
            "subscribers_are_fed_again")

    def test_a_server_that_is_deaf_after_a_failure_is_refused(self):
        deaf = "7 client-1#1 provoke 6 1\n7.1 server#2 fail client-1#1 6 1\n" + "".join(
            f"{time} client-1#1 timeout 6 {time - 6}\n{time + 0.1} client-1#1 ask 6 {time - 5}\n"
            for time in range(7, 25)
        )
        self.assertIn(
            "clients_are_served_again: client-1 is not served within 10 s after 10100000000", check(with_lines(deaf))
        )

    def test_a_client_that_is_forgotten_while_the_server_is_rebuilt_for_others_is_refused(self):
        forgotten = "7 client-1#1 ask 6 1\n" + "".join(
            f"{time}.1 server#2 repair\n{time}.2 server#2 connected\n{time}.3 server#2 serve client-2#1 {time} 1\n"
            for time in range(7, 30)
        )
        self.assertIn(
            "clients_are_served_again: client-1 is not served within 10 s after 7200000000",
            check(with_lines(forgotten)),
        )

    def test_a_malformed_line_is_refused(self):
        with self.assertRaises(ValueError):
            parse("half a line")


class TimesThatAreDisturbed(unittest.TestCase):
    def test_are_joined_where_they_overlap(self):
        intervals = Intervals([(5, 7), (1, 3), (2, 4)])
        self.assertEqual((intervals.begins, intervals.ends), ([1, 5], [4, 7]))

    def test_are_touched_by_what_begins_or_ends_within(self):
        intervals = Intervals([(10, 20)])
        for begin, end, touched in ((1, 9, False), (1, 10, True), (12, 13, True), (20, 30, True), (21, 30, False)):
            self.assertEqual(intervals.touch(begin, end), touched, (begin, end))

    def test_tell_the_moments_around_them(self):
        intervals = Intervals([(10, 20), (30, 40)])
        self.assertEqual(intervals.last_end_before(25), 20)
        self.assertEqual(intervals.last_end_before(5), float("-inf"))
        self.assertEqual(intervals.next_begin_after(25), 30)
        self.assertEqual(intervals.next_begin_after(50), float("inf"))
        self.assertEqual((intervals.free_from(15), intervals.free_from(25)), (20, 25))


class Line(unittest.TestCase):
    def test_is_taken_apart(self):
        self.assertEqual(parse("12 client-1#2 ask 3 1"), Event(12, "client-1#2", "ask", ("3", "1")))


if __name__ == "__main__":
    unittest.main()
