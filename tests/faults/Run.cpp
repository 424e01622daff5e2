#include "Run.h"

#include "Documented.h"
#include "DocumentedOfThread.h"
#include "Errors.h"
#include "Interposed.h"
#include "Ledger.h"
#include "Lines.h"
#include "Sites.h"

#include <zmq.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <cxxabi.h>
#include <exception>
#include <fcntl.h>
#include <set>
#include <sstream>
#include <sys/mman.h>
#include <typeinfo>
#include <unistd.h>

namespace rk::tests {

namespace {

using Kind = Outcome::Kind;
using Then = Outcome::Then;

constexpr unsigned int watchdogSeconds = 15;

/// What of an outcome can be seen.
struct Observed {
    Outcome outcome;
    std::vector<std::string> debug;
};

std::string typeName(const std::exception& failure) {
    int status = 0;
    char* const name = abi::__cxa_demangle(typeid(failure).name(), nullptr, nullptr, &status);
    std::string text = name;
    std::free(name);
    return text;
}

std::string joined(const std::vector<std::string>& lines) {
    std::string text;
    for (const std::string& line : lines) {
        text += "\n      " + line;
    }
    return text;
}

std::string textOf(const Outcome& outcome) {
    switch (outcome.kind) {
    case Kind::Returns:
        return "returns" + joined(outcome.lines);
    case Kind::Throws:
        return outcome.type + ": " + outcome.text + joined(outcome.lines);
    case Kind::Ends:
        break;
    }
    return "ends the process";
}

const char* const listenersThread = "listener's thread";

bool isEnd(const Outcome& outcome) {
    return outcome.kind == Kind::Ends;
}

bool isDebug(const std::string& line) {
    return line.compare(0, 6, "debug:") == 0;
}

void split(const std::vector<std::string>& lines, Observed& observed) {
    for (const std::string& line : lines) {
        (isDebug(line) ? observed.debug : observed.outcome.lines).push_back(line);
    }
}

std::string replaceAll(std::string text, const std::string& from, const std::string& to) {
    for (std::size_t at = 0; !from.empty() && (at = text.find(from, at)) != std::string::npos; at += to.size()) {
        text.replace(at, from.size(), to);
    }
    return text;
}

/// One child process.
class Child {
public:
    Child(const Scenario& scenario, const std::vector<Fault>& faults, Report& target)
        : name(scenario.name), steps(scenario.steps()), report(target) {
        Faults::instance().arm(faults);
    }

    void go() {
        standardError = memfd_create("stderr", MFD_CLOEXEC);
        dup2(standardError, STDERR_FILENO);
        Lines::instance().begin();
        Ledger::instance().begin();
        Faults::instance().watching = true;
        for (std::size_t index = 0; index < steps.size();) {
            index = perform(index);
        }
        step = &exitStep;
        steps.clear();
        Faults::operation() = {};
        Lines::instance().takeOwn();
    }

    /// What is left to check when the process has run all its destructors.
    void finish() {
        Faults::instance().watching = false;
        const std::vector<Strike> strikes = Faults::operation().strikes;
        const std::vector<Outcome> allowed = documented(exitStep, strikes);
        note(strikes, allowed);
        if (std::all_of(allowed.begin(), allowed.end(), isEnd)) {
            fail("the process ends as if nothing had happened", allowed.front(), strikes);
        }
        for (const std::string& text : Ledger::instance().imbalances(failedTerminations > 1)) {
            fail(text);
        }
        checkWrittenLines();
        if (Faults::instance().sawUnlisted()) {
            fail("a call came from a place in the library that find-sites does not list");
        }
        end();
    }

    /// Called when nobody catches an exception.
    [[noreturn]] void terminated() {
        Faults::instance().watching = false;
        const std::vector<Strike> strikes = Faults::operation().strikes;
        const bool onThread = !Lines::isOwn();
        const auto ending = std::find_if(steps.begin(), steps.end(), [](const Step& each) { return each.endsThread; });
        const auto expected = onThread ? documentedOfThread(*ending, strikes) : documented(*step, strikes);
        note(strikes, expected, onThread ? listenersThread : "");
        if (std::none_of(expected.begin(), expected.end(), isEnd)) {
            fail("std::terminate is called", expected.front(), strikes);
        }
        end();
    }

private:
    /// The index of the step to perform next.
    std::size_t perform(std::size_t index) {
        step = &steps[index];
        Faults::operation() = {};
        const Observed seen = observe(*step);
        const std::vector<Strike> strikes = Faults::operation().strikes;
        Faults::operation() = {};
        if (strikes.empty() && isUnnotedAddress(seen)) {
            return restartDeafListener();
        }
        const std::vector<Outcome> allowed = documented(*step, strikes);
        const auto match =
            std::find_if(allowed.begin(), allowed.end(), [&](const Outcome& outcome) { return agrees(seen, outcome); });
        if (match == allowed.end()) {
            fail(textOf(seen.outcome) + joined(seen.debug), allowed.front(), strikes);
            end();
        }
        note(strikes, allowed);
        if (step->endsThread && !threadIsFine()) {
            Faults::instance().disarm();
            return 0;
        }
        Faults::instance().listenerIsDeaf = Faults::instance().listenerIsDeaf || match->deafens;
        if (strikes.empty() && match->then == Then::Reopen) {
            return index + 1; // closed, as the scenario means it to be
        }
        const bool goesOn = match->kind == step->normal.kind && match->type == step->normal.type &&
                            match->text == step->normal.text && match->then != Then::Reopen && !match->again;
        return goesOn ? index + 1 : recover(index, *match, strikes);
    }

    /// Whether the thread of the listener that has just ended did nothing but serve. What else it did has to be what
    /// is documented.
    bool threadIsFine() {
        const std::vector<Strike> strikes = Faults::takeStrikesOfOthers();
        Observed seen;
        split(Lines::instance().takeOthers(), seen);
        std::vector<Outcome> allowed = documentedOfThread(*step, strikes);
        if (Faults::instance().listenerIsDeaf.exchange(false)) {
            allowed = documentedOfDeafThread(*step, strikes);
        }
        const auto match = std::find_if(allowed.begin(), allowed.end(), [&](const Outcome& outcome) {
            return outcome.kind != Kind::Ends && outcome.lines == seen.outcome.lines;
        });
        const bool isOfMany =
            strikes.size() > 1 && std::all_of(seen.outcome.lines.begin(), seen.outcome.lines.end(),
                                              [&](const auto& line) { return isOfFailingThread(*step, line); });
        if (match == allowed.end() && !isOfMany) {
            fail("the thread logs" + joined(seen.outcome.lines), allowed.front(), strikes);
            end();
        }
        note(strikes, allowed, listenersThread);
        return strikes.empty() && seen.outcome.lines.empty();
    }

    /// When the book of addresses could not be locked, an address is not waited for that is about to come free.
    bool isUnnotedAddress(const Observed& seen) const {
        const std::string text = "Address already in use";
        return unnoted && (seen.outcome.text.find(text) != std::string::npos ||
                           joined(seen.outcome.lines).find(text) != std::string::npos);
    }

    std::size_t restartDeafListener() {
        const Unwatched unwatched;
        if (step->operation == "start") {
            std::find_if(steps.begin(), steps.end(), [](const Step& each) { return each.endsThread; })->run();
            Lines::instance().takeOthers();
        }
        return 0;
    }

    std::size_t recover(std::size_t index, const Outcome& outcome, const std::vector<Strike>& strikes) {
        Faults::instance().disarm();
        const Unwatched unwatched;
        const auto gone = std::find_if(strikes.begin(), strikes.end(),
                                       [](const Strike& strike) { return strike.function == "zmq_ctx_new"; });
        if (gone != strikes.end() && step->operation != "SocketContext") {
            return checkThatNothingHelps(*gone);
        }
        if (outcome.then == Then::Retry) {
            return index;
        }
        const bool closed = outcome.then == Then::Reopen;
        if (step->party && step->party->socket && isClosed(*step->party->socket) != closed) {
            fail(std::string("afterwards the socket is ") + (closed ? "open" : "closed"));
            end();
        }
        // Nothing of the first attempt may reach the second.
        for (const Step& each : steps) {
            if (each.party && each.party != step->party && each.party->socket) {
                each.party->socket->close();
            }
        }
        return 0;
    }

    /// Without a context, no socket can ever be had.
    std::size_t checkThatNothingHelps(const Strike& gone) {
        const Outcome expected = documented(*step, {gone}).front();
        const Observed again = observe(*step);
        if (textOf(again.outcome) != textOf(expected)) {
            fail("a later call " + textOf(again.outcome), expected, {});
        }
        return steps.size();
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

    static Observed observe(const Step& step) {
        Observed seen;
        try {
            step.run();
        } catch (const Reported& failure) {
            seen.outcome = {Kind::Throws, "result", failure.text, {}, {}};
        } catch (const Wrong& wrong) {
            seen.outcome = {Kind::Throws, "a wrong result", wrong.text, {}, {}};
        } catch (const std::exception& failure) {
            seen.outcome = {Kind::Throws, typeName(failure), failure.what(), {}, {}};
        }
        split(Lines::instance().takeOwn(), seen);
        return seen;
    }

    bool agrees(const Observed& seen, const Outcome& expected) const {
        const Outcome& is = seen.outcome;
        return is.kind == expected.kind && is.type == expected.type && is.text == expected.text &&
               is.lines == expected.lines && debugAgrees(seen.debug);
    }

    /// All lines when nothing failed; the first of them when something did; more of them when a socket was rebuilt.
    /// What was counted before counts in statistics.
    bool debugAgrees(const std::vector<std::string>& seen) const {
        if (!Faults::instance().struck()) {
            return seen.size() == step->debug.size() &&
                   std::equal(seen.begin(), seen.end(), step->debug.begin(), isSameLine);
        }
        const std::vector<std::string> rebuilt = linesOfRebuild();
        return std::all_of(seen.begin(), seen.end(), [&](const std::string& line) {
            return contains(step->debug, line) || contains(rebuilt, line) || line.find("Rate is ") != std::string::npos;
        });
    }

    static bool contains(const std::vector<std::string>& lines, const std::string& line) {
        return std::any_of(lines.begin(), lines.end(), [&](const auto& each) { return isSameLine(line, each); });
    }

    /// The figures of a rate are not known beforehand.
    static bool isSameLine(const std::string& seen, const std::string& expected) {
        return seen == expected ||
               (expected.find("Rate is ") != std::string::npos && seen.compare(0, expected.size(), expected) == 0);
    }

    std::vector<std::string> linesOfRebuild() const {
        std::vector<std::string> lines;
        for (const Step& each : steps) {
            if (each.party == step->party) {
                lines.insert(lines.end(), each.debug.begin(), each.debug.end());
            }
        }
        return lines;
    }

    /// Every line was written to standard error, but for those that a fault took away.
    void checkWrittenLines() {
        std::string text;
        char block[4096];
        lseek(standardError, 0, SEEK_SET);
        for (ssize_t size = 0; (size = read(standardError, block, sizeof block)) > 0;) {
            text.append(block, static_cast<std::size_t>(size));
        }
        std::size_t at = 0;
        for (const std::string& line : Lines::instance().all()) {
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

    /// A row of the table: what one fault in an operation comes to.
    void note(const std::vector<Strike>& strikes, const std::vector<Outcome>& allowed, const std::string& thread = "") {
        for (const Strike& strike : strikes) {
            report.struck = true;
            report.struckSites[static_cast<std::size_t>(strike.site)] = true;
            lineMayBeLost = lineMayBeLost || strike.progress.logging;
            failedTerminations += strike.function == "zmq_term" || strike.function == "zmq_ctx_destroy" ? 1 : 0;
            unnoted = unnoted ||
                      (strike.function == "pthread_mutex_lock" && Sites::instance()[strike.site].isIn("AddressBook"));
        }
        // Whether an address has to be waited for is for 0MQ's threads to say: no row of the table.
        if (strikes.size() != 1 || strikes.front().function == "nanosleep") {
            return;
        }
        const Strike& strike = strikes.front();
        std::ostringstream row;
        row << (thread.empty() ? step->operation : thread) << '|' << strike.function
            << (strike.function == "zmq_setsockopt" ? optionName(strike.option) : "") << '|' << nameOf(strike.error)
            << '|' << phaseOf(strike) << '|' << generic(allowed, strike) << '\n';
        append(report.rows, row.str());
    }

    static std::string phaseOf(const Strike& strike) {
        return strike.progress.logging ? "writing a log line" : strike.progress.warned ? "rebuilding" : "";
    }

    static std::string optionName(int option) {
        switch (option) {
        case ZMQ_RCVTIMEO:
            return " ZMQ_RCVTIMEO";
        case ZMQ_SUBSCRIBE:
            return " ZMQ_SUBSCRIBE";
        case ZMQ_LINGER:
            return " ZMQ_LINGER";
        case ZMQ_SNDHWM:
            return " ZMQ_SNDHWM";
        default:
            return " ZMQ_RCVHWM";
        }
    }

    std::string generic(const std::vector<Outcome>& allowed, const Strike& strike) const {
        std::set<std::string> texts;
        for (const Outcome& outcome : allowed) {
            texts.insert(generic(outcome, strike));
        }
        std::string all;
        for (const std::string& text : texts) {
            all += (all.empty() ? "" : ", or ") + text;
        }
        return all;
    }

    std::string generic(const Outcome& outcome, const Strike& strike) const {
        if (outcome.kind == step->normal.kind && outcome.text == step->normal.text &&
            outcome.lines == step->normal.lines) {
            return "nothing else fails";
        }
        std::string text;
        switch (outcome.kind) {
        case Kind::Returns:
            text = "succeeds";
            break;
        case Kind::Throws:
            text = outcome.type == "result" ? "reports \"" + outcome.text + "\""
                                            : "throws `" + outcome.type + "`, \"" + outcome.text + "\"";
            break;
        case Kind::Ends:
            text = "the process ends";
            break;
        }
        for (const std::string& line : outcome.lines) {
            text += "; logs \"" + line + "\"";
        }
        if (outcome.then == Then::Reopen) {
            text += "; the socket is closed";
        }
        if (strike.error > 0) {
            text = replaceAll(text, zmq_strerror(strike.error), "E");
        }
        text = replaceAll(text, step->endpoint, "ENDPOINT");
        if (step->party) {
            text = replaceAll(text, " of type " + std::to_string(step->party->pattern), " of type TYPE");
        }
        return step->party ? replaceAll(text, step->party->name, "NAME") : text;
    }

    void fail(const std::string& seen, const Outcome& expected, const std::vector<Strike>& strikes) {
        std::ostringstream text;
        text << "  in " << step->operation << (step->party ? " of " + step->party->header() : "") << ", where";
        for (const Strike& strike : strikes) {
            text << "\n    " << strike.function << " fails with " << nameOf(strike.error) << " at "
                 << Sites::instance()[strike.site].text();
        }
        text << (strikes.empty() ? " nothing fails\n" : "\n") << "    seen:     " << seen
             << "\n    expected: " << textOf(expected) << "\n";
        append(report.failure, text.str());
    }

    void fail(const std::string& text) { append(report.failure, "  " + text + "\n"); }

    template <std::size_t size>
    static void append(std::array<char, size>& target, const std::string& text) {
        const std::size_t used = std::strlen(target.data());
        text.copy(target.data() + used, size - 1 - used);
    }

    [[noreturn]] void end() {
        for (const Call& call : Faults::instance().calls()) {
            if (report.callCount < Report::capacity) {
                Report::SeenCall& seen = report.calls[report.callCount++];
                seen = {call.site, call.nth, {}, call.inStruckOperation, call.afterStrike};
                call.function.copy(seen.function.data(), seen.function.size() - 1);
            }
        }
        report.ended = true;
        std::_Exit(0);
    }

    const std::string name;
    std::vector<Step> steps;
    Report& report;
    const Step* step = nullptr;
    Step exitStep{"exit", nullptr, {}, {}, {}};
    int standardError = -1;
    bool lineMayBeLost = false;
    bool unnoted = false;
    int failedTerminations = 0;
};

Child* child = nullptr;

} // namespace

void run(const Scenario& scenario, const std::vector<Fault>& faults, Report& report) {
    alarm(watchdogSeconds);
    prepareInterposition();
    // Registered before all that the library registers, hence run after it.
    std::atexit([] { child->finish(); });
    std::set_terminate([] { child->terminated(); });
    child = std::make_unique<Child>(scenario, faults, report).release();
    child->go();
    std::exit(0);
}

} // namespace rk::tests
