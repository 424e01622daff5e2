// usage: fault_sweep SITES OUTCOMES [record|SCENARIO]
//
// Runs every scenario, or the named one, first without a fault, and then once for every fault. A fault is a call from
// one of the SITES with one error. Each is injected once, and once with all later calls failing too.
//
// Then injects a second fault in the same operation, once for each path. A path consists of the sites that an operation
// on this pattern has passed, and of their errors.
//
// Fails if an outcome is not in OUTCOMES, or if no call from a site has failed. "record" writes the outcomes to
// OUTCOMES.

#include "Outcomes.h"
#include "Run.h"
#include "Scenario.h"
#include "Sites.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <iostream>
#include <map>
#include <new>
#include <set>
#include <sstream>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

namespace rk::tests {

namespace {

constexpr int workers = 8; // they mostly wait
/// The number of first calls of a site that fail in one scenario. The last call fails too.
constexpr int firstCalls = 3;

struct Job {
    const Scenario* scenario;
    Fault fault;
    bool leadsToPairs;
};

template <class Type>
Type& shared() {
    void* const memory = mmap(nullptr, sizeof(Type), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) {
        throw std::bad_alloc();
    }
    return *::new (memory) Type;
}

/// A set of numbers other than 0 that processes share.
class SharedSet {
public:
    /// Returns whether the number is new.
    bool insert(std::size_t number) {
        for (std::size_t at = number % slots.size();; at = (at + 1) % slots.size()) {
            std::size_t found = 0;
            if (slots[at].compare_exchange_strong(found, number)) {
                return true;
            }
            if (found == number) {
                return false;
            }
        }
    }

private:
    std::array<std::atomic<std::size_t>, 1 << 18> slots{};
};

/// The results of all processes of the sweep, in shared memory.
struct Tally {
    SharedSet paths; ///< of pairs of faults
    std::atomic<std::size_t> nextJob{0};
    std::atomic<int> runs{0};
    std::atomic<int> strikes{0};
    std::atomic<int> pairs{0};
    std::atomic<int> failures{0};
    std::array<std::atomic<int>, 1000> struckSites{};
};

std::vector<Scenario> allScenarios() {
    std::vector<Scenario> all;
    for (const auto& some :
         {exchangeScenarios(), securityScenarios(), tuningScenarios(), valueScenarios(), listenerScenarios()}) {
        all.insert(all.end(), some.begin(), some.end());
    }
    return all;
}

std::string describe(const std::vector<Fault>& faults, const Report& report) {
    std::ostringstream text;
    for (const Fault& fault : faults) {
        const auto* const end = report.calls.begin() + report.callCount;
        const auto* const found =
            std::find_if(report.calls.begin(), end, [&](const SeenCall& call) { return call.site == fault.site; });
        text << "\n  call " << fault.nth << " at " << Sites::instance()[fault.site].text() << ": "
             << (found != end ? entryOf(found->function).name : "it") << " fails with " << nameOf(fault.error)
             << (fault.lasting ? ", and from then on" : "");
    }
    return text.str();
}

/// Runs a child. Returns whether it ended as expected.
bool runChild(const Scenario& scenario, const std::vector<Fault>& faults, Report& report, Tally& tally) {
    report.~Report();
    ::new (&report) Report;
    const pid_t process = fork();
    if (process == 0) {
        run(scenario, faults, report);
    }
    int status = 0;
    waitpid(process, &status, 0);
    ++tally.runs;
    std::string failure = report.failure.data();
    if (WIFSIGNALED(status)) {
        failure += WTERMSIG(status) == SIGALRM
                       ? "  the process does not end\n"
                       : "  the process is killed by signal " + std::to_string(WTERMSIG(status)) + "\n";
    } else if (!report.ended || WEXITSTATUS(status) != 0) {
        failure += "  the process ends with status " + std::to_string(WEXITSTATUS(status)) + "\n";
    }
    if (failure.empty()) {
        return true;
    }
    ++tally.failures;
    std::cerr << "\n== " + scenario.name + describe(faults, report) + "\n" + failure;
    return false;
}

std::vector<Job> jobsOf(const Scenario& scenario, const Report& report) {
    // Whether options share a site depends on what the compiler inlines.
    using SiteAndOption = std::pair<int, int>;
    std::map<SiteAndOption, int> last;
    for (std::size_t index = 0; index < report.callCount; ++index) {
        const SeenCall& call = report.calls[index];
        last[{call.site, call.option}] = call.nth;
    }
    std::map<SiteAndOption, int> counts;
    std::vector<Job> jobs;
    for (std::size_t index = 0; index < report.callCount; ++index) {
        const SeenCall& call = report.calls[index];
        const SiteAndOption kind{call.site, call.option};
        if (++counts[kind] > firstCalls && call.nth != last[kind]) {
            continue;
        }
        const auto& errors = entryOf(call.function).errors;
        for (const int error : errors) {
            if (error != 0) {
                const bool leadsToPairs = error == errors.front() || error == ETERM;
                jobs.push_back({&scenario, {call.site, call.nth, error, false}, leadsToPairs});
                jobs.push_back({&scenario, {call.site, call.nth, error, true}, false});
            }
        }
    }
    return jobs;
}

class Worker {
public:
    Worker(const std::vector<Job>& toDo, Tally& common, std::ostream& output)
        : jobs(toDo), tally(common), rows(output), report(shared<Report>()) {}

    void work() {
        for (std::size_t index = tally.nextJob++; index < jobs.size(); index = tally.nextJob++) {
            perform(jobs[index]);
        }
    }

private:
    void perform(const Job& job) {
        attempt(*job.scenario, {job.fault});
        // Later calls of a site differ from the first if an address is released and bound again.
        const bool isNew = job.fault.nth == 1 || job.scenario->isShort || job.fault.error == EADDRINUSE;
        if (!job.leadsToPairs || !isNew) {
            return;
        }
        const std::size_t struck = pathOfStrike(job.fault);
        std::vector<SeenCall> later;
        std::copy_if(report.calls.begin(), report.calls.begin() + static_cast<std::ptrdiff_t>(report.callCount),
                     std::back_inserter(later), [&](const SeenCall& call) {
                         return call.inStruckOperation || (job.scenario->isShort && call.afterStrike);
                     });
        for (const SeenCall& call : later) {
            if (!tally.paths.insert(struck + call.path)) {
                continue;
            }
            const Fault second = firstFault(call);
            attempt(*job.scenario, {job.fault, second});
            ++tally.pairs;
            attemptToThrowWithoutMemory(job, second);
        }
    }

    /// Returns the path that ends with the failed call and its error.
    std::size_t pathOfStrike(const Fault& fault) const {
        const SeenCall* const end = report.calls.cbegin() + report.callCount;
        const SeenCall* const found = std::find_if(report.calls.cbegin(), end, [&](const SeenCall& call) {
            return call.site == fault.site && call.nth == fault.nth;
        });
        return found == end ? 0 : (found->path ^ static_cast<std::size_t>(fault.error)) * 31;
    }

    static Fault firstFault(const SeenCall& call) {
        return {call.site, call.nth, entryOf(call.function).errors.front(), false};
    }

    /// Tries the case that memory is exhausted when the second fault makes the library throw.
    void attemptToThrowWithoutMemory(const Job& job, const Fault& second) {
        for (std::size_t index = 0; index < report.callCount; ++index) {
            const SeenCall call = report.calls[index];
            if (call.inStruckOperation && Sites::instance()[call.site].callee == "std::__throw_system_error") {
                attempt(*job.scenario, {job.fault, second, firstFault(call)});
                return;
            }
        }
    }

    void attempt(const Scenario& scenario, const std::vector<Fault>& faults) {
        runChild(scenario, faults, report, tally);
        if (report.struck) {
            ++tally.strikes;
        }
        for (std::size_t site = 0; site < report.struckSites.size(); ++site) {
            tally.struckSites[site] += report.struckSites[site] ? 1 : 0;
        }
        // The second of two faults is not always reached.
        if (faults.size() == 1) {
            rows << report.rows.data();
            return;
        }
        std::istringstream lines(report.rows.data());
        for (std::string line; std::getline(lines, line);) {
            rows << (line.find(several) != std::string::npos ? line + "\n" : "");
        }
    }

    const std::vector<Job>& jobs;
    Tally& tally;
    std::ostream& rows;
    Report& report;
};

std::set<Row> rowsOf(const std::string& text) {
    std::set<Row> rows;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        const std::vector<std::string> fields = split(line, "|");
        rows.insert({fields.at(0), fields.at(1), fields.at(2), fields.at(3)});
    }
    return rows;
}

/// Runs the jobs in separate processes, a few at a time. The processes return their rows in files.
std::set<Row> performAll(const std::vector<Job>& jobs, Tally& tally) {
    std::vector<int> files;
    for (int number = 0; number < workers; ++number) {
        const int file = memfd_create("rows", 0);
        files.push_back(file);
        if (fork() == 0) {
            std::ostringstream rows;
            Worker(jobs, tally, rows).work();
            const std::string text = rows.str();
            const bool written = write(file, text.data(), text.size()) == static_cast<ssize_t>(text.size());
            std::_Exit(written ? 0 : 1);
        }
    }
    while (wait(nullptr) > 0) {
    }
    std::string all;
    for (const int file : files) {
        char block[65536];
        lseek(file, 0, SEEK_SET);
        for (ssize_t size = 0; (size = read(file, block, sizeof block)) > 0;) {
            all.append(block, static_cast<std::size_t>(size));
        }
    }
    return rowsOf(all);
}

/// Prints and counts the sites that can be reached and have never failed.
int countIdle(const Tally& tally) {
    int idle = 0;
    for (std::size_t index = 0; index < Sites::instance().all().size(); ++index) {
        const Site& site = Sites::instance().all()[index];
        if (tally.struckSites[index] == 0 && !site.mayBeIdle) {
            std::cerr << "never made to fail: " << site.text() << "\n";
            ++idle;
        }
    }
    return idle;
}

std::size_t countMissing(const std::set<Row>& seen) {
    const std::vector<std::string> rows = Outcomes::instance().missing(seen);
    for (const std::string& row : rows) {
        std::cerr << "on record, and not seen: " << row << "\n";
    }
    return rows.size();
}

int sweep(const std::string& record, const std::string& only) {
    auto& tally = shared<Tally>();
    auto& report = shared<Report>();
    const std::vector<Scenario> all = allScenarios();
    std::vector<Job> jobs;
    const auto begin = std::chrono::steady_clock::now();
    for (const Scenario& scenario : all) {
        if ((only.empty() || scenario.name == only) && runChild(scenario, {}, report, tally)) {
            const std::vector<Job> found = jobsOf(scenario, report);
            jobs.insert(jobs.end(), found.begin(), found.end());
        }
    }
    const std::set<Row> rows = performAll(jobs, tally);
    const bool isWhole = only.empty();
    const int idle = isWhole ? countIdle(tally) : 0;
    const std::size_t missing = isWhole && record.empty() ? countMissing(rows) : 0;
    if (!record.empty()) {
        Outcomes::instance().write(record, rows);
    }
    const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - begin;
    std::cout << Sites::instance().all().size() << " sites, " << tally.runs << " runs, " << tally.strikes
              << " with faults, " << tally.pairs << " of them with two, " << taken.count() << " s; " << tally.failures
              << " outcomes are not on record, " << idle << " sites were never made to fail, " << missing
              << " outcomes were not seen\n";
    return tally.failures == 0 && idle == 0 && missing == 0 ? 0 : 1;
}

} // namespace

} // namespace rk::tests

int main(int count, char** arguments) {
    if (count < 3) {
        std::cerr << "usage: fault_sweep SITES OUTCOMES [record|SCENARIO]\n";
        return 2;
    }
    const std::string what = count > 3 ? arguments[3] : "";
    const bool records = what == "record";
    rk::tests::Sites::instance().load(arguments[1]);
    rk::tests::Outcomes::instance().load(arguments[2], records);
    return rk::tests::sweep(records ? arguments[2] : "", records ? "" : what);
}
