"""Checks a history against the library's guarantees. Each check yields a message for each breach."""

import collections
import math

from history import SECOND, History, Intervals, role

# How soon all clients are served after the last disturbance. ZeroMQ reconnects after a tenth of a second, and clients
# retry lost requests. The rest is a margin for a busy machine.
RECOVERY = 10 * SECOND
# How soon an undisturbed server serves a request that has been written to the connection.
DELIVERY = 1 * SECOND
# A lingering socket has two seconds. That suffices if the server starts within half a second.
LINGER_MARGIN = SECOND // 2
REQUEST_TIMEOUT = 100  # milliseconds per attempt
REQUEST_ATTEMPTS = 3
# A requester's delay after its last attempt, on a busy machine.
REQUEST_MARGIN = 1 * SECOND
LINGER_TWO_SECONDS = "1"
WAIT_FOR_DELIVERY = "2"

ASKS = ("ask", "provoke")
SERVED = ("serve", "fail")
REQUEST_ENDS = ("answer", "unanswered", "garbled")  # of a requester


def check(events):
    """All breaches of promises in the events."""
    history = History(events)
    checks = (
        nothing_unexpected,
        replies_are_to_the_request,
        requests_are_served_once,
        repetitions_are_repairs,
        requests_keep_their_order,
        steady_requests_are_served,
        feeds_keep_their_order,
        steady_feeds_are_complete,
        close_policies_are_kept,
        clients_are_served_again,
        subscribers_are_fed_again,
        requesters_get_their_own_replies,
        requesters_keep_their_deadlines,
    )
    return [f"{one.__name__}: {text}" for one in checks for text in one(history)]


def nothing_unexpected(history):
    for event in history.events:
        if event.kind == "error":
            yield f"{event.process} has written: {' '.join(event.args)}"
        if event.kind == "exit" and event.args[2] != "expected":
            yield f"{event.args[0]} has ended with status {event.args[1]}"


def _served(history):
    """Returns (sender, number, attempt) of all requests that servers received, with the events."""
    result = collections.defaultdict(list)
    for event in history.events:
        if event.kind in SERVED:
            result[event.args].append(event)
    return result


def _outcomes(history, process, *kinds):
    """Yields (request, event) for each event of these kinds. The request is None if none is open."""
    asked = None
    for event in history.of_process[process]:
        if event.kind in (*ASKS, "request"):
            asked = event
        elif event.kind in kinds:
            yield asked, event
            asked = None


def replies_are_to_the_request(history):
    served = _served(history)
    for process in history.of_process:
        for asked, reply in _outcomes(history, process, "reply"):
            letter = reply.args[2:]
            if asked is None:
                yield f"{process} has got {' '.join(letter)}, with no request open"
            elif letter != (process, *asked.args):
                yield f"{process} has asked {' '.join(asked.args)} and got {' '.join(letter)}"
            elif not any(one.time <= reply.time for one in served[letter]):
                yield f"{process} has got a reply to {' '.join(asked.args)}, which no server has served"


def requests_are_served_once(history):
    for letter, events in _served(history).items():
        if len(events) > 1:
            yield f"{' '.join(letter)} was served {len(events)} times"


def repetitions_are_repairs(history):
    attempts = collections.defaultdict(set)
    for sender, number, attempt in _served(history):
        attempts[sender, number].add(int(attempt))
    for process in history.of_process:
        broken = False  # whether the exchange was disturbed, so that a retry is allowed
        for event in history.of_process[process]:
            if event.kind in ("repair", "garbled"):
                broken = True
            elif event.kind in ASKS and event.args[1] == "1":
                broken = False
            elif event.kind in ("reply", "timeout") and int(event.args[1]) > 1 and not broken:
                if len(attempts[process, event.args[0]]) > 1:
                    yield f"{process} {event.args[0]} was served more than once, without a repair"


def _epochs(events):
    """Returns for every request the number of repairs until it was sent."""
    epochs = {}
    repairs = 0
    latest = None
    for event in events:
        if event.kind in ASKS:
            latest = event.args
            epochs[latest] = repairs
        elif event.kind == "repair":
            repairs += 1
            if latest:
                epochs[latest] = repairs
    return epochs


def requests_keep_their_order(history):
    epochs = {process: _epochs(events) for process, events in history.of_process.items()}
    for server in history.processes("server"):
        last = {}
        for event in history.of_process[server]:
            if event.kind not in SERVED:
                continue
            sender, *letter = event.args
            connection = (sender, epochs.get(sender, {}).get(tuple(letter)))
            order = tuple(map(int, letter))
            if order < last.get(connection, (0, 0)):
                yield f"{server} has taken {sender} {order} after {last[connection]}"
            last[connection] = order


def steady_requests_are_served(history):
    """Reports requests that were lost without a disturbance, on a connection that had worked since the last one and since
    the client's last repair. A second repair drops requests that have not left the client."""
    served = _served(history)
    for client in history.roles("client"):
        disturbed = history.disturbed("server", client)
        for process in history.processes(client):
            repairs = Intervals((event.time, event.time) for event in history.of_process[process] if event.kind == "repair")
            sent = answered = -math.inf  # the latest request that was answered
            for asked, event in _outcomes(history, process, "reply", "timeout"):
                if asked and event.kind == "reply":
                    sent, answered = asked.time, event.time
                elif asked and not disturbed.touch(asked.time, event.time):
                    steady = sent > disturbed.last_end_before(asked.time)
                    steady = steady and answered > repairs.last_end_before(event.time)
                    if steady and (process, *asked.args) not in served:
                        yield f"{process} {' '.join(asked.args)} is lost, though nothing was disturbed"


def _feed(history):
    """Returns (subscriber, event, publisher, number) of all received messages."""
    for process in history.processes("subscriber"):
        for event in history.of_process[process]:
            if event.kind == "got":
                yield process, event, event.args[0], int(event.args[1])


def feeds_keep_their_order(history):
    last = {}
    for subscriber, _, publisher, number in _feed(history):
        if number <= last.get((subscriber, publisher), 0):
            yield f"{subscriber} has got {publisher} {number} after {last[subscriber, publisher]}"
        last[subscriber, publisher] = number


def _published(history):
    """Returns the time at which each message of a feed was sent."""
    return {(event.process, int(event.args[0])): event.time for event in history.events if event.kind == "publish"}


def steady_feeds_are_complete(history):
    lossy = history.disturbed("publisher", "subscriber", lossy=True)
    published = _published(history)
    last = {}
    for subscriber, event, publisher, number in _feed(history):
        time, previous = last.get((subscriber, publisher), (event.time, number - 1))
        # A message that is read after a disturbance may have arrived before it.
        begin = min(time, published.get((publisher, previous + 1), time))
        if number > previous + 1 and not lossy.touch(begin, event.time):
            yield f"{subscriber} has missed {publisher} {previous + 1} to {number - 1}, though nothing was disturbed"
        last[subscriber, publisher] = (event.time, number)


def close_policies_are_kept(history):
    served = _served(history)
    disturbed = history.disturbed("server")
    exits = {event.args[0]: event for event in history.of_process["host"] if event.kind == "exit"}
    for process in history.processes("closer"):
        asked, closed = (
            next((event for event in history.of_process[process] if event.kind == kind), None)
            for kind in ("ask", "closed")
        )
        ended = exits.get(process)
        if not (asked and closed and ended) or (process, *asked.args) in served:
            continue
        policy = closed.args[0]
        reachable = disturbed.free_from(asked.time)
        if policy == LINGER_TWO_SECONDS and reachable > closed.time + LINGER_MARGIN:
            continue
        if policy in (LINGER_TWO_SECONDS, WAIT_FOR_DELIVERY):
            if disturbed.next_begin_after(reachable) > ended.time + DELIVERY and reachable < history.end - DELIVERY:
                yield f"{process} is lost, against its close policy {policy}"


def _moments_of_calm(history, *roles):
    """Returns the ends of disturbances after which the next one comes late enough to check the recovery."""
    from_outside = history.disturbed(*roles, repairs=False)
    for end in history.disturbed(*roles).ends:
        if from_outside.next_begin_after(end) > end + RECOVERY and end + RECOVERY < history.end:
            yield end


def clients_are_served_again(history):
    for client in history.roles("client"):
        # The time of the request and of its reply.
        replies = [(asked.time, reply.time) for process in history.processes(client)
                   for asked, reply in _outcomes(history, process, "reply") if asked]
        for calm in _moments_of_calm(history, "server", client):
            if not any(sent >= calm and came <= calm + RECOVERY for sent, came in replies):
                yield f"{client} is not served within {RECOVERY // SECOND} s after {calm}"


def subscribers_are_fed_again(history):
    if not history.processes("subscriber"):
        return
    published = _published(history)
    received = [(published[publisher, number], event.time) for _, event, publisher, number in _feed(history)
                if (publisher, number) in published]
    for calm in _moments_of_calm(history, "publisher", "subscriber"):
        if not any(sent >= calm and came <= calm + RECOVERY for sent, came in received):
            yield f"the subscriber is not fed within {RECOVERY // SECOND} s after {calm}"


def requesters_get_their_own_replies(history):
    for process in history.processes(*history.roles("requester")):
        for asked, event in _outcomes(history, process, *REQUEST_ENDS):
            if event.kind == "garbled" or event.kind == "answer" and event.args[1:3] != (process, *asked.args):
                yield f"{process} has asked {' '.join(asked.args)} and got {' '.join(event.args[1:])}"


def requesters_keep_their_deadlines(history):
    longest = REQUEST_ATTEMPTS * REQUEST_TIMEOUT * SECOND // 1000 + REQUEST_MARGIN
    for process in history.processes(*history.roles("requester")):
        frozen = history.disturbed(role(process))
        for asked, event in _outcomes(history, process, *REQUEST_ENDS):
            if event.time - asked.time > longest and not frozen.touch(asked.time, event.time):
                yield f"{process} {' '.join(asked.args)} has taken {(event.time - asked.time) / SECOND:.3f} s"
