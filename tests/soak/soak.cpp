#include "soak/Crew.h"
#include "soak/LogWatch.h"
#include "soak/Report.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <malloc.h>
#include <sys/ioctl.h>
#include <unistd.h>

using namespace rk::tests::soak;

namespace {

using Clock = std::chrono::steady_clock;

constexpr double betweenPlainLines = 60;

double secondsSince(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

/// A tenth of the run, but a minute at least and ten at most; a third of a run that is too short for that.
double warmUp(double seconds) {
    return std::min(std::clamp(seconds / 10, 60.0, 600.0), seconds / 3);
}

/// The signals that ask for the end. No thread takes them; the main thread waits for them.
sigset_t blockEndSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        sigaddset(&signals, signal);
    }
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    return signals;
}

bool isEndSignalledWithinASecond(const sigset_t& signals) {
    const timespec second{1, 0};
    return sigtimedwait(&signals, nullptr, &second) > 0;
}

/// Shows one line: redrawn on a terminal, else written anew every minute.
class Display {
public:
    void show(double seconds, const std::string& line) {
        if (terminal) {
            std::cout << '\r' << line.substr(0, columns() - 1) << "\033[K" << std::flush;
        } else if (seconds >= next) {
            std::cout << line << std::endl;
            next = seconds + betweenPlainLines;
        }
    }

    void end() const {
        if (terminal) {
            std::cout << '\n';
        }
    }

private:
    /// A longer line would not be redrawn, but scroll.
    static std::size_t columns() {
        winsize size{};
        const bool known = ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0;
        return known ? size.ws_col : 80;
    }

    const bool terminal = isatty(STDOUT_FILENO) == 1;
    double next = 0;
};

/// One reserve for all threads, and large blocks straight from the system: what is released is given back, so that
/// nothing but what is still in use can grow.
void keepAllocatorFromHoarding() {
    mallopt(M_ARENA_MAX, 1);
    mallopt(M_MMAP_THRESHOLD, 4096);
}

Outcome run(double seconds, std::uint64_t seed, Figures& figures) {
    const sigset_t signals = blockEndSignals();
    const Clock::time_point start = Clock::now();
    Crew crew(seed, figures);
    Record record(warmUp(seconds), seconds);
    Display display;
    ProcessUse use;
    while (secondsSince(start) < seconds && !isEndSignalledWithinASecond(signals)) {
        use = processUse();
        figures.repairs = LogWatch::ofProcess().repairs();
        record.add(secondsSince(start), use);
        display.show(secondsSince(start), liveLine(secondsSince(start), figures, use));
    }
    display.end();
    const double ran = secondsSince(start);
    const std::vector<std::string> hanging = crew.stop();
    for (const std::string& lane : hanging) {
        figures.breach(lane + ": hangs");
    }
    const Outcome outcome{seed, ran, use, record.growth(), figures.breaches()};
    if (!hanging.empty()) {
        std::cout << summary(outcome, figures) << std::flush;
        std::_Exit(EXIT_FAILURE);
    }
    return outcome;
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 3 || std::atof(argv[1]) <= 0) {
        std::cerr << "usage: soak MINUTES SEED [SUMMARY.json]\n";
        return 2;
    }
    keepAllocatorFromHoarding();
    Figures figures;
    const Outcome outcome = run(std::atof(argv[1]) * 60, std::strtoull(argv[2], nullptr, 10), figures);
    std::cout << summary(outcome, figures) << std::flush;
    if (argc > 3) {
        std::ofstream(argv[3]) << json(outcome, figures);
    }
    if (!outcome.isGood()) {
        std::_Exit(EXIT_FAILURE); // a leaked socket would keep the process from ending
    }
    return EXIT_SUCCESS;
}
