// Watches a feed, and reports when it falls silent and when it resumes, until its input ends: watchdog [ENDPOINT]

#include "weather.pb.h"

#include <rk/socket/utils/Subscriber.h>

#include <atomic>
#include <chrono>
#include <iostream>
#include <poll.h>
#include <string>
#include <unistd.h>

using Clock = std::chrono::steady_clock;

namespace {

/// Waits for half a second. Returns whether the input has ended or something was typed.
bool isOver() {
    pollfd input{STDIN_FILENO, POLLIN, 0};
    return poll(&input, 1, 500) > 0;
}

} // namespace

int main(int argc, char** argv) {
    std::atomic<Clock::time_point> latest{Clock::now()};
    rk::socket::utils::Subscriber<weather::Report> feed("feed", [&](const weather::Report&) { latest = Clock::now(); });
    std::string error;
    if (!feed.addListenEndpoint(argc > 1 ? argv[1] : "tcp://localhost:5555", error) || !feed.start(error)) {
        std::cerr << error << '\n';
        return 1;
    }
    for (bool wasSilent = true; !isOver();) {
        const bool isSilent = Clock::now() - latest.load() > std::chrono::seconds(1);
        if (isSilent != wasSilent) {
            std::cout << (isSilent ? "silent" : "alive") << std::endl;
            wasSilent = isSilent;
        }
        // The thread has ended, and the log says why. Start it again.
        if (!feed.isServing() && feed.stop(error) && !feed.start(error)) {
            std::cerr << error << '\n';
        }
    }
}
