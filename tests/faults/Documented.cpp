#include "Documented.h"

#include "Strikes.h"

#include <zmq.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

namespace rk::tests {

namespace {

namespace Protocol = socket::Protocol;
using Kind = Outcome::Kind;
using Then = Outcome::Then;

/// What an operation has come to, as far as the faults are taken into account.
struct State {
    Outcome outcome;
    bool jammed = false;        ///< a rebuild has been announced
    bool rebuildFailed = false; ///< for the reason `cause`
    bool connectFailed = false; ///< of a listener, for the reason `cause`
    bool causeUntold = false;   ///< for want of memory
    std::string cause;
};

/// The documentation of the operation of one step.
class Judge {
public:
    explicit Judge(const Step& judged) : step(judged) {}

    std::vector<Outcome> after(const std::vector<Strike>& strikes) const {
        State begin;
        begin.outcome = step.normal;
        begin.jammed = step.jams;
        std::vector<State> states{begin};
        for (const Strike& strike : strikes) {
            std::vector<State> next;
            for (const State& state : states) {
                const std::vector<State> more = apply(state, strike);
                next.insert(next.end(), more.begin(), more.end());
            }
            states = next;
        }
        std::vector<Outcome> outcomes;
        for (const State& state : states) {
            outcomes.push_back(outcomeOf(state));
        }
        return outcomes;
    }

private:
    std::vector<State> apply(const State& state, const Strike& strike) const {
        if (state.outcome.kind == Kind::Ends && !(step.operation == "stop" && strike.function == memory)) {
            return {state};
        }
        if (isRebuilding(strike) && leavesAddressUnnoted(strike)) {
            State refused = state;
            failRebuild(refused, "Socket: Failed connecting/binding socket: " + reason(EADDRINUSE));
            std::vector<State> both = isIgnored(strike) ? std::vector<State>{state} : rebuilding(state, strike);
            both.push_back(refused);
            return both;
        }
        if (isIgnored(strike)) {
            return {state};
        }
        if (isRebuilding(strike)) {
            return rebuilding(state, strike);
        }
        return strike.function == memory ? withoutMemory(state, strike) : failing(state, strike);
    }

    // Rebuilding

    bool isRebuilding(const Strike& strike) const {
        return step.operation == "resetConnections" || (isTransfer() && strike.progress.warned);
    }

    std::vector<State> rebuilding(State state, const Strike& strike) const {
        if (isOneOf(strike.function, {"zmq_send", "zmq_recv"})) {
            const Then then = state.rebuildFailed ? Then::Reopen : Then::Restart;
            failTransfer(state, strike.error);
            state.outcome.then = then;
            return {state};
        }
        if (strike.function == memory) {
            return rebuildingWithoutMemory(state, strike);
        }
        if (strike.function == lock) {
            failRebuild(state, std::strerror(strike.error));
        } else if (!state.rebuildFailed && !isWaitedFor(strike)) {
            failRebuild(state, openingFailure(strike));
        }
        return {state};
    }

    /// The socket has itself given up the address just now.
    static bool isWaitedFor(const Strike& strike) {
        return strike.function == "zmq_bind" && strike.error == EADDRINUSE && !strike.lasting;
    }

    std::vector<State> rebuildingWithoutMemory(State state, const Strike& strike) const {
        if (!strike.progress.released) {
            state.outcome.kind = Kind::Ends; // the endpoints cannot be copied
            return {state};
        }
        if (strike.progress.told || state.causeUntold ||
            (strike.progress.attached && isTransfer() && !state.rebuildFailed)) {
            const Then then = state.rebuildFailed ? Then::Reopen : Then::Restart;
            fail(state, "std::bad_alloc", "std::bad_alloc", then);
            return {state};
        }
        if (!state.rebuildFailed) {
            failRebuild(state, "std::bad_alloc");
            return {state};
        }
        // There is none for the text of the failure, or for the line that tells of it.
        State untold = state;
        untold.causeUntold = true;
        state.cause = "std::bad_alloc";
        return {state, untold};
    }

    void failRebuild(State& state, const std::string& cause) const {
        state.rebuildFailed = true;
        state.cause = cause;
        if (isTransfer()) {
            failTransfer(state, ENOTSOCK);
        }
        state.outcome.then = Then::Reopen;
    }

    // Everything else

    /// Texts are made after the failure that they tell of: without memory for one, that is what is reported.
    std::vector<State> withoutMemory(State state, const Strike& strike) const {
        const bool forThrowing = siteOf(strike).callee == "std::__throw_system_error";
        if (isUnharmed(state)) {
            return {state}; // the line of the statistics is lost
        }
        if (isOneOf(step.operation, {"addBlockToStatistics", "SocketContext", "exit"}) && !forThrowing) {
            return {state}; // the line is lost
        }
        if (step.operation == "setInternalFifoSize") {
            state.outcome.lines.clear();
            return {state};
        }
        if (step.operation == "stop") {
            State noText = state;
            fail(noText, "std::bad_alloc", "std::bad_alloc", Then::Retry);
            return {state, noText};
        }
        if (step.operation == "addListenEndpoint") {
            State refused = state;
            fail(refused, "result", "[Socket Listener rep] Invalid endpoint: std::bad_alloc", Then::Retry);
            fail(state, "std::bad_alloc", "std::bad_alloc", Then::Retry);
            return {state, refused};
        }
        if (step.operation == "start") {
            const bool wasFailing = state.connectFailed || !isSame(state.outcome, step.normal);
            State noText = state;
            noText.connectFailed = false;
            fail(noText, "std::bad_alloc", "std::bad_alloc", Then::Retry);
            State noThread = state;
            fail(noThread, "std::bad_alloc", "std::bad_alloc", Then::Retry);
            failStart(state, strike, "std::bad_alloc");
            if (strike.progress.connected) {
                return {noThread};
            }
            // While it is being connected, only what tells of a first failure can be thrown.
            const bool isFirst = strike.progress.opened && !wasFailing;
            return isFirst ? std::vector<State>{state} : std::vector<State>{noText, noThread, state};
        }
        const State lineLost = state;
        state.jammed = state.jammed && strike.progress.warned;
        state.outcome.lines = step.normal.lines;
        const Then then = isOpening()                                ? Then::Reopen
                          : strike.progress.received && isTransfer() ? Then::Restart
                                                                     : Then::Retry;
        fail(state, "std::bad_alloc", "std::bad_alloc", then);
        return step.counts ? std::vector<State>{state, lineLost} : std::vector<State>{state};
    }

    /// What sends or receives has no need of memory.
    bool isUnharmed(const State& state) const {
        return isOneOf(step.operation, {"send", "receive"}) && step.normal.kind == Kind::Returns &&
               isSame(state.outcome, step.normal) && !state.jammed;
    }

    std::vector<State> failing(State state, const Strike& strike) const {
        if (step.operation == "destroy" || step.operation == "exit" || strike.function == "pthread_join") {
            state.outcome.kind = Kind::Ends; // a destructor throws nothing, and ends no thread
        } else if (step.operation == "start" && strike.function != "pthread_create") {
            State ended = state; // when the socket that could not be locked is destroyed
            ended.outcome.kind = Kind::Ends;
            const bool mayEnd = strike.function == lock && siteOf(strike).isIn("Socket::close");
            failStart(state, strike, strike.function == lock ? std::strerror(strike.error) : openingFailure(strike));
            return mayEnd ? std::vector<State>{state, ended} : std::vector<State>{state};
        } else if (strike.function == lock || strike.function == "pthread_create") {
            fail(state, "std::system_error", std::strerror(strike.error), isOpening() ? Then::Reopen : Then::Retry);
        } else if (isOneOf(step.operation, {"SocketContext", "getSocket"})) {
            fail(state, "result", zmq_strerror(creationError(strike)), Then::Retry);
        } else if (isOpening()) {
            fail(state, "std::runtime_error", openingFailure(strike), Then::Reopen);
        } else if (isTransfer()) {
            return transferring(state, strike);
        } else if (step.operation == "poll") {
            failPoll(state, strike);
        } else if (step.operation == "flushIncomingMessages") {
            failFlush(state, strike);
        } else if (step.operation == "setInternalFifoSize") {
            const bool sends = step.party->pattern == Protocol::Pub || step.party->pattern == Protocol::Req;
            state.outcome.lines.push_back("error: " + step.party->header() + ": Failed setting " +
                                          (sends ? "emission" : "reception") + " buffer size: " + reason(strike.error));
        }
        return {state};
    }

    /// A socket that cannot be made fails the start; one that cannot be connected does not.
    void failStart(State& state, const Strike& strike, const std::string& cause) const {
        if (!strike.progress.opened) {
            fail(state, "result", "[Socket Listener rep] Failed creating socket: " + cause, Then::Retry);
        } else {
            state.connectFailed = true;
            state.outcome.deafens = state.outcome.kind == Kind::Returns;
            state.cause = cause;
        }
    }

    static bool isSame(const Outcome& a, const Outcome& b) { return a.kind == b.kind && a.text == b.text; }

    std::vector<State> transferring(State state, const Strike& strike) const {
        const auto repaired = isSending() ? Protocol::Req : Protocol::Rep;
        state.jammed = strike.error == EFSM && step.party->pattern == repaired;
        if (!state.jammed) {
            failTransfer(state, strike.error);
            return {state};
        }
        if (isSending() || step.jams) {
            return {state};
        }
        // The message is abandoned; whether it comes once more is for the network to say.
        State nothing = state;
        failTransfer(nothing, EAGAIN);
        nothing.outcome.then = Then::Restart;
        return {nothing, state};
    }

    void failTransfer(State& state, int error) const {
        if (error == ETERM) {
            failByTermination(state, isSending() ? "send()" : "recv()");
        } else {
            fail(state, "std::runtime_error", (isSending() ? "Send error: " : "Receive error: ") + reason(error),
                 Then::Retry);
        }
    }

    void failPoll(State& state, const Strike& strike) const {
        if (strike.error == ETERM) {
            failByTermination(state, "poll()");
        } else if (strike.error < 0) {
            fail(state, "result",
                 "Unexpected error in poll(). revents=" +
                     std::to_string(strike.error == readyInError ? ZMQ_POLLERR : 0) + " events=1 on " +
                     step.party->header(),
                 Then::Retry);
        } else {
            fail(state, "result", reason(strike.error), Then::Retry);
        }
    }

    void failFlush(State& state, const Strike& strike) const {
        if (strike.error == ETERM) {
            failByTermination(state, strike.function == "zmq_poll" ? "poll()" : "recv()");
        } else if (strike.function == "zmq_poll") {
            state.outcome.again = true;
        } else {
            fail(state, "std::runtime_error", "Receive error in flushIncomingMessages: " + reason(strike.error),
                 Then::Retry);
        }
    }

    void failByTermination(State& state, const std::string& call) const {
        fail(state, "rk::socket::ZmqContextTerminationException",
             "Context terminated in " + call + " for socket " + step.party->header(), Then::Retry);
    }

    /// Without a context there is none to make a socket from; descriptors are missing, whatever the system says.
    static int creationError(const Strike& strike) {
        return strike.function == "zmq_ctx_new" ? EFAULT : strike.function == "eventfd" ? EMFILE : strike.error;
    }

    std::string openingFailure(const Strike& strike) const {
        if (isOneOf(strike.function, {"zmq_ctx_new", "zmq_socket", "eventfd"})) {
            return "Socket: Failed creating socket " + step.party->header() + " of type " +
                   std::to_string(step.party->pattern) + ": " + reason(creationError(strike));
        }
        if (strike.function == "zmq_setsockopt") {
            return std::string("Socket: Error setting ") +
                   (strike.option == ZMQ_RCVTIMEO ? "ZMQ_RCVTIMEO " : "ZMQ_SUBSCRIBE ") + reason(strike.error);
        }
        return "Socket: Failed connecting/binding socket: " + reason(strike.error);
    }

    std::string reason(int error) const { return zmq_strerror(error) + (" on " + step.party->header()); }

    static void fail(State& state, const std::string& type, const std::string& text, Then then) {
        state.outcome.kind = Kind::Throws;
        state.outcome.deafens = false;
        state.outcome.type = type;
        state.outcome.text = text;
        state.outcome.then = then;
    }

    Outcome outcomeOf(const State& state) const {
        Outcome outcome = state.outcome;
        if (state.jammed) {
            outcome.lines.insert(outcome.lines.begin(),
                                 "warning: " + step.party->header() +
                                     " Attempting reset of the connections to preserve 0MQ state machine integrity");
        }
        if (state.connectFailed) {
            outcome.lines.push_back("error: [Socket Listener on " + step.party->name +
                                    "]: Failed connecting endpoint " + step.endpoint + ": " + state.cause);
        }
        if (state.rebuildFailed && !state.causeUntold) {
            outcome.lines.push_back("error: " + step.party->header() + ": Error resetting socket: " + state.cause);
        }
        return outcome;
    }

    bool isOpening() const { return isOneOf(step.operation, {"create", "connect", "createAndConnect", "close"}); }
    bool isSending() const { return isOneOf(step.operation, {"send", "sendProtoBuf"}); }
    bool isTransfer() const { return isSending() || isOneOf(step.operation, {"receive", "receiveProtoBuf"}); }

    const Step& step;
};

} // namespace

std::vector<Outcome> documented(const Step& step, const std::vector<Strike>& strikes) {
    return Judge(step).after(strikes);
}

} // namespace rk::tests
