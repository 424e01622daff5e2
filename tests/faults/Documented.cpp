#include "Documented.h"

#include "Sites.h"

#include <zmq.h>

#include <array>
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

namespace rk::tests {

namespace {

using Kind = Outcome::Kind;
using Then = Outcome::Then;
using socket::Protocol::Protocol;

bool isOneOf(std::string_view text, std::initializer_list<std::string_view> list) {
    return std::find(list.begin(), list.end(), text) != list.end();
}

const Site& siteOf(const Strike& strike) {
    return Sites::instance()[strike.site];
}

/// Results that nobody is told of.
bool isIgnored(const Strike& strike) {
    return strike.progress.logging || strike.error == 0 ||
           isOneOf(strike.function, {"zmq_close", "zmq_term", "zmq_ctx_destroy", "chmod", "gettimeofday", "usleep",
                                     "nanosleep"}) ||
           (strike.function == "zmq_setsockopt" && strike.option == ZMQ_LINGER) ||
           // Then it is not noted that an address was given up.
           siteOf(strike).isIn("AddressBook::close");
}

/// What an operation comes to, worked out one fault after the other.
class Judge {
public:
    explicit Judge(const Step& judged) : step(judged), outcome(judged.normal) {}

    Outcome after(const std::vector<Strike>& strikes) {
        for (const Strike& strike : strikes) {
            if (outcome.kind != Kind::Ends && !isIgnored(strike)) {
                apply(strike);
            }
        }
        return outcome;
    }

private:
    void apply(const Strike& strike) {
        if (isOneOf(step.operation, {"destroy", "exit"})) {
            outcome.kind = Kind::Ends; // a destructor throws nothing
        } else if (step.operation == "resetConnections" || (isTransfer() && strike.progress.warned)) {
            applyToRebuild(strike);
        } else if (strike.function == "operator new") {
            applyMemory(strike);
        } else if (strike.function == "pthread_mutex_lock" || strike.function == "pthread_create") {
            fail("std::system_error", std::strerror(strike.error), isOpening() ? Then::Reopen : Then::Retry);
        } else if (isOpening()) {
            fail("std::runtime_error", openingFailure(strike), strike.function == "zmq_ctx_new" ? Then::Nothing : Then::Reopen);
        } else if (strike.function == "pthread_join") {
            outcome.kind = Kind::Ends; // a thread that nobody joined
        } else if (isTransfer()) {
            applyToTransfer(strike);
        } else if (step.operation == "poll") {
            applyToPoll(strike);
        } else if (step.operation == "flushIncomingMessages") {
            applyToFlush(strike);
        } else if (step.operation == "setInternalFifoSize") {
            const bool sends = step.party->pattern == socket::Protocol::Pub || step.party->pattern == socket::Protocol::Req;
            outcome.lines.push_back("error: " + step.party->header() + ": Failed setting " +
                                    (sends ? "emission" : "reception") + " buffer size: " + reason(strike.error));
        }
    }

    /// Texts are made after the failure that they tell of: without memory for one, that is what is reported.
    void applyMemory(const Strike& strike) {
        if (isTransfer() && hasSucceeded(strike)) {
            return; // the line of the statistics
        }
        if (!strike.progress.warned) {
            outcome.lines = step.normal.lines;
        }
        const bool failed = outcome.kind == Kind::Throws && !isSame(outcome, step.normal);
        const Then then = isOpening()                                          ? Then::Reopen
                          : strike.progress.received && isTransfer()           ? Then::Restart
                          : failed                                             ? outcome.then
                                                                               : Then::Retry;
        fail("std::bad_alloc", "std::bad_alloc", then);
    }

    bool hasSucceeded(const Strike& strike) const {
        return strike.progress.received && siteOf(strike).isIn("Period");
    }

    void applyToRebuild(const Strike& strike) {
        if (isTransfer() && isOneOf(strike.function, {"zmq_send", "zmq_recv"})) {
            applyToTransfer(strike);
            outcome.then = Then::Restart;
        } else if (isTransfer() && strike.function == "operator new" && strike.progress.attached) {
            applyMemory(strike);
            outcome.then = Then::Restart;
        } else if (outcome.then == Then::Reopen) {
            if (strike.function == "operator new") {
                // There is no memory to tell of the failed rebuild, or for the failure of the call.
                rebuildFailed ? fail("std::bad_alloc", "std::bad_alloc", Then::Reopen) : end();
            }
        } else if (strike.function == "operator new" && !strike.progress.released) {
            end();
        } else if (strike.function == "zmq_bind" && strike.error == EADDRINUSE && !strike.lasting) {
            // The socket has itself given up the address just now: waited for.
        } else {
            failRebuild(strike);
        }
    }

    void failRebuild(const Strike& strike) {
        const std::string cause = strike.function == "operator new"         ? "std::bad_alloc"
                                  : strike.function == "pthread_mutex_lock" ? std::strerror(strike.error)
                                                                            : openingFailure(strike);
        outcome.lines.push_back("error: " + step.party->header() + ": Error resetting socket: " + cause);
        rebuildFailed = true;
        if (isTransfer()) {
            outcome.kind = Kind::Throws;
            applyToTransfer({strike.site, isSending() ? "zmq_send" : "zmq_recv", 0, ENOTSOCK, false, strike.progress});
        }
        outcome.then = Then::Reopen;
    }

    void applyToTransfer(const Strike& strike) {
        const bool isJam = strike.error == EFSM && !strike.progress.warned &&
                           step.party->pattern == (isSending() ? socket::Protocol::Req : socket::Protocol::Rep);
        if (isJam) {
            outcome.lines.insert(outcome.lines.begin(),
                                 "warning: " + step.party->header() +
                                     " Attempting reset of the connections to preserve 0MQ state machine integrity");
            if (!isSending()) {
                // What was to be received is abandoned, and nothing else comes.
                fail("std::runtime_error", "Receive error: " + reason(EAGAIN), Then::Restart);
            }
        } else if (strike.error == ETERM) {
            failByTermination(isSending() ? "send()" : "recv()");
        } else {
            fail("std::runtime_error", (isSending() ? "Send error: " : "Receive error: ") + reason(strike.error),
                 strike.error == EAGAIN ? Then::Retry : Then::Retry);
        }
    }

    void applyToPoll(const Strike& strike) {
        if (strike.error == ETERM) {
            failByTermination("poll()");
        } else if (strike.error < 0) {
            fail("result",
                 "Unexpected error in poll(). revents=" + std::to_string(strike.error == readyInError ? ZMQ_POLLERR : 0) +
                     " events=1 on " + step.party->header(),
                 Then::Retry);
        } else {
            fail("result", reason(strike.error), Then::Retry);
        }
    }

    void applyToFlush(const Strike& strike) {
        if (strike.error == ETERM) {
            failByTermination(strike.function == "zmq_poll" ? "poll()" : "recv()");
        } else if (strike.function == "zmq_recv") {
            fail("std::runtime_error", "Receive error in flushIncomingMessages: " + reason(strike.error), Then::Retry);
        }
    }

    std::string openingFailure(const Strike& strike) const {
        if (strike.function == "zmq_ctx_new" || strike.function == "zmq_socket") {
            const int error = strike.function == "zmq_socket" ? strike.error : EFAULT;
            return "Socket: Failed creating socket " + step.party->header() + " of type " +
                   std::to_string(step.party->pattern) + ": " + reason(error);
        }
        if (strike.function == "zmq_setsockopt") {
            return std::string("Socket: Error setting ") +
                   (strike.option == ZMQ_RCVTIMEO ? "ZMQ_RCVTIMEO " : "ZMQ_SUBSCRIBE ") + reason(strike.error);
        }
        return "Socket: Failed connecting/binding socket: " + reason(strike.error);
    }

    std::string reason(int error) const { return zmq_strerror(error) + (" on " + step.party->header()); }

    void failByTermination(const std::string& call) {
        fail("rk::socket::ZmqContextTerminationException",
             "Context terminated in " + call + " for socket " + step.party->header(), Then::Retry);
    }

    void fail(const std::string& type, const std::string& text, Then then) {
        outcome.kind = Kind::Throws;
        outcome.type = type;
        outcome.text = text;
        outcome.then = then;
    }

    void end() { outcome.kind = Kind::Ends; }

    bool isOpening() const {
        return isOneOf(step.operation, {"create", "connect", "createAndConnect", "close"});
    }
    bool isSending() const { return isOneOf(step.operation, {"send", "sendProtoBuf"}); }
    bool isTransfer() const { return isSending() || isOneOf(step.operation, {"receive", "receiveProtoBuf"}); }

    static bool isSame(const Outcome& a, const Outcome& b) { return a.type == b.type && a.text == b.text; }

    const Step& step;
    Outcome outcome;
    bool rebuildFailed = false;
};

} // namespace

std::vector<Outcome> documented(const Step& step, const std::vector<Strike>& strikes) {
    std::vector<Outcome> allowed{Judge(step).after(strikes)};
    // Whether a message comes after all is for the network to say.
    if (allowed.front().text.find("Receive error: Resource temporarily unavailable") == 0 && !allowed.front().lines.empty()) {
        allowed.push_back(step.normal);
        allowed.back().lines = allowed.front().lines;
    }
    // An address that was given up and could not be noted is not waited for.
    const auto unnoted = std::find_if(strikes.begin(), strikes.end(), [](const Strike& strike) {
        return strike.function == "pthread_mutex_lock" && siteOf(strike).isIn("AddressBook");
    });
    if (unnoted != strikes.end()) {
        std::vector<Strike> more = strikes;
        more.push_back({unnoted->site, "zmq_bind", 0, EADDRINUSE, true, unnoted->progress});
        more.back().progress.released = true;
        allowed.push_back(Judge(step).after(more));
    }
    return allowed;
}

std::vector<Outcome> documentedOfThread(const Step& step, const std::vector<Strike>& strikes) {
    return {Judge(step).after(strikes)};
}

} // namespace rk::tests
