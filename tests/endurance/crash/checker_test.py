#!/usr/bin/env python3
"""The checker accepts a correct history, and detects each kind of breach in a manipulated one."""

import unittest

from checker import check
from history import SECOND, Intervals, parse

# A client that is served, a server that is killed and restarted, a handler that fails, a feed, and a closed socket.
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
6.05 requester-1#1 request 1
6.06 requester-1#1 answer 1 requester-1#1 1 1
6.10 requester-1#1 request 2
6.40 requester-1#1 unanswered 2
20.0 host end-of-run
"""
SERVED = "4.02 server#2 serve closer#1 1 1"
EVERY_SECOND = "{0}.1 server#2 repair\n{0}.2 server#2 connected\n{0}.3 server#2 serve client-2#1 {0} 1\n"

# The replaced part of the history, its replacement, an addition, and the checks that must fail.
CASES = {
    "sound": ({}, "", ""),
    "an error": ({}, "5 server#2 error Failed connecting", "nothing_unexpected"),
    "a crash": ({}, "5 host exit server#2 -11 unexpected", "nothing_unexpected"),
    "the reply to an earlier request": (
        {"reply 2 1 client-1#1 2 1": "reply 2 1 client-1#1 1 1"}, "", "replies_are_to_the_request"),
    "the reply to an earlier attempt": (
        {"reply 3 2 client-1#1 3 2": "reply 3 2 client-1#1 3 1"}, "", "replies_are_to_the_request"),
    "the reply to another client": (
        {"reply 2 1 client-1#1 2 1": "reply 2 1 client-2#1 2 1"}, "", "replies_are_to_the_request"),
    "a second reply": ({}, "0.23 client-1#1 reply 2 1 client-1#1 2 1", "replies_are_to_the_request"),
    "a reply that no server has sent": ({"0.21 server#1 serve client-1#1 2 1": ""}, "", "replies_are_to_the_request"),
    "a request served twice": ({}, "1.40 server#2 serve client-1#1 3 2", "requests_are_served_once"),
    "a request served by two servers": ({}, "1.055 server#2 serve client-1#1 2 1", "requests_are_served_once"),
    "a repetition without a repair": (
        {"1.33 client-1#1 repair": "1.33 server#2 serve client-1#1 3 1"}, "", "repetitions_are_repairs"),
    "a repetition after a repair": ({}, "1.335 server#2 serve client-1#1 3 1", ""),
    "requests out of order on two connections": ({}, "1.36 server#2 serve client-1#1 3 1", ""),
    "a request lost in calm": (
        {}, "6.1 client-1#1 ask 6 1\n6.4 client-1#1 timeout 6 1", "steady_requests_are_served"),
    "a request lost on a connection that has not worked yet": (
        {}, "6.1 client-1#1 ask 6 1\n6.11 client-1#1 repair\n6.4 client-1#1 timeout 6 1", ""),
    "a request served late in calm": (
        {}, "6.1 client-1#1 ask 6 1\n6.4 client-1#1 timeout 6 1\n6.5 server#2 serve client-1#1 6 1", ""),
    "a request lost while the server is rebuilt": (
        {}, "2.005 client-2#1 ask 1 1\n2.1 client-2#1 timeout 1 1\n2.5 client-2#1 ask 1 2\n"
        "2.51 server#2 serve client-2#1 1 2\n2.52 client-2#1 reply 1 2 client-2#1 1 2", ""),
    "a feed that repeats itself": ({}, "3.2 subscriber#1 got publisher#1 2 1", "feeds_keep_their_order"),
    "a feed that goes back": ({}, "3.2 subscriber#1 got publisher#1 1 1", "feeds_keep_their_order"),
    "a gap in a feed in calm": ({}, "3.2 subscriber#1 got publisher#1 4 1", "steady_feeds_are_complete"),
    "a gap in a feed while a process is frozen": (
        {}, "3.12 host begin 2 freeze subscriber\n3.15 host end 2\n3.16 publisher#1 publish 5\n"
        "3.2 subscriber#1 got publisher#1 5 1", "steady_feeds_are_complete"),
    "a gap in a feed while the link is cut": (
        {}, "3.12 host begin 2 cut network\n3.15 host end 2\n3.16 publisher#1 publish 5\n"
        "3.2 subscriber#1 got publisher#1 5 1", ""),
    "a gap in a feed that begins while the link is cut": (
        {"3.11 subscriber#1 got publisher#1 2 1": ""},
        "3.12 host begin 2 cut network\n3.13 publisher#1 publish 3\n3.15 host end 2\n3.16 publisher#1 publish 5\n"
        "3.17 subscriber#1 got publisher#1 2 1\n3.2 subscriber#1 got publisher#1 5 1", ""),
    "a request lost against its close policy": ({SERVED: ""}, "", "close_policies_are_kept"),
    "a request lost against two seconds of linger": (
        {SERVED: "", "closed 2": "closed 1"}, "", "close_policies_are_kept"),
    "a request that may be dropped": ({SERVED: "", "closed 2": "closed 0"}, "", ""),
    "a request lost with the server that had it": (
        {SERVED: "4.02 host begin 2 kill server"}, "4.6 host end 2", ""),
    "the reply to another request": (
        {"answer 1 requester-1#1 1 1": "answer 1 requester-1#1 7 1"}, "", "requesters_get_their_own_replies"),
    "the reply to another requester": (
        {"answer 1 requester-1#1 1 1": "answer 1 requester-2#1 1 1"}, "", "requesters_get_their_own_replies"),
    "a reply that no one has sent": (
        {"answer 1 requester-1#1 1 1": "garbled"}, "", "requesters_get_their_own_replies"),
    "a request that takes too long": (
        {"6.40 requester-1#1 unanswered 2": "7.41 requester-1#1 unanswered 2"}, "", "requesters_keep_their_deadlines"),
    "a request of a requester that is frozen": (
        {"6.40 requester-1#1 unanswered 2": "7.41 requester-1#1 unanswered 2"},
        "6.2 host begin 2 freeze requester-1\n7.3 host end 2", ""),
    "clients and a subscriber that are forgotten": (
        {"6.02 client-1#1 reply 5 1 client-1#1 5 1": ""}, "6.5 host begin 2 cut network\n7 host end 2",
        "clients_are_served_again subscribers_are_fed_again"),
}
# The same, with messages that the breaches must contain.
TEXTS = {
    "requests out of order on one connection": (
        {"0.11 server#1 serve client-1#1 1 1": "0.215 server#1 serve client-1#1 1 1"}, "",
        "requests_keep_their_order: server#1 has taken client-1#1 (1, 1) after (2, 1)"),
    "a server that is deaf after a failure": (
        {}, "7 client-1#1 provoke 6 1\n7.1 server#2 fail client-1#1 6 1\n" + "".join(
            f"{time} client-1#1 timeout 6 {time - 6}\n{time}.1 client-1#1 ask 6 {time - 5}\n" for time in range(7, 25)),
        "clients_are_served_again: client-1 is not served within 10 s after 10100000000"),
    "a client that is forgotten while the server is rebuilt": (
        {}, "7 client-1#1 ask 6 1\n" + "".join(EVERY_SECOND.format(time) for time in range(7, 30)),
        "clients_are_served_again: client-1 is not served within 10 s after 7200000000"),
}


def history(replaced, added):
    text = SOUND + added
    for line, other in replaced.items():
        assert line in text
        text = text.replace(line, other or "0 host nothing")
    lines = [line.split(maxsplit=1) for line in text.strip().splitlines()]
    return [parse(f"{round(float(time) * SECOND)} {rest}") for time, rest in lines]


class Checker(unittest.TestCase):
    def test_refuses_what_breaks_a_promise_and_nothing_else(self):
        for name, (replaced, added, checks) in CASES.items():
            with self.subTest(name):
                breaches = check(history(replaced, added))
                self.assertEqual(checks.split(), sorted({text.split(":")[0] for text in breaches}))

    def test_says_what_is_broken(self):
        for name, (replaced, added, text) in TEXTS.items():
            with self.subTest(name):
                self.assertIn(text, check(history(replaced, added)))

    def test_lets_an_empty_history_pass(self):
        self.assertEqual([], check([]))


class TimesThatAreDisturbed(unittest.TestCase):
    def test_are_joined_where_they_overlap(self):
        intervals = Intervals([(5, 7), (1, 3), (2, 4)])
        self.assertEqual(([1, 5], [4, 7]), (intervals.begins, intervals.ends))

    def test_are_touched_by_what_begins_or_ends_within(self):
        intervals = Intervals([(10, 20)])
        for begin, end, touched in ((1, 9, False), (1, 10, True), (12, 13, True), (20, 30, True), (21, 30, False)):
            self.assertEqual(touched, intervals.touch(begin, end), (begin, end))

    def test_tell_the_moments_around_them(self):
        intervals = Intervals([(10, 20), (30, 40)])
        self.assertEqual((20, float("-inf")), (intervals.last_end_before(25), intervals.last_end_before(5)))
        self.assertEqual((30, float("inf")), (intervals.next_begin_after(25), intervals.next_begin_after(50)))
        self.assertEqual((20, 25), (intervals.free_from(15), intervals.free_from(25)))


class Line(unittest.TestCase):
    def test_is_refused_when_malformed(self):
        with self.assertRaises(ValueError):
            parse("half a line")


if __name__ == "__main__":
    unittest.main()
