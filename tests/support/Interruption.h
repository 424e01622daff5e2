#pragma once

#include <atomic>
#include <csignal>
#include <pthread.h>
#include <thread>

namespace rk::tests {

/// Runs the blocking `action` in a thread and interrupts it with signals until it ends. The system does not restart the
/// calls of the thread.
template <class Action>
void interrupt(const Action& action) {
    struct sigaction handler = {};
    handler.sa_handler = [](int) {};
    struct sigaction former = {};
    sigaction(SIGUSR1, &handler, &former);
    std::atomic<bool> ended{false};
    std::thread thread([&] {
        action();
        ended = true;
    });
    while (!ended) {
        pthread_kill(thread.native_handle(), SIGUSR1);
        std::this_thread::yield();
    }
    thread.join();
    sigaction(SIGUSR1, &former, nullptr);
}

} // namespace rk::tests
