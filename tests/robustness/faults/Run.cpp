#include "Run.h"

#include "Inject.h"
#include "Ledger.h"
#include "Outcomes.h"
#include "Sites.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <cxxabi.h>
#include <exception>
#include <sstream>
#include <sys/mman.h>
#include <thread>
#include <typeinfo>
#include <unistd.h>

namespace rk::tests {

namespace {

using Kind = Outcome::Kind;

constexpr unsigned int watchdogSeconds = 15;
const char* const listenersThread = "listener's thread";
const char* const wrongResult = "a wrong result";
const char* const deafLine = "Failed reading socket: Socket: Cannot poll a NULL socket. Aborting listener thread.";

/// The visible part of an outcome.
struct Observed {
    Outcome outcome;
    std::vector<std::string> debug;
    bool closed = false; ///< whether the operation has closed the socket
};

std::string typeName(const std::exception& failure) {
    int status = 0;
    char* const name = abi::__cxa_demangle(typeid(failure).name(), nullptr, nullptr, &status);
    std::string text = name;
    std::free(name);
    return text;
}

bool isIn(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

std::string joined(const std::vector<std::string>& lines) {
    std::string text;
    for (const std::string& line : lines) {
        text += "\n      " + line;
    }
    return text;
}

void addLines(const std::vector<std::string>& lines, Observed& observed) {
    for (const std::string& line : lines) {
        (line.compare(0, 6, "debug:") == 0 ? observed.debug : observed.outcome.lines).push_back(line);
    }
}

std::string replaceAll(std::string text, const std::string& from, const std::string& to) {
    for (std::size_t at = 0; !from.empty() && (at = text.find(from, at)) != std::string::npos; at += to.size()) {
        text.replace(at, from.size(), to);
    }
    return text;
}

bool isOneOf(const std::string& text, std::initializer_list<const char*> list) {
    return std::find(list.begin(), list.end(), text) != list.end();
}

bool isSame(const Outcome& a, const Outcome& b) {
    return a.kind == b.kind && a.type == b.type && a.text == b.text;
}

std::string causeOf(const Strike& strike) {
    static const std::map<int, const char*> options{{ZMQ_RCVTIMEO, " ZMQ_RCVTIMEO"},
                                                    {ZMQ_SUBSCRIBE, " ZMQ_SUBSCRIBE"},
                                                    {ZMQ_LINGER, " ZMQ_LINGER"},
                                                    {ZMQ_IMMEDIATE, " ZMQ_IMMEDIATE"},
                                                    {ZMQ_REQ_CORRELATE, " ZMQ_REQ_CORRELATE"},
                                                    {ZMQ_SNDHWM, " ZMQ_SNDHWM"},
                                                    {ZMQ_RCVHWM, " ZMQ_RCVHWM"},
                                                    {ZMQ_MAXMSGSIZE, " ZMQ_MAXMSGSIZE"},
                                                    {ZMQ_IPV6, " ZMQ_IPV6"},
                                                    {ZMQ_TCP_KEEPALIVE, " ZMQ_TCP_KEEPALIVE"},
                                                    {ZMQ_TCP_KEEPALIVE_IDLE, " ZMQ_TCP_KEEPALIVE_IDLE"},
                                                    {ZMQ_TCP_KEEPALIVE_INTVL, " ZMQ_TCP_KEEPALIVE_INTVL"},
                                                    {ZMQ_TCP_KEEPALIVE_CNT, " ZMQ_TCP_KEEPALIVE_CNT"},
                                                    {ZMQ_TCP_MAXRT, " ZMQ_TCP_MAXRT"},
                                                    {ZMQ_CONNECT_TIMEOUT, " ZMQ_CONNECT_TIMEOUT"},
                                                    {ZMQ_CURVE_SERVER, " ZMQ_CURVE_SERVER"},
                                                    {ZMQ_CURVE_SERVERKEY, " ZMQ_CURVE_SERVERKEY"},
                                                    {ZMQ_CURVE_PUBLICKEY, " ZMQ_CURVE_PUBLICKEY"},
                                                    {ZMQ_CURVE_SECRETKEY, " ZMQ_CURVE_SECRETKEY"},
                                                    {ZMQ_ZAP_DOMAIN, " ZMQ_ZAP_DOMAIN"},
                                                    {93, " ZMQ_ZAP_ENFORCE_DOMAIN"}}; // a draft in zmq.h
    return std::string(entryOf(strike.function).name) +
           (strike.function == Function::ZmqSetsockopt ? options.at(strike.option) : "") +
           (strike.progress.logging  ? " while logging"
            : strike.progress.warned ? " while rebuilding"
                                     : "");
}

/// Runs a scenario in a child process.
class Child {
public:
    Child(const Scenario& scenario, const std::vector<Fault>& faults, Report& target)
        : steps(scenario.steps()), report(target), isOfMany(faults.size() > 1) {
        Faults::instance().arm(faults);
    }

    void go() {
        standardError = memfd_create("stderr", MFD_CLOEXEC);
        dup2(standardError, STDERR_FILENO);
        mainOperation = &Faults::operation();
        Ledger::instance().begin();
        Faults::instance().watching = true;
        for (std::size_t index = 0; index < steps.size();) {
            index = perform(index);
        }
        step = &exitStep;
        steps.clear();
        Faults::operation() = {};
    }

    /// Runs the remaining checks after all destructors of the process.
    void finish() {
        Faults::instance().watching = false;
        const Operation done = Faults::operation();
        Observed seen;
        addLines(done.lines, seen);
        judge(exitStep.operation, textOf(seen, done.strikes), done.strikes);
        for (const std::string& text : Ledger::instance().imbalances(failedTerminations > 1)) {
            fail(text);
        }
        checkWrittenLines();
        if (Faults::instance().sawUnlisted()) {
            fail("a call came from a place in the library that find-sites does not list");
        }
        end();
    }

    /// Judges an uncaught exception.
    [[noreturn]] void terminated() {
        Faults::instance().watching = false;
        const Operation& done = Faults::operation();
        Observed seen;
        addLines(done.lines, seen);
        const bool onThread = &done != mainOperation;
        if (done.strikes.empty()) {
            fail("std::terminate is called in " + step->operation);
        }
        judge(onThread ? listenersThread : step->operation,
              "ends the process" + generic(textOfLines(seen.outcome), done.strikes), done.strikes);
        end();
    }

private:
    /// Performs a step. Returns the index of the next one.
    std::size_t perform(std::size_t index) {
        step = &steps[index];
        Faults::operation() = {};
        Faults::operation().path =
            std::hash<std::string>{}(step->operation + (step->party ? std::to_string(step->party->pattern) : ""));
        const Observed seen = observe(*step);
        const Operation done = std::exchange(Faults::operation(), {});
        if (done.strikes.empty() && (isUnnotedAddress(seen) || isLeftover(seen))) {
            return restart();
        }
        judge(step->operation, textOf(seen, done.strikes), done.strikes);
        if (!debugAgrees(seen.debug)) {
            fail(step->operation + " logs" + joined(seen.debug) + "\n    instead of" + joined(step->debug));
            end();
        }
        if (step->endsThread && !threadIsFine()) {
            Faults::instance().disarm();
            return 0;
        }
        if (seen.outcome.kind == Kind::Returns && isIn(joined(seen.outcome.lines), "Failed connecting endpoint")) {
            Faults::instance().listenerIsDeaf = true;
        }
        const bool goesOn = isSame(seen.outcome, step->normal) && !seen.closed && !step->endsEarly;
        return done.strikes.empty() || goesOn ? index + 1 : recover(index, seen, done);
    }

    /// Judges the thread of the listener that has just ended. Returns whether it has only served.
    bool threadIsFine() {
        const Operation done = Faults::takeOperationOfOthers();
        Observed seen;
        addLines(done.lines, seen);
        std::vector<std::string>& lines = seen.outcome.lines;
        // A listener with a silence limit also logs this without a fault.
        lines.erase(std::remove_if(lines.begin(), lines.end(),
                                   [](const std::string& line) { return isIn(line, "Nothing received for"); }),
                    lines.end());
        const bool didNothing = done.strikes.empty() && lines.empty();
        if (Faults::instance().listenerIsDeaf.exchange(false) && !lines.empty() && isIn(lines.back(), deafLine)) {
            lines.pop_back();
        }
        judge(listenersThread, lines.empty() ? "nothing" : textOf(seen, done.strikes), done.strikes);
        return didNothing;
    }

    /// The address book does not wait for a released address if its lock fails, or if the clock has been advanced.
    bool isUnnotedAddress(const Observed& seen) const {
        return addressIsUnnoted && isIn(seen.outcome.text + joined(seen.outcome.lines), "Address already in use");
    }

    /// A message of the previous attempt may arrive in the next one. The watchdog ends a run in which this repeats.
    bool isLeftover(const Observed& seen) const { return hasRecovered && seen.outcome.type == wrongResult; }

    std::size_t restart() {
        const Unwatched unwatched;
        if (isOneOf(step->operation, {"start", "startOnAll"})) {
            std::find_if(steps.begin(), steps.end(), [](const Step& each) { return each.endsThread; })->run();
            Faults::takeOperationOfOthers();
        }
        return 0;
    }

    /// Repeats the call. If the socket is closed or a resource was used up, restarts the scenario.
    std::size_t recover(std::size_t index, const Observed& seen, const Operation& done) {
        hasRecovered = true;
        Faults::instance().disarm();
        const Unwatched unwatched;
        const auto gone = std::find_if(done.strikes.begin(), done.strikes.end(),
                                       [](const Strike& strike) { return strike.function == Function::ZmqCtxNew; });
        if (gone != done.strikes.end() && step->operation != "SocketContext") {
            // Without a context, every later call fails in the same way.
            judge(step->operation, textOf(observe(*step, true), {}), {*gone});
            return steps.size();
        }
        if (!seen.closed && !done.progress.received && !done.progress.warned) {
            return index;
        }
        // No message of the first attempt may arrive in the second.
        for (const Step& each : steps) {
            if (each.party && each.party != step->party && each.party->socket) {
                each.party->socket->close();
            }
        }
        return 0;
    }

    static bool isClosed(socket::Socket& socket) {
        try {
            std::string error;
            socket.poll(0, error);
        } catch (const std::exception& failure) {
            return std::string(failure.what()) == "Socket: Cannot poll a NULL socket";
        }
        return false;
    }

    static Observed observe(const Step& step, bool fails = false) {
        Observed seen;
        const std::size_t open = Ledger::instance().openSockets();
        try {
            step.run();
        } catch (const Reported& failure) {
            seen.outcome = {Kind::Throws, "result", failure.text, {}};
        } catch (const Wrong& wrong) {
            seen.outcome = {Kind::Throws, wrongResult, wrong.text, {}};
        } catch (const std::exception& failure) {
            seen.outcome = {Kind::Throws, typeName(failure), failure.what(), {}};
        }
        addLines(Faults::operation().lines, seen);
        const bool opens = isOneOf(step.operation, {"create", "connect", "createAndConnect"});
        const bool means = step.operation == "close" && seen.outcome.kind == Kind::Returns;
        if ((fails || !Faults::operation().strikes.empty()) && step.party && step.party->socket && !means) {
            const Unwatched unwatched;
            seen.closed = (opens || Ledger::instance().openSockets() < open) && isClosed(*step.party->socket);
        }
        return seen;
    }

    /// Without a fault, all lines of the step must have been logged. With a fault, each line must be one of its
    /// socket's. The statistics include blocks that were counted before a fault.
    bool debugAgrees(const std::vector<std::string>& seen) const {
        if (!Faults::instance().struck()) {
            return seen.size() == step->debug.size() &&
                   std::equal(seen.begin(), seen.end(), step->debug.begin(), isSameLine);
        }
        return std::all_of(seen.begin(), seen.end(), [&](const std::string& line) {
            return isIn(line, "Rate is ") || std::any_of(steps.begin(), steps.end(), [&](const Step& each) {
                       return each.party == step->party &&
                              std::find(each.debug.begin(), each.debug.end(), line) != each.debug.end();
                   });
        });
    }

    /// Ignores the figures of a rate.
    static bool isSameLine(const std::string& seen, const std::string& expected) {
        return seen == expected || (isIn(expected, "Rate is ") && seen.compare(0, expected.size(), expected) == 0);
    }

    /// Each line is on standard error, unless a fault prevented the write.
    void checkWrittenLines() {
        std::string text;
        char block[4096];
        lseek(standardError, 0, SEEK_SET);
        for (ssize_t size = 0; (size = read(standardError, block, sizeof block)) > 0;) {
            text.append(block, static_cast<std::size_t>(size));
        }
        std::size_t at = 0;
        for (const std::string& line : Faults::instance().lines()) {
            const std::size_t colon = line.find(": ");
            const std::string written = "[rk] [" + line.substr(0, colon) + "] " + line.substr(colon + 2) + "\n";
            const std::size_t found = text.find(written, at);
            if (found != std::string::npos) {
                at = found + written.size();
            } else if (!lineMayBeLost) {
                fail("not written to standard error: " + line);
            }
        }
    }

    /// Compares an outcome with the record. Ends the process if it is not recorded.
    void judge(const std::string& operation, const std::string& outcome, std::vector<Strike> strikes) {
        for (const Strike& strike : strikes) {
            report.struck = true;
            report.struckSites[static_cast<std::size_t>(strike.site)] = true;
            lineMayBeLost = lineMayBeLost || strike.progress.logging;
            failedTerminations +=
                strike.function == Function::ZmqTerm || strike.function == Function::ZmqCtxDestroy ? 1 : 0;
            addressIsUnnoted = addressIsUnnoted || strike.function == Function::PthreadMutexLock ||
                               (strike.function == Function::ZmqBind && strike.error == EADDRINUSE);
        }
        // The timing of ZeroMQ's threads decides whether a bind is retried.
        strikes.erase(std::remove_if(strikes.begin(), strikes.end(),
                                     [](const Strike& strike) { return strike.function == Function::Nanosleep; }),
                      strikes.end());
        Row row{operation, outcome, several, ""};
        if (strikes.size() == 1) {
            row = {operation, outcome, causeOf(strikes.front()), nameOf(strikes.front().error)};
        }
        append(report.rows, row.operation + "|" + row.outcome + "|" + row.cause + "|" + row.error + "\n",
               !strikes.empty());
        // A fault that only occurs after another one need not be recorded by itself.
        const bool isKnown = strikes.empty() ? outcome == "nothing"
                                             : (strikes.size() == 1 && Outcomes::instance().holds(row)) ||
                                                   ((strikes.size() > 1 || isOfMany) &&
                                                    Outcomes::instance().holdsParts(operation, outcome));
        if (!isKnown) {
            fail(row, strikes);
            end();
        }
    }

    std::string textOf(const Observed& seen, const std::vector<Strike>& strikes) const {
        const Outcome& outcome = seen.outcome;
        if (step != nullptr && isSame(outcome, step->normal) && outcome.lines == step->normal.lines && !seen.closed) {
            return "nothing";
        }
        std::string text = "returns";
        if (outcome.kind == Kind::Throws) {
            text = (outcome.type == "result" ? "reports" : "throws " + outcome.type) + " \"" + outcome.text + "\"";
        }
        return generic(text + textOfLines(outcome) + (seen.closed ? "; closed" : ""), strikes);
    }

    static std::string textOfLines(const Outcome& outcome) {
        std::string text;
        for (const std::string& line : outcome.lines) {
            text += "; logs \"" + line + "\"";
        }
        return text;
    }

    /// Returns the string with placeholders for the parts that depend on the error and the scenario.
    std::string generic(std::string text, const std::vector<Strike>& strikes) const {
        for (const Strike& strike : strikes) {
            text = strike.error > 0 ? replaceAll(text, zmq_strerror(strike.error), "E") : text;
        }
        text = replaceAll(text, step->endpoint, "ENDPOINT");
        for (const Step& each : steps) {
            if (each.party) {
                text = replaceAll(text, " of type " + std::to_string(each.party->pattern), " of type TYPE");
                text = replaceAll(text, each.party->name, "NAME");
            }
        }
        return text;
    }

    void fail(const Row& row, const std::vector<Strike>& strikes) {
        std::ostringstream text;
        text << "  in " << row.operation << (step->party ? " of " + step->party->header() : "") << ", where";
        for (const Strike& strike : strikes) {
            text << "\n    " << causeOf(strike) << " fails with " << nameOf(strike.error) << " at "
                 << Sites::instance()[strike.site].text();
        }
        text << (strikes.empty() ? " nothing fails\n" : "\n") << "    seen:      " << row.outcome << "\n    on record: "
             << (strikes.size() == 1 ? Outcomes::instance().expected(row) : "not all parts of it") << "\n";
        append(report.failure, text.str());
    }

    void fail(const std::string& text) { append(report.failure, "  " + text + "\n"); }

    template <std::size_t size>
    static void append(std::array<char, size>& target, const std::string& text, bool isWanted = true) {
        const std::size_t used = std::strlen(target.data());
        if (isWanted && used + text.size() < size) {
            text.copy(target.data() + used, text.size());
        }
    }

    [[noreturn]] void end() {
        const std::vector<SeenCall>& calls = Faults::instance().calls();
        report.callCount = std::min(calls.size(), Report::capacity);
        std::copy_n(calls.begin(), report.callCount, report.calls.begin());
        report.ended = true;
        std::_Exit(0);
    }

    std::vector<Step> steps;
    Report& report;
    const bool isOfMany;
    const Step* step = nullptr;
    const Operation* mainOperation = nullptr;
    Step exitStep{"exit", nullptr, {}};
    int standardError = -1;
    bool lineMayBeLost = false;
    bool addressIsUnnoted = false;
    bool hasRecovered = false;
    int failedTerminations = 0;
};

Child* child = nullptr;

} // namespace

void run(const Scenario& scenario, const std::vector<Fault>& faults, Report& report) {
    alarm(watchdogSeconds);
    prepareInjection();
    // Registered before the library's handlers, so that it runs after them.
    std::atexit([] { child->finish(); });
    std::set_terminate([] { child->terminated(); });
    child = std::make_unique<Child>(scenario, faults, report).release();
    child->go();
    std::exit(0);
}

} // namespace rk::tests
