#pragma once

#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

namespace rk::tools {

class Frames;
struct Keys;

/// Tells ZeroMQ, on a second thread, which clients may connect: those with trusted keys.
class Gatekeeper {
public:
    /// Starts the thread. Throws std::runtime_error with the reason.
    Gatekeeper(void* context, const Keys& keys);

    /// Waits for the thread, which ends when the context is terminated.
    ~Gatekeeper();
    Gatekeeper(const Gatekeeper&) = delete;
    Gatekeeper& operator=(const Gatekeeper&) = delete;

    /// A line for each key that was refused since the last call, for the first time.
    std::vector<std::string> takeRefusals();

private:
    void answer(const Frames& request);

    const Keys& keys;
    void* socket;
    std::mutex mutex;
    std::set<std::string> refusedKeys;
    std::vector<std::string> refusals;
    std::thread thread;
};

} // namespace rk::tools
