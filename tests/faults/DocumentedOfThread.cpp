#include "DocumentedOfThread.h"

#include "Strikes.h"

#include <zmq.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace rk::tests {

namespace {

using Kind = Outcome::Kind;

/// The documentation of a listener's thread: what it logs.
class ThreadJudge {
public:
    explicit ThreadJudge(const Step& judged) : step(judged) {}

    std::vector<Outcome> after(const std::vector<Strike>& strikes) const {
        std::vector<Outcome> outcomes(1);
        constexpr std::size_t most = 4; // what follows is too much to be foretold
        for (std::size_t index = 0; index < std::min(strikes.size(), most); ++index) {
            const Strike& strike = strikes[index];
            if (isIgnored(strike)) {
                continue;
            }
            std::vector<Outcome> next;
            for (const Outcome& outcome : outcomes) {
                if (strike.function == lock) {
                    // It may be when the socket is destroyed, at the thread's end.
                    next.push_back(outcome);
                    next.back().kind = Kind::Ends;
                }
                for (const std::vector<std::string>& lines : linesOf(strike)) {
                    next.push_back(outcome);
                    next.back().lines.insert(next.back().lines.end(), lines.begin(), lines.end());
                    next.back().kind = mayEnd(strike) ? Kind::Ends : outcome.kind;
                }
            }
            outcomes = next;
        }
        return outcomes;
    }

private:
    using Lines = std::vector<std::string>;

    /// There is no memory to copy the endpoints of a socket that is to be rebuilt.
    static bool mayEnd(const Strike& strike) {
        return strike.function == memory && strike.progress.warned && !strike.progress.released;
    }

    std::vector<Lines> linesOf(const Strike& strike) const {
        if (strike.function == "zmq_poll") {
            return {ofPoll(strike)};
        }
        if (strike.function == "zmq_recv") {
            return {ofReceive(strike)};
        }
        if (strike.function == "zmq_send") {
            return {{handling(transferFailure("send()", "Send error: ", strike.error)), warning()}};
        }
        if (strike.function == lock) {
            return strike.progress.warned ? std::vector<Lines>{rebuilding(std::strerror(strike.error)), {}}
                                          : std::vector<Lines>{{reading(std::strerror(strike.error))}, {}};
        }
        if (strike.function == memory) {
            return ofMemory(strike);
        }
        return {rebuilding(openingFailure(strike))};
    }

    Lines ofPoll(const Strike& strike) const {
        if (strike.error == ETERM) {
            return {reading("Context terminated in poll() for socket " + header())};
        }
        if (siteOf(strike).isIn("abandonUnansweredRequest") && strike.error < 0) {
            return {}; // nothing says that a reply is owed
        }
        return {prefix() + "Poll error on socket. Aborting listener thread."};
    }

    Lines ofReceive(const Strike& strike) const {
        if (strike.error == EFSM && !strike.progress.warned) {
            return {warning(), handling(transferFailure("recv()", "Receive error: ", EAGAIN))};
        }
        return {handling(transferFailure("recv()", "Receive error: ", strike.error))};
    }

    std::vector<Lines> ofMemory(const Strike& strike) const {
        const std::string none = "std::bad_alloc";
        if (mayEnd(strike)) {
            return {{}};
        }
        if (strike.progress.released) {
            return {rebuilding(none), {}};
        }
        if (strike.progress.received) {
            return {{handling(none), warning()}};
        }
        return {{handling(none)}};
    }

    Lines rebuilding(const std::string& cause) const {
        return {"error: " + header() + ": Error resetting socket: " + cause,
                reading("Socket: Cannot poll a NULL socket")};
    }

    std::string openingFailure(const Strike& strike) const {
        if (strike.function == "zmq_socket") {
            return "Socket: Failed creating socket " + header() + " of type 3: " + reason(strike.error);
        }
        return "Socket: Failed connecting/binding socket: " + reason(strike.error);
    }

    std::string transferFailure(const std::string& call, const std::string& start, int error) const {
        return error == ETERM ? "Context terminated in " + call + " for socket " + header() : start + reason(error);
    }

    std::string handling(const std::string& cause) const {
        return prefix() + "Failed handling received message: " + cause;
    }
    std::string reading(const std::string& cause) const {
        return prefix() + "Failed reading socket: " + cause + ". Aborting listener thread.";
    }
    std::string warning() const {
        return "warning: " + header() + " Attempting reset of the connections to preserve 0MQ state machine integrity";
    }
    std::string reason(int error) const { return zmq_strerror(error) + (" on " + header()); }
    std::string header() const { return step.party->header(); }
    static std::string prefix() { return "error: [Socket Listener rep] "; }

    const Step& step;
};

} // namespace

std::vector<Outcome> documentedOfThread(const Step& step, const std::vector<Strike>& strikes) {
    return ThreadJudge(step).after(strikes);
}

bool isOfFailingThread(const Step& step, const std::string& line) {
    const std::string listener = "error: [Socket Listener rep] ";
    const std::string header = step.party->header();
    const std::vector<std::string> starts{
        listener + "Failed handling received message: ", listener + "Failed reading socket: ",
        listener + "Poll error on socket. Aborting listener thread.", "error: " + header + ": Error resetting socket: ",
        "warning: " + header + " Attempting reset of the connections to preserve 0MQ state machine integrity"};
    return std::any_of(starts.begin(), starts.end(),
                       [&](const std::string& start) { return line.compare(0, start.size(), start) == 0; });
}

std::vector<Outcome> documentedOfDeafThread(const Step& step, const std::vector<Strike>& strikes) {
    std::vector<Outcome> outcomes = ThreadJudge(step).after(strikes);
    const std::vector<Outcome> stoppedFirst = outcomes;
    for (Outcome& outcome : outcomes) {
        outcome.lines.push_back(
            "error: [Socket Listener rep] Failed reading socket: Socket: Cannot poll a NULL socket. "
            "Aborting listener thread.");
    }
    outcomes.insert(outcomes.end(), stoppedFirst.begin(), stoppedFirst.end());
    return outcomes;
}

} // namespace rk::tests
