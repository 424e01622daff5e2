#include "StopSignals.h"

#include <utility>

namespace telemetry {

StopSignals::StopSignals(std::function<void()> callback) : onStop(std::move(callback)) {
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    thread = std::thread([this] { wait(); });
}

StopSignals::~StopSignals() {
    over = true;
    pthread_kill(thread.native_handle(), SIGTERM);
    thread.join();
}

void StopSignals::wait() {
    int signal = 0;
    while (!over) {
        if (sigwait(&signals, &signal) == 0 && !over) {
            onStop();
        }
    }
}

} // namespace telemetry
