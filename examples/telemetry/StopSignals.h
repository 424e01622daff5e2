#pragma once

#include <atomic>
#include <csignal>
#include <functional>
#include <thread>

namespace telemetry {

/// Turns SIGINT and SIGTERM into a call of a function, on a thread of its own. Made before any other thread, so that
/// every thread leaves these signals to it. They stay blocked when it is gone.
class StopSignals {
public:
    explicit StopSignals(std::function<void()> onStop);
    ~StopSignals();
    StopSignals(const StopSignals&) = delete;
    StopSignals& operator=(const StopSignals&) = delete;

private:
    void wait();

    std::function<void()> onStop;
    sigset_t signals{};
    std::atomic<bool> over{false};
    std::thread thread;
};

} // namespace telemetry
