#pragma once

#include <atomic>
#include <csignal>
#include <functional>
#include <thread>

namespace telemetry {

/// Calls a function on SIGINT and SIGTERM, on a separate thread. Construct it before any other thread, so that all
/// threads inherit the blocked signals. The signals stay blocked after its destruction.
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
